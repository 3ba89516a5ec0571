/* bench/engines/mustache.cpp - the engine kainjow mustache. Ways: parse,
 * compiled. It parses what a page includes whenever it renders, in both ways. */
#include "worker.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <kainjow/mustache.hpp>

namespace mustache = kainjow::mustache;

static mustache::data page{mustache::data::type::object};
static std::string query;
static mustache::data rows;
static std::unique_ptr<mustache::mustache> compiled;
static bool parseEach;

static std::string readText(const std::string &path)
{
    size_t length = 0;
    char *bytes = readFile(path.c_str(), &length);
    std::string text(bytes, length);
    free(bytes);
    return text;
}

static int openEngine(const char *way)
{
    parseEach = strcmp(way, "parse") == 0;
    return 0;
}

static void addInclude(const std::string &name)
{
    const std::string path = name + ".mustache";
    mustache::partial read = [path] { return readText(path); };
    if (!parseEach)
        read = [text = readText(path)] { return text; };
    page.set(name, mustache::data(read));
}

static void addRow(int count, char **columns)
{
    mustache::data row{mustache::data::type::object};
    for (int i = 0; i < count; ++i) {
        const std::string name = "c" + std::to_string(i + 1);
        row.set(name, columns[i]);
        if (strcmp(columns[i], "up") == 0 || strcmp(columns[i], "down") == 0)
            row.set(name + "Yes", strcmp(columns[i], "up") == 0);
    }
    rows.push_back(row);
}

static void endQuery()
{
    if (!query.empty())
        page.set(query, rows);
    rows = mustache::data(mustache::data::type::list);
}

static void record(int count, char **fields)
{
    switch (*fields[0]) {
    case 'V':
        page.set(fields[1], fields[2]);
        if (strcmp(fields[2], "on") == 0 || strcmp(fields[2], "off") == 0)
            page.set(std::string(fields[1]) + "Yes", strcmp(fields[2], "on") == 0);
        break;
    case 'T':
        page.set(fields[1], fields[2]);
        break;
    case 'Q':
        endQuery();
        query = fields[1];
        break;
    case 'R':
        addRow(count - 1, fields + 1);
        break;
    case 'I':
        addInclude(fields[1]);
        break;
    }
}

static void render()
{
    if (!compiled) {
        endQuery();
        query.clear();
    }
    if (!compiled || parseEach)
        compiled = std::make_unique<mustache::mustache>(readText("page.mustache"));
    const std::string text = compiled->render(page);
    writeAll(text.data(), text.size());
}

int main(int argc, char **argv)
{
    static const Engine engine = {openEngine, record, render, nullptr};
    return runWorker(argc, argv, &engine);
}
