/* host/figures.cpp - files of lines as a table of SQLite that a query names the file for. A file is
 * read when a query asks for it, and no sooner; nothing is kept between queries. */
#include "figures.h"
#include "encoding.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <new>
#include <string>
#include <string_view>
#include <sqlite3.h>

using std::string;
using std::string_view;

// What a file may have at most; the rest of it is left alone.
static constexpr size_t MOST_BYTES = 65536;

static constexpr int WORDS = 17; // of a line in /proc/net/dev

enum { COLUMN_LINE, COLUMN_TEXT, COLUMN_WORD1, COLUMN_NAME = COLUMN_WORD1 + WORDS };

static constexpr char declaration[] =
    "create table x(line integer, text text, word1, word2, word3, word4, word5, word6, word7, "
    "word8,"
    " word9, word10, word11, word12, word13, word14, word15, word16, word17, name text hidden)";

struct FigureTable {
    sqlite3_vtab base;  // SQLite's
    const char *folder; // borrowed
};

// Stands at the line that rest begins with.
struct FigureCursor {
    sqlite3_vtab_cursor base; // SQLite's
    string text;              // of the file
    string_view rest;         // of the text
    int line = 1;
};

static FigureCursor &cursorOf(sqlite3_vtab_cursor *cursor)
{
    return *reinterpret_cast<FigureCursor *>(cursor);
}

static int connect(sqlite3 *db, void *folder, int, const char *const *, sqlite3_vtab **table,
                   char **)
{
    if (const int result = sqlite3_declare_vtab(db, declaration); result != SQLITE_OK)
        return result;
    FigureTable *made = static_cast<FigureTable *>(calloc(1, sizeof *made));
    if (!made)
        return SQLITE_NOMEM;
    made->folder = static_cast<const char *>(folder);
    *table = &made->base;
    return SQLITE_OK;
}

static int disconnect(sqlite3_vtab *table)
{
    free(table);
    return SQLITE_OK;
}

// The name has to be known, and is the one argument of the query.
static int planQuery(sqlite3_vtab *, sqlite3_index_info *info)
{
    for (int i = 0; i < info->nConstraint; ++i) {
        const auto &constraint = info->aConstraint[i];
        if (constraint.iColumn != COLUMN_NAME || constraint.op != SQLITE_INDEX_CONSTRAINT_EQ)
            continue;
        if (!constraint.usable)
            return SQLITE_CONSTRAINT;
        info->aConstraintUsage[i].argvIndex = 1;
        info->aConstraintUsage[i].omit = 1;
        info->estimatedCost = 100;
        return SQLITE_OK;
    }
    return SQLITE_CONSTRAINT;
}

static int openCursor(sqlite3_vtab *, sqlite3_vtab_cursor **cursor)
{
    FigureCursor *made = new (std::nothrow) FigureCursor();
    *cursor = made ? &made->base : nullptr;
    return made ? SQLITE_OK : SQLITE_NOMEM;
}

static int closeCursor(sqlite3_vtab_cursor *cursor)
{
    delete &cursorOf(cursor);
    return SQLITE_OK;
}

// Reads a file to its end or the limit; nothing of one that cannot be read.
static string readFile(const string &path)
{
    string text(MOST_BYTES, '\0');
    struct stat status;
    size_t length = 0;
    ssize_t size = -1;
    // Without O_NONBLOCK a fifo would keep the page waiting for a writer.
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
        while ((size = read(fd, text.data() + length, text.size() - length)) > 0)
            length += static_cast<size_t>(size);
    if (fd >= 0)
        close(fd);
    text.resize(size < 0 ? 0 : length);
    return text;
}

// Puts a question mark in the place of each byte that could spoil a page: what a device that
// asks for an address calls itself stands in such files, too.
static void cleanText(string &text)
{
    size_t at = 0;
    for (size_t sound; (sound = findStrange(string_view(text).substr(at))) != string::npos;) {
        at += sound;
        text[at] = '?';
    }
    std::replace_if(
        text.begin(), text.end(),
        [](char c) { return (c >= 0 && c < ' ' && c != '\n' && c != '\t') || c == '\x7f'; }, '?');
}

static int filter(sqlite3_vtab_cursor *base, int, const char *, int, sqlite3_value **arguments)
{
    FigureCursor &cursor = cursorOf(base);
    const auto *name = reinterpret_cast<const char *>(sqlite3_value_text(arguments[0]));
    cursor.text.clear();
    if (name && name[0] != '.' && !strchr(name, '/'))
        cursor.text =
            readFile(string(reinterpret_cast<FigureTable *>(base->pVtab)->folder) + '/' + name);
    cleanText(cursor.text);
    cursor.rest = cursor.text;
    cursor.line = 1;
    return SQLITE_OK;
}

static string_view lineOf(const FigureCursor &cursor)
{
    return cursor.rest.substr(0, cursor.rest.find('\n'));
}

static int next(sqlite3_vtab_cursor *base)
{
    FigureCursor &cursor = cursorOf(base);
    cursor.rest.remove_prefix(std::min(cursor.rest.size(), lineOf(cursor).size() + 1));
    ++cursor.line;
    return SQLITE_OK;
}

static int isAtEnd(sqlite3_vtab_cursor *cursor)
{
    return cursorOf(cursor).rest.empty();
}

// Returns the word of that number, from 0; nothing where the line has fewer.
static string_view wordOf(string_view line, int number)
{
    static constexpr char blanks[] = " \t";
    string_view word;
    for (int i = 0; i <= number; ++i) {
        line.remove_prefix(std::min(line.size(), line.find_first_not_of(blanks)));
        word = line.substr(0, line.find_first_of(blanks));
        line.remove_prefix(word.size());
    }
    return word;
}

static int column(sqlite3_vtab_cursor *base, sqlite3_context *context, int number)
{
    const FigureCursor &cursor = cursorOf(base);
    string_view text = lineOf(cursor);
    if (number == COLUMN_LINE)
        sqlite3_result_int(context, cursor.line);
    if (number == COLUMN_LINE || number == COLUMN_NAME)
        return SQLITE_OK;
    if (number >= COLUMN_WORD1)
        text = wordOf(text, number - COLUMN_WORD1);
    if (number == COLUMN_TEXT || !text.empty())
        sqlite3_result_text(context, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    return SQLITE_OK;
}

static int rowNumber(sqlite3_vtab_cursor *base, sqlite3_int64 *number)
{
    *number = cursorOf(base).line;
    return SQLITE_OK;
}

int addFigures(sqlite3 *db, const char *folder)
{
    static const sqlite3_module module = [] {
        sqlite3_module made = {};
        made.xConnect = connect;
        made.xBestIndex = planQuery;
        made.xDisconnect = disconnect;
        made.xOpen = openCursor;
        made.xClose = closeCursor;
        made.xFilter = filter;
        made.xNext = next;
        made.xEof = isAtEnd;
        made.xColumn = column;
        made.xRowid = rowNumber;
        return made;
    }();
    return sqlite3_create_module(db, "figure", &module, const_cast<char *>(folder));
}
