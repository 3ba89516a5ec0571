/* tests/run_test.cpp - what surrounds a page: includes, callbacks, handles,
 * results, pieces, limits and the messages that no single template shows. */
#include <errno.h>
#include <fcntl.h>
#include <fenv.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <locale.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "grammar/records.h"
#include "base/log.h"
#include "base/process.h"
#include "textdb/language.h"
#include "scanner/input.h"
#include "scanner/scanner.h"
#include "tests/harness.h"
#include "tests/process.h"

namespace
{
Host withFiles(const Texts &files)
{
    Host host;
    host.files = files;
    host.rows = {{"two", {{"x", "1"}, {"y", "2"}}}, {"none", {}}, {"wide", {{}}}};
    for (int column = 1; column <= 35; ++column)
        host.rows["wide"][0].push_back(std::to_string(column) + ";");
    return host;
}

// A template b.htm ... that includes the next, the last one the text end.
Texts chain(size_t length)
{
    Texts files;
    for (size_t i = 0; i < length; ++i)
        files.push_back(
            {std::to_string(i) + ".htm",
             i + 1 < length ? "<?include " + std::to_string(i + 1) + ".htm?>." : "end"});
    return files;
}
} // namespace

TEST(Include, TwentyTemplatesAreOpenAtMost)
{
    Host fits = withFiles(chain(20));
    EXPECT_EQ(render(fits, "0.htm").page, "end" + repeated(".", 19));
    Host deeper = withFiles(chain(21));
    const Outcome got = render(deeper, "0.htm");
    EXPECT_EQ(got.page, repeated(".", 20));
    EXPECT_EQ(got.log, "zarn - ERROR in pushStr: MAX_INCLUDE_DEPTH for including 20.htm exceeded! "
                       "(19.htm)\n");
}

TEST(Query, RowsAreTheBodysValues)
{
    for (const bool handOver : {true, false}) {
        Host host = withFiles(
            {{"t.htm",
              "<?multiquery two '$0$1$2,'?><?query two?>"
              "<?querytext two '$2'?><?multiquerycount two x?>"
              "<?if eq a a '<?multiqueryjs two $11$1?>'?>"
              "<?query wide "
              "'$1$2$3$4$5$6$7$8$9$a$b$c$d$e$f$g$h$i$j$k$l$m$n$o$p$q$r$s$t$u$v$w$x$y$z'?>"}});
        host.handOver = handOver;
        const Outcome got = render(host);
        EXPECT_EQ(
            got.page,
            "0x1,1y2,x12xy1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17;18;19;20;21;22;23;24;25;26;"
            "27;28;29;30;31;32;33;34;35;");
        EXPECT_EQ(got.log, "t.htm: Invalid numVar Index $1\nt.htm: Invalid numVar Index $1\n");
        EXPECT_EQ(host.calls, (std::vector<std::string>{"open t.htm", "query 1 two", "query 0 two",
                                                        "query 0 two", "query 2 two", "query 1 two",
                                                        "query 0 wide"}));
    }
}

TEST(Query, RowsOfAFailureAreNotTaken)
{
    Host host = withFiles({{"t.htm", "<?query fail '$1.'?><?multiquery fail $1?>"
                                     "<?multiquerycount fail?>"}});
    host.rows = {{"fail", {{"a"}, {"b"}}}};
    host.handOver = false;
    EXPECT_EQ(render(host).page, ".-1");
}

// An include in the body has the query asked again: other rows from then on. The second
// include of b fails, and the iteration goes on with the rows that it had.
TEST(Query, ThatRunsAgainTakesItsNewRows)
{
    for (const bool isLogged : {true, false})
        for (const bool handOver : {true, false}) {
            Host host = withFiles(
                {{"t.htm", "<?multiquery again '$1$2<?if eq $1 a x z?><?include $1?>$2,'?>"},
                 {"a", "(<?setvariable var:v 1?>)"},
                 {"c", "[]"}});
            host.isLogged = isLogged;
            host.handOver = handOver;
            int asked = 0;
            host.onQuery = [&](Interpreter *, const std::string &) {
                const std::string tag = std::string(asked > 1, 'n') + "r";
                host.rows["again"] = {{"a", tag}, {"b", tag}, {"c", tag}, {"a", "last"}};
                ++asked;
                host.rows["again"].resize(asked < 4 ? 4 : 3);
            };
            EXPECT_EQ(render(host).page, "arx()r,brzr,crz[]nr,alastx()") << isLogged << handOver;
            EXPECT_EQ(asked, 4);
        }
}

// Iterations that are behind are run again where more than printing is done, in silence.
TEST(Include, RunsAgainWhatIsBehindIt)
{
    Host host = withFiles({{"t.htm", "<?repeat [ 1 3 ] '<?eq $5 1?><?include b.htm?>'?>"
                                     "<?repeat [ 1 3 ] '<?error message ?><?include b.htm?>'?>"},
                           {"b.htm", "b"}});
    host.isLogged = false;
    const int32_t before = Orv_Interpreter_LogCount(ORV_LOG_WARNING);
    EXPECT_EQ(render(host).page, "0b0b0bbbb");
    EXPECT_EQ(Orv_Interpreter_LogCount(ORV_LOG_WARNING) - before, 9);
    EXPECT_EQ(std::ranges::count(host.calls, "error"), 9);
}

