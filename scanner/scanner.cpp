/* scanner/scanner.cpp - the lexical rules, one function for each kind of start
 * condition.
 *
 * A rule looks at the bytes of the current match through byteAt, and only at
 * those that can lengthen it: asking for more may refill the buffer, and what a
 * refill reads depends on what commands have done before it. Called by the parse
 * driver. Between calls: the next match begins at the buffer's pos. */
#include "scanner/scanner.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <bit>
#include <string_view>

#include "grammar/commands.h"
#include "interface/log.h"
#include "interface/output.h"
#include "interface/process.h"
#include "interface/text.h"
#include "scanner/buffer.h"

using std::string_view;

static constexpr int SCAN_ON = -1; // the match made no token
static constexpr char BLANKS[] = " \t\n\r";

// Sets of bytes, a bit each.
using ByteSet = uint16_t;
static constexpr ByteSet BLANK = 1;
static constexpr ByteSet DIGIT = 2;
static constexpr ByteSet DIGIT_OR_SMALL = 4;
static constexpr ByteSet NAME = 8;
static constexpr ByteSet QUOTE = 16;
static constexpr ByteSet ARGUMENT_TEXT = 32;
static constexpr ByteSet COMMENT_TEXT = 64;
static constexpr ByteSet DQUOTED_TEXT = 128; // in quoted text a "<" needs a look behind it
static constexpr ByteSet SQUOTED_TEXT = 256;
static constexpr ByteSet BQUOTED_TEXT = 512;

// The sets that each byte belongs to; behind END_OF_INPUT, which is in none.
static constexpr auto setsOf = [] {
    std::array<ByteSet, 257> table = {};
    const auto add = [&table](ByteSet set, string_view members, bool inside) {
        for (int byte = 0; byte < 256; ++byte)
            if ((members.find(static_cast<char>(byte)) != string_view::npos) == inside)
                table[static_cast<size_t>(byte - END_OF_INPUT)] |= set;
    };
    add(BLANK, BLANKS, true);
    add(DIGIT, "0123456789", true);
    add(DIGIT_OR_SMALL, "0123456789abcdefghijklmnopqrstuvwxyz", true);
    add(NAME, "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ", true);
    add(QUOTE, "\"'`", true);
    add(ARGUMENT_TEXT, " \t\n\r\"'`$<?]", false);
    add(COMMENT_TEXT, "<?", false);
    add(DQUOTED_TEXT, "\"$?<", false);
    add(SQUOTED_TEXT, "'$?<", false);
    add(BQUOTED_TEXT, "`$?<", false);
    return table;
}();

static bool isIn(int byte, ByteSet set)
{
    return setsOf[static_cast<size_t>(byte - END_OF_INPUT)] & set;
}

// Sets of rows of the command table, a bit each, by the first and by the second
// letter of their words; an "if" in front of those does not count.
using RowSet = uint64_t;
static_assert(MAX_COMMANDS == sizeof(RowSet) * 8);
static_assert(COMMAND_COUNT <= MAX_COMMANDS, "widen RowSet, and MAX_COMMANDS with it");
static constexpr char optionalWord[] = "if ";
static constexpr size_t LETTERS = 26;

static constexpr bool takesIf(const CommandDef &row)
{
    return string_view(row.words, sizeof optionalWord - 1) == optionalWord;
}

static constexpr const char *wordsOf(const CommandDef &row)
{
    return row.words + (takesIf(row) ? sizeof optionalWord - 1 : 0);
}

static constexpr std::array<RowSet, LETTERS> rowsByLetter(size_t position)
{
    std::array<RowSet, LETTERS> table = {};
    for (size_t row = 0; row < COMMAND_COUNT; ++row)
        table[static_cast<size_t>(wordsOf(commandTable[row])[position] - 'a')] |= RowSet{1} << row;
    return table;
}
static constexpr RowSet rowsTakingIf = [] {
    RowSet rows = 0;
    for (size_t row = 0; row < COMMAND_COUNT; ++row)
        rows |= static_cast<RowSet>(takesIf(commandTable[row])) << row;
    return rows;
}();
static constexpr auto rowsByFirst = rowsByLetter(0);
static constexpr auto rowsBySecond = rowsByLetter(1);

