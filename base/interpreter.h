/* base/interpreter.h - the handle record and what it is made of.
 *
 * Internal: the web program sees Interpreter as an opaque type. The records'
 * fields keep their order; later additions stand at a record's end. */
#ifndef ORV_BASE_INTERPRETER_H
#define ORV_BASE_INTERPRETER_H

#include <stddef.h>
#include <stdint.h>
#include <sys/times.h>
#include <sys/types.h>

#include "base/bounds.h"
#include "interface/orvinterpreter.h"

struct Cmd;
struct LocalVar;
struct ScanBuffer;
struct VarNode;

// The argument buffer: text that commands need whole, such as a query.
// Positions in it are offsets, since the block moves when it grows.
struct ArgBuffer {
    char *argBuf;   // owned, null until first used
    int32_t argLen; // bytes in use
    int32_t argCap; // bytes allocated, argLen or more
};

// State of one running body.
struct LoopFrame {
    QueryRow *rows;  // borrowed, current row of the answer, null when there is none
    int32_t counter; // of the current iteration
};

// An include inside a body: it suspends the whole top-level command, which runs
// again when the included template has ended.
struct PendingInclude {
    Cmd *resumeCmd;       // owned, the top-level command; null until it has returned
    Cmd *includeCmd;      // borrowed, the include inside it
    int32_t includeLevel; // index of the template that holds the command
    int32_t bodies;       // loopTop when it suspended
};

// What the bodies around each pending include were doing, apart from the handle: most pages
// need none of these 16 KB.
struct PendingBodies {
    int32_t counters[MAX_CMD_DEPTH][MAX_CMD_DEPTH]; // of the frames 0 to bodies
    QueryRow *rows[MAX_CMD_DEPTH]; // owned, the copied rows of the outermost; null without any
};

// An open template.
struct IncludeEntry {
    int32_t fd;              // owned
    const char *mapStart;    // owned mapping, read-only; null when it is closed
    const char *readPos;     // next byte for the scanner
    const char *mapLast;     // last byte; the template is exhausted when readPos is beyond
    ScanBuffer *savedBuffer; // of the scanner, while a further template is read on top of this one
    char *fileName;          // owned, the path as it was pushed
    int32_t savedLine;       // line counter, likewise kept
    char *rest;              // owned, undelivered part of a long text, else null
    size_t restPos;          // next byte of it
    size_t restLen;          // its length
    char *copy;              // owned, the bytes of a small template, which are read here; else null
};

// Bits of htmlContext; 0 is the text of an HTML page.
constexpr uint32_t CONTEXT_NOT_HTML = 1;
constexpr uint32_t CONTEXT_TAG = 2;
constexpr uint32_t CONTEXT_SCRIPT = 4;
constexpr uint32_t CONTEXT_STYLE = 8;

// Pieces of the page that wait to be written together.
struct OutputBuffer {
    char *bytes;   // owned, null while each piece is written at once
    uint8_t *ends; // owned likewise, a bit for each length at which a piece has ended
    size_t capacity;
    size_t length;
};

struct Interpreter {
    InterpreterCallbacks *callbacks; // owned
    ArgBuffer args;
    VarNode *varTree;    // owned, null when empty
    LocalVar *localVars; // owned, null when empty
    LoopFrame loopFrames[MAX_CMD_DEPTH];
    int32_t loopTop; // innermost running body, -1 for none
    PendingInclude pendingIncludes[MAX_CMD_DEPTH];
    int32_t pendingTop; // -1 for none
    int32_t resuming;   // 1 while a command runs again and has not reached its include
    IncludeEntry includes[MAX_INCLUDE_DEPTH];
    int32_t includeIndex; // template being read, -1 for none
    int32_t outputFd;
    uint32_t htmlContext;
    int32_t tooltipMode;
    int32_t tooltipLine;
    int32_t textFieldCount;
    clock_t startTicks;
    tms startTimes;
    OutputBuffer output;
    int32_t outputError;          // errno of the first write of the run that failed, 0 for none
    void *hostData;               // the web program's own
    char *gaveUpIn;               // owned, the template in which the last run gave up, else null
    int32_t gaveUpLine;           // and the line there
    PendingBodies *pendingBodies; // owned, null before the first pending include
    ssize_t (*take)(int fd, const void *bytes, size_t length); // write, or what asks fWrite
    FWrite fWrite;     // takes the page in the place of outputFd; null for none
    int32_t isWriting; // 1 while it is asked: what is being written must not go
};

#endif
