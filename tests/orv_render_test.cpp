/* tests/orv_render_test.cpp - the program orv-render, run as a process in the
 * folder above its document root, site. Arguments are shell text, so a row can
 * look at files afterwards. */
#include <gtest/gtest.h>

#include "tests/harness.h"
#include "tests/process.h"

using std::string;

static const char siteScript[] = R"SH(
mkdir -p site site-other &&
printf secret | tee secret.htm held >site-other/x.htm && ln held same &&
printf inc >site/inc.htm &&
printf '\n<?include inner.frm?>\n<?Echo?>' >site/outer.frm && printf '\n\n<?Echo?>' >site/inner.frm &&
printf dots >site/..a..htm && printf "<?multiquerytext 'select 1 where 0'?>" >site/q.frm &&
ln -s ../secret.htm site/out.htm &&
ln -s ../site-other site/other &&
ln -s "$PWD/site/inc.htm" site/in.htm && ln -s out.htm out.link &&
mkfifo site/fifo &&
sqlite3 hot.db "create table num(n); create table pad(p);
    insert into num values ('old'); insert into pad values (zeroblob(100000))" &&
sqlite3 hot.db "pragma cache_size = 1" "begin" "update num set n = 'new'" \
    "update pad set p = randomblob(100000)" ".shell cp hot.db killed.db" \
    ".shell cp hot.db-journal killed.db-journal" &&
sqlite3 r.db "create table num(n); insert into num values (0), (1);
    create table device(name, ip, net); insert into device values
    ('<b>\"&''', '10.0.0.1', 'lan'), (null, '10.0.0.2', 'lan'), ('x', '10.0.1.1', 'wan')"
)SH";

// Runs the program with a page as site/t.htm.
static void expectRun(const string &arguments, const string &page, const string &out,
                      const string &err, int status)
{
    SCOPED_TRACE(arguments + " with " + page);
    writeFile("site/t.htm", page);
    EXPECT_EQ(runCommand("'" ORV_RENDER "' --docroot site " + arguments), status);
    EXPECT_EQ(difference(out, readFile("out")), "");
    const std::string got = withoutLines(readFile("err"), [](const std::string &line) {
        return line.find(": Real Time ") != std::string::npos;
    });
    EXPECT_EQ(difference(err, got), "");
}

