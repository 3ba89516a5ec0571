/* tools/check/mend.cpp - finds the mistake that a template's complaints come from, one
 * after the other: what nothing closes, then the first complaint, then quotes. A change
 * that may mend it is tried by reading the template with it. */
#include "mend.h"

#include <string.h>

#include <algorithm>
#include <span>

#include "grammar/commands.h"
#include "hints.h"
#include "host/ascii.h"
#include "tools/common/advice.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_MISTAKES = 60;   // of a template; more are told as they are logged
static constexpr size_t MOST_TRIALS = 80;     // for one mistake
static constexpr size_t MOST_BYTES = 1 << 20; // that all trials for one may read
static constexpr size_t MOST_NOTES = 3;

namespace
{
struct Mender {
    const string &path;
    const string &file;
    std::unique_ptr<Template> tpl;
    std::vector<Mistake> mistakes = {};
    std::vector<Span> doubtful = {};
};

// A change that may mend something, in the source.
struct Trial {
    Edit edit;
    uint32_t culprit; // where the mistake is
};

struct Best {
    std::unique_ptr<Template> tpl;
    size_t index; // of the trial
    size_t faults;
};
} // namespace

// ---- readings ----

static std::unique_ptr<Template> readWith(const Mender &mender, std::span<const Edit> changes)
{
    std::vector<Edit> edits = mender.tpl ? mender.tpl->edits : std::vector<Edit>();
    for (const Edit &change : changes) {
        const uint32_t at = inFile(*mender.tpl, change.at);
        const uint32_t end = inFile(*mender.tpl, change.at + change.removed);
        const Edit moved = {at, end - at, change.text};
        // What it removes may hold edits, which go with it.
        std::erase_if(edits, [&](const Edit &edit) { return edit.at >= at && edit.at < end; });
        edits.insert(std::upper_bound(edits.begin(), edits.end(), moved,
                                      [](const Edit &a, const Edit &b) { return a.at < b.at; }),
                     moved);
    }
    auto tpl = std::make_unique<Template>();
    if (edits.empty())
        readTemplate(tpl.get(), mender.path, mender.file, false);
    else
        readEdited(tpl.get(), mender.path, mender.file, std::move(edits), false);
    return tpl;
}

static bool isQuote(char c)
{
    return c == '"' || c == '\'' || c == '`';
}

// Whether a name that is set has a sign that none has: what stands behind the name is the
// value then.
static bool hasLongerName(const Template &tpl, const Begun &begun)
{
    const bool sets = begun.token == F_SETVARIABLE || begun.token == F_SETVARIABLEONCE;
    const uint32_t at = begun.words.end;
    if (!sets || at >= tpl.source.size() || isBlank(tpl.source[at - 1]))
        return false;
    return strchr("_-=.:+/", tpl.source[at]) || (tpl.source[at] & 0x80);
}

// Where a "?>" stands in page text.
static std::vector<uint32_t> strayEnds(const Template &tpl)
{
    std::vector<uint32_t> strays;
    for (const Item &item : tpl.items)
        for (size_t at = item.span.at;
             !item.command && (at = tpl.source.find("?>", at)) < item.span.end; at += 2)
            strays.push_back(static_cast<uint32_t>(at));
    return strays;
}

// How much is wrong with a template.
static size_t countFaults(const Template &tpl)
{
    size_t faults = tpl.complaints.size() + 2 * tpl.openComments.size() + (tpl.gaveUpAt >= 0) +
                    strayEnds(tpl).size();
    for (const Begun &begun : tpl.begun)
        faults += static_cast<size_t>(begun.quoteOpen) + begun.indexOpen + (begun.gluedAt > 0) +
                  hasLongerName(tpl, begun) + (begun.fate == Fate::LOST && begun.token != F_UNDEF);
    return faults;
}

// Reads the template with each of the changes. The first that leaves the fewest faults is
// the best; none, with a null template, where none leaves fewer than there are.
static Best tryAll(const Mender &mender, const std::vector<Trial> &trials)
{
    Best best = {nullptr, 0, countFaults(*mender.tpl)};
    const size_t most =
        std::min(MOST_TRIALS, 4 + MOST_BYTES / std::max<size_t>(mender.file.size(), 1));
    for (size_t i = 0; i < std::min(trials.size(), most) && best.faults > 0; ++i) {
        auto tpl = readWith(mender, {&trials[i].edit, 1});
        const size_t faults = countFaults(*tpl);
        if (faults < best.faults)
            best = {std::move(tpl), i, faults};
    }
    return best;
}

static Trial insertion(size_t at, string text, size_t culprit)
{
    return {{static_cast<uint32_t>(at), 0, std::move(text)}, static_cast<uint32_t>(culprit)};
}

// ---- places ----

