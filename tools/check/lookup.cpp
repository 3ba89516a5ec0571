/* tools/check/lookup.cpp - places of templates, and what the site knows about them. */
#include "lookup.h"

#include <algorithm>

#include "grammar/commands.h"
#include "report.h"

using std::string;
using std::string_view;

// ---- what stands there ----

static bool findInCommand(const Command &command, uint32_t offset, Levels *levels, Found *found);

static void findInElement(const Element &element, uint32_t offset, Levels *levels, Found *found)
{
    if (element.command && findInCommand(*element.command, offset, levels, found))
        return;
    const bool isReference = element.type != ELEM_TEXT && element.type != ELEM_CMD;
    if (isReference && element.span.contains(offset))
        found->element = &element;
    for (const Element &index : element.index) // which may be one itself
        findInElement(index, offset, levels, found);
}

static bool isTextAt(const Argument &argument, uint32_t offset)
{
    return std::any_of(argument.elements.begin(), argument.elements.end(), [&](const Element &e) {
        return e.type == ELEM_TEXT && e.span.contains(offset);
    });
}

static bool setsElement(const Command &command)
{
    return command.id == ID_SETARRAY || command.id == ID_SETARRAYONCE;
}

static bool findInCommand(const Command &command, uint32_t offset, Levels *levels, Found *found)
{
    if (!command.span.contains(offset) && command.span.end != offset)
        return false;
    found->command = &command;
    found->element = nullptr;
    found->argument = nullptr;
    found->onWords = command.words.contains(offset);
    found->onName = command.nameSpan.contains(offset);
    found->levels = *levels;
    const int body = bodyIndex(command);
    for (size_t i = 0; i < command.args.size(); ++i) {
        const auto &elements = command.args[i].elements;
        if (elements.empty() || elements.front().span.at > offset)
            continue;
        const bool inBody = body >= 0 && i >= static_cast<size_t>(body);
        if (inBody) {
            levels->push_back(&command);
            found->levels = *levels;
        }
        if (isTextAt(command.args[i], offset))
            found->argument = &command.args[i];
        found->onName |= found->argument && i == 0 && setsElement(command);
        for (const Element &element : elements)
            findInElement(element, offset, levels, found);
        if (inBody)
            levels->pop_back();
    }
    return true;
}

// The kind that a comment names there, null for none.
static const Kind *kindAt(const Template &tpl, uint32_t offset)
{
    const string_view source = tpl.source;
    const auto comment = std::find_if(tpl.comments.begin(), tpl.comments.end(),
                                      [&](const Span &span) { return span.contains(offset); });
    if (comment == tpl.comments.end())
        return nullptr;
    static constexpr char signs[] = "abcdefghijklmnopqrstuvwxyz0123456789-";
    const size_t begin = source.find_last_not_of(signs, offset) + 1;
    return findKind(source.substr(begin, source.find_first_not_of(signs, begin) - begin));
}

Found findAt(const Site &site, const Template &tpl, uint32_t at)
{
    const uint32_t offset = inSource(tpl, at);
    Found found;
    Levels levels;
    for (const Item &item : tpl.items)
        if (item.command && findInCommand(*item.command, offset, &levels, &found))
            break;
    const FieldRange fields = fieldsIn(tpl, {offset > 200 ? offset - 200 : 0, offset + 1});
    for (size_t i = fields.first; i < fields.last; ++i)
        if (tpl.fields[i].span.contains(offset))
            found.field = &tpl.fields[i];
    found.kind = kindAt(tpl, offset);
    if (!found.field && !found.element)
        found.mention = mentionAt(site, tpl, found.command, found.argument, offset);
    return found;
}

// ---- what is known about it ----

