/* interface/log.h - the diagnostic log and the switch that opens it. */
#ifndef ORV_INTERFACE_LOG_H
#define ORV_INTERFACE_LOG_H

#include <stddef.h>
#include <stdint.h>

#include "interface/orvinterpreter.h"

// Texts cut at the end of their buffers, terminator included.
constexpr size_t LOG_CAPACITY = 500;
constexpr size_t CMDLINE_CAPACITY = 1024;

extern char cmdlineBuf[CMDLINE_CAPACITY];

/* Writes one message, cut at 499 bytes, with one write call; nothing while the
 * log is closed. The message carries its own line end. */
void logMessage(const char *format, ...) __attribute__((format(printf, 1, 2)));

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