static uint32_t lineOf(const Template &tpl, uint32_t offset)
{
    return placeOf(tpl, offset).line;
}

static Mistake mistakeAt(const Template &tpl, Span span, const char *kind, string text)
{
    return {kind, {inFile(tpl, span.at), inFile(tpl, span.end)}, std::move(text), {}};
}

static void note(Mistake *mistake, const Template &tpl, uint32_t at, string text)
{
    mistake->notes.emplace_back(inFile(tpl, at), std::move(text));
}

// Notes where a command begins of which the mistake is told on another line.
static void noteBegin(Mistake *mistake, const Template &tpl, const Begun &begun, uint32_t at)
{
    if (lineOf(tpl, begun.words.at) != lineOf(tpl, at))
        note(mistake, tpl, begun.words.at, wordsOfToken(begun.token) + " begins here");
}

static size_t lineEnd(string_view source, size_t at)
{
    return std::min(source.find('\n', at), source.size());
}

// In front of the white space that ends there.
static size_t trimmed(string_view source, size_t at)
{
    while (at > 0 && strchr(" \t\r\n", source[at - 1]) && source[at - 1])
        --at;
    return at;
}

// ---- what is left out ----

static constexpr string_view LEFT_OUT = "--"; // makes a comment of a command

// What stands for a command in an argument: a value of which nothing is known.
static constexpr string_view STAND_IN = "<?error found ?>";

static std::vector<Edit> leaveOut(const Begun &begun)
{
    std::vector<Edit> edits;
    if (begun.parent >= 0)
        edits.push_back({begun.words.at, 0, string(STAND_IN)});
    edits.push_back({begun.words.at + 2, 0, string(LEFT_OUT)});
    return edits;
}

std::vector<Span> leftOut(const Template &tpl)
{
    std::vector<Span> spans;
    for (const Span &comment : tpl.comments)
        if (std::any_of(tpl.edits.begin(), tpl.edits.end(), [&](const Edit &edit) {
                return edit.text == LEFT_OUT && edit.at == inFile(tpl, comment.at) + 2;
            }))
            spans.push_back(comment);
    return spans;
}

// The command that is innermost around an offset, or null.
static const Begun *commandAround(const Template &tpl, uint32_t offset)
{
    const Begun *found = nullptr;
    for (const Begun &begun : tpl.begun)
        if (begun.words.at <= offset && offset < std::max(begun.end, begun.words.end))
            found = &begun;
    return found;
}

// ---- what nothing closes ----

// A ">" that may have lost its "?", and a "?" its ">".
static void addHalves(string_view source, size_t from, std::vector<Trial> *trials)
{
    constexpr size_t most = 30;
    const size_t before = trials->size();
    for (size_t at = from; (at = source.find("<?", at)) != string_view::npos; at += 2) {
        const size_t end = source.find('>', at);
        const size_t tag = source.find('<', at + 2); // whose end it would be
        if (end != string_view::npos && source[end - 1] != '?' && tag > end)
            trials->push_back(insertion(end, "?", end));
        if (trials->size() - before >= most)
            return;
    }
}

static void addLostSigns(string_view source, size_t from, std::vector<Trial> *trials)
{
    constexpr size_t most = 20;
    for (size_t at = from + 2; at < source.size() && trials->size() < most; ++at) {
        const char last = source[at - 1];
        const char next = at + 1 < source.size() ? source[at + 1] : '\n';
        if (source[at] != '?' || next == '>' || next == '}' || last == '<' || last == '{')
            continue;
        const size_t end = source.find_first_not_of(" \t", at + 1);
        if (end < source.size() && source[end] == '>')
            trials->push_back(
                {{static_cast<uint32_t>(at + 1), static_cast<uint32_t>(end - at - 1), ""},
                 static_cast<uint32_t>(at)});
        else
            trials->push_back(insertion(at + 1, ">", at));
    }
}

// Behind a quote, a ">" that has lost its "?", or nothing where both should stand.
static void addQuoteEnds(string_view source, size_t from, char quote, std::vector<Trial> *trials)
{
    constexpr size_t most = 20;
    size_t added = 0;
    for (size_t at = from; quote && added < most && (at = source.find(quote, at)) < source.size();
         ++at) {
        const char next = at + 1 < source.size() ? source[at + 1] : '\n';
        if (next == '>')
            trials->push_back(insertion(at + 1, "?", at + 1));
        else if (strchr("\n\r<", next))
            trials->push_back(insertion(at + 1, "?>", from));
        else
            continue;
        ++added;
    }
}

