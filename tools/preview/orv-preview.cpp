/* tools/preview/orv-preview.cpp - shows a site's templates in the browser while they are
 * written.
 *
 * The launcher makes a work folder with all that a request needs, starts the web server,
 * and then waits for changes of the site's files: each makes a new generation, which the
 * pages' event streams tell the browser. The web server runs this same program for each
 * request, and tells it the work folder in ORV_PREVIEW_WORK. */
#include "answer.h"
#include "config.h"
#include "program.h"
#include "report.h"
#include "server.h"
#include "texts.h"
#include "tools/common/files.h"
#include "watch.h"
#include "work.h"

#include <errno.h>
#include <getopt.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <filesystem>
#include <new>

using std::string;

namespace fs = std::filesystem;

const char programName[] = "orv-preview";

// Exit statuses.
enum { ENDED = 0, WRONG_USAGE = 2 };

static constexpr int DEFAULT_PORT = 8080;
static constexpr int PORTS_TRIED = 20;
static constexpr int QUIET_MILLISECONDS = 80; // that end a row of changes

static constexpr char helpText[] =
    "Usage: orv-preview [OPTION]... [DIR]\n"
    "Shows the templates below DIR (default: .) in the browser, as the device would, and\n"
    "loads pages again when a file is saved. A bar at the foot of each page tells what is\n"
    "wrong in the templates. Ctrl-C ends it.\n"
    "\n"
    "  --db FILE          answer queries from this SQLite database, read-only\n"
    "  --texts FILE       the texts of a language, from a gettext PO file or a text\n"
    "                     database whose name tells the language: de.po, de.db or\n"
    "                     htmltext_de.db; repeatable. The first is the default language\n"
    "  --root DIR         look below DIR for the device's own text databases:\n"
    "                     /etc/htmltext_CODE.db, /var/htmltext.db, ...\n"
    "  --set NAME=VALUE   set a variable, as the web program would; repeatable. An\n"
    "                     element of an array is NAME[INDEX]=VALUE\n"
    "  --set-from FILE    a list of the variables that the web program sets, for orv-check\n"
    "  --error TEXT       the error that the pages' error commands find\n"
    "  --port NUMBER      the port on 127.0.0.1 (default: 8080, or the next free one);\n"
    "                     0 stands for any free one\n"
    "  --open             start the browser\n"
    "  --no-reload        do not load pages again when a file changes\n"
    "  --help, --version  print this text, or the version\n"
    "\n"
    "Pages are files whose names end in .htm or .html; pieces that they include may end\n"
    "in .frm. Nothing outside DIR is read but what the options name.\n"
    "\n"
    "Exit status: 0 ended by Ctrl-C; 1 this text cannot be printed; 2 wrong usage, a missing\n"
    "folder, a busy port, or no web server (lighttpd).\n";

namespace
{
struct Options {
    const char *folder = ".";
    string db;
    string deviceRoot;
    string setFrom;
    std::vector<TextSource> texts;
    std::vector<std::pair<string, string>> variables;
    string error;
    int port = -1; // none given
    bool opens = false;
    bool reloads = true;
};

struct Launcher {
    Options options;
    Config config;
    Watch watch;
    string work;      // removed at the end
    pid_t server = 0; // 0 while there is none
    pid_t checker = 0;
    bool isStale = true; // the checker has not seen the newest files
    bool isGone = false; // the folder is not there
};
} // namespace

__attribute__((format(printf, 1, 2))) static void tell(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    vprintf(format, values);
    putchar('\n');
    fflush(stdout);
    va_end(values);
}

// ---- The command line ----

static string absolute(const string &path)
{
    std::error_code error;
    return fs::absolute(path, error).lexically_normal();
}

static int readText(const char *path, Options &options)
{
    const TextSource source = {languageOf(path), absolute(path)};
    if (source.language.empty())
        return complain(
            WRONG_USAGE,
            "--texts needs a file whose name tells its language, such as de.po or de.db, "
            "not '%s'",
            path);
    if (access(path, R_OK) != 0)
        return complain(WRONG_USAGE, "cannot read texts '%s': %s", path, strerror(errno));
    options.texts.push_back(source);
    return -1;
}

static int readPort(const char *text, Options &options)
{
    char *end;
    errno = 0;
    const long port = strtol(text, &end, 10);
    if (*text < '0' || *text > '9' || *end != '\0' || errno != 0 || port > 65535)
        return complain(WRONG_USAGE,
                        "--port needs a number from 1 to 65535, or 0 for any, not '%s'", text);
    options.port = static_cast<int>(port);
    return -1;
}

