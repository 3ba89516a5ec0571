/* tools/common/notes.cpp - finds and sets notes.
 *
 * Programs of Python's world wrap comments, at 76 columns or fewer: at blanks, which go,
 * and at hyphens. So a note has short lines, each with its own quotes. What has been
 * wrapped nevertheless goes on up to the quote that closes it. Lines that an entry has
 * twice are one for such programs: those behind a note's first have numbers, "source.2". */
#include "notes.h"

#include <algorithm>

#include "po.h"
#include "host/encoding.h"

static constexpr std::string_view NOTE_START = "orv-textdb: ";

// So many columns a line of a note has at the most, without "# ".
static constexpr size_t LINE_WIDTH = 70;

namespace
{
// A note that stands at [begin, end) of the comments.
struct Note {
    size_t begin;
    size_t end;
    std::string_view word;
    std::string text;
    bool isWrapped;
};
} // namespace

// Takes the line at *pos, without the blanks at its edges.
static std::string_view takeLine(std::string_view comments, size_t *pos)
{
    std::string_view line = comments.substr(*pos, comments.find('\n', *pos) - *pos);
    *pos = std::min(*pos + line.size() + 1, comments.size());
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

// Returns what a digit of an octal number stands for, 8 or more for any other character.
static unsigned octalDigit(char c)
{
    return static_cast<unsigned char>(c) - static_cast<unsigned>('0');
}

// Appends a text without the quotes and escapes that quotePo gave it. Returns whether its
// closing quote is there.
static bool unquote(std::string_view quoted, std::string *text)
{
    for (size_t i = 1; i < quoted.size(); ++i) {
        const char c = quoted[i];
        if (c == '"')
            return true;
        if (c != '\\' || i + 1 == quoted.size()) {
            text->push_back(c);
            continue;
        }
        const char next = quoted[++i];
        if (octalDigit(next) < 8 && i + 2 < quoted.size()) {
            text->push_back(static_cast<char>(octalDigit(next) << 6 |
                                              octalDigit(quoted[i + 1]) << 3 |
                                              octalDigit(quoted[i + 2])));
            i += 2;
        } else {
            text->push_back(next == 'n' ? '\n' : next == 't' ? '\t' : next);
        }
    }
    return false;
}

// Whether a note of that word has a text.
static bool hasText(std::string_view word)
{
    return word == NOTE_SOURCE || word == NOTE_FORMER || word == NOTE_MARKED;
}

// Reads the quoted text that line begins and lines from *pos on may go on with, appends it
// to the note, and moves *pos behind it.
static void readText(std::string_view comments, std::string_view line, size_t *pos, Note *note)
{
    std::string quoted(line);
    std::string text;
    const size_t first = *pos;
    bool isClosed = unquote(quoted, &text);
    while (!isClosed && *pos < comments.size()) {
        const std::string_view next = takeLine(comments, pos);
        if (next.starts_with(NOTE_START) || (quoted.empty() && !next.starts_with('"')))
            break;
        const bool isWhole = quoted.empty() || quoted.ends_with('-');
        quoted.append(isWhole ? "" : " ").append(next);
        text.clear();
        isClosed = unquote(quoted, &text);
    }
    if (!isClosed) { // somebody has changed it: what follows is not of it
        *pos = first;
        text.clear();
        unquote(line, &text);
    }
    note->isWrapped = note->isWrapped || *pos != first;
    note->text += text;
}

// Splits a line into the word of a note and what follows it. Returns false when it is none.
static bool splitNote(std::string_view line, std::string_view *word, std::string_view *rest)
{
    if (!line.starts_with(NOTE_START))
        return false;
    line.remove_prefix(NOTE_START.size());
    *word = line.substr(0, line.find(' '));
    *rest = line.substr(std::min(word->size() + 1, line.size()));
    return true;
}

// Returns the word of a note's line; behind the first, with the line's number.
static std::string wordOf(std::string_view word, size_t number)
{
    std::string whole(word);
    if (number > 1)
        whole.append(".").append(std::to_string(number));
    return whole;
}

// Finds the next note at pos or later. Returns false when there is none.
static bool nextNote(std::string_view comments, size_t pos, Note *note)
{
    std::string_view rest;
    for (;;) {
        if (pos >= comments.size())
            return false;
        *note = {pos, 0, "", "", false};
        if (splitNote(takeLine(comments, &pos), &note->word, &rest))
            break;
    }
    if (hasText(note->word))
        readText(comments, rest, &pos, note);
    note->end = pos;
    for (size_t number = 2; pos < comments.size(); ++number) {
        std::string_view word;
        if (!splitNote(takeLine(comments, &pos), &word, &rest) ||
            word != wordOf(note->word, number))
            break;
        readText(comments, rest, &pos, note);
        note->end = pos;
    }
    return true;
}

// Finds the first note of that word. Returns false when there is none.
static bool noteOf(std::string_view comments, std::string_view word, Note *note)
{
    for (size_t pos = 0; nextNote(comments, pos, note); pos = note->end)
        if (note->word == word)
            return true;
    return false;
}

bool findNote(std::string_view comments, std::string_view word, std::string *text)
{
    Note note;
    if (!noteOf(comments, word, &note))
        return false;
    if (text)
        *text = std::move(note.text);
    return true;
}

static std::string withoutSpaces(std::string_view text)
{
    std::string rest(text);
    std::erase_if(rest, [](char c) { return c == ' '; });
    return rest;
}

bool isNoted(std::string_view comments, std::string_view word, std::string_view text)
{
    Note note;
    if (!noteOf(comments, word, &note))
        return false;
    return note.isWrapped ? withoutSpaces(note.text) == withoutSpaces(text) : note.text == text;
}

// Returns how many bytes of a text a line of that width takes, in quotes: up to a blank where
// there is one in its second half. A character of three bytes or more may be a wide one.
static size_t fittingLength(std::string_view text, size_t width)
{
    size_t used = 2;
    size_t blank = 0;
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t length = characterLength(text.substr(pos));
        const std::string_view character = text.substr(pos, std::max<size_t>(length, 1));
        used += length > 1 ? (length > 2 ? 2 : 1) : quotePo(character).size() - 2;
        if (used > width)
            return blank > width / 2 ? blank : pos;
        pos += character.size();
        if (character == " ")
            blank = pos;
    }
    return pos;
}

