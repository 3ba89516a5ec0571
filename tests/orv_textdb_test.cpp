/* tests/orv_textdb_test.cpp - the tool orv-textdb, run as its users run it, and
 * the limits of the database files that it lays out. */
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <tuple>

#include <unistd.h>

#include "tests/harness.h"
#include "tests/process.h"
#include "tools/common/textdb_file.h"

static std::string entry(const std::string &id, const std::string &text)
{
    return "msgid \"" + id + "\"\nmsgstr \"" + text + "\"\n";
}

static const std::string utf8Header = entry("", "Content-Type: text/plain; charset=UTF-8\\n");

// Runs the tool. Returns its errors, what it printed, "=" and its exit status.
static std::string run(const std::string &arguments)
{
    const int status = runCommand(ORV_TEXTDB " " + arguments);
    return readFile("err") + readFile("out") + "=" + std::to_string(status);
}

// Puts a small database into t.db. Returns its bytes.
static std::string buildOld()
{
    writeFile("old.po", utf8Header + entry("old", "x"));
    EXPECT_EQ(run("build -o t.db old.po"), "old.po: 1 of 1 texts\n=0");
    return readFile("t.db");
}

TEST(TextDbTool, RefusesWhatADatabaseCannotHold)
{
    const std::string longest(128, 'x');
    const std::string rows[][3] = {
        {utf8Header + entry("gr\u00fcn", "x") + entry(longest + "x", "x"), ":3",
         "id \"gr\u00fcn\": has the character \"\u00fc\"; a field names only letters, digits, "
         "'.', '_' and ':'\nt.po:5: error: id \"" +
             longest + "x\": is longer than the 128 characters that a field can name"},
        {utf8Header + entry("a", "x") + entry("a", "y"), ":5",
         "id \"a\": duplicate message definition, it stands in line 3 already"},
        {utf8Header + "# msgid\n#| msgid \"o\"\nmsgctxt \"c\"\n" + entry("a", "x"), ":6",
         "id \"a\": has a context (msgctxt): a field has an id only, give each context an id of "
         "its own"},
        {utf8Header +
             "#~ msgid \"o\"\n#~ msgstr \"\"\nmsgid \"a\"\nmsgid_plural \"b\"\nmsgstr[0] \"\"\n",
         ":5",
         "id \"a\": has a plural (msgid_plural): a field has one text, give each form an id of "
         "its own"},
        {"\xef\xbb\xbf" + utf8Header + entry("a", "x"), "",
         "begins with a byte order mark; save it as UTF-8 without one"},
        {std::string("m\0s\0g\0", 6), "",
         "is UTF-16, but must be UTF-8 (iconv -f UTF-16 -t UTF-8 converts)"},
        {std::string("\0m\0s", 4), "",
         "is UTF-16, but must be UTF-8 (iconv -f UTF-16 -t UTF-8 converts)"},
        {utf8Header + entry("a", "") + "#~ msgid \"o\"\n#~ msgstr \"o\"\n", "", // or a cut file
         "has no text; --empty makes a database without any"},
        {utf8Header + entry("a", "\\\\0") + entry("b", "x\\400y"), ":6",
         "a text cannot hold a zero byte"},
        {utf8Header + entry("b", "x\\0001"), ":4", "a text cannot hold a zero byte"},
        {utf8Header + entry("b", "x\\xa00"), ":4", "a text cannot hold a zero byte"},
        {utf8Header + entry("a", "\xe4"), ":4", "a character is not UTF-8"},
        {entry("", "Content-Type: text/plain; charset=ASCII\\n") + entry("a", "ä"), "",
         "the charset is ASCII, but must be UTF-8 (msgconv -t UTF-8 converts)"},
        {entry("", "Content-Type: text/plain; charset=ISO-8859-1\\n"), "",
         "the charset is ISO-8859-1, but must be UTF-8 (msgconv -t UTF-8 converts)"},
        {utf8Header + "domain \"d\"\n" + entry("a", "x"), "",
         "texts of the domain \"d\": a database has no domains"},
    };
    const std::string old = buildOld();
    for (const auto &[po, line, errors] : rows) {
        writeFile("t.po", po);
        EXPECT_EQ(run("build -o t.db t.po"),
                  "t.po" + line + ": error: " + errors + "\norv-textdb: t.db is not written\n=1");
    }
    EXPECT_EQ(readFile("t.db"), old);
    writeFile("t.po",
              utf8Header + entry(longest, "x") + entry("a", "") + "#, fuzzy\n" + entry("b", "x"));
    EXPECT_EQ(run("build -o t.db t.po"),
              "t.po: 1 of 3 texts, 1 not translated, 1 fuzzy (--fuzzy takes them)\n=0");
    EXPECT_EQ(run("check t.db"), "t.db: 2 records, 1 texts, no fault\n=0");
}

TEST(TextDbTool, GivesBackWhatWasBuilt)
{
    const std::string odd = entry("b:1", "gr\u00fcn \\\"\\\\\\t\\001\\344");
    writeFile("t.po", utf8Header + odd + entry("b", "two\\nlines") +
                          "#~ msgid \"o\"\n#~ msgstr \"o\"\n" + entry("b.2", "x\\n") +
                          "#, fuzzy\n" + entry("B", "y"));
    ASSERT_EQ(run("build --fuzzy -o t.db t.po 2>/dev/null"), "t.po: 4 of 4 texts\n=0");
    EXPECT_EQ(run("check t.db"), "t.db: 5 records, 4 texts, no fault\n=0");
    EXPECT_EQ(run("get t.db b:1"), "gr\u00fcn \"\\\t\x01\xe4\n=0");
    EXPECT_EQ(run("get t.db b."), "orv-textdb: t.db has no text for id \"b.\"\n=1");
    const std::string dump = "\n\n" + entry("B", "y") + "\n" +
                             entry("b", "\"\n\"two\\n\"\n\"lines") + "\n" + entry("b.2", "x\\n") +
                             "\n" + odd + "=0";
    EXPECT_TRUE(run("dump t.db").ends_with(dump)) << readFile("out");
    EXPECT_EQ(run("dump t.db >u.po; " ORV_TEXTDB " build -o u.db u.po 2>/dev/null"),
              "u.po: 4 of 4 texts\n=0");
    EXPECT_EQ(readFile("u.db"), readFile("t.db"));
}

