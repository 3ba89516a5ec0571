/* tools/check/blame.cpp - follows a variable's values back to where they come in. */
#include "blame.h"

#include <algorithm>

using std::string;
using std::string_view;

static constexpr size_t MOST_ORIGINS = 8;

namespace
{
struct Blame {
    Site &site;
    bool rawOnly = false; // of several, those without any escaping are to blame
    std::vector<Note> notes = {};
    std::set<string, std::less<>> seen = {};
};
} // namespace

static void follow(Blame *blame, string_view key);

// The variables of templates that an argument reads.
static void followReads(Blame *blame, const Argument &argument)
{
    for (const Element &element : argument.elements) {
        if (element.type >= ELEM_GETARRAY || element.type == ELEM_GETVAR)
            follow(blame, keyOfRead(element));
        for (size_t i = 0; element.command && i < element.command->args.size(); ++i)
            followReads(blame, element.command->args[i]);
    }
}

static uint8_t holdsOf(Blame *blame, const VariableUse &use)
{
    return use.value ? holdsOfArgument(blame->site, *use.value, 0, *use.levels) : uint8_t{0};
}

static void follow(Blame *blame, string_view key)
{
    if (!blame->seen.emplace(key).second || isFromWeb(blame->site, key))
        return;
    for (const VariableUse *use : setsOf(blame->site, key)) {
        const uint8_t holds = holdsOf(blame, *use);
        if (!holds || (blame->rawOnly && !(holds & VALUE_RAW)) ||
            blame->notes.size() >= MOST_ORIGINS)
            continue;
        blame->notes.push_back(
            noteAt(*use->tpl, use->span.at,
                   "a value that can be anything is put into " + string(key) + " here"));
        followReads(blame, *use->value);
    }
}

std::vector<Note> blameFor(Site &site, string_view key)
{
    Blame blame = {site};
    const auto sets = setsOf(site, key);
    blame.rawOnly = std::any_of(sets.begin(), sets.end(), [&](const VariableUse *use) {
        return holdsOf(&blame, *use) & VALUE_RAW;
    });
    follow(&blame, key);
    return std::move(blame.notes);
}
