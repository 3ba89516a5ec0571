/* bench/driver.cpp - times the pages and prints the table:
 *   bench_driver PROGRAMS SCRIPTS PAGES NAME...
 * PROGRAMS is the folder of the built engines, SCRIPTS that of the others, PAGES
 * what bench_pages made. A name is W1 to W6, or "start" for the library's start.
 *
 * An engine is a process (worker.h) that is told how many pages to write. Each
 * engine's page is compared with the expected one before it is timed. Then they
 * take turns: in every round each writes a batch of pages into /dev/null and one
 * into a pipe that another process drains. What is printed is the least of the
 * rounds, which are those of several processes of each engine: where the memory of
 * one comes to lie costs or saves its pages up to a tenth, and the next one's lies
 * elsewhere. The exit status is 1 when a page was wrong or an engine failed. */
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "worker.h"

using std::string;
using std::vector;

static constexpr int ROUNDS = 60;
static constexpr int LIVES = 5;                // processes of one engine that share the rounds
static constexpr int SLOW_ROUNDS = 7;          // of an engine that takes longer than
static constexpr double SLOW_SECONDS = 0.05;   // this for a page
static constexpr double BATCH_SECONDS = 0.003; // of one engine in one round
static constexpr int MAX_BATCH = 20000;
static constexpr int ANSWER_FD = 3;
static constexpr size_t SINKS = 2;

namespace
{
enum class Role { LIMIT, FLOOR, LIBRARY, GATHERED, PARSES, COMPILED };

// A row of the table. In command, @ stands for PROGRAMS and # for SCRIPTS.
struct Row {
    const char *label;
    Role role;
    const char *way;
    bool process; // also timed as a whole process
    vector<string> command;
};

// A process under the driver: an engine, or a launcher.
struct Worker {
    pid_t pid = -1;
    int commands = -1; // its standard input
    int answers = -1;  // its descriptor 3
};

// The rounds' results of one row.
struct Result {
    const Row *row;
    std::array<Worker, SINKS> workers = {};
    std::array<int, SINKS> batch = {};
    std::array<vector<double>, SINKS> seconds = {};
    vector<double> kilobytes = {};
    long writes = -1;

    double time(size_t sink) const;
    bool isSlow(size_t sink) const;
    double memory() const;
    double relative(const Result &other, size_t sink) const;
};
} // namespace

static string programs, scripts, pages;
static int sinks[SINKS];
static constexpr const char *sinkNames[SINKS] = {"/dev/null", "pipe"};
static bool failed;

static const vector<Row> &allRows()
{
    static const vector<Row> rows = {
        {"limit", Role::LIMIT, "plain", true, {"@/bench_limit"}},
        {"limit, and reads its mappings", Role::FLOOR, "touch", false, {"@/bench_limit"}},
        {"liborvinterpreter", Role::LIBRARY, "plain", true, {"@/bench_orv"}},
        {"liborvinterpreter, gathered", Role::GATHERED, "gathered", true, {"@/bench_orv"}},
        {"ctemplate", Role::PARSES, "parse", true, {"@/bench_ctemplate"}},
        {"ctemplate, compiled once", Role::COMPILED, "compiled", false, {"@/bench_ctemplate"}},
        {"mustache", Role::PARSES, "parse", true, {"@/bench_mustache"}},
        {"mustache, compiled once", Role::COMPILED, "compiled", false, {"@/bench_mustache"}},
        {"ClearSilver", Role::PARSES, "parse", true, {"@/bench_clearsilver"}},
        {"ClearSilver, compiled once", Role::COMPILED, "compiled", false, {"@/bench_clearsilver"}},
        {"Lua", Role::PARSES, "parse", true, {"lua5.4", "#/lua.lua"}},
        {"Lua, compiled once", Role::COMPILED, "compiled", false, {"lua5.4", "#/lua.lua"}},
        {"PHP", Role::PARSES, "plain", true, {"php", "#/php.php"}},
        {"PHP, output buffering", Role::PARSES, "buffered", true, {"php", "#/php.php"}},
        {"PHP, buffering and opcache",
         Role::COMPILED,
         "buffered",
         true,
         // without the last one a page that has just been made is compiled each time
         {"php", "-d", "opcache.enable_cli=1", "-d", "opcache.file_cache=@/opcache", "-d",
          "opcache.file_update_protection=0", "#/php.php"}},
        {"Jinja2", Role::PARSES, "parse", true, {"python3", "#/jinja.py"}},
        {"Jinja2, compiled once", Role::COMPILED, "compiled", false, {"python3", "#/jinja.py"}},
    };
    return rows;
}

