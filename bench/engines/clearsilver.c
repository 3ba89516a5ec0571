/* bench/engines/clearsilver.c - the engine ClearSilver. Ways: parse, compiled. */
#include "worker.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <ClearSilver/ClearSilver.h>

static HDF *data;
static CSPARSE *parsed;
static STRING page;
static int parseEach;
static const char *query;
static int rowCount;

static void check(NEOERR *error, const char *what)
{
    if (error == STATUS_OK)
        return;
    nerr_log_error(error);
    die(what);
}

static int openEngine(const char *way)
{
    parseEach = strcmp(way, "parse") == 0;
    string_init(&page);
    check(hdf_init(&data), "hdf");
    check(hdf_set_value(data, "hdf.loadpaths.0", "."), "hdf");
    return 0;
}

static void set(const char *tree, const char *name, const char *value)
{
    char path[256];
    snprintf(path, sizeof path, "%s.%s", tree, name);
    check(hdf_set_value(data, path, value), path);
}

static void addRow(int count, char **columns)
{
    char row[128];
    char column[16];
    snprintf(row, sizeof row, "q.%s.%d", query, rowCount++);
    for (int i = 0; i < count; ++i) {
        snprintf(column, sizeof column, "c%d", i + 1);
        set(row, column, columns[i]);
    }
}

static void record(int count, char **fields)
{
    switch (*fields[0]) {
    case 'V':
        set("v", fields[1], fields[2]);
        break;
    case 'T':
        set("t", fields[1], fields[2]);
        break;
    case 'Q':
        query = fields[1];
        rowCount = 0;
        break;
    case 'R':
        addRow(count - 1, fields + 1);
        break;
    }
}

static NEOERR *append(void *context, char *text)
{
    return string_append(context, text);
}

static void render(void)
{
    if (parseEach && parsed)
        cs_destroy(&parsed);
    if (!parsed) {
        check(cs_init(&parsed, data), "parser");
        check(cgi_register_strfuncs(parsed), "functions");
        check(cs_parse_file(parsed, "page.cst"), "page.cst");
    }
    page.len = 0;
    check(cs_render(parsed, &page, append), "page.cst");
    writeAll(page.buf, (size_t)page.len);
}

int main(int argc, char **argv)
{
    static const Engine engine = {openEngine, record, render, NULL};
    return runWorker(argc, argv, &engine);
}
