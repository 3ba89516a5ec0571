/* tools/textdb/update.cpp - the command update: PO files brought in line with the
 * source language.
 *
 * An entry keeps the source text that its file shows in a note. When the source has
 * another one, the translation was made for a text that is gone: it becomes fuzzy, and
 * a further note keeps that text until the mark is removed. */
#include "commands.h"

#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/common/files.h"
#include "tools/common/po.h"
#include "source.h"

// The sources by id, and what has become of them in a target.
struct Update {
    const PoFile &source;
    std::unordered_map<std::string_view, size_t> places; // index of an id's entry
    std::vector<bool> found;
    size_t added, changed, gone;
};

static void copyPlaces(po_message_t target, po_message_t source)
{
    while (po_message_filepos(target, 0))
        po_message_remove_filepos(target, 0);
    for (int i = 0; po_filepos_t place = po_message_filepos(source, i); ++i)
        po_message_add_filepos(target, po_filepos_file(place), po_filepos_start_line(place));
}

// Brings an entry in line with its source.
static void updateEntry(Update *update, po_message_t message, const PoEntry &source)
{
    const std::string text = sourceText(source);
    const std::string old = po_message_comments(message);
    std::string comments = old;
    const bool isTranslated = *po_message_msgstr(message) || findNote(old, NOTE_EMPTY, nullptr);
    std::string shown;
    std::string former;
    if (!po_message_is_fuzzy(message)) // somebody has looked at it since
        setNote(&comments, NOTE_FORMER, nullptr);
    if (findNote(comments, NOTE_SOURCE, &shown) && shown != text && isTranslated) {
        ++update->changed;
        po_message_set_fuzzy(message, 1);
        if (!findNote(comments, NOTE_FORMER, nullptr))
            setNote(&comments, NOTE_FORMER, &shown);
    }
    if (findNote(comments, NOTE_FORMER, &former)) // the line may be gone: msgmerge drops it
        po_message_set_prev_msgid(message, former.c_str());
    po_message_set_obsolete(message, 0);
    showSource(message, source, 0);
    setNote(&comments, NOTE_SOURCE, &text);
    if (comments != old)
        po_message_set_comments(message, comments.c_str());
    if (po_message_filepos(source.message, 0)) // the source is a template, which has the places
        copyPlaces(message, source.message);
}

// Adds those entries from first on that the target lacks, up to the next that it has.
static void addMissing(Update *update, po_message_iterator_t iterator, size_t first)
{
    for (size_t i = first; i < update->found.size() && !update->found[i]; ++i) {
        const PoEntry &source = update->source.entries[i];
        po_message_t message = po_message_create();
        po_message_set_msgid(message, source.id.data());
        po_message_set_msgstr(message, "");
        updateEntry(update, message, source);
        po_message_insert(iterator, message);
        update->found[i] = true;
        ++update->added;
    }
}

// Goes through the target twice: what it has already must be known before the place of
// what is new can be.
static void updateMessages(Update *update, po_file_t target)
{
    po_message_iterator_t iterator = po_message_iterator(target, nullptr);
    while (po_message_t message = po_next_message(iterator)) {
        const auto place = update->places.find(po_message_msgid(message));
        if (place != update->places.end()) {
            update->found[place->second] = true;
            updateEntry(update, message, update->source.entries[place->second]);
        } else if (*po_message_msgid(message) && !po_message_is_obsolete(message)) {
            po_message_set_obsolete(message, 1);
            ++update->gone;
        }
    }
    po_message_iterator_free(iterator);

    iterator = po_message_iterator(target, nullptr);
    while (po_message_t message = po_next_message(iterator)) {
        const auto place = update->places.find(po_message_msgid(message));
        if (place != update->places.end())
            addMissing(update, iterator, place->second + 1);
        else if (!*po_message_msgid(message))
            addMissing(update, iterator, 0);
    }
    addMissing(update, iterator, 0); // into a file without a header
    po_message_iterator_free(iterator);
}

// Whether a file is what the source was made from: it has no notes, and nearly all texts
// are the same. (Some may have changed since a template was made.)
static bool isSourceItself(const PoFile &target, const PoFile &source,
                           const std::unordered_map<std::string_view, size_t> &places)
{
    size_t common = 0;
    size_t same = 0;
    for (const PoEntry &entry : target.entries) {
        const auto place = places.find(entry.id);
        if (findNote(entry.comments, NOTE_SOURCE, nullptr))
            return false;
        if (place == places.end())
            continue;
        ++common;
        same += sourceText(source.entries[place->second]) == entry.text ? 1 : 0;
    }
    return common && same * 10 >= common * 9;
}

static bool updateTarget(const PoFile &source,
                         const std::unordered_map<std::string_view, size_t> &places,
                         const char *path)
{
    if (isSameFile(source.path.c_str(), path)) // all files of a folder are given, say
        return true;
    PoFile target = readPo(path);
    if (target.errors) {
        complain(0, "%s is not updated", path);
        freePo(&target);
        return false;
    }
    if (isSourceItself(target, source, places)) {
        printf("%s: has the source's texts, left as it is\n", path);
        freePo(&target);
        return true;
    }
    Update update = {source, places, std::vector<bool>(source.entries.size()), 0, 0, 0};
    updateMessages(&update, target.file);
    const std::string bytes = printPo(target);
    freePo(&target);
    if (bytes.empty() || !replaceFile(path, bytes))
        return false;
    printf("%s: %zu texts, %zu new, %zu changed, %zu gone\n", path, source.entries.size(),
           update.added, update.changed, update.gone);
    return true;
}

// Refuses a translation in the place of the source, as a pattern for file names may put
// there: all other languages would become fuzzy.
static void checkSource(PoFile *source)
{
    size_t texts = 0;
    size_t translations = 0;
    for (const PoEntry &entry : source->entries) {
        std::string shown;
        texts += entry.text.empty() ? 0 : 1;
        if (findNote(entry.comments, NOTE_SOURCE, &shown) && !entry.text.empty() &&
            shown != entry.text)
            ++translations;
    }
    if (translations > texts / 2)
        reportPo(source, 0, true, nullptr,
                 "is a translation, by the notes of its source; the first file must be the source");
}

int runUpdate(const CommandLine &line)
{
    PoFile source = readPo(line.words[0]);
    checkSource(&source);
    bool isGood = source.errors == 0;
    if (isGood) {
        std::unordered_map<std::string_view, size_t> places;
        for (const PoEntry &entry : source.entries)
            places.emplace(entry.id, places.size());
        for (size_t i = 1; i < line.words.size(); ++i)
            isGood = updateTarget(source, places, line.words[i]) && isGood;
    }
    freePo(&source);
    return isGood ? STATUS_OK : STATUS_FAULT;
}
