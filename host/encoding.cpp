/* host/encoding.cpp - characters of UTF-8 and bytes written with %. Nothing of it asks the
 * locale. */
#include "encoding.h"

size_t characterLength(std::string_view text)
{
    const auto byte = [&](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    const unsigned lead = byte(0);
    if (lead < 0x80)
        return 1;
    const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4)
        return 0;
    for (size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xc0) != 0x80)
            return 0;
    const unsigned start = lead << 8 | byte(1); // long forms, surrogates, beyond the last character
    if ((lead == 0xe0 && start < 0xe0a0) || (lead == 0xed && start >= 0xeda0) ||
        (lead == 0xf0 && start < 0xf090) || (lead == 0xf4 && start >= 0xf490))
        return 0;
    return length;
}

unsigned characterNumber(std::string_view text)
{
    const size_t length = characterLength(text);
    if (length == 0)
        return 0;
    unsigned number =
        static_cast<unsigned char>(text[0]) & (length == 1 ? 0x7fU : 0xffU >> (length + 1));
    for (size_t i = 1; i < length; ++i)
        number = number << 6 | (static_cast<unsigned char>(text[i]) & 0x3fU);
    return number;
}

size_t findStrange(std::string_view bytes)
{
    for (size_t pos = 0; pos < bytes.size();) {
        const bool isAscii = (bytes[pos] & 0x80) == 0; // most are
        const size_t length = isAscii ? 1 : characterLength(bytes.substr(pos));
        if (length == 0)
            return pos;
        pos += length;
    }
    return std::string_view::npos;
}

// Returns the value of a hexadecimal digit, -1 when c is none.
static int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char small = static_cast<char>(c | 0x20);
    return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

bool decodePercent(std::string &text, std::string_view piece, bool plusIsBlank)
{
    for (size_t i = 0; i < piece.size(); ++i) {
        if (piece[i] != '%') {
            text += plusIsBlank && piece[i] == '+' ? ' ' : piece[i];
            continue;
        }
        if (piece.size() - i < 3)
            return false;
        const int high = hexValue(piece[i + 1]);
        const int low = hexValue(piece[i + 2]);
        if (high < 0 || low < 0)
            return false;
        text += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

std::string encodePercent(std::string_view bytes, std::string_view plain)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes) {
        const bool isLetterOrDigit =
            (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z');
        const auto byte = static_cast<unsigned char>(c);
        if (isLetterOrDigit || plain.find(c) != std::string_view::npos)
            text += c;
        else
            text += {'%', digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}
