/* bench/pages.cpp - makes the pages of the bench: bench_pages FOLDER fills
 * FOLDER/W1 to FOLDER/W6, the same bytes every time.
 *
 * A page is a list of nodes, from which everything is printed: the templates of
 * every engine, the page that each must give (expected.html), the data
 * (data.txt, see worker.h), the library's text database, and the system calls
 * that the page needs of the library (limit.ops, see engines/limit.c). The
 * pieces of the latter follow from the language's rules, not from the library:
 * a run of text between two commands is one piece, and so is each literal of a
 * body, each value, and each part of a value around a character that is escaped. */
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/textdb_file.h"

using std::string;
using std::string_view;
using std::vector;
namespace fs = std::filesystem;

namespace
{
enum class Kind {
    TEXT,        // a: the text
    VARIABLE,    // a: its name
    FIELD,       // a: its id
    COLUMN,      // number: of the row
    IF_VARIABLE, // a: its name; texts b and c for "on" and for "off"
    IF_COLUMN,   // number: of the row; texts b and c for "up" and for "down"
    ROWS,        // a: the query; body
    REPEAT,      // number: of times; body
    COUNTER,     // of the repeat, from 1
    SUM,         // of the variables a and b
    INCLUDE,     // a: the template's name; body
};

struct Node {
    Kind kind;
    string a = {}, b = {}, c = {};
    int number = 0;
    vector<Node> body = {};
};
using Nodes = vector<Node>;

struct Query {
    string name;
    vector<vector<string>> rows;
};

struct Page {
    Nodes nodes;
    vector<std::pair<string, string>> variables;
    vector<Query> queries;
    std::map<string, string> texts;
};

// How an engine writes the nodes; @1 stands for a node's a, or else its number,
// @2 and @3 for its b and c. Engines without logic get conditions, sums and
// counters as data.
struct Dialect {
    const char *extension;
    const char *variable;
    const char *field;
    const char *column;
    const char *ifVariable;
    const char *ifColumn;
    const char *rows;
    const char *rowsEnd;
    const char *repeat;
    const char *repeatEnd;
    const char *counter;
    const char *sum;
    const char *include;
};
} // namespace

