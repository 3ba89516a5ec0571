/* tools/check/assemble.cpp - values before any page is made: which texts an argument
 * can come to, and who may have a hand in them. */
#include "assemble.h"

#include <algorithm>

#include "grammar/commands.h"

using std::string;

static constexpr size_t MOST_TEXTS = 8;
static constexpr int DEEPEST = 12; // variables in variables

// ---- how safe values are ----

uint8_t escapedBy(uint32_t id, uint8_t holds)
{
    if (id & CMDF_HTML) {
        uint8_t escaped = 0;
        if (holds & (VALUE_RAW | VALUE_HTML))
            escaped |= VALUE_HTML;
        if (holds & (VALUE_SCRIPT | VALUE_BOTH))
            escaped |= VALUE_BOTH;
        return escaped;
    }
    if (id & CMDF_JS)
        return holds ? VALUE_SCRIPT : 0;
    return holds;
}

Numbered takeApart(const string &digits)
{
    const char column = digits.empty() ? '0' : digits.back();
    return {digits.size() > 1 ? digits[0] - '0' : 0,
            column <= '9' ? column - '0' : column - 'a' + 10};
}

uint8_t holdsOfArgument(Site &site, const Argument &argument, uint32_t id, const Levels &levels)
{
    uint8_t holds = 0;
    for (const Element &element : argument.elements) {
        const uint8_t own = holdsOfElement(site, element, levels);
        holds |= element.type == ELEM_CMD ? own : escapedBy(id, own);
    }
    return holds;
}

const SqlColumn *columnOf(Site &site, const Command &command, size_t index)
{
    static const SqlColumn unknown = {"", {true, {}}, ""};
    static const SqlColumn none = {"", {false, {}}, ""};
    const RowsOf &rows = rowsOf(site, command);
    if (rows.failed)
        return &none;
    if (rows.hasRows && !rows.known)
        return &unknown;
    return index < rows.columns.size() ? &rows.columns[index] : nullptr;
}

uint8_t holdsOfColumn(const SqlColumn *column)
{
    return column && column->values.isFree ? VALUE_RAW : 0;
}

// What a nested command puts into the argument that it stands in.
static uint8_t holdsOfCommand(Site &site, const Command &command, const Levels &levels)
{
    const Prints prints = printsOf(command);
    const int body = bodyIndex(command);
    if (prints == Prints::NOTHING || prints == Prints::NUMBER)
        return 0;
    if (body < 0 && prints >= Prints::BODY) {
        const bool isRow = command.id & (CMDF_QUERY | CMDF_ERROR);
        return isRow ? escapedBy(command.id, holdsOfColumn(columnOf(site, command, 0)))
                     : uint8_t{0};
    }
    Levels deeper = levels;
    if (body >= 0)
        deeper.push_back(&command);
    uint8_t holds = 0;
    for (size_t i = static_cast<size_t>(std::max(body, 0)); i < command.args.size(); ++i)
        holds |= holdsOfArgument(site, command.args[i], command.id, deeper);
    return holds;
}

const Command *commandOfValue(const Element &element, const Levels &levels, size_t *column)
{
    const Numbered value = takeApart(element.text);
    if (value.column == 0 || static_cast<size_t>(value.level) >= levels.size())
        return nullptr;
    *column = static_cast<size_t>(value.column) - 1;
    return levels[static_cast<size_t>(value.level)];
}

static uint8_t holdsOfValue(Site &site, const Element &element, const Levels &levels)
{
    size_t column = 0;
    const Command *command = commandOfValue(element, levels, &column);
    return command ? holdsOfColumn(columnOf(site, *command, column)) : uint8_t{0};
}

// An array's bound is a number unless all indices are texts: the first of those then.
static uint8_t holdsOfBound(Site &site, const string &array)
{
    if (site.safe.contains(array + "[]"))
        return 0;
    if (isFromWeb(site, array + "[]"))
        return VALUE_RAW;
    const auto [entry, isNew] = site.holds.try_emplace(array + "[max]", uint8_t{0});
    const auto computed = site.variables.find(array + "[*]");
    if (!isNew || computed == site.variables.end())
        return entry->second;
    uint8_t holds = 0;
    for (const VariableUse &use : computed->second.sets)
        if (!use.command->args.empty()) // else its index is missing, and it sets nothing
            holds |= holdsOfArgument(site, use.command->args[0], 0, *use.levels);
    entry->second = holds;
    return holds;
}

