/* tools/check/sql.h - queries, as the database that answers them sees them.
 *
 * Statements are prepared and never run, on a connection that can only read. */
#ifndef ORV_CHECK_SQL_H
#define ORV_CHECK_SQL_H

#include <stddef.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "columns.h"
#include "tools/common/sitefile.h"

struct SqlColumn {
    std::string name;
    Values values;
    std::string declared; // as which numbers a table's column is declared, or empty
    bool isText = false;  // a table's column, declared as a text
};

// A named or numbered parameter.
struct SqlParameter {
    std::string name; // with its ":"
    size_t at;        // in the query
};

struct SqlAnswer {
    std::string error;  // empty when it prepares
    size_t errorAt = 0; // in the query
    bool writes = false;
    size_t writesAt = 0; // the statement that does
    std::vector<SqlColumn> columns;
    std::vector<SqlParameter> parameters;
};

struct Database {
    sqlite3 *db = nullptr; // owned
    KnownValues known;
    std::map<std::string, SqlAnswer> answers; // by query

    Database() = default;
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;
    ~Database();
};

/* Opens the databases of a site read-only, attached under their names, and reads their schemas.
 * A script, whose name ends in .sql, makes one in memory: what it puts into tables is left
 * out. functions: that the host adds; none is ever called. Null, with the reason in problem,
 * when that is not possible. */
std::unique_ptr<Database> openDatabases(const std::vector<SiteDatabase> &databases,
                                        const std::vector<SiteFunction> &functions,
                                        std::string *problem);

/* What the database makes of a query; kept, and good as long as the database is. */
const SqlAnswer &prepareQuery(Database *database, const std::string &query);

/* A word, string or sign of SQL text. */
enum class SqlToken : unsigned char { WORD, STRING, NAME, NUMBER, PARAMETER, SIGN };
struct SqlPiece {
    SqlToken token;
    size_t at;
    size_t end;
};
std::vector<SqlPiece> scanSql(std::string_view sql);

/* Whether an offset stands inside a string of the text in front of it. */
bool inSqlString(std::string_view before);

/* Whether a statement's first word is one of those that change rows, or read them. */
bool isAboutRows(std::string_view sql);

/* Whether a text looks like SQL: by its first word. */
bool looksLikeSql(std::string_view text);

#endif