static constexpr struct {
    uint32_t id;
    const char *text;
} descriptions[] = {
    {ID_ECHO, "`echo BODY` prints its body; values in it are escaped for HTML."},
    {ID_PRINT, "`print BODY` prints its body; values come out as they are."},
    {ID_PRINTJS, "`printjs BODY` prints its body; values get a backslash in front of quotes, "
                 "for a script's string."},
    {ID_INCLUDE, "`include PATH` puts another template in its place."},
    {ID_BASE64, "`base64 PATH` prints a file in Base64."},
    {ID_SETVARIABLE, "`setvariable var:NAME VALUE` sets a variable."},
    {ID_SETVARIABLEONCE, "`setvariableonce var:NAME VALUE` sets a variable that has no value."},
    {ID_SETARRAY, "`setvariable var:NAME[INDEX] VALUE` sets an element of an array."},
    {ID_SETARRAYONCE, "`setvariableonce var:NAME[INDEX] VALUE` sets an element without value."},
    {ID_REPEATINCL, "`repeat [ FROM TO ] BODY` prints its body for each number; a bracket the "
                    "other way round leaves that end out."},
    {ID_REPEATEXCL, "`repeat ] FROM TO ] BODY` prints its body for each number behind FROM."},
    {ID_ERRORFOUND, "`error found ` prints 1 when the web program has an error, else 0."},
    {ID_ERRORMESSAGE, "`error message BODY` prints its body, in which `$1` is the error's text, "
                      "as it is."},
    {ID_MULTIQUERYCOUNT, "`multiquerycount QUERY` prints the number of rows."},
    {ID_QUERY, "`query QUERY BODY` prints its body once with the first row; values are escaped "
               "for HTML."},
    {ID_QUERYTEXT, "`querytext QUERY BODY` prints its body once with the first row, values as "
                   "they are."},
    {ID_QUERYJS, "`queryjs QUERY BODY` prints its body once with the first row; values are "
                 "escaped for scripts."},
    {ID_MULTIQUERY, "`multiquery QUERY BODY` prints its body for each row; values are escaped "
                    "for HTML."},
    {ID_MULTIQUERYTEXT, "`multiquerytext QUERY BODY` prints its body for each row, values as "
                        "they are."},
    {ID_MULTIQUERYJS, "`multiqueryjs QUERY BODY` prints its body for each row; values are "
                      "escaped for scripts."},
};
static constexpr const char *descriptionOf(uint32_t id)
{
    for (const auto &row : descriptions)
        if (row.id == id)
            return row.text;
    if (id & CMDF_CALC)
        return "`calc OPERATOR A B` prints the result, with the operands' decimals.";
    if (id & CMDF_IF)
        return "`if COMPARISON A B THEN ELSE` prints THEN when the comparison holds, else ELSE; "
               "without both, 1 or 0.";
    return nullptr;
}
static_assert(std::ranges::all_of(commandTable,
                                  [](const CommandDef &row) { return descriptionOf(row.id); }),
              "editors show a description of each command: add its row");

const char *describeCommand(uint32_t id)
{
    return descriptionOf(id);
}

static string describeValue(Site &site, const Element &element, const Levels &levels)
{
    const Numbered value = takeApart(element.text);
    const auto level = static_cast<size_t>(value.level);
    if (level >= levels.size())
        return "`$" + element.text + "`: there is no level " + std::to_string(level) + " here.";
    const Command &command = *levels[level];
    const string of = " of level " + std::to_string(level) + ", the body of " + wordsOf(command.id);
    if (value.column == 0)
        return "`$" + element.text + "`: the counter" + of + ".";
    const RowsOf &rows = rowsOf(site, command);
    const auto column = static_cast<size_t>(value.column) - 1;
    const string number = "`$" + element.text + "`: column " + std::to_string(value.column);
    if (!rows.known || column >= rows.columns.size())
        return number + of + ".";
    return number + ", **" + rows.columns[column].name + "**" +
           (rows.columns[column].values.isNumber() ? " (a number)" : "") + of + ".";
}

static string lineIn(const Template &tpl, uint32_t offset)
{
    return tpl.path + ":" + std::to_string(placeOf(tpl, offset).line);
}

