/* tools/preview/config.h - what the launcher tells the programs that it has started, and
 * what their bars switch: two files in the launcher's work folder. */
#ifndef PREVIEW_CONFIG_H
#define PREVIEW_CONFIG_H

#include <stdint.h>
#include <string>
#include <utility>
#include <vector>

// A mistake in a file that is no template.
struct FileProblem {
    std::string file;
    int32_t line = 0; // 0 when it is not known
    std::string text;
};

struct Config {
    std::string docRoot; // absolute, as are the others
    std::string db;      // empty for none
    int port = 0;
    bool reloads = true;
    std::vector<std::pair<std::string, std::string>> variables; // of --set
    std::vector<std::string> languages;                         // that there are texts for
    std::vector<FileProblem> problems;                          // of the texts
};

// What the bar switches, for all pages.
struct Switches {
    std::string language; // empty for the device's own
    int marks = 0;        // for translators: 1 as tooltips, 2 everywhere
    std::string error;    // what error commands find, empty for none
};

/* Read and replace a file of the work folder. Reading what is missing or broken gives the
 * initial values; writing returns false after errno tells why not. */
Config readConfig(const std::string &work);
bool writeConfig(const std::string &work, const Config &config);
Switches readSwitches(const std::string &work);
bool writeSwitches(const std::string &work, const Switches &switches);

/* The number of the state of the site's files: a page with another one is out of date. */
std::string readGeneration(const std::string &work);
bool writeGeneration(const std::string &work, const std::string &generation);

/* The folder that stands for the device's root, by marks for translators. */
std::string rootFolder(const std::string &work, int marks);

/* Puts bytes into a file in one step. Returns false after errno tells why not. */
bool replaceFile(const std::string &path, const std::string &bytes);

/* Reads a file whole; false when that fails. */
bool readWhole(const std::string &path, std::string &bytes);

#endif
