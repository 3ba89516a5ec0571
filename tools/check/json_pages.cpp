/* tools/check/json_pages.cpp - reads JSON in all ways through a page, and tells where it is
 * none, and which values it cannot hold. */
#include "json_pages.h"

#include <string.h>

#include <algorithm>

#include "grammar/commands.h"
#include "tags.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

namespace
{
// What can come next.
enum Next : uint8_t {
    NOWHERE, // this is no JSON
    LOST,    // a mistake is told
    VALUE,
    FIRST_VALUE, // of a list
    KEY,
    FIRST_KEY, // of an object
    COLON,
    AFTER, // a value
    WORD,  // of a number or a name that goes on
    KEY_TEXT,
    TEXT,
    KEY_ESCAPE,
    ESCAPE,
};

// JSON of one variant on its way through a text.
struct Scan {
    JsonPages &pages;
    const Paths &paths;
    State &state;
    const Node &node;
    size_t at;
    string problem; // empty for none
    size_t wrongAt = 0;
    bool atComma = false; // the mistake is the last comma
    size_t keyAt = 0;     // where the name that is being read begins, behind its quote
};
} // namespace

static bool isIn(const State &state, char list)
{
    return state.list && state.list->name[0] == list;
}

// One mistake is told of a piece of text, the first.
static void fail(Scan &scan, string problem)
{
    scan.state.json = LOST;
    if (!scan.problem.empty())
        return;
    scan.problem = std::move(problem);
    scan.wrongAt = scan.at;
}

static void openList(Scan &scan, bool isObject)
{
    scan.pages.lists.push_back(
        {scan.state.list, nullptr, isObject ? "{" : "[", scan.paths.chain, {}, false, false});
    scan.state.list = &scan.pages.lists.back();
    scan.state.json = isObject ? FIRST_KEY : FIRST_VALUE;
}

static void closeList(Scan &scan, char c)
{
    const bool isObject = c == '}';
    if (!isIn(scan.state, isObject ? '{' : '['))
        return fail(scan, scan.state.list ? string("a ") + (isObject ? ']' : '}') +
                                                " is to come before this " + c
                                          : string("this ") + c + " closes nothing");
    scan.state.list = scan.state.list->outer;
    scan.state.json = AFTER;
}

static void readMistake(Scan &scan, char c, string_view wanted)
{
    const string_view rest = string_view(scan.node.text).substr(scan.at);
    if (rest.starts_with("//") || rest.starts_with("/*") || c == '#')
        fail(scan, "JSON has no comments");
    else if (c == '\'' || c == '`')
        fail(scan, "names and texts of JSON stand in double quotes");
    else if (isLetterOrDigit(c) || c == '_' || c == '$')
        fail(scan, scan.state.json == KEY || scan.state.json == FIRST_KEY
                       ? "names of JSON stand in double quotes"
                       : string(wanted) + " is missing here");
    else
        fail(scan, string(wanted) + " is missing in front of this " + c);
}

static bool isNumber(string_view word)
{
    size_t at = word.starts_with('-') ? 1 : 0;
    const auto digits = [&] {
        const size_t begin = at;
        while (at < word.size() && isDigit(word[at]))
            ++at;
        return at - begin;
    };
    const bool isZero = at < word.size() && word[at] == '0';
    const size_t whole = digits();
    if (whole == 0 || (isZero && whole > 1))
        return false;
    if (at < word.size() && word[at] == '.' && (++at, digits() == 0))
        return false;
    if (at < word.size() && (word[at] | 0x20) == 'e') {
        ++at;
        at += at < word.size() && strchr("+-", word[at]) ? 1 : 0;
        if (digits() == 0)
            return false;
    }
    return at == word.size();
}

// A number or true, false, null.
static void readWord(Scan &scan)
{
    const string_view rest = string_view(scan.node.text).substr(scan.at);
    const size_t end = std::min(rest.find_first_of(",:]}[{\" \t\r\n/"), rest.size());
    const string_view word = rest.substr(0, end);
    const bool isKnown = word == "true" || word == "false" || word == "null" || isNumber(word);
    const auto begins = [word](string_view whole) { return whole.starts_with(word); };
    const bool canGoOn = end == rest.size() && // a value may follow
                         (begins("true") || begins("false") || begins("null") ||
                          word.find_first_not_of("0123456789+-.eE") == string_view::npos);
    if (!isKnown && !canGoOn)
        return fail(scan, "'" + string(word.substr(0, 30)) +
                              "' is no value of JSON: texts stand in double quotes");
    scan.at += end - 1;
    scan.state.json = end < rest.size() ? AFTER : WORD;
}

