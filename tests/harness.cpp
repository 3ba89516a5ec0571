/* tests/harness.cpp - a web program for the tests. */
#include "tests/harness.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "exec/exec.h"
#include "base/log.h"
#include "base/process.h"
#include "textdb/language.h"

static Host *current;
static std::vector<std::string> pieces;
Writes writes;
void (*afterRender)(const Host &, const std::string &, const Outcome &);
int32_t gatheredBytes;

extern "C" ssize_t write(int fd, const void *data, size_t size)
{
    if (fd != PAGE_FD)
        return syscall(SYS_write, fd, data, size);
    if (!writes.failures.empty()) {
        const int failure = writes.failures.front();
        writes.failures.erase(writes.failures.begin());
        if (failure != WRITES_NOTHING)
            errno = failure;
        if (failure != 0)
            return failure == WRITES_NOTHING ? 0 : -1;
    }
    if (writes.most > 0)
        size = std::min(size, writes.most);
    pieces.emplace_back(static_cast<const char *>(data), size);
    return static_cast<ssize_t>(size);
}

static int32_t openFile(Interpreter *, const char *path)
{
    current->calls.push_back(std::string("open ") + path);
    return current->onOpen ? current->onOpen(path) : open(path, O_RDONLY);
}

static QueryRow *makeRows(const Rows &rows)
{
    QueryRow *last = nullptr;
    for (const auto &columns : rows) {
        auto *row = static_cast<QueryRow *>(calloc(1, sizeof(QueryRow)));
        for (const auto &column : columns)
            row->cols[row->count++] = strdup(column.c_str());
        row->prev = last;
        if (last)
            last->next = row;
        last = row;
    }
    return last;
}

static QueryRow *kept; // of the latest query, when they stay the host's

static int32_t answer(Interpreter *interpreter, int32_t mode, const char *query, QueryRow **rows,
                      int32_t *owned)
{
    current->calls.push_back("query " + std::to_string(mode) + " " + query);
    if (current->onQuery)
        current->onQuery(interpreter, query);
    const auto found = current->rows.find(query);
    if (found != current->rows.end()) {
        *rows = makeRows(found->second);
        *owned = current->handOver;
        if (!current->handOver) {
            freeQueryRows(&kept);
            kept = *rows;
        }
    }
    return strcmp(query, "fail") == 0 ? -5 : 0;
}

static int32_t reportError(Interpreter *, const char **message)
{
    current->calls.push_back("error");
    if (current->error.empty())
        return 0;
    *message = current->error.c_str();
    return 1;
}

static int32_t takePiece(Interpreter *interpreter, const char *bytes, size_t length)
{
    current->onWrite(interpreter);
    return static_cast<int32_t>(write(PAGE_FD, bytes, length));
}

const InterpreterCallbacks hostCallbacks = {openFile, answer, reportError};

void useHost(Host *host)
{
    current = host;
    for (const auto &[name, content] : host->files)
        writeFile(name, content);
}

int logTarget()
{
    static const int fd = memfd_create("log", MFD_CLOEXEC);
    return fd;
}

static std::array<int32_t, ORV_LOG_SEVERITIES> counted()
{
    return {Orv_Interpreter_LogCount(ORV_LOG_NOTICE), Orv_Interpreter_LogCount(ORV_LOG_WARNING),
            Orv_Interpreter_LogCount(ORV_LOG_ERROR)};
}
static auto expectedCounts = counted();
static bool logIsOurs;

static size_t severityOf(const std::string &message)
{
    for (const char *word : {"ERROR", "Syntax error", "Syntaxerror"})
        if (message.find(word) != std::string::npos)
            return ORV_LOG_ERROR;
    for (const char *word : {"WARNING", "Warning", "Invalid numVar"})
        if (message.find(word) != std::string::npos)
            return ORV_LOG_WARNING;
    return ORV_LOG_NOTICE;
}

void startLog()
{
    EXPECT_EQ(ftruncate(logTarget(), 0), 0);
    lseek(logTarget(), 0, SEEK_SET);
    logIsOurs = Orv_Interpreter_SetLog(logTarget()) == 0;
    expectedCounts = counted();
}