// shown: as which it stands there.
static string describeVariable(Site &site, const string &key, const string &shown)
{
    string text = "`" + shown + "`\n";
    const auto senders = site.senders.find(key);
    if (site.fromWeb.contains(key))
        text += "\n- set by the web program";
    else if (isFromWeb(site, key) && senders == site.senders.end())
        text += "\n- sent by a form of the site";
    if (senders != site.senders.end())
        for (const auto &[tpl, span] : senders->second)
            text += "\n- sent by " + lineIn(*tpl, span.at);
    for (const VariableUse *use : setsOf(site, key))
        text += "\n- set in " + lineIn(*use->tpl, use->span.at);
    return text;
}

static string describeTable(const Table &table)
{
    return "```sql\n" + table.statement + "\n```";
}

static string describeColumn(const Mention &column)
{
    const auto &columns = column.table.columns;
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const TableColumn &each) {
        return each.name == column.name;
    });
    const string type = found == columns.end() || found->type.empty() ? "" : ": " + found->type;
    return "`" + column.table.name + "." + column.name + "`" + type;
}

static string describeMention(Site &site, const Mention &mention)
{
    switch (mention.what) {
    case Names::PARAMETER:
        return describeVariable(site, mention.name, ":" + mention.name);
    case Names::FORM_FIELD:
        return describeVariable(site, mention.name, "$var:" + mention.name);
    case Names::TABLE:
        return describeTable(mention.table);
    case Names::COLUMN:
        return describeColumn(mention);
    default:
        return "";
    }
}

// Text for Markdown, in which a "<" would begin a tag, and quotes and signs would go.
static string asMarkdown(string_view text)
{
    string out;
    for (const char c : text) {
        if (string_view("<`*_[\\").find(c) != string_view::npos)
            out += '\\';
        out += c;
    }
    return out;
}

string describeKind(const Kind &kind)
{
    return "**" + string(kind.id) + "**: " + asMarkdown(kind.explanation);
}

string describeFinding(const Finding &finding)
{
    const string_view id = finding.kind->id;
    return id == "syntax" ? "**syntax**: " + asMarkdown(finding.text) : describeKind(*finding.kind);
}

static string describeText(const Site &site, const string &id)
{
    string text = "`{?" + id + "?}`\n";
    for (const Language &language : site.languages) {
        const auto found = language.texts.find(id);
        text += "\n- " + language.code + ": " +
                (found == language.texts.end() ? "*missing*" : found->second.text);
    }
    return text;
}

static string keyAt(const Found &found)
{
    const Names what = found.mention.what;
    if (what == Names::PARAMETER || what == Names::FORM_FIELD)
        return found.mention.name;
    if (found.element && found.element->type != ELEM_NUMVAR)
        return keyOfRead(*found.element);
    if (found.onName)
        return keyOfSet(*found.command);
    return "";
}

string hoverText(Site &site, const Found &found)
{
    if (found.kind)
        return describeKind(*found.kind);
    if (found.mention.what != Names::NOTHING)
        return describeMention(site, found.mention);
    if (found.field)
        return describeText(site, string(found.field->id));
    if (found.element && found.element->type == ELEM_NUMVAR)
        return describeValue(site, *found.element, found.levels);
    if (const string key = keyAt(found); !key.empty())
        return describeVariable(site, key, "$var:" + key);
    if (found.command && found.onWords)
        return describeCommand(found.command->id);
    return "";
}

// ---- places ----

static FilePlace placeIn(const Template &tpl, Span span)
{
    const Note from = noteAt(tpl, span.at, "");
    const Note to = noteAt(tpl, std::max(span.at, span.end), "");
    return {tpl.path, true, from.line, from.unit, to.line == from.line ? to.unit : from.unit + 1};
}

