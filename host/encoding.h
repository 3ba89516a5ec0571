/* host/encoding.h - characters of UTF-8 (RFC 3629) and bytes written with % (RFC 3986), for
 * programs of every kind. */
#ifndef HOST_ENCODING_H
#define HOST_ENCODING_H

#include <cstddef>
#include <string>
#include <string_view>

/* Returns the length of the character that text begins with, 0 when its bytes are none. */
size_t characterLength(std::string_view text);

/* Returns the number of that character, 0 when its bytes are none. */
unsigned characterNumber(std::string_view text);

/* Returns the offset of the first byte that is not UTF-8, npos without any. */
size_t findStrange(std::string_view bytes);

/* Appends piece to text with each % and its two hexadecimal digits as the byte that they
 * name and, if plusIsBlank, as in forms, each + as a blank. Returns false for a % that
 * begins no byte; text then has a part of the piece. */
bool decodePercent(std::string &text, std::string_view piece, bool plusIsBlank);

/* Returns bytes with each one written with % that is no letter or digit of ASCII, nor one
 * of plain. */
std::string encodePercent(std::string_view bytes, std::string_view plain);

#endif
