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
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

enum { STATUS_OK = 0, STATUS_FAULT = 1, STATUS_USAGE = 2 };

/* Options without a letter; above every letter. */
enum { OPT_FUZZY = 256, OPT_UNUSED, OPT_HELP, OPT_VERSION };

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
    bool written =
        fd >= 0 && writeAll(fd, bytes) && fchmod(fd, 0666 & ~mask) == 0 && fsync(fd) == 0;
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

/* Returns the offset of the first byte that is not UTF-8. */
static size_t findStrange(std::string_view bytes)
{
    for (size_t pos = 0; pos < bytes.size();) {
        const size_t length = utf8Length(bytes.substr(pos));
        if (length == 0)
            return pos;
        pos += length;
    }
    return std::string_view::npos;
}

/* Returns the line of a byte, or 0 for no byte. */
static size_t lineOf(std::string_view bytes, size_t offset)
{
    if (offset == std::string_view::npos)
        return 0;
    const std::string_view before = bytes.substr(0, offset);
    return 1 + static_cast<size_t>(std::count(before.begin(), before.end(), '\n'));
}

/* Finds what gettext's library keeps to itself: the line of each entry; zero
 * bytes, at which it would cut a text; and, in files without a charset, what is
 * not UTF-8. */
static PoSource scanPo(std::string_view bytes)
{
    static constexpr std::string_view WORD =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_";
    PoSource source = {{}, lineOf(bytes, bytes.find('\0')), lineOf(bytes, findStrange(bytes))};
    size_t line = 1;
    for (size_t pos = 0; pos < bytes.size();) {
        const char c = bytes[pos];
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
    }
    return source;
}

/* Refuses a PO file whose texts are not UTF-8, or that has domains. */
static void checkWholePo(const char *path, po_file_t po, const PoSource &source)
{
    const char *header = po_file_domain_header(po, nullptr);
    char *type = header ? po_header_field(header, "Content-Type") : nullptr;
    const char *found = type ? strstr(type, "charset=") : nullptr;
    const std::string charset(found ? found + 8 : "", found ? strcspn(found + 8, "; \t\n") : 0);
    free(type);
    // A charset that is missing or, in a template, still to be filled in is taken as UTF-8.
    bool known = charset.empty();
    for (const char *name : {"UTF-8", "UTF8", "US-ASCII", "ASCII", "CHARSET"})
        known = known || strcasecmp(charset.c_str(), name) == 0;
    if (!known)
        reportLine(path, 0, true, nullptr,
                   "the charset is " + charset + ", but must be UTF-8 (msgconv -t UTF-8 converts)");
    else if (source.strangeLine && poErrors == 0)
        reportLine(path, source.strangeLine, true, nullptr, "a character is not UTF-8");
    if (source.zeroLine)
        reportLine(path, source.zeroLine, true, nullptr, "a text cannot hold a zero byte");
    for (const char *const *domain = po_file_domains(po); *domain; domain++)
        if (strcmp(*domain, "messages") != 0)
            reportLine(path, 0, true, nullptr,
                       "texts of the domain " + quoted(*domain) + ": a database has no domains");
}

/* Takes one entry, reports why not, or passes over it. */
static void takeEntry(Build *build, po_message_t message, size_t line)
{
    const std::string_view id = po_message_msgid(message);
    const char *idText = id.data();
    if (po_message_is_obsolete(message))
        return;
    if (po_message_msgctxt(message))
        return reportLine(build->path, line, true, idText, "has a context (msgctxt)");
    if (po_message_msgid_plural(message))
        return reportLine(build->path, line, true, idText, "has a plural (msgid_plural)");
    if (id.empty()) // the file's header
        return;
    const size_t strange = id.find_first_not_of(ID_CHARACTERS);
    if (strange != std::string_view::npos) {
        const std::string_view rest = id.substr(strange);
        return reportLine(build->path, line, true, idText,
                          "has the character " + quoted(rest.substr(0, utf8Length(rest))) +
                              "; a field names only letters, digits, '.', '_' and ':'");
    }
    if (id.size() > MAX_ID_LENGTH)
        return reportLine(build->path, line, true, idText,
                          "is longer than the 128 characters that a field can name");
    const char *text = po_message_msgstr(message);
    if (!*text)
        return reportLine(build->path, line, false, idText, "is not translated, left out");
    if (po_message_is_fuzzy(message) && !build->fuzzy)
        return reportLine(build->path, line, false, idText,
                          "is fuzzy, left out (--fuzzy takes it)");
    build->entries.push_back({id, text, line});
}

