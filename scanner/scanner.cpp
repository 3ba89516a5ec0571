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
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "grammar/commands.h"
#include "base/log.h"
#include "base/output.h"
#include "base/process.h"
#include "base/text.h"
#include "scanner/buffer.h"
#include "scanner/bytes.h"

using namespace bytes;
using std::string_view;

constinit Scanner scanner = {}; // outlives handles; in page text and empty after each run

static constexpr int SCAN_ON = -1; // the match made no token; no token has that number

// Sets of rows of the command table, a bit each, by the first and by the second
// letter of their words; an "if" in front of those does not count.
using RowSet = std::conditional_t<COMMAND_COUNT <= 32, uint32_t, uint64_t>;
static_assert(MAX_COMMANDS == sizeof(uint64_t) * 8);
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

const char *bytes::behindFieldId(const char *at, const char *end)
{
    while (at < end && isIn(static_cast<unsigned char>(*at), FIELD_ID))
        ++at;
    return at;
}

[[gnu::always_inline]] static inline size_t skipRead(size_t offset, ByteSet set)
{
    const char *match = matchStart();
    const size_t read = bytesRead();
    if (offset >= read)
        return offset;
    while (isIn(static_cast<unsigned char>(match[offset]), set) && ++offset < read)
        ;
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
[[gnu::always_inline]] static inline size_t matchWord(size_t offset, const char *text)
{
    return byteAt(offset) == *text ? matchText(offset, text) : 0;
}

// As memcmp would tell: for a short text the call would cost more.
static bool startsWith(const char *at, string_view text)
{
    for (const char c : text)
        if (*at++ != c)
            return false;
    return true;
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

static void countTo(const char *at)
{
    scanner.line += countLines(scanner.counted, at);
    scanner.counted = at;
}

// Gives zarn_lloc the line that is still to be counted for it.
static void settleLocation()
{
    if (!scanner.located)
        return;
    countTo(scanner.located);
    scanner.located = nullptr;
    zarn_lloc.first_line = scanner.line;
}

int32_t scannedLine()
{
    settleLocation();
    countTo(matchStart());
    return scanner.line;
}

// Ends the match after length bytes and moves on. Returns where it began.
[[gnu::always_inline]] static inline const char *pass(size_t length)
{
    const char *match = matchStart();
    scanner.buffer.pos += length;
    scanner.buffer.read -= length;
    return match;
}

// Does that, and returns the match.
static string_view take(size_t length)
{
    return {pass(length), length};
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
    scanner.located = matchStart();
}

// ---- commands ----

// Offset behind an operator and the white space around it, else 0.
static size_t matchOperator(size_t offset, char sign)
{
    offset = matchBlanks(offset);
    if (offset == 0)
        return 0;
    offset += isIn(peek(offset), QUOTE);
    if (peek(offset) != sign)
        return 0;
    ++offset;
    offset += isIn(peek(offset), QUOTE);
    return matchBlanks(offset);
}

// Offset behind var:, a name and, with bracket, a "[", and white space, else 0.
static size_t matchName(size_t offset, bool bracket)
{
    offset = matchText(offset, " var:");
    if (offset == 0)
        return 0;
    const size_t behind = skip(offset, NAME);
    if (behind == offset || (bracket && peek(behind) != '['))
        return 0;
    return skip(behind + bracket, BLANK);
}

namespace
{
// A row's words behind an "if".
struct Words {
    uint8_t start;
    uint8_t length; // 0 when they hold a blank
};
} // namespace

static constexpr auto wordsOfRow = [] {
    std::array<Words, COMMAND_COUNT> table = {};
    for (size_t row = 0; row < COMMAND_COUNT; ++row) {
        const string_view words = wordsOf(commandTable[row]);
        const bool single = words.find(' ') == string_view::npos;
        table[row] = {static_cast<uint8_t>(words.data() - commandTable[row].words),
                      static_cast<uint8_t>(single ? words.size() : 0)};
    }
    return table;
}();

// Offset behind the words of that row if they stand at offset, else 0. Their first two
// letters do.
static size_t matchWords(size_t row, size_t offset)
{
    constexpr size_t known = 2;
    const auto [start, length] = wordsOfRow[row];
    const char *words = commandTable[row].words + start + known;
    if (length == 0 || bytesRead() - offset < length)
        return matchText(offset + known, words);
    return startsWith(matchStart() + offset + known, {words, length - known}) ? offset + length : 0;
}

// Length of the match if the command of that row, whose first two letters do, stands at
// offset, else 0.
static size_t matchRow(size_t row, size_t offset)
{
    offset = matchWords(row, offset);
    if (offset == 0)
        return 0;
    switch (commandTable[row].tail) {
    case Tail::BLANK:
        return matchBlanks(offset);
    case Tail::OPERATOR:
        return matchOperator(offset, commandTable[row].sign);
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
        const auto row = static_cast<size_t>(std::countr_zero(candidates));
        const size_t matched = matchRow(row, offset);
        if (matched > *length) {
            *length = matched;
            found = &commandTable[row];
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

// Whether "var:" stands at offset of what has been read: a word, compared as one.
static bool hasReadVar(size_t offset)
{
    constexpr auto expected = std::bit_cast<uint32_t>(std::array{'v', 'a', 'r', ':'});
    uint32_t word;
    if (bytesRead() - offset < sizeof word)
        return false;
    memcpy(&word, matchStart() + offset, sizeof word);
    return word == expected;
}

// Whether "?>" stands at offset of what has been read.
[[gnu::always_inline]] static inline bool hasReadEnd(size_t offset)
{
    const char *match = matchStart() + offset;
    return offset + 1 < bytesRead() && match[0] == '?' && match[1] == '>';
}

static ByteSet textInside(char quote)
{
    return quote == '"' ? DQUOTED_TEXT : quote == '\'' ? SQUOTED_TEXT : BQUOTED_TEXT;
}

// Offset behind an argument of a whole command and the white space around it, of which all
// has been read, else 0.
static size_t matchWholeArg(size_t offset, WholeArg *arg)
{
    const char *match = matchStart();
    const char first = match[offset];
    const bool quoted = isIn(static_cast<unsigned char>(first), QUOTE);
    arg->isVariable = first == '$' && hasReadVar(offset + 1);
    offset += arg->isVariable ? strlen("$var:") : quoted;
    const size_t end = skipRead(offset, quoted            ? textInside(first)
                                        : arg->isVariable ? NAME
                                                          : ARGUMENT_TEXT);
    arg->text = {match + offset, end - offset};
    if (quoted)
        return end < bytesRead() && match[end] == first ? skipRead(end + 1, BLANK) : 0;
    const size_t behind = skipRead(end, BLANK);
    return end > offset && (behind > end || hasReadEnd(end)) ? behind : 0;
}

// Offset behind a whole command whose keyword ends at offset, of which all has been read,
// else 0; its arguments are the scanner's then.
static size_t matchWhole(const CommandDef &row, size_t offset)
{
    size_t count = 0;
    size_t room = WHOLE_CAPACITY;
    do {
        if (count == MAX_WHOLE_ARGS || offset >= bytesRead())
            return 0;
        WholeArg &arg = scanner.args[count++];
        offset = matchWholeArg(offset, &arg);
        if (offset == 0 || arg.text.size() >= room)
            return 0;
        room -= arg.text.size() + 1;
    } while (!hasReadEnd(offset));
    scanner.argCount = count;
    return row.whole >> count & 1 ? offset + 2 : 0;
}

// At "<?", in every condition but comments.
static int scanCommandStart()
{
    size_t length = matchWord(2, "--");
    if (length == 0)
        length = matchWord(2, "xml");
    if (length > 0) {
        pass(length);
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
    if (!observe::seesTokens() && scanner.passesText && command->whole != 0)
        if (const size_t whole = matchWhole(*command, length)) {
            pass(whole);
            setLocation();
            return -command->token;
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
    pass(length);
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

// findTextEnd looks at STEP bytes exactly (endInStep: the index of the first that ends page
// text together with the byte behind it, STEP if none does), or passes LEAP bytes that cannot
// (mayEnd: whether one does, or seems to). marksOf marks the bytes of a block that, with those
// behind them, seem to: all bits of "<", when the last two of the byte behind do not count.
#if defined(__SSE2__)
using Block = __m128i;

static Block blockAt(const char *at)
{
    return _mm_loadu_si128(reinterpret_cast<const Block *>(at));
}

[[gnu::always_inline]] static inline Block marksOf(Block block, Block behind)
{
    const Block common = _mm_and_si128(_mm_or_si128(behind, _mm_set1_epi8('<' ^ '?')), block);
    return _mm_cmpeq_epi8(common, _mm_set1_epi8('<'));
}

static bool isMarked(Block marks)
{
    return _mm_movemask_epi8(marks) != 0;
}

constexpr size_t STEP = sizeof(Block);

static size_t endInStep(const char *at)
{
    const Block behind = blockAt(at + 1);
    const Block follows = _mm_or_si128(_mm_cmpeq_epi8(behind, _mm_set1_epi8('<')),
                                       _mm_cmpeq_epi8(behind, _mm_set1_epi8('?')));
    const Block opens = _mm_cmpeq_epi8(blockAt(at), _mm_set1_epi8('<'));
    const int ends = _mm_movemask_epi8(_mm_and_si128(opens, follows));
    return static_cast<size_t>(std::countr_zero(1U << STEP | static_cast<unsigned>(ends)));
}
#else
using Block [[gnu::may_alias]] = size_t;
constexpr Block ONES = SIZE_MAX / 0xFF; // 1 in each byte

static Block blockAt(const char *at)
{
    Block block;
    memcpy(&block, at, sizeof block);
    return block;
}

[[gnu::always_inline]] static inline Block marksOf(Block block, Block behind)
{
    const Block common = (behind | ONES * ('<' ^ '?')) & block & ONES * 0x7F;
    return (common ^ ONES * '<') - ONES; // takes a bit from above if a byte is 0
}

static bool isMarked(Block marks)
{
    return marks & ONES * 0x80;
}

constexpr size_t STEP = sizeof(Block);

static size_t endInStep(const char *at)
{
    size_t index = isMarked(marksOf(blockAt(at), blockAt(at + 1))) ? 0 : STEP;
    while (index < STEP && !endsText(at + index))
        ++index;
    return index;
}
#endif

constexpr size_t LEAP = 8 * STEP;
constexpr size_t SHORT = 16; // bytes of a text in which no leap is worth while: most have fewer
static_assert(SHORT % STEP == 0);

// The marks of the block there, whose address is aligned.
[[gnu::always_inline]] static inline Block marksAt(const char *at)
{
    return marksOf(*reinterpret_cast<const Block *>(at), blockAt(at + 1));
}

static bool mayEnd(const char *at)
{
    const Block front =
        (marksAt(at) | marksAt(at + STEP)) | (marksAt(at + 2 * STEP) | marksAt(at + 3 * STEP));
    const Block back = (marksAt(at + 4 * STEP) | marksAt(at + 5 * STEP)) |
                       (marksAt(at + 6 * STEP) | marksAt(at + 7 * STEP));
    return isMarked(front | back);
}

// Offset of the first of length bytes that ends a run of page text together with
// the byte behind it; length if none does.
static size_t findTextEnd(const char *text, size_t length)
{
    const char *const end = text + length;
    const char *at = text;
    size_t exact = SHORT; // to be looked at before the next leap
    while (static_cast<size_t>(end - at) >= STEP) {
        const size_t index = endInStep(at);
        at += index;
        if (index < STEP)
            return static_cast<size_t>(at - text);
        exact -= STEP;
        if (exact == 0) {
            at -= reinterpret_cast<uintptr_t>(at) % STEP; // back to a block's address
            while (static_cast<size_t>(end - at) >= LEAP && !mayEnd(at))
                at += LEAP;
            exact = LEAP;
        }
    }
    while (at < end && !endsText(at))
        ++at;
    return static_cast<size_t>(at - text);
}

// Length of the run of page text: it ends before "<?", before a "<" that another
// "<" follows, and before one that ends the template.
static size_t textRun()
{
    for (size_t length = 0;;) {
        const size_t pairs = bytesRead() - length - 1; // bytes with one behind them, read already
        const size_t passed = findTextEnd(matchStart() + length, pairs);
        length += passed;
        if (passed < pairs)
            return length;
        if (!refill())
            return length + (matchStart()[length] != '<');
    }
}

// Apart, so that the other tokens do not save the registers that this one needs.
[[gnu::noinline]] static int scanText()
{
    if (byteAt(0) == '<' && byteAt(1) == '?')
        return scanCommandStart();
    const size_t length = std::max<size_t>(textRun(), 1);
    writeBytes(pass(length), length);
    return scanner.passesText ? SCAN_ON : HTML_TEXT;
}

// Apart, as scanText is.
[[gnu::noinline]] static int scanComment()
{
    size_t length = 0;
    for (;;) {
        length = skip(length, COMMENT_TEXT);
        const int first = peek(length);
        if (first == END_OF_INPUT || peek(length + 1) == (first == '<' ? '?' : '>'))
            break;
        ++length;
    }
    if (length > 0) {
        pass(length);
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
    if (peek(behind) != '[')
        return valueToken(ARG_GETVAR, without(take(behind), name));
    const size_t index = skip(behind + 1, BLANK);
    for (const char *word : {"min", "max"}) {
        size_t end = matchText(index, word);
        end = end ? skip(end, BLANK) : 0;
        if (end && peek(end) == ']') {
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
    const bool two = isIn(first, DIGIT) && isIn(peek(2), DIGIT_OR_SMALL);
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
        const int next = peek(offset + 1);
        if (next == END_OF_INPUT || next == quote || next == '$' || next == '?')
            return offset;
        ++offset;
    }
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
    return byteAt(offset) == '?' && peek(offset + 1) == '>';
}

static int scanQuoted(char quote)
{
    const int first = byteAt(0);
    if (first == '$')
        return scanReference();
    if (first == '<' && peek(1) == '?')
        return scanCommandStart();
    if (first == quote || first == '?' || isIn(first, BLANK)) {
        const bool closes = first == quote;
        const size_t end = skip(closes, BLANK);
        if (endsCommandAt(end))
            return endCommand(end + 2);
        if (closes) {
            pass(end);
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
    if (first == '<' && peek(1) == '?')
        return scanCommandStart();
    if (isIn(first, QUOTE)) {
        if (!index)
            return openQuote(static_cast<char>(first));
        if (!observe::unmatched())
            putchar(first); // no rule for it here
        pass(1);
        return SCAN_ON;
    }
    const size_t end = skip(0, BLANK);
    if (index && byteAt(end) == ']') {
        pass(end + 1);
        leaveCondition();
        return SCAN_ON;
    }
    if (endsCommandAt(end))
        return endCommand(end + 2);
    if (end > 0) {
        pass(end);
        return ARG_END;
    }
    return textToken(std::max<size_t>(skip(0, ARGUMENT_TEXT), 1));
}

// ---- tokens ----

static int endTemplate()
{
    if (!scanner.passesText) // the parser may give up, and tell where
        scannedLine();
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
    if (token >= 0) // behind a whole command the next one's location may do
        settleLocation();
    scanner.passesText &= token < 0; // as before behind a whole command
    return token;
}
