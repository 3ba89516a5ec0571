/* grammar/commands.h - every command of the language, named once: scanner,
 * grammar, dispatcher and messages read these rows. */
#ifndef ORV_GRAMMAR_COMMANDS_H
#define ORV_GRAMMAR_COMMANDS_H

#include <stddef.h>
#include <stdint.h>

#include <array>

#include "zarn.tab.h"

// Bits of a command's identifier.
enum : uint32_t {
    CMDF_ARG1 = 0x100,   // the first argument is expanded before the action
    CMDF_ARG2 = 0x200,   // so is the second
    CMDF_BODY = 0x400,   // the argument behind them is the body
    CMDF_HTML = 0x800,   // values are written HTML-escaped
    CMDF_JS = 0x1000,    // values are written JavaScript-escaped
    CMDF_QUERY = 0x2000, // the families
    CMDF_IF = 0x4000,
    CMDF_CALC = 0x8000,
    CMDF_ERROR = 0x10000,
};

// Identifiers. They stand in logs, so none is ever renumbered.
enum : uint32_t {
    ID_SETVARIABLE = 0x104,
    ID_SETVARIABLEONCE = 0x105,
    ID_SETARRAY = 0x306,
    ID_SETARRAYONCE = 0x307,
    ID_INCLUDE = 0x108,
    ID_BASE64 = 0x120,
    ID_ECHO = 0xC01,
    ID_PRINT = 0x402,
    ID_PRINTJS = 0x1403,
    ID_QUERY = 0x2D09,
    ID_QUERYTEXT = 0x250A,
    ID_QUERYJS = 0x350B,
    ID_MULTIQUERY = 0x2D0C,
    ID_MULTIQUERYTEXT = 0x250D,
    ID_MULTIQUERYJS = 0x350E,
    ID_MULTIQUERYCOUNT = 0x210F,
    ID_REPEATINCL = 0x700,
    ID_REPEATEXCL = 0x701,
    ID_IFEQ = 0x4702,
    ID_IFNEQ = 0x4713,
    ID_IFGT = 0x4714,
    ID_IFGTE = 0x4715,
    ID_IFLT = 0x4716,
    ID_IFLTE = 0x4717,
    ID_IFAND = 0x4718,
    ID_IFOR = 0x4719,
    ID_CALCPLUS = 0x831A,
    ID_CALCMIN = 0x831B,
    ID_CALCMULT = 0x831C,
    ID_CALCDIV = 0x831D,
    ID_ERRORFOUND = 0x1001E,
    ID_ERRORMESSAGE = 0x1041F,
};

// What follows a command's words in a template.
enum class Tail : uint8_t {
    BLANK,    // white space
    OPERATOR, // an operator, each side of it with or without a quote, and white space
    NAME,     // var: and a name, white space or not
    ELEMENT,  // var:, a name and "[", white space or not: an index follows
};

// What a command prints. Nothing here depends on it: the checker of templates does.
enum class Prints : uint8_t {
    NOTHING,  // by itself
    NUMBER,   // or else signs that mean nothing to HTML and scripts
    ARGUMENT, // its arguments, escaped as its identifier says
    BODY,     // its body; a query or error command without one, the first column
    BODIES,   // the same for each row or number
    BRANCH,   // one of its bodies; without any, 1 or 0
};

// Numbers of arguments, a bit for each.
enum : uint8_t {
    ONE_ARGUMENT = 1U << 1,
    TWO_TO_FOUR = 1U << 2 | 1U << 3 | 1U << 4,
};

struct CommandDef {
    char words[16]; // as templates write them, " " for any white space; a leading "if " may
                    // be left out. Here and not elsewhere: the table needs no relocation
    Tail tail;
    char sign; // the operator of Tail::OPERATOR
    Prints prints;
    int token;
    uint32_t id;
    char stop[3];      // behind "Syntax error" in the log when the arguments do not fit: people
                       // search for it, and it differs. Empty where the grammar has no error
                       // point for the command
    uint8_t whole = 0; // with so many arguments, variables and texts, it is run without records
                       // of the heap and without the parser where it stands in page text: the
                       // commonest ones
};

