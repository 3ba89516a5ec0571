/* tools/check/hints.h - what was probably meant where no command begins, and what a
 * command takes. */
#ifndef ORV_CHECK_HINTS_H
#define ORV_CHECK_HINTS_H

#include <stdint.h>

#include <string>
#include <string_view>

#include "tools/common/template.h"

// How an unknown command is mended.
struct Hint {
    std::string text;       // what is said of it
    Edit edit = {0, 0, {}}; // in the source; without a text where nothing is certain
};

/* What was meant by a "<?" that begins no command. */
Hint hintUnknown(const Template &tpl, const Begun &begun);

/* "echo takes one argument, and no more", or what a command needs. */
std::string wordsAndNeeds(int token, bool surplus);

/* Whether a word is the first of a command, such as "echo", "if" or "eq". */
bool isKeyword(std::string_view word);

/* The letters, digits, "_" and "-" at an offset; the offset of what is no blank behind it. */
std::string_view wordAt(std::string_view source, size_t at);
size_t passBlanks(std::string_view source, size_t at);

// A character that nobody sees, or that looks like a blank and is none.
struct Invisible {
    const char *bytes; // in UTF-8
    const char *name;
};

/* The one at an offset of a text, or null. */
const Invisible *invisibleAt(std::string_view text, size_t at);

/* Its name and number: "a no-break space (U+00A0)". */
std::string describe(const Invisible &character);

#endif
