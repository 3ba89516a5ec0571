/* bench/pages.cpp - makes the pages of the bench: bench_pages FOLDER fills
 * FOLDER/W1 to FOLDER/W6, the same bytes every time. */
#include "page.h"

#include <cstdio>

using std::string;
using std::string_view;
using std::vector;
namespace fs = std::filesystem;

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
