/* tools/check/mend_ends.cpp - mends what begins and does not end, or ends and does not begin:
 * commands, comments, indices. */
#include "mending.h"

#include "grammar/commands.h"
#include "hints.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

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

bool mendUnclosed(Mender *mender, const Complaint &complaint)
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

bool mendComment(Mender *mender)
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

bool mendBegin(Mender *mender)
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

// ---- an index ----

bool mendIndex(Mender *mender)
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
