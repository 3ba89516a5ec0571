/* tests/fault_test.cpp - what becomes of a page when memory, files and descriptors
 * fail, at the limits, and with damaged databases.
 *
 * The library under test is linked so that its calls come to the __wrap_ functions
 * here. A sweep lets the 1st, 2nd, 3rd ... call fail until a handle's life meets no
 * failure. Each step has a process of its own, whose scanner begins without buffers
 * and which the scanner may end. */
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "grammar/records.h"
#include "interface/process.h"
#include "scanner/input.h"
#include "tests/harness.h"
#include "tools/textdb_file.h"
#include "vars/tree.h"

namespace
{
// Calls of one kind: the one numbered first fails, and with onward all behind it.
struct Calls {
    long first = 0;
    bool onward = false;
    long count = 0;

    bool fail()
    {
        ++count;
        errno = ENOMEM;
        return first > 0 && (onward ? count >= first : count == first);
    }
};
} // namespace

static Calls memoryCalls;
static Calls fileCalls;
static std::set<void *> blocks;  // that the library holds
static bool mapOnHeap;           // so that a sanitizer sees each read outside

template <class T> static T *keep(T *block)
{
    blocks.insert(block);
    return block;
}

#define WRAP(calls, result, name, parameters, failure, ...)                                        \
    result __wrap_##name parameters                                                                \
    {                                                                                              \
        return calls.fail() ? failure : __VA_ARGS__;                                               \
    }

extern "C" {
WRAP(memoryCalls, void *, malloc, (size_t size), nullptr, keep(malloc(size)))
WRAP(memoryCalls, void *, calloc, (size_t n, size_t size), nullptr, keep(calloc(n, size)))
WRAP(memoryCalls, void *, realloc, (void *block, size_t size), nullptr,
     (blocks.erase(block), keep(realloc(block, size))))
WRAP(memoryCalls, char *, strdup, (const char *text), nullptr, keep(strdup(text)))
WRAP(memoryCalls, char *, strndup, (const char *text, size_t n), nullptr, keep(strndup(text, n)))
WRAP(fileCalls, int, open64, (const char *path, int flags, ...), -1, open(path, flags, 0644))
WRAP(fileCalls, FILE *, fopen64, (const char *path, const char *mode), nullptr, fopen(path, mode))
WRAP(fileCalls, int, stat64, (const char *path, struct stat *status), -1, stat(path, status))
WRAP(fileCalls, int, fstat64, (int fd, struct stat *status), -1, fstat(fd, status))
WRAP(fileCalls, char *, realpath, (const char *path, char *to), nullptr, realpath(path, to))

void __wrap_free(void *block)
{
    blocks.erase(block);
    free(block);
}

void *__wrap_mmap64(void *at, size_t length, int protection, int flags, int fd, off_t offset)
{
    if (fileCalls.fail())
        return MAP_FAILED;
    if (!mapOnHeap || length == 0)
        return mmap(at, length, protection, flags, fd, offset);
    void *copy = malloc(length);
    EXPECT_EQ(pread(fd, copy, length, offset), static_cast<ssize_t>(length));
    return copy;
}

int __wrap_munmap(void *at, size_t length)
{
    if (!mapOnHeap)
        return munmap(at, length);
    free(at);
    return 0;
}
}

static std::string contents(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

static std::string database(const std::map<std::string, std::string> &texts)
{
    std::vector<TextEntry> entries;
    for (const auto &[id, text] : texts)
        entries.push_back({id, text, 0});
    std::string file;
    size_t culprit;
    EXPECT_EQ(buildTextDb(entries, &file, &culprit), nullptr);
    return file;
}

static void useTexts(const std::map<std::string, std::string> &texts)
{
    writeFile(folder + "/root/etc/htmltext_en.db", database(texts));
    ASSERT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
}

// Gives back what outlives handles, but for the scanner's buffers.
static void forgetTexts()
{
    unloadMmapTree(htmlDB.path, htmlDB.fd, &htmlDB.image);
    unloadMmapTree(htmlFallbackDB.path, htmlFallbackDB.fd, &htmlFallbackDB.image);
    htmlDB = htmlFallbackDB = {};
    Orv_Interpreter_SetLog(-1);
}

// Descriptors and mappings, those of databases included.
static std::pair<long, long> held()
{
    std::ifstream maps("/proc/self/maps");
    long mapped = 0;
    for (std::string line; std::getline(maps, line);)
        mapped += line.find(folder) != std::string::npos;
    return {std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}), mapped};
}

