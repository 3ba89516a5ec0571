/* tools/check/orv-check.cpp - checks the templates of a site, for their authors. */
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "arguments.h"
#include "lsp.h"
#include "tools/common/files.h"
#include "tools/common/stack.h"

const char programName[] = "orv-check";

// A line on the terminal that tells how far a large site has been read.
static void showProgress(size_t templates)
{
    constexpr size_t step = 200;
    if (templates % step == 0 && templates > 0)
        fprintf(stderr, "\r%zu templates read", templates);
}

static int run(int argc, char **argv)
{
    Arguments arguments;
    const int status = readArguments(argc, argv, &arguments);
    if (status >= 0)
        return status;
    if (arguments.serves)
        return serveLsp(std::move(arguments.site), arguments.ownRoot);
    std::vector<Finding> findings;
    std::string problem;
    const bool terminal = isatty(STDERR_FILENO) != 0;
    const bool done = lookAt(std::move(arguments.site), &findings, &problem,
                             terminal ? showProgress : std::function<void(size_t)>());
    if (terminal)
        fputs("\r\033[K", stderr);
    if (!done)
        return complain(WRONG_USAGE, "%s", problem.c_str());
    const bool isFound = std::any_of(findings.begin(), findings.end(), [](const Finding &finding) {
        return finding.severity != Grade::HINT;
    });
    return printAnswer(printFindings(findings, arguments.form), isFound ? FOUND : NOTHING_FOUND);
}

int main(int argc, char **argv)
{
    std::set_new_handler([] { _exit(complain(WRONG_USAGE, "out of memory")); });
    return runOnDeepStack(run, argc, argv);
}
