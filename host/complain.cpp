/* host/complain.cpp - one line a problem, in one piece: several programs share the log. */
#include "complain.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

void complain(const char *format, ...)
{
    char line[1024];
    va_list values;
    va_start(values, format);
    vsnprintf(line, sizeof line, format, values);
    va_end(values);
    dprintf(STDERR_FILENO, "%s: %s\n", program_invocation_short_name, line);
}