// Returns the lines of a note.
static std::string linesOf(std::string_view word, std::string_view text)
{
    std::string lines;
    size_t number = 0;
    do {
        const std::string start = std::string(NOTE_START) + wordOf(word, ++number);
        const size_t length = fittingLength(text, LINE_WIDTH - start.size() - 1);
        lines += start + " " + quotePo(text.substr(0, length)) + "\n";
        text.remove_prefix(length);
    } while (!text.empty());
    return lines;
}

void setNote(std::string *comments, std::string_view word, const std::string *text)
{
    const std::string lines = text ? linesOf(word, *text) : "";
    std::string result;
    Note note;
    size_t pos = 0;
    bool isPlaced = false;
    for (size_t from = 0; nextNote(*comments, from, &note); from = note.end) {
        if (note.word != word)
            continue;
        result.append(*comments, pos, note.begin - pos).append(isPlaced ? "" : lines);
        isPlaced = true;
        pos = note.end;
    }
    result.append(*comments, pos); // whose last line has its end
    *comments = result + (isPlaced ? "" : lines);
}

std::set<std::string> noteWords(std::string_view comments)
{
    std::set<std::string> words;
    Note note;
    for (size_t pos = 0; nextNote(comments, pos, &note); pos = note.end)
        words.emplace(note.word);
    return words;
}

std::string commentWithoutNotes(std::string_view comments)
{
    std::string result;
    Note note;
    size_t pos = 0;
    for (; nextNote(comments, pos, &note); pos = note.end)
        result.append(comments.substr(pos, note.begin - pos));
    return result.append(comments.substr(pos));
}

void dropFormerLines(std::string *comments)
{
    for (size_t pos = 0; pos < comments->size();) {
        const size_t begin = pos;
        std::string lines(takeLine(*comments, &pos));
        if (!lines.starts_with("| msgid \"") && !lines.starts_with("| \""))
            continue;
        const auto isOpen = [&] {
            bool open = false;
            for (size_t i = 0; i < lines.size(); ++i) {
                if (lines[i] == '\\')
                    ++i;
                else
                    open = open != (lines[i] == '"');
            }
            return open;
        };
        while (isOpen() && pos < comments->size())
            lines += takeLine(*comments, &pos);
        comments->erase(begin, pos - begin);
        pos = begin;
    }
}
