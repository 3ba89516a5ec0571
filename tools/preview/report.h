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
    std::string findings;   // of readFindings, the last; empty without them
    std::string openMarkup; // see Markup::open
    bool isTrouble = false; // it tells why there is no page
    bool isPosted = false;  // the page answers a form that was sent
    bool hasPolicy = false; // of the page's own; see Markup::policy
};

/* The report, in JSON that can stand in a script element. */
std::string reportJson(const Trace &trace, const ReportSetting &setting);

/* What orv-check has printed, as the bars read it, in one line of JSON: {generation, problem,
 * findings}. Files are named from the site's folder, docRoot, as a page's templates are, and
 * each finding has the lines around it.
 * generation: of the files that it has looked at. complaint: what it said instead, where it
 * found nothing out. */
std::string readFindings(const std::string &printed, const std::string &complaint,
                         const std::string &generation, const std::string &docRoot);

/* A text as a literal of JavaScript. */
std::string scriptText(const std::string &text);

#endif
