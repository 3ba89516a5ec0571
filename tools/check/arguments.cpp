/* tools/check/arguments.cpp - the options of orv-check, and a site looked at by them. */
#include "arguments.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>

#include "tools/common/files.h"
#include "tools/common/options.h"

using std::string;

namespace fs = std::filesystem;

static constexpr char helpText[] =
    "Usage: orv-check [OPTION]... [TEMPLATE...]\n"
    "Checks the templates of a site, with all that they include. What it has to know of\n"
    "the site stands in orv-check.json, in the working directory or the nearest folder\n"
    "above that has one; options win over it. Each TEMPLATE is a page, by a path that\n"
    "leads to it or a path below the document root. Without any, all files there that\n"
    "hold a command or a text field are looked at. A folder stands for the site in it,\n"
    "or for the part of a site that lies below it.\n"
    "\n"
    "  --init           write an orv-check.json for the site in the working directory,\n"
    "                   with what can be guessed of it\n"
    "  --config FILE    this file in the place of orv-check.json\n"
    "  --docroot DIR    the site (default: .)\n"
    "  --db FILE        an SQLite database that queries are checked against, or a script\n"
    "                   (.sql) that makes one; it is only read, and no query is run\n"
    "  --texts FILE     the texts of a language, .po or .db; repeatable. The file's\n"
    "                   name tells the language: de.po, htmltext_de.db\n"
    "  --set NAME       a variable, NAME or NAME[INDEX], that the web program sets;\n"
    "                   repeatable. Fields of the site's forms need not be named\n"
    "  --safe NAME      like --set, for a variable whose values are safe in any part of\n"
    "                   a page: a number, or the site's own address\n"
    "  --set-from FILE  the same for a list: a name a line, with the word safe behind it\n"
    "                   for such a one; # begins a comment\n"
    "  --route PATTERN  an address that the web program answers itself, so that no file of\n"
    "                   it has to be there; repeatable\n"
    "  --ignore ID      leave findings of that kind out; repeatable. In a template,\n"
    "                   <?-- orv-check: ignore ID: reason ?> does it for the command\n"
    "                   behind it\n"
    "  --also ID        find that kind, too, which is off otherwise: text-hard-coded\n"
    "  --only FILE...   check the whole site, and print what is found in these files, or\n"
    "                   below these folders\n"
    "  --quiet          do not say on standard error how much was checked and found\n"
    "  --format FORM    text (default), json, or sarif (2.1.0)\n"
    "  --lsp            speak the Language Server Protocol on standard input and output\n"
    "  --list           print the kinds of finding, each with an example\n"
    "  --explain ID     print that of one kind; repeatable\n"
    "  --help, --version  print this text, or the version\n"
    "\n"
    "Exit status: 0 nothing found; 1 findings; 2 wrong usage, or a file that cannot\n"
    "be read.\n";

enum OptionNumber : size_t {
    OPT_INIT,
    OPT_CONFIG,
    OPT_DOCROOT,
    OPT_DB,
    OPT_TEXTS,
    OPT_SET,
    OPT_SAFE,
    OPT_SET_FROM,
    OPT_ROUTE,
    OPT_IGNORE,
    OPT_ALSO,
    OPT_ONLY,
    OPT_QUIET,
    OPT_FORMAT,
    OPT_LSP,
    OPT_LIST,
    OPT_EXPLAIN,
    OPT_HELP,
    OPT_VERSION
};

// In the order of OptionNumber.
static constexpr OptionRow optionRows[] = {
    {"init", 0, false},   {"config", 0, true}, {"docroot", 0, true},  {"db", 0, true},
    {"texts", 0, true},   {"set", 0, true},    {"safe", 0, true},     {"set-from", 0, true},
    {"route", 0, true},   {"ignore", 0, true}, {"also", 0, true},     {"only", 0, false},
    {"quiet", 0, false},  {"format", 0, true}, {"lsp", 0, false},     {"list", 0, false},
    {"explain", 0, true}, {"help", 0, false},  {"version", 0, false},
};

int printAnswer(const string &text, int status)
{
    return printText(text) == 0 ? status : WRONG_USAGE;
}

static bool readForm(const string &name, Form *form)
{
    static constexpr const char *names[] = {"text", "json", "sarif"};
    const auto *found = std::find(std::begin(names), std::end(names), name);
    if (found == std::end(names)) {
        complain(0, "--format needs text, json or sarif, not '%s'", name.c_str());
        return false;
    }
    *form = static_cast<Form>(found - std::begin(names));
    return true;
}

// Returns the kinds that the values of an option name; without one after a complaint.
static bool readKinds(const CommandLine &line, OptionNumber option,
                      std::vector<const Kind *> *kinds)
{
    for (const char *id : line.values[option]) {
        kinds->push_back(findKind(id));
        if (!kinds->back()) {
            complain(0, "--%s: there is no kind '%s' (--list tells all)", optionRows[option].name,
                     id);
            return false;
        }
    }
    return true;
}

