/* interface/orvinterpreter.h - the interface of liborvinterpreter.
 *
 * The library renders page templates of a device's web program. The web
 * program makes a handle with three callbacks, sets the request's variables
 * and a language, and runs one template at a time; the page is written to a
 * file descriptor, or handed to a function. A mistake in a template never stops a
 * page: it is reported in the diagnostic log, and the rest of the page is produced.
 *
 * Threads: none. The run in progress, the diagnostic log and the text
 * databases belong to the process, so all calls must come from one thread.
 * Callbacks return: neither an exception nor a jump must leave one, nor the end of their
 * thread (pthread_exit, or its cancelling anywhere in a run): the run would be in progress
 * for ever, and every later one refused.
 *
 * Texts are byte strings that end in a zero byte. The library copies what it
 * keeps; the caller keeps what it passed. */
#ifndef ORVINTERPRETER_H
#define ORVINTERPRETER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define ORV_API __attribute__((visibility("default")))
#else
#define ORV_API
#endif

/* The version of this interface (Semantic Versioning). */
#define ORV_VERSION_MAJOR 1
#define ORV_VERSION_MINOR 2
#define ORV_VERSION_PATCH 0

/* The same as one number, 1002003 for 1.2.3. */
#define ORV_VERSION_NUMBER                                                                         \
    (ORV_VERSION_MAJOR * 1000000 + ORV_VERSION_MINOR * 1000 + ORV_VERSION_PATCH)

/* Returns the ORV_VERSION_NUMBER of the library that runs: a program may have been built with the
 * header of another. */
ORV_API int32_t Orv_Interpreter_Version(void);

/* Results of calls that do one thing or fail. */
enum { ORV_OK = 0, ORV_FAILED = -1 };

/* A handle. Made by Orv_Interpreter_Create, ended by Orv_Interpreter_Destroy. */
typedef struct Interpreter Interpreter;

/* Columns that one row of a query's answer has room for. */
enum { ORV_MAX_COLUMNS = 35 };

/* One row of a query's answer, a link of a list. The layout is shared with
 * the web program, which builds the rows. Rows that it hands over are released
 * with free(), and so is each of their texts, so both must come from malloc(). */
typedef struct QueryRow {
    struct QueryRow *next;       /* the following row, null for the last */
    struct QueryRow *prev;       /* the preceding row, null for the first */
    int32_t count;               /* columns in use, 0 to ORV_MAX_COLUMNS */
    char *cols[ORV_MAX_COLUMNS]; /* the columns' texts, column 1 first */
} QueryRow;

/* What a template asks for: the mode argument of FQuery. */
enum {
    ORV_QUERY_SINGLE = 0, /* query, querytext, queryjs: one row is expected */
    ORV_QUERY_ROWS = 1,   /* multiquery, multiquerytext, multiqueryjs: all rows */
    ORV_QUERY_COUNT = 2   /* multiquerycount: only the number of rows matters */
};

/* Opens a template for reading.
 * interpreter: the handle that runs. path: the template's path as it was given
 * to Orv_Interpreter_Run or to an include command, good during the call.
 *
 * Returns a descriptor, from then on the interpreter's, which maps and closes
 * it; or a negative number when the template cannot be opened (the callback
 * reports the reason itself, if anybody is to know it). The interpreter asks
 * for the file's size by the same path, so the path must lead to the file from
 * the process's working directory as well. May set variables; may not run. */
typedef int32_t (*FOpen)(Interpreter *interpreter, const char *path);

/* Answers one query of a template.
 * mode: an ORV_QUERY_ number. query: the query's text, good during the call.
 * rows: out, any row of the answer's list; left null for no rows.
 * owned: out, nonzero when rows and texts pass to the interpreter, which frees
 * them; 0 when they stay the web program's, and are copied at once. It is 0
 * before the call.
 *
 * Returns 0 on success, anything else on failure; a failed call's rows are
 * neither looked at nor freed. May set variables; may not run. */
typedef int32_t (*FQuery)(Interpreter *interpreter, int32_t mode, const char *query,
                          QueryRow **rows, int32_t *owned);

/* Tells whether the web program has an error to report on the page.
 * message: out, its text; it stays the web program's and is copied at once.
 *
 * Returns nonzero when message was set, 0 when there is no error. Every error
 * command of a template asks anew. May set variables; may not run. */
typedef int32_t (*FError)(Interpreter *interpreter, const char **message);

/* The web program's three callbacks, all of them required. */
typedef struct InterpreterCallbacks {
    FOpen fOpen;
    FQuery fQuery;
    FError fError;
} InterpreterCallbacks;

/* Makes a handle.
 * callbacks: copied.
 *
 * Returns the handle, to be ended by Orv_Interpreter_Destroy; null when
 * callbacks or one of its members is null, or memory ran out. On a device whose
 * kernel command line has the key "tooltip=" it also opens the diagnostic log
 * (see Orv_Interpreter_SetLog), in place of one that is open; that the log
 * cannot be opened is no failure. */
