/* tools/common/po_print.cpp - prints PO files with gettext's library, to memory. What it
 * has printed is read again and compared: it tells of no write that fails, and prints
 * comments that it would not read. */
#include "po.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include "files.h"
#include "host/encoding.h"

// Takes messages of gettext's library, when it prints what it was given or reads what it has
// printed: the comparison tells. May not return from a fatal one.
static void onPrintError(int severity, po_message_t /*message*/, const char * /*path*/,
                         size_t /*line*/, size_t /*column*/, int /*multiline*/, const char *text)
{
    if (severity == PO_SEVERITY_FATAL_ERROR)
        exit(complain(EXIT_FAILURE, "cannot print a PO file: %s", text));
}

static void onPrintError2(int severity, po_message_t message, const char *path, size_t line,
                          size_t column, int multiline, const char *text, po_message_t /*message2*/,
                          const char * /*path2*/, size_t /*line2*/, size_t /*column2*/,
                          int /*multiline2*/, const char * /*text2*/)
{
    onPrintError(severity, message, path, line, column, multiline, text);
}

static constexpr po_xerror_handler handler = {onPrintError, onPrintError2};

// Stands for the empty text of an obsolete entry while that is printed: the library would leave
// out the entry.
static constexpr char PLACEHOLDER[] = "orv-textdb: empty";
static constexpr std::string_view PRINTED_PLACEHOLDER = "#~ msgstr \"orv-textdb: empty\"\n";
static constexpr std::string_view PRINTED_EMPTY = "#~ msgstr \"\"\n";

// Returns the entries that the library prints, in its order and the header among them: obsolete
// ones come last, and go when they have no translation.
static std::vector<po_message_t> printedOrder(po_file_t file)
{
    std::vector<po_message_t> messages;
    po_message_iterator_t iterator = po_message_iterator(file, nullptr);
    while (po_message_t message = po_next_message(iterator))
        messages.push_back(message);
    po_message_iterator_free(iterator);
    std::erase_if(messages, [](po_message_t message) {
        return po_message_is_obsolete(message) && !isTranslated(message);
    });
    std::stable_partition(messages.begin(), messages.end(),
                          [](po_message_t message) { return !po_message_is_obsolete(message); });
    return messages;
}

// Whether two entries are alike, but for the places that they name.
static bool isSame(po_message_t a, po_message_t b)
{
    using Getter = const char *(*)(po_message_t);
    static constexpr Getter texts[] = {po_message_msgid, po_message_msgstr, commentsOf,
                                       extractedCommentsOf, po_message_prev_msgid};
    const auto isEqual = [&](Getter get) {
        const char *const one = get(a);
        const char *const other = get(b);
        return one && other ? strcmp(one, other) == 0 : one == other;
    };
    return std::all_of(std::begin(texts), std::end(texts), isEqual) &&
           !po_message_is_fuzzy(a) == !po_message_is_fuzzy(b) &&
           !po_message_is_obsolete(a) == !po_message_is_obsolete(b);
}

// Gives obsolete entries that are noted as empty their empty text, or a placeholder.
static void setEmpty(const std::vector<po_message_t> &messages, const char *from, const char *to)
{
    for (const po_message_t message : messages)
        if (po_message_is_obsolete(message) && isTranslated(message) &&
            strcmp(po_message_msgstr(message), from) == 0)
            po_message_set_msgstr(message, to);
}

// Puts the empty text in the place of its placeholder.
static void dropPlaceholders(std::string *printed)
{
    for (size_t at = printed->find(PRINTED_PLACEHOLDER); at != std::string::npos;
         at = printed->find(PRINTED_PLACEHOLDER, at))
        printed->replace(at, PRINTED_PLACEHOLDER.size(), PRINTED_EMPTY);
}

// Returns a printed entry with flags that the library does not know.
static std::string withFlags(std::string_view printed, const std::set<std::string> &flags)
{
    std::string line;
    for (const std::string &flag : flags)
        line += ", " + flag;
    std::string whole(printed);
    for (size_t at = 0; at < whole.size(); at = whole.find('\n', at) + 1) {
        const std::string_view rest = std::string_view(whole).substr(at);
        if (rest.starts_with("#, "))
            return whole.insert(whole.find('\n', at), line);
        if (rest.starts_with("msgid ") || rest.starts_with("#~ ") || rest.starts_with("#|") ||
            rest.starts_with("#~|"))
            return whole.insert(at, "#" + line + "\n");
    }
    return whole;
}

