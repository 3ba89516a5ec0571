/* tools/textdb/fields.cpp - the command fields: the texts of a language compared with
 * the text fields of templates. */
#include "commands.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "tools/common/fieldid.h"
#include "tools/common/files.h"
#include "tools/common/po.h"
#include "tools/common/textdb_file.h"
#include "textfields.h"

// The ids that a language has.
struct Ids {
    std::map<std::string, bool, std::less<>> used;       // by id, whether a template uses it
    std::unordered_map<std::string, std::string> likely; // an id by its loose form
    std::set<std::string> usedElsewhere;                 // as the PO file says
};

static void addId(Ids *ids, std::string_view id)
{
    ids->used.emplace(id, false);
    ids->likely.emplace(looseId(id), id);
}

// Reads the ids of a PO file or a database. Returns false after a complaint.
static bool readIds(const char *path, Ids *ids)
{
    if (isPoName(path)) {
        PoFile po = readPo(path);
        for (const PoEntry &entry : po.entries)
            if (entry.isTranslated())
                addId(ids, entry.id);
        ids->usedElsewhere = std::move(po.used);
        const bool isGood = po.errors == 0;
        freePo(&po);
        return isGood;
    }
    std::string file;
    if (!readDatabase(path, &file))
        return false;
    walkTextDb(file, [&](std::string_view id, std::string_view /*text*/) { addId(ids, id); });
    return true;
}

// Returns words about the id that was probably meant, none when there is no such.
static std::string suggest(const Ids &ids, std::string_view wrong)
{
    const auto found = ids.likely.find(looseId(wrong));
    return found == ids.likely.end() ? "" : " (there is " + found->second + ")";
}

// Prints the fields of a template that are broken or that the language lacks, and
// marks the others as used. Returns whether there was nothing to print.
static bool checkTemplate(const TemplateFields &page, Ids *ids)
{
    bool isGood = true;
    for (const FieldUse &use : page.uses) {
        const auto found = ids->used.find(use.id);
        if (found != ids->used.end()) {
            found->second = true;
            continue;
        }
        isGood = false;
        printf("%s:%u: %s%s\n", page.path.c_str(), use.line, use.id.c_str(),
               suggest(*ids, use.id).c_str());
    }
    for (const BrokenField &field : page.broken)
        printf("%s:%u: %s is no text field: %s%s\n", page.path.c_str(), field.line,
               field.text.c_str(), field.why, suggest(*ids, field.text).c_str());
    return isGood && page.broken.empty();
}

int runFields(const CommandLine &line)
{
    const char *path = line.words[0];
    Ids ids;
    std::vector<TemplateFields> templates;
    if (!readIds(path, &ids))
        return STATUS_FAULT;
    const bool readable = readTemplates({line.words.begin() + 1, line.words.end()}, &templates);
    bool isGood = readable;
    for (const TemplateFields &page : templates)
        isGood = checkTemplate(page, &ids) && isGood;
    for (const auto &[id, used] : ids.used)
        if (line.has(OPT_UNUSED) && readable && !used &&
            !isUsed(ids.usedElsewhere, id)) // what the unread ones use is not known
            printf("%s: unused: %s\n", path, id.c_str());
    return isGood ? STATUS_OK : STATUS_FAULT;
}
