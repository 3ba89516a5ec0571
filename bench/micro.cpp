/* bench/micro.cpp - the library's small operations under Google Benchmark:
 * bench_micro FOLDER [BENCHMARK OPTION]... works in FOLDER. */
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <libintl.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "base/process.h"
#include "textdb/language.h"
#include "tools/common/textdb_file.h"
#include "vars/tree.h"

using std::string;
using std::vector;

static int nullFd;

static void writeFile(const string &path, const string &bytes)
{
    FILE *file = fopen(path.c_str(), "wb");
    if (!file || fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() || fclose(file)) {
        perror(path.c_str());
        exit(2);
    }
}

// Keys as programs choose them: words in common, and a number; in no order.
static vector<string> makeKeys(size_t count)
{
    static constexpr const char *words[] = {"wan", "lan", "wlan", "status", "dhcp", "port"};
    vector<string> keys;
    for (size_t i = 0; i < count; ++i)
        keys.push_back(string(words[i * 7 % std::size(words)]) +
                       words[i / 6 * 5 % std::size(words)] + std::to_string(i));
    for (size_t i = count; i > 1; --i)
        std::swap(keys[i - 1], keys[i * 2654435761U % i]);
    return keys;
}

// ---- Variables ----

static void insertKeys(VarNode **root, const vector<string> &keys)
{
    for (const string &key : keys)
        insertVar(root, key.c_str(), "value", VAR_REPLACE);
}

static void BM_findVar(benchmark::State &state)
{
    const vector<string> keys = makeKeys(static_cast<size_t>(state.range(0)));
    VarNode *root = nullptr;
    insertKeys(&root, keys);
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(findVar(root, keys[next].c_str()));
        next = next + 1 < keys.size() ? next + 1 : 0;
    }
    state.SetItemsProcessed(state.iterations());
    destroyTree(&root);
}
BENCHMARK(BM_findVar)->RangeMultiplier(10)->Range(10, 100000);

// A whole tree an iteration, with its end.
static void BM_insertVar(benchmark::State &state)
{
    const vector<string> keys = makeKeys(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        VarNode *root = nullptr;
        insertKeys(&root, keys);
        destroyTree(&root);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_insertVar)->RangeMultiplier(10)->Range(10, 100000);

// ---- Texts ----

// The language of the database with that many texts.
static string languageOf(size_t count)
{
    return "t" + std::to_string(std::to_string(count).size());
}

static string domainOf(size_t count)
{
    return "texts" + std::to_string(count);
}

// Makes a database and a .mo file of the same texts.
static void makeTexts(const vector<string> &keys)
{
    vector<TextEntry> entries;
    string po = "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n";
    for (const string &key : keys) {
        entries.push_back({key, "the text", 0});
        po += "msgid \"" + key + "\"\nmsgstr \"the text\"\n";
    }
    std::sort(entries.begin(), entries.end(),
              [](const TextEntry &a, const TextEntry &b) { return a.id < b.id; });
    string database;
    size_t culprit;
    if (const char *problem = buildTextDb(entries, &database, &culprit)) {
        fprintf(stderr, "bench_micro: %s\n", problem);
        exit(2);
    }
    writeFile("etc/htmltext_" + languageOf(keys.size()) + ".db", database);
    const string domain = domainOf(keys.size());
    writeFile(domain + ".po", po);
    const string command = "msgfmt -o mo/xx/LC_MESSAGES/" + domain + ".mo " + domain + ".po";
    if (system(command.c_str()) != 0)
        exit(2);
}

// Looks every text up in turn.
template <typename Lookup>
static void lookUp(benchmark::State &state, const vector<string> &keys, Lookup lookup)
{
    if (const char *text = lookup(keys[0].c_str()); !text || strcmp(text, "the text") != 0) {
        state.SkipWithError("the text is not found");
        return;
    }
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lookup(keys[next].c_str()));
        next = next + 1 < keys.size() ? next + 1 : 0;
    }
    state.SetItemsProcessed(state.iterations());
}

