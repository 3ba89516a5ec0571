/* tests/docs_test.cpp - renders every example of docs/templates.md, with the web
 * program and the files that its head describes. */
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/harness.h"
#include "tools/textdb_file.h"

struct Example {
    int line;  // of the template's fence in the document
    std::string text;
    std::string page;
    std::string log;
};

// The rest of a fenced block; the line end in front of the closing fence is not its.
static std::string readBlock(std::istream &document, int *number)
{
    std::string block;
    for (std::string line; std::getline(document, line) && line != "```";) {
        ++*number;
        block += (block.empty() ? "" : "\n") + line;
    }
    ++*number;
    return block;
}

static std::vector<Example> readExamples()
{
    std::ifstream document(ORV_DOCS "/templates.md");
    std::vector<Example> examples;
    int number = 0;
    for (std::string line; std::getline(document, line);) {
        ++number;
        if (line == "```template")
            examples.push_back({number, readBlock(document, &number), "no page", ""});
        else if (line == "```page" && !examples.empty())
            examples.back().page = readBlock(document, &number);
        else if (line == "```log" && !examples.empty())
            examples.back().log = readBlock(document, &number) + "\n";
    }
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

TEST(Docs, ExamplesOfTheTemplateLanguage)
{
    const std::vector<TextEntry> texts = {{"greeting", "Good day", 0}};
    std::string database;
    size_t culprit;
    ASSERT_EQ(buildTextDb(texts, &database, &culprit), nullptr);
    writeFile(folder + "/root/etc/htmltext_en.db", database);
    writeFile(folder + "/root/etc/htmltext.db", database);
    ASSERT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
    const std::vector<Example> examples = readExamples();
    EXPECT_FALSE(examples.empty());
    for (const auto &example : examples) {
        SCOPED_TRACE("docs/templates.md:" + std::to_string(example.line));
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
