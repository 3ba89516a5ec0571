/* bench/growth.cpp - pages of growing sizes, to see how their cost grows:
 * bench_growth FOLDER [NAME] works in FOLDER, and runs under callgrind, which is told
 * to write a count for each page. NAME: only series with it in theirs.
 *
 * What is counted is a handle's whole life: made, variables set, one page into
 * /dev/null, ended. Each series has four sizes, n, 2n, 16n and 32n. A series whose name
 * ends in "(square)" grows with the square of its size: that is the language's own. */
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include "orvinterpreter.h"
#include "tools/common/textdb_file.h"

using std::string;
using std::vector;

static constexpr size_t MULTIPLES[] = {1, 2, 16, 32};

namespace
{
struct Case {
    string page = {};
    vector<std::pair<string, string>> variables = {};
    size_t rows = 0;
};

struct Series {
    const char *name;
    size_t smallest; // n
    Case (*make)(size_t size);
};
} // namespace

static vector<QueryRow> rows;
static int nullFd;

static void writeFile(const string &path, const string &bytes)
{
    FILE *file = fopen(path.c_str(), "wb");
    if (!file || fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() || fclose(file)) {
        perror(path.c_str());
        exit(2);
    }
}

static string repeated(size_t times, const string &text)
{
    string all;
    for (size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

// Text with a number in each repetition, in the place of its @.
static string numbered(size_t times, const string &text)
{
    const size_t at = text.find('@');
    string all;
    for (size_t i = 0; i < times; ++i)
        all += text.substr(0, at) + std::to_string(i) + text.substr(at + 1);
    return all;
}

static string nested(size_t depth, const string &open, const string &inner, const string &close)
{
    return repeated(depth, open) + inner + repeated(depth, close);
}

// ---- The series ----

static const Series allSeries[] = {
    {"bytes of page text", 1 << 14,
     [](size_t size) { return Case{repeated(size / 16, "<p>some text</p>")}; }},
    {"single < in page text", 1 << 12, [](size_t size) { return Case{repeated(size, "a<<b")}; }},
    {"commands", 1 << 8, [](size_t size) { return Case{repeated(size, "<?echo some?> ")}; }},
    {"elements of an argument", 1 << 7,
     [](size_t size) {
         return Case{"<?echo '" + repeated(size, "some $var:a") + "'?>", {{"a", "value"}}};
     }},
    {"commands of an argument", 1 << 7,
     [](size_t size) { return Case{"<?echo '" + repeated(size, "<?echo some?> ") + "'?>"}; }},
    {"arguments too many", 1 << 8,
     [](size_t size) { return Case{"some <?echo" + repeated(size, " some") + "?>"}; }},
    {"bodies in one another", 2,
     [](size_t size) { return Case{repeated(200, nested(size, "<?if eq 1 1 '", "some", "'?>"))}; }},
    {"arguments in one another", 16,
     [](size_t size) {
         return Case{repeated(8, nested(size, "<?calc + 1 ", "<?calc + 1 1?>", "?>"))};
     }},
    {"variables of the program", 1 << 8,
     [](size_t size) {
         Case made = {numbered(size, "<?echo $var:name@?>")};
         for (size_t i = 0; i < size; ++i)
             made.variables.emplace_back("name" + std::to_string(i), "value");
         return made;
     }},
    {"variables of templates", 1 << 8,
     [](size_t size) {
         return Case{numbered(size, "<?setvariable var:name@ value?>") +
                     numbered(size, "<?echo $var:name@?>")};
     }},
    {"one variable set again", 1 << 8,
     [](size_t size) {
         Case made = {"<?echo $var:name?>"};
         made.variables.assign(size, {"name", "value"});
         return made;
     }},
    {"array elements", 1 << 8,
     [](size_t size) {
         return Case{numbered(size, "<?setvariable var:list[@] value?>") +
                     numbered(size, "<?echo $var:list[@]?>")};
     }},
    {"text fields", 1 << 8, [](size_t size) { return Case{numbered(size, "<p>{?text@?}</p>")}; }},
    {"text fields that are missing", 1 << 8,
     [](size_t size) { return Case{numbered(size, "<p>{?none@?}</p>")}; }},
    {"includes", 1 << 5,
     [](size_t size) { return Case{repeated(size, "<?include small.htm?> ")}; }},
    {"changes of the language", 1 << 5,
     [](size_t size) {
         return Case{repeated(size, "<?setvariable var:lang en?>{?text1?}"
                                    "<?setvariable var:lang de?>{?text2?}")};
     }},
    {"rows of a query", 1 << 8,
     [](size_t size) {
         return Case{"<?multiquery all '$1 '?>", {}, size};
     }},
    {"rows with an include (square)", 1 << 4,
     [](size_t size) {
         return Case{"<?multiquery all '$1 <?include small.htm?>'?>", {}, size};
     }},
    {"iterations of a repeat", 1 << 8,
     [](size_t size) { return Case{"<?repeat [ 1 " + std::to_string(size) + " ] '$0 '?>"}; }},
    {"bytes of a quoted text", 1 << 12,
     [](size_t size) { return Case{"<?print '" + repeated(size / 8, "someText") + "'?>"}; }},
    {"bytes of blanks in a command", 1 << 12,
     [](size_t size) { return Case{"<?print" + string(size, ' ') + "some?>"}; }},
    {"bytes of a comment", 1 << 12,
     [](size_t size) { return Case{"<?--" + repeated(size / 8, "some   ") + "?>"}; }},
    {"bytes of a value to escape", 1 << 12,
     [](size_t size) {
         return Case{"<?echo $var:a?>", {{"a", repeated(size / 8, "text <b>")}}};
     }},
};

// ---- The web program ----

static int32_t openTemplate(Interpreter *, const char *path)
{
    return open(path, O_RDONLY | O_CLOEXEC);
}

static int32_t answer(Interpreter *, int32_t, const char *, QueryRow **first, int32_t *)
{
    *first = rows.empty() ? nullptr : rows.data();
    return 0;
}

static int32_t noError(Interpreter *, const char **)
{
    return 0;
}

static void makeRows(size_t count)
{
    static char text[] = "value";
    rows.assign(count, QueryRow{});
    for (size_t i = 0; i < count; ++i) {
        rows[i].count = 1;
        rows[i].cols[0] = text;
        rows[i].prev = i > 0 ? &rows[i - 1] : nullptr;
        rows[i].next = i + 1 < count ? &rows[i + 1] : nullptr;
    }
}

static void makeFiles()
{
    string keys[1 << 14];
    vector<TextEntry> entries;
    for (size_t i = 0; i < std::size(keys); ++i) {
        keys[i] = "text" + std::to_string(i);
        entries.push_back({keys[i], "some text", 0});
    }
    std::sort(entries.begin(), entries.end(),
              [](const TextEntry &a, const TextEntry &b) { return a.id < b.id; });
    string database;
    size_t culprit;
    if (const char *problem = buildTextDb(entries, &database, &culprit)) {
        fprintf(stderr, "bench_growth: %s\n", problem);
        exit(2);
    }
    mkdir("etc", 0755);
    writeFile("etc/htmltext_en.db", database);
    writeFile("etc/htmltext_de.db", database);
    writeFile("etc/htmltext.db", database);
    writeFile("small.htm", "some text <?echo some?>");
}

static void run(const Case &made)
{
    static const InterpreterCallbacks callbacks = {openTemplate, answer, noError};
    Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
    for (const auto &[name, value] : made.variables)
        Orv_Interpreter_SetVariable(interpreter, name.c_str(), value.c_str());
    const int32_t result = Orv_Interpreter_Run(interpreter, "page.htm", nullFd);
    Orv_Interpreter_Destroy(interpreter);
    if (result != ORV_RUN_DONE) {
        fprintf(stderr, "bench_growth: the run returned %d\n", result);
        exit(2);
    }
}

// The count's name is "SERIES: SIZE".
static void count(const Series &series, size_t size)
{
    const Case made = series.make(size);
    const string name = series.name + (": " + std::to_string(size));
    writeFile("page.htm", made.page);
    makeRows(made.rows);
    CALLGRIND_ZERO_STATS;
    run(made);
    CALLGRIND_DUMP_STATS_AT(name.c_str());
}

int main(int argc, char **argv)
{
    if (argc < 2 || (mkdir(argv[1], 0755), chdir(argv[1])) != 0) {
        fputs("usage: bench_growth FOLDER [NAME]\n", stderr);
        return 2;
    }
    nullFd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    systemRoot = ".";
    makeFiles();
    Orv_Interpreter_SetLanguage("en");
    writeFile("page.htm", "<?echo some?>");
    run({}); // what only the first page does
    for (const Series &series : allSeries)
        for (const size_t multiple : MULTIPLES)
            if (argc < 3 || strstr(series.name, argv[2]))
                count(series, series.smallest * multiple);
    return 0;
}
