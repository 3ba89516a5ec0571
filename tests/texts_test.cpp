/* tests/texts_test.cpp - text fields, languages and lookups in databases. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <random>

#include "base/log.h"
#include "base/process.h"
#include "textdb/language.h"
#include "tests/harness.h"

// A device with English as its own language, German, and a fallback.
class TextFields : public testing::Test
{
protected:
    const std::string longText = std::string(20000, 'x');

    void SetUp() override
    {
        writeFile("device/etc/htmltext_en.db",
                  database({{"hi", "hello"},
                            {"a.b_c:d", "all"},
                            {"", "empty"},
                            {"none", ""},
                            {"x", "ex"},
                            {"cmd", "<?echo 1?>{?hi?}"},
                            {"long", "<?setvariable var:lang de?>" + longText + "{?hi?}"},
                            {"quit", "<?setvariable var:lang de?><?echo " + repeated("$$", 10001) +
                                         longText},
                            {"incl", "<?include b.htm?>" + longText + "<?echo y?>"},
                            {"wide", std::string(400, 'w')},
                            {"refill", std::string(8188, 'r') + "<?ec"},
                            {std::string(128, 'i'), "128"}}));
        writeFile("device/etc/htmltext_de.db", database({{"hi", "hallo"}, {"long", "lang"}}));
        writeFile("device/etc/htmltext_xx.db", "");
        writeFile("device/etc/htmltext.db", database({{"old", "fallback"}}));
        writeFile("device/var/x", "");
        symlink("../etc/htmltext_en.db", "device/var/htmltext.db");
    }
    void TearDown() override
    {
        std::filesystem::remove_all("device");
        forgetTexts();
    }
};

TEST_F(TextFields, FieldsAreReplaced)
{
    const std::string rows[][3] = {
        {"{?hi?}{?a.b_c:d?}{??}[{?none?}]{?old?}", "helloallempty[]fallback",
         "zarn - Language entries not found for current language. "
         "Fallback database (/etc/htmltext.db) successfully opened\n"
         "zarn - Fallback for DB-Field {?old?}\n"},
        {"{?a-b?}{?hi}{? hi?}{{?hi?}}{", "{?a-b?}{?hi}{? hi?}{hello}{", ""},
        {"{?hi", "{?hi", ""},
        {"{?hi?", "{?hi?", ""},
        {"{?", "{?", ""},
        {"[{?gone?}]", "[]",
         "zarn - Fallback for DB-Field {?gone?}\n"
         "t.htm: WARNING - HTML-Text entry {?gone?} not found in database\n"},
        {"{?cmd?}", "1{?hi?}", ""},
        {"<?echo '{?hi?}'?>", "hello", ""},
        {"{?" + std::string(129, 'i') + "?}", "128", ""},
        {"{?refill?}ho {?hi?}?>", std::string(8188, 'r') + "hello", ""},
        {"{?hi?} {?long?}|{?hi?}", "hello " + longText + "{?hi?}|hallo", ""},
        {"{?quit?}", "", // before the end of a text whose rest is kept
         "zarn - ERROR in pushStr: NO MEMORY while parsing t.htm with Bison!\n"},
        {"{?incl?}|{?hi?}", "(hello)" + longText + "y|hello", ""},
    };
    for (const auto &[text, page, log] : rows) {
        Host host;
        host.files = {{"t.htm", text}, {"b.htm", "({?hi?})"}};
        Orv_Interpreter_SetLanguage("en");
        const Outcome got = render(host);
        EXPECT_EQ(difference(page, got.page), "") << text.substr(0, 60);
        EXPECT_EQ(difference(log, got.log), "") << text.substr(0, 60);
    }
}

TEST_F(TextFields, AreMarkedForTranslators)
{
    const std::string span = "<span title=\"{?hi?} => t.htm Zeile 1\">hello</span>";
    const std::string span3 = "<span title=\"{?hi?} => t.htm Zeile 3\">hello</span>";
    for (const int mode : {1, 2}) {
        writeFile("device/proc/cmdline", "tooltip=" + std::to_string(mode));
        const std::string mark = mode == 1 ? "hello" : "-=hello {?hi?}=-";
        const std::string rows[][3] = {
            {"t.htm", "<p>{?hi?}</p>", "<p>" + span + "</p>"},
            {"t.htm", "<a b='{?hi?}'>c</a>", "<a b='" + mark + "'>c</a>"},
            {"t.htm", "<SCRIPT>'{?hi?}'</Script>{?hi?}<style >{?hi?}</style>|",
             "<SCRIPT>'" + mark + "'</Script>" + span + "<style >" + mark + "</style>|"},
            {"t.js", "<p>{?hi?}</p>", "<p>" + mark + "</p>"},
            {"t.htm", "\n<a>\n{?hi?}<br", "\n<a>\n" + span3 + "<br"},
            {"t.frm", "<script>{?hi?}</style>{?hi?}</p>{?hi?}</script ",
             "<script>" + mark + "</style>" + mark + "</p>" + mark + "</script "},
            {"t.htm", "<style>x</style>{?hi?}<b {?hi?}", "<style>x</style>" + span + "<b " + mark},
            {"t.htm", "{?hi?}<{?x?}", span + "<" + (mode == 1 ? "ex" : "-=ex {?x?}=-")},
            {"t.htm", "{?hi?}</p >{?hi?}<a<b>", span + "</p >" + span + "<a<b>"},
        };
        for (const auto &[name, text, page] : rows) {
            Host host;
            host.files = {{name, text}};
            EXPECT_EQ(render(host, name).page, page) << text;
        }
    }
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "-=hello {?hi?}=-");
    EXPECT_EQ(strlen(Orv_Interpreter_LookupDBField("long")), 383U);
    EXPECT_EQ(renderText("{?wide?}").page.size(), 383U);
    EXPECT_EQ(renderText("<a b='{?wide?}").page.size(), strlen("<a b='") + 383);
    EXPECT_EQ(renderText("{?long?}").page.size(), 383 - strlen("<?setvariable var:lang de?>"));
}

TEST_F(TextFields, LanguageIsChosen)
{
    startLog();
    for (const char *code : {"deu", "fr", "xx"})
        EXPECT_EQ(Orv_Interpreter_SetLanguage(code), -1);
    EXPECT_EQ(takeLog(), "zarn - ERROR invalid language request for 'deu'\n"
                         "zarn - ERROR could not resolve link '/etc/htmltext_fr.db'\n"
                         "zarn - ERROR database file /etc/htmltext_xx.db not found for requested "
                         "language 'xx'\n");
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "hello");
    EXPECT_STREQ(htmlDB.language, "");
    const char *image = htmlDB.image;
    EXPECT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
    EXPECT_EQ(Orv_Interpreter_SetLanguage(nullptr), 0);
    EXPECT_EQ(htmlDB.image, image);
    writeFile("device/etc/htmltext_sh.db", "short");
    EXPECT_EQ(Orv_Interpreter_SetLanguage("sh"), 0);
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("old"), "fallback");
    EXPECT_EQ(Orv_Interpreter_LookupDBField("hi"), nullptr);
    EXPECT_EQ(Orv_Interpreter_LookupDBField(nullptr), nullptr);
    EXPECT_EQ(Orv_Interpreter_SetLanguage("de"), 0);
    EXPECT_STREQ(htmlDB.language, "de");
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "hallo");
    EXPECT_EQ(Orv_Interpreter_SetLanguage("fr"), -1);
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "hallo");
    std::filesystem::remove("device/var/htmltext.db");
    symlink("../etc/htmltext_xx.db", "device/var/htmltext.db");
    takeLog();
    EXPECT_EQ(Orv_Interpreter_SetLanguage(""), -1);
    EXPECT_EQ(Orv_Interpreter_SetLanguage(nullptr), -1);
    const std::string missing = "zarn - ERROR database file /etc/htmltext_xx.db not found for "
                                "requested language '";
    EXPECT_EQ(takeLog(), missing + "'\n" + missing + "*default*'\n");
    std::filesystem::remove_all("device");
    forgetTexts();
    EXPECT_EQ(Orv_Interpreter_LookupDBField("hi"), nullptr);
    EXPECT_EQ(takeLog(), "zarn - ERROR could not resolve link '/var/htmltext.db'\n"
                         "zarn - ERROR - requested open/mmap of fallback database "
                         "(/etc/htmltext.db) failed!\n"
                         "zarn - $HTML_TOOLTIPS is not set!\n");
    Orv_Interpreter_SetLog(-1);
}

// The text that a lookup lends is gone with its database: the calls that change the
// language must not need it any more.
TEST_F(TextFields, LentTextsMayChangeTheLanguage)
{
    const std::string page = "zarn - p.htm: Real Time ";
    const struct {
        const char *name;
        std::function<void(Interpreter *)> call;
        std::string lastLine, lang;
    } rows[] = {
        {"SetLanguage",
         [](auto) { Orv_Interpreter_SetLanguage(Orv_Interpreter_LookupDBField("l")); }, "", ""},
        {"a value",
         [](auto *handle) {
             Orv_Interpreter_SetVariable(handle, "lang", Orv_Interpreter_LookupDBField("l"));
         },
         "zarn - CGI-Variable set: lang=de!\n", "de"},
        {"a name",
         [](auto *handle) {
             Orv_Interpreter_SetVariable(handle, Orv_Interpreter_LookupDBField("n"), "de");
         },
         "zarn - CGI-Variable set: lang=de!\n", "de"},
        {"a page whose template changes it",
         [](auto *handle) {
             Orv_Interpreter_Run(handle, Orv_Interpreter_LookupDBField("p"), PAGE_FD);
         },
         page, "de"},
        {"a page that is not there, whose opening changes it",
         [](auto *handle) {
             remove("p.htm");
             Orv_Interpreter_Run(handle, Orv_Interpreter_LookupDBField("p"), PAGE_FD);
         },
         page, "de"},
    };
    for (const auto &row : rows) {
        writeFile("device/etc/htmltext_en.db",
                  database({{"l", "de"}, {"n", "lang"}, {"p", "p.htm"}}));
        forgetTexts();
        Host host;
        host.files = {{"p.htm", "<?setvariable var:lang de?>"},
                      {"t.htm", "{?hi?}<?echo $var:lang?>"}};
        host.onOpen = [](const std::string &path) {
            const int fd = open(path.c_str(), O_RDONLY);
            if (fd < 0)
                Orv_Interpreter_SetVariable(inpr, "lang", "de");
            return fd;
        };
        useHost(&host);
        Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
        Orv_Interpreter_SetLanguage("en");
        startLog();
        row.call(handle);
        const std::string log = takeLog();
        EXPECT_TRUE(log.substr(log.rfind('\n', log.size() - 2) + 1).starts_with(row.lastLine))
            << row.name << ": " << log;
        EXPECT_EQ(runHandle(handle).page, "hallo" + row.lang) << row.name;
        Orv_Interpreter_Destroy(handle);
    }
}

TEST_F(TextFields, AMappedDatabaseOutlivesItsFile)
{
    EXPECT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
    writeFile("new", database({{"hi", "new"}}));
    std::filesystem::rename("new", "device/etc/htmltext_en.db");
    EXPECT_EQ(Orv_Interpreter_SetLanguage("en"), 0); // it is that already
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "hello");
    const size_t descriptors = openDescriptors(true);
    EXPECT_EQ(Orv_Interpreter_SetLanguage("de"), 0);
    EXPECT_EQ(Orv_Interpreter_SetLanguage("en"), 0);
    EXPECT_STREQ(Orv_Interpreter_LookupDBField("hi"), "new");
    EXPECT_EQ(openDescriptors(true), descriptors);
}

// With its standard streams closed, a process that writes to them must not hit a file
// of the library.
TEST_F(TextFields, AndLogsLeaveTheStandardDescriptorsAlone)
{
    writeFile("device/proc/cmdline", "tooltip=0");
    writeFile("device/var/log/zarn_interpreter.log", "");
    Host host;
    host.files = {{"t.htm", "{?hi?}{?old?}<?base64 t.htm?>"}};
    useHost(&host);
    const pid_t child = fork();
    if (child == 0) {
        const int log = dup(logTarget());
        for (const int fd : {0, 1, 2})
            close(fd);
        Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
        const bool file = logfileFd > 2;
        const bool copy = Orv_Interpreter_SetLog(log) == 0 && logfileFd > 2;
        Orv_Interpreter_SetLanguage("en");
        const bool page = runHandle(handle).page.starts_with("hellofallbacke");
        const bool texts = htmlDB.fd > 2 && htmlFallbackDB.fd > 2;
        const bool closed =
            std::ranges::all_of(std::array{0, 1, 2}, [](int fd) { return fcntl(fd, F_GETFD) < 0; });
        _exit(file + 2 * copy + 4 * page + 8 * texts + 16 * closed);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 31);
}

TEST(TextDatabase, AgreesWithAMap)
{
    std::mt19937 random(7);
    std::map<std::string, std::string> texts;
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
    EXPECT_EQ(findMmapVar(image, nullptr, nullptr), nullptr);
    unloadMmapTree("big.db", fd, &image);
    EXPECT_EQ(findMmapVar(image, "", nullptr), nullptr);
    EXPECT_EQ(image, nullptr);
}

TEST(TextDatabase, TellsTheAttributeAndNeedsLabels)
{
    std::string file = database({{"a", "x"}, {"b", "y"}});
    char *records = file.data() + 16; // root, "a", "b"
    records[2 * 8 + 7] |= '\x80';
    for (const int change : {0, 1, 2}) {
        if (change == 1) // the label moves to its end: it is empty
            ++records[8 + 4];
        if (change == 2) // "a" is to have a sibling behind the file's end
            file = std::string("0123456789abcdef\1\0\0\0a\0X\0\0\0\x20\0\4\0\0\x40", 32);
        writeFile("odd.db", file);
        const char *image;
        const int32_t fd = loadMmapTree("odd.db", &image);
        for (const auto &[id, expected] :
             {std::pair("a", change ? -1 : 0), {"b", change < 2 ? 1 : -1}, {"", -1}}) {
            int32_t attribute = -1;
            EXPECT_EQ(findMmapVar(image, id, &attribute) != nullptr, expected >= 0) << id;
            EXPECT_EQ(attribute, expected);
        }
        unloadMmapTree("odd.db", fd, &image);
    }
}
