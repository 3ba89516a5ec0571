/* tools/check/paths.cpp - walks pages, with variants where they fork. */
#include "paths.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "grammar/commands.h"
#include "rows.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_VARIANTS = 24;
static constexpr size_t MOST_SETS = 8;
static constexpr long TOO_LARGE = 100000; // to be calculated with

static void walkNodes(Paths &paths, const Nodes &nodes);

// ---- values ----

static std::optional<long> numberOf(const string &text)
{
    long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

static std::optional<string> valueOf(Paths &paths, const Template &tpl, const Argument &argument);

static std::optional<string> calculated(Paths &paths, const Template &tpl, const Command &command)
{
    if (!(command.id & CMDF_CALC) || command.args.size() < 2)
        return std::nullopt;
    const auto left = valueOf(paths, tpl, command.args[0]);
    const auto right = valueOf(paths, tpl, command.args[1]);
    const long a = left ? numberOf(left->empty() ? "0" : *left).value_or(TOO_LARGE) : TOO_LARGE;
    const long b = right ? numberOf(right->empty() ? "0" : *right).value_or(TOO_LARGE) : TOO_LARGE;
    if (std::max(std::abs(a), std::abs(b)) >= TOO_LARGE)
        return std::nullopt;
    switch (command.id) {
    case ID_CALCPLUS:
        return std::to_string(a + b);
    case ID_CALCMIN:
        return std::to_string(a - b);
    case ID_CALCMULT:
        return std::to_string(a * b);
    default:
        return std::nullopt;
    }
}

static const Frame *frameOf(const Paths &paths, const Element &element)
{
    const Numbered value = takeApart(element.text);
    const auto level = static_cast<size_t>(value.level);
    return level < paths.frames.size() ? &paths.frames[level] : nullptr;
}

static std::optional<string> valueOf(Paths &paths, const Template &tpl, const Element &element)
{
    switch (element.type) {
    case ELEM_TEXT:
        if (!fieldsIn(tpl, element.span).empty())
            return std::nullopt;
        return element.text;
    case ELEM_GETVAR:
    case ELEM_GETARRAY: {
        const auto found = paths.held.find(keyOfRead(element));
        return found == paths.held.end() ? std::nullopt : found->second.value;
    }
    case ELEM_NUMVAR: {
        const Frame *frame = frameOf(paths, element);
        if (!frame || takeApart(element.text).column != 0 || !frame->counter)
            return std::nullopt;
        return std::to_string(*frame->counter);
    }
    case ELEM_CMD:
        return element.command ? calculated(paths, tpl, *element.command) : "";
    default:
        return std::nullopt;
    }
}

static std::optional<string> valueOf(Paths &paths, const Template &tpl, const Argument &argument)
{
    string whole;
    for (const Element &element : argument.elements) {
        const auto piece = valueOf(paths, tpl, element);
        if (!piece)
            return std::nullopt;
        whole += *piece;
    }
    return whole;
}

// ---- conditions ----

// What an argument reads that need not be the same the next time it is read, as text.
static void addReads(Paths &paths, std::span<const Element> elements, string *key)
{
    for (const Element &element : elements) {
        addReads(paths, element.index, key);
        if (element.type == ELEM_NUMVAR) {
            const Frame *frame = frameOf(paths, element);
            *key += "#" + std::to_string(frame ? frame->instance : 0);
        } else if (element.type == ELEM_CMD && element.command) {
            if (element.command->id == ID_ERRORFOUND || element.command->id == ID_ERRORMESSAGE)
                *key += "#" + std::to_string(++paths.counted); // another query may be between
            for (const Argument &inner : element.command->args)
                addReads(paths, inner.elements, key);
        } else if (element.type != ELEM_TEXT) {
            const auto found = paths.held.find(keyOfRead(element));
            if (found != paths.held.end())
                *key += "#" + std::to_string(found->second.version);
        }
    }
}

static void addArgument(Paths &paths, const Template &tpl, const Argument &argument, string *key)
{
    *key += "|";
    for (const Element &element : argument.elements)
        *key += tpl.source.substr(element.span.at, element.span.end - element.span.at);
    addReads(paths, argument.elements, key);
}

static uint32_t atomOf(Paths &paths, const string &key, NodeKind kind, const Template &tpl,
                       const Command *command)
{
    const auto [entry, isNew] =
        paths.atomsByKey.try_emplace(key, static_cast<uint32_t>(paths.atoms.size()));
    if (isNew)
        paths.atoms.push_back({kind, command, &tpl});
    return entry->second;
}

// The comparison that asks the same, and whether its answer is the other one.
static std::pair<uint32_t, bool> plainOf(uint32_t id)
{
    switch (id) {
    case ID_IFNEQ:
        return {ID_IFEQ, true};
    case ID_IFGTE:
        return {ID_IFLT, true};
    case ID_IFLTE:
        return {ID_IFGT, true};
    default:
        return {id, false};
    }
}

Outcome outcomeOf(Paths &paths, const Template &tpl, const Command &command, uint8_t way)
{
    const auto [id, isOther] = plainOf(command.id);
    string key = std::to_string(id);
    for (size_t i = 0; i < std::min<size_t>(command.args.size(), 2); ++i)
        addArgument(paths, tpl, command.args[i], &key);
    const uint32_t atom = atomOf(paths, key, NodeKind::IF, tpl, &command);
    return {atom, static_cast<uint8_t>(isOther ? 1 - way : way)};
}

string conditionOf(const Paths &paths, Outcome outcome)
{
    const Atom &atom = paths.atoms[outcome.atom];
    if (atom.kind == NodeKind::ROWS && atom.isMore)
        return outcome.value == 0 ? "when there is one row" : "when there are several rows";
    if (atom.kind == NodeKind::ROWS)
        return outcome.value == 0 ? "when there is no row" : "when there is a row";
    if (atom.kind != NodeKind::IF)
        return "in one of the cases";
    string text = "where " + wordsOf(plainOf(atom.command->id).first).substr(3);
    for (size_t i = 0; i < std::min<size_t>(atom.command->args.size(), 2); ++i) {
        const auto &elements = atom.command->args[i].elements;
        const bool isEmpty =
            elements.size() == 1 && elements[0].type == ELEM_TEXT && elements[0].text.empty();
        text += elements.empty() || isEmpty ? " ''" : " ";
        for (const Element &element : elements)
            text += atom.tpl->source.substr(element.span.at, element.span.end - element.span.at);
    }
    return text + (outcome.value == 0 ? " holds" : " does not hold");
}

// The way that constants choose; -1 when they do not.
static int chosenWay(Paths &paths, const Template &tpl, const Command &command)
{
    if (command.args.size() < 2)
        return -1;
    const auto left = valueOf(paths, tpl, command.args[0]);
    const auto right = valueOf(paths, tpl, command.args[1]);
    if (!left || !right)
        return -1;
    const long a = numberOf(*left).value_or(0);
    const long b = numberOf(*right).value_or(0);
    switch (command.id) {
    case ID_IFEQ:
        return *left == *right ? 0 : 1;
    case ID_IFNEQ:
        return *left != *right ? 0 : 1;
    case ID_IFGT:
        return a > b ? 0 : 1;
    case ID_IFGTE:
        return a >= b ? 0 : 1;
    case ID_IFLT:
        return a < b ? 0 : 1;
    case ID_IFLTE:
        return a <= b ? 0 : 1;
    default:
        return -1;
    }
}

// ---- variants ----

static const Outcome *find(const Outcomes &outcomes, uint32_t atom)
{
    const auto found = std::ranges::find(outcomes, atom, &Outcome::atom);
    return found == outcomes.end() ? nullptr : &*found;
}

// Two texts that a value is compared with cannot both be it.
static bool differs(const Paths &paths, Outcome a, Outcome b)
{
    const Command *first = paths.atoms[a.atom].command;
    const Command *second = paths.atoms[b.atom].command;
    const bool areEqual = paths.atoms[a.atom].kind == NodeKind::IF &&
                          paths.atoms[b.atom].kind == NodeKind::IF && first && second &&
                          plainOf(first->id).first == ID_IFEQ &&
                          plainOf(second->id).first == ID_IFEQ && a.value == 0 && b.value == 0;
    if (!areEqual || first->args.size() < 2 || second->args.size() < 2)
        return false;
    const auto text = [](const Template &tpl, const Argument &argument) {
        return argument.elements.empty() ? string()
                                         : tpl.source.substr(argument.elements.front().span.at,
                                                             argument.elements.back().span.end -
                                                                 argument.elements.front().span.at);
    };
    string one;
    string other;
    return text(*paths.atoms[a.atom].tpl, first->args[0]) ==
               text(*paths.atoms[b.atom].tpl, second->args[0]) &&
           constantText(*paths.atoms[a.atom].tpl, first->args[1], &one) &&
           constantText(*paths.atoms[b.atom].tpl, second->args[1], &other) && one != other;
}

// Those in which an outcome is possible, with it.
static std::vector<Variant> constrained(const Paths &paths, const std::vector<Variant> &variants,
                                        Outcome outcome)
{
    std::vector<Variant> some;
    for (const Variant &variant : variants) {
        const Outcome *known = find(variant.when, outcome.atom);
        const bool isOther = std::ranges::any_of(
            variant.when, [&](Outcome other) { return differs(paths, other, outcome); });
        if ((known && known->value != outcome.value) || isOther)
            continue;
        some.push_back(variant);
        if (!known)
            some.back().when.push_back(outcome);
    }
    return some;
}

// Makes one condition of two: what holds in either.
static void joinOutcomes(Outcomes *outcomes, const Outcomes &other)
{
    std::erase_if(*outcomes, [&](Outcome outcome) {
        return std::ranges::find(other, outcome) == other.end();
    });
}

static void addVariants(Paths &paths, std::vector<Variant> *variants,
                        const std::vector<Variant> &more)
{
    for (const Variant &variant : more) {
        const auto same = std::ranges::find_if(*variants, [&](const Variant &other) {
            return paths.walker.isSame(variant.state, other.state);
        });
        if (same != variants->end()) {
            joinOutcomes(&same->when, variant.when);
        } else if (variants->size() < MOST_VARIANTS) {
            variants->push_back(variant);
        } else {
            paths.crowded = true;
        }
    }
}

bool isCertain(const Paths &paths, const std::vector<bool> &wrong, const Template *where,
               Outcome *blame)
{
    blame->atom = static_cast<uint32_t>(paths.atoms.size());
    if (paths.crowded || std::ranges::find(wrong, true) == wrong.end())
        return false;
    if (std::ranges::find(wrong, false) == wrong.end())
        return true;
    for (size_t i = 0; i < wrong.size(); ++i) {
        for (const Outcome outcome : wrong[i] ? paths.variants[i].when : Outcomes()) {
            const Atom &atom = paths.atoms[outcome.atom];
            if (atom.tpl != where || atom.kind == NodeKind::VARIABLE)
                continue;
            bool all = true;
            for (size_t k = 0; k < wrong.size(); ++k) {
                const Outcome *other = find(paths.variants[k].when, outcome.atom);
                all = all && (wrong[k] || (other && other->value != outcome.value));
            }
            if (all) {
                *blame = outcome;
                return true;
            }
        }
    }
    return false;
}

static bool readsColumn(const Argument &argument)
{
    return std::ranges::any_of(argument.elements, [](const Element &element) {
        return element.command ? std::ranges::any_of(element.command->args, readsColumn)
                               : element.type == ELEM_NUMVAR && takeApart(element.text).column != 0;
    });
}

bool dependsOnRow(const Paths &paths, Outcome blame)
{
    const auto depends = [&](Outcome outcome) {
        const Atom &atom = paths.atoms[outcome.atom];
        if (atom.kind != NodeKind::IF)
            return false;
        const std::vector<Argument> &args = atom.command->args; // what is compared comes first
        return std::any_of(args.begin(), args.begin() + std::min<ptrdiff_t>(std::ssize(args), 2),
                           readsColumn);
    };
    return std::ranges::any_of(paths.conditions, depends) ||
           (blame.atom < paths.atoms.size() && depends(blame));
}

bool exclude(const Outcomes &a, const Outcomes &b)
{
    return std::ranges::any_of(a, [&](Outcome outcome) {
        const Outcome *other = find(b, outcome.atom);
        return other && other->value != outcome.value;
    });
}

bool covers(const Outcomes &a, const Outcomes &b)
{
    return std::ranges::all_of(
        a, [&](Outcome outcome) { return std::ranges::find(b, outcome) != b.end(); });
}

// ---- variables ----

static void hold(Paths &paths, const string &key, Held value)
{
    Held &entry = paths.held[key];
    value.version = ++paths.counted;
    paths.undo.emplace_back(key, std::move(entry));
    entry = std::move(value);
}

// What was set since a mark, taken back.
static std::map<string, Held> takeBack(Paths &paths, size_t mark)
{
    std::map<string, Held> changes;
    while (paths.undo.size() > mark) {
        auto &[key, before] = paths.undo.back();
        Held &entry = paths.held[key];
        changes.try_emplace(key, std::move(entry));
        entry = std::move(before);
        paths.undo.pop_back();
    }
    return changes;
}

static Held joinHeld(const Held &a, const Held &b)
{
    Held held;
    if (a.value == b.value)
        held.value = a.value;
    if (a.sets.empty() || b.sets.empty())
        return held;
    held.sets = a.sets;
    for (const VariableUse *use : b.sets)
        if (std::ranges::find(held.sets, use) == held.sets.end())
            held.sets.push_back(use);
    if (held.sets.size() > MOST_SETS)
        held.sets.clear();
    return held;
}

// After one of several ways: what any of them has set may be so now.
static void holdChanges(Paths &paths, std::span<const std::map<string, Held>> ways)
{
    std::set<string> keys;
    for (const auto &changes : ways)
        for (const auto &[key, held] : changes)
            keys.insert(key);
    for (const string &key : keys) {
        std::optional<Held> joined;
        for (const auto &changes : ways) {
            const auto change = changes.find(key);
            const Held &held = change == changes.end() ? paths.held[key] : change->second;
            joined = joined ? joinHeld(*joined, held) : held;
        }
        hold(paths, key, std::move(*joined));
    }
}

static void walkSet(Paths &paths, const Node &node)
{
    const Command &command = *node.command;
    const string key = keyOfSet(command);
    const Site &site = paths.forest.all.site;
    const auto variable = site.variables.find(key);
    if (variable == site.variables.end())
        return;
    const auto use = std::ranges::find(variable->second.sets, &command, &VariableUse::command);
    if (use == variable->second.sets.end())
        return;
    Held held;
    const bool once = command.id == ID_SETVARIABLEONCE || command.id == ID_SETARRAYONCE;
    if (!isFromWeb(site, key) && use->value) {
        held.sets = {&*use};
        if (!once)
            held.value = valueOf(paths, *node.place.tpl, *use->value);
    }
    if (once) // or what it was before
        held = joinHeld(paths.held[key], held);
    if (key.ends_with("[*]")) // any of them
        for (auto it = paths.held.lower_bound(key.substr(0, key.size() - 2));
             it != paths.held.end() && it->first.starts_with(key.substr(0, key.size() - 2)); ++it)
            it->second = {std::nullopt, {}, ++paths.counted};
    hold(paths, key, std::move(held));
}

// ---- forks ----

// Walks nodes from some of the variants; what comes of them.
static std::vector<Variant> walkWay(Paths &paths, const Nodes &nodes, std::vector<Variant> variants,
                                    Outcome condition)
{
    paths.variants = std::move(variants);
    if (paths.variants.empty())
        return {};
    paths.conditions.push_back(condition);
    walkNodes(paths, nodes);
    paths.conditions.pop_back();
    return std::move(paths.variants);
}

// A branch or body with nothing in it that counts for what is open.
static void walkPlain(Paths &paths, const Node &node)
{
    std::vector<std::map<string, Held>> changes;
    for (const Nodes &way : node.ways) {
        const size_t mark = paths.undo.size();
        walkNodes(paths, way);
        changes.push_back(takeBack(paths, mark));
    }
    if (node.kind == NodeKind::ROWS)
        changes.emplace_back();
    holdChanges(paths, changes);
}

static void walkIf(Paths &paths, const Node &node)
{
    const int chosen = chosenWay(paths, *node.place.tpl, *node.command);
    paths.frames.push_back({node.command, 0, std::nullopt});
    if (chosen >= 0) {
        ++paths.decided;
        paths.conditions.push_back(
            outcomeOf(paths, *node.place.tpl, *node.command, static_cast<uint8_t>(chosen)));
        walkNodes(paths, node.ways[static_cast<size_t>(chosen)]);
        paths.conditions.pop_back();
        paths.frames.pop_back();
        return;
    }
    const std::vector<Variant> before = paths.variants;
    std::vector<Variant> after;
    std::map<string, Held> changes[2];
    for (uint8_t way = 0; way < 2; ++way) {
        const Outcome outcome = outcomeOf(paths, *node.place.tpl, *node.command, way);
        const size_t mark = paths.undo.size();
        addVariants(paths, &after,
                    walkWay(paths, node.ways[way], constrained(paths, before, outcome), outcome));
        changes[way] = takeBack(paths, mark);
    }
    if (after.empty())
        after = before;
    paths.variants = std::move(after);
    holdChanges(paths, changes);
    paths.frames.pop_back();
}

static bool areSame(const Paths &paths, const std::vector<Variant> &a,
                    const std::vector<Variant> &b)
{
    return std::ranges::equal(a, b, [&](const Variant &x, const Variant &y) {
        return paths.walker.isSame(x.state, y.state);
    });
}

static std::optional<long> firstCounter(Paths &paths, const Template &tpl, const Command &command)
{
    const bool isRepeat = command.id == ID_REPEATINCL || command.id == ID_REPEATEXCL;
    if (!isRepeat)
        return 0;
    const auto value = valueOf(paths, tpl, command.args[0]);
    return value ? numberOf(*value) : std::nullopt;
}

// How often a body runs.
static RowBounds boundsOf(Paths &paths, const Template &tpl, const Command &command)
{
    const bool isRepeat = command.id == ID_REPEATINCL || command.id == ID_REPEATEXCL;
    if (!isRepeat) {
        const auto [entry, isNew] = paths.forest.bounds.try_emplace(&command);
        if (isNew)
            entry->second = rowBoundsOf(paths.forest.all.site, tpl, command);
        return entry->second;
    }
    const auto from = valueOf(paths, tpl, command.args[0]);
    const auto to = valueOf(paths, tpl, command.args[1]);
    const auto first = from ? numberOf(*from) : std::nullopt;
    const auto last = to ? numberOf(*to) : std::nullopt;
    if (!first || !last)
        return {0, 2, false};
    const long count = std::max(*last - *first + (command.upperExcluded ? 0 : 1), 0L);
    return {static_cast<size_t>(count), static_cast<size_t>(count), true};
}

// Walks a body once more, with what the counter is then.
static std::vector<Variant> walkPass(Paths &paths, const Node &node, std::vector<Variant> variants,
                                     Outcome runs, std::optional<long> counter)
{
    paths.frames.push_back({node.command, ++paths.counted, counter});
    auto after = walkWay(paths, node.ways[0], std::move(variants), runs);
    paths.frames.pop_back();
    return after;
}

// A body of which the number of passes is known, and small.
static bool walkCounted(Paths &paths, const Node &node, const RowBounds &bounds, Outcome runs,
                        std::optional<long> first)
{
    constexpr size_t most = 5;
    if (!bounds.exact || bounds.most > most)
        return false;
    for (size_t pass = 0; pass < bounds.most; ++pass)
        paths.variants =
            walkPass(paths, node, paths.variants, runs,
                     first ? std::optional<long>(*first + static_cast<long>(pass)) : std::nullopt);
    return true;
}

// A body that runs for no row, one or more of them; two stand for all that are more.
static void walkUncounted(Paths &paths, const Node &node, const RowBounds &bounds, Outcome runs,
                          Outcome more, std::optional<long> counter)
{
    const size_t decided = paths.decided;
    const std::vector<Variant> before = paths.variants;
    const auto some = constrained(paths, before, runs);
    auto once = walkPass(paths, node, some, runs, counter);
    if (areSame(paths, some, once) && decided == paths.decided) {
        paths.variants = before; // it leaves everything as it was
        return;
    }
    std::vector<Variant> all;
    if (bounds.least == 0)
        addVariants(paths, &all, constrained(paths, before, {runs.atom, 0}));
    if (bounds.least < 2)
        addVariants(paths, &all, bounds.most > 1 ? constrained(paths, once, {more.atom, 0}) : once);
    if (bounds.most > 1) {
        const bool outer = std::exchange(paths.again, true);
        addVariants(paths, &all,
                    walkPass(paths, node, constrained(paths, once, more), runs,
                             counter ? std::optional<long>(*counter + 1) : std::nullopt));
        paths.again = outer;
    }
    paths.variants = std::move(all);
}

static void walkRows(Paths &paths, const Node &node)
{
    const Template &tpl = *node.place.tpl;
    const Command &command = *node.command;
    RowBounds bounds = boundsOf(paths, tpl, command);
    const auto first = firstCounter(paths, tpl, command);
    const bool isRepeat = command.id == ID_REPEATINCL || command.id == ID_REPEATEXCL;
    if (paths.many && printsOf(command) == Prints::BODY && !(command.id & CMDF_ERROR))
        bounds.least = 1; // a value without a row would be a hole in any document
    string key = "rows";
    for (size_t i = 0; i + 1 < command.args.size(); ++i)
        addArgument(paths, tpl, command.args[i], &key);
    const Outcome runs = {atomOf(paths, key, NodeKind::ROWS, tpl, &command), 1};
    const Outcome more = {atomOf(paths, key + "|more", NodeKind::ROWS, tpl, &command), 1};
    paths.atoms[runs.atom].repeats = bounds.most > 1;
    paths.atoms[more.atom].isMore = true;
    paths.atoms[more.atom].runs = runs.atom;
    const size_t mark = paths.undo.size();
    const std::vector<Variant> before = paths.variants;
    if (!walkCounted(paths, node, bounds, runs, first)) {
        const bool counts = !isRepeat || !bounds.exact; // else its last one is not the second
        walkUncounted(paths, node, bounds, runs, more, counts ? first : std::nullopt);
    }
    if (paths.variants.empty())
        paths.variants = before;
    const std::map<string, Held> changes[] = {takeBack(paths, mark), {}};
    holdChanges(paths, std::span(changes).first(bounds.least > 0 ? 1 : 2));
}

// ---- what stands elsewhere ----

static void walkTemplate(Paths &paths, const Node &node, const Template &tpl)
{
    const Flow *flow = flowOf(paths.forest, tpl, node.isData ? Mode::DATA : Mode::TEXT);
    if (!flow || paths.open.size() >= MOST_OPEN || !paths.open.insert(&tpl).second)
        return;
    const Chain *const outer = paths.chain;
    paths.chains.push_back({outer, node.place.tpl, &node, outer ? outer->depth + 1 : 1});
    paths.chain = &paths.chains.back();
    std::vector<Frame> frames = std::move(paths.frames);
    paths.frames.clear();
    const bool wasData = std::exchange(paths.inData, node.isData);
    walkNodes(paths, flow->nodes);
    paths.inData = wasData;
    paths.frames = std::move(frames);
    paths.chain = outer;
    paths.open.erase(&tpl);
}

// One of several ways, each of them by a condition of its own.
static void walkOneOf(Paths &paths, const Node &node, const string &key, size_t count,
                      const std::function<void(size_t)> &walk)
{
    const uint32_t atom = atomOf(paths, key, NodeKind::VARIABLE, *node.place.tpl, node.command);
    const std::vector<Variant> before = paths.variants;
    std::vector<Variant> after;
    std::vector<std::map<string, Held>> changes;
    for (size_t i = 0; i < count; ++i) {
        const Outcome outcome = {atom, static_cast<uint8_t>(i)};
        const size_t mark = paths.undo.size();
        paths.variants = constrained(paths, before, outcome);
        paths.conditions.push_back(outcome);
        if (!paths.variants.empty())
            walk(i);
        paths.conditions.pop_back();
        addVariants(paths, &after, paths.variants);
        changes.push_back(takeBack(paths, mark));
    }
    if (after.empty())
        after = before;
    paths.variants = std::move(after);
    holdChanges(paths, changes);
}

static void walkInclude(Paths &paths, const Node &node)
{
    if (node.templates.size() == 1)
        return walkTemplate(paths, node, *node.templates[0]);
    string key = "include";
    addArgument(paths, *node.place.tpl, node.command->args[0], &key);
    walkOneOf(paths, node, key, node.templates.size(),
              [&](size_t i) { walkTemplate(paths, node, *node.templates[i]); });
}

static void walkVariable(Paths &paths, const Node &node)
{
    const string name = keyOfRead(*node.shown->element);
    const auto held = paths.held.find(name);
    const bool isData = paths.inData;
    const bool escapes = (node.shown->id & (CMDF_HTML | CMDF_JS)) != 0;
    if (held == paths.held.end() || held->second.sets.empty() || (escapes && !isData)) {
        const bool isKnown =
            escapes || isFromWeb(paths.forest.all.site, name) || node.shown->holds == 0;
        paths.opaque = paths.opaque || !isKnown;
        return paths.walker.visitWords(paths, node);
    }
    if (!paths.reading.insert(name).second) { // it is a part of its own value
        paths.opaque = true;
        return;
    }
    const std::vector<const VariableUse *> sets = held->second.sets;
    const string key = "variable|" + name + "#" + std::to_string(held->second.version);
    std::vector<const Flow *> flows;
    for (const VariableUse *use : sets) {
        flows.push_back(flowOf(paths.forest, *use, isData ? Mode::DATA : Mode::TEXT));
        const bool isHalf = flows.back() && !isData && flows.back()->end.mode != Mode::TEXT;
        if (isHalf || !flows.back() || flows.back()->broken) {
            paths.reading.erase(name);
            paths.opaque = true;
            paths.crowded = paths.crowded || isHalf; // a tag that goes on in the page
            return;
        }
    }
    std::vector<Frame> frames = std::move(paths.frames);
    paths.frames.clear();
    walkOneOf(paths, node, key, sets.size(), [&](size_t i) { walkNodes(paths, flows[i]->nodes); });
    paths.reading.erase(name);
    paths.frames = std::move(frames);
}

static void walkNode(Paths &paths, const Node &node)
{
    switch (node.kind) {
    case NodeKind::TAG:
        return paths.walker.visitTag(paths, node);
    case NodeKind::VALUE:
        paths.opaque = paths.opaque || (node.shown && node.shown->markup);
        [[fallthrough]];
    case NodeKind::WORDS:
        return paths.walker.visitWords(paths, node);
    case NodeKind::DATA:
        return paths.walker.visitData(paths, node);
    case NodeKind::VARIABLE:
        return walkVariable(paths, node);
    case NodeKind::SET:
        return walkSet(paths, node);
    case NodeKind::IF:
        return node.plain ? walkPlain(paths, node) : walkIf(paths, node);
    case NodeKind::ROWS:
        return node.plain ? walkPlain(paths, node) : walkRows(paths, node);
    case NodeKind::INCLUDE:
        return walkInclude(paths, node);
    case NodeKind::TEXTS:
        return walkOneOf(paths, node, "language", node.ways.size(),
                         [&](size_t i) { walkNodes(paths, node.ways[i]); });
    }
}

static void walkNodes(Paths &paths, const Nodes &nodes)
{
    for (const Node &node : nodes)
        walkNode(paths, node);
}

void walkPage(Paths &paths, const Flow &flow)
{
    paths.open.insert(paths.page);
    walkNodes(paths, flow.nodes);
}
