/* tools/check/actions.h - what mends a finding for certain, for editors to offer. */
#ifndef ORV_CHECK_ACTIONS_H
#define ORV_CHECK_ACTIONS_H

#include <optional>

#include "site.h"

// A change of a template's file.
struct Mending {
    std::string title;
    Span span;
    std::string text;
};

/* What mends a finding in a template, where there is one way and no doubt: a keyword's case,
 * a name that is nearly that of one other, printjs for echo in a script's string, the blanks
 * around repeat's brackets. It has been tried, and the finding is gone then. */
std::optional<Mending> mendingOf(Site &site, const Template &tpl, const Finding &finding);

#endif
