/* tools/common/html.cpp - the parts of an HTML page, byte by byte, as browsers and
 * scripts read them; one function for each part. */
#include "host/ascii.h"
#include "tools/common/html.h"
#include "tools/common/words.h"

#include <string.h>

#include <algorithm>
#include <initializer_list>

using std::string_view;

static bool isWordByte(char c)
{
    return isLetterOrDigit(c) || c == '_' || c == '$' || (c & 0x80);
}

static string_view wordOf(const HtmlState &state)
{
    return {state.word, state.wordLength};
}

static void addToWord(HtmlState *state, char c)
{
    if (state->wordLength < HtmlState::WORD)
        state->word[state->wordLength++] = c;
}

static void clearWord(HtmlState *state)
{
    memset(state->word, 0, sizeof state->word);
    state->wordLength = 0;
}

// ---- scripts ----

static void beginScript(HtmlState *state)
{
    state->script = Script::CODE;
    state->regexAllowed = true;
    state->inClass = state->escaped = false;
    state->templates = 0;
    memset(state->braces, 0, sizeof state->braces);
    clearWord(state);
}

// Whether a "/" behind this word begins a regular expression.
static bool wordAllowsRegex(string_view word)
{
    return isOneOf(word, {"return", "typeof", "case", "do", "else", "in", "instanceof", "new",
                          "delete", "void", "throw", "break", "continue", "finally", "try", "of"});
}

static void closeBrace(HtmlState *state)
{
    if (state->templates == 0)
        return;
    uint8_t &open = state->braces[state->templates - 1];
    if (open > 0) {
        --open;
        return;
    }
    --state->templates;
    state->script = Script::TEMPLATE;
}

static void followCode(HtmlState *state, char c)
{
    if (isWordByte(c)) {
        if (!isWordByte(state->last))
            clearWord(state);
        addToWord(state, c);
        state->regexAllowed = false;
        return;
    }
    if (isHtmlBlank(c))
        return;
    const bool behindWord = state->wordLength > 0 && !state->regexAllowed;
    if (c == '/' && behindWord && wordAllowsRegex(wordOf(*state)))
        state->regexAllowed = true;
    switch (c) {
    case '"':
        state->script = Script::DQUOTE;
        break;
    case '\'':
        state->script = Script::SQUOTE;
        break;
    case '`':
        state->script = Script::TEMPLATE;
        break;
    case '/':
        if (state->last == '/') {
            state->script = Script::LINE_COMMENT;
        } else if (state->regexAllowed) {
            state->script = Script::REGEX; // or a comment, as the next byte tells
            state->inClass = false;
        }
        break;
    case '*':
        if (state->last == '/')
            state->script = Script::BLOCK_COMMENT;
        break;
    case '{':
        if (state->templates > 0 && state->braces[state->templates - 1] < UINT8_MAX)
            ++state->braces[state->templates - 1];
        break;
    case '}':
        closeBrace(state);
        break;
    default:
        break;
    }
    state->escaped = false;
    const bool counts = (c == '+' || c == '-') && state->last == c; // i++ / 2
    if (c != '/')
        state->regexAllowed = !counts && !strchr(")]\"'`", c);
    clearWord(state);
}

static void followString(HtmlState *state, char c, char quote)
{
    if (state->escaped)
        state->escaped = false;
    else if (c == '\\')
        state->escaped = true;
    else if (c == quote || c == '\n')
        state->script = Script::CODE;
    if (state->script == Script::CODE)
        state->regexAllowed = false;
}

static void followTemplate(HtmlState *state, char c)
{
    if (state->escaped) {
        state->escaped = false;
    } else if (c == '\\') {
        state->escaped = true;
    } else if (c == '`') {
        state->script = Script::CODE;
        state->regexAllowed = false;
    } else if (c == '{' && state->last == '$' && state->templates < HtmlState::TEMPLATES) {
        state->braces[state->templates++] = 0;
        state->script = Script::CODE;
        state->regexAllowed = true;
    }
}

static void followRegex(HtmlState *state, char c)
{
    const bool first = state->last == '/' && !state->escaped && !state->valueBegun;
    if (first && (c == '/' || c == '*')) {
        state->script = c == '/' ? Script::LINE_COMMENT : Script::BLOCK_COMMENT;
        return;
    }
    state->valueBegun = true;
    if (state->escaped) {
        state->escaped = false;
    } else if (c == '\\') {
        state->escaped = true;
    } else if (c == '[') {
        state->inClass = true;
    } else if (c == ']') {
        state->inClass = false;
    } else if (c == '\n' || (c == '/' && !state->inClass)) {
        state->script = Script::CODE;
        state->regexAllowed = false;
    }
}

