/* tests/docs_test.cpp - renders every example of docs/templates.md and security.md,
 * with the web program and the files that the head of the first describes. */
#include <gtest/gtest.h>
#include <fstream>
#include <regex>

#include "grammar/commands.h"
#include "tests/harness.h"

struct Example {
    std::string place;                         // of the template in the documents
    std::map<std::string, std::string> blocks; // by kind: template, page, log
};

static void readExamples(const std::string &name, std::vector<Example> *examples)
{
    std::ifstream document(ORV_DOCS "/" + name);
    std::string *block = nullptr; // that the line belongs to
    int number = 0;
    for (std::string line; std::getline(document, line);) {
        ++number;
        if (line == "```template")
            examples->push_back({name + ":" + std::to_string(number), {}});
        if (line.starts_with("```") && line != "```" && !examples->empty())
            block = &examples->back().blocks[line.substr(3)];
        else if (line == "```")
            block = nullptr;
        else if (block)
            *block += line + "\n";
    }
    EXPECT_GT(number, 0);
}

TEST(Docs, NameEachCommand)
{
    std::ifstream document(ORV_DOCS "/templates.md");
    std::string headings;
    for (std::string line; std::getline(document, line);)
        if (line.starts_with("### "))
            headings += line.substr(3) + ","; // " echo, print,"
    for (const CommandDef &row : commandTable) {
        const std::string words = row.words;
        const bool whole = words.starts_with("error");
        const std::string name = whole ? words : words.substr(0, words.find(' '));
        EXPECT_NE(headings.find(" " + name + ","), std::string::npos) << name;
    }
}

TEST(Docs, Examples)
{
    for (const char *suffix : {"_en.db", ".db"})
        writeFile(folder + "/device/etc/htmltext" + suffix, database({{"greeting", "Good day"}}));
    ASSERT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
    const std::regex notices("zarn - (?!ERROR)[^\n]*\n");
    std::vector<Example> examples;
    readExamples("templates.md", &examples);
    readExamples("security.md", &examples);
    for (auto &[place, blocks] : examples) {
        SCOPED_TRACE(place);
        for (const char *kind : {"template", "page"}) {
            EXPECT_EQ(blocks.count(kind), 1u) << kind;
            std::string &block = blocks[kind];
            block.resize(block.size() - !block.empty()); // no line end before the closing fence
        }
        Host host;
        host.files = {{"t.htm", blocks["template"]}, {"part.htm", "(part of <?echo $var:owner?>)"}};
        host.variables = {{"name", "Ann"}};
        host.rows = {{"devices", {{"printer", "10.0.0.5"}, {"phone", "10.0.0.7"}}}};
        host.error = "disk full";
        const Outcome outcome = render(host);
        EXPECT_EQ(outcome.page, blocks["page"]);
        EXPECT_EQ(std::regex_replace(outcome.log, notices, ""), blocks["log"]);
    }
}
