/* tools/textdb/build.cpp - the command build: a database from a PO file, whose texts are
 * judged: by themselves, against their source texts, and in the places of templates. */
#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "tools/common/files.h"
#include "tools/common/notes.h"
#include "tools/common/po.h"
#include "tools/common/textdb_file.h"
#include "tools/common/translation.h"
#include "language.h"
#include "source.h"

// A PO file on its way into a database.
struct Building {
    const BuildOrder &order;
    PoFile po;
    std::unordered_map<std::string_view, const PoEntry *> sources;            // by id
    std::unordered_map<std::string_view, std::vector<const FieldUse *>> uses; // by id
    std::vector<TextEntry> texts;       // in the order of ids; borrowed from po
    size_t untranslated = 0, fuzzy = 0; // entries that are left out
};

static void tell(Building *building, const PoEntry &entry, Weight weight, const char *kind,
                 const std::string &problem)
{
    reportPo(&building->po, entry.line, weight, entry.id.data(), problem + " [" + kind + "]");
}

// Finds the source text of an entry: that of the source's file, or the one that the entry notes.
static bool findSource(const Building &building, const PoEntry &entry, std::string *text)
{
    const auto found = building.sources.find(entry.id);
    if (found == building.sources.end())
        return !building.order.source && findNote(entry.comments, NOTE_SOURCE, text);
    *text = sourceText(*found->second);
    return true;
}

// Returns the flags of an entry and of its source, with the least of all limits on its length.
static std::set<std::string> flagsOf(const Building &building, const PoEntry &entry)
{
    std::set<std::string> flags = entry.flags;
    const auto source = building.sources.find(entry.id);
    if (source != building.sources.end())
        flags.insert(source->second->flags.begin(), source->second->flags.end());
    const auto uses = building.uses.find(entry.id);
    if (uses != building.uses.end())
        for (const FieldUse *use : uses->second)
            if (use->maxLength)
                limitLength(&flags, use->maxLength);
    return flags;
}

// Warns of what a text does in the places where it stands, once for each way.
static void judgePlaces(Building *building, const PoEntry &entry,
                        const std::set<std::string> &meant)
{
    std::set<std::string> told;
    const auto judge = [&](const std::string &what, const std::string &place,
                           const std::string &cure) {
        if (!what.empty() && told.insert(what).second)
            tell(building, entry, Weight::WARNING, TEXT_BREAKS, what + place + ": " + cure);
    };
    if (const Break *anywhere = breakOf(entry.text, {}))
        judge(anywhere->what, "", anywhere->inText);
    const auto uses = building->uses.find(entry.id);
    if (uses == building->uses.end())
        return;
    for (const FieldUse *use : uses->second) {
        std::string cure;
        const std::string what = breaksPlace(entry.text, *use, meant, &cure);
        judge(what, " (" + std::string(use->path) + ":" + std::to_string(use->line) + ")", cure);
    }
}

static void judgeEntry(Building *building, const PoEntry &entry)
{
    std::string source;
    const bool hasSource = findSource(*building, entry, &source);
    const std::set<std::string> flags = flagsOf(*building, entry);
    if (entry.isEmpty && !entry.text.empty())
        reportPo(&building->po, entry.line, Weight::WARNING, entry.id.data(),
                 "is noted as empty, but has a text, which is taken");
    if (entry.text.empty())
        return;
    for (const TextFlaw &fault : judgeText(entry.text, hasSource ? &source : nullptr, flags))
        tell(building, entry, fault.kind == TEXT_ENDING ? Weight::HINT : Weight::WARNING,
             fault.kind, fault.problem);
    if (!isLeftOut(flags, TEXT_BREAKS))
        judgePlaces(building, entry,
                    meantReferences(entry.text, hasSource ? &source : nullptr, flags));
}

// Takes the entries that go into the database, and judges them.
static void takeTexts(Building *building)
{
    for (const PoEntry &entry : building->po.entries) {
        if (!entry.isTranslated() || (entry.fuzzy && !building->order.takesFuzzy)) {
            ++(entry.isTranslated() ? building->fuzzy : building->untranslated);
            continue;
        }
        judgeEntry(building, entry);
        building->texts.push_back({entry.id, entry.text, entry.line});
    }
    std::sort(building->texts.begin(), building->texts.end(),
              [](const TextEntry &a, const TextEntry &b) { return a.id < b.id; });
}