// A style has strings and comments of one kind.
static void followStyle(HtmlState *state, char c)
{
    if (state->script == Script::DQUOTE || state->script == Script::SQUOTE)
        followString(state, c, state->script == Script::DQUOTE ? '"' : '\'');
    else if (state->script == Script::BLOCK_COMMENT)
        state->script = c == '/' && state->last == '*' ? Script::CODE : Script::BLOCK_COMMENT;
    else if (c == '"' || c == '\'')
        state->script = c == '"' ? Script::DQUOTE : Script::SQUOTE;
    else if (c == '*' && state->last == '/')
        state->script = Script::BLOCK_COMMENT;
}

static void followScript(HtmlState *state, char c)
{
    switch (state->script) {
    case Script::CODE:
        followCode(state, c);
        if (state->script == Script::REGEX)
            state->valueBegun = false; // of the expression
        break;
    case Script::DQUOTE:
        followString(state, c, '"');
        break;
    case Script::SQUOTE:
        followString(state, c, '\'');
        break;
    case Script::TEMPLATE:
        followTemplate(state, c);
        break;
    case Script::REGEX:
        followRegex(state, c);
        break;
    case Script::LINE_COMMENT:
        if (c == '\n') {
            state->script = Script::CODE;
            state->regexAllowed = true;
        }
        break;
    case Script::BLOCK_COMMENT:
        if (c == '/' && state->last == '*') {
            state->script = Script::CODE;
            state->regexAllowed = true;
        }
        break;
    }
}

// ---- tags ----

static Content contentOfAttribute(string_view name)
{
    if (const size_t colon = name.rfind(':'); colon != string_view::npos)
        name.remove_prefix(colon + 1);
    if (name.substr(0, 2) == "on" && name.size() > 2)
        return Content::SCRIPT;
    if (name == "style")
        return Content::STYLE;
    if (name == "srcdoc")
        return Content::DOCUMENT;
    if (isOneOf(name, {"href", "src", "action", "formaction", "cite", "data", "poster",
                       "background", "longdesc", "usemap", "manifest", "codebase", "icon",
                       "classid", "archive", "profile", "ping", "srcset"}))
        return Content::ADDRESS;
    return Content::TEXT;
}

static bool isScriptType(string_view type)
{
    type = type.substr(0, type.find(';'));
    while (!type.empty() && isHtmlBlank(type.back()))
        type.remove_suffix(1);
    return type.empty() || type.find("javascript") != string_view::npos ||
           type.find("ecmascript") != string_view::npos || type.find("json") != string_view::npos ||
           isOneOf(type, {"module", "importmap", "speculationrules", "text/babel", "text/jsx"});
}

// Elements whose content is text up to their own end tag: markup in it is not looked at.
static bool isRaw(string_view element)
{
    return isOneOf(
        element, {"script", "style", "title", "textarea", "iframe", "xmp", "noembed", "noframes"});
}

static void endTag(HtmlState *state)
{
    const string_view element = state->element;
    state->part = Part::TEXT;
    if (!state->closing && isRaw(element)) {
        state->part = Part::RAW;
        state->content = element == "script"  ? (isScriptType({state->type, state->typeLength})
                                                     ? Content::SCRIPT
                                                     : Content::OTHER_SCRIPT)
                         : element == "style" ? Content::STYLE
                                              : Content::TEXT;
        beginScript(state);
        state->typeLength = 0; // now counts the bytes of the end tag
    }
    clearWord(state);
}

static void endTagName(HtmlState *state)
{
    memset(state->element, 0, sizeof state->element);
    memcpy(state->element, state->word,
           std::min<size_t>(state->wordLength, sizeof state->element - 1));
    memset(state->type, 0, sizeof state->type);
    state->typeLength = 0;
    clearWord(state);
    state->part = Part::TAG;
}

static void endName(HtmlState *state)
{
    state->content = contentOfAttribute(wordOf(*state));
    if (wordOf(*state) == "content" && strcmp(state->element, "meta") == 0)
        state->content = Content::REFRESH;
    state->readsType = wordOf(*state) == "type" && strcmp(state->element, "script") == 0;
    if (state->readsType) {
        memset(state->type, 0, sizeof state->type);
        state->typeLength = 0;
    }
}

