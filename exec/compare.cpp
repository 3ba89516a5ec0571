/* exec/compare.cpp - bounds of repeat and the comparisons of if. */
#include <stdlib.h>
#include <string.h>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "base/log.h"
#include "vars/number.h"

int32_t doRepeat(const char *lowText, const char *upText, int32_t *lower, int32_t *upper)
{
    char *end;
    *lower = readNumber(lowText, &end);
    if (end == lowText) {
        logMessage<Message::LOWER_NO_NUMBER>(currentTemplate(), currentLine(), lowText);
        return 0;
    }
    *upper = readNumber(upText, &end);
    if (end == upText) {
        logMessage<Message::UPPER_NO_NUMBER>(currentTemplate(), currentLine(), upText);
        return 0;
    }
    return 1;
}

// As strtod, which is slow and not needed for a short whole number, nor for a word, unless
// it begins as "inf" and "nan" do, or with a byte that may be a locale's decimal sign.
static double readDouble(const char *text, char **end)
{
    constexpr int longest = 7;
    int32_t whole = 0;
    const char *at = text;
    while (*at >= '0' && *at <= '9' && at - text < longest)
        whole = whole * 10 + (*at++ - '0');
    if (at > text && !*at) {
        *end = const_cast<char *>(at);
        return whole;
    }
    const int first = static_cast<unsigned char>(*text) | 0x20;
    if (first > '9' && first < 0x80 && first != 'i' && first != 'n') {
        *end = const_cast<char *>(text);
        return 0;
    }
    return strtod(text, end);
}

// The sign of a - b; no number when both are numbers and the difference is none.
static float difference(const char *a, const char *b)
{
    char *endOfA;
    char *endOfB;
    const double left = readDouble(a, &endOfA);
    const double right = readDouble(b, &endOfB);
    if (!*a || !*b || *endOfA || *endOfB) {
        const int order = strcmp(a, b);
        return order < 0 ? -1.0F : order > 0 ? 1.0F : 0.0F;
    }
    // Stored, so that no machine keeps more than single precision.
    volatile const float singleLeft = static_cast<float>(left);
    volatile const float singleRight = static_cast<float>(right);
    volatile const float result = singleLeft - singleRight;
    return result;
}

static bool isTrue(const char *text)
{
    return *text && *text != '0';
}

int32_t doIf(const char *a, const char *b, uint32_t id)
{
    if (id == ID_IFAND)
        return isTrue(a) && isTrue(b);
    if (id == ID_IFOR)
        return isTrue(a) || isTrue(b);
    const float d = difference(a, b);
    switch (id) {
    case ID_IFEQ:
        return d == 0;
    case ID_IFNEQ:
        return d != 0;
    case ID_IFGT:
        return d > 0;
    case ID_IFGTE:
        return d >= 0;
    case ID_IFLT:
        return d < 0;
    case ID_IFLTE:
        return d <= 0;
    default:
        return -1;
    }
}
