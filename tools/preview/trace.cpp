/* tools/preview/trace.cpp - what an observer and the host's callbacks learn of a run. A
 * command is known by its record's address from its making to its end. */
#include "trace.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>
#include <algorithm>
#include <string_view>

#include <sqlite3.h>

#include "databases.h"
#include "grammar/commands.h"
#include "base/interpreter.h"
#include "base/log.h"
#include "base/process.h"
#include "pages.h"
#include "tools/common/advice.h"
#include "source.h"
#include "tools/common/files.h"

using std::string;
using std::string_view;

static constexpr size_t SAMPLE_ROWS = 20;
static constexpr size_t SAMPLE_BYTES = 200;

static int64_t now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * int64_t{1000000} + time.tv_nsec / 1000;
}

static Place here()
{
    string file = currentTemplate();
    const int32_t line = file.empty() ? 0 : currentLine();
    return {std::move(file), line};
}

Place tracePlace(const Trace &trace)
{
    if (trace.acting.empty())
        return here();
    const auto found = trace.made.find(trace.acting.back());
    return found == trace.made.end() ? here() : found->second;
}

static Trace &traceOf(void *self)
{
    return *static_cast<Trace *>(self);
}

static void addMessage(Trace &trace, TraceMessage message)
{
    for (TraceMessage &known : trace.messages)
        if (known.text == message.text && known.place.file == message.place.file &&
            known.place.line == message.place.line) {
            ++known.times;
            return;
        }
    trace.messages.push_back(std::move(message));
}

void traceMessage(Trace &trace, int32_t severity, Place place, string text, string hint,
                  Topic topic)
{
    addMessage(trace, {severity, std::move(place), std::move(text), std::move(hint), topic});
}

// ---- Runs without end ----

static constexpr char TOO_LONG[] = "The page was not done after 20 seconds, and was stopped";
static constexpr char TOO_LARGE[] = "The page has more than 64 megabytes, and was stopped";

static volatile sig_atomic_t isOverdue; // set by the alarm; the next event ends the run
static sqlite3 *alarmed;                // the database of the run in progress, for the alarm

// Ends a run in which nothing happens any more. No answer has begun yet. Fit for a signal
// handler: it takes no memory.
[[noreturn]] static void stopAtOnce(const char *why)
{
    char answer[2048];
    char file[256] = "";
    strncpy(file, currentTemplate(), sizeof file - 1);
    std::replace_if(
        file, file + strlen(file), [](char c) { return strchr("<&", c); }, '?');
    const int length = snprintf(answer, sizeof answer, runStoppedPage, why, file, currentLine());
    const auto count = std::min(static_cast<size_t>(std::max(length, 0)), sizeof answer - 1);
    _exit(write(STDOUT_FILENO, answer, count) < 0);
}

// A query in progress fails, and what is told of that ends the run.
static void onAlarm(int)
{
    static constexpr unsigned patience = 2; // seconds for an event to come
    if (isOverdue)
        stopAtOnce(TOO_LONG);
    isOverdue = 1;
    if (alarmed)
        sqlite3_interrupt(alarmed);
    alarm(patience);
}

static void stopRun(Trace &trace, const char *why)
{
    alarm(0);
    trace.microseconds = now() - trace.started;
    observe::setObserver(nullptr);
    trace.stop(why);
}

static void stopIfOverdue(Trace &trace)
{
    if (isOverdue)
        stopRun(trace, TOO_LONG);
}

// ---- Messages ----

// What messages are about, by ranges of their identities.
static Topic topicOf(Message id)
{
    static constexpr struct {
        Message first, last;
        Topic topic;
    } table[] = {
        {Message::EMPTY_INCLUDE, Message::INCLUDES_TOO_DEEP, Topic::INCLUDE},
        {Message::TEXT_MISSING, Message::TEXT_MISSING, Topic::TEXT},
        {Message::UNKNOWN_COMMAND, Message::ENDS_INSIDE, Topic::SYNTAX},
        {Message::MISSING_ARGUMENT, Message::MISSING_ARGUMENT, Topic::SYNTAX},
        {Message::INCLUDE_REFUSED, Message::INCLUDE_REFUSED, Topic::INCLUDE},
        {Message::EMPTY_NUMBER, Message::UPPER_NO_NUMBER, Topic::VALUE},
        {Message::QUERY_FAILED, Message::QUERY_EMPTY, Topic::QUERY},
    };
    for (const auto &row : table)
        if (id >= row.first && id <= row.last)
            return row.topic;
    return Topic::OTHER;
}

