/* vars/locals.cpp - the plain variables that the web program sets on a handle: a
 * list, the newest entry first, and an index of it once it is longer than a few.
 *
 * The index is a hash table with open addressing, from a name's hash to the newest
 * entry of that name. It belongs to the head, and passes to each new one; an entry that
 * somebody else has laid out ends what it covers.
 * Between calls: an index holds at most half as many names as it has slots, and knows
 * every entry up to its owner's rest. Called for the request's variables and by reads. */
#include "vars/locals.h"

#include <stdlib.h>
#include <string.h>

#include <string_view>

using std::string_view;

static constexpr uint32_t UNINDEXED = 8; // entries that are found fast enough without

// FNV-1a.
static uint32_t hashOf(const char *name)
{
    uint32_t hash = 2166136261U;
    for (; *name; ++name)
        hash = (hash ^ static_cast<unsigned char>(*name)) * 16777619U;
    return hash;
}

// Where the texts of an entry that was made here stand, in its block. No block of the
// heap begins at an odd address, so a name there is no block of its own.
static char *textsOf(LocalVar *entry)
{
    return reinterpret_cast<char *>(entry + 1) + 1;
}

static bool isOurs(const LocalVar *entry)
{
    return entry->name == textsOf(const_cast<LocalVar *>(entry));
}

static bool isNamed(const LocalVar *entry, uint32_t hash, const char *name)
{
    return entry->hash == hash && strcmp(entry->name, name) == 0;
}

// The slot of the newest entry of that name, or the free one where it would stand.
static LocalVar **slotOf(LocalVar **index, uint32_t slots, uint32_t hash, const char *name)
{
    uint32_t at = hash & (slots - 1);
    while (index[at] && !isNamed(index[at], hash, name))
        at = (at + 1) & (slots - 1);
    return &index[at];
}

// Gives entry, which is to be the head in front of next, that one's index or a larger one.
// Returns false, and nothing has changed, when memory ran out.
static bool passIndex(LocalVar *entry, LocalVar *next)
{
    if (!next || entry->count <= UNINDEXED)
        return true;
    LocalVar **index = next->index;
    uint32_t slots = index ? next->slots : 0;
    if (entry->count > slots / 2) {
        do
            slots = slots ? slots * 2 : UNINDEXED * 4;
        while (entry->count > slots / 2); // somebody may have unlinked the entry with the index
        index = static_cast<LocalVar **>(calloc(slots, sizeof(void *)));
        if (!index)
            return false;
        for (LocalVar *known = next; known != entry->rest; known = known->next) {
            LocalVar **slot = slotOf(index, slots, known->hash, known->name);
            if (!*slot)
                *slot = known;
        }
        free(next->index);
    }
    next->index = nullptr;
    *slotOf(index, slots, entry->hash, entry->name) = entry;
    entry->index = index;
    entry->slots = slots;
    return true;
}

// An entry with copies of both texts, to stand in front of next; null when memory ran out.
static LocalVar *newEntry(string_view name, string_view value, LocalVar *next)
{
    auto *entry =
        static_cast<LocalVar *>(malloc(sizeof(LocalVar) + name.size() + value.size() + 3));
    if (!entry)
        return nullptr;
    char *texts = textsOf(entry);
    const bool joins = next && isOurs(next);
    *entry = {texts, texts + name.size() + 1,      next,    joins ? next->rest : next,
              0,     joins ? next->count + 1 : 1U, nullptr, 0};
    memcpy(entry->name, name.data(), name.size());
    entry->name[name.size()] = '\0';
    entry->hash = hashOf(entry->name);
    memcpy(entry->value, value.data(), value.size());
    entry->value[value.size()] = '\0';
    return entry;
}

int32_t insertLocalVar(LocalVar **head, const char *name, const char *value)
{
    if (!name || !value || !*name)
        return ORV_VARIABLE_REFUSED;
    LocalVar *entry = newEntry(name, value, *head);
    if (!entry || !passIndex(entry, *head)) {
        free(entry);
        return ORV_VARIABLE_NO_MEMORY;
    }
    *head = entry;
    return ORV_VARIABLE_SET;
}

const char *findLocalVar(const LocalVar *head, const char *name)
{
    if (!head || !name)
        return nullptr;
    const uint32_t hash = hashOf(name);
    while (head) {
        const LocalVar *entry = head;
        head = entry->next;
        if (!isOurs(entry)) {
            if (strcmp(entry->name, name) == 0)
                return entry->value;
        } else if (entry->index) {
            head = entry->rest;
            if ((entry = *slotOf(entry->index, entry->slots, hash, name)))
                return entry->value;
        } else if (isNamed(entry, hash, name)) {
            return entry->value;
        }
    }
    return nullptr;
}

void destroyLocalVarList(LocalVar **head)
{
    while (LocalVar *entry = *head) {
        *head = entry->next;
        if (isOurs(entry)) {
            free(entry->index);
        } else {
            free(entry->name);
            free(entry->value);
        }
        free(entry);
    }
}
