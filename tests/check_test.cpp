/* tests/check_test.cpp - what orv-check finds in the sites of tests/check, whose form
 * tests/check/syntax.md tells; and what a document cannot hold: limits, and the
 * program as a process. */
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "tests/folder.h"
#include "tests/process.h"
#include "tools/check/arguments.h"
#include "tools/check/lookup.h"
#include "tools/common/advice.h"
#include "tools/common/files.h"

using nlohmann::json;

const char programName[] = "check_tests";

namespace
{
// What the line "^ text" says, or "^~~ text".
struct Mark {
    std::string place; // FILE:LINE:COLUMN
    size_t length;     // of what is marked; 1 is any
    std::string text;
    int line; // of the document
};

struct Row {
    std::string heading;
    int line; // of the document, where its own blocks begin
    std::map<std::string, Block> files;
};
} // namespace

// The sites of a document, one a heading that begins so, each with what stands in front of the
// first.
static std::vector<Row> readRows(const std::string &path, const std::string &front)
{
    std::map<std::string, Block> shared;
    std::vector<Row> rows;
    for (const Block &block : readBlocks(path)) {
        if (block.kind.empty())
            continue;
        if (!block.heading.starts_with(front)) {
            shared[block.kind] = block;
            continue;
        }
        if (rows.empty() || rows.back().heading != block.heading)
            rows.push_back({block.heading, block.line, shared});
        rows.back().files[block.kind] = block;
    }
    return rows;
}

// Writes a block as the file of its name, less its marks, which are appended.
static void writeBlock(const Block &block, std::vector<Mark> *marks)
{
    std::istringstream lines(block.text);
    std::string content;
    size_t number = 0;
    int at = block.line;
    for (std::string line; std::getline(lines, line); ++at) {
        const size_t column = line.find_first_not_of(' ');
        const size_t end = line.find_first_not_of('~', column + 1);
        if (column != std::string::npos && line[column] == '^' && end < line.size() &&
            line[end] == ' ') {
            marks->push_back(
                {block.kind + ":" + std::to_string(number) + ":" + std::to_string(column + 1),
                 end - column, line.substr(end + 1), at});
            continue;
        }
        content += (number > 0 ? "\n" : "") + line;
        ++number;
    }
    writeFile(block.kind, content);
}

