/* tools/check/rows.cpp - counts rows before there are any. */
#include "rows.h"

#include <sqlite3.h>

#include <algorithm>

#include "assemble.h"
#include "grammar/commands.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

// The words of a query outside of brackets, with a "(" behind those that one follows.
static std::vector<string> sqlWordsOf(string_view query)
{
    std::vector<string> words;
    int depth = 0;
    for (const SqlPiece &piece : scanSql(query)) {
        const string word = lowered(query.substr(piece.at, piece.end - piece.at));
        if (word == "(" && depth++ == 0 && !words.empty())
            words.back() += "(";
        else if (word == ")")
            --depth;
        else if (depth == 0 && word != "(")
            words.push_back(word);
    }
    return words;
}

static bool has(const std::vector<string> &words, std::span<const string_view> wanted)
{
    return std::ranges::any_of(
        words, [&](const string &word) { return std::ranges::find(wanted, word) != wanted.end(); });
}

// Whether a table keeps itself to one row: create table t (id integer check (id = 1)).
static bool isSingle(sqlite3 *db, const string &table)
{
    sqlite3_stmt *statement = nullptr;
    bool single = false;
    if (sqlite3_prepare_v2(db, "select sql from sqlite_schema where name = ?", -1, &statement,
                           nullptr) == SQLITE_OK) {
        sqlite3_bind_text(statement, 1, table.c_str(), -1, SQLITE_TRANSIENT);
        if (sqlite3_step(statement) == SQLITE_ROW)
            if (const auto *sql = sqlite3_column_text(statement, 0)) {
                string text = lowered(reinterpret_cast<const char *>(sql));
                std::erase(text, ' ');
                for (size_t at = 0; (at = text.find("check(", at)) != string::npos; ++at) {
                    const string inner = text.substr(at + 6, text.find(')', at) - at - 6);
                    const size_t sign = inner.find('=');
                    single = single ||
                             (sign != string::npos && sign + 1 < inner.size() &&
                              inner.find_first_not_of("0123456789", sign + 1) == string::npos &&
                              inner.find_first_of("<>!") == string::npos);
                }
            }
    }
    sqlite3_finalize(statement);
    return single;
}

// Whether a step of a query's plan finds one row at most.
static bool findsOne(sqlite3 *db, const string &step)
{
    if (step.starts_with("SCAN CONSTANT ROW"))
        return true;
    if (step.starts_with("SEARCH") &&
        step.find("USING INTEGER PRIMARY KEY (rowid=?)") != string::npos)
        return true;
    const size_t space = step.find(' ');
    const string table = step.substr(space + 1, step.find(' ', space + 1) - space - 1);
    return isSingle(db, table);
}

// Whether the database's plan of a query tells that it answers one row at most.
static bool answersOne(sqlite3 *db, const string &query)
{
    sqlite3_stmt *statement = nullptr;
    bool one = true;
    size_t steps = 0;
    if (sqlite3_prepare_v2(db, ("explain query plan " + query).c_str(), -1, &statement, nullptr) !=
        SQLITE_OK)
        return false;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        const auto *bytes = sqlite3_column_text(statement, 3);
        const string step = bytes ? reinterpret_cast<const char *>(bytes) : "";
        if (sqlite3_column_int(statement, 1) != 0 ||
            !(step.starts_with("SCAN") || step.starts_with("SEARCH")))
            continue;
        ++steps;
        one = one && findsOne(db, step);
    }
    sqlite3_finalize(statement);
    return one && steps > 0;
}

static RowBounds boundsOfQuery(sqlite3 *db, const string &query)
{
    static constexpr string_view aggregates[] = {"count(",
                                                 "sum(",
                                                 "avg(",
                                                 "total(",
                                                 "group_concat(",
                                                 "json_group_array(",
                                                 "json_group_object("};
    static constexpr string_view several[] = {"union",  "intersect", "except", "group",
                                              "having", "limit",     "values("};
    static constexpr string_view sources[] = {"from", "where"};
    static constexpr string_view wheres[] = {"where"};
    const std::vector<string> words = sqlWordsOf(query);
    if (words.empty() || words[0] == "with")
        return {0, 2, false};
    const auto limit = std::ranges::find(words, "limit");
    const bool isOne = limit != words.end() && limit + 1 != words.end() && limit[1] == "1";
    if (has(words, several))
        return {0, isOne ? size_t{1} : size_t{2}, false};
    if (words[0] == "select" && (has(words, aggregates) || !has(words, sources)))
        return {1, 1, true};
    if (db && answersOne(db, query))
        return {0, 1, false};
    // Without a schema a condition may be one for a single row.
    return {0, !db && has(words, wheres) ? size_t{1} : size_t{2}, false};
}

RowBounds rowBoundsOf(Site &site, const Template &tpl, const Command &command)
{
    const bool single = printsOf(command) == Prints::BODY;
    RowBounds bounds = {0, single ? size_t{1} : size_t{2}, false};
    const auto place = site.queries.find(&command);
    if (command.args.empty() || place == site.queries.end())
        return bounds;
    const auto queries = queriesOf(site, tpl, command, *place->second.levels);
    if (queries.size() != 1 || hasUnknown(queries[0]) || !looksLikeSql(queries[0].text))
        return bounds;
    sqlite3 *db = site.database ? site.database->db : nullptr;
    bounds = boundsOfQuery(db, queries[0].text);
    if (single)
        bounds.most = std::min<size_t>(bounds.most, 1);
    return bounds;
}
