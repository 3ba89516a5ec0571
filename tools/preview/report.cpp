/* tools/preview/report.cpp - writes what is known of a page, and of a whole site, as JSON.
 *
 * What the run has reported and what orv-check has found become one list in the bar, since
 * findings come later than the page: so both have their places in lines and columns. */
#include "report.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "editor.h"
#include "source.h"
#include "tools/common/advice.h"

using std::string;
using std::string_view;

namespace fs = std::filesystem;

static const char *nameOf(Topic topic)
{
    static constexpr const char *names[] = {"",      "syntax", "include", "text",
                                            "value", "query",  "markup",  "marks"};
    return names[static_cast<size_t>(topic)];
}

static Json message(Sources &sources, const TraceMessage &told)
{
    static constexpr const char *names[] = {"notice", "warning", "error"};
    Json made = placeJson(sources, told.place);
    made["severity"] = names[told.severity];
    made["topic"] = nameOf(told.topic);
    made["text"] = told.text;
    made["times"] = told.times;
    made["hint"] = told.hint;
    made["log"] = told.log;
    made["source"] =
        linesJson(sources, told.place.file, made.value("line", 0), made.value("column", 0));
    return made;
}

static Json messages(Sources &sources, const Trace &trace, const ReportSetting &setting)
{
    Json list = Json::array();
    for (const FileProblem &problem : setting.config.problems)
        list.push_back(
            message(sources, {ORV_LOG_ERROR, {problem.file, problem.line}, problem.text, ""}));
    for (int32_t severity = ORV_LOG_ERROR; severity >= ORV_LOG_NOTICE; --severity) {
        for (const TraceMessage &m : trace.messages)
            if (m.severity == severity)
                list.push_back(message(sources, m));
        if (severity == ORV_LOG_WARNING && !setting.openMarkup.empty())
            list.push_back(message(
                sources, {severity,
                          {setting.page, 0},
                          "The page ends inside " + setting.openMarkup + ", which is never closed",
                          "",
                          Topic::MARKUP}));
    }
    return list;
}

static Json orNull(const std::optional<string> &text)
{
    return text ? Json(*text) : Json();
}

static Json parametersOf(const TraceQuery &query)
{
    Json list = Json::array();
    for (const TraceParameter &one : query.parameters)
        list.push_back({{"name", one.name}, {"value", orNull(one.value)}, {"by", one.setBy}});
    return list;
}

static Json sampleOf(const TraceQuery &query)
{
    Json list = Json::array();
    for (const auto &row : query.sample) {
        Json cells = Json::array();
        for (const auto &cell : row)
            cells.push_back(orNull(cell));
        list.push_back(std::move(cells));
    }
    return list;
}

static Json queries(Sources &sources, const Trace &trace)
{
    static constexpr const char *modes[] = {"one row", "all rows", "count"};
    Json list = Json::array();
    for (const TraceQuery &query : trace.queries)
        list.push_back({{"place", placeJson(sources, query.place)},
                        {"text", query.text},
                        {"problem", query.problem},
                        {"wants", modes[query.mode]},
                        {"rows", query.rows},
                        {"microseconds", query.microseconds},
                        {"repeated", query.isRepeated},
                        {"parameters", parametersOf(query)},
                        {"columns", query.columns},
                        {"sample", sampleOf(query)}});
    return list;
}

static Json templates(Sources &sources, const Trace &trace)
{
    Json list = Json::array();
    for (const TraceTemplate &one : trace.templates)
        list.push_back({{"path", one.path},
                        {"file", fs::path(one.path).lexically_normal().string()},
                        {"place", placeJson(sources, one.place)},
                        {"parent", one.parent},
                        {"problem", one.problem},
                        {"microseconds", one.microseconds}});
    return list;
}

static Json variables(Sources &sources, const Trace &trace)
{
    Json list = Json::array();
    for (const TraceVariable &variable : trace.assigned)
        list.push_back({{"name", variable.name},
                        {"value", variable.value},
                        {"by", variable.setBy},
                        {"place", placeJson(sources, variable.place)},
                        {"kept", variable.isKept}});
    return list;
}

static Json texts(Sources &sources, const Trace &trace)
{
    Json list = Json::array();
    for (const TraceText &text : trace.texts)
        list.push_back({{"id", text.id},
                        {"place", placeJson(sources, text.place)},
                        {"missing", text.isMissing}});
    return list;
}

static string dump(const Json &value)
{
    return writeJson(value, -1);
}

// Nothing in it can end a script element or begin a comment.
static string withoutTags(string text)
{
    for (size_t at = 0; (at = text.find('<', at)) != string::npos;)
        text.replace(at, 1, "\\u003c");
    return text;
}

