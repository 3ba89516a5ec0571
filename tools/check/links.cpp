/* tools/check/links.cpp - where addresses lead to: those of links, forms, images and scripts of a
 * page, and those that the site's other files name. */
#include <algorithm>
#include <filesystem>

#include "facts.h"
#include "host/ascii.h"
#include "tools/common/sitefile.h"
#include "tools/common/words.h"

using std::string;
using std::string_view;

namespace fs = std::filesystem;

static bool leads(const Tag &tag, string_view name)
{
    struct Row {
        string_view attribute;
        string_view elements;
    };
    static constexpr Row table[] = {
        {"href", "a area link use image"},
        {"xlink:href", "a use image"},
        {"src", "script img iframe embed source audio video track input frame"},
        {"action", "form"},
        {"formaction", "button input"},
        {"data", "object"},
        {"poster", "video"},
    };
    return std::ranges::any_of(table, [&](const Row &row) {
        return row.attribute == name && hasWord(row.elements, tag.name);
    });
}

// Whether an address leads elsewhere than to a file of the site: to a scheme or a host.
static bool isElsewhere(string_view address)
{
    const size_t end = address.find_first_not_of(
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.");
    return address.starts_with("//") ||
           (end != string_view::npos && end > 0 && address[end] == ':');
}

static string decoded(string_view path)
{
    string text;
    for (size_t i = 0; i < path.size(); ++i) {
        const bool isCode = path[i] == '%' && i + 2 < path.size() && isHexDigit(path[i + 1]) &&
                            isHexDigit(path[i + 2]);
        text += isCode
                    ? static_cast<char>(strtol(string(path.substr(i + 1, 2)).c_str(), nullptr, 16))
                    : path[i];
        i += isCode ? 2 : 0;
    }
    return text;
}

// The path below the document root that an address of a file means; empty for none.
static string targetOf(const string &from, string_view path)
{
    const fs::path folder = fs::path(from).parent_path();
    const fs::path whole =
        path[0] == '/' ? fs::path(string(path.substr(1))) : folder / string(path);
    const string target = whole.lexically_normal().generic_string();
    return target.starts_with("..") || target == "." ? "" : target;
}

// Whether only a file can be meant: pages of the site's own kind, and what pages are made of.
static bool isFileName(const Site &site, const string &path)
{
    static constexpr string_view suffixes =
        ".htm .html .css .js .mjs .png .jpg .jpeg .gif .svg .ico .webp .avif .bmp .woff .woff2 "
        ".ttf .otf .eot .cur .mp3 .mp4 .webm .ogg .wav .vtt .pdf .webmanifest";
    const string suffix = suffixOf(path);
    return !suffix.empty() &&
           (hasWord(suffixes, suffix) || std::ranges::any_of(site.pages, [&](const string &page) {
                return suffixOf(page) == suffix && suffix != ".json" && suffix != ".csv" &&
                       suffix != ".xml" && suffix != ".txt";
            }));
}

static bool isThere(const Site &site, const string &path)
{
    std::error_code error;
    return std::ranges::binary_search(site.files, path) || site.templates.contains(path) ||
           site.options.unsaved.contains(path) ||
           fs::is_directory(fs::path(site.options.docRoot) / path, error);
}

static string_view nearestFile(const Site &site, const string &path)
{
    std::vector<string_view> files;
    const string suffix = suffixOf(path);
    for (const string &file : site.files)
        if (!suffix.empty() && file.ends_with(suffix))
            files.push_back(file);
    return nearest(path, files);
}

string targetFile(const string &from, string_view address)
{
    const size_t begin = address.find_first_not_of(" \t\r\n");
    address.remove_prefix(std::min(begin, address.size()));
    const string_view path = address.substr(0, address.find_first_of("?#"));
    if (path.empty() || path.find(MARK) != string_view::npos || isElsewhere(address))
        return "";
    return targetOf(from, decoded(path.substr(0, path.find_last_not_of(" \t\r\n") + 1)));
}

string whyMissing(const Site &site, const string &file, bool isFile)
{
    if (file.empty() || isThere(site, file) || fitsAny(site.options.routes, file))
        return "";
    const string_view near = nearestFile(site, file);
    if (near.empty() && !isFile && !isFileName(site, file))
        return "";
    return "there is no '" + file + "' below the document root" +
           (near.empty() ? "" : "; did you mean '" + string(near) + "'?");
}

// The same for a page's address of which a part of the name is computed: a mistake when no file's
// name begins and ends so.
static string whyNoPage(const Site &site, const string &from, string_view address)
{
    const string_view path = address.substr(0, address.find_first_of("?#"));
    const size_t mark = path.find(MARK);
    const size_t slash = path.rfind('/');
    const bool isName = mark != string_view::npos && mark > 0 && path[mark - 1] != '/' &&
                        (slash == string_view::npos || slash < mark);
    if (!isName || isElsewhere(path))
        return "";
    string target = targetOf(from, path);
    const string suffix = suffixOf(target);
    const auto fits = [&](const string &file) { return mayMatch(target, file); };
    const bool isPage = !suffix.empty() && std::ranges::any_of(site.pages, [&](const string &page) {
        return suffixOf(page) == suffix;
    });
    if (!isPage || std::ranges::any_of(site.files, fits) || std::ranges::any_of(site.pages, fits) ||
        fitsAny(site.options.routes, target))
        return "";
    std::ranges::replace(target, MARK, '*');
    return "there is no '" + target + "' below the document root";
}

// Notes that a link leads to a place of another page.
static void noteFarLink(Facts &facts, const Attribute &attribute, const string &target,
                        string_view address)
{
    const size_t hash = address.find('#');
    const string_view id = hash == string_view::npos ? "" : address.substr(hash + 1);
    const bool isPlace = !id.empty() && id.find(MARK) == string_view::npos && id != "top" &&
                         id.find_first_of("=&/!~") == string_view::npos;
    if (isPlace)
        facts.farLinks.push_back({target, string(id), attribute.value});
}

static void checkAddress(Facts &facts, const Paths &paths, const Tag &tag,
                         const Attribute &attribute, string_view address)
{
    const string target = targetFile(paths.page->path, address);
    const Attribute *rel = tag.find("rel");
    const bool isManifest = rel && rel->values == std::vector<string>{"manifest"};
    const Site &site = facts.all.site;
    if (facts.usesBase && !address.starts_with('/'))
        return;
    if (!target.empty() && isThere(site, target)) {
        if (isManifest)
            facts.manifests.insert(target);
        return noteFarLink(facts, attribute, target, address);
    }
    string text = target.empty() ? whyNoPage(site, paths.page->path, address)
                                 : whyMissing(site, target, isManifest);
    if (!text.empty())
        reportPlace(facts.all, Grade::ERROR, attribute.value, "link-missing", std::move(text));
}

// The addresses in a srcset, each with a width or density behind it.
static void checkSet(Facts &facts, const Paths &paths, const Tag &tag, const Attribute &attribute,
                     string_view addresses)
{
    while (!addresses.empty()) {
        const size_t end = std::min(addresses.find(", "), addresses.size());
        string_view one = addresses.substr(0, end);
        one.remove_prefix(std::min(one.find_first_not_of(" \t\r\n"), one.size()));
        checkAddress(facts, paths, tag, attribute, one.substr(0, one.find(' ')));
        addresses.remove_prefix(std::min(end + 2, addresses.size()));
    }
}

static bool isRefreshed(const Tag &tag, const Attribute &attribute)
{
    return attribute.name == "content" && tag.name == "meta" && tag.find("http-equiv");
}

bool leadsSomewhere(const Tag &tag, const Attribute &attribute)
{
    const bool isSet = attribute.name == "srcset" && (tag.name == "img" || tag.name == "source");
    return isSet || isRefreshed(tag, attribute) || leads(tag, attribute.name);
}

void checkLink(Facts &facts, const Paths &paths, const Tag &tag, const Attribute &attribute)
{
    const bool isSet = attribute.name == "srcset";
    const bool isRefresh = isRefreshed(tag, attribute);
    if (!leadsSomewhere(tag, attribute))
        return;
    const string folder = fs::path(paths.page->path).parent_path().string();
    for (const string &value : attribute.values) {
        string key = folder;
        key.append("\n").append(value).append("\n").append(attribute.value.tpl->path);
        key.append("\n").append(std::to_string(attribute.value.span.at));
        if (!facts.checkedLinks.insert(std::move(key)).second)
            continue;
        const size_t url = value.find("url=");
        if (isSet)
            checkSet(facts, paths, tag, attribute, value);
        else if (!isRefresh)
            checkAddress(facts, paths, tag, attribute, value);
        else if (url != string::npos)
            checkAddress(facts, paths, tag, attribute, string_view(value).substr(url + 4));
    }
}