TEST(TextDbTool, ReplacesDatabasesOnly)
{
    writeFile("a.po", utf8Header + entry("a", "x"));
    writeFile("b.po", utf8Header + entry("b", "x"));
    writeFile("cut.po", utf8Header);
    buildOld();
    writeFile("empty", "");
    std::filesystem::create_symlink("a.po", "a.link");
    std::filesystem::create_symlink("new.db", "new.link"); // nothing is behind it yet
    std::filesystem::create_directory("sub");
    std::filesystem::create_symlink("../empty", "sub/up.link");
    const std::string rows[][2] = {
        {"-o a.po b.po", "orv-textdb: a.po is no text database, it is not replaced\n=1"},
        {"-o a.link b.po", "orv-textdb: a.link is no text database, it is not replaced\n=1"},
        {"-o ./a.link a.po", "orv-textdb: ./a.link is an input, it is not replaced\n=1"},
        {"-o a.po --source a.po b.po", "orv-textdb: a.po is an input, it is not replaced\n=1"},
        {"-o empty b.po", "b.po: 1 of 1 texts\n=0"},
        {"-o sub/up.link a.po && " ORV_TEXTDB " get empty a", "a.po: 1 of 1 texts\nx\n=0"},
        {"-o new.link b.po", "b.po: 1 of 1 texts\n=0"},
        {"--empty -o new.db cut.po", "cut.po: 0 of 0 texts\n=0"},
        {"-o new.link a.po && ls new.*", "a.po: 1 of 1 texts\nnew.db\nnew.link\n=0"},
    };
    for (const auto &[arguments, told] : rows)
        EXPECT_EQ(run("build " + arguments), told);
    EXPECT_EQ(readFile("a.po"), utf8Header + entry("a", "x"));
    EXPECT_TRUE(std::filesystem::is_symlink("new.link"));
    // Only root can give files away.
    const bool isRoot = geteuid() == 0;
    ASSERT_EQ(runCommand(isRoot ? "chown 12:34 t.db && chmod 640 t.db" : "chmod 640 t.db"), 0);
    EXPECT_EQ(run("build -o t.db a.po && stat -c '%a %u' t.db"),
              "a.po: 1 of 1 texts\n640 " + std::to_string(isRoot ? 12 : geteuid()) + "\n=0");
    EXPECT_EQ(run("dump a.po"), "orv-textdb: a.po is no text database\n=1");
}

// Where files may have 4096 bytes, whether or not a signal tells of it, nothing that is there is
// cut, and nothing half-made stays.
TEST(TextDbTool, LosesNothingToALimitOnFiles)
{
    std::string english = utf8Header;
    std::string german = utf8Header;
    std::string page;
    for (int i = 0; i < 200; ++i) {
        const std::string id = "id." + std::to_string(i);
        english += entry(id, "a text of some words");
        german += entry(id, "ein Text mit Worten");
        page += "{?" + id + "?}";
    }
    buildOld();
    writeFile("en.po", english);
    writeFile("de.po", german);
    writeFile("1.htm", page);
    ASSERT_EQ(run("build -o large.db en.po && mkdir -p w"), "en.po: 200 of 200 texts\n=0");
    const std::string old = readFile("t.db") + readFile("de.po");
    const std::string print = "orv-textdb: cannot print ";
    const std::string rows[][2] = {
        {"build -o t.db en.po", "orv-textdb: cannot write t.db: File too large\n"},
        {"build -o w/new.db en.po", "orv-textdb: cannot write w/new.db: File too large\n"},
        {"update en.po de.po", print + "de.po: File too large\n"},
        {"pot en.po 1.htm", print + "the template: File too large\n"},
        {"dump large.db", "orv-textdb: cannot write standard output: File too large\n"},
    };
    for (const std::string signal : {"", "trap '' 25; "})
        for (const auto &[command, told] : rows) {
            EXPECT_EQ(runCommand(signal + "ulimit -f 8; " ORV_TEXTDB " " + command), 1) << command;
            EXPECT_TRUE(readFile("err").starts_with(told)) << command << ": " << readFile("err");
        }
    EXPECT_EQ(readFile("t.db") + readFile("de.po"), old);
    EXPECT_EQ(runCommand("rmdir w"), 0) << "something stays in it";
}

TEST(TextDbTool, NamesEveryFault)
{
    writeFile("t.po", utf8Header + entry("ab", "X") + entry("ac", "Y"));
    ASSERT_EQ(run("build -o t.db t.po"), "t.po: 2 of 2 texts\n=0");
    const std::string good = readFile("t.db"); // four records, strings from offset 48 to 58
    const std::tuple<size_t, char, std::string> rows[] = {
        {16, 9, "offset 16: record 0: first child 9 lies beyond the records"},
        {32, 1, "offset 32: record 2: first child 1 is reached a second time"},
        {16, 0, "offset 24: record 1: nothing leads to it, nor to those up to record 3"},
        {44, 127, "offset 40: record 3: label offset 127 lies outside the file"},
        {55, 'a', "offset 40: record 3: label comes before that of its sibling before it"},
        {58, 'Z', "offset 40: record 3: value is not terminated"},
        {36, 30, "offset 40: record 3: overlaps the strings, which begin at offset 46"},
        {36, 0, "offset 32: record 2: label offset 0 lies among the records"},
        {49, 0, "offset 24: record 1: label is empty"},
        {55, 'b', "offset 40: record 3: label begins with the same byte as its sibling before it"},
        {34, 0x10, "offset 32: record 2: value distance 1 ends in the label"},
        {39, 0, "offset 40: record 3: nothing leads to it"},
        {47, 0x40, "offset 40: record 3: next sibling 4 lies beyond the records"},
    };
    for (const auto &[offset, byte, fault] : rows) {
        std::string bad = good;
        bad[offset] = byte;
        writeFile("t.db", bad);
        const std::string printed = run("check t.db");
        EXPECT_NE(printed.find("t.db: " + fault + "\n"), std::string::npos) << printed;
        EXPECT_TRUE(printed.ends_with("=1")) << printed;
        EXPECT_TRUE(run("dump t.db").starts_with("orv-textdb: t.db is damaged at offset "));
    }
    writeFile("t.db", "another tool's  " + good.substr(16));
    EXPECT_EQ(run("check t.db"), "orv-textdb: t.db: warning: the header is not that of orv-textdb\n"
                                 "t.db: 4 records, 2 texts, no fault\n=0");
    std::string counts = good;
    counts[12] = 5;
    writeFile("t.db", counts);
    EXPECT_EQ(run("check t.db"),
              "orv-textdb: t.db: warning: the header counts 5 records, but 4 are in use\n"
              "t.db: 4 records, 2 texts, no fault\n=0");
    std::string padded = "orvtext" + good.substr(7); // zeros in front of the strings
    padded.insert(48, 8, '\0');
    for (const size_t label : {20U, 28U, 36U, 44U})
        padded[label] = static_cast<char>(padded[label] + 8);
    writeFile("t.db", padded);
    EXPECT_EQ(run("check t.db"), "t.db: 4 records, 2 texts, no fault\n=0");
    writeFile("t.db", good.substr(0, 23));
    EXPECT_EQ(run("check t.db"), "t.db: offset 23: the file ends before its first record does\n=1");
}

TEST(TextDbTool, ComparesWithTemplates)
{
    writeFile("t.po", utf8Header + entry("a", "x") + entry("a.b_c:d", "x") + entry("z", "x"));
    ASSERT_EQ(run("build -o t.db t.po"), "t.po: 3 of 3 texts\n=0");
    writeFile("t.po", "# orv-check: used b:1, c.*: a program\n" + readFile("t.po") +
                          entry("b:1", "x") + entry("c.1", "x"));
    writeFile("1.htm", "{?a?}\n<a title='{?a.b_c:d?}{?{?no?}'>\n{??}{?z");
    writeFile("2.htm",
              "{?A.B_C:d?}{?a-b_c:d?}\n{?a?}{?z}{? z ?}{?x(y)?}<script>if({?1:2}) {?}\n}{?half\n");
    const std::string broken =
        "2.htm:1: A.B_C:d (there is a.b_c:d)\n"
        "2.htm:1: {?a-b_c:d?} is no text field: a field names only letters, digits, '.', '_' and "
        "':' (there is a.b_c:d)\n"
        "2.htm:2: {?z} is no text field: a field ends in \"?}\" (there is z)\n"
        "2.htm:2: {? z ?} is no text field: a field has no blanks (there is z)\n"
        "2.htm:2: {?x(y)?} is no text field: a field names only letters, digits, '.', '_' and "
        "':'\n"
        "2.htm:2: {?1:2} is no text field: a field ends in \"?}\"\n";
    for (const std::string file : {"t.db", "t.po"})
        EXPECT_EQ(run("fields --unused " + file + " 1.htm 2.htm"),
                  "1.htm:2: no\n1.htm:3: \n" + broken + file + ": unused: z\n=1");
    EXPECT_EQ(run("fields t.htm t.po"),
              "orv-textdb: cannot read t.htm: No such file or directory\n=1");
}