// Reads one option. Returns -1 to go on, else the exit status.
static int readOption(int key, Options &options, char **argv)
{
    switch (key) {
    case 'd':
        options.db = absolute(optarg);
        return -1;
    case 't':
        return readText(optarg, options);
    case 'r':
        options.deviceRoot = absolute(optarg);
        if (!fs::is_directory(options.deviceRoot))
            return complain(WRONG_USAGE, "cannot use root '%s': it is no folder", optarg);
        return -1;
    case 's': {
        const char *value = strchr(optarg, '=');
        if (!value || value == optarg)
            return complain(WRONG_USAGE, "--set needs NAME=VALUE, not '%s'", optarg);
        options.variables.emplace_back(string(optarg, static_cast<size_t>(value - optarg)),
                                       value + 1);
        return -1;
    }
    case 'f':
        options.setFrom = absolute(optarg);
        if (access(optarg, R_OK) != 0)
            return complain(WRONG_USAGE, "cannot read list '%s': %s", optarg, strerror(errno));
        return -1;
    case 'e':
        options.error = optarg;
        return -1;
    case 'p':
        return readPort(optarg, options);
    case 'o':
        options.opens = true;
        return -1;
    case 'n':
        options.reloads = false;
        return -1;
    case 'h':
        return printText(helpText);
    case 'v':
        return printText("orv-preview " ORV_VERSION "\n");
    case ':':
        return complain(WRONG_USAGE, "option '%s' needs a value, see --help", argv[optind - 1]);
    default:
        return complain(WRONG_USAGE, "wrong option '%s', see --help", argv[optind - 1]);
    }
}