static void readValue(Scan &scan, char c)
{
    const Next now = static_cast<Next>(scan.state.json);
    if (c == '"')
        scan.state.json = TEXT;
    else if (c == '{' || c == '[')
        openList(scan, c == '{');
    else if (c == ']' && now == FIRST_VALUE)
        closeList(scan, c);
    else if (c == ']' && scan.pages.comma.tpl && isIn(scan.state, '[')) {
        fail(scan, "no comma may stand in front of ]");
        scan.atComma = true;
        closeList(scan, c); // as it was meant
    } else if (isLetterOrDigit(c) || c == '-' || c == '+' || c == '.' || c == '_')
        readWord(scan);
    else
        readMistake(scan, c, "a value");
}

static void readKey(Scan &scan, char c)
{
    const bool isFirst = scan.state.json == FIRST_KEY;
    if (c == '"') {
        scan.state.json = KEY_TEXT;
        scan.keyAt = scan.at + 1;
    } else if (c == '}' && isFirst) {
        closeList(scan, c);
    } else if (c == '}') {
        fail(scan, "no comma may stand in front of }");
        scan.atComma = true;
        closeList(scan, c);
    } else {
        readMistake(scan, c, "a name in double quotes");
    }
}

static void readAfter(Scan &scan, char c)
{
    if (c == ',' && scan.state.list) {
        scan.state.json = isIn(scan.state, '{') ? KEY : VALUE;
        const auto at = scan.node.place.span.at + static_cast<uint32_t>(scan.at);
        scan.pages.comma = {scan.node.place.tpl, {at, at + 1}, scan.node.place.text};
    } else if (c == '}' || c == ']') {
        closeList(scan, c);
    } else if (!scan.state.list) {
        fail(scan, "the document has ended; this stands behind it");
    } else if (c == '"' || c == '{' || c == '[' || isLetterOrDigit(c) || c == '-') {
        fail(scan, "a comma is missing in front of this");
        scan.state.json = isIn(scan.state, '{') ? KEY : VALUE;
        if (scan.state.json == KEY)
            readKey(scan, c);
        else
            readValue(scan, c);
    } else {
        readMistake(scan, c, "a comma");
    }
}

// Tells of a name that its object has twice; one that is not written out whole may be any.
static void noteName(Scan &scan)
{
    const string name = scan.node.text.substr(scan.keyAt, scan.at - scan.keyAt);
    const Paths &paths = scan.paths;
    Place place = scan.node.place;
    if (scan.keyAt == 0 || name.find('\\') != string::npos || paths.again)
        return;
    if (!place.text)
        place.span = {place.span.at + static_cast<uint32_t>(scan.keyAt),
                      place.span.at + static_cast<uint32_t>(scan.at)};
    std::vector<JsonName> &uses = scan.pages.names[{scan.state.list, name}];
    for (const JsonName &use : uses) {
        const bool isSame = use.place.tpl == place.tpl && use.place.span.at == place.span.at;
        if (isSame || exclude(use.when, paths.conditions) ||
            !(covers(use.when, paths.conditions) || covers(paths.conditions, use.when)))
            continue;
        reportPlace(scan.pages.all, Grade::WARNING, place, "json-syntax",
                    "the name '" + name + "' stands in this object twice; programs take the last",
                    {noteAt(*use.place.tpl, use.place.span.at, "the other one is here")});
        return;
    }
    uses.push_back({place, paths.conditions});
}

static void readText(Scan &scan, char c)
{
    const bool isKey = scan.state.json == KEY_TEXT;
    if (c == '"' && isKey)
        noteName(scan);
    if (c == '"')
        scan.state.json = isKey ? COLON : AFTER;
    else if (c == '\\')
        scan.state.json = isKey ? KEY_ESCAPE : ESCAPE;
    else if (c == '\n')
        fail(scan, "the line ends inside of a text: its quote is missing, or write \\n");
    else if (static_cast<unsigned char>(c) < ' ')
        fail(scan, "a text of JSON cannot hold this character: write it with a backslash");
}

