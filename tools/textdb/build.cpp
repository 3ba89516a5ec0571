/* tools/textdb/build.cpp - the command build: a database from a PO file. */
#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "../files.h"
#include "../po.h"
#include "../textdb_file.h"

/* Returns the entries that go into a database, in its order, and warns of what is
 * left out. Their texts are borrowed from po. */
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
        texts.push_back({entry.id, entry.text, entry.line});
    }
    std::sort(texts.begin(), texts.end(),
              [](const TextEntry &a, const TextEntry &b) { return a.id < b.id; });
    return texts;
}

/* Whether output may take the database: it is not there, empty, or a database, and
 * not what is read. Returns false after a complaint. */
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

/* Makes the database from the texts, and puts it into its file. */
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
    PoFile po = readPo(line.words[0]);
    std::vector<TextEntry> texts;
    if (po.file)
        texts = takeTexts(&po, line.has(OPT_FUZZY));
    if (po.errors == 0 && texts.empty() && !line.has(OPT_EMPTY))
        reportPo(&po, 0, true, nullptr, "has no text; --empty makes a database without any");
    const int status = po.errors ? complain(STATUS_FAULT, "%s is not written", output)
                                 : writeDatabase(&po, texts, output);
    freePo(&po);
    return status;
}
