/* tools/check/visit.h - what the rules about commands share while check_commands.cpp visits those
 * of a template, inner ones behind their own. */
#ifndef ORV_CHECK_VISIT_H
#define ORV_CHECK_VISIT_H

#include <array>
#include <string>
#include <string_view>

#include "base/bounds.h"
#include "report.h"

inline constexpr size_t MOST_BODIES = MAX_CMD_DEPTH;
inline constexpr size_t MOST_LEVELS = 10; // that a digit can name

struct Visit {
    Report &all;
    const Template &tpl;
    Levels levels;
    bool direct = true; // output goes to the page, not into an argument
    // The first value of each level, in the body that is being visited.
    std::array<const Element *, MOST_BODIES> values = {};
};

/* check_values.cpp: a numbered value in a body. */
void checkValue(Visit &visit, const Element &element);

/* The word that a value's letter begins, such as "theme" of $theme; empty for a value. */
std::string_view wordOfValue(const Visit &visit, const Element &element);

/* At the end of a body that has been visited: it has rows of its own, and uses those around it
 * alone; mostly a level was forgotten. */
void checkOwnRows(const Visit &visit, const Command &command);

/* check_queries.cpp: the text of a command's query, in all that it can be. */
void checkQuery(const Visit &visit, const Command &command);

/* The beginning of a text, as findings show it. */
std::string excerpt(std::string_view text);

#endif
