/* tools/check/assemble.h - the texts that an argument can come to, as far as the
 * templates tell, and how safe values are. */
#ifndef ORV_CHECK_ASSEMBLE_H
#define ORV_CHECK_ASSEMBLE_H

#include "site.h"

// What a value may hold, bits. None of them: constants and numbers only.
enum : uint8_t {
    VALUE_RAW = 1,    // anything
    VALUE_HTML = 2,   // escaped for HTML
    VALUE_SCRIPT = 4, // escaped for a script's string
    VALUE_BOTH = 8,   // escaped for a script, then for HTML
};

/* What a value becomes in the body of a command of that id. */
uint8_t escapedBy(uint32_t id, uint8_t holds);

/* What a variable or array element of that key may hold. */
uint8_t holdsOfVariable(Site &site, std::string_view key);

/* What an element may hold that stands within levels; output of a nested command
 * included. Escaping by the command around it is not part of it. */
uint8_t holdsOfElement(Site &site, const Element &element, const Levels &levels);

/* The same of all elements of an argument, escaped as a command of that id does. */
uint8_t holdsOfArgument(Site &site, const Argument &argument, uint32_t id, const Levels &levels);

// A numbered value, taken apart.
struct Numbered {
    int level;
    int column; // 0 is the counter
};
Numbered takeApart(const std::string &digits);

// The rows that a command's body runs over.
struct RowsOf {
    bool hasRows = false; // a query's or the error message's
    bool known = false;   // columns are
    bool failed = false;  // the database takes none of the queries
    bool counts = false;  // its counter moves
    std::vector<SqlColumn> columns;
};
const RowsOf &rowsOf(Site &site, const Command &command);

/* The column by its index of the rows of a command; null where there is none. Good as
 * long as the site is. */
const SqlColumn *columnOf(Site &site, const Command &command, size_t index);

/* The command whose column a numbered value within levels stands for, and the column's
 * index in column; null for a counter, or where there is no such level. */
const Command *commandOfValue(const Element &element, const Levels &levels, size_t *column);

/* What a column may hold; the texts that its query names are taken for constants. */
uint8_t holdsOfColumn(const SqlColumn *column);

// A stretch of an assembled text, and where it comes from.
struct TextPiece {
    size_t at; // in the text
    const Template *tpl;
    Span span;
    bool hole;              // not known: a stand-in stands in the text
    bool inString;          // such a one stands inside a string of SQL
    bool number;            // of such a one: it is a number, as its stand-in
    uint8_t holds;          // of such a one, VALUE_ bits
    const Element *element; // of such a one that is no text field
};

struct Assembled {
    std::string text;
    std::vector<TextPiece> pieces;
    bool isOneOf = false; // rounds of a loop that stand for all: not each need be sound
};

/* The texts that an argument can come to: one for each way through its ifs and its
 * variables with several constants, eight at most. A loop is gone through once. */
std::vector<Assembled> assemble(Site &site, const Template &tpl, const Argument &argument,
                                const Levels &levels);

/* Whether a piece of SQL, not only a value in it, is a hole. */
bool hasUnknown(const Assembled &text);

/* Those of them without holes. */
std::vector<std::string> assembledTexts(Site &site, const Template &tpl, const Argument &argument);

/* The texts that are written in the template itself: a constant, or those of an if's
 * branches. Returns false, and none, when there is anything else. */
bool writtenTexts(const Template &tpl, const Argument &argument, std::vector<std::string> *texts);

/* The query command's texts, levels being those around it. */
std::vector<Assembled> queriesOf(Site &site, const Template &tpl, const Command &command,
                                 const Levels &levels);

#endif
