/* exec/base64.cpp - a file in the page, encoded in Base64 (RFC 4648). */
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "exec/exec.h"
#include "base/observe.h"
#include "base/output.h"
#include "base/process.h"

static constexpr char alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Encodes count (1 to 3) bytes as four characters.
static void encodeGroup(const unsigned char bytes[3], size_t count, char *out)
{
    const unsigned bits = static_cast<unsigned>(bytes[0]) << 16 |
                          (count > 1 ? static_cast<unsigned>(bytes[1]) << 8 : 0) |
                          (count > 2 ? bytes[2] : 0U);
    out[0] = alphabet[bits >> 18 & 63];
    out[1] = alphabet[bits >> 12 & 63];
    out[2] = count > 1 ? alphabet[bits >> 6 & 63] : '=';
    out[3] = count > 2 ? alphabet[bits & 63] : '=';
}

// A stream for reading, on none of the standard streams' descriptors; null without one.
static FILE *openStream(const char *path)
{
    FILE *file = observe::openFile(path);
    if (!file || fileno(file) > STDERR_FILENO)
        return file;
    const int fd = fcntl(fileno(file), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    fclose(file);
    file = fd >= 0 ? fdopen(fd, "r") : nullptr;
    if (fd >= 0 && !file)
        close(fd);
    return file;
}

void doBase64(const char *path)
{
    if (inpr->resuming)
        return;
    FILE *file = openStream(path);
    if (!file)
        return;
    char staging[BASE64_CAPACITY];
    size_t staged = 0;
    unsigned char group[3];
    size_t count = sizeof group;
    // A short group carries the padding, so it is the last, even if reading could go on.
    while (count == sizeof group && (count = fread(group, 1, sizeof group, file)) > 0) {
        if (staged > BASE64_FULL_PIECE) {
            writePiece({staging, staged});
            staged = 0;
        }
        encodeGroup(group, count, staging + staged);
        staged += 4;
    }
    fclose(file);
    writePiece({staging, staged});
}
