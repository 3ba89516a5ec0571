/* tools/textdb/textfields.cpp - follows the output of a template from text field to
 * text field, command by command. */
#include "textfields.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "tools/common/html.h"
#include "tools/common/template.h"
#include "tools/common/fieldid.h"
#include "tools/common/files.h"
#include "grammar/commands.h"

// A template that is being followed.
struct Walk {
    const Template &source;
    std::vector<FieldUse> &uses; // one for each of its fields
    HtmlState state;
};

static uint8_t standsIn(const HtmlState &state)
{
    const bool isValue = state.part == Part::VALUE || state.part == Part::BEFORE_VALUE;
    const bool isTag = isValue || state.part == Part::TAG || state.part == Part::NAME ||
                       state.part == Part::AFTER_NAME;
    const bool isScript =
        (isValue || state.part == Part::RAW) &&
        (state.content == Content::SCRIPT || state.content == Content::OTHER_SCRIPT);
    return static_cast<uint8_t>((isTag ? STANDS_IN_ATTRIBUTE : 0) |
                                (isScript ? STANDS_IN_SCRIPT : 0));
}

// Returns where the tag begins that a place stands in or behind, npos without one. A command
// is none.
static size_t tagBefore(std::string_view source, size_t at)
{
    while (at > 0 && (at = source.rfind('<', at - 1)) != std::string_view::npos)
        if (isalpha(static_cast<unsigned char>(source[at + 1])))
            return at;
    return std::string_view::npos;
}

// Returns the number of an attribute maxlength, 0 without one.
static size_t maxLengthIn(std::string_view tag)
{
    static constexpr std::string_view NAME = "maxlength";
    for (size_t at = 0; at + NAME.size() < tag.size(); ++at) {
        const bool isName =
            std::equal(NAME.begin(), NAME.end(), tag.begin() + static_cast<ptrdiff_t>(at),
                       [](char a, char b) { return a == tolower(static_cast<unsigned char>(b)); });
        if (!isName)
            continue;
        const size_t mark = tag.find_first_not_of(" \t\r\n", at + NAME.size());
        const size_t number = mark == std::string_view::npos || tag[mark] != '='
                                  ? std::string_view::npos
                                  : tag.find_first_not_of(" \t\r\n\"'", mark + 1);
        return number == std::string_view::npos ? 0 : strtoul(tag.data() + number, nullptr, 10);
    }
    return 0;
}

// Returns how many characters the field of a form takes whose value a text field is, 0 when
// there is no such limit.
static size_t maxLengthAt(std::string_view source, Span field, const HtmlState &state)
{
    const std::string_view element = state.element;
    const bool isInput =
        element == "input" && (state.part == Part::VALUE || state.part == Part::BEFORE_VALUE);
    const bool isArea = element == "textarea" && state.part == Part::RAW;
    const size_t start = isInput || isArea ? tagBefore(source, field.at) : std::string_view::npos;
    if (start == std::string_view::npos)
        return 0;
    std::string_view name = source.substr(start, field.at - start);
    name = name.substr(0, name.rfind('='));
    if (isInput && !name.ends_with("value") && !name.ends_with("VALUE"))
        return 0;
    size_t end = isInput ? field.end : start;
    do
        end = source.find('>', end + 1);
    while (end != std::string_view::npos && source[end - 1] == '?'); // of a command
    return maxLengthIn(source.substr(start, end - start));
}

// Follows literal output with its fields.
static void followText(Walk *walk, Span span)
{
    const std::string_view source = walk->source.source;
    const FieldRange range = fieldsIn(walk->source, span);
    uint32_t pos = span.at;
    for (size_t i = range.first; i < range.last; ++i) {
        const Field &field = walk->source.fields[i];
        follow(&walk->state, source.substr(pos, field.span.at - pos));
        walk->uses[i].stands |= standsIn(walk->state);
        walk->uses[i].state = walk->state;
        walk->uses[i].isWritten = true;
        walk->uses[i].maxLength = maxLengthAt(source, field.span, walk->state);
        followValue(&walk->state);
        pos = field.span.end;
    }
    follow(&walk->state, source.substr(pos, span.end - pos));
}

static void followCommand(Walk *walk, const Command &command, bool compared, bool written);

// Follows the pieces of an argument. compared: it is compared with something.
// written: it comes out where the walk stands.
static void followElements(Walk *walk, const std::vector<Element> &elements, bool compared,
                           bool written)
{
    const Element *before = nullptr;
    for (const Element &element : elements) {
        const Element *const previous = before;
        before = &element;
        if (element.command) {
            followCommand(walk, *element.command, compared, written);
            continue;
        }
        followElements(walk, element.index, compared, false);
        if (element.type != ELEM_TEXT) {
            if (written)
                followValue(&walk->state);
            continue;
        }
        const FieldRange range = fieldsIn(walk->source, element.span);
        for (size_t i = range.first; i < range.last; ++i) {
            walk->uses[i].place =
                placeInArgument(walk->source, walk->source.fields[i], element, previous);
            if (compared)
                walk->uses[i].stands |= STANDS_IN_COMPARISON;
        }
        if (written)
            followText(walk, element.span);
    }
}

