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
#include <sanitizer/asan_interface.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/times.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "base/process.h"
#include "exec/exec.h"
#include "textdb/language.h"
#include "tests/harness.h"
#include "tests/process.h"
#include "vars/locals.h"
#include "vars/tree.h"

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
static Calls memoryCalls;
static Calls fileCalls;
static std::set<void *> blocks;         // that the library holds
static std::map<void *, size_t> mapped; // lengths, by where they are
static clock_t now;                     // ticks
static clock_t pace;                    // of them between two looks at the clocks

template <class T> static T *keep(T *block)
{
    blocks.insert(block);
    return block;
}

static void *keepMapping(void *at, size_t length)
{
    mapped[at] = length;
    return at;
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
WRAP(fileCalls, int, open64, (const char *path, int flags, ...), -1, open(path, flags, 0644))
WRAP(fileCalls, FILE *, fopen64, (const char *path, const char *mode), nullptr, fopen(path, mode))
WRAP(fileCalls, int, stat64, (const char *path, struct stat *status), -1, stat(path, status))
WRAP(fileCalls, int, fstat64, (int fd, struct stat *status), -1, fstat(fd, status))
WRAP(fileCalls, char *, realpath, (const char *path, char *to), nullptr, realpath(path, to))
WRAP(fileCalls, void *, mmap64, (void *at, size_t n, int access, int flags, int fd, off_t offset),
     MAP_FAILED, keepMapping(mmap(at, n, access, flags, fd, offset), n))

// Each look at the clocks is a moment later; user and system time pass faster.
clock_t __wrap_times(tms *times)
{
    now += pace;
    *times = {2 * now, 3 * now, 0, 0};
    return now;
}

int __wrap_munmap(void *at, size_t length)
{
    EXPECT_EQ(mapped[at], length);
    return munmap(at, length);
}

void __wrap_free(void *block)
{
    blocks.erase(block);
    free(block);
}
}

static std::pair<size_t, size_t> held()
{
    return {openDescriptors(true), mappedFiles(true)};
}

