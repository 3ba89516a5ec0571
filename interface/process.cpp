/* interface/process.cpp - every writable object that belongs to the process.
 *
 * All of it is reached from one thread: one run at a time is the rule that
 * Orv_Interpreter_Run enforces. The parser's own objects (zarn_char, zarn_lval,
 * zarn_lloc, zarn_nerrs) stand in the generated parser. */
#include "interface/process.h"

#include "exec/exec.h"
#include "grammar/records.h"
#include "interface/log.h"
#include "scanner/fields.h"
#include "scanner/scanner.h"
#include "textdb/language.h"

const char *systemRoot = ""; // set by the host before its first call

Interpreter *inpr;                     // borrowed; set only while Orv_Interpreter_Run is active
int32_t logfileFd = -1;                // owned; interface/log.cpp
char *logfileBuf;                      // owned, LOG_CAPACITY bytes; interface/log.cpp
int32_t logCounts[ORV_LOG_SEVERITIES]; // interface/log.cpp; since the process began
TextDatabase htmlDB;                   // textdb/language.cpp; outlives handles
TextDatabase htmlFallbackDB;           // textdb/language.cpp; once mapped, for good

FreeRecords freeRecords; // grammar/records.cpp, empty between runs
Scanner scanner;         // scanner/; outlives handles, in page text and empty after each run
Mapping *mappings;       // textdb/textdb.cpp, every mapped text database
QueryTimes queryTimes;   // exec/query.cpp, during one query

char cmdlineBuf[CMDLINE_CAPACITY]; // interface/log.cpp, the kernel command line
char fieldId[FIELD_ID_CAPACITY];   // scanner/fields.cpp, during one lookup
char fieldMark[MARK_CAPACITY];     // scanner/fields.cpp, until the mark is placed
char lookupBuf[MARK_CAPACITY];     // textdb/language.cpp, until the host's next lookup
