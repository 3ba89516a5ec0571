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

// Says in a line which of the named files are not the site's.
static void tellStrangers(const std::vector<std::string> &strangers)
{
    constexpr size_t most = 5;
    std::string names;
    for (size_t i = 0; i < std::min(strangers.size(), most); ++i)
        names += (i > 0 ? ", " : "") + strangers[i];
    if (strangers.size() > most)
        names += " and " + std::to_string(strangers.size() - most) + " more";
    if (!strangers.empty())
        complain(0, "not part of the site: %s", names.c_str());
}

static int run(int argc, char **argv)
{
    Arguments arguments;
    const int status = readArguments(argc, argv, &arguments);
    if (status >= 0)
        return status;
    if (arguments.serves)
        return serveLsp(std::move(arguments.given));
    Looked looked;
    std::string problem;
    const bool terminal = isatty(STDERR_FILENO) != 0;
    const bool done = lookAt(arguments, &looked, &problem,
                             terminal ? showProgress : std::function<void(size_t)>());
    if (terminal)
        fputs("\r\033[K", stderr);
    if (!done)
        return complain(WRONG_USAGE, "%s", problem.c_str());
    const bool isFound =
        std::any_of(looked.findings.begin(), looked.findings.end(),
                    [](const Finding &finding) { return finding.severity != Grade::HINT; });
    const int answer = printAnswer(printFindings(looked.findings, arguments.form),
                                   isFound ? FOUND : NOTHING_FOUND);
    tellStrangers(looked.strangers);
    if (!arguments.isQuiet)
        complain(0, "%s", summaryOf(looked).c_str());
    return answer;
}

int main(int argc, char **argv)
{
    std::set_new_handler([] { _exit(complain(WRONG_USAGE, "out of memory")); });
    return runOnDeepStack(run, argc, argv);
}