// ---- Processes ----

[[noreturn]] static void stop(const string &what)
{
    fprintf(stderr, "bench: %s: %s\n", what.c_str(), strerror(errno));
    exit(2);
}

static double now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

static string readWhole(const string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

// Other programs on the machine only add to what is measured.
static double least(const vector<double> &values)
{
    return values.empty() ? 0 : *std::min_element(values.begin(), values.end());
}

double Result::time(size_t sink) const
{
    return least(seconds[sink]);
}
bool Result::isSlow(size_t sink) const
{
    return time(sink) >= SLOW_SECONDS;
}
double Result::memory() const
{
    return least(kilobytes);
}

double Result::relative(const Result &other, size_t sink) const
{
    return time(sink) / other.time(sink);
}

static string expand(const string &argument)
{
    string expanded;
    for (const char c : argument)
        expanded += c == '@' ? programs : c == '#' ? scripts : string(1, c);
    return expanded;
}

static bool isInstalled(const string &program)
{
    if (program.find('/') != string::npos)
        return access(program.c_str(), X_OK) == 0;
    std::istringstream path(getenv("PATH") ? getenv("PATH") : "");
    for (string folder; std::getline(path, folder, ':');)
        if (access((folder + "/" + program).c_str(), X_OK) == 0)
            return true;
    return false;
}

// Starts a program whose standard output is the sink.
static Worker start(const vector<string> &command, int sink)
{
    int commands[2];
    int answers[2];
    if (pipe2(commands, O_CLOEXEC) != 0 || pipe2(answers, O_CLOEXEC) != 0)
        stop("pipe");
    vector<char *> arguments;
    for (const string &argument : command)
        arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0)
        stop("fork");
    if (pid == 0) {
        signal(SIGPIPE, SIG_DFL);
        dup2(commands[0], STDIN_FILENO);
        dup2(sink, STDOUT_FILENO);
        if (dup2(answers[1], ANSWER_FD) == ANSWER_FD)
            fcntl(ANSWER_FD, F_SETFD, 0);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(commands[0]);
    close(answers[1]);
    return {pid, commands[1], answers[0]};
}

// Waits for the end. Returns the exit status, or -1 when a signal ended it.
static int finish(Worker &worker)
{
    char unread[256];
    close(worker.commands);
    while (read(worker.answers, unread, sizeof unread) > 0) {
    }
    close(worker.answers);
    int status = 0;
    waitpid(worker.pid, &status, 0);
    worker = {};
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Has the worker write that many pages. Returns the seconds, or -1 when it ended.
static double ask(const Worker &worker, int count)
{
    const string line = std::to_string(count) + "\n";
    char answer;
    const double begin = now();
    if (write(worker.commands, line.data(), line.size()) < 0 ||
        read(worker.answers, &answer, 1) != 1)
        return -1;
    return now() - begin;
}

// Write calls that a process has made; -1 where the kernel does not count them.
static long writeCalls(pid_t pid)
{
    std::ifstream counts("/proc/" + std::to_string(pid) + "/io");
    for (string line; std::getline(counts, line);)
        if (line.starts_with("syscw: "))
            return atol(line.c_str() + strlen("syscw: "));
    return -1;
}

// A pipe that another process drains. Returns its writing end.
static int makeDrain(pid_t *drain)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        stop("pipe");
    *drain = fork();
    if (*drain == 0) {
        static char bytes[1 << 16];
        close(ends[1]);
        while (read(ends[0], bytes, sizeof bytes) > 0) {
        }
        _exit(0);
    }
    close(ends[0]);
    return ends[1];
}

static vector<string> commandFor(const Row &row, const string &page)
{
    vector<string> command;
    for (const string &argument : row.command)
        command.push_back(expand(argument));
    command.insert(command.end(), {pages + "/" + page, row.way});
    return command;
}

static vector<string> launchCommand(const Row &row, const string &page, int times)
{
    vector<string> command = commandFor(row, page);
    if (command[0].find('/') == string::npos)
        command.insert(command.begin(), "/usr/bin/env");
    command.insert(command.begin(), {programs + "/bench_launch", std::to_string(times)});
    command.push_back("1");
    return command;
}

// ---- Is the page right? ----

static void leaveOut(const Row &row, const string &why)
{
    printf("  left out: %s (%s)\n", row.label, why.c_str());
}

// Takes a row out of the run when it could not write the page it had to.
static bool accept(const Row &row, int status, const string &got, const string &expected)
{
    if (status == NOT_AVAILABLE) {
        leaveOut(row, "not available here");
    } else if (status != 0) {
        leaveOut(row, "FAILED with status " + std::to_string(status));
        failed = true;
    } else if (got != expected) {
        const auto differ = std::mismatch(got.begin(), got.end(), expected.begin(), expected.end());
        leaveOut(row, "WRONG PAGE at byte " + std::to_string(differ.first - got.begin()) + " of " +
                          std::to_string(expected.size()));
        failed = true;
    } else {
        return true;
    }
    return false;
}

static int openScratch(const string &path)
{
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0)
        stop(path);
    return file;
}

