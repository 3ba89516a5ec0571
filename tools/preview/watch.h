/* tools/preview/watch.h - tells which of the site's files have changed (inotify(7)). */
#ifndef PREVIEW_WATCH_H
#define PREVIEW_WATCH_H

#include <map>
#include <set>
#include <string>
#include <vector>

struct Watch {
    int fd = -1;                              // owned; readable when something happened
    std::string folder;                       // whose files are watched, with those below it
    std::vector<std::string> files;           // further files, by path; they may be missing
    std::map<int, std::string> folders;       // watched folders by their numbers
    std::map<std::string, std::string> state; // of files: what a change changes
    bool isCut = false;                       // some folder could not be watched
};

/* Begins, or begins anew when folders have come or gone. Returns false after errno tells
 * why; isCut is set when only a part can be watched. */
bool watchAll(Watch &watch);

/* Takes what has happened. changed: out, the names of files that have changed, those of
 * the folder below it. Returns false when the folder itself has gone. */
bool watchTake(Watch &watch, std::set<std::string> &changed);

#endif
