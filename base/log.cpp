/* base/log.cpp - the diagnostic log and the switch that opens it.
 *
 * Every message of the library is composed in one buffer and leaves it in one
 * write, so several processes can append to the same file. The log never
 * reports a failure of its own. Between calls: messages are dropped unless
 * logfileBuf and logfileFd are both there. */
#include "base/log.h"

#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/files.h"
#include "base/process.h"
#include "scanner/scanner.h"

int32_t logfileFd = -1;                   // owned
char *logfileBuf;                         // owned, LOG_CAPACITY bytes
int32_t logCounts[ORV_LOG_SEVERITIES];    // since the process began
static char cmdlineBuf[CMDLINE_CAPACITY]; // the kernel command line

static constexpr char logPath[] = "/var/log/zarn_interpreter.log";
static constexpr char cmdlinePath[] = "/proc/cmdline";
static constexpr char switchKey[] = "tooltip=";

void writeMessage(Severity severity, const char *form, ...)
{
    int32_t &count = logCounts[static_cast<size_t>(severity)];
    count += count < INT32_MAX;
    if (!logfileBuf || logfileFd < 0)
        return;
    va_list arguments;
    va_start(arguments, form);
    vsnprintf(logfileBuf, LOG_CAPACITY, form, arguments);
    va_end(arguments);
    const ssize_t written = write(logfileFd, logfileBuf, strlen(logfileBuf));
    static_cast<void>(written);
}

const char *currentTemplate()
{
    if (!inpr || inpr->includeIndex < 0)
        return "";
    const char *name = inpr->includes[inpr->includeIndex].fileName;
    return name ? name : "";
}

int32_t currentLine()
{
    return scannedLine();
}

static int openSystemFile(const char *path, int flags)
{
    char full[PATH_MAX];
    if (!systemPath(full, sizeof full, path))
        return -1;
    return openFile(full, flags);
}

void startClock()
{
    if (inpr && logfileBuf)
        inpr->startTicks = times(&inpr->startTimes);
}

// Puts a new descriptor and buffer in the place of the old ones.
static void replaceLog(int fd, char *buffer)
{
    if (logfileFd >= 0)
        close(logfileFd);
    free(logfileBuf);
    logfileFd = fd;
    logfileBuf = buffer;
    startClock();
}

bool openLog()
{
    replaceLog(-1, nullptr);
    replaceLog(openSystemFile(logPath, O_WRONLY | O_CREAT | O_APPEND),
               static_cast<char *>(malloc(LOG_CAPACITY)));
    return logfileFd >= 0 && logfileBuf;
}

void closeLog()
{
    if (logfileBuf)
        replaceLog(-1, nullptr);
}

int32_t Orv_Interpreter_SetLog(int32_t fd)
{
    if (fd == -1) {
        replaceLog(-1, nullptr);
        return ORV_OK;
    }
    const int copy = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    char *buffer = static_cast<char *>(malloc(LOG_CAPACITY));
    if (copy < 0 || !buffer) {
        if (copy >= 0)
            close(copy);
        free(buffer);
        return ORV_FAILED;
    }
    replaceLog(copy, buffer);
    return ORV_OK;
}

int32_t Orv_Interpreter_LogCount(int32_t severity)
{
    return severity >= 0 && severity < ORV_LOG_SEVERITIES ? logCounts[severity] : -1;
}

// Reads the kernel command line into cmdlineBuf; returns whether there is any.
static bool readCmdline()
{
    const int fd = openSystemFile(cmdlinePath, O_RDONLY);
    if (fd < 0)
        return false;
    const ssize_t length = read(fd, cmdlineBuf, CMDLINE_CAPACITY - 1);
    close(fd);
    cmdlineBuf[length > 0 ? length : 0] = '\0';
    return length > 0;
}

int32_t getTooltipVar()
{
    char *value = readCmdline() ? strstr(cmdlineBuf, switchKey) : nullptr;
    if (!value) {
        logMessage<Message::SWITCH_IS_OFF>();
        return TOOLTIPS_NOT_SET;
    }
    value += sizeof switchKey - 1;
    if (*value)
        value[1] = '\0';
    const int32_t mode = *value >= '0' && *value <= '9' ? *value - '0' : 0;
    if (mode <= 2)
        return mode;
    logMessage<Message::SWITCH_IS_WRONG>(value);
    return 0;
}
