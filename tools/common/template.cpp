/* tools/common/template.cpp - what an observer of the library's scanner and grammar
 * learns of a template while it is read.
 *
 * A template is run by itself, from memory, with its commands kept from running: each
 * is copied when it is complete. A token's value and a command's record are known by
 * their addresses until then. One that is included somewhere is read as an include of a
 * template that consists of it, with page text around it. One template is read at a time,
 * since a run belongs to the process; between calls nothing is kept. */
#include "tools/common/template.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <unordered_map>

#include "grammar/commands.h"
#include "base/observe.h"
#include "tools/common/advice.h"
#include "tools/common/files.h"
#include "scanner/scanner.h"

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
    int32_t level;   // of the template among the open ones
    int32_t current; // the one that is being read, -1 for none
    bool entered;    // what comes now is of the template: an unclosed command ends behind it
    std::unordered_map<const ArgElem *, Placed> values;
    std::unordered_map<const void *, int32_t> begunOf;
    std::vector<OpenCommand> open;
    int32_t closed;     // index in begun of the command whose end was read last
    size_t settled;     // commands whose fate is known: a message or a run came behind them
    uint32_t position;  // behind the last token
    uint32_t commentAt; // where the comment that is being read begins
    std::vector<std::pair<int32_t, Span>> arrays; // array references by line
};
} // namespace

static Reading &readingOf(void *self)
{
    return *static_cast<Reading *>(self);
}

static Span spanOf(size_t at, size_t end)
{
    return {static_cast<uint32_t>(at), static_cast<uint32_t>(end)};
}

// ---- the open templates, their text and comments ----

static void noteOpened(void *self, const char *)
{
    Reading &reading = readingOf(self);
    ++reading.current;
    reading.entered |= reading.current == reading.level;
}

static void noteClosed(void *self, const char *)
{
    --readingOf(self).current;
}

static void notePiece(void *self, std::string_view piece, size_t at)
{
    Reading &reading = readingOf(self);
    if (reading.current != reading.level)
        return;
    const Span span = spanOf(at, at + piece.size());
    auto &items = reading.tpl->items;
    if (!items.empty() && !items.back().command && items.back().span.end == span.at)
        items.back().span.end = span.end;
    else
        items.push_back({span, nullptr});
}

// Comments nest; the outermost counts.
static void noteComment(void *self, const observe::Match &match)
{
    Reading &reading = readingOf(self);
    if (reading.current != reading.level)
        return;
    auto &open = reading.tpl->openComments;
    if (match.depthAfter > match.depthBefore)
        open.push_back(static_cast<uint32_t>(match.at));
    else if (!open.empty())
        open.pop_back();
    if (match.before != Condition::COMMENT) {
        reading.commentAt = static_cast<uint32_t>(match.at);
        reading.tpl->comments.push_back(
            {reading.commentAt, static_cast<uint32_t>(reading.tpl->marked.size())});
    } else if (match.after != Condition::COMMENT) {
        reading.tpl->comments.back().end = static_cast<uint32_t>(match.end);
    }
}

static void noteUnmatched(void *self, size_t offset)
{
    Reading &reading = readingOf(self);
    if (reading.current == reading.level)
        reading.tpl->strayQuotes.push_back(static_cast<uint32_t>(offset));
}

// ---- messages ----

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
    return begun.argumentAts.size() > mostArguments(begun.token);
}

static Begun &begunAt(const Reading &reading, int32_t index)
{
    return reading.tpl->begun[static_cast<size_t>(index)];
}

// The outermost command around one that has not come about, itself included.
static int32_t outermostLost(const Reading &reading, int32_t begun)
{
    int32_t found = -1;
    for (; begun >= 0; begun = begunAt(reading, begun).parent)
        if (begunAt(reading, begun).fate == Fate::LOST)
            found = begun;
    return found;
}

// The first command that has not come about and that fits, -1 for none.
template <typename Fits> static int32_t firstLost(Reading &reading, Fits fits)
{
    const auto &begun = reading.tpl->begun;
    while (reading.settled < begun.size() && begun[reading.settled].fate != Fate::LOST)
        ++reading.settled;
    for (size_t i = reading.settled; i < begun.size(); ++i)
        if (begun[i].fate == Fate::LOST && fits(begun[i]))
            return static_cast<int32_t>(i);
    return -1;
}

