/* exec/expand.cpp - arguments become page text, or texts in the argument buffer.
 *
 * Between calls: argLen is at most argCap; behind an append stands a zero byte
 * that argLen does not count, and behind an expanded argument one that it does,
 * so that the next argument starts behind it. Called by the dispatcher, which
 * takes argLen back. Works on the handle of the run. */
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "base/log.h"
#include "base/output.h"
#include "base/process.h"
#include "vars/locals.h"
#include "vars/tree.h"

// Makes room for length bytes and a terminator behind argLen.
static bool reserve(ArgBuffer *buffer, size_t length)
{
    while (length >= static_cast<size_t>(buffer->argCap - buffer->argLen)) {
        if (buffer->argCap > ARG_MAXLEN) {
            logMessage<Message::ARGUMENTS_TOO_LONG>(currentTemplate());
            return false;
        }
        const int32_t grown = buffer->argCap + ARG_STEP;
        auto *block = static_cast<char *>(realloc(buffer->argBuf, static_cast<size_t>(grown)));
        if (!block) {
            logMessage<Message::ARGUMENTS_NO_MEMORY>(grown, currentTemplate());
            return false;
        }
        buffer->argBuf = block;
        buffer->argCap = grown;
    }
    return true;
}

int32_t appendPiece(ArgBuffer *buffer, std::string_view piece)
{
    if (!reserve(buffer, piece.size()))
        return -1;
    const int32_t start = buffer->argLen;
    memcpy(buffer->argBuf + start, piece.data(), piece.size());
    buffer->argLen += static_cast<int32_t>(piece.size());
    buffer->argBuf[buffer->argLen] = '\0';
    return start;
}

int32_t pushStr(ArgBuffer *buffer, const char *text)
{
    return text ? appendPiece(buffer, text) : -1;
}

void emitBytes(const char *piece, size_t length, int32_t direct)
{
    if (!direct)
        appendPiece(&inpr->args, {piece, length});
    else if (!inpr->resuming)
        writeBytes(piece, length);
}

const char *argText(int32_t offset)
{
    return inpr->args.argBuf ? inpr->args.argBuf + offset : "";
}

static void terminateAt(ArgBuffer *buffer, int32_t offset)
{
    if (offset < buffer->argCap)
        buffer->argBuf[offset] = '\0';
}

// Ends the argument that began at start; returns the offset of its text.
static int32_t endArgument(int32_t start)
{
    ArgBuffer *buffer = &inpr->args;
    if (buffer->argLen < buffer->argCap || appendPiece(buffer, "") >= 0) {
        terminateAt(buffer, buffer->argLen);
        ++buffer->argLen;
    }
    // A nested command without a result may have taken the terminator in front of
    // the argument, and left its own arguments' texts behind it.
    if (buffer->argLen <= start)
        terminateAt(buffer, start);
    // At the limit there is no room for an empty argument: the last terminator is one.
    return start < buffer->argCap ? start : std::max(buffer->argCap - 1, 0);
}

static int32_t emitValue(const char *value, uint32_t id, int32_t direct)
{
    if (id & CMDF_HTML)
        return escapeToHtml(value, direct);
    if (id & CMDF_JS)
        return escapeToJs(value, direct);
    emitPiece(value, direct);
    return 0;
}

int32_t lookupVar(const char *name, uint32_t id, int32_t direct)
{
    if (direct && inpr->resuming)
        return 0;
    const char *value = findLocalVar(inpr->localVars, name);
    if (!value)
        value = findVar(inpr->varTree, name);
    observe::read(name, value);
    return value ? emitValue(value, id, direct) : -1;
}

int32_t lookupArray(const char *name, int32_t, uint32_t id, int32_t direct)
{
    return lookupVar(name, id, direct);
}

// Column that a character stands for: the digits, then the letters from 10 on.
static int32_t columnOf(char c)
{
    const int32_t code = static_cast<unsigned char>(c);
    return code <= '9' ? code - '0' : code - 87;
}

