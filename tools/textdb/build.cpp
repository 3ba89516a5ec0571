/* tools/textdb/build.cpp - the command build: a database from a PO file. */
#include "commands.h"

#include <algorithm>

#include "../files.h"
#include "../po.h"
#include "../textdb_file.h"

/* Returns the entries that go into a database, in its order, and warns of each that
 * is left out. Their texts are borrowed from po. */
static std::vector<TextEntry> takeTexts(PoFile *po, bool withFuzzy)
{
    std::vector<TextEntry> texts;
    for (const PoEntry &entry : po->entries) {
        if (entry.text.empty())
            reportPo(po, entry.line, false, entry.id.data(), "is not translated, left out");
        else if (entry.fuzzy && !withFuzzy)
            reportPo(po, entry.line, false, entry.id.data(),
                     "is fuzzy, left out (--fuzzy takes it)");
        else
            texts.push_back({entry.id, entry.text, entry.line});
    }
    std::sort(texts.begin(), texts.end(),
              [](const TextEntry &a, const TextEntry &b) { return a.id < b.id; });
    return texts;
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
    return replaceFile(output, file) ? STATUS_OK : STATUS_FAULT;
}

int runBuild(const CommandLine &line)
{
    const char *output = line.value(OPT_OUTPUT);
    PoFile po = readPo(line.words[0]);
    int status = STATUS_FAULT;
    if (po.file) {
        const std::vector<TextEntry> texts = takeTexts(&po, line.has(OPT_FUZZY));
        status = po.errors ? complain(STATUS_FAULT, "%s is not written", output)
                           : writeDatabase(&po, texts, output);
    }
    freePo(&po);
    return status;
}
