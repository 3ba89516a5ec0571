/* tools/preview/markup.cpp - follows a page as a browser does, tag by tag. */
#include "markup.h"

#include <string.h>
#include <algorithm>

#include "host/ascii.h"
#include "tools/common/html.h"

using std::string;
using std::string_view;

static constexpr size_t NONE = string_view::npos;

static bool hasIgnoringCase(string_view text, string_view piece)
{
    const auto isSame = [](char a, char b) { return toSmall(a) == toSmall(b); };
    return std::search(text.begin(), text.end(), piece.begin(), piece.end(), isSame) != text.end();
}

static bool isPolicy(const HtmlState &state, string_view tag)
{
    return !state.closing && strcmp(state.element, "meta") == 0 &&
           hasIgnoringCase(tag, "http-equiv") && hasIgnoringCase(tag, "content-security-policy");
}

static bool isInTag(const HtmlState &state)
{
    return state.part >= Part::TAG_NAME && state.part <= Part::VALUE;
}

// What is open where the page ends, and what closes it.
static void closeMarkup(Markup &markup, const HtmlState &state)
{
    const string slash = state.closing ? "/" : "";
    const string name =
        state.part == Part::TAG_NAME ? string(state.word, state.wordLength) : string(state.element);
    if (state.part == Part::COMMENT) {
        markup.open = "a comment";
        markup.closing = "-->";
    } else if (state.part == Part::RAW) {
        markup.open = "the element <" + name + ">";
        markup.closing = "</" + name + ">";
    } else if (state.part == Part::DECLARATION) {
        markup.open = "a declaration";
        markup.closing = ">";
    } else if (isInTag(state)) {
        markup.open = "the tag <" + slash + name + ">";
        markup.closing = (state.quote ? string(1, state.quote) : "") + ">";
    }
}

Markup readMarkup(string_view page)
{
    Markup markup;
    HtmlState state;
    size_t tagAt = 0;
    for (size_t at = 0, end; at < page.size(); at = end) {
        // Of text only its end counts; a tag is followed byte by byte.
        const bool isText = state.part == Part::TEXT && page[at] != '<';
        const bool wasInTag = isInTag(state);
        end = isText ? std::min(page.find('<', at), page.size()) : at + 1;
        if (state.part == Part::TEXT)
            tagAt = at;
        follow(&state, page.substr(at, end - at));
        if (wasInTag && !isInTag(state) && markup.policy == NONE &&
            isPolicy(state, page.substr(tagAt, end - tagAt)))
            markup.policy = tagAt;
    }
    closeMarkup(markup, state);
    return markup;
}
