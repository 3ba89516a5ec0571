/* tests/orv_render_test.cpp - the program orv-render, run as a process.
 *
 * Each row writes its page to site/t.htm and runs the program in the folder above
 * with site as document root. The arguments are shell text, so a row can look
 * at files afterwards. Timing lines are dropped from standard error. */
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

using std::string;

struct Row {
    const char *name;
    string arguments;
    string page;
    string out;
    string err;
    int status;
};

static string repeat(const char *text, int count)
{
    string all;
    while (count-- > 0)
        all += text;
    return all;
}

static string line(const string &what, const string &subject, const string &reason)
{
    return "orv-render: " + what + " '" + subject + "': " + reason + "\n";
}

static string noTemplate(const char *path, const char *reason)
{
    return line("cannot open template", path, reason);
}

static string noAnswer(const char *query, const char *reason)
{
    return line("cannot answer query", query, reason);
}

static const char outside[] = "not below the document root";
static const char missing[] = "No such file or directory";
static const string failedQuery = "zarn - ERROR in doQuery: fQuery() returned -1! (t.htm)\n";

static const Row rows[] = {
    {"a page as it is", "t.htm", "a<b\n", "a<b\n", "", 0},
    {"a page into a pipe", "t.htm | cat", "a<b\n", "a<b\n", "", 0},
    {"the newest variable, an element", "--set n=1 --set n=2= --set 'a[3]=x' t.htm",
     "<?echo $var:n?><?echo $var:a[3]?>", "2=x", "", 0},
    {"an error", "--error '<Oops>' t.htm", "<?error found ?><?error message ?>", "1<Oops>", "", 0},

    {"absolute path", "/etc/passwd", "", "", noTemplate("/etc/passwd", outside), 2},
    {"parent step", "sub/../t.htm", "x", "", noTemplate("sub/../t.htm", outside), 2},
    {"link that leads out", "out.htm", "", "", noTemplate("out.htm", outside), 2},
    {"folder link that leads out", "up/secret.htm", "", "", noTemplate("up/secret.htm", outside),
     2},
    {"sibling folder with the same start", "other/x.htm", "", "",
     noTemplate("other/x.htm", outside), 2},
    {"link that stays inside", "in.htm", "", "inc", "", 0},
    {"dots in a name", "..a..htm", "", "dots", "", 0},
    {"folder", "sub", "", "", noTemplate("sub", "not a regular file"), 2},
    {"fifo", "fifo", "", "", noTemplate("fifo", "not a regular file"), 2},
    {"missing", "x.htm", "", "", noTemplate("x.htm", missing), 2},
    {"missing, said once", "--log x.htm", "", "", noTemplate("x.htm", missing), 2},
    {"empty", "t.htm", "", "", noTemplate("t.htm", "it is empty or cannot be mapped"), 2},
    {"refused include", "t.htm", "a<?include ../secret.htm?>b", "ab", "", 0},
    {"refused include in the log", "--log t.htm", "a<?include ../secret.htm?>b", "ab",
     noTemplate("../secret.htm", outside), 1},

    {"rows, NULL is empty", "--db r.db --set net=wan --set net=lan t.htm",
     "<?multiquerytext 'select name, ip from device where net = :net order by ip' '[$1 $2]'?>",
     "[<b>\"&' 10.0.0.1][ 10.0.0.2]", "", 0},
    {"a value is no SQL", "--db r.db --set \"net=x' or '1'='1\" t.htm",
     "<?multiquerycount 'select ip from device where net = :net'?>", "0", "", 0},
    {"unset is NULL", "--db r.db t.htm", "<?querytext 'select :net is null'?>", "1", "", 0},
    {"zero byte", "--db r.db t.htm", "<?querytext \"select 'a' || char(0) || 'b'\"?>", "a", "", 0},
    {"35 of 36 columns", "--db r.db t.htm",
     "<?multiquerytext 'select " + repeat("0,", 33) + "34,35,36' '$y$z'?>", "3435", "", 0},
    {"SQL error", "--db r.db t.htm", "<?multiquerycount 'select\nnope'?>", "-1",
     noAnswer("select nope", "no such column: nope"), 0},
    {"SQL error in the log", "--log --db r.db t.htm", "<?multiquerycount 'select nope'?>", "-1",
     noAnswer("select nope", "no such column: nope") + failedQuery, 1},
    {"error in a later row", "--db r.db t.htm",
     "<?multiquerycount 'select abs(-9223372036854775807 - n) from num'?>", "-1",
     noAnswer("select abs(-9223372036854775807 - n) from num", "integer overflow"), 0},
    {"no database", "t.htm", "<?multiquerycount 'select 1'?>", "-1",
     noAnswer("select 1", "there is no database"), 0},
    {"two statements", "--db r.db t.htm", "<?multiquerycount 'select 1; select 2'?>", "-1",
     noAnswer("select 1; select 2", "text follows the statement"), 0},
    {"writing", "--db r.db t.htm", "<?multiquerycount 'delete from device'?>", "-1",
     noAnswer("delete from device", "not authorized"), 0},
    {"loading code", "--db r.db t.htm", "<?multiquerycount 'select load_extension(1)'?>", "-1",
     noAnswer("select load_extension(1)", "not authorized to use function: load_extension"), 0},

    {"notices are no problem", "--log --db r.db --set 'x=: WARNING - ' t.htm",
     "a<?multiquerytext 'select 1 where 0'?>", "a",
     "zarn - CGI-Variable set: x=: WARNING - !\n"
     "t.htm: No query result received for select 1 where 0.\n",
     0},
    {"syntax error", "--log t.htm", "x<?if eq a ?>y", "xy",
     "t.htm, line 1: Syntax error: Too few arguments in <? if eq\n", 1},
    {"an error after a notice that was cut", "--log --set x=" + repeat("v", 500) + " t.htm",
     "<?calc + a 1?>", "",
     "zarn - CGI-Variable set: x=" + repeat("v", 472) +
         "t.htm, near line 1: Warning: 1st operator a of calc is no valid number in current "
         "context\n",
     1},
    {"gave up", "t.htm", "a<?echo " + repeat("x$$", 6000) + "?>b", "a", "", 3},

    {"output beside the document root", "--output page t.htm && cat page", "x", "x", "", 0},
    {"output over its template", "--output site/t.htm t.htm && cat site/t.htm", "<?echo x?>", "x",
     "", 0},
    {"a missing page leaves the output", "--output secret.htm x.htm || cat secret.htm", "",
     "secret", noTemplate("x.htm", missing), 0},
    {"output into a missing folder", "--output none/page t.htm", "x", "",
     "orv-render: cannot write none/page: No such file or directory\n", 2},
    {"full disk", "t.htm >/dev/full", "x", "",
     "orv-render: cannot write standard output: No space left on device\n", 2},
    {"closed output", "t.htm >&-", "x", "", "orv-render: standard output is closed\n", 2},
    {"missing document root", "--docroot none t.htm", "x", "",
     "orv-render: cannot use document root 'none': No such file or directory\n", 2},
    {"no database file", "--db secret.htm t.htm", "x", "",
     "orv-render: cannot read database 'secret.htm': file is not a database\n", 2},
    {"missing language", "--root . --lang zz t.htm", "x", "",
     "orv-render: there is no text database for language 'zz'\n", 2},
    {"no template", "", "", "", "orv-render: no template given, see --help\n", 2},
    {"unknown option", "--x t.htm", "", "", "orv-render: wrong option '--x', see --help\n", 2},
    {"option without value", "t.htm --db", "", "",
     "orv-render: option '--db' needs a value, see --help\n", 2},
    {"help", "--help | head -n 1", "", "Usage: orv-render [OPTION]... TEMPLATE\n", "", 0},
};