uint8_t holdsOfElement(Site &site, const Element &element, const Levels &levels)
{
    switch (element.type) {
    case ELEM_CMD:
        return element.command ? holdsOfCommand(site, *element.command, levels) : 0;
    case ELEM_GETVAR:
    case ELEM_GETARRAY:
        return holdsOfVariable(site, keyOfRead(element));
    case ELEM_NUMVAR:
        return holdsOfValue(site, element, levels);
    case ELEM_MINARRAY:
    case ELEM_MAXARRAY:
        return holdsOfBound(site, element.text);
    default:
        return 0; // text
    }
}

// Whether a variable that nobody sets is a finding, whose follow-ups are none.
static bool saysUnset(const Site &site)
{
    const auto &rules = site.options.rules;
    return std::none_of(rules.begin(), rules.end(), [](const KindRule &rule) {
        return rule.kind == findKind("variable-unset") && !rule.grade;
    });
}

uint8_t holdsOfVariable(Site &site, std::string_view key)
{
    if (site.safe.contains(key))
        return 0;
    if (isFromWeb(site, key))
        return VALUE_RAW;
    const auto sets = setsOf(site, key);
    if (sets.empty()) // someone else's, unless that is told by itself
        return saysUnset(site) ? uint8_t{0} : uint8_t{VALUE_RAW};
    const auto [entry, isNew] = site.holds.try_emplace(string(key), uint8_t{0});
    if (!isNew)
        return entry->second; // a variable in its own value adds nothing to it
    uint8_t holds = 0;
    for (const VariableUse *use : sets)
        if (use->value)
            holds |= holdsOfArgument(site, *use->value, 0, *use->levels);
    entry->second = holds;
    return holds;
}

// ---- rows ----

static bool hasHole(const Assembled &text)
{
    return std::any_of(text.pieces.begin(), text.pieces.end(),
                       [](const TextPiece &piece) { return piece.hole; });
}

// Whether a piece of SQL, not only a value in it, is not known.
bool hasUnknown(const Assembled &text)
{
    return std::any_of(text.pieces.begin(), text.pieces.end(), [](const TextPiece &piece) {
        return piece.hole && !piece.inString && !piece.number;
    });
}

const RowsOf &rowsOf(Site &site, const Command &command)
{
    std::shared_ptr<RowsOf> &entry = site.rows[&command];
    if (entry) // perhaps still on its way: then of unknown columns
        return *entry;
    entry = std::make_shared<RowsOf>();
    RowsOf &rows = *entry;
    rows.counts = printsOf(command) == Prints::BODIES;
    if (command.id == ID_ERRORMESSAGE) {
        rows.hasRows = rows.known = true;
        rows.columns.push_back({"message", {true, {}}, ""});
        return rows;
    }
    rows.hasRows = (command.id & CMDF_QUERY) != 0;
    const auto place = site.queries.find(&command);
    if (!rows.hasRows || !site.database || place == site.queries.end())
        return rows;
    bool uncertain = false;
    bool fails = false;
    for (const Assembled &query :
         queriesOf(site, *place->second.tpl, command, *place->second.levels)) {
        const SqlAnswer &answer = prepareQuery(site.database.get(), query.text);
        uncertain = uncertain || hasUnknown(query);
        fails = fails || (!answer.error.empty() && !hasUnknown(query));
        if (!answer.error.empty())
            continue;
        for (size_t i = 0; i < answer.columns.size(); ++i) {
            if (i == rows.columns.size())
                rows.columns.push_back(answer.columns[i]);
            else
                rows.columns[i].values.join(answer.columns[i].values);
        }
        rows.known = true;
    }
    rows.failed = fails && !rows.known;
    for (SqlColumn &column : rows.columns)
        column.values.join({uncertain, {}});
    return rows;
}

// ---- texts ----

