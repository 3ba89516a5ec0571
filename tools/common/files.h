/* tools/common/files.h - what the programs share: a line about a problem, and files that
 * are read and replaced whole. */
#ifndef TOOLS_FILES_H
#define TOOLS_FILES_H

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

/* The program's name, in front of each line that complain prints; each program
 * defines it. */
extern const char programName[];

/* Prints the program's name and a text on standard error, in one line.
 * status: returned as it is, for the caller to return in its turn. */
__attribute__((format(printf, 2, 3))) int complain(int status, const char *format, ...);

/* Appends what is left of an open file to *bytes. Returns false when that fails; errno
 * tells why. */
bool readOpen(int fd, std::string *bytes);

/* Appends a whole file to *bytes. Returns false when that fails; errno tells why. */
bool readBytes(const char *path, std::string *bytes);

/* The same, with a complaint when it fails. */
bool readFile(const char *path, std::string *bytes);

/* Writes all bytes, however many calls that takes. Returns false when one fails;
 * errno tells why. */
bool writeAll(int fd, std::string_view bytes);

/* Puts bytes into the file at path, or behind the link at path, in one step: it
 * is written beside and renamed, so whoever reads or maps the old file keeps it.
 * The mode and owner of an old file stay.
 * Returns false after a complaint; the old file is then untouched, unless it is
 * only the new one's lasting that could not be made sure. */
bool replaceFile(const char *path, std::string_view bytes);

/* What tells whether a file has changed: its number, size and time; of a database also those of
 * the file beside it that has its newest rows. "-" stands for one that is not there. */
std::string stateOfFile(const std::string &path);

/* Calls take with each entry of a folder. What cannot be read of it is left out. */
template <typename Take> void eachEntry(const std::string &path, Take take)
{
    std::error_code error;
    std::filesystem::directory_iterator entry(path, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
        take(*entry);
}

/* Whether both paths lead to one file that exists. */
bool isSameFile(const char *a, const char *b);

/* Prints a text that an option asks for, such as --help, on standard output. Returns the
 * exit status: 0, or 1 after a complaint when it could not be printed. */
int printText(const std::string &text);

/* Closes standard output and makes sure that all was printed there: a full disk is
 * no success.
 * Returns status, or failure after a complaint when status is 0 and it was not. */
int closeOutput(int status, int failure);

#endif
