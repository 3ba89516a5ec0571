/* host/store.cpp - runs the web program's own statements. */
#include "store.h"
#include "complain.h"
#include "figures.h"

#include <crypt.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <sqlite3.h>

using std::string;

// How long a statement waits for another program that is writing.
static constexpr int WAIT_MILLISECONDS = 5000;

// How many passwords are looked at at a time: each hash takes 16 MiB and a processor.
static constexpr int TURNS = 2;

// How long changes wait for others that are being applied: longer than those may take.
static constexpr int APPLY_MILLISECONDS = 25000;

// yescrypt, at the library's own cost; its salt comes from the system.
static constexpr char hashPrefix[] = "$y$";

static const char *argumentText(sqlite3_value *value)
{
    return reinterpret_cast<const char *>(sqlite3_value_text(value));
}

// Makes the hash of a password under a setting, which an older hash is too, the statement's
// result: itself or, with stored, whether it is that one. Without memory or randomness the
// statement fails, and so does its script: nothing is known about the password then.
static void resultOfHash(sqlite3_context *context, const char *password, const char *setting,
                         const char *stored)
{
    crypt_data *work = static_cast<crypt_data *>(calloc(1, sizeof(crypt_data)));
    const char *text = work && setting ? crypt_r(password, setting, work) : nullptr;
    if (!text || text[0] == '*') // the library's errno does not tell the cases apart
        sqlite3_result_error(context,
                             "a password cannot be hashed: too little memory or no randomness, "
                             "or what is stored is no hash",
                             -1);
    else if (stored)
        // Where two hashes differ tells nothing about the password.
        sqlite3_result_int(context, strcmp(text, stored) == 0);
    else
        sqlite3_result_text(context, text, -1, SQLITE_TRANSIENT);
    free(work);
}

static void passwordHash(sqlite3_context *context, int, sqlite3_value **arguments)
{
    const char *password = argumentText(arguments[0]);
    if (!password)
        return;
    char setting[CRYPT_GENSALT_OUTPUT_SIZE];
    resultOfHash(context, password,
                 crypt_gensalt_rn(hashPrefix, 0, nullptr, 0, setting, sizeof setting), nullptr);
}

static void passwordFits(sqlite3_context *context, int, sqlite3_value **arguments)
{
    const char *password = argumentText(arguments[0]);
    const char *stored = argumentText(arguments[1]);
    if (password && strlen(password) >= CRYPT_MAX_PASSPHRASE_SIZE)
        sqlite3_result_int(context, 0); // no hash was made of it
    else if (password && stored)
        resultOfHash(context, password, stored, stored);
}

// Waits for one of some turns, the locked bytes of a file beside the sessions, which the process
// then has until it ends, whatever ends it.
// first, count: of the bytes. problem: why none is left.
//
// Returns null, or why it has none.
static const char *takeTurn(sqlite3 *db, int first, int count, int milliseconds,
                            const char *problem)
{
    static constexpr int STEP_MILLISECONDS = 20;
    string path = string(sqlite3_db_filename(db, "sessions")) + "-turns";
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
        return strerror(errno);
    for (int waited = 0; waited < milliseconds; waited += STEP_MILLISECONDS) {
        for (int turn = first; turn < first + count; ++turn) {
            struct flock lock = {};
            lock.l_type = F_WRLCK;
            lock.l_whence = SEEK_SET;
            lock.l_start = turn;
            lock.l_len = 1;
            if (fcntl(fd, F_OFD_SETLK, &lock) == 0)
                return nullptr;
        }
        sqlite3_sleep(STEP_MILLISECONDS);
    }
    close(fd);
    return problem;
}

static void passwordTurn(sqlite3_context *context, int, sqlite3_value **)
{
    const char *problem = takeTurn(sqlite3_context_db_handle(context), 0, TURNS, WAIT_MILLISECONDS,
                                   "too many passwords are looked at");
    if (problem)
        sqlite3_result_error(context, problem, -1);
}

bool storeApplyTurn(sqlite3 *db)
{
    const char *problem =
        takeTurn(db, TURNS, 1, APPLY_MILLISECONDS, "others are applied, and for too long");
    if (problem)
        complain("changes are not applied: %s", problem);
    return !problem;
}

// Attaches a database. Returns what SQLite does.
static int attach(sqlite3 *db, const char *file, const char *name)
{
    char *sql = sqlite3_mprintf("attach %Q as %Q", file, name);
    int status = sql ? sqlite3_exec(db, sql, nullptr, nullptr, nullptr) : SQLITE_NOMEM;
    sqlite3_free(sql);
    return status;
}

