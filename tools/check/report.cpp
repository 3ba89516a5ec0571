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

static bool isIgnored(Report &report, const Template &tpl, uint32_t offset, const Kind *kind)
{
    const auto [entry, isNew] = report.ignored.try_emplace(&tpl);
    if (isNew)
        entry->second = readIgnoreComments(tpl);
    return hitIgnored(&entry->second, offset, kind);
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

bool hasWrongTags(const Report &all, const string &path, uint32_t line)
{
    static const Kind *const kind = findKind("text-tags");
    return std::ranges::any_of(all.findings, [&](const Finding &finding) {
        return finding.kind == kind && finding.line == line && finding.path == path;
    });
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

// Whether the site has what findings of a kind come of: all its pages, a database, texts.
static bool canBeFound(const Site &site, const Kind &kind)
{
    const string_view id = kind.id;
    const bool isOfRows = id.starts_with("query-") || id.starts_with("value-") || id == "limit";
    return site.options.templates.empty() && isLookedFor(site.options, kind) &&
           (site.database || !isOfRows) && (!site.languages.empty() || !id.starts_with("text-"));
}

// Comments that say nothing, or hit nothing any more. All other rules have been looked at.
static void checkIgnoreComments(Report &all)
{
    constexpr char id[] = "ignore-comment";
    for (const auto &[path, tpl] : all.site.templates) {
        isIgnored(all, *tpl, 0, nullptr); // also where nothing was found
        const IgnoreComments comments = all.ignored[tpl.get()];
        for (const IgnoreFault &fault : comments.faults)
            report(all, *tpl, fault.span, id, fault.text);
        for (const IgnoreRange &range : comments.ranges)
            for (const IgnoredKind &ignored : range.kinds)
                if (!ignored.hit && canBeFound(all.site, *ignored.kind))
                    report(all, *tpl, ignored.word, id,
                           string("nothing of the kind ") + ignored.kind->id +
                               " is found up to the end of the command behind the comment: take "
                               "the word out");
    }
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
    checkFlow(all);
    checkBytes(all);
    checkStructure(all);
    checkHtml(all); // knows then what has no end
    checkIgnoreComments(all);
    gradeFindings(site, &all.findings);
    sortFindings(&all.findings);
    return std::move(all.findings);
}

Span argumentSpan(const Command &command, size_t index)
{
    if (index >= command.args.size() || command.args[index].elements.empty())
        return command.words;
    const auto &elements = command.args[index].elements;
    return {elements.front().span.at, elements.back().span.end};
}
