/* tools/check/mentions.cpp - looks for names in the texts of arguments, as SQL, and among
 * those that forms and links send. */
#include "mentions.h"

#include <algorithm>

#include "grammar/commands.h"
#include "tools/common/files.h"

using std::string;
using std::string_view;

// ---- SQL ----

namespace
{
// The text of an argument with blanks for all that is no text of its own, place by place.
struct SqlText {
    uint32_t at; // in the template's source
    string text;
};
} // namespace

static SqlText textOf(const Template &tpl, const Argument &argument)
{
    if (argument.elements.empty())
        return {0, ""};
    const uint32_t at = argument.elements.front().span.at;
    SqlText sql = {at, string(argument.elements.back().span.end - at, ' ')};
    for (const Element &element : argument.elements)
        if (element.type == ELEM_TEXT)
            sql.text.replace(element.span.at - at, element.span.end - element.span.at, tpl.source,
                             element.span.at, element.span.end - element.span.at);
    return sql;
}

static bool isQuery(const Command &command, const Argument &argument, string_view text)
{
    const bool asks = (command.id & CMDF_QUERY) && &argument == command.args.data();
    return asks || looksLikeSql(text);
}

static Mention nameInSql(const Site &site, string_view sql, size_t offset)
{
    const string_view word = sqlWordAt(sql, offset);
    if (word.starts_with(":"))
        return {Names::PARAMETER, string(word.substr(1))};
    if (word.empty() || !site.database)
        return {};
    const std::vector<Table> schema = readSchema(site.database->db);
    const std::vector<NamedTable> named = tablesIn(sql, schema);
    for (const auto &[table, alias] : named)
        if (isSameName(word, table->name) || isSameName(word, alias))
            return {Names::TABLE, table->name, *table};
    for (const auto &[table, alias] : named)
        for (const TableColumn &column : table->columns)
            if (isSameName(word, column.name))
                return {Names::COLUMN, column.name, *table};
    return {};
}

std::vector<MentionPlace> parametersOf(const Site &site, string_view name)
{
    std::vector<MentionPlace> places;
    for (const auto &[command, place] : site.queries) {
        if (command->args.empty())
            continue;
        const SqlText sql = textOf(*place.tpl, command->args[0]);
        for (const SqlPiece &piece : scanSql(sql.text))
            if (piece.token == SqlToken::PARAMETER &&
                string_view(sql.text).substr(piece.at + 1, piece.end - piece.at - 1) == name)
                places.push_back({place.tpl,
                                  {sql.at + static_cast<uint32_t>(piece.at),
                                   sql.at + static_cast<uint32_t>(piece.end)}});
    }
    std::sort(places.begin(), places.end(), [](const MentionPlace &a, const MentionPlace &b) {
        return a.tpl == b.tpl ? a.span.at < b.span.at : a.tpl->path < b.tpl->path;
    });
    return places;
}

// Whether a statement's words begin by making that table or view.
static bool makes(string_view script, const SqlPiece *piece, const SqlPiece *end, string_view name)
{
    const auto isWord = [&](string_view word) {
        return piece < end && isSameName(script.substr(piece->at, piece->end - piece->at), word);
    };
    if (!isWord("create"))
        return false;
    ++piece;
    for (const char *word :
         {"temp", "temporary", "virtual", "table", "view", "if", "not", "exists"})
        piece += isWord(word);
    const size_t quoted = piece < end && piece->token == SqlToken::NAME;
    return piece < end &&
           isSameName(script.substr(piece->at + quoted, piece->end - piece->at - 2 * quoted), name);
}

// The line of the last statement of a script that makes a table, 0 without any.
static uint32_t lineOf(string_view script, string_view table)
{
    const std::vector<SqlPiece> pieces = scanSql(script);
    for (size_t i = pieces.size(); i-- > 0;)
        if (makes(script, &pieces[i], pieces.data() + pieces.size(), table)) {
            const string_view before = script.substr(0, pieces[i].at);
            return static_cast<uint32_t>(std::count(before.begin(), before.end(), '\n')) + 1;
        }
    return 0;
}

ScriptPlace madeBy(const Site &site, const Table &table)
{
    ScriptPlace made = {"", 0};
    for (const SiteDatabase &database : site.options.databases)
        for (const string &path : databaseFiles(database)) {
            string script;
            const bool isRead = database.name == table.database && path.ends_with(".sql") &&
                                readBytes(path.c_str(), &script);
            if (const uint32_t line = isRead ? lineOf(script, table.name) : 0)
                made = {path, line};
        }
    return made;
}

// ---- forms ----

static string fieldAt(const Site &site, const Template &tpl, uint32_t offset)
{
    for (const auto &[name, places] : site.senders)
        for (const auto &[sender, span] : places)
            if (sender == &tpl && span.contains(offset))
                return name;
    return "";
}

Mention mentionAt(const Site &site, const Template &tpl, const Command *command,
                  const Argument *argument, uint32_t offset)
{
    if (argument) {
        const SqlText sql = textOf(tpl, *argument);
        if (isQuery(*command, *argument, sql.text))
            return nameInSql(site, sql.text, offset - sql.at);
    }
    const string name = fieldAt(site, tpl, offset);
    return name.empty() ? Mention() : Mention{Names::FORM_FIELD, name};
}
