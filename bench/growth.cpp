/* bench/growth.cpp - how the time of a page grows with its size: bench_growth
 * FOLDER [NAME] works in FOLDER, prints a table and fails when a doubling of
 * anything takes more than MOST times as long. NAME: only series with it in theirs.
 *
 * A time is the processor's for a handle's whole life: made, variables set, one
 * page into /dev/null, ended. It is the least of several, since noise only adds;
 * both sizes of a doubling that looks too dear are measured again before it
 * counts. What is left out is an include inside a running body: its command runs
 * again for each of them. */
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "orvinterpreter.h"
#include "tools/textdb_file.h"

using std::string;
using std::vector;

static constexpr double MOST = 2.3;
static constexpr double MEASURE_SECONDS = 0.05;
static constexpr int LEAST_RUNS = 5;
static constexpr int ATTEMPTS = 6;
static constexpr double PAST_LIMIT = -1; // the parser gives such a page up

namespace
{
struct Case {
    string page = {};
    vector<std::pair<string, string>> variables = {};
    size_t rows = 0;
};

struct Series {
    const char *name;
    size_t first, last; // sizes, doubled from one to the other
    Case (*make)(size_t size);
};
} // namespace

static vector<QueryRow> rows;
static int nullFd;

static double now()
{
    timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

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
    {"bytes of page text", 1 << 16, 1 << 23,
     [](size_t size) { return Case{repeated(size / 16, "<p>some text</p>")}; }},
    {"single < in page text", 1 << 12, 1 << 18,
     [](size_t size) { return Case{repeated(size, "a<<b")}; }},
    {"commands", 1 << 10, 1 << 16,
     [](size_t size) { return Case{repeated(size, "<?echo some?> ")}; }},
    {"elements of an argument", 1 << 10, 1 << 16,
     [](size_t size) {
         return Case{"<?echo '" + repeated(size, "some $var:a") + "'?>", {{"a", "value"}}};
     }},
    {"commands of an argument", 1 << 10, 1 << 16,
     [](size_t size) { return Case{"<?echo '" + repeated(size, "<?echo some?> ") + "'?>"}; }},
    {"arguments too many", 1 << 10, 1 << 16,
     [](size_t size) { return Case{"some <?echo" + repeated(size, " some") + "?>"}; }},
    {"bodies in one another", 4, 64,
     [](size_t size) { return Case{repeated(200, nested(size, "<?if eq 1 1 '", "some", "'?>"))}; }},
    {"arguments in one another", 16, 1024,
     [](size_t size) {
         return Case{repeated(8, nested(size, "<?calc + 1 ", "<?calc + 1 1?>", "?>"))};
     }},
    {"variables of the program", 1 << 8, 1 << 14,
     [](size_t size) {
         Case made = {numbered(size, "<?echo $var:name@?>")};
         for (size_t i = 0; i < size; ++i)
             made.variables.emplace_back("name" + std::to_string(i), "value");
         return made;
     }},
    {"variables of templates", 1 << 8, 1 << 14,
     [](size_t size) {
         return Case{numbered(size, "<?setvariable var:name@ value?>") +
                     numbered(size, "<?echo $var:name@?>")};
     }},
    {"one variable set again", 1 << 8, 1 << 14,
     [](size_t size) {
         Case made = {"<?echo $var:name?>"};
         made.variables.assign(size, {"name", "value"});
         return made;
     }},
    {"array elements", 1 << 8, 1 << 14,
     [](size_t size) {
         return Case{numbered(size, "<?setvariable var:list[@] value?>") +
                     numbered(size, "<?echo $var:list[@]?>")};
     }},
    {"text fields", 1 << 8, 1 << 14,
     [](size_t size) { return Case{numbered(size, "<p>{?text@?}</p>")}; }},
    {"text fields that are missing", 1 << 8, 1 << 14,
     [](size_t size) { return Case{numbered(size, "<p>{?none@?}</p>")}; }},
    {"includes", 1 << 5, 1 << 10,
     [](size_t size) { return Case{repeated(size, "<?include small.htm?> ")}; }},
    {"rows of a query", 1 << 8, 1 << 14,
     [](size_t size) {
         return Case{"<?multiquery all '$1 '?>", {}, size};
     }},
    {"iterations of a repeat", 1 << 8, 1 << 14,
     [](size_t size) { return Case{"<?repeat [ 1 " + std::to_string(size) + " ] '$0 '?>"}; }},
    {"bytes of a quoted text", 1 << 14, 1 << 21,
     [](size_t size) { return Case{"<?print '" + repeated(size / 8, "someText") + "'?>"}; }},
    {"bytes of blanks in a command", 1 << 14, 1 << 21,
     [](size_t size) { return Case{"<?print" + string(size, ' ') + "some?>"}; }},
    {"bytes of a comment", 1 << 14, 1 << 21,
     [](size_t size) { return Case{"<?--" + repeated(size / 8, "some   ") + "?>"}; }},
    {"bytes of a value to escape", 1 << 14, 1 << 20,
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
    writeFile("etc/htmltext.db", database);
    writeFile("small.htm", "some text <?echo some?>");
}

// Returns the seconds, or PAST_LIMIT.
static double timeOnce(const Case &made)
{
    static const InterpreterCallbacks callbacks = {openTemplate, answer, noError};
    const double begin = now();
    Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
    for (const auto &[name, value] : made.variables)
        Orv_Interpreter_SetVariable(interpreter, name.c_str(), value.c_str());
    const int32_t result = Orv_Interpreter_Run(interpreter, "page.htm", nullFd);
    Orv_Interpreter_Destroy(interpreter);
    const double seconds = now() - begin;
    if (result == ORV_RUN_GAVE_UP)
        return PAST_LIMIT;
    if (result != ORV_RUN_DONE) {
        fprintf(stderr, "bench_growth: the run returned %d\n", result);
        exit(2);
    }
    return seconds;
}

static double measure(const Series &series, size_t size)
{
    const Case made = series.make(size);
    writeFile("page.htm", made.page);
    makeRows(made.rows);
    double least = timeOnce(made);
    double spent = least;
    if (least == PAST_LIMIT)
        return PAST_LIMIT;
    for (int runs = 1; runs < LEAST_RUNS || spent < MEASURE_SECONDS; ++runs) {
        const double seconds = timeOnce(made);
        least = std::min(least, seconds);
        spent += seconds;
    }
    return least;
}

// Prints a line a size. Returns whether every doubling stayed within MOST.
static bool grow(const Series &series)
{
    bool good = true;
    printf("%s\n", series.name);
    double before = measure(series, series.first);
    printf("  %10zu %12.1f us\n", series.first, before * 1e6);
    for (size_t size = series.first * 2; size <= series.last; size *= 2) {
        double after = measure(series, size);
        for (int attempt = 1; attempt < ATTEMPTS && after > MOST * before; ++attempt) {
            before = std::min(before, measure(series, size / 2));
            after = std::min(after, measure(series, size));
        }
        if (after == PAST_LIMIT) {
            printf("  %10zu is past the limit\n", size);
            break;
        }
        const bool slow = after > MOST * before;
        printf("  %10zu %12.1f us %6.2fx%s\n", size, after * 1e6, after / before,
               slow ? "  TOO SLOW" : "");
        fflush(stdout);
        good &= !slow;
        before = after;
    }
    return good;
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
    int tooSlow = 0;
    for (const Series &series : allSeries)
        if (argc < 3 || strstr(series.name, argv[2]))
            tooSlow += !grow(series);
    printf("%d of %zu grow more than %.1f times in a doubling\n", tooSlow, std::size(allSeries),
           MOST);
    return tooSlow > 0 ? 1 : 0;
}
