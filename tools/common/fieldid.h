/* tools/common/fieldid.h - what a text field's id can be, as the library reads it. */
#ifndef TOOLS_FIELDID_H
#define TOOLS_FIELDID_H

#include <algorithm>
#include <string_view>

#include "base/bounds.h"
#include "scanner/bytes.h"

/* The library reads no more of a field's id than this. */
static constexpr size_t MAX_ID_LENGTH = FIELD_ID_CAPACITY - 1;

/* Whether a character can stand in an id. */
static inline bool isFieldByte(char c)
{
    return bytes::isIn(static_cast<unsigned char>(c), bytes::FIELD_ID);
}

/* Offset behind the characters of an id that stand at from. */
static inline size_t idEnd(std::string_view text, size_t from)
{
    while (from < text.size() && isFieldByte(text[from]))
        ++from;
    return from;
}

/* Whether an id may stand in a text field. */
static inline bool isFieldId(std::string_view id)
{
    return !id.empty() && idEnd(id, 0) == id.size();
}

#endif
