/* tools/check/markup.h - HTML's elements and attributes, as its standard lists them: what
 * needs no end tag, what ends what, what holds what. */
#ifndef ORV_CHECK_MARKUP_H
#define ORV_CHECK_MARKUP_H

#include <stdint.h>

#include <string_view>

// What an element is, bits.
enum : uint16_t {
    IS_VOID = 1,         // has no content and no end tag
    IS_OPTIONAL = 2,     // its end tag may be left out
    ENDS_P = 4,          // its start tag ends an open p
    HOLDS_PHRASES = 8,   // holds phrasing content only: no paragraph, list or table
    IS_INTERACTIVE = 16, // may not stand in a link or a button
    IS_RAW = 32,         // its content is text, up to its end tag
    IS_META = 64,        // may stand in the head
    IS_SCOPE = 128,      // what is open around it is not ended from inside
    IS_NAMED = 256,      // needs a name for assistive technology: what it holds
    IS_FIELD = 512,      // a form's field, which needs a label
};

struct ElementRow {
    std::string_view name;
    uint16_t is;
};

/* The row of an element by its name in small letters; null for none of HTML's. */
const ElementRow *findElement(std::string_view name);

/* The element whose name was probably meant; empty when none is near. */
std::string_view nearestElement(std::string_view name);

/* The attribute that was probably meant by a name that no element has; empty for a name that
 * some has, and when none is near. */
std::string_view nearestAttribute(std::string_view name);

// What an attribute of some elements can be, as words between blanks, and which of them browsers
// take in the place of anything else.
struct ChoiceRow {
    std::string_view elements;
    std::string_view attribute;
    std::string_view words;
    std::string_view instead;
};

/* The row of an element's attribute; null for one that can be anything. */
const ChoiceRow *findChoice(std::string_view element, std::string_view attribute);

/* Whether browsers read a number from the begin of an element's attribute. */
bool takesNumber(std::string_view element, std::string_view attribute);

/* Whether the start tag of an element ends an open one of that name, as a li ends a li. */
bool endsOpen(std::string_view start, std::string_view open);

/* Which elements alone may stand directly in that one, as words between blanks; empty for
 * anything. */
std::string_view childrenOf(std::string_view parent);

/* In which elements alone one may stand directly, the same way. */
std::string_view parentsOf(std::string_view child);

#endif
