/* bench/worker.h - what every engine of the bench has in common, whatever its
 * language: a process that renders one page as often as it is told.
 *
 * Arguments: the folder of the page, the way to run (a word that the engine
 * knows), and how many pages it is to render before it ends, 1 everywhere but in the counts.
 * Otherwise it reads numbers from standard input, a line each, renders the page
 * that many times to standard output and then answers with one byte on
 * descriptor 3. All files of the page stand in its folder, which becomes the
 * working directory. The page's data are in data.txt, a record a line, its
 * fields divided by tabs:
 *   V name value    a variable; on and off are conditions as well
 *   Q name          a query, answered by the rows that follow
 *   R column...     a row; up and down are conditions as well
 *   T id text       a text of the text database
 *   I name          a file that the page includes
 * They are read before the first page, and stand ready in the engine's own form. */
#ifndef BENCH_WORKER_H
#define BENCH_WORKER_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    MAX_FIELDS = 8,     /* of a record of data.txt */
    NOT_AVAILABLE = 77, /* exit status: the engine cannot run in that way here */
};

typedef struct Engine {
    /* Makes the engine ready. Returns 0, or the process's exit status. */
    int (*open)(const char *way);
    /* Takes one record; fields[0] is its letter. The texts stay until the end. */
    void (*record)(int count, char **fields);
    /* Writes one page to standard output. */
    void (*render)(void);
    /* Gives everything back; null where a CGI would just exit. */
    void (*close)(void);
} Engine;

/* The whole program. Returns its exit status. */
int runWorker(int argc, char **argv, const Engine *engine);

/* Reads a whole file, with a zero byte behind it. length: out, or null.
 * Returns the caller's block; ends the process when the file cannot be read. */
char *readFile(const char *path, size_t *length);

/* Writes all bytes to standard output, or ends the process. */
void writeAll(const char *bytes, size_t length);

/* Ends the process with a message. */
void die(const char *what) __attribute__((noreturn));

#ifdef __cplusplus
}
#endif

#endif
