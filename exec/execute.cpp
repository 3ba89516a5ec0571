/* exec/execute.cpp - the dispatcher: every command takes effect here.
 *
 * Leading arguments are expanded to texts, then the command acts, then its body
 * is expanded once per iteration. Each running body has a frame of the loop
 * stack. Between top-level commands of a run: loopTop is -1, argLen is 0. */
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "base/log.h"
#include "base/process.h"
#include "vars/tree.h"

// A level above 9 has no digit, so none can be written from there on.
const char *const firstColumnNames[MAX_CMD_DEPTH] = {"01", "11", "21", "31", "41",
                                                     "51", "61", "71", "81", "91"};

namespace
{
// How often and over which rows a command's body runs. The bounds are wider than
// the counter, so that counting does not overflow at its ends.
struct Loop {
    int64_t lower;
    int64_t upper;
    QueryRow *rows; // owned, the first of them
    Arg *body;      // borrowed, null without one
    int64_t silent; // iterations in front of this one have been printed, and do nothing else
};

// What a command prints in front of its body. An action leaves it here and prints nothing
// itself: the texts of its arguments lie where its output goes when it is nested.
struct Result {
    const char *text; // null for none
    char *made;       // owned, null or the same
    bool isNumber;
    int32_t number;
};
} // namespace

static void setVariable(const char *name, const char *value, uint32_t flags)
{
    if (name && strcmp(name, "lang") == 0)
        Orv_Interpreter_SetLanguage(value);
    const VarNode *stored = insertVar(&inpr->varTree, name, value, flags);
    observe::assigned(name, nullptr, value, stored);
}

static void setElement(const char *name, const char *index, const char *value, uint32_t flags)
{
    const VarNode *stored = insertArray(&inpr->varTree, name, index, value, flags);
    observe::assigned(name, index, value, stored);
}

static void setBounds(const Cmd *cmd, const char *lowText, const char *upText, Loop *loop)
{
    int32_t lower = 0;
    int32_t upper = 0;
    doRepeat(lowText, upText, &lower, &upper);
    const auto *upperExcluded = static_cast<const int32_t *>(cmd->extra);
    loop->lower = static_cast<int64_t>(lower) + (cmd->id == ID_REPEATEXCL);
    const int64_t last = static_cast<int64_t>(upper) - (upperExcluded && *upperExcluded == 1);
    loop->upper = observe::repeats(loop->lower, last);
}

static void query(const Cmd *cmd, const char *text, Loop *loop, Result *result)
{
    const uint32_t id = cmd->id;
    const int32_t rows = isResumed(cmd) ? doQueryAgain(text, id, loop->silent, &loop->rows)
                                        : doQuery(text, id, &loop->rows);
    const bool single = id == ID_QUERY || id == ID_QUERYTEXT || id == ID_QUERYJS;
    loop->upper = single ? 0 : static_cast<int64_t>(rows) - 1;
    result->isNumber = id == ID_MULTIQUERYCOUNT;
    result->number = rows;
}

static void compare(uint32_t id, const char *a, const char *b, Loop *loop, Result *result)
{
    const int32_t holds = doIf(a, b, id);
    if (!loop->body)
        result->text = holds ? "1" : "0";
    else if (!holds)
        loop->body = loop->body->next;
}

static void print(Result *result, int32_t direct)
{
    if (result->isNumber)
        putoutNumber(result->number, direct);
    else if (result->text)
        emitPiece(result->text, direct);
    if (result->made) // rarely: free() itself would be asked for each command
        free(result->made);
}

// Performs the command's action; a1 and a2 are its expanded arguments, good until
// something is appended to the argument buffer.
static int32_t act(const Cmd *cmd, const char *a1, const char *a2, Loop *loop, Result *result)
{
    const auto *name = static_cast<const char *>(cmd->extra);
    switch (cmd->id) {
    case ID_ECHO:
    case ID_PRINT:
    case ID_PRINTJS:
        return EXEC_DONE;
    case ID_BASE64:
        doBase64(a1);
        return EXEC_DONE;
    case ID_SETVARIABLE:
        setVariable(name, a1, VAR_REPLACE);
        return EXEC_DONE;
    case ID_SETVARIABLEONCE:
        setVariable(name, a1, 0);
        return EXEC_DONE;
    case ID_SETARRAY:
        setElement(name, a1, a2, VAR_REPLACE);
        return EXEC_DONE;
    case ID_SETARRAYONCE:
        setElement(name, a1, a2, 0);
        return EXEC_DONE;
    case ID_REPEATINCL:
    case ID_REPEATEXCL:
        setBounds(cmd, a1, a2, loop);
        return EXEC_DONE;
    }
    if (cmd->id & CMDF_QUERY) {
        query(cmd, a1, loop, result);
    } else if (cmd->id & CMDF_IF) {
        compare(cmd->id, a1, a2, loop, result);
    } else if (cmd->id & CMDF_CALC) {
        result->text = result->made = doCalc(a1, a2, cmd->id);
    } else if (cmd->id & CMDF_ERROR) {
        result->number = doError(cmd->id, &loop->rows);
        result->isNumber = cmd->id == ID_ERRORFOUND;
    } else {
        return EXEC_BAD_COMMAND;
    }
    return EXEC_DONE;
}

