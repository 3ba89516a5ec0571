/* tools/po.h - gettext PO files whose msgids are ids of text fields: read, with the
 * line of each entry, and every reason why a database could not hold one told. */
#ifndef TOOLS_PO_H
#define TOOLS_PO_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <gettext-po.h>

/* An entry that has an id. Its texts are borrowed from the file that it is of. */
struct PoEntry {
    std::string_view id;   // ends in a zero byte
    std::string_view text; // ends in a zero byte; empty when not translated
    size_t line;           // of its msgid
    bool fuzzy;
    po_message_t message; // what else gettext's library knows of it
};

/* A file that has been read. */
struct PoFile {
    std::string path;
    po_file_t file;               // owned; null when it could not be read
    size_t errors;                // problems told that are errors
    std::vector<PoEntry> entries; // in the file's order; without header and obsolete entries
};

/* Reads a file, and reports each error in it: what gettext's library complains of,
 * texts that are not UTF-8 or hold a zero byte, and ids that no field can name.
 * An entry with an error is not among the entries.
 * path: a regular file, as it is read twice.
 *
 * To be released with freePo, whatever became of it. */
PoFile readPo(const char *path);

/* Releases what readPo returned; the texts of its entries are gone. */
void freePo(PoFile *po);

/* Prints a message about a line of a PO file on standard error, and counts it if
 * it is an error. line: 0 when none is known. id: null when it is about none. */
void reportPo(PoFile *po, size_t line, bool isError, const char *id, std::string_view message);

/* Returns text in quotes as a PO file has it. What is not UTF-8 and what would
 * upset a terminal comes as octal numbers. */
std::string quotePo(std::string_view text);

#endif
