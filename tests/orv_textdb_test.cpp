/* tests/orv_textdb_test.cpp - the tool orv-textdb, run as its users run it, and
 * the limits of the database files that it lays out. */
#include "../tools/textdb_file.h"

#include <gtest/gtest.h>

#include <cstdio>
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

class TextDbTool : public testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/orv_textdb_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
        std::filesystem::current_path(folder);
    }

    void TearDown() override
    {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(folder);
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

    /* Returns the exit status, and what was printed in front of it. */
    static std::string run(const std::string &arguments)
    {
        const int status = system((ORV_TEXTDB " " + arguments + " >out 2>&1").c_str());
        return read("out") + "=" + std::to_string(WEXITSTATUS(status));
    }

    std::string folder;
};

TEST_F(TextDbTool, refusesWhatADatabaseCannotHold)
{
    struct Row {
        std::string po, printed;
    };
    const std::string notWritten = "orv-textdb: t.db is not written\n=1";
    const std::string longest(128, 'x');
    const Row rows[] = {
        {HEADER + entry("a-b", "x"), "t.po:3: error: id \"a-b\": has the character \"-\"; a field "
                                     "names only letters, digits, '.', '_' and ':'\n" + notWritten},
        {HEADER + entry("gr\u00fcn", "x") + entry(longest + "x", "x"),
         "t.po:3: error: id \"gr\u00fcn\": has the character \"\u00fc\"; a field names only letters, "
         "digits, '.', '_' and ':'\nt.po:5: error: id \"" + longest +
         "x\": is longer than the 128 characters that a field can name\n" + notWritten},
        {HEADER + entry(longest, "x"), "=0"},
        {HEADER + entry("a", "x") + entry("a", "y"),
         "t.po:5: error: id \"a\": duplicate message definition\n" + notWritten},
        {HEADER + "# msgid\n#| msgid \"o\"\nmsgctxt \"c\"\n" + entry("a", "x"),
         "t.po:6: error: id \"a\": has a context (msgctxt)\n" + notWritten},
        {HEADER + "#~ msgid \"o\"\n#~ msgstr \"\"\nmsgid \"a\"\nmsgid_plural \"b\"\nmsgstr[0] \"\"\n",
         "t.po:5: error: id \"a\": has a plural (msgid_plural)\n" + notWritten},
        {HEADER + entry("a", "") + "#, fuzzy\n" + entry("b", "x"),
         "t.po:3: warning: id \"a\": is not translated, left out\n"
         "t.po:6: warning: id \"b\": is fuzzy, left out (--fuzzy takes it)\n=0"},
        {HEADER + entry("a", "x\\000y"), "t.po:4: error: a text cannot hold a zero byte\n" + notWritten},
        {HEADER + entry("a", "\xe4"), "t.po:4: error: invalid multibyte sequence\n" + notWritten},
        {entry("a", "\xe4"), "t.po:2: error: a character is not UTF-8\n" + notWritten},
        {entry("", "Content-Type: text/plain; charset=ISO-8859-1\\n"),
         "t.po: error: the charset is ISO-8859-1, but must be UTF-8 (msgconv -t UTF-8 converts)\n" +
         notWritten},
        {HEADER + "domain \"d\"\n" + entry("a", "x"),
         "t.po: error: texts of the domain \"d\": a database has no domains\n" + notWritten},
        {HEADER + "msgid \"a\"\nmsgstr x\n", "t.po:4: error: keyword \"x\" unknown\n"
                                             "t.po:4: error: missing 'msgstr' section\n"},
    };
    for (const Row &row : rows) {
        write("t.po", row.po);
        const std::string printed = run("build -o t.db t.po");
        EXPECT_EQ(printed.substr(0, row.printed.size()), row.printed) << row.po;
    }
    EXPECT_EQ(run("build -o t.db none.po"),
              "orv-textdb: cannot read none.po: No such file or directory\n=1");
}