namespace
{
struct Assembly {
    Site &site;
    int depth = 0;
    std::string_view key{}; // of the variable whose value is assembled
    const Assembly *outer = nullptr;

    bool isOpen(std::string_view variable) const
    {
        return key == variable || (outer && outer->isOpen(variable));
    }
};
} // namespace

static std::vector<Assembled> assembleArgument(const Assembly &assembly, const Template &tpl,
                                               const Argument &argument, const Levels &levels);

static void addLiteral(std::vector<Assembled> *texts, const Template &tpl, Span span,
                       const string &literal)
{
    for (Assembled &text : *texts) {
        text.pieces.push_back({text.text.size(), &tpl, span, false, false, false, 0, nullptr});
        text.text += literal;
    }
}

static void addHole(std::vector<Assembled> *texts, const Template &tpl, Span span, uint8_t holds,
                    bool number, const Element *element)
{
    for (Assembled &text : *texts) {
        const bool inString = inSqlString(text.text);
        text.pieces.push_back(
            {text.text.size(), &tpl, span, true, inString, number, holds, element});
        text.text += inString ? "x" : "1";
    }
}

// Text between fields; the fields themselves are holes.
static void addText(std::vector<Assembled> *texts, const Template &tpl, const Element &element)
{
    const FieldRange fields = fieldsIn(tpl, element.span);
    if (fields.empty()) {
        addLiteral(texts, tpl, element.span, element.text);
        return;
    }
    uint32_t at = element.span.at;
    for (size_t i = fields.first; i <= fields.last; ++i) {
        const bool last = i == fields.last;
        const Span field = last ? Span{element.span.end, element.span.end} : tpl.fields[i].span;
        if (field.at > at)
            addLiteral(texts, tpl, {at, field.at}, tpl.source.substr(at, field.at - at));
        if (!last)
            addHole(texts, tpl, field, 0, false, nullptr);
        at = field.end;
    }
}

static void append(Assembled *text, const Assembled &more)
{
    for (TextPiece piece : more.pieces) {
        piece.at += text->text.size();
        text->pieces.push_back(piece);
    }
    text->text += more.text;
    text->isOneOf = text->isOneOf || more.isOneOf;
}

// Each text with each of the others behind it. Returns false, and changes nothing, when
// those are too many.
static bool multiply(std::vector<Assembled> *texts, const std::vector<Assembled> &others)
{
    std::vector<Assembled> product;
    if (texts->size() * others.size() > MOST_TEXTS)
        return false;
    for (const Assembled &text : *texts)
        for (const Assembled &other : others) {
            product.push_back(text);
            append(&product.back(), other);
        }
    *texts = std::move(product);
    return true;
}

// The texts that a variable is set to; none when it can be anything else.
// inString: it is a value in a string of SQL, of which only a constant is known.
static std::vector<Assembled> textsOf(const Assembly &assembly, const string &key, bool inString)
{
    std::vector<Assembled> texts;
    if (assembly.depth >= DEEPEST || assembly.isOpen(key) || isFromWeb(assembly.site, key) ||
        countSets(assembly.site, key) > MOST_TEXTS)
        return {};
    const Assembly inner = {assembly.site, assembly.depth + 1, key, &assembly};
    for (const VariableUse *use : setsOf(assembly.site, key)) {
        if (!use->value)
            continue;
        for (Assembled &text : assembleArgument(inner, *use->tpl, *use->value, *use->levels)) {
            const bool known = !hasHole(text) || (!inString && text.pieces.size() > 1);
            if (!known || texts.size() == MOST_TEXTS)
                return {};
            texts.push_back(std::move(text));
        }
    }
    return texts;
}

