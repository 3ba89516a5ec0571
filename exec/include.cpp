/* exec/include.cpp - what includes do: templates in the place of commands.
 *
 * An include at top level pushes its template, which the scanner reads next. One
 * inside a body cannot be read before the dispatcher has returned: it suspends the
 * whole top-level command, which runs again, its output dropped up to that include,
 * when the included template has ended. The pending includes tie each such template
 * to its command. In t.htm, <?repeat [ 1 3 ] 'x<?include a.htm?>y'?> while a.htm is
 * read for the second time:
 *
 *   includes           pendingIncludes                      the page so far
 *   1  a.htm           0  resumeCmd   the repeat            x A y x A...
 *   0  t.htm <--------    includeLevel 0                            ^ written now
 *                         includeCmd  the include
 *                         counters    2, of its frame
 *
 * At a.htm's end the repeat runs again from 1 with resuming set, in silence, until the
 * include is reached with counter 2; then y follows, and the third iteration suspends
 * again. Between top-level commands: resuming is 0, and each pending
 * include has its resumeCmd. */
#include <stdlib.h>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "base/log.h"
#include "base/process.h"
#include "scanner/buffer.h"
#include "scanner/input.h"

// Whether the outermost bodies are in the iterations in which the awaited include stood.
static bool isOnTheWay(int32_t bodies)
{
    const int32_t *counters = inpr->pendingBodies->counters[inpr->pendingTop];
    for (int32_t level = 0; level < bodies; ++level)
        if (counters[level] != inpr->loopFrames[level].counter)
            return false;
    return true;
}

// Whether a body does nothing that lasts, whatever its values are: it prints, chooses,
// repeats and includes.
static bool onlyPrints(const Arg *arg)
{
    for (; arg; arg = arg->next)
        for (const ArgElem *elem = arg->elems; elem; elem = elem->next) {
            if (elem->type != ELEM_CMD || !elem->value)
                continue;
            const auto *cmd = static_cast<const Cmd *>(elem->value);
            const bool asks = cmd->id & (CMDF_QUERY | CMDF_ERROR);
            const bool prints = cmd->id & (CMDF_BODY | CMDF_IF | CMDF_CALC);
            if (asks || !(prints || cmd->id == ID_INCLUDE) || !onlyPrints(cmd->args))
                return false;
        }
    return true;
}

int64_t silentUntil(const Arg *body, int32_t direct)
{
    if (!inpr->resuming || !direct || observe::seesTokens() || logfileFd >= 0)
        return INT32_MIN;
    const int32_t level = inpr->loopTop + 1;
    if (level > inpr->pendingIncludes[inpr->pendingTop].bodies || !isOnTheWay(level) ||
        !onlyPrints(body))
        return INT32_MIN;
    return inpr->pendingBodies->counters[inpr->pendingTop][level];
}

bool isResumed(const Cmd *cmd)
{
    return inpr->resuming && inpr->pendingIncludes[inpr->pendingTop].resumeCmd == cmd;
}

// Whether the include that suspended the command which runs again is this one:
// the same record in the same iteration of every body around it.
static bool isAwaited(const Cmd *cmd)
{
    const PendingInclude &awaited = inpr->pendingIncludes[inpr->pendingTop];
    return awaited.includeCmd == cmd && awaited.bodies == inpr->loopTop &&
           isOnTheWay(inpr->loopTop + 1);
}

static bool pushPending(Cmd *cmd)
{
    if (!inpr->pendingBodies)
        inpr->pendingBodies = static_cast<PendingBodies *>(malloc(sizeof(PendingBodies)));
    if (!inpr->pendingBodies)
        return false;
    PendingInclude *pending = &inpr->pendingIncludes[++inpr->pendingTop];
    pending->resumeCmd = nullptr;
    pending->includeCmd = cmd;
    pending->bodies = inpr->loopTop;
    for (int32_t level = 0; level <= inpr->loopTop; ++level)
        inpr->pendingBodies->counters[inpr->pendingTop][level] = inpr->loopFrames[level].counter;
    inpr->pendingBodies->rows[inpr->pendingTop] = nullptr;
    return true;
}

static void popPending()
{
    freeQueryRows(keptRows());
    --inpr->pendingTop;
}

int32_t runInclude(Cmd *cmd, const char *path, int32_t direct)
{
    if (!direct && inpr->loopTop >= 0) {
        logMessage<Message::INCLUDE_REFUSED>(currentTemplate());
        return EXEC_DONE;
    }
    if (inpr->resuming) {
        if (isAwaited(cmd)) {
            inpr->resuming = 0;
            popPending();
        }
        return EXEC_DONE;
    }
    if (inpr->loopTop < 0) {
        doInclude(path, 0);
        return EXEC_DONE;
    }
    if (inpr->pendingTop >= MAX_CMD_DEPTH - 1)
        return refuseDepth();
    if (!pushPending(cmd)) {
        logMessage<Message::INCLUDE_NO_MEMORY>(path);
        return EXEC_DONE;
    }
    if (doInclude(path, 1) >= 0)
        return EXEC_SUSPENDED;
    popPending();
    return EXEC_DONE;
}

void keepSuspended(Cmd *cmd)
{
    inpr->pendingIncludes[inpr->pendingTop].resumeCmd = cmd;
}

QueryRow **keptRows()
{
    return &inpr->pendingBodies->rows[inpr->pendingTop];
}

int32_t doInclude(const char *path, int32_t recordPending)
{
    const int32_t parent = inpr->includeIndex;
    const int32_t result = pushTemplate(path);
    if (result == INCLUDE_PUSHED && recordPending)
        inpr->pendingIncludes[inpr->pendingTop].includeLevel = parent;
    return result;
}

// Runs the suspended command of the template that has become current again.
static void resumeSuspended()
{
    if (inpr->pendingTop < 0 ||
        inpr->pendingIncludes[inpr->pendingTop].includeLevel != inpr->includeIndex)
        return;
    Cmd *cmd = inpr->pendingIncludes[inpr->pendingTop].resumeCmd;
    inpr->resuming = 1;
    if (executeCmd(cmd, 1) == EXEC_SUSPENDED)
        return;
    if (inpr->resuming) { // it took another way and never came to its include
        inpr->resuming = 0;
        popPending();
    }
    destroyCmd(&cmd);
}

int32_t doExclude()
{
    if (!inpr || inpr->includeIndex < 0)
        return 0;
    if (inpr->includeIndex == 0 && bytesRead() > 0)
        ownRead(); // a callback closes the run's own: what has been read of it still comes
    if (!popTemplate())
        return 0;
    resumeSuspended();
    return 1;
}

void dropPending()
{
    for (; inpr->pendingTop >= 0; popPending())
        destroyCmd(&inpr->pendingIncludes[inpr->pendingTop].resumeCmd);
    inpr->resuming = 0;
}
