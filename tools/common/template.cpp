/* tools/common/template.cpp - what stands around the library's scanner and grammar
 * when the checker reads a template.
 *
 * The parser asks placedLex for its tokens and makes its commands by placedCreate:
 * both call the library's function and note where the token or command stands.
 * A token's value and a command's record are known by their addresses until the
 * whole top-level command has been copied. One template is read at a time, since
 * scanner and parser belong to the process; between calls nothing is kept. */
#include "tools/common/template.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <unordered_map>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "grammar/parse.h"
#include "interface/log.h"
#include "interface/output.h"
#include "interface/process.h"
#include "scanner/buffer.h"
#include "scanner/fields.h"

namespace
{
// Where a value stands, and in which quote.
struct Placed {
    Span span;
    char quote;
};

struct OpenCommand {
    size_t depth; // of the scanner's conditions in front of it
    int32_t begun;
};

struct Reading {
    Template *tpl;
    std::unordered_map<const ArgElem *, Placed> values;
    std::unordered_map<const void *, int32_t> begunOf;
    std::vector<OpenCommand> open;
    int32_t closed;  // index in begun of the command whose end was read last
    int lead;        // tokens of page text to hand out in front of the template
    size_t settled;  // commands whose fate is known: a message or a run came behind them
    uint32_t noted;  // bytes that tokens, texts and comments have been noted for
    uint32_t textAt; // where the text that was written last begins
    bool told;       // the end was told
    std::vector<std::pair<int32_t, Span>> arrays; // array references by line
};
} // namespace

static Reading *reading;

// ---- input: the whole template at once, where it lies ----

bool isExhausted()
{
    const IncludeEntry &entry = inpr->includes[inpr->includeIndex];
    return entry.readPos > entry.mapLast;
}

size_t readInPlace(size_t max)
{
    IncludeEntry &entry = inpr->includes[inpr->includeIndex];
    const size_t count = std::min(max, static_cast<size_t>(entry.mapLast + 1 - entry.readPos));
    entry.readPos += count;
    return count;
}

void readInput(char *, int32_t *count, int32_t)
{
    *count = 0; // never needed: every byte is read in place
}

static uint32_t position()
{
    const char *pos = scanner.buffer.pos;
    return pos ? static_cast<uint32_t>(pos - reading->tpl->marked.data()) : 0;
}

// Behind the comments that stand at an offset, which are noted.
static uint32_t passComments(uint32_t at)
{
    const std::string &text = reading->tpl->marked;
    auto opensComment = [&](size_t i) {
        return text.compare(i, 4, "<?--") == 0 || text.compare(i, 5, "<?xml") == 0;
    };
    while (opensComment(at)) {
        size_t depth = 0;
        size_t i = at;
        do {
            if (text.compare(i, 2, "<?") == 0) {
                ++depth;
                i += 2;
            } else if (text.compare(i, 2, "?>") == 0) {
                --depth;
                i += 2;
            } else {
                ++i;
            }
        } while (depth > 0 && i < text.size());
        i = std::min(i, text.size());
        reading->tpl->comments.push_back({at, static_cast<uint32_t>(i)});
        at = static_cast<uint32_t>(i);
    }
    return at;
}

// ---- output and log ----

void writePiece(std::string_view piece)
{
    const auto at = static_cast<uint32_t>(piece.data() - reading->tpl->marked.data());
    const Span span = {at, at + static_cast<uint32_t>(piece.size())};
    passComments(reading->noted);
    reading->noted = span.end;
    reading->textAt = span.at;
    auto &items = reading->tpl->items;
    if (!items.empty() && !items.back().command && items.back().span.end == at)
        items.back().span.end = span.end;
    else
        items.push_back({span, nullptr});
}

void flushOutput()
{
}

const char *currentTemplate()
{
    return reading->tpl->path.c_str();
}

int32_t currentLine()
{
    return scannedLine();
}