static void beginValue(HtmlState *state, char quote)
{
    state->part = Part::VALUE;
    state->quote = quote;
    state->valueBegun = false;
    if (state->content == Content::SCRIPT)
        beginScript(state);
    if (state->content == Content::ADDRESS || state->content == Content::REFRESH)
        clearWord(state);
}

static void endValue(HtmlState *state)
{
    state->part = Part::TAG;
    state->quote = 0;
    state->content = Content::TEXT;
    state->readsType = false;
    state->script = Script::CODE;
    state->regexAllowed = true;
    state->escaped = state->inClass = false;
    clearWord(state);
}

static void followAddress(HtmlState *state, char c)
{
    if (!state->valueBegun && isHtmlBlank(c))
        return;
    state->valueBegun = true;
    if (state->wordLength >= HtmlState::WORD)
        return;
    addToWord(state, toSmall(c));
    if (wordOf(*state) == "javascript:") {
        state->content = Content::SCRIPT;
        beginScript(state);
    }
}

static constexpr string_view addressMark = "url=";

// The word is what stands in front, as long as the mark of an address.
static void followRefresh(HtmlState *state, char c)
{
    state->valueBegun = true;
    if (isHtmlBlank(c) || c == '\'' || c == '"')
        return;
    if (state->wordLength == addressMark.size())
        memmove(state->word, state->word + 1, --state->wordLength);
    addToWord(state, toSmall(c));
}

// A value without quotes goes on up to a blank or ">": "/", "=" and quotes are part of it.
static void followValueByte(HtmlState *state, char c)
{
    if (state->quote ? c == state->quote : isHtmlBlank(c) || c == '>') {
        const bool endsTag = !state->quote && c == '>';
        endValue(state);
        if (endsTag)
            endTag(state);
        return;
    }
    if (state->readsType && state->typeLength < HtmlState::WORD)
        state->type[state->typeLength++] = toSmall(c);
    if (state->content == Content::SCRIPT)
        followScript(state, c);
    else if (state->content == Content::STYLE)
        followStyle(state, c);
    else if (state->content == Content::ADDRESS)
        followAddress(state, c);
    else if (state->content == Content::REFRESH)
        followRefresh(state, c);
    else
        state->valueBegun = true;
}

static void followText(HtmlState *state, char c)
{
    if (c == '<')
        state->part = Part::OPEN;
}

// A "<" begins a tag only in front of a letter: "a < b" and "<3" are text. Behind "</" anything
// but a letter begins what browsers call a bogus comment; so few write that that it is text here.
static void followOpen(HtmlState *state, char c)
{
    if (c == '/' && state->last == '<') {
        state->closing = true;
    } else if (isLetter(c)) {
        state->closing = state->last == '/';
        state->part = Part::TAG_NAME;
        clearWord(state);
        addToWord(state, toSmall(c));
    } else if (c == '!' || c == '?') {
        state->part = Part::DECLARATION;
        clearWord(state);
    } else {
        state->part = c == '<' ? Part::OPEN : Part::TEXT;
    }
}

// All up to a blank, "/" or ">" is the name: "<p<b>" opens one element, of an odd name.
static void followTagName(HtmlState *state, char c)
{
    if (isHtmlBlank(c) || c == '/') {
        endTagName(state);
    } else if (c == '>') {
        endTagName(state);
        endTag(state);
    } else {
        addToWord(state, toSmall(c));
    }
}

// A "/" that ends no tag is passed over like a blank. A quote or "=" here begins a name, since
// browsers take any byte for a letter of one.
static void followTag(HtmlState *state, char c)
{
    if (c == '>') {
        endTag(state);
    } else if (!isHtmlBlank(c) && c != '/') {
        state->part = Part::NAME;
        clearWord(state);
        addToWord(state, toSmall(c));
    }
}

// Quotes and "<" inside a name are letters of it: <a it's> opens no quote.
static void followName(HtmlState *state, char c)
{
    if (c == '=') {
        endName(state);
        state->part = Part::BEFORE_VALUE;
    } else if (c == '>') {
        endTag(state);
    } else if (isHtmlBlank(c)) {
        state->part = Part::AFTER_NAME;
    } else if (c == '/') {
        state->part = Part::TAG;
    } else {
        addToWord(state, toSmall(c));
    }
}

