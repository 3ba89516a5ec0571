/* tools/preview/source.h - places in the site's files, and the lines that stand there. */
#ifndef PREVIEW_SOURCE_H
#define PREVIEW_SOURCE_H

#include <stddef.h>
#include <stdint.h>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host.h"
#include "tools/common/json.h"

inline constexpr size_t NO_OFFSET = SIZE_MAX;

// A place in a file: a line, or a command there.
struct Place {
    std::string file;       // below the document root; empty where no file is concerned
    int32_t line = 0;       // from 1; 0 when it is not known
    size_t at = NO_OFFSET;  // where the command begins in the file, if that is known
    size_t end = NO_OFFSET; // and where it has ended
};

// The files of a site, each read once.
struct Sources {
    std::string folder; // the site's, absolute
    std::map<std::string, std::optional<std::string>> texts;
};

/* A file's text, borrowed from sources; null when it cannot be read. file: from the site's
 * folder, or absolute. */
const std::string *textOf(Sources &sources, const std::string &file);

// A line as it is shown.
struct SourceLine {
    int32_t number;   // from 1
    std::string text; // a part of a long line
    int32_t cut = 0;  // bytes in front of that part
};

/* The line of a file with up to around lines on each side; none when the file cannot be
 * read or has no such line. column: what has to be seen of that line, 0 for its beginning. */
std::vector<SourceLine> linesAround(Sources &sources, const std::string &file, int32_t line,
                                    int32_t column, int32_t around);

/* The same as the bar reads it: a list of {number, text, cut}. */
Json linesJson(Sources &sources, const std::string &file, int32_t line, int32_t column);

/* A place as the bar reads it: {file, line, column, endLine, endColumn}, the last three only
 * where they are known. The file's name has no "./" in it. */
Json placeJson(Sources &sources, const Place &place);

/* Reads a file below the document root whole. Returns null, or why it cannot be read. */
const char *readBelow(const Host &host, const std::string &path, std::string &bytes);

#endif
