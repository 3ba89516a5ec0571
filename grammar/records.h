/* grammar/records.h - what a command of a template becomes. */
#ifndef ORV_GRAMMAR_RECORDS_H
#define ORV_GRAMMAR_RECORDS_H

#include <stdint.h>

#include <string_view>

#include "interface/orvinterpreter.h"

enum : int32_t {
    ELEM_CMD = 0,      // a nested command
    ELEM_TEXT = 1,     // literal text
    ELEM_GETVAR = 2,   // a variable's name
    ELEM_NUMVAR = 3,   // a numbered value's index
    ELEM_GETARRAY = 4, // an array's name with its "["; the next element is the index
    ELEM_MINARRAY = 5, // name of the variable with an array's smallest index
    ELEM_MAXARRAY = 6, // and with its greatest
};

// A piece of an argument.
struct ArgElem {
    int32_t type;  // an ELEM_ number
    void *value;   // owned, a Cmd for ELEM_CMD, null for a dropped one, else a text: of a
                   // token's element perhaps in the element's own block
    ArgElem *next; // owned
};

// An argument; one without elements does not exist, null stands for it.
struct Arg {
    ArgElem *elems; // owned, in the template's order
    Arg *next;      // owned by the command, its following argument
};

struct Cmd {
    Arg *args;   // owned, null without arguments
    uint32_t id; // an ID_ number
    void *extra; // owned: a set command's name, a repeat's int32_t flag, else null
};

extern "C" {
/* Makes a command. extra and the arguments are taken over, also on failure;
 * an argument behind a null one does not become part of it and is freed.
 * Returns the command, or null when memory ran out (logged). */
ORV_API Cmd *createCmd(uint32_t id, void *extra, Arg *a1, Arg *a2, Arg *a3, Arg *a4);

/* Puts an element in front of arg, or of a new argument when arg is null.
 * value: by type; it and arg are taken over, also on failure.
 * Returns the argument, or null when memory ran out (logged). */
ORV_API Arg *addArgElem(Arg *arg, int32_t type, void *value);

/* Frees the command and all below it; *cmd may be null and stays as it is. */
ORV_API void destroyCmd(Cmd **cmd);

/* Frees one argument, not the one behind it; *arg may be null and stays as it is. */
ORV_API void destroyArg(Arg **arg);

/* Turns the third argument of a repeat into a flag: 1 when its text begins with
 * "[", the upper bound being left out, else 0. marker is taken over.
 * Returns the flag, on the heap and the caller's; null when memory ran out or
 * the argument is missing or empty (logged). */
ORV_API int32_t *getRepeatUpBound(Arg *marker);
}

/* An element of an argument's token, with a copy of text. Returns null when memory
 * ran out. */
ArgElem *createElem(int32_t type, std::string_view text);

/* Frees one element and its value, not the element behind it. */
void destroyElem(ArgElem *elem);

/* Puts elem in front of arg, or of a new argument when arg is null; both are taken
 * over. Returns the argument, or null when memory ran out (logged). */
Arg *putElem(ArgElem *elem, Arg *arg);

/* Gives the blocks back that have held records and are kept for the next ones of the run
 * in progress, at its end. */
void dropFreeRecords();

#endif
