/* tools/common/translation.h - a text of a language judged by itself and against its source
 * text: what must be in both, and what may be in neither.
 *
 * What a text does to the place where its field stands is told by placed.h. */
#ifndef TOOLS_TRANSLATION_H
#define TOOLS_TRANSLATION_H

#include <set>
#include <string>
#include <string_view>
#include <vector>

/* The kinds of fault. Their ids stand in people's flags and scripts: none is renamed. */
inline constexpr char TEXT_REFERENCE[] = "text-reference"; // $1, $var:name, %d, {0}
inline constexpr char TEXT_TAGS[] = "text-tags";
inline constexpr char TEXT_ENTITY[] = "text-entity";
inline constexpr char TEXT_BLANK[] = "text-blank"; // at the edges, or nothing else
inline constexpr char TEXT_CONTROL[] = "text-control";
inline constexpr char TEXT_LENGTH[] = "text-length";
inline constexpr char TEXT_ENDING[] = "text-ending";     // of the sentence; a hint, no fault
inline constexpr char TEXT_BREAKS[] = "text-breaks";     // the place that it stands in
inline constexpr char TEXT_LANGUAGE[] = "text-language"; // of the file, not that of its name

struct TextFlaw {
    const char *kind;
    std::string problem; // what is wrong, and what to do: "lacks $2: put it where ..."
};

/* Returns the faults of a text that is not empty.
 * source: the source text, or null without one, as the source's own texts are.
 * flags: of the entry. "max-length:N" tells the most characters; "no-" and a kind leaves
 * that kind out. */
std::vector<TextFlaw> judgeText(std::string_view text, const std::string *source,
                                const std::set<std::string> &flags);

/* Returns the length of the reference to a variable or a value that a "$" begins, 0 when it
 * begins none. */
size_t referenceLength(std::string_view rest);

/* Returns the references of a text. */
std::set<std::string> referencesOf(std::string_view text);

/* Returns the references that a text may have in an argument of a command: those of its source
 * text; without one, its own when a flag says that they are meant, "text-references". */
std::set<std::string> meantReferences(std::string_view text, const std::string *source,
                                      const std::set<std::string> &flags);

/* Returns the length of the piece at pos of a text that a translation keeps as it is: a
 * reference or placeholder, a tag, an entity, a command, a text field, what stands behind a
 * backslash. 0 where words stand. */
size_t keptLength(std::string_view text, size_t pos);

/* Whether flags leave a kind out. */
bool isLeftOut(const std::set<std::string> &flags, std::string_view kind);

/* Returns the most characters that flags allow, 0 without a limit. */
size_t maxLength(const std::set<std::string> &flags);

/* Takes the limits out of flags. */
void dropLimit(std::set<std::string> *flags);

/* Lets flags allow no more characters than most. */
void limitLength(std::set<std::string> *flags, size_t most);

/* How many characters of a text are seen: a tag is none, an entity is one. */
size_t visibleLength(std::string_view text);

/* Whether a file, by its name, is of another language than the code says: "it.po",
 * "htmltext_it.db" and "pt_BR.po" name theirs, a name without two letters of its own none.
 * named: out, the language of the name. */
bool isOtherLanguage(std::string_view path, std::string_view code, std::string *named);

#endif
