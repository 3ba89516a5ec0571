/* scanner/input.h - the open templates and the bytes that come from them. */
#ifndef ORV_SCANNER_INPUT_H
#define ORV_SCANNER_INPUT_H

#include <stdint.h>

#include "interface/interpreter.h"

enum : int32_t {
    INCLUDE_PUSHED = 1,
    INCLUDE_FAILED = -1,
    INCLUDE_TOO_DEEP = -2,
};

extern "C" {
/* Opens a template through fOpen, maps it and puts it on top of the include
 * stack; the scanner reads it next. path: copied. recordPending: nonzero when
 * the include stands in a running body, whose entry of the pending includes is
 * on top.
 * Returns an INCLUDE_ result; unless pushed, nothing has changed. */
ORV_API int32_t doInclude(const char *path, int32_t recordPending);

/* Closes the template on top, gives the scanner the one beneath and, where an
 * include in a body had suspended a command there, runs that command again.
 * Returns 0 when none was open or it was the run's own, which keeps its place
 * and name until the run ends; else 1. */
ORV_API int32_t doExclude();

/* Fills dest from the template on top of the include stack, putting the text
 * of each {?id?} in its place, and moves that template's readPos on.
 * count: out, bytes placed; 0 only when the template is exhausted. max: room in
 * dest in bytes, 1 or more. dest is not terminated. A text too long for an empty
 * dest comes in pieces; the entry owns a copy of the rest, so changing the
 * language meanwhile is harmless. Each missing text is logged. */
ORV_API void readInput(char *dest, int32_t *count, int32_t max);
}

/* Whether nothing more will come from the template on top. */
bool isExhausted();

/* As readInput, without copying: moves the template's readPos over the bytes that
 * readInput would place, max at most. Returns their number; 0, and nothing has
 * changed, when it would not just copy them. */
size_t readInPlace(size_t max);

/* Closes all templates of a run that has ended, however it did, and leaves the
 * scanner empty. */
void closeTemplates();

#endif
