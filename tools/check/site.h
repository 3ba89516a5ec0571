/* tools/check/site.h - a site as a whole: its templates with what they include, the
 * variables that they and the web program set, the texts of its languages, and the
 * database that answers its queries.
 *
 * Everything is read once, in loadSite, and stays as it is. */
#ifndef ORV_CHECK_SITE_H
#define ORV_CHECK_SITE_H

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/bounds.h"
#include "findings.h"
#include "grammar/commands.h"
#include "mend.h"
#include "sql.h"
#include "tools/common/template.h"
#include "texts.h"

// How many templates a page may have open at a time.
constexpr size_t MOST_OPEN = MAX_INCLUDE_DEPTH;

// The commands in whose bodies a place stands, the outermost first.
using Levels = std::vector<const Command *>;

// A place where a variable is set or read.
struct VariableUse {
    const Template *tpl;
    Span span;
    const Command *command; // that sets it; null for a read
    const Argument *value;  // what it is set to; null for a read or without a value
    std::shared_ptr<const Levels> levels;
};

// Keys are NAME, or NAME[INDEX] for an element; NAME[*] stands for an element whose
// index is computed, NAME[min] and NAME[max] for reads of a bound.
struct Variable {
    std::vector<VariableUse> sets;
    std::vector<VariableUse> reads;
};

// A text field's use.
struct FieldUse {
    const Template *tpl;
    size_t field; // index in its fields
};

// An include or base64 command with its path.
struct PathUse {
    const Template *tpl;
    const Command *command;
    std::vector<std::string> paths; // all that may be meant; empty when not written there
    bool dynamic;                   // the path holds a variable or value
    bool conditional;               // inside a body
};

// How findings of a kind are taken, in some files or everywhere.
struct KindRule {
    const Kind *kind;
    std::optional<Grade> grade;     // none leaves them out
    std::vector<std::string> files; // patterns; empty for all files
};

struct SiteOptions {
    std::string file; // orv-check.json, from which some of this is; empty without one
    std::string docRoot = ".";
    std::vector<SiteDatabase> databases; // none, or one of them is "main"
    std::vector<SiteFunction> functions; // that the host adds to SQL
    std::vector<std::string> texts;      // files
    std::vector<std::string> set;        // variables that the web program sets
    std::vector<std::string> safe;       // such ones whose values are safe anywhere
    std::vector<KindRule> rules;         // the last that fits counts
    std::vector<std::string> pages;      // patterns; empty for templates that no other includes
    std::vector<std::string> exclude;    // patterns of files that are not looked at
    std::vector<std::string> routes;     // patterns of what the web program answers
    std::vector<std::string> templates;  // the pages, paths below docRoot; empty for all
    std::map<std::string, std::string> unsaved; // contents that stand for files, by path
};

// Where a query command stands.
struct QueryPlace {
    const Template *tpl;
    std::shared_ptr<const Levels> levels;
};

struct RowsOf;

// What is wrong with a text by itself and beside its source.
struct TextJudgement {
    size_t language; // its index
    uint32_t line;
    const char *kind;
    std::string text;
};

// That of all languages.
struct JudgedTexts {
    std::map<std::string, size_t, std::less<>> limits; // of the forms' fields, by id
    std::vector<TextJudgement> judgements;
};

// What templates set, read, send and include.
struct Collected {
    std::map<std::string, std::unique_ptr<Template>> templates; // all that were read, by path
    std::map<std::string, std::vector<Mistake>> mistakes;   // of the syntax, by the template's path
    std::map<const Template *, std::vector<Span>> doubtful; // as of Mended
    std::set<std::string, std::less<>> meant;             // variables in commands that are left out
    std::map<std::string, std::vector<PathUse>> includes; // by the including template's path
    std::vector<PathUse> encoded;                         // base64 commands
    std::map<std::string, Variable, std::less<>> variables; // by key
    std::set<std::string, std::less<>> fromForms;           // names that forms and links send
    // Where the fields and links stand that send a name.
    std::map<std::string, std::vector<std::pair<const Template *, Span>>, std::less<>> senders;
    // What a name begins and ends with that a form's field is computed to have.
    std::vector<std::pair<std::string, std::string>> formPatterns;
    std::map<std::string, std::vector<FieldUse>, std::less<>> fields; // by id
    std::set<std::string, std::less<>> otherFields; // ids in commands that are left out
    std::unordered_map<const Command *, QueryPlace> queries;
};

struct Site : Collected {
    SiteOptions options;
    std::vector<std::string> pages;             // paths, ascending
    std::vector<std::string> files;             // all below the document root
    std::set<std::string, std::less<>> fromWeb; // names that --set and --safe give
    std::set<std::string, std::less<>> safe;    // those of --safe
    std::vector<Language> languages;            // those without a mistake
    std::vector<TextFault> textFaults;          // of the others
    std::string problem;                        // why a template could not be read to its end
    std::unique_ptr<Database> database;         // null without one
    std::string databaseState;                  // of what it was made from
    std::vector<std::string_view> textIds;      // of all languages, ascending; of their own
    std::optional<JudgedTexts> judged;          // of the languages as they are
    // Worked out when first asked for.
    std::unordered_map<const Command *, std::shared_ptr<RowsOf>> rows;
    std::map<std::string, uint8_t, std::less<>> holds; // VALUE_ bits of variables
};

/* Reads all of a site. Returns false, with the reason in problem, when the document
 * root, a template that was named, a language's texts or the database cannot be read.
 * progress: called now and then with the number of templates read; may be empty. former: the
 * site as it was, whose languages and databases are taken over where their files have not
 * changed; of no use afterwards. Null without one. */
bool loadSite(SiteOptions options, Site *site, std::string *problem,
              const std::function<void(size_t)> &progress = {}, Site *former = nullptr);

/* Gives the languages and databases back that a site has taken over. */
void giveBack(Site *site, Site *former);

/* Adds the names that a template's forms and links send. */
void collectNames(Site *site, const Template &tpl);

/* Whether the web program sets a variable: by --set, or probably, by a form. */
bool isFromWeb(const Site &site, std::string_view key);

/* The sets that a read of key may see: those of the element, of computed indices, and
 * for a computed index those of all elements. */
std::vector<const VariableUse *> setsOf(const Site &site, std::string_view key);
size_t countSets(const Site &site, std::string_view key);

/* The key of a variable or array element that a command sets or an element reads. */
std::string keyOfSet(const Command &command);
std::string keyOfRead(const Element &element);

/* The name of an element's array, or of the variable itself. A part of the key. */
std::string_view arrayOf(std::string_view key);

/* Whether an offset of a template's file stands in a comment. */
bool inComment(const Template &tpl, uint32_t offset);

/* What a file's name ends with from its last dot on, such as ".htm"; empty without one. */
std::string suffixOf(std::string_view path);

/* The text of an argument that consists of text only, without fields. */
bool constantText(const Template &tpl, const Argument &argument, std::string *text);

/* The source text of a language's text: the one that it notes, or that of the first language;
 * null without one. Borrowed. */
const std::string *sourceOf(const Site &site, const Language &language, std::string_view id,
                            const LanguageText &text);

/* The flags of a text and of its source. */
std::set<std::string> flagsOf(const Site &site, std::string_view id, const LanguageText &text);

/* The argument of a command that is its body, or its bodies' first, by index; -1 when
 * it has none. */
int bodyIndex(const Command &command);

/* What a command prints. */
Prints printsOf(const Command &command);

/* Whether a file exists below the document root, or an unsaved content of that path. */
bool fileExists(const Site &site, const std::string &path);

#endif
