/* tests/texts_test.cpp - text fields, languages and lookups in databases. */
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <random>

#include "interface/process.h"
#include "tests/harness.h"
#include "tools/textdb_file.h"

namespace
{
using TextMap = std::map<std::string, std::string>;

std::string database(const TextMap &texts)
{
    std::vector<TextEntry> entries;
    for (const auto &[id, text] : texts)
        entries.push_back({id, text, 0});
    std::string file;
    size_t culprit;
    EXPECT_EQ(buildTextDb(entries, &file, &culprit), nullptr);
    return file;
}

void forget(TextDatabase *db)
{
    unloadMmapTree(db->path, db->fd, &db->image);
    *db = {};
}

// A device with English as its own language, German, and a fallback.
class TextFields : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string root = folder + "/root";
        const std::string longText(20000, 'x');
        writeFile(root + "/etc/htmltext_en.db",
                  database({{"hi", "hello"},
                            {"a.b_c:d", "all"},
                            {"", "empty"},
                            {"none", ""},
                            {"cmd", "<?echo 1?>{?hi?}"},
                            {"long", "<?setvariable var:lang de?>" + longText + "{?hi?}"},
                            {"incl", "<?include b.htm?>" + longText + "<?echo y?>"},
                            {std::string(128, 'i'), "128"}}));
        writeFile(root + "/etc/htmltext_de.db", database({{"hi", "hallo"}, {"long", "lang"}}));
        writeFile(root + "/etc/htmltext_xx.db", "");
        writeFile(root + "/etc/htmltext.db", database({{"old", "fallback"}}));
        writeFile(root + "/var/x", "");
        std::filesystem::remove(root + "/var/htmltext.db");
        std::filesystem::create_symlink("../etc/htmltext_en.db", root + "/var/htmltext.db");
    }
    void TearDown() override
    {
        unlink((folder + "/root/proc/cmdline").c_str());
        forget(&htmlDB);
        forget(&htmlFallbackDB);
    }
};

struct FieldRow {
    std::string text;
    std::string page;
    std::string log;
};

std::string missing(const std::string &id)
{
    return "zarn - Fallback for DB-Field {?" + id + "?}\nt.htm: WARNING - HTML-Text entry {?" + id +
           "?} not found in database\n";
}
} // namespace

TEST_F(TextFields, FieldsAreReplaced)
{
    const std::string x20000(20000, 'x');
    const FieldRow rows[] = {
        {"{?hi?}{?a.b_c:d?}{??}[{?none?}]{?old?}", "helloallempty[]fallback",
         "zarn - Language entries not found for current language. "
         "Fallback database (/etc/htmltext.db) successfully opened\n"
         "zarn - Fallback for DB-Field {?old?}\n"},
        {"{?a-b?}{?hi}{? hi?}{{?hi?}}{", "{?a-b?}{?hi}{? hi?}{hello}{", ""},
        {"{?hi", "{?hi", ""},
        {"{?hi?", "{?hi?", ""},
        {"{?", "{?", ""},
        {"[{?gone?}]", "[]", missing("gone")},
        {"{?cmd?}", "1{?hi?}", ""},
        {"<?echo '{?hi?}'?>", "hello", ""},
        {"{?" + std::string(129, 'i') + "?}", "128", ""},
        {"{?hi?} {?long?}|{?hi?}", "hello " + x20000 + "{?hi?}|hallo", ""},
        {"{?incl?}|{?hi?}", "(hello)" + x20000 + "y|hello", ""},
        {repeated(".", 8188) + "{?hi?}{?a-", repeated(".", 8188) + "hello{?a-", ""},
        {repeated(".", 8191) + "{?hi?}" + repeated(".", 8185) + "{?hi?}",
         repeated(".", 8191) + "hello" + repeated(".", 8185) + "hello", ""},
    };
    for (const FieldRow &row : rows) {
        Host host;
        host.files = {{"t.htm", row.text}, {"b.htm", "({?hi?})"}};
        Orv_Interpreter_SetLanguage("en");
        const Outcome got = render(host);
        EXPECT_EQ(got.page, row.page) << row.text.substr(0, 60);
        EXPECT_EQ(got.log, row.log) << row.text.substr(0, 60);
    }
}