static void writeFile(const char *path, const string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

/* Returns a file's text without the timing lines. */
static string readFile(const char *path)
{
    std::ostringstream all;
    all << std::ifstream(path, std::ios::binary).rdbuf();
    string text = all.str();
    for (size_t at; (at = text.find(": Real Time ")) != string::npos;) {
        size_t start = text.rfind("zarn - ", at);
        text.erase(start, text.find('\n', at) + 1 - start);
    }
    return text;
}

static void makeSite()
{
    std::filesystem::create_directories("site/sub");
    std::filesystem::create_directories("site-other");
    writeFile("secret.htm", "secret");
    writeFile("site-other/x.htm", "secret");
    writeFile("site/inc.htm", "inc");
    writeFile("site/..a..htm", "dots");
    std::filesystem::create_symlink("../secret.htm", "site/out.htm");
    std::filesystem::create_symlink("..", "site/up");
    std::filesystem::create_symlink("../site-other", "site/other");
    std::filesystem::create_symlink(std::filesystem::absolute("site/inc.htm"), "site/in.htm");
    ASSERT_EQ(0, mkfifo("site/fifo", 0600));
    sqlite3 *db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open("r.db", &db));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db,
                                      "create table device(name, ip, net);"
                                      "insert into device values ('<b>\"&''', '10.0.0.1', 'lan'),"
                                      " (null, '10.0.0.2', 'lan'), ('x', '10.0.1.1', 'wan');"
                                      "create table num(n); insert into num values (0), (1);",
                                      nullptr, nullptr, nullptr));
    sqlite3_close(db);
}

TEST(OrvRender, Rows)
{
    char folder[] = "/tmp/orv_render_XXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    ASSERT_NO_FATAL_FAILURE(makeSite());
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        writeFile("site/t.htm", row.page);
        string command = "exec >out 2>err; '" ORV_RENDER "' --docroot site " + row.arguments;
        int status = system(command.c_str());
        EXPECT_EQ(row.status, WIFEXITED(status) ? WEXITSTATUS(status) : -1);
        EXPECT_EQ(row.out, readFile("out"));
        EXPECT_EQ(row.err, readFile("err"));
    }
    std::filesystem::current_path(before);
    std::filesystem::remove_all(folder);
}
