/* tools/check/project.cpp - takes over a site file, and writes the first one. */
#include "project.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "report.h"
#include "host/ascii.h"
#include "tools/common/files.h"
#include "tools/common/json.h"
#include "tools/common/listing.h"

using std::string;
using std::string_view;

namespace fs = std::filesystem;

// ---- a site file ----

bool readNames(const string &path, SiteOptions *site)
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

static string placeOf(const SiteFile &file, uint32_t line)
{
    return file.path + ":" + std::to_string(line) + ": ";
}

static bool takeKinds(const SiteFile &file, const std::vector<SiteKind> &kinds,
                      const std::vector<string> &files, SiteOptions *site, string *problem)
{
    for (const SiteKind &taken : kinds) {
        const Kind *kind = findKind(taken.id);
        if (!kind) {
            const string_view near = nearest(taken.id, kindIds());
            *problem =
                placeOf(file, taken.line) + "there is no kind '" + taken.id + "'" +
                (near.empty() ? " (--list tells all)" : "; did you mean '" + string(near) + "'?");
            return false;
        }
        std::optional<Grade> grade;
        for (const Grade each : {Grade::HINT, Grade::WARNING, Grade::ERROR})
            if (taken.grade == gradeName(each))
                grade = each;
        site->rules.push_back({kind, grade, files});
    }
    return true;
}

// Takes over what a site file says.
static bool takeSiteFile(const SiteFile &file, SiteOptions *site, string *problem)
{
    site->file = file.path;
    site->docRoot = file.docRoot.path;
    site->databases = file.databases;
    site->functions = file.functions;
    for (const SitePath &path : file.texts)
        site->texts.push_back(path.path);
    site->set = file.set;
    site->safe = file.safe;
    for (const SitePath &path : file.setFrom)
        if (!readNames(path.path, site)) {
            *problem =
                placeOf(file, path.line) + "cannot read " + path.path + ": " + strerror(errno);
            return false;
        }
    site->pages = file.pages;
    site->routes = file.routes;
    site->exclude = file.exclude;
    return takeKinds(file, file.kinds, {}, site, problem) &&
           std::all_of(file.overrides.begin(), file.overrides.end(), [&](const SiteOverride &one) {
               return takeKinds(file, one.kinds, one.files, site, problem);
           });
}

// Puts what is given in the place of what the file says.
static void replaceGiven(const SiteOptions &given, SiteFile *file)
{
    if (!given.docRoot.empty())
        file->docRoot = {given.docRoot, 0};
    if (!given.databases.empty())
        file->databases = given.databases;
    if (given.texts.empty())
        return;
    file->texts.clear();
    for (const string &path : given.texts)
        file->texts.push_back({path, 0});
}

template <typename Item> static void append(std::vector<Item> *list, const std::vector<Item> &more)
{
    list->insert(list->end(), more.begin(), more.end());
}

bool makeOptions(const GivenOptions &given, const string &folder, SiteOptions *site,
                 string *problem)
{
    SiteFile file;
    const string path =
        !given.config.empty()
            ? given.config
            : findSiteFile(given.site.docRoot.empty() ? folder : given.site.docRoot);
    if (!path.empty() && !readSiteFile(path, &file, problem))
        return false;
    replaceGiven(given.site, &file);
    if ((!path.empty() && !findMissing(file, problem)) || !takeSiteFile(file, site, problem))
        return false;
    append(&site->set, given.site.set);
    append(&site->safe, given.site.safe);
    append(&site->routes, given.site.routes);
    append(&site->rules, given.site.rules);
    for (std::vector<string> *names : {&site->set, &site->safe})
        for (string &name : *names)
            name.resize(std::min(name.find('='), name.size())); // a value is for the preview
    return true;
}

// ---- paths ----

// A path below a folder, empty when it is not below.
static string below(const fs::path &path, const fs::path &folder)
{
    const fs::path inner = path.lexically_relative(folder);
    return inner.empty() || *inner.begin() == ".." ? "" : inner.generic_string();
}

string templatePath(const string &docRoot, const string &named)
{
    std::error_code error;
    const auto absolute = [&](const string &path) {
        return (fs::absolute(path, error) / "").lexically_normal().parent_path();
    };
    if (fs::exists(named, error)) {
        string inner = below(absolute(named), absolute(docRoot));
        if (!inner.empty())
            return inner;
        string real = below(fs::canonical(named, error), fs::canonical(docRoot, error));
        if (!error && !real.empty())
            return real;
    }
    return fs::path(named).lexically_normal().generic_string();
}

// ---- the first site file ----

namespace
{
// What the files of a folder seem to be.
struct Guess {
    string docRoot = ".";
    std::vector<string> texts;
    string database;
    size_t tables = 0;
};
} // namespace

static size_t countTables(const string &path)
{
    string script;
    readBytes(path.c_str(), &script);
    script = lowered(script);
    size_t count = 0;
    for (size_t at = 0; (at = script.find("create table", at)) != string::npos; ++at)
        ++count;
    return count;
}

static bool isSqlite(const string &path)
{
    std::ifstream file(path);
    string begin(15, '\0');
    return file.read(begin.data(), 15) && begin == "SQLite format 3";
}

// The folder that two paths have in common, with its slash; empty for the working directory.
static string commonFolder(const string &a, const string &b)
{
    const auto end = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first;
    const string common(a.begin(), end);
    return common.substr(0, common.rfind('/') + 1);
}

