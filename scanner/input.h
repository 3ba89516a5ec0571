/* scanner/input.h - the open templates and the bytes that come from them. */
#ifndef ORV_SCANNER_INPUT_H
#define ORV_SCANNER_INPUT_H

#include <stdint.h>

enum : int32_t {
    INCLUDE_PUSHED = 1,
    INCLUDE_FAILED = -1,
    INCLUDE_TOO_DEEP = -2,
};

/* To be called before each callback, which may take long, write to the page's descriptor,
 * and empty or rewrite an open template: what the run has gathered goes out, and what has
 * been read of the templates becomes the scanner's own. */
void prepareCallback();

/* Opens a template through fOpen, maps it and puts it on top of the include
 * stack; the scanner reads it next. path: copied; may be null, which fails, as does
 * a push while fOpen is asked.
 * Returns an INCLUDE_ result; unless pushed, nothing has changed. */
int32_t pushTemplate(const char *path);

/* Closes the template on top and gives the scanner the one beneath. The run's own
 * keeps its place and its name until the run ends. Returns whether there is one
 * beneath; false, and nothing has changed, while fOpen is asked for a further one. */
bool popTemplate();

/* Closes all templates of a run that has ended, however it did, and leaves the
 * scanner empty. */
void closeTemplates();

#endif