static void addSets(const Site &site, const string &key, std::vector<FilePlace> *places)
{
    for (const VariableUse *use : setsOf(site, key))
        places->push_back(placeIn(*use->tpl, use->command->nameSpan));
    if (const auto senders = site.senders.find(key); senders != site.senders.end())
        for (const auto &[tpl, span] : senders->second)
            places->push_back(placeIn(*tpl, span));
}

static void addTable(const Site &site, const Table &table, std::vector<FilePlace> *places)
{
    const ScriptPlace made = madeBy(site, table);
    if (!made.path.empty())
        places->push_back({made.path, false, made.line, 1, 1});
}

static void addTexts(const Site &site, string_view id, std::vector<FilePlace> *places)
{
    for (const Language &language : site.languages)
        if (const auto text = language.texts.find(id);
            text != language.texts.end() && text->second.line > 0)
            places->push_back({language.path, false, text->second.line, 1, 1});
}

static void addIncluded(const Site &site, const Template &tpl, const Command *command,
                        std::vector<FilePlace> *places)
{
    const auto uses = site.includes.find(tpl.path);
    if (uses == site.includes.end())
        return;
    for (const PathUse &use : uses->second)
        for (const string &path : use.paths)
            if (use.command == command && fileExists(site, path))
                places->push_back({path, true, 1, 1, 1});
}

std::vector<FileLink> linksOf(const Site &site, const Template &tpl)
{
    std::vector<FileLink> links;
    const auto uses = site.includes.find(tpl.path);
    if (uses == site.includes.end())
        return links;
    for (const PathUse &use : uses->second) {
        if (use.paths.empty() || !fileExists(site, use.paths[0]))
            continue;
        const auto &elements = use.command->args[0].elements;
        const FilePlace place = placeIn(tpl, {elements.front().span.at, elements.back().span.end});
        links.push_back({place.line, place.unit, place.endUnit, use.paths[0]});
    }
    return links;
}

std::vector<FilePlace> definitionsOf(const Site &site, const Template &tpl, const Found &found)
{
    std::vector<FilePlace> places;
    if (found.field)
        addTexts(site, found.field->id, &places);
    else if (found.mention.what == Names::TABLE || found.mention.what == Names::COLUMN)
        addTable(site, found.mention.table, &places);
    else if (const string key = keyAt(found); !key.empty())
        addSets(site, key, &places);
    else if (found.command && found.command->id == ID_INCLUDE)
        addIncluded(site, tpl, found.command, &places);
    return places;
}

std::vector<FilePlace> referencesOf(Site &site, const Found &found, bool definitions)
{
    std::vector<FilePlace> places;
    if (found.field) {
        for (const FieldUse &use : site.fields[string(found.field->id)])
            places.push_back(placeIn(*use.tpl, use.tpl->fields[use.field].span));
        if (definitions)
            addTexts(site, found.field->id, &places);
        return places;
    }
    const string key = keyAt(found);
    if (key.empty())
        return places;
    if (const auto variable = site.variables.find(key); variable != site.variables.end())
        for (const VariableUse &use : variable->second.reads)
            places.push_back(placeIn(*use.tpl, use.span));
    for (const MentionPlace &place : parametersOf(site, key))
        places.push_back(placeIn(*place.tpl, place.span));
    if (definitions)
        addSets(site, key, &places);
    return places;
}

uint32_t offsetOfUnits(const Template &tpl, uint32_t line, uint32_t unit)
{
    const string &file = fileOf(tpl);
    if (line >= tpl.lineStarts.size())
        return static_cast<uint32_t>(file.size());
    uint32_t at = tpl.lineStarts[line];
    for (uint32_t units = 0; at < file.size() && file[at] != '\n' && units < unit;) {
        const auto byte = static_cast<unsigned char>(file[at]);
        units += byte >= 0xF0 ? 2 : 1;
        ++at;
        while (at < file.size() && (static_cast<unsigned char>(file[at]) & 0xC0) == 0x80)
            ++at;
    }
    return at;
}
