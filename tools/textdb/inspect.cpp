/* tools/textdb/inspect.cpp - the commands dump, get and check: what a database
 * holds. */
#include "commands.h"

#include <algorithm>
#include <cstdio>

#include "tools/common/files.h"
#include "tools/common/po.h"
#include "tools/common/textdb_file.h"

// Reads a database, and refuses one that has a fault.
bool readDatabase(const char *path, std::string *file)
{
    if (!readFile(path, file))
        return false;
    const TextDbReport report = checkTextDb(*file);
    if (report.faults.empty())
        return true;
    if (!isTextDb(*file)) {
        complain(0, "%s is no text database", path);
        return false;
    }
    complain(0, "%s is damaged at offset %llu: %s ('orv-textdb check' lists all faults)", path,
             static_cast<unsigned long long>(report.faults[0].offset),
             report.faults[0].problem.c_str());
    return false;
}

// Prints a keyword and its text; a text of several lines goes below, line by
// line, as gettext's own tools have it.
static void printKeyword(const char *keyword, std::string_view text)
{
    printf("%s ", keyword);
    const size_t newline = text.find('\n');
    if (newline != std::string_view::npos && newline + 1 < text.size())
        puts("\"\"");
    do {
        const size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
        puts(quotePo(text.substr(0, length)).c_str());
        text.remove_prefix(std::min(length, text.size()));
    } while (!text.empty());
}

int runDump(const CommandLine &line)
{
    const char *path = line.words[0];
    std::string file;
    if (!readDatabase(path, &file))
        return STATUS_FAULT;
    puts("msgid \"\"\nmsgstr \"\"\n\"MIME-Version: 1.0\\n\"\n"
         "\"Content-Type: text/plain; charset=UTF-8\\n\"\n\"Content-Transfer-Encoding: 8bit\\n\"");
    walkTextDb(file, [&](std::string_view id, std::string_view text) {
        if (id.empty()) {
            complain(0, "%s: the text of the empty id is left out, PO has no place for it", path);
            return;
        }
        puts("");
        if (text.empty())
            puts("# orv-textdb: empty");
        printKeyword("msgid", id);
        printKeyword("msgstr", text);
    });
    return STATUS_OK;
}

int runGet(const CommandLine &line)
{
    const std::string_view wanted = line.words[1];
    std::string file;
    bool found = false;
    if (!readDatabase(line.words[0], &file))
        return STATUS_FAULT;
    walkTextDb(file, [&](std::string_view id, std::string_view text) {
        if (id != wanted)
            return;
        found = true;
        fwrite(text.data(), 1, text.size(), stdout);
        putchar('\n');
    });
    if (!found)
        return complain(STATUS_FAULT, "%s has no text for id %s", line.words[0],
                        quotePo(wanted).c_str());
    return STATUS_OK;
}

int runCheck(const CommandLine &line)
{
    const char *path = line.words[0];
    std::string file;
    if (!readFile(path, &file))
        return STATUS_FAULT;
    const TextDbReport report = checkTextDb(file);
    for (const TextDbFault &fault : report.faults)
        printf("%s: offset %llu: %s\n", path, static_cast<unsigned long long>(fault.offset),
               fault.problem.c_str());
    if (!report.headerNote.empty())
        complain(0, "%s: warning: %s", path, report.headerNote.c_str());
    if (!report.faults.empty())
        return STATUS_FAULT;
    printf("%s: %zu records, %zu texts, no fault\n", path, report.records, report.texts);
    return STATUS_OK;
}
