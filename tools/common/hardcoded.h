/* tools/common/hardcoded.h - words of a page that stand in the template itself, so that no
 * language can have its own. */
#ifndef TOOLS_HARDCODED_H
#define TOOLS_HARDCODED_H

#include <string>
#include <vector>

#include "template.h"

struct HardCoded {
    Span span;
    std::string attribute; // whose value it is, empty in page text
    std::string text;      // in one line
};

/* Returns the words that people read, in page text and in attributes such as alt and title.
 * Scripts and styles are left out. */
std::vector<HardCoded> findHardCoded(const Template &tpl);

#endif
