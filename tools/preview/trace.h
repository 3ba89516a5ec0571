/* tools/preview/trace.h - the run of one page, and all that happened in it.
 *
 * The library calls out in more places than its three callbacks: the program is
 * linked so that its writes, variables and ends of templates come here
 * first (--wrap in CMakeLists.txt). So each thing is noted with the template and the
 * line that are being read, and the library is what every web program links. One
 * trace at a time. */
#ifndef PREVIEW_TRACE_H
#define PREVIEW_TRACE_H

#include <stdint.h>
#include <string>
#include <vector>

#include "host.h"

struct Place {
    std::string file; // below the document root; empty where no template is concerned
    int32_t line = 0; // from 1; 0 when it is not known
};

struct TraceMessage {
    int32_t severity; // ORV_LOG_
    Place place;
    std::string text; // without the place
    int32_t times = 1;
};

struct TraceQuery {
    Place place;
    std::string text;
    std::string problem; // why it failed, empty when not
    int32_t mode;        // ORV_QUERY_
    int32_t rows = 0;
    int64_t microseconds = 0;
    bool isRepeated = false;                      // an include in a body made it run again
    std::vector<std::vector<std::string>> sample; // its first rows
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
    int32_t result = 0;    // of Orv_Interpreter_Run
    std::string dbProblem; // why the database is left out, empty when it is not
    Place stopped;         // where the parser met its last mistake

    // For the callbacks alone.
    std::vector<int32_t> open; // indices of the templates being read
    std::vector<int64_t> begun;
    int reports = -1; // owned; the host's lines
};

/* Opens the trace's host: docRoot becomes the working directory. A database that cannot be
 * read is left out, with a message. Returns false after *why tells what is wrong with
 * docRoot. */
bool traceOpen(Trace &trace, const std::string &docRoot, const std::string &db, std::string *why);

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
void traceMessage(Trace &trace, int32_t severity, Place place, std::string text);

/* How many of the messages are of a severity, each counted once. */
int32_t traceCount(const Trace &trace, int32_t severity);

// Beyond these, a run is not a page: it is stopped, and an answer says so.
inline constexpr size_t MAX_PAGE_BYTES = 64 << 20;
inline constexpr unsigned MAX_PAGE_SECONDS = 20;

#endif
