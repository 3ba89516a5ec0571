/* tools/check/resources.cpp - what the site's scripts, styles and manifests name: files, and
 * elements by their ids. Looked at is only what is written out whole, outside of comments. */
#include <string.h>

#include <algorithm>
#include <filesystem>

#include "facts.h"
#include "host/ascii.h"
#include "tools/common/files.h"
#include "tools/common/html.h"
#include "tools/common/json.h"
#include "tools/common/sitefile.h"

using std::string;
using std::string_view;

namespace
{
struct Resources {
    Facts &facts;
    bool hasBase = false;    // a page has <base>, from which all addresses in pages begin
    bool idsKnown = true;    // those of all elements that pages and scripts make
    bool addsMarkup = false; // a script puts markup into pages that it may have from anywhere
    std::set<string, std::less<>> ids = {};      // of all pages
    std::set<string, std::less<>> patterns = {}; // of ids that are computed
};

// A file that is looked through.
struct Source {
    Resources &all;
    const string &path;  // below the document root
    const Template *tpl; // null for a file that is no template
    string_view bytes;
};

// A word behind which a script or a style names something.
struct Naming {
    string_view words;
    Content content;
    const char *kind;
    string (*problemOf)(const Source &source, string_view name); // empty for none
};

// A name that is a mistake unless it stands in a comment.
struct Hit {
    size_t at; // of the words in front
    const Naming *naming;
    string_view name;
    string problem;
};
} // namespace

// ---- files ----

static string wholePath(const Site &site, const string &path)
{
    return site.options.docRoot + "/" + path;
}

static void tellLine(const Source &source, const char *kind, uint32_t line, string text)
{
    const string path = wholePath(source.all.facts.all.site, source.path);
    reportLine(source.all.facts.all, std::filesystem::path(path).lexically_normal().string(), line,
               kind, std::move(text));
}

// The files from which an address in this one may begin: itself, and for what pages include, any
// page.
static std::vector<string> basesOf(const Source &source)
{
    const std::vector<string> &pages = source.all.facts.all.site.pages;
    const bool isOwn = source.path.ends_with(".css") || source.path.ends_with("js");
    if (isOwn || std::ranges::binary_search(pages, source.path))
        return {source.path};
    return pages;
}

// Why an address leads to no file from any of these.
static string problemFrom(const Source &source, const std::vector<string> &bases, string_view name)
{
    string text;
    if (source.all.hasBase && !name.starts_with('/'))
        return "";
    for (const string &base : bases) {
        text = whyMissing(source.all.facts.all.site, targetFile(base, name), false);
        if (text.empty())
            break;
    }
    return text;
}

static string problemOfFile(const Source &source, string_view name)
{
    return problemFrom(source, basesOf(source), name);
}

// What a script opens begins at the page that it runs in.
static string problemOfAddress(const Source &source, string_view name)
{
    const Site &site = source.all.facts.all.site;
    const bool isPage = std::ranges::binary_search(site.pages, source.path);
    const std::vector<string> bases = isPage ? std::vector<string>{source.path} : site.pages;
    return problemFrom(source, bases, name);
}

// Other names of modules are mapped to addresses.
static string problemOfModule(const Source &source, string_view name)
{
    const bool isPath = name.starts_with("./") || name.starts_with("../") || name.starts_with('/');
    return isPath ? problemOfFile(source, name) : "";
}

// One of several files, as of fonts, may be there for other browsers only.
static string problemOfPicture(const Source &source, string_view name)
{
    const string_view bytes = source.bytes;
    const auto at = static_cast<size_t>(name.data() - bytes.data());
    const size_t begin = bytes.find_last_of(";{}<>", at) + 1;
    const size_t end = std::min(bytes.find_first_of(";}<>", at), bytes.size());
    const string_view declaration = bytes.substr(begin, end - begin);
    const bool isOne = declaration.find("url(") == declaration.rfind("url(");
    return isOne ? problemOfFile(source, name) : "";
}

// ---- elements ----

// Whether what a script makes an id of, as in "id = 'x'", is not written out; behind the word.
static bool isComputed(string_view rest)
{
    const size_t end = std::min(rest.find_first_not_of(" \t\r\n'\"`\\:=,("), rest.size());
    const string_view between = rest.substr(0, end);
    if (between.find_first_of(":=,") == string_view::npos ||
        between.find("==") != string_view::npos || end == rest.size())
        return false;
    if (between.find_first_of("'\"`") == string_view::npos || rest[end] == '+')
        return !isDigit(rest[end]);
    const string_view value = rest.substr(end);
    const string_view behind =
        value.substr(std::min(value.find_first_of("'\"`$<{\\ >"), value.size()));
    const size_t next = std::min(behind.find_first_not_of("'\"`\\ "), behind.size());
    return behind.starts_with('$') || behind.starts_with('<') || behind.starts_with('{') ||
           behind.substr(next).starts_with('+');
}