int32_t refuseDepth()
{
    logMessage<Message::BODIES_TOO_DEEP>(currentTemplate());
    return EXEC_TOO_DEEP;
}

// Expands the body once per iteration. Frees nothing.
static int32_t runBody(Cmd *cmd, Loop *loop, int32_t direct)
{
    if (inpr->loopTop >= MAX_CMD_DEPTH - 1)
        return refuseDepth();
    const int32_t level = ++inpr->loopTop;
    QueryRow *row = loop->rows;
    int32_t result = EXEC_DONE;
    for (int64_t counter = loop->lower; counter <= loop->upper; ++counter) {
        inpr->loopFrames[level] = {row, static_cast<int32_t>(counter)};
        if (counter < loop->silent) {
            // Nothing of it is missed.
        } else if (!loop->body && (cmd->id & (CMDF_QUERY | CMDF_ERROR))) {
            lookupNumvar(firstColumnNames[level], cmd->id, direct);
        } else if (expandArg(loop->body, cmd->id, direct) == EXEC_SUSPENDED) {
            result = EXEC_SUSPENDED;
            break;
        }
        if (row && row->next)
            row = row->next;
    }
    --inpr->loopTop;
    if (result == EXEC_SUSPENDED && inpr->loopTop < 0) {
        keepSuspended(cmd);
        keepRows(&loop->rows);
    }
    return result;
}

static bool hasArgument(const Cmd *cmd, const Arg *arg, const char *ordinal)
{
    if (!arg)
        logMessage<Message::MISSING_ARGUMENT>(ordinal, cmd->id, currentTemplate());
    return arg;
}

// Expands the arguments that the identifier's bits call for, and moves *next
// behind them. Returns whether they are all there.
static bool expandLeading(const Cmd *cmd, Arg **next, int32_t offsets[2])
{
    static constexpr uint32_t bits[] = {CMDF_ARG1, CMDF_ARG2};
    static constexpr const char *ordinals[] = {"1st", "2nd"};
    const int32_t start = inpr->args.argLen;
    bool complete = true;
    for (int i = 0; i < 2 && complete; ++i) {
        if (!(cmd->id & bits[i]))
            continue;
        complete = hasArgument(cmd, *next, ordinals[i]);
        if (complete) {
            offsets[i] = expandArg(*next, 0, 0);
            *next = (*next)->next;
        }
    }
    inpr->args.argLen = start;
    return complete;
}

// Acts with the texts of the leading arguments at offsets, and runs the body. Not
// part of executeCmd, whose frame stands on the stack once for each command that is
// nested in a leading argument, and is to be small.
[[gnu::noinline]] static int32_t perform(Cmd *cmd, Arg *body, const int32_t offsets[2],
                                         int32_t direct)
{
    const char *first = argText(offsets[0]);
    if (cmd->id == ID_INCLUDE)
        return runInclude(cmd, first, direct);
    Loop loop = {0, 0, nullptr, body, silentUntil(body, direct)};
    Result printed = {nullptr, nullptr, false, 0};
    int32_t result = act(cmd, first, argText(offsets[1]), &loop, &printed);
    print(&printed, direct);
    if (result == EXEC_DONE && (cmd->id & CMDF_BODY))
        result = runBody(cmd, &loop, direct);
    freeQueryRows(&loop.rows);
    return result;
}

int32_t executeCmd(Cmd *cmd, int32_t direct)
{
    if (!cmd)
        return EXEC_NO_COMMAND;
    if (observe::keeps(cmd))
        return EXEC_DONE;
    observe::begins(cmd);
    Arg *body = cmd->args;
    int32_t offsets[2] = {0, 0};
    const int32_t result =
        expandLeading(cmd, &body, offsets) ? perform(cmd, body, offsets, direct) : EXEC_BAD_COMMAND;
    observe::ended(cmd, result);
    return result;
}
