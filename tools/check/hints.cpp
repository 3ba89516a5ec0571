/* tools/check/hints.cpp - the words that other languages have for what this one says
 * otherwise, keywords that are nearly right, and characters that nobody sees. */
#include "hints.h"

#include <string.h>

#include <algorithm>
#include <span>
#include <vector>

#include "findings.h"
#include "grammar/commands.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

// ---- words and blanks ----

// The words that can follow "<?", a command's first word each.
static const std::vector<string_view> &keywords()
{
    static const std::vector<string_view> words = [] {
        std::vector<string_view> list;
        for (const CommandDef &row : commandTable) {
            const string_view all = row.words;
            list.push_back(all.substr(0, all.find(' ')));
            if (all.substr(0, 3) == "if ")
                list.push_back(all.substr(3));
        }
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        return list;
    }();
    return words;
}

bool isKeyword(string_view word)
{
    return std::binary_search(keywords().begin(), keywords().end(), word);
}

string_view wordAt(string_view source, size_t at)
{
    size_t end = at;
    while (end < source.size() &&
           (isLetterOrDigit(source[end]) || source[end] == '_' || source[end] == '-'))
        ++end;
    return source.substr(std::min(at, source.size()), end - at);
}

size_t passBlanks(string_view source, size_t at)
{
    return std::min(source.find_first_not_of(" \t\r\n", at), source.size());
}

// ---- what cannot be seen ----

static constexpr Invisible invisibles[] = {
    {"\xC2\xA0", "a no-break space (U+00A0)"},
    {"\xC2\xAD", "a soft hyphen (U+00AD)"},
    {"\xE2\x80\x8B", "a zero-width space (U+200B)"},
    {"\xE2\x80\x8C", "a zero-width non-joiner (U+200C)"},
    {"\xE2\x80\x8D", "a zero-width joiner (U+200D)"},
    {"\xE2\x80\x8E", "a left-to-right mark (U+200E)"},
    {"\xE2\x80\x8F", "a right-to-left mark (U+200F)"},
    {"\xE2\x80\x87", "a figure space (U+2007)"},
    {"\xE2\x80\x89", "a thin space (U+2009)"},
    {"\xE2\x80\xA8", "a line separator (U+2028)"},
    {"\xE2\x80\xAF", "a narrow no-break space (U+202F)"},
    {"\xE2\x81\xA0", "a word joiner (U+2060)"},
    {"\xE3\x80\x80", "an ideographic space (U+3000)"},
    {"\xEF\xBB\xBF", "a byte order mark (U+FEFF)"},
};

const Invisible *invisibleAt(string_view text, size_t at)
{
    if (static_cast<unsigned char>(text[at]) < 0x80)
        return nullptr;
    const auto *found =
        std::find_if(std::begin(invisibles), std::end(invisibles), [&](const Invisible &character) {
            return text.compare(at, strlen(character.bytes), character.bytes) == 0;
        });
    return found == std::end(invisibles) ? nullptr : found;
}

string describe(const Invisible &character)
{
    return character.name;
}

// ---- words of other languages ----

namespace
{
struct ForeignWord {
    const char *words; // with a blank on each side
    const char *text;
};
} // namespace

// Behind "<?".
static constexpr ForeignWord foreignWords[] = {
    {" else otherwise ",
     "the other branch is the last argument of if: <?if eq A B `then` `else`?>"},
    {" elseif elsif elif ",
     "the other branch is the last argument of if, and may hold an if: <?if eq A B `then` `<?if "
     "eq A C `then`?>`?>"},
    {" end endif endfor endforeach endwhile endloop endrepeat endquery fi done endblock close ",
     "no command ends another: what is chosen or repeated is an argument, and ?> ends the command"},
    {" foreach for while loop each do until iterate rows ",
     "rows are repeated by <?multiquery QUERY `body`?>, numbers by <?repeat [ 1 3 ] `body`?>"},
    {" set let assign var define dim local global const declare ",
     "a variable is set by <?setvariable var:NAME VALUE?>"},
    {" php asp jsp perl lua js javascript code ",
     "no other language runs here: a value is printed by <?echo $var:NAME?>"},
    {" get show display write printf out put value val text say puts output ",
     "a value is printed by <?echo $var:NAME?>"},
    {" not unless ifnot ne ", "that two values differ is asked by <?if neq A B `body`?>"},
    {" when switch case choose cond match ",
     "an if in the last argument of another chooses among several: <?if eq A B `...` `<?if eq A C "
     "`...`?>`?>"},
    {" ge ", "greater or equal is gte: <?if gte A B `body`?>"},
    {" le ", "less or equal is lte: <?if lte A B `body`?>"},
    {" equal equals is isset defined exists empty ",
     "two values are compared by <?if eq A B `body`?>; a variable that is not set equals ''"},
    {" select sql db ", "SQL stands in a query: <?multiquery 'select ...' `$1`?>"},
    {" count ", "the rows of a query are counted by <?multiquerycount QUERY?>"},
    {" import require require_once include_once extends block insert use template partial layout ",
     "another template is put here by <?include PATH?>"},
    {" math add sub mul div inc dec incr ", "numbers are added by <?calc + A B?>"},
    {" comment rem ", "a comment is <?-- ... ?>"},
    {" return function call exit break continue macro def sub ",
     "there are no functions: a piece of page that is used twice is a template of its own, "
     "<?include PATH?>"},
};

