/* tests/orv_textdb_test.cpp - the tool orv-textdb, run as its users run it, and
 * the limits of the database files that it lays out. */
#include "../tools/textdb_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

static const std::string HEADER =
    "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n";

static std::string entry(const std::string &id, const std::string &text)
{
    return "msgid \"" + id + "\"\nmsgstr \"" + text + "\"\n";
}

static void write(const std::string &name, const std::string &bytes)
{
    std::ofstream(name, std::ios::binary) << bytes;
}

static std::string read(const std::string &name)
{
    std::stringstream bytes;
    bytes << std::ifstream(name, std::ios::binary).rdbuf();
    return bytes.str();
}

/* Runs the tool. Returns what it printed, "=" and its exit status. */
static std::string run(const std::string &arguments)
{
    const int status = system(("(" ORV_TEXTDB " " + arguments + ") >out 2>&1").c_str());
    return read("out") + "=" + std::to_string(WEXITSTATUS(status));
}

/* Each test works in a folder of its own. */
struct TextDbTool : testing::Test {
    char folder[32] = "/tmp/orv_textdb_XXXXXX";

    TextDbTool()
    {
        std::filesystem::current_path(mkdtemp(folder));
        write("lsan", "leak:libgettextpo"); // it loses a copy of the header entry
        setenv("LSAN_OPTIONS", "suppressions=lsan:print_suppressions=0", 1);
    }

    ~TextDbTool() override
    {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(folder);
    }
};

TEST_F(TextDbTool, refusesWhatADatabaseCannotHold)
{
    const std::string longest(128, 'x');
    const std::string only = "; a field names only letters, digits, '.', '_' and ':'\n";
    const struct {
        std::string po, printed;
    } rows[] = {
        {entry("a-b", "x") + entry("gr\u00fcn", "x"),
         "t.po:3: error: id \"a-b\": has the character \"-\"" + only +
             "t.po:5: error: id \"gr\u00fcn\": has the character \"\u00fc\"" + only},
        {entry(longest, "x"), ""},
        {entry(longest + "x", "x"),
         "t.po:3: error: id \"" + longest +
             "x\": is longer than the 128 characters that a field can name\n"},
        {entry("a", "x") + entry("a", "y"),
         "t.po:5: error: id \"a\": duplicate message definition\n"},
        {"# msgid\n#| msgid \"o\"\nmsgctxt \"c\"\n" + entry("a", "x"),
         "t.po:6: error: id \"a\": has a context (msgctxt)\n"},
        {"#~ msgid \"o\"\n#~ msgstr \"\"\nmsgid \"a\"\nmsgid_plural \"b\"\nmsgstr[0] \"\"\n",
         "t.po:5: error: id \"a\": has a plural (msgid_plural)\n"},
        {entry("a", "") + "#, fuzzy\n" + entry("b", "x"),
         "t.po:3: warning: id \"a\": is not translated, left out\n"
         "t.po:6: warning: id \"b\": is fuzzy, left out (--fuzzy takes it)\n"},
        {entry("a", "\\\\0") + entry("b", "x\\400y"),
         "t.po:6: error: a text cannot hold a zero byte\n"},
        {entry("a", "\xe4"), "t.po:4: error: invalid multibyte sequence\n"},
        {"domain \"d\"\n" + entry("a", "x"),
         "t.po: error: texts of the domain \"d\": a database has no domains\n"},
        {"msgid \"a\"\nmsgstr x\n", "t.po:4: error: keyword \"x\" unknown\n"
                                    "t.po:4: error: syntax error\n"},
    };
    write("t.db", "old");
    for (const auto &row : rows) {
        const bool refused = row.printed.find("error") != std::string::npos;
        write("t.po", HEADER + row.po);
        EXPECT_EQ(run("build -o t.db t.po"),
                  row.printed + (refused ? "orv-textdb: t.db is not written\n=1" : "=0"));
    }
    const std::string old = read("t.db");
    write("t.po", entry("", "Content-Type: text/plain; charset=ISO-8859-1\\n"));
    EXPECT_EQ(run("build -o t.db t.po").find("t.po: error: the charset is ISO-8859-1, but"), 0u);
    write("t.po", entry("a", "\xe4"));
    EXPECT_EQ(run("build -o t.db t.po").find("t.po:2: error: a character is not UTF-8\n"), 0u);
    EXPECT_EQ(read("t.db"), old);
}

TEST_F(TextDbTool, givesBackWhatWasBuilt)
{
    const std::string odd = entry("b:1", "gr\u00fcn \\\"\\\\\\t\\001\\344");
    write("t.po", HEADER + odd + entry("b", "two\\nlines") + "#~ msgid \"o\"\n#~ msgstr \"o\"\n" +
                      entry("b.2", "x\\n") + "#, fuzzy\n" + entry("B", "y"));
    ASSERT_EQ(run("build --fuzzy -o t.db t.po"), "=0");
    EXPECT_EQ(run("check t.db"), "t.db: 5 records, 4 texts, no fault\n=0");
    EXPECT_EQ(run("get t.db b:1"), "gr\u00fcn \"\\\t\x01\xe4\n=0");
    EXPECT_EQ(run("get t.db b."), "orv-textdb: t.db has no text for id \"b.\"\n=1");
    EXPECT_NE(run("dump t.db")
                  .find("\n\n" + entry("B", "y") + "\n" + entry("b", "\"\n\"two\\n\"\n\"lines") +
                        "\n" + entry("b.2", "x\\n") + "\n" + odd + "=0"),
              std::string::npos);
    std::filesystem::create_symlink("u.db", "link.db"); // the file behind a link is replaced
    write("u.db", "old");
    EXPECT_EQ(run("dump t.db >u.po; " ORV_TEXTDB " build -o link.db u.po; ls *.db*"),
              "link.db\nt.db\nu.db\n=0");
    EXPECT_EQ(read("u.db"), read("t.db"));
    EXPECT_EQ(run("dump t.db >/dev/full"),
              "orv-textdb: cannot write to standard output: No space left on device\n=1");
}

