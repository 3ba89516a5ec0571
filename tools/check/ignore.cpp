/* tools/check/ignore.cpp - reads the comments that leave findings out. */
#include "ignore.h"

#include <algorithm>

using std::string;
using std::string_view;

static constexpr string_view NAME = "orv-check";
static constexpr string_view BLANKS = " \t\r\n";
static constexpr string_view FORM = "write <?-- orv-check: ignore KIND: reason ?>";

namespace
{
// A comment that is being read, from the name of the checker on.
struct CommentReader {
    string_view text;
    uint32_t at; // of the text in the template's source

    Span spanOf(size_t begin, size_t end) const
    {
        return {at + static_cast<uint32_t>(begin), at + static_cast<uint32_t>(end)};
    }
};
} // namespace

static size_t skipAnyOf(string_view text, size_t at, string_view bytes)
{
    return std::min(text.find_first_not_of(bytes, at), text.size());
}

static size_t wordEnd(string_view text, size_t at)
{
    return skipAnyOf(text, at, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_");
}

static string noKind(string_view word)
{
    const string_view near = nearest(word, kindIds());
    return "there is no kind '" + string(word) +
           (near.empty() ? "' (orv-check --list tells all)"
                         : "'; did you mean '" + string(near) + "'?");
}

// Reads the kinds that stand at begin, up to a colon, or to the first word that is none: a reason
// needs no colon.
static void readKinds(const CommentReader &reader, size_t begin, IgnoreRange *range,
                      std::vector<IgnoreFault> *faults)
{
    const string_view text = reader.text;
    const size_t colon = text.find(':', begin);
    const bool isList = colon != string_view::npos &&
                        text.substr(begin, colon - begin).find_first_of(".;") == string_view::npos;
    for (size_t at = begin;;) {
        at = skipAnyOf(text, at, " \t\r\n,");
        const size_t end = wordEnd(text, at);
        if (end == at)
            break;
        const string_view word = text.substr(at, end - at);
        const Kind *kind = findKind(word);
        const bool isMeant = range->kinds.empty() || isList || word.find('-') != string_view::npos;
        if (kind)
            range->kinds.push_back({kind, reader.spanOf(at, end)});
        else if (isMeant)
            faults->push_back({reader.spanOf(at, end), noKind(word)});
        if (!kind && (!isMeant || !isList))
            return;
        at = end;
    }
    if (range->kinds.empty() && faults->empty())
        faults->push_back({reader.spanOf(0, begin), "the comment names no kind: " + string(FORM)});
}

// Reads a comment that begins with the checker's name, or has it behind other words. Returns
// whether it leaves anything out.
static bool readComment(const CommentReader &reader, IgnoreRange *range,
                        std::vector<IgnoreFault> *faults)
{
    const string_view text = reader.text;
    const size_t colon = skipAnyOf(text, NAME.size(), BLANKS);
    const bool hasColon = colon < text.size() && text[colon] == ':';
    const size_t begin = skipAnyOf(text, hasColon ? colon + 1 : colon, BLANKS);
    const size_t end = wordEnd(text, begin);
    const string_view verb = text.substr(begin, end - begin);
    const bool isIgnore = verb == "ignore" || nearest(verb, {"ignore"}) == "ignore";
    if (!hasColon && !isIgnore)
        return false; // it is only spoken of
    if (hasColon && verb == "ignore") {
        std::vector<IgnoreFault> found;
        readKinds(reader, end, range, &found);
        faults->insert(faults->end(), found.begin(), found.end());
    } else {
        faults->push_back({reader.spanOf(0, std::max(end, NAME.size())),
                           "the comment leaves nothing out: " + string(FORM)});
    }
    return !range->kinds.empty();
}

// A comment of HTML, which the interpreter prints.
static void findHtmlComments(const Template &tpl, std::vector<IgnoreFault> *faults)
{
    const string_view source = tpl.source;
    for (size_t at = 0; (at = source.find("<!--", at)) != string_view::npos; at += 4) {
        const size_t begin = skipAnyOf(source, at + 4, BLANKS);
        if (source.substr(begin).starts_with("orv-check: ignore"))
            faults->push_back(
                {{static_cast<uint32_t>(at), static_cast<uint32_t>(begin + NAME.size())},
                 "a comment of HTML leaves nothing out: " + string(FORM)});
    }
}

// A comment holds up to the end of the command behind it.
static uint32_t endOfRange(const Template &tpl, const Span &comment)
{
    const auto behind = std::find_if(tpl.begun.begin(), tpl.begun.end(), [&](const Begun &begun) {
        return begun.words.at >= comment.end;
    });
    return behind == tpl.begun.end() ? static_cast<uint32_t>(tpl.source.size())
                                     : std::max(behind->end, behind->words.end);
}

IgnoreComments readIgnoreComments(const Template &tpl)
{
    IgnoreComments comments;
    for (const Span &comment : tpl.comments) {
        const string_view text =
            string_view(tpl.source).substr(comment.at, comment.end - comment.at - 2);
        const size_t name = text.find(NAME);
        if (name == string_view::npos)
            continue;
        const CommentReader reader = {text.substr(name), comment.at + static_cast<uint32_t>(name)};
        IgnoreRange range = {{comment.at, endOfRange(tpl, comment)}, {}};
        if (readComment(reader, &range, &comments.faults))
            comments.ranges.push_back(std::move(range));
    }
    findHtmlComments(tpl, &comments.faults);
    return comments;
}

bool hitIgnored(IgnoreComments *comments, uint32_t offset, const Kind *kind)
{
    bool isHit = false;
    for (IgnoreRange &range : comments->ranges)
        for (IgnoredKind &ignored : range.kinds)
            if (ignored.kind == kind && range.span.contains(offset))
                ignored.hit = isHit = true;
    return isHit;
}