// Whether an argument of a command comes out: the bodies stand behind the others.
static bool isWritten(const Command &command, size_t argument)
{
    const size_t first = (command.id & CMDF_ARG1 ? 1 : 0) + (command.id & CMDF_ARG2 ? 1 : 0);
    return command.id & CMDF_BODY && argument >= first;
}

static void followCommand(Walk *walk, const Command &command, bool compared, bool written)
{
    const HtmlState before = walk->state;
    for (size_t i = 0; i < command.args.size(); ++i) {
        const bool isIf = command.id & CMDF_IF;
        if (isIf) // the branches begin in the same place
            walk->state = before;
        followElements(walk, command.args[i].elements,
                       isIf ? i < 2 : compared && isWritten(command, i),
                       written && isWritten(command, i));
    }
}

// Returns why what follows a "{?" is no field although it looks like one, or null.
// text: from the "{?" to the "}".
static const char *whyBroken(std::string_view text)
{
    const std::string_view inner = text.substr(2, text.size() - 3);
    if (inner.find_first_of(" \t\r") != std::string_view::npos)
        return "a field has no blanks";
    if (!inner.ends_with('?'))
        return "a field ends in \"?}\"";
    return "a field names only letters, digits, '.', '_' and ':'";
}

static void findBroken(const Template &source, TemplateFields *found)
{
    const std::string_view text = source.source;
    size_t next = 0; // the field that comes next
    for (size_t at = text.find("{?"); at != std::string_view::npos; at = text.find("{?", at + 2)) {
        while (next < source.fields.size() && source.fields[next].span.at < at)
            ++next;
        if (next < source.fields.size() && source.fields[next].span.at == at)
            continue;
        const size_t end = text.find_first_of("{}\n", at + 2);
        if (end == std::string_view::npos || text[end] != '}' || end - at > MAX_ID_LENGTH + 8)
            continue;
        const std::string_view whole = text.substr(at, end + 1 - at);
        if (!looseId(whole).empty())
            found->broken.push_back({placeOf(source, static_cast<uint32_t>(at)).line,
                                     std::string(whole), whyBroken(whole)});
    }
}

static TemplateFields fieldsOf(const char *path, std::string bytes)
{
    TemplateFields found = {path, {}, {}};
    Template source;
    readTemplate(&source, path, std::move(bytes), true);
    for (const Field &field : source.fields)
        found.uses.push_back({std::string(field.id.substr(0, MAX_ID_LENGTH)),
                              placeOf(source, field.span.at).line,
                              0,
                              false,
                              {},
                              placeInPage(source, field),
                              0,
                              path});
    Walk walk = {source, found.uses, beginOf(path)};
    for (const Item &item : source.items) {
        if (item.command)
            followCommand(&walk, *item.command, false, true);
        else
            followText(&walk, item.span);
    }
    findBroken(source, &found);
    return found;
}

bool readTemplates(const std::vector<const char *> &paths, std::vector<TemplateFields> *templates)
{
    bool readable = true;
    for (const char *path : paths) {
        std::string bytes;
        if (readFile(path, &bytes))
            templates->push_back(fieldsOf(path, std::move(bytes)));
        else
            readable = false;
    }
    return readable;
}

bool nextField(std::string_view text, size_t *pos, size_t *start, std::string_view *id)
{
    while ((*start = text.find("{?", *pos)) != std::string_view::npos) {
        const size_t first = *start + 2;
        const size_t end = std::min(text.find_first_not_of(ID_CHARACTERS, first), text.size());
        *id = text.substr(first, end - first).substr(0, MAX_ID_LENGTH);
        *pos = first;
        if (text.substr(end, 2) == "?}") {
            *pos = end + 2;
            return true;
        }
    }
    return false;
}

std::string breaksPlace(std::string_view text, const FieldUse &use, std::string *cure)
{
    if (const Break *found = breakOf(text, use.place)) {
        *cure = found->cure;
        return found->what;
    }
    if (!use.isWritten || !leavesPart(text, use.state))
        return "";
    const bool isScript =
        use.state.content == Content::SCRIPT || use.state.content == Content::STYLE;
    *cure = isScript ? "use another quote, or write a backslash in front of it"
                     : "write &lt; for <, &#39; and &quot; for quotes";
    return "does not stay in " + describe(use.state);
}

std::string looseId(std::string_view id)
{
    std::string loose;
    for (const char c : id)
        if (isalnum(static_cast<unsigned char>(c)))
            loose.push_back(static_cast<char>(tolower(static_cast<unsigned char>(c))));
    return loose;
}