TEST(Callbacks, MaySetVariablesButNotRun)
{
    Host host = withFiles({{"t.htm", "<?multiquerycount two?><?echo $var:v?><?error found ?>"
                                     "<?error message '$1'?><?error message ?>"}});
    host.error = "<E>";
    int32_t nested = 0;
    host.onQuery = [&](Interpreter *interpreter, const std::string &) {
        Orv_Interpreter_SetVariable(interpreter, "v", "set");
        Orv_Interpreter_SetVariable(nullptr, "v", "set");
        Orv_Interpreter_SetVariable(interpreter, "[1]", "");
        nested = Orv_Interpreter_Run(interpreter, "t.htm", PAGE_FD);
    };
    const Outcome got = render(host);
    EXPECT_EQ(nested, ORV_RUN_BUSY);
    EXPECT_EQ(got.page, "2set1<E><E>");
    EXPECT_EQ(got.log, "zarn - CGI-Variable set: v=set!\n"
                       "zarn - ERROR in Orv_Interpreter_SetVariable: no valid interpreter-struct!\n"
                       "zarn - CGI-Variable set: [1]=!\n"
                       "zarn - ERROR in Orv_Interpreter_Run: illegal multiple instances!\n");
    EXPECT_EQ(inpr, nullptr);
}

TEST(Page, GoesOutInOneWriteAPiece)
{
    Host host = withFiles({{"b.bin", std::string(382, 'b')},
                           {"full.bin", std::string(381, 'b')},
                           {"q.htm", "<?echo 'q<"}});
    host.variables = {{"v", "<1"}, {"e", ""}};
    const std::string encoded = repeated("YmJi", 127);
    const std::pair<std::string, std::vector<std::string>> pages[] = {
        {"a<<b<?echo 'x$var:v'?>.", {"a", "<", "<b", "x", "&lt;", "1", "."}},
        {"<?foo\n?>c<?print $var:e$var:v?>", {"<?", "foo\n?>c", "<1"}},
        {"<?base64 b.bin?>-<?base64 full.bin?>", {encoded, "Yg==", "-", encoded}},
        {"<?echo 'a<b<$var:e<'?><?echo \"?b?<\"?>", {"a<b", "<", "<", "?", "b", "?", "<"}},
        {"<?echo `a<?print b?><`?><?echo a<b?>", {"a", "b", "<", "a", "<", "b"}},
        {"<?echo 'a <<'?><?include q.htm?>x<", {"a <", "<", "q", "<", "x", "<"}},
    };
    for (const auto &[page, pieces] : pages) {
        host.files.push_back({"t.htm", page});
        for (const auto &onWrite : {decltype(host.onWrite)(), {[](Interpreter *) {}}}) {
            host.onWrite = onWrite;
            EXPECT_EQ(render(host).pieces, pieces) << page;
        }
    }
}

// Text is read in pieces, and looked at in blocks of bytes.
TEST(Page, MayHaveALineEndAndABraceAnywhere)
{
    for (size_t before = 0; before <= 300; ++before) {
        const std::string x(before, 'x');
        const std::string text = x + "{?\n<?foo?>" + std::string(300 - before, 'y');
        const Outcome got = renderText(text + "<?echo x" + x + "?><?eq a a x" + x + "?>");
        EXPECT_EQ(difference(text + "x" + x + "x" + x, got.page), "") << before;
        EXPECT_EQ(got.log, "t.htm, line 2: Syntax error: Unknown Cmd\n") << before;
    }
}

TEST(Page, SurvivesBadWrites)
{
    Host host = withFiles({{"t.htm", "first<?echo second?>third"}});
    EXPECT_EQ(Orv_Interpreter_OutputError(nullptr), -1);
    for (const int failure : {EIO, WRITES_NOTHING, 0}) {
        useHost(&host);
        Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
        for (const auto &onWrite : {decltype(host.onWrite)(), {[](Interpreter *) {}}}) {
            host.onWrite = onWrite;
            if (failure)
                writes = {2, {EINTR, 0, 0, 0, 0, EINTR, failure, ENOSPC}};
            const Outcome got = runHandle(handle);
            EXPECT_EQ(got.page, failure ? "firstse" : "firstsecondthird");
            EXPECT_EQ(got.result, ORV_RUN_DONE);
            EXPECT_EQ(Orv_Interpreter_OutputError(handle), failure ? EIO : 0);
            writes = {};
        }
        Orv_Interpreter_Destroy(handle);
    }
}

TEST(Page, SurvivesBadFunctions)
{
    static int calls;
    Host host = withFiles({{"t.htm", "first<?echo second?>third"}});
    useHost(&host);
    const std::pair<FWrite, int32_t> rows[] = {
        {[](Interpreter *, const char *, size_t) { return ++calls, INT32_MAX; }, 0},
        {[](Interpreter *, const char *, size_t) { return ++calls, INT32_MIN; }, EIO},
        {[](Interpreter *, const char *, size_t) { return ++calls, 0; }, EIO},
        {[](Interpreter *, const char *, size_t) { return errno = ++calls, -1; }, 1},
        {[](Interpreter *running, const char *, size_t) {
             return Orv_Interpreter_Run(running, "t.htm", ++calls); // errno stays
         },
         EIO},
    };
    Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
    for (const auto &[fWrite, error] : rows) {
        calls = 0;
        EXPECT_EQ(Orv_Interpreter_SetOutput(handle, fWrite), ORV_OK);
        EXPECT_EQ(Orv_Interpreter_Reset(handle), ORV_OK); // the function stays
        EXPECT_EQ(Orv_Interpreter_Run(handle, "t.htm", -1), ORV_RUN_DONE);
        EXPECT_EQ(Orv_Interpreter_OutputError(handle), error);
        EXPECT_EQ(calls, 3);
    }
    EXPECT_EQ(Orv_Interpreter_SetOutput(nullptr, nullptr), ORV_FAILED);
    EXPECT_EQ(Orv_Interpreter_Version(), ORV_VERSION_NUMBER);
    Orv_Interpreter_Destroy(handle);
}

