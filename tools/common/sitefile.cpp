/* tools/common/sitefile.cpp - reads orv-check.json: a table of its settings, each with the
 * kind of its value and who takes it. */
#include "tools/common/sitefile.h"

#include <cerrno>
#include <cstring>

#include <fnmatch.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <span>

#include "tools/common/files.h"
#include "tools/common/json.h"

using std::string;
using std::string_view;

namespace fs = std::filesystem;

namespace
{
// What is being read.
struct Reader {
    SiteFile *site;
    fs::path folder; // of the file, empty for the working directory

    // As short as it can be written from the working directory.
    string shortened(const string &path) const
    {
        std::error_code error;
        const fs::path here = fs::current_path(error);
        const fs::path whole = (here / folder / path / "").lexically_normal().parent_path();
        return folder.is_absolute() || error ? whole : whole.lexically_proximate(here);
    }
    SitePath pathOf(const Json &value) const
    {
        return {shortened(value.text), value.line};
    }
};

struct Setting {
    const char *name;
    Json::Kind kind;
    void (*take)(const Reader &reader, const Json &value);
};
} // namespace

// Throws what is wrong at a line.
[[noreturn]] static void refuse(uint32_t line, const string &text)
{
    throw JsonError{std::to_string(line) + ": " + text};
}

static const char *kindName(Json::Kind kind)
{
    static constexpr const char *names[] = {"null",   "true or false", "a number", "a number",
                                            "a text", "a list",        "an object"};
    return names[static_cast<size_t>(kind)];
}

static const Json &expect(const Json &value, Json::Kind kind, const string &what)
{
    if (value.kind != kind)
        refuse(value.line, what + " must be " + kindName(kind) + ", not " + kindName(value.kind));
    if (kind == Json::Kind::TEXT && value.text.empty())
        refuse(value.line, what + " must not be empty");
    return value;
}

// Hands each value of an object that has one of the settings' names to its row.
static void takeSettings(const Reader &reader, const Json &object, std::span<const Setting> rows,
                         const string &where)
{
    for (size_t i = 0; i < object.size(); ++i) {
        const string &key = object.keys[i];
        const Json &value = object.items[i];
        const auto row = std::find_if(rows.begin(), rows.end(),
                                      [&](const Setting &setting) { return setting.name == key; });
        if (row == rows.end()) {
            string told = "there is no setting '";
            told.append(key).append("'").append(where).append(", only");
            for (const Setting &setting : rows)
                told.append(told.ends_with("only") ? " " : ", ").append(setting.name);
            refuse(value.line, told);
        }
        row->take(reader, expect(value, row->kind, "'" + key + "'"));
    }
}

static std::vector<string> textsOf(const Json &list, const string &what)
{
    std::vector<string> texts;
    for (const Json &item : list)
        texts.push_back(expect(item, Json::Kind::TEXT, what).text);
    return texts;
}

static std::vector<SitePath> pathsOf(const Reader &reader, const Json &list)
{
    std::vector<SitePath> paths;
    for (const Json &item : list)
        paths.push_back(reader.pathOf(expect(item, Json::Kind::TEXT, "a path")));
    return paths;
}

static std::vector<string> patternsOf(const Reader &, const Json &list)
{
    return textsOf(list, "a pattern of files");
}

static void takeDatabases(const Reader &reader, const Json &value)
{
    for (size_t i = 0; i < value.size(); ++i) {
        const string &name = value.keys[i];
        const Json &path = expect(value.items[i], Json::Kind::TEXT, "the path of '" + name + "'");
        if (name.empty() || name == "temp")
            refuse(path.line, "no database can be attached as '" + name + "'");
        reader.site->databases.push_back({name, reader.pathOf(path)});
    }
    if (!value.empty() && !value.contains("main"))
        refuse(value.line, "one of the databases must be 'main'");
}

// "NAME" or "NAME(COUNT)"
static void takeFunctions(const Reader &reader, const Json &value)
{
    for (size_t i = 0; i < value.size(); ++i) {
        const string &key = value.keys[i];
        const Json &gives = expect(value.items[i], Json::Kind::TEXT, "'" + key + "'");
        SiteFunction function = {key.substr(0, key.find('(')), -1, gives.text == "number"};
        if (function.name.size() < key.size()) {
            const char *begin = key.c_str() + function.name.size() + 1;
            const auto [end, error] =
                std::from_chars(begin, key.c_str() + key.size(), function.arguments);
            if (error != std::errc() || strcmp(end, ")") != 0 || function.arguments < 0)
                refuse(gives.line, "'" + key +
                                       "' must be NAME or NAME(COUNT), with the number of "
                                       "its arguments");
        }
        if (!function.givesNumbers && gives.text != "text")
            refuse(gives.line,
                   "'" + key + "' gives \"number\" or \"text\", not \"" + gives.text + "\"");
        reader.site->functions.push_back(std::move(function));
    }
}

