/* tools/common/fieldid.h - what a text field's id can be. */
#ifndef TOOLS_FIELDID_H
#define TOOLS_FIELDID_H

#include <cstddef>
#include <string_view>

/* The library reads no more of a field's id than this. */
static constexpr size_t MAX_ID_LENGTH = 128;

static constexpr std::string_view ID_CHARACTERS =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._:";

#endif
