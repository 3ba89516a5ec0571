/* tools/check/orv-check.cpp - checks the templates of a site, for their authors. */
#include <errno.h>
#include <getopt.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "lsp.h"
#include "report.h"
#include "tools/common/files.h"
#include "tools/common/stack.h"

using std::string;

const char programName[] = "orv-check";

namespace fs = std::filesystem;

// Exit statuses.
enum { NOTHING_FOUND = 0, FOUND = 1, WRONG_USAGE = 2 };

static constexpr char helpText[] =
    "Usage: orv-check [OPTION]... [TEMPLATE...]\n"
    "Checks the templates of a site, with all that they include. Each TEMPLATE is a\n"
    "page, a path below the document root; without any, all *.htm there are.\n"
    "\n"
    "  --docroot DIR    the site (default: .)\n"
    "  --db FILE        an SQLite database that queries are checked against; it is\n"
    "                   opened read-only, and no query is run\n"
    "  --texts FILE     the texts of a language, .po or .db; repeatable. The file's\n"
    "                   name tells the language: de.po, htmltext_de.db\n"
    "  --set NAME       a variable, NAME or NAME[INDEX], that the web program sets;\n"
    "                   repeatable. Fields of the site's forms need not be named\n"
    "  --safe NAME      like --set, for a variable whose values are safe in any part of\n"
    "                   a page: a number, or the site's own address\n"
    "  --set-from FILE  the same for a list: a name a line, with the word safe behind it\n"
    "                   for such a one; # begins a comment\n"
    "  --ignore ID      leave findings of that kind out; repeatable. In a template,\n"
    "                   <?-- orv-check: ignore ID: reason ?> does it for the command\n"
    "                   behind it\n"
    "  --format FORM    text (default), json, or sarif (2.1.0)\n"
    "  --lsp            speak the Language Server Protocol on standard input and output\n"
    "  --list           print the kinds of finding, each with an example\n"
    "  --help, --version  print this text, or the version\n"
    "\n"
    "Exit status: 0 nothing found; 1 findings; 2 wrong usage, or a file that cannot\n"
    "be read.\n";

namespace
{
struct Options {
    SiteOptions site;
    std::vector<const Kind *> ignored;
    Form form = Form::TEXT;
    bool serves = false;
    bool ownRoot = false; // --docroot is given
};
} // namespace

// Prints one line and returns the exit status for it.
__attribute__((format(printf, 1, 2))) static int fail(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    fputs("orv-check: ", stderr);
    vfprintf(stderr, format, values);
    fputc('\n', stderr);
    va_end(values);
    return WRONG_USAGE;
}

// Prints a text on standard output and returns status, or that of a failure.
static int print(const string &text, int status)
{
    if (fputs(text.c_str(), stdout) >= 0 && fflush(stdout) == 0)
        return status;
    return fail("cannot write standard output: %s", strerror(errno));
}

static bool readNames(const char *path, SiteOptions *site)
{
    std::ifstream file(path);
    string line;
    if (!file)
        return false;
    while (std::getline(file, line)) {
        std::istringstream words(line.substr(0, line.find('#')));
        string name;
        string safe;
        words >> name >> safe;
        if (!name.empty())
            (safe == "safe" ? site->safe : site->set).push_back(name);
    }
    return !file.bad(); // as a folder is
}

static int readForm(const char *name, Form *form)
{
    static constexpr const char *names[] = {"text", "json", "sarif"};
    for (size_t i = 0; i < std::size(names); ++i)
        if (strcmp(name, names[i]) == 0) {
            *form = static_cast<Form>(i);
            return -1;
        }
    return fail("--format needs text, json or sarif, not '%s'", name);
}

static int addIgnored(const char *id, Options *options)
{
    const Kind *kind = findKind(id);
    if (!kind)
        return fail("--ignore: there is no kind '%s' (--list tells all)", id);
    options->ignored.push_back(kind);
    return -1;
}

