/* tests/docs_test.cpp - renders every example of docs/templates.md and security.md,
 * with the web program and the files that the head of the first describes. */
#include <gtest/gtest.h>
#include <fstream>
#include <sstream>

#include "tests/harness.h"
#include "tools/textdb_file.h"

struct Example {
    int line; // of the template block in the document
    std::string text, page, log;
};

// The rest of a fenced block; the line end in front of the closing fence is not its.
static std::string readBlock(std::istream &document, int *line)
{
    std::string block;
    for (std::string text; std::getline(document, text) && ++*line && text != "```";)
        block += text + "\n";
    return block.substr(0, block.size() - !block.empty());
}

static std::vector<Example> readExamples(const std::string &name)
{
    std::ifstream document(ORV_DOCS "/" + name);
    std::vector<Example> examples;
    int line = 0;
    for (std::string text; std::getline(document, text) && ++line;)
        if (text == "```template")
            examples.push_back({line, readBlock(document, &line), "no page block", ""});
        else if (text == "```page" && !examples.empty())
            examples.back().page = readBlock(document, &line);
        else if (text == "```log" && !examples.empty())
            examples.back().log = readBlock(document, &line) + "\n";
    EXPECT_FALSE(examples.empty());
    return examples;
}

static std::string withoutNotices(const std::string &log)
{
    std::string kept;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with("zarn - ") || line.starts_with("zarn - ERROR"))
            kept += line + "\n";
    return kept;
}

class Docs : public testing::TestWithParam<const char *>
{
};

INSTANTIATE_TEST_SUITE_P(Examples, Docs, testing::Values("templates.md", "security.md"));

TEST_P(Docs, Examples)
{
    static const TextEntry text[] = {{"greeting", "Good day", 0}};
    std::string database;
    size_t culprit;
    ASSERT_EQ(buildTextDb(text, &database, &culprit), nullptr);
    writeFile(folder + "/root/etc/htmltext_en.db", database);
    writeFile(folder + "/root/etc/htmltext.db", database);
    ASSERT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
    for (const auto &example : readExamples(GetParam())) {
        SCOPED_TRACE(std::string(GetParam()) + ":" + std::to_string(example.line));
        Host host;
        host.files = {{"t.htm", example.text}, {"part.htm", "(part of <?echo $var:owner?>)"}};
        host.variables = {{"name", "Ann"}};
        host.rows = {{"devices", {{"printer", "10.0.0.5"}, {"phone", "10.0.0.7"}}}};
        host.error = "disk full";
        const Outcome outcome = render(host);
        EXPECT_EQ(outcome.page, example.page);
        EXPECT_EQ(withoutNotices(outcome.log), example.log);
    }
}
