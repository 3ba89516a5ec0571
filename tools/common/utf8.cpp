/* tools/common/utf8.cpp */
#include "utf8.h"

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
