/* tools/preview/trace.cpp - see the header. The trace that runs is the process's. */
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

#include "excerpt.h"
#include "interface/interpreter.h"
#include "interface/log.h"
#include "interface/process.h"
#include "pages.h"
#include "vars/tree.h"

using std::string;
using std::string_view;

static constexpr size_t SAMPLE_ROWS = 20;
static constexpr size_t SAMPLE_BYTES = 200;

static Trace *running; // borrowed

static int64_t now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * int64_t{1000000} + time.tv_nsec / 1000;
}

static Place here()
{
    const string file = currentTemplate();
    return {file, file.empty() ? 0 : currentLine()};
}

static Trace &traceOf(const Interpreter *interpreter)
{
    return *static_cast<Trace *>(static_cast<Host *>(Orv_Interpreter_HostData(interpreter)));
}

void traceMessage(Trace &trace, int32_t severity, Place place, string text)
{
    for (TraceMessage &known : trace.messages)
        if (known.text == text && known.place.file == place.file &&
            known.place.line == place.line) {
            ++known.times;
            return;
        }
    trace.messages.push_back({severity, std::move(place), std::move(text)});
}

int32_t traceCount(const Trace &trace, int32_t severity)
{
    return static_cast<int32_t>(
        std::count_if(trace.messages.begin(), trace.messages.end(),
                      [severity](const TraceMessage &m) { return m.severity == severity; }));
}

// Ends a run that would never end by itself. No answer has begun yet. Fit for a signal
// handler: it takes no memory.
[[noreturn]] static void stopRun(const char *why)
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

// ---- The log ----

// Takes what the log says in front of a message off it.
static Place takePlace(string_view &text)
{
    Place place = here();
    for (const char *form : {", near line ", ", line ", ": "}) {
        const string prefix = place.file + form;
        if (place.file.empty() || !text.starts_with(prefix))
            continue;
        text.remove_prefix(prefix.size());
        if (form[0] == ',') {
            place.line =
                static_cast<int32_t>(strtol(string(text.substr(0, 9)).c_str(), nullptr, 10));
            text.remove_prefix(std::min(text.find(": ") + 2, text.size()));
        }
        break;
    }
    return place;
}

// The id of the text field that a message tells of, empty without one.
static string fieldIn(string_view text)
{
    const size_t start = text.find("{?");
    const size_t end = text.find("?}", std::min(start, text.size()));
    return string(end == string_view::npos ? "" : text.substr(start + 2, end - start - 2));
}

// Notes a text that the language lacks. Its line is looked for: a field is replaced
// when its piece of the template is read ahead.
static Place noteText(Trace &trace, const string &id, bool isMissing)
{
    const string file = currentTemplate();
    for (TraceText &text : trace.texts)
        if (text.id == id && text.place.file == file) {
            text.isMissing |= isMissing;
            return text.place;
        }
    trace.texts.push_back({id, {file, lineOf(trace, file, "{?" + id + "?}", 0)}, isMissing});
    return trace.texts.back().place;
}

// Said by what the trace shows elsewhere, or of no use to an author.
static constexpr string_view unshown[] = {"zarn - CGI-Variable set: ", "zarn - $HTML_TOOLTIPS ",
                                          ": Real Time ", "fQuery() returned -1!",
                                          "zarn - Language entries not found for current language"};

static void takeLogLine(Trace &trace, string_view text)
{
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    // A message is counted before it is written.
    static int32_t counts[ORV_LOG_SEVERITIES];
    int32_t severity = ORV_LOG_NOTICE;
    for (int32_t i = 0; i < ORV_LOG_SEVERITIES; ++i) {
        if (logCounts[i] != counts[i])
            severity = i;
        counts[i] = logCounts[i];
    }
    for (string_view part : unshown)
        if (text.find(part) != string_view::npos)
            return;
    const bool isFallback = text.starts_with("zarn - Fallback for DB-Field ");
    Place place = takePlace(text);
    if (isFallback || text.starts_with("WARNING - HTML-Text entry "))
        place = noteText(trace, fieldIn(text), !isFallback);
    else if (text.ends_with("File ends inside cmd"))
        place.line = lineOf(trace, place.file, "<?", INT32_MAX);
    for (string_view word : {"WARNING - ", "Warning: "}) // the severity tells it
        if (text.starts_with(word))
            text.remove_prefix(word.size());
    // Said again, in the library's words, of a command that the grammar has reported.
    const bool isSaid = text.find(": Missing ") != string_view::npos && !trace.messages.empty() &&
                        trace.messages.back().place.line == place.line;
    if (!isFallback && !isSaid)
        traceMessage(trace, severity, std::move(place), string(text));
}