static std::vector<SiteKind> kindsOf(const Json &value)
{
    static constexpr string_view grades[] = {"off", "hint", "warning", "error"};
    std::vector<SiteKind> kinds;
    for (size_t i = 0; i < value.size(); ++i) {
        const Json &grade = expect(value.items[i], Json::Kind::TEXT, "'" + value.keys[i] + "'");
        if (std::find(std::begin(grades), std::end(grades), grade.text) == std::end(grades))
            refuse(grade.line, "'" + value.keys[i] +
                                   "' is \"off\", \"hint\", \"warning\" or "
                                   "\"error\", not \"" +
                                   grade.text + "\"");
        kinds.push_back({value.keys[i], grade.text, grade.line});
    }
    return kinds;
}

static void takeOverrides(const Reader &reader, const Json &value)
{
    static constexpr Setting rows[] = {
        {"files", Json::Kind::ARRAY,
         [](const Reader &in, const Json &list) {
             in.site->overrides.back().files = patternsOf(in, list);
         }},
        {"kinds", Json::Kind::OBJECT,
         [](const Reader &in, const Json &kinds) {
             in.site->overrides.back().kinds = kindsOf(kinds);
         }},
    };
    for (const Json &item : value) {
        expect(item, Json::Kind::OBJECT, "an override");
        reader.site->overrides.emplace_back();
        takeSettings(reader, item, rows, " of an override");
        if (reader.site->overrides.back().files.empty())
            refuse(item.line, "an override needs 'files', a list of patterns");
    }
}

static void takeVariables(const Reader &reader, const Json &value)
{
    static constexpr Setting rows[] = {
        {"set", Json::Kind::ARRAY,
         [](const Reader &in, const Json &list) { in.site->set = textsOf(list, "a variable"); }},
        {"safe", Json::Kind::ARRAY,
         [](const Reader &in, const Json &list) { in.site->safe = textsOf(list, "a variable"); }},
        {"from", Json::Kind::ARRAY,
         [](const Reader &in, const Json &list) { in.site->setFrom = pathsOf(in, list); }},
    };
    takeSettings(reader, value, rows, " of variables");
}

static void takeTextDatabases(const Reader &reader, const Json &value)
{
    const string name = fs::path(value.text).filename();
    if (std::count(name.begin(), name.end(), '*') != 1 || !name.ends_with(".db"))
        refuse(value.line, "'textDatabases' is a path such as htmltext_*.db, with one * in the "
                           "file's name for the language");
    reader.site->textDatabases = reader.pathOf(value).path;
}

static constexpr Setting settings[] = {
    {"$schema", Json::Kind::TEXT, [](const Reader &, const Json &) {}}, // of editors
    {"docroot", Json::Kind::TEXT,
     [](const Reader &in, const Json &path) { in.site->docRoot = in.pathOf(path); }},
    {"databases", Json::Kind::OBJECT, takeDatabases},
    {"functions", Json::Kind::OBJECT, takeFunctions},
    {"texts", Json::Kind::ARRAY,
     [](const Reader &in, const Json &list) { in.site->texts = pathsOf(in, list); }},
    {"textDatabases", Json::Kind::TEXT, takeTextDatabases},
    {"variables", Json::Kind::OBJECT, takeVariables},
    {"kinds", Json::Kind::OBJECT,
     [](const Reader &in, const Json &kinds) { in.site->kinds = kindsOf(kinds); }},
    {"overrides", Json::Kind::ARRAY, takeOverrides},
    {"pages", Json::Kind::ARRAY,
     [](const Reader &in, const Json &list) { in.site->pages = patternsOf(in, list); }},
    {"routes", Json::Kind::ARRAY,
     [](const Reader &in, const Json &list) { in.site->routes = textsOf(list, "an address"); }},
    {"exclude", Json::Kind::ARRAY,
     [](const Reader &in, const Json &list) { in.site->exclude = patternsOf(in, list); }},
};

