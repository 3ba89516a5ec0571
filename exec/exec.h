/* exec/exec.h - what commands do. All of it works on the handle of the run.
 *
 * direct, in these functions: 1 writes to the page, 0 appends to the argument
 * buffer. While a suspended command runs again (resuming), direct output is
 * dropped until its include is reached, since the page has it already. */
#ifndef ORV_EXEC_EXEC_H
#define ORV_EXEC_EXEC_H

#include <stdint.h>
#include <sys/times.h>

#include <algorithm>
#include <string_view>

#include "grammar/records.h"
#include "base/interpreter.h"

enum : int32_t {
    EXEC_DONE = 0,
    EXEC_NO_COMMAND = -1,
    EXEC_TOO_DEEP = -2,
    EXEC_BAD_COMMAND = -3, // an argument is missing, or no family has the identifier
    EXEC_SUSPENDED = -9,   // an include in its body waits to be read; no failure
};

extern "C" {
/* Runs one command, borrowed. Returns an EXEC_ result; a suspended command now
 * belongs to the pending includes and must not be freed by the caller. */
ORV_API int32_t executeCmd(Cmd *cmd, int32_t direct);

/* Opens a template through fOpen, maps it and puts it on top of the include
 * stack; the scanner reads it next. path: copied. recordPending: nonzero when
 * the include stands in a running body, whose entry of the pending includes is
 * on top.
 * Returns an INCLUDE_ result (scanner/input.h); unless pushed, nothing has changed. */
ORV_API int32_t doInclude(const char *path, int32_t recordPending);

/* Closes the template on top, gives the scanner the one beneath and, where an
 * include in a body had suspended a command there, runs that command again.
 * Returns 0 when none was open, when it was the run's own, which keeps its place
 * and name until the run ends, and while fOpen is asked; else 1. */
ORV_API int32_t doExclude();

/* Expands one argument, which may be null; id's escaping bits apply to values.
 * Direct: 0, or -1 for a null argument. Else the offset in the argument buffer
 * of the text, which ends in a zero byte that argLen counts. EXEC_SUSPENDED when
 * an include in it has suspended the command. */
ORV_API int32_t expandArg(Arg *arg, uint32_t id, int32_t direct);

/* Appends text, which must not lie in the buffer. Returns the offset where it
 * starts; -1, with the buffer as it was, when text is null, the limit is reached
 * or memory ran out (both logged). */
ORV_API int32_t pushStr(ArgBuffer *buffer, const char *text);

/* Writes or appends the value of a variable, of the web program or else of the
 * templates. Returns 0, or -1 when there is no such variable. */
ORV_API int32_t lookupVar(const char *name, uint32_t id, int32_t direct);

/* The same for an array's element (mode 0), smallest (1) or greatest index (2):
 * the name says it all. */
ORV_API int32_t lookupArray(const char *name, int32_t mode, uint32_t id, int32_t direct);

/* Writes or appends a numbered value. index: a column, or a level and a column.
 * Returns 0, or -1 when there is none (logged). */
ORV_API int32_t lookupNumvar(const char *index, uint32_t id, int32_t direct);

/* Write or append text, with the characters of HTML text, of a JavaScript
 * string or of a table (replacements by character code, null for none)
 * replaced. Return 0, or -1 for a null text. */
ORV_API int32_t escapeToHtml(const char *text, int32_t direct);
ORV_API int32_t escapeToJs(const char *text, int32_t direct);
ORV_API int32_t escapeByTable(const char *text, int32_t direct, const char *const *table);

/* Writes or appends n in decimal. Returns 0. */
ORV_API int32_t putoutNumber(int32_t n, int32_t direct);

/* Asks the web program. id: of the query command. rows: out, the answer's first
 * row, the caller's, or null. Returns the number of rows; -1 on failure (logged). */
ORV_API int32_t doQuery(const char *query, uint32_t id, QueryRow **rows);

/* A row of one column with a copy of text, or of none when text is null. Null
 * when memory ran out. */
ORV_API QueryRow *createQueryRow(const char *text);

/* A copy of the list from first on; null when first is null or memory ran out. */
ORV_API QueryRow *copyQueryRows(const QueryRow *first);

/* Frees the whole list that *rows is part of and leaves *rows null. */
ORV_API void freeQueryRows(QueryRow **rows);

/* Reads the bounds of a repeat. lower and upper: out; upper is not set when the
 * lower one is no number. Returns 1, or 0 when one is no number (logged). */
ORV_API int32_t doRepeat(const char *lowText, const char *upText, int32_t *lower, int32_t *upper);

/* Compares two texts, as single-precision numbers where both are numbers, else
 * byte by byte. Returns 1 or 0; -1 when id is no comparison. */
ORV_API int32_t doIf(const char *a, const char *b, uint32_t id);

/* Computes with two numbers. Returns the result with as many decimals as the
 * operands have, at most 16 characters, on the heap and the caller's; null when
 * an operand is no number or memory ran out (both logged). */
ORV_API char *doCalc(const char *a, const char *b, uint32_t id);

/* Asks the web program for its error message. rows: out, one row with it for
 * error message, the caller's, else null. Returns 1 when there is an error. */
ORV_API int32_t doError(uint32_t id, QueryRow **rows);

/* Writes a file to the page in Base64 (RFC 4648), without line breaks; nothing
 * when it cannot be opened. path: any path of the file system. */
ORV_API void doBase64(const char *path);

/* Numbered-value indices of column 1 at each level, null where none can be
 * written. */
ORV_API extern const char *const firstColumnNames[MAX_CMD_DEPTH];
}

/* Writes to the page, unless a command that runs again has not reached its
 * include, or appends to the argument buffer. */
void emitBytes(const char *piece, size_t length, int32_t direct);

inline void emitPiece(std::string_view piece, int32_t direct)
{
    emitBytes(piece.data(), piece.size(), direct);
}

/* As pushStr, for a piece of a text. */
int32_t appendPiece(ArgBuffer *buffer, std::string_view piece);

/* Text of the argument buffer at offset, good until the next append; empty
 * while there is no buffer. */
const char *argText(int32_t offset);

/* Logs that bodies or suspended includes are nested too deep. Returns EXEC_TOO_DEEP. */
int32_t refuseDepth();

/* The include command: pushes its template, and suspends the command whose body it
 * stands in. Returns an EXEC_ result. */
int32_t runInclude(Cmd *cmd, const char *path, int32_t direct);

/* Takes over the top-level command that an include has suspended. */
void keepSuspended(Cmd *cmd);

/* Of a body that is about to run: the counter of its first iteration that can do anything
 * but print what has been printed, while its command runs again on its way to an include;
 * else the least of all. What messages such iterations had is not counted again: an open log
 * gets them, and has every iteration run. */
int64_t silentUntil(const Arg *body, int32_t direct);

/* Whether this is the suspended command that runs again, on its way to its include. */
bool isResumed(const Cmd *cmd);

/* As doQuery for that command, whose copied rows serve again where the answer is the same.
 * from: rows in front of that one are not looked at. */
int32_t doQueryAgain(const char *query, uint32_t id, int64_t from, QueryRow **rows);

/* Where the copied rows of the suspended command on top are kept. There must be one. */
QueryRow **keptRows();

/* Leaves rows that were copied to the suspended command on top, and null in *rows. */
void keepRows(QueryRow **rows);

/* Frees all suspended commands of a run that has ended. */
void dropPending();

/* A row's columns, within the room that it has. */
inline int32_t columnCount(const QueryRow *row)
{
    return std::clamp<int32_t>(row->count, 0, ORV_MAX_COLUMNS);
}

#endif