TEST(OrvRender, Rows)
{
    ASSERT_EQ(runCommand(siteScript), 0) << readFile("err");
    const string absolute = folder + "/site/t.htm"; // below it, but no path from there
    const string refused[][2] = {
        {absolute, "cannot open template '" + absolute + "': not below the document root"},
        {"../site/t.htm", "cannot open template '../site/t.htm': not below the document root"},
        {"out.htm", "cannot open template 'out.htm': not below the document root"},
        {"other/x.htm", "cannot open template 'other/x.htm': not below the document root"},
        {"fifo", "cannot open template 'fifo': not a regular file"},
        {"x.htm", "cannot open template 'x.htm': No such file or directory"},
        {"--output none/page t.htm", "cannot write none/page: No such file or directory"},
        {"t.htm >/dev/full", "cannot write standard output: No space left on device"},
        {"t.htm >&-", "standard output is closed"},
        {"--docroot none t.htm", "cannot use document root 'none': No such file or directory"},
        {"--db secret.htm t.htm", "cannot read database 'secret.htm': file is not a database"},
        {"--root . --lang zz t.htm", "there is no text database for language 'zz'"},
        {"", "no template given, see --help"},
        {"--x t.htm", "wrong option '--x', see --help"},
        {"t.htm --db", "option '--db' needs a value, see --help"},
        {"t.htm in.htm", "several templates, see --help"},
        {"--tooltips 3 t.htm", "--tooltips needs 1 or 2, not '3'"},
        {"- <site", "cannot read standard input: Is a directory"},
    };
    for (const auto &[arguments, message] : refused)
        for (const char *option : {"", "--log "})
            expectRun(option + arguments, "x", "", "orv-render: " + message + "\n", 2);

    const string queries[][2] = {
        {"select nope", "no such column: nope"},
        {"select abs(-9223372036854775807 - n) from num", "integer overflow"}, // a later row
        {"select 1; select 2", "text follows the statement"},
        {"-- nothing", "there is no statement"},
        {"select ?1", "only parameters of the form :name have a value"},
        {"select @net", "only parameters of the form :name have a value"},
        {"delete from device", "not authorized"},
        {"vacuum", "the statement does not only read"},
        {"select load_extension(1)", "not authorized to use function: load_extension"},
    };
    const string failed = "zarn - ERROR in doQuery: fQuery() returned -1! (t.htm)\n";
    for (const auto &[query, reason] : queries) {
        const string page = "<?multiquerycount '" + query + "'?>";
        const string again = "<?querytext '" + query + "'?>";
        const string err =
            "orv-render: t.htm, line 1: cannot answer query '" + query + "': " + reason + "\n";
        expectRun("--db r.db t.htm", page + again + again, "-1", err + err + err, 0);
        expectRun("--log --db r.db t.htm", page, "-1", err + failed, 1);
    }

    const string include = "a<?include ../secret.htm?>b";
    const string count = "<?multiquerycount 'select ip from device where net = :net'?>";
    const string columns = "<?multiquerytext 'select " + repeated("0,", 33) + "34,35,36' '$y$z'?>";
    const struct {
        string arguments, page, out, err = "";
        int status = 0;
    } rows[] = {
        {"t.htm | cat", "a<b\n", "a<b\n"},
        {"in.htm", "", "inc"},
        {"..a..htm", "", "dots"},
        {"t.htm", include, "ab"},
        {"--set n=1 --set n=2= --set 'a[3]=x' t.htm", "<?echo $var:n?><?echo $var:a[3]?>", "2=x"},
        {"--error '<Oops>' t.htm", "<?error found ?><?error message ?>", "1<Oops>"},
        {"--output site/t.htm t.htm | cat; cat site/t.htm", "<?echo x?>", "x"},
        {"--db r.db --set net=wan --set net=lan t.htm", // NULL becomes an empty text
         "<?multiquerytext 'select name, ip from device where net = :net order by ip' '[$1 $2]'?>",
         "[<b>\"&' 10.0.0.1][ 10.0.0.2]"},
        {"--db r.db --set \"net=x' or '1'='1\" t.htm", count, "0"},
        {"--db r.db t.htm", "<?querytext 'select :net is null'?>", "1"},
        {"--db r.db t.htm", "<?querytext \"select 'a' || char(0) || 'b'\"?>", "a"},
        {"--db r.db t.htm", columns, "3435"},
        {"--db killed.db t.htm", "<?querytext 'select n from num'?>", "old"}, // half saved
        // asked again for each include of a row it is the same answer, but not of random()
        {"--db r.db --set p=x t.htm",
         "<?multiquery 'select n, :p from num' '$1$2<?include in.htm?>'?>", "0xinc1xinc"},
        {"--db r.db t.htm | tr c '\\n' | sort -u | wc -l | tr -d '\\n'",
         "<?multiquerytext 'with r(v) as materialized (select random()) select v from r, num, num'"
         " '$1<?include in.htm?>'?>",
         "4"},
        {"--db hot.db t.htm | { read first;"
         " { sqlite3 -cmd '.timeout 9000' hot.db \"update num set n = 'new'\"; touch written; } &"
         " while sqlite3 hot.db 'select n from num' && [ ! -e written ]; do :; done >quiet 2>&1;"
         " echo $first; tr -d x; wait; sqlite3 hot.db 'select n from num'; }",
         "<?querytext 'select n from num'?>\n" + string(1 << 20, 'x') +
             "<?querytext 'select n from num'?>\n",
         "old\nold\nnew\n"},
        {"t.htm", "<?multiquerycount 'select\n1'?>", "-1",
         "orv-render: t.htm, line 2: cannot answer query 'select 1': there is no database\n"},
        {"--set x t.htm", "", "", "orv-render: --set needs NAME=VALUE, not 'x'\n", 2},
        {"--set =x t.htm", "", "", "orv-render: --set needs NAME=VALUE, not '=x'\n", 2},
        {"--log t.htm", "<?Foo?>\n" + include, "<?Foo?>\nab",
         "t.htm, line 1: Syntax error: Unknown Cmd\n"
         "orv-render: t.htm, line 2: cannot open template '../secret.htm': not below the document "
         "root\n",
         1},
        {"--log t.htm", "<?include outer.frm?>\n", "\n\n\n<?Echo?>\n<?Echo?>\n",
         "inner.frm, line 3: Syntax error: Unknown Cmd\n"
         "orv-render: inner.frm is included at outer.frm, line 2, that at t.htm, line 1\n"
         "outer.frm, line 3: Syntax error: Unknown Cmd\n"
         "orv-render: outer.frm is included at t.htm, line 1\n",
         1},
        {"--output secret.htm x.htm || cat secret.htm", "", "secret",
         "orv-render: cannot open template 'x.htm': No such file or directory\n"},
        {"--output secret.htm t.htm || cat secret.htm", // not the half of a page
         "a\n<?echo " + repeated("x$$", 6000) + "?>b", "secret",
         "orv-render: gave up at t.htm, line 2\n"},
        {"--output out.link t.htm && cat out.htm && test -L out.link", "<?echo x?>", "x"},
        {"--output /dev/stdout t.htm >held && cat same", "<?echo x?>", "x"},
        {"--output /dev/fd/3 t.htm 3>>held && cat same", "<?echo x?>", "x"},
        {"--log --db r.db --set 'x=: WARNING - ' t.htm", "<?include q.frm?>", "",
         "zarn - CGI-Variable set: x=: WARNING - !\n"
         "q.frm: No query result received for select 1 where 0.\n"
         "orv-render: q.frm is included at t.htm, line 1\n"},
        {"--log --set x=" + string(500, 'v') + " t.htm", "x<?if eq a ?>y", "xy",
         "zarn - CGI-Variable set: x=" + string(472, 'v') + // a message that is cut
             "t.htm, line 1: Syntax error: Too few arguments in <? if eq\n",
         1},
        {"t.htm", "a\n<?echo " + repeated("x$$", 6000) + "?>b", "a\n",
         "orv-render: gave up at t.htm, line 2\n", 3},
        {"- <site/t.htm", "<?echo a?><?include inc.htm?>", "ainc"},
        {"- <&-", "", "", "orv-render: cannot open template '-': it is empty or cannot be mapped\n",
         2},
        {"t.htm <site/t.htm", "<?include /dev/stdin?>", ""}, // not asked for
        {"--log - <site/t.htm", "x\n<?if eq a ?>y", "x\ny",
         "/dev/stdin, line 2: Syntax error: Too few arguments in <? if eq\n", 1},
    };
    for (const auto &[arguments, page, out, err, status] : rows)
        expectRun(arguments, page, out, err, status);
    // A reader that goes away is noticed even where its signal is ignored.
    writeFile("site/t.htm", "<?repeat [ 1 99 ] '" + string(9999, 'x') + "'?>");
    EXPECT_EQ(runCommand("trap '' PIPE; { '" ORV_RENDER "' --docroot site t.htm; echo $? >&2; }"
                         " | head -c 1"),
              0);
    EXPECT_EQ(readFile("err"), "orv-render: cannot write the page: Broken pipe\n2\n");
}

