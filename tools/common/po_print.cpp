/* tools/common/po_print.cpp - prints PO files with gettext's library, to memory. What it
 * has printed is read again and compared: it tells of no write that fails, and prints
 * comments that it would not read. */
#include "po.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

#include "files.h"

// Takes messages of gettext's library, when it prints what it was given or reads what it has
// printed: the comparison tells. May not return from a fatal one.
static void onError(int severity, po_message_t /*message*/, const char * /*path*/, size_t /*line*/,
                    size_t /*column*/, int /*multiline*/, const char *text)
{
    if (severity == PO_SEVERITY_FATAL_ERROR)
        exit(complain(EXIT_FAILURE, "cannot print a PO file: %s", text));
}

static void onError2(int severity, po_message_t message, const char *path, size_t line,
                     size_t column, int multiline, const char *text, po_message_t /*message2*/,
                     const char * /*path2*/, size_t /*line2*/, size_t /*column2*/,
                     int /*multiline2*/, const char * /*text2*/)
{
    onError(severity, message, path, line, column, multiline, text);
}

static constexpr po_xerror_handler handler = {onError, onError2};

// Returns the entries in the order in which they are printed, the header among them.
static std::vector<po_message_t> printedOrder(po_file_t file)
{
    std::vector<po_message_t> messages;
    po_message_iterator_t iterator = po_message_iterator(file, nullptr);
    while (po_message_t message = po_next_message(iterator))
        messages.push_back(message);
    po_message_iterator_free(iterator);
    std::stable_partition(messages.begin(), messages.end(),
                          [](po_message_t message) { return !po_message_is_obsolete(message); });
    return messages;
}

// Whether two entries are alike, but for the places that they name.
static bool isSame(po_message_t a, po_message_t b)
{
    using Getter = const char *(*)(po_message_t);
    static constexpr Getter texts[] = {po_message_msgid, po_message_msgstr, po_message_comments,
                                       po_message_extracted_comments, po_message_prev_msgid};
    const auto isEqual = [&](Getter get) {
        const char *const one = get(a);
        const char *const other = get(b);
        return one && other ? strcmp(one, other) == 0 : one == other;
    };
    return std::all_of(std::begin(texts), std::end(texts), isEqual) &&
           !po_message_is_fuzzy(a) == !po_message_is_fuzzy(b) &&
           !po_message_is_obsolete(a) == !po_message_is_obsolete(b);
}

// Compares the entries of two files. Returns the id of the first that the second lacks or
// has otherwise, null when there is no such.
static const char *findDifference(po_file_t wanted, po_file_t printed)
{
    const std::vector<po_message_t> a = printedOrder(wanted);
    const std::vector<po_message_t> b = printedOrder(printed);
    for (size_t i = 0; i < a.size(); ++i)
        if (i >= b.size() || !isSame(a[i], b[i]))
            return po_message_msgid(a[i]);
    return a.size() == b.size() ? nullptr : po_message_msgid(b[a.size()]);
}

// Returns what was printed to a file in memory, empty after a complaint.
static std::string printTo(int fd, const PoFile &po)
{
    const std::string path = "/proc/self/fd/" + std::to_string(fd); // it writes to names only
    std::string bytes;
    if (fd < 0 || !po_file_write(po.file, path.c_str(), &handler)) {
        complain(0, "cannot print %s: %s", po.path.c_str(), strerror(errno));
        return "";
    }
    po_file_t printed =
        readFile(path.c_str(), &bytes) ? po_file_read(path.c_str(), &handler) : nullptr;
    const char *const id = printed ? findDifference(po.file, printed) : "";
    if (id)
        complain(0,
                 "cannot print %s: id %s does not read back as it is (is there a limit on "
                 "the size of files?)",
                 po.path.c_str(), quotePo(id).c_str());
    if (id)
        bytes.clear();
    if (printed)
        po_file_free(printed);
    return bytes;
}

std::string printPo(const PoFile &po)
{
    takePoBytes();
    const int fd = memfd_create("po", MFD_CLOEXEC);
    std::string bytes = printTo(fd, po);
    if (fd >= 0)
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
