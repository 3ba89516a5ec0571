/* tools/check/complete.cpp - completions, each kind by the rule of where it can stand. The
 * rules are asked in turn, and the first that the place is for answers, with nothing, too. */
#include "complete.h"

#include <string.h>

#include <algorithm>
#include <set>

#include "assemble.h"
#include "grammar/commands.h"
#include "lookup.h"
#include "schema.h"
#include "typing.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

namespace
{
struct TypingPlace {
    Site &site;
    const Template &tpl;
    string_view before; // the file up to the place
    const Typing &typing;

    const OpenCommand *command() const // the innermost, null outside
    {
        return typing.open.empty() ? nullptr : &typing.open.back();
    }
};

// A rule returns false where it is not for the place.
using Completer = bool (*)(const TypingPlace &place, Completions *all);
} // namespace

// The text in front of the place behind the last byte that is not of those.
static string_view tailOf(string_view before, bool (*isOf)(char))
{
    size_t begin = before.size();
    while (begin > 0 && isOf(before[begin - 1]))
        --begin;
    return before.substr(begin);
}

static string_view without(string_view text, size_t tail)
{
    return text.substr(0, text.size() - tail);
}

// ---- texts ----

static bool completeTexts(const TypingPlace &place, Completions *all)
{
    const string_view id = tailOf(place.before, isFieldByte);
    if (!without(place.before, id.size()).ends_with("{?"))
        return false;
    std::map<string, string> ids;
    for (const Language &language : place.site.languages)
        for (const auto &[known, text] : language.texts)
            ids.emplace(known, text.text);
    all->begin = static_cast<uint32_t>(place.before.size() - id.size());
    for (auto &[known, text] : ids)
        all->list.push_back({known, std::move(text), CompletionKind::TEXT});
    return true;
}

// ---- comments ----

static bool completeKinds(const TypingPlace &place, Completions *all)
{
    static constexpr string_view key = "orv-check: ignore ";
    if (!place.typing.inComment)
        return false;
    const string_view comment = place.before.substr(place.typing.commentAt);
    const size_t at = comment.find(key);
    if (at == string_view::npos || comment.find(':', at + key.size()) != string_view::npos)
        return true; // behind the kinds comes the reason
    const string_view word = tailOf(comment, [](char c) { return isLetterOrDigit(c) || c == '-'; });
    all->begin = static_cast<uint32_t>(place.before.size() - word.size());
    for (const Kind &kind : allKinds())
        all->list.push_back({kind.id, kind.explanation, CompletionKind::KEYWORD});
    return true;
}

// ---- variables and values ----

static string whereFrom(const Site &site, const string &key)
{
    if (site.fromWeb.contains(key))
        return "set by the web program";
    const auto sets = setsOf(site, key);
    return sets.empty() ? "sent by a form or a link" : "set in " + sets.front()->tpl->path;
}

// All variables and elements that somebody sets.
static std::set<string> knownKeys(const Site &site)
{
    std::set<string> keys(site.fromWeb.begin(), site.fromWeb.end());
    keys.insert(site.fromForms.begin(), site.fromForms.end());
    for (const auto &[key, variable] : site.variables)
        if (!variable.sets.empty() && !key.ends_with("[*]"))
            keys.insert(key);
    return keys;
}

static void addVariables(const Site &site, const string &prefix, Completions *all)
{
    for (const string &key : knownKeys(site)) {
        const bool isArray = key.ends_with("[]"); // of which all elements are set
        all->list.push_back({prefix + (isArray ? key.substr(0, key.size() - 1) : key),
                             whereFrom(site, key), CompletionKind::VARIABLE});
    }
}

// The indices of an array, and for a reference its bounds.
static bool completeIndex(const TypingPlace &place, Completions *all)
{
    const string_view index = tailOf(place.before, isLetterOrDigit);
    string_view front = without(place.before, index.size());
    if (!place.command() || !front.ends_with("["))
        return false;
    front.remove_suffix(1);
    const string_view array = tailOf(front, isLetterOrDigit);
    front.remove_suffix(array.size());
    if (array.empty() || !front.ends_with("var:"))
        return false;
    all->begin = static_cast<uint32_t>(place.before.size() - index.size());
    const string prefix = string(array) + "[";
    for (const string &key : knownKeys(place.site))
        if (key.starts_with(prefix) && key.size() > prefix.size() + 1)
            all->list.push_back({key.substr(prefix.size(), key.size() - prefix.size() - 1),
                                 whereFrom(place.site, key), CompletionKind::VARIABLE});
    if (front.ends_with("$var:"))
        for (const char *bound : {"min", "max"})
            all->list.push_back(
                {bound, string("the array's ") + bound + " index", CompletionKind::KEYWORD});
    return true;
}

