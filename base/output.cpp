/* base/output.cpp - the page's way out: everything that a run prints passes here, to
 * the output descriptor or the host's function, each piece in a call of its own or, where
 * the host has asked for it, gathered. Uses the handle of the run. Between runs
 * nothing is gathered. */
#include "base/output.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "base/observe.h"
#include "base/process.h"

// Asks the host's function to take bytes, in the place of write, and returns what write would:
// how many are out, or a negative number with errno set, to EIO if the function leaves
// that alone.
static ssize_t handOver(int, const void *bytes, size_t length)
{
    const auto most = static_cast<int32_t>(std::min<size_t>(length, INT32_MAX));
    errno = EIO;
    inpr->isWriting = 1;
    const int32_t taken =
        inpr->fWrite(inpr, static_cast<const char *>(bytes), static_cast<size_t>(most));
    inpr->isWriting = 0;
    return std::min(taken, most);
}

static ssize_t offer(const Interpreter *run, const char *bytes, size_t length)
{
    return run->take(run->outputFd, bytes, length);
}

// Goes on with bytes, of which the first call has written so many, or none if that is not
// above 0. Apart, since it is rarely needed.
[[gnu::noinline]] static size_t writeRest(Interpreter *run, const char *bytes, size_t length,
                                          ssize_t written)
{
    size_t out = 0;
    for (;;) {
        if (written > 0) {
            out += static_cast<size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            if (run->outputError == 0)
                run->outputError = written == 0 ? EIO : errno;
            return out;
        }
        if (out == length)
            return out;
        written = offer(run, bytes + out, length - out);
    }
}

// Writes bytes, one or more, until they are out or an error comes. Returns how many are out.
[[gnu::always_inline]] static inline size_t writeOut(Interpreter *run, const char *bytes,
                                                     size_t length)
{
    const ssize_t written = offer(run, bytes, length);
    return written == static_cast<ssize_t>(length) ? length
                                                   : writeRest(run, bytes, length, written);
}

// Offset behind the piece that the byte at offset belongs to.
static size_t pieceEnd(const OutputBuffer &buffer, size_t offset)
{
    do
        ++offset;
    while (!(buffer.ends[offset / 8] >> offset % 8 & 1));
    return offset;
}

void flushOutput()
{
    OutputBuffer &buffer = inpr->output;
    size_t out = 0;
    while (out < buffer.length) {
        out += writeOut(inpr, buffer.bytes + out, buffer.length - out);
        if (out < buffer.length)
            out = pieceEnd(buffer, out); // an error loses the rest of a piece, not those behind
    }
    if (buffer.length > 0)
        memset(buffer.ends, 0, buffer.length / 8 + 1);
    buffer.length = 0;
}

// A piece that the buffer has no room for even when it is empty: every one, without a buffer.
static void writeAlone(Interpreter *run, const char *piece, size_t length)
{
    if (run->output.length > 0)
        flushOutput();
    writeOut(run, piece, length);
}

static void gather(OutputBuffer *buffer, const char *piece, size_t length)
{
    if (length > buffer->capacity - buffer->length)
        flushOutput();
    memcpy(buffer->bytes + buffer->length, piece, length);
    buffer->length += length;
    buffer->ends[buffer->length / 8] |= static_cast<uint8_t>(1U << buffer->length % 8);
}

void writeBytes(const char *piece, size_t length)
{
    observe::piece({piece, length});
    if (length > inpr->output.capacity)
        writeAlone(inpr, piece, length);
    else if (length > 0)
        gather(&inpr->output, piece, length);
}

void freeOutputBuffer(OutputBuffer *buffer)
{
    free(buffer->bytes);
    free(buffer->ends);
}

int32_t Orv_Interpreter_SetOutputBuffer(Interpreter *interpreter, int32_t bytes)
{
    if (!interpreter || inpr || bytes < 0)
        return ORV_FAILED;
    OutputBuffer made = {nullptr, nullptr, static_cast<size_t>(bytes), 0};
    if (made.capacity > 0) {
        // Two blocks: only the bits are cleared, so that a page touches no more than it fills.
        made.bytes = static_cast<char *>(malloc(made.capacity));
        made.ends = static_cast<uint8_t *>(calloc(made.capacity / 8 + 1, 1));
        if (!made.bytes || !made.ends) {
            freeOutputBuffer(&made);
            return ORV_FAILED;
        }
    }
    freeOutputBuffer(&interpreter->output);
    interpreter->output = made;
    return ORV_OK;
}

int32_t Orv_Interpreter_SetOutput(Interpreter *interpreter, FWrite fWrite)
{
    if (!interpreter || inpr)
        return ORV_FAILED;
    interpreter->fWrite = fWrite;
    interpreter->take = fWrite ? handOver : write;
    return ORV_OK;
}