// Whether the grammar's message names a command so: both repeats have one.
static bool isNamed(int token, const char *name)
{
    return token != F_UNDEF && commandOf(token).stop[0] &&
           strcmp(nameOf(commandOf(token)).data(), name) == 0;
}

// The command that a message is about, -1 for none.
static int32_t blame(Reading &reading, const observe::Told &told)
{
    const int32_t line = told.spot.line;
    switch (told.id) {
    case Message::UNKNOWN_COMMAND:
        return firstLost(reading,
                         [&](const Begun &b) { return b.token == F_UNDEF && b.line == line; });
    case Message::LACKS_ARGUMENT:
        return reading.closed;
    case Message::MALFORMED:
        return firstLost(reading, [&](const Begun &b) {
            return b.line == line && isNamed(b.token, told.values[3].text);
        });
    case Message::SURPLUS: {
        const bool own = reading.closed >= 0 && hasSurplus(begunAt(reading, reading.closed));
        return own ? reading.closed : outermostLost(reading, reading.closed);
    }
    case Message::ENDS_INSIDE:
        return reading.open.empty() ? -1 : reading.open.front().begun;
    default:
        return -1;
    }
}

// Where the array reference without index stands that is reported for a line.
static Span emptyArray(const Reading &reading, int32_t line)
{
    const std::string &marked = reading.tpl->marked;
    const Span *last = nullptr;
    for (auto it = reading.arrays.rbegin(); it != reading.arrays.rend(); ++it) {
        if (it->first != line)
            continue;
        if (it->second.end < marked.size() && marked[it->second.end] == ']')
            return it->second;
        last = last ? last : &it->second;
    }
    return last ? *last : Span{reading.position, reading.position};
}

static Span spanOn(const Template &tpl, const Begun &begun, int32_t line)
{
    if (placeOf(tpl, begun.words.at).line == static_cast<uint32_t>(line))
        return begun.words;
    return {begun.words.end, begun.words.end};
}

// Where the mistake of a message stands: its line is that of the message.
static Span placeMessage(const Reading &reading, const observe::Told &told, int32_t begun)
{
    const Template &tpl = *reading.tpl;
    const int32_t line = told.spot.line;
    if (told.id == Message::EMPTY_INDEX)
        return emptyArray(reading, line);
    if (told.id == Message::ENDS_INSIDE) {
        const auto end = static_cast<uint32_t>(tpl.source.size());
        return begun >= 0 ? begunAt(reading, begun).words : Span{end, end};
    }
    Span span = {reading.position, reading.position};
    if (begun >= 0)
        span = spanOn(tpl, begunAt(reading, begun), line);
    if (placeOf(tpl, span.at).line != static_cast<uint32_t>(line)) {
        span.at = tpl.lineStarts[std::min(static_cast<size_t>(line), tpl.lineStarts.size()) - 1];
        span.end = span.at;
    }
    return span;
}

// Those of the scanner and the grammar: for what is no syntax the checker has better words.
static void noteMessage(void *self, const observe::Told &told)
{
    Reading &reading = readingOf(self);
    if (told.id == Message::PARSER_NO_MEMORY)
        reading.tpl->exhausted = true;
    if (told.id < Message::UNKNOWN_COMMAND || told.id > Message::ENDS_INSIDE)
        return;
    const int32_t begun = blame(reading, told);
    const Span span = placeMessage(reading, told, begun);
    if (begun >= 0) {
        Begun &blamed = begunAt(reading, begun);
        const bool innocent = told.id == Message::SURPLUS && !hasSurplus(blamed);
        if (!innocent && blamed.fate == Fate::LOST)
            blamed.fate = Fate::BLAMED;
    }
    if (told.id != Message::UNKNOWN_COMMAND)
        reading.settled = reading.tpl->begun.size();
    const int32_t line = told.id == Message::ENDS_INSIDE ? 0 : told.spot.line;
    reading.tpl->complaints.push_back({told.id, line, span, begun, tellAuthor(told)});
}

