/* tools/check/database.cpp - opens the databases that answer a site's queries. Each is a file,
 * which is only read, or what a script makes in memory. */
#include <errno.h>
#include <limits.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "host/encoding.h"
#include "sql.h"
#include "host/ascii.h"
#include "tools/common/files.h"

using std::string;
using std::string_view;

Database::~Database()
{
    sqlite3_close(db);
}

// ---- functions, which are not called ----

static void addFunction(sqlite3 *db, const char *name, int arguments)
{
    sqlite3_create_function(
        db, name, arguments, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
        [](sqlite3_context *context, int, sqlite3_value **) { sqlite3_result_null(context); },
        nullptr, nullptr);
}

// Named in programs, a function of any number of arguments does not tell how many it is
// given; one that is made for a number of them does.
static void tellArguments(sqlite3 *db)
{
    constexpr int most = 9;
    for (const char *name : {"max", "min"})
        for (int count = 2; count <= most; ++count)
            addFunction(db, name, count);
}

static void addFunctions(sqlite3 *db, const std::vector<SiteFunction> &functions)
{
    for (const SiteFunction &function : functions)
        addFunction(db, function.name.c_str(), function.arguments);
}

// ---- scripts ----

// No script reaches a file: VACUUM INTO attaches one, too.
static int allow(void *, int action, const char *, const char *, const char *, const char *)
{
    return action == SQLITE_ATTACH ? SQLITE_DENY : SQLITE_OK;
}

// The line of a script that an offset stands in.
static string lineOf(string_view script, size_t at)
{
    return std::to_string(1 +
                          std::count(script.begin(), script.begin() + static_cast<long>(at), '\n'));
}

// Runs a script, but for the statements about rows, which have to be sound only. Returns
// false with "LINE: reason".
static bool runScript(sqlite3 *db, const string &script, string *problem)
{
    const char *const end = script.c_str() + script.size();
    for (const char *at = script.c_str(); at < end;) {
        sqlite3_stmt *statement = nullptr;
        const char *next = end;
        int status = sqlite3_prepare_v2(db, at, static_cast<int>(end - at), &statement, &next);
        const int offset = std::max(sqlite3_error_offset(db), 0);
        if (statement && !isAboutRows(sqlite3_sql(statement)))
            while ((status = sqlite3_step(statement)) == SQLITE_ROW) {
            }
        sqlite3_finalize(statement);
        if (status != SQLITE_OK && status != SQLITE_DONE) {
            // Where no word is told it is the statement.
            const auto begin = static_cast<size_t>(at - script.c_str());
            const size_t place = offset > 0 ? begin + static_cast<size_t>(offset)
                                            : script.find_first_not_of(" \t\r\n", begin);
            *problem = lineOf(script, std::min(place, script.size())) + ": " + sqlite3_errmsg(db);
            return false;
        }
        at = next;
    }
    return true;
}

// Runs the scripts of a database, the one after the other. Returns false with the place and the
// reason.
static bool runScripts(sqlite3 *db, const SiteDatabase &database, string *problem)
{
    for (const string &path : databaseFiles(database)) {
        string script;
        if (!readBytes(path.c_str(), &script)) {
            *problem = "cannot read " + path + ": " + strerror(errno);
            return false;
        }
        if (!runScript(db, script, problem)) {
            *problem = path + ":" + *problem;
            return false;
        }
    }
    return true;
}

// Puts what scripts make in the place of a connection's database. Returns false with the place
// and the reason.
static bool makeDatabase(sqlite3 *db, const SiteDatabase &database,
                         const std::vector<SiteFunction> &functions, string *problem)
{
    sqlite3 *made = nullptr;
    sqlite3_open(":memory:", &made);
    addFunctions(made, functions);
    sqlite3_set_authorizer(made, allow, nullptr);
    const bool isMade = runScripts(made, database, problem);
    sqlite3_int64 size = 0;
    unsigned char *const bytes = isMade ? sqlite3_serialize(made, "main", &size, 0) : nullptr;
    sqlite3_close(made);
    if (!isMade || (!bytes && size == 0)) // one without a table has no bytes
        return isMade;
    constexpr unsigned flags = SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_READONLY;
    if (bytes &&
        sqlite3_deserialize(db, database.name.c_str(), bytes, size, size, flags) == SQLITE_OK)
        return true;
    *problem = "cannot make the database of " + database.file.path + ": " + sqlite3_errmsg(db);
    return false;
}

// ---- the connection ----

// The path as SQLite finds it, whatever the working directory is. An absolute path cannot be
// taken for one of SQLite's special names.
static bool resolve(const string &path, string *resolved)
{
    char buffer[PATH_MAX];
    if (!realpath(path.c_str(), buffer))
        return false;
    *resolved = buffer;
    return true;
}

static bool openMain(sqlite3 **db, const SiteDatabase *database)
{
    string path = ":memory:";
    int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    if (database) {
        flags = SQLITE_OPEN_READONLY;
        if (!resolve(database->file.path, &path))
            return false;
    }
    return sqlite3_open_v2(path.c_str(), db, flags | SQLITE_OPEN_URI, nullptr) == SQLITE_OK;
}

static bool attach(sqlite3 *db, const SiteDatabase &database, bool isScript)
{
    string path;
    if (!isScript && !resolve(database.file.path, &path))
        return false;
    const string uri =
        isScript ? "file:?mode=memory" : "file:" + encodePercent(path, "/") + "?mode=ro";
    char *const sql = sqlite3_mprintf("attach %Q as \"%w\"", uri.c_str(), database.name.c_str());
    const int status = sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
    sqlite3_free(sql);
    return status == SQLITE_OK;
}

static bool addDatabase(sqlite3 **db, const SiteDatabase &database,
                        const std::vector<SiteFunction> &functions, string *problem)
{
    const bool isScript = database.file.path.ends_with(".sql");
    errno = 0;
    const bool isThere = database.name == "main" ? openMain(db, isScript ? nullptr : &database)
                                                 : attach(*db, database, isScript);
    if (isThere)
        return !isScript || makeDatabase(*db, database, functions, problem);
    *problem = "cannot read database " + database.file.path + ": " +
               (*db && sqlite3_errcode(*db) != SQLITE_OK ? sqlite3_errmsg(*db) : strerror(errno));
    return false;
}

std::unique_ptr<Database> openDatabases(const std::vector<SiteDatabase> &databases,
                                        const std::vector<SiteFunction> &functions, string *problem)
{
    auto opened = std::make_unique<Database>();
    std::vector<SiteDatabase> ordered = databases;
    std::stable_partition(ordered.begin(), ordered.end(),
                          [](const SiteDatabase &database) { return database.name == "main"; });
    for (const SiteDatabase &database : ordered)
        if (!addDatabase(&opened->db, database, functions, problem))
            return nullptr;
    if (!readStored(opened->db, &opened->known)) {
        *problem =
            "cannot read database " + ordered[0].file.path + ": " + sqlite3_errmsg(opened->db);
        return nullptr;
    }
    addFunctions(opened->db, functions);
    tellArguments(opened->db);
    for (const SiteFunction &function : functions)
        if (function.givesNumbers) // SQLite shows names in small letters
            opened->known.numberFunctions.insert(lowered(function.name));
    return opened;
}
