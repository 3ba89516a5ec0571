/* vars/number.h - whole numbers in texts, alike on every machine. */
#ifndef ORV_VARS_NUMBER_H
#define ORV_VARS_NUMBER_H

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>

/* Reads a base-10 number as strtol does where a long has 32 bits: leading
 * blanks and a sign are taken, values beyond the range are clamped to its ends.
 * end: out, where reading stopped; text itself when no number stands there. */
inline int32_t readNumber(const char *text, char **end)
{
    const long value = strtol(text, end, 10);
    return static_cast<int32_t>(std::clamp<long>(value, INT32_MIN, INT32_MAX));
}

#endif
