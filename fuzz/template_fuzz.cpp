/* fuzz/template_fuzz.cpp - whole runs of templates, with a host in memory.
 *
 * The parts of an input stand between bytes of the value 30: the template that
 * runs, a.htm, and those that it can include, b.frm and c.txt; the answers to
 * its queries, one a line; the request's variables, name=value, one a line.
 * Every input runs twice and must give the same page and log, to a descriptor and to a
 * function. The observer only bounds what repeats, so that each path is the one that the shipped
 * library takes. */
#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "exec/exec.h"
#include "fuzz/fuzz.h"
#include "base/observe.h"
#include "base/process.h"
#include "textdb/language.h"
#include "tools/common/textdb_file.h"

using Lines = std::vector<std::string>;

namespace
{
struct Host {
    int templates[3]; // descriptors of the templates' files
    int cmdline;      // of the kernel command line's
    int page;
    int log;
    std::string folder; // private, the working directory; device/ is the device's
    Lines answers;
    size_t asked;      // queries of this run
    std::string error; // message of the web program, empty for none
    QueryRow *kept;    // rows that stay the host's
    int64_t work;      // iterations, rows and templates that this run may still have
};

struct Outcome {
    int32_t result;
    std::string page;
    std::string log; // without the lines that tell times
    bool operator==(const Outcome &) const = default;
};
} // namespace

static Host host;

// No template keeps the library busy for hours.
static int64_t shorten(void *, int64_t lower, int64_t upper)
{
    const int64_t last = std::min(upper, lower + std::min<int64_t>(host.work, 40));
    if (lower <= last)
        host.work -= last - lower + 1;
    return last;
}

static Lines split(const std::string &text, char separator)
{
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line, separator);)
        lines.push_back(line);
    return lines;
}

static void fill(int fd, const std::string &content)
{
    MUST(ftruncate(fd, 0) == 0);
    MUST(pwrite(fd, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()));
}