static void followAfterName(HtmlState *state, char c)
{
    if (c == '=') {
        endName(state);
        state->part = Part::BEFORE_VALUE;
    } else if (!isHtmlBlank(c)) {
        followTag(state, c);
    }
}

// "<a href=>" is a tag that ends, with an empty value.
static void followBeforeValue(HtmlState *state, char c)
{
    if (isHtmlBlank(c))
        return;
    if (c == '>') {
        endValue(state);
        endTag(state);
    } else if (c == '"' || c == '\'') {
        beginValue(state, c);
    } else {
        beginValue(state, 0);
        followValueByte(state, c);
    }
}

// What begins with "<!" or "<?" ends at the first ">", quotes or not. Of "<!-->" both dashes
// count for the beginning and for the end: it is a whole comment.
static void followDeclaration(HtmlState *state, char c)
{
    if (state->wordLength < 2) {
        addToWord(state, c);
        if (wordOf(*state) == "--")
            state->part = Part::COMMENT;
    }
    if (c == '>')
        state->part = Part::TEXT;
}

static void followComment(HtmlState *state, char c)
{
    if (c == '>' && state->last == '-' && state->beforeLast == '-')
        state->part = Part::TEXT;
}

// Whether the element's end tag has been read; typeLength counts its bytes. "</scripts>" ends
// no script: a blank, "/" or ">" has to follow the name. Neither does a quote or a comment of the
// script keep its end tag from ending it.
static bool endsRaw(HtmlState *state, char c)
{
    const string_view name = state->element;
    uint8_t &matched = state->typeLength;
    const char expected = matched == 0                ? '<'
                          : matched == 1              ? '/'
                          : matched < name.size() + 2 ? name[matched - 2U]
                                                      : '\0';
    if (expected && toSmall(c) == expected) {
        ++matched;
        return false;
    }
    const bool complete = matched == name.size() + 2 && (isHtmlBlank(c) || c == '>' || c == '/');
    matched = c == '<' ? 1 : 0;
    return complete;
}

static void followRaw(HtmlState *state, char c)
{
    if (endsRaw(state, c)) {
        beginScript(state);
        state->valueBegun = false;
        state->content = Content::TEXT;
        state->closing = true;
        state->part = Part::TAG;
        followTag(state, c);
        return;
    }
    if (state->content == Content::SCRIPT)
        followScript(state, c);
    else if (state->content == Content::STYLE)
        followStyle(state, c);
}

static void followByte(HtmlState *state, char c)
{
    using Follow = void (*)(HtmlState *, char);
    static constexpr Follow table[] = {followText,        followOpen,      followTagName,
                                       followTag,         followName,      followAfterName,
                                       followBeforeValue, followValueByte, followDeclaration,
                                       followComment,     followRaw};
    table[static_cast<size_t>(state->part)](state, c);
    state->beforeLast = state->last;
    state->last = c;
}

