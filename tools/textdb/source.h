/* tools/textdb/source.h - the entries that translators see: ids of the language that
 * the site is written in, each with its source text, comments and places. */
#ifndef TOOLS_TEXTDB_SOURCE_H
#define TOOLS_TEXTDB_SOURCE_H

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "tools/common/po.h"

/* The field of a header that names the language of the source, as PO editors know it. */
static constexpr char SOURCE_LANGUAGE[] = "X-Source-Language";

/* Returns the source text that an entry of a source file stands for: its text in a PO
 * file of that language, or the note in a template that pot has made. */
std::string sourceText(const PoEntry &entry);

/* Returns the flags of a source's entry that its translations have, too: those that gettext's
 * library does not know. */
std::set<std::string> givenFlags(const PoFile &file, const PoEntry &entry);

/* Gives an entry what translators see of its source: the text, the comments of the
 * source's author and what is said of the places that it stands in. The note NOTE_SOURCE
 * is the caller's.
 * stands: STANDS_IN_ bits to tell of besides.
 * keepsPlaces: what the entry says of places remains, as the source knows of none. */
void showSource(po_message_t target, const PoEntry &source, uint8_t stands, bool keepsPlaces);

#endif
