/* tools/preview/markup.cpp - comments, tags with their quotes, and the elements whose
 * text is no markup, read as a browser reads them. */
#include "markup.h"

#include <ctype.h>
#include <strings.h>
#include <algorithm>
#include <iterator>
#include <utility>

using std::string;
using std::string_view;

static constexpr size_t none = string_view::npos;

// Up to their end tag these have text alone.
static constexpr string_view textElements[] = {"script", "style", "textarea", "title",
                                               "iframe", "xmp",   "noembed",  "noframes"};

// The offset behind a tag that begins at start. Returns none when the page ends first,
// and sets *quote to the quote that is open then, 0 for none.
static size_t tagEnd(string_view page, size_t start, char *quote)
{
    *quote = 0;
    for (size_t at = start; at < page.size(); ++at) {
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
    const auto *const found = std::search(
        text.begin() + static_cast<long>(std::min(from, text.size())), text.end(), piece.begin(),
        piece.end(), [](unsigned char a, unsigned char b) { return tolower(a) == tolower(b); });
    return found == text.end() ? none : static_cast<size_t>(found - text.begin());
}

// Length of a tag's name at its start.
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

// The name in lower case of an element whose content is text, empty for any other.
static string_view findTextElement(string_view name)
{
    const auto *const found = std::ranges::find_if(textElements, [&](string_view known) {
        return name.size() == known.size() &&
               strncasecmp(name.data(), known.data(), name.size()) == 0;
    });
    return found == std::end(textElements) ? "" : *found;
}

// The offset of the end tag of a text element, none without one.
static size_t textEnd(string_view page, size_t from, string_view element)
{
    const string tag = "</" + string(element);
    for (size_t at = from; (at = findIgnoringCase(page, tag, at)) != none; ++at)
        if (nameLength(page.substr(at + 2)) == element.size())
            return at;
    return none;
}

// Notes that something is open at the page's end. Returns none: nothing follows.
static size_t leaveOpen(Markup &markup, string what, string closing)
{
    markup.open = std::move(what);
    markup.closing = std::move(closing);
    return none;
}

// Returns the offset behind the comment at start.
static size_t readComment(Markup &markup, string_view page, size_t start)
{
    const size_t end = page.find("-->", start + 2); // <!--> is a whole comment
    return end == none ? leaveOpen(markup, "a comment", "-->") : end + 3;
}

// Whether a tag, a declaration or an instruction begins with these characters.
static bool isTag(string_view text)
{
    const bool isEnd = text.starts_with("</");
    const size_t name = isEnd ? 2 : 1;
    const char first = text.size() > name ? text[name] : '\0';
    return isalpha(static_cast<unsigned char>(first)) || (!isEnd && (first == '!' || first == '?'));
}

// Returns the offset behind the tag at start, and behind the text that it begins.
static size_t readTag(Markup &markup, string_view page, size_t start)
{
    const bool isEnd = page[start + 1] == '/';
    string_view word = page.substr(start + (isEnd ? 2 : 1));
    word = word.substr(0, nameLength(word));
    char quote;
    const size_t end = tagEnd(page, start, &quote);
    if (end == none)
        return leaveOpen(
            markup, string("the tag <") + (isEnd ? "/" : "") + string(word.substr(0, 40)) + ">",
            quote ? string(1, quote) + ">" : ">");
    if (!isEnd && markup.policy == none && word.size() == 4 &&
        strncasecmp(word.data(), "meta", 4) == 0 && isPolicy(page.substr(start, end - start)))
        markup.policy = start;
    const string_view element = isEnd ? "" : findTextElement(word);
    if (element.empty())
        return end;
    const size_t endTag = textEnd(page, end, element);
    if (endTag == none)
        return leaveOpen(markup, "the element <" + string(element) + ">",
                         "</" + string(element) + ">");
    return endTag;
}

Markup readMarkup(string_view page)
{
    Markup markup;
    size_t at = 0;
    while ((at = page.find('<', at)) != none) {
        if (page.substr(at).starts_with("<!--"))
            at = readComment(markup, page, at);
        else if (isTag(page.substr(at)))
            at = readTag(markup, page, at);
        else
            ++at;
    }
    return markup;
}