// Takes what the options say about the site. Returns false after a complaint.
static bool takeGiven(const CommandLine &line, GivenOptions *given)
{
    SiteOptions &site = given->site;
    given->config = line.value(OPT_CONFIG, "");
    site.docRoot = line.value(OPT_DOCROOT, "");
    if (line.has(OPT_DB))
        site.databases = {{"main", {line.value(OPT_DB), 0}}};
    site.texts.assign(line.values[OPT_TEXTS].begin(), line.values[OPT_TEXTS].end());
    site.set.assign(line.values[OPT_SET].begin(), line.values[OPT_SET].end());
    site.safe.assign(line.values[OPT_SAFE].begin(), line.values[OPT_SAFE].end());
    site.routes.assign(line.values[OPT_ROUTE].begin(), line.values[OPT_ROUTE].end());
    for (const char *path : line.values[OPT_SET_FROM])
        if (!readNames(path, &site)) {
            complain(0, "cannot read %s: %s", path, strerror(errno));
            return false;
        }
    std::vector<const Kind *> ignored;
    std::vector<const Kind *> also;
    if (!readKinds(line, OPT_IGNORE, &ignored) || !readKinds(line, OPT_ALSO, &also))
        return false;
    for (const Kind *kind : also)
        if (kind->isOff)
            site.rules.push_back({kind, kind->severity, {}});
    for (const Kind *kind : ignored)
        site.rules.push_back({kind, {}, {}});
    return true;
}

static int explain(const CommandLine &line)
{
    std::vector<const Kind *> kinds;
    if (!readKinds(line, OPT_EXPLAIN, &kinds))
        return WRONG_USAGE;
    string text;
    for (const Kind *kind : kinds)
        text += (text.empty() ? "" : "\n") + explainKind(*kind);
    return printText(text);
}

// Writes a first site file, but never over one. Returns the exit status.
static int writeInitial(const SiteOptions &site)
{
    const int fd = open(SITE_FILE, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0)
        return complain(WRONG_USAGE, "cannot make %s: %s", SITE_FILE, strerror(errno));
    const bool isWritten = writeAll(fd, initialSiteFile(site));
    const int error = errno;
    if (close(fd) != 0 || !isWritten)
        return complain(WRONG_USAGE, "cannot write %s: %s", SITE_FILE, strerror(error));
    return printText(string(SITE_FILE) +
                     " is written: look through what it guesses, then run orv-check\n");
}

// What an option asks for besides checking. Returns -1 for nothing, otherwise the exit status.
static int answerOption(const CommandLine &line)
{
    if (line.has(OPT_HELP))
        return printText(helpText);
    if (line.has(OPT_VERSION))
        return printText("orv-check " ORV_VERSION "\n");
    if (line.has(OPT_LIST))
        return printText(listKinds());
    return line.has(OPT_EXPLAIN) ? explain(line) : -1;
}

static bool isFolder(const char *path)
{
    std::error_code error;
    return fs::is_directory(path, error);
}

// Where the site file is looked for: from the first file that is named and has one above it, or
// else from the working directory.
static string startFolder(const std::vector<const char *> &words)
{
    std::error_code error;
    for (const char *word : words) {
        const fs::path path = word;
        string folder = ((isFolder(word) ? path : path.parent_path()) / ".").string();
        if (fs::exists(word, error) && !findSiteFile(folder).empty())
            return folder;
    }
    return ".";
}

static string realPath(const fs::path &path)
{
    std::error_code error;
    return fs::weakly_canonical(path, error);
}

// The files besides the templates that a site consists of.
static std::set<string> otherFiles(const SiteOptions &options)
{
    std::set<string> files = {realPath(options.file)};
    for (const string &path : options.texts)
        files.insert(realPath(path));
    for (const SiteDatabase &database : options.databases)
        for (const string &path : databaseFiles(database))
            files.insert(realPath(path));
    return files;
}

// Takes words that are all folders: of parts of the site only those are printed, any other is
// the site. Returns false after a complaint.
static bool takeFolders(const CommandLine &line, Arguments *arguments)
{
    const string &root = arguments->site.docRoot;
    std::error_code error;
    bool isWhole = false;
    for (const char *word : line.words) {
        const fs::path inner = fs::relative(word, root, error);
        const bool isSite = std::ranges::all_of(
            inner, [](const fs::path &name) { return name == "." || name == ".."; });
        if (!isSite && *inner.begin() == "..") {
            complain(0, "%s is no folder of the site below %s; --docroot %s is a site of its own",
                     word, root.c_str(), word);
            return false;
        }
        isWhole = isWhole || isSite;
    }
    arguments->isOnly = !isWhole;
    arguments->only.assign(line.words.begin(), line.words.end());
    return true;
}

