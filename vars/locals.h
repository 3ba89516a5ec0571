/* vars/locals.h - the plain variables that the web program sets on a handle. */
#ifndef ORV_VARS_LOCALS_H
#define ORV_VARS_LOCALS_H

#include <stdint.h>

#include "interface/orvinterpreter.h"

// The fields behind next are there only in an entry that insertLocalVar has made. One that
// somebody else has laid out, its texts blocks of their own, may stand anywhere in a list.
struct LocalVar {
    char *name;       // owned, never empty; part of this record's block if made here
    char *value;      // owned; likewise
    LocalVar *next;   // owned, the entry set before this one
    LocalVar *rest;   // behind the entries made here that begin with this one, null at the end
    uint32_t hash;    // of the name
    uint32_t count;   // of entries from here to rest
    LocalVar **index; // of these, owned by the first alone, else null; see locals.cpp
    uint32_t slots;   // of the index, a power of two
};

extern "C" {
/* Puts a copy of name and value in front of the list at *head. An earlier entry
 * of that name stays behind it. Returns an ORV_VARIABLE_ number: refused for a
 * null text or an empty name. After a failure the list is as before. */
ORV_API int32_t insertLocalVar(LocalVar **head, const char *name, const char *value);

/* Returns the value of the newest entry of that name, borrowed until the list
 * is destroyed; null without one or when name is null. head: of a list, or an entry
 * in it, for the entries from there on. */
ORV_API const char *findLocalVar(const LocalVar *head, const char *name);

/* Frees every entry and leaves *head null. */
ORV_API void destroyLocalVarList(LocalVar **head);
}

#endif
