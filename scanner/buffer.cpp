/* scanner/buffer.cpp - the buffers of the open templates and the stack of start
 * conditions.
 *
 * There is no page without them, so here alone a lack of memory ends the
 * process, with one line on the standard error stream. Between calls: the bytes
 * from pos to end of a buffer are still to be scanned. */
#include "scanner/buffer.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "interface/output.h"
#include "scanner/input.h"

// A test build makes them tiny, so that every match meets the end of a buffer.
#ifndef ORV_BUFFER_CAPACITY
#define ORV_BUFFER_CAPACITY 16384
#define ORV_REFILL_MAX 8192
#endif
static constexpr size_t BUFFER_CAPACITY = ORV_BUFFER_CAPACITY;
static constexpr size_t REFILL_MAX = ORV_REFILL_MAX;
static constexpr size_t STACK_STEP = 25;

[[noreturn]] static void fail(const char *problem)
{
    if (inpr)
        flushOutput();
    fprintf(stderr, "zarn - scanner: %s\n", problem);
    exit(2);
}

static void *resize(void *block, size_t size)
{
    void *resized = realloc(block, size);
    if (!resized)
        fail("out of memory");
    return resized;
}

ScanBuffer *createBuffer()
{
    auto *buffer = static_cast<ScanBuffer *>(resize(nullptr, sizeof(ScanBuffer)));
    auto *bytes = static_cast<char *>(resize(nullptr, BUFFER_CAPACITY + 1));
    *buffer = {bytes, BUFFER_CAPACITY, 0, 0};
    return buffer;
}

void destroyBuffer(ScanBuffer *buffer)
{
    if (!buffer)
        return;
    free(buffer->bytes);
    free(buffer);
}

bool refill()
{
    ScanBuffer *buffer = scanner.buffer;
    const size_t unfinished = buffer->end - buffer->pos;
    memmove(buffer->bytes, buffer->bytes + buffer->pos, unfinished);
    buffer->pos = 0;
    buffer->end = unfinished;
    // One byte stays free behind the last: room for a token's terminator.
    while (unfinished + 1 >= buffer->capacity) {
        if (buffer->capacity > SIZE_MAX / 2 - 1)
            fail("a piece of a template is too long");
        buffer->bytes = static_cast<char *>(resize(buffer->bytes, buffer->capacity * 2 + 1));
        buffer->capacity *= 2;
    }
    const size_t room = std::min(buffer->capacity - unfinished - 1, REFILL_MAX);
    int32_t count = 0;
    readInput(buffer->bytes + unfinished, &count, static_cast<int32_t>(room));
    buffer->end += static_cast<size_t>(count);
    return count > 0;
}

void enterCondition(Condition condition)
{
    if (scanner.depth == scanner.stackRoom) {
        const size_t room = scanner.stackRoom + STACK_STEP;
        scanner.stack =
            static_cast<Condition *>(resize(scanner.stack, room * sizeof(Condition)));
        scanner.stackRoom = room;
    }
    scanner.stack[scanner.depth++] = scanner.condition;
    scanner.condition = condition;
}

void leaveCondition()
{
    if (scanner.depth == 0)
        fail("no start condition to go back to");
    scanner.condition = scanner.stack[--scanner.depth];
}

void resetScanner()
{
    scanner.condition = Condition::TEXT;
    scanner.depth = 0;
    ScanBuffer *buffer = scanner.buffer;
    if (!buffer)
        return;
    buffer->pos = 0;
    buffer->end = 0;
    if (buffer->capacity == BUFFER_CAPACITY)
        return;
    // The next run starts as the first did, so its refills fall on the same bytes.
    if (auto *bytes = static_cast<char *>(realloc(buffer->bytes, BUFFER_CAPACITY + 1)))
        buffer->bytes = bytes;
    buffer->capacity = BUFFER_CAPACITY;
}