TEST(Page, IsGatheredOnDemand)
{
    static_assert(ORV_HAS_OUTPUT_BUFFER == 1);
    Host host = withFiles({{"t.htm", "ab<?echo cde?>f<?error found ?>g<?multiquerycount q?>h"
                                     "<?include b.htm?><?echo ijklmnopq?>r"},
                           {"b.htm", "B"}});
    gatheredBytes = 8;
    EXPECT_EQ(render(host).pieces,
              (std::vector<std::string>{"abcdef", "0g", "0h", "B", "ijklmnopq", "r"}));
    writes = {4, {EINTR, 0, EIO}};
    EXPECT_EQ(render(host).page, "abcdf0g0hBijklmnopqr");
    gatheredBytes = 64;
    host.files = {{"t.htm", "<?repeat [ 10 29 ] '$0,'?>"}}; // pieces of two bytes and of one
    const std::string whole = render(host).page;
    for (size_t failing = 1; failing < 60; ++failing) {
        writes = {failing, {0, EIO}};
        std::string lost = whole;
        EXPECT_EQ(render(host).page, lost.erase(failing, failing % 3 == 0 ? 2 : 1));
    }
    writes = {100, {0, EIO}}; // no end of a piece that has gone out before is one of the lost piece
    gatheredBytes = 8;
    host.files = {{"t.htm", "<?repeat [ 1 3 ] 'ab'?>abcdefg<?echo 'z'?>"}};
    EXPECT_EQ(render(host).page, "abababz");
    writes = {};
    gatheredBytes = 0;
    Interpreter *interpreter = Orv_Interpreter_Create(&hostCallbacks);
    EXPECT_EQ(Orv_Interpreter_SetOutputBuffer(nullptr, 1), -1);
    EXPECT_EQ(Orv_Interpreter_SetOutputBuffer(interpreter, -1), -1);
    int32_t during = 0;
    host.files = {{"t.htm", "<?multiquery two?>"}};
    host.onQuery = [&](Interpreter *running, const std::string &) {
        during = Orv_Interpreter_SetOutputBuffer(running, 1);
    };
    EXPECT_EQ(render(host).page, "xy");
    EXPECT_EQ(during, -1);
    Orv_Interpreter_Destroy(interpreter);
}

TEST(Run, Results)
{
    Host host = withFiles({{"t.htm", "x"},
                           {"empty.htm", ""},
                           {"surplus.htm", "<?echo a b?>x"},
                           {"open.htm", "x<?echo a"}});
    for (const char *path : {"none", "empty.htm"})
        EXPECT_EQ(render(host, path).result, ORV_RUN_NO_TEMPLATE) << path;
    EXPECT_EQ(render(host, "surplus.htm").result, ORV_RUN_GAVE_UP);
    const Outcome open = render(host, "open.htm");
    EXPECT_EQ(open.result, ORV_RUN_GAVE_UP);
    EXPECT_EQ(open.page, "x");
    EXPECT_EQ(open.log, "open.htm: Syntax error: File ends inside cmd\n");
    EXPECT_EQ(render(host).page, "x");
}

TEST(Run, GivesUpInsideIncludesAndStartsClean)
{
    // The stack is exhausted behind, at and in front of the included template's end.
    for (const size_t depth : {9990U, 9997U, 9998U, 9999U, 10001U}) {
        Host host = withFiles({{"t.htm", "x<?echo 'A<?include b.htm?>B'?>y"},
                               {"b.htm", "b" + repeated("<?calc + ", depth)},
                               {"c.htm", "z"}});
        useHost(&host);
        Interpreter *interpreter = Orv_Interpreter_Create(&hostCallbacks);
        startLog();
        for (int i = 0; i < 2; ++i) {
            const Outcome got = runHandle(interpreter);
            const bool fits = depth < 9996;
            EXPECT_EQ(got.result, ORV_RUN_GAVE_UP) << depth;
            EXPECT_EQ(got.page, fits ? "xAbBy" : "xAb") << depth;
            EXPECT_NE(got.log.find(fits ? "t.htm, line 1: Syntax error: Too few arguments"
                                        : "NO MEMORY while parsing b.htm with Bison!\n"),
                      std::string::npos)
                << depth << got.log;
            EXPECT_EQ(mappedFiles(), 0U);
        }
        EXPECT_EQ(runHandle(interpreter, "c.htm").page, "z");
        EXPECT_EQ(zarn_nerrs, 0);
        Orv_Interpreter_Destroy(interpreter);
    }
}

