/* tools/preview/excerpt.h - lines of templates, to be shown beside what is wrong there. */
#ifndef PREVIEW_EXCERPT_H
#define PREVIEW_EXCERPT_H

#include <stdint.h>
#include <string>
#include <string_view>
#include <vector>

#include "host.h"

struct ExcerptLine {
    int32_t number; // from 1
    std::string text;
};

/* The line of a file, and up to around lines on each side of it; none when the file
 * cannot be read or has no such line. Long lines are cut. */
std::vector<ExcerptLine> excerpt(const Host &host, const std::string &file, int32_t line,
                                 int32_t around);

/* The line of a file that has a piece of text, from 1; 0 for none. last: the line that
 * counts is the last one up to it, with 0 the first one of the file. */
int32_t lineOf(const Host &host, const std::string &file, std::string_view piece, int32_t last);

/* Reads a file below the document root whole. Returns null, or why it cannot be read. */
const char *readBelow(const Host &host, const std::string &path, std::string &bytes);

#endif
