/* bench/engines/limit.c - the least that a page of the library can cost: the
 * system calls that it needs, and nothing else. Every template is opened, sized
 * by path and by descriptor, mapped, unmapped and closed; every piece of the
 * page is one write, and lies ready. limit.ops holds them in the page's order:
 *   O path     a template is opened
 *   W length   a piece, whose bytes follow
 *   C          the template opened last is closed
 * Ways: plain, and touch, where every page of a mapping is read as well, as the
 * library must: what that adds is the kernel's page faults. */
#include "worker.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

typedef struct Operation {
    char kind;
    const char *bytes; /* path or piece */
    size_t length;
} Operation;

typedef struct Template {
    int fd;
    void *start;
    size_t length;
} Template;

enum { MAX_OPEN = 20 };

static const size_t PAGE_SIZE = 4096;

static int touchMappings;
static Operation *operations;
static size_t operationCount;

static void add(Operation operation)
{
    if (operationCount % 1024 == 0) {
        operations = realloc(operations, (operationCount + 1024) * sizeof *operations);
        if (!operations)
            die("operations");
    }
    operations[operationCount++] = operation;
}

static int openEngine(const char *way)
{
    touchMappings = strcmp(way, "touch") == 0;
    char *at = readFile("limit.ops", NULL);
    while (*at) {
        char *argument = at + 2;
        char *lineEnd = strchr(at, '\n');
        Operation operation = {*at, argument, 0};
        *lineEnd = '\0';
        at = lineEnd + 1;
        if (operation.kind == 'W') {
            operation.bytes = at;
            operation.length = (size_t)atol(argument);
            at += operation.length;
        }
        add(operation);
    }
    return 0;
}

static void ignoreRecord(int count, char **fields)
{
    (void)count;
    (void)fields;
}

static void touch(const Template *entry)
{
    const volatile char *bytes = entry->start;
    for (size_t at = 0; at < entry->length; at += PAGE_SIZE)
        (void)bytes[at];
}

static void openTemplate(Template *entry, const char *path)
{
    struct stat byPath;
    struct stat byDescriptor;
    entry->fd = open(path, O_RDONLY | O_CLOEXEC);
    if (stat(path, &byPath) != 0 || fstat(entry->fd, &byDescriptor) != 0)
        die(path);
    entry->length = (size_t)byDescriptor.st_size;
    entry->start = mmap(NULL, entry->length, PROT_READ, MAP_SHARED, entry->fd, 0);
    if (entry->start == MAP_FAILED)
        die(path);
    if (touchMappings)
        touch(entry);
}

static void closeTemplate(const Template *entry)
{
    munmap(entry->start, entry->length);
    close(entry->fd);
}

static void render(void)
{
    Template open[MAX_OPEN];
    int depth = 0;
    for (size_t i = 0; i < operationCount; ++i) {
        const Operation *operation = &operations[i];
        if (operation->kind == 'W')
            writeAll(operation->bytes, operation->length);
        else if (operation->kind == 'O')
            openTemplate(&open[depth++], operation->bytes);
        else
            closeTemplate(&open[--depth]);
    }
}

int main(int argc, char **argv)
{
    static const Engine engine = {openEngine, ignoreRecord, render, NULL};
    return runWorker(argc, argv, &engine);
}