TEST(Handle, BadArguments)
{
    startLog();
    InterpreterCallbacks partial[] = {hostCallbacks, hostCallbacks, hostCallbacks};
    partial[0].fOpen = nullptr;
    partial[1].fQuery = nullptr;
    partial[2].fError = nullptr;
    for (const InterpreterCallbacks &callbacks : partial)
        EXPECT_EQ(Orv_Interpreter_Create(&callbacks), nullptr);
    EXPECT_EQ(Orv_Interpreter_Create(nullptr), nullptr);
    EXPECT_EQ(Orv_Interpreter_Run(nullptr, "t.htm", PAGE_FD), ORV_RUN_BAD_ARGUMENT);
    EXPECT_EQ(Orv_Interpreter_SetVariable(nullptr, "a", "b"), -1);
    EXPECT_EQ(Orv_Interpreter_ClearVariables(nullptr), -1);
    Interpreter *interpreter = Orv_Interpreter_Create(&hostCallbacks);
    EXPECT_EQ(Orv_Interpreter_Run(interpreter, nullptr, PAGE_FD), ORV_RUN_BAD_ARGUMENT);
    EXPECT_EQ(Orv_Interpreter_SetVariable(interpreter, nullptr, "b"), -1);
    EXPECT_EQ(Orv_Interpreter_SetVariable(interpreter, "a", nullptr), -1);
    EXPECT_EQ(Orv_Interpreter_SetVariable(interpreter, "", ""), -1);
    EXPECT_EQ(Orv_Interpreter_HostData(nullptr), nullptr);
    EXPECT_EQ(Orv_Interpreter_HostData(interpreter), nullptr);
    Orv_Interpreter_SetHostData(nullptr, partial);
    Orv_Interpreter_SetHostData(interpreter, partial);
    EXPECT_EQ(Orv_Interpreter_HostData(interpreter), partial);
    const std::string none = "zarn - ERROR in Orv_Interpreter_Create: no valid callbacks!\n";
    const std::string path = "zarn - ERROR in Orv_Interpreter_Run: "
                             "no valid interpreter-struct or input-path!\n";
    EXPECT_EQ(takeLog(),
              repeated(none, 4) + path +
                  "zarn - ERROR in Orv_Interpreter_ClearVariables: no valid interpreter-struct!\n"
                  "zarn - $HTML_TOOLTIPS is not set!\n" +
                  path +
                  "zarn - CGI-Variable set: =!\n"
                  "zarn - ERROR in Orv_Interpreter_SetVariable: NO MEMORY!\n");
    EXPECT_EQ(Orv_Interpreter_Destroy(interpreter), 0);
    startLog();
    EXPECT_EQ(Orv_Interpreter_Destroy(nullptr), 0);
    EXPECT_EQ(logfileFd, -1);
    EXPECT_EQ(logfileBuf, nullptr);
    EXPECT_EQ(Orv_Interpreter_SetLog(PAGE_FD), -1);
    EXPECT_EQ(Orv_Interpreter_LogCount(-1), -1);
    EXPECT_EQ(Orv_Interpreter_LogCount(ORV_LOG_SEVERITIES), -1);
}

TEST(Handle, KeepsItsVariables)
{
    Host host = withFiles({{"t.htm", "<?echo $var:a $var:a?><?print \"$var:a$var:l[3]$var:l[0]"
                                     "$var:l[b]$var:t.\"?><?setvariableonce var:t t?>"}});
    useHost(&host);
    Interpreter *interpreter = Orv_Interpreter_Create(&hostCallbacks);
    for (const auto &[name, value] :
         Texts{{"a", "1"}, {"a", "2"}, {"l[3", "three"}, {"l[]", "zero"}, {"l[b]c[d]", "b"}})
        EXPECT_EQ(Orv_Interpreter_SetVariable(interpreter, name.c_str(), value.c_str()), 0);
    host.files[0].second =
        "<?multiquery none x?>" + host.files[0].second.substr(host.files[0].second.find("?>") + 2);
    host.onQuery = [](Interpreter *running, auto &) { // while it runs, it stays
        EXPECT_EQ(Orv_Interpreter_Destroy(running), 0);
    };
    useHost(&host);
    EXPECT_EQ(runHandle(interpreter).page, "2threezerob.");
    EXPECT_EQ(Orv_Interpreter_ClearVariables(interpreter), 0);
    EXPECT_EQ(runHandle(interpreter).page, "threezerobt.");
    Orv_Interpreter_Destroy(interpreter);
}