// The most arguments that a command takes, the index of an element included.
size_t mostArguments(int token)
{
    if (token == F_UNDEF)
        return 0;
    const CommandDef &row = commandOf(token);
    if (row.id & CMDF_IF)
        return 4;
    if (row.id & CMDF_CALC)
        return 2;
    if (row.id == ID_REPEATINCL || row.id == ID_REPEATEXCL)
        return 4;
    if ((row.id & CMDF_QUERY) || row.tail == Tail::ELEMENT)
        return 2;
    return row.id == ID_ERRORFOUND ? 0 : 1;
}

bool hasSurplus(const Begun &begun)
{
    return begun.token == F_ERRORFOUND || begun.argumentAts.size() > mostArguments(begun.token);
}

// The outermost command around one that has not come about, itself included.
static int32_t outermostLost(int32_t begun)
{
    int32_t found = -1;
    for (; begun >= 0; begun = reading->tpl->begun[static_cast<size_t>(begun)].parent)
        if (reading->tpl->begun[static_cast<size_t>(begun)].fate == Fate::LOST)
            found = begun;
    return found;
}

// The command that a message is about, -1 for none.
static int32_t blame(const char *format, int32_t line)
{
    auto &begun = reading->tpl->begun;
    while (reading->settled < begun.size() && begun[reading->settled].fate != Fate::LOST)
        ++reading->settled;
    auto firstOpen = [&](auto fits) {
        for (size_t i = reading->settled; i < begun.size(); ++i)
            if (begun[i].fate == Fate::LOST && fits(begun[i]))
                return static_cast<int32_t>(i);
        return -1;
    };
    if (strstr(format, "Unknown Cmd"))
        return firstOpen([&](const Begun &b) { return b.token == F_UNDEF && b.line == line; });
    if (strstr(format, "Too few arguments in cmd"))
        return reading->closed;
    if (strstr(format, "Too few arguments"))
        return firstOpen([&](const Begun &b) {
            return b.line == line && b.token != F_UNDEF && commandOf(b.token).malformed &&
                   strcmp(commandOf(b.token).malformed, format) == 0;
        });
    if (strstr(format, "too many arguments")) {
        const bool own =
            reading->closed >= 0 && hasSurplus(begun[static_cast<size_t>(reading->closed)]);
        return own ? reading->closed : outermostLost(reading->closed);
    }
    return -1;
}

// Where the array reference without index stands that is reported for a line.
static Span emptyArray(int32_t line)
{
    const std::string &marked = reading->tpl->marked;
    for (auto it = reading->arrays.rbegin(); it != reading->arrays.rend(); ++it)
        if (it->first == line && it->second.end < marked.size() && marked[it->second.end] == ']')
            return it->second;
    for (auto it = reading->arrays.rbegin(); it != reading->arrays.rend(); ++it)
        if (it->first == line)
            return it->second;
    return {position(), position()};
}

static Span spanOf(const Begun &begun, int32_t line)
{
    if (placeOf(*reading->tpl, begun.words.at).line == static_cast<uint32_t>(line))
        return begun.words;
    return {begun.words.end, begun.words.end};
}

// Where the mistake of a message stands: its line is that of the message.
static Span placeMessage(const char *format, int32_t line, int32_t begun)
{
    Template &tpl = *reading->tpl;
    if (strstr(format, "array Index"))
        return emptyArray(line);
    if (line == 0) { // the end of the template, inside the innermost open command
        if (begun >= 0)
            return tpl.begun[static_cast<size_t>(begun)].words;
        return {static_cast<uint32_t>(tpl.source.size()), static_cast<uint32_t>(tpl.source.size())};
    }
    Span span = {position(), position()};
    if (begun >= 0)
        span = spanOf(tpl.begun[static_cast<size_t>(begun)], line);
    if (placeOf(tpl, span.at).line != static_cast<uint32_t>(line)) {
        span.at = tpl.lineStarts[std::min(static_cast<size_t>(line), tpl.lineStarts.size()) - 1];
        span.end = span.at;
    }
    return span;
}

