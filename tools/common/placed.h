/* tools/common/placed.h - what a language's text does to the place of a template where its
 * text field stands: the text takes the field's place and is then read as a part of the
 * template. */
#ifndef TOOLS_PLACED_H
#define TOOLS_PLACED_H

#include <set>
#include <string>
#include <string_view>

#include "html.h"
#include "template.h"

// Where a text field stands among commands.
struct FieldPlace {
    bool inCommand = false;
    char quote = 0; // in a command: the quote around it, ']' in an index, 0 without any
    bool behindReference = false; // directly behind a variable or a value of one digit
    std::string before;           // what stands in front of it in the template, as far as it counts
    std::string next;             // and behind it
};

/* The place of a field that stands in page text, or in an element of an argument.
 * before: the element in front of that one, or null. */
FieldPlace placeInPage(const Template &tpl, const Field &field);
FieldPlace placeInArgument(const Template &tpl, const Field &field, const Element &element,
                           const Element *before);

/* What a text does that it should not, "ends the quote that it stands in", and what can be
 * done about it in the text, and in the template, empty where that can do nothing. Static. */
struct Break {
    const char *what;
    const char *inText;
    const char *inTemplate;
};

/* What a text does to the command that its field stands in, or to page text; null for
 * nothing. meant: references that it may have there. */
const Break *breakOf(std::string_view text, const FieldPlace &place,
                     const std::set<std::string> &meant = {});

/* Whether a text leaves the part of a page that its field stands in, which a word would
 * not: a tag, an attribute, a string of a script or a style. */
bool leavesPart(std::string_view text, const HtmlState &state);

/* What to do in such a text about it. Static. */
const char *cureOf(const HtmlState &state);

#endif
