/* tools/check/forms.cpp - the names that the forms and links of a template send, which
 * become variables. */
#include <string.h>

#include <algorithm>

#include "assemble.h"
#include "grammar/commands.h"
#include "host/ascii.h"
#include "tools/common/html.h"

using std::string;
using std::string_view;

namespace
{
// Follows a template, bodies and branches included, and reads the names in its fields' tags.
struct FormReader {
    Site *site;
    const Template &tpl;
    HtmlState state = {};
    HtmlState inScript = {};        // markup that a script holds as text
    std::vector<string> names = {}; // what the name that is being read can be; MARK for any text
    uint32_t at = 0;                // of the byte that is being read
    uint32_t nameAt = 0;            // where the name begins
};
} // namespace

// Whether the state is within the value of a field's name.
static bool isInName(const HtmlState &state)
{
    if (state.part != Part::VALUE || state.closing ||
        string_view(state.word, state.wordLength) != "name")
        return false;
    const string_view element = state.element;
    return element == "input" || element == "select" || element == "textarea" ||
           element == "button" || element.find('-') != string_view::npos;
}

// Notes who sends a name: a field or a link of a template.
static void noteSender(Site *site, const Template &tpl, const string &name, size_t at, size_t end)
{
    site->fromForms.insert(name);
    site->senders[name].push_back({&tpl, {static_cast<uint32_t>(at), static_cast<uint32_t>(end)}});
}

static void endName(FormReader *reader)
{
    for (const string &name : reader->names) {
        const size_t first = name.find(MARK);
        const size_t last = name.rfind(MARK);
        if (first == string::npos)
            noteSender(reader->site, reader->tpl, name, reader->nameAt, reader->at);
        else if (name.size() > 1) // one of which nothing is known tells nothing
            reader->site->formPatterns.push_back({name.substr(0, first), name.substr(last + 1)});
    }
    reader->names.clear();
}

static void append(FormReader *reader, const std::vector<string> &pieces)
{
    constexpr size_t most = 64;
    std::vector<string> longer;
    if (reader->names.size() * pieces.size() > most)
        return reader->names.clear(); // nothing is known of so many
    for (const string &name : reader->names)
        for (const string &piece : pieces)
            longer.push_back(name + piece);
    reader->names = std::move(longer);
}

static void readByte(FormReader *reader, HtmlState *state, char c)
{
    const bool was = isInName(*state);
    follow(state, {&c, 1});
    const bool is = isInName(*state);
    if (!was && is) {
        reader->names = {""};
        reader->nameAt = reader->at + (state->quote != 0);
    }
    if (is && (was || !state->quote)) // or the quote in front
        append(reader, {string(1, c)});
    if (was && !is)
        endName(reader);
}

// at: where the text stands.
static void readText(FormReader *reader, string_view text, uint32_t at)
{
    for (size_t i = 0; i < text.size(); ++i) {
        if (reader->state.part == Part::TEXT) { // most of a page
            const size_t next = std::min(text.find('<', i), text.size());
            follow(&reader->state, text.substr(i, next - i));
            i = next;
            if (i == text.size())
                return;
        }
        reader->at = at + static_cast<uint32_t>(i);
        const bool isScript =
            reader->state.part == Part::RAW && strcmp(reader->state.element, "script") == 0;
        if (isScript)
            readByte(reader, &reader->inScript, text[i]);
        else
            reader->inScript = {};
        readByte(reader, &reader->state, text[i]);
    }
}

// Output of a command or a value: one of the texts.
static void readValue(FormReader *reader, const std::vector<string> &texts = {string(1, MARK)})
{
    const bool inScript = isInName(reader->inScript);
    if (inScript || isInName(reader->state))
        append(reader, texts);
    followValue(inScript ? &reader->inScript : &reader->state);
}

static void readCommand(FormReader *reader, const Command &command);

static void readArgument(FormReader *reader, const Argument &argument)
{
    for (const Element &element : argument.elements) {
        if (element.type == ELEM_TEXT)
            readText(reader, element.text, element.span.at);
        else if (element.command)
            readCommand(reader, *element.command);
        else
            readValue(reader);
    }
}

static void readCommand(FormReader *reader, const Command &command)
{
    const int body = bodyIndex(command);
    std::vector<string> texts;
    if ((command.id & CMDF_IF) && command.args.size() == 4 &&
        writtenTexts(reader->tpl, command.args[2], &texts) &&
        writtenTexts(reader->tpl, command.args[3], &texts) &&
        (isInName(reader->state) || isInName(reader->inScript)))
        return readValue(reader, texts);
    for (size_t i = 0; i < command.args.size(); ++i) {
        const bool goesOn = body >= 0 && i >= static_cast<size_t>(body);
        FormReader apart = {reader->site,
                            reader->tpl}; // of a variable's value, which may be markup
        const HtmlState before = reader->state;
        readArgument(goesOn ? reader : &apart, command.args[i]);
        if (goesOn && i + 1 < command.args.size())
            reader->state = before; // of the other branch
    }
    if (body < 0 && printsOf(command) != Prints::NOTHING)
        readValue(reader);
}

// The names of what links send.
static void collectLinkNames(Site *site, const Template &tpl)
{
    const string_view source = tpl.source;
    for (size_t at = 0; (at = source.find('=', at + 1)) != string_view::npos;) {
        size_t begin = at;
        while (begin > 0 && isLetterOrDigit(source[begin - 1]))
            --begin;
        if (begin == 0 || begin == at)
            continue;
        const bool link =
            source[begin - 1] == '&' ||
            (source[begin - 1] == '?' && begin >= 2 && !strchr("<{", source[begin - 2])) ||
            (source[begin - 1] == ';' && begin >= 5 && source.substr(begin - 5, 5) == "&amp;");
        if (link)
            noteSender(site, tpl, string(source.substr(begin, at - begin)), begin, at);
    }
}

void collectNames(Site *site, const Template &tpl)
{
    FormReader reader = {site, tpl};
    for (const Item &item : tpl.items) {
        if (item.command)
            readCommand(&reader, *item.command);
        else
            readText(&reader,
                     string_view(tpl.source).substr(item.span.at, item.span.end - item.span.at),
                     item.span.at);
    }
    collectLinkNames(site, tpl);
}
