/* base/files.cpp - files that the library itself opens. */
#include "base/files.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "interface/orvinterpreter.h"

bool systemPath(char *full, size_t capacity, const char *path)
{
    const int length = snprintf(full, capacity, "%s%s", systemRoot, path);
    return length >= 0 && static_cast<size_t>(length) < capacity;
}

int liftDescriptor(int fd)
{
    if (fd < 0 || fd > STDERR_FILENO)
        return fd;
    const int lifted = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(fd);
    return lifted;
}

int openFile(const char *path, int flags)
{
    return liftDescriptor(open(path, flags | O_CLOEXEC, 0644));
}
