/* tools/check/complete.h - what can stand where somebody types. */
#ifndef ORV_CHECK_COMPLETE_H
#define ORV_CHECK_COMPLETE_H

#include "site.h"

// What the protocol calls it, as it numbers them.
enum class CompletionKind : uint8_t {
    TEXT = 1,
    FIELD = 5,
    VARIABLE = 6,
    KEYWORD = 14,
    PATH = 17,
    PARAMETER = 21, // a constant to the protocol
    TABLE = 22,     // a record
    OPERATOR = 24,
};

struct Completion {
    std::string text; // that is put there
    std::string detail;
    CompletionKind kind;
};

struct Completions {
    uint32_t begin = 0; // of what they replace up to the place, in the file
    std::vector<Completion> list;
};

/* What can be put at an offset of the file, by what stands in front of it. */
Completions completionsAt(Site &site, const Template &tpl, uint32_t offset);

#endif
