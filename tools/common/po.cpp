/* tools/common/po.cpp - reads PO files with gettext's library, and from their bytes what
 * that keeps to itself. */
#include "tools/common/po.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef ORV_FINDS_LEAKS
#include <sanitizer/lsan_interface.h>
#endif

#include "tools/common/fieldid.h"
#include "tools/common/files.h"
#include "tools/common/notes.h"
#include "host/encoding.h"

// What is learned from a PO file's bytes, besides what gettext's library tells.
struct PoSource {
    std::vector<size_t> lines;                // of each entry's msgid, in the order of the file
    std::vector<std::set<std::string>> flags; // of each that gettext's library does not know
    size_t zeroLine;                          // of the first zero byte, plain or escaped; or 0
    size_t strangeLine;                       // of the first byte that is not UTF-8, or 0
    bool isAscii;
};

namespace
{
// A reading in progress.
struct PoReading {
    PoFile *po;
    std::string_view bytes;
    const PoSource *source;
};
} // namespace

// What a call of gettext's library gives, and loses memory at: the leak sanitizer passes over that
// here, and need not find out for each such piece whose it is, in a third of a program's time.
template <typename Call> static auto losing(Call call)
{
#ifdef ORV_FINDS_LEAKS
    const __lsan::ScopedDisabler disabler;
#endif
    return call();
}

// The functions that gettext's library calls carry no pointer of ours.
static PoReading *current;

// So many errors of gettext's library are told: one leads to others, and in a file that is
// no PO file each word is one.
static constexpr size_t MAX_SYNTAX_ERRORS = 10;

void takePoBytes()
{
    setenv("OLD_PO_FILE_INPUT", "yes", 1);
    setenv("OLD_PO_FILE_OUTPUT", "yes", 1);
}

// Takes a message of gettext's library. May not return from a fatal one.
static void onError(int severity, po_message_t message, const char *path, size_t line,
                    size_t /*column*/, int /*multiline*/, const char *text)
{
    if (severity == PO_SEVERITY_ERROR && current->po->errors >= MAX_SYNTAX_ERRORS) {
        ++current->po->errors;
        return;
    }
    std::string joined = text; // of several lines, perhaps
    while (joined.ends_with('\n'))
        joined.pop_back();
    std::replace(joined.begin(), joined.end(), '\n', ' ');
    if (line > 1 && joined == "end-of-line within string")
        --line; // that end has been counted
    reportPo(current->po, path && line != static_cast<size_t>(-1) ? line : 0,
             severity == PO_SEVERITY_WARNING ? Weight::WARNING : Weight::ERROR,
             message ? po_message_msgid(message) : nullptr, joined);
    if (severity != PO_SEVERITY_FATAL_ERROR)
        return;
    exit(current->po->faults ? complain(2, "cannot read %s: %s", path, joined.c_str())
                             : EXIT_FAILURE);
}

// Returns what a digit of an octal or hexadecimal escape stands for, 16 for any
// other character.
static unsigned digitValue(char c)
{
    if (c >= '0' && c <= '9')
        return static_cast<unsigned>(c - '0');
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a') + 10 : 16;
}

// Moves *pos from a string's opening quote past its end. Returns whether the
// string has an escape that stands for a zero byte.
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
        for (i = first; i < end && digitValue(bytes[i]) < base; ++i)
            value = value * base + digitValue(bytes[i]);
        if (i > first)
            zero = zero || value % 256 == 0; // an escape makes one byte
        else if (i < bytes.size() && bytes[i] != '\n')
            ++i;
    }
    *pos = i < bytes.size() && bytes[i] == '"' ? i + 1 : i;
    return zero;
}

// Returns the line of a byte, or 0 for no byte.
static size_t lineOf(std::string_view bytes, size_t offset)
{
    if (offset == std::string_view::npos)
        return 0;
    const std::string_view before = bytes.substr(0, offset);
    return 1 + static_cast<size_t>(std::count(before.begin(), before.end(), '\n'));
}