static constexpr Dialect dialects[] = {
    {
        .extension = ".htm",
        .variable = "<?echo $var:@1?>",
        .field = "{?@1?}",
        .column = "$@1",
        .ifVariable = "<?if eq $var:@1 on \"@2\" \"@3\"?>",
        .ifColumn = "<?if eq $@1 up \"@2\" \"@3\"?>",
        .rows = "<?multiquery '@1' '",
        .rowsEnd = "'?>",
        .repeat = "<?repeat [ 1 @1 ] '",
        .repeatEnd = "'?>",
        .counter = "$0",
        .sum = "<?calc + $var:@1 $var:@2?>",
        .include = "<?include @1.htm?>",
    },
    {
        .extension = ".tpl",
        .variable = "{{@1:h}}",
        .field = "{{@1}}",
        .column = "{{c@1:h}}",
        .ifVariable = "{{#@1Yes}}@2{{/@1Yes}}{{#@1No}}@3{{/@1No}}",
        .ifColumn = "{{#c@1Yes}}@2{{/c@1Yes}}{{#c@1No}}@3{{/c@1No}}",
        .rows = "{{#@1}}",
        .rowsEnd = "{{/@1}}",
        .repeat = "{{#repeat}}",
        .repeatEnd = "{{/repeat}}",
        .counter = "{{c1}}",
        .sum = "{{@1Plus@2}}",
        .include = "{{>@1}}",
    },
    {
        .extension = ".mustache",
        .variable = "{{@1}}",
        .field = "{{{@1}}}",
        .column = "{{c@1}}",
        .ifVariable = "{{#@1Yes}}@2{{/@1Yes}}{{^@1Yes}}@3{{/@1Yes}}",
        .ifColumn = "{{#c@1Yes}}@2{{/c@1Yes}}{{^c@1Yes}}@3{{/c@1Yes}}",
        .rows = "{{#@1}}",
        .rowsEnd = "{{/@1}}",
        .repeat = "{{#repeat}}",
        .repeatEnd = "{{/repeat}}",
        .counter = "{{c1}}",
        .sum = "{{@1Plus@2}}",
        .include = "{{>@1}}",
    },
    {
        .extension = ".cst",
        .variable = "<?cs var:html_escape(v.@1) ?>",
        .field = "<?cs var:t.@1 ?>",
        .column = "<?cs var:html_escape(row.c@1) ?>",
        .ifVariable = "<?cs if:v.@1 == \"on\" ?>@2<?cs else ?>@3<?cs /if ?>",
        .ifColumn = "<?cs if:row.c@1 == \"up\" ?>@2<?cs else ?>@3<?cs /if ?>",
        .rows = "<?cs each:row = q.@1 ?>",
        .rowsEnd = "<?cs /each ?>",
        .repeat = "<?cs loop:i = #1, #@1, #1 ?>",
        .repeatEnd = "<?cs /loop ?>",
        .counter = "<?cs var:i ?>",
        .sum = "<?cs var:#v.@1 + #v.@2 ?>",
        .include = "<?cs include:\"@1.cst\" ?>",
    },
    {
        .extension = ".lt",
        .variable = "<%= h(v.@1) %>",
        .field = "<%= t.@1 %>",
        .column = "<%= h(row[@1]) %>",
        .ifVariable = "<% if v.@1 == 'on' then %>@2<% else %>@3<% end %>",
        .ifColumn = "<% if row[@1] == 'up' then %>@2<% else %>@3<% end %>",
        .rows = "<% for _, row in ipairs(q.@1) do %>",
        .rowsEnd = "<% end %>",
        .repeat = "<% for i = 1, @1 do %>",
        .repeatEnd = "<% end %>",
        .counter = "<%= i %>",
        .sum = "<%= v.@1 + v.@2 %>",
        .include = "<% n = include('@1') %>",
    },
    {
        .extension = ".php",
        .variable = "<?=htmlspecialchars($v['@1'])?>",
        .field = "<?=$t['@1']?>",
        .column = "<?=htmlspecialchars($row[@1])?>",
        .ifVariable = "<?php if ($v['@1'] == 'on'): ?>@2<?php else: ?>@3<?php endif ?>",
        .ifColumn = "<?php if ($row[@1] == 'up'): ?>@2<?php else: ?>@3<?php endif ?>",
        .rows = "<?php foreach ($q['@1'] as $row): ?>",
        .rowsEnd = "<?php endforeach ?>",
        .repeat = "<?php for ($i = 1; $i <= @1; $i++): ?>",
        .repeatEnd = "<?php endfor ?>",
        .counter = "<?=$i?>",
        .sum = "<?=$v['@1'] + $v['@2']?>",
        .include = "<?php include __DIR__ . '/@1.php' ?>",
    },
    {
        .extension = ".j2",
        .variable = "{{ @1 }}",
        .field = "{{ t['@1']|safe }}",
        .column = "{{ row[@1] }}",
        .ifVariable = "{% if @1 == 'on' %}@2{% else %}@3{% endif %}",
        .ifColumn = "{% if row[@1] == 'up' %}@2{% else %}@3{% endif %}",
        .rows = "{% for row in q['@1'] %}",
        .rowsEnd = "{% endfor %}",
        .repeat = "{% for i in range(1, @1 + 1) %}",
        .repeatEnd = "{% endfor %}",
        .counter = "{{ i }}",
        .sum = "{{ @1|int + @2|int }}",
        .include = "{% include '@1.j2' %}",
    },
};

// ---- What comes out of a page ----

static void writeFile(const fs::path &path, string_view bytes)
{
    FILE *file = fopen(path.c_str(), "wb");
    if (!file || fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() || fclose(file)) {
        perror(path.c_str());
        exit(1);
    }
}

static string fill(string_view pattern, std::initializer_list<string_view> values)
{
    string filled;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '@')
            filled += values.begin()[pattern[++i] - '1'];
        else
            filled += pattern[i];
    }
    return filled;
}