// Texts in their places, each with what is said of it there.
TEST(TextDbTool, WarnsOfTextsThatBreakPages)
{
    const std::string quote = "ends the quote that it stands in";
    const std::string value = "begins a variable or value";
    const std::string at = " (t.htm:1)";
    const std::string rows[][3] = {
        {"x <? echo", "{?a?}", "begins a command: write &lt; for the <"},
        {"x {?b.c?}", "{?a?}", "holds {?, which is not replaced once more: take it out"},
        {"say \\\"it\\\" for $1", "{?a?}", ""}, // page text holds what it likes
        {"it's", "<?echo '{?a?}'?>", quote + at + ": use another quote, or write &#39; or &quot;"},
        {"it's", "\n<?echo \"{?a?}\"?>", ""},
        {"$1 or $$", "<?echo `{?a?}`?>", value + at + ": write $$ for a dollar sign"},
        {"5 $$", "<?if eq $var:x \"{?a?}\" a b?>", ""},
        {"price in $", "<?echo '{?a?}5'?>", value + at + ": write $$ for a dollar sign"},
        {"price in $", "<?echo '{?a?} 5'?>", ""},
        {"or", "<?echo 'price in ${?a?}'?>", value + at + ": write $$ for a dollar sign"},
        {"5", "<?echo 'price in $${?a?}'?>", ""},
        {"5", "<?echo $var:x{?a?}?>",
         "lengthens the variable or value in front of it" + at +
             ": the template must change: tell its author"},
        {"why <", "{?a?}?</p>", "begins a command" + at + ": write &lt; for the <"},
        {"why <", "{?a?} ?</p>",
         "does not stay in page text" + at + ": write &lt; for <, &#39; and &quot; for quotes"},
        {"two words", "<?echo {?a?}?>",
         "ends the argument at its blank" + at + ": the template must change: tell its author"},
        {"it's", "<?echo {?a?}?>",
         "opens a quote" + at + ": use another quote, or write &#39; or &quot;"},
        {"a]b", "<?echo $var:x[{?a?}]?>",
         "breaks the index that it stands in" + at + ": leave quotes, brackets and blanks out"},
        {"a b", "<?echo $var:x[{?a?}]?>",
         "breaks the index that it stands in" + at + ": leave quotes, brackets and blanks out"},
        {"why?>", "<?query 'x' '<p>{?a?}</p>'?>",
         "ends the command" + at + ": write &gt; for the >"},
        {"<b>50 %</b> & more", "<?echo '<?echo \"x{?a?}y\"?>'?>", ""},
        {"say \\\"it\\\"", "<?echo '<?echo \"x{?a?}y\"?>'?>",
         quote + at + ": use another quote, or write &#39; or &quot;"},
        {"it's", "<p title='{?a?}'>",
         "does not stay in an attribute in single quotes" + at +
             ": write &lt; for <, &#39; and &quot; for quotes"},
        {"it's", "<p title=\"{?a?}\">", ""},
        {"it's", "<script>x = '{?a?}'</script>",
         "does not stay in a script's string in single quotes" + at +
             ": use another quote, or write a backslash in front of it"},
        {"it's", "<style>p::before { content: '{?a?}' }</style>",
         "does not stay in a style's string in single quotes" + at +
             ": use another quote, or write a backslash in front of it"},
        {"it's", "<style>/* it's */ p::before { content: \"{?a?}\" }</style>", ""},
        {"say \\\"it\\\"", "<p style='content: \"{?a?}\"'>",
         "does not stay in a style's string in double quotes, in an attribute in single quotes" +
             at + ": use another quote, or write a backslash in front of it"},
    };
    for (const auto &[text, page, warning] : rows) {
        writeFile("t.po", utf8Header + entry("a", text));
        writeFile("t.htm", page);
        EXPECT_EQ(
            run("build -o t.db t.po --templates t.htm"),
            (warning.empty() ? "" : "t.po:3: warning: id \"a\": " + warning + " [text-breaks]\n") +
                "t.po: 1 of 1 texts\n=0")
            << text << " in " << page;
    }
}