// A name that stands twice in an object: the second would be lost.
static void refuseTwice(const Json &value)
{
    for (size_t i = 0; i < value.keys.size(); ++i)
        if (std::find(value.keys.begin() + static_cast<ptrdiff_t>(i) + 1, value.keys.end(),
                      value.keys[i]) != value.keys.end())
            refuse(value.items[i].line, "'" + value.keys[i] + "' is set twice");
    for (const Json &item : value)
        refuseTwice(item);
}

string findSiteFile(const string &folder)
{
    std::error_code error;
    for (fs::path at = fs::absolute(folder, error).lexically_normal() / "";;) {
        at = at.parent_path();
        if (error)
            return "";
        const fs::path file = at / SITE_FILE;
        if (fs::is_regular_file(file, error))
            return fs::path(folder).is_absolute()
                       ? file
                       : file.lexically_proximate(fs::current_path(error));
        error.clear();
        if (!at.has_relative_path())
            return "";
    }
}

bool readSiteFile(const string &path, SiteFile *site, string *problem)
{
    string bytes;
    if (!readBytes(path.c_str(), &bytes)) {
        *problem = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    site->path = path;
    const Reader reader = {site, fs::path(path).parent_path()};
    site->docRoot.path = reader.shortened(".");
    Json whole;
    if (!readJsonFile(bytes, &whole, problem)) {
        *problem = path + ":" + *problem;
        return false;
    }
    try {
        expect(whole, Json::Kind::OBJECT, SITE_FILE);
        refuseTwice(whole);
        takeSettings(reader, whole, settings, "");
    } catch (const JsonError &wrong) {
        *problem = path + ":" + wrong.text;
        return false;
    }
    return true;
}

std::vector<string> databaseFiles(const SiteDatabase &database)
{
    const fs::path path = database.file.path;
    const string name = path.filename();
    if (name.find_first_of("*?") == string::npos)
        return {path};
    std::vector<string> files;
    std::error_code error;
    const fs::path folder = path.parent_path();
    for (const auto &entry : fs::directory_iterator(folder.empty() ? "." : folder, error))
        if (fnmatch(name.c_str(), entry.path().filename().c_str(), 0) == 0)
            files.push_back(folder / entry.path().filename());
    std::sort(files.begin(), files.end());
    return files;
}

bool findMissing(const SiteFile &site, string *problem)
{
    std::vector<SitePath> files = site.texts;
    files.insert(files.end(), site.setFrom.begin(), site.setFrom.end());
    for (const SiteDatabase &database : site.databases) {
        const std::vector<string> scripts = databaseFiles(database);
        files.push_back({scripts.empty() ? database.file.path : scripts[0], database.file.line});
    }
    std::stable_sort(files.begin(), files.end(),
                     [](const SitePath &a, const SitePath &b) { return a.line < b.line; });
    std::error_code error;
    const auto tell = [&](const SitePath &path, const char *what) {
        const string place = path.line ? site.path + ":" + std::to_string(path.line) + ": " : "";
        *problem = place + what + path.path;
        return false;
    };
    if (!fs::is_directory(site.docRoot.path, error))
        return tell(site.docRoot, "there is no folder ");
    for (const SitePath &file : files)
        if (!fs::exists(file.path, error)) {
            tell(file, "there is no file ");
            if (file.path.ends_with(".po") && !site.texts.empty() &&
                file.path != site.texts[0].path)
                *problem += "; orv-textdb sync begins it";
            return false;
        }
    return true;
}

bool fitsPattern(const string &pattern, string_view path)
{
    string_view inner = pattern;
    while (inner.starts_with("**/"))
        inner.remove_prefix(3);
    const bool isFolder = inner.ends_with('/');
    inner = inner.substr(0, inner.size() - isFolder);
    const bool isAnywhere = inner.find('/') == string_view::npos;
    const string whole(inner.substr(inner.starts_with('/')));
    // The path itself where the pattern may be a file's, and each folder above it.
    for (size_t end = path.size(); end != string_view::npos && end > 0;
         end = path.rfind('/', end - 1)) {
        if (isFolder && end == path.size())
            continue;
        const string part(path.substr(0, end));
        const string name = isAnywhere ? part.substr(part.rfind('/') + 1) : part;
        if (fnmatch(whole.c_str(), name.c_str(), FNM_PATHNAME) == 0)
            return true;
    }
    return false;
}

bool fitsAny(const std::vector<string> &patterns, string_view path)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const string &pattern) { return fitsPattern(pattern, path); });
}
