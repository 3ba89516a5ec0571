/* tools/check/schema.cpp - asks SQLite for the tables, and finds their names in statements
 * that need not be complete. */
#include "schema.h"

#include <sqlite3.h>
#include <strings.h>

#include <algorithm>
#include <initializer_list>

using std::string;
using std::string_view;

bool isSameName(string_view a, string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

static bool isAnyName(string_view word, std::initializer_list<string_view> words)
{
    return std::any_of(words.begin(), words.end(),
                       [&](string_view each) { return isSameName(word, each); });
}

// ---- the tables ----

static string textOf(sqlite3_stmt *row, int column)
{
    const unsigned char *text = sqlite3_column_text(row, column);
    return text ? reinterpret_cast<const char *>(text) : "";
}

// Runs a query that reads the schema, of which nothing is left where it fails.
template <typename Take>
static void askSchema(sqlite3 *db, const char *query, std::initializer_list<string> values,
                      Take take)
{
    sqlite3_stmt *row = nullptr;
    int index = 0;
    sqlite3_prepare_v2(db, query, -1, &row, nullptr);
    for (const string &value : values)
        sqlite3_bind_text(row, ++index, value.c_str(), -1, SQLITE_TRANSIENT);
    while (row && sqlite3_step(row) == SQLITE_ROW)
        take(row);
    sqlite3_finalize(row);
}

std::vector<Table> readSchema(sqlite3 *db)
{
    std::vector<Table> schema;
    askSchema(db,
              "select schema, name from pragma_table_list where type in ('table', 'view', "
              "'virtual') and name not like 'sqlite\\_%' escape '\\' order by name, schema",
              {}, [&](sqlite3_stmt *row) {
                  schema.push_back({textOf(row, 0), textOf(row, 1), "", {}});
              });
    for (Table &table : schema) {
        askSchema(db, "select name, type from pragma_table_xinfo(?, ?)",
                  {table.name, table.database}, [&](sqlite3_stmt *row) {
                      table.columns.push_back({textOf(row, 0), textOf(row, 1)});
                  });
        char *const query = sqlite3_mprintf("select sql from \"%w\".sqlite_schema where name = ?",
                                            table.database.c_str());
        askSchema(db, query, {table.name},
                  [&](sqlite3_stmt *row) { table.statement = textOf(row, 0); });
        sqlite3_free(query);
    }
    return schema;
}

// ---- statements ----

// A name without its quotes.
static string_view nameOf(string_view sql, const SqlPiece &piece)
{
    const size_t quoted = piece.token == SqlToken::NAME && piece.end - piece.at >= 2;
    return sql.substr(piece.at + quoted, piece.end - piece.at - 2 * quoted);
}

static bool isName(const SqlPiece &piece)
{
    return piece.token == SqlToken::WORD || piece.token == SqlToken::NAME;
}

static bool isKeywordOfSql(string_view word)
{
    return sqlite3_keyword_check(word.data(), static_cast<int>(word.size())) != 0;
}

std::vector<NamedTable> tablesIn(string_view sql, const std::vector<Table> &schema)
{
    std::vector<NamedTable> named;
    const std::vector<SqlPiece> pieces = scanSql(sql);
    for (size_t i = 0; i < pieces.size(); ++i) {
        const auto table = std::find_if(schema.begin(), schema.end(), [&](const Table &each) {
            return isName(pieces[i]) && isSameName(each.name, nameOf(sql, pieces[i]));
        });
        if (table == schema.end())
            continue;
        size_t next = i + 1;
        if (next < pieces.size() && isSameName(nameOf(sql, pieces[next]), "as"))
            ++next;
        const bool hasAlias = next < pieces.size() && isName(pieces[next]) &&
                              !isKeywordOfSql(nameOf(sql, pieces[next]));
        named.push_back(
            {&*table, string(hasAlias ? nameOf(sql, pieces[next]) : nameOf(sql, pieces[i]))});
    }
    return named;
}

// Whether a table can follow: behind from or join, or a comma of their list.
static bool wantsTable(string_view sql, const std::vector<SqlPiece> &pieces)
{
    for (size_t i = pieces.size(); i-- > 0;) {
        const string_view word = nameOf(sql, pieces[i]);
        const bool isLast = i + 1 == pieces.size();
        if (isAnyName(word, {"from", "join", "into", "update"}))
            return isLast || nameOf(sql, pieces.back()) == ",";
        if (word == "(" || word == ")" ||
            isAnyName(word,
                      {"select", "where", "on", "by", "having", "set", "values", "limit", "using"}))
            return false;
    }
    return false;
}

SqlPlace placeInSql(string_view before)
{
    std::vector<SqlPiece> pieces = scanSql(before);
    const size_t size = before.size();
    if (inSqlString(before))
        return {SqlWanted::NOTHING, size, ""};
    if (before.ends_with(":"))
        return {SqlWanted::PARAMETER, size, ""};
    size_t begin = size;
    if (!pieces.empty() && pieces.back().end == size) {
        if (pieces.back().token == SqlToken::PARAMETER)
            return {SqlWanted::PARAMETER, pieces.back().at + 1, ""};
        if (pieces.back().token == SqlToken::NUMBER)
            return {SqlWanted::NOTHING, size, ""};
        if (pieces.back().token == SqlToken::WORD) {
            begin = pieces.back().at;
            pieces.pop_back();
        }
    }
    if (pieces.size() >= 2 && nameOf(before, pieces.back()) == "." &&
        isName(pieces[pieces.size() - 2])) {
        const string owner(nameOf(before, pieces[pieces.size() - 2]));
        pieces.resize(pieces.size() - 2);
        return {wantsTable(before, pieces) ? SqlWanted::TABLE : SqlWanted::COLUMN, begin, owner};
    }
    return {wantsTable(before, pieces) ? SqlWanted::TABLE : SqlWanted::COLUMN, begin, ""};
}

string_view sqlWordAt(string_view sql, size_t offset)
{
    for (const SqlPiece &piece : scanSql(sql))
        if (piece.at <= offset && offset < piece.end &&
            (isName(piece) || piece.token == SqlToken::PARAMETER))
            return piece.token == SqlToken::PARAMETER ? sql.substr(piece.at, piece.end - piece.at)
                                                      : nameOf(sql, piece);
    return {};
}