// Takes the words of a command line as pages, or with --only as files. Returns false after a
// complaint.
static bool takeWords(const CommandLine &line, Arguments *arguments)
{
    SiteOptions &site = arguments->site;
    const std::set<string> others = otherFiles(site);
    if (!arguments->isOnly && !line.words.empty() && std::ranges::all_of(line.words, isFolder))
        return takeFolders(line, arguments);
    for (const char *word : line.words) {
        if (arguments->isOnly) {
            arguments->only.emplace_back(word);
        } else if (isFolder(word) || others.contains(realPath(word))) {
            complain(0, "%s is no template; --only prints what is found in it", word);
            return false;
        } else {
            site.templates.push_back(templatePath(site.docRoot, word));
        }
    }
    return true;
}

int readArguments(int argc, char **argv, Arguments *arguments)
{
    const CommandLine line = readCommandLine(argc, argv, optionRows);
    if (!line.problem.empty())
        return complain(WRONG_USAGE, "%s (--help tells all)", line.problem.c_str());
    if (const int status = answerOption(line); status >= 0)
        return status;
    arguments->serves = line.has(OPT_LSP);
    arguments->isQuiet = line.has(OPT_QUIET);
    arguments->isOnly = line.has(OPT_ONLY);
    if (!readForm(line.value(OPT_FORMAT, "text"), &arguments->form) ||
        !takeGiven(line, &arguments->given))
        return WRONG_USAGE;
    if (line.has(OPT_INIT))
        return writeInitial(arguments->given.site);
    if (arguments->serves)
        return -1;
    string problem;
    string &root = arguments->given.site.docRoot;
    const bool isOne = line.words.size() == 1 && !arguments->isOnly && isFolder(line.words[0]);
    if (isOne && root.empty() && arguments->given.config.empty() &&
        findSiteFile(line.words[0]).empty())
        root = line.words[0];
    if (!makeOptions(arguments->given, startFolder(line.words), &arguments->site, &problem))
        return complain(WRONG_USAGE, "%s", problem.c_str());
    return takeWords(line, arguments) ? -1 : WRONG_USAGE;
}

// ---- a site looked at ----

// Paths of templates as they are seen from the working directory.
static void prefixPaths(std::vector<Finding> *findings, const Site &site)
{
    std::error_code error;
    const fs::path here = fs::current_path(error);
    const fs::path root = site.options.docRoot;
    auto prefix = [&](string *path) {
        if (!site.templates.contains(*path))
            return;
        const fs::path whole = (here / root / *path).lexically_normal();
        *path = root.is_absolute() || error ? whole : whole.lexically_proximate(here);
    };
    for (Finding &finding : *findings) {
        prefix(&finding.path);
        for (Note &note : finding.notes)
            prefix(&note.path);
    }
}

// Whether a path is that of one that is named, or below it.
static bool isKept(const std::set<string> &kept, fs::path path)
{
    for (; path != path.parent_path(); path = path.parent_path())
        if (kept.contains(path.string()))
            return true;
    return false;
}

// Leaves what is found in files and below folders that are named, and finds those that are not
// of the site.
static void keepOnly(const SiteOptions &options, const std::vector<string> &named, Looked *looked)
{
    const std::set<string> others = otherFiles(options);
    std::set<string> kept;
    std::error_code error;
    for (const string &name : named) {
        const string inner = templatePath(options.docRoot, name);
        const fs::path below = fs::path(options.docRoot) / inner;
        const bool isBelow = !inner.starts_with("..") && inner[0] != '/' &&
                             (fs::is_regular_file(below, error) || fs::is_directory(below, error));
        const string real = realPath(isBelow ? below : fs::path(name));
        if (!isBelow && !others.contains(real))
            looked->strangers.push_back(name);
        kept.insert(real);
    }
    std::erase_if(looked->findings,
                  [&](const Finding &finding) { return !isKept(kept, realPath(finding.path)); });
}

bool lookAt(const Arguments &arguments, Looked *looked, string *problem,
            const std::function<void(size_t)> &progress)
{
    Site site;
    if (!loadSite(arguments.site, &site, problem, progress))
        return false;
    if (site.pages.empty()) {
        *problem = "there is no template below " + site.options.docRoot;
        return false;
    }
    looked->findings = checkSite(site);
    looked->templates = site.templates.size();
    prefixPaths(&looked->findings, site);
    if (arguments.isOnly)
        keepOnly(arguments.site, arguments.only, looked);
    return true;
}

static string counted(size_t count, const char *what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

string summaryOf(const Looked &looked)
{
    std::array<size_t, 3> counts = {};
    for (const Finding &finding : looked.findings)
        ++counts[static_cast<size_t>(finding.severity)];
    string found;
    for (const Grade grade : {Grade::ERROR, Grade::WARNING, Grade::HINT})
        if (const size_t count = counts[static_cast<size_t>(grade)])
            found += (found.empty() ? ": " : ", ") + counted(count, gradeName(grade));
    return counted(looked.templates, "template") + " checked" +
           (found.empty() ? ", nothing found" : found);
}
