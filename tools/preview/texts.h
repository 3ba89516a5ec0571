/* tools/preview/texts.h - the folders that stand for the device's root: its text databases,
 * and the kernel command line that turns marks for translators on. */
#ifndef PREVIEW_TEXTS_H
#define PREVIEW_TEXTS_H

#include <string>
#include <vector>

#include "config.h"

struct TextSource {
    std::string language; // two letters
    std::string path;     // absolute; .po or .db
};

/* The language that a file's name tells: de.po, de.db, htmltext_de.db. Empty for none. */
std::string languageOf(const std::string &path);

/* Makes the folders anew in work. The first source is the default language and the
 * fallback, unless deviceRoot has its own; it may be empty.
 * config: its languages are set, and problems added. A language whose file has a mistake keeps the
 * texts that it had.
 *
 * Returns false after errno tells why the folders cannot be made. */
bool makeRoots(const std::string &work, const std::string &deviceRoot,
               const std::vector<TextSource> &sources, Config &config);

#endif
