/* tests/check_test.cpp - what orv-check finds: for each kind templates that have it, and
 * near misses that have nothing. */
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "tests/harness.h"
#include "tests/process.h"

using nlohmann::json;

namespace
{
struct Row {
    const char *text;  // of the template t.htm
    const char *finds; // "LINE:COLUMN ID", with "!" in front of the id of a warning
};

// What the templates can use: the variables "user" and "port[...]" of the web program, a
// form's field "find", the table t (a text, n integer), and texts in two languages.
const Row rows[] = {
    // syntax
    {"x<?echo a b?>\n<?echo 'a b'?>", "1:2 syntax"},
    {"x<?if eq 1 ?>y<?if eq 1 1 y?>", "1:2 syntax"},
    {"<?ECHO x?><?echo x?>", "1:1 syntax"},
    {"x<?echo 'a\n<?-- <? ?> ?>", "1:2 syntax"},
    {"<?echo $var:user[]?><?echo $var:port[1]?>", "1:1 syntax, 1:8 syntax"},
    {"<?echo two words?><?echo one?>", "1:1 gives-up"},
    {"x<?echo one?>", ""},
    {"a<?if eq 1 ?><?echo lost?>b<?echo kept?>", "1:2 syntax, 1:14 swallowed"},
    {"x<?echo 'a<?bold b?>c'?>y<?echo b?>z<?echo c?>",
     "1:2 swallowed, 1:11 syntax, 1:26 syntax, 1:26 swallowed"},
    {"x<?echo 'a ?>y<?echo 'a'?>", "1:9 !quote-open"},
    {"x<?repeat [ 1 2 ] '\n<?echo a b?>'?>y<?echo y?>z", "1:2 syntax, 2:1 syntax"},
    {"x<?setvariable var:x '<?echo a b?>'?>", "1:2 syntax, 1:2 swallowed, 1:23 syntax"},

    // includes
    {"<?include none.frm?><?include part.frm?>", "1:11 include-missing"},
    {"<?include empty.frm?><?include ../part.frm?>", "1:11 include-missing, 1:32 include-missing"},
    {"<?include <?if eq $var:user a part.frm nothere.frm?>?>", "1:11 include-missing"},
    {"<?include t.htm?>", "1:11 include-cycle"},
    {"<?if eq $var:user a <?include t.htm?>?>", "1:31 !include-cycle"},
    {"<?include d2.frm?>", ""},
    {"<?include d1.frm?>", "d19.frm 1:11 include-depth"},
    {"<?echo `<?setvariable var:x <?include part.frm?>?><?include part.frm?>`?>",
     "1:29 include-in-argument"},
    {"<?setvariable var:x <?include part.frm?>?>", "1:21 !include-in-argument"},
    {"<?include $var:user?>", "1:11 !include-dynamic"},
    {"<?setvariable var:p part.frm?><?include $var:p?>", "1:41 !include-dynamic"},
    {"<img src=\"data:image/png;base64,<?base64 none.png?>\"><?base64 part.frm?>",
     "1:42 base64-missing"},
    {"<?base64 $var:user?>", "1:10 base64-dynamic"},

    // numbered values
    {"<?setvariable var:x $5?><?setvariable var:x $$5?>", "1:21 value-outside"},
    {"<?echo 'only $3'?><?echo 'only $$3, 5$'?>", "1:14 value-outside"},
    {"<?multiquery 'select n from t' `$1 $11 <?if eq $1 1 '<?echo $1?>'?>`?>", "1:36 value-level"},
    {"<?if eq $var:user a `<?multiquery 'select n from t' '$11'?>`?>", ""},
    {"<?if eq $var:user a `<?multiquery 'select n from t' '$1'?>`?>", "1:54 value-level"},
    {"<?if eq $var:user a `<?repeat [ 1 3 ] '$0 $10'?>`?>", "1:40 !value-level"},
    {"<?query 'select n, a from t' `$2 $3`?>", "1:34 value-column"},
    {"<?error message '<?echo $1?> $2'?>", "1:30 value-column"},
    {"<?query 'select n from t' `$1px $01px`?>", "1:28 value-digits"},
    {"<?repeat [ 1 2 ] '<?query \"select n,n,n,n,n,n,n,n,n,n from t\" `$1a `?>'?>", ""},

    // queries
    {"<?query 'select nothere from t'?><?query 'select n from t'?>", "1:17 query-sql"},
    {"<?setvariable var:q 'nothere'?><?query 'select $var:q from t'?>", "1:22 query-sql"},
    {"<?query 'select n from nothere'?><?query 'select n from t where'?>",
     "1:24 query-sql, 1:64 query-sql"},
    {"<?query 'select nothere from t where n = <?calc + 1 1?>'?>", "1:17 query-sql"},
    {"<?setvariable var:q \"select n from t where a = '$var:user'\"?>"
     "<?setvariable var:q \"$var:q and n\"?><?query $var:q?>",
     "1:49 query-injection"},
    {"<?query \"select a from t where a = '$var:user'\"?>", "1:37 query-injection"},
    {"<?query \"select a from t where a = :user and a <> :find\"?>", ""},
    {"<?query 'select a from t limit <?calc + 1 1?>'?>", ""},
    {"<?setvariable var:o 'a desc'?><?query 'select a from t order by $var:o'?>", ""},
    {"<?query 'select a from t where a = :usr'?>", "1:36 query-parameter"},
    {"<?query 'delete from t'?><?query \"select 'delete from t'\"?>", "1:10 query-writes"},
    {"<?query 'select 1; delete from t'?>", "1:20 query-writes"},

    // texts
    {"{?both?} {?none?}", "1:10 text-missing"},
    {"{?english?}", "1:1 !text-missing"},
    {"<?-- {?none?} ?>x", ""},
    {"{?a-b?} {?both} {? both?} {both?} {none?}",
     "1:1 !text-malformed, 1:9 !text-malformed, 1:17 !text-malformed, 1:27 !text-malformed"},
    {"<?echo '{?quoted?}'?><?echo `{?quoted?}`?>", "1:9 text-breaks"},
    {"<?echo {?blank?}?><?echo '{?blank?}'?>", "1:8 text-breaks"},
    {"<?echo '{?dollar?}'?>{?dollar?}", "1:9 text-breaks"},
    {"<p title='{?quoted?}'><p title=\"{?quoted?}\">", "1:11 text-breaks"},
    {"<script>a = '{?quoted?}', b = \"{?quoted?}\"</script>", "1:14 text-breaks"},
    {"<script>a = \"{?english?}\"</script>", "1:14 !text-missing, 1:14 text-breaks"},
    {"<?query \"select n from t where a = '{?quoted?}'\"?>", "1:37 text-breaks"},
    {"<?if eq '<?echo {?both?}?>' x a?>", "1:17 !text-compared"},
    {"<?if eq {?both?} en a?><?if eq 1 1 `{?both?}`?>", "1:9 !text-compared"},

    // variables
    {"<?setvariable var:color red?><?echo $var:colour?><?echo $var:color?>", "1:37 variable-unset"},
    {"<?echo $var:user$var:find$var:port[x]$var:lang$var:page?>", "1:47 variable-unset"},
    {"<?setvariable var:l[a] x?><?echo $var:l[b]?><?echo $var:l[a]$var:l[$var:user]$var:l[min]?>",
     "1:34 variable-unset"},
    {"<p>$var:user <?echo $var:user?> 5$ $var: x</p>", "1:4 !variable-in-text"},
    {"<?setvariable var:user x?><?setvariableonce var:user x?><?setvariable var:user2 x?>",
     "1:19 !variable-hidden"},
    {"<?setvariable var:l[07] x?><?echo $var:l[07]$var:l[7]?>", "1:35 variable-index"},
    {"<?setvariable var:l[1] x?>x<?echo $var:l[\"1\"]?>",
     "1:42 variable-index, 1:44 variable-index"},

    // escaping
    {"<p><?print $var:user?></p><p><?echo $var:user?></p>", "1:12 escape-missing"},
    {"<p><?if eq $var:user a `$var:user <?echo $var:user?>`?></p>", "1:25 escape-missing"},
    {"<p><?querytext 'select a from t' '$1'?><?querytext 'select n + 1 from t' '$1'?></p>",
     "1:35 escape-missing"},
    {"<p><?multiquery 'select a, n from t' '<?repeat [ 1 $2 ] \"$1 $10 $2\"?>'?></p>",
     "1:58 escape-missing"},
    {"<p><?error message 'x $1'?><?setvariable var:e <?error message ?>?><?echo $var:e?></p>",
     "1:23 escape-missing"},
    {"<p><?error message ?></p>", "1:4 escape-missing"},
    {"<?setvariable var:h <?echo $var:user?>?><?setvariable var:k <b>?><p><?print "
     "$var:h$var:k?></p>",
     ""},
    {"<p title=\"<?print $var:user?>\">", "1:19 escape-missing"},
    {"<p><?print $var:port[max]?><?setvariable var:l[1] x?><?print $var:l[max]?></p>",
     "1:12 escape-missing"},
    {"<?querytext 'select -n, -n || a from t' '$1 $2'?>", "1:45 escape-missing"},
    {"<p><?printjs $var:user?></p>", "1:14 escape-missing"},
    {"<p title='<?echo $var:user?>' class=<?echo $var:user?> id=\"<?echo $var:user?>\">",
     "1:18 escape-attribute, 1:44 escape-attribute"},
    {"<p class=<?calc + 1 1?> title='<?multiquerycount \"select n from t\"?>'>", ""},
    {"<script>a = <?printjs $var:user?>; b = '<?echo $var:user?>', c = \"<?printjs "
     "$var:user?>\"</script>",
     "1:23 escape-script, 1:48 escape-script"},
    {"<script>r = /'/; // it's\nb = `<?printjs $var:user?>`; c = i++ / 2; d = '<?printjs "
     "$var:user?>'</script>",
     "2:16 escape-script"},
    {"<script>n = <?query 'select n from t'?>; m = [<?multiquerytext 'select n, n*2 from t' "
     "'$1, $2, '?>]</script>",
     ""},
    {"<script type=\"text/template\"><p><?echo $var:user?></p></script>", ""},
    {"<a onclick=\"f('<?printjs $var:user?>')\">", "1:26 escape-script"},
    {"<?setvariable var:j <?printjs $var:user?>?><a onclick=\"f('<?echo $var:j?>')\">", ""},
    {"<a href=\"<?echo $var:user?>\"><a href=\"?find=<?echo $var:user?>\"><a href=\"/<?echo "
     "$var:user?>\">",
     "1:17 escape-url"},
    {"<meta content=\"<?echo $var:user?>; url=<?echo $var:user?>\">", "1:47 escape-url"},
    {"<a href=\"javascript:f('<?echo $var:user?>')\">", "1:31 escape-script"},
    {"<style>p { color: <?echo $var:user?> }</style><p style=\"width: <?query 'select n from "
     "t'?>px; color: <?echo $var:user?>\">",
     "1:26 escape-style, 1:109 escape-style"},
    {"<<?echo $var:user?>><p <?echo $var:user?>=\"\"><option<?if eq $var:user a ` selected`?>>",
     "1:9 escape-name, 1:31 escape-name"},
    {"<p title=\"<?if eq $var:user a `x\">` `y`?>", "1:11 escape-context"},
    {"<?multiquery 'select n from t' `<a href=\"x`?>", "1:1 escape-context"},
    {"<?if eq $var:user a `<p class=\"a\">` `<p>`?></p><?if eq $var:user a '<b title=\"'?><?if "
     "eq $var:user a '\">'?>",
     "1:48 escape-context, 1:82 escape-context"},
    {"<script>'", "1:10 !escape-context"},
    {"<!-- '\" <a --><textarea><a href='</textarea><p>a < b", ""},

    // limits
    {"<?query 'select 1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,"
     "29,30,31,32,33,34,35'?>",
     ""},
    {"<?query 'select 1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,"
     "29,30,31,32,33,34,35,36'?>",
     "1:10 limit"},

    // comments
    {"<p><?-- orv-check: ignore escape-missing: it is checked ?><?print $var:user?><?print "
     "$var:user?></p>",
     "1:86 escape-missing"},
};

struct Check : testing::Test {
    static void SetUpTestSuite()
    {
        const std::string texts = "msgid \"\"\nmsgstr \"Content-Type: text/plain; "
                                  "charset=UTF-8\\n\"\n\n";
        auto entry = [](const char *id, const char *text) {
            return std::string("msgid \"") + id + "\"\nmsgstr \"" + text + "\"\n\n";
        };
        const std::string shared = entry("quoted", "it's") + entry("dollar", "$1 and $$");
        writeFile("en.po", texts + "# orv-check: used english: or not\n" + entry("both", "both") +
                               entry("english", "english\\\\") + entry("blank", "a b") + shared);
        writeFile("de.po", texts + entry("both", "beide") + entry("blank", "ab") + shared);
        ASSERT_EQ(runCommand("rm -f t.db; sqlite3 t.db 'create table t (a text, n integer)'"), 0);
        writeFile("part.frm", "<form><input type=\"text\" name=\"find\"></form>");
        writeFile("empty.frm", "");
        for (int i = 0; i < 20; ++i)
            writeFile("d" + std::to_string(i) + ".frm",
                      i == 19 ? "<?include part.frm?>"
                              : "<?include d" + std::to_string(i + 1) + ".frm?>");
    }
};
} // namespace

