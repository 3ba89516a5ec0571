/* interface/interpreter.cpp - the life of a handle and the run of a template.
 *
 * A run exists from the moment that inpr is set until it is null again; all
 * inner functions reach the handle through it. Between runs a handle keeps its
 * variables and the argument buffer, and the scanner is empty. */
#include <stdlib.h>
#include <unistd.h>

#include "exec/exec.h"
#include "grammar/parse.h"
#include "base/log.h"
#include "base/output.h"
#include "base/process.h"
#include "base/text.h"
#include "base/ticks.h"
#include "scanner/input.h"
#include "vars/locals.h"
#include "vars/tree.h"

Interpreter *Orv_Interpreter_Create(const InterpreterCallbacks *callbacks)
{
    if (!callbacks || !callbacks->fOpen || !callbacks->fQuery || !callbacks->fError) {
        logMessage<Message::CREATE_BAD_CALLBACKS>();
        return nullptr;
    }
    auto *made = static_cast<Interpreter *>(calloc(1, sizeof(Interpreter)));
    auto *copy =
        static_cast<InterpreterCallbacks *>(made ? malloc(sizeof(InterpreterCallbacks)) : nullptr);
    if (!copy) {
        logMessage<Message::CREATE_NO_MEMORY>();
        free(made);
        return nullptr;
    }
    *copy = *callbacks;
    made->callbacks = copy;
    made->take = write;
    made->tooltipMode = getTooltipVar();
    if (made->tooltipMode != TOOLTIPS_NOT_SET && openLog())
        logMessage<Message::SWITCH_IS_ON>(made->tooltipMode);
    return made;
}

static void logTimes(const Interpreter *run, const char *path)
{
    if (!logfileBuf)
        return;
    tms now;
    const clock_t ticks = times(&now);
    logMessage<Message::RUN_TIMES>(path, milliseconds(run->startTicks, ticks),
                                   milliseconds(run->startTimes.tms_utime, now.tms_utime),
                                   milliseconds(run->startTimes.tms_stime, now.tms_stime),
                                   run->textFieldCount);
}

static void forgetPlace(Interpreter *interpreter)
{
    free(interpreter->gaveUpIn);
    interpreter->gaveUpIn = nullptr;
    interpreter->gaveUpLine = 0;
}

int32_t Orv_Interpreter_Run(Interpreter *interpreter, const char *path, int32_t outputFd)
{
    if (!interpreter || !path) {
        logMessage<Message::RUN_BAD_ARGUMENT>();
        return ORV_RUN_BAD_ARGUMENT;
    }
    if (inpr) {
        logMessage<Message::RUN_BUSY>();
        return ORV_RUN_BUSY;
    }
    interpreter->includeIndex = -1;
    interpreter->loopTop = -1;
    interpreter->pendingTop = -1;
    interpreter->outputFd = outputFd;
    interpreter->textFieldCount = 0;
    interpreter->outputError = 0;
    forgetPlace(interpreter);
    inpr = interpreter;
    startClock();

    int32_t result = ORV_RUN_NO_TEMPLATE;
    if (doInclude(path, 0) > 0)
        result = doParse() == 0 ? ORV_RUN_DONE : ORV_RUN_GAVE_UP;
    if (result == ORV_RUN_GAVE_UP && (interpreter->gaveUpIn = copyText(currentTemplate())))
        interpreter->gaveUpLine = currentLine();
    flushOutput();
    const char *name = interpreter->includes[0].fileName; // path may be gone with its language
    logTimes(interpreter, name ? name : path);
    dropPending();
    closeTemplates();
    dropFreeRecords();
    inpr = nullptr;
    return result;
}

int32_t Orv_Interpreter_OutputError(const Interpreter *interpreter)
{
    return interpreter ? interpreter->outputError : ORV_FAILED;
}

const char *Orv_Interpreter_Position(const Interpreter *interpreter, int32_t *line)
{
    const bool runs = interpreter && interpreter == inpr && interpreter->includeIndex >= 0;
    if (line)
        *line = runs ? currentLine() : interpreter ? interpreter->gaveUpLine : 0;
    return runs ? currentTemplate() : interpreter ? interpreter->gaveUpIn : nullptr;
}

int32_t Orv_Interpreter_Version()
{
    return ORV_VERSION_NUMBER;
}

void Orv_Interpreter_SetHostData(Interpreter *interpreter, void *data)
{
    if (interpreter)
        interpreter->hostData = data;
}

void *Orv_Interpreter_HostData(const Interpreter *interpreter)
{
    return interpreter ? interpreter->hostData : nullptr;
}

// Frees what a handle has come by in its runs and by its variables. Its pointers stay.
static void freeContents(Interpreter *interpreter)
{
    destroyLocalVarList(&interpreter->localVars);
    destroyTree(&interpreter->varTree);
    free(interpreter->args.argBuf);
    free(interpreter->pendingBodies);
    free(interpreter->gaveUpIn);
}

int32_t Orv_Interpreter_Reset(Interpreter *interpreter)
{
    if (!interpreter || inpr)
        return ORV_FAILED;
    freeContents(interpreter);
    Interpreter made = {};
    made.callbacks = interpreter->callbacks;
    made.tooltipMode = interpreter->tooltipMode;
    made.output = interpreter->output;
    made.hostData = interpreter->hostData;
    made.take = interpreter->take;
    made.fWrite = interpreter->fWrite;
    *interpreter = made;
    return ORV_OK;
}

int32_t Orv_Interpreter_Destroy(Interpreter *interpreter)
{
    closeLog();
    if (!interpreter || interpreter == inpr)
        return 0;
    freeContents(interpreter);
    free(interpreter->callbacks);
    freeOutputBuffer(&interpreter->output);
    free(interpreter);
    return 0;
}
