/* tools/check/check_flow.cpp - what becomes of variables as pages run: set and never read,
 * hidden by a request, counted twice because a body runs again for its include. */
#include <algorithm>

#include "grammar/commands.h"
#include "hints.h"
#include "report.h"
#include "walk.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_PLACES = 3;

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

// The variables that reads of others were probably meant for, each with that other.
static std::map<string, string> meantByOthers(const Site &site)
{
    constexpr size_t most = 400000; // comparisons
    std::vector<string_view> names;
    std::vector<string_view> unset;
    std::map<string, string> meant;
    for (const auto &[key, variable] : site.variables) {
        if (!variable.sets.empty())
            names.push_back(key);
        else if (!isFromWeb(site, key) && setsOf(site, key).empty())
            unset.push_back(key);
    }
    for (const string_view key : unset)
        if (names.size() * unset.size() < most)
            meant.emplace(nearest(key, names), key);
    return meant;
}

// Of a name that is set and another that is read the one in fewer places is misspelt.
std::map<string, string> misspeltSets(const Site &site)
{
    std::map<string, string> misspelt = meantByOthers(site);
    std::erase_if(misspelt, [&](const auto &pair) {
        const auto set = site.variables.find(pair.first);
        const auto read = site.variables.find(pair.second);
        return set == site.variables.end() || isRead(site, pair.first) ||
               read->second.reads.size() <= set->second.sets.size();
    });
    return misspelt;
}

static void checkUnread(Report &all)
{
    const std::map<string, string> meant = meantByOthers(all.site);
    const bool isWhole = all.site.options.templates.empty();
    for (const auto &[key, read] : misspeltSets(all.site)) {
        const VariableUse &use = all.site.variables[key].sets[0];
        string told = key;
        told.append(" is set, and nothing reads it; did you mean '").append(read);
        told.append("', which is read and never set?");
        report(all, *use.tpl, use.command->nameSpan, "variable-unused", std::move(told),
               {noteAt(*all.site.variables[read].reads[0].tpl,
                       all.site.variables[read].reads[0].span.at, "it is read here")});
    }
    for (const auto &[key, variable] : all.site.variables) {
        if (!isWhole || variable.sets.empty() || key == "lang" || isFromWeb(all.site, key) ||
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

// ---- pieces that no page includes ----

// Whether any include takes its path from a value that nobody knows here.
static bool includesAnything(const Site &site)
{
    return std::any_of(site.includes.begin(), site.includes.end(), [](const auto &entry) {
        return std::any_of(entry.second.begin(), entry.second.end(),
                           [](const PathUse &use) { return use.dynamic && use.paths.empty(); });
    });
}

// Whether another template names the file, in a comment perhaps.
static bool isNamed(const Site &site, const string &path)
{
    return std::any_of(site.templates.begin(), site.templates.end(), [&](const auto &entry) {
        return entry.first != path && fileOf(*entry.second).find(path) != string::npos;
    });
}

// Whether a template may be a page of its own: it includes others, or begins a document.
static bool mayBePage(const Site &site, const string &path)
{
    const auto includes = site.includes.find(path);
    const string source = lowered(site.templates.at(path)->source);
    return (includes != site.includes.end() && !includes->second.empty()) ||
           fitsAny(site.options.routes, path) || source.find("<html") != string::npos ||
           source.find("<!doctype") != string::npos ||
           path.find('.') + suffixOf(path).size() != path.size(); // such as list.json.frm
}

// A template that no other includes is a page, but for one whose suffix is that of pieces.
static void checkPieces(Report &all)
{
    const Site &site = all.site;
    const std::set<string> pages(site.pages.begin(), site.pages.end());
    std::map<string, int> pieces; // less the pages, by suffix
    std::set<string> included;    // suffixes
    for (const auto &[path, tpl] : site.templates) {
        pieces[suffixOf(path)] += pages.contains(path) ? -1 : 1;
        if (!pages.contains(path))
            included.insert(suffixOf(path));
    }
    for (const string &path : site.pages)
        if (pieces[suffixOf(path)] >= 0 && included.contains(suffixOf(path)) &&
            !mayBePage(site, path) && !isNamed(site, path) && !includesAnything(site))
            report(all, *site.templates.at(path), {0, 0}, "template-unused",
                   "no page includes this piece");
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
    const SiteOptions &options = all.site.options;
    checkUnread(all);
    if (options.templates.empty() && options.pages.empty())
        checkPieces(all);
    checkHidden(all);
    for (const auto &[path, tpl] : all.site.templates)
        for (const Item &item : tpl->items)
            if (item.command)
                checkCounts(all, *tpl, *item.command);
}