void logMessage(Severity, const char *format, ...)
{
    if (!strstr(format, "Syntax error"))
        return; // the checker has better words for what is no syntax
    char text[LOG_CAPACITY];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    va_start(values, format);
    va_arg(values, const char *);
    const int32_t line = strstr(format, "line %d") ? va_arg(values, int) : 0;
    va_end(values);
    int32_t begun = blame(format, line);
    if (line == 0 && !reading->open.empty())
        begun = reading->open.front().begun;
    const Span span = placeMessage(format, line, begun);
    const bool innocent = begun >= 0 && strstr(format, "too many arguments") &&
                          !hasSurplus(reading->tpl->begun[static_cast<size_t>(begun)]);
    if (begun >= 0 && !innocent &&
        reading->tpl->begun[static_cast<size_t>(begun)].fate == Fate::LOST)
        reading->tpl->begun[static_cast<size_t>(begun)].fate = Fate::BLAMED;
    if (strstr(format, "Unknown Cmd") == nullptr)
        reading->settled = reading->tpl->begun.size();
    const char *message = strstr(text, "Syntax error");
    std::string shown = message;
    while (!shown.empty() && (shown.back() == '\n' || shown.back() == '.'))
        shown.pop_back();
    reading->tpl->messages.push_back({shown, line, span, begun});
}

// In the place of the C library's: the scanner has no rule for a quote in an index.
extern "C" int takeStrayQuote(int)
{
    reading->tpl->strayQuotes.push_back(position());
    return 0;
}

// ---- tokens ----

static uint32_t find(std::string_view what, uint32_t from)
{
    const size_t at = reading->tpl->marked.find(what, from);
    return at == std::string::npos ? from : static_cast<uint32_t>(at);
}

static bool inQuote(Condition condition)
{
    return condition == Condition::DQUOTE || condition == Condition::SQUOTE ||
           condition == Condition::BQUOTE;
}

static Begun *innermost()
{
    if (reading->open.empty())
        return nullptr;
    return &reading->tpl->begun[static_cast<size_t>(reading->open.back().begun)];
}

static void beginCommand(int token, uint32_t from, size_t depth)
{
    Template &tpl = *reading->tpl;
    const auto index = static_cast<int32_t>(tpl.begun.size());
    const int32_t parent = reading->open.empty() ? -1 : reading->open.back().begun;
    // The words of an unknown command are page text.
    const Span words = {token == F_UNDEF ? reading->textAt : find("<?", from), position()};
    tpl.begun.push_back({token, zarn_lloc.first_line, words, 0, parent, Fate::LOST, 0, false, {}});
    if (token != F_UNDEF) {
        tpl.begun.back().argumentAts.push_back(words.end);
        reading->open.push_back({depth, index});
    }
}

// The "?>" of a command; those inside it that have none of their own end as well.
static void endCommand(uint32_t from, Condition before)
{
    while (!reading->open.empty()) {
        Begun &begun = *innermost();
        begun.end = position();
        reading->closed = reading->open.back().begun;
        const bool found = reading->open.back().depth <= scanner.depth;
        if (inQuote(before) && begun.quoteAt)
            begun.quoteOpen = !strchr("\"'`", reading->tpl->marked[from]);
        reading->open.pop_back();
        if (found)
            return;
    }
}

static char quoteOf(Condition condition)
{
    switch (condition) {
    case Condition::DQUOTE:
        return '"';
    case Condition::SQUOTE:
        return '\'';
    case Condition::BQUOTE:
        return '`';
    case Condition::INDEX:
        return ']';
    default:
        return 0;
    }
}

// The token's value is an argument of one element.
static void noteValue(int token, uint32_t from)
{
    const ArgElem *elem = zarn_lval.arg ? zarn_lval.arg->elems : nullptr;
    if (!elem)
        return;
    const char quote = quoteOf(scanner.condition);
    if (token == ARG_TEXT) {
        const auto length = static_cast<uint32_t>(strlen(static_cast<const char *>(elem->value)));
        reading->values[elem] = {{position() - length, position()}, quote};
        return;
    }
    const Span span = {find("$", from), position()};
    reading->values[elem] = {span, quote};
    if (token == ARG_GETARRAY)
        reading->arrays.push_back({zarn_lloc.first_line, span});
}

