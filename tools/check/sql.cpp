/* tools/check/sql.cpp - statements prepared by SQLite, and which of their columns hold
 * numbers only.
 *
 * SQLite tells the declared type of a column that is a table's; what an expression
 * yields is worked out here from its text: all operators but || and -> give numbers,
 * and so do casts and some functions. Where in doubt a column is no number. */
#include "sql.h"

#include <limits.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <initializer_list>

using std::string;
using std::string_view;

static char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

static string lowered(string_view text)
{
    string copy(text);
    std::transform(copy.begin(), copy.end(), copy.begin(), lower);
    return copy;
}

static bool isWordByte(char c)
{
    return (lower(c) >= 'a' && lower(c) <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '$' ||
           (c & 0x80);
}

static bool isOneOf(string_view word, std::initializer_list<string_view> words)
{
    return std::find(words.begin(), words.end(), word) != words.end();
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
                               ((sql[at] == '+' || sql[at] == '-') && lower(sql[at - 1]) == 'e')))
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

bool looksLikeSql(string_view text)
{
    const std::vector<SqlPiece> pieces = scanSql(text);
    if (pieces.empty() || pieces[0].token != SqlToken::WORD)
        return false;
    const string first = lowered(text.substr(pieces[0].at, pieces[0].end - pieces[0].at));
    return isOneOf(first, {"select", "with", "insert", "update", "delete", "replace", "values",
                           "create", "drop", "alter", "pragma", "attach", "explain"});
}

// ---- which expressions are numbers ----

namespace
{
// Names that a statement can use, with whether what they stand for is a number.
struct Scope {
    const Database *database;
    std::map<string, std::map<string, bool>> own; // of "with", by table
    std::vector<string> mentioned;                // words of the statement, in lower case
};

// Pieces of one text; ranges of them are expressions.
struct Parsed {
    string_view sql;
    std::vector<SqlPiece> pieces;

    string word(size_t i) const
    {
        return i < pieces.size() ? lowered(sql.substr(pieces[i].at, pieces[i].end - pieces[i].at))
                                 : string();
    }
    // As word, for a name without its quotes.
    string name(size_t i) const
    {
        string text = word(i);
        if (pieces[i].token == SqlToken::NAME && text.size() >= 2)
            text = text.substr(1, text.size() - 2);
        return text;
    }
};
using Range = std::pair<size_t, size_t>;
} // namespace

static bool isNumber(const Parsed &parsed, Range range, const Scope &scope);
static std::vector<std::pair<string, bool>> selectColumns(const Parsed &parsed, Range range,
                                                          Scope scope);

static bool isDeclaredNumber(const char *declared)
{
    const string type = lowered(declared ? declared : "");
    const auto holds = [&type](const char *part) { return type.find(part) != string::npos; };
    static constexpr const char *texts[] = {"char", "clob", "text", "blob", "date", "time"};
    static constexpr const char *numbers[] = {"int", "real", "floa", "doub", "num", "dec", "bool"};
    return std::none_of(std::begin(texts), std::end(texts), holds) &&
           std::any_of(std::begin(numbers), std::end(numbers), holds);
}

// The ranges between commas, or between words, outside of parentheses.
static std::vector<Range> split(const Parsed &parsed, Range range,
                                std::initializer_list<string_view> at)
{
    std::vector<Range> parts;
    size_t depth = 0;
    size_t cases = 0;
    size_t from = range.first;
    for (size_t i = range.first; i < range.second; ++i) {
        const string word = parsed.word(i);
        if (word == "(")
            ++depth;
        else if (word == ")" && depth > 0)
            --depth;
        else if (word == "case")
            ++cases;
        else if (word == "end" && cases > 0)
            --cases;
        else if (depth == 0 && cases == 0 && isOneOf(word, at)) {
            parts.push_back({from, i});
            from = i + 1;
        }
    }
    parts.push_back({from, range.second});
    return parts;
}

// Index behind the parenthesis that closes the one at open.
static size_t closing(const Parsed &parsed, size_t open, size_t end)
{
    size_t depth = 0;
    for (size_t i = open; i < end; ++i) {
        const string word = parsed.word(i);
        if (word == "(")
            ++depth;
        else if (word == ")" && --depth == 0)
            return i + 1;
    }
    return end;
}

static bool isColumnNumber(const string &name, const string &table, const Scope &scope)
{
    bool known = false;
    auto look = [&](const auto &tables) {
        for (const auto &[tableName, columns] : tables) {
            const auto column = columns.find(name);
            if (column == columns.end())
                continue;
            const bool mentioned = std::find(scope.mentioned.begin(), scope.mentioned.end(),
                                             tableName) != scope.mentioned.end();
            if (!mentioned || (tables.contains(table) && tableName != table))
                continue;
            if (!column->second)
                return false;
            known = true;
        }
        return true;
    };
    return look(scope.database->tables) && look(scope.own) && known;
}

