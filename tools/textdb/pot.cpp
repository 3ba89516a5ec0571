/* tools/textdb/pot.cpp - the command pot: what translators of a new language begin
 * with, made from the source language and the templates. */
#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/common/files.h"
#include "tools/common/hardcoded.h"
#include "tools/common/notes.h"
#include "tools/common/po.h"
#include "tools/common/translation.h"
#include "language.h"
#include "source.h"

std::string newHeaderFields(const PoFile &source, const std::string &language)
{
    char date[64];
    const time_t now = time(nullptr);
    strftime(date, sizeof date, "%Y-%m-%d %H:%M%z", localtime(&now));
    const std::string project = headerField(source, "Project-Id-Version");
    const std::string from = headerField(source, "Language");
    return "Project-Id-Version: " + (project.empty() ? "1" : project) +
           "\nPOT-Creation-Date: " + date +
           "\nPO-Revision-Date: YEAR-MO-DA HO:MI+ZONE\n"
           "Last-Translator: FULL NAME <EMAIL@ADDRESS>\n"
           "Language-Team: LANGUAGE <LL@li.org>\nLanguage: " +
           language +
           "\nMIME-Version: 1.0\nContent-Type: text/plain; charset=UTF-8\n"
           "Content-Transfer-Encoding: 8bit\n" +
           (from.empty() ? "" : SOURCE_LANGUAGE + (": " + from) + "\n");
}

static po_message_t newHeader(const PoFile &source)
{
    po_message_t header = po_message_create();
    po_message_set_msgid(header, "");
    po_message_set_msgstr(header, newHeaderFields(source, "").c_str());
    return header;
}

// Makes an entry of the file made.
static po_message_t newEntry(const PoFile &file, const PoEntry &source, const IdUses &uses,
                             PoFile *made)
{
    po_message_t entry = po_message_create();
    po_message_set_msgid(entry, source.id.data());
    po_message_set_msgstr(entry, "");
    showSource(entry, source, uses.stands, false);
    std::string comments;
    const std::string text = sourceText(source);
    setNote(&comments, NOTE_SOURCE, &text);
    po_message_set_comments(entry, comments.c_str());
    for (const auto &[path, line] : uses.places)
        po_message_add_filepos(entry, path, line);
    std::set<std::string> flags = givenFlags(file, source);
    if (uses.maxLength)
        limitLength(&flags, uses.maxLength);
    if (!flags.empty())
        made->flags[entry] = std::move(flags);
    return entry;
}

// Prints the template. Returns false after a complaint.
static bool printTemplate(const PoFile &source, const Uses &uses)
{
    PoFile made = {"the template", po_file_create(), 0, {}, "", {}, {}};
    po_message_iterator_t iterator = po_message_iterator(made.file, nullptr);
    po_message_insert(iterator, newHeader(source));
    for (const PoEntry &entry : source.entries) {
        const auto found = uses.find(entry.id);
        if (!entry.isTranslated())
            continue;
        if (found != uses.end() || isUsed(source.used, entry.id))
            po_message_insert(
                iterator,
                newEntry(source, entry, found == uses.end() ? IdUses() : found->second, &made));
        else
            complain(0, "%s:%zu: unused: %s", source.path.c_str(), entry.line, entry.id.data());
    }
    po_message_iterator_free(iterator);
    const std::string bytes = printPo(made);
    freePo(&made);
    fwrite(bytes.data(), 1, bytes.size(), stdout);
    return !bytes.empty();
}

bool checkMissing(const PoFile &source, const Uses &uses)
{
    std::set<std::string_view> ids;
    bool isGood = true;
    for (const PoEntry &entry : source.entries)
        if (entry.isTranslated())
            ids.insert(entry.id);
    for (const auto &[id, all] : uses)
        if (!ids.contains(id)) {
            isGood = false;
            complain(0, "%s:%u: %s has no text for %s", all.places[0].first, all.places[0].second,
                     source.path.c_str(), id.c_str());
        }
    return isGood;
}

// Prints the words that stand in a template itself. Returns whether there are none, and it can
// be read.
static bool printHardCoded(const char *path)
{
    std::string bytes;
    if (!readFile(path, &bytes))
        return false;
    Template tpl;
    readTemplate(&tpl, path, std::move(bytes), true);
    if (tpl.unread)
        return complain(0, "cannot read %s: %s", path, UNREAD) != 0;
    const std::vector<HardCoded> found = findHardCoded(tpl);
    for (const HardCoded &words : found)
        printf("%s:%u: %s%s\n", path, placeOf(tpl, words.span.at).line,
               words.attribute.empty() ? "" : (words.attribute + ": ").c_str(), words.text.c_str());
    return found.empty();
}

int runPot(const CommandLine &line)
{
    if (line.has(OPT_HARD_CODED)) {
        bool isGood = true;
        for (const char *path : line.words)
            if (!isPoName(path))
                isGood = printHardCoded(path) && isGood;
        return isGood ? STATUS_OK : STATUS_FAULT;
    }
    std::vector<TemplateFields> templates;
    PoFile source = readPo(line.words[0]);
    int status = STATUS_FAULT;
    if (readTemplates({line.words.begin() + 1, line.words.end()}, &templates) &&
        source.errors == 0) {
        const Uses uses = collectUses(templates);
        const bool isComplete = checkMissing(source, uses);
        status = printTemplate(source, uses) && isComplete ? STATUS_OK : STATUS_FAULT;
    }
    freePo(&source);
    return status;
}
