/* tools/check/mend_quotes.cpp - mends quotes: one that is missing, or that ends a text that was to
 * hold it. */
#include "mending.h"

#include "grammar/commands.h"
#include "host/ascii.h"
#include "tools/common/advice.h"

using std::string;
using std::string_view;

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

bool mendQuote(Mender *mender, const Begun &begun)
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

void tellGlued(Mender *mender, const Begun &begun, const char *kind, const string &front)
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

bool mendQuotes(Mender *mender)
{
    const std::vector<Begun> &all = mender->tpl->begun;
    return std::any_of(all.begin(), all.end(),
                       [&](const Begun &begun) { return mendSilent(mender, begun); });
}