// Scripts whose names differ in a number at their end make a database together: their pattern;
// of any other the path itself.
static string numberedScripts(const std::vector<string> &files, const string &script)
{
    const size_t dot = script.rfind('.');
    const size_t last = script.find_last_not_of("0123456789", dot - 1);
    const string begin = script.substr(0, last + 1);
    const string pattern = begin + "*" + script.substr(dot);
    const auto count = std::count_if(files.begin(), files.end(), [&](const string &file) {
        return fitsPattern("/" + pattern, file);
    });
    return last + 1 < dot && count > 1 ? pattern : script;
}

static Guess guess()
{
    Guess guess;
    std::vector<string> files;
    string problem;
    string root;
    bool isFirst = true;
    listFiles(".", &files, &problem);
    for (const string &path : files) {
        if (path.ends_with(".htm") || path.ends_with(".html")) {
            root = isFirst ? path.substr(0, path.rfind('/') + 1) : commonFolder(root, path);
            isFirst = false;
        }
        if (path.ends_with(".po"))
            guess.texts.push_back(path);
        const size_t tables = path.ends_with(".sql") ? countTables(path) : isSqlite(path);
        if (tables > guess.tables) {
            guess.tables = tables;
            guess.database = path;
        }
    }
    if (guess.database.ends_with(".sql"))
        guess.database = numberedScripts(files, guess.database);
    if (!root.empty())
        guess.docRoot = root.substr(0, root.size() - 1);
    std::stable_partition(guess.texts.begin(), guess.texts.end(),
                          [](const string &path) { return path.ends_with("en.po"); });
    return guess;
}

// The names that templates read and nobody sets.
static std::vector<string> unsetNames(const SiteOptions &options)
{
    Site site;
    string problem;
    std::vector<string> names;
    if (!loadSite(options, &site, &problem))
        return names;
    for (const auto &[key, variable] : site.variables)
        if (!variable.reads.empty() && setsOf(site, key).empty() && !isFromWeb(site, key))
            names.push_back(key.substr(0, key.find('[')) +
                            (key.find('[') < key.size() ? "[]" : ""));
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

static string jsonListOf(const std::vector<string> &texts)
{
    return writeJson(Json(texts), -1);
}

string initialSiteFile(const SiteOptions &given)
{
    const Guess guessed = guess();
    SiteOptions site = given;
    if (site.docRoot.empty())
        site.docRoot = guessed.docRoot;
    if (site.texts.empty())
        site.texts = guessed.texts;
    if (site.databases.empty() && !guessed.database.empty())
        site.databases = {{"main", {guessed.database, 0}}};
    Json databases = Json::object();
    for (const SiteDatabase &database : site.databases)
        databases[database.name] = database.file.path;
    std::vector<string> unset = unsetNames(site);
    string text =
        "// orv-check.json - what orv-check, orv-preview and orv-textdb know of this site.\n"
        "// JSON with comments; paths begin at this file's folder. Look through what is guessed.\n"
        "{\n"
        "  // The folder with the templates: all *.htm were found below it.\n"
        "  \"docroot\": " +
        writeJson(Json(site.docRoot), -1) +
        ",\n\n"
        "  // SQLite databases that answer queries, or scripts (*.sql) that make them. Others "
        "than\n"
        "  // main are attached under their names: {\"main\": \"site.db\", \"log\": \"log.sql\"}\n"
        "  \"databases\": " +
        writeJson(databases, -1, JsonKeys::AS_GIVEN) +
        ",\n\n"
        "  // Functions that the host adds to SQL, and what they give:\n"
        "  // {\"uptime(0)\": \"number\", \"describe\": \"text\"}, with the number of arguments\n"
        "  \"functions\": {},\n\n"
        "  // The texts, a file for each language, that of the source texts first.\n"
        "  \"texts\": " +
        jsonListOf(site.texts) +
        ",\n\n"
        "  // What the web program sets, besides the fields of forms and links. safe: what is "
        "safe\n"
        "  // in any part of a page. from: files with a name a line.\n";
    if (!unset.empty())
        text += "  // Templates read these, and none sets them: " + jsonListOf(unset) + "\n";
    return text + "  \"variables\": {\"set\": " + jsonListOf(site.set) +
           ", \"safe\": " + jsonListOf(site.safe) +
           ", \"from\": []},\n\n"
           "  // Kinds of findings that are taken otherwise, as \"off\", \"hint\", \"warning\" or "
           "\"error\";\n"
           "  // orv-check --list tells all: {\"text-unused\": \"off\"}\n"
           "  \"kinds\": {},\n\n"
           "  // The same for some files: [{\"files\": [\"old/\"], \"kinds\": {\"escape-missing\": "
           "\"hint\"}}]\n"
           "  \"overrides\": [],\n\n"
           "  // Files that are pages, where that is not each that holds a command and that no "
           "other\n"
           "  // template includes:\n"
           "  // \"pages\": [\"*.htm\", \"feeds/\"],\n\n"
           "  // Addresses that the web program answers itself:\n"
           "  // \"routes\": [\"api/*\", \"login.cgi\"],\n\n"
           "  // Where orv-textdb sync makes the databases of texts, * for the language:\n"
           "  // \"textDatabases\": \"build/htmltext_*.db\",\n\n"
           "  // Files that are not looked at, such as copies: [\"old/\", \"*.txt\"]\n"
           "  \"exclude\": []\n"
           "}\n";
}
