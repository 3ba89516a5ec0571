/* host/host.cpp - opens templates, answers queries, reports the error.
 *
 * The interpreter calls from code that no exception may pass: the callbacks use
 * the stack and malloc(), and no container of the C++ library grows in them. */
#include "host.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <algorithm>
#include <sqlite3.h>

// How long a query waits for a program that is writing to the database.
static constexpr int BUSY_MILLISECONDS = 2000;
static constexpr size_t MOST_ANSWERS = 4 << 20; // bytes of answers that are kept

static Host &hostOf(const Interpreter *interpreter)
{
    return *static_cast<Host *>(Orv_Interpreter_HostData(interpreter));
}

// Reports a problem with subject (a path, a query), in one line whatever bytes that
// and the template's name consist of.
// interpreter: whose place is named in front, null when it says nothing.
static void report(Host &host, const Interpreter *interpreter, const char *what,
                   const char *subject, const char *reason)
{
    int32_t number = 0;
    const char *name = interpreter ? Orv_Interpreter_Position(interpreter, &number) : nullptr;
    char place[32] = "";
    if (name)
        snprintf(place, sizeof place, ", line %d: ", number);
    char *line = nullptr;
    if (asprintf(&line, "%s: %s%s%s '%s': %s", host.program, name ? name : "", place, what, subject,
                 reason) < 0)
        line = nullptr;
    for (char *at = line; at && *at; ++at)
        if (static_cast<unsigned char>(*at) < ' ' || *at == '\x7f')
            *at = ' ';
    dprintf(host.reportFd, "%s\n", line ? line : what);
    free(line);
    ++host.problems;
}

// Whether a step of path leads to the parent folder.
static bool hasParentStep(const char *path)
{
    for (const char *at = strstr(path, ".."); at; at = strstr(at + 1, ".."))
        if ((at == path || at[-1] == '/') && (at[2] == '/' || at[2] == '\0'))
            return true;
    return false;
}

