/* host/session.h - who asks, and whether the request is their own will. */
#ifndef HOST_SESSION_H
#define HOST_SESSION_H

#include <string>
#include <vector>

struct sqlite3;

struct Session {
    std::string number;     // in the database; empty when nobody is signed in
    std::string token;      // that this session's forms carry
    std::string flash;      // a text's id, to be shown once; empty for none
    std::string answer;     // what stands behind it, of the program that carries changes out
    std::string origin;     // where it was begun from, such as https://192.0.2.1:8443
    bool isAwaited = false; // by events that have waited for a visit
};

/* Finds the live session of the browser's cookie.
 * secret: the cookie's value. isVisit: a person looks at the page, so the session goes
 * on living, and the flash is handed out; not so for a script that refreshes a page.
 * session: out; empty when there is none.
 *
 * Returns false when the database cannot be read, after a line on standard error. */
bool findSession(sqlite3 *db, const std::string &secret, bool isVisit, Session &session);

/* Whether a cookie is that of a session, also of one that has ended a short while ago. */
bool isFormerSession(sqlite3 *db, const std::string &secret);

/* Lists the sessions that are alive, the newest first: number, browser's address, when begun,
 * when used. rows: out; empty when they cannot be read, after a line on standard error. */
void listSessions(sqlite3 *db, std::vector<std::vector<std::string>> &rows);

/* Has a text shown on the session's next page: flash, its id, empty for none, and behind a line
 * end what is to stand behind it. It is not shown where that cannot be stored, which is told on
 * standard error. */
void setFlash(sqlite3 *db, const Session &session, const std::string &flash);

/* Returns a random text of 32 hexadecimal digits; empty when there is no randomness,
 * after a line on standard error. */
std::string makeSecret();

/* Whether two texts are equal, in a time that depends on their lengths alone. */
bool isSameSecret(const std::string &a, const std::string &b);

/* Returns the origin that the request names, by Origin or, where there is none, by
 * Referer; empty for none. */
std::string requestOrigin();

/* Returns the port that the request's Host names, behind a colon; empty for none. */
std::string hostPort();

/* Whether a page of this site, in its visitor's hands, has caused the request, by the
 * headers that no page can forge. Host must be an address, localhost or a name of the
 * device, or what the session was begun from, when it was one: a foreign name that is made to
 * lead here is none of these. The origin must be that host, with its port: to a browser's
 * cookies all ports are one.
 * script: has a row when :host is a name of the device. names: further names, with blanks
 * between. sessionOrigin: that of the request's session, which must be the same; empty
 * without one.
 *
 * Returns null, or the reason for a refusal, for the error log. */
const char *foreignReason(sqlite3 *db, const std::string &script, const std::string &names,
                          const std::string &sessionOrigin);

#endif