static void BM_lookupDBField(benchmark::State &state)
{
    const vector<string> keys = makeKeys(static_cast<size_t>(state.range(0)));
    makeTexts(keys);
    Orv_Interpreter_SetLanguage(languageOf(keys.size()).c_str());
    lookUp(state, keys, lookupDBField);
}
BENCHMARK(BM_lookupDBField)->RangeMultiplier(10)->Range(100, 100000);

static void BM_dgettext(benchmark::State &state)
{
    const vector<string> keys = makeKeys(static_cast<size_t>(state.range(0)));
    makeTexts(keys);
    const string domain = domainOf(keys.size());
    char folder[4096];
    bindtextdomain(domain.c_str(), (string(getcwd(folder, sizeof folder)) + "/mo").c_str());
    lookUp(state, keys, [&](const char *key) { return dgettext(domain.c_str(), key); });
}
BENCHMARK(BM_dgettext)->RangeMultiplier(10)->Range(100, 100000);

// ---- Values ----

namespace
{
// A handle in the state of a run, so that values can be appended and written.
struct Run {
    Interpreter *handle;

    Run()
    {
        static const InterpreterCallbacks callbacks = {
            [](Interpreter *, const char *path) -> int32_t { return open(path, O_RDONLY); },
            [](Interpreter *, int32_t, const char *, QueryRow **, int32_t *) { return 0; },
            [](Interpreter *, const char **) { return 0; }};
        handle = Orv_Interpreter_Create(&callbacks);
    }
    ~Run()
    {
        inpr = nullptr;
        Orv_Interpreter_Destroy(handle);
    }
};
} // namespace

// Escapes into the argument buffer; every range(0)-th byte has to be replaced.
static void BM_escapeToHtml(benchmark::State &state)
{
    Run run;
    string text(4096, 'a');
    for (size_t i = 0; state.range(0) > 0 && i < text.size();
         i += static_cast<size_t>(state.range(0)))
        text[i] = '<';
    inpr = run.handle;
    for (auto _ : state) {
        escapeToHtml(text.c_str(), 0);
        inpr->args.argLen = 0;
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_escapeToHtml)->Arg(0)->Arg(100)->Arg(10)->Arg(1);

static void BM_putoutNumber(benchmark::State &state)
{
    Run run;
    inpr = run.handle;
    int32_t number = 1;
    for (auto _ : state) {
        putoutNumber(number, 0);
        inpr->args.argLen = 0;
        number = static_cast<int32_t>(static_cast<uint32_t>(number) * 1664525U + 1013904223U);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_putoutNumber);

static void BM_doCalc(benchmark::State &state)
{
    for (auto _ : state)
        free(doCalc("12.25", "7.5", ID_CALCMULT));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_doCalc);

static void BM_doIf(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(doIf("12.25", "7.5", ID_IFGT));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_doIf);

// ---- Scanning ----

// Whole runs into /dev/null of 1 MiB that consists of one text, again and again.
static void scan(benchmark::State &state, const char *text)
{
    string page;
    while (page.size() < 1 << 20)
        page += text;
    writeFile("page.htm", page);
    Run run;
    for (auto _ : state)
        Orv_Interpreter_Run(run.handle, "page.htm", nullFd);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.size()));
}
BENCHMARK_CAPTURE(scan, text, "<p>page text</p>\n");
BENCHMARK_CAPTURE(scan, comments, "<?-- a comment that is left out ?>");
BENCHMARK_CAPTURE(scan, commands, "<?echo $var:none?>");
BENCHMARK_CAPTURE(scan, quoted, "<?echo 'a text that stands in quotes'?>");

int main(int argc, char **argv)
{
    if (argc < 2 || (mkdir(argv[1], 0755), chdir(argv[1])) != 0) {
        fputs("usage: bench_micro FOLDER [OPTION]...\n", stderr);
        return 2;
    }
    for (const char *folder : {"etc", "mo", "mo/xx", "mo/xx/LC_MESSAGES"})
        mkdir(folder, 0755);
    nullFd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    systemRoot = ".";
    setlocale(LC_ALL, "C.UTF-8");
    setenv("LANGUAGE", "xx", 1);
    argv[1] = argv[0];
    --argc;
    benchmark::Initialize(&argc, argv + 1);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
