/* textdb/textdb.h - text database files: mapped whole, searched in place. */
#ifndef ORV_TEXTDB_TEXTDB_H
#define ORV_TEXTDB_TEXTDB_H

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "interface/orvinterpreter.h"

// A mapped database. Zero-filled, nothing is mapped.
struct TextDatabase {
    const char *image; // node array of the mapping, null when nothing is mapped
    int32_t fd;        // owned while mapped
    char path[4096];   // resolved path; empty for the fallback
    char language[4];  // code that chose the file; empty for the default
};

// A mapping and its length, which the file's size may have left behind.
struct Mapping {
    const char *image; // borrowed: the mapping begins a header before it
    size_t length;     // of the mapping, header included
    Mapping *next;     // owned
};

extern "C" {
/* Returns the value under key in the node array at image, inside the mapping
 * and good until it is unmapped; null when image is null, the key is absent or
 * a record, label or value on its way would lie outside the mapping.
 * attribute: null, or out, the node's flag. */
ORV_API const char *findMmapVar(const char *image, const char *key, int32_t *attribute);

/* Maps the file of that path. image: out, its node array, null on failure.
 * Returns the open descriptor, or a negative number. Its content is not checked. */
ORV_API int32_t loadMmapTree(const char *path, const char **image);

/* Unmaps what loadMmapTree mapped, closes fd and sets *image to null; nothing
 * when it is null. */
ORV_API void unloadMmapTree(const char *path, int32_t fd, const char **image);
}

/* As findMmapVar, with the length that the value had when it was found: whoever
 * overwrites the file may take its end away. Without data() when it returns null. */
std::string_view findText(const char *image, const char *key, int32_t *attribute);

#endif
