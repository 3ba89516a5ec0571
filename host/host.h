/* host/host.h - the web program's side of the interpreter: its three callbacks.
 *
 * Templates are found below one folder, the document root, and nowhere else.
 * Queries are SQL that only reads, answered by an SQLite database. From the first
 * query on they all see one state of it, and nothing can be saved to it until
 * hostClose. The error is a text that the program sets.
 *
 * The interpreter asks for a template's size from the process's working directory.
 * So hostOpen makes the document root the working directory, and a process has one
 * at a time: other relative paths must be resolved before. */
#ifndef TOOLS_HOST_H
#define TOOLS_HOST_H

#include <stdint.h>
#include <limits.h>
#include <unistd.h>
#include <map>
#include <string>
#include <vector>
#include "orvinterpreter.h"

struct sqlite3;

// A template that another has asked for.
struct HostInclude {
    std::string path;
    std::string by;
    int32_t line; // of that
};

struct HostVariable {
    std::string name;
    std::string value;
};

/* The template's name under which a host can give what its standard input is, a file
 * that can be mapped. */
static constexpr char STANDARD_INPUT[] = "/dev/stdin";

struct Host {
    const char *program = "";            // borrowed; begins each line that is reported
    int32_t reportFd = STDERR_FILENO;    // where problems are reported, a line each
    bool reportTemplates = false;        // report templates that cannot be opened, too
    std::vector<HostInclude> includes;   // if those are reported, of each template its first
    const char *error = nullptr;         // borrowed; what error commands find, null for none
    bool readsInput = false;             // STANDARD_INPUT is a template, too
    std::vector<HostVariable> variables; // for the parameters of queries, the newest last
    sqlite3 *db = nullptr;               // owned; null without a database
    char docRoot[PATH_MAX + 1] = "";     // absolute, free of links, ends in '/'
    const char *openProblem = nullptr;   // why the last template was refused; null when not
    int32_t problems = 0;                // failed queries, and failed templates if reported
    int32_t failures = 0; // those of them that are the machine's: a read, memory, descriptors

    // Answers of queries that were asked more than once, as each is that stands around an
    // include; null for those that were asked once, or cannot be kept. Owned.
    std::map<std::string, QueryRow *, std::less<>> answers;
    size_t answersSize = 0;   // bytes of them
    bool isRepeatable = true; // the query at hand has one answer as long as nothing is saved
};

/* Makes the host's document root the working directory, and opens its database.
 * docRoot: the folder of the templates. dbFile: the database for queries, null
 * for none; without one every query fails. Both are relative to the directory
 * the process works in before the call.
 *
 * Returns false when either cannot be used, with a line on host.reportFd. hostClose
 * is needed then, too. */
bool hostOpen(Host &host, const char *docRoot, const char *dbFile);

/* Gives a host that was opened without a database a connection that the program has used
 * itself, so that it need not open a second one. From then on it is the host's, and
 * only reads.
 * db: no transaction may be open.
 *
 * Returns false when it cannot be used, with a line on host.reportFd. */
bool hostTakeDatabase(Host &host, sqlite3 *db);

/* Whether path leads to a template that the callbacks open. */
bool hostHasTemplate(Host &host, const char *path);

/* Opens a regular file below the document root; a link is followed as far as it stays
 * there. path: relative to the document root.
 *
 * Returns null and sets *fd, the caller's; or why it is refused, good until the next
 * call of strerror(). */
const char *hostOpenFile(const Host &host, const char *path, int32_t *fd);

/* Reads a file below the document root to its end. path: relative to it. text: out.
 *
 * Returns false when it cannot be opened or a part cannot be read, with a line on
 * host.reportFd; text is then to be left alone. */
bool hostReadFile(Host &host, const char *path, std::string &text);

/* The callbacks that hostInterpreter gives to an interpreter, for a program that puts
 * some of its own around them: HostData must lead to the Host then. */
extern const InterpreterCallbacks hostCallbacks;

/* Makes an interpreter whose callbacks answer for host, which must stay where it is
 * for as long. Returns the handle, to be ended by Orv_Interpreter_Destroy; null when
 * memory ran out. */
Interpreter *hostInterpreter(Host &host);

/* Sets a variable of the request, for templates and for queries: the parameter
 * :name stands for it there. An array element, name[index], is for templates
 * alone.
 * interpreter: made by hostInterpreter. name and value are copied.
 *
 * Returns what Orv_Interpreter_SetVariable does; not 0: nothing is set. */
int32_t hostSet(Host &host, Interpreter *interpreter, const char *name, const char *value);

/* Ends the state that queries see: the database is free for whoever saves. Its interpreters may
 * not run any more. */
void hostEndReading(Host &host);

/* Closes the database; its interpreters may not run any more. */
void hostClose(Host &host);

#endif
