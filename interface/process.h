/* interface/process.h - the objects that belong to the process. */
#ifndef ORV_INTERFACE_PROCESS_H
#define ORV_INTERFACE_PROCESS_H

#include "interface/interpreter.h"
#include "scanner/scanner.h"
#include "textdb/textdb.h"

// Texts cut at the end of their buffers, terminator included.
constexpr size_t LOG_CAPACITY = 500;
constexpr size_t CMDLINE_CAPACITY = 1024;
constexpr size_t MARK_CAPACITY = 384; // a text in its translators' mark
constexpr size_t FIELD_ID_CAPACITY = 129;

// Clock ticks before and after a query.
struct QueryTimes {
    clock_t startTicks;
    tms start;
    tms end;
};

extern "C" {
ORV_API extern Interpreter *inpr;
ORV_API extern int32_t logfileFd;
ORV_API extern char *logfileBuf;
ORV_API extern TextDatabase htmlDB;
ORV_API extern TextDatabase htmlFallbackDB;
}
extern Scanner scanner;
extern Mapping *mappings;
extern QueryTimes queryTimes;
extern char cmdlineBuf[CMDLINE_CAPACITY];
extern char fieldId[FIELD_ID_CAPACITY];
extern char fieldMark[MARK_CAPACITY];
extern char lookupBuf[MARK_CAPACITY];

#endif