namespace
{
// Lets the site answer for the queries around the place, while it lives.
struct BorrowedQueries {
    Site &site;
    const Typing &typing;

    BorrowedQueries(Site &of, const Typing &at) : site(of), typing(at)
    {
        Levels outer;
        for (const Command *command : typing.levels) {
            site.queries[command] = {&typing.heads, std::make_shared<const Levels>(outer)};
            outer.push_back(command);
        }
    }
    BorrowedQueries(const BorrowedQueries &) = delete;
    BorrowedQueries &operator=(const BorrowedQueries &) = delete;
    ~BorrowedQueries()
    {
        for (const Command *command : typing.levels) {
            site.queries.erase(command);
            site.rows.erase(command);
        }
    }
};
} // namespace

static void addValues(const TypingPlace &place, Completions *all)
{
    const BorrowedQueries borrowed(place.site, place.typing);
    const Levels &levels = place.typing.levels;
    for (size_t level = 0; level < levels.size() && level < 10; ++level) {
        const string prefix = "$" + (level > 0 ? std::to_string(level) : "");
        const string of = wordsOf(levels[level]->id);
        const RowsOf &rows = rowsOf(place.site, *levels[level]);
        if (rows.counts)
            all->list.push_back({prefix + "0", "the counter of " + of, CompletionKind::FIELD});
        for (size_t i = 0; i < rows.columns.size() && i < ORV_MAX_COLUMNS; ++i)
            all->list.push_back({prefix + static_cast<char>(i < 9 ? '1' + i : 'a' + i - 9),
                                 rows.columns[i].name + " of " + of, CompletionKind::FIELD});
    }
}

static bool completeReference(const TypingPlace &place, Completions *all)
{
    const string_view word =
        tailOf(place.before, [](char c) { return isLetterOrDigit(c) || c == ':'; });
    const string_view front = without(place.before, word.size());
    const size_t dollars = front.size() - (front.find_last_not_of('$') + 1);
    if (!place.command() || dollars % 2 == 0) // two are one sign of text
        return false;
    all->begin = static_cast<uint32_t>(front.size() - 1);
    addValues(place, all);
    addVariables(place.site, "$var:", all);
    return true;
}

// The name behind setvariable.
static bool completeName(const TypingPlace &place, Completions *all)
{
    const string_view name = tailOf(place.before, isLetterOrDigit);
    string_view front = without(place.before, name.size());
    if (!front.ends_with("var:"))
        return false;
    front = tailOf(front.substr(0, front.find_last_not_of(" \t\r\n", front.size() - 5) + 1),
                   isLetterOrDigit);
    if (front != "setvariable" && front != "setvariableonce")
        return false;
    all->begin = static_cast<uint32_t>(place.before.size() - name.size());
    addVariables(place.site, "", all);
    return true;
}

// ---- commands ----

// A command's words with what has to follow them.
static string formOf(const CommandDef &row)
{
    return wordsOf(row.id) + (row.tail == Tail::NAME ? " var:" : " ");
}

// White space between words is one blank, in front of them none.
static string inOneBlank(string_view text)
{
    string out;
    for (const char c : text)
        if (!strchr(" \t\r\n", c))
            out += c;
        else if (!out.empty() && out.back() != ' ')
            out += ' ';
    return out;
}

static bool completeKeywords(const TypingPlace &place, Completions *all)
{
    const size_t start = place.before.rfind("<?");
    if (start == string_view::npos)
        return false;
    const string typed = inOneBlank(place.before.substr(start + 2));
    const size_t word = typed.rfind(' ') + 1; // what is replaced begins there
    for (const CommandDef &row : commandTable) {
        const string form = formOf(row);
        const bool isSecond = row.id == ID_SETARRAY || row.id == ID_SETARRAYONCE;
        if (isSecond || !form.starts_with(typed) || form.size() == typed.size())
            continue;
        all->list.push_back({form.substr(word), describeCommand(row.id),
                             word > 0 ? CompletionKind::OPERATOR : CompletionKind::KEYWORD});
    }
    all->begin = static_cast<uint32_t>(place.before.size() - (typed.size() - word));
    return !all->list.empty();
}

