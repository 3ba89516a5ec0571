/* tools/files.cpp - reads, writes and replaces whole files. */
#include "files.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/* Makes a rename in the folder of path last. */
static bool syncFolder(const std::string &path)
{
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
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

bool readFile(const char *path, std::string *bytes)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    ssize_t count = fd < 0 ? -1 : 1;
    struct stat status;
    if (fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
        bytes->reserve(bytes->size() + static_cast<size_t>(status.st_size));
    char piece[65536];
    while (count > 0 || (count < 0 && fd >= 0 && errno == EINTR)) {
        count = read(fd, piece, sizeof piece);
        if (count > 0)
            bytes->append(piece, static_cast<size_t>(count));
    }
    if (count < 0)
        complain(0, "cannot read %s: %s", path, strerror(errno));
    if (fd >= 0)
        close(fd);
    return count == 0;
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

bool replaceFile(const char *path, std::string_view bytes)
{
    char *resolved = realpath(path, nullptr);
    const std::string target = resolved ? resolved : path;
    free(resolved);
    struct stat status;
    if (stat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        complain(0, "cannot write %s: it is not a regular file", path);
        return false;
    }
    std::string beside = target + ".XXXXXX";
    const int fd = mkstemp(beside.data());
    const mode_t mask = umask(0);
    umask(mask);
    bool written =
        fd >= 0 && writeAll(fd, bytes) && fchmod(fd, 0666 & ~mask) == 0 && fsync(fd) == 0;
    int error = errno;
    if (fd >= 0 && close(fd) != 0 && written) {
        error = errno;
        written = false;
    }
    if (written && rename(beside.c_str(), target.c_str()) != 0) {
        error = errno;
        written = false;
    }
    if (!written) {
        complain(0, "cannot write %s: %s", path, strerror(error));
        if (fd >= 0)
            unlink(beside.c_str());
        return false;
    }
    if (!syncFolder(target)) {
        complain(0, "%s is written, but its folder cannot be synced: %s", path, strerror(errno));
        return false;
    }
    return true;
}

int closeOutput(int status, int failure)
{
    const bool failed = ferror(stdout) != 0;
    if ((fclose(stdout) != 0 || failed) && status == 0)
        return complain(failure, "cannot write standard output: %s", strerror(errno));
    return status;
}
