/* tools/common/textdb_file.h - text database files: laid out from sorted texts,
 * checked record by record, listed.
 *
 * Used by orv-textdb. Shares no code with the library, so that each of the two
 * is a test of the other. The file format is described in docs/textdb.md. */
#ifndef ORV_TEXTDB_FILE_H
#define ORV_TEXTDB_FILE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/* One text on its way into a database. Both views are borrowed, and hold no
 * zero byte. */
struct TextEntry {
    std::string_view id;
    std::string_view text;
    size_t line; // of the source, for the caller's messages; not stored
};

/* Lays out a whole database file.
 * entries: ascending by id, bytes compared as unsigned; no id twice.
 * file: out, the file's bytes; the same entries give the same bytes.
 * culprit: out on failure, the index of the entry that did not fit.
 *
 * Returns null, or the limit that was exceeded, a static text; file is then
 * empty. */
const char *buildTextDb(std::span<const TextEntry> entries, std::string *file, size_t *culprit);

/* Something wrong in a database file. */
struct TextDbFault {
    uint64_t offset; // of the record it was found in, from the file's start
    std::string problem;
};

/* What checkTextDb found. */
struct TextDbReport {
    std::vector<TextDbFault> faults;
    std::string headerNote; // what is unusual about the header, or empty; no fault
    size_t records;         // records that can be reached, the root included
    size_t texts;           // those among them that carry a text
};

/* Follows every record from the root, and looks at its strings, its siblings
 * and the bytes that no record leads to. Reads nothing outside file, whatever
 * it holds. */
TextDbReport checkTextDb(std::string_view file);

/* Whether the file is a text database: it has the header that buildTextDb writes,
 * damaged or not, or no fault. */
bool isTextDb(std::string_view file);

/* Hands every id and text to visit, ids ascending; the views are good during
 * that call.
 * file: one in which checkTextDb finds no fault. */
void walkTextDb(std::string_view file,
                const std::function<void(std::string_view id, std::string_view text)> &visit);

#endif