// Where a "?>" may be missing: in front of a tag, at a line's end, with the quote that is
// open there or without, in front of an argument too many.
static void addLostEnds(const Template &tpl, size_t from, char quote, std::vector<Trial> *trials)
{
    const string_view source = tpl.source;
    const string closing = quote ? string(1, quote) + "?>" : "";
    size_t commands = 0;
    for (size_t at = from; (at = source.find("<?", at)) != string_view::npos && commands < 8;
         at += 2, ++commands) {
        const size_t line = lineEnd(source, at);
        size_t tag = source.find('<', at + 2);
        while (tag < line && source.compare(tag, 2, "<?") == 0)
            tag = source.find('<', tag + 2);
        if (tag < line)
            trials->push_back(insertion(trimmed(source, tag), "?>", at));
        trials->push_back(insertion(trimmed(source, line), "?>", at));
        if (quote)
            trials->push_back(insertion(trimmed(source, line), closing, at));
        if (quote && tag < line)
            trials->push_back(insertion(trimmed(source, tag), closing, at));
    }
    for (const Begun &begun : tpl.begun)
        if (begun.words.at >= from && begun.token != F_UNDEF &&
            begun.argumentAts.size() > mostArguments(begun.token)) {
            const size_t surplus = begun.argumentAts[mostArguments(begun.token)];
            trials->push_back(insertion(trimmed(source, surplus), "?>", begun.words.at));
        }
}

// The command that ends at an offset of the source, or null.
static const Begun *commandEndingAt(const Template &tpl, uint32_t end)
{
    const auto found = std::find_if(tpl.begun.begin(), tpl.begun.end(),
                                    [&](const Begun &b) { return b.end == end; });
    return found == tpl.begun.end() ? nullptr : &*found;
}

// What is said of a command that nothing closes, where it has been mended.
static Mistake tellUnclosed(const Mender &mender, const string &logged, const Trial &trial,
                            const Template &read)
{
    const Template &tpl = *mender.tpl;
    const auto end = static_cast<uint32_t>(trial.edit.at + trial.edit.text.size());
    const bool isHalf = trial.edit.text != "?>" && trial.edit.text.size() < 3;
    const Begun *ended = nullptr;
    for (uint32_t at = end; at < end + 2 && !ended; ++at)
        ended = commandEndingAt(read, at);
    const string words = ended ? wordsOfToken(ended->token) : "the command";
    if (isHalf) {
        const bool lacksEnd = tpl.source[trial.culprit] == '?';
        Mistake mistake = mistakeAt(tpl, {trial.culprit, trial.culprit + 1}, "syntax",
                                    logged + ": " + words + " ends with ?>, and " +
                                        (lacksEnd ? "this ? has no >" : "this > has lost its ?"));
        if (ended)
            noteBegin(&mistake, read, *ended, end);
        return mistake;
    }
    const bool isHere = !ended || lineOf(read, ended->words.at) == lineOf(tpl, trial.edit.at);
    const Span words_ = ended ? ended->words : Span{trial.culprit, trial.culprit + 2};
    Mistake mistake = isHere
                          ? mistakeAt(read, words_, "syntax", logged + ": " + words + " has no ?>")
                          : mistakeAt(tpl, {trial.edit.at, trial.edit.at}, "syntax",
                                      logged + ": " + words + " has no ?>, which belongs here");
    if (!isHere)
        note(&mistake, read, ended->words.at, words + " begins here");
    if (trial.edit.text.size() > 2 && ended && ended->quoteAt)
        note(&mistake, read, ended->quoteAt, "the quote that opens here is not closed");
    return mistake;
}

// Returns false when nothing mends it: then the rest of the file is left alone.
static bool mendUnclosed(Mender *mender, const Complaint &complaint)
{
    const Template &tpl = *mender->tpl;
    const Begun &begun = tpl.begun[static_cast<size_t>(complaint.begun)];
    const char quote = begun.quoteAt ? tpl.source[begun.quoteAt] : '\0';
    std::vector<Trial> trials;
    addLostSigns(tpl.source, begun.words.at, &trials);
    addHalves(tpl.source, begun.words.at, &trials);
    addQuoteEnds(tpl.source, begun.words.at, quote, &trials);
    addLostEnds(tpl, begun.words.at, quote, &trials);
    Best best = tryAll(*mender, trials);
    if (best.tpl) {
        mender->mistakes.push_back(
            tellUnclosed(*mender, complaint.text, trials[best.index], *best.tpl));
        mender->tpl = std::move(best.tpl);
        return true;
    }
    mender->mistakes.push_back(
        mistakeAt(tpl, begun.words, "syntax",
                  complaint.text + ": " + wordsOfToken(begun.token) + " has no ?>"));
    if (begun.quoteAt)
        note(&mender->mistakes.back(), tpl, begun.quoteAt,
             "the quote that opens here is not closed");
    mender->doubtful.push_back(
        {inFile(tpl, begun.words.at), static_cast<uint32_t>(mender->file.size()) + 1});
    return false;
}

