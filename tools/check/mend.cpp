/* tools/check/mend.cpp - finds the mistake that a template's complaints come from, one
 * after the other: what nothing closes, then the first complaint, then quotes. */
#include "mend.h"

#include <algorithm>

#include "mending.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_MISTAKES = 60; // of a template; more are told as they are logged
static constexpr size_t MOST_NOTES = 3;

static const Complaint *unclosed(const Template &tpl)
{
    const auto found =
        std::find_if(tpl.complaints.begin(), tpl.complaints.end(), [](const Complaint &complaint) {
            return complaint.id == Message::ENDS_INSIDE && complaint.begun >= 0;
        });
    return found == tpl.complaints.end() ? nullptr : &*found;
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