static inline size_t skipRead(size_t offset, ByteSet set)
{
    const char *match = matchStart();
    const size_t read = bytesRead();
    while (offset < read && isIn(static_cast<unsigned char>(match[offset]), set))
        ++offset;
    return offset;
}

// Goes on behind all that has been read. Apart, since it is rarely needed.
[[gnu::noinline]] static size_t skipMore(size_t offset, ByteSet set)
{
    while (offset >= bytesRead() && refill())
        offset = skipRead(offset, set);
    return offset;
}

// Offset behind the bytes of set that stand from offset on.
static inline size_t skip(size_t offset, ByteSet set)
{
    offset = skipRead(offset, set);
    return offset < bytesRead() ? offset : skipMore(offset, set);
}

// Offset behind one or more of white space, else 0.
static size_t matchBlanks(size_t offset)
{
    const size_t behind = skip(offset, BLANK);
    return behind > offset ? behind : 0;
}

// Offset behind text if it stands at offset, else 0. A blank of text stands for
// one or more of white space.
static size_t matchText(size_t offset, const char *text)
{
    for (; *text; ++text) {
        if (*text != ' ') {
            if (byteAt(offset) != *text)
                return 0;
            ++offset;
        } else if ((offset = matchBlanks(offset)) == 0) {
            return 0;
        }
    }
    return offset;
}

// The same for a text that begins with a letter or sign, which decides mostly.
static inline size_t matchWord(size_t offset, const char *text)
{
    return byteAt(offset) == *text ? matchText(offset, text) : 0;
}

static string_view without(string_view text, size_t length)
{
    text.remove_prefix(length);
    return text;
}

static int32_t countLines(const char *at, const char *end)
{
    int32_t lines = 0;
    while (at < end &&
           (at = static_cast<const char *>(memchr(at, '\n', static_cast<size_t>(end - at))))) {
        ++at;
        ++lines;
    }
    return lines;
}

int32_t scannedLine()
{
    scanner.line += countLines(scanner.counted, matchStart());
    scanner.counted = matchStart();
    return scanner.line;
}

// Ends the match after length bytes and moves on.
static string_view take(size_t length)
{
    const string_view match(matchStart(), length);
    scanner.buffer.pos += length;
    scanner.buffer.read -= length;
    return match;
}

void logNoValue()
{
    logMessage<Message::VALUE_NO_MEMORY>(currentTemplate());
}

// Makes a copy of text the token's value. Read as a text, it ends before a zero byte.
static int32_t storeValue(string_view text)
{
    zarn_lval.text = copyText(text);
    if (zarn_lval.text)
        return TOKEN_VALUE_SET;
    logNoValue();
    return TOKEN_NO_MEMORY;
}

int32_t dataToToken(const char *text, int32_t cut)
{
    return storeValue({text, cut ? strcspn(text, BLANKS) : strlen(text)});
}

// An argument's token: the parser's side makes an argument of its text.
static int valueToken(int token, string_view text)
{
    scanner.value = text;
    return token;
}

static int textToken(size_t length)
{
    return valueToken(ARG_TEXT, take(length));
}

static void setLocation()
{
    zarn_lloc.first_line = scannedLine();
}

// ---- commands ----

// Offset behind an operator and the white space around it, else 0.
static size_t matchOperator(size_t offset, char sign)
{
    offset = matchBlanks(offset);
    if (offset == 0)
        return 0;
    offset += isIn(byteAt(offset), QUOTE);
    if (byteAt(offset) != sign)
        return 0;
    ++offset;
    offset += isIn(byteAt(offset), QUOTE);
    return matchBlanks(offset);
}

// Offset behind var:, a name and, with bracket, a "[", and white space, else 0.
static size_t matchName(size_t offset, bool bracket)
{
    offset = matchText(offset, " var:");
    if (offset == 0)
        return 0;
    const size_t behind = skip(offset, NAME);
    if (behind == offset || (bracket && byteAt(behind) != '['))
        return 0;
    return skip(behind + bracket, BLANK);
}

