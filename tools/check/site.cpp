/* tools/check/site.cpp - reads a site: pages, what they include, and who sets what. */
#include "site.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <iterator>

#include "assemble.h"
#include "grammar/commands.h"
#include "host/ascii.h"
#include "tools/common/files.h"
#include "tools/common/listing.h"

using std::string;
using std::string_view;

namespace fs = std::filesystem;

// ---- commands ----

const string *sourceOf(const Site &site, const Language &language, string_view id,
                       const LanguageText &text)
{
    const Language &first = site.languages.front();
    const auto other = first.texts.find(id);
    if (text.source)
        return &*text.source;
    return &language == &first || other == first.texts.end() ? nullptr : &other->second.text;
}

std::set<string> flagsOf(const Site &site, string_view id, const LanguageText &text)
{
    std::set<string> flags = text.flags;
    const Language &first = site.languages.front();
    const auto source = first.texts.find(id);
    if (source != first.texts.end())
        flags.insert(source->second.flags.begin(), source->second.flags.end());
    return flags;
}

int bodyIndex(const Command &command)
{
    if (!(command.id & CMDF_BODY))
        return -1;
    const int index = !!(command.id & CMDF_ARG1) + !!(command.id & CMDF_ARG2);
    return static_cast<size_t>(index) < command.args.size() ? index : -1;
}

Prints printsOf(const Command &command)
{
    const auto *row =
        std::find_if(std::begin(commandTable), std::end(commandTable),
                     [&](const CommandDef &candidate) { return candidate.id == command.id; });
    return row->prints; // every command has its row
}

bool constantText(const Template &tpl, const Argument &argument, string *text)
{
    text->clear();
    return std::all_of(argument.elements.begin(), argument.elements.end(),
                       [&](const Element &element) {
                           *text += element.text;
                           return element.type == ELEM_TEXT && fieldsIn(tpl, element.span).empty();
                       });
}

// An index in the form in which elements are stored: a whole number is its value.
static string storedIndex(const string &index)
{
    int32_t value = 0;
    const char *begin = index.c_str() + (index.size() > 1 && index[0] == '+');
    const char *end = index.c_str() + index.size();
    const auto [stop, error] = std::from_chars(begin, end, value);
    if (index.empty())
        return "0";
    return stop == end && error == std::errc() ? std::to_string(value) : index;
}

string keyOfSet(const Command &command)
{
    if (command.id != ID_SETARRAY && command.id != ID_SETARRAYONCE)
        return command.name;
    string index = "*";
    if (!command.args.empty()) {
        const auto &elements = command.args[0].elements;
        const bool constant = std::all_of(elements.begin(), elements.end(), [](const Element &e) {
            return e.type == ELEM_TEXT && e.text.find(MARK) == string::npos;
        });
        if (constant) {
            index.clear();
            for (const Element &element : elements)
                index += element.text;
            index = storedIndex(index);
        }
    }
    return command.name + "[" + index + "]";
}

string keyOfRead(const Element &element)
{
    switch (element.type) {
    case ELEM_MINARRAY:
        return element.text + "[min]";
    case ELEM_MAXARRAY:
        return element.text + "[max]";
    case ELEM_GETARRAY: {
        const bool constant = !element.index.empty() && element.index[0].type == ELEM_TEXT &&
                              element.index[0].text.find(MARK) == string::npos;
        return element.text + "[" + (constant ? element.index[0].text : "*") + "]";
    }
    default:
        return element.text;
    }
}

// ---- files ----

string suffixOf(string_view path)
{
    return fs::path(path).extension().string();
}

static fs::path pathOf(const Site &site, const string &path)
{
    return fs::path(site.options.docRoot) / path;
}

// Whether a web program would look for the path: below the document root.
static bool staysBelow(const string &path)
{
    if (path.empty() || path[0] == '/')
        return false;
    const fs::path steps = path;
    return std::find(steps.begin(), steps.end(), "..") == steps.end();
}

bool fileExists(const Site &site, const string &path)
{
    std::error_code error;
    return site.options.unsaved.contains(path) ||
           (staysBelow(path) && fs::is_regular_file(pathOf(site, path), error));
}

// Notes why a template that is there cannot be read, the first one's reason.
static void noteUnread(Site *site, const string &path, const string &reason)
{
    if (site->problem.empty())
        site->problem = "cannot read template " + path + ": " + reason;
}