// Every command, array, kind of query, text field, include and many messages.
static const Texts busyFiles = {
    {"t.htm",
     "<html>{?hi?}<?setvariable var:w 'longer than any word of a token'?>{?gone?}{?old?}<?-- c ?>"
     "<?setvariable var:l[5] five?>"
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
    {"b.htm", "b<?echo '$var:cgi'?>{?hi?}"},
    {"b.bin", std::string(400, 'b')}};

// A handle from creation to destruction, with one run. A log is open, and creation
// opens another one on a full disk.
static Outcome live()
{
    startLog();
    Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
    if (!handle)
        return {0, "", {}, takeLog()};
    startLog();
    Orv_Interpreter_SetOutputBuffer(handle, 64);
    for (const std::string name : {"cgi", "cgi[1]", "cgi[2]", "lang"}) {
        const char *value = name == "lang" ? "en" : "<v";
        const int32_t result = Orv_Interpreter_SetVariable(handle, name.c_str(), value);
        EXPECT_TRUE(result == 0 || result == (name.ends_with(']') ? -1 : -2)) << result;
    }
    Outcome outcome = runHandle(handle);
    if (outcome.log.find("with Bison!") != std::string::npos)
        EXPECT_EQ(outcome.result, ORV_RUN_GAVE_UP);
    else
        EXPECT_TRUE(outcome.result == ORV_RUN_DONE || outcome.result == ORV_RUN_NO_TEMPLATE);
    EXPECT_EQ(inpr, nullptr);
    Orv_Interpreter_LookupDBField("hi");
    takeLog();
    Orv_Interpreter_Destroy(handle);
    return outcome;
}

// Gives back what outlives handles, but for the scanner's buffers.
static void forgetAll()
{
    forgetTexts();
    Orv_Interpreter_SetLog(-1);
}

// One life with failing calls, and one behind it without. Returns 3 when it met no
// failure, 1 when something does not hold, else 0.
static int liveTwice(Calls *calls, long step, bool onward)
{
    const auto before = held();
    *calls = {step, onward, 0};
    std::ofstream("seen", std::ios::app) << live().log;
    const bool met = calls->count >= step;
    *calls = {};
    forgetAll();
    EXPECT_EQ(held(), before);
    const Outcome clean = live();
    forgetAll();
    EXPECT_EQ(held(), before);
    EXPECT_EQ(blocks.size(), 2U); // the scanner's: its buffer's bytes, its conditions
    EXPECT_EQ(clean.result, ORV_RUN_DONE);
    if (step == 0)
        writeFile("page", clean.page);
    EXPECT_EQ(difference(readFile("page"), clean.page), "");
    return testing::Test::HasFailure() ? 1 : met ? 0 : 3;
}

// liveTwice in a process of its own, where the scanner may exit with status 2.
static int liveInChild(Calls *calls, long step, bool onward)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(open("errors", O_RDWR | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
        const int code = liveTwice(calls, step, onward);
        fflush(nullptr);
        _exit(code);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    EXPECT_EQ(readFile("errors"), code == 2 ? "zarn - scanner: out of memory\n" : "");
    return code;
}

// Returns how many calls can fail.
static long sweep(Calls *calls, bool onward)
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
    host.onOpen = [](const std::string &path) {
        return fileCalls.fail() ? -1 : open(path.c_str(), O_RDONLY);
    };
    useHost(&host);
    writeFile(
        "device/etc/htmltext_en.db",
        database({{"hi", "hello"}, {"kilo", repeated("k", 1500)}, {"long", repeated(".", 9000)}}));
    writeFile("device/etc/htmltext_de.db", database({{"hi", "hallo"}}));
    writeFile("device/etc/htmltext.db", database({{"old", "fallback"}}));
    writeFile("device/proc/cmdline", "tooltip=0");
    writeFile("device/var/log/none", "");
    symlink("/dev/full", "device/var/log/zarn_interpreter.log");
    logTarget();
    writeFile("seen", "");
    long step = 0;
    int code = liveInChild(calls, step, onward);
    EXPECT_TRUE(readFile("page").starts_with("<html>hellofallback&lt;2&gt;512five<v <v$it"));
    EXPECT_TRUE(readFile("page").ends_with("iYg==b&lt;vhalloend"));
    while (code == 0 || code == 2)
        code = liveInChild(calls, ++step, onward);
    EXPECT_EQ(code, 3) << "step " << step;
    unlink("device/proc/cmdline");
    return step - 1;
}

TEST(Faults, AnyAllocationMayFail)
{
    EXPECT_GT(sweep(&memoryCalls, true), 150);
    EXPECT_GT(sweep(&memoryCalls, false), 150);
    const std::string seen = readFile("seen");
    for (const std::string message :
         {"Orv_Interpreter_Create: NO MEMORY!", "Orv_Interpreter_SetVariable: NO MEMORY!",
          "dataToToken: NO MEMORY! (t.htm)", "addArgElem: NO MEMORY! (a.htm)",
          "createCmd: NO MEMORY! (b.htm)", "doInclude: NO MEMORY! (t.htm)",
          "doInclude: NO MEMORY! (a.htm)", "readInput: NO MEMORY! (a.htm)",
          "getRepeatUpBound: NO MEMORY or missing repeat boundary. (t.htm)",
          "pushStr: NO MEMORY while allocating 1024 Bytes. (t.htm)",
          "pushStr: NO MEMORY while allocating 2048 Bytes. (t.htm)",
          "pushStr: NO MEMORY while parsing t.htm with Bison!", "doQuery: NO MEMORY (t.htm)"})
        EXPECT_NE(seen.find("zarn - ERROR in " + message + "\n"), std::string::npos) << message;
    EXPECT_NE(seen.find("zarn - Syntaxerror: NO MEMORY! (t.htm)\n"), std::string::npos);
}

// Without memory the scanner ends the process; what was gathered until then goes out.
TEST(Faults, GatheredPiecesAreNotLostWithTheProcess)
{
    Host host;
    host.files = {
        {"t.htm", "abc<?echo d?>e<<{?hi?}f<?echo '" + repeated("g", 40000) + "{?hi?}'?>"}};
    useHost(&host);
    int ended = 0;
    for (long step = 1; step < 40; ++step) {
        std::string pages[2];
        for (const int32_t bytes : {0, 64}) {
            const pid_t child = fork();
            if (child == 0) {
                dup2(open("page", O_WRONLY | O_CREAT | O_TRUNC, 0644), STDOUT_FILENO);
                close(STDERR_FILENO);
                Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
                Orv_Interpreter_SetOutputBuffer(handle, bytes);
                memoryCalls = {step, true, 0};
                Orv_Interpreter_Run(handle, "t.htm", STDOUT_FILENO);
                _exit(0);
            }
            int status = -1;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            ended += WIFEXITED(status) && WEXITSTATUS(status) == 2;
            pages[bytes != 0] = readFile("page");
        }
        EXPECT_EQ(pages[0], pages[1]) << step;
    }
    EXPECT_GT(ended, 0);
}

TEST(Faults, AnyFileMayFail)
{
    EXPECT_GT(sweep(&fileCalls, false), 20);
    EXPECT_GT(sweep(&fileCalls, true), 20);
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
        memoryCalls = {};
        do {
            const std::string before = dump(root);
            memoryCalls = {memoryCalls.first + 1, i % 2 == 0, 0};
            const VarNode *node = element ? insertArray(&root, "l[", key.c_str(), value.c_str(), 1)
                                          : insertVar(&root, key.c_str(), value.c_str(), 1);
            const bool met = memoryCalls.count >= memoryCalls.first;
            if (!node)
                EXPECT_EQ(dump(root), before);
            else // an element is stored even if a bound of its array is not
                EXPECT_TRUE(node->value == value && (element || !met));
        } while (memoryCalls.count >= memoryCalls.first);
    }
    memoryCalls = {};
    destroyTree(&root);
    EXPECT_TRUE(blocks.empty());
}

