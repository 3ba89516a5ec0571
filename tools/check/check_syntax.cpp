/* tools/check/check_syntax.cpp - what the scanner and the grammar complain about. */
#include "report.h"

// What could not be mended is told as it is logged.
static void checkLeftOver(Report &all, const Template &tpl)
{
    for (const Complaint &complaint : tpl.complaints)
        report(all, tpl, complaint.span, "syntax", complaint.text);
    if (tpl.exhausted)
        report(all, tpl,
               tpl.gaveUpAt < 0 ? Span{} : tpl.begun[static_cast<size_t>(tpl.gaveUpAt)].words,
               "limit", "an argument has too many pieces: the run ends there");
    uint32_t last = 0; // of the same index, which one of two quotes around is enough to tell
    for (const uint32_t at : tpl.strayQuotes) {
        const bool isPair = last && tpl.source.find_first_of("]?", last) > at;
        last = isPair ? 0 : at;
        if (isPair)
            continue;
        report(all, tpl, {at, at + 1}, "variable-index",
               "a quote cannot stand in an index: it goes to the standard output of the web "
               "program");
    }
}

void checkSyntax(Report &all)
{
    for (const auto &[path, tpl] : all.site.templates) {
        for (const Mistake &mistake : all.site.mistakes[path])
            reportMistake(all, *tpl, mistake);
        checkLeftOver(all, *tpl);
    }
}