/* Takes all entries. lines: of their msgids, in order. */
static void takeEntries(Build *build, po_file_t po, const std::vector<size_t> &lines)
{
    po_message_iterator_t iterator = po_message_iterator(po, nullptr);
    size_t count = 0;
    while (po_message_t message = po_next_message(iterator)) {
        takeEntry(build, message, count < lines.size() ? lines[count] : 0);
        count++;
    }
    po_message_iterator_free(iterator);
    if (count != lines.size() && poErrors == 0)
        reportLine(build->path, 0, true, nullptr, "the file changed while it was read");
}

/* Makes the database from what was taken, and puts it into its file. */
static int writeDatabase(Build *build, const char *output)
{
    std::sort(build->entries.begin(), build->entries.end(),
              [](const TextEntry &a, const TextEntry &b) { return a.id < b.id; });
    std::string file;
    size_t culprit;
    const char *problem = buildTextDb(build->entries, &file, &culprit);
    if (problem) {
        const TextEntry &entry = build->entries[culprit];
        reportLine(build->path, entry.line, true, entry.id.data(), problem);
        return STATUS_FAULT;
    }
    return replaceFile(output, file) ? STATUS_OK : STATUS_FAULT;
}

static int runBuild(const Options &options)
{
    const char *path = options.files[0];
    struct stat status;
    if (stat(path, &status) == 0 && !S_ISREG(status.st_mode))
        return complain("cannot read %s: it is not a regular file, and is read twice", path);
    std::string bytes;
    if (!readFile(path, &bytes))
        return STATUS_FAULT;
    const PoSource source = scanPo(bytes);
    bytes = std::string(); // the library reads the file itself

    static const po_xerror_handler handler = {onPoError, onPoError2};
    po_file_t po = po_file_read(path, &handler);
    if (!po)
        return complain("cannot read %s: %s", path, strerror(errno));
    Build build = {path, options.fuzzy, {}};
    checkWholePo(path, po, source);
    takeEntries(&build, po, source.lines);
    const int result = poErrors ? complain("%s is not written", options.output)
                                : writeDatabase(&build, options.output);
    po_file_free(po);
    return result;
}

/* ---- dump, get, check ---- */

/* Prints a keyword and its text; a text of several lines goes below, line by
 * line, as gettext's own tools have it. */
static void printPo(const char *keyword, std::string_view text)
{
    printf("%s ", keyword);
    const size_t newline = text.find('\n');
    if (newline != std::string_view::npos && newline + 1 < text.size())
        puts("\"\"");
    do {
        const size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
        puts(quoted(text.substr(0, length)).c_str());
        text.remove_prefix(std::min(length, text.size()));
    } while (!text.empty());
}

static int runDump(const Options &options)
{
    const char *path = options.files[0];
    std::string file;
    if (!readDatabase(path, &file))
        return STATUS_FAULT;
    puts("msgid \"\"\nmsgstr \"\"\n\"MIME-Version: 1.0\\n\"\n"
         "\"Content-Type: text/plain; charset=UTF-8\\n\"\n\"Content-Transfer-Encoding: 8bit\\n\"");
    walkTextDb(file, [&](std::string_view id, std::string_view text) {
        if (id.empty()) {
            complain("%s: the text of the empty id is left out, PO has no place for it", path);
            return;
        }
        if (text.empty())
            complain("%s: the text of id %s is empty, which PO takes for untranslated", path,
                     quoted(id).c_str());
        puts("");
        printPo("msgid", id);
        printPo("msgstr", text);
    });
    return STATUS_OK;
}

static int runGet(const Options &options)
{
    const std::string_view wanted = options.files[1];
    std::string file;
    bool found = false;
    if (!readDatabase(options.files[0], &file))
        return STATUS_FAULT;
    walkTextDb(file, [&](std::string_view id, std::string_view text) {
        if (id != wanted)
            return;
        found = true;
        fwrite(text.data(), 1, text.size(), stdout);
        putchar('\n');
    });
    if (!found)
        return complain("%s has no text for id %s", options.files[0], quoted(wanted).c_str());
    return STATUS_OK;
}

