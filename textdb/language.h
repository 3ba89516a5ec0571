/* textdb/language.h - which text database is in use, and its texts. */
#ifndef ORV_TEXTDB_LANGUAGE_H
#define ORV_TEXTDB_LANGUAGE_H

#include "interface/interpreter.h"
#include "textdb/textdb.h"

extern char lookupBuf[MARK_CAPACITY];

extern "C" {
ORV_API extern TextDatabase htmlDB;
ORV_API extern TextDatabase htmlFallbackDB;

/* Returns the text of a field, from the database of the chosen language or else
 * from the fallback, borrowed until the next change of language; null without one. */
ORV_API const char *lookupDBField(const char *id);
}

#endif