// Two pages of a worker must be two times the expected one; the write calls of
// the second are counted.
static bool checkPages(Result &result, const string &page)
{
    const Row &row = *result.row;
    const string expected = readWhole(pages + "/" + page + "/expected.html");
    const string scratch = pages + "/got.html";
    const int file = openScratch(scratch);
    Worker worker = start(commandFor(row, page), file);
    ask(worker, 1);
    const long before = writeCalls(worker.pid);
    ask(worker, 1);
    if (before >= 0)
        result.writes = writeCalls(worker.pid) - before - 1; // its answer is one
    const int status = finish(worker);
    close(file);
    return accept(row, status, readWhole(scratch), expected + expected);
}

static bool checkProcess(const Row &row, const string &page)
{
    const string scratch = pages + "/got.html";
    const int file = openScratch(scratch);
    Worker worker = start(launchCommand(row, page, 1), file);
    const int status = finish(worker);
    close(file);
    return accept(row, status, readWhole(scratch),
                  readWhole(pages + "/" + page + "/expected.html"));
}

static vector<Result> chooseRows(const string &page, bool process)
{
    vector<Result> results;
    for (const Row &row : allRows()) {
        if (process && !row.process)
            continue;
        if (!isInstalled(expand(row.command[0]))) {
            leaveOut(row, "not installed");
            continue;
        }
        Result result = {&row};
        if (process ? checkProcess(row, page) : checkPages(result, page))
            results.push_back(std::move(result));
    }
    return results;
}

// ---- Timing ----

// Starts a worker for each sink, and takes it so far that its next batch may be timed.
static void startWorkers(Result &result, const string &page)
{
    for (size_t sink = 0; sink < SINKS; ++sink) {
        const Worker worker = start(commandFor(*result.row, page), sinks[sink]);
        ask(worker, 1);
        const double one = ask(worker, 1);
        result.batch[sink] = std::clamp(static_cast<int>(BATCH_SECONDS / one), 1, MAX_BATCH);
        ask(worker, result.batch[sink]);
        result.workers[sink] = worker;
    }
}

static void timeRound(vector<Result *> &results)
{
    for (size_t sink = 0; sink < SINKS; ++sink)
        for (Result *result : results)
            result->seconds[sink].push_back(ask(result->workers[sink], result->batch[sink]) /
                                            result->batch[sink]);
}

