/* tools/check/texts.cpp - texts from PO files, through gettext's library, and from
 * text databases. */
#include "texts.h"

#include <gettext-po.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tools/textdb_file.h"

using std::string;

namespace fs = std::filesystem;

// The first problem that gettext reports; its handlers carry no pointer of ours.
static string poProblem;

static void onError(int severity, po_message_t, const char *, size_t line, size_t, int,
                    const char *text)
{
    if (severity != PO_SEVERITY_WARNING && poProblem.empty())
        poProblem = (line == static_cast<size_t>(-1) ? "" : "line " + std::to_string(line) + ": ") +
                    string(text);
}

static void onError2(int severity, po_message_t message, const char *path, size_t line,
                     size_t column, int multiline, const char *text, po_message_t, const char *,
                     size_t, size_t, int, const char *)
{
    onError(severity, message, path, line, column, multiline, text);
}

// The ids of a comment "# orv-check: used ID ID: reason".
static void readUsed(const string &line, std::set<string> *used)
{
    static constexpr std::string_view key = "orv-check: used ";
    size_t at = line.find(key);
    if (line[0] != '#' || at == string::npos)
        return;
    at += key.size();
    const string ids = line.substr(at, line.find(": ", at) - at);
    for (size_t begin = 0; (begin = ids.find_first_not_of(" ,", begin)) != string::npos;) {
        const size_t end = std::min(ids.find_first_of(" ,", begin), ids.size());
        used->insert(ids.substr(begin, end - begin));
        begin = end;
    }
}

// Line of each "msgid" keyword, by the id that follows it in quotes.
static std::map<string, uint32_t> findLines(const string &path, std::set<string> *used)
{
    std::map<string, uint32_t> lines;
    std::ifstream file(path);
    string line;
    for (uint32_t number = 1; std::getline(file, line); ++number) {
        readUsed(line, used);
        const size_t begin = line.find_first_not_of(" \t");
        if (begin == string::npos || line.compare(begin, 6, "msgid ") != 0)
            continue;
        const size_t quote = line.find('"', begin);
        const size_t end = line.rfind('"');
        if (quote != string::npos && end > quote)
            lines.emplace(line.substr(quote + 1, end - quote - 1), number);
    }
    return lines;
}

static bool readPo(const string &path, Language *language, string *problem)
{
    static const po_xerror_handler handler = {onError, onError2};
    poProblem.clear();
    po_file_t po = po_file_read(path.c_str(), &handler);
    if (!po)
        poProblem = poProblem.empty() ? strerror(errno) : poProblem;
    if (!po || !poProblem.empty()) {
        if (po)
            po_file_free(po);
        *problem = poProblem;
        return false;
    }
    const std::map<string, uint32_t> lines = findLines(path, &language->used);
    po_message_iterator_t iterator = po_message_iterator(po, nullptr);
    while (po_message_t message = po_next_message(iterator)) {
        const string id = po_message_msgid(message);
        const char *text = po_message_msgstr(message);
        if (id.empty() || !*text || po_message_is_obsolete(message) || po_message_is_fuzzy(message))
            continue;
        const auto line = lines.find(id);
        language->texts[id] = {text, line == lines.end() ? 1 : line->second};
    }
    po_message_iterator_free(iterator);
    po_file_free(po);
    return true;
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
    return readPo(path, language, problem);
}
