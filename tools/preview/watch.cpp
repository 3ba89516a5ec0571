/* tools/preview/watch.cpp - tells a save from all else that happens in a folder.
 *
 * A file of the folder has changed when its writer closes it, or its name comes or goes.
 * The further files are told by their size, time and number, since SQLite keeps its files
 * open; readers of a database make files beside it that are no change. */
#include "watch.h"

#include <errno.h>
#include <limits.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <algorithm>
#include <filesystem>
#include <string_view>

#include "tools/common/files.h"

using std::string;
using std::string_view;

namespace fs = std::filesystem;

static constexpr uint32_t EVENT_MASK = IN_CLOSE_WRITE | IN_MODIFY | IN_CREATE | IN_DELETE |
                                       IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF |
                                       IN_ATTRIB | IN_ONLYDIR;

// Whether a name is none of an author's files: hidden, or what an editor or SQLite puts
// beside one.
static bool isForeign(string_view name)
{
    constexpr const char *ends[] = {"~", ".swp", ".swx", ".tmp", "-journal", "-wal", "-shm"};
    return name.starts_with('.') || name == "4913" ||
           std::ranges::any_of(ends, [&](const char *end) { return name.ends_with(end); });
}

static bool watchFolder(Watch &watch, const string &folder)
{
    const int number = inotify_add_watch(watch.fd, folder.c_str(), EVENT_MASK);
    if (number >= 0)
        watch.folders[number] = folder;
    else if (errno == ENOSPC || errno == ENOMEM)
        watch.isCut = true;
    return number >= 0;
}

static void watchTree(Watch &watch, const string &folder)
{
    if (!watchFolder(watch, folder))
        return;
    eachEntry(folder, [&](const fs::directory_entry &entry) {
        std::error_code error;
        if (entry.is_directory(error) && !entry.is_symlink(error) &&
            !isForeign(entry.path().filename().string()))
            watchTree(watch, entry.path());
    });
}

bool watchAll(Watch &watch)
{
    if (watch.fd >= 0)
        close(watch.fd);
    watch.folders.clear();
    watch.isCut = false;
    watch.fd = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (watch.fd < 0)
        return false;
    watchTree(watch, watch.folder);
    for (const string &file : watch.files) {
        watchFolder(watch, fs::path(file).parent_path());
        watch.state.try_emplace(file, stateOfFile(file));
    }
    return true;
}

// The name of a file below the folder, empty for one elsewhere.
static string nameBelow(const Watch &watch, const string &path)
{
    const string start = watch.folder == "/" ? "/" : watch.folder + "/";
    return path.starts_with(start) ? path.substr(start.size()) : "";
}

// Takes one event. Returns whether folders have come or gone.
static bool takeEvent(const Watch &watch, const inotify_event &event, std::set<string> &changed)
{
    const auto folder = watch.folders.find(event.wd);
    if (event.mask & IN_Q_OVERFLOW || event.mask & (IN_DELETE_SELF | IN_MOVE_SELF))
        return true;
    if (folder == watch.folders.end() || event.len == 0 || isForeign(event.name))
        return false;
    const string path = folder->second + "/" + event.name;
    const bool isFile =
        std::find(watch.files.begin(), watch.files.end(), path) != watch.files.end();
    const string name = nameBelow(watch, path);
    if (!name.empty() && !isFile && !(event.mask & (IN_MODIFY | IN_ATTRIB)))
        changed.insert(name);
    return event.mask & IN_ISDIR && event.mask & (IN_CREATE | IN_MOVED_TO);
}

bool watchTake(Watch &watch, std::set<string> &changed)
{
    alignas(inotify_event) char events[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
    bool isOld = false;
    for (ssize_t count; (count = read(watch.fd, events, sizeof events)) > 0;)
        for (ssize_t at = 0; at < count;) {
            const auto *event = reinterpret_cast<const inotify_event *>(events + at);
            isOld |= takeEvent(watch, *event, changed);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    for (auto &[path, state] : watch.state) {
        const string now = stateOfFile(path);
        if (now == state)
            continue;
        const string name = nameBelow(watch, path);
        changed.insert(name.empty() ? path : name);
        state = now;
    }
    std::error_code ignored;
    if (!fs::is_directory(watch.folder, ignored))
        return false;
    return !isOld || watchAll(watch);
}