// The command of that line that is being read or was read last; the line alone without one.
static Place commandAt(const Trace &trace, const observe::Spot &spot)
{
    for (auto command = trace.unclosed.rbegin(); command != trace.unclosed.rend(); ++command)
        if (command->place.line == spot.line && command->place.file == spot.path)
            return command->place;
    if (trace.closed.line == spot.line && trace.closed.file == spot.path)
        return trace.closed;
    return {spot.path, spot.line};
}

// Where a message's mistake stands.
static Place placeOf(const Trace &trace, const observe::Told &told)
{
    if (told.id == Message::ENDS_INSIDE)
        for (const TraceCommand &command : trace.unclosed)
            if (command.isKnown)
                return command.place;
    if (told.id >= Message::BODIES_TOO_DEEP && told.id <= Message::QUERY_EMPTY)
        return tracePlace(trace);
    return commandAt(trace, told.spot);
}

// Notes that the language lacks the text that is looked up, and where.
static Place noteText(Trace &trace, bool isMissing)
{
    const string file = currentTemplate();
    for (TraceText &text : trace.texts)
        if (text.id == trace.fieldId && text.place.file == file) {
            text.isMissing |= isMissing;
            return text.place;
        }
    const size_t end = trace.fieldAt + trace.fieldId.size() + strlen("{??}");
    trace.texts.push_back({trace.fieldId, {file, 0, trace.fieldAt, end}, isMissing});
    return trace.texts.back().place;
}

static void noteMessage(void *self, const observe::Told &told)
{
    Trace &trace = traceOf(self);
    const Advice &advice = adviceOn(told.id);
    const bool isText = told.id == Message::TEXT_MISSING || told.id == Message::FALLBACK_USED;
    const Place place =
        isText ? noteText(trace, told.id == Message::TEXT_MISSING) : placeOf(trace, told);
    if (!*advice.told || told.id == Message::FALLBACK_USED)
        return;
    // Said again of a command that the grammar has reported.
    if (told.id == Message::MISSING_ARGUMENT && !trace.messages.empty() &&
        trace.messages.back().place.line == place.line)
        return;
    string log = told.text;
    log.resize(log.find_last_not_of('\n') + 1);
    addMessage(trace, {static_cast<int32_t>(messageOf(told.id).severity), place, tellAuthor(told),
                       advice.mending, topicOf(told.id), log, told.id});
}

static void noteBlunder(void *self, const observe::Spot &spot)
{
    Trace &trace = traceOf(self);
    trace.stopped = commandAt(trace, spot);
}

static void noteField(void *self, const char *id, size_t at)
{
    Trace &trace = traceOf(self);
    trace.fieldId = id;
    trace.fieldAt = at;
}

// ---- Templates and commands ----

// The host's lines since the last call; each begins with the program's name, which is
// empty here, and ends with why.
static string takeReport(Trace &trace)
{
    string text(4096, '\0');
    const ssize_t count = pread(trace.reports, text.data(), text.size(), 0);
    text.resize(count > 0 ? static_cast<size_t>(count) : 0);
    if (ftruncate(trace.reports, 0) != 0 || lseek(trace.reports, 0, SEEK_SET) != 0)
        text.clear();
    while (text.ends_with('\n'))
        text.pop_back();
    return text;
}