static bool addCommand(const Assembly &assembly, std::vector<Assembled> *texts, const Template &tpl,
                       const Command &command, const Levels &levels)
{
    const int body = bodyIndex(command);
    const Prints prints = printsOf(command);
    const bool isPlain = prints == Prints::BODY && !(command.id & (CMDF_QUERY | CMDF_ERROR));
    const bool isLoop = prints == Prints::BODIES;
    if (body < 0 || !(isPlain || isLoop || prints == Prints::BRANCH))
        return false;
    Levels deeper = levels;
    deeper.push_back(&command);
    std::vector<Assembled> ways;
    for (size_t i = static_cast<size_t>(body); i < command.args.size(); ++i)
        for (Assembled &way : assembleArgument(assembly, tpl, command.args[i], deeper))
            ways.push_back(std::move(way));
    for (Assembled &way : ways)
        way.isOneOf = way.isOneOf || isLoop;
    if (prints == Prints::BRANCH && command.args.size() == 3)
        ways.emplace_back();
    return multiply(texts, ways);
}

// Whether an element is a number, whatever happens.
static bool isNumber(const Assembly &assembly, const Element &element, const Levels &levels)
{
    if (element.command)
        return printsOf(*element.command) == Prints::NUMBER;
    if (element.type == ELEM_NUMVAR)
        return !holdsOfElement(assembly.site, element, levels);
    if (element.type == ELEM_TEXT)
        return !element.text.empty() &&
               element.text.find_first_not_of("0123456789") == string::npos;
    if (element.type == ELEM_CMD || assembly.depth >= DEEPEST ||
        isFromWeb(assembly.site, keyOfRead(element)))
        return false;
    const Assembly inner = {assembly.site, assembly.depth + 1, {}, &assembly};
    const auto sets = setsOf(assembly.site, keyOfRead(element));
    return !sets.empty() && std::all_of(sets.begin(), sets.end(), [&](const VariableUse *use) {
        return use->value && use->value->elements.size() == 1 &&
               isNumber(inner, use->value->elements[0], *use->levels);
    });
}

static std::vector<Assembled> assembleArgument(const Assembly &assembly, const Template &tpl,
                                               const Argument &argument, const Levels &levels)
{
    std::vector<Assembled> texts(1);
    for (const Element &element : argument.elements) {
        if (element.type == ELEM_TEXT) {
            addText(&texts, tpl, element);
            continue;
        }
        if (element.type == ELEM_GETVAR || element.type == ELEM_GETARRAY) {
            const auto known =
                textsOf(assembly, keyOfRead(element), inSqlString(texts.back().text));
            if (!known.empty() && multiply(&texts, known))
                continue;
        }
        if (element.type == ELEM_CMD &&
            (!element.command || addCommand(assembly, &texts, tpl, *element.command, levels)))
            continue;
        // A variable in its own value adds nothing to it.
        const bool own = element.type != ELEM_NUMVAR && assembly.isOpen(keyOfRead(element));
        const uint8_t holds = own ? uint8_t{0} : holdsOfElement(assembly.site, element, levels);
        const bool number = !holds && isNumber(assembly, element, levels);
        addHole(&texts, tpl, element.span, holds, number, &element);
    }
    return texts;
}

std::vector<Assembled> assemble(Site &site, const Template &tpl, const Argument &argument,
                                const Levels &levels)
{
    return assembleArgument({site}, tpl, argument, levels);
}

std::vector<string> assembledTexts(Site &site, const Template &tpl, const Argument &argument)
{
    std::vector<string> texts;
    for (const Assembled &text : assemble(site, tpl, argument, {}))
        if (!hasHole(text))
            texts.push_back(text.text);
    return texts;
}

bool writtenTexts(const Template &tpl, const Argument &argument, std::vector<string> *texts)
{
    string text;
    if (constantText(tpl, argument, &text)) {
        texts->push_back(text);
        return true;
    }
    const bool chooses = argument.elements.size() == 1 && argument.elements[0].command &&
                         printsOf(*argument.elements[0].command) == Prints::BRANCH &&
                         argument.elements[0].command->args.size() == 4;
    if (!chooses)
        return false;
    const Command &command = *argument.elements[0].command;
    if (writtenTexts(tpl, command.args[2], texts) && writtenTexts(tpl, command.args[3], texts))
        return true;
    texts->clear();
    return false;
}

std::vector<Assembled> queriesOf(Site &site, const Template &tpl, const Command &command,
                                 const Levels &levels)
{
    if (command.args.empty())
        return {};
    return assemble(site, tpl, command.args[0], levels);
}
