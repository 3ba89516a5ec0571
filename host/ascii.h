/* host/ascii.h - classes of ASCII's bytes, for programs of every kind. Those of the C library
 * ask the locale, and cannot be given a char. */
#ifndef HOST_ASCII_H
#define HOST_ASCII_H

#include <string>
#include <string_view>

inline constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

inline constexpr char toSmall(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline constexpr bool isLetter(char c)
{
    return toSmall(c) >= 'a' && toSmall(c) <= 'z';
}

inline constexpr bool isLetterOrDigit(char c)
{
    return isLetter(c) || isDigit(c);
}

inline constexpr bool isHexDigit(char c)
{
    return isDigit(c) || (toSmall(c) >= 'a' && toSmall(c) <= 'f');
}

/* White space of templates, JSON and SQL, and of HTML. */
inline constexpr bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

inline constexpr bool isHtmlBlank(char c)
{
    return isBlank(c) || c == '\f';
}

/* The offset behind the bytes of a kind that stand at pos. */
template <typename Is> size_t skip(std::string_view text, size_t pos, Is is)
{
    while (pos < text.size() && is(text[pos]))
        ++pos;
    return pos;
}

/* A copy in small letters. */
inline std::string lowered(std::string_view text)
{
    std::string copy(text);
    for (char &c : copy)
        c = toSmall(c);
    return copy;
}

#endif
