/* tools/check/texts.cpp - texts from PO files, through gettext's library, and from
 * text databases. */
#include "texts.h"

#include <errno.h>
#include <string.h>

#include <filesystem>

#include "tools/common/files.h"
#include "tools/common/notes.h"
#include "tools/common/po.h"
#include "tools/common/textdb_file.h"

using std::string;

namespace fs = std::filesystem;

// Returns false, with *problem, when the file cannot be read.
static bool readPoFile(const string &path, Language *language, std::vector<TextFault> *faults,
                       string *problem)
{
    std::vector<PoFault> found;
    PoFile po = readPo(path.c_str(), &found);
    for (const PoEntry &entry : po.entries) {
        if (!entry.isTranslated() || entry.fuzzy)
            continue;
        string source;
        LanguageText &text = language->texts[string(entry.id)];
        text = {string(entry.text), static_cast<uint32_t>(entry.line), entry.flags, {}};
        if (findNote(entry.comments, NOTE_SOURCE, &source))
            text.source = std::move(source);
    }
    if (po.file)
        language->header = headerField(po, "Language");
    language->used = std::move(po.used);
    *problem = po.unread;
    freePo(&po);
    for (const PoFault &fault : found)
        faults->push_back({path, fault.line, fault.text});
    return problem->empty();
}

static void readDatabase(const string &path, const string &file, Language *language,
                         std::vector<TextFault> *faults)
{
    const TextDbReport report = checkTextDb(file);
    if (!report.faults.empty()) {
        faults->push_back({path, 0, report.faults[0].problem});
        return;
    }
    walkTextDb(file, [&](std::string_view id, std::string_view text) {
        language->texts[string(id)] = {string(text), 0, {}, {}};
    });
}

// "de" of "texts/de.po" and of "htmltext_de.db"; the whole stem of any other name.
static string codeOf(const fs::path &path)
{
    const string stem = path.stem().string();
    const size_t cut = stem.rfind('_');
    return cut == string::npos ? stem : stem.substr(cut + 1);
}

bool readLanguage(const string &path, Language *language, std::vector<TextFault> *faults,
                  string *problem)
{
    string bytes;
    language->path = path;
    language->code = codeOf(path);
    language->state = stateOfFile(path);
    std::error_code error;
    if (!fs::is_regular_file(path, error)) {
        *problem = error ? error.message() : "not a regular file";
        return false;
    }
    if (!readBytes(path.c_str(), &bytes)) {
        *problem = strerror(errno);
        return false;
    }
    if (fs::path(path).extension() != ".db")
        return readPoFile(path, language, faults, problem);
    readDatabase(path, bytes, language, faults);
    return true;
}
