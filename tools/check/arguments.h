/* tools/check/arguments.h - what a command line of orv-check asks for. */
#ifndef ORV_CHECK_ARGUMENTS_H
#define ORV_CHECK_ARGUMENTS_H

#include "report.h"

// Exit statuses.
enum { NOTHING_FOUND = 0, FOUND = 1, WRONG_USAGE = 2 };

struct Arguments {
    SiteOptions site;
    Form form = Form::TEXT;
    bool serves = false;  // --lsp
    bool ownRoot = false; // --docroot is given
};

/* Reads a command line. Returns -1 to go on; otherwise the exit status, after the text
 * that an option asks for, or a complaint. */
int readArguments(int argc, char **argv, Arguments *arguments);

/* Loads a site and finds what is wrong, with paths as the working directory sees them.
 * Returns false, with the reason in problem, when the site cannot be read or has no page.
 * progress: as of loadSite. */
bool lookAt(SiteOptions options, std::vector<Finding> *findings, std::string *problem,
            const std::function<void(size_t)> &progress = {});

/* Prints a text on standard output and returns status, or after a complaint that of a
 * failure. */
int printAnswer(const std::string &text, int status);

#endif
