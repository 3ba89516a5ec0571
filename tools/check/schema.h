/* tools/check/schema.h - tables and columns, and what a piece of SQL names of them. */
#ifndef ORV_CHECK_SCHEMA_H
#define ORV_CHECK_SCHEMA_H

#include <string>
#include <string_view>
#include <vector>

#include "sql.h"

struct TableColumn {
    std::string name;
    std::string type; // as it is declared, or empty
};

// A table or a view.
struct Table {
    std::string database; // under whose name it is attached
    std::string name;
    std::string statement; // that makes it
    std::vector<TableColumn> columns;
};

/* All that statements can name, ascending; without those of SQLite itself. */
std::vector<Table> readSchema(sqlite3 *db);

// A table that a statement names.
struct NamedTable {
    const Table *table;
    std::string alias; // or its own name
};
std::vector<NamedTable> tablesIn(std::string_view sql, const std::vector<Table> &schema);

// What can stand at an offset of SQL.
enum class SqlWanted : unsigned char { NOTHING, TABLE, COLUMN, PARAMETER };
struct SqlPlace {
    SqlWanted wanted;
    size_t begin;      // of the word that ends at the offset
    std::string owner; // the table, alias or database that stands in front of it with a dot
};
SqlPlace placeInSql(std::string_view before);

/* The word that stands at an offset of SQL, and where; with its ":" when it is a parameter.
 * Empty on anything else, a string among it. */
std::string_view sqlWordAt(std::string_view sql, size_t offset);

/* Whether both are one name to SQL. */
bool isSameName(std::string_view a, std::string_view b);

#endif
