/* tools/preview/work.h - the launcher's folder for temporary files. */
#ifndef PREVIEW_WORK_H
#define PREVIEW_WORK_H

#include <string>

/* Makes the folder, for this process until it ends, and removes those of launchers that
 * were killed before they could. Returns its path, for removeWork; empty after errno tells
 * why there is none. */
std::string makeWork();

/* Removes a folder of makeWork's; nothing when path is empty. */
void removeWork(const std::string &path);

#endif
