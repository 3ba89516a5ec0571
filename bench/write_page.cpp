/* bench/write_page.cpp - plays a page through, and writes what comes out of it.
 *
 * The pieces of the system calls follow from the language's rules, not from the
 * library: a run of text between two commands is one piece, and so is each literal
 * of a body, each value, and each part of a value around a character that is
 * escaped. */
#include "page.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tools/common/textdb_file.h"

using std::string;
using std::string_view;
using std::vector;
namespace fs = std::filesystem;

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

void writePage(const Page &page, const fs::path &folder)
{
    fs::create_directories(folder);
    writeTemplates(page, folder);
    Player player = {page, {page.variables.begin(), page.variables.end()}};
    player.include("page", page.nodes);
    writeFile(folder / "expected.html", player.expected);
    writeFile(folder / "limit.ops", player.operations);
    writeData(page, player, folder);
    writeRoot(page, folder / "root");
}

void writeFile(const fs::path &path, string_view bytes)
{
    FILE *file = fopen(path.c_str(), "wb");
    if (!file || fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() || fclose(file)) {
        perror(path.c_str());
        exit(1);
    }
}