static const char options[] = " --db t.db --texts en.po --texts de.po --set user --set 'port[]' "
                              "--set lang --set find --format json ";

static json checkPages(const std::string &arguments)
{
    const int status = runCommand(ORV_CHECK + std::string(options) + arguments);
    json whole = json::parse(readFile("out"), nullptr, false);
    EXPECT_FALSE(whole.is_discarded());
    EXPECT_EQ(status, whole["findings"].empty() ? 0 : 1) << readFile("err");
    return whole["findings"];
}

static std::string show(const json &finding)
{
    const std::string file = finding["file"];
    return (file == "t.htm" ? "" : file + " ") + std::to_string(finding["line"].get<int>()) + ":" +
           std::to_string(finding["column"].get<int>()) +
           (finding["severity"] == "warning" ? " !" : " ") + finding["id"].get<std::string>();
}

TEST_F(Check, FindsEachKindAndNothingBesides)
{
    std::set<std::string> kinds;
    for (const Row &row : rows) {
        writeFile("t.htm", row.text);
        std::string found;
        for (const json &finding : checkPages("t.htm")) {
            found += (found.empty() ? "" : ", ") + show(finding);
            kinds.insert(finding["id"]);
        }
        EXPECT_EQ(found, row.finds) << row.text;
    }
    // The rest is found in the tests below.
    kinds.insert("text-unused");
    EXPECT_EQ(runCommand(ORV_CHECK " --list"), 0);
    std::set<std::string> listed;
    std::istringstream list(readFile("out"));
    for (std::string line; std::getline(list, line);)
        if (!line.empty() && line[0] != ' ')
            listed.insert(line.substr(0, line.find(' ')));
    EXPECT_EQ(listed, kinds);
}

