/* tools/textdb/source.cpp - comments for translators, made from the source language. */
#include "source.h"

#include <algorithm>

#include "textfields.h"

// What is said about a place that asks for care. They begin alike, which tells them
// from comments of the source.
static constexpr std::string_view STANDS = "Stands in ";
static constexpr struct {
    uint8_t bit;
    std::string_view sentence;
} places[] = {
    {STANDS_IN_ATTRIBUTE, "Stands in an attribute: no tags, and not the quote around it."},
    {STANDS_IN_SCRIPT, "Stands in a script: not the quote around it, no line end."},
    {STANDS_IN_COMPARISON, "Stands in a comparison: templates compare it with other texts."},
};

// Appends lines, each with its end.
static void appendLines(std::string *comments, std::string_view lines)
{
    comments->append(lines);
    if (!lines.empty() && !lines.ends_with('\n'))
        comments->push_back('\n');
}

// Returns the lines of comments that tell of a place, or the others.
static std::string linesOf(std::string_view comments, bool ofPlaces)
{
    std::string lines;
    while (!comments.empty()) {
        const size_t length = std::min(comments.find('\n'), comments.size() - 1) + 1;
        if (comments.starts_with(STANDS) == ofPlaces)
            lines += comments.substr(0, length);
        comments.remove_prefix(length);
    }
    return lines;
}

std::string sourceText(const PoEntry &entry)
{
    std::string text(entry.text);
    if (!entry.isTranslated())
        findNote(entry.comments, NOTE_SOURCE, &text);
    return text;
}

void showSource(po_message_t target, const PoEntry &source, uint8_t stands)
{
    const bool isTemplate = !source.isTranslated(); // its comments have the text already
    const std::string old = po_message_extracted_comments(target);
    std::string comments;
    if (!isTemplate)
        appendLines(&comments, source.text);
    const std::string_view extracted = po_message_extracted_comments(source.message);
    appendLines(&comments, linesOf(extracted, false));
    appendLines(&comments, commentWithoutNotes(source.comments));
    std::string placed = linesOf(extracted, true);
    if (placed.empty())
        placed = linesOf(old, true);
    for (const auto &place : places)
        if (stands & place.bit)
            appendLines(&placed, place.sentence);
    comments += placed;
    if (comments != old)
        po_message_set_extracted_comments(target, comments.c_str());
}
