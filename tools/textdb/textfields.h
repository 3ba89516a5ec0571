/* tools/textdb/textfields.h - the text fields of templates, and what each of them
 * stands in. Templates are read by the library's own scanner and grammar. */
#ifndef TOOLS_TEXTDB_TEXTFIELDS_H
#define TOOLS_TEXTDB_TEXTFIELDS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/common/placed.h"

// What a field stands in, bits. None of them: page text.
enum : uint8_t { STANDS_IN_ATTRIBUTE = 1, STANDS_IN_SCRIPT = 2, STANDS_IN_COMPARISON = 4 };

/* A text field of a template. */
struct FieldUse {
    std::string id;
    uint32_t line;
    uint8_t stands;
    bool isWritten; // it comes out in that state of the page, as far as the template tells
    HtmlState state;
    FieldPlace place;
    size_t maxLength; // of the form's field whose value it is, 0 for none
    const char *path; // of the template, as it was given
};

/* Something that looks like a text field and is none. */
struct BrokenField {
    uint32_t line;
    std::string text; // from "{?" to "}"
    const char *why;  // a static text
};

struct TemplateFields {
    std::string path;
    std::vector<FieldUse> uses; // in the template's order
    std::vector<BrokenField> broken;
};

/* Reads the fields of templates. Returns false, after a complaint, when one cannot be
 * read; the others are there all the same.
 * folder: where the paths begin, with its slash; empty for the working directory. */
bool readTemplates(const std::vector<const char *> &paths, std::vector<TemplateFields> *templates,
                   const std::string &folder = "");

/* All that is known of the uses of an id. Paths are borrowed from the templates. */
struct IdUses {
    std::vector<std::pair<const char *, uint32_t>> places;
    uint8_t stands = 0;
    size_t maxLength = 0; // the least of its places, 0 without one
};

using Uses = std::map<std::string, IdUses, std::less<>>;

Uses collectUses(const std::vector<TemplateFields> &templates);

/* What a text does in the place of a field, "ends the quote that it stands in", and to its
 * page; empty for nothing. meant: references that it may have. cure: out, what to do about it. */
std::string breaksPlace(std::string_view text, const FieldUse &use,
                        const std::set<std::string> &meant, std::string *cure);

/* An id in a form that is the same for ids that differ in the case of letters and in
 * marks only. */
std::string looseId(std::string_view id);

#endif
