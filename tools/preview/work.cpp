/* tools/preview/work.cpp - see the header. A launcher that lives has the lock of a file in
 * its folder. The file has its name no sooner than it is locked: so whoever gets the lock
 * of such a file knows that its launcher is dead. */
#include "work.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <filesystem>

using std::string;

namespace fs = std::filesystem;

static constexpr char NAME[] = "orv-preview-";
static constexpr char LOCK[] = "/lock";

// Whether it is a folder of this user's, of a launcher that is dead.
static bool isLeft(const string &path)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != geteuid())
        return false;
    const int fd = open((path + LOCK).c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC);
    const bool isFree = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0;
    if (fd >= 0)
        close(fd);
    return isFree;
}

static void removeLeft(const fs::path &folder)
{
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(folder, ignored))
        if (entry.path().filename().string().starts_with(NAME) && isLeft(entry.path()))
            removeWork(entry.path());
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
    if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0)
        rename(unlocked.c_str(), (path + LOCK).c_str());
    return path;
}

void removeWork(const string &path)
{
    std::error_code ignored;
    if (!path.empty())
        fs::remove_all(path, ignored);
}