static bool computesIds(string_view scripts)
{
    const auto isPart = [](char c) { return isLetterOrDigit(c) || strchr("_$-", c); };
    for (size_t at = 0; (at = scripts.find("id", at)) != string_view::npos; at += 2) {
        const bool isWord = (at == 0 || !isPart(scripts[at - 1])) && at + 2 < scripts.size() &&
                            !isPart(scripts[at + 2]);
        if (isWord && isComputed(scripts.substr(at + 2, 100)))
            return true;
    }
    return false;
}

static string problemOfId(const Source &source, string_view id)
{
    const Resources &all = source.all;
    const bool isThere =
        all.ids.contains(id) || std::ranges::any_of(all.patterns, [&](const string &pattern) {
            return mayMatch(pattern, id);
        });
    if (isThere || !all.idsKnown)
        return "";
    const string meant = didYouMean(id, {all.ids.begin(), all.ids.end()});
    const bool isGuess = all.addsMarkup || !source.tpl; // a script may be for other pages, too
    if ((meant.empty() && isGuess) || isMadeByScript(all.facts, id))
        return "";
    return "no element of any page has the id '" + string(id) + "'" + meant;
}

static string problemOfSelector(const Source &source, string_view selector)
{
    const bool isId = selector.starts_with('#') && selector.size() > 1 &&
                      std::ranges::all_of(selector.substr(1), [](char c) {
                          return isLetterOrDigit(c) || c == '-' || c == '_';
                      });
    return isId ? problemOfId(source, selector.substr(1)) : "";
}

// ---- reading ----

static constexpr Naming namings[] = {
    {"document.getElementById(", Content::SCRIPT, "html-reference", problemOfId},
    {"document.querySelector(", Content::SCRIPT, "html-reference", problemOfSelector},
    {"window.open(", Content::SCRIPT, "link-missing", problemOfAddress},
    {"location =", Content::SCRIPT, "link-missing", problemOfAddress},
    {"location.href =", Content::SCRIPT, "link-missing", problemOfAddress},
    {"window.location =", Content::SCRIPT, "link-missing", problemOfAddress},
    {"window.location.href =", Content::SCRIPT, "link-missing", problemOfAddress},
    {"location.assign(", Content::SCRIPT, "link-missing", problemOfAddress},
    {"location.replace(", Content::SCRIPT, "link-missing", problemOfAddress},
    {"fetch(", Content::SCRIPT, "link-missing", problemOfAddress},
    {"new EventSource(", Content::SCRIPT, "link-missing", problemOfAddress},
    {"new Worker(", Content::SCRIPT, "link-missing", problemOfAddress},
    {"new SharedWorker(", Content::SCRIPT, "link-missing", problemOfAddress},
    {"navigator.serviceWorker.register(", Content::SCRIPT, "link-missing", problemOfAddress},
    {"from", Content::SCRIPT, "link-missing", problemOfModule},
    {"import", Content::SCRIPT, "link-missing", problemOfModule},
    {"import(", Content::SCRIPT, "link-missing", problemOfModule},
    {"url(", Content::STYLE, "link-missing", problemOfPicture},
    {"@import", Content::STYLE, "link-missing", problemOfFile},
};

// What is named at a place, and nothing is added to: in quotes, or behind url(, without.
static string_view nameAt(string_view text, const Naming &naming)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    const char quote = text.starts_with('\'') || text.starts_with('"') ? text[0] : ')';
    if (quote == ')' && naming.words != "url(")
        return "";
    text.remove_prefix(quote == ')' ? 0 : 1);
    const size_t end = std::min(text.find(quote), text.size());
    const string_view name = text.substr(0, end);
    const bool isPlain = std::ranges::all_of(
        name, [](char c) { return isLetterOrDigit(c) || strchr("_./%~-?=&#:+@", c); });
    const size_t next = text.find_first_not_of(" \t", end + 1);
    const bool isWhole = next == string_view::npos || !strchr("+.", text[next]);
    return end < text.size() && isPlain && isWhole ? name : "";
}

static std::vector<Hit> hitsOf(const Source &source)
{
    const string_view bytes = source.bytes;
    std::vector<Hit> hits;
    for (const Naming &naming : namings) {
        const size_t length = naming.words.size();
        for (size_t at = 0; (at = bytes.find(naming.words, at)) != string_view::npos;
             at += length) {
            const char before = at > 0 ? bytes[at - 1] : ' ';
            const string_view name = nameAt(bytes.substr(at + length), naming);
            if (name.empty() || isLetterOrDigit(before) || strchr("_$.-", before))
                continue;
            string problem = naming.problemOf(source, name);
            if (!problem.empty())
                hits.push_back({at, &naming, name, std::move(problem)});
        }
    }
    std::ranges::sort(hits, {}, &Hit::at);
    return hits;
}

