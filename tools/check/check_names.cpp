/* tools/check/check_names.cpp - what was meant as a variable or a text and is none: other
 * languages' forms, letters and signs that a name has not, characters that nobody sees. */
#include <string.h>

#include <algorithm>

#include "hints.h"
#include "report.h"
#include "tools/common/output.h"
#include "walk.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

namespace
{
struct Known {
    std::set<string, std::less<>> variables;
    const std::vector<string_view> &texts; // ids, ascending

    bool hasText(string_view id) const
    {
        return std::binary_search(texts.begin(), texts.end(), id);
    }
};

// How other languages put a value into a page.
struct ForeignForm {
    string_view begin;
    string_view end;
    bool isName; // only a name stands in it
};
} // namespace

static constexpr ForeignForm foreignForms[] = {
    {"{{", "}}", true}, {"${", "}", true}, {"<%", "%>", false}, {"{%", "%}", false}};

static bool isNameByte(char c)
{
    return isLetterOrDigit(c);
}

static string_view nameAt(string_view text, size_t at)
{
    size_t end = std::min(at, text.size());
    while (end < text.size() && isNameByte(text[end]))
        ++end;
    return text.substr(std::min(at, text.size()), end - std::min(at, text.size()));
}

static Known knownOf(const Site &site)
{
    Known known = {{}, site.textIds};
    known.variables.insert(site.fromWeb.begin(), site.fromWeb.end());
    known.variables.insert(site.fromForms.begin(), site.fromForms.end());
    for (const auto &[key, variable] : site.variables)
        if (!variable.sets.empty())
            known.variables.insert(key.substr(0, key.find('[')));
    return known;
}

// ---- page text ----

// Whether a page has a library of scripts that replaces such forms by itself.
static bool hasScriptForms(string_view source)
{
    static constexpr string_view signs[] = {"v-",         "ng-",      "x-data", "vue",
                                            "handlebars", "mustache", "alpine", "<template"};
    return std::any_of(std::begin(signs), std::end(signs),
                       [&](string_view sign) { return source.find(sign) != string_view::npos; });
}

// The name in a form, without what languages put in front of it; empty where there is more.
static string_view nameIn(string_view inner)
{
    const size_t begin = inner.find_first_not_of(" \t$=");
    if (begin == string_view::npos)
        return {};
    inner = inner.substr(begin, inner.find_last_not_of(" \t;") + 1 - begin);
    for (const string_view front : {"var:", "var.", "echo ", "print "})
        if (inner.starts_with(front))
            inner.remove_prefix(front.size());
    inner.remove_prefix(std::min(inner.find_first_not_of(" $"), inner.size()));
    const bool isName = !inner.empty() && std::all_of(inner.begin(), inner.end(), [](char c) {
        return isNameByte(c) || c == '_' || c == '.' || c == '-' || c == ':' || c == '[' ||
               c == ']';
    });
    return isName ? inner : string_view();
}

static string insteadOf(const Known &known, string_view name)
{
    if (known.hasText(name))
        return "the text is {?" + string(name) + "?}";
    if (known.variables.contains(name.substr(0, name.find('['))))
        return "the value is printed by <?echo $var:" + string(name) + "?>";
    return "a value is printed by <?echo $var:NAME?>, a text by {?ID?}";
}

static bool isCode(const HtmlState &state)
{
    return state.part == Part::COMMENT || state.part == Part::PLAIN ||
           ((state.part == Part::RAW || state.part == Part::VALUE) &&
            (state.content == Content::SCRIPT || state.content == Content::STYLE));
}

