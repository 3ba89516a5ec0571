/* tools/textdb/update.cpp - the command update: PO files brought in line with the
 * source language.
 *
 * An entry keeps the source text that its file shows in a note. When the source has
 * another one, the translation was made for a text that is gone: it becomes fuzzy, and
 * further notes keep that text, and which translation it was, until the mark is removed or
 * the text is back. */
#include "commands.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/common/files.h"
#include "tools/common/notes.h"
#include "tools/common/po.h"
#include "tools/common/translation.h"
#include "language.h"
#include "source.h"

// Entries of a target whose ids are gone, by the source text of each.
using GoneTexts = std::unordered_map<std::string, std::vector<po_message_t>>;

// The sources by id, and what has become of them in a target.
struct Update {
    const PoFile &source;
    PoFile &target;
    const char *path; // of the target
    const Uses *uses; // of templates; null when they are not known
    bool hasPlaces;   // they are, or the source is a template, which tells where texts stand
    std::unordered_map<std::string_view, size_t> places; // index of an id's entry
    std::vector<bool> found;
    GoneTexts goneTexts;
    size_t added, changed, gone;
};

// uses: of templates; null where the source tells of the places.
static void copyPlaces(po_message_t target, po_message_t source, const IdUses *uses)
{
    while (po_message_filepos(target, 0))
        po_message_remove_filepos(target, 0);
    for (int i = 0; po_filepos_t place = uses ? nullptr : po_message_filepos(source, i); ++i)
        po_message_add_filepos(target, po_filepos_file(place), po_filepos_start_line(place));
    for (size_t i = 0; uses && i < uses->places.size(); ++i)
        po_message_add_filepos(target, uses->places[i].first, uses->places[i].second);
}

static const IdUses NO_USES;

// The uses of an id; null when those of templates are not known.
static const IdUses *usesOf(const Update &update, std::string_view id)
{
    if (!update.uses)
        return nullptr;
    const auto found = update.uses->find(id);
    return found == update.uses->end() ? &NO_USES : &found->second;
}

// Returns a number of a translation that tells it from nearly any other.
static std::string numberOf(po_message_t message)
{
    uint32_t number = 2166136261;
    for (const char *c = po_message_msgstr(message); *c; ++c)
        number = (number ^ static_cast<unsigned char>(*c)) * 16777619;
    return std::to_string(number);
}

// Marks a translation that was made for another source text, or takes that mark away.
static void markChanged(Update *update, po_message_t message, const std::string &text,
                        std::string *comments)
{
    std::string shown;
    std::string number = numberOf(message);
    const bool isFuzzy = po_message_is_fuzzy(message);
    const bool isBack =
        isFuzzy && isNoted(*comments, NOTE_FORMER, text) && isNoted(*comments, NOTE_MARKED, number);
    if (isBack)
        po_message_set_fuzzy(message, 0);
    if ((!isFuzzy || isBack) && findNote(*comments, NOTE_FORMER, nullptr)) {
        setNote(comments, NOTE_FORMER, nullptr); // or somebody has looked at it
        setNote(comments, NOTE_MARKED, nullptr);
        po_message_set_prev_msgid(message, nullptr);
    }
    if (isBack || !findNote(*comments, NOTE_SOURCE, &shown) ||
        isNoted(*comments, NOTE_SOURCE, text))
        return;
    ++update->changed;
    po_message_set_fuzzy(message, 1);
    if (findNote(*comments, NOTE_FORMER, nullptr))
        return;
    setNote(comments, NOTE_FORMER, &shown);
    if (!isFuzzy)
        setNote(comments, NOTE_MARKED, &number);
}