TEST_F(Check, KnowsTheLimits)
{
    auto nested = [](size_t bodies) {
        std::string text = "x";
        for (size_t i = 0; i < bodies; ++i)
            text = "<?echo " + text + "?>";
        return text;
    };
    auto argument = [](size_t length) {
        return "<?setvariable var:x '" + std::string(length, 'x') + "'?>";
    };
    const std::string id(128, 'i');
    const struct {
        std::string text;
        size_t findings;
    } cases[] = {
        {nested(64), 0},
        {nested(65), 1},
        {argument(66559), 0},
        {argument(66560), 1},
        {"<?-- orv-check: ignore text-missing ?>{?" + id + "?}", 0},
        {"<?-- orv-check: ignore text-missing ?>{?" + id + "i?}", 1},
        {"<?print " + repeated("$$", 12000) + "?>", 1},
    };
    for (const auto &[text, findings] : cases) {
        writeFile("t.htm", text);
        const json found = checkPages("t.htm");
        EXPECT_EQ(found.size(), findings) << text.substr(0, 60) << found;
        for (const json &finding : found)
            EXPECT_EQ(finding["id"], "limit");
    }
}

TEST_F(Check, KnowsWhatIsMeant)
{
    static constexpr struct {
        const char *text;
        const char *meant;
    } cases[] = {
        {"<?ehco x?>", "did you mean 'echo'?"},
        {"<?echo?>", "white space must follow echo"},
        {"<?if equal 1 1?>", "eq, neq, gt, gte, lt, lte, and, or must follow if"},
        {"<?Echo x?>", "lower case: echo"},
        {"<?setvariable color red?>", "var: and a name"},
        {"x<?echo 'it's fine'?>", "text with blanks needs quotes"},
        {"x<?echo 'open", "the quote that opens here"},
        {"<?include prat.frm?>", "did you mean 'part.frm'?"},
        {"<?echo $var:usr?>", "did you mean 'user'?"},
        {"{?engish?}", "did you mean 'english'?"},
        {"{?both}", "did you mean {?both?}?"},
        {"<?query 'select n from t' `$12`?>", "column 12 is $c"},
        {"<?query 'select a from t' `<?if eq 1 1 '$11'?>`?>", "did you mean $1, of level 0?"},
        {"<?query \"select a from t where a = '$var:user'\"?>",
         "write the parameter :user without quotes around it"},
        {"<?query 'select a form t'?>", "near \"t\": syntax error"},
    };
    for (const auto &[text, meant] : cases) {
        writeFile("t.htm", text);
        runCommand(ORV_CHECK + std::string(options) + "--format text t.htm");
        EXPECT_NE(readFile("out").find(meant), std::string::npos) << text << "\n"
                                                                  << readFile("out");
    }
}