// Returns false when the file is not there or may not be read; one that fails midway is
// a problem of the site as well.
static bool readFile(Site *site, const string &path, string *bytes)
{
    const auto unsaved = site->options.unsaved.find(path);
    if (unsaved != site->options.unsaved.end()) {
        *bytes = unsaved->second;
        return true;
    }
    if (!fileExists(*site, path))
        return false;
    const bool done = readBytes(pathOf(*site, path).c_str(), bytes);
    if (!done && errno != EACCES)
        noteUnread(site, path, strerror(errno));
    return done;
}

// ---- what a template sets, reads and includes ----

namespace
{
struct Collector {
    Site *site;
    const Template *tpl;
};
} // namespace

static void collectCommand(const Collector &collector, const Command &command,
                           const std::shared_ptr<const Levels> &levels);

static void collectElement(const Collector &collector, const Element &element,
                           const std::shared_ptr<const Levels> &levels)
{
    if (element.command)
        collectCommand(collector, *element.command, levels);
    for (const Element &index : element.index)
        collectElement(collector, index, levels);
    if (element.type == ELEM_GETVAR || element.type == ELEM_GETARRAY ||
        element.type == ELEM_MINARRAY || element.type == ELEM_MAXARRAY)
        collector.site->variables[keyOfRead(element)].reads.push_back(
            {collector.tpl, element.span, nullptr, nullptr, levels});
}

static void collectSet(const Collector &collector, const Command &command,
                       const std::shared_ptr<const Levels> &levels)
{
    const bool array = command.id == ID_SETARRAY || command.id == ID_SETARRAYONCE;
    const Argument *value = command.args.size() > array ? &command.args[array] : nullptr;
    collector.site->variables[keyOfSet(command)].sets.push_back(
        {collector.tpl, command.span, &command, value, levels});
}

static void collectPath(const Collector &collector, const Command &command, bool conditional)
{
    PathUse use = {collector.tpl, &command, {}, false, conditional};
    if (!command.args.empty())
        use.dynamic = !writtenTexts(*collector.tpl, command.args[0], &use.paths);
    if (command.id == ID_INCLUDE)
        collector.site->includes[collector.tpl->path].push_back(std::move(use));
    else
        collector.site->encoded.push_back(std::move(use));
}

static void collectCommand(const Collector &collector, const Command &command,
                           const std::shared_ptr<const Levels> &levels)
{
    switch (command.id) {
    case ID_SETVARIABLE:
    case ID_SETVARIABLEONCE:
    case ID_SETARRAY:
    case ID_SETARRAYONCE:
        collectSet(collector, command, levels);
        break;
    case ID_INCLUDE:
    case ID_BASE64:
        collectPath(collector, command, !levels->empty());
        break;
    default:
        break;
    }
    if (command.id & CMDF_QUERY)
        collector.site->queries[&command] = {collector.tpl, levels};
    const int body = bodyIndex(command);
    std::shared_ptr<const Levels> inside;
    for (size_t i = 0; i < command.args.size(); ++i) {
        if (body >= 0 && i >= static_cast<size_t>(body) && !inside) {
            Levels deeper = *levels;
            deeper.push_back(&command);
            inside = std::make_shared<const Levels>(std::move(deeper));
        }
        for (const Element &element : command.args[i].elements)
            collectElement(collector, element, inside ? inside : levels);
    }
}

bool inComment(const Template &tpl, uint32_t offset)
{
    const auto after =
        std::upper_bound(tpl.comments.begin(), tpl.comments.end(), offset,
                         [](uint32_t at, const Span &comment) { return at < comment.at; });
    return after != tpl.comments.begin() && std::prev(after)->contains(offset);
}

// What a piece of a template that is left out was to read, set and show.
static void collectMeant(Site *site, string_view text)
{
    static constexpr string_view key = "var:";
    for (size_t at = 0; (at = text.find(key, at)) != string_view::npos;) {
        at += key.size();
        size_t end = at;
        while (end < text.size() && isLetterOrDigit(text[end]))
            ++end;
        site->meant.insert(string(text.substr(at, end - at)));
    }
    for (size_t at = 0; (at = text.find("{?", at)) != string_view::npos; at += 2) {
        const size_t end = idEnd(text, at + 2);
        if (text.substr(end, 2) == "?}")
            site->otherFields.insert(string(text.substr(at + 2, end - at - 2)));
    }
    static constexpr string_view name = " name=";
    for (size_t at = 0; (at = text.find(name, at)) != string_view::npos;) {
        at += name.size();
        const size_t begin = std::min(text.find_first_not_of("\"'", at), text.size());
        const size_t end = std::min(text.find_first_of("\"'$<> `", begin), text.size());
        if (end > begin) // also of a name that goes on with a value
            site->formPatterns.emplace_back(text.substr(begin, end - begin), "");
    }
}