// Whether a page has used a file of that name.
static bool isUsed(const Trace &trace, const string &file)
{
    return std::ranges::any_of(trace.templates, [&](const TraceTemplate &one) {
        return fs::path(one.path).lexically_normal() == file;
    });
}

// The findings in the page's own templates; nothing where they are those of other files than
// the page was made of. The rest comes by the stream.
static Json findingsOf(const Trace &trace, const ReportSetting &setting)
{
    Json read;
    string problem;
    readJson(setting.findings, &read, &problem); // none yet
    if (read.value("generation", "") != setting.generation)
        return {};
    Json own = Json::array();
    for (const Json &finding : read.value("findings", Json::array()))
        if (isUsed(trace, finding.value("file", "")))
            own.push_back(finding);
    return {{"generation", setting.generation},
            {"problem", read.value("problem", "")},
            {"findings", own}};
}

string reportJson(const Trace &trace, const ReportSetting &setting)
{
    Sources sources = {setting.config.docRoot, {}};
    const string &editor = setting.config.editor;
    const Json report = {
        {"page", setting.page},
        {"generation", setting.generation},
        {"posted", setting.isPosted},
        {"trouble", setting.isTrouble},
        {"policy", setting.hasPolicy},
        {"reloads", setting.config.reloads},
        {"languages", setting.config.languages},
        {"language", setting.switches.language},
        {"marks", setting.switches.marks},
        {"error", setting.switches.error},
        {"told", setting.switches.told},
        {"messages", messages(sources, trace, setting)},
        {"queries", queries(sources, trace)},
        {"templates", templates(sources, trace)},
        {"variables", variables(sources, trace)},
        {"texts", texts(sources, trace)},
        {"textCount", trace.textCount},
        {"files", trace.files},
        {"bytes", trace.bytes},
        {"writes", trace.writes},
        {"microseconds", trace.microseconds},
        {"checks", setting.config.checks},
        {"editor", isAddress(editor) || editor.empty() ? editor : "program"},
        {"root", setting.config.docRoot},
        {"findings", findingsOf(trace, setting)},
    };
    return withoutTags(dump(report));
}

// What a finding tells of a mistake of the syntax, without the words that the log has for it:
// orv-check puts them in front for those that search one.
static string causeIn(const string &text)
{
    static constexpr Message ofGrammar[] = {Message::UNKNOWN_COMMAND, Message::LACKS_ARGUMENT,
                                            Message::MALFORMED,       Message::EMPTY_INDEX,
                                            Message::SURPLUS,         Message::ENDS_INSIDE};
    const size_t end = text.find(": ");
    const string_view logged = string_view(text).substr(0, end);
    for (const Message id : ofGrammar) {
        const string_view words = adviceOn(id).told;
        const size_t value = words.find('%');
        const string_view start = words.substr(0, value);
        if (end != string::npos &&
            (value == string::npos ? logged == words : logged.starts_with(start)))
            return (id == Message::UNKNOWN_COMMAND ? "Unknown command: " : "") +
                   text.substr(end + 2);
    }
    return text;
}

// Names a file from the site's folder, if it is below that.
static void nameFromSite(Json &finding, const string &docRoot)
{
    const string root = (fs::path(docRoot) / "").string();
    const string file = fs::path(finding.value("file", "")).lexically_normal().string();
    finding["file"] = file.starts_with(root) ? file.substr(root.size()) : file;
}

string readFindings(const string &printed, const string &complaint, const string &generation,
                    const string &docRoot)
{
    Json read;
    string problem;
    Sources sources = {docRoot, {}};
    const bool isRead = readJson(printed, &read, &problem) && read.isObject();
    std::set<string> known; // a template that is named in two ways is checked twice
    Json findings = Json::array();
    for (Json finding : isRead ? read.value("findings", Json::array()) : Json::array()) {
        nameFromSite(finding, docRoot);
        finding["text"] = causeIn(finding.value("text", ""));
        for (Json &note : finding["notes"].items)
            nameFromSite(note, docRoot);
        finding["source"] = linesJson(sources, finding.value("file", ""), finding.value("line", 0),
                                      finding.value("column", 0));
        if (known.insert(dump(finding)).second)
            findings.push_back(std::move(finding));
    }
    problem = isRead ? "" : complaint.empty() ? "it has ended before its time" : complaint;
    return dump({{"generation", generation}, {"problem", problem}, {"findings", findings}});
}

string scriptText(const string &text)
{
    return dump(Json(text));
}
