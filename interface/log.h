/* interface/log.h - the diagnostic log and the switch that opens it. */
#ifndef ORV_INTERFACE_LOG_H
#define ORV_INTERFACE_LOG_H

#include <stddef.h>
#include <stdint.h>

#include "interface/bounds.h"
#include "interface/orvinterpreter.h"

extern char cmdlineBuf[CMDLINE_CAPACITY];

/* What a message tells of. The log does not show it; it is counted. */
enum class Severity : uint8_t {
    NOTICE = ORV_LOG_NOTICE,
    WARNING = ORV_LOG_WARNING,
    ERROR = ORV_LOG_ERROR,
};

extern int32_t logCounts[ORV_LOG_SEVERITIES];

/* Counts one message and writes it, cut at 499 bytes, with one write call; while the
 * log is closed it is only counted. The message carries its own line end. Its form:
 *
 *   the template   "%s, line %d: Syntax error..." (grammar), "%s, near line %d: ..."
 *                  (execution), "%s: ..." where no line is known; the name and the
 *                  line are currentTemplate()'s and currentLine()'s
 *   the library    "zarn - ERROR in FUNCTION: ...! (%s)\n", the template's name last
 *                  where one is being read; "zarn - ERROR ..." of databases. Two have
 *                  forms of their own: "ERROR: mmap() on file %s ..." of a template that
 *                  cannot be mapped, and "zarn - Syntaxerror: NO MEMORY! (%s)"
 *   a notice       "zarn - ...", and "%s, query %s: Real Time ..." of a slow query */
void logMessage(Severity severity, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* Name of the template that is being read, for messages; empty without one. */
const char *currentTemplate();

/* Line of it where the scanner stands, counted from 1. */
int32_t currentLine();

/* Opens the log file and gets the message buffer in place of what was open.
 * Returns whether both succeeded; both are stored whatever their outcome. */
bool openLog();

/* Closes the log if there is a message buffer. */
void closeLog();

constexpr int32_t TOOLTIPS_NOT_SET = -1; // the mode without the switch

extern "C" {
ORV_API extern int32_t logfileFd;
ORV_API extern char *logfileBuf;

/* Reads the tooltip mode off the kernel command line: the digit behind its
 * first "tooltip=", 0 when that is none of 0, 1 and 2, -1 without the key. */
ORV_API int32_t getTooltipVar();
}

#endif
