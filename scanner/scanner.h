/* scanner/scanner.h - from a template's bytes to tokens.
 *
 * Page text is written to the output as soon as it is matched; commands become
 * tokens. The longest match wins, and of equal ones the rule listed first. */
#ifndef ORV_SCANNER_SCANNER_H
#define ORV_SCANNER_SCANNER_H

#include <stddef.h>
#include <stdint.h>
#include <string_view>

#include "base/bounds.h"
#include "interface/orvinterpreter.h"

enum class Condition : uint8_t {
    TEXT,   // page text outside commands
    ARGS,   // a command's arguments
    DQUOTE, // a quoted argument
    SQUOTE,
    BQUOTE,
    INDEX,   // the index of an array reference
    COMMENT, // removed from the page, as is an XML declaration
};

// The bytes of one template that are being scanned, in place as long as they hold no
// text field, no callback is made (ownRead) and no function takes the page, else in a copy
// with the texts. A match
// never spans two refills: what is unfinished stands in front of what is read next.
// Zero-filled, it is empty.
struct ScanBuffer {
    const char *pos; // where the current match begins: in block, or in the template's mapping
    size_t read;     // bytes from there on that have been read
    char *block;     // owned, null until a copy is needed
    size_t blockSize;
    size_t capacity; // bytes that may be unread; doubled for a longer match, 0 before the first
};

// An argument of a whole command.
struct WholeArg {
    bool isVariable;       // the text is its name
    std::string_view text; // bytes of the buffer, until the next token
};

struct Scanner {
    ScanBuffer buffer;                   // of the template on top
    ScanBuffer saved[MAX_INCLUDE_DEPTH]; // of those beneath, by their index
    Condition condition;
    Condition *stack; // owned, conditions to go back to
    size_t depth;     // of them in use
    size_t stackRoom;
    int32_t line;           // the newlines in front of counted
    const char *counted;    // where the bytes of pos lie, pos or before it; see scannedLine
    const char *located;    // likewise, where zarn_lloc's line is still to be counted; or null
    std::string_view value; // of an argument's token: bytes of the buffer, until the next
    WholeArg args[MAX_WHOLE_ARGS]; // of a whole command, argCount of them
    size_t argCount;
    bool passesText; // the page text in front of the next token is only written
    int32_t ended;   // index of a nested template whose end the parser was told; 0 when
                     // it has closed it
};

extern Scanner scanner;

/* The next token of the template on top; sets zarn_lloc, and zarn_lval, or scanner.value
 * for ARG_TEXT to ARG_MAXARRAY, of which the parser's side makes arguments. EOF_TAG is
 * the end of a nested template, and comes again until that is closed; 0 the end of
 * the run's own. Where page text needs no token, a whole command may be one: the number
 * of its keyword's token is negative then, and scanner.args its arguments. */
int nextToken();

/* Tells whether the page text in front of the next token needs no token of its own, and
 * a command there may be run at once. */
inline void passText(bool passes)
{
    scanner.passesText = passes;
}

/* Whether the end of the template on top was returned, and it is still open. */
inline bool endWasTold()
{
    return scanner.ended > 0;
}

/* Line of the template where the next match begins. The newlines in front are counted
 * here and nowhere else, many matches at once, as long as their bytes are there. */
int32_t scannedLine();

/* Copies what has been read of the template on top and is still to be scanned, where it
 * lies in the mapping: from here on the file may change without a trace in it. */
void ownRead();

/* Goes on with the bytes of buffer, at that line. */
void switchBuffer(const ScanBuffer &buffer, int32_t line);

/* Back to an empty first buffer of the first size, in page text. */
void resetScanner();

constexpr int32_t TOKEN_VALUE_SET = 0;
constexpr int32_t TOKEN_NO_MEMORY = -2;

/* Logs that there is no memory for a token's value. */
void logNoValue();

extern "C" {
/* Makes a copy of text the value of the token that is about to be returned;
 * with cut the copy ends before the first white space. Returns TOKEN_VALUE_SET,
 * or TOKEN_NO_MEMORY (logged). */
ORV_API int32_t dataToToken(const char *text, int32_t cut);
}

#endif