static void readEscape(Scan &scan, char c)
{
    if (!strchr("\"\\/bfnrtu", c) || c == '\0')
        return fail(scan, string("\\") + c + " is no escape in JSON" +
                              (c == '\'' ? ": write the ' alone" : ""));
    scan.state.json = scan.state.json == KEY_ESCAPE ? KEY_TEXT : TEXT;
}

static void readByte(Scan &scan, char c)
{
    switch (scan.state.json) {
    case KEY_TEXT:
    case TEXT:
        return readText(scan, c);
    case KEY_ESCAPE:
    case ESCAPE:
        return readEscape(scan, c);
    default:
        break;
    }
    if (scan.state.json == WORD && !(isLetterOrDigit(c) || strchr("+-.", c)))
        scan.state.json = AFTER;
    if (isBlank(c))
        return;
    switch (scan.state.json) {
    case VALUE:
    case FIRST_VALUE:
        return readValue(scan, c);
    case KEY:
    case FIRST_KEY:
        return readKey(scan, c);
    case COLON:
        if (c == ':')
            scan.state.json = VALUE;
        else
            readMistake(scan, c, "a colon");
        return;
    case AFTER:
        return readAfter(scan, c);
    default:
        return;
    }
}

// Leaves out the variants with a mistake, when there are others: it is told, or they cannot be.
static void leaveOut(Paths &paths, const std::vector<bool> &wrong)
{
    if (std::ranges::find(wrong, false) == wrong.end())
        return;
    size_t i = 0;
    std::erase_if(paths.variants, [&](const Variant &) { return wrong[i++]; });
}

// Tells of a mistake in some variants, when it is one for certain.
static void tell(JsonPages &pages, const Paths &paths, const std::vector<bool> &wrong,
                 const Place &place, string text)
{
    Outcome blame;
    if (!isCertain(paths, wrong, place.tpl, &blame))
        return;
    // A column may tell which row is the first, or the last.
    const bool isOfComma = text.ends_with(" ,") || text.find("comma") != string::npos;
    if (isOfComma && dependsOnRow(paths, blame))
        return;
    if (blame.atom < paths.atoms.size())
        text += ", " + conditionOf(paths, blame);
    else if (paths.again)
        text += ", when there are several rows";
    if (pages.told.insert({place.tpl, place.span.at}).second)
        reportPlace(pages.all, Grade::ERROR, place, "json-syntax", std::move(text));
}

void JsonPages::visitData(Paths &paths, const Node &node)
{
    std::vector<bool> wrong;
    string text;
    Place place;
    for (Variant &variant : paths.variants) {
        Scan scan = {*this, paths, variant.state, node, 0, ""};
        wrong.push_back(false);
        for (; scan.at < node.text.size() && variant.state.json > LOST; ++scan.at)
            readByte(scan, node.text[scan.at]);
        if (scan.problem.empty())
            continue;
        wrong.back() = true;
        if (!text.empty())
            continue;
        text = scan.problem;
        const auto at = node.place.span.at + static_cast<uint32_t>(scan.wrongAt);
        place = node.place;
        if (!place.text)
            place.span = {at, at + 1};
        if (scan.atComma && comma.tpl)
            place = comma;
    }
    if (!text.empty())
        tell(*this, paths, wrong, place, std::move(text));
    leaveOut(paths, wrong);
}

// ---- values ----

static string instead(const Shown &shown)
{
    const bool isColumn = shown.element && shown.element->type == ELEM_NUMVAR;
    return isColumn || !shown.element
               ? "let SQL make JSON of it, json_quote(...) or json_object(...), and print that "
                 "by querytext or multiquerytext, without quotes around it"
               : "let SQL make JSON of it, as in <?querytext 'select json_quote(:name)'?>, without "
                 "quotes around it";
}

static void reportEscape(JsonPages &pages, const Node &node, string text)
{
    if (pages.told.insert({node.place.tpl, node.place.span.at}).second)
        reportPlace(pages.all, Grade::ERROR, node.place, "escape-json",
                    node.shown->name + " " + std::move(text));
}

static void checkText(JsonPages &pages, const Node &node)
{
    const Shown &shown = *node.shown;
    if (shown.json)
        reportEscape(pages, node,
                     "is JSON already, and brings its own quotes: write none around it");
    else if (shown.holds & (VALUE_SCRIPT | VALUE_BOTH))
        reportEscape(pages, node,
                     "is escaped for scripts, which makes \\' of ', and that is no JSON; " +
                         instead(shown));
    else if (shown.holds & VALUE_HTML)
        reportEscape(pages, node,
                     "is escaped for HTML, but stands in a text of JSON; " + instead(shown));
    else if (shown.holds)
        reportEscape(pages, node, "is not escaped, in a text of JSON; " + instead(shown));
}

