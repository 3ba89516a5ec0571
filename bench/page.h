/* bench/page.h - a page of the bench: a list of nodes, from which everything is
 * printed that the engines need. */
#ifndef BENCH_PAGE_H
#define BENCH_PAGE_H

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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
    std::string a = {}, b = {}, c = {};
    int number = 0;
    std::vector<Node> body = {};
};
using Nodes = std::vector<Node>;

struct Query {
    std::string name;
    std::vector<std::vector<std::string>> rows;
};

struct Page {
    Nodes nodes;
    std::vector<std::pair<std::string, std::string>> variables;
    std::vector<Query> queries;
    std::map<std::string, std::string> texts;
};

/* Writes a file, or ends the program after a message. */
void writeFile(const std::filesystem::path &path, std::string_view bytes);

/* Writes into folder the template of each engine, and those that it includes. */
void writeTemplates(const Page &page, const std::filesystem::path &folder);

/* Writes the whole folder of a page: its templates; the page that each must give
 * (expected.html); the data (data.txt, see worker.h); the library's text database
 * and the other files of its root; and the system calls that the page needs of the
 * library (limit.ops, see engines/limit.c). */
void writePage(const Page &page, const std::filesystem::path &folder);

#endif