// A template, and those that it includes, in the dialect; the latter as files.
static string printTemplate(const Dialect &dialect, const Nodes &nodes, const fs::path &folder)
{
    string text;
    for (const Node &node : nodes) {
        const string number = std::to_string(node.number);
        const auto body = [&] { return printTemplate(dialect, node.body, folder); };
        switch (node.kind) {
        case Kind::TEXT:
            text += node.a;
            break;
        case Kind::VARIABLE:
            text += fill(dialect.variable, {node.a});
            break;
        case Kind::FIELD:
            text += fill(dialect.field, {node.a});
            break;
        case Kind::COLUMN:
            text += fill(dialect.column, {number});
            break;
        case Kind::IF_VARIABLE:
            text += fill(dialect.ifVariable, {node.a, node.b, node.c});
            break;
        case Kind::IF_COLUMN:
            text += fill(dialect.ifColumn, {number, node.b, node.c});
            break;
        case Kind::ROWS:
            text += fill(dialect.rows, {node.a}) + body() + fill(dialect.rowsEnd, {node.a});
            break;
        case Kind::REPEAT:
            text += fill(dialect.repeat, {number}) + body() + dialect.repeatEnd;
            break;
        case Kind::COUNTER:
            text += dialect.counter;
            break;
        case Kind::SUM:
            text += fill(dialect.sum, {node.a, node.b});
            break;
        case Kind::INCLUDE:
            writeFile(folder / (node.a + dialect.extension), body());
            text += fill(dialect.include, {node.a});
            break;
        }
    }
    return text;
}

namespace
{
// Plays a page through: its bytes, and the system calls that write them.
struct Player {
    const Page &page;
    std::map<string, string> variables;
    string expected = {};
    string operations = {};
    string run = {}; // text that is not written yet

    void piece(string_view bytes)
    {
        if (bytes.empty())
            return;
        expected += bytes;
        operations += "W " + std::to_string(bytes.size()) + "\n";
        operations += bytes;
    }
    void flush()
    {
        piece(run);
        run.clear();
    }
    void value(string_view text)
    {
        static const std::map<char, string_view> escapes = {
            {'"', "&quot;"}, {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}};
        flush();
        size_t start = 0;
        for (size_t i = 0; i < text.size(); ++i) {
            const auto escape = escapes.find(text[i]);
            if (escape == escapes.end())
                continue;
            piece(text.substr(start, i - start));
            piece(escape->second);
            start = i + 1;
        }
        piece(text.substr(start));
    }
    void include(const string &name, const Nodes &nodes)
    {
        flush();
        operations += "O " + name + ".htm\n";
        play(nodes, nullptr, 0);
        flush();
        operations += "C\n";
    }
    const Query &find(const string &name) const
    {
        return *std::find_if(page.queries.begin(), page.queries.end(),
                             [&](const Query &query) { return query.name == name; });
    }
    void play(const Nodes &nodes, const vector<string> *row, int counter)
    {
        const auto column = [&](const Node &node) {
            return (*row)[static_cast<size_t>(node.number) - 1];
        };
        for (const Node &node : nodes) {
            switch (node.kind) {
            case Kind::TEXT:
                run += node.a;
                break;
            case Kind::FIELD:
                run += page.texts.at(node.a);
                break;
            case Kind::VARIABLE:
                value(variables.at(node.a));
                break;
            case Kind::COLUMN:
                value(column(node));
                break;
            case Kind::COUNTER:
                value(std::to_string(counter));
                break;
            case Kind::SUM:
                value(std::to_string(std::stoi(variables.at(node.a)) +
                                     std::stoi(variables.at(node.b))));
                break;
            case Kind::IF_VARIABLE:
                value(variables.at(node.a) == "on" ? node.b : node.c);
                break;
            case Kind::IF_COLUMN:
                value(column(node) == "up" ? node.b : node.c);
                break;
            case Kind::ROWS:
                flush();
                for (const vector<string> &next : find(node.a).rows) {
                    play(node.body, &next, counter);
                    flush();
                }
                break;
            case Kind::REPEAT:
                flush();
                for (int i = 1; i <= node.number; ++i) {
                    play(node.body, row, i);
                    flush();
                }
                break;
            case Kind::INCLUDE:
                include(node.a, node.body);
                break;
            }
        }
    }
};
} // namespace

// Data that only engines without logic need: sums, and the counters of a repeat.
static string derivedData(const Nodes &nodes, const Player &player)
{
    string lines;
    for (const Node &node : nodes) {
        if (node.kind == Kind::SUM)
            lines += "V\t" + node.a + "Plus" + node.b + "\t" +
                     std::to_string(std::stoi(player.variables.at(node.a)) +
                                    std::stoi(player.variables.at(node.b))) +
                     "\n";
        if (node.kind == Kind::REPEAT) {
            lines += "Q\trepeat\n";
            for (int i = 1; i <= node.number; ++i)
                lines += "R\t" + std::to_string(i) + "\n";
        }
        if (node.kind == Kind::INCLUDE)
            lines += "I\t" + node.a + "\n";
        lines += derivedData(node.body, player);
    }
    return lines;
}

