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

#include "interface/log.h"
#include "interface/output.h"
#include "interface/process.h"
#include "interface/text.h"
#include "scanner/buffer.h"

void prepareCallback()
{
    ownRead(); // of the template on top: those beneath were the top when it was opened
    flushOutput();
}

// Bytes to map: the file that the path names, but no more than the descriptor's,
// so that no read leaves the file. Negative, with errno set, when unknown.
static off_t mappedSize(const char *path, int fd)
{
    struct stat byPath;
    struct stat byDescriptor;
    if (stat(path, &byPath) != 0 || fstat(fd, &byDescriptor) != 0)
        return -1;
    const off_t size = std::min(byPath.st_size, byDescriptor.st_size);
    if (static_cast<uint64_t>(size) <= SIZE_MAX)
        return size;
    errno = EOVERFLOW;
    return -1;
}

static const char *mapFile(const char *path, int fd, size_t *length)
{
    const off_t size = mappedSize(path, fd);
    if (size < 0)
        return nullptr;
    *length = static_cast<size_t>(size);
    void *start = mmap(nullptr, *length, PROT_READ, MAP_SHARED, fd, 0);
    return start == MAP_FAILED ? nullptr : static_cast<const char *>(start);
}

static bool startsWithByteOrderMark(const char *start, size_t length)
{
    return length >= 3 && memcmp(start, "\xEF\xBB\xBF", 3) == 0;
}

static uint32_t contextOf(const char *path)
{
    return strstr(path, ".htm") || strstr(path, ".frm") ? 0 : CONTEXT_NOT_HTML;
}

// Whether fOpen is being asked: it may neither open nor close templates itself.
static bool isOpening()
{
    const int32_t next = inpr->includeIndex + 1;
    return next < MAX_INCLUDE_DEPTH && inpr->includes[next].fileName;
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
    size_t length = 0;
    const char *start = mapFile(name, fd, &length);
    if (!start) {
        logMessage<Message::CANNOT_MAP>(name, strerror(errno));
        close(fd);
        return INCLUDE_FAILED;
    }
    *entry = {fd, start, start, start + length - 1, {}, name, 0, nullptr, 0, 0};
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
    if (isOpening())
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
        if (startsWithByteOrderMark(entry->mapStart, length))
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
    entry->fd = -1;
    entry->mapStart = entry->readPos = entry->mapLast = nullptr;
    entry->rest = nullptr;
}

bool popTemplate()
{
    if (isOpening())
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
