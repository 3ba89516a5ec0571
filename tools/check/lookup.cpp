/* tools/check/lookup.cpp - places of templates, and what the site knows about them. */
#include "lookup.h"

#include <string.h>

#include <algorithm>
#include <set>

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
    for (const Element &index : element.index)
        findInElement(index, offset, levels, found);
    if (element.type != ELEM_TEXT && element.type != ELEM_CMD && element.span.contains(offset))
        found->element = &element;
}

static bool findInCommand(const Command &command, uint32_t offset, Levels *levels, Found *found)
{
    if (!command.span.contains(offset) && command.span.end != offset)
        return false;
    found->command = &command;
    found->element = nullptr;
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
        for (const Element &element : elements)
            findInElement(element, offset, levels, found);
        if (inBody)
            levels->pop_back();
    }
    return true;
}

Found findAt(const Template &tpl, uint32_t offset)
{
    Found found;
    Levels levels;
    for (const Item &item : tpl.items)
        if (item.command && findInCommand(*item.command, offset, &levels, &found))
            break;
    const FieldRange fields = fieldsIn(tpl, {offset > 200 ? offset - 200 : 0, offset + 1});
    for (size_t i = fields.first; i < fields.last; ++i)
        if (tpl.fields[i].span.contains(offset))
            found.field = &tpl.fields[i];
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
static constexpr const char *describeCommand(uint32_t id)
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
                                  [](const CommandDef &row) { return describeCommand(row.id); }),
              "editors show a description of each command: add its row");

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

static string describeVariable(Site &site, const string &key)
{
    string text = "`$var:" + key + "`\n";
    if (site.fromWeb.contains(key))
        text += "\n- set by the web program";
    else if (isFromWeb(site, key))
        text += "\n- sent by a form or a link of the site";
    for (const VariableUse *use : setsOf(site, key)) {
        const LineColumn place = placeOf(*use->tpl, use->span.at);
        text += "\n- set in " + use->tpl->path + ":" + std::to_string(place.line);
    }
    return text;
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
    if (found.element && found.element->type != ELEM_NUMVAR)
        return keyOfRead(*found.element);
    if (found.onName)
        return keyOfSet(*found.command);
    return "";
}

string hoverText(Site &site, const Template &, const Found &found)
{
    if (found.field)
        return describeText(site, string(found.field->id));
    if (found.element && found.element->type == ELEM_NUMVAR)
        return describeValue(site, *found.element, found.levels);
    if (const string key = keyAt(found); !key.empty())
        return describeVariable(site, key);
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

std::vector<FilePlace> definitionsOf(const Site &site, const Template &tpl, const Found &found)
{
    std::vector<FilePlace> places;
    if (found.field)
        addTexts(site, found.field->id, &places);
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
    if (definitions)
        addSets(site, key, &places);
    return places;
}

// ---- completion ----

static constexpr int KIND_VARIABLE = 6;
static constexpr int KIND_FIELD = 5;
static constexpr int KIND_KEYWORD = 14;
static constexpr int KIND_TEXT = 1;
static constexpr int KIND_FILE = 17;

static std::vector<Completion> completeTexts(const Site &site)
{
    std::map<string, string> ids;
    for (const Language &language : site.languages)
        for (const auto &[id, text] : language.texts)
            ids.emplace(id, text.text);
    std::vector<Completion> list;
    list.reserve(ids.size());
    for (const auto &[id, text] : ids)
        list.push_back({id, text, KIND_TEXT});
    return list;
}

static std::vector<Completion> completeVariables(const Site &site)
{
    std::set<string> names(site.fromWeb.begin(), site.fromWeb.end());
    names.insert(site.fromForms.begin(), site.fromForms.end());
    for (const auto &[key, variable] : site.variables)
        if (!variable.sets.empty() && !key.ends_with("[*]"))
            names.insert(key);
    std::vector<Completion> list;
    list.reserve(names.size());
    for (const string &name : names)
        list.push_back({name, "", KIND_VARIABLE});
    return list;
}

static std::vector<Completion> completeKeywords()
{
    std::vector<Completion> list;
    for (const CommandDef &row : commandTable)
        if (row.id != ID_SETARRAY && row.id != ID_SETARRAYONCE)
            list.push_back({wordsOf(row.id) + (row.tail == Tail::NAME ? " var:" : " "),
                            describeCommand(row.id), KIND_KEYWORD});
    return list;
}

static std::vector<Completion> completeColumns(Site &site, const Levels &levels)
{
    std::vector<Completion> list;
    for (size_t level = 0; level < levels.size() && level < 10; ++level) {
        const string prefix = "$" + (level > 0 ? std::to_string(level) : "");
        const RowsOf &rows = rowsOf(site, *levels[level]);
        list.push_back({prefix + "0", "the counter of " + wordsOf(levels[level]->id), KIND_FIELD});
        for (size_t i = 0; i < rows.columns.size() && i < ORV_MAX_COLUMNS; ++i)
            list.push_back({prefix + static_cast<char>(i < 9 ? '1' + i : 'a' + i - 9),
                            rows.columns[i].name, KIND_FIELD});
    }
    return list;
}

std::vector<Completion> completionsAt(Site &site, const Template &tpl, uint32_t offset,
                                      uint32_t *typed)
{
    const string_view before = string_view(fileOf(tpl)).substr(0, inFile(tpl, offset));
    size_t begin = before.size();
    while (begin > 0 && (isFieldByte(before[begin - 1]) || strchr("[]-/", before[begin - 1])))
        --begin;
    const string_view word = before.substr(begin);
    const string_view front = before.substr(0, begin);
    *typed = static_cast<uint32_t>(word.size());
    if (front.ends_with("{?"))
        return completeTexts(site);
    if (front.ends_with("$") && word.starts_with("var:")) {
        *typed = static_cast<uint32_t>(word.size() - 4);
        return completeVariables(site);
    }
    if (front.ends_with("$") && !word.starts_with("v")) {
        *typed = static_cast<uint32_t>(word.size() + 1);
        return completeColumns(site, findAt(tpl, offset).levels);
    }
    const size_t start = before.rfind("<?");
    if (start == string_view::npos || before.find("?>", start) != string_view::npos)
        return {};
    string_view inside = before.substr(start + 2);
    inside.remove_prefix(std::min(inside.find_first_not_of(" \t\r\n"), inside.size()));
    std::vector<Completion> list;
    if (inside.starts_with("include ") || inside.starts_with("base64 ")) {
        for (const string &file : site.files)
            list.push_back({file, "", KIND_FILE});
        return list;
    }
    return inside.size() == word.size() ? completeKeywords() : list;
}

uint32_t offsetOfUnits(const Template &tpl, uint32_t line, uint32_t unit)
{
    const string &file = fileOf(tpl);
    if (line >= tpl.lineStarts.size())
        return static_cast<uint32_t>(tpl.source.size());
    uint32_t at = tpl.lineStarts[line];
    for (uint32_t units = 0; at < file.size() && file[at] != '\n' && units < unit;) {
        const auto byte = static_cast<unsigned char>(file[at]);
        units += byte >= 0xF0 ? 2 : 1;
        ++at;
        while (at < file.size() && (static_cast<unsigned char>(file[at]) & 0xC0) == 0x80)
            ++at;
    }
    return inSource(tpl, at);
}
