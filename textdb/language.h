/* textdb/language.h - which text database is in use, and its texts. */
#ifndef ORV_TEXTDB_LANGUAGE_H
#define ORV_TEXTDB_LANGUAGE_H

#include "base/bounds.h"
#include "textdb/textdb.h"

extern "C" {
ORV_API extern TextDatabase htmlDB;
ORV_API extern TextDatabase htmlFallbackDB;

/* Returns the text of a field, from the database of the chosen language or else
 * from the fallback, borrowed until the next change of language; null without one. */
ORV_API const char *lookupDBField(const char *id);
}

/* As lookupDBField, with the length that the text had when it was found; without
 * data() when there is none. */
std::string_view lookupText(const char *id);

/* Composes the mark of a text where no markup can stand. mark: out, terminated; what
 * does not fit is cut. Returns its length. */
size_t formatMark(char mark[MARK_CAPACITY], std::string_view text, const char *id);

#endif