static void collect(Site *site, const Template &tpl)
{
    const string_view source = tpl.source;
    for (const Span &span : leftOut(tpl))
        collectMeant(site, source.substr(span.at, span.end - span.at));
    for (const Span &span : site->doubtful[&tpl])
        collectMeant(site, string_view(fileOf(tpl)).substr(span.at, span.end - span.at));

    const Collector collector = {site, &tpl};
    const auto none = std::make_shared<const Levels>();
    site->includes[tpl.path]; // also of those without
    for (const Item &item : tpl.items)
        if (item.command)
            collectCommand(collector, *item.command, none);
    for (size_t i = 0; i < tpl.fields.size(); ++i)
        if (!inComment(tpl, tpl.fields[i].span.at))
            site->fields[string(tpl.fields[i].id)].push_back({&tpl, i});
    collectNames(site, tpl);
}

// ---- the whole ----

static bool load(Site *site, const string &path, bool page)
{
    string bytes;
    if (site->templates.contains(path))
        return true;
    if (!readFile(site, path, &bytes))
        return false;
    Mended mended = readMended(path, bytes, page);
    if (mended.tpl->unread)
        noteUnread(site, path, UNREAD);
    const Template &read = *mended.tpl;
    site->templates[path] = std::move(mended.tpl);
    site->mistakes[path] = std::move(mended.mistakes);
    site->doubtful[&read] = std::move(mended.doubtful);
    collect(site, read);
    return true;
}

// Reads what the templates include, until nothing new comes. A path in variables that
// are set to constants only is followed as well.
static void loadIncluded(Site *site, const std::function<void(size_t)> &progress)
{
    bool found = true;
    while (found) {
        found = false;
        std::vector<string> paths;
        for (auto &[path, uses] : site->includes)
            for (PathUse &use : uses) {
                if (use.dynamic)
                    use.paths = assembledTexts(*site, *use.tpl, use.command->args[0]);
                paths.insert(paths.end(), use.paths.begin(), use.paths.end());
            }
        std::sort(paths.begin(), paths.end());
        paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
        for (const string &path : paths) {
            found = (!site->templates.contains(path) && load(site, path, false)) || found;
            if (progress)
                progress(site->templates.size());
        }
    }
}

// ---- which templates are pages ----

// Whether another template includes this one.
static std::set<string> includedByOthers(const Site &site)
{
    std::set<string> included;
    for (const auto &[from, uses] : site.includes)
        for (const PathUse &use : uses)
            for (const string &path : use.paths)
                if (path != from)
                    included.insert(path);
    return included;
}

// Marks what a template includes, and what that does.
static void reach(const Site &site, const string &path, std::set<string> *reached)
{
    std::vector<string> open = {path};
    while (!open.empty()) {
        const string at = std::move(open.back());
        open.pop_back();
        const auto uses = site.includes.find(at);
        if (uses == site.includes.end() || !reached->insert(at).second)
            continue;
        for (const PathUse &use : uses->second)
            open.insert(open.end(), use.paths.begin(), use.paths.end());
    }
}

// The pages are the templates that no other includes. Of a ring of such as include each
// other one is a page, that whose name is a page's.
static void choosePages(Site *site, const std::vector<string> &templates)
{
    const std::set<string> included = includedByOthers(*site);
    std::set<string> reached;
    std::vector<string> rest;
    for (const string &path : templates) {
        if (included.contains(path)) {
            rest.push_back(path);
            continue;
        }
        site->pages.push_back(path);
        reach(*site, path, &reached);
    }
    std::stable_partition(rest.begin(), rest.end(),
                          [](const string &path) { return path.ends_with(".htm"); });
    for (const string &path : rest)
        if (!reached.contains(path)) {
            site->pages.push_back(path);
            reach(*site, path, &reached);
        }
    std::sort(site->pages.begin(), site->pages.end());
}