// Makes the database of a script beside it.
static void makeDatabase(const std::string &script)
{
    sqlite3 *db = nullptr;
    sqlite3_open((script.substr(0, script.size() - 4) + ".db").c_str(), &db);
    const std::string text = "pragma synchronous = off;" + readFile(script); // for a moment only
    EXPECT_EQ(sqlite3_exec(db, text.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db);
    sqlite3_close(db);
}

// Takes the mark that a printed line of a finding fits off the list. Returns whether there was one.
static bool takeMark(const std::string &line, const Finding &finding, std::vector<Mark> *marks)
{
    const auto found = std::find_if(marks->begin(), marks->end(), [&](const Mark &mark) {
        const bool isLong = mark.length == 1 || (finding.endLine == finding.line &&
                                                 finding.endColumn - finding.column == mark.length);
        return line.starts_with(mark.place + ": ") && line.ends_with(mark.text) && isLong;
    });
    if (found == marks->end())
        return false;
    marks->erase(found);
    return true;
}

// Checks a site as the program would, in the working directory.
static std::vector<Finding> checkSiteOf(const std::string &options)
{
    std::istringstream stream(options);
    std::vector<std::string> words = {"orv-check"};
    words.insert(words.end(), std::istream_iterator<std::string>(stream), {});
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    Arguments arguments;
    Looked looked;
    std::string problem;
    EXPECT_EQ(readArguments(static_cast<int>(words.size()), argv.data(), &arguments), -1);
    EXPECT_TRUE(lookAt(arguments, &looked, &problem)) << problem;
    return looked.findings;
}

static std::string checkRow(const std::string &options)
{
    return printFindings(checkSiteOf(options), Form::TEXT);
}

// Rows of most documents are pieces of pages: what whole pages have to have is left out there.
static std::string pageKindsLeftOut(const std::string &document)
{
    std::string options;
    for (const char *name : {"structure.md", "pages.md", "json.md", "checking.md"})
        if (document.ends_with(name))
            return options;
    for (const Kind &kind : allKinds())
        if (std::string_view(kind.id).starts_with("html-") ||
            kind.id == std::string("link-missing"))
            options += std::string("--ignore ") + kind.id + " ";
    return options;
}

static std::string firstLine(const std::string &text)
{
    return text.substr(0, text.find('\n'));
}

static void compareRow(const std::string &document, const Row &row)
{
    std::vector<Mark> marks;
    std::filesystem::remove_all(folder + "/row");
    std::filesystem::create_directory(folder + "/row");
    std::filesystem::current_path(folder + "/row");
    for (const auto &[name, block] : row.files) {
        if (name != "options" && name != "each")
            writeBlock(block, &marks);
        if (name.ends_with(".sql") && !row.files.contains(SITE_FILE))
            makeDatabase(name);
    }
    for (const Finding &finding :
         checkSiteOf(pageKindsLeftOut(document) + row.files.at("options").text)) {
        std::istringstream lines(printFindings({finding}, Form::TEXT));
        for (std::string line; std::getline(lines, line);) {
            const bool isNote = line.find(": note: ") != std::string::npos;
            if (!takeMark(line, finding, &marks) && !isNote)
                ADD_FAILURE_AT(document.c_str(), row.line)
                    << row.heading << ": not expected: " << line << " up to " << finding.endColumn;
        }
    }
    for (const Mark &mark : marks)
        ADD_FAILURE_AT(document.c_str(), mark.line)
            << row.heading << ": not found: " << mark.place << ": " << mark.text;
    std::filesystem::current_path(folder);
}

// Puts another word in the place of one, and moves the marks below along.
static std::string withWord(const std::string &text, const std::string &word,
                            const std::string &other)
{
    std::istringstream lines(text);
    std::string changed;
    std::vector<size_t> ats; // of the word in the line that the marks are of, from the right
    for (std::string line; std::getline(lines, line); changed += line + "\n") {
        const size_t begin = line.find_first_not_of(' ');
        const size_t end = line.find_first_not_of('~', begin + 1);
        const bool isMark = begin != line.npos && line[begin] == '^';
        if (!isMark)
            ats.clear();
        for (size_t at = isMark ? end : 0; (at = line.find(word, at)) != line.npos;
             at += other.size()) {
            if (!isMark)
                ats.insert(ats.begin(), at - ats.size() * (other.size() - word.size()));
            line.replace(at, word.size(), other);
        }
        for (const size_t at : ats) {
            const size_t pad = begin > at ? 0 : begin + 1;
            if (isMark && (begin > at || end > std::max(at, pad)))
                line.replace(pad, word.size() - 1, other.size() - 1, pad > 0 ? '~' : ' ');
        }
    }
    changed.resize(changed.size() - !text.ends_with('\n'));
    return changed;
}

// A row, and the same with each of the other words of its `each` block.
static void compareEach(const std::string &document, const Row &row)
{
    compareRow(document, row);
    const auto each = row.files.find("each");
    std::string text = each == row.files.end() ? "" : each->second.text;
    for (size_t end; (end = text.find("\n ")) != text.npos;) // a line that goes on
        text.erase(end, 1);
    std::istringstream lists(text);
    for (std::string list; std::getline(lists, list);) {
        std::istringstream stream(list);
        std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
        for (std::string &word : words)
            if (list.find('~') != list.npos)
                std::replace(word.begin(), word.end(), '_', ' ');
        for (const std::string &other : words) {
            Row changed = row;
            for (auto &[name, block] : changed.files) {
                std::istringstream from(words[0]), to(other);
                for (std::string a, b; std::getline(from, a, '~') && std::getline(to, b, '~');)
                    for (std::string *piece : {&block.text, &block.kind})
                        *piece = withWord(*piece, a, b);
            }
            changed.heading += " (" + other + ")";
            compareRow(document, changed);
        }
    }
}

TEST(Check, FindsWhatDocumentsSay)
{
    for (const std::string name : {ORV_CHECK_DOCUMENTS}) {
        const std::vector<Row> rows = readRows(ORV_SOURCE "/tests/" + name, "## ");
        EXPECT_FALSE(rows.empty()) << name;
        for (const Row &row : rows)
            compareEach(ORV_SOURCE "/tests/" + name, row);
    }
}

// A text without blanks and marks of Markdown.
static std::string plain(std::string text)
{
    std::erase_if(text,
                  [](char c) { return std::string_view("`\\ \n").find(c) != std::string::npos; });
    return text;
}

// The documents explain each kind and command as the program does, with an example of what is
// found, whole.
TEST(Check, ListsAllKinds)
{
    const std::string path = ORV_SOURCE "/docs/checking.md";
    const std::string document = readFile(path);
    std::string list;
    for (const Kind &kind : allKinds()) {
        const std::string heading = "\n### `" + std::string(kind.id) + "`\n";
        const size_t begin = document.find(heading);
        const size_t end = document.find("\n#", begin + heading.size());
        ASSERT_NE(begin, std::string::npos) << path << " lacks " << kind.id;
        const std::string section = document.substr(begin, end - begin) + "\n";
        const bool isFound = section.find("[" + std::string(kind.id) + "]\n") != std::string::npos;
        EXPECT_EQ(isFound, section.find("```") != std::string::npos) << kind.id;
        EXPECT_EQ(section.find("^ ["), std::string::npos) << kind.id;
        const std::string told = explainKind(kind);
        const size_t example = told.find("\n    ");
        list += (list.empty() ? "" : "\n") + told;
        EXPECT_TRUE(plain(section).starts_with(plain("#" + told.substr(0, example)))) << told;
        EXPECT_TRUE(section.find(told.substr(example)) != std::string::npos ||
                    section.find("\n" + told.substr(example + 5)) != std::string::npos)
            << told;
    }
    for (const Row &row : readRows(path, "### `"))
        compareRow(path, row);
    EXPECT_EQ(runCommand(ORV_CHECK " --list"), 0);
    EXPECT_EQ(readFile("out"), list);
    const std::string messages = plain(readFile(ORV_SOURCE "/docs/preview.md"));
    for (size_t i = 0; i < MESSAGE_COUNT; ++i) {
        const auto &[id, told, mending] = adviceOn(static_cast<Message>(i));
        std::string row = std::string("|") + told + "|" + mending + "|\n";
        for (size_t at; (at = row.find('%')) != std::string::npos;)
            row.replace(at, 2, "…");
        EXPECT_TRUE(!*told || messages.find(plain(row)) != std::string::npos) << row;
    }
    for (const CommandDef &command : commandTable)
        EXPECT_NE(readFile(ORV_SOURCE "/docs/templates.md")
                      .find("\n- " + std::string(describeCommand(command.id)) + "\n"),
                  std::string::npos)
            << command.words;
}

TEST(Check, KnowsTheLimits)
{
    auto nested = [](size_t bodies) {
        std::string text = "x";
        for (size_t i = 0; i < bodies; ++i)
            text = "<?echo " + text + "?>";
        return text;
    };
    auto argument = [](size_t length) {
        return "<?setvariable var:x '" + std::string(length, 'x') + "{?id?}'?>";
    };
    for (int i = 0; i < 20; ++i)
        writeFile("d" + std::to_string(i) + ".frm",
                  i == 19 ? "last" : "<?include d" + std::to_string(i + 1) + ".frm?>");
    const std::string id(128, 'i');
    // The template, and the end of the one line, none for nothing.
    const std::pair<std::string, const char *> cases[] = {
        {nested(64), nullptr},
        {nested(65), "64 bodies are around this one, and no more run: it is dropped [limit]"},
        {argument(66559), nullptr},
        {argument(66560), "error: the arguments have 66560 bytes at least, and 66559 are the most "
                          "[limit]"},
        {"{?" + id + "?}", nullptr},
        {"{?" + id + "i?}", "error: the id has 129 characters; what is behind the 128th is ignored "
                            "[limit]"},
        {"<?print " + repeated("$$", 12000) + "?>",
         "error: an argument has too many pieces: the run ends there [limit]"},
        {"<?include d1.frm?>", nullptr},
        {"<?include d0.frm?>", "d18.frm:1:11: error: 'd19.frm' would be the 21st open template, "
                               "and 20 are the most [include-depth]"},
    };
    for (const auto &[text, found] : cases) {
        writeFile("t.htm", text);
        const std::string line = firstLine(checkRow("t.htm"));
        EXPECT_TRUE(found ? line.ends_with(found) : line.empty()) << text.substr(0, 60) << line;
    }
    EXPECT_NE(checkRow("t.htm").find("\nt.htm:1:1: note: included from here\n"), id.npos);
}

TEST(Check, LooksAtBytes)
{
    using namespace std::string_literals;
    // A page, its part and the end of the one line, none for nothing.
    const std::tuple<std::string, std::string, const char *> cases[] = {
        {"<p>\xC3\xA9</p>", "\xEF\xBB\xBFx",
         "b.frm:1:1: error: a byte order mark comes out where "
         "this is included: save the file without [file-bytes]"},
        {"\xEF\xBB\xBF<p>x</p>", "x", nullptr},
        {"<p>\xE9</p>", "x",
         "b.htm:1:4: error: the byte E9 is no UTF-8: the file is of another "
         "encoding, as Latin-1; save it as UTF-8 [file-bytes]"},
        {"<meta charset=iso-8859-1><p>\xE9</p>", "x", nullptr},
        {"<meta content='text/html; charset=utf-8;'><p>\xC3\xA9</p>", "x", nullptr},
        {"<meta charset=\"iso-8859-1\"><p>\xC3\xA9</p>", "x",
         "b.htm:1:16: error: the page says that it is iso-8859-1, but it is UTF-8 [file-bytes]"},
        {"<p>a\0b</p>"s, "x",
         "b.htm:1:5: error: a zero byte: what is behind it can be lost "
         "[file-bytes]"},
        {"<p>x</p>", "\xFF\xFEx\0"s,
         "b.frm:1:1: error: the file is UTF-16: save it as UTF-8 "
         "[file-bytes]"},
        {"", "x", "b.htm:1:1: warning: the page is empty [page-empty]"},
    };
    for (const auto &[page, part, found] : cases) {
        writeFile("b.htm", page.empty() ? "" : page + "<?include b.frm?>");
        writeFile("b.frm", part);
        const std::string lines = checkRow("b.htm");
        EXPECT_TRUE(found ? lines.ends_with(found + "\n"s) : lines.empty()) << lines;
    }
    std::filesystem::remove("b.htm");
    std::filesystem::remove("b.frm");
}

TEST(Check, PrintsAndRefuses)
{
    writeFile("site/a.htm", "<p>\n<?include sub/x.frm?></p>");
    writeFile("site/sub/x.frm", "<a href=\"<?print $var:user?>\">x</a>");
    writeFile("site/alone.frm", "no command");
    std::filesystem::create_directory("empty");
    for (const std::string site : {"--docroot site", "site", "site/sub/../"}) {
        EXPECT_EQ(runCommand(ORV_CHECK " --set user " + site), 1);
        EXPECT_EQ(
            readFile("out"),
            "site/sub/x.frm:1:18: error: $var:user comes out as it is, in an attribute in double "
            "quotes: print does not escape; use echo [escape-missing]\n"
            "site/a.htm:2:1: note: included from here\n"
            "site/sub/x.frm:1:18: error: $var:user is the beginning of an address, and can be "
            "javascript: or any other site; write what the address begins with in the template "
            "[escape-url]\n"
            "site/a.htm:2:1: note: included from here\n");
    }
    EXPECT_EQ(
        runCommand(ORV_CHECK
                   " --docroot site --set user --ignore escape-missing --ignore escape-url a.htm"),
        0)
        << readFile("out");
    writeFile("site/b.htm", "<?include broken.htm?>");
    for (const char *name : {"broken.db", "site/broken.htm"}) // a file whose reading fails
        std::filesystem::create_symlink("/proc/self/mem", name);
    const std::string refused[][2] = {
        {"--ignore escape", "--ignore: there is no kind 'escape' (--list tells all)"},
        {"nothere.htm", "cannot read template nothere.htm"},
        {"", "cannot read template broken.htm: Input/output error"},
        {"--docroot nothere", "no folder: nothere"},
        {"empty",
         "empty is no folder of the site below site; --docroot empty is a site of its own"},
        {"a.htm site", "site is no template; --only prints what is found in it"},
        {"--docroot empty", "there is no template below empty"},
        {"--set-from site", "cannot read site: Is a directory"},
        {"--db nothere.db", "cannot read database nothere.db: No such file or directory"},
        {"--db nothere.sql", "cannot read nothere.sql: No such file or directory"},
        {"--texts broken.db", "cannot read texts broken.db: Input/output error"},
        {"--db broken.db", "cannot read database broken.db: disk I/O error"},
        {"--texts site", "cannot read texts site: not a regular file"},
        {"b.htm", "cannot read template broken.htm: Input/output error"},
        {"--set-from nothere", "cannot read nothere: No such file or directory"},
        {"--db err err", "err is no template; --only prints what is found in it"},
        {"--format yaml", "--format needs text, json or sarif, not 'yaml'"},
        {"--nope", "wrong option '--nope' (--help tells all)"},
        {"--db", "option '--db' needs a value (--help tells all)"},
    };
    for (const auto &[arguments, message] : refused) {
        EXPECT_EQ(runCommand(ORV_CHECK " --docroot site " + arguments), 2) << arguments;
        EXPECT_EQ(readFile("err"), "orv-check: " + message + "\n");
    }
    EXPECT_EQ(runCommand(ORV_CHECK " --explain syntax --explain nothere"), 2);
    EXPECT_EQ(runCommand(ORV_CHECK " --explain text-ending"), 0);
    EXPECT_TRUE(readFile("out").starts_with("## text-ending\n\nHint. The sentence ends in another "
                                            "way than that of the source text. Languages\nhave "));
#ifdef ORV_OPTIMIZED // a sanitizer needs more than any limit
    writeFile("big.htm", std::string(32 << 20, '<'));
    EXPECT_EQ(runCommand("ulimit -v 50000; " ORV_CHECK " big.htm"), 2);
    EXPECT_EQ(readFile("err"), "orv-check: out of memory\n");
    for (const auto &[blanks, status] : {std::pair((16 << 20) - 10, 0), {(16 << 20) - 9, 2}}) {
        writeFile("large/a.page", "<?echo 1?>" + std::string(static_cast<size_t>(blanks), ' '));
        EXPECT_EQ(runCommand(ORV_CHECK " large"), status);
    }
    std::string many; // of what once took a time that was the square of it
    for (int i = 0; i < 4000; ++i)
        many += "<?setvariable var:vname" + std::to_string(i) + " x?><?echo $var:nothere" +
                std::to_string(7 * i) + "?>" + repeated("<input value=\"{?a?}\"", 5);
    writeFile("many.htm", many);
    writeFile("en.po", "msgid \"a\"\nmsgstr \"b\"\n");
    EXPECT_EQ(runCommand("ulimit -t 3; " ORV_CHECK " --texts en.po many.htm"), 1);
#endif
}

// Files that are found, named and left out.
TEST(Check, KnowsItsSite)
{
    const std::string unset = ": error: $var:user is not set anywhere [variable-unset]\n";
    const std::string root = std::filesystem::current_path();
    writeFile("orv-check.json", R"({"docroot": "site"})");
    writeFile("site/a.htm", "<p><?include deep/b.frm?></p>");
    writeFile("site/deep/b.frm", "<?echo $var:user?>");
    writeFile("site/deep/c.page", "<?echo 1?>");
    writeFile("site/image.png", std::string("<?echo $var:user?>\0", 19));
    for (const auto &[to, from] : {std::pair("..", "loop"), {"deep/b.frm", "link.frm"}})
        std::filesystem::create_symlink(to, std::string("site/") + from);
    const std::string rows[][4] = {
        {".", "", "site/deep/b.frm:1:8" + unset, "3 templates checked: 1 error\n"},
        {"site/deep", "--only b.frm", "b.frm:1:8" + unset, "3 templates checked: 1 error\n"},
        {"site/deep", "c.page", "", "1 template checked, nothing found\n"},
        {"site", "--only deep/c.page a.htm", "", "3 templates checked, nothing found\n"},
        {"site", "--only --quiet", "", ""},
        {"site", "--only deep", "deep/b.frm:1:8" + unset, "3 templates checked: 1 error\n"},
        {".", "site/deep", "site/deep/b.frm:1:8" + unset, "3 templates checked: 1 error\n"},
        {"/", root + "/site " + root + "/site/deep", root + "/site/deep/b.frm:1:8" + unset,
         "3 templates checked: 1 error\n"},
        {".", "--only deep/b.frm", "site/deep/b.frm:1:8" + unset, "3 templates checked: 1 error\n"},
        {"/", "--only " + root + "/site/deep/b.frm", root + "/site/deep/b.frm:1:8" + unset,
         "3 templates checked: 1 error\n"},
        {"/", root + "/site/deep/b.frm", root + "/site/deep/b.frm:1:8" + unset,
         "1 template checked: 1 error\n"},
        {".", "--quiet --only out site/image.png orv-check.json site/gone", "",
         "not part of the site: out, site/gone\n"},
        {".", "--ignore variable-unset", "", "3 templates checked, nothing found\n"},
    };
    for (const auto &[from, arguments, out, err] : rows) {
        EXPECT_EQ(runCommand("(cd " + from + " && " ORV_CHECK " " + arguments + ")"), !out.empty());
        EXPECT_EQ(readFile("out"), out) << arguments;
        EXPECT_EQ(readFile("err"), err.empty() ? "" : "orv-check: " + err) << arguments;
    }
    EXPECT_EQ(runCommand(ORV_CHECK " --init"), 2);
    EXPECT_EQ(readFile("err"), "orv-check: cannot make orv-check.json: File exists\n");
    std::filesystem::remove("orv-check.json");
    for (const char *script : {"site/db-1.sql", "site/db-02.sql"})
        writeFile(script, "create table t" + std::to_string(script[8]) + "(a);");
    writeFile("site/z.sql", "create table z(a);"); // has no more tables
    writeFile("site/en.po", "msgid \"a\"\nmsgstr \"b\"\n");
    EXPECT_EQ(runCommand(ORV_CHECK " --init && " ORV_CHECK " --ignore text-unused"), 1);
    EXPECT_TRUE(readFile("out").starts_with("orv-check.json is written: look through what it "
                                            "guesses, then run orv-check\nsite/deep/"));
    EXPECT_EQ(readFile("err"), "orv-check: 3 templates checked: 1 error\n");
    EXPECT_NE(readFile(ORV_SOURCE "/docs/checking.md").find(readFile("orv-check.json")),
              std::string::npos);
    writeFile("site/de.po", "msgid \"c\"\nmsgstr \"d\"\n"); // given, it takes the place of all
    EXPECT_EQ(runCommand(ORV_CHECK " --texts site/de.po"), 1);
    EXPECT_EQ(readFile("out").find("en.po"), std::string::npos) << readFile("out");
    std::vector<std::pair<std::string, std::string>> wrong = {
        {"{\n\"docroot\": 1}", "2: 'docroot' must be a text, not a number"},
        {"{\n\n \"docroot\": \"gone\"}", "3: there is no folder gone"},
        {"{\"docroot\": \"a\",\n}", "2:1: syntax error while parsing object key - unexpected '}'; "
                                    "expected string literal"},
        {"{\"kinds\": {\n\"syntaks\": \"off\"}}",
         "2: there is no kind 'syntaks'; did you mean 'syntax'?"},
    };
    std::ifstream document(ORV_SOURCE "/docs/checking.md");
    for (std::string line; std::getline(document, line);)
        if (const size_t end = line.find("` | `"); end != line.npos && strchr("{[", line[3]))
            wrong.emplace_back(line.substr(3, end - 3),
                               "1: " + line.substr(end + 5, line.size() - end - 8));
    for (const auto &[file, message] : wrong) {
        writeFile("orv-check.json", file);
        EXPECT_EQ(runCommand(ORV_CHECK), 2) << file;
        EXPECT_EQ(readFile("err"), "orv-check: orv-check.json:" + message + "\n");
    }
    writeFile("s.sql", "create table t(a);\n\nvacuum into 'stolen';");
    EXPECT_EQ(runCommand(ORV_CHECK " --config " ORV_SOURCE "/examples/orv-check.json --db s.sql"),
              2);
    EXPECT_EQ(readFile("err"), "orv-check: s.sql:3: authorization denied\n");
    EXPECT_FALSE(std::filesystem::exists("stolen"));
}

// Of something with a note; one counts in bytes, the other in UTF-16 units, of which 2, 1 and 8
// stand in front.
TEST(Check, PrintsJsonAndSarif)
{
    writeFile("t.htm", "\xF0\x9F\x8E\x88 <?include 'a b.frm'?>");
    writeFile("a b.frm", "\n\xF0\x9F\x8E\x88\xC3\xA4<?print $var:user?>");
    const std::string text =
        "$var:user comes out as it is, in page text: print does not escape; use echo";
    EXPECT_EQ(runCommand(ORV_CHECK " --set user --format json t.htm"), 1);
    EXPECT_EQ(
        json::parse(readFile("out"), nullptr, false), json::parse(R"({"version": 1, "findings": [
        {"file": "a b.frm", "line": 2, "column": 15, "endLine": 2, "endColumn": 24, "severity": "error",
         "id": "escape-missing", "text": ")" + text + R"(",
         "notes": [{"file": "t.htm", "line": 1, "column": 6, "text": "included from here"}]}]})"));
    EXPECT_EQ(runCommand(ORV_CHECK " --set user --format sarif t.htm"), 1);
    json log = json::parse(readFile("out"), nullptr, false);
    ASSERT_EQ(log["version"], "2.1.0");
    json result = log["runs"][0]["results"][0];
    const size_t index = result["ruleIndex"];
    const Kind &kind = allKinds()[index];
    const std::string help = std::string(kind.explanation) + "\n\nExample: " + kind.example;
    log["runs"][0].erase("results");
    EXPECT_EQ(log["runs"][0]["tool"]["driver"]["rules"][index],
              json({{"id", "escape-missing"},
                    {"shortDescription", {{"text", kind.explanation}}},
                    {"help", {{"text", help}, {"markdown", explainKind(kind)}}},
                    {"defaultConfiguration", {{"level", "error"}}}}));
    json &driver = log["runs"][0]["tool"]["driver"];
    driver.erase("rules");
    EXPECT_EQ(runCommand(ORV_CHECK " --version"), 0);
    EXPECT_EQ(readFile("out"), "orv-check " + driver["version"].get<std::string>() + "\n");
    driver.erase("version");
    EXPECT_EQ(log, json::parse(R"({"$schema": "https://json.schemastore.org/sarif-2.1.0.json",
        "version": "2.1.0", "runs": [{"columnKind": "utf16CodeUnits",
                                      "tool": {"driver": {"name": "orv-check"}}}]})"));
    result.erase("ruleIndex");
    EXPECT_EQ(
        result,
        json::parse(R"({"ruleId": "escape-missing", "level": "error", "message": {"text": ")" +
                    text + R"("},
        "locations": [{"physicalLocation": {"artifactLocation": {"uri": "a%20b.frm"},
            "region": {"startLine": 2, "startColumn": 12, "endLine": 2, "endColumn": 21}}}],
        "relatedLocations": [{"message": {"text": "included from here"}, "physicalLocation":
            {"artifactLocation": {"uri": "t.htm"}, "region": {"startLine": 1, "startColumn": 4}}}]})"));
}

