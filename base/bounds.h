/* base/bounds.h - every limit of the library, and what happens beyond it.
 *
 * Capacities of texts count the terminator. ORV_MAX_COLUMNS and ORV_STACK_NEEDED, which
 * web programs need, stand in the public header. */
#ifndef ORV_BASE_BOUNDS_H
#define ORV_BASE_BOUNDS_H

#include <stddef.h>
#include <stdint.h>

// ---- of a page: refused with a message, and the page goes on ----

// Open templates, the run's own included.
constexpr int32_t MAX_INCLUDE_DEPTH = 20;

// Nested bodies, and suspended includes. A level above 9 has no digit in a template.
constexpr int32_t MAX_CMD_DEPTH = 64;

// The argument buffer grows in such steps while its capacity is at most ARG_MAXLEN.
// What does not fit then is left out whole.
constexpr int32_t ARG_STEP = 1024;
constexpr int32_t ARG_MAXLEN = 65536;

// Symbols of the parser's stack: before it is moved to the heap, and at most. Beyond,
// the run ends (ORV_RUN_GAVE_UP).
#define PARSER_INITIAL_SYMBOLS 200
#define PARSER_MAX_SYMBOLS 10000

// ---- of texts: cut without a message ----

constexpr size_t LOG_CAPACITY = 500;      // a message
constexpr size_t CMDLINE_CAPACITY = 1024; // what is read of the kernel command line
constexpr size_t MARK_CAPACITY = 384;     // a text in its translators' mark
constexpr size_t FIELD_ID_CAPACITY = 129; // a text field's id
constexpr size_t CALC_CAPACITY = 17;      // a result of calc

// ---- of a command that is run without the parser: a longer one goes the long way ----

constexpr size_t MAX_WHOLE_ARGS = 4;
constexpr size_t WHOLE_CAPACITY = 256; // its arguments

// ---- of small templates: larger ones are read where they are mapped ----

constexpr size_t SMALL_TEMPLATE = 4096; // read at once, which costs less than a page fault

// ---- of the scanner: they grow, and without memory the process ends ----

// A test build makes the buffers tiny, so that every match meets the end of one.
#ifndef ORV_BUFFER_CAPACITY
#define ORV_BUFFER_CAPACITY 16384
#define ORV_REFILL_MAX 8192
#endif
constexpr size_t BUFFER_CAPACITY = ORV_BUFFER_CAPACITY; // at first, of one open template
constexpr size_t REFILL_MAX = ORV_REFILL_MAX;           // read at once
constexpr size_t CONDITIONS_STEP = 25;                  // of the stack of start conditions

// ---- of the device's files: a longer path counts as missing ----

// PATH_MAX bytes, the terminator included, with the root in front of it.

// ---- of the table of commands: more of them do not compile ----

constexpr size_t MAX_COMMANDS = 64; // the scanner has a bit of a word for each

// ---- of time: a query that takes longer is told of ----

constexpr unsigned long QUICK_QUERY_MS = 100;

// ---- of pieces: a longer page text or file comes in more of them ----

constexpr size_t BASE64_CAPACITY = 516;   // characters that are collected
constexpr size_t BASE64_FULL_PIECE = 505; // a piece with more than this goes out

#endif