// Length of the match if the command of that row stands at offset, else 0.
static size_t matchRow(const CommandDef &row, size_t offset)
{
    offset = matchText(offset, wordsOf(row));
    if (offset == 0)
        return 0;
    switch (row.tail) {
    case Tail::BLANK:
        return matchBlanks(offset);
    case Tail::OPERATOR:
        return matchOperator(offset, row.sign);
    case Tail::NAME:
        return matchName(offset, false);
    case Tail::ELEMENT:
        return matchName(offset, true);
    }
    return 0;
}

static RowSet rowsWith(int letter, const std::array<RowSet, LETTERS> &rows)
{
    return letter >= 'a' && letter <= 'z' ? rows[static_cast<size_t>(letter - 'a')] : 0;
}

// The row whose command stands at offset, with the length of the match; null if none.
static const CommandDef *findCommand(size_t offset, size_t *length)
{
    RowSet candidates = ~RowSet{0};
    if (const size_t behindIf = matchWord(offset, optionalWord)) {
        offset = behindIf;
        candidates = rowsTakingIf;
    }
    candidates &= rowsWith(byteAt(offset), rowsByFirst);
    if (candidates)
        candidates &= rowsWith(byteAt(offset + 1), rowsBySecond);
    const CommandDef *found = nullptr;
    for (*length = 0; candidates; candidates &= candidates - 1) {
        const CommandDef &row = commandTable[std::countr_zero(candidates)];
        const size_t matched = matchRow(row, offset);
        if (matched > *length) {
            *length = matched;
            found = &row;
        }
    }
    return found;
}

// The name in the match of a set command, with the "[" of an array.
static string_view nameIn(string_view match)
{
    const string_view name = without(match, match.rfind(':') + 1);
    return {name.data(), std::min(name.find_first_of(BLANKS), name.size())};
}

// At "<?", in every condition but comments.
static int scanCommandStart()
{
    size_t length = matchWord(2, "--");
    if (length == 0)
        length = matchWord(2, "xml");
    if (length > 0) {
        take(length);
        enterCondition(Condition::COMMENT);
        observe::commented();
        return SCAN_ON;
    }
    const size_t words = skip(2, BLANK);
    const CommandDef *command = findCommand(words, &length);
    if (!command) {
        writePiece(take(words));
        setLocation();
        return F_UNDEF;
    }
    enterCondition(Condition::ARGS);
    if (command->tail == Tail::ELEMENT)
        enterCondition(Condition::INDEX);
    const string_view match = take(length);
    setLocation();
    if (command->tail == Tail::NAME || command->tail == Tail::ELEMENT)
        return storeValue(nameIn(match)) == TOKEN_VALUE_SET ? command->token : SCAN_ON;
    return command->token;
}

// At the "?>" that ends the match: back to where the command's keyword stood.
static int endCommand(size_t length)
{
    take(length);
    while (scanner.condition != Condition::ARGS)
        leaveCondition();
    leaveCondition();
    setLocation();
    return CMD_END;
}

// ---- page text and comments ----

static bool endsText(const char *at)
{
    return at[0] == '<' && (at[1] == '<' || at[1] == '?');
}

// Passes blocks of SIZE bytes that hold no end of text, nor "<=" or "<>", which look
// much like one. Returns the offset behind them. SIZE is a multiple of what a vector
// holds, and small enough for a byte to count its newlines.
template <size_t SIZE>
static size_t passBlocks(const char *at, size_t offset, size_t length, int32_t *lines)
{
    for (; length - offset >= SIZE; offset += SIZE) {
        const char *block = at + offset;
        uint8_t ends = 0;
        uint8_t newlines = 0;
        for (size_t i = 0; i < SIZE; ++i) { // a loop that compilers turn into vectors
            const uint8_t opens = block[i] == '<' ? 0xFF : 0;
            const uint8_t follows = (block[i + 1] | 3) == '?' ? 0xFF : 0; // any of <=>?
            ends = static_cast<uint8_t>(ends | (opens & follows));
            newlines = static_cast<uint8_t>(newlines - (block[i] == '\n' ? 0xFF : 0));
        }
        if (ends)
            break;
        *lines += newlines;
    }
    return offset;
}

