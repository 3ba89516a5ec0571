/* tools/check/lookup.h - what stands at a place of a template, for editors. */
#ifndef ORV_CHECK_LOOKUP_H
#define ORV_CHECK_LOOKUP_H

#include "assemble.h"
#include "mentions.h"

// What stands at an offset; the innermost of each.
struct Found {
    const Command *command = nullptr;
    const Element *element = nullptr; // a reference or a value in it; null on anything else
    const Field *field = nullptr;
    const Argument *argument = nullptr; // of the command, in whose text the offset is
    bool onWords = false;               // the offset is in the command's keyword
    bool onName = false;                // in the name or the index that it sets
    Levels levels;                      // the bodies around the offset
    Mention mention;                    // in text
    const Kind *kind = nullptr;         // that a comment names
};
/* at: in the file. */
Found findAt(const Site &site, const Template &tpl, uint32_t at);

// A place in any file, lines and columns from 1, columns in UTF-16 units.
struct FilePlace {
    std::string path; // a template's below the document root, or another file's
    bool isTemplate;
    uint32_t line;
    uint32_t unit;
    uint32_t endUnit;
};

/* What a command does, in a line. Static. */
const char *describeCommand(uint32_t id);

/* What a kind of finding is, in Markdown. */
std::string describeKind(const Kind &kind);

/* What there is to say of a finding: what its kind is, and of a mistake of the syntax, which are of
 * many sorts, how this one is mended. */
std::string describeFinding(const Finding &finding);

/* What a reader wants to know about it, in Markdown; empty for nothing. */
std::string hoverText(Site &site, const Found &found);

/* Where it is defined: an include's file, a variable's sets and the forms and links that send
 * it, a text's lines, the statement that makes a table. */
std::vector<FilePlace> definitionsOf(const Site &site, const Template &tpl, const Found &found);

// A piece of a template that leads to a file.
struct FileLink {
    uint32_t line; // these as in FilePlace
    uint32_t unit;
    uint32_t endUnit;
    std::string path; // below the document root
};

/* The files that a template includes. */
std::vector<FileLink> linksOf(const Site &site, const Template &tpl);

/* Where a variable or a text is used; with the places that set it when definitions. */
std::vector<FilePlace> referencesOf(Site &site, const Found &found, bool definitions);

/* The offset in the file of a line from 0 and a column from 0 in UTF-16 units. */
uint32_t offsetOfUnits(const Template &tpl, uint32_t line, uint32_t unit);

#endif
