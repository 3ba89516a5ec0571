/* tools/orv-render.cpp - renders one template, for template authors and tests.
 *
 * A pipe or a terminal gets the page piece by piece. For a file it is collected in
 * memory and written at the end, so that a failed write is told and a run without
 * a page leaves the file of --output alone; that may be one of the templates. The
 * diagnostics are collected as well: they follow the page, and whether they
 * tell of errors decides on the exit status. */
#include "host.h"

#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <new>
#include <string_view>

using std::string_view;

namespace fs = std::filesystem;

// Exit statuses.
enum { PAGE_WHOLE = 0, PAGE_WITH_PROBLEMS = 1, NO_PAGE = 2, PAGE_BROKEN_OFF = 3 };

// Bytes of the page that are written together.
static constexpr int32_t outputBuffer = 16384;

static constexpr char helpText[] =
    "Usage: orv-render [OPTION]... TEMPLATE\n"
    "Renders TEMPLATE, a path below the document root, to standard output.\n"
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
    "  --output FILE            write the page to FILE\n"
    "  --unbuffered             write each piece of the page at once, not together\n"
    "  --log                    print the diagnostics on standard error\n"
    "  --help, --version        print this text, or the version\n"
    "\n"
    "Exit status: 0 page rendered; 1 page rendered, and --log printed errors or\n"
    "warnings; 2 wrong usage, a missing file, or the page cannot be written; 3 the\n"
    "interpreter gave up in the middle of the page.\n";

struct Options {
    const char *docRoot = ".";
    const char *root = nullptr;
    const char *lang = nullptr;
    const char *error = nullptr;
    const char *db = nullptr;
    const char *tooltips = nullptr;
    const char *output = nullptr;
    const char *page = nullptr;
    bool log = false;
    bool gathers = true;
    std::vector<char *> variables; // NAME=VALUE each
};

/* Prints one line and returns the exit status for it. */
__attribute__((format(printf, 1, 2))) static int fail(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    fputs("orv-render: ", stderr);
    vfprintf(stderr, format, values);
    fputc('\n', stderr);
    va_end(values);
    return NO_PAGE;
}

/* Prints a text on standard output and returns the exit status. */
static int print(const char *text)
{
    if (fputs(text, stdout) >= 0 && fflush(stdout) == 0)
        return PAGE_WHOLE;
    return fail("cannot write standard output: %s", strerror(errno));
}

/* Reads the command line. Returns -1 to go on, else the exit status. */
static int readOptions(int argc, char **argv, Options &options)
{
    static const option table[] = {
        {"set", required_argument, nullptr, 's'},
        {"docroot", required_argument, nullptr, 'd'},
        {"root", required_argument, nullptr, 'r'},
        {"lang", required_argument, nullptr, 'l'},
        {"error", required_argument, nullptr, 'e'},
        {"db", required_argument, nullptr, 'q'},
        {"tooltips", required_argument, nullptr, 't'},
        {"output", required_argument, nullptr, 'o'},
        {"unbuffered", no_argument, nullptr, 'u'},
        {"log", no_argument, nullptr, 'g'},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},
        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    for (int key; (key = getopt_long(argc, argv, ":", table, nullptr)) != -1;) {
        switch (key) {
        case 's':
            if (optarg[0] == '=' || !strchr(optarg, '='))
                return fail("--set needs NAME=VALUE, not '%s'", optarg);
            options.variables.push_back(optarg);
            break;
        case 'd':
            options.docRoot = optarg;
            break;
        case 'r':
            options.root = optarg;
            break;
        case 'l':
            options.lang = optarg;
            break;
        case 'e':
            options.error = optarg;
            break;
        case 'q':
            options.db = optarg;
            break;
        case 't':
            if (strcmp(optarg, "1") != 0 && strcmp(optarg, "2") != 0)
                return fail("--tooltips needs 1 or 2, not '%s'", optarg);
            options.tooltips = optarg;
            break;
        case 'o':
            options.output = optarg;
            break;
        case 'u':
            options.gathers = false;
            break;
        case 'g':
            options.log = true;
            break;
        case 'h':
            return print(helpText);
        case 'v':
            return print("orv-render " ORV_VERSION "\n");
        case ':':
            return fail("option '%s' needs a value, see --help", argv[optind - 1]);
        default:
            return fail("wrong option '%s', see --help", argv[optind - 1]);
        }
    }
    if (optind + 1 != argc)
        return fail("%s, see --help", optind == argc ? "no template given" : "several templates");
    options.page = argv[optind];
    return -1;
}

