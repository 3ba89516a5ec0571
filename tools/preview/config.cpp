/* tools/preview/config.cpp - the launcher's files, in JSON. Each is replaced whole, so that a
 * request reads one state of it. */
#include "config.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "host/ascii.h"
#include "tools/common/files.h"
#include "tools/common/json.h"

using std::string;

bool replaceFile(const string &path, const string &bytes)
{
    const string beside = path + "." + std::to_string(getpid());
    const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    const bool isWritten =
        write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    return close(fd) == 0 && isWritten && rename(beside.c_str(), path.c_str()) == 0;
}

bool readWhole(const string &path, string &bytes)
{
    bytes.clear();
    return readBytes(path.c_str(), &bytes);
}

FileProblem problemOf(const string &path, const string &told)
{
    FileProblem problem = {path, 0, told};
    string &text = problem.text;
    for (const string &prefix : {string("orv-textdb: "), path + ":"})
        if (text.starts_with(prefix))
            text.erase(0, prefix.size());
    for (size_t end; end = skip(text, 0, isDigit), end > 0 && text[end] == ':';) {
        if (problem.line == 0)
            problem.line = static_cast<int32_t>(strtol(text.c_str(), nullptr, 10));
        text.erase(0, end + 1);
    }
    text.erase(0, skip(text, 0, isBlank));
    if (text.starts_with("error: "))
        text.erase(0, strlen("error: "));
    return problem;
}

static Json readObject(const string &path)
{
    string bytes;
    readWhole(path, bytes);
    Json read;
    string problem;
    return readJson(bytes, &read, &problem) ? read : Json();
}

Config readConfig(const string &work)
{
    const Json read = readObject(work + "/config");
    Config config;
    config.docRoot = read.value("docRoot", "");
    for (const Json &database : read.value("databases", Json::array()))
        config.databases.push_back({database.value("name", ""), database.value("path", "")});
    for (const Json &function : read.value("functions", Json::array()))
        config.functions.push_back({function.value("name", ""), function.value("arguments", 0),
                                    function.value("givesNumbers", false)});
    config.port = read.value("port", 0);
    config.reloads = read.value("reloads", true);
    config.checks = read.value("checks", false);
    config.editor = read.value("editor", "");
    config.error = read.value("error", "");
    for (const Json &variable : read.value("variables", Json::array()))
        config.variables.emplace_back(variable.value("name", ""), variable.value("value", ""));
    for (const Json &language : read.value("languages", Json::array()))
        config.languages.push_back(language.text);
    for (const Json &problem : read.value("problems", Json::array()))
        config.problems.push_back(
            {problem.value("file", ""), problem.value("line", 0), problem.value("text", "")});
    return config;
}

bool writeConfig(const string &work, const Config &config)
{
    Json variables = Json::array();
    for (const auto &[name, value] : config.variables)
        variables.push_back({{"name", name}, {"value", value}});
    Json databases = Json::array();
    for (const Database &database : config.databases)
        databases.push_back({{"name", database.name}, {"path", database.path}});
    Json functions = Json::array();
    for (const SiteFunction &function : config.functions)
        functions.push_back({{"name", function.name},
                             {"arguments", function.arguments},
                             {"givesNumbers", function.givesNumbers}});
    Json problems = Json::array();
    for (const FileProblem &problem : config.problems)
        problems.push_back(
            {{"file", problem.file}, {"line", problem.line}, {"text", problem.text}});
    const Json written = {
        {"docRoot", config.docRoot},     {"databases", databases},    {"functions", functions},
        {"port", config.port},           {"reloads", config.reloads}, {"checks", config.checks},
        {"editor", config.editor},       {"error", config.error},     {"variables", variables},
        {"languages", config.languages}, {"problems", problems}};
    return replaceFile(work + "/config", writeJson(written, 1));
}

string readChanges(const string &work)
{
    string changes;
    readWhole(work + "/changes", changes);
    return changes;
}

string readGeneration(const string &work)
{
    return readObject(work + "/changes").value("generation", "");
}

bool writeChanges(const string &work, const std::vector<Change> &changes)
{
    Json list = Json::array();
    for (const Change &change : changes)
        list.push_back({{"generation", change.generation},
                        {"all", change.isAll},
                        {"data", change.isData},
                        {"texts", change.isTexts},
                        {"files", std::vector(change.files.begin(), change.files.end())}});
    const Json written = {{"generation", changes.back().generation}, {"changes", list}};
    return replaceFile(work + "/changes", writeJson(written, -1));
}

string rootFolder(const string &work, int marks)
{
    return work + "/root" + std::to_string(marks);
}
