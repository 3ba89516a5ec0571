/* tools/check/columns.h - what the columns of a query can hold. */
#ifndef ORV_CHECK_COLUMNS_H
#define ORV_CHECK_COLUMNS_H

#include <stdint.h>

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct sqlite3;

constexpr uint8_t JSON_IN_SCRIPT = 2; // JSON without a <

// What a value can be, besides null and any number.
struct Values {
    bool isFree = false;         // any text
    std::set<std::string> texts; // otherwise these, which the query itself names
    uint8_t json = 0;            // the texts are JSON: 1, or JSON_IN_SCRIPT

    bool isNumber() const
    {
        return !isFree && texts.empty();
    }
    /* Adds what the other can be. Returns whether that is more. */
    bool join(const Values &other);
};

// What is known of the values that programs read.
struct KnownValues {
    // Of what is stored, by the number of the database and the page that a table or an index
    // begins at.
    std::map<std::pair<int, int>, std::vector<Values>> stored;
    std::set<std::string, std::less<>> numberFunctions; // of the host, in small letters
};

/* Reads what the databases of a connection store. Returns false when a schema cannot be
 * read. */
bool readStored(sqlite3 *db, KnownValues *known);

/* What each column of a query can hold; nothing of the query is run. Free in doubt.
 * count: of the columns. */
std::vector<Values> valuesOf(sqlite3 *db, const KnownValues &known, const std::string &query,
                             size_t count);

#endif
