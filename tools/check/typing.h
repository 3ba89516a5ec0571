/* tools/check/typing.h - where somebody types: the commands that are open there, and the
 * rows whose columns can be written. */
#ifndef ORV_CHECK_TYPING_H
#define ORV_CHECK_TYPING_H

#include "site.h"

// A command that is open.
struct OpenCommand {
    int token;               // F_ number
    uint32_t at;             // of its "<?", in the file as all places here
    std::vector<size_t> ats; // where its arguments begin, that of an element's index included
    char quote;              // the one that is open, 0 for none

    size_t argument() const // that is being typed, from 0
    {
        return ats.size() - 1;
    }
    size_t textAt() const // where its text begins, behind the quote
    {
        return ats.back() + (quote != 0);
    }
};

struct Typing {
    std::vector<OpenCommand> open; // the outermost first
    bool inComment = false;
    uint32_t commentAt = 0; // where that begins
    Template heads;         // the commands in whose bodies the place is, with nothing in these
    Levels levels;          // these
};

/* Reads the file of a template up to an offset. What stands behind it does not count, so
 * nothing needs to be closed. */
void readTyping(const Template &tpl, uint32_t offset, Typing *typing);

#endif
