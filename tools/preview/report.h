/* tools/preview/report.h - a trace as the bar reads it. */
#ifndef PREVIEW_REPORT_H
#define PREVIEW_REPORT_H

#include <string>

#include "config.h"
#include "trace.h"

// What the report tells besides.
struct ReportSetting {
    const Config &config;
    const Switches &switches;
    std::string generation;
    std::string page;       // the template's path; empty where there is none
    std::string findings;   // what orv-check has printed last, empty without it
    std::string openMarkup; // see Markup::open
    bool isPosted = false;  // the page answers a form that was sent
    bool hasPolicy = false; // of the page's own; see Markup::policy
};

/* The report, in JSON that can stand in a script element. The trace's host must be in its
 * folder, so that lines of templates can be read. */
std::string reportJson(const Trace &trace, const ReportSetting &setting);

/* What orv-check has printed, in one line of JSON whose files are named from the site's
 * folder, docRoot, as a page's templates are; null when it has failed. */
std::string readFindings(const std::string &printed, const std::string &docRoot);

/* A text as a literal of JavaScript. */
std::string scriptText(const std::string &text);

#endif