TEST(Log, IsOpenedByTheSwitch)
{
    const std::pair<std::string, int32_t> cases[] = {{"", -1},
                                                     {"quiet", -1},
                                                     {"a tooltip=2 b", 2},
                                                     {"xtooltip=12", 1},
                                                     {"tooltip=7 x", 0},
                                                     {"tooltip=x", 0},
                                                     {"tooltip=", 0},
                                                     {"tooltip=0", 0},
                                                     {std::string(1014, 'x') + "tooltip=2", 2},
                                                     {std::string(1015, 'x') + "tooltip=2", 0}};
    const std::string path = folder + "/device/var/log/zarn_interpreter.log";
    for (const auto &[cmdline, mode] : cases) {
        writeFile(folder + "/device/proc/cmdline", cmdline);
        EXPECT_EQ(getTooltipVar(), mode) << cmdline;
    }
    const size_t descriptors = openDescriptors(true);
    const std::string cut = folder + "/device/proc/cmdline"; // is not to be taken for the whole
    const std::string tooLong = std::string(PATH_MAX - 1 - cut.size(), '/') + cut + "/";
    const char *root = std::exchange(systemRoot, tooLong.c_str());
    EXPECT_EQ(getTooltipVar(), -1);
    EXPECT_EQ(openDescriptors(true), descriptors);
    systemRoot = root;
    writeFile(folder + "/device/proc/cmdline", "tooltip=98");
    const int32_t notices = Orv_Interpreter_LogCount(ORV_LOG_NOTICE);
    Orv_Interpreter_Destroy(Orv_Interpreter_Create(&hostCallbacks)); // there is no folder for it
    EXPECT_EQ(Orv_Interpreter_LogCount(ORV_LOG_NOTICE), notices + 1);
    EXPECT_EQ(logfileFd, -1);
    writeFile(path, "");
    Interpreter *first = Orv_Interpreter_Create(&hostCallbacks);
    Interpreter *second = Orv_Interpreter_Create(&hostCallbacks);
    Orv_Interpreter_SetVariable(first, "a", std::string(600, 'x').c_str());
    Orv_Interpreter_Destroy(second);
    Orv_Interpreter_SetVariable(first, "b", "lost");
    Orv_Interpreter_Destroy(first);
    unlink((folder + "/device/proc/cmdline").c_str());
    EXPECT_EQ(readFile(path),
              "zarn - $HTML_TOOLTIPS is set to 0\n"
              "zarn - $HTML_TOOLTIPS is set to illegal value 9, resetting to 0 (no tooltips)\n"
              "zarn - $HTML_TOOLTIPS is set to 0\n"
              "zarn - CGI-Variable set: a=" +
                  std::string(472, 'x'));
}

TEST(Limits, NestedBodies)
{
    for (const size_t depth : {64U, 65U}) {
        const Outcome got =
            renderText(repeated("<?echo x", depth) + "!" + repeated("?>", depth) + ".");
        EXPECT_EQ(got.page, repeated("x", 64) + (depth == 64 ? "!." : "."));
        EXPECT_EQ(got.log, depth == 64 ? ""
                                       : "zarn - ERROR in executeCmd: MAX_CMD_DEPTH exceeded! "
                                         "(t.htm)\n");
    }
    const Outcome query =
        renderText(repeated("<?print ", 10) + "<?error message ?>" + repeated("?>", 10));
    EXPECT_EQ(query.log, "t.htm, near line 1: Invalid numVar Index\n");
}

TEST(Limits, NestingWithoutBodiesNeedsLittleStack)
{
    constexpr size_t depth = 9990;
#if defined(ORV_OPTIMIZED) && (defined(__x86_64__) || defined(__arm__))
    constexpr size_t stack = ORV_STACK_NEEDED / 2; // that is enough there
#elif defined(ORV_OPTIMIZED)
    constexpr size_t stack = ORV_STACK_NEEDED;
#else
    constexpr size_t stack = size_t{16} * ORV_STACK_NEEDED;
#endif
    for (const auto &[open, close] : {std::pair("<?calc + ", " 1?>"),
                                      {"<?if eq ", " 1?>"},
                                      {"<?setvariable var:a ", "?>"},
                                      {"<?multiquerycount ", "?>"}}) {
        Outcome got;
        std::function<void()> run = [&, front = open, back = close] {
            got = renderText(repeated(front, depth) + "1" + repeated(back, depth) + ".");
        };
        pthread_attr_t attributes;
        pthread_t thread;
        pthread_attr_init(&attributes);
        EXPECT_EQ(pthread_attr_setstacksize(&attributes, stack), 0);
        const auto body = [](void *task) -> void * {
            (*static_cast<std::function<void()> *>(task))();
            return nullptr;
        };
        EXPECT_EQ(pthread_create(&thread, &attributes, body, &run), 0);
        EXPECT_EQ(pthread_join(thread, nullptr), 0);
        pthread_attr_destroy(&attributes);
        EXPECT_TRUE(got.page.ends_with('.')) << open << got.page;
        EXPECT_EQ(got.result, ORV_RUN_DONE) << open;
    }
}

TEST(Limits, ArgumentBuffer)
{
    const std::string message = "zarn - ERROR in pushStr: ARG_MAXLEN exceeded! (t.htm)\n";
    const std::string longest(65536 + 1023, 'x');
    const Outcome fits = renderText("<?setvariable var:a '" + longest + "'?><?echo $var:a?>");
    EXPECT_EQ(difference(longest, fits.page), "");
    EXPECT_EQ(fits.log, "");
    const Outcome cut = renderText("<?setvariable var:a " + longest +
                                   "$$?>"
                                   "<?echo $var:a?><?if eq '" +
                                   longest + "' '' x y?>");
    EXPECT_EQ(difference(longest + "y", cut.page), "");
    EXPECT_EQ(cut.log, repeated(message, 3));
    const Outcome number = renderText("<?setvariable var:a " + longest.substr(5) +
                                      "<?multiquerycount q?>?><?echo $var:a?>");
    EXPECT_EQ(difference(longest.substr(5), number.page), "");
}

TEST(Limits, ColumnsOfARow)
{
    static QueryRow row = {};
    static char text[] = "c";
    InterpreterCallbacks callbacks = hostCallbacks;
    callbacks.fQuery = [](Interpreter *, int32_t, const char *, QueryRow **rows, int32_t *) {
        *rows = &row;
        return 0;
    };
    row.cols[0] = row.cols[33] = text;
    Host host = withFiles({{"t.htm", "<?query q '$1$y[$z].'?>"}});
    useHost(&host);
    for (const auto &[count, invalid] : {std::pair(34, "z"), {35, ""}, {36, ""}, {-1, "1yz"}}) {
        row.count = count;
        std::string log;
        for (const char *column = invalid; *column; ++column)
            log += std::string("t.htm: Invalid numVar Index $") + *column + "\n";
        Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
        startLog();
        const Outcome got = runHandle(interpreter);
        Orv_Interpreter_Destroy(interpreter);
        EXPECT_EQ(got.page, count > 0 ? "cc[]." : "[].");
        EXPECT_EQ(got.log, log);
    }
}