// Translations, each with what is said of it; sound ones beside.
TEST(TextDbTool, JudgesTranslationsByTheirSource)
{
    const std::string take = ", which the source text has not: take it out";
    const std::string takeAll = ", which the source text has not: take them out";
    const std::string tags = ": put the source text's tags around the same words";
    const std::string entity = ", which is no entity: ";
    const struct {
        std::string source, text;
        std::string told; // the kind, ": " and what is said
        std::string flags = "";
    } rows[] = {
        {"$1 of $2 files", "von $2 Dateien $1", ""},
        {"$1 of $2 files", "$1 Dateien",
         "text-reference: lacks $2: put it where its value belongs"},
        {"$1 of $2 files", "$1 von $3 Dateien",
         "text-reference: has $3 in the place of $2: write it as the source text does"},
        {"$1 of $2 files", "$1 Dateien", "", "#, no-text-reference\n"},
        {"$1 of $2 files", "$1 Dateien", "", "# orv-textdb: no-text-reference\n"},
        {"for $var:user", "für $var:wen",
         "text-reference: has $var:wen in the place of $var:user: write it as the source text "
         "does"},
        {"of $var:l[1] ", "$var:l[2] ",
         "text-reference: has $var:l[2] in the place of $var:l[1]: "
         "write it as the source text does"},
        {"costs $5", "kostet 5 $", ""},
        {"costs $5.00 or $100", "kostet 5,00 $ oder 100 $", ""},
        {"%d of %s", "%s: %d",
         "text-reference: has %s in front, but the source text begins with %d, and each takes the "
         "value whose turn it is: keep their order"},
        {"%1$d of %2$s", "%2$s: %1$d", ""},
        {"%.2f of 100 % done", "zu 100 % fertig",
         "text-reference: lacks %.2f: put it where its value belongs"},
        {"100% discount", "100 % de descuento", ""},
        {"{0} and {name}", "{name} und %(n)s",
         "text-reference: has %(n)s in the place of {0}: write it as the source text does"},
        {"1 { 2", "1 kleiner 2", ""},
        {"no value", "kein {x} Wert", "text-reference: has {x}" + take},
        {"<b>a</b> and <i>b</i>", "<i>b</i> und <b>a</b>", ""},
        {"a <b>word</b>", "ein Wort", "text-tags: lacks <b> and </b>" + tags},
        {"a <b>word</b>", "ein <b>Wort", "text-tags: lacks </b>" + tags},
        {"a word", "ein <em>Wort</em>", "text-tags: has <em> and </em>" + takeAll},
        {"<i>a</i> word", "<b>a <em>b</b>",
         "text-tags: has <b>, <em> and </b> in the place of <i> and </i>" + tags},
        {"a <b>word</b>", "ein </b>Wort<b>",
         "text-tags: has </b> where it closes nothing: put them in the source text's order"},
        {"<b>a <i>b</i></b>", "<b>a <i>b</b></i>",
         "text-tags: has </b> inside of <i>: put them in the source text's order"},
        {"a <b>word</b>", "ein <b Wort</b>",
         "text-tags: has the tag <b without an end: write its >, or &lt; for a < that is to be "
         "seen"},
        {"<a href=\"x><b>2\">a</a><br>", "<A HREF='x'>ä</A><BR/>", ""},
        {"<a href=\"x\">a</a>", "<a>ä</a>",
         "text-tags: lacks href of <a>: copy the tag from the source text"},
        {"<area><base><br><col><embed><hr><img><input><link><meta><source><track><wbr>",
         "<wbr><track><source><meta><link><input><img><hr><embed><col><br><base><area>", ""},
        {"a long word", "ein lan<wbr>ges Wort, 1 < 2 <- x", ""},
        {"R&D &amp; more", "R&D &amp; &#228;&#xe4;&Auml;&nbsp;&ccaron;", ""},
        {"a&nbsp;b", "a&nbps;b",
         "text-entity: has &nbps;" + entity + "write &amp; for a & that is to be seen"},
        {"a&nbsp;b", "a& nbsp; &nbsp b &nbsp ;",
         "text-entity: has & nbsp;" + entity + "write &nbsp;|text-entity: has &nbsp" + entity +
             "write &nbsp;|text-entity: has &nbsp ;" + entity + "write &nbsp;"},
        {"a", "&#xd800;&#0;",
         "text-entity: has &#xd800;" + entity +
             "write &amp; for a & that is to be seen|text-entity: has &#0;" + entity +
             "write &amp; for a & that is to be seen"},
        {"<a href=\"?a=1&copy=2\">&odd;</a>", "<a href=\"?a=1&copy=2\">&odd;</a>", ""},
        {"Name: ", "Name:", "text-blank: lacks the blank that the source text ends with: add it"},
        {"Name:", " Name:",
         "text-blank: begins with a blank, which the source text does not: take it out"},
        {"Name: ", "名前：", ""},
        {" of ", "&nbsp;von\u00a0", ""},
        {"<!-- a --> <b>a</b>", "<!-- a --> ä", "text-tags: lacks <b> and </b>" + tags},
        {"a", " ", "text-blank: has nothing but blanks: translate it, or note it as empty"},
        {"a\\tb", "a\\vb\\302\\205\u200d",
         "text-control: has the character U+000B, which is none that is seen: take it out|"
         "text-control: has the character U+0085, which is none that is seen: take it out"},
        {"a", "b\\177c",
         "text-control: has the character U+007F, which is none that is seen: take it out"},
        {"a", "\ufffd",
         "text-control: has the character U+FFFD, which is what a lost one becomes: write it "
         "again"},
        {"a", "ä <b>&auml;</b>",
         "text-tags: has <b> and </b>" + takeAll +
             "|text-length: has 3 characters, and 2 are the most: shorten it",
         "#, max-length:2\n"},
        {"Is it?", "Είναι;", ""},
        {"It is.", "是的。", ""},
        {"\"It is.\"", "「是」", "text-ending: lacks the \".\" that the source text ends in"},
        {"It is...", "มัน", ""},
        {"It is:", "Es ist!", "text-ending: ends in \"!\", and the source text in \":\""},
        {"Wait", "Warten…", "text-ending: ends in ..., which the source text does not"},
    };
    std::string po = utf8Header;
    std::string source = utf8Header;
    std::map<std::string, std::string> told;
    const auto quoted = [](std::string text) {
        for (size_t at = text.find('"'); at != std::string::npos; at = text.find('"', at + 2))
            text.insert(at, "\\");
        return text;
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        const std::string id = "r." + std::to_string(i);
        po += rows[i].flags + "# orv-textdb: source \"" + quoted(rows[i].source) + "\"\n" +
              entry(id, quoted(rows[i].text));
        source += entry(id, quoted(rows[i].source));
    }
    writeFile("t.po", po);
    writeFile("en.po", source);
    const std::string said = run("build -o t.db t.po");
    EXPECT_EQ(run("build -o t.db t.po --source en.po"), said); // in the place of the notes
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);) {
        const size_t id = line.find("id \"");
        const size_t kind = line.rfind(" [");
        if (id == std::string::npos || kind == std::string::npos)
            continue;
        const size_t problem = line.find("\": ", id);
        std::string &all = told[line.substr(id + 4, problem - id - 4)];
        all += (all.empty() ? "" : "|") + line.substr(kind + 2, line.size() - kind - 3) + ": " +
               line.substr(problem + 3, kind - problem - 3);
        EXPECT_EQ(line.find(": hint: ") != std::string::npos,
                  line.find("text-ending") != std::string::npos);
    }
    for (size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(told["r." + std::to_string(i)], rows[i].told)
            << rows[i].source << " / " << rows[i].text;
}

// A form's field takes no more characters than its maxlength says.
TEST(TextDbTool, KnowsTheLimitsOfForms)
{
    writeFile("t.po", utf8Header + entry("a", "&auml;<b>bcd</b>") + entry("b", "two") +
                          "#, max-length:1\n" + entry("c", "c2") + entry("d", "four"));
    writeFile("t.htm", "<input value=\"{?a?}\" class='<?echo x?>' maxlengths=9 "
                       "MAXLENGTH = 3>{?a?}\n"
                       "<input maxlength='2' placeholder='{?d?}' value='{?c?}'>"
                       "<textarea name=x maxlength=2>\n{?b?}</textarea>{?d?}");
    const auto told = [](const char *place, const char *length, const char *most) {
        return std::string("t.po:") + place + "has " + length + " characters, and " + most +
               " are the most: shorten it [text-length]\n";
    };
    EXPECT_EQ(run("build -o t.db t.po --templates t.htm"),
              told("3: warning: id \"a\": ", "4", "3") + told("5: warning: id \"b\": ", "3", "2") +
                  told("8: warning: id \"c\": ", "2", "1") + "t.po: 4 of 4 texts\n=0");
    EXPECT_EQ(run("pot t.po t.htm | grep -A1 '^#,'"),
              "#, max-length:3\nmsgid \"a\"\n--\n#, max-length:2\nmsgid \"b\"\n--\n"
              "#, max-length:1\nmsgid \"c\"\n=0");
    writeFile("s.po", utf8Header + "#, max-length:3\n" + entry("d", "4"));
    EXPECT_EQ(run("build -o t.db --source s.po t.po"),
              told("8: warning: id \"c\": ", "2", "1") + told("10: warning: id \"d\": ", "4", "3") +
                  "t.po: 4 of 4 texts\n=0");
}