static void noteToken(int token, uint32_t from, Condition before, size_t depth)
{
    if (isCommand(token) || token == F_UNDEF) {
        beginCommand(token, from, depth);
    } else if (token >= ARG_TEXT && token <= ARG_MAXARRAY) {
        if (token == ARG_TEXT && !inQuote(before) && inQuote(scanner.condition) && innermost())
            innermost()->quoteAt = find(std::string(1, quoteOf(scanner.condition)), from);
        noteValue(token, from);
    } else if (token == ARG_END) {
        if (innermost())
            innermost()->argumentAts.push_back(position());
    } else if (token == CMD_END) {
        endCommand(from, before);
    } else if (token == EOF_TAG && !reading->open.empty()) {
        reading->closed = reading->open.back().begun;
        reading->open.pop_back();
    }
}

// In the place of zarn_lex: an included template stands between page texts.
int placedLex()
{
    if (reading->lead > 0) {
        --reading->lead;
        zarn_lval.text = nullptr;
        return HTML_TEXT;
    }
    if (reading->told)
        return 0;
    const Condition before = scanner.condition;
    const size_t depth = scanner.depth;
    int token;
    do
        token = nextToken();
    while (!makeValue(token));
    noteToken(token, passComments(reading->noted), before, depth);
    reading->noted = position();
    if (token == EOF_TAG || token == 0) {
        reading->told = true;
        reading->lead = token == EOF_TAG ? 1 : 0;
    }
    return token;
}

// ---- commands ----

// In the place of createCmd: its end was the last token that was read.
extern "C" Cmd *placedCreate(uint32_t id, void *extra, Arg *a1, Arg *a2, Arg *a3, Arg *a4)
{
    Cmd *cmd = createCmd(id, extra, a1, a2, a3, a4);
    if (cmd && reading->closed >= 0) {
        Begun &begun = reading->tpl->begun[static_cast<size_t>(reading->closed)];
        if (begun.fate == Fate::LOST)
            begun.fate = Fate::MADE;
        reading->begunOf[cmd] = reading->closed;
    }
    return cmd;
}

static std::unique_ptr<Command> copyCommand(const Cmd *cmd);

static Element copyElement(const ArgElem *elem)
{
    Element copy;
    copy.type = elem->type;
    if (elem->type == ELEM_CMD) {
        copy.command = copyCommand(static_cast<const Cmd *>(elem->value));
        if (copy.command)
            copy.span = copy.command->span;
        return copy;
    }
    copy.span = reading->values[elem].span;
    copy.quote = reading->values[elem].quote;
    copy.text = static_cast<const char *>(elem->value);
    if (elem->type >= ELEM_GETARRAY) // without the bracket, and the sign of a bound
        copy.text.resize(std::min(copy.text.find('['), copy.text.size()));
    return copy;
}

static Argument copyArgument(const Arg *arg)
{
    Argument copy;
    for (const ArgElem *elem = arg->elems; elem; elem = elem->next) {
        Element element = copyElement(elem);
        if (element.type == ELEM_GETARRAY && elem->next) {
            elem = elem->next;
            element.index.push_back(copyElement(elem));
        }
        copy.elements.push_back(std::move(element));
    }
    return copy;
}