static int runCheck(const Options &options)
{
    const char *path = options.files[0];
    std::string file;
    if (!readFile(path, &file))
        return STATUS_FAULT;
    const TextDbReport report = checkTextDb(file);
    for (const TextDbFault &fault : report.faults)
        printf("%s: offset %llu: %s\n", path, static_cast<unsigned long long>(fault.offset),
               fault.problem.c_str());
    if (!report.headerNote.empty())
        complain("%s: warning: %s", path, report.headerNote.c_str());
    if (!report.faults.empty())
        return STATUS_FAULT;
    printf("%s: %zu records, %zu texts, no fault\n", path, report.records, report.texts);
    return STATUS_OK;
}

/* ---- fields ---- */

/* The ids of a database, ascending, and which of them templates use. */
struct Usage {
    std::vector<std::string> ids;
    std::vector<bool> used;
    bool missing; // a template uses an id that is not there
};

/* Finds the next text field, "{?", an id, "?}", at *pos or later, and moves *pos
 * behind it. A "{?" that no whole field follows is page text.
 * start: out, where the field begins. Returns false when there is none. */
static bool nextField(std::string_view page, size_t *pos, size_t *start, std::string_view *id)
{
    while ((*start = page.find("{?", *pos)) != std::string_view::npos) {
        const size_t first = *start + 2;
        const size_t end = std::min(page.find_first_not_of(ID_CHARACTERS, first), page.size());
        *id = page.substr(first, end - first).substr(0, MAX_ID_LENGTH);
        *pos = first;
        if (page.substr(end, 2) == "?}") {
            *pos = end + 2;
            return true;
        }
    }
    return false;
}

/* Prints the fields of a template that the database lacks, and marks the others
 * as used. */
static bool checkTemplate(const char *path, Usage *usage)
{
    std::string page;
    if (!readFile(path, &page))
        return false;
    size_t line = 1;
    size_t counted = 0; // bytes whose lines are in line
    size_t pos = 0;
    size_t start;
    std::string_view id;
    while (nextField(page, &pos, &start, &id)) {
        for (; counted < start; counted++)
            line += page[counted] == '\n' ? 1 : 0;
        const auto place = std::lower_bound(usage->ids.begin(), usage->ids.end(), id);
        if (place != usage->ids.end() && *place == id) {
            usage->used[static_cast<size_t>(place - usage->ids.begin())] = true;
        } else {
            usage->missing = true;
            printf("%s:%zu: %.*s\n", path, line, static_cast<int>(id.size()), id.data());
        }
    }
    return true;
}

static void printUnused(const char *path, std::string_view id)
{
    printf("%s: unused: %.*s\n", path, static_cast<int>(id.size()), id.data());
}

static int runFields(const Options &options)
{
    const char *path = options.files[0];
    std::string file;
    if (!readDatabase(path, &file))
        return STATUS_FAULT;
    Usage usage = {{}, {}, false};
    walkTextDb(file, [&](std::string_view id, std::string_view /*text*/) {
        if (id.size() <= MAX_ID_LENGTH)
            usage.ids.emplace_back(id);
        else if (options.unused) // no field can name it
            printUnused(path, id);
    });
    usage.used.assign(usage.ids.size(), false);
    bool readable = true;
    for (size_t i = 1; i < options.files.size(); i++)
        readable = checkTemplate(options.files[i], &usage) && readable;
    if (!readable) // what the unread ones use is not known
        return STATUS_FAULT;
    for (size_t i = 0; options.unused && i < usage.ids.size(); i++)
        if (!usage.used[i])
            printUnused(path, usage.ids[i]);
    return usage.missing ? STATUS_FAULT : STATUS_OK;
}

/* ---- Command line ---- */

/* A command of the tool. */
struct Command {
    const char *name;
    const char *arguments; // as the usage line shows them
    size_t least;          // arguments that are not options, at the least
    size_t most;
    bool writes; // takes -o, and needs it, and --fuzzy
    bool lists;  // takes --unused
    int (*run)(const Options &options);
};

static constexpr Command commands[] = {
    {"build", "-o FILE.db [--fuzzy] INPUT.po", 1, 1, true, false, runBuild},
    {"dump", "FILE.db", 1, 1, false, false, runDump},
    {"get", "FILE.db ID", 2, 2, false, false, runGet},
    {"check", "FILE.db", 1, 1, false, false, runCheck},
    {"fields", "[--unused] FILE.db TEMPLATE...", 2, SIZE_MAX, false, true, runFields},
};

