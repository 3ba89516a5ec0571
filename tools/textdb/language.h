/* tools/textdb/language.h - what a language goes through: its PO file is brought in line with the
 * source, and made a database. */
#ifndef TOOLS_TEXTDB_LANGUAGE_H
#define TOOLS_TEXTDB_LANGUAGE_H

#include <string>
#include <vector>

#include "tools/common/po.h"
#include "textfields.h"

struct Updated {
    std::string bytes;     // what the file is to hold; empty when it is left as it is
    bool isSource = false; // it has the source's texts
    size_t added = 0, changed = 0, gone = 0;
};

/* Brings a PO file in line with its source, without writing it. Tells of each id that seems to
 * have been renamed.
 * uses: where templates show the texts; null where only the source tells.
 * Returns false after a complaint. */
bool updateLanguage(const PoFile &source, const Uses *uses, const char *path, Updated *updated);

/* Tells of a source that is none: a translation, as a pattern for file names may put there. It
 * has an error then. */
void checkSource(PoFile *source);

/* Tells of the ids that templates use and the source has no text for. Returns whether there are
 * none. */
bool checkMissing(const PoFile &source, const Uses &uses);

/* The header of a file that is begun. language: its code, empty for a template. */
std::string newHeaderFields(const PoFile &source, const std::string &language);

struct BuildOrder {
    const char *input;
    const char *output;
    const PoFile *source; // borrowed; null where the input notes its source texts
    const std::vector<TemplateFields> &templates;
    bool takesFuzzy;
    bool mayBeEmpty;
};

struct Built {
    std::string bytes; // the database
    size_t entries = 0, texts = 0, untranslated = 0, fuzzy = 0;
};

/* Makes a database of a PO file, without writing it, and warns of texts that break pages or
 * differ from their source in what must be the same. Returns false after a complaint. */
bool buildLanguage(const BuildOrder &order, Built *built);

/* Whether output may take a database: it is not there, empty, or a database, and none of what
 * is read. Returns false after a complaint. */
bool mayReplace(const char *output, const std::vector<const char *> &inputs);

/* What a database was made of, for people: "159 of 161 texts, 2 not translated". */
std::string describe(const Built &built);

#endif
