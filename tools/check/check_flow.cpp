/* tools/check/check_flow.cpp - what becomes of variables as pages run: set and never read,
 * hidden by a request, counted twice because a body runs again for its include. */
#include <algorithm>

#include "grammar/commands.h"
#include "report.h"
#include "walk.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_PLACES = 3;

static string_view arrayOf(string_view key)
{
    return key.substr(0, key.find('['));
}

// ---- set and never read ----

// Whether any read may see an element of an array.
static bool isRead(const Site &site, const string &key)
{
    const string array = string(arrayOf(key)) + "[";
    const bool isElement = key.find('[') != string::npos;
    const auto own = site.variables.find(key);
    if (own != site.variables.end() && !own->second.reads.empty())
        return true;
    for (auto it = site.variables.lower_bound(array);
         isElement && it != site.variables.end() && it->first.starts_with(array); ++it) {
        const bool any = key.ends_with("[*]") || it->first.ends_with("[*]") ||
                         it->first.ends_with("[min]") || it->first.ends_with("[max]");
        if (any && !it->second.reads.empty())
            return true;
    }
    return false;
}

// The variables that reads of others were probably meant for: those are told already.
static std::set<string_view> meantByOthers(const Site &site)
{
    std::vector<string_view> names;
    std::set<string_view> meant;
    for (const auto &[key, variable] : site.variables)
        if (!variable.sets.empty())
            names.push_back(key);
    for (const auto &[key, variable] : site.variables)
        if (!variable.reads.empty() && setsOf(site, key).empty() && !isFromWeb(site, key))
            meant.insert(nearest(key, names));
    return meant;
}

static void checkUnused(Report &all)
{
    const std::set<string_view> meant = meantByOthers(all.site);
    for (const auto &[key, variable] : all.site.variables) {
        if (variable.sets.empty() || key == "lang" || isFromWeb(all.site, key) ||
            all.site.meant.contains(arrayOf(key)) || meant.contains(key) || isRead(all.site, key))
            continue;
        const VariableUse &first = variable.sets[0];
        std::vector<Note> notes;
        for (size_t i = 1; i < std::min(variable.sets.size(), MOST_PLACES + 1); ++i)
            notes.push_back(
                noteAt(*variable.sets[i].tpl, variable.sets[i].command->nameSpan.at, "and here"));
        const bool isComputed = key.ends_with("[*]");
        report(all, *first.tpl, first.command->nameSpan, "variable-unused",
               (isComputed ? string(arrayOf(key)) + "[...]" : key) +
                   " is set, and nothing reads it",
               std::move(notes));
    }
}

// ---- hidden by a request ----

static bool readsName(const Argument &argument, string_view name)
{
    return std::any_of(argument.elements.begin(), argument.elements.end(), [&](const Element &e) {
        if (e.type != ELEM_TEXT && e.type != ELEM_NUMVAR && e.type != ELEM_CMD && e.text == name)
            return true;
        return e.command && std::any_of(e.command->args.begin(), e.command->args.end(),
                                        [&](const Argument &a) { return readsName(a, name); });
    });
}

// Whether it is set only where an if has looked at it.
static bool isGuarded(const VariableUse &use, string_view name)
{
    return std::any_of(use.levels->begin(), use.levels->end(), [&](const Command *command) {
        return (command->id & CMDF_IF) && command->args.size() > 1 &&
               (readsName(command->args[0], name) || readsName(command->args[1], name));
    });
}

static void checkHidden(Report &all)
{
    for (const auto &[key, variable] : all.site.variables) {
        const auto senders = all.site.senders.find(key);
        if (key == "lang" || all.site.fromWeb.contains(key) || senders == all.site.senders.end() ||
            senders->second.empty())
            continue;
        const auto &[tpl, span] = senders->second[0];
        for (const VariableUse &use : variable.sets)
            if (use.command->id == ID_SETVARIABLE && !isGuarded(use, key))
                report(all, *use.tpl, use.command->nameSpan, "variable-hidden",
                       "a request that brings " + key +
                           " hides this value: choose another name, or an element of an array",
                       {noteAt(*tpl, span.at, "this sends it")});
    }
}

// ---- counted twice ----

namespace
{
struct Step {
    const Command *command;
    Levels levels;
};

// A command of the page with what it includes and what it sets to a value made of the old one.
struct Steps {
    std::vector<Step> includes;
    std::vector<Step> counts;
    std::vector<Step> resets;
};
} // namespace

static bool isSet(const Command &command)
{
    return command.id == ID_SETVARIABLE || command.id == ID_SETARRAY;
}

static Steps stepsOf(const Command &command)
{
    Steps steps;
    Walker walker;
    walker.command = [&](const Command &inner, const Levels &levels) {
        if (inner.id == ID_INCLUDE && !levels.empty())
            steps.includes.push_back({&inner, levels});
        if (!isSet(inner) || levels.empty() || inner.args.empty())
            return;
        auto &list = readsName(inner.args.back(), inner.name) ? steps.counts : steps.resets;
        list.push_back({&inner, levels});
    };
    walkCommand(command, {}, walker);
    return steps;
}

// Whether both stand in the body of one loop.
static bool shareLoop(const Levels &a, const Levels &b)
{
    for (size_t i = 0; i < std::min(a.size(), b.size()) && a[i] == b[i]; ++i)
        if (printsOf(*a[i]) == Prints::BODIES)
            return true;
    return false;
}

static bool isReset(const Steps &steps, const Step &count)
{
    return std::any_of(steps.resets.begin(), steps.resets.end(), [&](const Step &reset) {
        return keyOfSet(*reset.command) == keyOfSet(*count.command) &&
               reset.command->span.at < count.command->span.at &&
               reset.levels.size() <= count.levels.size() &&
               std::equal(reset.levels.begin(), reset.levels.end(), count.levels.begin());
    });
}

static void checkCounts(Report &all, const Template &tpl, const Command &command)
{
    const Steps steps = stepsOf(command);
    for (const Step &count : steps.counts) {
        const auto include =
            std::find_if(steps.includes.begin(), steps.includes.end(), [&](const Step &step) {
                return step.command->span.at > count.command->span.at ||
                       shareLoop(step.levels, count.levels);
            });
        if (include == steps.includes.end() || isReset(steps, count))
            continue;
        report(all, tpl, count.command->nameSpan, "include-counts",
               count.command->name +
                   " counts too far: behind an include the command around it runs again from its "
                   "begin, up to that place; use the counter $0, or let the query count",
               {noteAt(tpl, include->command->span.at, "the include is here")});
    }
}

void checkFlow(Report &all)
{
    if (all.site.options.templates.empty())
        checkUnused(all);
    checkHidden(all);
    for (const auto &[path, tpl] : all.site.templates)
        for (const Item &item : tpl->items)
            if (item.command)
                checkCounts(all, *tpl, *item.command);
}
