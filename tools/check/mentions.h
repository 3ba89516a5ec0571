/* tools/check/mentions.h - names that stand in text: of parameters, tables and columns in
 * SQL, and of the fields of forms and links in markup. */
#ifndef ORV_CHECK_MENTIONS_H
#define ORV_CHECK_MENTIONS_H

#include "schema.h"
#include "site.h"

// What a name in text is of.
enum class Names : uint8_t { NOTHING, PARAMETER, TABLE, COLUMN, FORM_FIELD };
struct Mention {
    Names what = Names::NOTHING;
    std::string name; // as it is known elsewhere: a parameter's without its ":"
    Table table{};    // of a table or a column
};

/* What is named at an offset. argument: the innermost that it is in, of command; null in
 * page text. */
Mention mentionAt(const Site &site, const Template &tpl, const Command *command,
                  const Argument *argument, uint32_t offset);

// A place in a template's source.
struct MentionPlace {
    const Template *tpl;
    Span span;
};

/* Where a query has a parameter of that name. */
std::vector<MentionPlace> parametersOf(const Site &site, std::string_view name);

// A script that makes a table, and on which line.
struct ScriptPlace {
    std::string path; // empty when the table is of no script
    uint32_t line;
};
ScriptPlace madeBy(const Site &site, const Table &table);

#endif
