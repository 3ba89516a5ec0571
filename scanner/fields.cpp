/* scanner/fields.cpp - the input routine: bytes of the template on top of the
 * include stack, with each text field replaced by its text.
 *
 * The scanner never sees a field, so a text is scanned like any other part of
 * the template. Between calls nothing is kept but the entry's readPos, the rest
 * of a text that was too long, and in tooltip mode the handle's htmlContext. */
#include "scanner/fields.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string_view>

#include "base/log.h"
#include "base/process.h"
#include "scanner/bytes.h"
#include "scanner/scanner.h"
#include "textdb/language.h"

using std::string_view;

static char fieldId[FIELD_ID_CAPACITY]; // during one lookup
static char fieldMark[MARK_CAPACITY];   // until the mark is placed

namespace
{
// One call's work: where it reads and what it has placed.
struct Refill {
    IncludeEntry *entry;
    const char *read;    // where the byte at entry->readPos lies
    const char *scanPos; // bytes from there to here are still to be copied
    const char *limit;   // behind the template's last byte
    char *dest;
    size_t placed; // bytes in dest
    size_t max;

    size_t pending() const
    {
        return static_cast<size_t>(scanPos - read);
    }
    size_t room() const
    {
        return max - placed - pending();
    }
};

enum class FieldResult { GO_ON, FULL };
} // namespace

static void place(Refill *refill, string_view text)
{
    memcpy(refill->dest + refill->placed, text.data(), text.size());
    refill->placed += text.size();
}

// What is read next lies there.
static void moveTo(Refill *refill, const char *at)
{
    refill->entry->readPos += at - refill->read;
    refill->read = refill->scanPos = at;
}

static void placePending(Refill *refill)
{
    place(refill, {refill->read, refill->pending()});
    moveTo(refill, refill->scanPos);
}

static bool startsWithLetters(const char *at, const char *letters)
{
    for (int i = 0; i < 3; ++i)
        if ((at[i] | 0x20) != letters[i])
            return false;
    return true;
}

// Follows tags, scripts and styles of an HTML page at one byte.
static void followContext(const Refill &refill)
{
    uint32_t &context = inpr->htmlContext;
    if (context & CONTEXT_NOT_HTML)
        return;
    const char *at = refill.scanPos;
    if (*at == '\n') {
        ++inpr->tooltipLine;
    } else if (*at == '>') {
        context &= ~CONTEXT_TAG;
    } else if (*at == '<' && refill.limit - at > 5) {
        const bool closing = at[1] == '/';
        const char *name = at + (closing ? 2 : 1);
        const uint32_t element = startsWithLetters(name, "scr")   ? CONTEXT_SCRIPT
                                 : startsWithLetters(name, "sty") ? CONTEXT_STYLE
                                                                  : 0;
        if (closing)
            context &= ~element;
        else
            context |= element ? element : CONTEXT_TAG;
    }
}

// The end of the field that begins at scanPos, behind its "?}"; null when it is none.
static const char *fieldEnd(const Refill &refill)
{
    const char *end = bytes::behindFieldId(refill.scanPos + 2, refill.limit);
    const bool closed = refill.limit - end >= 2 && end[0] == '?' && end[1] == '}';
    return closed ? end + 2 : nullptr;
}

static size_t fileSize(const IncludeEntry &entry)
{
    return entry.mapStart ? static_cast<size_t>(entry.mapLast - entry.mapStart) + 1 : 0;
}

// A refill of max bytes that begins at the entry's readPos.
[[gnu::noinline]] static Refill refillOf(IncludeEntry *entry, char *dest, size_t max)
{
    const char *bytes = entry->copy ? entry->copy : entry->mapStart;
    const char *read = bytes + (entry->readPos - entry->mapStart);
    return {entry, read, read, bytes + fileSize(*entry), dest, 0, max};
}

// The text in the mark for translators that the tooltip mode asks for here.
static string_view marked(string_view text)
{
    if (inpr->tooltipMode <= 0)
        return text;
    if (inpr->htmlContext == 0) {
        const size_t shown = std::min(text.size(), MARK_CAPACITY);
        const int length = snprintf(
            fieldMark, MARK_CAPACITY, "<span title=\"{?%s?} => %s Zeile %d\">%.*s</span>", fieldId,
            currentTemplate(), inpr->tooltipLine, static_cast<int>(shown), text.data());
        return {fieldMark, std::min(static_cast<size_t>(length), MARK_CAPACITY - 1)};
    }
    if (inpr->tooltipMode == 2)
        return {fieldMark, formatMark(fieldMark, text, fieldId)};
    return text;
}

// Places what fits of a text that not even an empty destination can hold; the
// entry keeps a copy of the rest, which outlives the database.
static void placeFirstPiece(Refill *refill, string_view text)
{
    const string_view piece(text.data(), refill->max);
    const string_view rest(text.data() + piece.size(), text.size() - piece.size());
    place(refill, piece);
    auto *copy = static_cast<char *>(malloc(rest.size()));
    if (!copy) {
        logMessage<Message::REFILL_NO_MEMORY>(currentTemplate());
        return;
    }
    memcpy(copy, rest.data(), rest.size());
    refill->entry->rest = copy;
    refill->entry->restPos = 0;
    refill->entry->restLen = rest.size();
}