ORV_API Interpreter *Orv_Interpreter_Create(const InterpreterCallbacks *callbacks);

/* Stack, in bytes, that the deepest nesting of commands needs on any machine, besides
 * what the callbacks need. */
#define ORV_STACK_NEEDED (4 * 1024 * 1024)

/* Results of Orv_Interpreter_Run. */
enum {
    ORV_RUN_DONE = 0,          /* the template was read to its end */
    ORV_RUN_NO_TEMPLATE = -1,  /* it could not be opened or mapped; an empty file cannot be */
    ORV_RUN_BAD_ARGUMENT = -2, /* the handle or the path is null */
    ORV_RUN_BUSY = -3,         /* a run is in progress in this process; it is not disturbed */
    ORV_RUN_GAVE_UP = -4       /* the parser stopped before the template's end */
};

/* Runs one template and returns when its page has been written.
 * path: given to FOpen as it is. outputFd: where the page goes, normally the
 * CGI's standard output; it stays open and the caller's. It is to be a blocking
 * descriptor. Writes that are cut short are continued; after an error the rest of
 * that piece is lost and the page goes on (see Orv_Interpreter_OutputError). It is not
 * looked at when a function takes the page, see Orv_Interpreter_SetOutput.
 *
 * Commands may be nested as deep as the parser's 10,000 symbols allow, each level on
 * the caller's stack: a host gives ORV_STACK_NEEDED bytes of it, or trusts its
 * templates not to nest so deep.
 *
 * Variables that templates set stay for the handle's later runs, until
 * Orv_Interpreter_Reset.
 * Returns an ORV_RUN_ number. Whatever it is, every template is closed again
 * and the next run starts clean. */
ORV_API int32_t Orv_Interpreter_Run(Interpreter *interpreter, const char *path, int32_t outputFd);

/* Takes bytes of a page in the place of a descriptor.
 * bytes: good during the call, without a zero byte behind them. length: 1 or more.
 *
 * Returns what write() does: how many bytes it has taken, of which there may be fewer than
 * length: the rest is handed over anew; or a negative number for an error, with errno set. An
 * errno that it leaves alone, and the result 0, count as EIO; after EINTR it is called
 * again.
 * May choose a language, look texts up and use the log. Of the handle that runs it may not
 * set or clear the variables, whose values are being printed: those calls fail. May
 * not run. */
typedef int32_t (*FWrite)(Interpreter *interpreter, const char *bytes, size_t length);

/* Sets where the pages of a handle go.
 * fWrite: takes the pages, piece by piece as a descriptor would or gathered (see
 * Orv_Interpreter_SetOutputBuffer); null, the initial state, for the descriptor that
 * Orv_Interpreter_Run is given.
 *
 * Returns ORV_OK; ORV_FAILED for a null handle and while a run is in progress, and then
 * nothing has changed. */
ORV_API int32_t Orv_Interpreter_SetOutput(Interpreter *interpreter, FWrite fWrite);

/* Returns errno of the first write of the handle's last run, or of the one in
 * progress, that failed; 0 when none has; -1 for a null handle. */
ORV_API int32_t Orv_Interpreter_OutputError(const Interpreter *interpreter);

/* Tells where the run in progress is, for callbacks, or where the handle's last run
 * gave up. line: out, counted from 1; may be null.
 * Returns the template's path as it was pushed, borrowed until the callback returns or
 * the handle's next call; null, and line is 0, when there is no such place, for a null
 * handle, and when memory ran out. */
ORV_API const char *Orv_Interpreter_Position(const Interpreter *interpreter, int32_t *line);

/* Keep a pointer of the web program in the handle, for its callbacks. The library
 * never looks at what it points to. Initially, and for a null handle, it is null. */
ORV_API void Orv_Interpreter_SetHostData(Interpreter *interpreter, void *data);
ORV_API void *Orv_Interpreter_HostData(const Interpreter *interpreter);

/* Ends a handle, or does nothing more than closing the log when it is null.
 * The diagnostic log is the process's: it is closed even when other handles
 * live on. The text databases stay mapped. A handle whose run is in progress is
 * left alone.
 *
 * Returns 0. */
ORV_API int32_t Orv_Interpreter_Destroy(Interpreter *interpreter);

/* Results of Orv_Interpreter_SetVariable. */
enum {
    ORV_VARIABLE_SET = 0,
    ORV_VARIABLE_REFUSED = -1,  /* a null argument, an empty name, an element not stored, or a
                                   call out of the handle's FWrite */
    ORV_VARIABLE_NO_MEMORY = -2 /* a plain variable that memory did not suffice for */
};

/* Sets a variable of the request, during a run or between runs.
 * name: a plain name, which hides a template's variable of that name until
 * Orv_Interpreter_ClearVariables; or array[index], an element of an array that
 * stays until Orv_Interpreter_Reset. The name "lang" also chooses the language, see
 * Orv_Interpreter_SetLanguage; a language that is not there changes nothing.
 * value: may be empty.
 *
 * Returns an ORV_VARIABLE_ number. After a failure what was set before stays. */
