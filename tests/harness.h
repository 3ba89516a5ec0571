/* tests/harness.h - a web program for the tests: templates, answers and errors
 * come from memory, and the page is kept piece by piece.
 *
 * Templates are files of the private folder, and device/ below it stands for the
 * device's root. The library's write calls come here first: what goes to PAGE_FD is recorded, and
 * can be cut short, interrupted or refused. */
#ifndef ORV_TESTS_HARNESS_H
#define ORV_TESTS_HARNESS_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "interface/orvinterpreter.h"
#include "tests/folder.h"
#include "tools/common/textdb_file.h"

constexpr int32_t PAGE_FD = 1 << 20; // no real descriptor

using Texts = std::vector<std::pair<std::string, std::string>>;
using Rows = std::vector<std::vector<std::string>>;

struct Host {
    Texts files;                      // name and content of each template
    Texts variables;                  // set in front of the run
    std::map<std::string, Rows> rows; // by query; any other query has no rows
    std::string error;                // for fError, empty for none
    bool handOver = true;             // rows pass to the interpreter
    bool isLogged = true;             // the run has a log
    std::function<void(Interpreter *, const std::string &)> onQuery;
    std::function<int(const std::string &)> onOpen; // in the place of open()
    std::function<void(Interpreter *)> onWrite;     // with it, a function takes the page
    std::vector<std::string> calls;                 // what the callbacks were asked
};

struct Outcome {
    int32_t result;
    std::string page;
    std::vector<std::string> pieces;
    std::string log; // without the lines of the run's times
};

/* Runs one of the host's templates with a handle of its own. */
Outcome render(Host &host, const std::string &path = "t.htm");

/* Told of each render(), when set; the templates are files of the folder still. */
extern void (*afterRender)(const Host &host, const std::string &path, const Outcome &outcome);

/* Whether render() gathers the page, in a buffer of that many bytes. */
extern int32_t gatheredBytes;

/* Runs a template of that content, t.htm, without anything else. */
Outcome renderText(const std::string &text);

/* A text without the lines that the function wants gone; a line comes without its end. */
std::string withoutLines(const std::string &text, bool (*isUnwanted)(const std::string &line));

/* The parts of it, for tests of their own. */
extern const InterpreterCallbacks hostCallbacks;
void useHost(Host *host);
Outcome runHandle(Interpreter *interpreter, const std::string &path = "t.htm");

/* Descriptors and mappings of the process, to see that nothing stays, with or
 * without those of text databases, which do until forgetTexts(). */
size_t openDescriptors(bool databases = false);
size_t mappedFiles(bool databases = false);
void forgetTexts();

/* The text database file of these ids and texts. */
inline std::string database(const std::map<std::string, std::string> &texts)
{
    std::vector<TextEntry> entries;
    for (const auto &[id, text] : texts)
        entries.push_back({id, text, 0});
    std::string file;
    size_t culprit;
    return buildTextDb(entries, &file, &culprit) ? "" : file;
}

/* What becomes of the next writes to the page: at most so many bytes each
 * (0: no limit); errors before each, as errno values. */
constexpr int WRITES_NOTHING = -1; // in the place of one: the call returns 0
struct Writes {
    size_t most = 0;
    std::vector<int> failures;
};
extern Writes writes;

/* Where two texts differ, and the line of each from there on, cut; empty when they
 * are the same. To be compared with "", so that a failure shows no more. */
std::string difference(const std::string &expected, const std::string &got);

/* startLog() makes the library write its log to a file of the tests'; takeLog() is
 * what has been written since. Each message must have the severity that its wording
 * tells. */
int logTarget();
void startLog();
std::string takeLog();

#endif