// A language with accents and longer texts, in which nothing is found but what the source has.
TEST(TextDbTool, MakesALanguageForLooking)
{
    writeFile("en.po", entry("", "Content-Type: text/plain; charset=UTF-8\\nLanguage: en\\n") +
                           entry("a", " Of $1 <b>Files</b>&nbsp;%d {name} $$5: ") +
                           entry("b", "en") + entry("c", "it\\\\'s") + entry("d", "x") +
                           "#, fuzzy\n" + entry("e", "Maß."));
    writeFile("t.htm",
              "{?a?}<?if eq {?b?} en x?><script>x = '{?c?}'</script><?echo $var:x[{?d?}]?>");
    EXPECT_EQ(run("pseudo en.po t.htm >xx.po; " ORV_TEXTDB
                  " build -o htmltext_xx.db xx.po --templates t.htm; " ORV_TEXTDB
                  " dump htmltext_xx.db | sed 1,/^$/d; grep -c '^# orv-textdb: source' xx.po"),
              "xx.po: 5 of 5 texts\n"
              "msgid \"a\"\nmsgstr \" [~~~~~~~~~~Öƒ $1 <b>Ƒîļéš</b>&nbsp;%d {name} $$5:] \"\n\n"
              "msgid \"b\"\nmsgstr \"en\"\n\nmsgid \"c\"\nmsgstr \"[~~îţ\\\\'š]\"\n\n"
              "msgid \"d\"\nmsgstr \"x\"\n\nmsgid \"e\"\nmsgstr \"[~~Ḿåß.]\"\n5\n=0");
}

TEST(TextDbTool, TellsWhatIsLeft)
{
    writeFile("en.po", utf8Header + entry("a", "A") + entry("b", "B") + entry("c", "C") +
                           "# orv-textdb: empty\n" + entry("d", ""));
    writeFile("it.po",
              utf8Header + entry("b", "") + "#, fuzzy\n" + entry("c", "C") + entry("d", "d"));
    const std::string left = "it.po:3: b\nit.po:6: c (fuzzy)\nit.po: a\n";
    const std::string less = "orv-textdb: it.po: 25.0 % of the texts are translated, less than ";
    const std::string rows[][2] = {
        {"--missing --fail-under 25 it.po en.po", left + "=0"},
        {"--missing --fail-under 25.5 it.po en.po", less + "25.5 %\n" + left + "=1"},
        {"--fail-under 101 it.po",
         "orv-textdb: --fail-under needs a number from 0 to 100, not '101'\n=2"},
        {"--json --missing it.po en.po | grep -A9 '\"missingIds\"' | tr -d '\\n '",
         "\"missingIds\":[\"b\",\"a\"],\"fuzzyIds\":[\"c\"]},{\"file\":\"en.po\",--"
         "\"missingIds\":[],\"fuzzyIds\":[]}]=0"},
        {"x_it.db it.po", // which lacks what the database has
         "file     language  translated  fuzzy  missing     of  longest texts\n"
         "x_it.db  it                 4      0        0      4  a 1, b 1, c 1\n"
         "it.po                       1      1        2      4  c 1, d 1\n=0"},
    };
    ASSERT_EQ(run("build -o x_it.db en.po"), "en.po: 4 of 4 texts\n=0");
    for (const auto &[arguments, told] : rows)
        EXPECT_EQ(run("status " + arguments), told) << arguments;
}

TEST(TextDbTool, ListsWordsThatNoFieldStandsFor)
{
    writeFile("1.htm", "<h1>Hard\n coded</h1>\n<title>x {?a?} Any</title>\n<input value=Send "
                       "type=submit/><a title=\"{?a?} &nbsp; 5\" href=\"words\">12 &copy;</a>");
    writeFile("2.frm", "<script>x = 'words'</script>{?a?}<?eq 1 2 `<img alt=\"A sign` 'No sign'?>");
    EXPECT_EQ(run("pot --hard-coded 1.htm 2.frm"),
              "1.htm:1: Hard coded\n1.htm:3: Any\n1.htm:4: value: Send\n2.frm:1: alt: A sign\n"
              "2.frm:1: No sign\n=1");
    writeFile("1.htm",
              "<p alt=Ab title=Ab placeholder=Ab label=Ab summary=Ab aria-label=Ab data-x=Ab"
              " aria-description=Ab aria-placeholder=Ab aria-roledescription=Ab"
              " aria-valuetext=Ab>");
    EXPECT_EQ(run("pot --hard-coded 1.htm | wc -l"), "10\n=0");
    writeFile("1.htm", "\xEF\xBB\xBF{?a?} \u2714\uFE0F \uE001");
    EXPECT_EQ(run("pot --hard-coded 1.htm"), "=0");
    runCommand("exec 3>&- 4>&- 5>&-; for n in 6 9; do (ulimit -n $n; " ORV_TEXTDB
               " pot --hard-coded 1.htm 1.htm 1.htm 1.htm 1.htm; echo $?); done");
    EXPECT_EQ(readFile("out"), "1\n0\n");
}

// The language of a file, by its header and its name.
TEST(TextDbTool, ComparesTheLanguageWithNames)
{
    const auto of = [](const std::string &language) {
        return entry("",
                     "Content-Type: text/plain; charset=UTF-8\\nLanguage: " + language + "\\n") +
               entry("a", "x");
    };
    const auto warning = [](const std::string &language, const std::string &path,
                            const std::string &name, const std::string &file) {
        return file + ": warning: its header says Language: " + language + ", but the name of " +
               path + " says " + name + ": correct one of them [text-language]\n";
    };
    const std::string rows[][4] = {
        {"de", "de.po", "htmltext_de.db", ""},
        {"pt_BR", "pt_BR.po", "htmltext_pt.db", ""},
        {"de", "texts.po", "x.db", ""},
        {"", "de.po", "x.db", ""},
        {"it", "de.po", "htmltext_it.db", warning("it", "de.po", "de", "de.po")},
        {"it", "site.it.po", "htmltext_de.db", warning("it", "htmltext_de.db", "de", "site.it.po")},
    };
    for (const auto &[language, file, database, told] : rows) {
        writeFile(file, of(language));
        const std::string built = file + ": 1 of 1 texts\n=0";
        EXPECT_EQ(run("build -o " + database + " " + file), told + built);
    }
}