static void placeRest(IncludeEntry *entry, Refill *refill)
{
    const size_t length = std::min(entry->restLen - entry->restPos, refill->max);
    place(refill, {entry->rest + entry->restPos, length});
    entry->restPos += length;
    if (entry->restPos < entry->restLen)
        return;
    free(entry->rest);
    entry->rest = nullptr;
}

// Replaces the field from scanPos to end by its text.
static FieldResult substitute(Refill *refill, const char *end)
{
    const char *field = refill->scanPos;
    const auto length = static_cast<size_t>(end - field);
    placePending(refill);
    moveTo(refill, end);
    const size_t idLength = std::min(length - 4, FIELD_ID_CAPACITY - 1);
    memcpy(fieldId, field + 2, idLength);
    fieldId[idLength] = '\0';
    observe::looksUp(fieldId,
                     fileSize(*refill->entry) - static_cast<size_t>(refill->limit - field));
    const string_view found = lookupText(fieldId);
    ++inpr->textFieldCount;
    if (!found.data()) {
        observe::substituted(refill->placed, length, 0);
        logMessage<Message::TEXT_MISSING>(currentTemplate(), fieldId);
        return FieldResult::GO_ON;
    }
    const string_view text = marked(found);
    if (text.size() <= refill->room()) {
        observe::substituted(refill->placed, length, text.size());
        place(refill, text);
        return FieldResult::GO_ON;
    }
    if (refill->placed == 0) {
        observe::substituted(0, length, text.size());
        placeFirstPiece(refill, text);
    } else {
        moveTo(refill, field); // examined again, counted again
    }
    return FieldResult::FULL;
}

// Passes a "{?" that begins no field; the rest is read on the next refill.
static void passBrace(Refill *refill)
{
    if (refill->room() >= 2)
        refill->scanPos += 2;
    else if (refill->placed + refill->pending() == 0)
        refill->scanPos += 1; // too little room for anything else
}

// Treats the "{?" at scanPos.
static FieldResult examineField(Refill *refill)
{
    if (const char *end = fieldEnd(*refill))
        return substitute(refill, end);
    passBrace(refill);
    return FieldResult::FULL;
}

static bool isDone(const Refill &refill)
{
    return refill.scanPos == refill.limit || refill.room() == 0;
}

// Moves scanPos to the next "{?", or as far as there is room.
static void passText(Refill *refill)
{
    while (refill->scanPos < refill->limit && refill->room() > 0) {
        const char *at = refill->scanPos;
        if (inpr->tooltipMode > 0) {
            followContext(*refill);
        } else {
            const size_t length = std::min(static_cast<size_t>(refill->limit - at), refill->room());
            const void *brace = memchr(at, '{', length);
            refill->scanPos = at = brace ? static_cast<const char *>(brace) : at + length;
            if (!brace)
                return;
        }
        if (*at == '{' && refill->limit - at >= 2 && at[1] == '?')
            return;
        ++refill->scanPos;
    }
}

void readInput(char *dest, int32_t *count, int32_t max)
{
    IncludeEntry *entry = &inpr->includes[inpr->includeIndex];
    Refill refill = refillOf(entry, dest, static_cast<size_t>(max));
    if (entry->rest) {
        placeRest(entry, &refill);
    } else if (refill.scanPos < refill.limit) {
        inpr->tooltipLine = scannedLine();
        FieldResult result = FieldResult::GO_ON;
        while (result == FieldResult::GO_ON) {
            passText(&refill);
            if (isDone(refill))
                break;
            result = examineField(&refill);
        }
        placePending(&refill);
    }
    *count = static_cast<int32_t>(refill.placed);
}

bool isExhausted()
{
    const IncludeEntry &entry = inpr->includes[inpr->includeIndex];
    return !entry.rest && entry.readPos == entry.mapStart + fileSize(entry);
}

const char *nextByte()
{
    return refillOf(&inpr->includes[inpr->includeIndex], nullptr, 0).read;
}

size_t readInPlace(size_t max)
{
    IncludeEntry *entry = &inpr->includes[inpr->includeIndex];
    // In tooltip mode the bytes that are passed leave traces in the handle; and the host's
    // function may change a template's file while it is handed bytes of it.
    if (entry->rest || inpr->tooltipMode > 0 || (inpr->fWrite && !entry->copy))
        return 0;
    Refill refill = refillOf(entry, nullptr, max);
    passText(&refill);
    if (!isDone(refill)) {
        if (fieldEnd(refill))
            return 0;
        passBrace(&refill);
    }
    const size_t count = refill.pending();
    moveTo(&refill, refill.scanPos);
    return count;
}