static void checkValue(JsonPages &pages, const Paths &paths, const Node &node)
{
    const Shown &shown = *node.shown;
    const bool inScript = modeOf(paths.page->path) != Mode::DATA;
    if (shown.isNumber || !shown.holds)
        return;
    if (!shown.json)
        reportEscape(pages, node,
                     "can be any text, and stands in JSON without quotes; " + instead(shown));
    else if (shown.id & (CMDF_HTML | CMDF_JS))
        reportEscape(pages, node,
                     "is JSON already, and is escaped once more: use querytext or "
                     "multiquerytext");
    else if (inScript && shown.json < JSON_IN_SCRIPT)
        reportEscape(pages, node,
                     "can hold </script>, which ends the script: write "
                     "replace(..., '<', '\\u003c') around it in SQL");
}

static void reportAgain(JsonPages &pages, const Node &node)
{
    if (pages.told.insert({node.place.tpl, node.place.span.at}).second)
        reportPlace(pages.all, Grade::ERROR, node.place, "json-syntax",
                    "a comma is missing in front of this, when there are several rows");
}

void JsonPages::visitValue(Paths &paths, const Node &node)
{
    std::vector<bool> wrong;
    const char *text = "";
    for (Variant &variant : paths.variants) {
        wrong.push_back(false);
        uint8_t &next = variant.state.json;
        switch (next) {
        case NOWHERE:
        case LOST:
            break;
        case KEY_TEXT:
        case TEXT:
            checkText(*this, node);
            break;
        case VALUE:
        case FIRST_VALUE:
            checkValue(*this, paths, node);
            next = node.shown->isNumber ? WORD : AFTER;
            word = &node;
            break;
        case WORD:
            if (word == &node && paths.again) // the last row's number goes on in this one's
                reportAgain(*this, node);
            break;
        case COLON:
            wrong.back() = true;
            text = "a colon is missing in front of this";
            next = AFTER;
            break;
        case KEY:
        case FIRST_KEY:
            wrong.back() = node.shown->isNumber;
            text = "names of JSON stand in double quotes";
            next = LOST;
            break;
        default: // what is no number may begin with a comma
            wrong.back() = next == AFTER && node.shown->isNumber;
            text = "a comma is missing in front of this";
            next = wrong.back() ? static_cast<uint8_t>(AFTER) : static_cast<uint8_t>(LOST);
            break;
        }
    }
    if (std::ranges::find(wrong, true) != wrong.end())
        tell(*this, paths, wrong, node.place, text);
}

// ---- documents ----

void JsonPages::beginPage(Paths &paths)
{
    lists.clear();
    names.clear();
    comma = {};
    if (modeOf(paths.page->path) == Mode::DATA) {
        paths.variants[0].state.json = VALUE;
    }
}

// The document ends here.
static void endDocument(JsonPages &pages, Paths &paths, const Place &place)
{
    std::vector<bool> wrong;
    string text;
    for (Variant &variant : paths.variants) {
        const State &state = variant.state;
        const bool isOpen = state.json > LOST && state.json != AFTER && state.json != WORD;
        wrong.push_back(state.json > LOST && (isOpen || state.list));
        if (wrong.back() && text.empty())
            text = state.json >= KEY_TEXT ? "the document ends inside of a text"
                   : state.list           ? string("the document ends in front of its ") +
                                      (isIn(state, '{') ? '}' : ']')
                                : "the document has no value";
        variant.state.json = NOWHERE;
        variant.state.list = nullptr;
    }
    if (!text.empty())
        tell(pages, paths, wrong, place, std::move(text));
}

void JsonPages::visitTag(Paths &paths, const Tag &tag)
{
    if (tag.name != "script")
        return;
    if (!tag.closing && !tag.lost && isJsonScript(tag)) {
        comma = {};
        for (Variant &variant : paths.variants)
            variant.state.json = VALUE;
    } else if (tag.closing) {
        endDocument(*this, paths, tag.place);
    }
}

void JsonPages::endPage(Paths &paths)
{
    if (modeOf(paths.page->path) != Mode::DATA)
        return;
    const auto size = static_cast<uint32_t>(paths.page->source.size());
    endDocument(*this, paths, {paths.page, {size, size}, nullptr});
}