static bool mendComment(Mender *mender)
{
    const Template &tpl = *mender->tpl;
    const string_view source = tpl.source;
    const uint32_t begin = tpl.openComments.front();
    std::vector<Trial> trials;
    const size_t arrow = source.find("-->", begin + 4); // not that of "<?-->"
    if (arrow != string_view::npos)
        trials.push_back({{static_cast<uint32_t>(arrow), 3, "?>"}, begin});
    size_t line = lineEnd(source, begin);
    for (size_t i = 0; i < 12 && line < source.size(); ++i, line = lineEnd(source, line + 1))
        trials.push_back(insertion(trimmed(source, line), "?>", begin));
    Best best = tryAll(*mender, trials);
    const bool isArrow = best.tpl && trials[best.index].edit.removed;
    const bool isXml = source.compare(begin, 5, "<?xml") == 0;
    Mistake mistake =
        mistakeAt(tpl, {begin, begin + 4}, "syntax",
                  string("File ends inside cmd: nothing closes the ") +
                      (isXml ? "declaration" : "comment") + " that opens here; " +
                      (isArrow ? "--> ends none, ?> does" : "it ends with ?>, and comments nest"));
    const size_t nested = source.find("<?", begin + 2);
    const bool opensCommand = isKeyword(wordAt(source, passBlanks(source, nested + 2)));
    if (nested < source.find("?>", begin) && !isArrow && !opensCommand)
        note(&mistake, tpl, static_cast<uint32_t>(nested),
             "this <? begins one more, which the next ?> ends");
    mender->mistakes.push_back(std::move(mistake));
    if (!best.tpl) {
        mender->doubtful.push_back(
            {inFile(tpl, begin), static_cast<uint32_t>(mender->file.size()) + 1});
        return false;
    }
    mender->tpl = std::move(best.tpl);
    return true;
}

// ---- quotes ----

// How the log complains of a command.
static string loggedAs(const Begun &begun)
{
    const bool isMalformed = begun.token != F_UNDEF && commandOf(begun.token).stop[0];
    return isMalformed ? string("Too few arguments in <? ") + nameOf(commandOf(begun.token)).data()
                       : adviceOn(Message::SURPLUS).told;
}

// Where a quote may be missing: behind a word that stands in one, in front of a word; or
// where a "?>" was to be text.
static std::vector<Trial> quoteTrials(const Template &tpl, const Begun &begun)
{
    const string_view source = tpl.source;
    const uint32_t end = begun.end - 2;
    std::vector<Trial> trials;
    const char last = begun.quoteAt ? source[begun.quoteAt] : '\0';
    const bool endsText =
        last && !isBlank(source[begun.quoteAt - 1]) && trimmed(source, end) == begun.quoteAt + 1;
    if (endsText)
        for (size_t at = begun.words.end; at < begun.quoteAt; ++at)
            if (isBlank(source[at - 1]) && !isBlank(source[at]) && !isQuote(source[at]))
                trials.push_back(insertion(at, string(1, last), at));
    for (size_t i = 0; i < begun.quoteAts.size() && trials.size() < 50; ++i) {
        const uint32_t quoteAt = begun.quoteAts[i];
        const uint32_t stop = i + 1 < begun.quoteAts.size() ? begun.quoteAts[i + 1] : end;
        for (size_t at = quoteAt + 1; at < stop && trials.size() < 50; ++at)
            if (isBlank(source[at]) && !isBlank(source[at - 1]))
                trials.push_back(insertion(at, string(1, source[quoteAt]), quoteAt));
    }
    if (last)
        trials.push_back(insertion(end, string(1, last), begun.quoteAt));
    trials.push_back({{end, 2, ""}, begun.quoteAt});
    return trials;
}

// The command that begins at an offset, or null.
static const Begun *commandAt(const Template &tpl, uint32_t at)
{
    const auto found = std::find_if(tpl.begun.begin(), tpl.begun.end(),
                                    [&](const Begun &begun) { return begun.words.at == at; });
    return found == tpl.begun.end() ? nullptr : &*found;
}

// Mends a command in which a quote is missing. Returns false when none mends it.
static bool mendQuote(Mender *mender, const Begun &begun)
{
    const Template &tpl = *mender->tpl;
    const std::vector<Trial> trials = quoteTrials(tpl, begun);
    Best best = tryAll(*mender, trials);
    const Begun *mended = best.tpl ? commandAt(*best.tpl, begun.words.at) : nullptr;
    if (!mended || mended->fate != Fate::MADE || mended->quoteOpen || mended->gluedAt)
        return false;
    const Trial &trial = trials[best.index];
    const string words = wordsOfToken(begun.token);
    const bool isOpening = !isQuote(tpl.source[trial.culprit]);
    const bool isLast = trial.culprit == begun.quoteAt;
    const bool isLogged = !tpl.complaints.empty();
    Mistake mistake = mistakeAt(
        tpl, {trial.culprit, trial.culprit + 1}, isLogged ? "syntax" : "quote-open",
        (isLogged ? loggedAs(begun) + ": " : "") +
            string(isOpening ? "the quote that ends this text opens nowhere: it is missing here"
                   : isLast
                       ? words + " ends inside the quote that opens here: no quote can hold ?>"
                       : "the quote that opens here has no end of its own: the next one ends it"));
    if (isOpening || !isLast)
        note(&mistake, tpl, begun.quoteAt, "so this quote is open when " + words + " ends");
    else
        note(&mistake, tpl, begun.end - 2, "the command ends here");
    mender->doubtful.push_back({inFile(tpl, begun.words.at), inFile(tpl, begun.end)});
    mender->mistakes.push_back(std::move(mistake));
    mender->tpl = std::move(best.tpl);
    return true;
}

