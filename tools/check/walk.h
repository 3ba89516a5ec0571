/* tools/check/walk.h - all commands and pieces of arguments of a template, in the order in
 * which they stand. */
#ifndef ORV_CHECK_WALK_H
#define ORV_CHECK_WALK_H

#include <functional>

#include "site.h"

// Where a piece of an argument stands.
struct PieceAt {
    const Command &command;
    size_t argument;      // of the command
    size_t index;         // of the argument's elements
    const Levels &levels; // the bodies around it
    bool inBody;          // of that command
};

struct Walker {
    std::function<void(const Command &, const Levels &)> command = {}; // in front of its arguments
    std::function<void(const Element &, const PieceAt &)> piece = {};  // not those in indices
};

/* Hands each command and each piece of a template to the walker. */
void walkTemplate(const Template &tpl, const Walker &walker);

/* The same for one command. levels: those around it. */
void walkCommand(const Command &command, const Levels &levels, const Walker &walker);

#endif
