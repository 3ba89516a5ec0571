/* tools/common/sitefile.h - orv-check.json, in which a site says what the programs need to
 * know of it, so that nobody has to give them options.
 *
 * A program that works on a site does:
 *
 *     SiteFile site;                                 // what it holds without a file
 *     const std::string path = findSiteFile(".");    // or the folder that it is told
 *     std::string problem;                           // "FILE:LINE: what is wrong"
 *     if (!path.empty() && !readSiteFile(path, &site, &problem))
 *         return complain(2, "%s", problem.c_str());
 *     ...                                            // its options replace what is there
 *     if (!findMissing(site, &problem))              // where a missing file is a mistake
 *         return complain(2, "%s", problem.c_str());
 *
 * All paths in a SiteFile can be opened as they are: those in the file begin at its folder, and
 * that has been put in front of them. docs/checking.md tells the settings to those who write
 * such a file. */
#ifndef TOOLS_SITEFILE_H
#define TOOLS_SITEFILE_H

#include <stdint.h>

#include <string>
#include <string_view>
#include <vector>

static constexpr char SITE_FILE[] = "orv-check.json";

// A path, and the line of the file that names it; 0 when something else does.
struct SitePath {
    std::string path;
    uint32_t line = 0;
};

// An SQLite database, or scripts whose names end in .sql that make one.
struct SiteDatabase {
    std::string name; // under which it is attached; "main" is the one that is opened
    SitePath file;    // * and ? in the file's name stand for several, see databaseFiles
};

// A function that the host adds to SQL.
struct SiteFunction {
    std::string name;
    int arguments;     // -1 for any number
    bool givesNumbers; // and nothing else
};

// How findings of a kind are taken: "off", "hint", "warning" or "error". Which kinds there are
// only the checker knows.
struct SiteKind {
    std::string id;
    std::string grade;
    uint32_t line;
};

// Kinds that are taken otherwise in some files.
struct SiteOverride {
    std::vector<std::string> files; // patterns, see fitsPattern
    std::vector<SiteKind> kinds;
};

struct SiteFile {
    std::string path; // of the file; empty without one
    SitePath docRoot = {".", 0};
    std::vector<SiteDatabase> databases;
    std::vector<SiteFunction> functions;
    std::vector<SitePath> texts;   // PO files and text databases; the first is the source
    std::string textDatabases;     // where orv-textdb sync makes them, * for the language;
                                   // empty for nowhere
    std::vector<std::string> set;  // variables that the web program sets, NAME or NAME[INDEX],
                                   // perhaps with = and a value to show pages with
    std::vector<std::string> safe; // such ones whose values are safe anywhere
    std::vector<SitePath> setFrom; // lists of such
    std::vector<SiteKind> kinds;
    std::vector<SiteOverride> overrides;
    std::vector<std::string> pages;   // patterns; empty for all that no other template includes
    std::vector<std::string> routes;  // patterns of addresses that the web program answers
    std::vector<std::string> exclude; // patterns of files that are not looked at
};

/* The site file of a folder or of the nearest folder above that has one; empty for none. It is
 * absolute where folder is, and begins at the working directory elsewhere. */
std::string findSiteFile(const std::string &folder);

/* Reads a site file. Returns false, with the reason and its place in problem, when it cannot
 * be read, is no JSON or holds what no site file does; *site is then of no use. Comments as
 * in C++ are allowed in it. That its files are there is not looked at. */
bool readSiteFile(const std::string &path, SiteFile *site, std::string *problem);

/* The files of a database: the one that is named, or all that fit its pattern, in the order of
 * their names, none perhaps. */
std::vector<std::string> databaseFiles(const SiteDatabase &database);

/* Whether the document root is a folder and all other files are there that it names. Returns
 * false, with the first that is not and its place in problem. */
bool findMissing(const SiteFile &site, std::string *problem);

/* Whether a path below the document root fits a pattern: with * and ? for what is within a
 * name. Without a slash the pattern is a file's or folder's name anywhere; that of a folder
 * fits all below it. */
bool fitsPattern(const std::string &pattern, std::string_view path);
bool fitsAny(const std::vector<std::string> &patterns, std::string_view path);

#endif
