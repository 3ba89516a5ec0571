/* vars/locals.cpp - the plain variables that the web program sets on a handle:
 * a list, newest entry first, whose names need not differ. Called by the
 * variable interface and by variable reads. Uses no process-wide state. */
#include "vars/locals.h"

#include <stdlib.h>
#include <string.h>

int32_t insertLocalVar(LocalVar **head, const char *name, const char *value)
{
    if (!name || !value || !*name)
        return ORV_VARIABLE_REFUSED;
    auto *entry = static_cast<LocalVar *>(malloc(sizeof(LocalVar)));
    char *nameCopy = strdup(name);
    char *valueCopy = strdup(value);
    if (!entry || !nameCopy || !valueCopy) {
        free(entry);
        free(nameCopy);
        free(valueCopy);
        return ORV_VARIABLE_NO_MEMORY;
    }
    entry->name = nameCopy;
    entry->value = valueCopy;
    entry->next = *head;
    *head = entry;
    return ORV_VARIABLE_SET;
}

const char *findLocalVar(const LocalVar *head, const char *name)
{
    if (!name)
        return nullptr;
    for (const LocalVar *entry = head; entry; entry = entry->next)
        if (entry->name[0] == name[0] && strcmp(entry->name, name) == 0)
            return entry->value;
    return nullptr;
}

void destroyLocalVarList(LocalVar **head)
{
    while (LocalVar *entry = *head) {
        *head = entry->next;
        free(entry->name);
        free(entry->value);
        free(entry);
    }
}
