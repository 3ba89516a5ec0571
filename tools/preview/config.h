/* tools/preview/config.h - what the launcher tells the programs that it has started, by files
 * in its work folder. */
#ifndef PREVIEW_CONFIG_H
#define PREVIEW_CONFIG_H

#include <stdint.h>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/common/sitefile.h"

// A mistake in a file that is no template.
struct FileProblem {
    std::string file;
    int32_t line = 0; // 0 when it is not known
    std::string text;
};

/* Takes a line apart in which a program tells of the file at path:
 * "PROGRAM: FILE:LINE:COLUMN: TEXT", where all but TEXT may be missing. */
FileProblem problemOf(const std::string &path, const std::string &told);

struct Database {
    std::string name; // under which it is attached, "main" of the first
    std::string path;
};

struct Config {
    std::string docRoot; // absolute, as are the others
    std::vector<Database> databases;
    std::vector<SiteFunction> functions;
    int port = 0;
    bool reloads = true;
    bool checks = false; // orv-check looks at the files
    std::string editor;  // see editor.h; empty for none
    std::string error;   // what error commands find in a tab that has not chosen
    std::vector<std::pair<std::string, std::string>> variables; // of --set
    std::vector<std::string> languages;                         // that there are texts for
    std::vector<FileProblem> problems;                          // of the texts
};

// What the bar switches, for the pages of one tab.
struct Switches {
    std::string language; // empty for the device's own
    int marks = 0;        // for translators: 1 as tooltips, 2 everywhere
    std::string error;    // what error commands find, empty for none
    std::string told;     // the cookie that has chosen this, empty for none
};

/* Read and replace a file of the work folder. Reading what is missing or broken gives the
 * initial values; writing returns false after errno tells why not. */
Config readConfig(const std::string &work);
bool writeConfig(const std::string &work, const Config &config);

// What a save, or several at once, have changed.
struct Change {
    std::string generation; // the number of the state of the site's files since then; it grows
    bool isAll = false;     // whatever was shown before may look otherwise now
    bool isData = false;    // the database
    bool isTexts = false;
    std::set<std::string> files; // below the site's folder; folders, too
};

/* The last changes as the browser reads them, in one line of JSON: {generation, changes}; the
 * generation alone; and their writing. changes: the newest last, one or more. */
std::string readChanges(const std::string &work);
std::string readGeneration(const std::string &work);
bool writeChanges(const std::string &work, const std::vector<Change> &changes);

/* The folder that stands for the device's root, by marks for translators. */
std::string rootFolder(const std::string &work, int marks);

/* Puts bytes into a file in one step. Returns false after errno tells why not. */
bool replaceFile(const std::string &path, const std::string &bytes);

/* Reads a file whole; false when that fails. */
bool readWhole(const std::string &path, std::string &bytes);

#endif