// A finding in an included template tells where that is included; text-unused belongs to
// the languages' files, and only a look at the whole site can tell.
TEST_F(Check, SeesTheWholeSite)
{
    ASSERT_EQ(runCommand("mkdir -p site/sub"), 0);
    writeFile("site/a.htm", "<p>{?both?}\n<?include sub/x.frm?></p>");
    writeFile("site/sub/x.frm", "<?print $var:user?>");
    writeFile("site/alone.frm", "{?blank?}<?echo a b?>");
    const std::string site = ORV_CHECK " --docroot site --set user --texts en.po";
    EXPECT_EQ(runCommand(site), 1);
    EXPECT_EQ(
        readFile("out"),
        "en.po:14:1: warning: no template uses the text 'quoted' [text-unused]\n"
        "en.po:17:1: warning: no template uses the text 'dollar' [text-unused]\n"
        "site/sub/x.frm:1:9: error: $var:user comes out as it is, in page text: print does not "
        "escape; use echo [escape-missing]\n"
        "site/a.htm:2:1: note: included from here\n");
    EXPECT_EQ(runCommand(site + " --ignore escape-missing a.htm"), 0) << readFile("out");
    writeFile("broken.po", "msgid \"a");
    const std::string refused[][2] = {
        {"--ignore escape", "--ignore: there is no kind 'escape' (--list tells all)"},
        {"nothere.htm", "cannot read template nothere.htm"},
        {"--docroot nothere", "no folder: nothere"},
        {"--docroot site/sub", "there is no *.htm below site/sub"},
        {"--set-from site", "cannot read site: Is a directory"},
        {"--db nothere.db", "cannot read database nothere.db: No such file or directory"},
        {"--texts broken.po", "cannot read texts broken.po: it has errors"},
        {"--set-from nothere", "cannot read nothere: No such file or directory"},
        {"--format yaml", "--format needs text, json or sarif, not 'yaml'"},
        {"--nope", "unknown option --nope (--help tells all)"},
        {"--db", "--db needs a value"},
    };
    for (const auto &[arguments, message] : refused) {
        EXPECT_EQ(runCommand(ORV_CHECK " --docroot site " + arguments), 2) << arguments;
        EXPECT_TRUE(readFile("err").ends_with("orv-check: " + message + "\n")) << readFile("err");
    }
}