// Offset of the first of length bytes that ends a run of page text together with
// the byte behind it; length if none does. lines: the newlines in front are added.
static size_t findTextEnd(const char *at, size_t length, int32_t *lines)
{
    constexpr size_t small = 16;
    constexpr size_t large = 240;
    size_t offset = 0;
    while (offset < length) { // most texts are short: longer steps only behind shorter ones
        for (const size_t last = std::min(offset + small, length); offset < last; ++offset) {
            if (endsText(at + offset))
                return offset;
            *lines += at[offset] == '\n';
        }
        const size_t near = std::min(offset + large, length);
        offset = passBlocks<small>(at, offset, near, lines);
        if (near - offset < small)
            offset = passBlocks<large>(at, offset, length, lines);
    }
    return length;
}

// Length of the run of page text: it ends before "<?", before a "<" that another
// "<" follows, and before one that ends the template. lines: out, its newlines.
static size_t textRun(int32_t *lines)
{
    *lines = 0;
    for (size_t length = 0;;) {
        const size_t pairs = bytesRead() - length - 1; // bytes with one behind them, read already
        const size_t passed = findTextEnd(matchStart() + length, pairs, lines);
        length += passed;
        if (passed < pairs)
            return length;
        if (refill())
            continue;
        const char last = matchStart()[length];
        *lines += last == '\n';
        return length + (last != '<');
    }
}

// Apart, so that the other tokens do not save the registers that this one needs.
[[gnu::noinline]] static int scanText()
{
    scannedLine(); // of what is in front
    int32_t lines;
    const size_t length = textRun(&lines);
    if (length == 0 && byteAt(1) == '?')
        return scanCommandStart();
    writePiece(take(std::max<size_t>(length, 1)));
    scanner.line += lines;
    scanner.counted = matchStart();
    return scanner.passesText ? SCAN_ON : HTML_TEXT;
}

// Apart, as scanText is.
[[gnu::noinline]] static int scanComment()
{
    size_t length = 0;
    for (;;) {
        length = skip(length, COMMENT_TEXT);
        const int first = byteAt(length);
        if (first == END_OF_INPUT || byteAt(length + 1) == (first == '<' ? '?' : '>'))
            break;
        ++length;
    }
    if (length > 0) {
        take(length);
    } else if (take(2)[0] == '<') {
        enterCondition(Condition::COMMENT);
        observe::commented();
    } else {
        leaveCondition();
        observe::commented();
    }
    return SCAN_ON;
}

// ---- arguments ----

// At "$var:", with name the offset behind it and behind that of the name's end.
static int scanVariable(size_t name, size_t behind)
{
    if (byteAt(behind) != '[')
        return valueToken(ARG_GETVAR, without(take(behind), name));
    const size_t index = skip(behind + 1, BLANK);
    for (const char *word : {"min", "max"}) {
        size_t end = matchText(index, word);
        end = end ? skip(end, BLANK) : 0;
        if (end && byteAt(end) == ']') {
            // The byte behind the "[" keeps the place of the bound's sign.
            return valueToken(word[1] == 'i' ? ARG_MINARRAY : ARG_MAXARRAY,
                              {take(end + 1).data() + name, behind + 2 - name});
        }
    }
    enterCondition(Condition::INDEX);
    const string_view array(take(index).data() + name, behind + 1 - name);
    setLocation();
    return valueToken(ARG_GETARRAY, array);
}

// At "$".
static int scanReference()
{
    if (const size_t name = matchWord(1, "var:")) {
        const size_t behind = skip(name, NAME);
        if (behind > name)
            return scanVariable(name, behind);
    }
    const int first = byteAt(1);
    if (first == '$')
        return valueToken(ARG_TEXT, without(take(2), 1));
    if (!isIn(first, DIGIT_OR_SMALL))
        return textToken(1);
    const bool two = isIn(first, DIGIT) && isIn(byteAt(2), DIGIT_OR_SMALL);
    return valueToken(ARG_NUMVAR, without(take(two ? 3 : 2), 1));
}

