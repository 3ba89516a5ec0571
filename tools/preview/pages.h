/* tools/preview/pages.h - the pages of the preview's own: what is wrong where there is no
 * page to show, and the lists of folders. */
#ifndef PREVIEW_PAGES_H
#define PREVIEW_PAGES_H

#include <string>
#include <string_view>
#include <vector>

#include "source.h"
#include "trace.h"

/* HTML text for any text. */
std::string escaped(std::string_view text);

struct Trouble {
    std::string title;                   // "There is no template x.htm"
    std::string text;                    // what happened
    std::string hint = {};               // what to do about it, may be empty
    Place place = {};                    // in a template, if its file is not empty
    Topic topic = {};                    // what its cause is about
    std::string log = {};                // and the log's line of that
    std::string page = {};               // what the page had so far
    std::vector<std::string> links = {}; // paths that may have been meant
};

/* The page. sources: for the lines of the place. */
std::string troublePage(const Trouble &trouble, Sources &sources);

struct FolderEntry {
    enum Kind { FOLDER, PAGE, PIECE, FILE } kind;
    std::string name;
};

/* A folder's list. path: from the site, beginning and ending with '/'. */
std::string folderPage(const std::string &title, const std::string &path,
                       const std::vector<FolderEntry> &entries);

/* The kind of a file of that name: templates are told by their endings. */
FolderEntry::Kind kindOfFile(std::string_view name);

/* A name as a step of an address. */
std::string addressOf(std::string_view name);

/* A whole answer for printf(), where a run has ended that nothing else could stop: why, the
 * template, the line. */
inline constexpr char runStoppedPage[] =
    "Status: 500 Internal Server Error\r\nContent-Type: text/html; charset=utf-8\r\n"
    "Cache-Control: no-store\r\n\r\n<!DOCTYPE html>\n<meta charset=\"utf-8\">"
    "<title>Stopped</title>\n<body style=\"font: 16px/1.5 sans-serif; margin: 3em\">"
    "<h1>%s.</h1>\n<p>It was at <code>%s</code>, line %d. A repeat with a very great number, "
    "or a slow query, is the usual cause.</p>\n<script src=\"/.orv-preview/bar.js\"></script>\n";

#endif