// ---- tokens ----

static bool inQuote(Condition condition)
{
    return condition == Condition::DQUOTE || condition == Condition::SQUOTE ||
           condition == Condition::BQUOTE;
}

static Begun *innermost(const Reading &reading)
{
    return reading.open.empty() ? nullptr : &begunAt(reading, reading.open.back().begun);
}

static void beginCommand(Reading &reading, int token, const observe::Match &match)
{
    Template &tpl = *reading.tpl;
    const auto index = static_cast<int32_t>(tpl.begun.size());
    const int32_t parent = reading.open.empty() ? -1 : reading.open.back().begun;
    const Span words = spanOf(match.at, match.end);
    tpl.begun.push_back(
        {token, zarn_lloc.first_line, words, 0, parent, Fate::LOST, 0, false, {}, {}});
    if (token != F_UNDEF) {
        const size_t next = tpl.marked.find_first_not_of(" \t\r\n", words.end);
        const bool takesNone = token == F_ERRORFOUND && next != std::string::npos &&
                               tpl.marked.compare(next, 2, "?>") == 0;
        if (!takesNone)
            tpl.begun.back().argumentAts.push_back(words.end);
        reading.open.push_back({match.depthBefore, index});
    }
}

// The "?>" of a command; those inside it that have none of their own end as well.
static void endCommand(Reading &reading, const observe::Match &match)
{
    while (Begun *begun = innermost(reading)) {
        begun->end = static_cast<uint32_t>(match.end);
        reading.closed = reading.open.back().begun;
        const bool found = reading.open.back().depth <= match.depthAfter;
        begun->indexOpen = begun->indexOpen || (match.before == Condition::INDEX && found);
        if (inQuote(match.before) && begun->quoteAt)
            begun->quoteOpen = !strchr("\"'`", reading.tpl->marked[match.at]);
        reading.open.pop_back();
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

// An element has been made of a token.
static void noteValue(Reading &reading, int token, const observe::Match &match, const ArgElem *elem)
{
    Span span = spanOf(match.at, match.end);
    if (token == ARG_TEXT) // a quote in front is no part of it
        span.at = span.end - static_cast<uint32_t>(strlen(static_cast<const char *>(elem->value)));
    reading.values[elem] = {span, quoteOf(match.after)};
    if (token == ARG_GETARRAY && innermost(reading))
        innermost(reading)->indexAt = span.at;
    if (token == ARG_GETARRAY)
        reading.arrays.push_back({zarn_lloc.first_line, span});
}

// A quote ends. Text that follows it at once was probably meant to be held by it.
static void noteQuoteEnd(Begun *begun, const std::string &source, const observe::Match &match)
{
    const char next = match.end < source.size() ? source[match.end] : ' ';
    const bool isOther = strchr("\"'`", next) && next != source[match.at];
    const bool goesOn = !strchr(" \t\r\n?", next) && !isOther;
    if (begun && goesOn && match.end == match.at + 1 && !begun->gluedAt)
        begun->gluedAt = static_cast<uint32_t>(match.at);
}

static void noteToken(void *self, int token, const observe::Match &match, const ArgElem *value)
{
    Reading &reading = readingOf(self);
    if (reading.current != reading.level)
        return;
    reading.position = static_cast<uint32_t>(match.end);
    if (isCommand(token) || token == F_UNDEF) {
        beginCommand(reading, token, match);
    } else if (value) {
        if (token == ARG_TEXT && !inQuote(match.before) && inQuote(match.after) &&
            innermost(reading))
            innermost(reading)->quoteAts.push_back(innermost(reading)->quoteAt =
                                                       static_cast<uint32_t>(match.at));
        noteValue(reading, token, match, value);
    } else if (token == ARG_END) {
        if (innermost(reading))
            innermost(reading)->argumentAts.push_back(reading.position);
        if (inQuote(match.before))
            noteQuoteEnd(innermost(reading), reading.tpl->marked, match);
    } else if (token == CMD_END) {
        endCommand(reading, match);
    } else if (token == EOF_TAG && !reading.open.empty()) {
        reading.closed = reading.open.back().begun;
        reading.open.pop_back();
    }
}

// ---- commands ----

// Its end was the last token that was read.
static void noteMade(void *self, const Cmd *cmd)
{
    Reading &reading = readingOf(self);
    if (!reading.entered || reading.closed < 0)
        return;
    Begun &begun = begunAt(reading, reading.closed);
    if (begun.fate == Fate::LOST)
        begun.fate = Fate::MADE;
    reading.begunOf[cmd] = reading.closed;
}

static std::unique_ptr<Command> copyCommand(Reading &reading, const Cmd *cmd);

static Element copyElement(Reading &reading, const ArgElem *elem)
{
    Element copy;
    copy.type = elem->type;
    if (elem->type == ELEM_CMD) {
        copy.command = copyCommand(reading, static_cast<const Cmd *>(elem->value));
        if (copy.command)
            copy.span = copy.command->span;
        return copy;
    }
    copy.span = reading.values[elem].span;
    copy.quote = reading.values[elem].quote;
    copy.text = static_cast<const char *>(elem->value);
    if (elem->type >= ELEM_GETARRAY) // without the bracket, and the sign of a bound
        copy.text.resize(std::min(copy.text.find('['), copy.text.size()));
    return copy;
}

// Gives an array's element its index, and the place of it all.
static void takeIndex(const Reading &reading, Element index, Element *element)
{
    const uint32_t end = index.span.end;
    const bool isClosed = end < reading.tpl->marked.size() && reading.tpl->marked[end] == ']';
    element->span.end = std::max(element->span.end, end + isClosed);
    element->index.push_back(std::move(index));
}

static Argument copyArgument(Reading &reading, const Arg *arg)
{
    Argument copy;
    for (const ArgElem *elem = arg->elems; elem; elem = elem->next) {
        Element element = copyElement(reading, elem);
        if (element.type == ELEM_GETARRAY && elem->next) {
            elem = elem->next;
            takeIndex(reading, copyElement(reading, elem), &element);
        }
        copy.elements.push_back(std::move(element));
    }
    return copy;
}

static std::unique_ptr<Command> copyCommand(Reading &reading, const Cmd *cmd)
{
    if (!cmd)
        return nullptr;
    auto copy = std::make_unique<Command>();
    copy->id = cmd->id;
    const auto found = reading.begunOf.find(cmd);
    if (found != reading.begunOf.end()) {
        const Begun &begun = begunAt(reading, found->second);
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
        const auto at = static_cast<uint32_t>(reading.tpl->marked.find("var:", copy->words.at));
        copy->nameSpan = {at + 4, at + 4 + static_cast<uint32_t>(copy->name.size())};
    }
    for (const Arg *arg = cmd->args; arg; arg = arg->next)
        copy->args.push_back(copyArgument(reading, arg));
    return copy;
}

// A top-level command is complete: it is copied instead of run. The include that leads
// to the template is run.
static bool keepCommand(void *self, const Cmd *cmd)
{
    Reading &reading = readingOf(self);
    if (!reading.entered)
        return false;
    std::unique_ptr<Command> copy = copyCommand(reading, cmd);
    const Span span = copy->span;
    reading.tpl->items.push_back({span, std::move(copy)});
    reading.values.clear();
    reading.begunOf.clear();
    reading.settled = reading.tpl->begun.size();
    return true;
}

// ---- the whole ----

// Marks the fields, as the input routine of the library would replace them.
static void markFields(Template *tpl)
{
    tpl->marked = tpl->source;
    for (size_t at = 0; (at = tpl->source.find("{?", at)) != std::string::npos;) {
        const size_t end = idEnd(tpl->source, at + 2);
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

// A file in memory that holds a text, with its path; the descriptor is -1 without one.
namespace
{
struct MemoryFile {
    int fd;
    bool isWhole;
    std::string path;

    explicit MemoryFile(std::string_view text)
        : fd(memfd_create("template", MFD_CLOEXEC)), isWhole(fd >= 0 && writeAll(fd, text)),
          path("/proc/self/fd/" + std::to_string(fd))
    {
    }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;
    ~MemoryFile()
    {
        close(fd);
    }
};
} // namespace

static int32_t openByPath(Interpreter *, const char *path)
{
    return open(path, O_RDONLY | O_CLOEXEC);
}

static int32_t answerNothing(Interpreter *, int32_t, const char *, QueryRow **, int32_t *)
{
    return 0;
}

static int32_t tellNothing(Interpreter *, const char **)
{
    return 0;
}

// Runs a page whose output goes nowhere. Returns an ORV_RUN_ number.
static int32_t runUnseen(const std::string &path)
{
    constexpr int32_t gathered = 1 << 16;
    static constexpr InterpreterCallbacks callbacks = {openByPath, answerNothing, tellNothing};
    Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    Orv_Interpreter_SetOutputBuffer(interpreter, gathered);
    const int32_t result = Orv_Interpreter_Run(interpreter, path.c_str(), nowhere);
    close(nowhere);
    Orv_Interpreter_Destroy(interpreter);
    return result;
}

static void parse(Template *tpl, bool page)
{
    if (tpl->marked.empty())
        return;
    Reading reading = {tpl, page ? 0 : 1, -1, false, {}, {}, {}, -1, 0, 0, 0, {}};
    observe::Observer observer = {};
    observer.self = &reading;
    observer.opened = noteOpened;
    observer.closed = noteClosed;
    observer.token = noteToken;
    observer.commented = noteComment;
    observer.unmatched = noteUnmatched;
    observer.made = noteMade;
    observer.keeps = keepCommand;
    observer.piece = notePiece;
    observer.message = noteMessage;
    const MemoryFile file(tpl->marked);
    const MemoryFile around("-<?include " + file.path + " ?>-");
    observe::setObserver(&observer);
    const int32_t result = runUnseen(page ? file.path : around.path);
    observe::setObserver(nullptr);
    tpl->unread = !reading.entered || !file.isWhole;
    tpl->gaveUpAt = result == ORV_RUN_GAVE_UP ? findCulprit(*tpl, reading.settled) : -1;
}

static void clear(Template *tpl)
{
    tpl->items.clear();
    tpl->comments.clear();
    tpl->openComments.clear();
    tpl->begun.clear();
    tpl->complaints.clear();
    tpl->strayQuotes.clear();
}

static bool isUnder(const Template &tpl, int32_t begun, int32_t ancestor)
{
    for (; begun >= 0; begun = tpl.begun[static_cast<size_t>(begun)].parent)
        if (begun == ancestor)
            return true;
    return false;
}

void readEdited(Template *tpl, std::string path, std::string file, std::vector<Edit> edits,
                bool page)
{
    std::string source;
    size_t from = 0;
    for (const Edit &edit : edits) {
        const size_t at = std::clamp<size_t>(edit.at, from, file.size());
        source.append(file, from, at - from).append(edit.text);
        from = std::min(at + edit.removed, file.size());
    }
    source.append(file, from);
    readTemplate(tpl, std::move(path), std::move(source), page);
    tpl->file = std::move(file);
    tpl->edits = std::move(edits);
    measure(tpl);
}

void readTemplate(Template *tpl, std::string path, std::string source, bool page)
{
    tpl->path = std::move(path);
    tpl->source = std::move(source);
    measure(tpl);
    markFields(tpl);
    parse(tpl, page);
    const int32_t culprit = tpl->gaveUpAt;
    const bool ended = std::any_of(tpl->complaints.begin(), tpl->complaints.end(),
                                   [](const Complaint &message) { return message.line == 0; });
    if (page && culprit >= 0 && !ended && !tpl->exhausted) {
        const std::vector<Complaint> logged = std::move(tpl->complaints);
        clear(tpl);
        parse(tpl, false);
        std::erase_if(tpl->complaints, [&](const Complaint &message) {
            return isUnder(*tpl, message.begun, culprit) &&
                   std::none_of(logged.begin(), logged.end(), [&](const Complaint &other) {
                       return other.span.at == message.span.at && other.id == message.id;
                   });
        });
    }
    tpl->gaveUpAt = (page && !ended) || tpl->exhausted ? culprit : -1;
    nameFields(tpl);
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