// Length of the quoted text from offset on. A "<" belongs to it unless the quote,
// "$", "?" or the end of the template follows.
static size_t quotedRun(size_t offset, char quote, ByteSet text)
{
    for (;;) {
        offset = skip(offset, text);
        if (byteAt(offset) != '<')
            return offset;
        const int next = byteAt(offset + 1);
        if (next == END_OF_INPUT || next == quote || next == '$' || next == '?')
            return offset;
        ++offset;
    }
}

static ByteSet textInside(char quote)
{
    return quote == '"' ? DQUOTED_TEXT : quote == '\'' ? SQUOTED_TEXT : BQUOTED_TEXT;
}

static int openQuote(char quote)
{
    const size_t length = quotedRun(1, quote, textInside(quote));
    enterCondition(quote == '"'    ? Condition::DQUOTE
                   : quote == '\'' ? Condition::SQUOTE
                                   : Condition::BQUOTE);
    return valueToken(ARG_TEXT, without(take(length), 1));
}

static bool endsCommandAt(size_t offset)
{
    return byteAt(offset) == '?' && byteAt(offset + 1) == '>';
}

static int scanQuoted(char quote)
{
    const int first = byteAt(0);
    if (first == '$')
        return scanReference();
    if (first == '<' && byteAt(1) == '?')
        return scanCommandStart();
    if (first == quote || first == '?' || isIn(first, BLANK)) {
        const bool closes = first == quote;
        const size_t end = skip(closes, BLANK);
        if (endsCommandAt(end))
            return endCommand(end + 2);
        if (closes) {
            take(end);
            leaveCondition();
            return ARG_END;
        }
    }
    return textToken(std::max<size_t>(quotedRun(0, quote, textInside(quote)), 1));
}

// In a command's arguments, or with index in the index of an array reference.
static int scanArguments(bool index)
{
    const int first = byteAt(0);
    if (first == '$')
        return scanReference();
    if (first == '<' && byteAt(1) == '?')
        return scanCommandStart();
    if (isIn(first, QUOTE)) {
        if (!index)
            return openQuote(static_cast<char>(first));
        if (!observe::unmatched())
            putchar(first); // no rule for it here
        take(1);
        return SCAN_ON;
    }
    const size_t end = skip(0, BLANK);
    if (index && byteAt(end) == ']') {
        take(end + 1);
        leaveCondition();
        return SCAN_ON;
    }
    if (endsCommandAt(end))
        return endCommand(end + 2);
    if (end > 0) {
        take(end);
        return ARG_END;
    }
    return textToken(std::max<size_t>(skip(0, ARGUMENT_TEXT), 1));
}

// ---- tokens ----

static int endTemplate()
{
    if (scanner.condition != Condition::TEXT)
        logMessage<Message::ENDS_INSIDE>(currentTemplate());
    while (scanner.condition != Condition::TEXT)
        leaveCondition();
    scanner.ended = inpr->includeIndex;
    return inpr->includeIndex != 0 ? EOF_TAG : 0;
}

static int scanOnce()
{
    if (byteAt(0) == END_OF_INPUT)
        return endTemplate();
    switch (scanner.condition) {
    case Condition::TEXT:
        return scanText();
    case Condition::ARGS:
        return scanArguments(false);
    case Condition::DQUOTE:
        return scanQuoted('"');
    case Condition::SQUOTE:
        return scanQuoted('\'');
    case Condition::BQUOTE:
        return scanQuoted('`');
    case Condition::INDEX:
        return scanArguments(true);
    case Condition::COMMENT:
        return scanComment();
    }
    return 0;
}

int nextToken()
{
    zarn_lval.text = nullptr;
    int token;
    do {
        observe::matchBegins();
        token = scanOnce();
    } while (token == SCAN_ON);
    scanner.passesText = false;
    return token;
}