// Gives an entry without a translation that of an id that is gone and had the same source
// text: the id was renamed, it seems. A person has to look at it.
static void takeGoneText(Update *update, po_message_t message, const std::string &text,
                         std::string *comments)
{
    const auto found = update->goneTexts.find(text);
    if (found == update->goneTexts.end())
        return;
    std::vector<po_message_t> &gone = found->second;
    const po_message_t from = gone.front();
    if (gone.size() > 1) // in the order in which they stood
        gone.erase(gone.begin());
    *comments += commentsOf(from);
    for (const char *word : {NOTE_SOURCE, NOTE_FORMER, NOTE_MARKED})
        setNote(comments, word, nullptr);
    po_message_set_msgstr(message, po_message_msgstr(from));
    po_message_set_fuzzy(message, 1);
    printf("%s: %s has the text of %s, which is gone and had the same source text; it is fuzzy\n",
           update->path, po_message_msgid(message), po_message_msgid(from));
}

// Gives an entry the flags of its source that gettext's library does not know. Those of its own
// stay, but for a limit that the source knows better.
static void updateFlags(Update *update, po_message_t message, const PoEntry &source)
{
    std::set<std::string> given = givenFlags(update->source, source);
    const IdUses *uses = usesOf(*update, source.id);
    if (uses && uses->maxLength)
        limitLength(&given, uses->maxLength);
    const auto own = update->target.flags.find(message);
    std::set<std::string> flags;
    if (own != update->target.flags.end())
        flags = own->second;
    if (update->hasPlaces || maxLength(given))
        dropLimit(&flags);
    flags.insert(given.begin(), given.end());
    if (flags.empty())
        update->target.flags.erase(message);
    else
        update->target.flags[message] = std::move(flags);
}

// Gettext has no mark at an empty text: one that is to be looked at again is missing instead.
static void dropMarkOfNothing(po_message_t message, std::string *comments)
{
    if (*po_message_msgstr(message) || !po_message_is_fuzzy(message))
        return;
    po_message_set_fuzzy(message, 0);
    for (const char *word : {NOTE_EMPTY, NOTE_FORMER, NOTE_MARKED})
        setNote(comments, word, nullptr);
}

