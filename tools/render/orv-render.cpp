/* tools/render/orv-render.cpp - renders one template, for template authors and tests.
 *
 * A pipe or a terminal gets the page piece by piece. For a file it is collected in
 * memory and written at the end, so that a failed write is told. The file of --output is
 * replaced in one step when the page is whole, and else left alone; that may be one of
 * the templates. The diagnostics are collected as well: they follow the page, and whether
 * they tell of errors decides on the exit status. */
#include "tools/common/files.h"
#include "host.h"
#include "tools/common/options.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <new>
#include <set>
#include <string_view>

using std::string_view;

namespace fs = std::filesystem;

const char programName[] = "orv-render";

// Exit statuses.
enum { PAGE_WHOLE = 0, PAGE_WITH_PROBLEMS = 1, NO_PAGE = 2, PAGE_BROKEN_OFF = 3 };

// Bytes of the page that are written together.
static constexpr int32_t OUTPUT_BUFFER = 16384;

static constexpr char helpText[] =
    "Usage: orv-render [OPTION]... TEMPLATE\n"
    "Renders TEMPLATE, a path below the document root, to standard output. The TEMPLATE\n"
    "- is what standard input gives; messages name it /dev/stdin.\n"
    "\n"
    "  --set NAME=VALUE         set a request variable; repeatable\n"
    "  --set NAME[INDEX]=VALUE  set an element of an array\n"
    "  --docroot DIR            find templates below DIR and nowhere else (default: .)\n"
    "  --root DIR               look below DIR for the interpreter's own files:\n"
    "                           /etc/htmltext_CODE.db, /var/htmltext.db, ...\n"
    "  --lang CODE              choose the text database of a language\n"
    "  --error TEXT             the error that the page's error commands find\n"
    "  --db FILE                answer queries from this SQLite database, read-only;\n"
    "                           :NAME in a query stands for the request variable\n"
    "  --tooltips MODE          mark texts for translators: 1 as tooltips, 2 also in\n"
    "                           attributes and scripts\n"
    "  --output FILE            put the page into FILE when it is whole, in one step\n"
    "  --unbuffered             write each piece of the page at once, not together\n"
    "  --log                    print the diagnostics on standard error\n"
    "  --help, --version        print this text, or the version\n"
    "\n"
    "Exit status: 0 page rendered; 1 page rendered, and --log printed errors or\n"
    "warnings; 2 wrong usage, a missing file, or something that could not be read or\n"
    "written; 3 the interpreter gave up in the middle of the page.\n";

enum OptionNumber : size_t {
    OPT_SET,
    OPT_DOCROOT,
    OPT_ROOT,
    OPT_LANG,
    OPT_ERROR,
    OPT_DB,
    OPT_TOOLTIPS,
    OPT_OUTPUT,
    OPT_UNBUFFERED,
    OPT_LOG,
    OPT_HELP,
    OPT_VERSION
};

// In the order of OptionNumber.
static constexpr OptionRow optionRows[] = {
    {"set", 0, true},         {"docroot", 0, true}, {"root", 0, true},     {"lang", 0, true},
    {"error", 0, true},       {"db", 0, true},      {"tooltips", 0, true}, {"output", 0, true},
    {"unbuffered", 0, false}, {"log", 0, false},    {"help", 0, false},    {"version", 0, false},
};

// Looks at the command line. Returns -1 to go on, else the exit status.
static int checkOptions(const CommandLine &options)
{
    if (!options.problem.empty())
        return complain(NO_PAGE, "%s, see --help", options.problem.c_str());
    if (options.has(OPT_HELP))
        return printText(helpText);
    if (options.has(OPT_VERSION))
        return printText("orv-render " ORV_VERSION "\n");
    for (const char *variable : options.values[OPT_SET])
        if (variable[0] == '=' || !strchr(variable, '='))
            return complain(NO_PAGE, "--set needs NAME=VALUE, not '%s'", variable);
    const string_view mode = options.value(OPT_TOOLTIPS, "1");
    if (mode != "1" && mode != "2")
        return complain(NO_PAGE, "--tooltips needs 1 or 2, not '%s'", mode.data());
    if (options.words.size() != 1)
        return complain(NO_PAGE, "%s, see --help",
                        options.words.empty() ? "no template given" : "several templates");
    return -1;
}

