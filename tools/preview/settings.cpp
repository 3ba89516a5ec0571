/* tools/preview/settings.cpp - reads the command line and the site's file. What the command
 * line names is looked for at once, but for the database, which may come later. */
#include "settings.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <filesystem>

#include "tools/common/files.h"
#include "tools/common/options.h"
#include "tools/common/sitefile.h"

using std::string;

namespace fs = std::filesystem;

static constexpr char helpText[] =
    "Usage: orv-preview [OPTION]... [DIR]\n"
    "Shows the templates below DIR (default: .) in the browser, as the device would, and\n"
    "loads pages again when a file is saved. A bar at the foot of each page tells what is\n"
    "wrong in the templates. Ctrl-C ends it.\n"
    "\n"
    "  --db FILE          answer queries from this SQLite database, read-only\n"
    "  --texts FILE       the texts of a language, from a gettext PO file or a text\n"
    "                     database whose name tells the language: de.po, de.db or\n"
    "                     htmltext_de.db; repeatable. The first is the default language\n"
    "  --root DIR         look below DIR for the device's own text databases:\n"
    "                     /etc/htmltext_CODE.db, /var/htmltext.db, ...\n"
    "  --set NAME=VALUE   set a variable, as the web program would; repeatable. An\n"
    "                     element of an array is NAME[INDEX]=VALUE\n"
    "  --set-from FILE    a list of the variables that the web program sets, for orv-check\n"
    "  --error TEXT       the error that the pages' error commands find\n"
    "  --editor COMMAND   the editor that a click on a place opens, such as 'code' or\n"
    "                     'kate -l {line} {file}', or an editor's address:\n"
    "                     'vscode://file{file}:{line}:{column}' (default: $VISUAL, $EDITOR)\n"
    "  --port NUMBER      the port on 127.0.0.1 (default: 8080, or the next free one);\n"
    "                     0 stands for any free one\n"
    "  --open             start the browser\n"
    "  --no-reload        do not load pages again when a file changes\n"
    "  --help, --version  print this text, or the version\n"
    "\n"
    "What the site's own file, orv-check.json, says of databases, texts and variables needs no\n"
    "option; it is found in DIR or above. Options win over it.\n"
    "\n"
    "Pages are files whose names end in .htm or .html; pieces that they include may end\n"
    "in .frm. Nothing outside DIR is read but what the options name.\n"
    "\n"
    "Exit status: 0 ended by Ctrl-C; 1 this text cannot be printed; 2 wrong usage, a missing\n"
    "folder, a busy port, or no web server (lighttpd).\n";

enum OptionNumber : size_t {
    OPT_DB,
    OPT_TEXTS,
    OPT_ROOT,
    OPT_SET,
    OPT_SET_FROM,
    OPT_ERROR,
    OPT_EDITOR,
    OPT_PORT,
    OPT_OPEN,
    OPT_NO_RELOAD,
    OPT_HELP,
    OPT_VERSION
};

// In the order of OptionNumber.
static constexpr OptionRow optionRows[] = {
    {"db", 0, true},       {"texts", 0, true},      {"root", 0, true},   {"set", 0, true},
    {"set-from", 0, true}, {"error", 0, true},      {"editor", 0, true}, {"port", 0, true},
    {"open", 0, false},    {"no-reload", 0, false}, {"help", 0, false},  {"version", 0, false},
};

static string absolute(const string &path)
{
    std::error_code error;
    return fs::absolute(path, error).lexically_normal();
}

static int readTexts(const char *path, Settings &settings)
{
    const TextSource source = {languageOf(path), absolute(path)};
    if (source.language.empty())
        return complain(
            WRONG_USAGE,
            "--texts needs a file whose name tells its language, such as de.po or de.db, "
            "not '%s'",
            path);
    if (access(path, R_OK) != 0)
        return complain(WRONG_USAGE, "cannot read texts '%s': %s", path, strerror(errno));
    settings.texts.push_back(source);
    return -1;
}

static int readVariable(const char *text, Settings &settings)
{
    const char *value = strchr(text, '=');
    if (!value || value == text)
        return complain(WRONG_USAGE, "--set needs NAME=VALUE, not '%s'", text);
    settings.variables.emplace_back(string(text, static_cast<size_t>(value - text)), value + 1);
    return -1;
}

static int readPort(const char *text, Settings &settings)
{
    char *end;
    errno = 0;
    const long port = strtol(text, &end, 10);
    if (*text < '0' || *text > '9' || *end != '\0' || errno != 0 || port > 65535)
        return complain(WRONG_USAGE,
                        "--port needs a number from 1 to 65535, or 0 for any, not '%s'", text);
    settings.port = static_cast<int>(port);
    return -1;
}

