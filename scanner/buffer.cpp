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

#include "interface/bounds.h"
#include "interface/output.h"
#include "interface/process.h"
#include "scanner/fields.h"

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
    *buffer = {nullptr, nullptr, 0, BUFFER_CAPACITY, 0, 0};
    return buffer;
}

void destroyBuffer(ScanBuffer *buffer)
{
    if (!buffer)
        return;
    free(buffer->block);
    free(buffer);
}

// Puts what is unfinished to the front of a block of the buffer's own.
static void moveToBlock(ScanBuffer *buffer)
{
    const size_t unfinished = buffer->end - buffer->pos;
    if (buffer->bytes == buffer->block && unfinished > 0)
        memmove(buffer->block, buffer->block + buffer->pos, unfinished);
    const bool inPlace = buffer->bytes != buffer->block;
    if (buffer->blockSize < buffer->capacity) {
        buffer->block = static_cast<char *>(resize(buffer->block, buffer->capacity));
        buffer->blockSize = buffer->capacity;
    }
    if (inPlace && unfinished > 0)
        memcpy(buffer->block, buffer->bytes + buffer->pos, unfinished);
    buffer->bytes = buffer->block;
    buffer->pos = 0;
    buffer->end = unfinished;
}

// Reads the next bytes of the template where they lie. Returns whether it can be
// done: they join what is unfinished only if that lies there as well.
static bool extendInPlace(ScanBuffer *buffer, size_t max)
{
    const char *next = inpr->includes[inpr->includeIndex].readPos;
    if (buffer->pos == buffer->end) {
        buffer->bytes = next;
        buffer->pos = buffer->end = 0;
    } else if (buffer->bytes == buffer->block) {
        return false;
    }
    const size_t count = readInPlace(max);
    buffer->end += count;
    return count > 0;
}

/* Before and after, when the bytes lie in the template's mapping and as many follow
 * there without a text field (extendInPlace), or else in a block of the buffer's own
 * (moveToBlock, readInput):
 *
 *   mapping  ...scanned|unfinished|to be read......    ...scanned|unfinished|read.......
 *                      pos        end                            pos              end
 *
 *   block    scanned..........|unfinished|             unfinished|read, with texts|
 *                             pos        end           pos                        end
 */
bool refill()
{
    ScanBuffer *buffer = scanner.buffer;
    if (isExhausted())
        return false;
    const size_t unfinished = buffer->end - buffer->pos;
    while (unfinished + 1 >= buffer->capacity) {
        if (buffer->capacity > SIZE_MAX / 2)
            fail("a piece of a template is too long");
        buffer->capacity *= 2;
    }
    const size_t max = std::min(buffer->capacity - unfinished - 1, REFILL_MAX);
    if (extendInPlace(buffer, max))
        return true;
    moveToBlock(buffer);
    int32_t count = 0;
    readInput(buffer->block + unfinished, &count, static_cast<int32_t>(max));
    buffer->end += static_cast<size_t>(count);
    return count > 0;
}

void enterCondition(Condition condition)
{
    if (scanner.depth == scanner.stackRoom) {
        const size_t room = scanner.stackRoom + CONDITIONS_STEP;
        scanner.stack = static_cast<Condition *>(resize(scanner.stack, room * sizeof(Condition)));
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
    // The next run starts as the first did, so its refills fall on the same bytes.
    *buffer = {nullptr, buffer->block, buffer->blockSize, BUFFER_CAPACITY, 0, 0};
}