TEST(Limits, ParserSymbols)
{
    for (const size_t elements : {9996U, 9997U}) {
        const Outcome got = renderText("<?echo " + repeated("$$", elements) + "?>.");
        const std::string page = elements == 9996 ? std::string(elements, '$') + "." : "";
        EXPECT_EQ(difference(page, got.page), "");
        EXPECT_EQ(got.result, elements == 9996 ? ORV_RUN_DONE : ORV_RUN_GAVE_UP);
        EXPECT_EQ(got.log,
                  elements == 9996
                      ? ""
                      : "zarn - ERROR in pushStr: NO MEMORY while parsing t.htm with Bison!\n");
    }
}

// Each suspended include has a template open, so templates come to 19 of them; the
// last of the 64 that there is room for are reached only from inside.
TEST(Limits, SuspendedIncludes)
{
    Host host = withFiles({{"t.htm", "<?multiquerycount two?>"}, {"b.htm", "b"}});
    host.onQuery = [&](Interpreter *handle, const std::string &) {
        for (const int32_t top : {62, 63}) {
            Arg *path = addArgElem(nullptr, ELEM_TEXT, strdup("b.htm"));
            Cmd *include = createCmd(ID_INCLUDE, nullptr, path, nullptr, nullptr, nullptr);
            Arg *body = addArgElem(nullptr, ELEM_CMD, include);
            Cmd *echo = createCmd(ID_ECHO, nullptr, body, nullptr, nullptr, nullptr);
            handle->pendingTop = top;
            if (top == 63) {
                handle->loopTop = 0;
                EXPECT_EQ(executeCmd(include, 1), EXEC_TOO_DEEP);
                handle->loopTop = -1;
            }
            EXPECT_EQ(executeCmd(echo, 1), top == 62 ? EXEC_SUSPENDED : EXEC_DONE);
            if (top == 62)
                EXPECT_EQ(doExclude(), 1);
            else
                destroyCmd(&echo);
            EXPECT_EQ(handle->pendingTop, top);
        }
        handle->pendingTop = -1;
    };
    EXPECT_EQ(render(host).log,
              repeated("zarn - ERROR in executeCmd: MAX_CMD_DEPTH exceeded! (t.htm)\n", 2));
}

// A read that is interrupted in the middle of a file ends it, as its end does.
TEST(System, Base64EndsWithItsPadding)
{
    EXPECT_EQ(mkfifo("fifo", 0600), 0);
    struct sigaction interrupt = {};
    interrupt.sa_handler = [](int) {};
    sigaction(SIGUSR1, &interrupt, nullptr);
    std::thread writer([reader = pthread_self()] {
        const int fd = open("fifo", O_WRONLY);
        EXPECT_EQ(write(fd, "ab", 2), 2);
        usleep(100000);
        pthread_kill(reader, SIGUSR1);
        usleep(100000);
        signal(SIGPIPE, SIG_IGN);
        static_cast<void>(write(fd, "cdef", 4) == 4);
        close(fd);
    });
    Host host = withFiles({{"t.htm", "<?base64 fifo?>."}});
    useHost(&host);
    Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
    EXPECT_EQ(runHandle(handle).page, "YWI=.");
    writer.join();
    Orv_Interpreter_Destroy(handle);
    signal(SIGPIPE, SIG_DFL);
    signal(SIGUSR1, SIG_DFL);
}

TEST(Fallback, AQuoteInAnIndexGoesToStandardOutput)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(renderText("<?setvariable var:a[x] A?><?echo $var:a[ 'x\" ]?>").page, "A");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "'\"");
}

TEST(Tokens, HoldCopies)
{
    for (const int32_t cut : {0, 1}) {
        EXPECT_EQ(dataToToken("name value", cut), 0);
        EXPECT_STREQ(zarn_lval.text, cut ? "name" : "name value");
        free(zarn_lval.text);
    }
}

TEST(Records, AreLinkedUpToTheFirstNullArgument)
{
    Arg *a = addArgElem(nullptr, ELEM_TEXT, strdup("b"));
    a = addArgElem(a, ELEM_TEXT, strdup("a"));
    EXPECT_STREQ(static_cast<char *>(a->elems->value), "a");
    EXPECT_STREQ(static_cast<char *>(a->elems->next->value), "b");
    Arg *lost = addArgElem(nullptr, ELEM_CMD,
                           createCmd(ID_ECHO, nullptr, nullptr, nullptr, nullptr, nullptr));
    Cmd *cmd = createCmd(ID_PRINT, strdup("extra"), a, nullptr, lost, nullptr);
    EXPECT_EQ(cmd->args, a);
    EXPECT_EQ(a->next, nullptr);
    destroyCmd(&cmd);
    startLog();
    EXPECT_EQ(executeCmd(nullptr, 1), EXEC_NO_COMMAND);
    EXPECT_EQ(doExclude(), 0);
    EXPECT_EQ(getRepeatUpBound(nullptr), nullptr);
    EXPECT_EQ(takeLog(),
              "zarn - ERROR in getRepeatUpBound: NO MEMORY or missing repeat boundary. ()\n");
    Orv_Interpreter_SetLog(-1);
}