static bool allNumbers(const Parsed &parsed, const std::vector<Range> &ranges, size_t from,
                       const Scope &scope)
{
    for (size_t i = from; i < ranges.size(); ++i)
        if (!isNumber(parsed, ranges[i], scope))
            return false;
    return ranges.size() > from;
}

// Whether all results of "case ... end" are numbers.
static bool isCaseNumber(const Parsed &parsed, Range range, const Scope &scope)
{
    const Range inside = {range.first + 1, range.second - 1};
    const std::vector<Range> parts = split(parsed, inside, {"when", "then", "else"});
    for (size_t i = 1; i < parts.size(); ++i) {
        const string before = parsed.word(parts[i].first - 1);
        if (before != "when" && !isNumber(parsed, parts[i], scope))
            return false;
    }
    return parts.size() > 1;
}

static bool isCallNumber(const Parsed &parsed, Range range, const Scope &scope)
{
    const string function = parsed.word(range.first);
    const size_t end = closing(parsed, range.first + 1, range.second);
    if (end != range.second && !isOneOf(parsed.word(end), {"over", "filter"}))
        return false;
    const Range inside = {range.first + 2, end - 1};
    if (function == "cast") {
        const std::vector<Range> parts = split(parsed, inside, {"as"});
        return parts.size() == 2 && isDeclaredNumber(parsed.word(parts[1].first).c_str());
    }
    if (isOneOf(function, {"count",
                           "sum",
                           "total",
                           "avg",
                           "round",
                           "length",
                           "abs",
                           "instr",
                           "random",
                           "unicode",
                           "julianday",
                           "unixepoch",
                           "changes",
                           "total_changes",
                           "last_insert_rowid",
                           "sign",
                           "ceil",
                           "floor",
                           "ceiling",
                           "trunc",
                           "sqrt",
                           "pow",
                           "power",
                           "mod",
                           "row_number",
                           "rank",
                           "dense_rank",
                           "ntile",
                           "percent_rank",
                           "cume_dist",
                           "octet_length",
                           "json_array_length"}))
        return true;
    const std::vector<Range> arguments = split(parsed, inside, {","});
    if (isOneOf(function, {"ifnull", "coalesce", "max", "min"}))
        return allNumbers(parsed, arguments, 0, scope);
    if (function == "iif")
        return allNumbers(parsed, arguments, 1, scope);
    if (isOneOf(function,
                {"nullif", "lag", "lead", "first_value", "last_value", "likely", "unlikely"}))
        return isNumber(parsed, arguments[0], scope);
    return false;
}

// Whether an operator outside of parentheses makes a number of its operands; || and ->
// bind closer than all that do but signs.
static bool hasNumberOperator(const Parsed &parsed, Range range)
{
    size_t depth = 0;
    size_t cases = 0;
    bool joins = false;
    bool hasSign = false;
    for (size_t i = range.first; i < range.second; ++i) {
        const string word = parsed.word(i);
        if (word == "(")
            ++depth;
        else if (word == ")" && depth > 0)
            --depth;
        else if (word == "case")
            ++cases;
        else if (word == "end" && cases > 0)
            --cases;
        else if (depth == 0 && cases == 0) {
            const bool operand =
                i > range.first && !isOneOf(parsed.word(i - 1), {"||", "->", "->>"});
            joins = joins || isOneOf(word, {"||", "->", "->>"});
            hasSign = hasSign || (!operand && isOneOf(word, {"-", "~"}));
            if (operand && isOneOf(word, {"+", "-", "*", "/", "%", "&", "|", "<<", ">>", "=",
                                          "==", "<>", "!=", "<", ">", "<=", ">=", "~"}))
                return true;
            if (isOneOf(word, {"is", "in", "like", "glob", "between", "and", "or", "not", "exists",
                               "isnull", "notnull", "match", "regexp"}))
                return true;
        }
    }
    return hasSign && !joins;
}