static std::unique_ptr<Command> copyCommand(const Cmd *cmd)
{
    if (!cmd)
        return nullptr;
    auto copy = std::make_unique<Command>();
    copy->id = cmd->id;
    const auto found = reading->begunOf.find(cmd);
    if (found != reading->begunOf.end()) {
        const Begun &begun = reading->tpl->begun[static_cast<size_t>(found->second)];
        copy->words = begun.words;
        copy->span = {begun.words.at, std::max(begun.end, begun.words.end)};
    }
    if (cmd->id == ID_REPEATINCL || cmd->id == ID_REPEATEXCL)
        copy->upperExcluded = cmd->extra && *static_cast<const int32_t *>(cmd->extra) == 1;
    else if (cmd->extra)
        copy->name = static_cast<const char *>(cmd->extra);
    if (!copy->name.empty() && copy->name.back() == '[')
        copy->name.pop_back();
    if (!copy->name.empty()) {
        const auto at = static_cast<uint32_t>(reading->tpl->marked.find("var:", copy->words.at));
        copy->nameSpan = {at + 4, at + 4 + static_cast<uint32_t>(copy->name.size())};
    }
    for (const Arg *arg = cmd->args; arg; arg = arg->next)
        copy->args.push_back(copyArgument(arg));
    return copy;
}

int32_t executeCmd(Cmd *cmd, int32_t)
{
    if (std::unique_ptr<Command> copy = copyCommand(cmd)) {
        const Span span = copy->span;
        reading->tpl->items.push_back({span, std::move(copy)});
    }
    reading->values.clear();
    reading->begunOf.clear();
    reading->settled = reading->tpl->begun.size();
    return EXEC_DONE;
}

int32_t doExclude()
{
    scanner.ended = 0;
    return 1;
}

// ---- the whole ----

bool isFieldByte(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == ':';
}

bool isFieldId(std::string_view id)
{
    return !id.empty() && std::all_of(id.begin(), id.end(), isFieldByte);
}

// Marks the fields, as the input routine of the library would replace them.
static void markFields(Template *tpl)
{
    tpl->marked = tpl->source;
    for (size_t at = 0; (at = tpl->source.find("{?", at)) != std::string::npos;) {
        size_t end = at + 2;
        while (end < tpl->source.size() && isFieldByte(tpl->source[end]))
            ++end;
        if (tpl->source.compare(end, 2, "?}") != 0) {
            at += 2;
            continue;
        }
        tpl->marked.replace(at, end + 2 - at, end + 2 - at, MARK);
        tpl->fields.push_back({{static_cast<uint32_t>(at), static_cast<uint32_t>(end + 2)}, {}});
        at = end + 2;
    }
}

static void nameFields(Template *tpl)
{
    for (Field &field : tpl->fields)
        field.id = std::string_view(tpl->source)
                       .substr(field.span.at + 2, field.span.end - field.span.at - 4);
}

// The command at which a run has given up: the first behind the settled ones that did
// not come about.
static int32_t findCulprit(const Template &tpl, size_t settled)
{
    for (size_t i = settled; i < tpl.begun.size(); ++i)
        if (tpl.begun[i].fate == Fate::LOST)
            return static_cast<int32_t>(i);
    return -1;
}

static void parse(Template *tpl, bool page)
{
    static Interpreter handle;
    Reading state = {tpl, {}, {}, {}, -1, page ? 0 : 1, 0, 0, 0, false, {}};
    reading = &state;
    inpr = &handle;
    handle.includeIndex = page ? 0 : 1;
    IncludeEntry &entry = handle.includes[handle.includeIndex];
    entry = {};
    entry.readPos = entry.mapStart = tpl->marked.data();
    entry.mapLast = entry.mapStart + tpl->marked.size() - 1;
    if (!page && tpl->marked.compare(0, 3, "\xEF\xBB\xBF") == 0)
        entry.readPos += 3;
    resetScanner();
    switchBuffer(scanner.buffer, 1);
    scanner.ended = 0;
    const int32_t result = doParse();
    tpl->exhausted = result == 2;
    tpl->gaveUpAt = result != 0 ? findCulprit(*tpl, state.settled) : -1;
    resetScanner();
    dropFreeRecords();
    inpr = nullptr;
    reading = nullptr;
}

static void clear(Template *tpl)
{
    tpl->items.clear();
    tpl->comments.clear();
    tpl->begun.clear();
    tpl->messages.clear();
    tpl->strayQuotes.clear();
}

static bool isUnder(const Template &tpl, int32_t begun, int32_t ancestor)
{
    for (; begun >= 0; begun = tpl.begun[static_cast<size_t>(begun)].parent)
        if (begun == ancestor)
            return true;
    return false;
}

