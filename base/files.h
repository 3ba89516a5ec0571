/* base/files.h - files that the library itself opens. */
#ifndef ORV_BASE_FILES_H
#define ORV_BASE_FILES_H

#include <stddef.h>

/* Puts systemRoot in front of path, one of the library's own absolute paths.
 * full: out, room for capacity bytes. Returns whether it fits. */
bool systemPath(char *full, size_t capacity, const char *path);

/* Gives fd another number when it has that of a standard stream: what a process
 * writes there, with the stream closed, must not land in a file of ours. fd:
 * closed then; may be negative. Returns the descriptor, closed on exec when it was
 * moved, or a negative number. */
int liftDescriptor(int fd);

/* Opens a file as open() does, closed on exec, on none of the standard streams'
 * numbers. A file that is made is the owner's to write and all to read.
 * Returns the descriptor, the caller's, or a negative number. */
int openFile(const char *path, int flags);

#endif
