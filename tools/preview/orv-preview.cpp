/* tools/preview/orv-preview.cpp - shows a site's templates in the browser while they are
 * written.
 *
 * The launcher makes a work folder with all that a request needs, starts the web server,
 * and then waits for changes of the site's files: each makes a new generation, which the
 * pages' event streams tell the browser. The web server runs this same program for each
 * request, and tells it the work folder in ORV_PREVIEW_WORK. */
#include "answer.h"
#include "config.h"
#include "databases.h"
#include "editor.h"
#include "program.h"
#include "report.h"
#include "server.h"
#include "settings.h"
#include "tools/common/files.h"
#include "tools/common/json.h"
#include "tools/common/sitefile.h"
#include "watch.h"
#include "work.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <algorithm>
#include <filesystem>
#include <new>

using std::string;

namespace fs = std::filesystem;

const char programName[] = "orv-preview";

static constexpr int DEFAULT_PORT = 8080;
static constexpr int PORTS_TRIED = 20;
static constexpr int QUIET_MILLISECONDS = 80; // that end a row of changes
static constexpr int CHECKER_PRIORITY = 10;
static constexpr size_t CHANGES_KEPT = 50; // a page that is older is loaded whatever changed

namespace
{
struct Launcher {
    Settings given; // by the command line
    Settings settings;
    Config config;
    Watch watch;
    FileProblem siteProblem; // of the site's file; none without a text
    string work;             // removed at the end
    std::vector<Change> changes;
    int orders = -1;     // a pipe: places to be opened, a line of JSON each
    pid_t server = 0;    // 0 while there is none
    pid_t checker = 0;   // 0 while there is none
    string checked;      // generation of the files that the checker looks at
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

// ---- Start ----

// Sets the port. Returns -1 to go on, else the exit status.
static int choosePort(Launcher &launcher)
{
    int &port = launcher.config.port;
    const bool isGiven = launcher.settings.port >= 0;
    port = isGiven ? launcher.settings.port : DEFAULT_PORT;
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

// Makes the state of the files a new one. A page of a state that is not kept any more takes
// all for changed.
static bool publish(Launcher &launcher, Change change)
{
    auto &changes = launcher.changes;
    change.generation = newGeneration();
    changes.push_back(std::move(change));
    if (changes.size() > CHANGES_KEPT)
        changes.erase(changes.begin());
    return writeChanges(launcher.work, changes);
}

static bool publishAll(Launcher &launcher)
{
    Change change;
    change.isAll = true;
    return publish(launcher, std::move(change));
}

static string shown(const Launcher &launcher, const string &path)
{
    const string root = launcher.config.docRoot + "/";
    return path.starts_with(root) ? path.substr(root.size()) : path;
}

// Brings the text databases and the configuration up to date.
static bool prepare(Launcher &launcher)
{
    const Settings &settings = launcher.settings;
    launcher.config.problems.clear();
    if (!makeRoots(launcher.work, settings.deviceRoot, settings.texts, launcher.config))
        return false;
    makeDatabases(launcher.work, settings.databases, launcher.config);
    if (!launcher.siteProblem.text.empty())
        launcher.config.problems.push_back(launcher.siteProblem);
    for (FileProblem &problem : launcher.config.problems) {
        problem.file = shown(launcher, problem.file);
        tell("%s:%d: %s", problem.file.c_str(), problem.line, problem.text.c_str());
    }
    return writeConfig(launcher.work, launcher.config);
}

static void watchFiles(Launcher &launcher)
{
    Watch &watch = launcher.watch;
    const Settings &settings = launcher.settings;
    watch.folder = launcher.config.docRoot;
    watch.files.clear();
    if (!settings.siteFile.empty())
        watch.files.push_back(settings.siteFile);
    for (const Database &database : settings.databases)
        for (const string &file : filesOf(database))
            watch.files.push_back(file);
    for (const TextSource &source : settings.texts)
        watch.files.push_back(source.path);
    if (!settings.setFrom.empty())
        watch.files.push_back(settings.setFrom);
    if (!settings.deviceRoot.empty())
        eachEntry(settings.deviceRoot + "/etc", [&](const fs::directory_entry &entry) {
            if (entry.path().extension() == ".db")
                watch.files.push_back(entry.path());
        });
    if (!watchAll(watch))
        tell("Changes cannot be watched (%s): load pages again by hand.", strerror(errno));
    else if (watch.isCut)
        tell("There are too many folders to watch all: load some pages again by hand.");
}

// Chooses how places are opened, and makes the pipe on which the server's programs ask for it.
// A click says the same as this does.
static void prepareEditor(Launcher &launcher)
{
    const string pipe = launcher.work + "/orders";
    string problem;
    launcher.config.editor = launcher.settings.editor;
    if (!launcher.settings.editor.empty() && !isAddress(launcher.settings.editor)) {
        if (editorWords(launcher.settings.editor, "", 1, 1, &problem).empty())
            launcher.config.editor = "";
        else if (mkfifo(pipe.c_str(), 0600) == 0)
            launcher.orders = open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    }
    if (!problem.empty())
        tell("No place can be opened in an editor: %s. --editor names another.", problem.c_str());
}

static void openBrowser(const string &address)
{
    const char *chosen = getenv("BROWSER");
    const string program =
        findProgram(chosen && *chosen && !strchr(chosen, ':') ? chosen : "xdg-open");
    if (program.empty() || startProgram({program, address}, "/dev/null", "/dev/null") < 0)
        tell("No browser could be started: open the address yourself.");
}

// Says in a line how to get what pages ask for.
static void tellWhatIsMissing(const Settings &settings)
{
    for (const Database &database : settings.databases)
        if (access(filesOf(database)[0].c_str(), R_OK) != 0)
            tell("The database %s cannot be read (%s): queries fail until it can.",
                 database.path.c_str(), strerror(errno));
    const bool hasTexts = !settings.texts.empty() || !settings.deviceRoot.empty();
    if (settings.databases.empty() || !hasTexts)
        tell("%s not given: add %s, or say it in orv-check.json, which orv-check --init writes.",
             hasTexts                     ? "A database is"
             : settings.databases.empty() ? "A database and texts are"
                                          : "Texts are",
             hasTexts                     ? "--db FILE"
             : settings.databases.empty() ? "--db FILE and --texts en.po"
                                          : "--texts en.po");
}

// Makes ready all that the server needs. Returns -1 to go on, else the exit status.
static int start(Launcher &launcher)
{
    const Settings &settings = launcher.settings;
    std::error_code error;
    launcher.config.docRoot = fs::canonical(settings.folder, error);
    if (error || !fs::is_directory(launcher.config.docRoot, error))
        return complain(WRONG_USAGE, "cannot show '%s': %s", settings.folder.c_str(),
                        error ? error.message().c_str() : "it is no folder");
    launcher.config.functions = settings.functions;
    launcher.config.reloads = settings.reloads;
    launcher.config.variables = settings.variables;
    launcher.config.error = settings.error;
    launcher.config.checks = !findProgram("orv-check").empty();
    tell(
        "orv-preview shows %s to the browsers of this machine alone; it is no server for a device.",
        launcher.config.docRoot.c_str());
    if (const int status = choosePort(launcher); status >= 0)
        return status;
    const string work = launcher.work = makeWork();
    if (work.empty())
        return complain(WRONG_USAGE, "cannot make a folder for temporary files: %s",
                        strerror(errno));
    tellWhatIsMissing(settings);
    prepareEditor(launcher);
    if (!prepare(launcher) || !publishAll(launcher))
        return complain(WRONG_USAGE, "cannot write in %s: %s", work.c_str(), strerror(errno));
    watchFiles(launcher);
    const string problem = startServer(work, launcher.config.port, &launcher.server);
    if (!problem.empty()) {
        launcher.server = 0;
        return complain(WRONG_USAGE, "%s", problem.c_str());
    }
    const string address = "http://127.0.0.1:" + std::to_string(launcher.config.port) + "/";
    tell("%s - Ctrl-C ends it.", address.c_str());
    if (ferror(stdout)) // nobody has been told where the pages are
        return complain(WRONG_USAGE, "cannot write standard output: %s", strerror(errno));
    if (settings.opens)
        openBrowser(address);
    return -1;
}

// ---- Changes ----

// Starts orv-check, whose findings come when it has ended.
static void startChecker(Launcher &launcher)
{
    const Settings &settings = launcher.settings;
    const string program = findProgram("orv-check");
    if (program.empty() || launcher.checker > 0 || !launcher.isStale || launcher.isGone)
        return;
    launcher.isStale = false;
    launcher.checked = launcher.changes.back().generation;
    std::vector<string> arguments = {program, "--format", "json", "--docroot",
                                     launcher.config.docRoot};
    // What stands in the site's file it reads by itself.
    if (const auto &given = launcher.given.databases;
        !given.empty() && access(given[0].path.c_str(), R_OK) == 0)
        arguments.insert(arguments.end(), {"--db", given[0].path});
    for (const TextSource &source : launcher.given.texts)
        arguments.insert(arguments.end(), {"--texts", source.path});
    if (!settings.setFrom.empty())
        arguments.insert(arguments.end(), {"--set-from", settings.setFrom});
    for (const auto &[name, value] : launcher.given.variables)
        arguments.insert(arguments.end(), {"--set", name});
    launcher.checker =
        startProgram(arguments, launcher.work + "/checked", launcher.work + "/complaint");
    if (launcher.checker > 0) // the page comes first
        setpriority(PRIO_PROCESS, static_cast<id_t>(launcher.checker), CHECKER_PRIORITY);
}

// Has the newest files checked. What the checker finds in files that have changed since is
// nothing to wait for.
static void checkAgain(Launcher &launcher)
{
    launcher.isStale = true;
    if (launcher.checker > 0)
        kill(launcher.checker, SIGKILL);
    startChecker(launcher);
}

static void takeFindings(const Launcher &launcher)
{
    string printed;
    string complaint;
    readWhole(launcher.work + "/checked", printed);
    readWhole(launcher.work + "/complaint", complaint);
    replaceFile(launcher.work + "/findings",
                readFindings(printed, complaint, launcher.checked, launcher.config.docRoot));
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
        if (!launcher.isStale)
            takeFindings(launcher);
    }
    startChecker(launcher);
    return true;
}

// Takes the site's file anew, when it has changed. Another folder takes another start.
static void takeSiteFile(Launcher &launcher)
{
    Settings settings;
    launcher.siteProblem = {};
    if (!addSiteFile(launcher.given, settings, &launcher.siteProblem))
        return; // pages tell it, and the settings stay
    settings.folder = launcher.settings.folder;
    launcher.settings = settings;
    launcher.config.functions = settings.functions;
    launcher.config.variables = settings.variables;
    watchFiles(launcher);
}

// Sorts what has changed by whom it concerns.
static Change changeOf(const Launcher &launcher, const std::set<string> &changed)
{
    const Settings &settings = launcher.settings;
    Change change;
    for (const string &name : changed) {
        const string path = name.starts_with('/') ? name : launcher.config.docRoot + "/" + name;
        const auto isBehind = [&](const Database &database) {
            const auto files = filesOf(database);
            return std::find(files.begin(), files.end(), path) != files.end();
        };
        const bool isData = std::ranges::any_of(settings.databases, isBehind);
        change.isAll |= fs::path(path).filename() == SITE_FILE;
        change.isData |= isData;
        change.isTexts |= path.ends_with(".db") && !isData;
        for (const TextSource &source : settings.texts)
            change.isTexts |= path == source.path;
        if (!name.starts_with('/'))
            change.files.insert(name);
    }
    return change;
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
        publishAll(launcher);
        return;
    }
    if (changed.empty())
        return;
    const Change change = changeOf(launcher, changed);
    if (change.isAll)
        takeSiteFile(launcher);
    const bool isOfTemplates = !change.isAll && !change.isData && !change.isTexts;
    if ((!isOfTemplates && !prepare(launcher)) || !publish(launcher, change))
        tell("Cannot write in %s: %s", launcher.work.c_str(), strerror(errno));
    tell("Changed: %s%s", changed.begin()->c_str(), changed.size() > 1 ? " and others" : "");
    checkAgain(launcher);
}

static void takeReturn(Launcher &launcher)
{
    std::error_code ignored;
    if (!fs::is_directory(launcher.config.docRoot, ignored) || !watchAll(launcher.watch))
        return;
    launcher.isGone = false;
    prepare(launcher);
    publishAll(launcher);
    tell("The folder is back.");
    checkAgain(launcher);
}

// ---- The editor ----

// Whether an author's editor may be asked for a file: one that the preview shows or was given.
static bool isShownFile(const Launcher &launcher, const string &path)
{
    const auto &files = launcher.watch.files;
    return path.starts_with(launcher.config.docRoot + "/") ||
           std::find(files.begin(), files.end(), path) != files.end();
}

static void openPlace(const Launcher &launcher, const Json &order)
{
    std::error_code error;
    const string path =
        fs::canonical(fs::path(launcher.config.docRoot) / order.value("file", ""), error);
    if (error || !isShownFile(launcher, path))
        return;
    string problem;
    const auto words = editorWords(launcher.config.editor, path, order.value("line", 1),
                                   order.value("column", 1), &problem);
    if (words.empty() || startProgram(words, "/dev/null", "/dev/null") < 0)
        tell("The editor cannot be started: %s",
             problem.empty() ? strerror(errno) : problem.c_str());
}

// Takes the places that the pages have asked for. A line comes whole: it fits the pipe.
static void takeOrders(const Launcher &launcher)
{
    char bytes[8192];
    const ssize_t count = read(launcher.orders, bytes, sizeof bytes);
    string rest(bytes, count > 0 ? static_cast<size_t>(count) : 0);
    for (size_t end; (end = rest.find('\n')) != string::npos; rest.erase(0, end + 1)) {
        Json order;
        string problem;
        if (readJson(rest.substr(0, end), &order, &problem))
            openPlace(launcher, order);
    }
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
        pollfd waits[] = {{launcher.orders, POLLIN, 0},
                          {launcher.isGone ? -1 : launcher.watch.fd, POLLIN, 0}};
        ppoll(waits, 2, launcher.isGone ? &beforeLook : nullptr, &waiting);
        if (isToEnd)
            return ENDED;
        if (hasEnds) {
            hasEnds = 0;
            if (!takeEnds(launcher))
                return complain(WRONG_USAGE, "the web server has ended");
        }
        if (launcher.isGone)
            takeReturn(launcher);
        else if (waits[1].revents != 0)
            takeChanges(launcher);
        if (waits[0].revents != 0)
            takeOrders(launcher);
    }
}

int main(int argc, char **argv)
{
    std::set_new_handler([] { _exit(complain(WRONG_USAGE, "out of memory")); });
    signal(SIGPIPE, SIG_IGN);
    if (const char *work = getenv("ORV_PREVIEW_WORK"))
        return answerRequest(work);
    Launcher launcher;
    int status = readSettings(argc, argv, launcher.given);
    if (status >= 0)
        return status;
    if (!addSiteFile(launcher.given, launcher.settings, &launcher.siteProblem))
        return complain(WRONG_USAGE, "%s:%d: %s", launcher.siteProblem.file.c_str(),
                        launcher.siteProblem.line, launcher.siteProblem.text.c_str());
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
