/* tools/textdb/sync.cpp - the command sync: the whole round for a site that has a site file. Its
 * languages are brought in line with the source and the templates, and made databases; a
 * file is written only where it becomes another one. */
#include "commands.h"

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "language.h"
#include "tools/common/files.h"
#include "tools/common/listing.h"
#include "tools/common/sitefile.h"

using std::string;

namespace fs = std::filesystem;

// A round on its way.
struct Round {
    bool takesFuzzy;
    bool writes;
    SiteFile site = {};
    std::vector<string> files = {}; // the fields know their templates by these
    std::vector<TemplateFields> templates = {};
    Uses uses = {};
    PoFile source = {};
    std::set<string> outputs = {};
    size_t languages = 0;
    size_t changed = 0; // files
    bool isGood = true;
};

// ---- what the site has ----

static bool readSite(const CommandLine &line, SiteFile *site)
{
    const string path = line.value(OPT_CONFIG, findSiteFile(".").c_str());
    string problem;
    if (path.empty())
        return complain(0,
                        "there is no %s here or in a folder above; 'orv-check --init' writes one",
                        SITE_FILE);
    if (!readSiteFile(path, site, &problem))
        return complain(0, "%s", problem.c_str());
    return true;
}

// The PO file of the source texts, the first there is; null for none.
static const SitePath *sourceOf(const SiteFile &site)
{
    for (const SitePath &path : site.texts)
        if (isPoName(path.path))
            return &path;
    return nullptr;
}

// Reads the text fields of all templates of the site, by paths below the document root.
static bool readAllTemplates(Round *round)
{
    std::vector<const char *> paths;
    string problem;
    const string &root = round->site.docRoot.path;
    if (!listFiles(root, &round->files, &problem))
        return complain(0, "%s", problem.c_str());
    for (const string &path : round->files)
        if (!fitsAny(round->site.exclude, path) &&
            (fitsAny(round->site.pages, path) || isTemplateFile(root, path)))
            paths.push_back(path.c_str());
    if (!readTemplates(paths, &round->templates, root + "/"))
        return false;
    round->uses = collectUses(round->templates);
    return true;
}

// ---- a language ----

// "de" of texts/de.po
static string codeOf(const string &path)
{
    const string stem = fs::path(path).stem();
    return stem.starts_with("htmltext_") ? stem.substr(9) : stem;
}

// Writes a file where that makes it another one. Returns false after a complaint.
static bool writeChanged(Round *round, const string &path, const string &bytes, bool *isChanged)
{
    string old;
    std::error_code error;
    if (fs::exists(path, error) && !readFile(path.c_str(), &old))
        return false;
    *isChanged = old != bytes;
    round->changed += *isChanged;
    if (!*isChanged || !round->writes)
        return true;
    fs::create_directories(fs::path(path).parent_path(), error);
    return replaceFile(path.c_str(), bytes);
}

// Begins a language's file, with a header.
static bool begin(const Round &round, const string &path)
{
    string text = "msgid \"\"\nmsgstr \"\"\n";
    string fields = newHeaderFields(round.source, codeOf(path));
    for (size_t end; (end = fields.find('\n')) != string::npos; fields.erase(0, end + 1))
        text += "\"" + fields.substr(0, end) + "\\n\"\n";
    return replaceFile(path.c_str(), text);
}

static string counted(const Updated &updated)
{
    if (updated.added + updated.changed + updated.gone == 0)
        return "comments and places";
    return std::to_string(updated.added) + " new, " + std::to_string(updated.changed) +
           " changed, " + std::to_string(updated.gone) + " gone";
}

// Brings a language in line. told: gets what is done, in words. Returns false after a complaint.
static bool update(Round *round, const string &path, string *told)
{
    Updated updated;
    bool isChanged = false;
    std::error_code error;
    if (!fs::exists(path, error)) {
        if (!round->writes) {
            ++round->changed;
            *told = "would be begun";
            return true;
        }
        if (!begin(*round, path))
            return false;
    }
    if (!updateLanguage(round->source, &round->uses, path.c_str(), &updated))
        return false;
    if (updated.isSource) {
        *told = "has the source's texts, left as it is";
        return true;
    }
    if (!writeChanged(round, path, updated.bytes, &isChanged))
        return false;
    if (isChanged)
        *told = counted(updated);
    return true;
}

// Makes a language's database, but none without a text. Returns false after a complaint.
static bool build(Round *round, const string &path, string *told)
{
    string output = round->site.textDatabases;
    std::error_code error;
    if (output.empty() || !fs::exists(path, error))
        return true;
    output.replace(output.rfind('*'), 1, codeOf(path));
    if (!round->outputs.insert(output).second)
        return complain(0, "%s would be the database of another language, too: %s", output.c_str(),
                        path.c_str());
    std::vector<const char *> inputs;
    for (const SitePath &input : round->site.texts)
        inputs.push_back(input.path.c_str());
    const bool isSource = isSameFile(path.c_str(), round->source.path.c_str());
    const BuildOrder order = {
        path.c_str(),     output.c_str(),    isSource ? nullptr : &round->source,
        round->templates, round->takesFuzzy, true};
    Built built;
    bool isChanged = false;
    if (!mayReplace(output.c_str(), inputs) || !buildLanguage(order, &built))
        return false;
    if (built.texts == 0) {
        *told += told->empty() ? "" : "; no text is translated yet";
        return true;
    }
    if (!writeChanged(round, output, built.bytes, &isChanged))
        return false;
    if (isChanged)
        *told += (told->empty() ? "" : "; ") + output + ": " + describe(built);
    return true;
}

static void syncLanguage(Round *round, const string &path)
{
    string told;
    const bool isSource = isSameFile(path.c_str(), round->source.path.c_str());
    ++round->languages;
    if ((!isSource && !update(round, path, &told)) || !build(round, path, &told))
        round->isGood = false;
    else if (!told.empty())
        printf("%s: %s\n", path.c_str(), told.c_str());
}

// ---- the round ----

// Reads the site, but for its languages. Returns false after a complaint.
static bool prepare(Round *round)
{
    const SitePath *source = sourceOf(round->site);
    SiteFile needed = {};
    string problem;
    if (!source)
        return complain(0, "%s: 'texts' names no PO file", round->site.path.c_str());
    needed.path = round->site.path;
    needed.docRoot = round->site.docRoot;
    needed.texts = {*source};
    if (!findMissing(needed, &problem))
        return complain(0, "%s", problem.c_str());
    round->source = readPo(source->path.c_str());
    checkSource(&round->source);
    return round->source.errors == 0 && readAllTemplates(round);
}

int runSync(const CommandLine &line)
{
    Round round = {line.has(OPT_FUZZY), !line.has(OPT_DRY_RUN)};
    if (!readSite(line, &round.site) || !prepare(&round)) {
        freePo(&round.source);
        return STATUS_FAULT;
    }
    round.isGood = checkMissing(round.source, round.uses);
    for (const SitePath &path : round.site.texts)
        if (isPoName(path.path))
            syncLanguage(&round, path.path);
    freePo(&round.source);
    if (round.isGood && round.changed == 0)
        printf("nothing to do: %zu languages are up to date\n", round.languages);
    return round.isGood && (round.writes || round.changed == 0) ? STATUS_OK : STATUS_FAULT;
}