// Where the quote opens that ends in the midst of text.
static uint32_t openingOf(const Begun &begun, uint32_t end)
{
    uint32_t opening = begun.words.at;
    for (const uint32_t at : begun.quoteAts)
        if (at < end)
            opening = at;
    return opening;
}

static void tellGlued(Mender *mender, const Begun &begun, const char *kind, const string &front)
{
    const Template &tpl = *mender->tpl;
    const char quote = tpl.source[begun.gluedAt];
    const char other = quote == '`' ? '\'' : '`';
    const bool isDouble = tpl.source[begun.gluedAt + 1] == quote;
    Mistake mistake =
        mistakeAt(tpl, {begun.gluedAt, begun.gluedAt + 1}, kind,
                  front + "this quote ends the argument, and text follows at once: " +
                      (isDouble ? "two quotes are no quote inside a text; " : "") +
                      "a text that holds the quote is put between others, such as " + other);
    note(&mistake, tpl, openingOf(begun, begun.gluedAt), "the argument's quote opens here");
    mender->mistakes.push_back(std::move(mistake));
}

// ---- complaints ----

// Whether a command is wrong by itself, whatever stands around it.
static bool isMistake(const Begun &begun)
{
    return begun.token == F_UNDEF || (begun.fate != Fate::MADE && hasSurplus(begun));
}

// The mistake inside a command that has spoilt it, the innermost; itself where there is none.
static size_t findCause(const Template &tpl, size_t outer)
{
    for (size_t i = outer + 1;
         i < tpl.begun.size() && tpl.begun[i].parent >= static_cast<int32_t>(outer); ++i)
        if (isMistake(tpl.begun[i]))
            return findCause(tpl, i);
    return outer;
}

// Reads the template without a command, or with a change that may be what was meant.
static void settle(Mender *mender, const Begun &begun, const Edit &meant)
{
    if (meant.removed || !meant.text.empty()) {
        auto tpl = readWith(*mender, {&meant, 1});
        if (countFaults(*tpl) < countFaults(*mender->tpl)) {
            mender->tpl = std::move(tpl);
            return;
        }
    }
    mender->tpl = readWith(*mender, leaveOut(begun));
}

// "repeat [1 3]" and "repeat 1 3" with white space and brackets where they belong.
static Edit bracketEdit(string_view source, size_t at)
{
    const size_t begin = passBlanks(source, at);
    const size_t line = lineEnd(source, begin);
    const bool opens = begin < source.size() && (source[begin] == '[' || source[begin] == ']');
    size_t end = begin + opens;
    if (opens) {
        end = source.find_first_of("[]", end);
    } else {
        for (int i = 0; i < 2; ++i)
            end = source.find_first_of(" \t", passBlanks(source, end));
    }
    if (end == string_view::npos || end > line)
        return {0, 0, {}};
    const string inner(source.substr(begin + opens, end - begin - opens));
    const char first = opens ? source[begin] : '[';
    const char last = opens ? source[end] : ']';
    return {static_cast<uint32_t>(at), static_cast<uint32_t>(end + opens - at),
            string(" ") + first + " " + inner + " " + last + " "};
}

// The "<?" and the word behind it, or the sign.
static Span unknownWords(string_view source, const Begun &begun)
{
    const size_t at = passBlanks(source, begun.words.at + 2);
    const size_t end = at + std::max<size_t>(wordAt(source, at).size(), 1);
    return end > lineEnd(source, begun.words.at) ? begun.words
                                                 : Span{begun.words.at, static_cast<uint32_t>(end)};
}

static void mendUnknown(Mender *mender, const Complaint &complaint, const Begun &begun)
{
    const Template &tpl = *mender->tpl;
    Hint hint = hintUnknown(tpl, begun);
    const size_t at = passBlanks(tpl.source, begun.words.at + 2);
    if (wordAt(tpl.source, at) == "repeat")
        hint.edit = bracketEdit(tpl.source, at + 6);
    mender->mistakes.push_back(
        mistakeAt(tpl, unknownWords(tpl.source, begun), "syntax",
                  (complaint.id == Message::UNKNOWN_COMMAND ? complaint.text : "Unknown Cmd") +
                      ": " + hint.text));
    settle(mender, begun, hint.edit);
}

