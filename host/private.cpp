/* host/private.cpp - makes and checks a file and a folder that are this user's alone.
 *
 * Another user may have put anything in the folder's place before, or may do so at any time
 * between two calls. So what is looked at is what has been opened. Once the folder is known to
 * be this user's, in a parent where only its owner can move it, nobody else can reach into it,
 * and its path stays good. */
#include "private.h"
#include "complain.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

using std::string;

// Returns why what fd has open is not this user's alone, null when it is. type: S_IFDIR or
// S_IFREG.
static const char *foreignPart(int fd, mode_t type)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return strerror(errno);
    if ((status.st_mode & S_IFMT) != type || (type == S_IFREG && status.st_nlink != 1))
        return "it is something else";
    if (status.st_uid != geteuid())
        return "it is another user's";
    bool isShared = (status.st_mode & (S_IRWXG | S_IRWXO)) != 0;
    return isShared ? "other users may use it" : nullptr;
}

// Returns why others can move or replace what is in the folder that fd has open, null when
// they cannot.
static const char *openParent(int fd)
{
    struct stat status;
    if (fstatat(fd, "..", &status, 0) != 0)
        return strerror(errno);
    if (status.st_uid != 0 && status.st_uid != geteuid())
        return "the folder around it is another user's";
    bool isOpen = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !(status.st_mode & S_ISVTX);
    return isOpen ? "the folder around it lets others replace it" : nullptr;
}

// Returns why the file cannot be used, null when it can.
static const char *openFile(int folder, const char *name)
{
    // Without O_NONBLOCK a fifo would keep the program waiting.
    int fd = openat(folder, name, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0)
        return strerror(errno);
    const char *problem = foreignPart(fd, S_IFREG);
    close(fd);
    return problem;
}

bool privateFile(const string &folder, const char *name, string &path)
{
    string plain = folder.substr(0, folder.find_last_not_of('/') + 1); // "x/" would follow a link
    const char *problem = plain.starts_with('/') ? nullptr : "it must begin with /";
    if (!problem && mkdir(plain.c_str(), 0700) != 0 && errno != EEXIST)
        problem = strerror(errno);
    int fd = problem ? -1 : open(plain.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (!problem && fd < 0)
        problem = strerror(errno);
    if (!problem)
        problem = foreignPart(fd, S_IFDIR);
    if (!problem)
        problem = openParent(fd);
    if (!problem)
        problem = openFile(fd, name);
    if (fd >= 0)
        close(fd);
    if (problem)
        complain("cannot use %s/%s: %s", plain.c_str(), name, problem);
    path = plain + '/' + name;
    return !problem;
}