// Gives each standard descriptor that is closed a place that no file opened later
// can take. Returns whether standard output was open.
static bool holdStandardDescriptors()
{
    bool isOpen = fcntl(STDOUT_FILENO, F_GETFD) >= 0;
    int fd;
    do
        fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0)
        close(fd);
    return isOpen;
}

// Whether a line of the log tells of a template: its name stands in front, or in brackets at
// the end.
static bool isAbout(string_view line, const std::string &path)
{
    const bool isInFront = line.starts_with(path + ", ") || line.starts_with(path + ": ");
    return isInFront || line.ends_with("(" + path + ")") || line.ends_with("(" + path + ")!");
}

// Through which templates an included one has come into the page, in a line.
static std::string chainOf(const Host &host, const HostInclude &include)
{
    constexpr size_t most = 20; // one can include itself
    std::string chain = "orv-render: " + include.path + " is included";
    const HostInclude *one = &include;
    for (size_t i = 0; one && i < most; ++i) {
        chain += (i > 0 ? ", that at " : " at ") + one->by + ", line " + std::to_string(one->line);
        const auto found =
            std::find_if(host.includes.begin(), host.includes.end(),
                         [&](const HostInclude &other) { return other.path == one->by; });
        one = found == host.includes.end() || found->by == one->by ? nullptr : &*found;
    }
    return chain + "\n";
}

// The log, with the chain of an included template behind the first line that tells of it.
static std::string withChains(const Host &host, string_view log)
{
    std::string shown;
    std::set<string_view> told;
    while (!log.empty()) {
        const string_view line = log.substr(0, log.find('\n'));
        log.remove_prefix(std::min(line.size() + 1, log.size()));
        shown.append(line).append("\n");
        for (const HostInclude &include : host.includes)
            if (isAbout(line, include.path) && told.insert(include.path).second)
                shown += chainOf(host, include);
    }
    return shown;
}

// Appends all that was written to a file in memory. Returns false when that fails; errno
// tells why.
static bool readAll(int fd, std::string *text)
{
    return lseek(fd, 0, SEEK_SET) == 0 && readOpen(fd, text);
}

// How many errors and warnings the library has reported so far.
static int32_t countProblems()
{
    return Orv_Interpreter_LogCount(ORV_LOG_WARNING) + Orv_Interpreter_LogCount(ORV_LOG_ERROR);
}

// Puts a file in memory with all that standard input gives into its place: templates
// are mapped. Returns false when it cannot be read; errno tells why.
static bool keepStandardInput()
{
    std::string text;
    char piece[8192];
    ssize_t got;
    while ((got = read(STDIN_FILENO, piece, sizeof piece)) > 0 || (got < 0 && errno == EINTR))
        text.append(piece, got > 0 ? static_cast<size_t>(got) : 0);
    const int fd = got < 0 ? -1 : memfd_create("template", MFD_CLOEXEC);
    const bool isKept = fd >= 0 && writeAll(fd, text) && dup2(fd, STDIN_FILENO) >= 0;
    if (fd >= 0)
        close(fd);
    return isKept;
}

// Sets the variables of the command line. Returns -1 to go on, else the exit status.
static int setVariables(Host &host, Interpreter *interpreter, const CommandLine &options)
{
    for (const char *variable : options.values[OPT_SET]) {
        const char *value = strchr(variable, '=') + 1;
        const std::string name(variable, value - 1);
        if (hostSet(host, interpreter, name.c_str(), value) != 0)
            return complain(NO_PAGE, "cannot set variable '%s'", name.c_str());
    }
    return -1;
}

// Whether the page is collected in memory and written at the end, by us: then a
// failed write is noticed, which the interpreter passes over. A pipe or terminal
// gets the page at once; when a pipe's reader is gone, the signal ends us.
static bool collectsPage(const CommandLine &options)
{
    struct stat status;
    if (options.value(OPT_OUTPUT))
        return true;
    return fstat(STDOUT_FILENO, &status) == 0 && !S_ISFIFO(status.st_mode) &&
           !S_ISSOCK(status.st_mode) && !isatty(STDOUT_FILENO);
}