TEST_F(Check, PrintsSarif)
{
    writeFile("t.htm", "\xF0\x9F\x8E\x88\xC3\xA4<?print $var:user?>");
    EXPECT_EQ(runCommand(ORV_CHECK " --set user --format sarif t.htm"), 1);
    const json log = json::parse(readFile("out"), nullptr, false);
    ASSERT_EQ(log["version"], "2.1.0");
    const json &run = log["runs"][0];
    const json &result = run["results"][0];
    EXPECT_EQ(result["ruleId"], "escape-missing");
    EXPECT_EQ(run["tool"]["driver"]["rules"][result["ruleIndex"].get<size_t>()]["id"],
              "escape-missing");
    const json &place = result["locations"][0]["physicalLocation"];
    EXPECT_EQ(place["artifactLocation"]["uri"], "t.htm");
    EXPECT_EQ(place["region"]["startColumn"], 12); // in UTF-16 units: 2, 1 and 8 stand in front
}

TEST_F(Check, TheDemoSiteIsClean)
{
    const std::string site = ORV_SITE;
    ASSERT_EQ(runCommand("rm -f router.db; sqlite3 router.db <" + site + "/router.sql"), 0);
    EXPECT_EQ(runCommand(ORV_CHECK " --docroot " + site + " --db router.db --texts " + site +
                         "/texts/en.po --texts " + site + "/texts/de.po --texts " + site +
                         "/texts/el.po --set-from " + site + "/../zarn/variables.txt"),
              0)
        << readFile("out") << readFile("err");
}