/* In token order. */
inline constexpr CommandDef commandTable[] = {
    // words, tail, sign, what it prints, token, id, stop, as a whole
    {"setvariable", Tail::NAME, 0, Prints::NOTHING, F_SETVARIABLE, ID_SETVARIABLE, ""},
    {"setvariableonce", Tail::NAME, 0, Prints::NOTHING, F_SETVARIABLEONCE, ID_SETVARIABLEONCE, ""},
    {"setvariable", Tail::ELEMENT, 0, Prints::NOTHING, F_SETARRAY, ID_SETARRAY, ": "},
    {"setvariableonce", Tail::ELEMENT, 0, Prints::NOTHING, F_SETARRAYONCE, ID_SETARRAYONCE, ": "},
    {"echo", Tail::BLANK, 0, Prints::BODY, F_ECHO, ID_ECHO, "", ONE_ARGUMENT},
    {"print", Tail::BLANK, 0, Prints::BODY, F_PRINT, ID_PRINT, "", ONE_ARGUMENT},
    {"printjs", Tail::BLANK, 0, Prints::BODY, F_PRINTJS, ID_PRINTJS, "", ONE_ARGUMENT},
    {"include", Tail::BLANK, 0, Prints::NOTHING, F_INCLUDE, ID_INCLUDE, "", ONE_ARGUMENT},
    {"query", Tail::BLANK, 0, Prints::BODY, F_QUERY, ID_QUERY, ""},
    {"querytext", Tail::BLANK, 0, Prints::BODY, F_QUERYTEXT, ID_QUERYTEXT, ""},
    {"queryjs", Tail::BLANK, 0, Prints::BODY, F_QUERYJS, ID_QUERYJS, ""},
    {"multiquery", Tail::BLANK, 0, Prints::BODIES, F_MULTIQUERY, ID_MULTIQUERY, ""},
    {"multiquerytext", Tail::BLANK, 0, Prints::BODIES, F_MULTIQUERYTEXT, ID_MULTIQUERYTEXT, ""},
    {"multiqueryjs", Tail::BLANK, 0, Prints::BODIES, F_MULTIQUERYJS, ID_MULTIQUERYJS, ""},
    {"multiquerycount", Tail::BLANK, 0, Prints::NUMBER, F_MULTIQUERYCOUNT, ID_MULTIQUERYCOUNT, ""},
    {"repeat [", Tail::BLANK, 0, Prints::BODIES, F_REPEATINCL, ID_REPEATINCL, ": "},
    {"repeat ]", Tail::BLANK, 0, Prints::BODIES, F_REPEATEXCL, ID_REPEATEXCL, ": "},
    {"if eq", Tail::BLANK, 0, Prints::BRANCH, F_IFEQ, ID_IFEQ, ": ", TWO_TO_FOUR},
    {"if neq", Tail::BLANK, 0, Prints::BRANCH, F_IFNEQ, ID_IFNEQ, ": ", TWO_TO_FOUR},
    {"if gt", Tail::BLANK, 0, Prints::BRANCH, F_IFGT, ID_IFGT, ": ", TWO_TO_FOUR},
    {"if gte", Tail::BLANK, 0, Prints::BRANCH, F_IFGTE, ID_IFGTE, ": ", TWO_TO_FOUR},
    {"if lt", Tail::BLANK, 0, Prints::BRANCH, F_IFLT, ID_IFLT, ". ", TWO_TO_FOUR},
    {"if lte", Tail::BLANK, 0, Prints::BRANCH, F_IFLTE, ID_IFLTE, ": ", TWO_TO_FOUR},
    {"if and", Tail::BLANK, 0, Prints::BRANCH, F_IFAND, ID_IFAND, ": ", TWO_TO_FOUR},
    {"if or", Tail::BLANK, 0, Prints::BRANCH, F_IFOR, ID_IFOR, ": ", TWO_TO_FOUR},
    {"calc", Tail::OPERATOR, '+', Prints::NUMBER, F_CALCPLUS, ID_CALCPLUS, ": "},
    {"calc", Tail::OPERATOR, '-', Prints::NUMBER, F_CALCMIN, ID_CALCMIN, ": "},
    {"calc", Tail::OPERATOR, '*', Prints::NUMBER, F_CALCMULT, ID_CALCMULT, ": "},
    {"calc", Tail::OPERATOR, '/', Prints::NUMBER, F_CALCDIV, ID_CALCDIV, " "},
    {"error found", Tail::BLANK, 0, Prints::NUMBER, F_ERRORFOUND, ID_ERRORFOUND, ""},
    {"error message", Tail::BLANK, 0, Prints::BODY, F_ERRORMESSAGE, ID_ERRORMESSAGE, ""},
    {"base64", Tail::BLANK, 0, Prints::NUMBER, F_BASE64, ID_BASE64, ""},
};

inline constexpr size_t COMMAND_COUNT = sizeof commandTable / sizeof commandTable[0];
inline constexpr int FIRST_COMMAND = commandTable[0].token;
inline constexpr int LAST_COMMAND = commandTable[COMMAND_COUNT - 1].token;

// Row of each keyword token; 0 where the token is no command's.
inline constexpr auto rowOfToken = [] {
    std::array<uint8_t, LAST_COMMAND - FIRST_COMMAND + 1> table = {};
    for (size_t row = 0; row < COMMAND_COUNT; ++row)
        table[static_cast<size_t>(commandTable[row].token - FIRST_COMMAND)] =
            static_cast<uint8_t>(row);
    return table;
}();

// The rows stand in the order of the grammar's tokens, and what has a body prints it.
constexpr bool commandTableHolds()
{
    int previous = 0;
    for (const CommandDef &row : commandTable) {
        const bool printsBody = row.prints >= Prints::BODY;
        if (row.token <= previous || printsBody != ((row.id & CMDF_BODY) != 0))
            return false;
        previous = row.token;
    }
    return true;
}
static_assert(commandTableHolds());
static_assert(HTML_TEXT == 258 && F_SETVARIABLE == 259 && ARG_TEXT == 263 && F_UNDEF == 269 &&
              F_ECHO == 270 && F_BASE64 == 301 && ARG_RIGHT == 307);

/* The row of a command's keyword token. */
constexpr const CommandDef &commandOf(int token)
{
    return commandTable[rowOfToken[static_cast<size_t>(token - FIRST_COMMAND)]];
}

/* Whether a token is a command's keyword: other tokens may lie between those. */
constexpr bool isCommand(int token)
{
    return token >= FIRST_COMMAND && token <= LAST_COMMAND && commandOf(token).token == token;
}

/* How the log names a row's command: by its words, a calc with its sign, a repeat without
 * its bracket. Ends in a zero byte. */
constexpr auto nameOf(const CommandDef &row)
{
    std::array<char, sizeof row.words + 2> name = {};
    size_t length = 0;
    for (const char *at = row.words; *at; ++at)
        name[length++] = *at;
    if (row.tail == Tail::OPERATOR) {
        name[length] = ' ';
        name[length + 1] = row.sign;
    } else if (row.token == F_REPEATINCL || row.token == F_REPEATEXCL) {
        name[length - 2] = '\0';
    }
    return name;
}

#endif
