/* tools/textdb/source.cpp - comments for translators, made from the source language. */
#include "source.h"

#include <algorithm>

#include "textfields.h"
#include "tools/common/notes.h"

// What is said about a place that asks for care. No other line of a comment is the same.
static constexpr struct {
    uint8_t bit;
    std::string_view sentence;
} placeSentences[] = {
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

static bool tellsOfPlace(std::string_view line)
{
    return std::any_of(std::begin(placeSentences), std::end(placeSentences),
                       [line](const auto &place) { return place.sentence == line; });
}

// Takes the line at the front of *text off it.
static std::string_view takeLine(std::string_view *text)
{
    const std::string_view line = text->substr(0, text->find('\n'));
    text->remove_prefix(std::min(line.size() + 1, text->size()));
    return line;
}

// Returns the lines of comments that do not tell of a place.
static std::string withoutPlaces(std::string_view comments)
{
    std::string lines;
    while (!comments.empty()) {
        const std::string_view line = takeLine(&comments);
        if (!tellsOfPlace(line))
            lines.append(line).push_back('\n');
    }
    return lines;
}

// Returns the places that comments tell of, in a line or in several: programs wrap them.
static uint8_t placesOf(std::string_view comments)
{
    uint8_t stands = 0;
    while (!comments.empty()) {
        for (const auto &[bit, sentence] : placeSentences) {
            std::string start(comments.substr(0, sentence.size()));
            std::replace(start.begin(), start.end(), '\n', ' ');
            if (start == sentence &&
                (comments.size() == sentence.size() || comments[sentence.size()] == '\n'))
                stands |= bit;
        }
        takeLine(&comments);
    }
    return stands;
}

// Appends the lines of a source text, in quotes where they would come to harm in a comment: a
// backslash at the end takes the next line along, blanks at the edges go, and some programs
// end a line at other bytes than at the line end.
static void appendShown(std::string *comments, std::string_view text)
{
    while (!text.empty()) {
        const std::string_view line = takeLine(&text);
        const bool isFragile =
            !line.empty() && (line.front() == ' ' || line.back() == ' ' || line.back() == '\\');
        const bool isOdd = std::any_of(line.begin(), line.end(), [](char c) {
            return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
        });
        appendLines(comments,
                    isFragile || isOdd || tellsOfPlace(line) ? quotePo(line) : std::string(line));
        if (line.empty())
            comments->push_back('\n');
    }
}

std::string sourceText(const PoEntry &entry)
{
    std::string text(entry.text);
    if (!entry.isTranslated())
        findNote(entry.comments, NOTE_SOURCE, &text);
    return text;
}

std::set<std::string> givenFlags(const PoFile &file, const PoEntry &entry)
{
    std::set<std::string> flags;
    for (const std::string &flag : entry.flags) // the words of notes are among them
        if (flag.starts_with("no-") || flag.starts_with("max-length:"))
            flags.insert(flag);
    const auto known = file.flags.find(entry.message);
    if (known != file.flags.end())
        flags.insert(known->second.begin(), known->second.end());
    return flags;
}

void showSource(po_message_t target, const PoEntry &source, uint8_t stands, bool keepsPlaces)
{
    const bool isTemplate = !source.isTranslated(); // its comments have the text already
    const std::string old = extractedCommentsOf(target);
    std::string comments;
    if (!isTemplate)
        appendShown(&comments, source.text);
    const std::string_view extracted = extractedCommentsOf(source.message);
    appendLines(&comments, withoutPlaces(extracted));
    appendLines(&comments, commentWithoutNotes(source.comments));
    stands |= placesOf(extracted);
    if (keepsPlaces && !stands)
        stands = placesOf(old);
    for (const auto &place : placeSentences)
        if (stands & place.bit)
            appendLines(&comments, place.sentence);
    if (comments != old)
        po_message_set_extracted_comments(target, comments.c_str());
}
