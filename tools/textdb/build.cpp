/* tools/textdb/build.cpp - the command build: a database from a PO file. */
#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "tools/common/files.h"
#include "tools/common/po.h"
#include "tools/common/textdb_file.h"
#include "textfields.h"

// What is wrong with a text wherever it stands.
static void checkText(PoFile *po, const PoEntry &entry)
{
    const size_t start = entry.text.find("<?");
    if (start != std::string_view::npos)
        reportPo(po, entry.line, false, entry.id.data(),
                 "has \"<?\", which begins a command of the template language");
    size_t pos = 0;
    size_t at;
    std::string_view id;
    if (nextField(entry.text, &pos, &at, &id))
        reportPo(po, entry.line, false, entry.id.data(),
                 "has the field {?" + std::string(id) +
                     "?}; a field in a text is not replaced, the page shows it as it is");
}

// Warns of texts that commands of templates cannot hold, once for each text and kind
// of place.
static void checkArguments(PoFile *po, const std::vector<TextEntry> &texts,
                           const std::vector<TemplateFields> &templates)
{
    std::set<std::pair<std::string_view, char>> told;
    for (const TemplateFields &page : templates) {
        for (const FieldUse &use : page.uses) {
            const auto text = std::lower_bound(
                texts.begin(), texts.end(), use.id,
                [](const TextEntry &entry, const std::string &id) { return entry.id < id; });
            if (!use.isArgument || text == texts.end() || text->id != use.id ||
                !told.emplace(text->id, use.quote).second)
                continue;
            if (const char *what = breaksArgument(text->text, use.quote))
                reportPo(po, text->line, false, use.id.c_str(),
                         what + (" in the command in " + page.path) + ", line " +
                             std::to_string(use.line));
        }
    }
}

// Returns the entries that go into a database, in its order, and warns of what is
// left out or breaks pages. Their texts are borrowed from po.
static std::vector<TextEntry> takeTexts(PoFile *po, bool withFuzzy)
{
    std::vector<TextEntry> texts;
    for (const PoEntry &entry : po->entries) {
        if (!entry.isTranslated()) {
            reportPo(po, entry.line, false, entry.id.data(), "is not translated, left out");
            continue;
        }
        if (entry.fuzzy && !withFuzzy) {
            reportPo(po, entry.line, false, entry.id.data(),
                     "is fuzzy, left out (--fuzzy takes it)");
            continue;
        }
        if (entry.isEmpty && !entry.text.empty())
            reportPo(po, entry.line, false, entry.id.data(),
                     "is noted as empty, but has a text, which is taken");
        checkText(po, entry);
        texts.push_back({entry.id, entry.text, entry.line});
    }
    std::sort(texts.begin(), texts.end(),
              [](const TextEntry &a, const TextEntry &b) { return a.id < b.id; });
    return texts;
}

// Whether output may take the database: it is not there, empty, or a database, and
// not what is read. Returns false after a complaint.
static bool mayReplace(const char *output, const CommandLine &line)
{
    struct stat status;
    std::string old;
    for (const char *input : line.words)
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

// Makes the database from the texts, and puts it into its file.
static int writeDatabase(PoFile *po, const std::vector<TextEntry> &texts, const char *output)
{
    std::string file;
    size_t culprit;
    const char *problem = buildTextDb(texts, &file, &culprit);
    if (problem) {
        reportPo(po, texts[culprit].line, true, texts[culprit].id.data(), problem);
        return STATUS_FAULT;
    }
    if (!replaceFile(output, file))
        return STATUS_FAULT;
    printf("%s: %zu of %zu texts\n", po->path.c_str(), texts.size(), po->entries.size());
    return STATUS_OK;
}

int runBuild(const CommandLine &line)
{
    const char *output = line.value(OPT_OUTPUT);
    if (!mayReplace(output, line))
        return STATUS_FAULT;
    std::vector<TemplateFields> templates;
    if (!readTemplates({line.words.begin() + 1, line.words.end()}, &templates))
        return STATUS_FAULT;
    PoFile po = readPo(line.words[0]);
    std::vector<TextEntry> texts;
    if (po.file)
        texts = takeTexts(&po, line.has(OPT_FUZZY));
    checkArguments(&po, texts, templates);
    if (po.errors == 0 && texts.empty() && !line.has(OPT_EMPTY))
        reportPo(&po, 0, true, nullptr, "has no text; --empty makes a database without any");
    const int status = po.errors ? complain(STATUS_FAULT, "%s is not written", output)
                                 : writeDatabase(&po, texts, output);
    freePo(&po);
    return status;
}
