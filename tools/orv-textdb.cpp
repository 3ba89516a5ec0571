/* tools/orv-textdb.cpp - the translators' tool: makes text databases from
 * gettext PO files, gives the PO back, checks databases, and compares them with
 * the text fields of templates.
 *
 * In a PO file msgid is a text field's id and msgstr its text. The exit status
 * is 0 when all went well, 1 when something is wrong with a file, 2 when the
 * command line is. */
#include "textdb_file.h"

#include <gettext-po.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

enum { STATUS_OK = 0, STATUS_FAULT = 1, STATUS_USAGE = 2 };

/* The library reads no more of a field's id than this. */
static constexpr size_t MAX_ID_LENGTH = 128;

static constexpr std::string_view ID_CHARACTERS =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._:";

/* What the command line asks for. All texts are borrowed from it. */
struct Options {
    const char *output; // of -o, or null
    bool fuzzy;
    bool unused;
    std::vector<const char *> files; // the command's arguments
};

/* ---- Messages and files ---- */

/* Prints one line on standard error. Returns STATUS_FAULT. */
__attribute__((format(printf, 1, 2))) static int complain(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    fputs("orv-textdb: ", stderr);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    va_end(args);
    return STATUS_FAULT;
}

/* Returns the length of the UTF-8 character that text begins with, 0 when its
 * bytes are none. */
static size_t utf8Length(std::string_view text)
{
    const auto byte = [&](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    const unsigned lead = byte(0);
    if (lead < 0x80)
        return 1;
    const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4)
        return 0;
    for (size_t i = 1; i < length; i++)
        if ((byte(i) & 0xc0) != 0x80)
            return 0;
    const unsigned start = lead << 8 | byte(1); // long forms, surrogates, beyond the last character
    if ((lead == 0xe0 && start < 0xe0a0) || (lead == 0xed && start >= 0xeda0) ||
        (lead == 0xf0 && start < 0xf090) || (lead == 0xf4 && start >= 0xf490))
        return 0;
    return length;
}

/* Returns text in quotes as a PO file has it. What is not UTF-8 and what would
 * upset a terminal comes as octal numbers. */
static std::string quoted(std::string_view text)
{
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const size_t length = utf8Length(text.substr(i));
        if (byte == '"' || byte == '\\')
            out.append("\\").push_back(text[i]);
        else if (byte == '\n' || byte == '\t')
            out += byte == '\n' ? "\\n" : "\\t";
        else if (length == 0 || byte < 0x20 || byte == 0x7f)
            for (const int number : {'\\' - '0', byte >> 6, byte >> 3 & 7, byte & 7})
                out.push_back(static_cast<char>('0' + number));
        else
            out.append(text.substr(i, length));
        i += std::max<size_t>(length, 1);
    }
    return out + "\"";
}

/* Reads a whole file. On failure complains and returns false. */
static bool readFile(const char *path, std::string *bytes)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    ssize_t count = fd < 0 ? -1 : 1;
    struct stat status;
    if (fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
        bytes->reserve(static_cast<size_t>(status.st_size));
    char piece[65536];
    while (count > 0 || (count < 0 && fd >= 0 && errno == EINTR)) {
        count = read(fd, piece, sizeof piece);
        if (count > 0)
            bytes->append(piece, static_cast<size_t>(count));
    }
    if (count < 0)
        complain("cannot read %s: %s", path, strerror(errno));
    if (fd >= 0)
        close(fd);
    return count == 0;
}

static bool writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0)
            bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

/* Makes a rename in the folder of path last. */
static bool syncFolder(const std::string &path)
{
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool done = fsync(fd) == 0 || errno == EINVAL; // some file systems cannot
    close(fd);
    return done;
}

/* Puts bytes into the file at path, or behind the link at path, in one step: it
 * is written beside and renamed, so whoever reads or maps the old file keeps it.
 * On failure complains and returns false; the old file is then untouched, unless
 * it is only the new one's lasting that could not be made sure. */
static bool replaceFile(const char *path, std::string_view bytes)
{
    char *resolved = realpath(path, nullptr);
    const std::string target = resolved ? resolved : path;
    free(resolved);
    struct stat status;
    if (stat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        complain("cannot write %s: it is not a regular file", path);
        return false;
    }
    std::string beside = target + ".XXXXXX";
    const int fd = mkstemp(beside.data());
    const mode_t mask = umask(0);
    umask(mask);
    bool written = fd >= 0 && writeAll(fd, bytes) && fchmod(fd, 0666 & ~mask) == 0 &&
                   fsync(fd) == 0;
    int error = errno;
    if (fd >= 0 && close(fd) != 0 && written) {
        error = errno;
        written = false;
    }
    if (written && rename(beside.c_str(), target.c_str()) != 0) {
        error = errno;
        written = false;
    }
    if (!written) {
        complain("cannot write %s: %s", path, strerror(error));
        if (fd >= 0)
            unlink(beside.c_str());
        return false;
    }
    if (!syncFolder(target)) {
        complain("%s is written, but its folder cannot be synced: %s", path, strerror(errno));
        return false;
    }
    return true;
}