// Takes one option. Returns -1 to go on, else the exit status.
static int takeOption(int key, char **argv, Options *options)
{
    switch (key) {
    case 'd':
        options->site.docRoot = optarg;
        options->ownRoot = true;
        return -1;
    case 'q':
        options->site.db = optarg;
        return -1;
    case 't':
        options->site.texts.push_back(optarg);
        return -1;
    case 's':
        options->site.set.push_back(string(optarg, strcspn(optarg, "=")));
        return -1;
    case 'a':
        options->site.safe.push_back(optarg);
        return -1;
    case 'S':
        if (readNames(optarg, &options->site))
            return -1;
        return fail("cannot read %s: %s", optarg, strerror(errno));
    case 'i':
        return addIgnored(optarg, options);
    case 'f':
        return readForm(optarg, &options->form);
    case 'L':
        options->serves = true;
        return -1;
    case 'l':
        return print(listKinds(), NOTHING_FOUND);
    case 'h':
        return print(helpText, NOTHING_FOUND);
    case 'v':
        return print("orv-check " ORV_VERSION "\n", NOTHING_FOUND);
    case ':':
        return fail("%s needs a value", argv[optind - 1]);
    default:
        return fail("unknown option %s (--help tells all)", argv[optind - 1]);
    }
}

static int readOptions(int argc, char **argv, Options *options)
{
    static const option table[] = {
        {"docroot", required_argument, nullptr, 'd'},
        {"db", required_argument, nullptr, 'q'},
        {"texts", required_argument, nullptr, 't'},
        {"set", required_argument, nullptr, 's'},
        {"safe", required_argument, nullptr, 'a'},
        {"set-from", required_argument, nullptr, 'S'},
        {"ignore", required_argument, nullptr, 'i'},
        {"format", required_argument, nullptr, 'f'},
        {"lsp", no_argument, nullptr, 'L'},
        {"list", no_argument, nullptr, 'l'},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},
        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    for (int key; (key = getopt_long(argc, argv, ":", table, nullptr)) != -1;) {
        const int status = takeOption(key, argv, options);
        if (status >= 0)
            return status;
    }
    for (int i = optind; i < argc; ++i)
        options->site.templates.push_back(fs::path(argv[i]).lexically_normal().generic_string());
    return -1;
}

// A line on the terminal that tells how far a large site has been read.
static void showProgress(size_t templates)
{
    constexpr size_t step = 200;
    if (templates % step == 0 && templates > 0)
        fprintf(stderr, "\r%zu templates read", templates);
}

// Paths of templates as they are seen from the working directory.
static void prefixPaths(std::vector<Finding> *findings, const Site &site)
{
    const string prefix = fs::path(site.options.docRoot).lexically_normal() == "."
                              ? ""
                              : (fs::path(site.options.docRoot) / "").string();
    auto prefixed = [&](string *path) {
        if (site.templates.contains(*path))
            *path = prefix + *path;
    };
    for (Finding &finding : *findings) {
        prefixed(&finding.path);
        for (Note &note : finding.notes)
            prefixed(&note.path);
    }
}

static int run(int argc, char **argv)
{
    Options options;
    const int status = readOptions(argc, argv, &options);
    if (status >= 0)
        return status;
    if (options.serves)
        return serveLsp(std::move(options.site), options.ownRoot);
    Site site;
    string problem;
    const bool terminal = isatty(STDERR_FILENO) != 0;
    const bool loaded = loadSite(std::move(options.site), &site, &problem,
                                 terminal ? showProgress : std::function<void(size_t)>());
    if (terminal)
        fputs("\r\033[K", stderr);
    if (!loaded)
        return fail("%s", problem.c_str());
    if (site.pages.empty())
        return fail("there is no *.htm below %s", site.options.docRoot.c_str());
    std::vector<Finding> findings = checkSite(site);
    std::erase_if(findings, [&](const Finding &finding) {
        return std::find(options.ignored.begin(), options.ignored.end(), finding.kind) !=
               options.ignored.end();
    });
    prefixPaths(&findings, site);
    return print(printFindings(findings, options.form), findings.empty() ? NOTHING_FOUND : FOUND);
}

int main(int argc, char **argv)
{
    return runOnDeepStack(run, argc, argv);
}
