/* vars/locals.h - the plain variables that the web program sets on a handle. */
#ifndef ORV_VARS_LOCALS_H
#define ORV_VARS_LOCALS_H

#include <stdint.h>

#include "interface/orvinterpreter.h"

struct LocalVar {
    char *name;     // owned, never empty
    char *value;    // owned
    LocalVar *next; // owned, the entry set before this one
};

extern "C" {
/* Puts a copy of name and value in front of the list at *head. An earlier entry
 * of that name stays behind it. Returns an ORV_VARIABLE_ number: refused for a
 * null text or an empty name. After a failure the list is as before. */
ORV_API int32_t insertLocalVar(LocalVar **head, const char *name, const char *value);

/* Returns the value of the newest entry of that name, borrowed until the list
 * is destroyed; null without one or when name is null. */
ORV_API const char *findLocalVar(const LocalVar *head, const char *name);

/* Frees every entry and leaves *head null. */
ORV_API void destroyLocalVarList(LocalVar **head);
}

#endif
