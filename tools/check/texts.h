/* tools/check/texts.h - the texts of a site's languages, from PO files or databases. */
#ifndef ORV_CHECK_TEXTS_H
#define ORV_CHECK_TEXTS_H

#include <stdint.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct LanguageText {
    std::string text;
    uint32_t line;                     // of the file; 0 where it has no lines
    std::set<std::string> flags;       // of a PO file's entry
    std::optional<std::string> source; // the source text that it notes
};

struct Language {
    std::string code; // from the file's name: "de" of de.po and htmltext_de.db
    std::string path;
    std::string header;                                     // the code in a PO file's header
    std::map<std::string, LanguageText, std::less<>> texts; // by id
    std::string state;          // of the file when it was read, as of stateOfFile
    std::set<std::string> used; // ids that a comment says are used; "*" at an end for any rest
};

// A mistake in a language's file.
struct TextFault {
    std::string path;
    size_t line; // 0 where none is known
    std::string text;
};

/* Reads a language's texts from a .po file or a .db file. A mistake in it is added to
 * faults, and the language is then to be left out. Returns false, with the reason in
 * problem, when the file cannot be read. */
bool readLanguage(const std::string &path, Language *language, std::vector<TextFault> *faults,
                  std::string *problem);

#endif
