/* tools/preview/trace.h - the run of one page, and all that happened in it.
 *
 * An observer notes what the library tells of the run (base/observe.h); the
 * callbacks are the host's. A thing that a command does stands where the command begins.
 * One trace at a time. */
#ifndef PREVIEW_TRACE_H
#define PREVIEW_TRACE_H

#include <stdint.h>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/observe.h"
#include "config.h"
#include "source.h"

// What a message is about, which tells the kinds of findings that can be its cause.
enum class Topic : uint8_t { OTHER, SYNTAX, INCLUDE, TEXT, VALUE, QUERY, MARKUP, MARKS };

struct TraceMessage {
    int32_t severity; // ORV_LOG_
    Place place;
    std::string text; // without the place
    std::string hint; // what an author can do about it, may be empty
    Topic topic = Topic::OTHER;
    std::string log = {};           // the log's line, empty where the library has not told it
    std::optional<Message> id = {}; // of a message of the library
    int32_t times = 1;
};

// A parameter of a query, and the variable of the request that it stands for.
struct TraceParameter {
    std::string name;                 // with its ":"
    std::optional<std::string> value; // none is NULL
    std::string setBy;                // or why nobody has
};

struct TraceQuery {
    Place place;
    std::string text;
    std::string problem; // why it failed, empty when not
    int32_t mode;        // ORV_QUERY_
    int32_t rows = 0;
    int64_t microseconds = 0;
    bool isOpen = true;      // it has not been answered
    bool isRepeated = false; // an include in a body made it run again
    std::vector<TraceParameter> parameters = {};
    std::vector<std::string> columns = {};
    std::vector<std::vector<std::optional<std::string>>> sample =
        {}; // of its first rows; none is NULL
};

struct TraceTemplate {
    std::string path;
    Place place;         // of the include; empty for the page itself
    int32_t parent = -1; // index of the including one
    int64_t microseconds = 0;
    std::string problem; // why it could not be opened, empty when not
};

struct TraceVariable {
    std::string name;
    std::string value;
    std::string setBy; // "request", ...; empty for a template
    Place place;
    bool isKept = false; // setvariableonce met another value, which stayed
};

struct TraceText {
    std::string id;
    Place place;
    bool isMissing; // else the fallback had it
};

// A command that is being read.
struct TraceCommand {
    size_t level; // templates that are open
    size_t depth; // of the scanner's conditions in front of it
    Place place;
    bool isKnown = true; // else what it was to be comes out as text, and nothing is open
};

struct Trace : Host {
    std::vector<TraceMessage> messages;
    std::vector<TraceQuery> queries;
    std::vector<TraceTemplate> templates; // in the order of their begin
    std::vector<TraceVariable> assigned;  // in the order of their setting
    std::vector<TraceText> texts;         // those that the language lacks
    int32_t textCount = 0;                // all that were looked up
    size_t bytes = 0;
    int32_t writes = 0;
    int64_t microseconds = 0;
    int32_t result = 0;             // of Orv_Interpreter_Run
    std::string dbProblem;          // why the database is left out, empty when it is not
    Place stopped;                  // where the parser met its last mistake
    std::vector<std::string> files; // that base64 has read

    /* Called when the run goes beyond what a page takes, with why; it answers the request and
     * ends the process. */
    std::function<void(const char *why)> stop;

    // For the observer alone.
    observe::Observer observer = {};
    std::vector<int32_t> open; // indices of the templates being read
    std::vector<int64_t> begun;
    std::vector<TraceCommand> unclosed;          // commands that have begun, inner ones last
    Place closed;                                // of the command whose end was read last
    std::unordered_map<const Cmd *, Place> made; // where a command begins
    std::vector<const Cmd *> acting;             // inner ones last
    std::string fieldId;                         // the text field that is looked up, and where
    size_t fieldAt = 0;
    int64_t started = 0; // when the run was, and the last query
    int64_t asked = 0;
    int reports = -1; // owned; the host's lines
};

/* Opens the trace's host: the site's folder becomes the working directory. Databases that
 * cannot be read are left out, with a message. Returns false after *why tells what is wrong
 * with the folder. */
bool traceOpen(Trace &trace, const Config &config, std::string *why);

/* Makes the interpreter of an open trace. The log comes to the trace. Returns null when
 * memory or descriptors ran out. */
Interpreter *traceInterpreter(Trace &trace);

/* Sets a variable, and notes who did: setBy is shown. */
void traceSet(Trace &trace, Interpreter *interpreter, const std::string &name,
              const std::string &value, const char *setBy);

/* Runs the page, and returns what it wrote. The interpreter is ended, and the database
 * is closed. */
std::string traceRun(Trace &trace, Interpreter *interpreter, const std::string &page);

/* Adds a message, or counts one that is there already. */
void traceMessage(Trace &trace, int32_t severity, Place place, std::string text,
                  std::string hint = "", Topic topic = Topic::OTHER);

/* Where the run is: the command that is at work, or else where it is being read. */
Place tracePlace(const Trace &trace);

// Beyond these, a run is not a page: it is stopped, and an answer says so.
inline constexpr size_t MAX_PAGE_BYTES = 64 << 20;
inline constexpr unsigned MAX_PAGE_SECONDS = 20;

#endif