static string_view argumentText(const Template &tpl, const Begun &begun, size_t index)
{
    const size_t at = begun.argumentAts[index];
    const string_view rest = string_view(tpl.source).substr(at);
    return rest.substr(0, std::min(rest.find_first_of(" \t\r\n?"), rest.size()));
}

// What is known of an argument too many beyond that it is.
static string hintSurplus(const Template &tpl, const Begun &begun)
{
    const CommandDef &row = commandOf(begun.token);
    const string before = tpl.source.substr(
        begun.words.at, begun.argumentAts[mostArguments(begun.token)] - begun.words.at);
    for (size_t i = 0; i < begun.argumentAts.size(); ++i) {
        const string_view word = argumentText(tpl, begun, i);
        if ((row.id & CMDF_IF) && (word == "else" || word == "then" || word == "==" || word == "="))
            return "; no '" + string(word) + "' belongs there: if eq A B `then` `else`";
        if (row.tail == Tail::NAME && i == 0 && (word == "=" || word == ":="))
            return "; no = stands between them: setvariable var:NAME VALUE";
    }
    const size_t index = before.rfind('[');
    if (index != string::npos && before.find(']', index) == string::npos &&
        row.tail != Tail::ELEMENT)
        return "; no white space can stand in an index, which is one piece";
    return begun.quoteAts.empty() ? "; text with blanks needs quotes" : "";
}

// An argument too many: told where it begins.
static void mendSurplus(Mender *mender, const string &logged, const Begun &begun)
{
    const Template &tpl = *mender->tpl;
    if (begun.gluedAt) {
        tellGlued(mender, begun, "syntax", logged + ": ");
    } else {
        const size_t most = mostArguments(begun.token);
        const uint32_t at =
            begun.argumentAts.size() > most ? begun.argumentAts[most] : begun.words.at;
        Mistake mistake =
            mistakeAt(tpl, {at, at + 1}, "syntax",
                      logged + ": " + wordsAndNeeds(begun.token, true) +
                          (begun.argumentAts.size() > most ? hintSurplus(tpl, begun) : ""));
        noteBegin(&mistake, tpl, begun, at);
        if (begun.quoteAt && begun.quoteAt >= at)
            note(&mistake, tpl, begun.quoteAt, "the last quote opens here");
        mender->mistakes.push_back(std::move(mistake));
    }
    settle(mender, begun, {0, 0, {}});
}

// Too few arguments.
static void mendLack(Mender *mender, const Complaint &complaint, const Begun &begun)
{
    const Template &tpl = *mender->tpl;
    string text = complaint.text + ": " + wordsAndNeeds(begun.token, false);
    const CommandDef &row = commandOf(begun.token);
    const string_view source = tpl.source;
    const size_t bracket = source.find_first_of("[]", begun.words.end);
    const bool isGlued = bracket < begun.end && bracket > 0 &&
                         (!isBlank(source[bracket - 1]) || !isBlank(source[bracket + 1]));
    Edit meant = {0, 0, {}};
    if ((row.id == ID_REPEATINCL || row.id == ID_REPEATEXCL) && isGlued) {
        text += ", with white space around each bracket";
        meant = bracketEdit(source, begun.words.at + 2 + strlen("repeat"));
    }
    mender->mistakes.push_back(mistakeAt(tpl, begun.words, "syntax", std::move(text)));
    settle(mender, begun, meant);
}

static bool mendName(Mender *mender, const Begun &begun)
{
    const Template &tpl = *mender->tpl;
    const uint32_t at = begun.words.end;
    if (!hasLongerName(tpl, begun))
        return false;
    const char sign = tpl.source[at];
    const size_t colon = tpl.source.rfind(':', at - 1);
    const string name = tpl.source.substr(colon + 1, at - colon - 1);
    size_t end = at;
    while (end < tpl.source.size() &&
           (isLetterOrDigit(tpl.source[end]) || strchr("_-.:+/", tpl.source[end]) ||
            (tpl.source[end] & 0x80)))
        ++end;
    const string whole = tpl.source.substr(colon + 1, end - colon - 1);
    mender->mistakes.push_back(mistakeAt(
        tpl, {static_cast<uint32_t>(colon) + 1, at + 1}, "variable-name",
        sign == '=' ? "white space, and no =, stands between the name " + name + " and its value"
                    : "names have letters and digits: this sets " + name + ", not " + whole));
    string joined;
    for (const char c : whole)
        if (isLetterOrDigit(c))
            joined += c;
    const auto from = static_cast<uint32_t>(colon) + 1;
    settle(mender, begun,
           sign == '=' ? Edit{at, 1, " "}
                       : Edit{from, static_cast<uint32_t>(end) - from, joined + " "});
    return true;
}