// ---- The callbacks, around the host's ----

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

static int32_t openTraced(Interpreter *interpreter, const char *path)
{
    Trace &trace = traceOf(interpreter);
    TraceTemplate opened;
    opened.path = path;
    opened.parent = trace.open.empty() ? -1 : trace.open.back();
    opened.place = here();
    const int32_t fd = hostCallbacks.fOpen(interpreter, path);
    if (fd < 0) {
        opened.problem = trace.openProblem ? trace.openProblem : "cannot be opened";
        takeReport(trace);
        if (opened.parent >= 0)
            traceMessage(trace, ORV_LOG_ERROR, opened.place,
                         "Cannot include '" + opened.path + "': " + opened.problem);
    } else {
        trace.open.push_back(static_cast<int32_t>(trace.templates.size()));
    }
    trace.templates.push_back(std::move(opened));
    trace.begun.push_back(now());
    return fd;
}

static void keepRows(TraceQuery &query, const QueryRow *row)
{
    while (row && row->prev)
        row = row->prev;
    for (; row; row = row->next) {
        ++query.rows;
        if (query.sample.size() >= SAMPLE_ROWS || query.mode == ORV_QUERY_COUNT)
            continue;
        auto &kept = query.sample.emplace_back();
        for (int32_t i = 0; i < row->count; ++i)
            kept.emplace_back(string_view(row->cols[i]).substr(0, SAMPLE_BYTES));
    }
}

static int32_t answerTraced(Interpreter *interpreter, int32_t mode, const char *text,
                            QueryRow **rows, int32_t *owned)
{
    Trace &trace = traceOf(interpreter);
    TraceQuery query;
    query.place = here();
    query.text = text;
    query.mode = mode;
    query.isRepeated = interpreter->resuming != 0;
    const int64_t start = now();
    const int32_t result = hostCallbacks.fQuery(interpreter, mode, text, rows, owned);
    query.microseconds = now() - start;
    // The command's line is where it ends; an author looks for where its query stands.
    const string begin = query.text.substr(0, query.text.find('\n'));
    if (const int32_t line = lineOf(trace, query.place.file, begin, query.place.line))
        query.place.line = line;
    if (result == 0) {
        keepRows(query, *rows);
    } else {
        const string line = takeReport(trace);
        const size_t reason = line.find("': ", std::min(line.size(), query.text.size()));
        query.problem = reason == string::npos ? line : line.substr(reason + 3);
        if (!trace.dbProblem.empty())
            query.problem = trace.dbProblem;
        traceMessage(trace, ORV_LOG_ERROR, query.place, "Query failed: " + query.problem);
    }
    trace.queries.push_back(std::move(query));
    return result;
}

// ---- What the library calls, and what comes first here ----

// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp): the linker's names.
extern "C" {
ssize_t __real_write(int fd, const void *bytes, size_t count);
FILE *__real_fopen64(const char *path, const char *mode);
int32_t __real_doExclude();
VarNode *__real_insertVar(VarNode **root, const char *key, const char *value, uint32_t flags);
VarNode *__real_insertArray(VarNode **root, const char *name, const char *index, const char *value,
                            uint32_t flags);
int __real_zarn_error(const char *message);

ssize_t __wrap_write(int fd, const void *bytes, size_t count)
{
    if (running && logfileBuf && fd == logfileFd) {
        takeLogLine(*running, {static_cast<const char *>(bytes), count});
        return static_cast<ssize_t>(count);
    }
    if (running && inpr && fd == inpr->outputFd) {
        ++running->writes;
        running->bytes += count;
        if (running->bytes > MAX_PAGE_BYTES)
            stopRun("The page has more than 64 megabytes, and was stopped");
    }
    return __real_write(fd, bytes, count);
}

// The base64 command opens any file of the machine; here the folder is the limit.
FILE *__wrap_fopen64(const char *path, const char *mode)
{
    if (!running || !inpr)
        return __real_fopen64(path, mode);
    int32_t fd = -1;
    const char *problem = hostOpenFile(*running, path, &fd);
    if (problem)
        traceMessage(*running, ORV_LOG_ERROR, here(),
                     string("base64 cannot read '") + path + "': " + problem);
    FILE *file = problem ? nullptr : fdopen(fd, mode);
    if (!problem && !file)
        close(fd);
    return file;
}

FILE *__wrap_fopen(const char *path, const char *mode)
{
    return __wrap_fopen64(path, mode);
}

// The template that is being read ends.
int32_t __wrap_doExclude()
{
    if (running && inpr && !running->open.empty()) {
        const auto index = static_cast<size_t>(running->open.back());
        running->templates[index].microseconds = now() - running->begun[index];
        running->open.pop_back();
    }
    return __real_doExclude();
}

VarNode *__wrap_insertVar(VarNode **root, const char *key, const char *value, uint32_t flags)
{
    VarNode *node = __real_insertVar(root, key, value, flags);
    if (running && inpr && !inpr->resuming && key && value)
        running->assigned.push_back({key, value, "", here(), !node});
    return node;
}

VarNode *__wrap_insertArray(VarNode **root, const char *name, const char *index, const char *value,
                            uint32_t flags)
{
    VarNode *node = __real_insertArray(root, name, index, value, flags);
    if (running && inpr && !inpr->resuming && name && index && value)
        running->assigned.push_back({string(name) + index + "]", value, "", here(), !node});
    return node;
}

int __wrap_zarn_error(const char *message)
{
    if (running)
        running->stopped = here();
    return __real_zarn_error(message);
}
}
// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)

// ---- The run ----

bool traceOpen(Trace &trace, const string &docRoot, const string &db, string *why)
{
    trace.reports = memfd_create("reports", MFD_CLOEXEC);
    trace.reportFd = trace.reports;
    bool isOpen = hostOpen(trace, docRoot.c_str(), db.empty() ? nullptr : db.c_str());
    const string report = isOpen ? "" : takeReport(trace);
    const size_t reason = report.rfind("': ");
    *why = reason == string::npos ? report : report.substr(reason + 3);
    if (isOpen || db.empty() || report.find("cannot read database") == string::npos)
        return isOpen;
    trace.dbProblem = "the database cannot be read: " + *why;
    traceMessage(trace, ORV_LOG_ERROR, {}, "Cannot read the database " + db + ": " + *why);
    hostClose(trace);
    return traceOpen(trace, docRoot, "", why);
}

Interpreter *traceInterpreter(Trace &trace)
{
    static constexpr auto tellError = [](Interpreter *interpreter, const char **message) {
        return hostCallbacks.fError(interpreter, message);
    };
    static constexpr InterpreterCallbacks callbacks = {openTraced, answerTraced, tellError};
    Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
    running = &trace;
    if (!interpreter || Orv_Interpreter_SetLog(trace.reports) != 0)
        return nullptr;
    Orv_Interpreter_SetHostData(interpreter, static_cast<Host *>(&trace));
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

static string readAll(int fd)
{
    string bytes;
    char piece[65536];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t count; (count = read(fd, piece, sizeof piece)) > 0;)
        bytes.append(piece, static_cast<size_t>(count));
    return bytes;
}

string traceRun(Trace &trace, Interpreter *interpreter, const string &page)
{
    const int output = memfd_create("page", MFD_CLOEXEC);
    signal(SIGALRM,
           [](int) { stopRun("The page was not done after 20 seconds, and was stopped"); });
    alarm(MAX_PAGE_SECONDS);
    const int64_t start = now();
    trace.result = Orv_Interpreter_Run(interpreter, page.c_str(), output);
    trace.microseconds = now() - start;
    trace.textCount = interpreter->textFieldCount;
    alarm(0);
    while (!trace.open.empty()) { // the parser gave up inside them
        const auto index = static_cast<size_t>(trace.open.back());
        trace.templates[index].microseconds = start + trace.microseconds - trace.begun[index];
        trace.open.pop_back();
    }
    running = nullptr;
    Orv_Interpreter_Destroy(interpreter);
    hostClose(trace);
    string bytes = readAll(output);
    close(output);
    close(trace.reports);
    return bytes;
}