static bool isNumber(const Parsed &parsed, Range range, const Scope &scope)
{
    while (range.second > range.first && parsed.word(range.first) == "+")
        ++range.first;
    if (range.first >= range.second)
        return false;
    const size_t count = range.second - range.first;
    if (hasNumberOperator(parsed, range))
        return true;
    const SqlToken token = parsed.pieces[range.first].token;
    const string word = parsed.word(range.first);
    if (count == 1 && (token == SqlToken::NUMBER || isOneOf(word, {"null", "true", "false"})))
        return true;
    if (count == 1 && (token == SqlToken::WORD || token == SqlToken::NAME))
        return isColumnNumber(parsed.name(range.first), "", scope);
    if (count == 3 && parsed.word(range.first + 1) == ".")
        return isColumnNumber(parsed.name(range.first + 2), parsed.name(range.first), scope);
    if (word == "(" && closing(parsed, range.first, range.second) == range.second) {
        const Range inside = {range.first + 1, range.second - 1};
        if (!isOneOf(parsed.word(inside.first), {"select", "with"}))
            return isNumber(parsed, inside, scope);
        const auto columns = selectColumns(parsed, inside, scope);
        return columns.size() == 1 && columns[0].second;
    }
    if (word == "case" && parsed.word(range.second - 1) == "end")
        return isCaseNumber(parsed, range, scope);
    if (token == SqlToken::WORD && parsed.word(range.first + 1) == "(")
        return isCallNumber(parsed, range, scope);
    return false;
}

// A result column's expression without its name, which is returned.
static string cutName(const Parsed &parsed, Range *range)
{
    const size_t last = range->second - 1;
    const SqlToken token = parsed.pieces[last].token;
    if (token != SqlToken::WORD && token != SqlToken::NAME)
        return "";
    string name = parsed.name(last);
    if (range->second - range->first >= 3 && parsed.word(last - 1) == "as") {
        range->second -= 2;
    } else if (range->second - range->first >= 2 && parsed.word(last) != "end") {
        const SqlToken before = parsed.pieces[last - 1].token;
        const bool ends = before != SqlToken::SIGN || parsed.word(last - 1) == ")";
        const bool isOperator = isOneOf(parsed.word(last - 1), {"is", "in", "like", "glob", "and",
                                                                "or", "not", "between"}) ||
                                isOneOf(name, {"isnull", "notnull", "null"});
        if (ends && !isOperator)
            --range->second;
    }
    return name;
}

// The tables that "with" in front of a select names, added to the scope. Returns the
// index of the select.
static size_t readWith(const Parsed &parsed, Range range, Scope *scope)
{
    size_t i = range.first;
    if (parsed.word(i) != "with")
        return i;
    i += parsed.word(i + 1) == "recursive" ? 2 : 1;
    while (i < range.second) {
        const string table = parsed.name(i++);
        std::vector<string> names;
        if (parsed.word(i) == "(") {
            const size_t end = closing(parsed, i, range.second);
            for (const Range &part : split(parsed, {i + 1, end - 1}, {","}))
                names.push_back(parsed.name(part.first));
            i = end;
        }
        while (i < range.second && parsed.word(i) != "(")
            ++i;
        const size_t end = closing(parsed, i, range.second);
        auto columns = selectColumns(parsed, {i + 1, end - 1}, *scope);
        std::map<string, bool> own;
        for (size_t k = 0; k < columns.size(); ++k)
            own[k < names.size() ? names[k] : columns[k].first] = columns[k].second;
        scope->own[table] = std::move(own);
        i = end;
        if (parsed.word(i) != ",")
            break;
        ++i;
    }
    return i;
}

// The columns of one select, without "*", which is left out.
static std::vector<std::pair<string, bool>> simpleColumns(const Parsed &parsed, Range range,
                                                          const Scope &scope)
{
    std::vector<std::pair<string, bool>> columns;
    size_t from = range.first + 1;
    if (isOneOf(parsed.word(from), {"distinct", "all"}))
        ++from;
    const Range list = {from,
                        split(parsed, {from, range.second},
                              {"from", "where", "group", "order", "limit", "having", "window"})[0]
                            .second};
    for (Range part : split(parsed, list, {","})) {
        if (part.first >= part.second)
            continue;
        const string name = cutName(parsed, &part);
        columns.push_back({name, isNumber(parsed, part, scope)});
    }
    return columns;
}

static std::vector<std::pair<string, bool>> selectColumns(const Parsed &parsed, Range range,
                                                          Scope scope)
{
    range.first = readWith(parsed, range, &scope);
    std::vector<std::pair<string, bool>> columns;
    bool first = true;
    for (Range part : split(parsed, range, {"union", "intersect", "except"})) {
        if (parsed.word(part.first) == "all")
            ++part.first;
        if (parsed.word(part.first) != "select")
            return {};
        auto own = simpleColumns(parsed, part, scope);
        for (size_t i = 0; !first && i < columns.size(); ++i)
            columns[i].second = i < own.size() && own[i].second && columns[i].second;
        if (first)
            columns = std::move(own);
        first = false;
    }
    return columns;
}

