/* tests/page_test.cpp - templates and their pages, with the log: the examples of
 * the documents, whose format docs/templates.md has at its top, and those of
 * tests/pages; and rows that a document cannot hold. */
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "exec/exec.h"
#include "grammar/commands.h"
#include "tests/harness.h"

namespace
{
using Example = std::map<std::string, Block>; // by kind: template, page, log, or a file's name

constexpr char ended[] = "t.htm: Syntax error: File ends inside cmd\n";
const std::string rows[][4] = {
    // name, template, page, log
    {"text passes", "a<b>\r\n\v{? {x} ?> %s", "a<b>\r\n\v{? {x} ?> %s", ""},
    {"zero bytes pass", std::string("a\0b<?echo x?>", 13), std::string("a\0bx", 4), ""},
    {"blanks", "<? \n\techo\r\nx\t?><?echo\vx?>.", "x<?echo\vx?>.",
     "t.htm, line 3: Syntax error: Unknown Cmd\n"},
    {"cut in a reference", "a<?echo b?>c<?echo $var", "abc", ended},
    {"cut in a quote", "a<?echo b?>c<?echo 'x", "abc", ended},
    {"byte order marks", "\xEF\xBB\xBF<?include m.htm?><?include o.htm?>", "\xEF\xBB\xBFx", ""},
};

class Examples : public testing::TestWithParam<std::string>
{
protected:
    Host host;

    void SetUp() override
    {
        for (const char *suffix : {"_en.db", "_eo.db", ".db"})
            writeFile("device/etc/htmltext" + std::string(suffix),
                      database({{"greeting", "Good day"}}));
        ASSERT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
        host.variables = {{"name", "Ann"}};
        host.rows = {{"devices", {{"printer", "10.0.0.5"}, {"phone", "10.0.0.7"}}}};
        host.error = "disk full";
    }
    void TearDown() override
    {
        forgetTexts();
        std::filesystem::remove_all("device");
        gatheredBytes = 0;
    }
};
} // namespace

// What a function that takes the page is refused, and what leaves no trace on the page.
static void disturb(Interpreter *running)
{
    static int calls = 0;
    EXPECT_EQ(Orv_Interpreter_Reset(running), ORV_FAILED);
    EXPECT_EQ(Orv_Interpreter_SetOutput(running, nullptr), ORV_FAILED);
    EXPECT_EQ(Orv_Interpreter_SetVariable(running, "name", "?"), ORV_VARIABLE_REFUSED);
    EXPECT_EQ(Orv_Interpreter_ClearVariables(running), ORV_FAILED);
    EXPECT_EQ(doExclude(), 0);
    EXPECT_NE(Orv_Interpreter_Position(running, nullptr), nullptr);
    EXPECT_EQ(Orv_Interpreter_SetLanguage(++calls % 2 ? "eo" : "en"), ORV_OK);
}

static std::vector<Example> readExamples(const std::string &path)
{
    std::vector<Example> examples;
    for (Block block : readBlocks(path)) {
        if (block.kind.ends_with(".sql"))
            break; // the recipes, which check_tests run
        if (block.kind == "template")
            examples.emplace_back();
        if (examples.empty())
            continue;
        // The line end in front of a closing fence is a log's, but no file's.
        if (block.kind != "log" && !block.text.empty())
            block.text.pop_back();
        const std::string kind = block.kind;
        examples.back()[kind] = std::move(block);
    }
    return examples;
}

// Returns whether a block has that text; a failure stands at its line that differs.
static bool isSame(const std::string &path, const Example &example, const std::string &kind,
                   const std::string &got)
{
    const auto found = example.find(kind);
    const std::string expected = found == example.end() ? "" : found->second.text;
    const auto same = std::mismatch(expected.begin(), expected.end(), got.begin(), got.end()).first;
    if (expected == got)
        return true;
    const auto line = static_cast<int>(std::count(expected.begin(), same, '\n'));
    ADD_FAILURE_AT(path.c_str(),
                   found == example.end() ? example.at("template").line : found->second.line + line)
        << kind << " " << difference(expected, got);
    return false;
}

TEST(Documents, NameEachCommand)
{
    std::ifstream document(ORV_SOURCE "/docs/templates.md");
    std::string headings;
    std::string table; // at the top
    for (std::string line; std::getline(document, line);)
        if (line.starts_with("### "))
            headings += line.substr(3) + ","; // " echo, print,"
        else if (line.starts_with("| [`") || line.starts_with("| `<?"))
            table += line;
    std::stringstream file;
    file << std::ifstream(ORV_SOURCE "/fuzz/template.dict").rdbuf();
    const std::string dictionary = file.str();
    for (const CommandDef &row : commandTable) {
        const std::string words = row.words;
        const bool whole = words.starts_with("error");
        const std::string name = whole ? words : words.substr(0, words.find(' '));
        EXPECT_NE(headings.find(" " + name + ","), std::string::npos) << name;
        EXPECT_NE(table.find("`<?" + name), std::string::npos) << name << ", table";
        EXPECT_NE(dictionary.find("\"<?" + name), std::string::npos) << name << ", fuzz dictionary";
    }
}

TEST_P(Examples, RenderAsWritten)
{
    const std::string path = ORV_SOURCE "/" + GetParam();
    const auto isNotice = [](const std::string &line) {
        return line.starts_with("zarn - ") && !line.starts_with("zarn - ERROR");
    };
    const std::vector<Example> examples = readExamples(path);
    EXPECT_FALSE(examples.empty());
    for (const Example &example : examples) {
        host.files = {{"part.htm", "(part of <?echo $var:owner?>)"}};
        for (const auto &[kind, block] : example)
            if (kind.find('.') != std::string::npos)
                host.files.push_back({kind, block.text});
        host.files.push_back({"t.htm", example.at("template").text});
        for (const int32_t bytes : {0, 1, 7, 4096}) {
            gatheredBytes = bytes;
            host.isLogged = bytes != 7;
            host.onWrite = bytes == 1 || bytes == 4096 ? disturb : nullptr;
            const Outcome got = render(host);
            if (!isSame(path, example, "page", got.page) ||
                (host.isLogged && !isSame(path, example, "log", withoutLines(got.log, isNotice))))
                break;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Documents, Examples, testing::Values(ORV_PAGES), [](const auto &document) {
    std::string name = document.param;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !isalnum(c); }, '_');
    return name;
});

TEST_F(Examples, OfOddBytes)
{
    for (const auto &[name, text, page, log] : rows) {
        host.files = {{"t.htm", text}, {"m.htm", "\xEF\xBB\xBFx"}, {"o.htm", "\xEF\xBB\xBF"}};
        const Outcome got = render(host);
        EXPECT_EQ(difference(page, got.page), "") << name;
        EXPECT_EQ(difference(log, got.log), "") << name;
    }
}