// The options of orv-render for the variables of an address, behind its "?".
static std::string asOptions(const std::string &request)
{
    std::istringstream fields(request.substr(std::min(request.find('?'), request.size() - 1) + 1));
    std::string options;
    for (std::string field; std::getline(fields, field, '&');)
        options += " --set '" + field + "'";
    return options;
}

// The recipes of the guide, in the form that it tells at its top.
TEST(Check, FindsNothingInTheRecipes)
{
    const std::string path = ORV_SOURCE "/docs/templates.md";
    const std::string render = ORV_RENDER " --log --root . --db device.db ";
    std::string options = "--db device.db";
    std::string request;
    std::vector<Mark> none;
    writeFile("chart.js", "// draws");
    int pages = 0;
    for (Block block : readBlocks(path)) {
        const std::string name = block.kind.substr(0, block.kind.find('.'));
        const std::string ending = block.kind.substr(name.size());
        if (!block.text.empty())
            block.text.pop_back();
        if (!ending.empty())
            writeBlock(block, &none);
        if (ending == ".sql")
            makeDatabase(block.kind);
        if (ending == ".htm" || name == "request")
            request = ending.empty() ? block.text : block.kind;
        if (ending == ".po") {
            options += " --texts " + block.kind;
            EXPECT_EQ(runCommand("mkdir -p etc; " ORV_TEXTDB " build -o etc/htmltext_" + name +
                                 ".db " + block.kind),
                      0);
        }
        if (name != "page" || !std::filesystem::exists("device.db"))
            continue;
        const std::string page = request.substr(0, request.find('?'));
        EXPECT_EQ(runCommand(render + page + asOptions(request)), 0) << readFile("err");
        if (const std::string got = readFile("out"); got != block.text)
            ADD_FAILURE_AT(path.c_str(), block.line) << got;
        EXPECT_EQ(checkRow(options + " " + page), "") << page;
        ++pages;
    }
    EXPECT_GT(pages, 15);
}

TEST(Check, TheDemoSiteIsClean)
{
    EXPECT_EQ(runCommand("cd " ORV_SOURCE "/examples/site/texts && " ORV_CHECK), 0);
    EXPECT_EQ(readFile("out"), "");
    EXPECT_TRUE(readFile("err").ends_with(" templates checked, nothing found\n"));
}