const char *hostOpenFile(const Host &host, const char *path, int32_t *fd)
{
    char resolved[PATH_MAX];
    struct stat status;
    if (host.readsInput && strcmp(path, STANDARD_INPUT) == 0) {
        *fd = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        return *fd < 0 ? strerror(errno) : nullptr;
    }
    if (path[0] == '/' || hasParentStep(path))
        return "not below the document root";
    if (!realpath(path, resolved))
        return strerror(errno);
    if (strncmp(resolved, host.docRoot, strlen(host.docRoot)) != 0)
        return "not below the document root";
    // Without O_NONBLOCK a fifo would keep the page waiting for a writer.
    int opened = open(resolved, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (opened < 0)
        return strerror(errno);
    if (fstat(opened, &status) != 0) {
        const int error = errno;
        close(opened);
        errno = error;
        return strerror(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        close(opened);
        return "not a regular file";
    }
    *fd = opened;
    return nullptr;
}

// interpreter: whose template asks for it, null for none.
static int32_t openReporting(Host &host, const Interpreter *interpreter, const char *path)
{
    int32_t fd = -1;
    int32_t line = 0;
    errno = 0;
    host.openProblem = hostOpenFile(host, path, &fd);
    const bool failed = errno == EIO || errno == ENOMEM || errno == EMFILE || errno == ENFILE;
    host.failures += fd < 0 && failed;
    const char *by = host.reportTemplates ? Orv_Interpreter_Position(interpreter, &line) : nullptr;
    const bool isKnown = std::any_of(host.includes.begin(), host.includes.end(),
                                     [&](const HostInclude &one) { return one.path == path; });
    if (by && !isKnown)
        host.includes.push_back({path, by, line});
    if (host.openProblem && (host.reportTemplates || failed))
        report(host, interpreter, "cannot open template", path, host.openProblem);
    return fd;
}

static int32_t openTemplate(Interpreter *interpreter, const char *path)
{
    return openReporting(hostOf(interpreter), interpreter, path);
}

// Functions whose result depends on their arguments alone. A query that calls another, such
// as random() or datetime(), is answered anew each time.
static constexpr char repeatable[] =
    " abs avg coalesce count format glob group_concat hex ifnull iif instr json json_array"
    " json_each json_extract json_group_array json_group_object json_object json_quote json_valid"
    " length like lower ltrim max min nullif printf quote rank replace round row_number rtrim"
    " substr substring sum total trim typeof upper ";

// Lets a statement read tables and compute, and nothing else.
static int authorize(void *host, int action, const char *, const char *function, const char *,
                     const char *)
{
    switch (action) {
    case SQLITE_SELECT:
    case SQLITE_READ:
    case SQLITE_RECURSIVE:
        return SQLITE_OK;
    case SQLITE_FUNCTION:
        if (!strstr(repeatable, (" " + std::string(function) + " ").c_str()))
            static_cast<Host *>(host)->isRepeatable = false;
        return sqlite3_stricmp(function, "load_extension") == 0 ? SQLITE_DENY : SQLITE_OK;
    default:
        return SQLITE_DENY;
    }
}

// Binds each :name to the request's newest variable of that name. One that is
// not set stays NULL. Returns null, or why it cannot be done.
static const char *bindVariables(const Host &host, sqlite3_stmt *statement)
{
    for (int i = 1; i <= sqlite3_bind_parameter_count(statement); ++i) {
        const char *name = sqlite3_bind_parameter_name(statement, i);
        if (!name || name[0] != ':')
            return "only parameters of the form :name have a value";
        auto newest = std::find_if(host.variables.rbegin(), host.variables.rend(),
                                   [name](const HostVariable &v) { return v.name == name + 1; });
        // The texts outlive the statement, so it needs no copy.
        if (newest != host.variables.rend() &&
            sqlite3_bind_text(statement, i, newest->value.c_str(), -1, SQLITE_STATIC) != SQLITE_OK)
            return sqlite3_errmsg(host.db);
    }
    return nullptr;
}

// Reports why a query has no answer. code: SQLite's.
static void reportQuery(Host &host, const Interpreter *interpreter, const char *query,
                        const char *reason, int code)
{
    report(host, interpreter, "cannot answer query", query, reason);
    for (const int failure : {SQLITE_NOMEM, SQLITE_IOERR, SQLITE_CORRUPT, SQLITE_CANTOPEN,
                              SQLITE_NOTADB, SQLITE_FULL, SQLITE_BUSY})
        host.failures += (code & 0xff) == failure;
}

// Returns the statement of a query, bound and owned by the caller; null after a
// report when it is not one statement that only reads.
static sqlite3_stmt *prepareQuery(Host &host, const Interpreter *interpreter, const char *query)
{
    sqlite3_stmt *statement = nullptr;
    const char *rest = "";
    const char *reason = nullptr;
    host.isRepeatable = true;
    if (!host.db)
        reason = "there is no database";
    else if (sqlite3_prepare_v2(host.db, query, -1, &statement, &rest) != SQLITE_OK)
        reason = sqlite3_errmsg(host.db);
    else if (!statement)
        reason = "there is no statement";
    else if (rest[strspn(rest, " \t\r\n\f\v")] != '\0')
        reason = "text follows the statement";
    else if (!sqlite3_stmt_readonly(statement))
        reason = "the statement does not only read";
    else
        reason = bindVariables(host, statement);
    if (!reason)
        return statement;
    reportQuery(host, interpreter, query, reason,
                host.db ? sqlite3_errcode(host.db) : SQLITE_ERROR);
    sqlite3_finalize(statement);
    return nullptr;
}

static void freeRows(QueryRow *last)
{
    while (last) {
        QueryRow *prev = last->prev;
        for (int32_t i = 0; i < last->count; ++i)
            free(last->cols[i]);
        free(last);
        last = prev;
    }
}

// Appends the statement's current row. Returns it, now the last; null when
// memory ran out, and the list is then as before.
static QueryRow *appendRow(QueryRow *last, sqlite3_stmt *statement, int32_t columns)
{
    QueryRow *row = static_cast<QueryRow *>(calloc(1, sizeof(QueryRow)));
    for (int32_t i = 0; row && i < columns; ++i) {
        // The type must be asked for first: reading the text may change it.
        bool isNull = sqlite3_column_type(statement, i) == SQLITE_NULL;
        const void *text = isNull ? nullptr : sqlite3_column_text(statement, i);
        if (isNull || text)
            row->cols[i] = strdup(isNull ? "" : static_cast<const char *>(text));
        if (!row->cols[i]) {
            freeRows(row);
            return nullptr;
        }
        ++row->count;
    }
    if (row && last) {
        row->prev = last;
        last->next = row;
    }
    return row;
}

static size_t sizeOfRows(const QueryRow *last)
{
    size_t size = 0;
    for (; last; last = last->prev) {
        size += sizeof *last;
        for (int32_t i = 0; i < last->count; ++i)
            size += strlen(last->cols[i]) + 1;
    }
    return size;
}

// Where the answer of a query is or can be kept that has been asked before; else null.
// All of a page reads one state of the database, and its variables do not change.
static QueryRow **keptAnswer(Host &host, const char *query)
{
    const auto found = host.answers.find(query);
    if (found != host.answers.end())
        return &found->second;
    if (host.answersSize < MOST_ANSWERS) {
        host.answers.emplace(query, nullptr);
        host.answersSize += strlen(query);
    }
    return nullptr;
}

static void forgetAnswers(Host &host)
{
    for (const auto &[query, rows] : host.answers)
        freeRows(rows);
    host.answers.clear();
    host.answersSize = 0;
}

static int32_t answerQuery(Interpreter *interpreter, int32_t mode, const char *query,
                           QueryRow **rows, int32_t *owned)
{
    Host &host = hostOf(interpreter);
    QueryRow **kept = mode == ORV_QUERY_COUNT ? nullptr : keptAnswer(host, query);
    if (kept && *kept) {
        *rows = *kept;
        *owned = 0;
        return 0;
    }
    sqlite3_stmt *statement = prepareQuery(host, interpreter, query);
    if (!statement)
        return -1;
    int32_t columns = std::min<int32_t>(sqlite3_column_count(statement), ORV_MAX_COLUMNS);
    if (mode == ORV_QUERY_COUNT)
        columns = 0;
    QueryRow *last = nullptr;
    int status;
    while ((status = sqlite3_step(statement)) == SQLITE_ROW) {
        QueryRow *row = appendRow(last, statement, columns);
        if (!row) {
            status = SQLITE_NOMEM;
            break;
        }
        last = row;
    }
    if (status != SQLITE_DONE) {
        reportQuery(host, interpreter, query,
                    status == SQLITE_NOMEM ? "out of memory" : sqlite3_errmsg(host.db), status);
        freeRows(last);
        last = nullptr;
    }
    sqlite3_finalize(statement);
    *rows = last;
    const size_t size = kept && host.isRepeatable ? sizeOfRows(last) : 0;
    *owned = size == 0 || host.answersSize + size > MOST_ANSWERS;
    if (!*owned) {
        *kept = last;
        host.answersSize += size;
    }
    return status == SQLITE_DONE ? 0 : -1;
}

static int32_t reportError(Interpreter *interpreter, const char **message)
{
    *message = hostOf(interpreter).error;
    return *message ? 1 : 0;
}

// From now on the connection only reads. The transaction begins to hold at the first
// query: all of a page read one state. Returns what SQLite does.
static int restrictToReading(Host &host)
{
    int status = sqlite3_exec(host.db, "pragma query_only = on; begin", nullptr, nullptr, nullptr);
    return status == SQLITE_OK ? sqlite3_set_authorizer(host.db, authorize, &host) : status;
}

// Opens the database and reads from it once, since SQLite itself looks at a file
// no sooner. An absolute path cannot be taken for one of SQLite's special names.
// The connection may write where the file can be written to, for one thing: when a
// program was killed while it saved, the first to read afterwards must undo what it
// left half done. Statements cannot write: see query_only and authorize.
static bool openDatabase(Host &host, const char *dbFile)
{
    char resolved[PATH_MAX];
    if (!realpath(dbFile, resolved)) {
        report(host, nullptr, "cannot read database", dbFile, strerror(errno));
        return false;
    }
    int status = sqlite3_open_v2(resolved, &host.db, SQLITE_OPEN_READWRITE, nullptr);
    if (status == SQLITE_OK) {
        sqlite3_busy_timeout(host.db, BUSY_MILLISECONDS);
        status = sqlite3_exec(host.db, "select 1 from sqlite_master", nullptr, nullptr, nullptr);
    }
    if (status == SQLITE_OK)
        status = restrictToReading(host);
    if (status != SQLITE_OK)
        report(host, nullptr, "cannot read database", dbFile, sqlite3_errmsg(host.db));
    return status == SQLITE_OK;
}

bool hostOpen(Host &host, const char *docRoot, const char *dbFile)
{
    if (dbFile && !openDatabase(host, dbFile))
        return false;
    if (!realpath(docRoot, host.docRoot) || chdir(host.docRoot) != 0) {
        report(host, nullptr, "cannot use document root", docRoot, strerror(errno));
        return false;
    }
    size_t length = strlen(host.docRoot);
    if (host.docRoot[length - 1] != '/')
        memcpy(host.docRoot + length, "/", 2);
    return true;
}

bool hostTakeDatabase(Host &host, sqlite3 *db)
{
    host.db = db;
    int status = restrictToReading(host);
    if (status != SQLITE_OK)
        report(host, nullptr, "cannot read database", "", sqlite3_errmsg(db));
    return status == SQLITE_OK;
}

bool hostHasTemplate(Host &host, const char *path)
{
    const int32_t fd = openReporting(host, nullptr, path);
    if (fd >= 0)
        close(fd);
    return fd >= 0;
}

bool hostReadFile(Host &host, const char *path, std::string &text)
{
    char piece[4096];
    ssize_t size = 0;
    int32_t fd = -1;
    const char *problem = hostOpenFile(host, path, &fd);
    text.clear();
    while (!problem && (size = read(fd, piece, sizeof piece)) > 0)
        text.append(piece, static_cast<size_t>(size));
    if (size < 0)
        problem = strerror(errno);
    if (fd >= 0)
        close(fd);
    if (problem)
        report(host, nullptr, "cannot read file", path, problem);
    return !problem;
}

const InterpreterCallbacks hostCallbacks = {openTemplate, answerQuery, reportError};

Interpreter *hostInterpreter(Host &host)
{
    Interpreter *interpreter = Orv_Interpreter_Create(&hostCallbacks);
    Orv_Interpreter_SetHostData(interpreter, &host);
    return interpreter;
}

int32_t hostSet(Host &host, Interpreter *interpreter, const char *name, const char *value)
{
    int32_t result = Orv_Interpreter_SetVariable(interpreter, name, value);
    if (result == 0 && !strchr(name, '['))
        host.variables.push_back({name, value});
    forgetAnswers(host);
    return result;
}

void hostEndReading(Host &host)
{
    if (host.db && !sqlite3_get_autocommit(host.db)) {
        sqlite3_set_authorizer(host.db, nullptr, nullptr);
        sqlite3_exec(host.db, "rollback", nullptr, nullptr, nullptr);
    }
}

void hostClose(Host &host)
{
    forgetAnswers(host);
    sqlite3_close(host.db);
    host.db = nullptr;
}