static void writeData(const Page &page, const Player &player, const fs::path &folder)
{
    string lines;
    for (const auto &[name, value] : page.variables)
        lines += "V\t" + name + "\t" + value + "\n";
    for (const auto &[id, text] : page.texts)
        lines += "T\t" + id + "\t" + text + "\n";
    for (const Query &query : page.queries) {
        lines += "Q\t" + query.name + "\n";
        for (const vector<string> &row : query.rows) {
            lines += "R";
            for (const string &column : row)
                lines += "\t" + column;
            lines += "\n";
        }
    }
    writeFile(folder / "data.txt", lines + derivedData(page.nodes, player));
}

// The files of a device that the library itself reads.
static void writeRoot(const Page &page, const fs::path &root)
{
    vector<TextEntry> entries;
    for (const auto &[id, text] : page.texts)
        entries.push_back({id, text, 0});
    string database;
    size_t culprit = 0;
    if (const char *problem = buildTextDb(entries, &database, &culprit)) {
        fprintf(stderr, "bench_pages: %s\n", problem);
        exit(1);
    }
    fs::create_directories(root / "etc");
    fs::create_directories(root / "proc");
    writeFile(root / "etc/htmltext_en.db", database);
    writeFile(root / "proc/cmdline", "console=ttyS0 quiet\n");
}

static void writePage(const Page &page, const fs::path &folder)
{
    fs::create_directories(folder);
    for (const Dialect &dialect : dialects)
        writeFile(folder / (string("page") + dialect.extension),
                  printTemplate(dialect, page.nodes, folder));
    Player player = {page, {page.variables.begin(), page.variables.end()}};
    player.include("page", page.nodes);
    writeFile(folder / "expected.html", player.expected);
    writeFile(folder / "limit.ops", player.operations);
    writeData(page, player, folder);
    writeRoot(page, folder / "root");
}

// ---- What goes into a page ----

static unsigned randomBelow(unsigned bound)
{
    static unsigned state = 1;
    state = state * 1664525 + 1013904223;
    return (state >> 8) % bound;
}

static string_view word()
{
    static constexpr string_view words[] = {
        "address", "network", "router", "wireless", "access", "port", "status", "the",  "and",
        "service", "device",  "of",     "channel",  "signal", "for",  "system", "time", "update"};
    return words[randomBelow(std::size(words))];
}

static string words(size_t length)
{
    string text(word());
    while (text.size() < length)
        text.append(" ").append(word());
    return text;
}

// Page text with mark-up; it begins and ends with a tag, since engines treat
// line ends beside commands in their own ways.
static string markup(size_t length)
{
    string text = "<div>";
    while (text.size() + 6 < length)
        text += "<p class=\"note\">" + words(60) + ".</p>\n";
    return text + "</div>";
}

static Node text(string value)
{
    return {Kind::TEXT, std::move(value)};
}
static Node variable(string name)
{
    return {Kind::VARIABLE, std::move(name)};
}
static Node field(string id)
{
    return {Kind::FIELD, std::move(id)};
}
static Node column(int number)
{
    return {.kind = Kind::COLUMN, .number = number};
}

// A value of a variable or a column; every tenth has something to escape.
static string makeValue()
{
    const string value = words(6);
    return randomBelow(10) == 0 ? value + " & <" + string(word()) + ">" : value;
}

static void addVariable(Page &page, const string &name, string value)
{
    page.variables.emplace_back(name, std::move(value));
}

static void addTexts(Page &page, int count)
{
    for (int i = 0; i < count; ++i) {
        string id = string(word()) + string(word()) + std::to_string(i);
        page.texts.emplace(std::move(id), words(5 + randomBelow(40)));
    }
}

static vector<string> textIds(const Page &page, size_t count)
{
    vector<string> ids;
    for (const auto &entry : page.texts)
        ids.push_back(entry.first);
    for (size_t i = 0; i < count; ++i)
        std::swap(ids[i], ids[i + randomBelow(static_cast<unsigned>(ids.size() - i))]);
    ids.resize(count);
    return ids;
}

