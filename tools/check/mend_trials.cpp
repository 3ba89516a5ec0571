/* tools/check/mend_trials.cpp - the search for the smallest change that mends something: each
 * is tried by reading the template with it. What nothing mends is read without its command. */
#include "mending.h"

#include "grammar/commands.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_TRIALS = 80;     // for one mistake
static constexpr size_t MOST_BYTES = 1 << 20; // that all trials for one may read

// ---- readings ----

std::unique_ptr<Template> readWith(const Mender &mender, std::span<const Edit> changes)
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

bool hasLongerName(const Template &tpl, const Begun &begun)
{
    const bool sets = begun.token == F_SETVARIABLE || begun.token == F_SETVARIABLEONCE;
    const uint32_t at = begun.words.end;
    if (!sets || at >= tpl.source.size() || isBlank(tpl.source[at - 1]))
        return false;
    return strchr("_-=.:+/", tpl.source[at]) || (tpl.source[at] & 0x80);
}

std::vector<uint32_t> strayEnds(const Template &tpl)
{
    std::vector<uint32_t> strays;
    for (const Item &item : tpl.items)
        for (size_t at = item.span.at;
             !item.command && (at = tpl.source.find("?>", at)) < item.span.end; at += 2)
            strays.push_back(static_cast<uint32_t>(at));
    return strays;
}

size_t countFaults(const Template &tpl)
{
    size_t faults = tpl.complaints.size() + 2 * tpl.openComments.size() + (tpl.gaveUpAt >= 0) +
                    strayEnds(tpl).size();
    for (const Begun &begun : tpl.begun)
        faults += static_cast<size_t>(begun.quoteOpen) + begun.indexOpen + (begun.gluedAt > 0) +
                  hasLongerName(tpl, begun) + (begun.fate == Fate::LOST && begun.token != F_UNDEF);
    return faults;
}

Best tryAll(const Mender &mender, const std::vector<Trial> &trials)
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

void settle(Mender *mender, const Begun &begun, const Edit &meant)
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

// ---- places ----

Mistake mistakeAt(const Template &tpl, Span span, const char *kind, string text)
{
    return {kind, {inFile(tpl, span.at), inFile(tpl, span.end)}, std::move(text), {}};
}

void note(Mistake *mistake, const Template &tpl, uint32_t at, string text)
{
    mistake->notes.emplace_back(inFile(tpl, at), std::move(text));
}

void noteBegin(Mistake *mistake, const Template &tpl, const Begun &begun, uint32_t at)
{
    if (lineOf(tpl, begun.words.at) != lineOf(tpl, at))
        note(mistake, tpl, begun.words.at, wordsOfToken(begun.token) + " begins here");
}
