/* scanner/buffer.cpp - the buffers of the open templates and the stack of start
 * conditions.
 *
 * There is no page without them, so here alone a lack of memory ends the
 * process, with one line on the standard error stream. Between calls: the bytes
 * from pos on that a buffer has read are still to be scanned. */
#include "scanner/buffer.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "base/bounds.h"
#include "base/observe.h"
#include "base/output.h"
#include "base/process.h"
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

// Whether the bytes lie where the template is mapped, or in the copy of a small one.
static bool isInPlace(const ScanBuffer &buffer)
{
    return !buffer.block || buffer.pos < buffer.block ||
           buffer.pos >= buffer.block + buffer.blockSize;
}

// Puts what is unfinished to the front of a block of the buffer's own.
static void moveToBlock(ScanBuffer *buffer)
{
    const size_t unfinished = bytesRead();
    const bool inPlace = isInPlace(*buffer);
    scannedLine(); // while the passed bytes are there
    if (!inPlace && unfinished > 0)
        memmove(buffer->block, buffer->pos, unfinished);
    if (buffer->blockSize < buffer->capacity) {
        buffer->block = static_cast<char *>(resize(buffer->block, buffer->capacity));
        buffer->blockSize = buffer->capacity;
    }
    if (inPlace && unfinished > 0)
        memcpy(buffer->block, buffer->pos, unfinished);
    buffer->pos = scanner.counted = buffer->block;
}

// Reads the next bytes of the template where they lie. Returns whether it can be
// done: they join what is unfinished only if that lies there as well.
static bool extendInPlace(ScanBuffer *buffer, size_t max)
{
    const char *next = nextByte();
    const bool inPlace = isInPlace(*buffer);
    if (buffer->read > 0 && !inPlace)
        return false;
    if (buffer->read == 0 && (!inPlace || buffer->pos != next)) {
        scannedLine(); // while the passed bytes are there
        buffer->pos = scanner.counted = next;
    }
    const size_t count = readInPlace(max);
    buffer->read += count;
    observe::delivered(count);
    return count > 0;
}

/* Before and after, when the bytes lie in the template's mapping and as many follow
 * there without a text field (extendInPlace), or else in a block of the buffer's own
 * (moveToBlock, readInput):
 *
 *   mapping  ...scanned|unfinished|to be read......    ...scanned|unfinished|read.......
 *                      pos        + read                         pos              + read
 *
 *   block    scanned..........|unfinished|             unfinished|read, with texts|
 *                             pos        + read        pos                        + read
 */
static bool readMore(ScanBuffer *buffer)
{
    const size_t unfinished = bytesRead();
    buffer->capacity = std::max(buffer->capacity, BUFFER_CAPACITY);
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
    buffer->read += static_cast<size_t>(count);
    observe::delivered(static_cast<size_t>(count));
    return count > 0;
}

bool refill()
{
    return !isExhausted() && readMore(&scanner.buffer);
}

int peek(size_t offset)
{
    while (offset >= bytesRead())
        if (!refill())
            return END_OF_INPUT;
    return static_cast<unsigned char>(matchStart()[offset]);
}

void ownRead()
{
    if (!isInPlace(scanner.buffer))
        return;
    scannedLine(); // while the passed bytes are there
    if (bytesRead() > 0)
        moveToBlock(&scanner.buffer);
}

void switchBuffer(const ScanBuffer &buffer, int32_t line)
{
    scanner.buffer = buffer;
    scanner.counted = buffer.pos;
    scanner.located = nullptr;
    scanner.line = line;
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
    scanner.passesText = false;
    // The next run starts as the first did, so its refills fall on the same bytes.
    switchBuffer({nullptr, 0, scanner.buffer.block, scanner.buffer.blockSize, 0}, 0);
}