// Brings an entry in line with its source.
static void updateEntry(Update *update, po_message_t message, const PoEntry &source)
{
    const std::string text = sourceText(source);
    const std::string old = commentsOf(message);
    std::string comments = old;
    std::string former;
    if (isTranslated(message))
        markChanged(update, message, text, &comments);
    else if (!text.empty())
        takeGoneText(update, message, text, &comments);
    dropMarkOfNothing(message, &comments);
    if (findNote(comments, NOTE_FORMER, &former)) {
        setNote(&comments, NOTE_FORMER, &former);
        dropFormerLines(&comments);
        po_message_set_prev_msgid(message, former.c_str()); // msgmerge drops it
    }
    po_message_set_obsolete(message, 0);
    const IdUses *uses = usesOf(*update, source.id);
    showSource(message, source, uses ? uses->stands : 0, !update->hasPlaces);
    setNote(&comments, NOTE_SOURCE, &text);
    if (comments != old)
        po_message_set_comments(message, comments.c_str());
    updateFlags(update, message, source);
    if (update->hasPlaces)
        copyPlaces(message, source.message, uses);
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

// Calls visit for each entry of a file.
template <typename Visit> static void visitMessages(po_file_t file, Visit visit)
{
    po_message_iterator_t iterator = po_message_iterator(file, nullptr);
    while (po_message_t message = po_next_message(iterator))
        visit(message, iterator);
    po_message_iterator_free(iterator);
}

// Makes the entries obsolete whose ids the source lacks, and keeps their texts in mind.
static void retireGone(Update *update, po_file_t target)
{
    visitMessages(target, [update](po_message_t message, po_message_iterator_t) {
        const char *id = po_message_msgid(message);
        std::string shown;
        if (!*id || update->places.contains(id))
            return;
        update->gone += po_message_is_obsolete(message) ? 0 : 1;
        po_message_set_obsolete(message, 1);
        if (*po_message_msgstr(message) && findNote(commentsOf(message), NOTE_SOURCE, &shown))
            update->goneTexts[shown].push_back(message);
    });
}

// Brings a target's entries in line, then adds what it lacks: what it has must be known
// before the place of what is new can be.
static void updateMessages(Update *update, po_file_t target)
{
    retireGone(update, target);
    visitMessages(target, [update](po_message_t message, po_message_iterator_t) {
        const auto place = update->places.find(po_message_msgid(message));
        if (place == update->places.end())
            return;
        update->found[place->second] = true;
        updateEntry(update, message, update->source.entries[place->second]);
    });
    visitMessages(target, [update](po_message_t message, po_message_iterator_t iterator) {
        const auto place = update->places.find(po_message_msgid(message));
        if (place != update->places.end())
            addMissing(update, iterator, place->second + 1);
        else if (!*po_message_msgid(message))
            addMissing(update, iterator, 0);
    });
    po_message_iterator_t iterator = po_message_iterator(target, nullptr);
    while (po_next_message(iterator))
        ;
    addMissing(update, iterator, 0); // into a file without a header
    po_message_iterator_free(iterator);
}

// The language that a source's texts are in; of a template, that of what it was made from.
static std::string sourceLanguage(const PoFile &source)
{
    const std::string named = headerField(source, SOURCE_LANGUAGE);
    return named.empty() ? headerField(source, "Language") : named;
}

// Whether a file is what the source was made from: it has no notes and no other language, and
// nearly all texts are the same. (Some may have changed since a template was made.)
static bool isSourceItself(const PoFile &target, const PoFile &source,
                           const std::unordered_map<std::string_view, size_t> &places)
{
    const std::string language = headerField(target, "Language");
    const std::string other = sourceLanguage(source);
    size_t common = 0;
    size_t same = 0;
    if (!language.empty() && !other.empty() && language != other)
        return false; // begun as a copy
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

bool updateLanguage(const PoFile &source, const Uses *uses, const char *path, Updated *updated)
{
    std::unordered_map<std::string_view, size_t> places;
    for (const PoEntry &entry : source.entries)
        places.emplace(entry.id, places.size());
    PoFile target = readPo(path);
    if (target.errors) {
        complain(0, "%s is not updated", path);
        freePo(&target);
        return false;
    }
    if (isSourceItself(target, source, places)) {
        updated->isSource = true;
        freePo(&target);
        return true;
    }
    const bool hasPlaces =
        uses || std::any_of(source.entries.begin(), source.entries.end(), [](const PoEntry &entry) {
            return po_message_filepos(entry.message, 0) != nullptr;
        });
    Update update = {
        source, target, path, uses, hasPlaces, places, std::vector<bool>(source.entries.size()),
        {},     0,      0,    0};
    updateMessages(&update, target.file);
    updated->bytes = printPo(target);
    updated->added = update.added;
    updated->changed = update.changed;
    updated->gone = update.gone;
    freePo(&target);
    return !updated->bytes.empty();
}

static bool updateTarget(const PoFile &source, const char *path)
{
    Updated updated;
    if (isSameFile(source.path.c_str(), path)) // all files of a folder are given, say
        return true;
    if (!updateLanguage(source, nullptr, path, &updated))
        return false;
    if (updated.isSource) {
        printf("%s: has the source's texts, left as it is\n", path);
        return true;
    }
    if (!replaceFile(path, updated.bytes))
        return false;
    printf("%s: %zu texts, %zu new, %zu changed, %zu gone\n", path, source.entries.size(),
           updated.added, updated.changed, updated.gone);
    return true;
}

// All other languages would become fuzzy.
void checkSource(PoFile *source)
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
        reportPo(source, 0, Weight::ERROR, nullptr,
                 "is a translation, by the notes of its source; the first file must be the source");
}

int runUpdate(const CommandLine &line)
{
    PoFile source = readPo(line.words[0]);
    checkSource(&source);
    bool isGood = source.errors == 0;
    for (size_t i = 1; i < line.words.size() && source.errors == 0; ++i)
        isGood = updateTarget(source, line.words[i]) && isGood;
    freePo(&source);
    return isGood ? STATUS_OK : STATUS_FAULT;
}
