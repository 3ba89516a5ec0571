/* tools/common/files.cpp - reads, writes and replaces whole files. */
#include "tools/common/files.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

static std::string folderOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// Makes a rename in the folder of path last.
static bool syncFolder(const std::string &path)
{
    const int fd = open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool done = fsync(fd) == 0 || errno == EINVAL; // some file systems cannot
    close(fd);
    return done;
}

int complain(int status, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    fprintf(stderr, "%s: ", programName);
    vfprintf(stderr, format, values);
    fputc('\n', stderr);
    va_end(values);
    return status;
}

bool readOpen(int fd, std::string *bytes)
{
    struct stat status;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
        bytes->reserve(bytes->size() + static_cast<size_t>(status.st_size));
    char piece[65536];
    ssize_t count;
    while ((count = read(fd, piece, sizeof piece)) > 0 || (count < 0 && errno == EINTR))
        if (count > 0)
            bytes->append(piece, static_cast<size_t>(count));
    return count == 0;
}

bool readBytes(const char *path, std::string *bytes)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool isRead = readOpen(fd, bytes);
    const int error = errno;
    close(fd);
    errno = error;
    return isRead;
}

bool readFile(const char *path, std::string *bytes)
{
    return readBytes(path, bytes) || complain(0, "cannot read %s: %s", path, strerror(errno));
}

bool writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0)
            bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

// Returns the path behind the links that path leads through, also when there is
// nothing yet.
static std::string followLinks(std::string path)
{
    static constexpr int MAX_LINKS = 40; // as the system follows
    char link[PATH_MAX];
    for (int i = 0; i < MAX_LINKS; ++i) {
        const ssize_t length = readlink(path.c_str(), link, sizeof link);
        if (length < 0)
            break;
        const std::string_view to(link, static_cast<size_t>(length));
        if (!to.starts_with('/'))
            path.resize(path.rfind('/') + 1); // to nothing without one
        else
            path.clear();
        path += to;
    }
    return path;
}

// Gives a new file the mode and owner of the old one, or the usual mode when there
// is none.
static bool takeModeAndOwner(int fd, const struct stat *old)
{
    if (old)
        return fchown(fd, old->st_uid, old->st_gid) == 0 && fchmod(fd, old->st_mode & 07777) == 0;
    const mode_t mask = umask(0);
    umask(mask);
    return fchmod(fd, 0666 & ~mask) == 0;
}

// Opens the new file, beside the place that it is to take. Where the file system can do
// that it has no name until giveName, so that nothing of it stays when the program ends.
// beside: out, its name, empty for none. Returns a negative number on failure.
static int openBeside(const std::string &target, std::string *beside)
{
    const int fd = open(folderOf(target).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (fd >= 0)
        return fd;
    std::string name = target + ".XXXXXX";
    const int named = mkstemp(name.data());
    if (named >= 0)
        *beside = name;
    return named;
}

// Gives a file without a name one that is free. Returns false when that fails.
static bool giveName(int fd, const std::string &target, std::string *beside)
{
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    for (int i = 0; beside->empty(); ++i) {
        const std::string name = target + "." + std::to_string(getpid()) + "-" + std::to_string(i);
        if (linkat(AT_FDCWD, link.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0)
            *beside = name;
        else if (errno != EEXIST)
            return false;
    }
    return true;
}

// Makes the new file and puts it in its place. Returns false when that fails; errno
// tells why, and nothing is changed.
static bool writeInPlaceOf(const std::string &target, const struct stat *old,
                           std::string_view bytes)
{
    std::string beside;
    const int fd = openBeside(target, &beside);
    if (fd < 0)
        return false;
    bool written = writeAll(fd, bytes) && takeModeAndOwner(fd, old) && fsync(fd) == 0 &&
                   giveName(fd, target, &beside);
    int error = errno;
    if (close(fd) != 0 && written) {
        error = errno;
        written = false;
    }
    if (written && rename(beside.c_str(), target.c_str()) != 0) {
        error = errno;
        written = false;
    }
    if (!written && !beside.empty())
        unlink(beside.c_str());
    errno = error;
    return written;
}

bool replaceFile(const char *path, std::string_view bytes)
{
    const std::string target = followLinks(path);
    struct stat status;
    const bool exists = stat(target.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        complain(0, "cannot write %s: it is not a regular file", path);
        return false;
    }
    sigset_t all; // a signal that ends the program waits until no half-made file has a name
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    const bool written = writeInPlaceOf(target, exists ? &status : nullptr, bytes);
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (!written) {
        complain(0, "cannot write %s: %s", path, strerror(error));
        return false;
    }
    if (!syncFolder(target)) {
        complain(0, "%s is written, but its folder cannot be synced: %s", path, strerror(errno));
        return false;
    }
    return true;
}

static std::string stateOfOne(const std::string &path, bool isEmptyMissing)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || (isEmptyMissing && status.st_size == 0))
        return "-";
    return std::to_string(status.st_ino) + " " + std::to_string(status.st_size) + " " +
           std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
}

std::string stateOfFile(const std::string &path)
{
    return stateOfOne(path, false) + ", " + stateOfOne(path + "-wal", true);
}

bool isSameFile(const char *a, const char *b)
{
    struct stat first;
    struct stat second;
    return stat(a, &first) == 0 && stat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

int printText(const std::string &text)
{
    if (fputs(text.c_str(), stdout) >= 0 && fflush(stdout) == 0)
        return 0;
    return complain(1, "cannot write standard output: %s", strerror(errno));
}

int closeOutput(int status, int failure)
{
    const bool failed = ferror(stdout) != 0;
    if ((fclose(stdout) != 0 || failed) && status == 0)
        return complain(failure, "cannot write standard output: %s", strerror(errno));
    return status;
}
