/* tools/check/texts.cpp - texts from PO files, through gettext's library, and from
 * text databases. */
#include "texts.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tools/common/po.h"
#include "tools/common/textdb_file.h"

using std::string;

namespace fs = std::filesystem;

static bool readPoFile(const string &path, Language *language, string *problem)
{
    PoFile po = readPo(path.c_str());
    const bool complete = po.file && po.errors == 0;
    for (const PoEntry &entry : po.entries)
        if (entry.isTranslated() && !entry.fuzzy)
            language->texts[string(entry.id)] = {string(entry.text),
                                                 static_cast<uint32_t>(entry.line)};
    language->used = std::move(po.used);
    freePo(&po);
    if (!complete)
        *problem = "it has errors";
    return complete;
}

static bool readDatabase(const string &path, Language *language, string *problem)
{
    std::ifstream stream(path, std::ios::binary);
    const string file{std::istreambuf_iterator<char>(stream), {}};
    const TextDbReport report = checkTextDb(file);
    if (!report.faults.empty()) {
        *problem = report.faults[0].problem;
        return false;
    }
    walkTextDb(file, [&](std::string_view id, std::string_view text) {
        language->texts[string(id)] = {string(text), 0};
    });
    return true;
}

// "de" of "texts/de.po" and of "htmltext_de.db"; the whole stem of any other name.
static string codeOf(const fs::path &path)
{
    const string stem = path.stem().string();
    const size_t cut = stem.rfind('_');
    return cut == string::npos ? stem : stem.substr(cut + 1);
}

bool readLanguage(const string &path, Language *language, string *problem)
{
    language->path = path;
    language->code = codeOf(path);
    std::error_code error;
    if (!fs::is_regular_file(path, error)) {
        *problem = error ? error.message() : "not a regular file";
        return false;
    }
    if (fs::path(path).extension() == ".db")
        return readDatabase(path, language, problem);
    return readPoFile(path, language, problem);
}