/* Gives each standard descriptor that is closed a place that no file opened later
 * can take. Returns whether standard output was open. */
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

/* Returns all that was written to a file in memory. */
static std::string readAll(int fd)
{
    std::string text;
    char piece[8192];
    ssize_t got;
    while ((got = pread(fd, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0)
        text.append(piece, static_cast<size_t>(got));
    return text;
}

static bool writeAll(int fd, string_view text)
{
    while (!text.empty()) {
        ssize_t put = write(fd, text.data(), text.size());
        if (put < 0 && errno != EINTR)
            return false;
        text.remove_prefix(put < 0 ? 0 : static_cast<size_t>(put));
    }
    return true;
}

/* How many errors and warnings the library has reported so far. */
static int32_t countProblems()
{
    return Orv_Interpreter_LogCount(ORV_LOG_WARNING) + Orv_Interpreter_LogCount(ORV_LOG_ERROR);
}

/* Sets the variables of the command line. Returns -1 to go on, else the exit status. */
static int setVariables(Host &host, Interpreter *interpreter, const Options &options)
{
    for (char *variable : options.variables) {
        char *value = strchr(variable, '=');
        *value++ = '\0';
        if (hostSet(host, interpreter, variable, value) != 0)
            return fail("cannot set variable '%s'", variable);
    }
    return -1;
}

/* Whether the page is collected in memory and written at the end, by us: then a
 * failed write is noticed, which the interpreter passes over. A pipe or terminal
 * gets the page at once; when a pipe's reader is gone, the signal ends us. */
static bool collectsPage(const Options &options)
{
    struct stat status;
    if (options.output)
        return true;
    return fstat(STDOUT_FILENO, &status) == 0 && !S_ISFIFO(status.st_mode) &&
           !S_ISSOCK(status.st_mode) && !isatty(STDOUT_FILENO);
}

/* Writes the collected page to where it belongs. Returns false after a line. */
static bool writePage(int startDir, const char *output, int page)
{
    int fd = STDOUT_FILENO;
    if (output)
        fd = openat(startDir, output, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    bool isWritten = fd >= 0 && writeAll(fd, readAll(page));
    int cause = errno;
    if (output && fd >= 0 && close(fd) != 0 && isWritten) {
        isWritten = false;
        cause = errno;
    }
    if (!isWritten)
        fail("cannot write %s: %s", output ? output : "standard output", strerror(cause));
    return isWritten;
}

/* Runs the template with the descriptors at hand: page, where it goes, and log,
 * -1 without --log. Returns the exit status, after a line for a missing page. */
static int runPage(Host &host, const Options &options, int page, int log)
{
    Interpreter *interpreter = hostInterpreter(host);
    if (!interpreter || (log >= 0 && Orv_Interpreter_SetLog(log) != 0) ||
        Orv_Interpreter_SetOutputBuffer(interpreter, options.gathers ? outputBuffer : 0) != 0) {
        Orv_Interpreter_Destroy(interpreter);
        return fail("out of memory");
    }
    int status = setVariables(host, interpreter, options);
    int32_t result = ORV_RUN_DONE;
    if (status < 0)
        result = Orv_Interpreter_Run(interpreter, options.page, page);
    const int32_t lost = Orv_Interpreter_OutputError(interpreter);
    Orv_Interpreter_Destroy(interpreter);
    if (status >= 0)
        return status;
    if (lost > 0)
        return fail("cannot write the page: %s", strerror(lost));
    if (result == ORV_RUN_NO_TEMPLATE && log >= 0 && host.openProblem)
        return NO_PAGE; // the log has the line
    if (result == ORV_RUN_NO_TEMPLATE)
        return fail("cannot open template '%s': %s", options.page,
                    host.openProblem ? host.openProblem : "it is empty or cannot be mapped");
    return result == ORV_RUN_GAVE_UP ? PAGE_BROKEN_OFF : PAGE_WHOLE;
}

/* Renders the page, writes it if it was collected, and prints the log. */
static int renderPage(Host &host, const Options &options, int startDir)
{
    bool collects = collectsPage(options);
    int page = collects ? memfd_create("page", MFD_CLOEXEC) : STDOUT_FILENO;
    int log = options.log ? memfd_create("log", MFD_CLOEXEC) : -1;
    if (page < 0 || (options.log && log < 0))
        return fail("no memory for the page or the log: %s", strerror(errno));
    if (log >= 0) {
        host.reportFd = log;
        host.reportTemplates = true;
    }
    int status = runPage(host, options, page, log);
    if (status != NO_PAGE && collects && !writePage(startDir, options.output, page))
        status = NO_PAGE;
    if (log >= 0) {
        std::string text = readAll(log);
        writeAll(STDERR_FILENO, text);
        if (status == PAGE_WHOLE && (host.problems > 0 || countProblems() > 0))
            status = PAGE_WITH_PROBLEMS;
    }
    return status;
}

/* A root of our own with a kernel command line that asks for tooltips, and links
 * to the texts of the real one. It is gone with the record. */
struct TooltipRoot {
    std::string path;

    ~TooltipRoot()
    {
        std::error_code ignored;
        if (!path.empty())
            fs::remove_all(path, ignored);
    }
};

/* Returns whether the root could be made; errno tells why not. */
static bool makeTooltipRoot(TooltipRoot &made, const char *root, const char *mode)
{
    std::error_code error;
    std::string path = (fs::temp_directory_path(error) / "orv-render-XXXXXX").string();
    if (error || !mkdtemp(path.data()))
        return false;
    made.path = path;
    for (const char *folder : {"/proc", "/var"})
        if (!fs::create_directory(path + folder, error))
            return false;
    for (const char *file : {"/etc", "/var/htmltext.db"}) {
        fs::create_symlink(std::string(root) + file, path + file, error);
        if (error)
            return false;
    }
    std::ofstream cmdline(path + "/proc/cmdline");
    cmdline << "tooltip=" << mode << '\n';
    cmdline.close();
    return !cmdline.fail();
}

/* Resolves what is relative to the caller's directory, then enters the document
 * root and renders. */
static int run(const Options &options, bool hasStandardOutput)
{
    static char root[PATH_MAX]; // systemRoot must outlive the interpreter
    static TooltipRoot tooltipRoot;
    Host host;
    host.program = "orv-render";
    host.error = options.error;
    int startDir = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (!options.output && !hasStandardOutput)
        return fail("standard output is closed");
    if (options.root && !realpath(options.root, root))
        return fail("cannot use root '%s': %s", options.root, strerror(errno));
    systemRoot = root;
    if (options.tooltips) {
        if (!makeTooltipRoot(tooltipRoot, root, options.tooltips))
            return fail("cannot make a folder for --tooltips: %s", strerror(errno));
        systemRoot = tooltipRoot.path.c_str();
    }
    int status = NO_PAGE;
    if (hostOpen(host, options.docRoot, options.db)) {
        if (options.lang && Orv_Interpreter_SetLanguage(options.lang) != 0)
            fail("there is no text database for language '%s'", options.lang);
        else
            status = renderPage(host, options, startDir);
    }
    hostClose(host);
    // A file system may report a failed write no sooner than here.
    if (fclose(stdout) != 0 && hasStandardOutput)
        return fail("cannot write standard output: %s", strerror(errno));
    return status;
}

int main(int argc, char **argv)
{
    bool hasStandardOutput = holdStandardDescriptors();
    Options options;
    std::set_new_handler([] { _exit(fail("out of memory")); });
    int status = readOptions(argc, argv, options);
    return status >= 0 ? status : run(options, hasStandardOutput);
}
