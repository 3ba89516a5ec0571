/* scanner/fields.h - the bytes of the template on top, with its texts in the place
 * of its text fields. */
#ifndef ORV_SCANNER_FIELDS_H
#define ORV_SCANNER_FIELDS_H

#include <stddef.h>
#include <stdint.h>

#include "base/bounds.h"
#include "interface/orvinterpreter.h"

extern "C" {
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

/* Where the template's next byte lies, good as long as the template is open. */
const char *nextByte();

/* As readInput, without copying: moves the template's readPos over the bytes that
 * readInput would place, max at most. Returns their number; 0, and nothing has
 * changed, when it would not just copy them. */
size_t readInPlace(size_t max);

#endif
