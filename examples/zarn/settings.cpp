/* examples/zarn/settings.cpp - checks the settings page's form and stores it.
 *
 * Values reach SQL as parameters alone. What depends on other tables, such as the
 * choice of a network, is left to the database's constraints. */
#include "settings.h"

#include <arpa/inet.h>
#include <stdio.h>
#include <algorithm>
#include <sqlite3.h>

using std::string;

// How long the update waits for another program that is writing.
static constexpr int busyMilliseconds = 2000;

static bool isHostname(const string &text)
{
    return !text.empty() && text.size() <= 32 && text.front() != '-' && text.back() != '-' &&
           text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == string::npos;
}

static bool isAddress(const string &text)
{
    in_addr address;
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

static bool isHostNumber(const string &text)
{
    size_t number;
    return text.size() <= 3 && readNumber(text, &number) && number >= 1 && number <= 254;
}

static bool isNetworkName(const string &text)
{
    return !text.empty() && text.size() <= 32 && // bytes, as the air has it
           std::none_of(text.begin(), text.end(),
                        [](char c) { return (c >= '\0' && c < ' ') || c == '\x7f'; });
}

static bool isChoice(const string &text)
{
    return !text.empty() && text.size() <= 8;
}

// The fields that every form has; checkboxes are there or not, whatever their value.
static constexpr struct {
    const char *name;
    bool (*isGood)(const string &value);
    const char *problem; // a text's id
} settings[] = {
    {"hostname", isHostname, "site.settings.bad.hostname"},
    {"nameserver", isAddress, "site.settings.bad.nameserver"},
    {"first", isHostNumber, "site.settings.bad.range"},
    {"last", isHostNumber, "site.settings.bad.range"},
    {"network", isChoice, "site.settings.bad.choice"},
    {"ssid", isNetworkName, "site.settings.bad.ssid"},
    {"channel", isChoice, "site.settings.bad.choice"},
    {"security", isChoice, "site.settings.bad.choice"},
};

static constexpr char updateSql[] =
    "update settings set hostname = :hostname, nameserver = :nameserver,"
    " dhcp = :dhcp is not null, first_host = :first, last_host = :last, network = :network,"
    " ssid = :ssid, channel = :channel, security = :security,"
    " hidden = :hidden is not null, guests = :guests is not null";

static const char *checkSettings(const std::vector<FormField> &fields)
{
    for (const auto &setting : settings) {
        const string *value = findField(fields, setting.name);
        if (!value || !setting.isGood(*value))
            return setting.problem;
    }
    size_t first;
    size_t last;
    readNumber(*findField(fields, "first"), &first);
    readNumber(*findField(fields, "last"), &last);
    return first > last ? "site.settings.bad.range" : nullptr;
}

/* Binds each :name to the form's field; one that is not there stays NULL. */
static int bindFields(sqlite3_stmt *statement, const std::vector<FormField> &fields)
{
    int status = SQLITE_OK;
    for (int i = 1; i <= sqlite3_bind_parameter_count(statement) && status == SQLITE_OK; i++) {
        const string *value = findField(fields, sqlite3_bind_parameter_name(statement, i) + 1);
        if (value) // it outlives the statement
            status = sqlite3_bind_text(statement, i, value->c_str(), -1, SQLITE_STATIC);
    }
    return status;
}

static int update(sqlite3 *db, const std::vector<FormField> &fields)
{
    sqlite3_stmt *statement = nullptr;
    sqlite3_busy_timeout(db, busyMilliseconds);
    int status = sqlite3_exec(db, "pragma foreign_keys = on", nullptr, nullptr, nullptr);
    if (status == SQLITE_OK)
        status = sqlite3_prepare_v2(db, updateSql, -1, &statement, nullptr);
    if (status == SQLITE_OK)
        status = bindFields(statement, fields);
    if (status == SQLITE_OK)
        status = sqlite3_step(statement);
    sqlite3_finalize(statement);
    return status;
}

const char *saveSettings(const char *dbFile, const std::vector<FormField> &fields)
{
    const char *problem = checkSettings(fields);
    if (problem)
        return problem;
    sqlite3 *db = nullptr;
    int status = sqlite3_open_v2(dbFile, &db, SQLITE_OPEN_READWRITE, nullptr);
    if (status == SQLITE_OK)
        status = update(db, fields);
    if (status == SQLITE_CONSTRAINT)
        problem = "site.settings.bad.choice";
    else if (status != SQLITE_DONE)
        problem = "site.settings.bad.store";
    if (problem)
        fprintf(stderr, "zarn: cannot store settings: %s\n", sqlite3_errmsg(db));
    sqlite3_close(db);
    return problem;
}