// The files that are looked at as templates: those that were named, or all there are.
static std::vector<string> templateFiles(const Site &site)
{
    const SiteOptions &options = site.options;
    if (!options.templates.empty())
        return options.templates;
    std::vector<string> paths;
    for (const string &path : site.files)
        if (!fitsAny(options.exclude, path) &&
            (fitsAny(options.pages, path) || options.unsaved.contains(path) ||
             isTemplateFile(options.docRoot, path)))
            paths.push_back(path);
    for (const auto &[path, content] : options.unsaved) // of files that are new
        if (!std::binary_search(site.files.begin(), site.files.end(), path))
            paths.push_back(path);
    return paths;
}

// Reads templates and all that they include. pieces: those that others include, which run
// inside a page. Returns false with a problem.
static bool loadTemplates(Site *site, const std::vector<string> &paths,
                          const std::set<string> &pieces, string *problem,
                          const std::function<void(size_t)> &progress)
{
    for (const string &path : paths) {
        if (!load(site, path, !pieces.contains(path))) {
            *problem = site->problem.empty() ? "cannot read template " + path : site->problem;
            return false;
        }
        if (progress)
            progress(site->templates.size());
    }
    loadIncluded(site, progress);
    *problem = site->problem;
    return problem->empty();
}

static bool loadPages(Site *site, string *problem, const std::function<void(size_t)> &progress)
{
    SiteOptions &options = site->options;
    if (!listFiles(options.docRoot, &site->files, problem))
        return false;
    const std::vector<string> paths = templateFiles(*site);
    if (!loadTemplates(site, paths, {}, problem, progress))
        return false;
    if (!options.templates.empty()) {
        site->pages = options.templates;
        return true;
    }
    // Where a page would end, a piece goes on.
    std::set<string> pieces = includedByOthers(*site);
    std::erase_if(pieces, [&](const string &path) { return fitsAny(options.pages, path); });
    const bool isOtherwise = std::any_of(pieces.begin(), pieces.end(), [&](const string &path) {
        const std::vector<Mistake> &mistakes = site->mistakes[path];
        return std::any_of(mistakes.begin(), mistakes.end(), [](const Mistake &mistake) {
            return mistake.kind == string_view("gives-up");
        });
    });
    if (isOtherwise) {
        static_cast<Collected &>(*site) = {};
        if (!loadTemplates(site, paths, pieces, problem, progress))
            return false;
    }
    if (options.pages.empty())
        choosePages(site, paths);
    else
        for (const string &path : paths)
            if (fitsAny(options.pages, path))
                site->pages.push_back(path);
    return true;
}

// ---- texts and databases ----

// Takes over a language whose file is as it was. Returns false where there is none.
static bool takeLanguage(Site *site, const string &path, Site *former)
{
    if (!former)
        return false;
    const auto kept =
        std::find_if(former->languages.begin(), former->languages.end(), [&](const Language &each) {
            return each.path == path && each.state == stateOfFile(path);
        });
    if (kept == former->languages.end())
        return false;
    site->languages.push_back(std::move(*kept));
    return true;
}