static bool endsWith(string_view text, string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

HtmlState beginOf(string_view path)
{
    HtmlState state;
    if (endsWith(path, ".frm")) // a piece, of what its name in front of that tells: list.json.frm
        path.remove_suffix(4);
    for (const char *suffix : {".js", ".mjs", ".json"}) {
        if (endsWith(path, suffix)) {
            state.part = Part::RAW;
            state.content = Content::SCRIPT;
            memcpy(state.element, "script", 6);
        }
    }
    if (endsWith(path, ".json"))
        memcpy(state.type, "json", 4);
    if (endsWith(path, ".css")) {
        state.part = Part::RAW;
        state.content = Content::STYLE;
        memcpy(state.element, "style", 5);
    }
    for (const char *suffix : {".txt", ".csv", ".ini", ".conf", ".cfg"})
        if (endsWith(path, suffix))
            state.part = Part::PLAIN;
    return state;
}

void follow(HtmlState *state, string_view text)
{
    if (state->part == Part::PLAIN)
        return;
    for (size_t i = 0; i < text.size(); ++i) {
        if (state->part == Part::TEXT) { // most of a page
            const size_t next = text.find('<', i);
            if (next != i) {
                const size_t end = std::min(next, text.size());
                state->beforeLast = end - i > 1 ? text[end - 2] : state->last;
                state->last = text[end - 1];
                i = end;
                if (i == text.size())
                    return;
            }
        }
        followByte(state, text[i]);
    }
}

void followValue(HtmlState *state)
{
    follow(state, "x");
}

// Parts of a tag between which a piece of an attribute makes no difference.
static bool betweenAttributes(const HtmlState &state)
{
    switch (state.part) {
    case Part::TAG_NAME:
    case Part::TAG:
    case Part::NAME:
    case Part::AFTER_NAME:
        return true;
    case Part::BEFORE_VALUE:
        return false;
    case Part::VALUE:
        return !state.quote;
    default:
        return false;
    }
}

static bool sameText(const HtmlState &state)
{
    return state.part == Part::TEXT;
}

bool joinStates(const HtmlState &a, const HtmlState &b, HtmlState *joined)
{
    *joined = a;
    if (a == b)
        return true;
    if (sameText(a) && sameText(b))
        return true;
    if (betweenAttributes(a) && betweenAttributes(b)) {
        if (a.part == b.part && a.part != Part::VALUE)
            return true;
        HtmlState &state = *joined;
        if (a.part == Part::TAG_NAME) {
            state = b;
            if (b.part == Part::TAG_NAME)
                return true;
        }
        if (state.part == Part::VALUE)
            endValue(&state);
        state.part = Part::TAG;
        return true;
    }
    if (a.part != b.part || a.quote != b.quote)
        return false;
    if (a.part == Part::RAW && strcmp(a.element, b.element) != 0)
        return false;
    if ((a.part == Part::RAW || a.part == Part::VALUE) &&
        (a.content != b.content || a.script != b.script || a.templates != b.templates))
        return false;
    joined->valueBegun = a.valueBegun && b.valueBegun;
    return true;
}

bool beginsAddress(const HtmlState &state)
{
    if (state.content == Content::REFRESH)
        return state.part == Part::VALUE && wordOf(state) == addressMark;
    if (state.content != Content::ADDRESS)
        return false;
    return state.part == Part::BEFORE_VALUE || (state.part == Part::VALUE && !state.valueBegun);
}

bool isJson(const HtmlState &state)
{
    const string_view type(state.type, strnlen(state.type, sizeof state.type));
    return state.part == Part::RAW && state.content == Content::SCRIPT &&
           (type.find("json") != string_view::npos || type == "importmap" ||
            type == "speculationrules");
}

static const char *describeScript(Script script)
{
    static constexpr const char *names[] = {"script code",
                                            "a script's string in double quotes",
                                            "a script's string in single quotes",
                                            "a script's template string",
                                            "a regular expression of a script",
                                            "a script's comment",
                                            "a script's comment"};
    return names[static_cast<size_t>(script)];
}

static std::string describeStyle(Script script)
{
    return script == Script::DQUOTE          ? "a style's string in double quotes"
           : script == Script::SQUOTE        ? "a style's string in single quotes"
           : script == Script::BLOCK_COMMENT ? "a style's comment"
                                             : "a style";
}

static std::string describeValue(const HtmlState &state)
{
    const char *quotes = state.quote == '"'    ? "an attribute in double quotes"
                         : state.quote == '\'' ? "an attribute in single quotes"
                                               : "an attribute without quotes";
    if (state.part == Part::VALUE && state.content == Content::SCRIPT)
        return std::string(describeScript(state.script)) + ", in " + quotes;
    if (state.content == Content::STYLE)
        return describeStyle(state.script) + ", in " + quotes;
    return quotes;
}

std::string describe(const HtmlState &state)
{
    switch (state.part) {
    case Part::TEXT:
        return "page text";
    case Part::OPEN:
    case Part::TAG_NAME:
        return "a tag's name";
    case Part::TAG:
    case Part::NAME:
    case Part::AFTER_NAME:
        return "a tag";
    case Part::BEFORE_VALUE:
    case Part::VALUE:
        return describeValue(state);
    case Part::DECLARATION:
        return "a declaration";
    case Part::COMMENT:
        return "a comment";
    case Part::RAW:
        return state.content == Content::SCRIPT ? describeScript(state.script)
               : state.content == Content::STYLE
                   ? state.script == Script::CODE ? "a style sheet" : describeStyle(state.script)
               : state.content == Content::OTHER_SCRIPT ? "a script element that is no script"
                                                        : std::string("the ") + state.element;
    case Part::PLAIN:
        return "plain text";
    }
    return "";
}
