/* base/output.h - the page's way out. */
#ifndef ORV_BASE_OUTPUT_H
#define ORV_BASE_OUTPUT_H

#include <stddef.h>

#include <string_view>

struct OutputBuffer;

/* Writes one piece of length bytes to the run's output with one call of write, or of the
 * host's function, which is continued when it is cut short or interrupted, or gathers it.
 * After an error the rest of the piece is dropped. An empty piece makes no call. */
void writeBytes(const char *piece, size_t length);

inline void writePiece(std::string_view piece)
{
    writeBytes(piece.data(), piece.size());
}

/* Writes what has been gathered: before a callback, and at the end of a run. */
void flushOutput();

/* Frees what the record owns, and leaves its fields. */
void freeOutputBuffer(OutputBuffer *buffer);

#endif
