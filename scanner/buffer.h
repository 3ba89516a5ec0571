/* scanner/buffer.h - the current match, byte by byte, for the scanner's rules. */
#ifndef ORV_SCANNER_BUFFER_H
#define ORV_SCANNER_BUFFER_H

#include <stddef.h>

#include "scanner/bytes.h"
#include "scanner/scanner.h"

using bytes::END_OF_INPUT;

/* Reads more of the template behind the bytes of the current match. Returns
 * whether there was more. The match may move to another address. */
bool refill();

/* Start of the current match, good until the next refill, and the number of its
 * bytes that have been read. */
inline const char *matchStart()
{
    return scanner.buffer.pos;
}

inline size_t bytesRead()
{
    return scanner.buffer.read;
}

/* The same as byteAt, smaller where it is called and slower: for bytes that are rarely
 * looked at. */
int peek(size_t offset);

/* Byte of the current match at offset, or END_OF_INPUT; reads more when the
 * buffer has no such byte yet, so rules ask only for bytes that can lengthen
 * their match. */
[[gnu::always_inline]] inline int byteAt(size_t offset)
{
    return offset < bytesRead() ? static_cast<unsigned char>(matchStart()[offset]) : peek(offset);
}

/* Keep a stack of conditions to go back to. */
void enterCondition(Condition condition);
void leaveCondition();

#endif
