/* scanner/bytes.h - which bytes belong to what, one table for all lexical rules. */
#ifndef ORV_SCANNER_BYTES_H
#define ORV_SCANNER_BYTES_H

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <string_view>

namespace bytes
{
constexpr int END_OF_INPUT = 256; // behind all bytes
constexpr char BLANKS[] = " \t\n\r";

// Sets of bytes, a bit each.
using ByteSet = uint16_t;
constexpr ByteSet BLANK = 1;
constexpr ByteSet DIGIT = 2;
constexpr ByteSet DIGIT_OR_SMALL = 4;
constexpr ByteSet NAME = 8;
constexpr ByteSet QUOTE = 16;
constexpr ByteSet ARGUMENT_TEXT = 32;
constexpr ByteSet COMMENT_TEXT = 64;
constexpr ByteSet DQUOTED_TEXT = 128; // in quoted text a "<" needs a look behind it
constexpr ByteSet SQUOTED_TEXT = 256;
constexpr ByteSet BQUOTED_TEXT = 512;
constexpr ByteSet FIELD_ID = 1024;

// The sets that each byte belongs to; END_OF_INPUT is in none. Of the library's
// sources one alone looks into it, which so finds it without the linker's table of addresses.
static constexpr auto setsOf = [] {
    std::array<ByteSet, 257> table = {};
    const auto add = [&table](ByteSet set, std::string_view members, bool inside) {
        for (int byte = 0; byte < 256; ++byte)
            if ((members.find(static_cast<char>(byte)) != std::string_view::npos) == inside)
                table[static_cast<size_t>(byte)] |= set;
    };
    add(BLANK, BLANKS, true);
    add(DIGIT, "0123456789", true);
    add(DIGIT_OR_SMALL, "0123456789abcdefghijklmnopqrstuvwxyz", true);
    add(NAME, "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ", true);
    add(QUOTE, "\"'`", true);
    add(ARGUMENT_TEXT, " \t\n\r\"'`$<?]", false);
    add(COMMENT_TEXT, "<?", false);
    add(DQUOTED_TEXT, "\"$?<", false);
    add(SQUOTED_TEXT, "'$?<", false);
    add(BQUOTED_TEXT, "`$?<", false);
    add(FIELD_ID, "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ._:", true);
    return table;
}();

[[gnu::always_inline]] static inline bool isIn(int byte, ByteSet set)
{
    return setsOf[static_cast<size_t>(byte)] & set;
}

/* The first byte from at on that no text field's id has; end if all in front of that may
 * belong to one. */
const char *behindFieldId(const char *at, const char *end);
} // namespace bytes

#endif
