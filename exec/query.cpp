/* exec/query.cpp - queries to the web program, and the lists of rows that
 * answer them. Rows that the web program keeps are copied before anything else
 * happens, so what the interpreter holds is always its own. Called by the
 * dispatcher and by the error commands. */
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "base/log.h"
#include "base/process.h"
#include "base/text.h"
#include "base/ticks.h"
#include "scanner/input.h"

namespace
{
// Clock ticks before and after a query.
struct QueryTimes {
    clock_t startTicks;
    tms start;
    tms end;
};
} // namespace

static QueryTimes queryTimes; // during one query

QueryRow *createQueryRow(const char *text)
{
    auto *row = static_cast<QueryRow *>(calloc(1, sizeof(QueryRow)));
    if (!row || !text)
        return row;
    row->cols[0] = copyText(text);
    if (!row->cols[0]) {
        free(row);
        return nullptr;
    }
    row->count = 1;
    return row;
}

// Where the texts of a copied row stand, in the row's block. No block of the heap
// begins at an odd address, so a column there is no text of its own.
static char *ownTexts(QueryRow *row)
{
    return reinterpret_cast<char *>(row + 1) + 1;
}

// A copy of one row, in no list; null when memory ran out.
static QueryRow *copyRow(const QueryRow *source)
{
    const int32_t count = columnCount(source);
    size_t lengths[ORV_MAX_COLUMNS];
    size_t room = 1;
    for (int32_t column = 0; column < count; ++column) {
        const char *text = source->cols[column];
        lengths[column] = text ? strlen(text) : 0;
        room += lengths[column] + 1;
    }
    auto *row = static_cast<QueryRow *>(malloc(sizeof(QueryRow) + room));
    if (!row)
        return nullptr;
    row->next = row->prev = nullptr;
    row->count = count;
    char *text = ownTexts(row);
    for (int32_t column = 0; column < count; ++column) {
        row->cols[column] = text;
        if (lengths[column] > 0)
            memcpy(text, source->cols[column], lengths[column]);
        text += lengths[column];
        *text++ = '\0';
    }
    return row;
}

QueryRow *copyQueryRows(const QueryRow *first)
{
    QueryRow *last = nullptr;
    QueryRow *head = nullptr;
    for (; first; first = first->next) {
        QueryRow *row = copyRow(first);
        if (!row) {
            freeQueryRows(&head);
            return nullptr;
        }
        row->prev = last;
        if (last)
            last->next = row;
        else
            head = row;
        last = row;
    }
    return head;
}

static QueryRow *firstRow(QueryRow *row)
{
    while (row && row->prev)
        row = row->prev;
    return row;
}

static bool isCopied(QueryRow *row)
{
    return columnCount(row) > 0 && row->cols[0] == ownTexts(row);
}

void freeQueryRows(QueryRow **rows)
{
    QueryRow *row = firstRow(*rows);
    *rows = nullptr;
    while (row) {
        QueryRow *next = row->next;
        const int32_t count = isCopied(row) ? 0 : columnCount(row);
        for (int32_t column = 0; column < count; ++column)
            free(row->cols[column]);
        free(row);
        row = next;
    }
}

void keepRows(QueryRow **rows)
{
    if (*rows && isCopied(*rows))
        std::swap(*keptRows(), *rows);
}

static bool isSameRow(const QueryRow *copy, const QueryRow *row)
{
    if (copy->count != columnCount(row))
        return false;
    for (int32_t column = 0; column < copy->count; ++column) {
        const char *text = row->cols[column];
        if (strcmp(copy->cols[column], text ? text : "") != 0)
            return false;
    }
    return true;
}

// The copied rows that are kept, the caller's, if these are the same from a row on; null if not.
static QueryRow *takeKept(const QueryRow *row, int64_t from)
{
    const QueryRow *copy = *keptRows();
    for (; copy && row && (from-- > 0 || isSameRow(copy, row)); row = row->next)
        copy = copy->next;
    QueryRow *taken = nullptr;
    if (!copy && !row)
        std::swap(taken, *keptRows());
    return taken;
}

static int32_t modeOf(uint32_t id)
{
    switch (id) {
    case ID_MULTIQUERY:
    case ID_MULTIQUERYTEXT:
    case ID_MULTIQUERYJS:
        return ORV_QUERY_ROWS;
    case ID_MULTIQUERYCOUNT:
        return ORV_QUERY_COUNT;
    default:
        return ORV_QUERY_SINGLE;
    }
}

static void logSlowQuery(const char *query)
{
    const unsigned long real = milliseconds(queryTimes.startTicks, times(&queryTimes.end));
    if (real > QUICK_QUERY_MS)
        logMessage<Message::QUERY_SLOW>(
            currentTemplate(), query, real,
            milliseconds(queryTimes.start.tms_utime, queryTimes.end.tms_utime),
            milliseconds(queryTimes.start.tms_stime, queryTimes.end.tms_stime));
}

// A copy of an answer that stays the web program's; null when memory ran out.
static QueryRow *copyAnswer(const QueryRow *first, int64_t from)
{
    QueryRow *kept = from < 0 ? nullptr : takeKept(first, from);
    return kept ? kept : copyQueryRows(first);
}

// Takes over an answer, or a copy of it. Returns the number of rows, or -1.
static int32_t takeRows(QueryRow **rows, int32_t mode, bool owned, int64_t from)
{
    *rows = firstRow(*rows);
    int32_t count = 0;
    for (QueryRow *row = *rows; row; row = row->next) {
        if (owned && row->next)
            row->next->prev = row; // it leads back to the first, from where all are freed
        ++count;
    }
    if (mode == ORV_QUERY_COUNT) {
        if (owned)
            freeQueryRows(rows);
        *rows = nullptr;
    } else if (!owned) {
        *rows = copyAnswer(*rows, from);
        if (!*rows) {
            logMessage<Message::QUERY_NO_MEMORY>(currentTemplate());
            return -1;
        }
    }
    return count;
}

// from: as doQueryAgain has it, negative for a command that runs for the first time.
static int32_t ask(const char *query, uint32_t id, int64_t from, QueryRow **rows)
{
    const int32_t mode = modeOf(id);
    int32_t owned = 0;
    *rows = nullptr;
    prepareCallback();
    queryTimes.startTicks = times(&queryTimes.start);
    observe::asks(mode, query);
    const int32_t result = inpr->callbacks->fQuery(inpr, mode, query, rows, &owned);
    observe::answered(result, result == 0 ? *rows : nullptr);
    if (result != 0) {
        *rows = nullptr;
        logMessage<Message::QUERY_FAILED>(currentTemplate());
        return -1;
    }
    logSlowQuery(query);
    if (*rows)
        return takeRows(rows, mode, owned != 0, from);
    if (mode != ORV_QUERY_COUNT)
        logMessage<Message::QUERY_EMPTY>(currentTemplate(), query);
    return 0;
}

int32_t doQuery(const char *query, uint32_t id, QueryRow **rows)
{
    return ask(query, id, -1, rows);
}

int32_t doQueryAgain(const char *query, uint32_t id, int64_t from, QueryRow **rows)
{
    return ask(query, id, std::max<int64_t>(from, 0), rows);
}
