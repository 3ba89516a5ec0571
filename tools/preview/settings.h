/* tools/preview/settings.h - what the preview is told: by its command line. */
#ifndef PREVIEW_SETTINGS_H
#define PREVIEW_SETTINGS_H

#include <string>
#include <utility>
#include <vector>

#include "texts.h"

// Exit statuses.
enum { ENDED = 0, WRONG_USAGE = 2 };

// All paths but the folder are absolute.
struct Settings {
    std::string folder = ".";
    std::string db; // empty for none
    std::string deviceRoot;
    std::string setFrom;
    std::vector<TextSource> texts;
    std::vector<std::pair<std::string, std::string>> variables;
    std::string error;
    std::string editor; // see editor.h; empty for none
    int port = -1;      // none given
    bool opens = false;
    bool reloads = true;
};

/* Reads the command line. Returns -1 to go on, else the exit status, after a line that tells
 * what is wrong or the text that was asked for. */
int readSettings(int argc, char **argv, Settings &settings);

#endif