// Warns when the header names another language than the file's name, or the database's.
static void judgeLanguage(PoFile *po, const char *output)
{
    const std::string language = headerField(*po, "Language");
    std::string named;
    for (const char *path : {po->path.c_str(), output})
        if (isOtherLanguage(path, language, &named))
            reportPo(po, 0, Weight::WARNING, nullptr,
                     std::string("its header says Language: ")
                         .append(language)
                         .append(", but the name of ")
                         .append(path)
                         .append(" says ")
                         .append(named)
                         .append(": correct one of them [")
                         .append(TEXT_LANGUAGE)
                         .append("]"));
}

bool mayReplace(const char *output, const std::vector<const char *> &inputs)
{
    struct stat status;
    std::string old;
    for (const char *input : inputs)
        if (isSameFile(output, input)) {
            complain(0, "%s is an input, it is not replaced", output);
            return false;
        }
    if (stat(output, &status) != 0 || !S_ISREG(status.st_mode))
        return true; // a new file; or no file, which cannot be replaced anyway
    if (!readFile(output, &old))
        return false;
    if (old.empty() || isTextDb(old))
        return true;
    complain(0, "%s is no text database, it is not replaced", output);
    return false;
}

// Makes the database from the texts. Returns false after a complaint.
static bool makeDatabase(Building *building, Built *built)
{
    const std::vector<TextEntry> &texts = building->texts;
    size_t culprit = 0;
    const char *problem = texts.empty() && !building->order.mayBeEmpty
                              ? "has no text; --empty makes a database without any"
                              : buildTextDb(texts, &built->bytes, &culprit);
    if (problem) {
        const TextEntry *text = texts.empty() ? nullptr : &texts[culprit];
        reportPo(&building->po, text ? text->line : 0, Weight::ERROR,
                 text ? text->id.data() : nullptr, problem);
        return false;
    }
    built->entries = building->po.entries.size();
    built->texts = texts.size();
    built->untranslated = building->untranslated;
    built->fuzzy = building->fuzzy;
    return true;
}

bool buildLanguage(const BuildOrder &order, Built *built)
{
    Building building = {order, readPo(order.input), {}, {}, {}};
    for (const TemplateFields &page : order.templates)
        for (const FieldUse &use : page.uses)
            building.uses[use.id].push_back(&use);
    if (order.source)
        for (const PoEntry &entry : order.source->entries)
            building.sources.emplace(entry.id, &entry);
    if (building.po.file) {
        judgeLanguage(&building.po, order.output);
        takeTexts(&building);
    }
    const bool isMade = building.po.errors == 0 && makeDatabase(&building, built);
    freePo(&building.po);
    return isMade;
}

std::string describe(const Built &built)
{
    std::string text =
        std::to_string(built.texts) + " of " + std::to_string(built.entries) + " texts";
    if (built.untranslated)
        text += ", " + std::to_string(built.untranslated) + " not translated";
    if (built.fuzzy)
        text += ", " + std::to_string(built.fuzzy) + " fuzzy (--fuzzy takes them)";
    return text;
}

int runBuild(const CommandLine &line)
{
    const char *output = line.value(OPT_OUTPUT);
    std::vector<const char *> inputs = line.words;
    if (line.has(OPT_SOURCE))
        inputs.push_back(line.value(OPT_SOURCE));
    if (!mayReplace(output, inputs))
        return STATUS_FAULT;
    std::vector<TemplateFields> templates;
    PoFile source = {};
    bool isGood = readTemplates({line.words.begin() + 1, line.words.end()}, &templates);
    if (line.has(OPT_SOURCE))
        source = readPo(line.value(OPT_SOURCE));
    const BuildOrder order = {line.words[0],
                              output,
                              line.has(OPT_SOURCE) ? &source : nullptr,
                              templates,
                              line.has(OPT_FUZZY),
                              line.has(OPT_EMPTY)};
    Built built;
    isGood = isGood && buildLanguage(order, &built) && source.errors == 0;
    freePo(&source);
    if (!isGood)
        return complain(STATUS_FAULT, "%s is not written", output);
    if (!replaceFile(output, built.bytes))
        return STATUS_FAULT;
    printf("%s: %s\n", line.words[0], describe(built).c_str());
    return STATUS_OK;
}
