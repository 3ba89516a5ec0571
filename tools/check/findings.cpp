/* tools/check/findings.cpp - findings in order, and in the forms in which people and
 * programs read them. The JSON form is documented in docs/checking.md and only ever
 * grows. */
#include "findings.h"

#include <algorithm>
#include <array>
#include <bit>
#include <numeric>
#include <set>
#include <tuple>

#include "host/encoding.h"
#include "tools/common/json.h"

using std::string;
using std::string_view;

void sortFindings(std::vector<Finding> *findings)
{
    std::stable_sort(findings->begin(), findings->end(), [](const Finding &a, const Finding &b) {
        return std::tie(a.path, a.line, a.column) < std::tie(b.path, b.line, b.column);
    });
    std::set<decltype(std::tuple(string(), 0U, 0U, string(), string()))> seen;
    std::erase_if(*findings, [&](const Finding &f) {
        return !seen.emplace(f.path, f.line, f.column, f.kind->id, f.text).second;
    });
}

const char *gradeName(Grade grade)
{
    static constexpr const char *names[] = {"hint", "warning", "error"};
    return names[static_cast<size_t>(grade)];
}

static const char *sarifLevel(Grade grade)
{
    return grade == Grade::HINT ? "note" : gradeName(grade);
}

// A finding is one line, whatever a template or a path holds.
static void appendLine(string *out, string line)
{
    std::replace_if(
        line.begin(), line.end(), [](char c) { return (c >= '\0' && c < ' ') || c == '\x7F'; },
        ' ');
    *out += line + "\n";
}

static string printText(const std::vector<Finding> &findings)
{
    string out;
    auto line = [&](const string &path, uint32_t row, uint32_t column, const string &text) {
        appendLine(&out,
                   path + ":" + std::to_string(row) + ":" + std::to_string(column) + ": " + text);
    };
    for (const Finding &f : findings) {
        line(f.path, f.line, f.column,
             string(gradeName(f.severity)) + ": " + f.text + " [" + f.kind->id + "]");
        for (const Note &note : f.notes)
            line(note.path, note.line, note.column, "note: " + note.text);
    }
    return out;
}

static string printJson(const std::vector<Finding> &findings)
{
    Json list = Json::array();
    for (const Finding &f : findings) {
        Json notes = Json::array();
        for (const Note &note : f.notes)
            notes.push_back({{"file", note.path},
                             {"line", note.line},
                             {"column", note.column},
                             {"text", note.text}});
        list.push_back({{"file", f.path},
                        {"line", f.line},
                        {"column", f.column},
                        {"endLine", f.endLine},
                        {"endColumn", f.endColumn},
                        {"severity", gradeName(f.severity)},
                        {"id", f.kind->id},
                        {"text", f.text},
                        {"notes", std::move(notes)}});
    }
    const Json whole = {{"version", 1}, {"findings", std::move(list)}};
    return writeJson(whole, 1) + "\n";
}

static Json sarifPlace(const string &path, uint32_t line, uint32_t column)
{
    return {{"artifactLocation", {{"uri", encodePercent(path, "/._-~")}}},
            {"region", {{"startLine", line}, {"startColumn", column}}}};
}

static Json sarifResult(const Finding &f)
{
    Json place = sarifPlace(f.path, f.line, f.unit);
    place["region"]["endLine"] = f.endLine;
    place["region"]["endColumn"] = f.endUnit;
    Json result = {{"ruleId", f.kind->id},
                   {"ruleIndex", f.kind - allKinds().data()},
                   {"level", sarifLevel(f.severity)},
                   {"message", {{"text", f.text}}},
                   {"locations", Json::array({{{"physicalLocation", std::move(place)}}})}};
    Json related = Json::array();
    for (const Note &note : f.notes)
        related.push_back({{"physicalLocation", sarifPlace(note.path, note.line, note.unit)},
                           {"message", {{"text", note.text}}}});
    if (!related.empty())
        result["relatedLocations"] = std::move(related);
    return result;
}

static Json sarifRule(const Kind &kind)
{
    const string text = string(kind.explanation) + "\n\nExample: " + kind.example;
    Json rule = {{"id", kind.id},
                 {"shortDescription", {{"text", kind.explanation}}},
                 {"help", {{"text", text}, {"markdown", explainKind(kind)}}},
                 {"defaultConfiguration", {{"level", sarifLevel(kind.severity)}}}};
    const string uri = kindUri(kind);
    if (!uri.empty())
        rule["helpUri"] = uri;
    return rule;
}

static string printSarif(const std::vector<Finding> &findings)
{
    Json rules = Json::array();
    for (const Kind &kind : allKinds())
        rules.push_back(sarifRule(kind));
    Json results = Json::array();
    for (const Finding &f : findings)
        results.push_back(sarifResult(f));
    const Json driver = {{"name", "orv-check"}, {"version", ORV_VERSION}, {"rules", rules}};
    const Json whole = {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                        {"version", "2.1.0"},
                        {"runs", Json::array({{{"tool", {{"driver", driver}}},
                                               {"columnKind", "utf16CodeUnits"},
                                               {"results", std::move(results)}}})}};
    return writeJson(whole, 1) + "\n";
}

string printFindings(const std::vector<Finding> &findings, Form form)
{
    switch (form) {
    case Form::JSON:
        return printJson(findings);
    case Form::SARIF:
        return printSarif(findings);
    default:
        return printText(findings);
    }
}

static constexpr size_t LONGEST_WORD = 100; // that is likened

// Insertions, deletions, changes and swaps of neighbours between two words, or some number above
// most.
static size_t distance(string_view a, string_view b, size_t most)
{
    std::array<std::array<size_t, LONGEST_WORD + 1>, 3> rows; // of a's letters, the last three
    std::iota(rows[0].begin(), rows[0].end(), 0U);
    for (size_t i = 1; i <= a.size(); ++i) {
        auto &row = rows[i % 3];
        const auto &above = rows[(i + 2) % 3];
        size_t least = row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            row[j] =
                std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], rows[(i + 1) % 3][j - 2] + 1);
            least = std::min(least, row[j]);
        }
        if (least > most + 1) // a swap may still save one
            return least;
    }
    return rows[a.size() % 3][b.size()];
}

// A bit for each letter of a word, some sharing one.
static uint64_t lettersOf(string_view word)
{
    uint64_t letters = 0;
    for (const char c : word)
        letters |= uint64_t{1} << (c & 63);
    return letters;
}

string_view nearest(string_view word, const std::vector<string_view> &candidates)
{
    string_view best;
    size_t most = word.size() / 3 + 1; // edits of a word that is nearer
    const uint64_t letters = lettersOf(word);
    if (word.size() > LONGEST_WORD)
        return best;
    for (const string_view candidate : candidates) {
        const size_t gap = candidate.size() > word.size() ? candidate.size() - word.size()
                                                          : word.size() - candidate.size();
        // An edit makes no more than two letters others.
        if (candidate == word || gap > most || candidate.size() > LONGEST_WORD ||
            static_cast<size_t>(std::popcount(letters ^ lettersOf(candidate))) > 2 * most)
            continue;
        const size_t far = distance(word, candidate, most);
        if (far > most)
            continue;
        best = candidate;
        if (far == 0)
            break;
        most = far - 1;
    }
    return best;
}

string_view onlyNearest(string_view word, std::vector<string_view> candidates)
{
    const string_view near = nearest(word, candidates);
    std::erase(candidates, near);
    const string_view other = nearest(word, candidates);
    const bool isOnly =
        other.empty() || distance(word, other, LONGEST_WORD) > distance(word, near, LONGEST_WORD);
    return isOnly ? near : string_view();
}
