/* grammar/parse.h - the parse of one run, and what the grammar's actions do. */
#ifndef ORV_GRAMMAR_PARSE_H
#define ORV_GRAMMAR_PARSE_H

#include <stdint.h>

#include "grammar/records.h"

extern "C" {
/* Parses the run's template and all that it includes; commands take effect as
 * they are read. Returns 0 at the end of the template, 1 when the parser gave
 * up, 2 when its stack or memory was exhausted (logged). */
ORV_API int32_t doParse();

/* Told of each syntax error in Bison's own words; the log has better ones, so it
 * does nothing. Returns 0. */
ORV_API int zarn_error(const char *text);
}

/* Makes zarn_lval of scanner.value for an argument's token. False when there is no memory
 * for it (logged): the token is to be passed over. */
bool makeValue(int token);

/* Next token for the parser; sets zarn_lval and zarn_lloc. 0 is the end of the run's
 * template, which is then closed; so is one whose EOF_TAG was not taken. */
int zarn_lex();

/* Runs a top-level command and frees it, unless an include has suspended it. */
void runCommand(Cmd *cmd);

/* A command of one argument. name: of a set command, else null; taken over as
 * the argument is. A missing argument is logged. */
Cmd *makeUnary(int token, int32_t line, char *name, Arg *arg);

/* An element of an array to be set; a missing value is logged. */
Cmd *makeElement(int token, int32_t line, char *name, Arg *index, Arg *value);

/* Any other command. Its arguments are taken over. */
Cmd *makeCommand(int token, Arg *a1 = nullptr, Arg *a2 = nullptr, Arg *a3 = nullptr,
                 Arg *a4 = nullptr);

/* A repeat; marker tells whether upper is left out. */
Cmd *makeRepeat(int token, Arg *lower, Arg *upper, Arg *marker, Arg *body);

/* An array reference in front of its index; a missing index is logged and
 * leaves no argument. */
Arg *addArrayRef(ArgElem *name, int32_t line, Arg *index);

/* Report a command that is dropped; they return null for it. */
Cmd *dropMalformed(int token, int32_t line);
Cmd *dropUnknown(int32_t line);
void reportSurplus(int32_t line);

#endif