// Slow engines have one life, and fewer rounds in it.
static void timePages(vector<Result> &results, const string &page)
{
    for (int life = 0; life < LIVES; ++life) {
        vector<Result *> living;
        for (Result &result : results)
            if (life == 0 || !result.isSlow(0))
                living.push_back(&result);
        for (Result *result : living)
            startWorkers(*result, page);
        vector<Result *> timed = living;
        for (int round = 0; round < ROUNDS / LIVES; ++round) {
            if (round == SLOW_ROUNDS)
                std::erase_if(timed, [](const Result *result) { return result->isSlow(0); });
            timeRound(timed);
        }
        for (Result *result : living)
            for (Worker &worker : result->workers)
                failed |= finish(worker) != 0;
    }
}

// One round of launches: every time and every peak.
static void launch(const vector<string> &command, int sink, vector<double> &seconds,
                   vector<double> &kilobytes)
{
    Worker worker = start(command, sink);
    FILE *answers = fdopen(dup(worker.answers), "r");
    double nanoseconds;
    double peak;
    while (fscanf(answers, "%lf %lf %*d", &nanoseconds, &peak) == 2) {
        seconds.push_back(nanoseconds / 1e9);
        kilobytes.push_back(peak);
    }
    fclose(answers);
    failed |= finish(worker) != 0;
}

static void timeProcesses(vector<Result> &results, const string &page)
{
    for (int round = 0; round < ROUNDS; ++round)
        for (size_t sink = 0; sink < SINKS; ++sink)
            for (Result &result : results)
                if (round < SLOW_ROUNDS || !result.isSlow(sink))
                    launch(launchCommand(*result.row, page, 1), sinks[sink], result.seconds[sink],
                           result.kilobytes);
}

// ---- The table ----

static const Result *find(const vector<Result> &results, Role role)
{
    const auto found = std::find_if(results.begin(), results.end(),
                                    [&](const Result &result) { return result.row->role == role; });
    return found == results.end() ? nullptr : &*found;
}

static void printTable(const vector<Result> &results, bool process)
{
    const Result *limit = find(results, Role::LIMIT);
    printf("  %-30s %12s %8s %12s %8s %10s\n", "", sinkNames[0], "limit", sinkNames[1], "limit",
           process ? "peak" : "writes");
    for (const Result &result : results) {
        printf("  %-30s", result.row->label);
        for (size_t sink = 0; sink < SINKS; ++sink) {
            printf(" %9.1f us", result.time(sink) * 1e6);
            if (limit)
                printf(" %7.2fx", result.relative(*limit, sink));
        }
        if (process)
            printf(" %6.0f KiB\n", result.memory());
        else
            printf(" %10ld\n", result.writes);
    }
}

// ---- What the library must reach ----

static void verdict(const string &what, double got, double most)
{
    printf("  %s %s: %.2f of at most %.2f\n", got <= most ? "reached" : "MISSED ", what.c_str(),
           got, most);
}

// The other engine with the least time into the sink; null without any.
static const Result *fastest(const vector<Result> &results, size_t sink, bool alsoCompiled)
{
    const Result *best = nullptr;
    for (const Result &result : results) {
        const Role role = result.row->role;
        if (role != Role::PARSES && !(alsoCompiled && role == Role::COMPILED))
            continue;
        if (!best || result.time(sink) < best->time(sink))
            best = &result;
    }
    return best;
}

static void compare(const string &what, const Result &ours, const Result *other, size_t sink,
                    double most)
{
    if (other)
        verdict(what + sinkNames[sink] + ", to " + other->row->label, ours.relative(*other, sink),
                most);
}

static void comparePeaks(const vector<Result> &results, const Result &ours)
{
    vector<double> others;
    for (const Result &result : results)
        if (result.row->role == Role::PARSES)
            others.push_back(result.memory());
    if (!others.empty())
        verdict("peak memory, to the least other", ours.memory() / least(others), 1);
}

