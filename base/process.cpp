/* base/process.cpp - the run in progress, and a list of every writable object that belongs
 * to the process. Each of the others stands at the top of its subsystem's source:
 *
 *   base/log.cpp          logfileFd, logfileBuf, logCounts, the kernel command line
 *   scanner/scanner.cpp   scanner
 *   scanner/fields.cpp    a field's id and its mark
 *   grammar/records.cpp   freeRecords
 *   exec/query.cpp        queryTimes
 *   textdb/language.cpp   htmlDB, htmlFallbackDB, the host's last lookup
 *   textdb/textdb.cpp     mappings
 *   the generated parser  zarn_char, zarn_lval, zarn_lloc, zarn_nerrs
 *
 * All of it is reached from one thread: one run at a time is the rule that
 * Orv_Interpreter_Run enforces. */
#include "base/process.h"

const char *systemRoot = ""; // set by the host before its first call

Interpreter *inpr; // borrowed; set only while Orv_Interpreter_Run is active