// The columns of a statement's result as its text has them, "*" left out.
static std::vector<std::pair<string, bool>> readColumns(const Database &database, string_view sql)
{
    const Parsed parsed = {sql, scanSql(sql)};
    Scope scope = {&database, {}, {}};
    for (size_t i = 0; i < parsed.pieces.size(); ++i)
        if (parsed.pieces[i].token == SqlToken::WORD || parsed.pieces[i].token == SqlToken::NAME)
            scope.mentioned.push_back(parsed.name(i));
    return selectColumns(parsed, {0, parsed.pieces.size()}, scope);
}

// ---- the database ----

Database::~Database()
{
    sqlite3_close(db);
}

static void readTable(Database *database, const string &name)
{
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(database->db, "select name, type from pragma_table_xinfo(?)", -1,
                           &statement, nullptr) != SQLITE_OK)
        return;
    sqlite3_bind_text(statement, 1, name.c_str(), -1, SQLITE_TRANSIENT);
    const string key = lowered(name);
    while (sqlite3_step(statement) == SQLITE_ROW) {
        const string column = reinterpret_cast<const char *>(sqlite3_column_text(statement, 0));
        const auto *type = reinterpret_cast<const char *>(sqlite3_column_text(statement, 1));
        database->tables[key][lowered(column)] = isDeclaredNumber(type);
        database->tableOrder[key].push_back(column);
    }
    sqlite3_finalize(statement);
}

// What the expressions of a view yield.
static void readView(Database *database, const string &name, string_view sql)
{
    const std::vector<SqlPiece> pieces = scanSql(sql);
    size_t select = 0;
    for (const SqlPiece &piece : pieces) {
        const string word = lowered(sql.substr(piece.at, piece.end - piece.at));
        if (isOneOf(word, {"select", "with"})) {
            select = piece.at;
            break;
        }
    }
    const auto columns = readColumns(*database, sql.substr(select));
    const std::vector<string> &order = database->tableOrder[lowered(name)];
    for (size_t i = 0; columns.size() == order.size() && i < order.size(); ++i)
        if (columns[i].second)
            database->tables[lowered(name)][lowered(order[i])] = true;
}

static bool readSchema(Database *database)
{
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(database->db, "select type, name, sql from sqlite_master order by rowid",
                           -1, &statement, nullptr) != SQLITE_OK)
        return false;
    std::vector<std::pair<string, string>> views;
    int status;
    while ((status = sqlite3_step(statement)) == SQLITE_ROW) {
        const string type = reinterpret_cast<const char *>(sqlite3_column_text(statement, 0));
        const string name = reinterpret_cast<const char *>(sqlite3_column_text(statement, 1));
        const auto *sql = reinterpret_cast<const char *>(sqlite3_column_text(statement, 2));
        if (type == "table" || type == "view")
            readTable(database, name);
        if (type == "view" && sql)
            views.push_back({name, sql});
    }
    sqlite3_finalize(statement);
    for (const auto &[name, sql] : views)
        readView(database, name, sql);
    return status == SQLITE_DONE;
}

std::unique_ptr<Database> openDatabase(const string &path, string *problem)
{
    // An absolute path cannot be taken for one of SQLite's special names.
    char resolved[PATH_MAX];
    if (!realpath(path.c_str(), resolved)) {
        *problem = strerror(errno);
        return nullptr;
    }
    auto database = std::make_unique<Database>();
    if (sqlite3_open_v2(resolved, &database->db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
        !readSchema(database.get())) {
        *problem = sqlite3_errmsg(database->db);
        return nullptr;
    }
    return database;
}

static void readParameters(const string &query, SqlAnswer *answer)
{
    for (const SqlPiece &piece : scanSql(query))
        if (piece.token == SqlToken::PARAMETER)
            answer->parameters.push_back({query.substr(piece.at, piece.end - piece.at), piece.at});
}

static void readResult(const Database &database, sqlite3_stmt *statement, const string &query,
                       SqlAnswer *answer)
{
    const int count = sqlite3_column_count(statement);
    const auto byText = readColumns(database, query);
    for (int i = 0; i < count; ++i) {
        const char *name = sqlite3_column_name(statement, i);
        bool number = isDeclaredNumber(sqlite3_column_decltype(statement, i));
        if (byText.size() == static_cast<size_t>(count))
            number = number || byText[static_cast<size_t>(i)].second;
        answer->columns.push_back({name ? name : "", number});
    }
}

// Whether a statement does more than read, counting what cannot be prepared here.
static bool writesByWord(string_view query)
{
    const std::vector<SqlPiece> pieces = scanSql(query);
    if (pieces.empty())
        return false;
    return isOneOf(lowered(query.substr(pieces[0].at, pieces[0].end - pieces[0].at)),
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
    const Parsed parsed = {query, scanSql(query)};
    for (size_t i = 0; i < parsed.pieces.size(); ++i)
        if (parsed.name(i) == name)
            return parsed.pieces[i].at;
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
