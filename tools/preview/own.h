/* tools/preview/own.h - the preview's own addresses: its scripts, the stream of changes, and
 * the way to the author's editor. */
#ifndef PREVIEW_OWN_H
#define PREVIEW_OWN_H

#include "job.h"

/* Answers where the request's path is one of them. Returns the exit status; -1 where it is
 * none. The request's fields have been read. */
int answerOwn(Job &job);

#endif