// Reads the command line. Returns -1 to go on, else the exit status.
static int readOptions(int argc, char **argv, Options &options)
{
    static const option table[] = {
        {"db", required_argument, nullptr, 'd'},       {"texts", required_argument, nullptr, 't'},
        {"root", required_argument, nullptr, 'r'},     {"set", required_argument, nullptr, 's'},
        {"set-from", required_argument, nullptr, 'f'}, {"error", required_argument, nullptr, 'e'},
        {"port", required_argument, nullptr, 'p'},     {"open", no_argument, nullptr, 'o'},
        {"no-reload", no_argument, nullptr, 'n'},      {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    for (int key; (key = getopt_long(argc, argv, ":", table, nullptr)) != -1;)
        if (const int status = readOption(key, options, argv); status >= 0)
            return status;
    if (argc - optind > 1)
        return complain(WRONG_USAGE, "one folder at a time, see --help");
    if (optind < argc)
        options.folder = argv[optind];
    return -1;
}

// ---- Start ----

// Sets the port. Returns -1 to go on, else the exit status.
static int choosePort(Launcher &launcher)
{
    int &port = launcher.config.port;
    const bool isGiven = launcher.options.port >= 0;
    port = isGiven ? launcher.options.port : DEFAULT_PORT;
    int error = tryPort(&port);
    if (error == EADDRINUSE && !isGiven) {
        for (int i = 0; error == EADDRINUSE && i < PORTS_TRIED; ++i) {
            ++port;
            error = tryPort(&port);
        }
        if (error == 0)
            tell("Port %d is in use by another program; %d is taken instead.", DEFAULT_PORT, port);
    }
    if (error == EADDRINUSE)
        return complain(WRONG_USAGE,
                        "port %d is in use by another program; choose another with --port", port);
    if (error != 0)
        return complain(WRONG_USAGE, "cannot use port %d: %s", port, strerror(error));
    return -1;
}

static string newGeneration()
{
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    return std::to_string(time.tv_sec) + std::to_string(time.tv_nsec / 1000000 + 1000).substr(1);
}

static string shown(const Launcher &launcher, const string &path)
{
    const string root = launcher.config.docRoot + "/";
    return path.starts_with(root) ? path.substr(root.size()) : path;
}

// Brings the text databases and the configuration up to date.
static bool prepare(Launcher &launcher)
{
    const Options &options = launcher.options;
    if (!makeRoots(launcher.work, options.deviceRoot, options.texts, launcher.config))
        return false;
    for (FileProblem &problem : launcher.config.problems) {
        problem.file = shown(launcher, problem.file);
        tell("%s:%d: %s", problem.file.c_str(), problem.line, problem.text.c_str());
    }
    return writeConfig(launcher.work, launcher.config) &&
           writeGeneration(launcher.work, newGeneration());
}

static void watchFiles(Launcher &launcher)
{
    Watch &watch = launcher.watch;
    watch.folder = launcher.config.docRoot;
    if (!launcher.options.db.empty())
        watch.files.push_back(launcher.options.db);
    for (const TextSource &source : launcher.options.texts)
        watch.files.push_back(source.path);
    if (!launcher.options.setFrom.empty())
        watch.files.push_back(launcher.options.setFrom);
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(launcher.options.deviceRoot + "/etc", ignored))
        if (!launcher.options.deviceRoot.empty() && entry.path().extension() == ".db")
            watch.files.push_back(entry.path());
    if (!watchAll(watch))
        tell("Changes cannot be watched (%s): load pages again by hand.", strerror(errno));
    else if (watch.isCut)
        tell("There are too many folders to watch all: load some pages again by hand.");
}

static void openBrowser(const string &address)
{
    const char *chosen = getenv("BROWSER");
    const string program =
        findProgram(chosen && *chosen && !strchr(chosen, ':') ? chosen : "xdg-open");
    if (program.empty() || startProgram({program, address}, "/dev/null", "/dev/null") < 0)
        tell("No browser could be started: open the address yourself.");
}

// Makes ready all that the server needs. Returns -1 to go on, else the exit status.
static int start(Launcher &launcher)
{
    const Options &options = launcher.options;
    std::error_code error;
    launcher.config.docRoot = fs::canonical(options.folder, error);
    if (error || !fs::is_directory(launcher.config.docRoot))
        return complain(WRONG_USAGE, "cannot show '%s': %s", options.folder,
                        error ? error.message().c_str() : "it is no folder");
    launcher.config.db = options.db;
    launcher.config.reloads = options.reloads;
    launcher.config.variables = options.variables;
    tell(
        "orv-preview shows %s to the browsers of this machine alone; it is no server for a device.",
        launcher.config.docRoot.c_str());
    if (const int status = choosePort(launcher); status >= 0)
        return status;
    const string work = launcher.work = makeWork();
    if (work.empty())
        return complain(WRONG_USAGE, "cannot make a folder for temporary files: %s",
                        strerror(errno));
    if (!options.db.empty() && access(options.db.c_str(), R_OK) != 0)
        tell("The database %s cannot be read (%s): queries fail until it can.", options.db.c_str(),
             strerror(errno));
    if (!prepare(launcher) || !writeSwitches(work, {"", 0, options.error}))
        return complain(WRONG_USAGE, "cannot write in %s: %s", work.c_str(), strerror(errno));
    watchFiles(launcher);
    const string problem = startServer(work, launcher.config.port, &launcher.server);
    if (!problem.empty()) {
        launcher.server = 0;
        return complain(WRONG_USAGE, "%s", problem.c_str());
    }
    const string address = "http://127.0.0.1:" + std::to_string(launcher.config.port) + "/";
    tell("%s - Ctrl-C ends it.", address.c_str());
    if (options.opens)
        openBrowser(address);
    return -1;
}

// ---- Changes ----

// Starts orv-check, whose findings come when it has ended.
static void startChecker(Launcher &launcher)
{
    const string program = findProgram("orv-check");
    if (program.empty() || launcher.checker > 0 || !launcher.isStale || launcher.isGone)
        return;
    launcher.isStale = false;
    std::vector<string> arguments = {program, "--format", "json", "--docroot",
                                     launcher.config.docRoot};
    if (!launcher.config.db.empty() && access(launcher.config.db.c_str(), R_OK) == 0)
        arguments.insert(arguments.end(), {"--db", launcher.config.db});
    for (const TextSource &source : launcher.options.texts)
        arguments.insert(arguments.end(), {"--texts", source.path});
    if (!launcher.options.setFrom.empty())
        arguments.insert(arguments.end(), {"--set-from", launcher.options.setFrom});
    for (const auto &[name, value] : launcher.config.variables)
        arguments.insert(arguments.end(), {"--set", name});
    launcher.checker = startProgram(arguments, launcher.work + "/checked", "/dev/null");
}

// Takes the ends of children. Returns false when the server is among them.
static bool takeEnds(Launcher &launcher)
{
    int status;
    for (pid_t child; (child = waitpid(-1, &status, WNOHANG)) > 0;) {
        if (child == launcher.server) {
            launcher.server = 0;
            return false;
        }
        if (child != launcher.checker)
            continue;
        launcher.checker = 0;
        string printed;
        readWhole(launcher.work + "/checked", printed);
        replaceFile(launcher.work + "/findings", readFindings(printed, launcher.config.docRoot));
    }
    startChecker(launcher);
    return true;
}

// Tells the pages, after the last of a row of changes.
static void takeChanges(Launcher &launcher)
{
    std::set<string> changed;
    pollfd wait = {launcher.watch.fd, POLLIN, 0};
    bool isThere = watchTake(launcher.watch, changed);
    for (int i = 0; isThere && !changed.empty() && i < 20 && poll(&wait, 1, QUIET_MILLISECONDS) > 0;
         i++)
        isThere = watchTake(launcher.watch, changed);
    if (!isThere) {
        launcher.isGone = true;
        tell("The folder %s is gone; it is shown again when it is back.",
             launcher.config.docRoot.c_str());
        writeGeneration(launcher.work, newGeneration());
        return;
    }
    if (changed.empty())
        return;
    if (!prepare(launcher))
        tell("Cannot write in %s: %s", launcher.work.c_str(), strerror(errno));
    tell("Changed: %s%s", changed.begin()->c_str(), changed.size() > 1 ? " and others" : "");
    launcher.isStale = true;
    startChecker(launcher);
}

static void takeReturn(Launcher &launcher)
{
    std::error_code ignored;
    if (!fs::is_directory(launcher.config.docRoot, ignored) || !watchAll(launcher.watch))
        return;
    launcher.isGone = false;
    prepare(launcher);
    tell("The folder is back.");
    launcher.isStale = true;
    startChecker(launcher);
}

// ---- Signals ----

// Set by the signals that serve waits for; elsewhere they are held up.
static volatile sig_atomic_t isToEnd;
static volatile sig_atomic_t hasEnds; // of children

// Holds the signals up that serve waits for. Returns the mask to wait with. What is
// ignored, as by nohup, still is.
static sigset_t holdSignals()
{
    static constexpr int numbers[] = {SIGINT, SIGTERM, SIGHUP, SIGCHLD};
    sigset_t held;
    sigset_t waiting;
    sigemptyset(&held);
    for (const int number : numbers)
        sigaddset(&held, number);
    sigprocmask(SIG_BLOCK, &held, &waiting);
    for (const int number : numbers) {
        sigdelset(&waiting, number);
        if (number == SIGCHLD)
            signal(number, [](int) { hasEnds = 1; });
        else if (signal(number, [](int) { isToEnd = 1; }) == SIG_IGN)
            signal(number, SIG_IGN);
    }
    return waiting;
}

// Waits for changes until a signal ends it. waiting: the mask for that. Returns the exit
// status.
static int serve(Launcher &launcher, const sigset_t &waiting)
{
    static constexpr timespec beforeLook = {0, 500000000}; // for a folder that is gone
    startChecker(launcher);
    for (;;) {
        pollfd wait = {launcher.watch.fd, POLLIN, 0};
        ppoll(&wait, launcher.isGone ? 0 : 1, launcher.isGone ? &beforeLook : nullptr, &waiting);
        if (isToEnd)
            return ENDED;
        if (hasEnds) {
            hasEnds = 0;
            if (!takeEnds(launcher))
                return complain(WRONG_USAGE, "the web server has ended");
        }
        if (launcher.isGone)
            takeReturn(launcher);
        else if (wait.revents != 0)
            takeChanges(launcher);
    }
}

int main(int argc, char **argv)
{
    std::set_new_handler([] { _exit(complain(WRONG_USAGE, "out of memory")); });
    signal(SIGPIPE, SIG_IGN);
    if (const char *work = getenv("ORV_PREVIEW_WORK"))
        return answerRequest(work);
    Launcher launcher;
    int status = readOptions(argc, argv, launcher.options);
    if (status >= 0)
        return status;
    const sigset_t waiting = holdSignals();
    status = start(launcher);
    if (status < 0)
        status = serve(launcher, waiting);
    if (launcher.server > 0)
        stopServer(launcher.server);
    if (launcher.checker > 0)
        kill(launcher.checker, SIGTERM);
    removeWork(launcher.work);
    return status;
}
