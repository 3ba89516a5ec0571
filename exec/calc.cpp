/* exec/calc.cpp - sums, differences, products and quotients. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "base/log.h"

// Reads an operand; ordinal names it in the warning when it is no number.
static bool readOperand(const char *text, const char *ordinal, double *value)
{
    char *end;
    *value = strtod(text, &end);
    if (end != text)
        return true;
    logMessage<Message::CALC_NO_NUMBER>(currentTemplate(), currentLine(), ordinal, text);
    return false;
}

// Characters from an operand's full stop to its end, 0 without one.
static size_t precisionOf(const char *text)
{
    const char *stop = strchr(text, '.');
    return stop ? strlen(stop) : 0;
}

static bool compute(uint32_t id, double a, double b, double *result)
{
    switch (id) {
    case ID_CALCPLUS:
        *result = a + b;
        return true;
    case ID_CALCMIN:
        *result = a - b;
        return true;
    case ID_CALCMULT:
        *result = a * b;
        return true;
    case ID_CALCDIV:
        *result = a / b; // by zero: infinity or no number, as the C library writes them
        return true;
    default:
        return false;
    }
}

// Writes value with one decimal less than precision, cut, not rounded; as a
// whole number, rounded, when precision is 0.
static void format(char *text, double value, size_t precision)
{
    snprintf(text, CALC_CAPACITY, precision ? "%f" : "%.0f", value);
    char *stop = precision ? strchr(text, '.') : nullptr;
    if (stop && strlen(stop) > precision)
        stop[precision] = '\0';
}

char *doCalc(const char *a, const char *b, uint32_t id)
{
    double left;
    double right;
    double result;
    if (!readOperand(a, "1st", &left) || !readOperand(b, "2nd", &right) ||
        !compute(id, left, right, &result))
        return nullptr;
    auto *text = static_cast<char *>(malloc(CALC_CAPACITY));
    if (!text) {
        logMessage<Message::CALC_NO_MEMORY>(currentTemplate());
        return nullptr;
    }
    format(text, result, std::max(precisionOf(a), precisionOf(b)));
    return text;
}