// Reads what is given by a file's or folder's name.
static int readPaths(const CommandLine &line, Settings &settings)
{
    for (const char *path : line.values[OPT_TEXTS])
        if (const int status = readTexts(path, settings); status >= 0)
            return status;
    if (line.has(OPT_DB))
        settings.databases = {{"main", absolute(line.value(OPT_DB))}};
    if (line.has(OPT_ROOT))
        settings.deviceRoot = absolute(line.value(OPT_ROOT));
    if (std::error_code error; line.has(OPT_ROOT) && !fs::is_directory(settings.deviceRoot, error))
        return complain(WRONG_USAGE, "cannot use root '%s': it is no folder", line.value(OPT_ROOT));
    if (line.has(OPT_SET_FROM))
        settings.setFrom = absolute(line.value(OPT_SET_FROM));
    if (line.has(OPT_SET_FROM) && access(settings.setFrom.c_str(), R_OK) != 0)
        return complain(WRONG_USAGE, "cannot read list '%s': %s", line.value(OPT_SET_FROM),
                        strerror(errno));
    return -1;
}

static const char *editorOf(const CommandLine &line)
{
    if (line.has(OPT_EDITOR))
        return line.value(OPT_EDITOR);
    for (const char *name : {"VISUAL", "EDITOR"})
        if (const char *editor = getenv(name); editor && *editor)
            return editor;
    return "";
}

int readSettings(int argc, char **argv, Settings &settings)
{
    const CommandLine line = readCommandLine(argc, argv, optionRows);
    if (!line.problem.empty())
        return complain(WRONG_USAGE, "%s, see --help", line.problem.c_str());
    if (line.has(OPT_HELP))
        return printText(helpText);
    if (line.has(OPT_VERSION))
        return printText("orv-preview " ORV_VERSION "\n");
    for (const char *variable : line.values[OPT_SET])
        if (const int status = readVariable(variable, settings); status >= 0)
            return status;
    if (const int status = readPaths(line, settings); status >= 0)
        return status;
    if (line.has(OPT_PORT))
        if (const int status = readPort(line.value(OPT_PORT), settings); status >= 0)
            return status;
    if (line.words.size() > 1)
        return complain(WRONG_USAGE, "one folder at a time, see --help");
    if (!line.words.empty())
        settings.folder = line.words[0];
    settings.error = line.value(OPT_ERROR, "");
    settings.editor = editorOf(line);
    settings.opens = line.has(OPT_OPEN);
    settings.reloads = !line.has(OPT_NO_RELOAD);
    return -1;
}

// ---- The site's file ----

static void addTexts(const SiteFile &site, Settings &settings)
{
    for (const SitePath &path : site.texts) {
        const TextSource source = {languageOf(path.path), absolute(path.path)};
        if (!source.language.empty())
            settings.texts.push_back(source);
    }
}

// The values that the file gives to variables; those of the command line come behind them.
static void addVariables(const SiteFile &site, Settings &settings)
{
    std::vector<std::pair<string, string>> variables;
    for (const string &one : site.set)
        if (const size_t sign = one.find('='); sign != string::npos)
            variables.emplace_back(one.substr(0, sign), one.substr(sign + 1));
    settings.variables.insert(settings.variables.begin(), variables.begin(), variables.end());
}

bool addSiteFile(const Settings &given, Settings &settings, FileProblem *problem)
{
    settings = given;
    const string start = given.folder.empty() ? "." : given.folder;
    settings.folder = start;
    const string path = findSiteFile(start);
    SiteFile site;
    string told;
    if (path.empty())
        return true;
    settings.siteFile = absolute(path);
    if (!readSiteFile(path, &site, &told)) {
        *problem = problemOf(path, told);
        problem->file = settings.siteFile;
        return false;
    }
    // A folder that has the file is the site's; one below it is what is to be shown.
    std::error_code error;
    if (given.folder.empty() ||
        fs::equivalent(fs::path(settings.siteFile).parent_path(), start, error))
        settings.folder = site.docRoot.path;
    if (given.databases.empty())
        for (const SiteDatabase &database : site.databases)
            settings.databases.push_back({database.name, absolute(database.file.path)});
    settings.functions = site.functions;
    if (given.texts.empty())
        addTexts(site, settings);
    addVariables(site, settings);
    return true;
}