sqlite3 *storeOpen(const string &file, const string &sessionsFile, const char *figures)
{
    sqlite3 *db = nullptr;
    // A page is a process, and half of its instructions are SQLite's.
    sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    if (file.empty()) { // which stands for a temporary one
        complain("no database is named");
        return nullptr;
    }
    int status =
        sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (status == SQLITE_OK) // first: "pragma synchronous" reads the database
        status = sqlite3_busy_timeout(db, WAIT_MILLISECONDS);
    if (status == SQLITE_OK)
        // "extra": what was saved is still there when the power fails right afterwards. What
        // is temporary must find room on a full disk, too.
        status = sqlite3_exec(db,
                              "pragma foreign_keys = on; pragma synchronous = extra;"
                              "pragma temp_store = memory",
                              nullptr, nullptr, nullptr);
    if (status == SQLITE_OK)
        status = attach(db, sessionsFile.c_str(), "sessions");
    if (status == SQLITE_OK)
        status = sqlite3_create_function(db, "password_hash", 1, SQLITE_UTF8, nullptr, passwordHash,
                                         nullptr, nullptr);
    if (status == SQLITE_OK)
        status = sqlite3_create_function(db, "password_fits", 2, SQLITE_UTF8, nullptr, passwordFits,
                                         nullptr, nullptr);
    if (status == SQLITE_OK)
        status = sqlite3_create_function(db, "password_turn", 0, SQLITE_UTF8, nullptr, passwordTurn,
                                         nullptr, nullptr);
    if (status == SQLITE_OK && figures)
        status = addFigures(db, figures);
    if (status == SQLITE_OK)
        return db;
    complain("cannot use the database: %s", sqlite3_errmsg(db));
    sqlite3_close(db);
    return nullptr;
}

bool storeHasSessions(sqlite3 *db)
{
    return sqlite3_table_column_metadata(db, "sessions", "session", nullptr, nullptr, nullptr,
                                         nullptr, nullptr, nullptr) == SQLITE_OK;
}

// Binds each :name to its value; they must outlive the statement.
static int bindParameters(sqlite3_stmt *statement, const std::vector<FormField> &parameters)
{
    int status = SQLITE_OK;
    for (int i = 1; i <= sqlite3_bind_parameter_count(statement) && status == SQLITE_OK; ++i) {
        const string *value = findField(parameters, sqlite3_bind_parameter_name(statement, i) + 1);
        if (value)
            status = sqlite3_bind_text(statement, i, value->c_str(), -1, SQLITE_STATIC);
    }
    return status;
}

static void addRow(sqlite3_stmt *statement, Rows &rows)
{
    std::vector<string> row;
    for (int i = 0; i < sqlite3_column_count(statement); ++i) {
        const void *text = sqlite3_column_text(statement, i);
        row.emplace_back(text ? static_cast<const char *>(text) : "");
    }
    rows.push_back(std::move(row));
}

// Runs the first statement at *rest and moves on behind it. Returns SQLITE_DONE, also
// where there is none, or what went wrong.
static int runStatement(sqlite3 *db, const char **rest, const std::vector<FormField> &parameters,
                        Rows &rows)
{
    sqlite3_stmt *statement = nullptr;
    int status = sqlite3_prepare_v2(db, *rest, -1, &statement, rest);
    if (status == SQLITE_OK && !statement)
        return SQLITE_DONE;
    if (status == SQLITE_OK)
        status = bindParameters(statement, parameters);
    if (status == SQLITE_OK)
        while ((status = sqlite3_step(statement)) == SQLITE_ROW)
            addRow(statement, rows);
    sqlite3_finalize(statement);
    return status;
}

ScriptResult runScript(sqlite3 *db, const string &script, const std::vector<FormField> &parameters,
                       Rows &rows)
{
    const char *rest = script.c_str();
    int status = SQLITE_DONE;
    rows.clear();
    while (status == SQLITE_DONE && rows.empty() && *rest != '\0')
        status = runStatement(db, &rest, parameters, rows);
    if (status != SQLITE_DONE)
        complain("a statement has failed: %s", sqlite3_errmsg(db));
    if (!sqlite3_get_autocommit(db))
        sqlite3_exec(db, "rollback", nullptr, nullptr, nullptr);
    if (status != SQLITE_DONE)
        return SCRIPT_FAILED;
    return rows.empty() ? SCRIPT_DONE : SCRIPT_ROWS;
}

bool storeForm(sqlite3 *db, const std::vector<FormField> &fields)
{
    Rows rows;
    bool isStored = runScript(db, "create temp table form (name text primary key, value text)", {},
                              rows) == SCRIPT_DONE;
    for (const FormField &field : fields)
        isStored = isStored &&
                   runScript(db, "insert or replace into form values (:name, :value)",
                             {{"name", field.name}, {"value", field.value}}, rows) == SCRIPT_DONE;
    return isStored;
}
