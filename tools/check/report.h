/* tools/check/report.h - findings on their way, for the rules. */
#ifndef ORV_CHECK_REPORT_H
#define ORV_CHECK_REPORT_H

#include "assemble.h"
#include "findings.h"
#include "ignore.h"
#include "site.h"

struct Report {
    Site &site;
    std::vector<Finding> findings;
    std::map<const Template *, IgnoreComments> ignored; // where something was found
    // Elements and comments without end, by where they begin: where reading goes on as if
    // they had ended; 0 for a value.
    std::map<std::pair<const Template *, uint32_t>, uint32_t> endless;

    size_t likened = 0; // pairs of words, to find what was meant

    explicit Report(Site &of) : site(of)
    {
    }
};

/* Adds a finding of that id in a template. notes: taken over. */
void report(Report &report, const Template &tpl, Span span, const char *id, std::string text,
            std::vector<Note> notes = {});

/* The same, with a severity of its own. */
void reportAs(Report &report, Grade severity, const Template &tpl, Span span, const char *id,
              std::string text, std::vector<Note> notes = {});

/* The same of a mistake of the syntax, also where others are left out because of it. */
void reportMistake(Report &report, const Template &tpl, const Mistake &mistake);

/* Adds a finding in another file. */
void reportLine(Report &report, const std::string &path, uint32_t line, const char *id,
                std::string text);

/* Whether it is told already that a language's text has other tags than its source. */
bool hasWrongTags(const Report &all, const std::string &path, uint32_t line);

/* A note about a place in a template. */
Note noteAt(const Template &tpl, uint32_t offset, std::string text);

/* Whether a kind is not off everywhere. */
bool isLookedFor(const SiteOptions &options, const Kind &kind);

/* Variables that are set under a name which is misspelt, each with the one that was meant. */
std::map<std::string, std::string> misspeltSets(const Site &site);

/* The rules, each for the whole site. */
void checkSyntax(Report &all);
void checkIncludes(Report &all);
void checkVariables(Report &all);
void checkTexts(Report &all);
void checkCommands(Report &all);
void checkNames(Report &all);
void checkConstants(Report &all);
void checkFlow(Report &all);
void checkHtml(Report &all);
void checkStructure(Report &all);
void checkBytes(Report &all);

/* All of them, sorted, graded as the site's options say and without what they leave out. */
std::vector<Finding> checkSite(Site &site);

/* Where an argument stands, with its indices; where a command has no such one, its words. */
Span argumentSpan(const Command &command, size_t index);

#endif