static std::vector<string_view> idsOf(const std::vector<Language> &languages)
{
    std::vector<string_view> ids;
    for (const Language &language : languages)
        for (const auto &[id, text] : language.texts)
            ids.emplace_back(id);
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

// A language that is taken over keeps its texts where they are, and so its ids.
static_assert(std::is_nothrow_move_constructible_v<Language>);

static bool loadLanguages(Site *site, string *problem, Site *former)
{
    bool isSame = former && former->options.texts == site->options.texts;
    for (const string &path : site->options.texts) {
        if (takeLanguage(site, path, former))
            continue;
        isSame = false;
        Language language;
        const size_t faults = site->textFaults.size();
        if (!readLanguage(path, &language, &site->textFaults, problem)) {
            *problem = "cannot read texts " + path + ": " + *problem;
            return false;
        }
        if (site->textFaults.size() == faults)
            site->languages.push_back(std::move(language));
    }
    if (isSame) {
        site->judged = std::move(former->judged);
        site->textIds = std::move(former->textIds);
    } else {
        site->textIds = idsOf(site->languages);
    }
    return true;
}

// What the answers of a site's databases depend on.
static string stateOfDatabases(const SiteOptions &options)
{
    string state;
    for (const SiteDatabase &database : options.databases)
        for (const string &path : databaseFiles(database))
            state += database.name + " " + path + " " + stateOfFile(path) + "\n";
    for (const SiteFunction &function : options.functions)
        state += function.name + " " + std::to_string(function.arguments) +
                 (function.givesNumbers ? " number\n" : "\n");
    return state;
}

static bool loadDatabases(Site *site, string *problem, Site *former)
{
    constexpr size_t mostAnswers = 10000; // queries that were typed letter by letter among them
    if (site->options.databases.empty())
        return true;
    site->databaseState = stateOfDatabases(site->options);
    const bool isSame = former && former->database && former->databaseState == site->databaseState;
    if (isSame)
        site->database = std::move(former->database);
    else
        site->database = openDatabases(site->options.databases, site->options.functions, problem);
    if (site->database && site->database->answers.size() > mostAnswers)
        site->database->answers.clear();
    return site->database != nullptr;
}

void giveBack(Site *site, Site *former)
{
    former->languages = std::move(site->languages);
    former->textIds = std::move(site->textIds);
    former->judged = std::move(site->judged);
    former->database = std::move(site->database);
    former->databaseState = std::move(site->databaseState);
}

bool loadSite(SiteOptions options, Site *site, string *problem,
              const std::function<void(size_t)> &progress, Site *former)
{
    site->options = std::move(options);
    std::error_code error;
    if (!fs::is_directory(site->options.docRoot, error)) {
        *problem = "no folder: " + site->options.docRoot;
        return false;
    }
    for (const string &name : site->options.set)
        site->fromWeb.insert(name);
    for (const string &name : site->options.safe) {
        site->fromWeb.insert(name);
        site->safe.insert(name);
    }
    return loadLanguages(site, problem, former) && loadDatabases(site, problem, former) &&
           loadPages(site, problem, progress);
}

// ---- who sets what ----

string_view arrayOf(string_view key)
{
    return key.substr(0, key.find('['));
}

// Whether a form has a field whose name is computed and can be that.
static bool isFormPattern(const Site &site, string_view key)
{
    return std::any_of(site.formPatterns.begin(), site.formPatterns.end(), [&](const auto &p) {
        return key.size() >= p.first.size() + p.second.size() && key.starts_with(p.first) &&
               key.ends_with(p.second);
    });
}

bool isFromWeb(const Site &site, string_view key)
{
    if (site.fromWeb.contains(key) || site.fromForms.contains(key) || isFormPattern(site, key))
        return true;
    if (key.find('[') == string_view::npos)
        return false;
    const string array(arrayOf(key));
    const bool bound = key.ends_with("[min]") || key.ends_with("[max]") || key.ends_with("[*]");
    const auto names = {&site.fromWeb, &site.fromForms};
    return std::any_of(names.begin(), names.end(), [&](const auto *set) {
        const auto element = set->lower_bound(array + "[");
        return set->contains(array + "[]") || set->contains(array + "[*]") ||
               (bound && element != set->end() && element->starts_with(array + "["));
    });
}

// The variables whose sets a read of key may see, each handed to visit.
template <typename Visit> static void visitSeen(const Site &site, string_view key, Visit visit)
{
    const string array = string(arrayOf(key)) + "[";
    const bool any = key.ends_with("[*]") || key.ends_with("[min]") || key.ends_with("[max]");
    if (any) {
        for (auto it = site.variables.lower_bound(array);
             it != site.variables.end() && it->first.starts_with(array); ++it)
            visit(it->second);
        return;
    }
    if (const auto found = site.variables.find(key); found != site.variables.end())
        visit(found->second);
    if (key.find('[') != string_view::npos)
        if (const auto found = site.variables.find(array + "*]"); found != site.variables.end())
            visit(found->second);
}

std::vector<const VariableUse *> setsOf(const Site &site, string_view key)
{
    std::vector<const VariableUse *> sets;
    visitSeen(site, key, [&](const Variable &variable) {
        for (const VariableUse &use : variable.sets)
            sets.push_back(&use);
    });
    return sets;
}

size_t countSets(const Site &site, string_view key)
{
    size_t count = 0;
    visitSeen(site, key, [&](const Variable &variable) { count += variable.sets.size(); });
    return count;
}