// A block of the heap with that record, as somebody would lay it out who knows only its
// described fields.
template <class Record> static Record *laidOut(const Record &record)
{
    return new (malloc(sizeof(Record))) Record(record);
}

// The argument "[", a command with "b", and "c". Each bit of byHand that is set stands for
// records that are not made by the library.
static Arg *mixedArgument(unsigned byHand)
{
    const auto part = [byHand](unsigned bit) { return byHand >> bit & 1; };
    const auto put = [&](Arg *arg, unsigned bit, int32_t type, void *value) {
        if (!part(bit))
            return addArgElem(arg, type, value);
        if (!arg)
            arg = laidOut<Arg>({nullptr, nullptr});
        arg->elems = laidOut<ArgElem>({type, value, arg->elems});
        return arg;
    };
    Arg *inner =
        put(part(0) ? laidOut<Arg>({nullptr, nullptr}) : nullptr, 1, ELEM_TEXT, strdup("b"));
    Cmd *nested = part(2) ? laidOut<Cmd>({inner, ID_ECHO, nullptr})
                          : createCmd(ID_ECHO, nullptr, inner, nullptr, nullptr, nullptr);
    Arg *arg = put(part(3) ? laidOut<Arg>({nullptr, nullptr}) : nullptr, 4, ELEM_TEXT, strdup("c"));
    return put(put(arg, 5, ELEM_CMD, nested), 6, ELEM_TEXT, strdup("["));
}

// In a run the blocks serve the records of the commands behind.
TEST(Records, MayBeLaidOutByHand)
{
    Host host = withFiles({{"t.htm", "<?multiquerycount two?>" +
                                         repeated("<?setvariable var:a 'x<?calc + 1 1?>'?>", 9) +
                                         "<?echo $var:a?>"}});
    host.onQuery = [](Interpreter *running, const std::string &) {
        for (unsigned byHand = 0; byHand < 1U << 7; ++byHand) {
            Arg *arg = mixedArgument(byHand);
            if (running)
                expandArg(arg, 0, 1);
            destroyArg(&arg);
            int32_t *excluded = getRepeatUpBound(mixedArgument(byHand));
            EXPECT_EQ(*excluded, 1) << byHand;
            Cmd *cmd = createCmd(ID_PRINT, excluded, mixedArgument(byHand), mixedArgument(~byHand),
                                 nullptr, mixedArgument(byHand));
            destroyCmd(&cmd);
        }
    };
    host.onQuery(nullptr, "");
    EXPECT_EQ(render(host).page, repeated("[bc", 1 << 7) + "2x2");
}