std::string takeLog()
{
    std::string log(static_cast<size_t>(lseek(logTarget(), 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(logTarget(), log.data(), log.size(), 0), static_cast<ssize_t>(log.size()));
    EXPECT_EQ(ftruncate(logTarget(), 0), 0);
    lseek(logTarget(), 0, SEEK_SET);
    std::istringstream messages(log);
    for (std::string line; std::getline(messages, line);)
        ++expectedCounts[severityOf(line)];
    if (logIsOurs && logfileBuf) {
        EXPECT_EQ(counted(), expectedCounts) << log;
        expectedCounts = counted();
    }
    return log;
}

std::string withoutLines(const std::string &text, bool (*isUnwanted)(const std::string &line))
{
    std::string rest;
    for (size_t at = 0, end; at < text.size(); at = end) {
        end = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::string line = text.substr(at, end - at);
        if (!isUnwanted(line.substr(0, line.find('\n'))))
            rest += line;
    }
    return rest;
}

Outcome runHandle(Interpreter *interpreter, const std::string &path)
{
    pieces.clear();
    Outcome outcome = {};
    const bool toFunction = static_cast<bool>(current->onWrite);
    EXPECT_EQ(Orv_Interpreter_SetOutput(interpreter, toFunction ? takePiece : nullptr), 0);
    outcome.result = Orv_Interpreter_Run(interpreter, path.c_str(), toFunction ? -1 : PAGE_FD);
    outcome.pieces = pieces;
    for (const auto &piece : pieces)
        outcome.page += piece;
    outcome.log = withoutLines(takeLog(), [](const std::string &line) {
        return line.ends_with(" HTML-Text-Fields parsed") ||
               (line.find(", query ") != std::string::npos &&
                line.find(": Real Time ") != std::string::npos);
    });
    return outcome;
}

Outcome render(Host &host, const std::string &path)
{
    useHost(&host);
    Interpreter *interpreter = Orv_Interpreter_Create(&hostCallbacks);
    for (const auto &[name, value] : host.variables)
        Orv_Interpreter_SetVariable(interpreter, name.c_str(), value.c_str());
    startLog();
    if (!host.isLogged) {
        EXPECT_EQ(Orv_Interpreter_SetLog(-1), ORV_OK);
    }
    EXPECT_EQ(Orv_Interpreter_SetOutputBuffer(interpreter, gatheredBytes), 0);
    const size_t descriptors = openDescriptors();
    const size_t mapped = mappedFiles();
    const Outcome outcome = runHandle(interpreter, path);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(mappedFiles(), mapped);
    Orv_Interpreter_Destroy(interpreter);
    freeQueryRows(&kept);
    if (afterRender)
        afterRender(host, path, outcome);
    return outcome;
}

Outcome renderText(const std::string &text)
{
    Host host;
    host.files = {{"t.htm", text}};
    return render(host);
}

size_t openDescriptors(bool databases)
{
    size_t count = 0;
    std::error_code closed;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string target = std::filesystem::read_symlink(entry, closed);
        count += databases || target.find(".db") == std::string::npos;
    }
    return count;
}

size_t mappedFiles(bool databases)
{
    size_t count = 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        count += line.find(folder) != std::string::npos &&
                 (databases || line.find(".db") == std::string::npos);
    return count;
}

void forgetTexts()
{
    for (TextDatabase *db : {&htmlDB, &htmlFallbackDB}) {
        unloadMmapTree(db->path, db->fd, &db->image);
        *db = {};
    }
}

std::string difference(const std::string &expected, const std::string &got)
{
    if (expected == got)
        return "";
    const auto same = std::mismatch(expected.begin(), expected.end(), got.begin(), got.end());
    const size_t at = static_cast<size_t>(same.first - expected.begin());
    const size_t line = expected.rfind('\n', at - (at > 0)) + 1;
    const size_t from = at - std::min<size_t>(at - std::min(line, at), 40);
    const auto cut = [&](const std::string &text) {
        const size_t end = std::min({text.find('\n', at), text.size() - 1, at + 60});
        return testing::PrintToString(text.substr(from, end + 1 - from));
    };
    return "differs at byte " + std::to_string(at) + ", expected " + cut(expected) + ", got " +
           cut(got);
}

namespace
{
// What the library opens by a fixed path is looked for below the folder.
struct Device : testing::Environment {
    void SetUp() override
    {
        static const std::string root = folder + "/device";
        systemRoot = root.c_str();
    }
};
} // namespace
static const testing::Environment *device = testing::AddGlobalTestEnvironment(new Device);