static void tell(const Source &source, const Hit &hit)
{
    const auto at = static_cast<uint32_t>(hit.name.data() - source.bytes.data());
    const Span span = {at, at + static_cast<uint32_t>(hit.name.size())};
    const bool isFile = string_view(hit.naming->kind) == "link-missing";
    const Grade grade = isFile ? Grade::ERROR : Grade::WARNING;
    if (source.tpl)
        return reportAs(source.all.facts.all, grade, *source.tpl, span, hit.naming->kind,
                        hit.problem);
    tellLine(source, hit.naming->kind,
             1 + static_cast<uint32_t>(std::ranges::count(source.bytes.substr(0, at), '\n')),
             hit.problem);
    source.all.facts.all.findings.back().severity = grade;
}

// Follows a piece of text that comes out as it is, and tells the hits in it that stand in code.
static void tellHits(const Source &source, std::span<const Hit> hits, HtmlState *state, size_t at,
                     size_t end)
{
    for (const Hit &hit : hits) {
        if (hit.at < at || hit.at >= end)
            continue;
        follow(state, source.bytes.substr(at, hit.at - at));
        at = hit.at;
        const bool isInside = state->part == Part::RAW || state->part == Part::VALUE;
        if (isInside && state->content == hit.naming->content && state->script == Script::CODE)
            tell(source, hit);
    }
    follow(state, source.bytes.substr(at, end - at));
}

static void readSource(const Source &source)
{
    const std::vector<Hit> hits = hitsOf(source);
    HtmlState state = beginOf(source.path);
    if (hits.empty())
        return;
    if (!source.tpl)
        return tellHits(source, hits, &state, 0, source.bytes.size());
    for (const Item &item : source.tpl->items) {
        if (item.command)
            followValue(&state);
        else
            tellHits(source, hits, &state, item.span.at, item.span.end);
    }
}

// The pictures and pages of a web app's manifest.
static void checkManifest(const Source &source)
{
    Json manifest;
    string problem;
    if (!readJsonFile(source.bytes, &manifest, &problem))
        return;
    const auto check = [&](const Json *address, bool isFile) {
        if (!address || !address->isText())
            return;
        string text =
            whyMissing(source.all.facts.all.site, targetFile(source.path, address->text), isFile);
        if (!text.empty())
            tellLine(source, "link-missing", address->line, std::move(text));
    };
    check(manifest.find("start_url"), false);
    for (const char *list : {"icons", "screenshots", "shortcuts"})
        if (const Json *items = manifest.find(list))
            for (const Json &item : *items) {
                check(item.find("src"), true);
                check(item.find("url"), false);
            }
}

static Resources resourcesOf(Facts &facts)
{
    Resources all = {facts};
    const Site &site = facts.all.site;
    const string_view scripts = scriptsOf(facts);
    for (const string &path : site.pages) {
        const auto page = facts.pages.find(path);
        const bool isRead = page != facts.pages.end() && !page->second.opaque;
        all.idsKnown = all.idsKnown && (isRead || modeOf(path) != Mode::TEXT);
        if (page == facts.pages.end())
            continue;
        for (const string &id : page->second.ids)
            (id.find(MARK) == string::npos ? all.ids : all.patterns).insert(id);
    }
    for (const auto &[path, tpl] : site.templates)
        all.hasBase = all.hasBase || tpl->source.find("<base ") != string::npos;
    all.idsKnown = all.idsKnown && !computesIds(scripts);
    all.addsMarkup = !site.options.templates.empty();
    for (const char *word : {"HTML", ".write", ".html(", "Fragment(", "DOMParser"})
        all.addsMarkup = all.addsMarkup || scripts.find(word) != string_view::npos;
    return all;
}

void checkResources(Facts &facts)
{
    Resources all = resourcesOf(facts);
    const Site &site = facts.all.site;
    for (const auto &[path, tpl] : site.templates)
        readSource({all, path, tpl.get(), tpl->source});
    if (!site.options.templates.empty()) // of a page alone, its own files are looked at
        return;
    for (const string &path : site.files) {
        const bool isRead = path.ends_with(".css") || path.ends_with(".js") ||
                            path.ends_with(".mjs") || facts.manifests.contains(path);
        string bytes;
        if (!isRead || site.templates.contains(path) || fitsAny(site.options.exclude, path) ||
            !readBytes(wholePath(site, path).c_str(), &bytes))
            continue;
        const Source source = {all, path, nullptr, bytes};
        if (facts.manifests.contains(path))
            checkManifest(source);
        else
            readSource(source);
    }
}
