/* tools/check/sql.cpp - statements as SQLite prepares them, and the words of their text,
 * for the places that SQLite does not tell. */
#include "sql.h"
#include "host/ascii.h"
#include "tools/common/words.h"

#include <sqlite3.h>
#include <string.h>

#include <algorithm>
#include <initializer_list>

using std::string;
using std::string_view;

static bool isWordByte(char c)
{
    return isLetterOrDigit(c) || c == '_' || c == '$' || (c & 0x80);
}

// ---- words and signs ----

// Behind a string or name that is quoted at that offset; a doubled quote belongs to it.
static size_t passQuoted(string_view sql, size_t at)
{
    const char quote = sql[at] == '[' ? ']' : sql[at];
    for (size_t i = at + 1; i < sql.size(); ++i) {
        if (sql[i] != quote)
            continue;
        if (quote == ']' || i + 1 >= sql.size() || sql[i + 1] != quote)
            return i + 1;
        ++i;
    }
    return sql.size();
}

static size_t passComment(string_view sql, size_t at)
{
    const bool line = sql[at] == '-';
    const size_t end = sql.find(line ? "\n" : "*/", at + 2);
    return end == string_view::npos ? sql.size() : end + (line ? 1 : 2);
}

static size_t passWord(string_view sql, size_t at)
{
    while (at < sql.size() && isWordByte(sql[at]))
        ++at;
    return at;
}

static size_t passNumber(string_view sql, size_t at)
{
    while (at < sql.size() && (isWordByte(sql[at]) || sql[at] == '.' ||
                               ((sql[at] == '+' || sql[at] == '-') && toSmall(sql[at - 1]) == 'e')))
        ++at;
    return at;
}

static size_t passSign(string_view sql, size_t at)
{
    for (const char *sign : {"->>", "->", "||", "<=", ">=", "<>", "!=", "==", "<<", ">>"})
        if (sql.compare(at, strlen(sign), sign) == 0)
            return at + strlen(sign);
    return at + 1;
}

std::vector<SqlPiece> scanSql(string_view sql)
{
    std::vector<SqlPiece> pieces;
    for (size_t at = 0; at < sql.size();) {
        const char c = sql[at];
        const char next = at + 1 < sql.size() ? sql[at + 1] : '\0';
        if (strchr(" \t\n\r\f\v", c) && c) {
            ++at;
            continue;
        }
        if ((c == '-' && next == '-') || (c == '/' && next == '*')) {
            at = passComment(sql, at);
            continue;
        }
        SqlPiece piece = {SqlToken::SIGN, at, 0};
        if (c == '\'') {
            piece = {SqlToken::STRING, at, passQuoted(sql, at)};
        } else if (c == '"' || c == '`' || c == '[') {
            piece = {SqlToken::NAME, at, passQuoted(sql, at)};
        } else if ((c >= '0' && c <= '9') || (c == '.' && next >= '0' && next <= '9')) {
            piece = {SqlToken::NUMBER, at, passNumber(sql, at + 1)};
        } else if (c == '?' || ((c == ':' || c == '@' || c == '$') && isWordByte(next))) {
            piece = {SqlToken::PARAMETER, at, passWord(sql, at + 1)};
        } else if (isWordByte(c)) {
            piece = {SqlToken::WORD, at, passWord(sql, at)};
        } else {
            piece.end = passSign(sql, at);
        }
        pieces.push_back(piece);
        at = piece.end;
    }
    return pieces;
}

bool inSqlString(string_view before)
{
    const std::vector<SqlPiece> pieces = scanSql(before);
    if (pieces.empty())
        return false;
    const SqlPiece &last = pieces.back();
    if (last.token != SqlToken::STRING && last.token != SqlToken::NAME)
        return false;
    const string_view text = before.substr(last.at, last.end - last.at);
    if (last.end != before.size())
        return false;
    // The end of the text may be the closing quote, or one that is doubled.
    const char quote = text[0] == '[' ? ']' : text[0];
    const auto count = std::count(text.begin() + 1, text.end(), quote);
    return count % 2 == 0;
}

// The first word of a statement, in small letters; empty when it begins with none.
static string firstWord(string_view sql)
{
    const std::vector<SqlPiece> pieces = scanSql(sql);
    if (pieces.empty() || pieces[0].token != SqlToken::WORD)
        return "";
    return lowered(sql.substr(pieces[0].at, pieces[0].end - pieces[0].at));
}

