/* tools/check/lookup.h - what stands at a place of a template, for editors. */
#ifndef ORV_CHECK_LOOKUP_H
#define ORV_CHECK_LOOKUP_H

#include "assemble.h"
#include "site.h"

// What stands at an offset; the innermost of each.
struct Found {
    const Command *command = nullptr;
    const Element *element = nullptr; // a reference or a value in it; null on anything else
    const Field *field = nullptr;
    bool onWords = false; // the offset is in the command's keyword
    bool onName = false;  // in the name that it sets
    Levels levels;        // the bodies around the offset
};
Found findAt(const Template &tpl, uint32_t offset);

// A place in any file, lines and columns from 1, columns in UTF-16 units.
struct FilePlace {
    std::string path; // a template's below the document root, or another file's
    bool isTemplate;
    uint32_t line;
    uint32_t unit;
    uint32_t endUnit;
};

/* What a reader wants to know about it, in Markdown; empty for nothing. */
std::string hoverText(Site &site, const Template &tpl, const Found &found);

/* Where it is defined: an include's file, a variable's sets, a text's lines. */
std::vector<FilePlace> definitionsOf(const Site &site, const Template &tpl, const Found &found);

/* Where a variable or a text is used; with the places that set it when definitions. */
std::vector<FilePlace> referencesOf(Site &site, const Found &found, bool definitions);

// What can stand at the end of a line.
struct Completion {
    std::string label;
    std::string detail;
    int kind; // as the protocol numbers them
};

/* What can follow, by what stands in front of the offset. typed: out, bytes in front of
 * the offset that a completion replaces. */
std::vector<Completion> completionsAt(Site &site, const Template &tpl, uint32_t offset,
                                      uint32_t *typed);

/* The byte offset of a line from 0 and a column from 0 in UTF-16 units. */
uint32_t offsetOfUnits(const Template &tpl, uint32_t line, uint32_t unit);

#endif