// A table of rows by five columns, with a condition in every row.
static void addTable(Page &page, int rows)
{
    Query query = {"devices", {}};
    for (int i = 0; i < rows; ++i)
        query.rows.push_back({makeValue(), makeValue(), randomBelow(2) ? "up" : "down",
                              std::to_string(randomBelow(1000000)), makeValue()});
    page.queries.push_back(std::move(query));
    page.nodes.push_back(text("<table border=\"0\">"));
    page.nodes.push_back(
        {.kind = Kind::ROWS,
         .a = "devices",
         .body = {text("<tr"),
                  {.kind = Kind::IF_COLUMN, .b = " class=on", .c = " class=off", .number = 3},
                  text("><td>"),
                  column(1),
                  text("</td><td>"),
                  column(2),
                  text("</td><td>"),
                  column(3),
                  text("</td><td>"),
                  column(4),
                  text("</td><td>"),
                  column(5),
                  text("</td></tr>\n")}});
    page.nodes.push_back(text("</table>\n"));
}

static Page pageOfText()
{
    Page page;
    page.nodes = {text(markup(200 * 1024))};
    return page;
}

static Page pageOfRows()
{
    Page page;
    addTable(page, 1000);
    return page;
}

static Page pageOfIncludes()
{
    Page page;
    for (int i = 1; i <= 15; ++i) {
        const string name = "part" + std::to_string(i);
        addVariable(page, name + "Title", makeValue());
        page.nodes.push_back(text(markup(300)));
        page.nodes.push_back(
            {.kind = Kind::INCLUDE,
             .a = name,
             .body = {text("<h2>"), variable(name + "Title"), text("</h2>\n" + markup(1000))}});
    }
    page.nodes.push_back(text("<hr>\n"));
    return page;
}

static Page pageOfFields()
{
    Page page;
    addTexts(page, 5000);
    for (const string &id : textIds(page, 500)) {
        page.nodes.push_back(text("<tr><td class=\"label\">"));
        page.nodes.push_back(field(id));
        page.nodes.push_back(text("</td></tr>\n"));
    }
    return page;
}

static Page pageOfVariables()
{
    Page page;
    for (int i = 0; i < 500; ++i)
        addVariable(page, "flag" + std::to_string(i), randomBelow(2) ? "on" : "off");
    for (int i = 0; i < 2000; ++i) {
        const string name = string(word()) + std::to_string(i);
        addVariable(page, name, makeValue());
        page.nodes.push_back(text("<li>"));
        page.nodes.push_back(variable(name));
        if (i % 4 == 0) {
            page.nodes.push_back(text(" "));
            page.nodes.push_back(
                {Kind::IF_VARIABLE, "flag" + std::to_string(i / 4), "enabled", "disabled"});
        }
        page.nodes.push_back(text("</li>\n"));
    }
    return page;
}

static Page pageOfEverything()
{
    Page page;
    addTexts(page, 300);
    const vector<string> ids = textIds(page, 30);
    addVariable(page, "count", "17");
    addVariable(page, "spare", "5");
    Nodes head = {text("<html><body>")};
    for (const string &id : ids) {
        head.push_back(text("<a href=\"" + id + ".htm\">"));
        head.push_back(field(id));
        head.push_back(text("</a> "));
    }
    page.nodes = {{.kind = Kind::INCLUDE, .a = "head", .body = std::move(head)}, text("<form>\n")};
    for (int i = 0; i < 12; ++i) {
        const string name = "setting" + std::to_string(i);
        addVariable(page, name, makeValue());
        addVariable(page, name + "Set", i % 3 ? "on" : "off");
        page.nodes.insert(page.nodes.end(), {text("<input name=\"" + name + "\" value=\""),
                                             variable(name),
                                             text("\" class="),
                                             {Kind::IF_VARIABLE, name + "Set", "set", "unset"},
                                             text(">\n")});
    }
    addTable(page, 20);
    page.nodes.insert(
        page.nodes.end(),
        {text("<select>"),
         {.kind = Kind::REPEAT,
          .number = 24,
          .body = {text("<option>"), {Kind::COUNTER}, text("</option>")}},
         text("</select> "),
         {Kind::SUM, "count", "spare"},
         text(markup(2800)),
         {.kind = Kind::INCLUDE,
          .a = "foot",
          .body = {text("<hr><p>"), variable("setting1"), text("</p></body></html>\n")}}});
    return page;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fputs("usage: bench_pages FOLDER\n", stderr);
        return 2;
    }
    const fs::path folder = argv[1];
    writePage(pageOfText(), folder / "W1");
    writePage(pageOfRows(), folder / "W2");
    writePage(pageOfIncludes(), folder / "W3");
    writePage(pageOfFields(), folder / "W4");
    writePage(pageOfVariables(), folder / "W5");
    writePage(pageOfEverything(), folder / "W6");
    return 0;
}
