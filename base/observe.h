/* base/observe.h - what a run tells who watches it.
 *
 * In the library that is shipped each function here is empty and leaves no
 * instruction. orv_observed is the same sources with ORV_OBSERVED: there each calls
 * the observer's function of that name, if there is an observer and it has one. The
 * checker and the preview link that, and so look inside a run as a debugger does.
 * An observer is told, and copies what it keeps; it calls nothing of the library but
 * Orv_Interpreter_SetVariable. */
#ifndef ORV_BASE_OBSERVE_H
#define ORV_BASE_OBSERVE_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <concepts>
#include <string_view>

#include "base/messages.h"

struct ArgElem;
struct Cmd;
struct QueryRow;
enum class Condition : uint8_t; // scanner/scanner.h

namespace observe
{
#ifdef ORV_OBSERVED

// A place in the template on top; all of it 0 or empty while none is open.
struct Spot {
    const char *path; // borrowed, as it was pushed
    int32_t line;     // from 1
    size_t offset;    // in the file
};

// What the scanner has matched, from "at" to before "end" in the file.
struct Match {
    size_t at;
    size_t end;
    Condition before; // the scanner's condition in front of it, and behind it
    Condition after;
    size_t depthBefore; // conditions to go back to
    size_t depthAfter;
};

// A value of a message: a text, or else a number.
struct Value {
    const char *text; // null for a number
    int64_t number;
};

inline Value valueOf(const char *text)
{
    return {text, 0};
}
template <std::integral Number> Value valueOf(Number number)
{
    return {nullptr, static_cast<int64_t>(number)};
}

// A message, logged or not.
struct Told {
    Message id;
    Spot spot;           // of the scanner; its line is the one that the message names, if any
    const char *text;    // as the log has it, with the line end
    const Value *values; // of its form, in their order
    size_t count;
};

/* The watcher's functions, each null or called as described. self: the watcher's own. */
struct Observer {
    void *self;
    void (*opened)(void *self, const char *path); // a template is on top now
    void (*closed)(void *self, const char *path); // and not any more
    // A token has been matched. value: the element made of it, else null.
    void (*token)(void *self, int token, const Match &match, const ArgElem *value);
    void (*commented)(void *self, const Match &match); // "<?--", "<?xml", a "<?" inside, "?>"
    void (*unmatched)(void *self, size_t offset);      // a byte without a rule; not printed then
    void (*blundered)(void *self, const Spot &spot);   // the parser has met a syntax error
    void (*made)(void *self, const Cmd *cmd);          // by the grammar, at its end
    bool (*keeps)(void *self, const Cmd *cmd);         // whether a command is not to be run
    void (*begins)(void *self, const Cmd *cmd);        // it is run
    void (*ended)(void *self, const Cmd *cmd, int32_t result); // EXEC_
    // A repeat has its bounds. Returns the upper one that it goes by, the same or a lower one.
    int64_t (*repeats)(void *self, int64_t lower, int64_t upper);
    // A piece of the page; "at" is where it stands if the scanner has just matched it.
    void (*piece)(void *self, std::string_view piece, size_t at);
    // A template sets a variable, or with index not null an element of the array
    // "name[". stored: false when another value has stayed.
    void (*assigned)(void *self, const char *name, const char *index, const char *value,
                     bool stored);
    void (*read)(void *self, const char *name, const char *value); // null: there is none
    void (*asks)(void *self, int32_t mode, const char *query);     // in front of the callback
    void (*answered)(void *self, int32_t result, const QueryRow *rows);
    void (*looksUp)(void *self, const char *id, size_t at); // the text of a field there
    void (*message)(void *self, const Told &told);
    // The file for base64, in the place of fopen(path, "r").
    FILE *(*opensFile)(void *self, const char *path);
};

/* Sets the observer, borrowed until the next call; null for none. */
void setObserver(const Observer *watcher);

// The library's side.
void opened(const char *path);
void closed(const char *path);
void delivered(size_t bytes);
void substituted(size_t placed, size_t fieldLength, size_t textLength);
void matchBegins();
bool seesTokens(); // then each is made, also of what needs none
void token(int token, const ArgElem *value);
void commented();
bool unmatched();
void blundered();
void made(const Cmd *cmd);
bool keeps(const Cmd *cmd);
void begins(const Cmd *cmd);
void ended(const Cmd *cmd, int32_t result);
int64_t repeats(int64_t lower, int64_t upper);
void piece(std::string_view piece);
void assigned(const char *name, const char *index, const char *value, bool stored);
void read(const char *name, const char *value);
void asks(int32_t mode, const char *query);
void answered(int32_t result, const QueryRow *rows);
void looksUp(const char *id, size_t at);
FILE *openFile(const char *path);
void tell(Message id, const char *form, const Value *values, size_t count, ...);

template <typename... Values> void message(Message id, const char *form, Values... values)
{
    const Value list[] = {valueOf(values)..., valueOf(0)};
    tell(id, form, list, sizeof...(values), values...);
}

#else

inline void opened(const char *)
{
}
inline void closed(const char *)
{
}
inline void delivered(size_t)
{
}
inline void substituted(size_t, size_t, size_t)
{
}
inline void matchBegins()
{
}
inline bool seesTokens()
{
    return false;
}
inline void token(int, const ArgElem *)
{
}
inline void commented()
{
}
inline bool unmatched()
{
    return false;
}
inline void blundered()
{
}
inline void made(const Cmd *)
{
}
inline bool keeps(const Cmd *)
{
    return false;
}
inline void begins(const Cmd *)
{
}
inline void ended(const Cmd *, int32_t)
{
}
inline int64_t repeats(int64_t, int64_t upper)
{
    return upper;
}
inline void piece(std::string_view)
{
}
inline void assigned(const char *, const char *, const char *, bool)
{
}
inline void read(const char *, const char *)
{
}
inline void asks(int32_t, const char *)
{
}
inline void answered(int32_t, const QueryRow *)
{
}
inline void looksUp(const char *, size_t)
{
}
inline FILE *openFile(const char *path)
{
    return fopen(path, "r");
}
template <typename... Values> inline void message(Message, const char *, Values...)
{
}

#endif
} // namespace observe

#endif