static std::string take(int fd)
{
    std::string content(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
    MUST(pread(fd, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()));
    MUST(ftruncate(fd, 0) == 0 && lseek(fd, 0, SEEK_SET) == 0);
    return content;
}

static int32_t openTemplate(Interpreter *, const char *path)
{
    host.work -= 10;
    return host.work > 0 ? open(path, O_RDONLY | O_CLOEXEC) : -1;
}

// Rows stand between "|", their columns between ","; "~" is a column without text.
static QueryRow *makeRows(const std::string &text)
{
    QueryRow *last = nullptr;
    for (const std::string &columns : split(text, '|')) {
        if (--host.work < 0)
            break;
        QueryRow *row = createQueryRow(nullptr);
        for (const std::string &column : split(columns, ','))
            if (row->count < ORV_MAX_COLUMNS)
                row->cols[row->count++] = column == "~" ? nullptr : strdup(column.c_str());
        row->prev = last;
        if (last)
            last->next = row;
        last = row;
    }
    return last;
}

// An answer that begins with "!" fails, one with "=" sets a variable, one with "-"
// stays the host's; any other one passes to the interpreter.
static int32_t answer(Interpreter *interpreter, int32_t, const char *, QueryRow **rows,
                      int32_t *owned)
{
    freeQueryRows(&host.kept);
    MUST(!*rows && !*owned && inpr == interpreter);
    MUST(Orv_Interpreter_Run(interpreter, "a.htm", host.page) == ORV_RUN_BUSY);
    if (host.answers.empty())
        return 0;
    const std::string &text = host.answers[host.asked++ % host.answers.size()];
    if (text.starts_with('!')) {
        *rows = reinterpret_cast<QueryRow *>(1);
        return -1;
    }
    if (text.starts_with('=')) {
        const auto value = std::min(text.find('=', 1), text.size() - 1);
        Orv_Interpreter_SetVariable(interpreter, text.substr(1, value - 1).c_str(),
                                    text.c_str() + value + 1);
        return 0;
    }
    *owned = !text.starts_with('-');
    *rows = makeRows(text);
    if (!*owned)
        host.kept = *rows;
    return 0;
}

static int32_t reportError(Interpreter *, const char **message)
{
    *message = host.error.c_str();
    return !host.error.empty();
}

static int32_t takePiece(Interpreter *interpreter, const char *bytes, size_t length)
{
    MUST(Orv_Interpreter_ClearVariables(interpreter) == ORV_FAILED);
    MUST(Orv_Interpreter_SetVariable(interpreter, "a[1]", "") == ORV_VARIABLE_REFUSED);
    return static_cast<int32_t>(write(host.page, bytes, (length + 1) / 2));
}

static size_t openDescriptors()
{
    size_t count = 0;
    DIR *entries = opendir("/proc/self/fd");
    while (readdir(entries))
        ++count;
    closedir(entries);
    return count;
}

static size_t mappedTemplates()
{
    std::ifstream maps("/proc/self/maps");
    const std::string text(std::istreambuf_iterator<char>(maps), {});
    size_t count = 0;
    for (size_t at = 0; (at = text.find(host.folder, at)) != std::string::npos; ++at)
        count += text.compare(at + host.folder.size(), 8, "/device/") != 0;
    return count;
}

static Outcome run(const Lines &variables, FWrite fWrite)
{
    static const InterpreterCallbacks callbacks = {openTemplate, answer, reportError};
    const size_t descriptors = openDescriptors();
    host.asked = 0;
    host.work = 300;
    host.error.clear();
    Orv_Interpreter_SetLanguage("de");
    Interpreter *handle = Orv_Interpreter_Create(&callbacks);
    Orv_Interpreter_SetLog(host.log);
    Orv_Interpreter_SetOutput(handle, fWrite);
    for (const std::string &line : variables) {
        const std::string name = line.substr(0, line.find('='));
        const std::string value = line.substr(std::min(name.size() + 1, line.size()));
        if (name == "error")
            host.error = value;
        Orv_Interpreter_SetVariable(handle, name.c_str(), value.c_str());
    }
    const int32_t result = Orv_Interpreter_Run(handle, "a.htm", host.page);
    MUST(result == ORV_RUN_DONE || result == ORV_RUN_NO_TEMPLATE || result == ORV_RUN_GAVE_UP);
    MUST(!inpr && handle->includeIndex == -1 && handle->loopTop == -1 && handle->pendingTop == -1);
    MUST(!handle->resuming && handle->args.argLen == 0);
    Orv_Interpreter_Destroy(handle);
    freeQueryRows(&host.kept);
    MUST(openDescriptors() == descriptors);
    Outcome outcome = {result, take(host.page), ""};
    for (const std::string &line : split(take(host.log), '\n'))
        if (line.find("Real Time ") == std::string::npos)
            outcome.log += line + '\n';
    return outcome;
}

static void writeDatabase(const char *path, const std::vector<TextEntry> &entries)
{
    std::string file;
    size_t culprit;
    MUST(!buildTextDb(entries, &file, &culprit));
    std::ofstream(path, std::ios::binary) << file;
}

static void makeHost()
{
    char name[] = "/dev/shm/orv-fuzz-XXXXXX";
    MUST(mkdtemp(name) && chdir(name) == 0);
    host.folder = name;
    static observe::Observer observer = {};
    observer.repeats = shorten;
    observe::setObserver(&observer);
    atexit([] { std::filesystem::remove_all(host.folder); });
    for (const char *folder : {"device/etc", "device/var", "device/proc"})
        std::filesystem::create_directories(folder);
    static const std::string root = host.folder + "/device", huge(20000, 'x');
    systemRoot = root.c_str();
    writeDatabase("device/etc/htmltext_de.db",
                  {{"a", "ein Text", 0}, {"ab", "<?echo $var:a?>", 0}});
    writeDatabase("device/etc/htmltext_en.db", {{"a", "a text", 0}, {"b", "{?a?} <?", 0}});
    writeDatabase("device/var/htmltext.db", {{"a", "the device's", 0}, {"c", "?>'", 0}});
    writeDatabase("device/etc/htmltext.db", {{"a", "fallback", 0}, {"long", huge, 0}});
    constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC;
    const char *const files[] = {"a.htm", "b.frm", "c.txt"};
    for (size_t i = 0; i < 3; ++i)
        host.templates[i] = open(files[i], flags, 0600);
    host.cmdline = open("device/proc/cmdline", flags, 0600);
    host.page = memfd_create("page", MFD_CLOEXEC);
    host.log = memfd_create("log", MFD_CLOEXEC);
    Orv_Interpreter_SetLanguage("de");
    Orv_Interpreter_LookupDBField("none"); // both databases are mapped from here on
}

// A path must not leave the folder: "/" is left where it can only be an operator
// or end an element.
static std::string withoutPaths(std::string text)
{
    for (size_t at = 0; (at = text.find('/', at)) != std::string::npos; ++at) {
        const bool loose = at > 0 && at + 1 < text.size() && strchr(" '\"`", text[at - 1]) &&
                           strchr(" '\"`", text[at + 1]);
        if (!loose && (at == 0 || text[at - 1] != '<'))
            text[at] = '_';
    }
    return text;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (host.folder.empty())
        makeHost();
    Lines parts = split(withoutPaths({reinterpret_cast<const char *>(data), size}), 30);
    parts.resize(5);
    for (size_t i = 0; i < 3; ++i)
        fill(host.templates[i], parts[i]);
    host.answers = split(parts[3], '\n');
    const Lines variables = split(parts[4], '\n');
    fill(host.cmdline, variables.empty() ? "" : variables[0]);
    const Outcome first = run(variables, nullptr);
    const Outcome second = run(variables, takePiece);
    MUST(first == second);
    MUST(mappedTemplates() == 0);
    return 0;
}
