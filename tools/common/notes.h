/* tools/common/notes.h - notes of orv-textdb in PO files: lines of an entry's translator's
 * comment, "# orv-textdb: " and a word and perhaps a text in quotes. gettext's tools and PO
 * editors carry such comments along, and know no flags but their own. */
#ifndef TOOLS_NOTES_H
#define TOOLS_NOTES_H

#include <set>
#include <string>
#include <string_view>

static constexpr char NOTE_EMPTY[] = "empty";   // the text is meant to be empty
static constexpr char NOTE_SOURCE[] = "source"; // the source text that the file shows
static constexpr char NOTE_FORMER[] = "former"; // of a fuzzy entry, the one it was made for
static constexpr char NOTE_MARKED[] = "marked"; // and by a number, the text that was marked so

/* Returns whether comments have a note. text: out, what follows it, with one blank wherever
 * a tool has wrapped it; may be null. */
bool findNote(std::string_view comments, std::string_view word, std::string *text);

/* Whether comments have a note of that text. Where a tool has wrapped it, blanks do not
 * count. */
bool isNoted(std::string_view comments, std::string_view word, std::string_view text);

/* Gives comments a note, in the place of one with that word. A long text goes into several
 * lines, which the tools that wrap comments leave alone. text: null to remove it. */
void setNote(std::string *comments, std::string_view word, const std::string *text);

/* Returns the words of all notes. */
std::set<std::string> noteWords(std::string_view comments);

/* Returns the lines of a translator's comment without the notes. */
std::string commentWithoutNotes(std::string_view comments);

/* Takes the lines out of a translator's comment that some programs have made of those that
 * begin with "#|", wrapped or not. */
void dropFormerLines(std::string *comments);

#endif
