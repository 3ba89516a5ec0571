/* exec/escape.cpp - values on their way out: HTML and JavaScript escaping, and
 * decimal numbers. What needs no replacement goes out in one piece. */
#include <stdio.h>

#include <algorithm>
#include <array>

#include "exec/exec.h"
#include "base/process.h"

static constexpr size_t TABLE_SIZE = 64;

static constexpr auto htmlTable = [] {
    std::array<const char *, TABLE_SIZE> table = {};
    table['"'] = "&quot;";
    table['&'] = "&amp;";
    table['<'] = "&lt;";
    table['>'] = "&gt;";
    return table;
}();

static constexpr auto jsTable = [] {
    std::array<const char *, TABLE_SIZE> table = {};
    table['"'] = "\\\"";
    table['\''] = "\\'";
    return table;
}();

int32_t escapeByTable(const char *text, int32_t direct, const char *const *table)
{
    if (!text)
        return -1;
    const char *run = text;
    for (;; ++text) {
        const auto code = static_cast<unsigned char>(*text);
        if (code >= TABLE_SIZE)
            continue;
        if (code == '\0')
            break;
        if (table[code]) {
            emitPiece({run, static_cast<size_t>(text - run)}, direct);
            emitPiece(table[code], direct);
            run = text + 1;
        }
    }
    emitPiece({run, static_cast<size_t>(text - run)}, direct);
    return 0;
}

int32_t escapeToHtml(const char *text, int32_t direct)
{
    return escapeByTable(text, direct, htmlTable.data());
}

int32_t escapeToJs(const char *text, int32_t direct)
{
    return escapeByTable(text, direct, jsTable.data());
}

int32_t putoutNumber(int32_t n, int32_t direct)
{
    constexpr int32_t appendedDigits = 10; // the least number loses its last one
    char digits[sizeof "-2147483648"];
    const int length = snprintf(digits, sizeof digits, "%d", n);
    if (direct) {
        emitPiece({digits, static_cast<size_t>(length)}, direct);
        return 0;
    }
    ArgBuffer *buffer = &inpr->args;
    if (buffer->argCap - buffer->argLen <= appendedDigits) {
        if (pushStr(buffer, "1234567890") < 0)
            return 0;
        buffer->argLen -= appendedDigits;
    }
    appendPiece(buffer, {digits, static_cast<size_t>(std::min(length, appendedDigits))});
    return 0;
}