TEST(Faults, AListStaysAsItWas)
{
    LocalVar *head = nullptr;
    for (int i = 0; i < 100; ++i) {
        const std::string name = std::to_string(i % 70);
        memoryCalls = {};
        int32_t result;
        do {
            const LocalVar *before = head;
            memoryCalls = {memoryCalls.first + 1, false, 0};
            result = insertLocalVar(&head, name.c_str(), std::to_string(i).c_str());
            EXPECT_TRUE(result == 0 || (result == ORV_VARIABLE_NO_MEMORY && head == before));
            for (int known = std::max(0, i - 70); known < i; ++known)
                EXPECT_NE(findLocalVar(head, std::to_string(known % 70).c_str()), nullptr);
        } while (result != 0);
        EXPECT_EQ(findLocalVar(head, name.c_str()), std::to_string(i));
    }
    memoryCalls = {};
    destroyLocalVarList(&head);
    EXPECT_TRUE(blocks.empty());
}

// Somebody writes into the files in place, zero bytes too, while pages are made of
// them: the bytes may be any, the memory must be ours.
TEST(Faults, FilesAreOverwrittenUnderTheRun)
{
    const std::string name = repeated("a", 2000);
    Host host;
    host.files = {{"t.htm", repeated("<?echo $var:" + name + "[min]'b'?><<?-- c ?>\n", 40) +
                                "<?include f.htm?>"},
                  {"f.htm", repeated("{?id?}", 40)}};
    useHost(&host);
    std::string texts = database({{"id", repeated("t", 4000)}});
    texts.resize(4096, 't'); // its text ends with the file, and the page
    texts.back() = '\0';
    const size_t textAt = texts.find("tttt");
    std::fill(texts.begin() + static_cast<long>(textAt), texts.end() - 1, 't');
    writeFile("device/etc/htmltext_en.db", texts);
    Orv_Interpreter_SetLanguage("en");
    std::atomic<bool> done = false;
    std::thread writer([&] {
        for (const auto &[path, content] :
             Texts{{"t.htm", host.files[0].second}, {"device/etc/htmltext_en.db", texts}})
            EXPECT_EQ(truncate(path.c_str(), static_cast<off_t>(content.size())), 0);
        const int page = open("t.htm", O_RDWR);
        const int db = open("device/etc/htmltext_en.db", O_RDWR);
        std::mt19937 random(5);
        while (!done) {
            const auto at = static_cast<off_t>(random() % host.files[0].second.size());
            EXPECT_EQ(pwrite(page, "", 1, at), 1);
            EXPECT_EQ(pwrite(db, "t", 1, 4095), 1);
            EXPECT_EQ(pwrite(page, &host.files[0].second[static_cast<size_t>(at)], 1, at), 1);
            EXPECT_EQ(pwrite(db, "", 1, 4095), 1);
        }
        close(page);
        close(db);
    });
    Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
    for (int i = 0; i < 300; ++i)
        EXPECT_NE(runHandle(handle).result, ORV_RUN_NO_TEMPLATE);
    done = true;
    writer.join();
    EXPECT_GT(runHandle(handle).page.size(), 4000U);
    Orv_Interpreter_Destroy(handle);
    forgetTexts();
}

