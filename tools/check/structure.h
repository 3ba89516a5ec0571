/* tools/check/structure.h - what is open at the places of a page, for the rules about pages. */
#ifndef ORV_CHECK_STRUCTURE_H
#define ORV_CHECK_STRUCTURE_H

#include "paths.h"

// An element that is open, or a paragraph that another tag has ended.
struct Open {
    const Open *outer;
    const Tag *tag;
    std::string_view name;
    const Chain *chain;              // that brought it into the page
    Outcomes when;                   // the conditions around its tag
    bool foreign;                    // it is of svg or math
    bool implied;                    // HTML puts it there by itself
    const Open *paragraph = nullptr; // of one that was ended, with tag for what has ended it
    mutable bool named = false;      // something in it is read out
    mutable bool reopened = false;   // its end tag stood at a wrong place, which is told
};

// An end tag, or a start tag, that has left elements open which need an end of their own.
struct Breach {
    const Breach *outer;
    const Open *before; // what was open
    const Open *closed; // what is closed; null at a page's end
    const Tag *end;
    mutable bool crosses = false; // the end of one of those has come later
};

/* Whether an element of that name is open, itself included; null for none. */
const Open *findOpen(const Open *top, std::string_view name);

/* The element as a message names it. reader: the template that the message is about. */
std::string inOpen(const Open &open, const Template *reader);

/* What is wrong with a start tag's place; empty for nothing. with: out, the element around it
 * that is the reason. */
std::string misplaced(const State &state, const Tag &tag, const Open **with);

#endif
