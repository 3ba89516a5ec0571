/* tools/check/arguments.h - what a command line of orv-check asks for. */
#ifndef ORV_CHECK_ARGUMENTS_H
#define ORV_CHECK_ARGUMENTS_H

#include "project.h"
#include "report.h"

// Exit statuses.
enum { NOTHING_FOUND = 0, FOUND = 1, WRONG_USAGE = 2 };

struct Arguments {
    GivenOptions given;
    SiteOptions site; // from the options and the site file; not with serves
    Form form = Form::TEXT;
    bool serves = false;           // --lsp
    bool isQuiet = false;          // --quiet
    bool isOnly = false;           // --only
    std::vector<std::string> only; // its files, as they were named
};

/* Reads a command line, and the site file. Returns -1 to go on; otherwise the exit status,
 * after what an option asks for, or a complaint. */
int readArguments(int argc, char **argv, Arguments *arguments);

// What is found in a site.
struct Looked {
    std::vector<Finding> findings;
    size_t templates = 0;               // that were read
    std::vector<std::string> strangers; // files that were named and are none of the site's
};

/* Loads a site and finds what is wrong, with paths as the working directory sees them.
 * Returns false, with the reason in problem, when the site cannot be read or has no page.
 * progress: as of loadSite. */
bool lookAt(const Arguments &arguments, Looked *looked, std::string *problem,
            const std::function<void(size_t)> &progress = {});

/* What was looked at and found, in a line for people. */
std::string summaryOf(const Looked &looked);

/* Prints a text on standard output and returns status, or after a complaint that of a
 * failure. */
int printAnswer(const std::string &text, int status);

#endif