TEST(Faults, TemplatesChangeUnderTheRun)
{
    const struct {
        int flags;
        void (*change)(); // between its opening and its mapping
        std::string text, error;
    } rows[] = {
        {O_WRONLY, [] {}, "", "Permission denied"},
        {O_RDONLY, [] { unlink("b.htm"); }, "", "No such file or directory"},
        {O_RDONLY, [] { writeFile("b.htm", ""); }, "", "Invalid argument"},
        {O_RDONLY, [] { writeFile("b.htm", "01"); }, "01", ""},
        {O_RDONLY, [] { writeFile("b.htm", "0123456"); }, "0123456", ""},
        {O_RDONLY, [] { writeFile("new", "larger"), rename("new", "b.htm"); }, "0123", ""},
        {O_RDONLY, [] { writeFile("new", "no"), rename("new", "b.htm"); }, "01", ""},
        {O_RDONLY, [] { writeFile("new", "no"), rename("new", "t.htm"); }, "0123", ""},
    };
    const std::string failure = "ERROR: mmap() on file b.htm failed with error '";
    for (const auto &row : rows) {
        Host host;
        host.files = {{"t.htm", "a<?include b.htm?>c"}, {"b.htm", "0123"}};
        host.onOpen = [&](const std::string &path) {
            const int fd = open(path.c_str(), path == "b.htm" ? row.flags : O_RDONLY);
            if (path == "b.htm")
                row.change();
            return fd;
        };
        const Outcome got = render(host);
        EXPECT_EQ(got.page, "a" + row.text + "c");
        EXPECT_EQ(got.log, row.error.empty() ? "" : failure + row.error + "' => No parsing...\n");
    }
}

// A handle serves one visitor after another; the first has values that the others have not.
TEST(Faults, ResetLeavesNothingOfARequest)
{
    Host host;
    host.files = {{"t.htm", "<?echo $var:a$var:l[min]$var:l[1]$var:r$var:q[2]?>"
                            "<?multiquery x?><?multiquerycount x?><?setvariable var:a A?>"
                            "<?setvariable var:l[1] 'l<?echo $var:r?>'?>"
                            "<?repeat [ 1 1 ] '<?include b.htm?>'?><?print <?echo $var:l[1]?>?>"},
                  {"b.htm", "b"},
                  {"surplus.htm", "{?long?}"}}; // of whose text a part is still to come
    writeFile("device/etc/htmltext_en.db",
              database({{"long", "<?echo a b?>" + repeated(".", 9000)}}));
    Orv_Interpreter_SetLanguage("en");
    int32_t during = 0;
    host.onQuery = [&](Interpreter *running, const std::string &) {
        during = Orv_Interpreter_Reset(running);
    };
    useHost(&host);
    InterpreterCallbacks callbacks = hostCallbacks;
    callbacks.fQuery = [](Interpreter *running, int32_t mode, const char *query, QueryRow **rows,
                          int32_t *owned) {
        const int32_t result = hostCallbacks.fQuery(running, mode, query, rows, owned);
        *owned = 1;
        *rows = mode == ORV_QUERY_ROWS ? createQueryRow("") : nullptr;
        if (*rows) // the way back is forgotten
            (*rows)->next = createQueryRow("");
        return result;
    };
    Interpreter *handle = Orv_Interpreter_Create(&callbacks);
    Orv_Interpreter_SetOutputBuffer(handle, 64);
    Orv_Interpreter_SetHostData(handle, &host);
    startLog();
    size_t held = 0;
    for (int request = 0; request < 300; ++request) {
        const bool first = request % 3 == 0;
        if (first) {
            Orv_Interpreter_SetVariable(handle, "r", "R");
            Orv_Interpreter_SetVariable(handle, "q[2]", "Q");
        }
        EXPECT_EQ(runHandle(handle).pieces, first ? (std::vector<std::string>{"RQ", "0", "blR"})
                                                  : (std::vector<std::string>{"0", "bl"}));
        EXPECT_EQ(during, ORV_FAILED);
        writes.failures = {EIO};
        EXPECT_EQ(runHandle(handle, first ? "b.htm" : "surplus.htm").page, "");
        const int32_t errors = Orv_Interpreter_LogCount(ORV_LOG_ERROR);
        memoryCalls = {1, true, 0};
        EXPECT_EQ(Orv_Interpreter_Reset(handle), ORV_OK);
        EXPECT_EQ(memoryCalls.count, 0);
        memoryCalls = {};
        writes = {};
        EXPECT_EQ(Orv_Interpreter_LogCount(ORV_LOG_ERROR), errors);
        EXPECT_EQ(Orv_Interpreter_OutputError(handle), 0);
        EXPECT_EQ(Orv_Interpreter_Position(handle, nullptr), nullptr);
        EXPECT_EQ(Orv_Interpreter_HostData(handle), &host);
        held = request < 2 ? blocks.size() : held; // the second makes the scanner a block
        EXPECT_EQ(blocks.size(), held);
    }
    EXPECT_EQ(Orv_Interpreter_Reset(nullptr), ORV_FAILED);
    Orv_Interpreter_Destroy(handle);
    forgetTexts();
}