static void mendComplaint(Mender *mender, const Complaint &complaint)
{
    const Template &tpl = *mender->tpl;
    if (complaint.begun < 0) {
        const Begun *around = commandAround(tpl, complaint.span.at);
        const bool isIndex = complaint.id == Message::EMPTY_INDEX;
        mender->mistakes.push_back(
            mistakeAt(tpl, complaint.span, "syntax",
                      complaint.text +
                          (isIndex ? ": write $var:NAME[INDEX]" : ": what is left of a command")));
        if (around)
            settle(mender, *around, {0, 0, {}});
        return;
    }
    const bool spoils = complaint.id == Message::SURPLUS || complaint.id == Message::MALFORMED;
    const auto index = static_cast<size_t>(complaint.begun);
    const Begun &begun = tpl.begun[findCause(tpl, index)];
    if (begun.token == F_UNDEF)
        return mendUnknown(mender, complaint, begun);
    if (mendName(mender, begun))
        return;
    const bool lacksQuote = begun.quoteOpen || begun.gluedAt;
    if (spoils && lacksQuote && begun.end && mendQuote(mender, begun))
        return;
    if (spoils && hasSurplus(begun))
        return mendSurplus(mender, loggedAs(begun), begun);
    mendLack(mender, complaint, begun);
}

// ---- a "<?" that is only half there ----

// Where a command begins that lacks its "<?" or the "?" of it, in front of an end that is its.
static std::vector<Trial> beginTrials(const Template &tpl, uint32_t end)
{
    std::vector<Trial> trials;
    const string_view source = tpl.source;
    const size_t previous = end > 0 ? source.rfind("?>", end - 1) : string_view::npos;
    const size_t from = previous == string_view::npos ? 0 : previous + 2;
    for (size_t at = from; at < end; ++at) {
        const char before = at > 0 ? source[at - 1] : ' ';
        const string_view word = wordAt(source, at);
        const bool begins =
            !isLetterOrDigit(before) && before != '?' && before != '$' && before != ':';
        if (begins && isKeyword(word) && isBlank(source[at + word.size()])) {
            if (before == '<')
                trials.push_back(insertion(at, "?", at - 1));
            else if (at >= 2 && strchr("%!@#&/", before) && source[at - 2] == '<')
                trials.push_back(
                    {{static_cast<uint32_t>(at) - 1, 1, "?"}, static_cast<uint32_t>(at) - 2});
            else
                trials.push_back(insertion(at, "<?", at));
        }
    }
    std::reverse(trials.begin(), trials.end());
    return trials;
}

static bool mendBegin(Mender *mender)
{
    const Template &tpl = *mender->tpl;
    for (const uint32_t end : strayEnds(tpl)) {
        std::vector<Trial> trials = beginTrials(tpl, end);
        for (const Begun &begun : tpl.begun) // one in whose body it was to stand has ended early
            if (begun.quoteOpen && begun.end <= end)
                for (Trial &trial : beginTrials(tpl, begun.end - 2))
                    if (trial.culprit > begun.words.at)
                        trials.push_back(std::move(trial));
        Best best = tryAll(*mender, trials);
        if (!best.tpl)
            continue;
        const Trial &trial = trials[best.index];
        const bool isWhole = trial.edit.text == "<?";
        mender->mistakes.push_back(mistakeAt(
            tpl, {trial.culprit, trial.culprit + 1}, "syntax",
            isWhole ? "a command begins with <?, which is missing here: without it this comes out "
                      "as text"
                    : "a command begins with <?: the ? is missing here, so that it comes out as "
                      "text"));
        note(&mender->mistakes.back(), tpl, end, "the command's end is here");
        mender->tpl = std::move(best.tpl);
        return true;
    }
    return false;
}

// ---- the whole ----

static const Complaint *unclosed(const Template &tpl)
{
    const auto found =
        std::find_if(tpl.complaints.begin(), tpl.complaints.end(), [](const Complaint &complaint) {
            return complaint.id == Message::ENDS_INSIDE && complaint.begun >= 0;
        });
    return found == tpl.complaints.end() ? nullptr : &*found;
}

// An index that is open when its command ends.
static bool mendIndex(Mender *mender)
{
    const Template &tpl = *mender->tpl;
    const auto open = std::find_if(tpl.begun.begin(), tpl.begun.end(),
                                   [](const Begun &begun) { return begun.indexOpen; });
    if (open == tpl.begun.end())
        return false;
    const uint32_t begin = std::max(open->indexAt, open->words.at); // it may be that of a set
    const size_t word = passBlanks(tpl.source, tpl.source.find('[', begin) + 1);
    const size_t end = std::min(tpl.source.find_first_of(" \t\r\n?\"'`", word), tpl.source.size());
    mender->mistakes.push_back(mistakeAt(tpl, {begin, static_cast<uint32_t>(word)}, "quote-open",
                                         "the index that opens here has no ]"));
    settle(mender, *open, {static_cast<uint32_t>(end), 0, "]"});
    return true;
}

