/* tools/preview/markup.cpp - comments, tags with their quotes, and the elements whose
 * text is no markup, read as a browser reads them. */
#include "markup.h"

#include <ctype.h>
#include <strings.h>
#include <algorithm>

using std::string;
using std::string_view;

static constexpr size_t none = string_view::npos;

// Up to their end tag these have text alone.
static constexpr string_view textElements[] = {"script", "style", "textarea", "title",
                                               "iframe", "xmp",   "noembed",  "noframes"};

/* The offset behind a tag that begins at start. Returns none when the page ends first,
 * and sets *quote to the quote that is open then, 0 for none. */
static size_t tagEnd(string_view page, size_t start, char *quote)
{
    *quote = 0;
    for (size_t at = start; at < page.size(); at++) {
        const char c = page[at];
        if (*quote != 0) {
            if (c == *quote)
                *quote = 0;
        } else if (c == '>') {
            return at + 1;
        } else if ((c == '"' || c == '\'') && at > start) {
            const size_t before = page.find_last_not_of(" \t\r\n\f", at - 1);
            if (before != none && page[before] == '=') // elsewhere it is a letter of a name
                *quote = c;
        }
    }
    return none;
}

static size_t findIgnoringCase(string_view text, string_view piece, size_t from)
{
    const auto found = std::search(
        text.begin() + static_cast<long>(std::min(from, text.size())), text.end(), piece.begin(),
        piece.end(), [](unsigned char a, unsigned char b) { return tolower(a) == tolower(b); });
    return found == text.end() ? none : static_cast<size_t>(found - text.begin());
}

/* Length of a tag's name at its start. */
static size_t nameLength(string_view text)
{
    const size_t end = text.find_first_of(" \t\r\n\f/>");
    return std::min(end, text.size());
}

static bool isPolicy(string_view tag)
{
    return findIgnoringCase(tag, "http-equiv", 0) != none &&
           findIgnoringCase(tag, "content-security-policy", 0) != none;
}

/* Whether name is of an element whose content is text; *element: the name in lower case. */
static bool isTextElement(string_view name, string_view *element)
{
    for (string_view known : textElements)
        if (name.size() == known.size() &&
            strncasecmp(name.data(), known.data(), name.size()) == 0) {
            *element = known;
            return true;
        }
    return false;
}

/* The offset of the end tag of a text element, none without one. */
static size_t textEnd(string_view page, size_t from, string_view element)
{
    const string tag = "</" + string(element);
    for (size_t at = from; (at = findIgnoringCase(page, tag, at)) != none; at++)
        if (nameLength(page.substr(at + 2)) == element.size())
            return at;
    return none;
}

Markup readMarkup(string_view page)
{
    Markup markup;
    size_t at = 0;
    while ((at = page.find('<', at)) != none) {
        const string_view rest = page.substr(at);
        if (rest.starts_with("<!--")) {
            const size_t end = rest.find("-->", 2); // <!--> is a whole comment
            if (end == none) {
                markup.open = "a comment";
                markup.closing = "-->";
                return markup;
            }
            at += end + 3;
            continue;
        }
        const bool isEnd = rest.starts_with("</");
        const size_t name = isEnd ? 2 : 1;
        if (rest.size() <= name || (!isalpha(static_cast<unsigned char>(rest[name])) &&
                                    (isEnd || (rest[1] != '!' && rest[1] != '?')))) {
            at++;
            continue;
        }
        char quote;
        const size_t end = tagEnd(page, at, &quote);
        const string_view word = rest.substr(name, nameLength(rest.substr(name)));
        if (end == none) {
            markup.open = "the tag <" + string(isEnd ? "/" : "") + string(word.substr(0, 40)) + ">";
            markup.closing = quote ? string(1, quote) + ">" : ">";
            return markup;
        }
        if (!isEnd && markup.policy == none && word.size() == 4 &&
            strncasecmp(word.data(), "meta", 4) == 0 && isPolicy(page.substr(at, end - at)))
            markup.policy = at;
        string_view element;
        at = end;
        if (isEnd || !isTextElement(word, &element))
            continue;
        at = textEnd(page, end, element);
        if (at == none) {
            markup.open = "the element <" + string(element) + ">";
            markup.closing = "</" + string(element) + ">";
            return markup;
        }
    }
    return markup;
}