TEST(Internal, BadCallsAreRefused)
{
    Host host = withFiles({{"t.htm", "<?setvariable var:l[1] L?><?multiquerycount two?>"}});
    host.onQuery = [](Interpreter *, const std::string &) {
        // The name behind which it stands goes on waiting for its index.
        Arg *odd = addArgElem(nullptr, ELEM_TEXT, strdup("1"));
        odd = addArgElem(odd, 7, nullptr);
        odd = addArgElem(odd, ELEM_GETARRAY, strdup("l["));
        expandArg(odd, 0, 1);
        destroyArg(&odd);
        Cmd *unknown = createCmd(0x50, nullptr, nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(executeCmd(unknown, 1), EXEC_BAD_COMMAND);
        destroyCmd(&unknown);
        EXPECT_EQ(doInclude(nullptr, 0), INCLUDE_FAILED);
        EXPECT_EQ(lookupNumvar("", 0, 1), -1);
        EXPECT_EQ(lookupNumvar("0", 0, 1), -1); // no body runs
        EXPECT_EQ(lookupVar(nullptr, 0, 1), -1);
        EXPECT_EQ(lookupVar("none", 0, 1), -1);
        EXPECT_EQ(lookupVar("l[1", ID_ECHO, 1), 0);
        EXPECT_EQ(lookupArray("l[-", 1, ID_PRINTJS, 1), 0);
        EXPECT_EQ(escapeToHtml(nullptr, 1), -1);
        EXPECT_EQ(escapeToJs(nullptr, 1), -1);
        EXPECT_EQ(escapeToHtml("<", 1), 0);
        EXPECT_EQ(expandArg(nullptr, 0, 1), -1);
        EXPECT_EQ(pushStr(&inpr->args, nullptr), -1);
        EXPECT_EQ(pushStr(&inpr->args, "longer"), 0);
        inpr->args.argLen = 0; // the bytes stay, and a shorter text ends before theirs
        EXPECT_EQ(pushStr(&inpr->args, "sho"), 0);
        EXPECT_STREQ(inpr->args.argBuf, "sho");
        inpr->args.argLen = 0;
        EXPECT_EQ(copyQueryRows(nullptr), nullptr);
        Cmd *incomplete = createCmd(ID_INCLUDE, nullptr, nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(executeCmd(incomplete, 1), EXEC_BAD_COMMAND);
        destroyCmd(&incomplete);
        int32_t lower;
        int32_t upper = 7;
        EXPECT_EQ(doRepeat("x", "1", &lower, &upper), 0);
        EXPECT_EQ(upper, 7);
        EXPECT_EQ(doRepeat("1", "x", &lower, &upper), 0);
        EXPECT_EQ(doRepeat("1", "2", &lower, &upper), 1);
        EXPECT_EQ(doIf("a", "a", 0), -1);
        feclearexcept(FE_ALL_EXCEPT); // texts that are no numbers are not made numbers of
        EXPECT_EQ(doIf("1e300abc", "x", ID_IFLT), 1);
        EXPECT_EQ(fetestexcept(FE_OVERFLOW), 0);
        EXPECT_EQ(doCalc("1", "1", 0), nullptr);
    };
    const Outcome got = render(host);
    EXPECT_EQ(got.page, "LL1&lt;0");
    EXPECT_EQ(got.log, "zarn - ERROR in expandArg: Invalid argElem type\n"
                       "zarn - ERROR in pushStr: Empty include path (t.htm)!\n"
                       "t.htm, near line 1: Invalid numVar Index\n"
                       "t.htm, near line 1: Invalid numVar Index $0\n"
                       "zarn - ERROR in executeCmd: Missing 1st argument in cmd ID108! (t.htm)\n"
                       "t.htm, near line 1: Warning: Lower boundary x of repeat is no valid "
                       "number in current context\n"
                       "t.htm, near line 1: Warning: Upper boundary x of repeat is no valid "
                       "number in current context\n");
}

// What has been read of it comes out, and nothing behind; while fOpen is asked it stays.
TEST(Callbacks, MayCloseTheRunsOwnTemplate)
{
    for (const auto &[command, read] : {std::pair("<?multiquerycount q?>[]", 8192U),
                                        {"<?error found ?>[]", 8192U},
                                        {"<?echo '<?multiquerycount q?>[]'?>", 8192U},
                                        {"<?repeat [ 1 1 ] '<?multiquerycount q?>[]'?>", 8192U},
                                        {"<?include none.htm?>0[]", 20000U}})
        for (const size_t length : {10U, 9000U}) {
            const std::string behind(length, 'c');
            Host host = withFiles({{"t.htm", "ab" + (command + behind)}});
            host.onQuery = [](Interpreter *, const std::string &) { EXPECT_EQ(doExclude(), 0); };
            host.onOpen = [](const std::string &path) {
                EXPECT_EQ(doExclude(), 0);
                return open(path.c_str(), O_RDONLY);
            };
            InterpreterCallbacks callbacks = hostCallbacks;
            callbacks.fError = [](Interpreter *, const char **) { return doExclude(); };
            useHost(&host);
            Interpreter *handle = Orv_Interpreter_Create(&callbacks);
            for (int i = 0; i < 2; ++i) {
                const std::string page = runHandle(handle).page;
                EXPECT_TRUE(("ab0[]" + behind).starts_with(page) && page.starts_with("ab")) << page;
                EXPECT_LE(page.size(), read);
                EXPECT_EQ(mappedFiles(), 0U);
            }
            Orv_Interpreter_Destroy(handle);
        }
}

// The first byte of that sign is negative where characters have a sign.
TEST(Compare, KnowsADecimalSignOfTwoBytes)
{
    writeFile("locales/source", "LC_NUMERIC\ncopy \"ps_AF\"\nEND LC_NUMERIC\n");
    static_cast<void>(
        system("localedef -c -i locales/source -f UTF-8 locales/ps_AF.UTF-8 2>locales/said"));
    setenv("LOCPATH", (folder + "/locales").c_str(), 1);
    if (!setlocale(LC_NUMERIC, "ps_AF.UTF-8"))
        GTEST_SKIP() << "localedef and its sources are not installed here";
    const std::string sign = "\xD9\xAB";
    const auto five = sign + "5";
    EXPECT_EQ(doIf(five.c_str(), "1", ID_IFLT), 1);
    EXPECT_EQ(doIf(five.c_str(), ("0" + five + "0").c_str(), ID_IFEQ), 1);
    EXPECT_EQ(doIf(sign.c_str(), "1", ID_IFLT), 0);
    setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(doIf(five.c_str(), "1", ID_IFLT), 0);
}

// What a row is without: a production, or an action.
TEST(Commands, EachRowIsParsedAndActs)
{
    Host host = withFiles({{"t.htm", "<?multiquerycount two?>"}});
    host.onQuery = [](Interpreter *, const std::string &query) {
        for (const CommandDef &row : commandTable) {
            if (query != "two" || row.id == ID_MULTIQUERYCOUNT)
                continue;
            Arg *args[2];
            for (Arg *&arg : args)
                arg = addArgElem(nullptr, ELEM_TEXT, strdup("none"));
            Cmd *cmd = createCmd(row.id, nullptr, args[0], args[1], nullptr, nullptr);
            EXPECT_EQ(executeCmd(cmd, 1), EXEC_DONE) << row.words;
            destroyCmd(&cmd);
        }
    };
    render(host);
    for (const CommandDef &row : commandTable) {
        const std::string front = std::string(".<?") + row.words +
                                  (row.tail == Tail::OPERATOR  ? std::string(" ") + row.sign
                                   : row.tail == Tail::ELEMENT ? " var:a[1]"
                                   : row.tail == Tail::NAME    ? " var:a"
                                                               : "");
        bool accepted = false;
        for (const char *args : {" ?>", " 1?>", " 1 2?>", " 1 2 ] 4?>"})
            accepted |= renderText(front + args).log.find("yntax error") == std::string::npos;
        EXPECT_TRUE(accepted) << row.words;
    }
}
