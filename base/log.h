/* base/log.h - the diagnostic log and the switch that opens it. */
#ifndef ORV_BASE_LOG_H
#define ORV_BASE_LOG_H

#include <stddef.h>
#include <stdint.h>

#include "base/bounds.h"
#include "base/messages.h"
#include "base/observe.h"
#include "interface/orvinterpreter.h"

extern int32_t logCounts[ORV_LOG_SEVERITIES];

/* Counts one message and writes it, cut at 499 bytes, with one write call; while the
 * log is closed it is only counted. form: of printf, with the line end. */
void writeMessage(Severity severity, const char *form, ...) __attribute__((format(printf, 2, 3)));

// The forms are constants that have been compared with what they take.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
/* Logs a message, once, where the problem is detected: callers pass results on. */
template <Message MESSAGE, typename... Values> inline void logMessage(Values... values)
{
    constexpr MessageDef def = messageOf(MESSAGE);
    constexpr char kinds[] = {kindOf(Values())..., '\0'};
    static_assert(formTakes(def.form, kinds), "the form takes other values");
    observe::message(MESSAGE, def.form, values...);
    writeMessage(def.severity, def.form, values...);
}
#pragma GCC diagnostic pop

/* Name of the template that is being read, for messages; empty without one. */
const char *currentTemplate();

/* Line of it where the scanner stands, counted from 1. */
int32_t currentLine();

/* Opens the log file and gets the message buffer in place of what was open.
 * Returns whether both succeeded; both are stored whatever their outcome. */
bool openLog();

/* Takes the times at which the run in progress started, for the log's line at its end, or
 * those at which a log was opened in its middle. Without an open log it does nothing. */
void startClock();

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
