/* tools/check/arguments.cpp - the options of orv-check, and a site looked at by them. */
#include "arguments.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/common/files.h"
#include "tools/common/options.h"

using std::string;

namespace fs = std::filesystem;

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
    "  --also ID        find that kind, too, which is off otherwise: text-hard-coded\n"
    "  --format FORM    text (default), json, or sarif (2.1.0)\n"
    "  --lsp            speak the Language Server Protocol on standard input and output\n"
    "  --list           print the kinds of finding, each with an example\n"
    "  --help, --version  print this text, or the version\n"
    "\n"
    "Exit status: 0 nothing found; 1 findings; 2 wrong usage, or a file that cannot\n"
    "be read.\n";

enum OptionNumber : size_t {
    OPT_DOCROOT,
    OPT_DB,
    OPT_TEXTS,
    OPT_SET,
    OPT_SAFE,
    OPT_SET_FROM,
    OPT_IGNORE,
    OPT_ALSO,
    OPT_FORMAT,
    OPT_LSP,
    OPT_LIST,
    OPT_HELP,
    OPT_VERSION
};

// In the order of OptionNumber.
static constexpr OptionRow optionRows[] = {
    {"docroot", 0, true},  {"db", 0, true},       {"texts", 0, true},  {"set", 0, true},
    {"safe", 0, true},     {"set-from", 0, true}, {"ignore", 0, true}, {"also", 0, true},
    {"format", 0, true},   {"lsp", 0, false},     {"list", 0, false},  {"help", 0, false},
    {"version", 0, false},
};

int printAnswer(const string &text, int status)
{
    return printText(text) == 0 ? status : WRONG_USAGE;
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

// Appends the kinds that the values of an option name. Returns false after a complaint.
static bool readKinds(const char *option, const std::vector<const char *> &ids,
                      std::vector<const Kind *> *kinds)
{
    for (const char *id : ids) {
        kinds->push_back(findKind(id));
        if (!kinds->back()) {
            complain(0, "--%s: there is no kind '%s' (--list tells all)", option, id);
            return false;
        }
    }
    return true;
}

// Takes what the options say about the site. Returns false after a complaint.
static bool takeSite(const CommandLine &line, SiteOptions *site)
{
    site->docRoot = line.value(OPT_DOCROOT, ".");
    site->db = line.value(OPT_DB, "");
    site->texts.assign(line.values[OPT_TEXTS].begin(), line.values[OPT_TEXTS].end());
    for (const string name : line.values[OPT_SET])
        site->set.push_back(name.substr(0, name.find('=')));
    site->safe.assign(line.values[OPT_SAFE].begin(), line.values[OPT_SAFE].end());
    for (const char *path : line.values[OPT_SET_FROM])
        if (!readNames(path, site)) {
            complain(0, "cannot read %s: %s", path, strerror(errno));
            return false;
        }
    if (!readKinds("ignore", line.values[OPT_IGNORE], &site->ignored) ||
        !readKinds("also", line.values[OPT_ALSO], &site->also))
        return false;
    for (const char *path : line.words)
        site->templates.push_back(fs::path(path).lexically_normal().generic_string());
    return true;
}

int readArguments(int argc, char **argv, Arguments *arguments)
{
    const CommandLine line = readCommandLine(argc, argv, optionRows);
    if (!line.problem.empty())
        return complain(WRONG_USAGE, "%s (--help tells all)", line.problem.c_str());
    if (line.has(OPT_HELP))
        return printText(helpText);
    if (line.has(OPT_VERSION))
        return printText("orv-check " ORV_VERSION "\n");
    if (line.has(OPT_LIST))
        return printText(listKinds());
    arguments->ownRoot = line.has(OPT_DOCROOT);
    arguments->serves = line.has(OPT_LSP);
    const bool sound = readForm(line.value(OPT_FORMAT, "text"), &arguments->form) &&
                       takeSite(line, &arguments->site);
    return sound ? -1 : WRONG_USAGE;
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

bool lookAt(SiteOptions options, std::vector<Finding> *findings, string *problem,
            const std::function<void(size_t)> &progress)
{
    Site site;
    if (!loadSite(std::move(options), &site, problem, progress))
        return false;
    if (site.pages.empty()) {
        *problem = "there is no *.htm below " + site.options.docRoot;
        return false;
    }
    *findings = checkSite(site);
    prefixPaths(findings, site);
    return true;
}