// The callback around the host's: the library does not tell of what it could not open.
static int32_t openTraced(Interpreter *interpreter, const char *path)
{
    Trace &trace =
        *static_cast<Trace *>(static_cast<Host *>(Orv_Interpreter_HostData(interpreter)));
    TraceTemplate opened;
    opened.path = path;
    opened.parent = trace.open.empty() ? -1 : trace.open.back();
    opened.place = tracePlace(trace);
    const int32_t fd = hostCallbacks.fOpen(interpreter, path);
    if (fd < 0) {
        opened.problem = trace.openProblem ? trace.openProblem : "cannot be opened";
        takeReport(trace);
        if (opened.parent >= 0)
            traceMessage(trace, ORV_LOG_ERROR, opened.place,
                         "Cannot include '" + opened.path + "': " + opened.problem,
                         "Paths begin at the folder that is shown, not at the template's own, and "
                         "nothing outside of it is read.",
                         Topic::INCLUDE);
    } else {
        trace.open.push_back(static_cast<int32_t>(trace.templates.size()));
    }
    trace.templates.push_back(std::move(opened));
    trace.begun.push_back(now());
    return fd;
}

static void noteClosed(void *self, const char *)
{
    Trace &trace = traceOf(self);
    if (trace.open.empty())
        return;
    const auto index = static_cast<size_t>(trace.open.back());
    trace.templates[index].microseconds = now() - trace.begun[index];
    std::erase_if(trace.unclosed, [&trace](const TraceCommand &command) {
        return command.level >= trace.open.size();
    });
    trace.open.pop_back();
}

static void noteToken(void *self, int token, const observe::Match &match, const ArgElem *)
{
    Trace &trace = traceOf(self);
    const size_t level = trace.open.size();
    auto &unclosed = trace.unclosed;
    if (isCommand(token) || token == F_UNDEF) {
        const string file = currentTemplate();
        unclosed.push_back(
            {level, match.depthBefore, {file, zarn_lloc.first_line, match.at}, token != F_UNDEF});
    } else if (token == CMD_END || token == EOF_TAG) {
        for (bool found = false; !found && !unclosed.empty() && unclosed.back().level == level;) {
            found = token == EOF_TAG || unclosed.back().depth <= match.depthAfter;
            trace.closed = unclosed.back().place;
            trace.closed.end = match.end;
            unclosed.pop_back();
        }
    }
}

// A comment, and what begins like a command in it, is open as a command is.
static void noteComment(void *self, const observe::Match &match)
{
    Trace &trace = traceOf(self);
    auto &unclosed = trace.unclosed;
    if (match.depthAfter > match.depthBefore)
        unclosed.push_back(
            {trace.open.size(), match.depthBefore, {currentTemplate(), currentLine(), match.at}});
    else if (!unclosed.empty() && unclosed.back().depth >= match.depthAfter)
        unclosed.pop_back();
}

static void noteMade(void *self, const Cmd *cmd)
{
    Trace &trace = traceOf(self);
    trace.made[cmd] = trace.closed;
}

static void noteBegin(void *self, const Cmd *cmd)
{
    Trace &trace = traceOf(self);
    trace.acting.push_back(cmd);
    stopIfOverdue(trace);
}

static void noteEnd(void *self, const Cmd *, int32_t)
{
    traceOf(self).acting.pop_back();
}

// ---- What commands do ----

static void notePiece(void *self, string_view piece, size_t)
{
    Trace &trace = traceOf(self);
    trace.writes += !piece.empty();
    trace.bytes += piece.size();
    if (trace.bytes > MAX_PAGE_BYTES)
        stopRun(trace, TOO_LARGE);
    stopIfOverdue(trace);
}

// The base64 command opens any file of the machine; here the folder is the limit.
static FILE *openBelow(void *self, const char *path)
{
    Trace &trace = traceOf(self);
    int32_t fd = -1;
    const char *problem = hostOpenFile(trace, path, &fd);
    if (problem)
        traceMessage(trace, ORV_LOG_ERROR, tracePlace(trace),
                     string("base64 cannot read '") + path + "': " + problem,
                     "Nothing outside the folder that is shown is read.");
    trace.files.emplace_back(path);
    FILE *file = problem ? nullptr : fdopen(fd, "r");
    if (!problem && !file)
        close(fd);
    return file;
}

