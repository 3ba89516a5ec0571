/* host/session.cpp - sessions, secrets and the origin of requests. */
#include "session.h"
#include "complain.h"
#include "store.h"

#include <arpa/inet.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>
#include <algorithm>

using std::string;

static const char findSql[] =
    "select number, token, flash, origin, is_stale, is_awaited"
    " from sessions.live_session join account using (password) where secret = :secret";
static const char formerSql[] = "select 1 from sessions.session where secret = :secret";
static const char visitSql[] =
    "update sessions.session set flash = '', used = unixepoch() where number = :sid";
static const char flashSql[] = "update sessions.session set flash = :flash where number = :sid";

static const char listSql[] =
    "select number, address, strftime('%Y-%m-%d %H:%M', started, 'unixepoch', 'localtime'),"
    " strftime('%Y-%m-%d %H:%M', used, 'unixepoch', 'localtime')"
    " from sessions.live_session join account using (password) order by number desc";

static string header(const char *name)
{
    const char *value = getenv(name);
    return value ? value : "";
}

bool findSession(sqlite3 *db, const string &secret, bool isVisit, Session &session)
{
    Rows rows;
    session = {};
    ScriptResult result = runScript(db, findSql, {{"secret", secret}}, rows);
    if (result != SCRIPT_ROWS)
        return result == SCRIPT_DONE;
    session.number = rows[0][0];
    session.token = rows[0][1];
    session.origin = rows[0][3];
    bool isStale = rows[0][4] == "1";
    if (!isVisit)
        return true;
    session.isAwaited = rows[0][5] == "1";
    const string &flash = rows[0][2];
    session.flash = flash.substr(0, flash.find('\n'));
    session.answer = flash.substr(std::min(flash.size(), session.flash.size() + 1));
    // A disk that takes no more hides no page: the session ends sooner, that is all.
    if (!session.flash.empty() || isStale)
        runScript(db, visitSql, {{"sid", session.number}}, rows);
    return true;
}

bool isFormerSession(sqlite3 *db, const string &secret)
{
    Rows rows;
    return runScript(db, formerSql, {{"secret", secret}}, rows) == SCRIPT_ROWS;
}

void listSessions(sqlite3 *db, Rows &rows)
{
    runScript(db, listSql, {}, rows);
}

void setFlash(sqlite3 *db, const Session &session, const string &flash)
{
    if (flash.empty())
        return;
    Rows rows;
    runScript(db, flashSql, {{"sid", session.number}, {"flash", flash}}, rows);
}

string makeSecret()
{
    unsigned char random[16];
    string text;
    if (getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
        complain("there is no randomness: %s", strerror(errno));
        return text;
    }
    for (unsigned char byte : random) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

bool isSameSecret(const string &a, const string &b)
{
    int difference = a.size() != b.size();
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        difference |= a[i] ^ b[i];
    return difference == 0;
}

string requestOrigin()
{
    string origin = header("HTTP_ORIGIN");
    if (!origin.empty())
        return origin;
    string referer = header("HTTP_REFERER");
    size_t host = referer.find("://");
    return host == string::npos ? "" : referer.substr(0, referer.find('/', host + 3));
}

string hostPort()
{
    string host = header("HTTP_HOST");
    size_t digits = host.find_last_not_of("0123456789");
    return digits != string::npos && host[digits] == ':' ? host.substr(digits) : "";
}

// Whether host, without its port, is an address or a name of this device.
static bool isOwnName(sqlite3 *db, const string &script, const string &names, string host)
{
    unsigned char address[sizeof(in6_addr)];
    bool isBracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (isBracketed)
        return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), address) == 1;
    if (host.ends_with('.')) // as the root of all names is written
        host.pop_back();
    if (host == "localhost" || inet_pton(AF_INET, host.c_str(), address) == 1)
        return true;
    Rows rows;
    return !host.empty() && host.find(' ') == string::npos &&
           ((' ' + names + ' ').find(' ' + host + ' ') != string::npos ||
            runScript(db, script, {{"host", host}}, rows) == SCRIPT_ROWS);
}

// Whether origin is one of this host.
static bool isOriginOf(const string &origin, const string &host)
{
    return origin == "http://" + host || origin == "https://" + host;
}

const char *foreignReason(sqlite3 *db, const string &script, const string &names,
                          const string &sessionOrigin)
{
    string host = header("HTTP_HOST");
    string site = header("HTTP_SEC_FETCH_SITE");
    string origin = requestOrigin();
    if (!isOriginOf(sessionOrigin, host) &&
        !isOwnName(db, script, names, host.substr(0, host.size() - hostPort().size())))
        return "host";
    if (!site.empty() && site != "same-origin")
        return "site";
    if (origin.empty())
        return "no origin";
    if (!isOriginOf(origin, host))
        return "origin";
    return sessionOrigin.empty() || sessionOrigin == origin ? nullptr : "session";
}