// Mends what the interpreter does not complain of: a sign in a name, quotes.
static bool mendSilent(Mender *mender, const Begun &begun)
{
    if (begun.fate != Fate::MADE)
        return false;
    if (mendName(mender, begun) || (begun.quoteOpen && mendQuote(mender, begun)))
        return true;
    if (begun.gluedAt) {
        tellGlued(mender, begun, "quote-inside", "");
    } else if (begun.quoteOpen) {
        mender->mistakes.push_back(
            mistakeAt(*mender->tpl, {begun.quoteAt, begun.quoteAt + 1}, "quote-open",
                      wordsOfToken(begun.token) + " ends inside the quote that opens here"));
    } else {
        return false;
    }
    settle(mender, begun, {0, 0, {}});
    return true;
}

static bool mendQuotes(Mender *mender)
{
    const std::vector<Begun> &all = mender->tpl->begun;
    return std::any_of(all.begin(), all.end(),
                       [&](const Begun &begun) { return mendSilent(mender, begun); });
}

// A page's first command that is malformed ends the run.
static void tellGivenUp(std::vector<Mistake> *mistakes, const Template &first)
{
    const Begun &begun = first.begun[static_cast<size_t>(first.gaveUpAt)];
    if (!first.items.empty() && first.items[0].span.at < begun.words.at)
        return; // it is at the page's end that nothing follows
    for (Mistake &mistake : *mistakes)
        if (mistake.span.at >= begun.words.at &&
            mistake.span.at < std::max(begun.end, begun.words.end)) {
            mistake.kind = mistake.kind == string_view("syntax") ? "gives-up" : mistake.kind;
            mistake.text += "; the run ends here, and the rest of the page is lost, since nothing "
                            "stands in front of the command";
            return;
        }
}

// Mends one mistake. Returns false when there is none, or none that can be mended.
static bool mendOne(Mender *mender)
{
    const Template &tpl = *mender->tpl;
    if (tpl.exhausted)
        return false;
    if (!tpl.openComments.empty())
        return mendComment(mender);
    if (const Complaint *complaint = unclosed(tpl)) {
        const Complaint copy = *complaint;
        return mendUnclosed(mender, copy);
    }
    if (mendIndex(mender))
        return true;
    if (!tpl.complaints.empty()) {
        // A command that is none is never caused by another mistake.
        const auto unknown =
            std::find_if(tpl.complaints.begin(), tpl.complaints.end(), [](const Complaint &c) {
                return c.id == Message::UNKNOWN_COMMAND && c.begun >= 0;
            });
        const Complaint copy = unknown == tpl.complaints.end() ? tpl.complaints.front() : *unknown;
        mendComplaint(mender, copy);
        return true;
    }
    return mendBegin(mender) || mendQuotes(mender);
}

// What the log says of lines on which no mistake is told stands beside the mistake in front.
static void noteLogged(std::vector<Mistake> *mistakes, const Template &first)
{
    std::vector<size_t> counts(mistakes->size());
    for (const Complaint &complaint : first.complaints) {
        const uint32_t line = placeOf(first, complaint.span.at).line;
        size_t nearest = 0;
        bool told = complaint.id == Message::ENDS_INSIDE;
        for (size_t i = 0; i < mistakes->size(); ++i) {
            const uint32_t other = placeOf(first, (*mistakes)[i].span.at).line;
            told = told || other == line;
            if (other <= line)
                nearest = i;
        }
        if (told || mistakes->empty() || ++counts[nearest] > MOST_NOTES)
            continue;
        (*mistakes)[nearest].notes.emplace_back(
            complaint.span.at,
            counts[nearest] == MOST_NOTES
                ? "logged here for the same reason, and perhaps more: " + complaint.text
                : "logged here for the same reason: " + complaint.text);
    }
}

Mended readMended(const string &path, const string &file, bool page)
{
    Mender mender = {path, file, nullptr};
    Template first; // as it is run
    readTemplate(&first, path, file, page);
    mender.tpl = readWith(mender, {});
    bool mends = true;
    while (mends && mender.mistakes.size() < MOST_MISTAKES && countFaults(*mender.tpl) > 0)
        mends = mendOne(&mender);
    if (first.gaveUpAt >= 0)
        tellGivenUp(&mender.mistakes, first);
    noteLogged(&mender.mistakes, first);
    return {std::move(mender.tpl), std::move(mender.mistakes), std::move(mender.doubtful)};
}