// What somebody does to a template that a run has open, from a callback.
static void empty(const char *path)
{
    fclose(fopen(path, "w"));
}

static void overwrite(const char *path)
{
    const std::string other(readFile(path).size(), '#');
    FILE *file = fopen(path, "r+");
    EXPECT_EQ(fwrite(other.data(), 1, other.size(), file), other.size());
    fclose(file);
}

static void cut(const char *path)
{
    EXPECT_EQ(truncate(path, 1), 0);
}

static void (*change)(const char *path); // null for none

// A query changes the templates that it names; opening c.htm, asking for an error and taking
// a piece t.htm.
TEST(Faults, CallbacksChangeOpenTemplates)
{
    const Texts pages[] = {
        {{"t.htm", "a<?query t?>b\n<?foo\n?>{?hi?}<?-- c ?>d<?echo 'e$var:e'?>f<?query t?>g"}},
        {{"t.htm", "a\n\n<?query t?>"}},
        {{"t.htm", "a<?echo 'b<?query t $1?>c<?query t $1?>d'?>\ne{?hi?}<?foo\n?>f<<"}},
        {{"t.htm", "a<?error found ?>b<?error message ?>c{?"}},
        {{"t.htm", "a<?repeat [ 1 3 ] '$0<?query t $1?>b'?>c{?hi?}<?if eq $var:a '' d?>"}},
        {{"t.htm", "a{?hi?}b<?include b.htm?>\nc<?foo?>d"}, {"b.htm", "(<?query b?>\n)<?foo?>"}},
        {{"t.htm", "a<?include c.htm?>b\n<?foo?>"},
         {"c.htm", "(<?include b.htm?>)"},
         {"b.htm", "b"}},
        {{"t.htm", "a<?repeat [ 1 3 ] '$0<?include b.htm?>,<?query t $1?>;'?>\nc<?foo?>"},
         {"b.htm", "b<?query t $1?>{?hi?}\n"}},
        {{"t.htm", "a<?multiquery two '<?if eq $1 y `<?include c.htm?>`?>b'?>c\n<?foo?>"},
         {"c.htm", "(<?echo '$var:x<?include b.htm?>'?><?query c t?>){?hi?}"},
         {"b.htm", "<<?query c t?>b<?query t b c?>>"}},
        {{"t.htm", "a<?echo b?>c{?hi?}<?setvariable var:lang de?>d<?echo e?>{?hi?}" +
                       repeated("f", 1500) + "{?hi?}<?query t?>g{?hi?}"}},
    };
    writeFile("device/etc/htmltext_en.db", database({{"hi", "hello"}}));
    writeFile("device/etc/htmltext_de.db", database({{"hi", "hallo"}}));
    Host host;
    host.rows = {{"two", {{"x"}, {"y"}}}, {"t", {{"[t]"}}}};
    host.onQuery = [](Interpreter *, const std::string &names) {
        for (const char name : names)
            if (change && names != "two" && name != ' ')
                change((std::string(1, name) + ".htm").c_str());
    };
    host.onOpen = [](const std::string &path) {
        const int fd = open(path.c_str(), O_RDONLY);
        if (change && path == "c.htm")
            change("t.htm");
        return fd;
    };
    InterpreterCallbacks callbacks = hostCallbacks;
    callbacks.fError = [](Interpreter *, const char **message) {
        *message = "<E>";
        if (change)
            change("t.htm");
        return 1;
    };
    for (const Texts &files : pages)
        for (const size_t comment : {0U, 5000U, 5001U}) { // small, mapped, in a small one
            const auto gathered = static_cast<int32_t>(comment / 5);
            Outcome unchanged;
            for (size_t i = 0; i < 8; ++i) {
                constexpr decltype(change) changes[] = {nullptr, overwrite, empty, cut};
                const auto made = changes[i / 2];
                host.onWrite = nullptr;
                if (i % 2 != 0)
                    host.onWrite = [](Interpreter *) {
                        if (change)
                            change("t.htm");
                    };
                Orv_Interpreter_SetLanguage("en");
                host.files = files;
                for (auto &[name, content] : host.files)
                    if (comment == 5000 || (comment > 0 && name != "t.htm"))
                        content = "<?-- " + std::string(comment, 'c') + "?>" + content;
                useHost(&host);
                change = made;
                Interpreter *handle = Orv_Interpreter_Create(&callbacks);
                Orv_Interpreter_SetOutputBuffer(handle, i % 2 == 0 ? gathered : 0);
                startLog();
                const Outcome got = runHandle(handle);
                Orv_Interpreter_Destroy(handle);
                if (i == 0)
                    unchanged = got;
                EXPECT_EQ(difference(unchanged.page, got.page), "");
                EXPECT_EQ(difference(unchanged.log, got.log), "");
                EXPECT_EQ(got.result, ORV_RUN_DONE) << got.page;
            }
        }
    change = nullptr;
    forgetTexts();
}