// Three rounds of changes of the source, with gettext's own tools in between.
TEST(TextDbTool, FollowsTheSource)
{
    const std::string en = "# orv-check: used x, e.*: a program.\n" + utf8Header;
    writeFile("1.htm", "<p title=\"{?a?}\">{?b?}\n<script>x = '{?b?}'</script>"
                       "<?if eq {?c?} x {?d?}?>\n{?c?}");
    writeFile("en.po", en + "# Short.\n" + entry("a", "Save") + "#. In the box.\n" +
                           entry("b", "Two\\nlines") + entry("c", "en") + "# orv-textdb: empty\n" +
                           entry("d", "") + entry("e.1", "E") + entry("f", "F"));
    EXPECT_EQ(
        run("pot en.po 1.htm >en.pot; msgfmt -o /dev/null en.pot; sed '1,/^$/{/Date: 20..-..-.. "
            "..:..[+-]/!d}' en.pot | sed 's/Date.*/Date/'"),
        "orv-textdb: en.po:17: unused: f\n\"POT-Creation-Date\n"
        "# orv-textdb: source \"Save\"\n#. Save\n#. Short.\n"
        "#. Stands in an attribute: no tags, and not the quote around it.\n"
        "#: 1.htm:1\nmsgid \"a\"\nmsgstr \"\"\n\n"
        "# orv-textdb: source \"Two\\nlines\"\n#. Two\n#. lines\n#. In the box.\n"
        "#. Stands in a script: not the quote around it, no line end.\n"
        "#: 1.htm:1 1.htm:2\nmsgid \"b\"\nmsgstr \"\"\n\n"
        "# orv-textdb: source \"en\"\n#. en\n"
        "#. Stands in a comparison: templates compare it with other texts.\n"
        "#: 1.htm:2 1.htm:3\nmsgid \"c\"\nmsgstr \"\"\n\n"
        "# orv-textdb: source \"\"\n#: 1.htm:2\nmsgid \"d\"\nmsgstr \"\"\n\n"
        "# orv-textdb: source \"E\"\n#. E\nmsgid \"e.1\"\nmsgstr \"\"\n=0");

    ASSERT_EQ(runCommand("msginit --no-translator -i en.pot -l it -o it.po &&"
                         "sed -i '/^msgid \"a\"/{n;s/\"\"/\"Salva\"/};"
                         "/^msgid \"b\"/{i # Mine.\nn;s/\"\"/\"Due\"/};"
                         "/^msgid \"c\"/{n;s/\"\"/\"it\"/};"
                         "/^msgid \"d\"/i # orv-textdb: empty\n$a # Last.' it.po"),
              0)
        << readFile("err");
    EXPECT_EQ(run("update en.po it.po en.po"), "it.po: 6 texts, 1 new, 0 changed, 0 gone\n=0");
    EXPECT_TRUE(readFile("it.po").ends_with(entry("f", "") + "\n# Last.\n")) << readFile("it.po");
    EXPECT_EQ(run("status it.po en.po"),
              "file   language  translated  fuzzy  missing     of  longest texts\n"
              "it.po  it                 4      0        2      6  a 5, b 3, c 2\n"
              "en.po                     6      0        0      6  b 9, a 4, c 2\n=0");
    EXPECT_TRUE(run("build -o it.db it.po && " ORV_TEXTDB " dump it.db")
                    .ends_with("\n\n# orv-textdb: empty\n" + entry("d", "") + "=0"));

    EXPECT_EQ(run("update it.po en.po"),
              "it.po: error: is a translation, by the notes of its source; the first file must be "
              "the source\n=1");
    EXPECT_EQ(run("update en.pot en.po"), "en.po: has the source's texts, left as it is\n=0");

    // a changes and c goes; the file passes through gettext's tools in between.
    const auto update = [&](const std::string &entries) {
        writeFile("en.po", en + entries);
        EXPECT_EQ(runCommand(ORV_TEXTDB
                             " pot en.po 1.htm >en.pot; msgcat it.po -o it.po && "
                             "msgmerge -q -U --backup=off it.po en.pot && msgattrib it.po -o it.po"
                             " && " ORV_TEXTDB " update en.po it.po && msgfmt -c it.po"),
                  0)
            << readFile("err");
        const std::string po = readFile("it.po");
        EXPECT_NE(po.find("# Mine.\n"), std::string::npos) << po;
        return po;
    };
    std::string po = update("# Short.\n" + entry("a", "Store") + entry("b", "Two\\nlines"));
    EXPECT_NE(po.find("#. Store\n#. Short.\n#. Stands in an attribute"), std::string::npos) << po;
    EXPECT_NE(po.find("#, fuzzy\n#| msgid \"Save\"\nmsgid \"a\"\nmsgstr \"Salva\"\n"),
              std::string::npos)
        << po;
    EXPECT_NE(po.find("#~ msgid \"c\"\n#~ msgstr \"it\"\n"), std::string::npos) << po;
    // It changes once more, and c is there again with another text.
    po = update(entry("a", "Keep") + entry("b", "Two\\nlines") + entry("c", "english"));
    EXPECT_NE(po.find("#| msgid \"Save\"\nmsgid \"a\""), std::string::npos) << po;
    EXPECT_NE(po.find("#| msgid \"en\"\nmsgid \"c\"\nmsgstr \"it\"\n"), std::string::npos) << po;
    // The translator has looked at all of them: nothing is left to do.
    ASSERT_EQ(runCommand("msgattrib --clear-fuzzy --clear-previous it.po -o it.po"), 0);
    po = update(entry("a", "Keep") + entry("b", "Two\\nlines") + entry("c", "english"));
    EXPECT_EQ(po.find("fuzzy"), std::string::npos) << po;
    EXPECT_NE(run("status --json it.po")
                  .find("\"translated\": 3,\n    \"fuzzy\": 0,\n    \"missing\": 0,\n    \"of\": "
                        "3,\n    \"longest\": [\n      {\n        \"id\": \"a\""),
              std::string::npos);
    writeFile("en.po", en + "#. Stands in a comparison: templates compare it with other texts.\n" +
                           entry("b", "Two\\twords"));
    EXPECT_EQ(run("update en.po it.po; grep -c '^#~ msgid \\|^#. Stands in a comp' it.po"),
              "it.po: 1 texts, 0 new, 1 changed, 2 gone\n4\n=0");
    writeFile("notes.po", "# A note.\n");
    EXPECT_EQ(run("update en.po notes.po"), "notes.po: 1 texts, 1 new, 0 changed, 0 gone\n=0");
}

