/* tools/textdb/status.cpp - the command status: how far each language is. */
#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "tools/common/files.h"
#include "tools/common/json.h"
#include "tools/common/po.h"
#include "tools/common/textdb_file.h"

// So many of the longest texts are named.
static constexpr size_t LONGEST = 3;

struct LongText {
    size_t characters;
    std::string id;
};

// A text that somebody has to translate, or to look at.
struct LeftText {
    std::string id;
    size_t line; // of its entry, 0 without one
    bool fuzzy;
};

struct LanguageStatus {
    const char *path;
    std::string code;
    size_t translated, fuzzy;
    std::set<std::string> ids;
    std::vector<LongText> texts; // all, then the longest, in descending order
    std::vector<LeftText> left;
};

static size_t countCharacters(std::string_view text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
    }));
}

static bool readPoStatus(LanguageStatus *language)
{
    PoFile po = readPo(language->path);
    for (const PoEntry &entry : po.entries) {
        language->ids.emplace(entry.id);
        if (!entry.isTranslated() || entry.fuzzy)
            language->left.push_back({std::string(entry.id), entry.line, entry.isTranslated()});
        if (!entry.isTranslated())
            continue;
        (entry.fuzzy ? language->fuzzy : language->translated)++;
        language->texts.push_back({countCharacters(entry.text), std::string(entry.id)});
    }
    if (po.file)
        language->code = headerField(po, "Language");
    const bool isGood = po.errors == 0;
    freePo(&po);
    return isGood;
}

// A database has no name of its language but the two letters in its own.
static bool readDatabaseStatus(LanguageStatus *language)
{
    std::string file;
    if (!readDatabase(language->path, &file))
        return false;
    walkTextDb(file, [&](std::string_view id, std::string_view text) {
        language->ids.emplace(id);
        ++language->translated;
        language->texts.push_back({countCharacters(text), std::string(id)});
    });
    const std::string name = language->path;
    const size_t mark = name.rfind('_');
    if (mark != std::string::npos && name.ends_with(".db"))
        language->code = name.substr(mark + 1, name.size() - mark - 4);
    return true;
}

static void keepLongest(std::vector<LongText> *texts)
{
    const auto isLonger = [](const LongText &a, const LongText &b) {
        return a.characters != b.characters ? a.characters > b.characters : a.id < b.id;
    };
    const auto middle = texts->begin() + static_cast<ptrdiff_t>(std::min(LONGEST, texts->size()));
    std::partial_sort(texts->begin(), middle, texts->end(), isLonger);
    texts->erase(middle, texts->end());
}

static size_t missingOf(const LanguageStatus &language, size_t all)
{
    return all - language.translated - language.fuzzy;
}

static double percentOf(const LanguageStatus &language, size_t all)
{
    return all ? 100.0 * static_cast<double>(language.translated) / static_cast<double>(all) : 100;
}

// Adds the texts that a language has no entry for.
static void addAbsent(LanguageStatus *language, const std::set<std::string> &all)
{
    for (const std::string &id : all)
        if (!language->ids.contains(id))
            language->left.push_back({id, 0, false});
}

static void printLeft(const std::vector<LanguageStatus> &languages)
{
    for (const LanguageStatus &language : languages)
        for (const LeftText &text : language.left)
            printf("%s%s: %s%s\n", language.path,
                   text.line ? (":" + std::to_string(text.line)).c_str() : "", text.id.c_str(),
                   text.fuzzy ? " (fuzzy)" : "");
}

static void printTable(const std::vector<LanguageStatus> &languages, size_t all)
{
    size_t width = strlen("file");
    for (const LanguageStatus &language : languages)
        width = std::max(width, strlen(language.path));
    printf("%-*s  language  translated  fuzzy  missing     of  longest texts\n",
           static_cast<int>(width), "file");
    for (const LanguageStatus &language : languages) {
        printf("%-*s  %-8s  %10zu  %5zu  %7zu  %5zu", static_cast<int>(width), language.path,
               language.code.c_str(), language.translated, language.fuzzy, missingOf(language, all),
               all);
        const char *between = "  ";
        for (const LongText &text : language.texts) {
            printf("%s%s %zu", between, text.id.c_str(), text.characters);
            between = ", ";
        }
        putchar('\n');
    }
}

static Json idsOf(const LanguageStatus &language, bool fuzzy)
{
    Json ids = Json::array();
    for (const LeftText &text : language.left)
        if (text.fuzzy == fuzzy)
            ids.push_back(text.id);
    return ids;
}

// withLeft: what is left is listed by its ids.
static void printJson(const std::vector<LanguageStatus> &languages, size_t all, bool withLeft)
{
    Json list = Json::array();
    for (const LanguageStatus &language : languages) {
        Json longest = Json::array();
        for (const LongText &text : language.texts)
            longest.push_back({{"id", text.id}, {"characters", text.characters}});
        Json one = {{"file", language.path},
                    {"language", language.code},
                    {"translated", language.translated},
                    {"fuzzy", language.fuzzy},
                    {"missing", missingOf(language, all)},
                    {"of", all},
                    {"longest", longest}};
        if (withLeft) {
            one["missingIds"] = idsOf(language, false);
            one["fuzzyIds"] = idsOf(language, true);
        }
        list.push_back(std::move(one));
    }
    puts(writeJson(list, 2, JsonKeys::AS_GIVEN).c_str());
}

// Tells of the languages that have less than that part of their texts. Returns whether there
// are none.
static bool reachesAll(const std::vector<LanguageStatus> &languages, size_t all, double percent)
{
    bool isGood = true;
    for (const LanguageStatus &language : languages) {
        if (percentOf(language, all) >= percent)
            continue;
        isGood = false;
        complain(0, "%s: %.1f %% of the texts are translated, less than %g %%", language.path,
                 percentOf(language, all), percent);
    }
    return isGood;
}

int runStatus(const CommandLine &line)
{
    const char *const least = line.value(OPT_FAIL_UNDER, "0");
    char *end;
    const double percent = strtod(least, &end);
    if (end == least || *end || !(percent >= 0 && percent <= 100))
        return complain(STATUS_USAGE, "--fail-under needs a number from 0 to 100, not '%s'", least);
    std::vector<LanguageStatus> languages;
    std::set<std::string> ids;
    bool isGood = true;
    for (const char *path : line.words) {
        LanguageStatus language = {path, "", 0, 0, {}, {}, {}};
        if (!(isPoName(path) ? readPoStatus(&language) : readDatabaseStatus(&language))) {
            isGood = false;
            continue;
        }
        ids.insert(language.ids.begin(), language.ids.end());
        keepLongest(&language.texts);
        languages.push_back(std::move(language));
    }
    for (LanguageStatus &language : languages)
        addAbsent(&language, ids);
    if (line.has(OPT_JSON))
        printJson(languages, ids.size(), line.has(OPT_MISSING));
    else if (line.has(OPT_MISSING))
        printLeft(languages);
    else
        printTable(languages, ids.size());
    return reachesAll(languages, ids.size(), percent) && isGood ? STATUS_OK : STATUS_FAULT;
}
