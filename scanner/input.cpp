/* scanner/input.cpp - the stack of open templates, mapped whole.
 *
 * The scanner reads the one on top. Each entry owns its mapping, descriptor and
 * name from push to pop; the run's own template keeps its place and its name, this
 * even if it was not pushed, until the run ends, since messages may still name it. Works on the
 * handle of the run. */
#include "scanner/input.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/log.h"
#include "base/output.h"
#include "base/process.h"
#include "base/text.h"
#include "scanner/buffer.h"

void prepareCallback()
{
    // Of the template on top: those beneath were the top when it was opened.
    if (inpr->includeIndex >= 0 && !inpr->includes[inpr->includeIndex].copy)
        ownRead();
    flushOutput();
}

// Reads a small file of that size. Returns its bytes, the caller's; null when it is larger
// than small, when the descriptor's is shorter, and when memory ran out.
static char *readSmall(int fd, off_t size)
{
    const auto length = static_cast<size_t>(size);
    if (size <= 0 || length > SMALL_TEMPLATE)
        return nullptr;
    auto *bytes = static_cast<char *>(malloc(length));
    if (bytes && pread(fd, bytes, length, 0) == static_cast<ssize_t>(length))
        return bytes;
    free(bytes);
    return nullptr;
}

// Bytes to map: the file that the path names, but no more than the descriptor's, so that
// no read leaves the file. copy: out, the bytes of a small one. Negative, with errno set,
// when unknown.
static off_t mappedSize(const char *path, int fd, char **copy)
{
    struct stat byPath;
    struct stat byDescriptor;
    if (stat(path, &byPath) != 0)
        return -1;
    *copy = readSmall(fd, byPath.st_size);
    if (*copy)
        return byPath.st_size;
    if (fstat(fd, &byDescriptor) != 0)
        return -1;
    const off_t size = std::min(byPath.st_size, byDescriptor.st_size);
    if (static_cast<uint64_t>(size) <= SIZE_MAX)
        return size;
    errno = EOVERFLOW;
    return -1;
}

// Maps the file into entry. Returns whether it could be; errno tells why not.
static bool mapFile(const char *path, int fd, IncludeEntry *entry)
{
    char *copy = nullptr;
    const off_t size = mappedSize(path, fd, &copy);
    void *start = size < 0 ? MAP_FAILED
                           : mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_SHARED, fd, 0);
    if (start == MAP_FAILED) {
        const int cause = errno;
        free(copy);
        errno = cause;
        return false;
    }
    const auto *first = static_cast<const char *>(start);
    *entry = {fd, first, first, first + size - 1, {}, entry->fileName, 0, nullptr, 0, 0, copy};
    return true;
}

static bool startsWithByteOrderMark(const char *start, size_t length)
{
    return length >= 3 && memcmp(start, "\xEF\xBB\xBF", 3) == 0;
}

static uint32_t contextOf(const char *path)
{
    return strstr(path, ".htm") || strstr(path, ".frm") ? 0 : CONTEXT_NOT_HTML;
}

// Whether fOpen is being asked, or fWrite, which takes what the scanner has read: they may
// neither open nor close templates themselves.
static bool isAsking()
{
    const int32_t next = inpr->includeIndex + 1;
    return inpr->isWriting || (next < MAX_INCLUDE_DEPTH && inpr->includes[next].fileName);
}

// Opens and maps the file into entry, whose name is set. Its other fields are set
// only on success.
static int32_t openTemplate(IncludeEntry *entry)
{
    char *name = entry->fileName;
    prepareCallback();
    const int fd = inpr->callbacks->fOpen(inpr, name);
    if (fd < 0)
        return INCLUDE_FAILED;
    if (!mapFile(name, fd, entry)) {
        logMessage<Message::CANNOT_MAP>(name, strerror(errno));
        close(fd);
        return INCLUDE_FAILED;
    }
    return INCLUDE_PUSHED;
}

static void freeName(IncludeEntry *entry)
{
    free(entry->fileName);
    entry->fileName = nullptr;
}

int32_t pushTemplate(const char *path)
{
    const int32_t parent = inpr->includeIndex;
    if (!path) {
        logMessage<Message::EMPTY_INCLUDE>(currentTemplate());
        return INCLUDE_FAILED;
    }
    if (parent >= MAX_INCLUDE_DEPTH - 1) {
        logMessage<Message::INCLUDES_TOO_DEEP>(path, currentTemplate());
        return INCLUDE_TOO_DEEP;
    }
    if (isAsking())
        return INCLUDE_FAILED;
    IncludeEntry *entry = &inpr->includes[parent + 1];
    // A copy before fOpen is asked: it may change the language, and path may be a text
    // of the database that goes.
    entry->fileName = copyText(path);
    if (!entry->fileName) {
        logMessage<Message::INCLUDE_NO_MEMORY>(path);
        return INCLUDE_FAILED;
    }
    if (openTemplate(entry) != INCLUDE_PUSHED) {
        if (parent >= 0)
            freeName(entry);
        return INCLUDE_FAILED;
    }
    inpr->htmlContext = contextOf(entry->fileName);
    if (parent >= 0) {
        const size_t length = static_cast<size_t>(entry->mapLast - entry->mapStart) + 1;
        if (startsWithByteOrderMark(entry->copy ? entry->copy : entry->mapStart, length))
            entry->readPos += 3;
        inpr->includes[parent].savedLine = scannedLine();
        scanner.saved[parent] = scanner.buffer;
        inpr->includes[parent].savedBuffer = &scanner.saved[parent];
        scanner.buffer = {};
    }
    switchBuffer(scanner.buffer, 1);
    inpr->includeIndex = parent + 1;
    observe::opened(entry->fileName);
    if (entry->readPos > entry->mapStart)
        observe::substituted(0, static_cast<size_t>(entry->readPos - entry->mapStart), 0);
    return INCLUDE_PUSHED;
}

// Gives the mapping and the descriptor back; the name stays.
static void closeTemplate(IncludeEntry *entry)
{
    if (!entry->mapStart)
        return;
    observe::closed(entry->fileName);
    munmap(const_cast<char *>(entry->mapStart),
           static_cast<size_t>(entry->mapLast - entry->mapStart) + 1);
    close(entry->fd);
    free(entry->rest);
    free(entry->copy);
    entry->fd = -1;
    entry->mapStart = entry->readPos = entry->mapLast = nullptr;
    entry->rest = entry->copy = nullptr;
}

bool popTemplate()
{
    if (isAsking())
        return false;
    IncludeEntry *entry = &inpr->includes[inpr->includeIndex];
    scanner.counted = scanner.buffer.pos; // no line of it is asked for any more
    closeTemplate(entry);
    if (inpr->includeIndex == 0)
        return false;
    freeName(entry);
    --inpr->includeIndex;
    IncludeEntry *parent = &inpr->includes[inpr->includeIndex];
    free(scanner.buffer.block);
    switchBuffer(*parent->savedBuffer, parent->savedLine);
    parent->savedBuffer = nullptr;
    scanner.ended = 0;
    return true;
}

void closeTemplates()
{
    if (inpr->includeIndex >= 0) {
        while (popTemplate())
            ;
        inpr->includeIndex = -1;
    }
    freeName(&inpr->includes[0]);
    resetScanner();
}