static void checkForeign(Report &all, const Template &tpl, const Known &known, uint32_t at,
                         const ForeignForm &form)
{
    constexpr size_t longest = 200;
    const string_view rest = string_view(tpl.source).substr(at + form.begin.size(), longest);
    const size_t end = rest.find(form.end);
    if (end == string_view::npos || rest.substr(0, end).find('\n') != string_view::npos)
        return;
    const string_view name = nameIn(rest.substr(0, end));
    const bool isKnown =
        known.hasText(name) || known.variables.contains(name.substr(0, name.find('[')));
    if (form.isName && (name.empty() || (!isKnown && hasScriptForms(tpl.source))))
        return;
    const auto length = static_cast<uint32_t>(form.begin.size() + end + form.end.size());
    report(all, tpl, {at, at + length}, "variable-in-text",
           tpl.source.substr(at, length) + " comes out as it is written; " +
               insteadOf(known, name));
}

// "$Var:name" and "$name", which are text.
static void checkDollar(Report &all, const Template &tpl, const Known &known, uint32_t at)
{
    const string_view source = tpl.source;
    const string front = lowered(source.substr(at + 1, 4));
    const string_view name = nameAt(source, at + (front == "var:" ? 5 : 1));
    if (name.empty() || source.compare(at + 1, 4, "var:") == 0)
        return;
    const string exact(name);
    const string low = lowered(name);
    const string &meant = known.variables.contains(exact) ? exact : low;
    if (front != "var:" && !known.variables.contains(meant))
        return;
    const auto end = static_cast<uint32_t>(name.data() + name.size() - source.data());
    report(all, tpl, {at, end}, "variable-in-text",
           string(source.substr(at, end - at)) + " is text here; " +
               (front == "var:" ? "var: is written in small letters: $var:" + exact
                                : "the variable is $var:" + meant));
}

static void checkLiteral(Report &all, const Template &tpl, const Known &known, Span span,
                         HtmlState state)
{
    const string_view source = tpl.source;
    uint32_t done = span.at;
    for (size_t at = span.at; (at = source.find_first_of("{<$", at)) < span.end; ++at) {
        const auto place = static_cast<uint32_t>(at);
        follow(&state, source.substr(done, place - done));
        done = place;
        if (isCode(state))
            continue;
        for (const ForeignForm &form : foreignForms)
            if (source.compare(at, form.begin.size(), form.begin) == 0)
                checkForeign(all, tpl, known, place, form);
        if (source[at] == '$' && (at == 0 || source[at - 1] != '$'))
            checkDollar(all, tpl, known, place);
    }
}

// ---- arguments ----

// "var:name" without its dollar sign, in the place of a value.
static void checkPiece(Report &all, const Template &tpl, const Known &known, const Element &element,
                       const PieceAt &at)
{
    const auto &elements = at.command.args[at.argument].elements;
    const string_view text = element.text;
    const bool isWhole = elements.size() == 1 && text.starts_with("var:");
    const string_view name = isWhole ? nameAt(text, 4) : string_view();
    const bool isName =
        !name.empty() && (name.size() + 4 == text.size() || text[name.size() + 4] == '[');
    const string exact(name);
    if (isName && (!at.inBody || known.variables.contains(exact)))
        report(all, tpl, element.span, "variable-in-text",
               string(text) + " is text here; the value is $" + string(text));
    if (!at.inBody && text == "$" && at.index + 1 < elements.size() &&
        elements[at.index + 1].type == ELEM_TEXT)
        checkDollar(all, tpl, known, element.span.at);
}

static void checkInvisible(Report &all, const Template &tpl, const Element &element,
                           const PieceAt &at)
{
    const bool isQuery = (at.command.id & CMDF_QUERY) && at.argument == 0;
    for (size_t i = 0; i < element.text.size(); ++i) {
        const Invisible *found = invisibleAt(element.text, i);
        if (!found || (isQuery ? inSqlString(element.text.substr(0, i)) : element.quote != 0))
            continue;
        const auto place = element.span.at + static_cast<uint32_t>(i);
        report(all, tpl, {place, place + static_cast<uint32_t>(strlen(found->bytes))},
               "character-invisible",
               describe(*found) + " stands here, and is no white space: put a blank in its place, "
                                  "or quotes around the text");
        i += strlen(found->bytes) - 1;
    }
}

// ---- forms and links ----

