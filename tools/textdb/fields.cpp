/* tools/textdb/fields.cpp - the command fields: a database compared with the text
 * fields of templates. */
#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "../fieldid.h"
#include "../files.h"
#include "../textdb_file.h"

/* The ids of a database, ascending, and which of them templates use. */
struct Usage {
    std::vector<std::string> ids;
    std::vector<bool> used;
    bool missing; // a template uses an id that is not there
};

/* Finds the next text field, "{?", an id, "?}", at *pos or later, and moves *pos
 * behind it. A "{?" that no whole field follows is page text.
 * start: out, where the field begins. Returns false when there is none. */
static bool nextField(std::string_view page, size_t *pos, size_t *start, std::string_view *id)
{
    while ((*start = page.find("{?", *pos)) != std::string_view::npos) {
        const size_t first = *start + 2;
        const size_t end = std::min(page.find_first_not_of(ID_CHARACTERS, first), page.size());
        *id = page.substr(first, end - first).substr(0, MAX_ID_LENGTH);
        *pos = first;
        if (page.substr(end, 2) == "?}") {
            *pos = end + 2;
            return true;
        }
    }
    return false;
}

/* Prints the fields of a template that the database lacks, and marks the others
 * as used. */
static bool checkTemplate(const char *path, Usage *usage)
{
    std::string page;
    if (!readFile(path, &page))
        return false;
    size_t line = 1;
    size_t counted = 0; // bytes whose lines are in line
    size_t pos = 0;
    size_t start;
    std::string_view id;
    while (nextField(page, &pos, &start, &id)) {
        for (; counted < start; counted++)
            line += page[counted] == '\n' ? 1 : 0;
        const auto place = std::lower_bound(usage->ids.begin(), usage->ids.end(), id);
        if (place != usage->ids.end() && *place == id) {
            usage->used[static_cast<size_t>(place - usage->ids.begin())] = true;
        } else {
            usage->missing = true;
            printf("%s:%zu: %.*s\n", path, line, static_cast<int>(id.size()), id.data());
        }
    }
    return true;
}

static void printUnused(const char *path, std::string_view id)
{
    printf("%s: unused: %.*s\n", path, static_cast<int>(id.size()), id.data());
}

int runFields(const CommandLine &line)
{
    const char *path = line.words[0];
    std::string file;
    if (!readDatabase(path, &file))
        return STATUS_FAULT;
    Usage usage = {{}, {}, false};
    walkTextDb(file, [&](std::string_view id, std::string_view /*text*/) {
        if (id.size() <= MAX_ID_LENGTH)
            usage.ids.emplace_back(id);
        else if (line.has(OPT_UNUSED)) // no field can name it
            printUnused(path, id);
    });
    usage.used.assign(usage.ids.size(), false);
    bool readable = true;
    for (size_t i = 1; i < line.words.size(); ++i)
        readable = checkTemplate(line.words[i], &usage) && readable;
    if (!readable) // what the unread ones use is not known
        return STATUS_FAULT;
    for (size_t i = 0; line.has(OPT_UNUSED) && i < usage.ids.size(); ++i)
        if (!usage.used[i])
            printUnused(path, usage.ids[i]);
    return usage.missing ? STATUS_FAULT : STATUS_OK;
}
