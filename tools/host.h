/* tools/host.h - the web program's side of the interpreter: its three callbacks.
 *
 * Templates are found below one folder, the document root, and nowhere else.
 * Queries are SQL, answered by an SQLite database that is opened read-only. The
 * error is a text that the program sets.
 *
 * The callbacks are given no more than the interpreter's handle, and the
 * interpreter asks for a template's size from the process's working directory.
 * So a process has one host at a time, and hostOpen makes the document root the
 * working directory: other relative paths must be resolved before. */
#ifndef TOOLS_HOST_H
#define TOOLS_HOST_H

#include <stdint.h>
#include <limits.h>
#include <unistd.h>
#include <string>
#include <vector>
#include "orvinterpreter.h"

struct sqlite3;

struct HostVariable {
    std::string name;
    std::string value;
};

struct Host {
    const char *program = "";            // borrowed; begins each line that is reported
    int32_t reportFd = STDERR_FILENO;    // where problems are reported, a line each
    bool reportTemplates = false;        // report templates that cannot be opened, too
    const char *error = nullptr;         // borrowed; what error commands find, null for none
    std::vector<HostVariable> variables; // for the parameters of queries, the newest last
    sqlite3 *db = nullptr;               // owned; null without a database
    char docRoot[PATH_MAX + 1] = "";     // absolute, free of links, ends in '/'
    const char *openProblem = nullptr;   // why the last template was refused; null when not
    int32_t problems = 0;                // failed queries, and failed templates if reported
};

/* The callbacks for Orv_Interpreter_Create. They answer for the host that is open. */
extern const InterpreterCallbacks hostCallbacks;

/* Makes host the one that the callbacks answer for, and its document root the
 * working directory.
 * docRoot: the folder of the templates. dbFile: the database for queries, null
 * for none; without one every query fails. Both are relative to the directory
 * the process works in before the call.
 *
 * Returns false when either cannot be used, with a line on host.reportFd. Host
 * must stay where it is until hostClose, which is needed after a failure too. */
bool hostOpen(Host &host, const char *docRoot, const char *dbFile);

/* Sets a variable of the request, for templates and for queries: the parameter
 * :name stands for it there. An array element, name[index], is for templates
 * alone.
 * interpreter: made with hostCallbacks. name and value are copied.
 *
 * Returns what Orv_Interpreter_SetVariable does; not 0: nothing is set. */
int32_t hostSet(Host &host, Interpreter *interpreter, const char *name, const char *value);

/* Closes the database; its interpreters may not run any more. */
void hostClose(Host &host);

#endif