// Whether what a path names is to be written to as it is: a device, a pipe, an open descriptor.
static bool isNoFile(const char *path)
{
    struct stat status;
    for (const char *descriptors : {"/dev/std", "/dev/fd/", "/proc/"})
        if (string_view(path).starts_with(descriptors))
            return true;
    return stat(path, &status) == 0 && !S_ISREG(status.st_mode);
}

static bool cannotWrite(const char *what)
{
    complain(NO_PAGE, "cannot write %s: %s", what, strerror(errno));
    return false;
}

// Writes the page to what --output names. Returns false after a line.
static bool writeOutput(int startDir, const char *output, const std::string &page)
{
    if (output[0] != '/' && fchdir(startDir) != 0)
        return cannotWrite(output);
    if (!isNoFile(output))
        return replaceFile(output, page);
    const int fd = open(output, O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (fd < 0)
        return cannotWrite(output);
    const bool isWritten = writeAll(fd, page);
    const int cause = errno;
    const bool isClosed = close(fd) == 0;
    if (!isWritten)
        errno = cause;
    return (isWritten && isClosed) || cannotWrite(output);
}

// Writes the collected page to where it belongs. Returns false after a line.
static bool writePage(int startDir, const char *output, int page)
{
    std::string text;
    if (!readAll(page, &text))
        return cannotWrite(output ? output : "standard output");
    if (output)
        return writeOutput(startDir, output, text);
    return writeAll(STDOUT_FILENO, text) || cannotWrite("standard output");
}

// Says why the page is missing or broken off. Returns the exit status.
static int explainResult(const Host &host, const CommandLine &options,
                         const Interpreter *interpreter, int32_t result, bool logs)
{
    int32_t line = 0;
    const char *name = Orv_Interpreter_Position(interpreter, &line);
    const int32_t lost = Orv_Interpreter_OutputError(interpreter);
    if (lost > 0)
        return complain(NO_PAGE, "cannot write the page: %s", strerror(lost));
    if (host.failures > 0 || (result == ORV_RUN_NO_TEMPLATE && logs && host.openProblem))
        return NO_PAGE; // there is a line
    if (result == ORV_RUN_NO_TEMPLATE)
        return complain(NO_PAGE, "cannot open template '%s': %s", options.words[0],
                        host.openProblem ? host.openProblem : "it is empty or cannot be mapped");
    if (result != ORV_RUN_GAVE_UP)
        return PAGE_WHOLE;
    return complain(PAGE_BROKEN_OFF, "gave up at %s, line %d", name ? name : options.words[0],
                    line);
}

// Runs the template with the descriptors at hand: page, where it goes, and log,
// -1 without --log. Returns the exit status, after a line for a missing page.
static int runPage(Host &host, const CommandLine &options, Interpreter *interpreter, int page,
                   int log)
{
    if ((log >= 0 && Orv_Interpreter_SetLog(log) != 0) ||
        Orv_Interpreter_SetOutputBuffer(interpreter,
                                        options.has(OPT_UNBUFFERED) ? 0 : OUTPUT_BUFFER) != 0)
        return complain(NO_PAGE, "out of memory");
    if (const int status = setVariables(host, interpreter, options); status >= 0)
        return status;
    const char *path = host.readsInput ? STANDARD_INPUT : options.words[0];
    const int32_t result = Orv_Interpreter_Run(interpreter, path, page);
    return explainResult(host, options, interpreter, result, log >= 0);
}

// Renders the page, writes it if it was collected, and prints the log.
static int renderPage(Host &host, const CommandLine &options, Interpreter *interpreter,
                      int startDir)
{
    bool collects = collectsPage(options);
    int page = collects ? memfd_create("page", MFD_CLOEXEC) : STDOUT_FILENO;
    int log = options.has(OPT_LOG) ? memfd_create("log", MFD_CLOEXEC) : -1;
    if (page < 0 || (options.has(OPT_LOG) && log < 0))
        return complain(NO_PAGE, "no memory for the page or the log: %s", strerror(errno));
    if (log >= 0) {
        host.reportFd = log;
        host.reportTemplates = true;
    }
    int status = runPage(host, options, interpreter, page, log);
    const char *output = options.value(OPT_OUTPUT);
    const bool isWanted = status == PAGE_WHOLE || (status == PAGE_BROKEN_OFF && !output);
    if (isWanted && collects && !writePage(startDir, output, page))
        status = NO_PAGE;
    if (log >= 0) {
        std::string text;
        if (!readAll(log, &text))
            status = complain(NO_PAGE, "cannot read the log: %s", strerror(errno));
        writeAll(STDERR_FILENO, withChains(host, text));
        if (status == PAGE_WHOLE && (host.problems > 0 || countProblems() > 0))
            status = PAGE_WITH_PROBLEMS;
    }
    return status;
}

// Puts a kernel command line that asks for tooltips below a folder. Returns false when
// that fails.
static bool writeCommandLine(const std::string &root, const char *mode)
{
    std::error_code error;
    if (!fs::create_directory(root + "/proc", error))
        return false;
    std::ofstream file(root + "/proc/cmdline");
    file << "tooltip=" << mode << '\n';
    file.close();
    return !file.fail();
}

// Makes an interpreter that marks texts: it looks for that in a kernel command line, which
// stands in a root of our own meanwhile. No signal ends us before that is gone.
// Returns null when memory ran out, or when there is no such root: then *problem is set.
static Interpreter *makeMarkingInterpreter(Host &host, const char *mode, const char **problem)
{
    const char *const root = systemRoot;
    Interpreter *interpreter = nullptr;
    std::error_code error;
    std::string own = (fs::temp_directory_path(error) / "orv-render-XXXXXX").string();
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    const bool isMade = !error && mkdtemp(own.data());
    if (!isMade || !writeCommandLine(own, mode)) {
        *problem = strerror(errno);
    } else {
        systemRoot = own.c_str();
        interpreter = hostInterpreter(host);
        systemRoot = root;
    }
    if (isMade)
        fs::remove_all(own, error);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return interpreter;
}

// Enters the document root and renders.
static int runBelow(Host &host, const CommandLine &options, Interpreter *interpreter, int startDir)
{
    if (!hostOpen(host, options.value(OPT_DOCROOT, "."), options.value(OPT_DB)))
        return NO_PAGE;
    const char *language = options.value(OPT_LANG);
    if (language && Orv_Interpreter_SetLanguage(language) != 0)
        return complain(NO_PAGE, "there is no text database for language '%s'", language);
    return renderPage(host, options, interpreter, startDir);
}

// Resolves what is relative to the caller's directory, and renders.
static int run(const CommandLine &options, bool hasStandardOutput)
{
    static char root[PATH_MAX]; // systemRoot must outlive the interpreter
    Host host;
    host.program = programName;
    host.error = options.value(OPT_ERROR);
    int startDir = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (!options.value(OPT_OUTPUT) && !hasStandardOutput)
        return complain(NO_PAGE, "standard output is closed");
    if (options.value(OPT_ROOT) && !realpath(options.value(OPT_ROOT), root))
        return complain(NO_PAGE, "cannot use root '%s': %s", options.value(OPT_ROOT),
                        strerror(errno));
    systemRoot = root;
    host.readsInput = strcmp(options.words[0], "-") == 0;
    if (host.readsInput && !keepStandardInput())
        return complain(NO_PAGE, "cannot read standard input: %s", strerror(errno));
    const char *mode = options.value(OPT_TOOLTIPS);
    const char *problem = nullptr;
    Interpreter *interpreter =
        mode ? makeMarkingInterpreter(host, mode, &problem) : hostInterpreter(host);
    if (!interpreter)
        return problem ? complain(NO_PAGE, "cannot make a folder for --tooltips: %s", problem)
                       : complain(NO_PAGE, "out of memory");
    const int status = runBelow(host, options, interpreter, startDir);
    Orv_Interpreter_Destroy(interpreter);
    hostClose(host);
    // A file system may report a failed write no sooner than here.
    if (fclose(stdout) != 0 && hasStandardOutput)
        return complain(NO_PAGE, "cannot write standard output: %s", strerror(errno));
    return status;
}

int main(int argc, char **argv)
{
    bool hasStandardOutput = holdStandardDescriptors();
    std::set_new_handler([] { _exit(complain(NO_PAGE, "out of memory")); });
    const CommandLine options = readCommandLine(argc, argv, optionRows);
    int status = checkOptions(options);
    return status >= 0 ? status : run(options, hasStandardOutput);
}