TEST_F(TextFields, AreMarkedForTranslators)
{
    const std::string span = "<span title=\"{?hi?} => t.htm Zeile 1\">hello</span>";
    struct {
        const char *name;
        std::string text;
        std::string pages[2];  // in mode 1 and in mode 2
    } const rows[] = {
        {"t.htm", "<p>{?hi?}</p>", {"<p>" + span + "</p>", "<p>" + span + "</p>"}},
        {"t.htm", "<a b='{?hi?}'>c</a>", {"<a b='hello'>c</a>", "<a b='-=hello {?hi?}=-'>c</a>"}},
        {"t.htm",
         "<SCRIPT>'{?hi?}'</Script>{?hi?}<style >{?hi?}</style>|",
         {"<SCRIPT>'hello'</Script>" + span + "<style >hello</style>|",
          "<SCRIPT>'-=hello {?hi?}=-'</Script>" + span + "<style >-=hello {?hi?}=-</style>|"}},
        {"t.js", "<p>{?hi?}</p>", {"<p>hello</p>", "<p>-=hello {?hi?}=-</p>"}},
        {"t.htm", "\n<a>\n{?hi?}<br", {"\n<a>\n<span title=\"{?hi?} => t.htm Zeile 3\">hello</span><br",
                                    "\n<a>\n<span title=\"{?hi?} => t.htm Zeile 3\">hello</span><br"}},
    };
    for (int mode = 1; mode <= 2; ++mode) {
        writeFile(folder + "/root/proc/cmdline", "tooltip=" + std::to_string(mode));
        for (const auto &row : rows) {
            Host host;
            host.files = {{row.name, row.text}};
            EXPECT_EQ(render(host, row.name).page, row.pages[mode - 1]) << row.text;
        }
    }
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "-=hello {?hi?}=-");
    EXPECT_EQ(strlen(Orv_Interpreter_LookupDBField("long")), 383U);
    EXPECT_EQ(Orv_Interpreter_LookupDBField("gone"), nullptr);
    Host cut;
    cut.files = {{"t.htm", "{?long?}"}};
    EXPECT_EQ(render(cut).page.size(), 383 - strlen("<?setvariable var:lang de?>"));
}

TEST_F(TextFields, LanguageIsChosen)
{
    Orv_Interpreter_SetLog(logTarget());
    EXPECT_EQ(Orv_Interpreter_SetLanguage("deu"), -1);
    EXPECT_EQ(Orv_Interpreter_SetLanguage("fr"), -1);
    EXPECT_EQ(Orv_Interpreter_SetLanguage("xx"), -1);
    EXPECT_EQ(takeLog(), "zarn - ERROR invalid language request for 'deu'\n"
                         "zarn - ERROR could not resolve link '/etc/htmltext_fr.db'\n"
                         "zarn - ERROR database file /etc/htmltext_xx.db not found for requested "
                         "language 'xx'\n");
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "hello");
    const char *image = htmlDB.image;
    EXPECT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
    EXPECT_EQ(Orv_Interpreter_SetLanguage(nullptr), 0);
    EXPECT_EQ(htmlDB.image, image);
    writeFile(folder + "/root/etc/htmltext_sh.db", "short");
    EXPECT_EQ(Orv_Interpreter_SetLanguage("sh"), 0);
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("old"), "fallback");
    EXPECT_EQ(Orv_Interpreter_LookupDBField("hi"), nullptr);
    EXPECT_EQ(Orv_Interpreter_LookupDBField(nullptr), nullptr);
    EXPECT_EQ(Orv_Interpreter_SetLanguage("de"), 0);
    EXPECT_STREQ(htmlDB.language, "de");
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "hallo");
    EXPECT_EQ(Orv_Interpreter_SetLanguage("fr"), -1);
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "hallo");
    std::filesystem::remove_all(folder + "/root/var");
    std::filesystem::remove(folder + "/root/etc/htmltext.db");
    forget(&htmlDB);
    forget(&htmlFallbackDB);
    takeLog();
    EXPECT_EQ(Orv_Interpreter_LookupDBField("hi"), nullptr);
    EXPECT_EQ(takeLog(), "zarn - ERROR could not resolve link '/var/htmltext.db'\n"
                         "zarn - ERROR - requested open/mmap of fallback database "
                         "(/etc/htmltext.db) failed!\n"
                         "zarn - $HTML_TOOLTIPS is not set!\n");
    Orv_Interpreter_SetLog(-1);
}

TEST_F(TextFields, AMappedDatabaseOutlivesItsFile)
{
    EXPECT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
    const std::string path = folder + "/root/etc/htmltext_en.db";
    writeFile(path + ".new", database({{"hi", "new"}}));
    std::filesystem::rename(path + ".new", path);
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "hello");
    const int next = dup(0);  // the lowest free descriptor tells whether one was left open
    close(next);
    EXPECT_EQ(Orv_Interpreter_SetLanguage("de"), 0);
    EXPECT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "new");
    EXPECT_EQ(dup(0), next);
    close(next);
}

TEST(TextDatabase, AgreesWithAMap)
{
    std::mt19937 random(7);
    TextMap texts;
    while (texts.size() < 100000) {
        std::string id = random() % 4 ? "shared.prefix." : "";
        for (auto length = random() % 12; length > 0; --length)
            id += static_cast<char>(1 + random() % (random() % 8 ? 255 : 3));
        texts[id] = std::to_string(random());
    }
    writeFile("big.db", database(texts));
    const char *image;
    const int32_t fd = loadMmapTree("big.db", &image);
    ASSERT_GE(fd, 0);
    for (const auto &[id, text] : texts) {
        const char *found = findMmapVar(image, id.c_str(), nullptr);
        ASSERT_TRUE(found && found == text) << id;
        const std::string other = id + static_cast<char>(1 + random() % 255);
        found = findMmapVar(image, other.c_str(), nullptr);
        ASSERT_EQ(found != nullptr, texts.count(other) != 0) << other;
    }
    unloadMmapTree("big.db", fd, &image);
    EXPECT_EQ(image, nullptr);
}