// What a PO file holds behind its header when update has followed the sources one by one.
TEST(TextDbTool, DoesTheWholeRound)
{
    writeFile("web/sub/a.page", "{?a?}<input value=\"{?b?}\" maxlength=5>");
    writeFile("web/old/b.htm", "{?gone?}");
    writeFile("web/.b.htm", "{?gone?}");
    writeFile("en.po", utf8Header + entry("a", "one") + entry("b", "two"));
    writeFile("pl.po", utf8Header + entry("a", "jeden"));
    writeFile("orv-check.json",
              R"({"docroot": "web", "exclude": ["**/old"], "databases": {"main": "no.db"},
        "texts": ["en.po", "de.po", "pl.po"], "textDatabases": "db/x_*.db"})");
    const std::string done = "en.po: db/x_en.db: 2 of 2 texts\n"
                             "de.po: 2 new, 0 changed, 0 gone; no text is translated yet\n"
                             "pl.po: 1 new, 0 changed, 0 gone; db/x_pl.db: 1 of 2 texts, 1 not "
                             "translated\n";
    EXPECT_EQ(run("sync --dry-run").substr(0, 62),
              done.substr(0, 32) + "de.po: would be begun\npl.po: 1");
    EXPECT_FALSE(std::filesystem::exists("de.po") || std::filesystem::exists("db"));
    EXPECT_EQ(run("sync"), done + "=0");
    for (const std::string place :
         {"#: sub/a.page:1\n#, max-length:5\nmsgid \"b\"", "Language: de\\n"})
        EXPECT_NE(readFile("de.po").find(place), std::string::npos) << place;
    const auto written = std::filesystem::last_write_time("de.po");
    EXPECT_EQ(run("sync"), "nothing to do: 3 languages are up to date\n=0");
    EXPECT_EQ(std::filesystem::last_write_time("de.po"), written);
    writeFile("web/sub/a.page", "\n{?a?}{?c?}");
    EXPECT_EQ(run("sync"), "orv-textdb: sub/a.page:2: en.po has no text for c\n"
                           "de.po: comments and places; no text is translated yet\n"
                           "pl.po: comments and places\n=1");
    EXPECT_EQ(readFile("de.po").find("max-length"), std::string::npos);
    writeFile("de.po", "x");
    EXPECT_EQ(run("sync").substr(50, 16), "de.po:1: error: ");
    const std::string refused[][2] = {
        {R"({"texts": ["a.db"]})", "orv-check.json: 'texts' names no PO file"},
        {R"({"texts": ["no.po"]})", "orv-check.json:1: there is no file no.po"},
        {R"({"docroot": "no", "texts": ["en.po"]})", "orv-check.json:1: there is no folder no"},
        {"{\n\"text\": []}", "orv-check.json:2: there is no setting 'text', only $schema, docroot, "
                             "databases, functions, texts, textDatabases, variables, kinds, "
                             "overrides, pages, routes, exclude"},
        {R"({"docroot": "db", "texts": ["en.po", "db/x_en.db"], "textDatabases": "db/x_*.db"})",
         "db/x_en.db is an input, it is not replaced"},
        {R"({"docroot": "db", "texts": ["en.po", "db/en.po"], "textDatabases": "db/x_*.db"})",
         "db/x_en.db would be the database of another language, too: db/en.po"},
        {R"({"docroot": "db", "texts": ["en.po"], "textDatabases": "en.po/*.db"})",
         "cannot write en.po/en.db: Not a directory"},
    };
    for (const auto &[file, message] : refused) {
        writeFile("orv-check.json", file);
        EXPECT_EQ(run("sync"), "orv-textdb: " + message + "\n=1");
    }
    writeFile("orv-check.json", R"({"docroot": "db", "texts": ["pl.po", "en.po"]})");
    EXPECT_TRUE(run("sync").starts_with("pl.po: error: is a translation, by the notes"));
    std::filesystem::remove("orv-check.json");
    EXPECT_EQ(run("sync"), "orv-textdb: there is no orv-check.json here or in a folder above; "
                           "'orv-check --init' writes one\n=1");
}

TEST(TextDbTool, KeepsWhatTranslatorsHaveMade)
{
    const auto of = [](const std::string &text) {
        return "# orv-textdb: source \"" + text + "\"\n";
    };
    const auto shown = [&](const std::string &text) { return of(text) + "#. " + text + "\n"; };
    const std::string mark = "# orv-textdb: marked \"3826002220\"\n"; // of "a"
    const std::string former = "# orv-textdb: former \"A\"\n";
    const std::string attribute =
        "#. Stands in an attribute: no tags, and not the quote around it.\n";
    const std::string words = "A text of  some words, so many that its note has to go on somewhere";
    const struct {
        const char *what;
        std::vector<std::string> sources;
        std::string target, wanted;
    } rows[] = {
        {"lines that end in a backslash, blanks at the edges",
         {entry("a", "C:\\\\\\n x\\n\\ny\\t\\177\\n\\\\")},
         entry("a", "a"),
         of("C:\\\\\\n x\\n\\ny\\t\\177\\n\\\\") +
             "#. \"C:\\\\\"\n#. \" x\"\n#.\n#. \"y\\t\\177\"\n#. \"\\\\\"\n" + entry("a", "a")},
        {"a source that changes",
         {entry("x", "B")},
         of("A") + entry("x", "a"),
         of("B") + former + mark + "#. B\n#, fuzzy\n#| msgid \"A\"\n" + entry("x", "a")},
        {"and is back later",
         {entry("x", "B"), entry("x", "C"), entry("x", "A")},
         of("A") + entry("x", "a"),
         shown("A") + entry("x", "a")},
        {"which was fuzzy before",
         {entry("x", "B"), entry("x", "A")},
         of("A") + "#, fuzzy\n" + entry("x", "a"),
         of("A") + former + "#. A\n#, fuzzy\n#| msgid \"A\"\n" + entry("x", "a")},
        {"and the translation is another",
         {entry("x", "A")},
         of("B") + former + mark + "#, fuzzy\n" + entry("x", "b"),
         of("A") + former + mark + "#. A\n#, fuzzy\n#| msgid \"A\"\n" + entry("x", "b")},
        {"an id that is renamed",
         {entry("new", "A") + entry("other", "A") + entry("third", "B")},
         of("A") + entry("old", "a") + "# Mine.\n" + of("A") + entry("old2", "a2") + of("C") +
             entry("old3", "c"),
         "# orv-textdb: source \"A\"\n#. A\n#, fuzzy\n" + entry("new", "a") + "\n# Mine.\n" +
             shown("A") + "#, fuzzy\n" + entry("other", "a2") + "\n" + shown("B") +
             entry("third", "") + "\n" + of("A") +
             "#~ msgid \"old\"\n#~ msgstr \"a\"\n\n# Mine.\n" + of("A") +
             "#~ msgid \"old2\"\n#~ msgstr \"a2\"\n\n" + of("C") +
             "#~ msgid \"old3\"\n#~ msgstr \"c\"\n"},
        {"a text like what is said of places",
         {entry("x", "Stands in the corner")},
         entry("x", "a"),
         shown("Stands in the corner") + entry("x", "a")},
        {"a field that has moved",
         {of("A") + "#. A\n#: t.htm:1\n" + entry("x", "")},
         shown("A") + attribute + "#: u.htm:2\n" + entry("x", "a"),
         shown("A") + "#: t.htm:1\n" + entry("x", "a")},
        {"a source without places",
         {entry("x", "A")},
         shown("A") + attribute + "#: u.htm:2\n" + entry("x", "a"),
         shown("A") + attribute + "#: u.htm:2\n" + entry("x", "a")},
        {"an id that is gone for a while",
         {entry("y", "Y"), entry("x", "A")},
         "# orv-textdb: empty\n# Not in this language.\n" + entry("x", ""),
         "# orv-textdb: empty\n# Not in this language.\n" + shown("A") + entry("x", "")},
        {"texts that are empty and to be looked at again",
         {entry("w", "W") + entry("x", "B") + entry("y", "Y")},
         "#, fuzzy\n" + entry("w", "") + "# orv-textdb: empty\n" + of("A") + entry("x", "") +
             "# orv-textdb: empty\n" + of("Y") + entry("z", ""),
         shown("W") + entry("w", "") + "\n" + shown("B") + entry("x", "") + "\n" + shown("Y") +
             entry("y", "") + "\n# orv-textdb: empty\n" + of("Y") +
             "#~ msgid \"z\"\n#~ msgstr \"\"\n"},
        {"ids that are gone without a translation",
         {entry("x", "A")},
         entry("y", "") + entry("z", "z"),
         shown("A") + entry("x", "") + "\n#~ msgid \"z\"\n#~ msgstr \"z\"\n"},
        {"notes that a program has wrapped",
         {entry("x", words)},
         "# orv-textdb: source \"A text of\n# some words, so many that its note has\n"
         "# to go on somewhere\"\n# Mine.\n" +
             entry("x", "a"),
         "# orv-textdb: source \"A text of  some words, so many that its note has \"\n"
         "# orv-textdb: source.2 \"to go on somewhere\"\n# Mine.\n#. " +
             words + "\n" + entry("x", "a")},
        {"flags that gettext does not know",
         {"# orv-textdb: no-text-length\n#, max-length:20, no-text-tags\n" + entry("x", "A") +
          entry("y", "B")},
         "#, fuzzy, max-length:9, c-format, quote-unicode-check, no-text-blank\n" +
             entry("x", "a") + "#, max-length:3\n" + entry("y", "b"),
         shown("A") +
             "#, fuzzy, c-format, max-length:20, no-text-blank, no-text-length, "
             "no-text-tags\n" +
             entry("x", "a") + "\n" + shown("B") + "#, max-length:3\n" + entry("y", "b")},
        {"a note that somebody has cut",
         {entry("x", "A")},
         "# orv-textdb: source \"A\n" + mark + "# Mine.\n" + entry("x", "a"),
         of("A") + mark + "# Mine.\n#. A\n" + entry("x", "a")},
    };
    for (const auto &[what, sources, target, wanted] : rows) {
        writeFile("it.po", utf8Header + "\n" + target);
        for (const std::string &source : sources) {
            writeFile("en.po", utf8Header + source);
            EXPECT_EQ(runCommand(ORV_TEXTDB " update en.po it.po && cp it.po once.po && " ORV_TEXTDB
                                            " update en.po it.po && msgfmt -o /dev/null it.po &&"
                                            " cmp it.po once.po"),
                      0)
                << what << ": " << readFile("err") << readFile("out");
        }
        EXPECT_EQ(readFile("it.po"), utf8Header + "\n" + wanted) << what;
    }
    const std::string english =
        entry("", "Content-Type: text/plain; charset=UTF-8\\nLanguage: en\\n") + entry("x", "A");
    writeFile("en.po", english);
    writeFile("copy.po", english);
    writeFile("it.po", entry("", "Content-Type: text/plain; charset=UTF-8\\nLanguage: it\\n") +
                           entry("x", "A"));
    EXPECT_EQ(run("update en.po copy.po it.po"), "copy.po: has the source's texts, left as it is\n"
                                                 "it.po: 1 texts, 0 new, 0 changed, 0 gone\n=0");
}

TEST(TextDbTool, SaysWhyItDoesNothing)
{
    const std::string see = "; 'orv-textdb --help' shows the commands\n=2";
    const std::string get = "; usage: orv-textdb get FILE.db ID\n=2";
    const std::string build = "; usage: orv-textdb build -o FILE.db [--fuzzy] [--empty] [--source "
                              "SOURCE.po] INPUT.po [--templates TEMPLATE...]\n=2";
    const std::string missing = "cannot read none: No such file or directory\n";
    const std::string rows[][2] = {
        {"", "no command is given" + see},
        {"put", "unknown command 'put'" + see},
        {"get --what", "wrong option '--what'" + see},
        {"build t.po -o", "option '-o' needs a value" + see},
        {"get t.db", "an argument is missing" + get},
        {"build -o t.db t.po 2.htm", "an argument is too much" + build},
        {"get --fuzzy t.db a", "'get' takes no --fuzzy" + get},
        {"pseudo -o x t.po", "'pseudo' takes no --output; usage: orv-textdb pseudo SOURCE.po "
                             "[TEMPLATE...]\n=2"},
        {"get none a", missing + "=1"},
        {"get . a", "cannot read .: Is a directory\n=1"},
        {"check none", missing + "=1"},
        {"pot --hard-coded none", missing + "=1"},
        {"status none.db",
         missing.substr(0, 16) + ".db" + missing.substr(16) +
             "file  language  translated  fuzzy  missing     of  longest texts\n=1"},
        {"fields --unused t.db none 2.htm", missing + "2.htm:1: no\n=1"},
        {"build t.po", "the option -o is missing" + build},
        {"build -o t.db none", missing + "orv-textdb: t.db is not written\n=1"},
        {"build -o . t.po", "cannot write .: it is not a regular file\n=1"},
        {"build -o none/t.db t.po", "cannot write none/t.db: No such file or directory\n=1"},
        {"build -o t.db /dev/null",
         "cannot read /dev/null: it is not a regular file, and is read twice\n"
         "orv-textdb: t.db is not written\n=1"},
        {"update t.po byte.po", "cannot print byte.po: \"msgstr \\\"\\344\\\"\" is not UTF-8\n=1"},
        {"dump odd.db | tail -n 2",
         "odd.db: the text of the empty id is left out, PO has no place for it\nmsgid \"a\"\n"
         "msgstr \"\"\n=0"},
    };
    writeFile("t.po", utf8Header + entry("a", "x"));
    writeFile("byte.po", utf8Header + entry("a", "\\344"));
    writeFile("t.db", database({{"a", "x"}}));
    writeFile("odd.db", database({{"", "e"}, {"a", ""}}));
    writeFile("2.htm", "{?no?}");
    for (const auto &[arguments, printed] : rows)
        EXPECT_EQ(run(arguments), "orv-textdb: " + printed) << arguments;
    std::string words; // each of them an error
    for (int i = 0; i < 13; ++i)
        words += "word\n";
    writeFile("words.po", words);
    const std::string told = run("update t.po words.po");
    EXPECT_EQ(told.substr(told.find("words.po:9:")),
              "words.po:9: error: keyword \"word\" unknown\n"
              "orv-textdb: words.po: 4 more errors; is it a PO file?\n"
              "orv-textdb: words.po is not updated\n=1");
    EXPECT_TRUE(run("--version").starts_with("orv-textdb "));
}

TEST(TextDbFile, KeepsTheLimitsOfTheFormat)
{
    const size_t count = (1 << 20) - 1; // with the root as many records as can be numbered
    std::vector<std::string> ids;       // ascending
    const auto add = [&](auto &addMore, std::string front, size_t first) -> void {
        for (size_t i = first; i < first + 255 && i <= count; ++i) {
            ids.push_back(front + static_cast<char>(i - first + 1));
            addMore(addMore, ids.back(), (i + 1) * 255);
        }
    };
    add(add, "", 0);
    std::vector<TextEntry> entries;
    for (const std::string &id : ids)
        entries.push_back({id, "", 0});
    std::string file;
    size_t culprit;
    EXPECT_EQ(buildTextDb(std::span(entries).first(count), &file, &culprit), nullptr);
    EXPECT_TRUE(checkTextDb(file).faults.empty());
    EXPECT_STREQ(buildTextDb(entries, &file, &culprit),
                 "the database would need more than 1048576 records");

    const std::string text(1 << 26, 'x'), id(10000, 'i'); // sixteen texts, one memory
    entries.clear();
    for (size_t length = 1; length <= 16; ++length)
        entries.push_back({std::string_view(id).substr(0, length), text, 0});
    entries.push_back({id, "y", 0});
    EXPECT_STREQ(buildTextDb(entries, &file, &culprit),
                 "its place would lie beyond the 1073741823 bytes that a database can address");
    EXPECT_EQ(culprit, 16U);
    EXPECT_EQ(buildTextDb(std::span(entries).last(1), &file, &culprit), nullptr);
    EXPECT_EQ(checkTextDb(file).records, 4U); // the label is cut into a chain of three
    walkTextDb(file, [&](std::string_view found, std::string_view) { EXPECT_EQ(found, id); });
}
