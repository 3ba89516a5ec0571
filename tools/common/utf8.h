/* tools/common/utf8.h - the characters of UTF-8. */
#ifndef TOOLS_UTF8_H
#define TOOLS_UTF8_H

#include <cstddef>
#include <string_view>

/* Returns the length of the character that text begins with, 0 when its bytes are none. */
size_t characterLength(std::string_view text);

/* Returns the number of that character, 0 when its bytes are none. */
unsigned characterNumber(std::string_view text);

/* Returns the offset of the first byte that is not UTF-8, npos without any. */
size_t findStrange(std::string_view bytes);

#endif
