/* tools/preview/databases.cpp - opens databases with SQLite before the host only lets them be
 * read. */
#include "databases.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <sqlite3.h>

using std::string;

static constexpr int LOCK_MILLISECONDS = 2000;

static bool isScript(const Database &database)
{
    return database.path.ends_with(".sql");
}

std::vector<string> filesOf(const Database &database)
{
    std::vector<string> files;
    if (isScript(database))
        files = databaseFiles({database.name, {database.path}});
    return files.empty() ? std::vector{database.path} : files;
}

// Runs the scripts of a database in the file at path. Returns whether all went well.
static bool runScripts(const std::vector<string> &scripts, const string &path, Config &config)
{
    sqlite3 *db = nullptr;
    unlink(path.c_str());
    bool isMade = sqlite3_open(path.c_str(), &db) == SQLITE_OK;
    for (const string &script : scripts) {
        string text;
        const bool isRead = readWhole(script, text);
        if (!isRead || sqlite3_exec(db, text.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
            config.problems.push_back({script, 0, isRead ? sqlite3_errmsg(db) : strerror(errno)});
            isMade = false;
            break;
        }
    }
    sqlite3_close(db);
    return isMade;
}

void makeDatabases(const string &work, const std::vector<Database> &databases, Config &config)
{
    config.databases.clear();
    for (const Database &database : databases) {
        Database made = database;
        if (isScript(database)) {
            made.path = work + "/" + database.name + ".db";
            const string fresh = made.path + ".new";
            if (runScripts(filesOf(database), fresh, config))
                rename(fresh.c_str(), made.path.c_str());
        }
        config.databases.push_back(std::move(made));
    }
}

// What the web program has, and the preview has not.
static void giveNull(sqlite3_context *context, int, sqlite3_value **)
{
    if (sqlite3_user_data(context))
        sqlite3_result_int(context, 0);
    else
        sqlite3_result_null(context);
}

static void addFunctions(sqlite3 *db, const Config &config)
{
    for (const SiteFunction &function : config.functions)
        sqlite3_create_function(db, function.name.c_str(), function.arguments, SQLITE_UTF8,
                                function.givesNumbers ? db : nullptr, giveNull, nullptr, nullptr);
}

static string attach(sqlite3 *db, const Database &database)
{
    char *statement =
        sqlite3_mprintf("attach %Q as \"%w\"", database.path.c_str(), database.name.c_str());
    const int result = sqlite3_exec(db, statement, nullptr, nullptr, nullptr);
    sqlite3_free(statement);
    return result == SQLITE_OK ? "" : sqlite3_errmsg(db);
}

// Opens the first database, without making it, and attaches the others.
static string openAll(sqlite3 **db, const Config &config)
{
    const auto &databases = config.databases;
    const char *path = databases[0].path.c_str();
    if (access(path, R_OK) != 0)
        return databases[0].path + ": " + strerror(errno);
    if (sqlite3_open_v2(path, db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
        return databases[0].path + ": " + sqlite3_errmsg(*db);
    sqlite3_busy_timeout(*db, LOCK_MILLISECONDS);
    if (sqlite3_exec(*db, "select 1 from sqlite_master", nullptr, nullptr, nullptr) != SQLITE_OK)
        return databases[0].path + ": " + sqlite3_errmsg(*db);
    for (size_t i = 1; i < databases.size(); ++i)
        if (const string problem = attach(*db, databases[i]); !problem.empty())
            return databases[i].path + ": " + problem;
    addFunctions(*db, config);
    return "";
}

string openDatabases(Host &host, const Config &config)
{
    sqlite3 *db = nullptr;
    const string problem = openAll(&db, config);
    if (problem.empty() && hostTakeDatabase(host, db))
        return "";
    sqlite3_close(db);
    host.db = nullptr;
    return problem.empty() ? config.databases[0].path + ": it cannot be read" : problem;
}
