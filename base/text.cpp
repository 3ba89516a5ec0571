/* base/text.cpp - texts that the library keeps. */
#include "base/text.h"

#include <stdlib.h>
#include <string.h>

char *copyText(std::string_view text)
{
    auto *copy = static_cast<char *>(malloc(text.size() + 1));
    if (!copy)
        return nullptr;
    memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}