// Behind "<?if"; the word of this language that stands in its place.
static constexpr struct {
    const char *sign;
    const char *word;
} comparisons[] = {{"===", "eq"}, {"!==", "neq"}, {"==", "eq"},  {"!=", "neq"}, {"<>", "neq"},
                   {">=", "gte"}, {"<=", "lte"},  {"=", "eq"},   {">", "gt"},   {"<", "lt"},
                   {"&&", "and"}, {"||", "or"},   {"ne", "neq"}, {"ge", "gte"}, {"le", "lte"},
                   {"is", "eq"},  {"not", "neq"}};

static const ForeignWord *findForeign(string_view word)
{
    const string key = " " + lowered(word) + " ";
    const auto *found =
        std::find_if(std::begin(foreignWords), std::end(foreignWords),
                     [&](const ForeignWord &f) { return strstr(f.words, key.c_str()); });
    return word.empty() || found == std::end(foreignWords) ? nullptr : found;
}

// ---- what was meant ----

static Edit replace(size_t at, size_t length, string text)
{
    return {static_cast<uint32_t>(at), static_cast<uint32_t>(length), std::move(text)};
}

// Of an if that is not followed by its word: the sign that stands between the values.
static Hint hintIf(string_view source, size_t at, string_view next)
{
    const size_t end = std::min(source.find("?>", at), source.size());
    const size_t behind = passBlanks(source, at);
    const string low = lowered(next);
    if (low != next && isKeyword(low) && low.size() <= 3)
        return {"keywords are written in lower case: if " + low, replace(behind, next.size(), low)};
    for (const auto &[sign, word] : comparisons) {
        const size_t length = strlen(sign);
        const bool isWord = isLetter(*sign);
        const bool inFront = isWord ? low == sign : source.compare(behind, length, sign) == 0;
        const string spaced = string(" ") + sign + " ";
        const size_t between = source.substr(0, end).find(spaced, at);
        if (inFront && strcmp(sign, "not") != 0)
            return {string("did you mean 'if ") + word + "'?", replace(behind, length, word)};
        if (inFront || between == string_view::npos || isWord)
            continue;
        return {string("the comparison is a word, and stands in front of both values: if ") + word +
                    " A B, not A " + sign + " B",
                {}};
    }
    const string_view near =
        next.size() > 1 ? nearest(low, {"eq", "neq", "gt", "gte", "lt", "lte", "and", "or"})
                        : string_view();
    string text = "one of eq, neq, gt, gte, lt, lte, and, or must follow if";
    if (next.size() > 1 && !near.empty())
        text += "; did you mean 'if " + string(near) + "'?";
    else if (source.compare(behind, 1, "$") == 0)
        text += ": if neq A '' asks whether A is set";
    return {text, {}};
}

// What has to follow a keyword that stands there by itself.
static Hint hintBehind(string_view source, size_t end, string_view word, string_view next)
{
    if (word == "if")
        return hintIf(source, end, next);
    if (word == "repeat")
        return {"a bracket must follow repeat, [ or ], with white space around it: repeat [ 1 3 ]",
                {}};
    if (word == "calc")
        return {"an operator must follow calc, one of + - * /, with white space around it: calc + "
                "1 2",
                {}};
    if (word == "error")
        return {"it is 'error found ' or 'error message ', with white space behind it", {}};
    if (word == "setvariable" || word == "setvariableonce") {
        const size_t at = passBlanks(source, end);
        string text = "var: and a name of letters and digits must follow " + string(word);
        if (source.compare(at, 5, "$var:") == 0)
            return {text + ", without a $", replace(at, 1, "")};
        if (source.compare(at, 5, "var: ") == 0)
            return {text + ", without a blank behind var:", {}};
        const string_view name = wordAt(source, at);
        const size_t behind = at + name.size();
        const bool isName = !name.empty() && std::all_of(name.begin(), name.end(),
                                                         [](char c) { return isLetterOrDigit(c); });
        if (isName && source.compare(behind, 1, ":") != 0)
            return {text, replace(at, 0, "var:")};
        return {text, {}};
    }
    return {"white space must follow " + string(word), {}};
}

