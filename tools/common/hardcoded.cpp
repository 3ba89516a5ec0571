/* tools/common/hardcoded.cpp - looks through the literal output of a template for words. */
#include "hardcoded.h"

#include <algorithm>

#include "output.h"
#include "host/encoding.h"
#include "tools/common/words.h"

using std::string;
using std::string_view;

// A search in progress.
struct Search {
    const Template &tpl;
    string attribute; // whose value is being followed, or was last
    std::vector<HardCoded> found;
};

// Whether people read the value of an attribute, in the tag that its place stands in.
static bool isRead(const string &name, string_view element, string_view tag)
{
    if (name == "value")
        return element == "input" &&
               isOneOf(attributeOf(tag, "type"), {"submit", "button", "reset"});
    return isOneOf(name, {"alt", "title", "placeholder", "label", "summary", "aria-label",
                          "aria-description", "aria-placeholder", "aria-roledescription",
                          "aria-valuetext"});
}

// Whether a character is a letter of another alphabet than the Latin one.
static bool isForeignLetter(unsigned number)
{
    // Blocks without letters: also icons, which fonts have in the private ones, the variants of
    // signs, and the byte order mark.
    static constexpr unsigned signs[][2] = {
        {0, 0xbf},        {0xd7, 0xd7},         {0xf7, 0xf7},     {0x2000, 0x2bff},
        {0x3000, 0x303f}, {0xe000, 0xf8ff},     {0xfe00, 0xfe0f}, {0xfeff, 0xfeff},
        {0xff00, 0xff1f}, {0x1f000, UINT32_MAX}};
    return std::none_of(std::begin(signs), std::end(signs), [number](const auto &block) {
        return number >= block[0] && number <= block[1];
    });
}

// Whether a text has a word: two letters side by side, or one of another alphabet. Entities are
// none.
static bool hasWord(string_view text)
{
    size_t letters = 0;
    for (size_t pos = 0; pos < text.size() && letters < 2;) {
        const char c = text[pos];
        const size_t end = c == '&' ? text.find(';', pos) : string_view::npos;
        const bool isLatin = (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
        if (end != string_view::npos && end - pos < 12) {
            pos = end + 1;
            letters = 0;
            continue;
        }
        letters = isLatin                                                            ? letters + 1
                  : (c & 0x80) && isForeignLetter(characterNumber(text.substr(pos))) ? 2
                                                                                     : 0;
        pos += std::max<size_t>(characterLength(text.substr(pos)), 1);
    }
    return letters >= 2;
}

// Takes a run of text when it has words.
static void take(Search *search, size_t begin, size_t end, const string &attribute)
{
    static constexpr char BLANKS[] = " \t\r\n";
    string_view text = string_view(search->tpl.source).substr(begin, end - begin);
    if (!hasWord(text))
        return;
    const size_t first = text.find_first_not_of(BLANKS);
    text = text.substr(first, text.find_last_not_of(BLANKS) + 1 - first);
    string line;
    for (const char c : text)
        if (string_view(BLANKS).find(c) == string_view::npos)
            line.push_back(c);
        else if (!line.ends_with(' '))
            line.push_back(' ');
    search->found.push_back(
        {{static_cast<uint32_t>(begin + first), static_cast<uint32_t>(begin + first + text.size())},
         attribute,
         std::move(line)});
}

// What a byte behind this state is: page text, a value that people read, or neither.
enum class Kind { NONE, TEXT, VALUE };

static Kind kindOf(const Search &search, const HtmlState &state, size_t at)
{
    if (state.part == Part::TEXT || (state.part == Part::RAW && state.content == Content::TEXT))
        return Kind::TEXT;
    const bool isValue = state.part == Part::VALUE && state.content == Content::TEXT;
    return isValue && isRead(search.attribute, state.element, tagAround(search.tpl.source, at))
               ? Kind::VALUE
               : Kind::NONE;
}

// Goes through a piece of literal output, and takes the runs of each kind.
static void searchLiteral(Search *search, Span span, HtmlState state)
{
    const string_view source = search->tpl.source;
    Kind kind = kindOf(*search, state, span.at);
    size_t begin = span.at;
    const auto close = [&](size_t end) {
        if (kind != Kind::NONE)
            take(search, begin, end, kind == Kind::VALUE ? search->attribute : "");
        begin = end;
    };
    for (size_t at = span.at; at < span.end; ++at) {
        const HtmlState before = state;
        follow(&state, source.substr(at, 1));
        if (before.part == state.part && before.quote == state.quote)
            continue;
        close(before.part == Part::RAW ? std::max<size_t>(begin, source.rfind("</", at)) : at);
        if (state.part == Part::BEFORE_VALUE)
            search->attribute = string(before.word, before.wordLength);
        kind = kindOf(*search, state, at);
        begin = state.part == Part::VALUE && !state.quote ? at : at + 1;
    }
    close(span.end);
}

std::vector<HardCoded> findHardCoded(const Template &tpl)
{
    Search search = {tpl, "", {}};
    OutputVisitor visitor;
    visitor.literal = [&search](Span span, const HtmlState &state) {
        searchLiteral(&search, span, state);
    };
    followOutput(tpl, visitor);
    return std::move(search.found);
}
