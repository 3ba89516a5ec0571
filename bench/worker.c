/* bench/worker.c - the engine's side of the bench, for the engines in C and C++. */
#include "worker.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static const int ANSWER_FD = 3;

void die(const char *what)
{
    fprintf(stderr, "bench: %s: %s\n", what, strerror(errno));
    exit(1);
}

char *readFile(const char *path, size_t *length)
{
    const int fd = open(path, O_RDONLY);
    struct stat status;
    if (fd < 0 || fstat(fd, &status) != 0)
        die(path);
    const size_t size = (size_t)status.st_size;
    char *bytes = malloc(size + 1);
    if (!bytes || read(fd, bytes, size) != (ssize_t)size)
        die(path);
    close(fd);
    bytes[size] = '\0';
    if (length)
        *length = size;
    return bytes;
}

void writeAll(const char *bytes, size_t length)
{
    while (length > 0) {
        const ssize_t written = write(STDOUT_FILENO, bytes, length);
        if (written < 0)
            die("standard output");
        bytes += written;
        length -= (size_t)written;
    }
}

static void readData(void (*record)(int count, char **fields))
{
    char *next = readFile("data.txt", NULL);
    for (char *line; (line = strsep(&next, "\n")) && *line;) {
        char *fields[MAX_FIELDS];
        int count = 0;
        while (line && count < MAX_FIELDS)
            fields[count++] = strsep(&line, "\t");
        record(count, fields);
    }
}

static void serve(void (*render)(void))
{
    char line[32];
    ssize_t length;
    while ((length = read(STDIN_FILENO, line, sizeof line - 1)) > 0) {
        line[length] = '\0';
        for (long pages = atol(line); pages > 0; --pages)
            render();
        if (write(ANSWER_FD, "\n", 1) != 1)
            die("answer");
    }
}

int runWorker(int argc, char **argv, const Engine *engine)
{
    if (argc < 3 || chdir(argv[1]) != 0)
        die("usage: PROGRAM FOLDER WAY [PAGES]");
    const int status = engine->open(argv[2]);
    if (status != 0)
        return status;
    readData(engine->record);
    if (argc > 3)
        for (long pages = atol(argv[3]); pages > 0; --pages)
            engine->render();
    else
        serve(engine->render);
    if (engine->close)
        engine->close();
    return 0;
}