static void tellField(Report &all, const Template &tpl, size_t at, string_view name)
{
    const auto place = static_cast<uint32_t>(at);
    reportAs(all, Grade::WARNING, tpl, {place, place + static_cast<uint32_t>(name.size())},
             "variable-name",
             "the request's '" + string(name) +
                 "' can be read by no template: names have letters and digits");
}

static bool isFieldName(string_view name)
{
    return std::all_of(name.begin(), name.end(),
                       [](char c) { return isNameByte(c) || strchr("_[]", c); });
}

// The name of a form's field, where it is written whole.
static void checkFields(Report &all, const Template &tpl)
{
    const string_view source = tpl.source;
    for (const string_view tag : {"<input", "<select", "<textarea", "<button"})
        for (size_t at = 0; (at = source.find(tag, at)) != string_view::npos; at += tag.size()) {
            const size_t end = source.find_first_of("<>", at + 1);
            const string_view inside = source.substr(at, end == string_view::npos ? end : end - at);
            const size_t attribute = inside.find(" name=");
            if (attribute == string_view::npos)
                continue;
            string_view value = inside.substr(attribute + 6);
            const char quote = value.empty() ? ' ' : value[0];
            const bool isQuoted = quote == '"' || quote == '\'';
            value.remove_prefix(isQuoted);
            const size_t close = value.find_first_of(isQuoted ? string(1, quote) : " >");
            const bool isWhole = !isQuoted || close != string_view::npos;
            value = value.substr(0, close);
            if (isWhole && value.find_first_of("$<{?`") == string_view::npos && !isFieldName(value))
                tellField(all, tpl, static_cast<size_t>(value.data() - source.data()), value);
        }
}

// Whether the address that a "?" stands in is one of another site.
static bool isElsewhere(string_view source, size_t question)
{
    size_t begin = question;
    while (begin > 0 && !strchr("\"'` \n<>=", source[begin - 1]))
        --begin;
    const string_view address = source.substr(begin, question - begin);
    return address.find(':') != string_view::npos || address.starts_with("//");
}

static void checkLink(Report &all, const Template &tpl, size_t question)
{
    const string_view source = tpl.source;
    size_t at = question + 1;
    while (at < source.size()) {
        size_t end = at;
        while (end < source.size() && (isNameByte(source[end]) || strchr("_-.[]", source[end])))
            ++end;
        if (end == at || end >= source.size() || source[end] != '=')
            return;
        if (const string_view name = source.substr(at, end - at); !isFieldName(name))
            tellField(all, tpl, at, name);
        end = std::min(source.find_first_of("&\"'` \n<>", end), source.size());
        if (end >= source.size() || source[end] != '&')
            return;
        at = end + (source.compare(end, 5, "&amp;") == 0 ? 5 : 1);
    }
}

static void checkLinks(Report &all, const Template &tpl)
{
    const string_view source = tpl.source;
    for (const string_view key : {"href=", "action=", "src="})
        for (size_t at = 0; (at = source.find(key, at)) != string_view::npos; at += key.size()) {
            const size_t begin = at + key.size() + 1;
            const size_t question = source.find_first_of("?\"' >", begin);
            if (question < source.size() && source[question] == '?' &&
                source[question - 1] != '<' && !isElsewhere(source, question))
                checkLink(all, tpl, question);
        }
}

void checkNames(Report &all)
{
    const Known known = knownOf(all.site);
    for (const auto &[path, tpl] : all.site.templates) {
        const Template &read = *tpl;
        OutputVisitor visitor;
        visitor.literal = [&](Span span, const HtmlState &state) {
            checkLiteral(all, read, known, span, state);
        };
        followOutput(read, visitor);
        Walker walker;
        walker.piece = [&](const Element &element, const PieceAt &at) {
            if (element.type != ELEM_TEXT)
                return;
            checkPiece(all, read, known, element, at);
            checkInvisible(all, read, element, at);
        };
        walkTemplate(read, walker);
        checkFields(all, read);
        checkLinks(all, read);
    }
}
