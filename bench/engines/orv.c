/* bench/engines/orv.c - the library in a small web program. Queries are answered
 * from rows in memory that stay this program's, so the library copies them.
 * Ways: plain, and gathered (output buffer). */
#include "orvinterpreter.h"
#include "worker.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

typedef struct Query {
    const char *name;
    QueryRow *first;
    QueryRow *last;
} Query;

enum { MAX_QUERIES = 4 };

static Query queries[MAX_QUERIES];
static int queryCount;
static Interpreter *interpreter;

static int32_t openTemplate(Interpreter *handle, const char *path)
{
    (void)handle;
    return open(path, O_RDONLY | O_CLOEXEC);
}

static int32_t answer(Interpreter *handle, int32_t mode, const char *query, QueryRow **rows,
                      int32_t *owned)
{
    (void)handle;
    (void)mode;
    (void)owned;
    for (int i = 0; i < queryCount; ++i)
        if (strcmp(queries[i].name, query) == 0)
            *rows = queries[i].first;
    return 0;
}

static int32_t noError(Interpreter *handle, const char **message)
{
    (void)handle;
    (void)message;
    return 0;
}

static int openEngine(const char *way)
{
    static const InterpreterCallbacks callbacks = {openTemplate, answer, noError};
    systemRoot = "root";
    interpreter = Orv_Interpreter_Create(&callbacks);
    if (!interpreter || Orv_Interpreter_SetLanguage("en") != 0)
        die("interpreter");
    if (strcmp(way, "gathered") != 0)
        return 0;
    return Orv_Interpreter_SetOutputBuffer(interpreter, 16384) == 0 ? 0 : NOT_AVAILABLE;
}

static void addRow(Query *query, int count, char **columns)
{
    QueryRow *row = calloc(1, sizeof *row);
    if (!row)
        die("row");
    row->count = count;
    memcpy(row->cols, columns, (size_t)count * sizeof *columns);
    row->prev = query->last;
    if (query->last)
        query->last->next = row;
    else
        query->first = row;
    query->last = row;
}

static void record(int count, char **fields)
{
    if (*fields[0] == 'V')
        Orv_Interpreter_SetVariable(interpreter, fields[1], fields[2]);
    else if (*fields[0] == 'Q')
        queries[queryCount++].name = fields[1];
    else if (*fields[0] == 'R')
        addRow(&queries[queryCount - 1], count - 1, fields + 1);
}

static void render(void)
{
    if (Orv_Interpreter_Run(interpreter, "page.htm", STDOUT_FILENO) != ORV_RUN_DONE)
        die("page.htm");
}

static void closeEngine(void)
{
    Orv_Interpreter_Destroy(interpreter);
}

int main(int argc, char **argv)
{
    static const Engine engine = {openEngine, record, render, closeEngine};
    return runWorker(argc, argv, &engine);
}