static void noteAssigned(void *self, const char *name, const char *index, const char *value,
                         bool stored)
{
    Trace &trace = traceOf(self);
    if (!inpr->resuming)
        trace.assigned.push_back(
            {index ? string(name) + index + "]" : name, value, "", tracePlace(trace), !stored});
}

static void noteAsked(void *self, int32_t mode, const char *text)
{
    Trace &trace = traceOf(self);
    TraceQuery query;
    query.place = tracePlace(trace);
    query.text = text;
    query.mode = mode;
    query.isRepeated = inpr->resuming != 0;
    trace.queries.push_back(std::move(query));
    trace.asked = now();
}

// Who has set the variable that a parameter stands for, and to what.
static TraceParameter parameterOf(const Trace &trace, const char *name)
{
    TraceParameter made = {name, {}, "nobody"};
    for (const TraceVariable &variable : trace.assigned) {
        if (variable.name != name + 1)
            continue;
        if (!variable.setBy.empty())
            made = {name, variable.value, variable.setBy};
        else if (!made.value)
            made.setBy = "a template, which counts for templates alone";
    }
    return made;
}

// How many a template can name.
static int columnsOf(sqlite3_stmt *statement)
{
    return std::min(sqlite3_column_count(statement), int{ORV_MAX_COLUMNS});
}

static void noteStatement(const Trace &trace, TraceQuery &query, sqlite3_stmt *statement)
{
    for (int i = 1; i <= sqlite3_bind_parameter_count(statement); ++i)
        if (const char *name = sqlite3_bind_parameter_name(statement, i))
            query.parameters.push_back(parameterOf(trace, name));
    for (int i = 0; i < columnsOf(statement); ++i)
        query.columns.emplace_back(sqlite3_column_name(statement, i));
}

static void noteRow(TraceQuery &query, sqlite3_stmt *statement)
{
    if (query.sample.size() >= SAMPLE_ROWS || query.mode == ORV_QUERY_COUNT)
        return;
    auto &row = query.sample.emplace_back();
    for (int i = 0; i < columnsOf(statement); ++i) {
        const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(statement, i));
        if (text)
            row.emplace_back(string_view(text).substr(0, SAMPLE_BYTES));
        else
            row.emplace_back();
    }
}

// SQLite tells of each statement, and of each row that it makes: only here is NULL known from
// an empty text.
static int noteSqlite(unsigned event, void *self, void *about, void *)
{
    Trace &trace = traceOf(self);
    if (trace.queries.empty() || !trace.queries.back().isOpen)
        return 0;
    TraceQuery &query = trace.queries.back();
    auto *statement = static_cast<sqlite3_stmt *>(about);
    if (event == SQLITE_TRACE_ROW)
        noteRow(query, statement);
    else
        noteStatement(trace, query, statement);
    return 0;
}

static int32_t countRows(const QueryRow *row)
{
    int32_t count = 0;
    while (row && row->prev)
        row = row->prev;
    for (; row; row = row->next)
        ++count;
    return count;
}

// The host has answered from memory what the page has asked before: SQLite has told nothing.
static void copyAnswer(const Trace &trace, TraceQuery &query)
{
    for (const TraceQuery &former : trace.queries)
        if (query.columns.empty() && former.text == query.text && former.problem.empty()) {
            query.parameters = former.parameters;
            query.columns = former.columns;
            if (query.mode != ORV_QUERY_COUNT)
                query.sample = former.sample;
        }
}

// What can be done about a query that failed. SQLite has one code for most mistakes.
static const char *hintOnQuery(const Trace &trace)
{
    if (!trace.dbProblem.empty())
        return "The page is loaded again when it can.";
    if (!trace.db)
        return "Start orv-preview with --db FILE to answer queries, or name a database in "
               "orv-check.json.";
    if (sqlite3_errcode(trace.db) == SQLITE_BUSY)
        return "Another program is writing to it; load the page again.";
    return "A name that SQLite does not know is a table or a column of another database; a text "
           "in SQL stands between ' and '.";
}

