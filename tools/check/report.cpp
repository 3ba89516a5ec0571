/* tools/check/report.cpp - findings with their places, less what comments ignore. */
#include "report.h"

#include <algorithm>
#include <filesystem>

using std::string;
using std::string_view;

namespace fs = std::filesystem;

static uint32_t unitAt(const Template &tpl, uint32_t offset)
{
    return unitsBefore(tpl, offset) + 1;
}

// The kinds that a comment names behind "orv-check: ignore".
static std::vector<const Kind *> kindsIn(string_view comment)
{
    static constexpr string_view key = "orv-check: ignore";
    std::vector<const Kind *> kinds;
    size_t at = comment.find(key);
    if (at == string_view::npos)
        return kinds;
    at += key.size();
    for (;;) {
        at = std::min(comment.find_first_not_of(" \t\r\n,", at), comment.size());
        const size_t end = std::min(
            comment.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-", at), comment.size());
        const Kind *kind = findKind(comment.substr(at, end - at));
        if (!kind)
            return kinds;
        kinds.push_back(kind);
        at = end;
    }
}

// An ignore comment holds up to the end of the command behind it.
static std::vector<IgnoreRange> readIgnored(const Template &tpl)
{
    std::vector<IgnoreRange> ranges;
    for (const Span &comment : tpl.comments) {
        auto kinds = kindsIn(string_view(tpl.source).substr(comment.at, comment.end - comment.at));
        if (kinds.empty())
            continue;
        auto end = static_cast<uint32_t>(tpl.source.size());
        for (const Begun &begun : tpl.begun)
            if (begun.words.at >= comment.end) {
                end = std::max(begun.end, begun.words.end);
                break;
            }
        ranges.push_back({{comment.at, end}, std::move(kinds)});
    }
    return ranges;
}

static bool isIgnored(Report &report, const Template &tpl, uint32_t offset, const Kind *kind)
{
    const auto [entry, isNew] = report.ignored.try_emplace(&tpl);
    if (isNew)
        entry->second = readIgnored(tpl);
    return std::any_of(entry->second.begin(), entry->second.end(), [&](const IgnoreRange &range) {
        return range.span.contains(offset) &&
               std::find(range.kinds.begin(), range.kinds.end(), kind) != range.kinds.end();
    });
}

// Whether nobody knows what was meant there.
static bool isDoubtful(const Report &report, const Template &tpl, uint32_t offset)
{
    const auto spans = report.site.doubtful.find(&tpl);
    return spans != report.site.doubtful.end() &&
           std::any_of(spans->second.begin(), spans->second.end(),
                       [&](const Span &span) { return span.contains(inFile(tpl, offset)); });
}

void reportMistake(Report &report, const Template &tpl, const Mistake &mistake)
{
    const Kind *kind = findKind(mistake.kind);
    if (isIgnored(report, tpl, inSource(tpl, mistake.span.at), kind))
        return;
    const LineColumn from = placeInFile(tpl, mistake.span.at);
    const LineColumn to = placeInFile(tpl, mistake.span.end);
    std::vector<Note> notes;
    for (const auto &[at, text] : mistake.notes) {
        const LineColumn place = placeInFile(tpl, at);
        notes.push_back({tpl.path, place.line, place.column, unitsInFile(tpl, at) + 1, text});
    }
    report.findings.push_back({kind, kind->severity, tpl.path, from.line, from.column, to.line,
                               to.column, unitsInFile(tpl, mistake.span.at) + 1,
                               unitsInFile(tpl, mistake.span.end) + 1, mistake.text,
                               std::move(notes)});
}

void reportAs(Report &report, Grade severity, const Template &tpl, Span span, const char *id,
              string text, std::vector<Note> notes)
{
    const Kind *kind = findKind(id);
    if (isIgnored(report, tpl, span.at, kind) || isDoubtful(report, tpl, span.at))
        return;
    // A mark of the reader's own is shown as the field that it stands for.
    const LineColumn from = placeOf(tpl, span.at);
    const LineColumn to = placeOf(tpl, std::max(span.at, span.end));
    report.findings.push_back({kind, severity, tpl.path, from.line, from.column, to.line, to.column,
                               unitAt(tpl, span.at), unitAt(tpl, std::max(span.at, span.end)),
                               std::move(text), std::move(notes)});
}

void report(Report &report, const Template &tpl, Span span, const char *id, string text,
            std::vector<Note> notes)
{
    reportAs(report, findKind(id)->severity, tpl, span, id, std::move(text), std::move(notes));
}

void reportLine(Report &report, const string &path, uint32_t line, const char *id, string text)
{
    const Kind *kind = findKind(id);
    report.findings.push_back({kind,
                               kind->severity,
                               path,
                               std::max(line, 1U),
                               1,
                               std::max(line, 1U),
                               1,
                               1,
                               1,
                               std::move(text),
                               {}});
}

Note noteAt(const Template &tpl, uint32_t offset, string text)
{
    const LineColumn place = placeOf(tpl, offset);
    return {tpl.path, place.line, place.column, unitAt(tpl, offset), std::move(text)};
}

bool isLookedFor(const SiteOptions &options, const Kind &kind)
{
    return !kind.isOff ||
           std::any_of(options.rules.begin(), options.rules.end(),
                       [&](const KindRule &rule) { return rule.kind == &kind && rule.grade; });
}

// Whether a rule's patterns fit a file: below the document root, or below the site file's folder.
static bool isFor(const KindRule &rule, const Site &site, const string &path)
{
    if (rule.files.empty() || site.templates.contains(path))
        return rule.files.empty() || fitsAny(rule.files, path);
    const fs::path folder = fs::path(site.options.file).parent_path() / "";
    return fitsAny(rule.files, fs::path(path).lexically_proximate(site.options.docRoot).string()) ||
           fitsAny(rule.files, fs::path(path).lexically_proximate(folder).string());
}

static void gradeFindings(const Site &site, std::vector<Finding> *findings)
{
    std::erase_if(*findings, [&](Finding &finding) {
        bool isOut = finding.kind->isOff;
        for (const KindRule &rule : site.options.rules) {
            if (rule.kind != finding.kind || !isFor(rule, site, finding.path))
                continue;
            isOut = !rule.grade;
            finding.severity = rule.grade.value_or(finding.severity);
        }
        return isOut;
    });
}

std::vector<Finding> checkSite(Site &site)
{
    Report all(site);
    checkSyntax(all);
    checkIncludes(all);
    checkVariables(all);
    checkTexts(all);
    checkCommands(all);
    checkNames(all);
    checkConstants(all);
    checkHtml(all);
    gradeFindings(site, &all.findings);
    sortFindings(&all.findings);
    return std::move(all.findings);
}