// ---- sweeps ----

// Every command, array, kind of query, text field, include and many messages.
static const Texts busyFiles = {
    {"t.htm",
     "<html>{?hi?}{?gone?}{?old?}<?-- c ?><?setvariable var:l[5] five?>"
     "<?setvariable var:l[12] twelve?><?setvariableonce var:l[x] ex?><?setvariable var:ab 1?>"
     "<?setvariable var:abc '<2>'?><?setvariable var:a 3?><?setvariable var:ab 4?>"
     "<?setvariableonce var:abd $var:none[$var:a]?><?setvariable var:kilo '{?kilo?}'?>"
     "<?echo $var:abc$var:l[min]$var:l[max]$var:l[<?calc + 2 3?>]?><?echo $var:l[]?>"
     "<?print \"$var:cgi $var:cgi[1]$$\"?><?printjs `it's`?><?calc * 2 x?><?calc / 3 2?>"
     "<?calc - 3 2?><?if neq 1 2 yes no?><?gt 2 1?><?gte 1 2?><?lt a b?><?lte 1 1?><?and 1 0?>"
     "<?or 1 0?><?if eq 1 ?>text<?multiquery two '$0$1<?echo $2?>,'?><?query kept?>"
     "<?multiqueryjs kept $2?><?querytext two?><?queryjs two $2?><?multiquerytext two $1?>"
     "<?multiquerycount two?><?query fail?><?query q?><?error found ?><?error message ?>"
     "<?repeat [ 1 2 ] '$0<?include a.htm?>;'?><?repeat ] 1 2 [ x?><?include b.htm?><?foo x?>"
     "<?include none.htm?><?base64 b.bin?><?setvariable var:lang de?><?include b.htm?>" +
         repeated("<?print ", 205) + "x y" + repeated("?>", 205) + "end"},
    {"a.htm", "({?long?}<?echo '$var:late<?include b.htm?>'?>)"},
    {"b.htm", "b<?echo $var:cgi?>{?hi?}"},
    {"b.bin", std::string(400, 'b')}};

static std::string pageOfLife;

// A handle from creation to destruction, with one run. A log is open, and creation
// opens another one on a full disk.
static Outcome live()
{
    Orv_Interpreter_SetLog(logTarget());
    Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
    if (!handle)
        return {0, "", {}, takeLog()};
    Orv_Interpreter_SetLog(logTarget());
    Orv_Interpreter_SetOutputBuffer(handle, 64);
    for (const char *name : {"cgi", "cgi[1]", "cgi[2]", "lang"}) {
        const char *value = strcmp(name, "lang") == 0 ? "en" : "<v";
        const int32_t result = Orv_Interpreter_SetVariable(handle, name, value);
        EXPECT_TRUE(result == 0 || result == (strchr(name, '[') ? -1 : -2)) << result;
    }
    Outcome outcome = runHandle(handle);
    const bool gaveUp = outcome.log.find("with Bison!") != std::string::npos;
    EXPECT_TRUE(gaveUp ? outcome.result == ORV_RUN_GAVE_UP
                       : outcome.result == ORV_RUN_DONE || outcome.result == ORV_RUN_NO_TEMPLATE);
    EXPECT_EQ(inpr, nullptr);
    Orv_Interpreter_LookupDBField("hi");
    takeLog();
    Orv_Interpreter_Destroy(handle);
    return outcome;
}

// One life with trouble from begin to end, and one behind it without.
static void liveTwice(const std::function<void()> &begin, const std::function<void()> &end)
{
    const auto before = held();
    begin();
    const Outcome troubled = live();
    end();
    forgetTexts();
    EXPECT_EQ(held(), before);
    std::ofstream("seen", std::ios::app) << troubled.log;
    const Outcome clean = live();
    EXPECT_EQ(clean.result, ORV_RUN_DONE);
    forgetTexts();
    EXPECT_EQ(held(), before);
    EXPECT_EQ(blocks.size(), 3U);  // the scanner's: buffer, its bytes, conditions
    if (pageOfLife.empty())
        writeFile("page", clean.page);
    else
        EXPECT_EQ(clean.page, pageOfLife);
}