static void noteAnswered(void *self, int32_t result, const QueryRow *rows)
{
    Trace &trace = traceOf(self);
    TraceQuery &query = trace.queries.back();
    query.microseconds = now() - trace.asked;
    stopIfOverdue(trace);
    query.isOpen = false;
    if (result == 0) {
        query.rows = countRows(rows);
        copyAnswer(trace, query);
        return;
    }
    const string line = takeReport(trace);
    const size_t reason = line.find("': ", std::min(line.size(), query.text.size()));
    query.problem = reason == string::npos ? line : line.substr(reason + 3);
    if (!trace.dbProblem.empty())
        query.problem = trace.dbProblem;
    traceMessage(trace, ORV_LOG_ERROR, query.place, "Query failed: " + query.problem,
                 hintOnQuery(trace), Topic::QUERY);
}

static observe::Observer observerOf(Trace &trace)
{
    observe::Observer observer = {};
    observer.self = &trace;
    observer.closed = noteClosed;
    observer.token = noteToken;
    observer.commented = noteComment;
    observer.blundered = noteBlunder;
    observer.made = noteMade;
    observer.begins = noteBegin;
    observer.ended = noteEnd;
    observer.piece = notePiece;
    observer.assigned = noteAssigned;
    observer.asks = noteAsked;
    observer.answered = noteAnswered;
    observer.looksUp = noteField;
    observer.message = noteMessage;
    observer.opensFile = openBelow;
    return observer;
}

// ---- The run ----

bool traceOpen(Trace &trace, const Config &config, string *why)
{
    trace.reports = memfd_create("reports", MFD_CLOEXEC);
    trace.reportFd = trace.reports;
    const bool isOpen = hostOpen(trace, config.docRoot.c_str(), nullptr);
    const string report = isOpen ? "" : takeReport(trace);
    const size_t reason = report.rfind("': ");
    *why = reason == string::npos ? report : report.substr(reason + 3);
    if (!isOpen || config.databases.empty())
        return isOpen;
    const string problem = openDatabases(trace, config);
    takeReport(trace);
    if (problem.empty())
        return true;
    trace.dbProblem = "the database cannot be read: " + problem;
    traceMessage(trace, ORV_LOG_ERROR, {}, "Cannot read the database " + problem,
                 "The page is loaded again when it can be read.");
    return true;
}

Interpreter *traceInterpreter(Trace &trace)
{
    const InterpreterCallbacks callbacks = {openTraced, hostCallbacks.fQuery, hostCallbacks.fError};
    Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
    if (!interpreter)
        return nullptr;
    Orv_Interpreter_SetHostData(interpreter, static_cast<Host *>(&trace));
    trace.observer = observerOf(trace);
    observe::setObserver(&trace.observer);
    return interpreter;
}

void traceSet(Trace &trace, Interpreter *interpreter, const string &name, const string &value,
              const char *setBy)
{
    if (hostSet(trace, interpreter, name.c_str(), value.c_str()) == 0)
        trace.assigned.push_back({name, value, setBy, {}});
    else
        traceMessage(trace, ORV_LOG_ERROR, {},
                     "The variable '" + name + "' from " + setBy + " cannot be set");
}

string traceRun(Trace &trace, Interpreter *interpreter, const string &page)
{
    const int output = memfd_create("page", MFD_CLOEXEC);
    isOverdue = 0;
    alarmed = trace.db;
    if (trace.db)
        sqlite3_trace_v2(trace.db, SQLITE_TRACE_STMT | SQLITE_TRACE_ROW, noteSqlite, &trace);
    signal(SIGALRM, onAlarm);
    alarm(MAX_PAGE_SECONDS);
    trace.started = now();
    trace.result = Orv_Interpreter_Run(interpreter, page.c_str(), output);
    trace.microseconds = now() - trace.started;
    trace.textCount = interpreter->textFieldCount;
    alarm(0);
    alarmed = nullptr;
    observe::setObserver(nullptr);
    Orv_Interpreter_Destroy(interpreter);
    hostClose(trace);
    string bytes;
    lseek(output, 0, SEEK_SET);
    readOpen(output, &bytes);
    close(output);
    close(trace.reports);
    return bytes;
}