// A character that nobody sees and that spoils a command's words.
static Hint hintInvisible(string_view source, size_t at, string_view word)
{
    const size_t end = std::min({source.find_first_of(" \t\r\n?", at), source.size(), at + 40});
    for (size_t i = at; i < end; ++i)
        if (const Invisible *found = invisibleAt(source, i)) {
            const bool behind = i == at + word.size() && isKeyword(word);
            return {describe(*found) + " stands " +
                        (behind ? "behind " + string(word) + ", and is no white space"
                                : "in the command's name"),
                    replace(i, strlen(found->bytes), behind ? " " : "")};
        }
    return {};
}

Hint hintUnknown(const Template &tpl, const Begun &begun)
{
    const string_view source = tpl.source;
    const size_t at = passBlanks(source, begun.words.at + 2);
    const string_view word = wordAt(source, at);
    const size_t end = at + word.size();
    const string_view next = wordAt(source, passBlanks(source, end));
    if (Hint hint = hintInvisible(source, at, word); !hint.text.empty())
        return hint;
    if (isKeyword(word))
        return hintBehind(source, end, word, next);
    const string low = lowered(word);
    if (isKeyword(low))
        return {"keywords are written in lower case: " + low, replace(at, word.size(), low)};
    if (source.compare(at, 1, "=") == 0)
        return {"a value is printed by <?echo $var:NAME?>",
                replace(at, source.compare(at, 2, "==") == 0 ? 2 : 1, "echo ")};
    if (source.compare(at, 1, "$") == 0)
        return {"a value is printed by <?echo $var:NAME?>", replace(at, 0, "echo ")};
    if (at < source.size() && string_view("#/!*").find(source[at]) != string_view::npos)
        return {"a comment is <?-- ... ?>", {}};
    if (const ForeignWord *foreign = findForeign(word))
        return {foreign->text, {}};
    const string joined = low + lowered(next);
    if (!next.empty() && isKeyword(joined))
        return {"the name is written in one word: " + joined,
                replace(at, static_cast<size_t>(next.data() + next.size() - word.data()), joined)};
    for (const string_view keyword : keywords()) // "echo$var:x" and "echox"
        if (keyword.size() > 3 && word.size() > keyword.size() && low.starts_with(keyword) &&
            word.size() - keyword.size() > 2)
            return {"white space must follow " + string(keyword), {}};
    std::vector<string_view> longer = keywords();
    std::erase_if(longer, [](string_view keyword) { return keyword.size() <= 3; });
    if (const string_view near = low.size() > 2 ? nearest(low, longer) : string_view();
        !near.empty())
        return {"did you mean '" + string(near) + "'?", replace(at, word.size(), string(near))};
    if (low.starts_with("setvar"))
        return {foreignWords[4].text, {}};
    return {"no command begins like this, and <? comes out as page text", {}};
}

// ---- what a command takes ----

static const char *needsOf(int token)
{
    const CommandDef &row = commandOf(token);
    if (row.id & CMDF_IF)
        return "two values to compare, then what to print, and perhaps what to print otherwise";
    if (row.id & CMDF_CALC)
        return "two numbers";
    if (row.id == ID_REPEATINCL || row.id == ID_REPEATEXCL)
        return "two bounds, a bracket and a body: repeat [ 1 3 ] 'body'";
    if (row.tail == Tail::ELEMENT)
        return "an index in brackets, white space and one value";
    if (row.id == ID_MULTIQUERYCOUNT)
        return "a query";
    if (row.id & CMDF_QUERY)
        return "a query, and perhaps a body";
    if (row.id == ID_INCLUDE || row.id == ID_BASE64)
        return "one path";
    return row.tail == Tail::NAME ? "a name and one value" : "one argument";
}

string wordsAndNeeds(int token, bool surplus)
{
    if (token == F_ERRORFOUND)
        return "error found takes no argument";
    return wordsOfToken(token) + (surplus ? " takes " : " needs ") + needsOf(token) +
           (surplus ? ", and no more" : "");
}