// UTF-16 units of a piece of UTF-8.
static uint32_t unitsOf(std::string_view text)
{
    uint32_t units = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        units += (byte & 0xC0) != 0x80; // each character but its later bytes
        units += byte >= 0xF0;          // one that takes two units
    }
    return units;
}

void readTemplate(Template *tpl, std::string path, std::string source, bool page)
{
    tpl->path = std::move(path);
    tpl->source = std::move(source);
    tpl->lineStarts.push_back(0);
    for (size_t at = 0; (at = tpl->source.find('\n', at)) != std::string::npos; ++at)
        tpl->lineStarts.push_back(static_cast<uint32_t>(at + 1));
    for (size_t at = 0, units = 0; at <= tpl->source.size(); at += UNIT_STRIDE) {
        tpl->unitMarks.push_back(static_cast<uint32_t>(units));
        units += unitsOf(std::string_view(tpl->source).substr(at, UNIT_STRIDE));
    }
    markFields(tpl);
    parse(tpl, page);
    const int32_t culprit = tpl->gaveUpAt;
    const bool ended = std::any_of(tpl->messages.begin(), tpl->messages.end(),
                                   [](const Message &message) { return message.line == 0; });
    if (page && culprit >= 0 && !ended && !tpl->exhausted) {
        const std::vector<Message> logged = std::move(tpl->messages);
        clear(tpl);
        parse(tpl, false);
        std::erase_if(tpl->messages, [&](const Message &message) {
            return isUnder(*tpl, message.begun, culprit) &&
                   std::none_of(logged.begin(), logged.end(), [&](const Message &other) {
                       return other.span.at == message.span.at && other.text == message.text;
                   });
        });
    }
    tpl->gaveUpAt = (page && !ended) || tpl->exhausted ? culprit : -1;
    nameFields(tpl);
}

Place placeOf(const Template &tpl, uint32_t offset)
{
    const auto next = std::upper_bound(tpl.lineStarts.begin(), tpl.lineStarts.end(), offset);
    const auto line = static_cast<uint32_t>(next - tpl.lineStarts.begin());
    return {line, offset - tpl.lineStarts[line - 1] + 1};
}

uint32_t unitsBefore(const Template &tpl, uint32_t offset)
{
    const auto fromBegin = [&](uint32_t at) {
        const size_t mark = at / UNIT_STRIDE;
        return tpl.unitMarks[mark] +
               unitsOf(std::string_view(tpl.source).substr(mark * UNIT_STRIDE, at % UNIT_STRIDE));
    };
    return fromBegin(offset) - fromBegin(tpl.lineStarts[placeOf(tpl, offset).line - 1]);
}

uint32_t offsetOf(const Template &tpl, uint32_t line, uint32_t column)
{
    const auto size = static_cast<uint32_t>(tpl.source.size());
    if (line == 0 || line > tpl.lineStarts.size())
        return size;
    return std::min(tpl.lineStarts[line - 1] + column - 1, size);
}

FieldRange fieldsIn(const Template &tpl, Span span)
{
    const auto before = [](const Field &field, uint32_t offset) { return field.span.at < offset; };
    const auto first = std::lower_bound(tpl.fields.begin(), tpl.fields.end(), span.at, before);
    const auto last = std::lower_bound(first, tpl.fields.end(), span.end, before);
    return {static_cast<size_t>(first - tpl.fields.begin()),
            static_cast<size_t>(last - tpl.fields.begin())};
}

static std::string describe(const CommandDef &row)
{
    std::string words = row.words;
    if (row.tail == Tail::OPERATOR)
        words += std::string(" ") + row.sign;
    return words;
}

std::string wordsOf(uint32_t id)
{
    for (const CommandDef &row : commandTable)
        if (row.id == id)
            return describe(row);
    return "";
}

std::string wordsOfToken(int token)
{
    return token == F_UNDEF ? "" : describe(commandOf(token));
}