// Runs a step in a process of its own, which the scanner may end.
static void inChild(long number, const std::function<void()> &step)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(open("errors", O_RDWR | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
        step();
        fflush(nullptr);
        _exit(testing::Test::HasFailure());
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    EXPECT_TRUE(code == 0 || code == 2) << "step " << number;
    EXPECT_EQ(contents("errors"), code == 2 ? "zarn - scanner: out of memory\n" : "");
}

// Repeats lives with the trouble of step 1, 2, 3 ... until end tells that it met
// none. Returns how many steps it took.
static long sweep(const std::function<void(long)> &begin, const std::function<bool(long)> &end)
{
    Host host;
    host.files = busyFiles;
    host.rows = {{"two", {{"<x>", "1"}, {"y", "2"}}}, {"kept", {{"k", "'"}, {"", "kk"}}}};
    host.error = "<E>";
    host.onQuery = [&](Interpreter *handle, const std::string &query) {
        host.handOver = query != "kept";
        Orv_Interpreter_SetVariable(handle, "late", "l");
        Orv_Interpreter_SetVariable(handle, "late[7]", "8");
    };
    useHost(&host);
    const std::string etc = folder + "/root/etc/htmltext";
    writeFile(etc + "_en.db", database({{"hi", "hello"}, {"kilo", std::string(1500, 'k')},
                                        {"long", std::string(9000, '.')}}));
    writeFile(etc + "_de.db", database({{"hi", "hallo"}}));
    writeFile(etc + ".db", database({{"old", "fallback"}}));
    writeFile(folder + "/root/proc/cmdline", "tooltip=0");
    writeFile(folder + "/root/var/log/none", "");
    std::filesystem::remove("root/var/log/zarn_interpreter.log");
    symlink("/dev/full", "root/var/log/zarn_interpreter.log");
    logTarget();
    writeFile("seen", "");
    pageOfLife.clear();
    inChild(0, [] { liveTwice([] {}, [] {}); });
    pageOfLife = contents("page");
    EXPECT_TRUE(pageOfLife.starts_with("<html>hellofallback&lt;2&gt;512five<v <v$it"));
    EXPECT_TRUE(pageOfLife.ends_with("iYg==b&lt;vhalloend"));
    long step = 0;
    const auto endStep = [&] {
        if (end(step))
            writeFile("done", "");
    };
    while (!std::filesystem::remove("done") && !testing::Test::HasFailure()) {
        ++step;
        inChild(step, [&] { liveTwice([&] { begin(step); }, endStep); });
    }
    unlink("root/proc/cmdline");
    return step;
}

static long sweepCalls(Calls *calls, bool onward)
{
    return sweep([&](long step) { *calls = {step, onward, 0}; },
                 [&](long step) {
                     calls->first = 0;
                     return calls->count < step;
                 });
}

TEST(Faults, AnyAllocationMayFail)
{
    EXPECT_GT(sweepCalls(&memoryCalls, false), 300);
    const std::string seen = contents("seen");
    for (const char *message :
         {"ERROR in Orv_Interpreter_Create: NO MEMORY!\n",
          "ERROR in Orv_Interpreter_SetVariable: NO MEMORY!\n",
          "ERROR in dataToToken: NO MEMORY! (t.htm)\n", "ERROR in addArgElem: NO MEMORY! (a.htm)\n",
          "ERROR in createCmd: NO MEMORY! (b.htm)\n", "ERROR in doInclude: NO MEMORY! (t.htm)\n",
          "ERROR in getRepeatUpBound: NO MEMORY or missing repeat boundary. (t.htm)\n",
          "ERROR in pushStr: NO MEMORY while allocating 1024 Bytes. (t.htm)\n",
          "ERROR in pushStr: NO MEMORY while allocating 2048 Bytes. (t.htm)\n",
          "ERROR in pushStr: NO MEMORY while parsing t.htm with Bison!\n",
          "ERROR in doQuery: NO MEMORY (t.htm)\n", "ERROR in doInclude: NO MEMORY! (a.htm)\n",
          "ERROR in readInput: NO MEMORY! (a.htm)\n", "Syntaxerror: NO MEMORY! (t.htm)\n"})
        EXPECT_NE(seen.find(std::string("zarn - ") + message), std::string::npos) << message;
}

TEST(Faults, AllAllocationsMayFailFromOneOn)
{
    EXPECT_GT(sweepCalls(&memoryCalls, true), 300);
}

TEST(Faults, AnyFileMayFail)
{
    EXPECT_GT(sweepCalls(&fileCalls, false), 20);
    EXPECT_GT(sweepCalls(&fileCalls, true), 20);
}

TEST(Faults, DescriptorsMayRunOut)
{
    rlimit usual;
    getrlimit(RLIMIT_NOFILE, &usual);
    sweep(
        [&](long step) {
            const int next = dup(0);
            close(next);
            const rlimit few = {static_cast<rlim_t>(next + step - 1), usual.rlim_max};
            EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        },
        [&](long step) {
            setrlimit(RLIMIT_NOFILE, &usual);
            return step == 15;
        });
}

static std::string dump(const VarNode *node)
{
    std::string text;
    for (; node; node = node->nextSibling)
        text += std::string(node->label ? node->label : "") + "=" +
                (node->hasValue ? node->value : "-") + "{" + dump(node->firstChild) + "}";
    return text;
}

TEST(Faults, ATreeStaysAsItWas)
{
    std::mt19937 random(3);
    VarNode *root = nullptr;
    for (int i = 0; i < 1000; ++i) {
        std::string key(1 + random() % 5, ' ');
        for (char &c : key)
            c = "ab1"[random() % 3];
        const std::string value = std::to_string(i);
        const bool element = random() % 3 == 0;
        bool met = true;
        for (long step = 1; met; ++step) {
            const std::string before = dump(root);
            memoryCalls = {step, random() % 2 == 0, 0};
            const VarNode *node = element ? insertArray(&root, "l[", key.c_str(), value.c_str(), 1)
                                          : insertVar(&root, key.c_str(), value.c_str(), 1);
            met = memoryCalls.count >= step;
            memoryCalls.first = 0;
            if (!node)
                EXPECT_EQ(dump(root), before);
            else  // an element is stored even if a bound of its array is not
                EXPECT_TRUE(node->value == value && (element || !met));
        }
    }
    destroyTree(&root);
    EXPECT_TRUE(blocks.empty());
}

// ---- real causes ----

// A run of t.htm with a handle of its own.
static Outcome runOnce(const InterpreterCallbacks &callbacks)
{
    Host host;
    useHost(&host);
    Interpreter *handle = Orv_Interpreter_Create(&callbacks);
    Orv_Interpreter_SetLog(logTarget());
    takeLog();
    const auto before = held();
    const Outcome outcome = runHandle(handle);
    EXPECT_EQ(held(), before);
    Orv_Interpreter_Destroy(handle);
    return outcome;
}

namespace
{
// What happens to a template between its opening and its mapping.
struct Change {
    const char *path;
    int flags;
    void (*change)();
    const char *text;  // that comes of it
    const char *error;
};

void replace(const char *path, const char *text)
{
    writeFile("new", text);
    rename("new", path);
}

const Change changes[] = {
    {"/dev/null", O_RDONLY, [] {}, "", "Invalid argument"},
    {"fifo", O_RDONLY | O_NONBLOCK, [] {}, "", "Invalid argument"},
    {".", O_RDONLY, [] {}, "", "No such device"},
    {"b.htm", O_WRONLY, [] {}, "", "Permission denied"},
    {"b.htm", O_RDONLY, [] { unlink("b.htm"); }, "", "No such file or directory"},
    {"b.htm", O_RDONLY, [] { writeFile("b.htm", ""); }, "", "Invalid argument"},
    {"b.htm", O_RDONLY, [] { writeFile("b.htm", "01"); }, "01", nullptr},
    {"b.htm", O_RDONLY, [] { writeFile("b.htm", "0123456"); }, "0123456", nullptr},
    {"b.htm", O_RDONLY, [] { replace("b.htm", "larger"); }, "0123", nullptr},
    {"b.htm", O_RDONLY, [] { replace("b.htm", "no"); }, "01", nullptr},
    {"b.htm", O_RDONLY, [] { replace("t.htm", "no"); }, "0123", nullptr},
};
const Change *change;
} // namespace

TEST(Faults, TemplatesChangeUnderTheRun)
{
    mkfifo("fifo", 0644);
    InterpreterCallbacks callbacks = hostCallbacks;
    callbacks.fOpen = [](Interpreter *, const char *path) {
        const bool outer = strcmp(path, "t.htm") == 0;
        const int fd = open(path, outer ? O_RDONLY : change->flags);
        if (!outer)
            change->change();
        return fd;
    };
    for (const Change &row : changes) {
        change = &row;
        writeFile("t.htm", std::string("a<?include '") + row.path + "'?>c");
        writeFile("b.htm", "0123");
        const Outcome got = runOnce(callbacks);
        EXPECT_EQ(got.page, std::string("a") + row.text + "c");
        EXPECT_EQ(got.log, row.error ? std::string("ERROR: mmap() on file ") + row.path +
                                           " failed with error '" + row.error +
                                           "' => No parsing...\n"
                                     : "");
    }
}

TEST(Faults, AFailedWriteLosesTheRestOfItsPiece)
{
    Host host;
    host.files = {{"t.htm", "one<?echo '<two> & \"'?>three<?repeat [ 1 5 ] '$0, '?>\nend."}};
    const Outcome whole = render(host);
    for (const int32_t gathered : {0, 5, 64})
        for (size_t most = 0; most < 4; ++most)
            for (size_t step = 0, failed = 1; failed; ++step) {
                writes = {most, std::vector<int>(step + 1, 0)};
                writes.failures.front() = EINTR;
                writes.failures.push_back(step % 2 ? EPIPE : ENOSPC);
                gatheredBytes = gathered;
                const Outcome got = render(host);
                failed = writes.failures.empty();
                bool explained = !failed && got.page == whole.page;
                size_t end = 0;
                for (const std::string &piece : whole.pieces) {
                    end += piece.size();
                    for (size_t cut = end - piece.size(); failed && cut < end; ++cut)
                        explained |= got.page == whole.page.substr(0, cut) + whole.page.substr(end);
                }
                EXPECT_TRUE(explained && got.result == ORV_RUN_DONE) << got.page;
            }
    writes = {};
    gatheredBytes = 0;
}

// ---- limits ----

TEST(Limits, TextsOfAnyLength)
{
    std::map<std::string, std::string> texts = {{std::string(128, 'i'), "the longest id"}};
    for (const size_t size : {0U, 1U, 8190U, 8191U, 8192U, 8193U, 16383U, 16384U, 16385U, 100000U})
        for (std::string &text = texts["s" + std::to_string(size)]; text.size() < size;)
            text += static_cast<char>('a' + text.size() % 23);
    useTexts(texts);
    for (const auto &[id, text] : texts)
        for (const size_t before : {0U, 1U, 8191U, 8192U}) {
            const std::string front(before, '-');
            const std::string field = "{?" + id + "?}";
            const Outcome got = renderText(front + field + "<?echo '" + field + "'?>" + field);
            EXPECT_TRUE(got.page == front + text + text + text) << id << " behind " << before;
        }
    forgetTexts();
}

TEST(Limits, TextsAreCutAtTheirBuffers)
{
    const std::string most(383, 'm');
    useTexts({{"m", most.substr(10)}, {"mm", most.substr(10)}});
    writeFile(folder + "/root/proc/cmdline", "tooltip=2");
    EXPECT_EQ("-=" + most.substr(10) + " {?m?}=-", Orv_Interpreter_LookupDBField("m"));
    EXPECT_EQ("-=" + most.substr(10) + " {?mm?}=", Orv_Interpreter_LookupDBField("mm"));
    unlink("root/proc/cmdline");
    Orv_Interpreter_SetLog(logTarget());
    takeLog();
    for (const size_t length : {454U, 455U}) {
        Orv_Interpreter_SetLanguage(std::string(length, 'x').c_str());
        const std::string message = "zarn - ERROR invalid language request for '" +
                                    std::string(length, 'x') + "'\n";
        EXPECT_EQ(takeLog(), message.substr(0, 499));
    }
    forgetTexts();
}

TEST(Limits, ParserSymbols)
{
    for (const size_t elements : {9996U, 9997U}) {
        const Outcome got = renderText("<?echo " + repeated("$$", elements) + "?>.");
        EXPECT_EQ(got.page, elements == 9996 ? std::string(elements, '$') + "." : "");
        EXPECT_EQ(got.result, elements == 9996 ? ORV_RUN_DONE : ORV_RUN_GAVE_UP);
    }
}

TEST(Limits, ColumnsOfARow)
{
    static QueryRow row = {};
    InterpreterCallbacks callbacks = hostCallbacks;
    callbacks.fQuery = [](Interpreter *, int32_t, const char *, QueryRow **rows, int32_t *) {
        *rows = &row;
        return 0;
    };
    char text[] = "c";
    row.cols[0] = row.cols[33] = text;
    writeFile("t.htm", "<?query q '$1$y[$z].'?>");
    for (const auto &[count, invalid] : {std::pair(34, "z"), {35, ""}, {36, ""}, {-1, "1yz"}}) {
        row.count = count;
        std::string log;
        for (const char *column = invalid; *column; ++column)
            log += std::string("t.htm: Invalid numVar Index $") + *column + "\n";
        const Outcome got = runOnce(callbacks);
        EXPECT_EQ(got.page, count > 0 ? "cc[]." : "[].");
        EXPECT_EQ(got.log, log);
    }
}

// A suspended include has a template open, so templates can suspend 19 at most; the
// last of the 64 that there is room for are reached only from inside.
TEST(Limits, SuspendedIncludes)
{
    Host host;
    host.files = {{"b", "x"}};
    for (int i = 0; i < 20; ++i)
        host.files.push_back({std::to_string(i), "<?echo '<?include " + std::to_string(i + 1) +
                                                     "?>.<?multiquerycount q?>'?>"});
    std::set<int32_t> tops;
    host.onQuery = [&](Interpreter *handle, const std::string &) {
        tops.insert(handle->pendingTop);
        if (handle->includeIndex > 0)
            return;
        const int32_t loopTop = std::exchange(handle->loopTop, -1);
        for (const int32_t top : {62, 63}) {
            Arg *path = addArgElem(nullptr, ELEM_TEXT, strdup("b"));
            Cmd *include = createCmd(ID_INCLUDE, nullptr, path, nullptr, nullptr, nullptr);
            Arg *body = addArgElem(nullptr, ELEM_CMD, include);
            Cmd *echo = createCmd(ID_ECHO, nullptr, body, nullptr, nullptr, nullptr);
            handle->pendingTop = top;
            EXPECT_EQ(executeCmd(echo, 1), top == 62 ? EXEC_SUSPENDED : EXEC_DONE);
            if (top == 62)
                EXPECT_EQ(doExclude(), 1);
            else
                destroyCmd(&echo);
            EXPECT_EQ(handle->pendingTop, top);
        }
        handle->pendingTop = -1;
        handle->loopTop = loopTop;
    };
    const Outcome got = render(host, "0");
    EXPECT_EQ(got.page, repeated(".0", 20));
    EXPECT_EQ(*tops.rbegin(), 18);
    EXPECT_TRUE(got.log.ends_with("zarn - ERROR in executeCmd: MAX_CMD_DEPTH exceeded! (0)\n"));
}

TEST(Limits, NoLookupLeavesADamagedDatabase)
{
    const std::string sound = database({{"", "e"}, {"a", "1"}, {"ab", "22"}, {"abc.d", ""},
                                        {"b1", "y"}, {"b\xFF", "x"}, {"long.label", "value"}});
    mapOnHeap = true;
    for (size_t length = 0; length <= sound.size(); ++length) {
        writeFile("d.db", sound.substr(0, length));
        const char *image;
        const int32_t fd = loadMmapTree("d.db", &image);
        ASSERT_EQ(fd >= 0, length > 0);
        // Every damage of one byte, in the whole file; none in a part of it.
        const bool whole = length == sound.size();
        for (size_t damage = 0; damage < (whole ? (length - 16) * 256 : length > 0); ++damage) {
            char *byte = whole ? const_cast<char *>(image) + damage / 256 : nullptr;
            const char original = whole ? *byte : '\0';
            if (whole)
                *byte = static_cast<char>(original ^ static_cast<char>(damage));
            for (const char *key : {"", "a", "ab", "abc.d", "b", "b1", "b\xFF", "long.labels"}) {
                const char *text = findMmapVar(image, key, nullptr);
                EXPECT_TRUE(!text || (text >= image && text + strlen(text) < image + length - 16));
            }
            if (whole)
                *byte = original;
        }
        unloadMmapTree("d.db", fd, &image);
    }
    mapOnHeap = false;
}