// What a refill has not reached is read when it is scanned.
TEST(Faults, ARefillIsReadAhead)
{
    Host host;
    const std::string text = "<?multiquerycount x?>" + repeated("0123456789abcde\n", 1000);
    host.onQuery = [](Interpreter *, const std::string &) { overwrite("t.htm"); };
    for (const auto &[template_, read] :
         {std::pair(text, size_t{8192}), {text.substr(0, 50) + "{?" + text, 52}}) {
        host.files = {{"t.htm", template_}};
        const std::string behind(template_.size() - read, '#');
        EXPECT_EQ(render(host).page, "0" + template_.substr(21, read - 21) + behind);
    }
}

TEST(Limits, QueriesOfMoreThanATenthOfASecondAreSlow)
{
    Host host;
    host.files = {{"t.htm", "{?x?}<?multiquerycount two?>"}};
    useHost(&host);
    Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
    for (const auto &[ticks, slow, run] :
         {std::tuple(10, "", "300ms, User Time 600ms, System Time 900ms"),
          {11, "t.htm, query two: Real Time 110ms, User Time 220ms, System Time 330ms\n",
           "330ms, User Time 660ms, System Time 990ms"}}) {
        startLog();
        pace = ticks;
        Orv_Interpreter_Run(handle, "t.htm", PAGE_FD);
        const std::string log = takeLog();
        EXPECT_EQ(log.substr(log.find("database\n") + strlen("database\n")),
                  std::string(slow) + "zarn - t.htm: Real Time " + run +
                      " - 1 HTML-Text-Fields parsed\n");
    }
    Orv_Interpreter_Destroy(handle);
}

TEST(Limits, NoLookupLeavesADamagedDatabase)
{
    std::string sound = database({{"", "e"},
                                  {"a", "1"},
                                  {"ab", "22"},
                                  {"abc.d", ""},
                                  {"b1", "y"},
                                  {"b\xFF", "x"},
                                  {"long.label", "value"}});
    std::vector<std::string> files;
    for (size_t length = 1; length < sound.size(); ++length)
        files.push_back(sound.substr(0, length));
    for (char &byte : sound)
        for (int i = 0; i < 256; ++i, ++byte)
            files.push_back(sound);
    const std::string path = "/proc/self/fd/" + std::to_string(memfd_create("d.db", 0));
    for (const std::string &file : files) {
        writeFile(path, file);
        const char *image;
        const int32_t fd = loadMmapTree(path.c_str(), &image);
        ASSERT_GE(fd, 0);
        const char *end = image - 16 + file.size();
        ASAN_POISON_MEMORY_REGION(end, 4096 - file.size());
        for (const char *key : {"", "a", "ab", "abc.d", "b", "b1", "b\xFF", "long.labels"}) {
            const char *text = findMmapVar(image, key, nullptr);
            EXPECT_TRUE(!text || (text >= image && text + strlen(text) < end));
        }
        ASAN_UNPOISON_MEMORY_REGION(end, 4096 - file.size());
        unloadMmapTree(path.c_str(), fd, &image);
    }
}
