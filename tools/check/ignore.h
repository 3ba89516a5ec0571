/* tools/check/ignore.h - comments of templates that leave findings out:
 * <?-- orv-check: ignore KIND, KIND: reason ?>. */
#ifndef ORV_CHECK_IGNORE_H
#define ORV_CHECK_IGNORE_H

#include <string>
#include <vector>

#include "findings.h"
#include "tools/common/template.h"

// A kind that a comment names.
struct IgnoredKind {
    const Kind *kind;
    Span word;
    bool hit = false; // it has left something out
};

// What a comment leaves out, and where.
struct IgnoreRange {
    Span span;
    std::vector<IgnoredKind> kinds;
};

struct IgnoreFault {
    Span span;
    std::string text;
};

// All comments of a template. Spans are in its source.
struct IgnoreComments {
    std::vector<IgnoreRange> ranges;
    std::vector<IgnoreFault> faults; // of those that say nothing, or name no kind
};

IgnoreComments readIgnoreComments(const Template &tpl);

/* Whether a comment leaves findings of a kind out at that offset; it has hit then. */
bool hitIgnored(IgnoreComments *comments, uint32_t offset, const Kind *kind);

#endif