TEST_F(TextDbTool, namesEveryFault)
{
    write("t.po", HEADER + entry("ab", "X") + entry("ac", "Y"));
    ASSERT_EQ(run("build -o t.db t.po"), "=0");
    const std::string good = read("t.db"); // four records, strings from offset 48 to 58
    const struct {
        size_t offset;
        char byte;
        std::string printed;
    } rows[] = {
        {16, 9, "offset 16: record 0: first child 9 lies beyond the records"},
        {32, 1, "offset 32: record 2: first child 1 is reached a second time"},
        {47, 0x40, "offset 40: record 3: next sibling 4 lies beyond the records"},
        {16, 0, "offset 24: record 1: nothing leads to it, nor to those up to record 3"},
        {44, 127, "offset 40: record 3: label offset 127 lies outside the file"},
        {43, 1, "offset 40: record 3: value offset 57 lies outside the file"},
        {44, 32, "offset 40: record 3: label is empty"},
        {44, 8, "offset 40: record 3: label offset 8 lies among the records"},
        {42, 0x10, "offset 40: record 3: value distance 1 ends in the label"},
        {55, 'b', "offset 40: record 3: label begins with the same byte as its sibling before it"},
        {55, 'a', "offset 40: record 3: label comes before that of its sibling before it"},
        {58, 'Z', "offset 40: record 3: value is not terminated"},
        {36, 30, "offset 40: record 3: overlaps the strings, which begin at offset 46"},
    };
    for (const auto &row : rows) {
        std::string bad = good;
        bad[row.offset] = row.byte;
        write("t.db", bad);
        const std::string printed = run("check t.db");
        EXPECT_NE(printed.find("t.db: " + row.printed + "\n"), std::string::npos) << printed;
        EXPECT_TRUE(printed.ends_with("=1")) << printed;
        EXPECT_EQ(run("dump t.db").find("orv-textdb: t.db is damaged at offset "), 0u);
    }
    write("t.db", "another tool's  " + good.substr(16));
    EXPECT_EQ(run("check t.db"), "orv-textdb: t.db: warning: the header is not that of orv-textdb\n"
                                 "t.db: 4 records, 2 texts, no fault\n=0");
    for (size_t size = 0; size < good.size(); size++) // copies, so that a sanitizer knows the end
        EXPECT_FALSE(checkTextDb(std::string(good, 0, size)).faults.empty()) << size;
    for (size_t i = 0; i < good.size() * 256; i++) {
        std::string bad = good;
        bad[i / 256] = static_cast<char>(i % 256);
        if (checkTextDb(bad).faults.empty())
            walkTextDb(bad, [](std::string_view, std::string_view) {});
    }
}

TEST_F(TextDbTool, comparesWithTemplates)
{
    write("t.po", HEADER + entry("a", "x") + entry("a.b_c:d", "x") + entry("z", "x"));
    ASSERT_EQ(run("build -o t.db t.po"), "=0");
    write("1.htm", "{?a?}\n<a title='{?a.b_c:d?}{?a-b?}{?{?no?}'>\n{??}{?z");
    EXPECT_EQ(run("fields --unused t.db 1.htm"), "1.htm:2: no\n1.htm:3: \nt.db: unused: z\n=1");
    EXPECT_EQ(run("fields t.db"), "orv-textdb: an argument is missing; usage: orv-textdb fields "
                                  "[--unused] FILE.db TEMPLATE...\n=2");
    EXPECT_EQ(run("get --what"), "orv-textdb: bad option '--what'; 'orv-textdb --help' shows the "
                                 "commands\n=2");
}

TEST(TextDbFile, keepsTheLimitsOfTheFormat)
{
    const size_t count = (1 << 20) - 1; // with the root as many records as can be numbered
    std::vector<std::string> ids;
    for (size_t i = 0; i <= count; i++) // each a child of an earlier one or of the root
        ids.push_back((i < 255 ? "" : ids[i / 255 - 1]) + static_cast<char>(i % 255 + 1));
    std::vector<TextEntry> entries;
    for (const std::string &id : ids)
        entries.push_back({id, "", 0});
    const auto ascending = [](const TextEntry &a, const TextEntry &b) { return a.id < b.id; };
    std::string file;
    size_t culprit;
    std::sort(entries.begin(), entries.end() - 1, ascending);
    EXPECT_EQ(buildTextDb(std::span(entries).first(count), &file, &culprit), nullptr);
    EXPECT_EQ(checkTextDb(file).faults.size(), 0u);
    std::sort(entries.begin(), entries.end(), ascending);
    EXPECT_STREQ(buildTextDb(entries, &file, &culprit),
                 "the database would need more than 1048576 records");

    const std::string text(1 << 26, 'x'), id(10000, 'i'); // sixteen texts, one memory
    std::vector<TextEntry> large;
    for (size_t i = 0; i < 16; i++)
        large.push_back({std::string_view(id).substr(0, i + 1), text, 0});
    large.push_back({id, "y", 0});
    EXPECT_STREQ(buildTextDb(large, &file, &culprit),
                 "its place would lie beyond the 1073741823 bytes that a database can address");
    EXPECT_EQ(culprit, 16u);
    EXPECT_EQ(buildTextDb(std::span(large).last(1), &file, &culprit), nullptr);
    EXPECT_EQ(checkTextDb(file).records, 4u); // the label is cut into a chain of three
    walkTextDb(file, [&](std::string_view found, std::string_view) { EXPECT_EQ(found, id); });
}