bool isAboutRows(string_view sql)
{
    return isOneOf(firstWord(sql),
                   {"select", "with", "insert", "update", "delete", "replace", "values"});
}

bool looksLikeSql(string_view text)
{
    return isAboutRows(text) ||
           isOneOf(firstWord(text), {"create", "drop", "alter", "pragma", "attach", "explain"});
}

// ---- what the database makes of a query ----

static void readParameters(const string &query, SqlAnswer *answer)
{
    for (const SqlPiece &piece : scanSql(query))
        if (piece.token == SqlToken::PARAMETER)
            answer->parameters.push_back({query.substr(piece.at, piece.end - piece.at), piece.at});
}

// Whether a column of that type has a number's affinity, which keeps other texts as they are.
static bool isNumbersType(const string &type)
{
    const auto holds = [&type](const char *part) { return type.find(part) != string::npos; };
    return holds("int") || (!holds("char") && !holds("clob") && !holds("text") && !holds("blob") &&
                            (holds("real") || holds("floa") || holds("doub") || holds("num") ||
                             holds("dec") || holds("bool")));
}

static void readResult(const Database &database, sqlite3_stmt *statement, const string &query,
                       SqlAnswer *answer)
{
    const auto count = static_cast<size_t>(sqlite3_column_count(statement));
    const auto values = valuesOf(database.db, database.known, query, count);
    for (size_t i = 0; i < count; ++i) {
        const char *name = sqlite3_column_name(statement, static_cast<int>(i));
        const char *type = sqlite3_column_decltype(statement, static_cast<int>(i));
        const string declared = lowered(type ? type : "");
        answer->columns.push_back(
            {name ? name : "", values[i], isNumbersType(declared) ? declared : "",
             declared.find("text") != string::npos || declared.find("char") != string::npos});
    }
}

// Whether a statement does more than read, counting what cannot be prepared here.
static bool writesByWord(string_view query)
{
    return isOneOf(firstWord(query),
                   {"insert", "update", "delete", "replace", "create", "drop", "alter", "attach",
                    "detach", "vacuum", "reindex", "begin", "commit"});
}

// Where the mistake of a message stands to which SQLite gives no place: at the name that
// ends it, or at the query's end.
static size_t placeByMessage(string_view query, string_view message)
{
    if (message == "incomplete input")
        return query.size();
    const size_t colon = message.rfind(": ");
    if (colon == string_view::npos)
        return 0;
    string name = lowered(message.substr(colon + 2));
    name.erase(0, name.rfind('.') + 1); // of a table that is named with its database
    for (const SqlPiece &piece : scanSql(query)) {
        const size_t length = piece.end - piece.at;
        const size_t quoted = piece.token == SqlToken::NAME && length >= 2 ? 1 : 0;
        if (lowered(query.substr(piece.at + quoted, length - 2 * quoted)) == name)
            return piece.at;
    }
    return 0;
}

static void prepare(Database *database, const string &query, SqlAnswer *answer)
{
    sqlite3_stmt *statement = nullptr;
    const char *rest = "";
    if (sqlite3_prepare_v2(database->db, query.c_str(), -1, &statement, &rest) != SQLITE_OK) {
        answer->error = sqlite3_errmsg(database->db);
        const int offset = sqlite3_error_offset(database->db);
        answer->errorAt =
            offset >= 0 ? static_cast<size_t>(offset) : placeByMessage(query, answer->error);
        answer->writes = writesByWord(query);
    } else if (!statement) {
        answer->error = "there is no statement";
    } else {
        answer->writes = !sqlite3_stmt_readonly(statement) || writesByWord(query);
        readResult(*database, statement, query, answer);
        const string_view behind = rest;
        if (const size_t next = behind.find_first_not_of(" \t\r\n\f\v");
            next != string_view::npos) {
            answer->error = "text follows the statement; a query is one statement";
            answer->errorAt = static_cast<size_t>(rest - query.c_str()) + next;
            if (!answer->writes && writesByWord(behind)) {
                answer->writes = true;
                answer->writesAt = answer->errorAt;
            }
        }
    }
    sqlite3_finalize(statement);
}

const SqlAnswer &prepareQuery(Database *database, const string &query)
{
    const auto [entry, isNew] = database->answers.try_emplace(query);
    if (isNew) {
        readParameters(query, &entry->second);
        prepare(database, query, &entry->second);
    }
    return entry->second;
}