ORV_API int32_t Orv_Interpreter_SetVariable(Interpreter *interpreter, const char *name,
                                            const char *value);

/* Removes the plain variables that were set by Orv_Interpreter_SetVariable.
 * Array elements and the templates' own variables stay: the next request's visitor
 * would see them, see Orv_Interpreter_Reset.
 *
 * Returns ORV_OK, or ORV_FAILED for a null handle and out of the handle's FWrite. */
ORV_API int32_t Orv_Interpreter_ClearVariables(Interpreter *interpreter);

/* Makes a handle for the next request what Orv_Interpreter_Create made it: the request's
 * variables, the templates' variables and all arrays are gone, and so is what
 * Orv_Interpreter_OutputError and Orv_Interpreter_Position tell of its last run. Host data,
 * output buffer and output function stay, and so does what is the process's: the
 * language, the log and its counts. It needs no memory.
 *
 * Returns ORV_OK, or ORV_FAILED for a null handle and while a run is in progress: then
 * nothing has changed. */
ORV_API int32_t Orv_Interpreter_Reset(Interpreter *interpreter);

/* Chooses the text database of a language, for all handles of the process.
 * code: two letters such as "de" (ISO 639-1 by custom, not checked), which
 * stand for the file /etc/htmltext_de.db; null or empty for the device's own
 * language, the file behind /var/htmltext.db. Without this call the first text
 * field chooses the latter.
 *
 * What a template has read ahead when the language changes in the middle of a run,
 * up to 8,192 bytes, keeps the texts of the former one. The language outlives
 * handles and runs: a program that serves several requests chooses it for each.
 *
 * Returns ORV_OK, also when that file is in use already; ORV_FAILED when the code
 * does not have two bytes, or the file is missing or cannot be mapped: the
 * database in use then stays in use. On a change, texts of the former database that
 * Orv_Interpreter_LookupDBField has returned are gone. */
ORV_API int32_t Orv_Interpreter_SetLanguage(const char *code);

/* Gathers the pages of a handle: the pieces of a page, each of them one write call or one
 * call of its output function otherwise, are collected and written together.
 * bytes: how much is collected, a few KiB do; 0, the initial state, writes each
 * piece at once. The pieces go out when the next one does not fit, before every
 * callback and at the end of the run; a piece of more than bytes goes out from
 * where it lies. An error loses what it loses without gathering, the rest of one
 * piece. Where page and log go to one descriptor, what is gathered may stand behind
 * messages that came later.
 *
 * Returns ORV_OK; ORV_FAILED for a null handle, a negative number, while a run is
 * in progress, or when memory ran out, and then nothing has changed. */
ORV_API int32_t Orv_Interpreter_SetOutputBuffer(Interpreter *interpreter, int32_t bytes);
#define ORV_HAS_OUTPUT_BUFFER 1 /* for programs that ask whether the call is there */

/* Looks a text up as a text field of a template would, in the database of the
 * chosen language and then in the fallback, /etc/htmltext.db.
 * id: the field's id. On a device whose kernel command line has "tooltip=2" the
 * text comes framed for translators, cut at 383 bytes.
 *
 * Returns the text, borrowed until the next change of language or the next such
 * call; null when no database has it, or id is null. */
ORV_API const char *Orv_Interpreter_LookupDBField(const char *id);

/* Sends the diagnostics to a descriptor of the host, whatever the kernel
 * command line says.
 * fd: duplicated, it stays the caller's; -1 ends the diagnostics. One message is
 * one write. Variables set earlier are not told of. The log is the process's:
 * Orv_Interpreter_Destroy of any handle closes it, and an Orv_Interpreter_Create that opens the log
 * file replaces it.
 *
 * Returns ORV_OK, or ORV_FAILED when the descriptor cannot be duplicated or memory
 * ran out; then nothing has changed. */
ORV_API int32_t Orv_Interpreter_SetLog(int32_t fd);

/* What a message of the diagnostics tells of. */
enum {
    ORV_LOG_NOTICE = 0,  /* nothing is wrong */
    ORV_LOG_WARNING = 1, /* the page may lack something */
    ORV_LOG_ERROR = 2,   /* a command was dropped, or something could not be done */
    ORV_LOG_SEVERITIES = 3
};

/* Returns how many messages of an ORV_LOG_ severity the process has had so far,
 * written or not: the difference of two calls tells whether what lies between them
 * had problems, whatever the messages' words. At most INT32_MAX; -1 when severity is
 * none. */
ORV_API int32_t Orv_Interpreter_LogCount(int32_t severity);

/* Put in front of each path that the library itself knows (/proc/cmdline,
 * /var/log/zarn_interpreter.log, /var/htmltext.db, /etc/htmltext...) when the
 * file is opened; initially the empty text. A host that keeps these files
 * elsewhere sets it before its first call. Borrowed: the text must outlive the
 * last call, and must not be null. Templates' paths are not changed by it. */
ORV_API extern const char *systemRoot;

#ifdef __cplusplus
}
#endif

#endif