/* Reads a database, and refuses one that has a fault. */
static bool readDatabase(const char *path, std::string *file)
{
    if (!readFile(path, file))
        return false;
    const TextDbReport report = checkTextDb(*file);
    if (report.faults.empty())
        return true;
    complain("%s is damaged at offset %llu: %s ('orv-textdb check' lists all faults)", path,
             static_cast<unsigned long long>(report.faults[0].offset),
             report.faults[0].problem.c_str());
    return false;
}

/* ---- build ---- */

/* What is learned from a PO file's bytes, besides what gettext's library tells. */
struct PoSource {
    std::vector<size_t> lines; // of each entry's msgid, in the order of the file
    size_t zeroLine;           // of the first zero byte, plain or escaped; or 0
    size_t strangeLine;        // of the first byte that is not UTF-8, or 0
};

/* A build in progress. The views in entries are borrowed from the PO file. */
struct Build {
    const char *path; // of the PO file
    bool fuzzy;
    std::vector<TextEntry> entries;
};

/* Errors found in the PO file so far. The functions that gettext's library calls
 * carry no pointer of ours, so they count here. */
static size_t poErrors;

/* Prints a message about a line of the PO file, and counts it if it is an error.
 * line: 0 when none is known. id: null when the message is about none. */
static void reportLine(const char *path, size_t line, bool error, const char *id,
                       std::string_view message)
{
    std::string text = path;
    if (line)
        text += ":" + std::to_string(line);
    text += error ? ": error: " : ": warning: ";
    if (id)
        text += "id " + quoted(id) + ": ";
    text += message;
    fprintf(stderr, "%s\n", text.c_str());
    if (error)
        poErrors++;
}

/* Takes a message of gettext's library. May not return from a fatal one. */
static void onPoError(int severity, po_message_t message, const char *path, size_t line,
                      size_t /*column*/, int /*multiline*/, const char *text)
{
    std::string joined = text; // of several lines, perhaps
    while (joined.ends_with('\n'))
        joined.pop_back();
    std::replace(joined.begin(), joined.end(), '\n', ' ');
    reportLine(path ? path : "orv-textdb", path && line != static_cast<size_t>(-1) ? line : 0,
               severity != PO_SEVERITY_WARNING, message ? po_message_msgid(message) : nullptr,
               joined);
    if (severity == PO_SEVERITY_FATAL_ERROR)
        exit(STATUS_FAULT);
}

/* Takes a message about an entry that is defined twice. The library knows the
 * place of the second definition, but hands over only the first entry. */
static void onPoError2(int severity, po_message_t message, const char *path, size_t line,
                       size_t column, int multiline, const char *text, po_message_t first,
                       const char * /*path2*/, size_t /*line2*/, size_t /*column2*/,
                       int /*multiline2*/, const char * /*text2*/)
{
    onPoError(severity, message ? message : first, path, line, column, multiline, text);
}

/* Returns what a digit of an octal or hexadecimal escape stands for, 16 for any
 * other character. */
static unsigned digitValue(char c)
{
    if (c >= '0' && c <= '9')
        return static_cast<unsigned>(c - '0');
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a') + 10 : 16;
}

/* Moves *pos from a string's opening quote past its end. Returns whether the
 * string has an escape that stands for a zero byte. */
static bool passString(std::string_view bytes, size_t *pos)
{
    bool zero = false;
    size_t i = *pos + 1;
    while (i < bytes.size() && bytes[i] != '"' && bytes[i] != '\n') {
        if (bytes[i++] != '\\')
            continue;
        const bool hex = i < bytes.size() && bytes[i] == 'x';
        const unsigned base = hex ? 16 : 8;
        const size_t first = hex ? i + 1 : i;
        const size_t end = hex ? bytes.size() : std::min(i + 3, bytes.size());
        unsigned value = 0;
        for (i = first; i < end && digitValue(bytes[i]) < base; i++)
            value = value * base + digitValue(bytes[i]);
        if (i > first)
            zero = zero || value % 256 == 0; // an escape makes one byte
        else if (i < bytes.size() && bytes[i] != '\n')
            i++;
    }
    *pos = i < bytes.size() && bytes[i] == '"' ? i + 1 : i;
    return zero;
}

/* Finds what gettext's library keeps to itself: the line of each entry; zero
 * bytes, at which it would cut a text; and, in files without a charset, what is
 * not UTF-8. */
static PoSource scanPo(std::string_view bytes)
{
    static constexpr std::string_view WORD = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_";
    PoSource source = {{}, 0, 0};
    size_t line = 1;
    for (size_t pos = 0; pos < bytes.size();) {
        const char c = bytes[pos];
        const size_t length = utf8Length(bytes.substr(pos));
        if (c == '"') {
            if (passString(bytes, &pos) && !source.zeroLine)
                source.zeroLine = line;
        } else if (c == '#') { // behind "#~" stands an obsolete entry, elsewhere a comment
            const std::string_view start = bytes.substr(pos, 3);
            const bool obsolete = start.starts_with("#~") && start != "#~|";
            pos = obsolete ? pos + 2 : std::min(bytes.find('\n', pos), bytes.size());
        } else if (WORD.find(c) != std::string_view::npos) {
            const size_t end = std::min(bytes.find_first_not_of(WORD, pos), bytes.size());
            if (bytes.substr(pos, end - pos) == "msgid")
                source.lines.push_back(line);
            pos = end;
        } else {
            line += c == '\n' ? 1 : 0;
            pos++;
        }
        (void)length;
    }
    return source;
}
