/* grammar/records.cpp - command records: made by the grammar from the inside
 * out, read by the dispatcher, freed as whole trees. Nothing is shared between
 * records. Each is a block of the heap, also one that somebody else has laid out.
 * Uses the name of the current template for its messages. */
#include "grammar/records.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <initializer_list>
#include <new>

#include "base/log.h"
#include "base/process.h"
#include "base/text.h"

namespace
{
// A block that has held a record, kept for the next one of its size in the run in
// progress.
struct RecordBlock {
    RecordBlock *next; // owned
};
struct FreeRecords {
    RecordBlock *cmds; // and elements, which are as large
    RecordBlock *args;
    RecordBlock *texts; // elements with room for a short text
};

// A token's element with its text, if that is short. The text begins at an odd address,
// where no block of the heap does: so a value that lies there is no block of its own.
struct TextElem {
    ArgElem elem;
    char before;
    char text[31];
};
static_assert(offsetof(TextElem, text) % 2 == 1);
static_assert(sizeof(Cmd) == sizeof(ArgElem));
} // namespace

static FreeRecords freeRecords; // empty between runs

// Returns a block of that size, or null.
static void *getBlock(RecordBlock **list, size_t size)
{
    RecordBlock *block = *list;
    if (!block)
        return malloc(size);
    *list = block->next;
    return block;
}

// Keeps a block for the next record of the run; a sanitizer shall see its end.
static void putBlock(RecordBlock **list, void *block)
{
#ifndef ORV_SANITIZED
    if (inpr) {
        *list = new (block) RecordBlock{*list};
        return;
    }
#endif
    static_cast<void>(list);
    free(block);
}

static void dropBlocks(RecordBlock **list)
{
    while (RecordBlock *block = *list) {
        *list = block->next;
        free(block);
    }
}

void dropFreeRecords()
{
    dropBlocks(&freeRecords.cmds);
    dropBlocks(&freeRecords.args);
    dropBlocks(&freeRecords.texts);
}

static void freeCmd(Cmd *cmd)
{
    free(cmd->extra);
    putBlock(&freeRecords.cmds, cmd);
}

// Frees an element with its text; a command that it holds stays.
static void freeElem(ArgElem *elem)
{
    const char *ownText = reinterpret_cast<char *>(elem) + offsetof(TextElem, text);
    if (elem->value == ownText) {
        putBlock(&freeRecords.texts, elem);
        return;
    }
    if (elem->type != ELEM_CMD)
        free(elem->value);
    putBlock(&freeRecords.cmds, elem);
}

// The arguments of a command that goes in front of rest.
static Arg *chainArgs(Arg *args, Arg *rest)
{
    if (!args)
        return rest;
    Arg *last = args;
    while (last->next)
        last = last->next;
    last->next = rest;
    return args;
}

// Frees the arguments from first on and all below them. The arguments of nested
// commands join the list: commands may be nested deeper than a stack.
static void freeArgs(Arg *first)
{
    while (Arg *arg = first) {
        first = arg->next;
        for (ArgElem *elem = arg->elems; elem;) {
            if (auto *cmd = static_cast<Cmd *>(elem->type == ELEM_CMD ? elem->value : nullptr)) {
                first = chainArgs(cmd->args, first);
                freeCmd(cmd);
            }
            ArgElem *next = elem->next;
            freeElem(elem);
            elem = next;
        }
        putBlock(&freeRecords.args, arg);
    }
}

Cmd *createCmd(uint32_t id, void *extra, Arg *a1, Arg *a2, Arg *a3, Arg *a4)
{
    auto *cmd = static_cast<Cmd *>(getBlock(&freeRecords.cmds, sizeof(Cmd)));
    if (!cmd) {
        logMessage<Message::COMMAND_NO_MEMORY>(currentTemplate());
        free(extra);
    } else {
        *cmd = {nullptr, id, extra};
    }
    Arg **link = cmd ? &cmd->args : nullptr;
    for (Arg *arg : {a1, a2, a3, a4}) {
        if (arg && link) {
            *link = arg;
            link = &arg->next;
        } else {
            link = nullptr;
            destroyArg(&arg);
        }
    }
    observe::made(cmd);
    return cmd;
}

static void destroyValue(int32_t type, void *value)
{
    if (type == ELEM_CMD) {
        auto *cmd = static_cast<Cmd *>(value);
        destroyCmd(&cmd);
    } else {
        free(value);
    }
}

// An element with that value; null when memory ran out.
static ArgElem *newElem(int32_t type, void *value)
{
    auto *elem = static_cast<ArgElem *>(getBlock(&freeRecords.cmds, sizeof(ArgElem)));
    if (elem)
        *elem = {type, value, nullptr};
    return elem;
}

Arg *addArgElem(Arg *arg, int32_t type, void *value)
{
    if (ArgElem *elem = newElem(type, value))
        return putElem(elem, arg);
    logMessage<Message::ELEMENT_NO_MEMORY>(currentTemplate());
    destroyValue(type, value);
    destroyArg(&arg);
    return nullptr;
}

void destroyCmd(Cmd **cmd)
{
    if (!*cmd)
        return;
    freeArgs((*cmd)->args);
    freeCmd(*cmd);
}

void destroyArg(Arg **arg)
{
    if (!*arg)
        return;
    (*arg)->next = nullptr;
    freeArgs(*arg);
}

int32_t *getRepeatUpBound(Arg *marker)
{
    const ArgElem *elem = marker ? marker->elems : nullptr;
    const auto *text = static_cast<const char *>(elem ? elem->value : nullptr);
    auto *flag = static_cast<int32_t *>(malloc(sizeof(int32_t)));
    if (!flag || !text) {
        logMessage<Message::BOUNDARY_MISSING>(currentTemplate());
        free(flag);
        flag = nullptr;
    } else {
        *flag = elem->type != ELEM_CMD && *text == '[' ? 1 : 0;
    }
    destroyArg(&marker);
    return flag;
}

ArgElem *createElem(int32_t type, std::string_view text)
{
    if (text.size() >= sizeof(TextElem::text)) {
        char *copy = copyText(text);
        ArgElem *elem = copy ? newElem(type, copy) : nullptr;
        if (!elem)
            free(copy);
        return elem;
    }
    auto *block = static_cast<TextElem *>(getBlock(&freeRecords.texts, sizeof(TextElem)));
    if (!block)
        return nullptr;
    memcpy(block->text, text.data(), text.size());
    block->text[text.size()] = '\0';
    block->elem = {type, block->text, nullptr};
    return &block->elem;
}

void destroyElem(ArgElem *elem)
{
    if (elem->type == ELEM_CMD)
        destroyValue(elem->type, elem->value);
    freeElem(elem);
}

Arg *putElem(ArgElem *elem, Arg *arg)
{
    if (!arg) {
        arg = static_cast<Arg *>(getBlock(&freeRecords.args, sizeof(Arg)));
        if (!arg) {
            logMessage<Message::ELEMENT_NO_MEMORY>(currentTemplate());
            destroyElem(elem);
            return nullptr;
        }
        *arg = {nullptr, nullptr};
    }
    elem->next = arg->elems;
    arg->elems = elem;
    return arg;
}
