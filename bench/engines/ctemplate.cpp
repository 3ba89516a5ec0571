/* bench/engines/ctemplate.cpp - the engine ctemplate. Ways: parse, compiled. */
#include "worker.h"

#include <cstring>
#include <string>

#include <ctemplate/template.h>

using ctemplate::TemplateDictionary;

static TemplateDictionary dictionary("page");
static std::string query;
static bool parseEach;

static int openEngine(const char *way)
{
    parseEach = strcmp(way, "parse") == 0;
    return 0;
}

// What is global to the template reaches included templates as well.
static void setVariable(const char *name, const char *value)
{
    dictionary.SetTemplateGlobalValue(name, value);
    if (strcmp(value, "on") == 0)
        dictionary.ShowTemplateGlobalSection(std::string(name) + "Yes");
    else if (strcmp(value, "off") == 0)
        dictionary.ShowTemplateGlobalSection(std::string(name) + "No");
}

static void addRow(int count, char **columns)
{
    TemplateDictionary *row = dictionary.AddSectionDictionary(query);
    for (int i = 0; i < count; ++i) {
        const std::string name = "c" + std::to_string(i + 1);
        row->SetValue(name, columns[i]);
        if (strcmp(columns[i], "up") == 0)
            row->ShowSection(name + "Yes");
        else if (strcmp(columns[i], "down") == 0)
            row->ShowSection(name + "No");
    }
}

static void record(int count, char **fields)
{
    switch (*fields[0]) {
    case 'V':
        setVariable(fields[1], fields[2]);
        break;
    case 'T':
        dictionary.SetTemplateGlobalValue(fields[1], fields[2]);
        break;
    case 'Q':
        query = fields[1];
        break;
    case 'R':
        addRow(count - 1, fields + 1);
        break;
    case 'I':
        dictionary.AddIncludeDictionary(fields[1])->SetFilename(std::string(fields[1]) + ".tpl");
        break;
    }
}

static void render()
{
    if (parseEach)
        ctemplate::mutable_default_template_cache()->ClearCache();
    std::string page;
    if (!ctemplate::ExpandTemplate("page.tpl", ctemplate::DO_NOT_STRIP, &dictionary, &page))
        die("page.tpl");
    writeAll(page.data(), page.size());
}

int main(int argc, char **argv)
{
    static const Engine engine = {openEngine, record, render, nullptr};
    return runWorker(argc, argv, &engine);
}
