/* tools/check/columns.h - what the columns of a query can hold. */
#ifndef ORV_CHECK_COLUMNS_H
#define ORV_CHECK_COLUMNS_H

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

struct sqlite3;

// What a value can be, besides null and any number.
struct Values {
    bool isFree = false;         // any text
    std::set<std::string> texts; // otherwise these, which the query itself names

    bool isNumber() const
    {
        return !isFree && texts.empty();
    }
    /* Adds what the other can be. */
    void join(const Values &other);
    bool operator==(const Values &) const = default;
};

/* Values of what a database stores, by the page that a table or an index begins at. */
using StoredValues = std::map<int, std::vector<Values>>;

/* Reads that of the main database. Returns false when its schema cannot be read. */
bool readStored(sqlite3 *db, StoredValues *stored);

/* What each column of a query can hold; nothing of the query is run. Free in doubt.
 * count: of the columns. */
std::vector<Values> valuesOf(sqlite3 *db, const StoredValues &stored, const std::string &query,
                             size_t count);

#endif