static void printVerdicts(const vector<Result> &results, const string &page)
{
    const Result *limit = find(results, Role::LIMIT);
    const Result *ours = find(results, Role::LIBRARY);
    const Result *gathered = find(results, Role::GATHERED);
    if (!limit || !ours)
        return;
    if (page != "W6")
        verdict("write calls, to limit",
                static_cast<double>(ours->writes) / static_cast<double>(limit->writes), 1);
    for (size_t sink = 0; sink < SINKS; ++sink) {
        if (page == "W2" || page == "W3" || (page == "W1" && sink == 1))
            compare("", *ours, limit, sink, 1.25);
        if (page == "W5")
            compare("", *ours, limit, sink, 1.4);
        if (page == "W4")
            compare("", *ours, fastest(results, sink, false), sink, 0.25);
        if (page == "W6")
            compare("", *ours, fastest(results, sink, true), sink, 1);
        if (gathered && (page == "W2" || page == "W5"))
            compare("gathered, ", *gathered, fastest(results, sink, false), sink, 1);
    }
    if (page == "W6")
        comparePeaks(results, *ours);
}

// A program that does nothing, alone, with the library, and with a library in
// which there is nothing: the least that any shared library costs.
static void timeStart()
{
    static constexpr const char *programNames[] = {"/bench_empty", "/bench_second", "/bench_start"};
    static constexpr const char *labels[] = {"an empty program", "with an empty library",
                                             "with liborvinterpreter"};
    vector<double> seconds[std::size(labels)];
    vector<double> ignored;
    for (int round = 0; round < ROUNDS * 2; ++round)
        for (size_t i = 0; i < std::size(labels); ++i)
            launch({programs + "/bench_launch", "10", programs + programNames[i]}, sinks[0],
                   seconds[i], ignored);
    printf("start  from exec to exit\n");
    for (size_t i = 0; i < std::size(labels); ++i)
        printf("  %-30s %9.1f us %7.2fx\n", labels[i], least(seconds[i]) * 1e6,
               least(seconds[i]) / least(seconds[0]));
    verdict("start, to an empty program", least(seconds[2]) / least(seconds[0]), 1.1);
}

static void benchPage(const string &page, const char *title)
{
    const bool process = page == "W6";
    printf("%s  %s\n", page.c_str(), title);
    vector<Result> results = chooseRows(page, process);
    if (process)
        timeProcesses(results, page);
    else
        timePages(results, page);
    printTable(results, process);
    printVerdicts(results, page);
    printf("\n");
    fflush(stdout);
}

static bool bench(const string &name)
{
    static constexpr struct {
        const char *name;
        const char *title;
    } known[] = {
        {"W1", "200 KB of page text, no command"},
        {"W2", "a table of 1000 rows by 5 columns from one query, a condition in every row"},
        {"W3", "15 includes"},
        {"W4", "500 text fields from a database of 5000"},
        {"W5", "2000 variables read, 500 conditions"},
        {"W6", "a whole process from exec to exit, 8 KB with a bit of everything"},
    };
    if (name == "start") {
        timeStart();
        return true;
    }
    for (const auto &page : known) {
        if (name == page.name) {
            benchPage(page.name, page.title);
            return true;
        }
    }
    return false;
}

int main(int argc, char **argv)
{
    if (argc < 5) {
        fputs("usage: bench_driver PROGRAMS SCRIPTS PAGES NAME...\n", stderr);
        return 2;
    }
    programs = argv[1];
    scripts = argv[2];
    pages = argv[3];
    signal(SIGPIPE, SIG_IGN);
    pid_t drain;
    sinks[0] = open("/dev/null", O_WRONLY | O_CLOEXEC);
    sinks[1] = makeDrain(&drain);
    for (int i = 4; i < argc; ++i) {
        if (!bench(argv[i])) {
            fprintf(stderr, "bench: no page is called '%s'\n", argv[i]);
            failed = true;
        }
    }
    close(sinks[1]);
    waitpid(drain, nullptr, 0);
    return failed ? 1 : 0;
}