// The bracket in front of repeat's body.
static bool completeBracket(const TypingPlace &place, Completions *all)
{
    const OpenCommand *command = place.command();
    if (!command || (command->token != F_REPEATINCL && command->token != F_REPEATEXCL) ||
        command->argument() != 2 || command->ats.back() != place.before.size())
        return false;
    all->begin = static_cast<uint32_t>(place.before.size());
    all->list = {{"] ", "the last number is among them", CompletionKind::OPERATOR},
                 {"[ ", "the last number is left out", CompletionKind::OPERATOR}};
    return true;
}

// ---- files ----

static bool completePath(const TypingPlace &place, Completions *all)
{
    const OpenCommand *command = place.command();
    if (!command || command->argument() != 0 ||
        (command->token != F_INCLUDE && command->token != F_BASE64))
        return false;
    all->begin = static_cast<uint32_t>(command->textAt());
    const bool wantsTemplate = command->token == F_INCLUDE;
    std::set<string> paths(place.site.files.begin(), place.site.files.end());
    for (const auto &[path, tpl] : place.site.templates)
        paths.insert(path);
    for (const string &path : paths)
        if (path != place.tpl.path && place.site.templates.contains(path) == wantsTemplate)
            all->list.push_back({path, "", CompletionKind::PATH});
    return true;
}

// ---- SQL ----

// The whole text of the argument that is being typed, the rest of it as far as it goes.
static string_view wholeText(const TypingPlace &place, const OpenCommand &command)
{
    const string_view file = fileOf(place.tpl);
    const size_t at = place.before.size();
    const size_t end = std::min(
        {file.find("?>", at), file.size(), command.quote ? file.find(command.quote, at) : at});
    return file.substr(command.textAt(), end - command.textAt());
}

// The variables that a parameter can stand for.
static void addParameters(const Site &site, Completions *all)
{
    for (const string &key : knownKeys(site))
        if ((site.fromWeb.contains(key) || site.fromForms.contains(key)) &&
            key.find('[') == string::npos)
            all->list.push_back({key, whereFrom(site, key), CompletionKind::PARAMETER});
}

static void addTables(const std::vector<Table> &schema, const string &owner, Completions *all)
{
    for (const Table &table : schema)
        if (owner.empty() || isSameName(owner, table.database))
            all->list.push_back({table.name, table.database == "main" ? "" : "of " + table.database,
                                 CompletionKind::TABLE});
}

// Columns of the tables that the statement names, or of all where it names none yet.
static void addColumns(const std::vector<Table> &schema, string_view sql, const string &owner,
                       Completions *all)
{
    std::vector<NamedTable> named = tablesIn(sql, schema);
    if (named.empty())
        for (const Table &table : schema)
            named.push_back({&table, table.name});
    std::set<const Table *> seen;
    for (const auto &[table, alias] : named) {
        const bool isOwner = isSameName(owner, alias) || isSameName(owner, table->name);
        if ((!owner.empty() && !isOwner) || !seen.insert(table).second)
            continue;
        for (const TableColumn &column : table->columns)
            all->list.push_back(
                {column.name, (column.type.empty() ? "" : column.type + " ") + "of " + table->name,
                 CompletionKind::FIELD});
    }
}

static bool completeSql(const TypingPlace &place, Completions *all)
{
    const OpenCommand *command = place.command();
    if (!command)
        return false;
    const string_view text = place.before.substr(command->textAt());
    const bool isQuery = (commandOf(command->token).id & CMDF_QUERY) && command->argument() == 0;
    if (!isQuery && !(command->quote && looksLikeSql(text)))
        return false;
    const SqlPlace sql = placeInSql(text);
    all->begin = static_cast<uint32_t>(command->textAt() + sql.begin);
    if (sql.wanted == SqlWanted::PARAMETER)
        addParameters(place.site, all);
    if (!place.site.database || sql.wanted < SqlWanted::TABLE || sql.wanted > SqlWanted::COLUMN)
        return true;
    const std::vector<Table> schema = readSchema(place.site.database->db);
    if (sql.wanted == SqlWanted::TABLE)
        addTables(schema, sql.owner, all);
    else
        addColumns(schema, wholeText(place, *command), sql.owner, all);
    return true;
}

// ---- the whole ----

Completions completionsAt(Site &site, const Template &tpl, uint32_t offset)
{
    static constexpr Completer rules[] = {
        completeTexts,     completeKinds, completeKeywords, completeName, completeIndex,
        completeReference, completePath,  completeBracket,  completeSql,
    };
    Typing typing;
    readTyping(tpl, offset, &typing);
    const TypingPlace place = {site, tpl, string_view(fileOf(tpl)).substr(0, offset), typing};
    Completions all;
    for (const Completer rule : rules)
        if (rule(place, &all))
            break;
    return all;
}
