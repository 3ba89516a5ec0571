/* tools/preview/report.cpp - see the header. */
#include "report.h"

#include <filesystem>

#include "excerpt.h"
#include "tools/common/json.h"

using std::string;

namespace fs = std::filesystem;

static constexpr int32_t LINES_AROUND = 2;

static Json sourceOf(const Trace &trace, const Place &place)
{
    Json lines = Json::array();
    for (const ExcerptLine &line : excerpt(trace, place.file, place.line, LINES_AROUND))
        lines.push_back({{"number", line.number}, {"text", line.text}});
    return lines;
}

static Json message(const Trace &trace, const TraceMessage &told)
{
    static constexpr const char *names[] = {"notice", "warning", "error"};
    return {{"severity", names[told.severity]},
            {"file", told.place.file},
            {"line", told.place.line},
            {"text", told.text},
            {"times", told.times},
            {"hint", told.hint},
            {"log", told.log},
            {"source", sourceOf(trace, told.place)}};
}

static Json messages(const Trace &trace, const ReportSetting &setting)
{
    Json list = Json::array();
    for (const FileProblem &problem : setting.config.problems)
        list.push_back(message(
            trace, {ORV_LOG_ERROR, {problem.file, problem.line}, problem.text, "", "", {}}));
    for (int32_t severity = ORV_LOG_ERROR; severity >= ORV_LOG_NOTICE; --severity) {
        for (const TraceMessage &m : trace.messages)
            if (m.severity == severity)
                list.push_back(message(trace, m));
        if (severity == ORV_LOG_WARNING && !setting.openMarkup.empty())
            list.push_back(message(
                trace, {severity,
                        {setting.page, 0},
                        "The page ends inside " + setting.openMarkup + ", which is never closed",
                        "",
                        "",
                        {}}));
    }
    return list;
}

static Json queries(const Trace &trace)
{
    static constexpr const char *modes[] = {"one row", "all rows", "count"};
    Json list = Json::array();
    for (const TraceQuery &query : trace.queries)
        list.push_back({{"file", query.place.file},
                        {"line", query.place.line},
                        {"text", query.text},
                        {"problem", query.problem},
                        {"wants", modes[query.mode]},
                        {"rows", query.rows},
                        {"microseconds", query.microseconds},
                        {"repeated", query.isRepeated},
                        {"sample", query.sample}});
    return list;
}

static Json templates(const Trace &trace)
{
    Json list = Json::array();
    for (const TraceTemplate &one : trace.templates)
        list.push_back({{"path", one.path},
                        {"file", fs::path(one.path).lexically_normal().string()},
                        {"line", one.place.line},
                        {"parent", one.parent},
                        {"problem", one.problem},
                        {"microseconds", one.microseconds}});
    return list;
}

static Json variables(const Trace &trace)
{
    Json list = Json::array();
    for (const TraceVariable &variable : trace.assigned)
        list.push_back({{"name", variable.name},
                        {"value", variable.value},
                        {"by", variable.setBy},
                        {"file", variable.place.file},
                        {"line", variable.place.line},
                        {"kept", variable.isKept}});
    return list;
}

static Json texts(const Trace &trace)
{
    Json list = Json::array();
    for (const TraceText &text : trace.texts)
        list.push_back({{"id", text.id},
                        {"file", text.place.file},
                        {"line", text.place.line},
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

string reportJson(const Trace &trace, const ReportSetting &setting)
{
    Json findings;
    string problem;
    readJson(setting.findings, &findings, &problem); // none where the checker ended badly
    const Json report = {
        {"page", setting.page},
        {"generation", setting.generation},
        {"posted", setting.isPosted},
        {"policy", setting.hasPolicy},
        {"reloads", setting.config.reloads},
        {"languages", setting.config.languages},
        {"language", setting.switches.language},
        {"marks", setting.switches.marks},
        {"error", setting.switches.error},
        {"messages", messages(trace, setting)},
        {"queries", queries(trace)},
        {"templates", templates(trace)},
        {"variables", variables(trace)},
        {"texts", texts(trace)},
        {"textCount", trace.textCount},
        {"bytes", trace.bytes},
        {"writes", trace.writes},
        {"microseconds", trace.microseconds},
        {"findings", findings.isObject() ? findings : Json()},
    };
    return withoutTags(dump(report));
}

// Names a file from the site's folder, if it is below that.
static void nameFromSite(Json &finding, const string &docRoot)
{
    const string root = (fs::path(docRoot) / "").string();
    const string file = fs::path(finding.value("file", "")).lexically_normal().string();
    finding["file"] = file.starts_with(root) ? file.substr(root.size()) : file;
}

string readFindings(const string &printed, const string &docRoot)
{
    Json read;
    string problem;
    if (!readJson(printed, &read, &problem) || !read.isObject())
        return "null";
    for (Json &finding : read["findings"].items) {
        nameFromSite(finding, docRoot);
        for (Json &note : finding["notes"].items)
            nameFromSite(note, docRoot);
    }
    return dump(read);
}

string scriptText(const string &text)
{
    return dump(Json(text));
}