static constexpr char helpText[] =
    "orv-textdb makes text databases from gettext PO files and looks into them.\n"
    "\n"
    "  orv-textdb build -o FILE.db [--fuzzy] INPUT.po  make a database; --fuzzy takes\n"
    "                                                  fuzzy entries too\n"
    "  orv-textdb dump FILE.db                         print it as a PO file\n"
    "  orv-textdb get FILE.db ID                       print one text\n"
    "  orv-textdb check FILE.db                        look for damage\n"
    "  orv-textdb fields [--unused] FILE.db TEMPLATE...\n"
    "                                                  print the ids that templates use\n"
    "                                                  and the database lacks; --unused:\n"
    "                                                  also those that none of them uses\n"
    "  orv-textdb --help | --version\n"
    "\n"
    "Exit status: 0 all is well, 1 something is wrong with a file, an id or a field,\n"
    "2 something is wrong with the command line.\n";

/* Prints why the command line is refused. command: null when none was understood. */
static int refuseUsage(const Command *command, const std::string &problem)
{
    if (command)
        complain("%s; usage: orv-textdb %s %s", problem.c_str(), command->name, command->arguments);
    else
        complain("%s; 'orv-textdb --help' shows the commands", problem.c_str());
    return STATUS_USAGE;
}

static const Command *findCommand(const char *name)
{
    for (const Command &command : commands)
        if (strcmp(command.name, name) == 0)
            return &command;
    return nullptr;
}

/* Runs the command that the words of the command line name. */
static int runCommand(Options *options)
{
    if (options->files.empty())
        return refuseUsage(nullptr, "no command is given");
    const std::string name = options->files[0];
    const Command *command = findCommand(name.c_str());
    if (!command)
        return refuseUsage(nullptr, "unknown command '" + name + "'");
    options->files.erase(options->files.begin());
    if (options->files.size() < command->least)
        return refuseUsage(command, "an argument is missing");
    if (options->files.size() > command->most)
        return refuseUsage(command, "an argument is too much");
    if (command->writes && !options->output)
        return refuseUsage(command, "the option -o is missing");
    if (!command->writes && (options->output || options->fuzzy))
        return refuseUsage(command, "-o and --fuzzy belong to build");
    if (!command->lists && options->unused)
        return refuseUsage(command, "--unused belongs to fields");
    return command->run(*options);
}

/* Makes sure that all was printed: a full disk is no success. */
static int closeOutput(int status)
{
    const bool failed = ferror(stdout) != 0;
    if ((fclose(stdout) != 0 || failed) && status == STATUS_OK)
        return complain("cannot write to standard output: %s", strerror(errno));
    return status;
}

int main(int argc, char **argv)
{
    static const option longOptions[] = {
        {"output", required_argument, nullptr, 'o'},    {"fuzzy", no_argument, nullptr, OPT_FUZZY},
        {"unused", no_argument, nullptr, OPT_UNUSED},   {"help", no_argument, nullptr, OPT_HELP},
        {"version", no_argument, nullptr, OPT_VERSION}, {nullptr, 0, nullptr, 0},
    };
    std::set_new_handler([] {
        complain("out of memory");
        _exit(STATUS_FAULT);
    });
    Options options = {nullptr, false, false, {}};
    for (int c; (c = getopt_long(argc, argv, ":o:", longOptions, nullptr)) != -1;) {
        switch (c) {
        case 'o':
            options.output = optarg;
            break;
        case OPT_FUZZY:
            options.fuzzy = true;
            break;
        case OPT_UNUSED:
            options.unused = true;
            break;
        case OPT_HELP:
            fputs(helpText, stdout);
            return closeOutput(STATUS_OK);
        case OPT_VERSION:
            puts("orv-textdb " ORV_VERSION);
            return closeOutput(STATUS_OK);
        case ':':
            return refuseUsage(nullptr, "the option -o needs a file name");
        default:
            return refuseUsage(nullptr, "bad option '" +
                                            (optopt > 0 && optopt < OPT_FUZZY
                                                 ? std::string("-") + static_cast<char>(optopt)
                                                 : std::string(argv[optind - 1])) +
                                            "'");
        }
    }
    options.files.assign(argv + optind, argv + argc);
    return closeOutput(runCommand(&options));
}
