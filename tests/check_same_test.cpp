/* tests/check_same_test.cpp - orv-check reads templates as the library does: what a run
 * logs about the syntax is what the checker finds.
 *
 * Linked with the page tests, each of whose runs it compares; the fuzz corpora are
 * rendered by orv-render. */
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "tests/harness.h"
#include "tests/process.h"
#include "tools/common/files.h"
#include "tools/common/json.h"

namespace fs = std::filesystem;

const char programName[] = "check_same_tests";

namespace
{
struct Mistake {
    std::string file;
    int line; // 0 where the message has none
    auto operator<=>(const Mistake &) const = default;
};
using Mistakes = std::set<Mistake>;
} // namespace

static Mistakes logged(const std::string &log)
{
    Mistakes found;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const size_t end = line.find(": Syntax error");
        if (end == std::string::npos)
            continue;
        const size_t number = line.rfind(", line ", end);
        if (number == std::string::npos)
            found.insert({line.substr(0, end), 0});
        else
            found.insert({line.substr(0, number), std::stoi(line.substr(number + 7))});
    }
    return found;
}

// The files that the page includes come with it, whether a run includes them or not.
// notes: where the log complains for the reason of one that is told elsewhere.
static Mistakes checked(const std::string &path, Mistakes *notes)
{
    const int status = runCommand("ulimit -s 1024; " ORV_CHECK " --format json '" + path + "'");
    EXPECT_NE(status, 2) << readFile("err");
    Mistakes found;
    Json whole;
    std::string problem;
    EXPECT_TRUE(readJson(readFile("out"), &whole, &problem)) << problem;
    for (const Json &finding : whole.at("findings")) {
        for (const Json &note : finding.at("notes")) // what is logged elsewhere for the same reason
            if (note.at("text").asText().starts_with("logged here"))
                notes->insert({note.at("file").asText(),
                               note.at("text").asText().find("perhaps more") == std::string::npos
                                   ? note.value("line", 0)
                                   : -1});
        if (finding.at("id") != "syntax" && finding.at("id") != "variable-name")
            continue;
        const bool atEnd = finding.at("text").asText().starts_with("File ends");
        found.insert({finding.at("file").asText(), atEnd ? 0 : finding.value("line", 0)});
    }
    return found;
}

static std::string show(const Mistakes &mistakes)
{
    std::string text;
    for (const Mistake &mistake : mistakes)
        text += mistake.file + ":" + std::to_string(mistake.line) + " ";
    return text;
}

static size_t comparisons;

// only: the page is the one template: without a message in the log nothing must be found.
static void compare(const std::string &path, const std::string &log, bool only)
{
    ++comparisons;
    Mistakes notes;
    const Mistakes mistakes = logged(log);
    const Mistakes findings = checked(path, &notes);
    for (const Mistake &mistake : mistakes) {
        // A command that an included template leaves open is named with its own line, but
        // the file in which the next page text stands: the finding has the right one.
        const bool found =
            std::any_of(findings.begin(), findings.end(),
                        [&](const Mistake &f) {
                            return f == mistake || (f.line == 0 && f.file != mistake.file);
                        }) ||
            notes.count(mistake) || notes.count({mistake.file, -1});
        EXPECT_TRUE(found) << "logged " << show({mistake}) << "found " << show(findings) << "\n"
                           << readFile(path);
    }
    // A finding may name the mistake inside of the command that the log names.
    if (only) {
        EXPECT_LE(findings.size(), 2 * mistakes.size()) << show(findings) << readFile(path);
        EXPECT_TRUE(findings.empty() || !mistakes.empty()) << readFile(path); // none is invented
    }
}

static void compareRun(const Host &host, const std::string &path, const Outcome &outcome)
{
    // A text can hold what it likes, and is not known here.
    static std::set<std::string> done;
    std::string key = path;
    bool fields = false;
    for (const auto &[name, content] : host.files) {
        key += name + content;
        fields = fields || content.find("{?") != std::string::npos;
    }
    if (outcome.result == ORV_RUN_NO_TEMPLATE || fields || !done.insert(key).second)
        return;
    // Where a run gives up, its log lacks the message of what made it.
    compare(path, outcome.log, host.files.size() == 1 && outcome.result != ORV_RUN_GAVE_UP);
}

static const bool compares = (afterRender = compareRun, true);

TEST(Check, IsComparedWithRuns)
{
    ASSERT_TRUE(compares);
    renderText("x<?echo one two?>");
    EXPECT_EQ(comparisons, 1U);
}

TEST(Check, AgreesWithRunsOfTheFuzzCorpora)
{
    size_t count = 0;
    size_t mistakes = 0;
    for (const auto &entry : fs::directory_iterator(ORV_CORPUS)) {
        static constexpr const char *names[] = {"a.htm", "b.frm", "c.txt"};
        std::istringstream parts(readFile(entry.path()));
        std::string part;
        for (const char *name : names) {
            part.clear();
            std::getline(parts, part, '\x1e');
            writeFile(name, part);
        }
        if (fs::file_size("a.htm") == 0)
            continue;
        runCommand(ORV_RENDER " --log a.htm");
        const std::string log = readFile("err");
        compare("a.htm", log, false);
        mistakes += logged(log).size();
        ++count;
    }
    EXPECT_GT(count, 2U);
    EXPECT_GT(mistakes, 5U);
}
