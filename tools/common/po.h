/* tools/common/po.h - gettext PO files whose msgids are ids of text fields: read, with the
 * line of each entry, and every reason why a database could not hold one told. */
#ifndef TOOLS_PO_H
#define TOOLS_PO_H

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <gettext-po.h>

/* An entry that has an id. Its texts are borrowed from the file that it is of. */
struct PoEntry {
    std::string_view id;   // ends in a zero byte
    std::string_view text; // ends in a zero byte
    size_t line;           // of its msgid
    bool fuzzy;
    bool isEmpty;                // the text is meant to be empty: it has the note NOTE_EMPTY
    std::string_view comments;   // the translator's as they are read; the notes stand there
    po_message_t message;        // what else gettext's library knows of it
    std::set<std::string> flags; // those that it does not know, and the words of notes

    bool isTranslated() const
    {
        return isEmpty || !text.empty();
    }
};

/* A problem of a file, for a program that prints it in its own way. */
struct PoFault {
    size_t line; // 0 when none is known
    std::string text;
};

/* A file that has been read. */
struct PoFile {
    std::string path;
    po_file_t file;               // owned; null when it could not be read
    size_t errors;                // problems told that are errors
    std::vector<PoEntry> entries; // in the file's order; without header and obsolete entries
    std::string tail;             // the comments behind the last entry
    std::set<std::string> used;   // ids that comments say are used, as isUsed takes them
    // Flags that gettext's library does not know, of all entries that have some. It would lose
    // them.
    std::unordered_map<po_message_t, std::set<std::string>> flags;
    std::vector<PoFault> *faults = nullptr; // borrowed; null where errors are printed
    std::string unread = {};                // why it could not be read; empty where that is printed
};

/* Reads a file, and reports each error in it: what gettext's library complains of,
 * texts that are not UTF-8 or hold a zero byte, and ids that no field can name.
 * An entry with an error is not among the entries.
 * path: a regular file, as it is read twice.
 * faults: gets the errors, borrowed until freePo, and warnings are left out; null to have
 * both printed. Where it has them and a read fails midway, the process ends with status 2.
 *
 * To be released with freePo, whatever became of it. */
PoFile readPo(const char *path, std::vector<PoFault> *faults = nullptr);

/* Whether ids, "*" at the end of one standing for any rest, have that id. Comments name those
 * that a program uses, say, and no template: "# orv-check: used ID, ID: reason". */
bool isUsed(const std::set<std::string> &used, std::string_view id);

/* Whether a file's name is that of a PO file or of a template for some. */
bool isPoName(std::string_view path);

/* Releases what readPo returned; the texts of its entries are gone. */
void freePo(PoFile *po);

/* What gettext's library makes of a file; null when it cannot. The caller frees it by po_file_free.
 * Of each file but the last one a copy of the path is lost in it. */
po_file_t parsePo(const char *path, po_xerror_handler_t handler);

/* The comments of an entry, the translator's and those from its source: copies, of which gettext's
 * library makes one at each call and keeps no track, so that nobody can free them. */
const char *commentsOf(po_message_t message);
const char *extractedCommentsOf(po_message_t message);

/* Whether an entry, also an obsolete one, has a text or is noted as empty. */
bool isTranslated(po_message_t message);

/* The value of a field of the file's header, empty without it. */
std::string headerField(const PoFile &po, const char *field);

/* Gives the file's header a field. A file without a header stays without one. */
void setHeaderField(PoFile *po, const char *field, const char *value);

/* Returns the file as gettext's library writes it, and the comments behind the last
 * entry, which that leaves out; without the obsolete entries that have no translation, as
 * gettext's programs have it. What is returned has been read once more, and is the
 * file's content whole; empty after a complaint. */
std::string printPo(const PoFile &po);

enum class Weight { HINT, WARNING, ERROR };

/* Prints a message about a line of a PO file on standard error, or puts an error among the
 * file's faults, and counts it if it is an error. line: 0 when none is known. id: null when it is
 * about none. */
void reportPo(PoFile *po, size_t line, Weight weight, const char *id, std::string_view message);

/* Has gettext's library take bytes one by one, by variables of its own: else it asks
 * iconv about each character of a file, which is half of its time. It looks for quotes,
 * backslashes and line ends, and none of them is a part of a longer character of UTF-8.
 * What is not UTF-8 is for the caller to find. */
void takePoBytes();

/* Returns text in quotes as a PO file has it. What is not UTF-8 and what would
 * upset a terminal comes as octal numbers. */
std::string quotePo(std::string_view text);

#endif
