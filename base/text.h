/* base/text.h - texts that the library keeps. */
#ifndef ORV_BASE_TEXT_H
#define ORV_BASE_TEXT_H

#include <string_view>

/* Returns a copy of text with a zero byte behind it, on the heap and the caller's;
 * null when memory ran out. The length counts, not a zero byte in text: it may lie
 * in a mapped file that somebody overwrites, and is read no second time. */
char *copyText(std::string_view text);

#endif