// Puts flags back into what the library has printed: entry by entry, an empty line between.
static void putFlags(const PoFile &po, const std::vector<po_message_t> &messages,
                     std::string *printed)
{
    std::string whole;
    std::string_view rest = *printed;
    for (const po_message_t message : messages) {
        const size_t length = std::min(rest.find("\n\n"), rest.size() - 1) + 1;
        const auto flags = po.flags.find(message);
        if (!whole.empty())
            whole.push_back('\n');
        whole += flags == po.flags.end() ? std::string(rest.substr(0, length))
                                         : withFlags(rest.substr(0, length), flags->second);
        rest.remove_prefix(std::min(length + 1, rest.size()));
    }
    *printed = whole.append(rest);
}

// Compares the entries of two files. Returns the id of the first that the second lacks or
// has otherwise, null when there is no such.
static const char *findDifference(const std::vector<po_message_t> &a, po_file_t printed)
{
    const std::vector<po_message_t> b = printedOrder(printed);
    for (size_t i = 0; i < a.size(); ++i)
        if (i >= b.size() || !isSame(a[i], b[i]))
            return po_message_msgid(a[i]);
    return a.size() == b.size() ? nullptr : po_message_msgid(b[a.size()]);
}

// Has the library print to the file of that name. Returns whether it is there; errno tells why
// not.
static bool print(const PoFile &po, const std::vector<po_message_t> &messages, const char *path,
                  std::string *bytes)
{
    setEmpty(messages, "", PLACEHOLDER);
    const bool isWritten = po_file_write(po.file, path, &handler);
    const int error = errno;
    setEmpty(messages, PLACEHOLDER, "");
    errno = error;
    if (!isWritten || !readFile(path, bytes))
        return false;
    rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && bytes->size() >= limit.rlim_cur)
        errno = EFBIG;
    else
        return true;
    return false;
}

// Prints to a file in memory, and reads that. Returns the bytes, empty after a complaint.
static std::string printTo(int fd, const PoFile &po)
{
    const std::string path = "/proc/self/fd/" + std::to_string(fd); // it writes to names only
    const std::vector<po_message_t> messages = printedOrder(po.file);
    std::string bytes;
    po_file_t read = nullptr;
    if (print(po, messages, path.c_str(), &bytes)) {
        dropPlaceholders(&bytes);
        if (!po.flags.empty())
            putFlags(po, messages, &bytes);
        if (ftruncate(fd, 0) == 0 && writeAll(fd, bytes))
            read = parsePo(path.c_str(), &handler);
    }
    const int error = errno;
    const char *const id = read ? findDifference(messages, read) : nullptr;
    if (!read)
        complain(0, "cannot print %s: %s", po.path.c_str(), strerror(error));
    else if (id)
        complain(0, "cannot print %s: id %s does not read back as it is", po.path.c_str(),
                 quotePo(id).c_str());
    if (read)
        po_file_free(read);
    return read && !id ? bytes : "";
}

std::string printPo(const PoFile &po)
{
    takePoBytes();
    const int fd = memfd_create("po", MFD_CLOEXEC);
    if (fd < 0) {
        complain(0, "cannot print %s: %s", po.path.c_str(), strerror(errno));
        return "";
    }
    std::string bytes = printTo(fd, po);
    close(fd);
    if (!bytes.empty() && !po.tail.empty())
        bytes += "\n" + po.tail;
    const size_t strange = findStrange(bytes); // of an escape, which is printed as its byte
    if (strange == std::string_view::npos)
        return bytes;
    const size_t start = bytes.rfind('\n', strange) + 1;
    const std::string line = bytes.substr(start, bytes.find('\n', strange) - start);
    complain(0, "cannot print %s: %s is not UTF-8", po.path.c_str(), quotePo(line).c_str());
    return "";
}