int32_t lookupNumvar(const char *index, uint32_t id, int32_t direct)
{
    if (!index || !*index) {
        logMessage<Message::EMPTY_NUMBER>(currentTemplate(), currentLine());
        return -1;
    }
    if (direct && inpr->resuming)
        return 0;
    const char *columnText = index[1] ? index + 1 : index;
    const int32_t level = index[1] ? static_cast<unsigned char>(*index) - '0' : 0;
    const int32_t column = columnOf(*columnText);
    if (level < 0 || column < 0 || level > inpr->loopTop) {
        logMessage<Message::NUMBER_TOO_DEEP>(currentTemplate(), currentLine(), columnText);
        return -1;
    }
    const LoopFrame &frame = inpr->loopFrames[level];
    if (column == 0)
        return putoutNumber(frame.counter, direct);
    if (!frame.rows || column > columnCount(frame.rows)) {
        logMessage<Message::NUMBER_NO_COLUMN>(currentTemplate(), columnText);
        return -1;
    }
    const char *value = frame.rows->cols[column - 1];
    return emitValue(value ? value : "", id, direct);
}

// Runs a nested command whose result becomes part of the argument.
static int32_t appendCommand(Cmd *cmd)
{
    ArgBuffer *buffer = &inpr->args;
    const int32_t result = executeCmd(cmd, 0);
    if (buffer->argLen > 0 && buffer->argBuf[buffer->argLen - 1] == '\0')
        --buffer->argLen;
    return result;
}

// Any element but a command and an array's name. Returns whether it is of a known kind.
static bool expandElement(const ArgElem *elem, uint32_t id, int32_t direct)
{
    const auto *text = static_cast<const char *>(elem->value);
    if (elem->type == ELEM_TEXT) { // most are
        emitPiece(text ? text : "", direct);
        return true;
    }
    switch (elem->type) {
    case ELEM_GETVAR:
        lookupVar(text, id, direct);
        return true;
    case ELEM_NUMVAR:
        lookupNumvar(text, id, direct);
        return true;
    case ELEM_MINARRAY:
        lookupArray(text, 1, id, direct);
        return true;
    case ELEM_MAXARRAY:
        lookupArray(text, 2, id, direct);
        return true;
    }
    logMessage<Message::UNKNOWN_ELEMENT>();
    return false;
}

// Puts the element of the array whose name and index stand in the buffer from
// name on, in their place or on the page.
static void expandArrayElement(int32_t name, uint32_t id, int32_t direct)
{
    ArgBuffer *buffer = &inpr->args;
    terminateAt(buffer, buffer->argLen);
    buffer->argLen = name;
    lookupArray(argText(name), 0, id, direct);
}

int32_t expandArg(Arg *arg, uint32_t id, int32_t direct)
{
    const int32_t start = inpr->args.argLen;
    if (!arg && direct)
        return -1;
    int32_t arrayName = -1; // offset of a name that waits for its index
    for (const ArgElem *elem = arg ? arg->elems : nullptr; elem; elem = elem->next) {
        const int32_t write = direct && arrayName < 0;
        if (elem->type == ELEM_GETARRAY) {
            arrayName = pushStr(&inpr->args, static_cast<const char *>(elem->value));
            continue;
        }
        if (elem->type == ELEM_CMD) {
            auto *cmd = static_cast<Cmd *>(elem->value);
            const int32_t result = write ? executeCmd(cmd, 1) : appendCommand(cmd);
            if (result == EXEC_SUSPENDED) {
                inpr->args.argLen = start;
                return result;
            }
        } else if (!expandElement(elem, id, write)) {
            continue;
        }
        if (arrayName >= 0) {
            expandArrayElement(arrayName, id, direct);
            arrayName = -1;
        }
    }
    if (!direct)
        return endArgument(start);
    inpr->args.argLen = start;
    return 0;
}
