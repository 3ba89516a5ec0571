/* tools/preview/work.cpp - tells folders in use from those that are left. A launcher that lives
 * has the lock of a file in its folder. The file has its name no sooner than it is locked: so
 * whoever gets the lock of such a file knows that its launcher is dead. The lock is the
 * process's, and none of the programs that it starts has it for a moment longer. */
#include "work.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <filesystem>
#include <vector>

#include "tools/common/files.h"

using std::string;

namespace fs = std::filesystem;

static constexpr char NAME[] = "orv-preview-";
static constexpr char LOCK[] = "/lock";
static constexpr char GONE[] = ".gone";

static bool takeLock(int fd)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(fd, F_SETLK, &lock) == 0;
}

// Whether it is a folder of this user's, of a launcher that is dead.
static bool isLeft(const string &path)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != geteuid())
        return false;
    if (path.ends_with(GONE))
        return true;
    const int fd = open((path + LOCK).c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC);
    const bool isFree = fd >= 0 && takeLock(fd);
    if (fd >= 0)
        close(fd);
    return isFree;
}

static void removeLeft(const fs::path &folder)
{
    std::vector<string> left;
    eachEntry(folder, [&](const fs::directory_entry &entry) {
        if (entry.path().filename().string().starts_with(NAME) && isLeft(entry.path()))
            left.push_back(entry.path());
    });
    for (const string &path : left)
        removeWork(path);
}

string makeWork()
{
    std::error_code error;
    const fs::path folder = fs::temp_directory_path(error);
    if (error)
        return "";
    removeLeft(folder);
    string path = (folder / (string(NAME) + "XXXXXX")).string();
    if (!mkdtemp(path.data()))
        return "";
    // Where a file system has no locks, the folder is nobody's to remove but ours.
    const string unlocked = path + LOCK + ".new";
    const int fd = open(unlocked.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd >= 0 && takeLock(fd))
        rename(unlocked.c_str(), (path + LOCK).c_str());
    return path;
}

// It gets another name first: a program that its launcher has just started may still be about to
// make a file in it. By that name the next start removes what cannot be removed now.
void removeWork(const string &path)
{
    std::error_code ignored;
    if (path.empty())
        return;
    const string gone = path.ends_with(GONE) ? path : path + GONE;
    const bool isRenamed = rename(path.c_str(), gone.c_str()) == 0;
    fs::remove_all(isRenamed ? gone : path, ignored);
}