static bool isWord(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

// Adds the flags of a line that begins with "#,", less those that gettext's library knows.
static void takeFlags(std::string_view line, std::set<std::string> *flags)
{
    static constexpr std::string_view SEPARATORS = ", \t\r";
    for (size_t pos = 2; (pos = line.find_first_not_of(SEPARATORS, pos)) < line.size();) {
        const size_t end = std::min(line.find_first_of(SEPARATORS, pos), line.size());
        const std::string_view flag = line.substr(pos, end - pos);
        pos = end;
        const bool isKnown = flag == "fuzzy" || flag == "wrap" || flag == "no-wrap" ||
                             flag.ends_with("-format") || flag.ends_with("-check");
        if (flag == "range:")
            pos = std::min(line.find(',', end), line.size());
        else if (!isKnown)
            flags->emplace(flag);
    }
}

// Finds what gettext's library keeps to itself: the line of each entry; flags; zero
// bytes, at which it would cut a text; and what is not UTF-8.
static PoSource scanPo(std::string_view bytes)
{
    PoSource source = {{},
                       {},
                       lineOf(bytes, bytes.find('\0')),
                       lineOf(bytes, findStrange(bytes)),
                       std::all_of(bytes.begin(), bytes.end(), [](char c) { return !(c & 0x80); })};
    std::set<std::string> flags; // of the entry to come
    size_t line = 1;
    for (size_t pos = 0; pos < bytes.size();) {
        const char c = bytes[pos];
        if (c == '"') {
            if (passString(bytes, &pos) && !source.zeroLine)
                source.zeroLine = line;
        } else if (c == '#') { // behind "#~" stands an obsolete entry, elsewhere a comment
            const std::string_view start = bytes.substr(pos, 3);
            const bool obsolete = start.starts_with("#~") && start != "#~|";
            const size_t end = std::min(bytes.find('\n', pos), bytes.size());
            if (start.starts_with("#,"))
                takeFlags(bytes.substr(pos, end - pos), &flags);
            pos = obsolete ? pos + 2 : end;
        } else if (isWord(c)) {
            const std::string_view rest = bytes.substr(pos);
            const std::string_view word(rest.begin(),
                                        std::find_if_not(rest.begin(), rest.end(), isWord));
            if (word == "msgid") {
                source.lines.push_back(line);
                source.flags.push_back(std::move(flags));
                flags.clear();
            }
            pos += word.size();
        } else {
            line += c == '\n' ? 1 : 0;
            ++pos;
        }
    }
    return source;
}

// Returns the comments behind the last entry. Those of obsolete entries belong to them.
static std::string_view tailOf(std::string_view bytes)
{
    size_t start = bytes.size();
    while (start > 0) {
        const size_t before = start < 2 ? 0 : bytes.rfind('\n', start - 2) + 1;
        const std::string_view line = bytes.substr(before, start - before);
        if (line.starts_with("#~") || (line[0] != '#' && line[0] != '\n'))
            break;
        start = before;
    }
    return bytes.substr(std::min(bytes.find('#', start), bytes.size()));
}

// Returns the ids that comments say are used. The list ends with its line, or with a colon that
// a blank follows: within an id it is a character like others.
static std::set<std::string> usedIn(std::string_view bytes)
{
    static constexpr std::string_view KEY = "orv-check: used ";
    std::set<std::string> used;
    for (size_t at = bytes.find(KEY); at != std::string_view::npos; at = bytes.find(KEY, at)) {
        const size_t start = bytes.rfind('\n', at) + 1; // of npos, 0
        at += KEY.size();
        std::string ids(bytes.substr(at, bytes.find('\n', at) - at));
        if (bytes[start] != '#')
            continue;
        ids += ' ';
        ids.resize(std::min(ids.find(": "), ids.size()));
        for (size_t pos = 0; (pos = ids.find_first_not_of(" ,\r", pos)) != std::string::npos;) {
            const size_t end = std::min(ids.find_first_of(" ,\r", pos), ids.size());
            used.insert(ids.substr(pos, end - pos));
            pos = end;
        }
    }
    return used;
}

// Takes the line at the front of *text off it.
static std::string_view takeLine(std::string_view *text)
{
    const std::string_view line = text->substr(0, text->find('\n'));
    text->remove_prefix(std::min(line.size() + 1, text->size()));
    return line;
}

// Returns the line where an id stands first, 0 when it cannot be told.
static size_t firstLineOf(const PoReading &reading, std::string_view id)
{
    const std::string wanted = quotePo(id);
    std::string_view rest = reading.bytes;
    size_t line = 1;
    for (const size_t entry : reading.source->lines) {
        for (; line < entry; ++line)
            takeLine(&rest);
        if (rest.substr(0, rest.find('\n')).find(wanted) != std::string_view::npos)
            return line;
    }
    return 0;
}

// Takes a message about an entry that is defined twice. The library hands over the
// first entry, but not its place.
static void onError2(int severity, po_message_t message, const char *path, size_t line,
                     size_t column, int multiline, const char *text, po_message_t first,
                     const char * /*path2*/, size_t /*line2*/, size_t /*column2*/,
                     int /*multiline2*/, const char * /*text2*/)
{
    std::string joined = text;
    const size_t place = first ? firstLineOf(*current, po_message_msgid(first)) : 0;
    if (place)
        joined += ", it stands in line " + std::to_string(place) + " already";
    onError(severity, message ? message : first, path, line, column, multiline, joined.c_str());
}

// Refuses a PO file whose texts are not UTF-8, or that has domains.
static void checkWhole(PoFile *po, const PoSource &source)
{
    const std::string type = headerField(*po, "Content-Type");
    const char *found = strstr(type.c_str(), "charset=");
    const std::string charset(found ? found + 8 : "", found ? strcspn(found + 8, "; \t\n") : 0);
    // A charset that is missing or, in a template, still to be filled in is taken as UTF-8.
    bool known = charset.empty();
    for (const char *name : {"UTF-8", "UTF8", "CHARSET"})
        known = known || strcasecmp(charset.c_str(), name) == 0;
    for (const char *name : {"US-ASCII", "ASCII"})
        known = known || (source.isAscii && strcasecmp(charset.c_str(), name) == 0);
    if (!known)
        reportPo(po, 0, Weight::ERROR, nullptr,
                 "the charset is " + charset + ", but must be UTF-8 (msgconv -t UTF-8 converts)");
    else if (source.strangeLine && po->errors == 0)
        reportPo(po, source.strangeLine, Weight::ERROR, nullptr, "a character is not UTF-8");
    if (source.zeroLine)
        reportPo(po, source.zeroLine, Weight::ERROR, nullptr, "a text cannot hold a zero byte");
    for (const char *const *domain = po_file_domains(po->file); *domain; ++domain)
        if (strcmp(*domain, "messages") != 0)
            reportPo(po, 0, Weight::ERROR, nullptr,
                     "texts of the domain " + quotePo(*domain) + ": a database has no domains");
}

// Returns what is wrong with the form of a file's bytes as a whole, or null.
static const char *strangeForm(std::string_view bytes)
{
    if (bytes.starts_with("\xef\xbb\xbf"))
        return "begins with a byte order mark; save it as UTF-8 without one";
    if (bytes.starts_with("\xff\xfe") || bytes.starts_with("\xfe\xff") ||
        bytes.starts_with(std::string_view("#\0", 2)) ||
        bytes.starts_with(std::string_view("\0#", 2)) ||
        bytes.starts_with(std::string_view("m\0", 2)) ||
        bytes.starts_with(std::string_view("\0m", 2)))
        return "is UTF-16, but must be UTF-8 (iconv -f UTF-16 -t UTF-8 converts)";
    return nullptr;
}

// Takes one entry, reports why not, or passes over it.
static void takeEntry(PoFile *po, po_message_t message, size_t line)
{
    const std::string_view id = po_message_msgid(message);
    const auto refuse = [&](const std::string &why) {
        reportPo(po, line, Weight::ERROR, id.data(), why);
    };
    const size_t strange = idEnd(id, 0);
    const std::string_view rest = id.substr(strange);
    if (po_message_is_obsolete(message))
        return;
    if (po_message_msgctxt(message))
        return refuse("has a context (msgctxt): a field has an id only, give each context an id "
                      "of its own");
    if (po_message_msgid_plural(message))
        return refuse("has a plural (msgid_plural): a field has one text, give each form an id of "
                      "its own");
    if (!rest.empty())
        return refuse("has the character " + quotePo(rest.substr(0, characterLength(rest))) +
                      "; a field names only letters, digits, '.', '_' and ':'");
    if (id.size() > MAX_ID_LENGTH)
        return refuse("is longer than the 128 characters that a field can name");
    const std::string_view comments = commentsOf(message);
    if (id.empty()) // that of the header
        return;
    std::set<std::string> flags = noteWords(comments);
    if (const auto known = po->flags.find(message); known != po->flags.end())
        flags.insert(known->second.begin(), known->second.end());
    po->entries.push_back({id, po_message_msgstr(message), line, po_message_is_fuzzy(message) != 0,
                           flags.contains(NOTE_EMPTY), comments, message, std::move(flags)});
}

// Takes all entries.
static void takeEntries(PoFile *po, const PoSource &source)
{
    po_message_iterator_t iterator = po_message_iterator(po->file, nullptr);
    size_t count = 0;
    while (po_message_t message = po_next_message(iterator)) {
        const bool isThere = count < source.lines.size();
        if (isThere && !source.flags[count].empty())
            po->flags[message] = source.flags[count];
        takeEntry(po, message, isThere ? source.lines[count] : 0);
        ++count;
    }
    po_message_iterator_free(iterator);
    if (count != source.lines.size() && po->errors == 0)
        reportPo(po, 0, Weight::ERROR, nullptr, "the file changed while it was read");
}

// Tells why a file cannot be read, in its caller's way.
static void tellUnread(PoFile *po, const char *why)
{
    if (po->faults)
        po->unread = why;
    else
        complain(0, "cannot read %s: %s", po->path.c_str(), why);
}

PoFile readPo(const char *path, std::vector<PoFault> *faults)
{
    PoFile po = {path, nullptr, 0, {}, "", {}, {}, faults, ""};
    std::string bytes;
    struct stat status;
    if (stat(path, &status) == 0 && !S_ISREG(status.st_mode))
        tellUnread(&po, "it is not a regular file, and is read twice");
    else if (!readBytes(path, &bytes))
        tellUnread(&po, strerror(errno));
    else if (const char *strange = strangeForm(bytes))
        reportPo(&po, 0, Weight::ERROR, nullptr, strange);
    else {
        const PoSource source = scanPo(bytes);
        po.tail = tailOf(bytes);
        po.used = usedIn(bytes);
        PoReading state = {&po, bytes, &source};
        static const po_xerror_handler handler = {onError, onError2};
        current = &state;
        takePoBytes();
        po.file = parsePo(path, &handler);
        if (po.errors > MAX_SYNTAX_ERRORS && !faults)
            complain(0, "%s: %zu more errors; is it a PO file?", path,
                     po.errors - MAX_SYNTAX_ERRORS);
        if (!po.file)
            tellUnread(&po, strerror(errno));
        else {
            checkWhole(&po, source);
            takeEntries(&po, source);
        }
        current = nullptr;
    }
    po.errors += po.file ? 0 : 1;
    return po;
}

bool isUsed(const std::set<std::string> &used, std::string_view id)
{
    return std::any_of(used.begin(), used.end(), [id](std::string_view pattern) {
        const bool isBegin = pattern.ends_with('*');
        return isBegin ? id.starts_with(pattern.substr(0, pattern.size() - 1)) : id == pattern;
    });
}

bool isPoName(std::string_view path)
{
    return path.ends_with(".po") || path.ends_with(".pot");
}

void freePo(PoFile *po)
{
    if (po->file)
        po_file_free(po->file);
    *po = {};
}

po_file_t parsePo(const char *path, po_xerror_handler_t handler)
{
    return losing([&] { return po_file_read(path, handler); });
}

const char *commentsOf(po_message_t message)
{
    return losing([&] { return po_message_comments(message); });
}

const char *extractedCommentsOf(po_message_t message)
{
    return losing([&] { return po_message_extracted_comments(message); });
}

bool isTranslated(po_message_t message)
{
    return *po_message_msgstr(message) || findNote(commentsOf(message), NOTE_EMPTY, nullptr);
}

// The header of a file, the translation of the empty text; null without one. The library's own
// function for it makes a copy that nobody can free.
static po_message_t headerOf(const PoFile &po)
{
    po_message_iterator_t iterator = po_message_iterator(po.file, nullptr);
    po_message_t message = po_next_message(iterator);
    while (message && (*po_message_msgid(message) || po_message_msgctxt(message) ||
                       po_message_is_obsolete(message)))
        message = po_next_message(iterator);
    po_message_iterator_free(iterator);
    return message;
}

std::string headerField(const PoFile &po, const char *field)
{
    po_message_t message = headerOf(po);
    char *value = message ? po_header_field(po_message_msgstr(message), field) : nullptr;
    std::string text = value ? value : "";
    free(value);
    return text;
}

void setHeaderField(PoFile *po, const char *field, const char *value)
{
    po_message_t message = headerOf(*po);
    char *header =
        message ? po_header_set_field(po_message_msgstr(message), field, value) : nullptr;
    if (header)
        po_message_set_msgstr(message, header);
    free(header);
}

void reportPo(PoFile *po, size_t line, Weight weight, const char *id, std::string_view message)
{
    const std::string text = (id ? "id " + quotePo(id) + ": " : "") + std::string(message);
    const std::string place = po->path + (line ? ":" + std::to_string(line) : "");
    const bool isError = weight == Weight::ERROR;
    po->errors += isError ? 1 : 0;
    if (!po->faults) {
        static constexpr const char *names[] = {"hint", "warning", "error"};
        fprintf(stderr, "%s: %s: %s\n", place.c_str(), names[static_cast<size_t>(weight)],
                text.c_str());
    } else if (isError) {
        po->faults->push_back({line, text});
    }
}

std::string quotePo(std::string_view text)
{
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const size_t length = characterLength(text.substr(i));
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