// The folder that asks for marks is gone when the page begins, however that ends.
TEST(OrvRender, MarksLeaveNoFolder)
{
    writeFile("en.po", "msgid \"a\"\nmsgstr \"Text\"\n");
    ASSERT_EQ(runCommand("mkdir -p site root/etc tmp &&"
                         " '" ORV_TEXTDB "' build -o root/etc/htmltext_en.db en.po"),
              0)
        << readFile("err");
    writeFile("site/t.htm", "<p title='{?a?}'>{?a?}</p>");
    writeFile("site/long.htm", "<?repeat [ 1 99999999 ] '" + string(9999, 'x') + "'?>");
    const string render = "'" ORV_RENDER "' --docroot site --root root --tooltips 1 ";
    const string shown = "<span title=\"{?a?} => t.htm Zeile 1\">Text</span></p>";
    const string rows[][2] = {
        {render + "--lang en t.htm", "<p title='Text'>" + shown},
        {render + "--lang en --tooltips 2 t.htm", "<p title='-=Text {?a?}=-'>" + shown},
        {render + "long.htm | head -c 1", "x"},
        {"timeout 0.3 " + render + "long.htm | sleep 1", ""},
    };
    for (const auto &[command, out] : rows) {
        runCommand("export TMPDIR=tmp; " + command + "; ls tmp");
        EXPECT_EQ(readFile("out"), out) << command << readFile("err");
    }
}

// Their help stands in a document each; and where it cannot be written, that is told.
TEST(Programs, TellTheirHelp)
{
    for (const string row : {"orv-render hosts", "orv-textdb translating", "orv-check checking",
                             "orv-preview preview"}) {
        const string name = row.substr(0, row.find(' '));
        EXPECT_EQ(runCommand("'" ORV_PROGRAMS "/" + name + "' --help"), 0);
        EXPECT_NE(readFile(ORV_SOURCE "/docs/" + row.substr(name.size() + 1) + ".md")
                      .find("```\n" + readFile("out") + "```\n"),
                  string::npos);
        for (const string option : {"--help", "--version"}) {
            EXPECT_EQ(runCommand("'" ORV_PROGRAMS "/" + name + "' " + option + " >/dev/full"), 1);
            EXPECT_EQ(readFile("err"),
                      name + ": cannot write standard output: No space left on device\n");
        }
    }
}
