/* tools/check/faults.cpp - who is to blame: a tag, or the page that it has come into. */
#include "faults.h"

#include <algorithm>
#include <utility>

#include "structure.h"

Suspect *findSuspect(Faults &faults, const Tag *tag, std::string_view rule)
{
    auto [at, end] = faults.byTag.equal_range(tag);
    while (at != end && at->second->rule != rule)
        ++at;
    return at == end ? nullptr : at->second;
}

Suspect &suspectOf(Faults &faults, const Tag *tag, std::string_view rule, const char *kind)
{
    Suspect *suspect = findSuspect(faults, tag, rule);
    if (!suspect) {
        faults.suspects.push_back({tag, rule, tag->place.tpl, tag->place, kind});
        suspect = &faults.suspects.back();
        faults.byTag.emplace(tag, suspect);
    }
    faults.ofPage.push_back(suspect);
    return *suspect;
}

Place inPage(const Chain *chain, const Place &place)
{
    Place at = place;
    for (; chain; chain = chain->outer)
        at = chain->node->place;
    return at;
}

void acquit(Faults &faults, const Tag *tag, std::string_view rule, const Template *page)
{
    faults.acquittals.push_back({tag, rule, page});
}

void settle(Faults &faults)
{
    for (const auto &[tag, rule, page] : faults.acquittals) {
        Suspect *suspect = findSuspect(faults, tag, rule);
        if (suspect && (suspect->fine.empty() || suspect->fine.back() != page))
            suspect->fine.push_back(page);
    }
}

bool isWeak(const Paths &paths, const Template *tpl, const Outcomes &when)
{
    return tpl != paths.page && !when.empty();
}

static bool isFine(const Suspect &suspect, const Template *page)
{
    return std::ranges::find(suspect.fine, page) != suspect.fine.end();
}

static void reportSuspect(Faults &faults, Suspect &suspect)
{
    std::erase_if(suspect.faults,
                  [](const Fault &fault) { return fault.skipped && fault.skipped->crosses; });
    if (suspect.dropped || suspect.faults.empty())
        return;
    const Grade grade = findKind(suspect.kind)->severity;
    if (suspect.fine.empty()) {
        const Fault &first = suspect.faults.front();
        reportPlace(faults.all, grade, suspect.place, suspect.kind,
                    suspect.text.empty() ? first.plain : suspect.text, first.notes);
        return;
    }
    const Template *told = nullptr;
    for (Fault &fault : suspect.faults) {
        if (isFine(suspect, fault.page) && fault.somewhere)
            reportPlace(faults.all, grade, fault.there, suspect.kind, fault.text, fault.notes);
        else if (!fault.weak && !isFine(suspect, fault.page) &&
                 fault.page != std::exchange(told, fault.page))
            reportPlace(faults.all, grade, fault.at, suspect.kind, fault.plain, fault.notes);
    }
}

bool isGuilty(const Suspect *suspect)
{
    return suspect && suspect->fine.empty() && !suspect->faults.empty();
}

void reportFaults(Faults &faults)
{
    for (Suspect &suspect : faults.suspects)
        suspect.dropped =
            suspect.dropped || std::ranges::any_of(suspect.because, [&](const Tag *tag) {
                return isGuilty(findSuspect(faults, tag, "unclosed"));
            });
    for (Suspect &suspect : faults.suspects)
        reportSuspect(faults, suspect);
}
