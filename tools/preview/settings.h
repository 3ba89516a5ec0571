/* tools/preview/settings.h - what the preview is told: by its command line, and by the site's
 * own file. */
#ifndef PREVIEW_SETTINGS_H
#define PREVIEW_SETTINGS_H

#include <string>
#include <utility>
#include <vector>

#include "config.h"
#include "texts.h"

// Exit statuses.
enum { ENDED = 0, WRONG_USAGE = 2 };

// All paths but the folder are absolute.
struct Settings {
    std::string folder;   // empty for that of the site's file, or the working directory
    std::string siteFile; // orv-check.json; empty without one
    std::vector<Database> databases;
    std::vector<SiteFunction> functions;
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

/* Adds what the site's file says, as far as the command line, given, says nothing else.
 * settings: out. Returns false with the problem when the file cannot be taken; settings are
 * those of the command line then. */
bool addSiteFile(const Settings &given, Settings &settings, FileProblem *problem);

#endif
