/* grammar/parse.cpp - the parse of one run, and what the grammar's actions do.
 * Syntax errors are reported here, with the line of the command. */
#include "grammar/parse.h"

#include <stdlib.h>
#include <string.h>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "base/log.h"
#include "scanner/scanner.h"

int32_t doParse()
{
    constexpr int memoryExhausted = 2;
    const int result = zarn_parse();
    if (result == memoryExhausted)
        logMessage<Message::PARSER_NO_MEMORY>(currentTemplate());
    return result;
}

int zarn_error(const char *)
{
    observe::blundered();
    return 0;
}

bool makeValue(int token)
{
    static_assert(ARG_MAXARRAY - ARG_TEXT == ELEM_MAXARRAY - ELEM_TEXT);
    static_assert(ARG_MAXARRAY == ARG_MINARRAY + 1);
    if (token < ARG_TEXT || token > ARG_MAXARRAY)
        return true;
    ArgElem *elem = createElem(token - ARG_TEXT + ELEM_TEXT, scanner.value);
    zarn_lval.elem = elem;
    if (!elem) {
        logNoValue();
        return false;
    }
    if (token >= ARG_MINARRAY) // the last byte has only kept the sign's place
        static_cast<char *>(elem->value)[scanner.value.size() - 1] =
            token == ARG_MINARRAY ? '-' : '+';
    return true;
}

// Puts a copy of text, with a zero byte behind it, at place. Returns where the next may go.
static char *placeText(char *place, std::string_view text)
{
    memcpy(place, text.data(), text.size());
    place[text.size()] = '\0';
    return place + text.size() + 1;
}

// Whether a command prints its one argument and does nothing else.
static bool isPrint(uint32_t id)
{
    return id == ID_ECHO || id == ID_PRINT || id == ID_PRINTJS;
}

// What executeCmd comes to for such a command that stands in nothing else.
static void printWhole(uint32_t id)
{
    char copy[WHOLE_CAPACITY];
    const auto &[isVariable, text] = scanner.args[0];
    placeText(copy, text);
    if (isVariable)
        lookupVar(copy, id, 1);
    else
        emitPiece(copy, 1);
}

// Runs a command of the scanner's arguments, as the parser would have it.
static void runWhole(uint32_t id)
{
    if (isPrint(id)) {
        printWhole(id);
        return;
    }
    char copies[WHOLE_CAPACITY];
    char *copy = copies;
    ArgElem elems[MAX_WHOLE_ARGS];
    Arg args[MAX_WHOLE_ARGS];
    Arg *next = nullptr;
    for (size_t i = scanner.argCount; i-- > 0;) {
        const auto &[isVariable, text] = scanner.args[i];
        elems[i] = {isVariable ? ELEM_GETVAR : ELEM_TEXT, copy, nullptr};
        args[i] = {&elems[i], next};
        next = &args[i];
        copy = placeText(copy, text);
    }
    Cmd cmd = {next, id, nullptr};
    executeCmd(&cmd, 1);
}

int zarn_lex()
{
    if (endWasTold()) // a recovery has discarded the end of that template
        doExclude();
    int token = nextToken();
    while (token < 0 || !makeValue(token)) {
        if (token < 0)
            runWhole(commandOf(-token).id);
        token = nextToken();
    }
    observe::token(token, token >= ARG_TEXT && token <= ARG_MAXARRAY ? zarn_lval.elem : nullptr);
    if (token == 0)
        doExclude();
    return token;
}

void runCommand(Cmd *cmd)
{
    if (executeCmd(cmd, 1) != EXEC_SUSPENDED)
        destroyCmd(&cmd);
}

static void reportTooFew(int32_t line)
{
    logMessage<Message::LACKS_ARGUMENT>(currentTemplate(), line);
}

Cmd *makeUnary(int token, int32_t line, char *name, Arg *arg)
{
    if (!arg)
        reportTooFew(line);
    return createCmd(commandOf(token).id, name, arg, nullptr, nullptr, nullptr);
}

Cmd *makeElement(int token, int32_t line, char *name, Arg *index, Arg *value)
{
    if (!value)
        reportTooFew(line);
    return createCmd(commandOf(token).id, name, index, value, nullptr, nullptr);
}

Cmd *makeCommand(int token, Arg *a1, Arg *a2, Arg *a3, Arg *a4)
{
    return createCmd(commandOf(token).id, nullptr, a1, a2, a3, a4);
}

Cmd *makeRepeat(int token, Arg *lower, Arg *upper, Arg *marker, Arg *body)
{
    return createCmd(commandOf(token).id, getRepeatUpBound(marker), lower, upper, body, nullptr);
}

Arg *addArrayRef(ArgElem *name, int32_t line, Arg *index)
{
    if (index)
        return putElem(name, index);
    logMessage<Message::EMPTY_INDEX>(currentTemplate(), line);
    destroyElem(name);
    return nullptr;
}

Cmd *dropMalformed(int token, int32_t line)
{
    const CommandDef &row = commandOf(token);
    const auto name = nameOf(row);
    logMessage<Message::MALFORMED>(currentTemplate(), line, row.stop, name.data());
    return nullptr;
}

Cmd *dropUnknown(int32_t line)
{
    logMessage<Message::UNKNOWN_COMMAND>(currentTemplate(), line);
    return nullptr;
}

void reportSurplus(int32_t line)
{
    logMessage<Message::SURPLUS>(currentTemplate(), line);
}
