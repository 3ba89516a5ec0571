/* grammar/records.cpp - command records: made by the grammar from the inside
 * out, read by the dispatcher, freed as whole trees. Nothing is shared between
 * records. Uses the name of the current template for its messages. */
#include "grammar/records.h"

#include <malloc.h>
#include <stdlib.h>
#include <string.h>

#include <initializer_list>
#include <new>

#include "interface/log.h"
#include "interface/process.h"
#include "interface/text.h"

namespace
{
// What is allocated for an element: with it the record of the argument that it makes,
// used only if the element is that argument's last, and room for a short text.
struct ElemBlock {
    Arg arg;
    ArgElem elem;
    char text[24];
};
} // namespace

// Returns a block for an ElemBlock or a Cmd, or null.
static void *getBlock()
{
    RecordBlock *block = freeRecords;
    if (!block)
        return malloc(sizeof(ElemBlock));
    freeRecords = block->next;
    return block;
}

// Keeps a block for the next record of the run; a sanitizer shall see its end.
static void putBlock(void *block)
{
#ifndef ORV_SANITIZED
    if (inpr) {
        freeRecords = new (block) RecordBlock{freeRecords};
        return;
    }
#endif
    free(block);
}

// The same for a command, which may be somebody else's and too small for other records.
static void putCmd(Cmd *cmd)
{
    if (malloc_usable_size(cmd) < sizeof(ElemBlock))
        free(cmd);
    else
        putBlock(cmd);
}

void dropFreeRecords()
{
    while (RecordBlock *block = freeRecords) {
        freeRecords = block->next;
        free(block);
    }
}

static ElemBlock *blockOf(ArgElem *elem)
{
    return reinterpret_cast<ElemBlock *>(reinterpret_cast<char *>(elem) -
                                         offsetof(ElemBlock, elem));
}

// An argument of the one element.
static void fill(ElemBlock *block, int32_t type, void *value)
{
    block->arg = {&block->elem, nullptr};
    block->elem = {type, value, nullptr};
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
    while (const Arg *arg = first) {
        first = arg->next;
        for (ArgElem *elem = arg->elems; elem;) {
            ElemBlock *block = blockOf(elem);
            if (auto *cmd = static_cast<Cmd *>(elem->type == ELEM_CMD ? elem->value : nullptr)) {
                first = chainArgs(cmd->args, first);
                free(cmd->extra);
                putCmd(cmd);
            } else if (elem->value != block->text)
                free(elem->value);
            elem = elem->next;
            putBlock(block); // of the last element, with arg
        }
    }
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

Cmd *createCmd(uint32_t id, void *extra, Arg *a1, Arg *a2, Arg *a3, Arg *a4)
{
    auto *cmd = static_cast<Cmd *>(getBlock());
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

Arg *addArgElem(Arg *arg, int32_t type, void *value)
{
    auto *block = static_cast<ElemBlock *>(getBlock());
    if (!block) {
        logMessage<Message::ELEMENT_NO_MEMORY>(currentTemplate());
        destroyValue(type, value);
        destroyArg(&arg);
        return nullptr;
    }
    fill(block, type, value);
    return joinArgs(&block->arg, arg);
}

Arg *createArg(int32_t type, std::string_view text)
{
    auto *block = static_cast<ElemBlock *>(getBlock());
    if (!block)
        return nullptr;
    char *copy = block->text;
    if (text.size() < sizeof block->text) {
        memcpy(copy, text.data(), text.size());
        copy[text.size()] = '\0';
    } else if (!(copy = copyText(text))) {
        putBlock(block);
        return nullptr;
    }
    fill(block, type, copy);
    return &block->arg;
}

Arg *joinArgs(Arg *first, Arg *rest)
{
    if (!rest)
        return first;
    first->elems->next = rest->elems;
    rest->elems = first->elems;
    return rest;
}

void destroyCmd(Cmd **cmd)
{
    if (!*cmd)
        return;
    freeArgs((*cmd)->args);
    free((*cmd)->extra);
    putCmd(*cmd);
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
