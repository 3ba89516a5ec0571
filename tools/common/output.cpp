/* tools/common/output.cpp - follows the output of a template, command by command. */
#include "output.h"

#include <algorithm>
#include <cstdlib>

#include "grammar/commands.h"
#include "host/ascii.h"

// A template that is being followed.
struct Walk {
    const Template &tpl;
    const OutputVisitor &visitor;
    HtmlState state;
};

static void followLiteral(Walk *walk, Span span)
{
    if (walk->visitor.literal && span.at < span.end)
        walk->visitor.literal(span, walk->state);
    follow(&walk->state, std::string_view(walk->tpl.source).substr(span.at, span.end - span.at));
}

// Follows literal output with its fields.
static void followText(Walk *walk, Span span)
{
    const FieldRange range = fieldsIn(walk->tpl, span);
    uint32_t pos = span.at;
    for (size_t i = range.first; i < range.last; ++i) {
        const Span field = walk->tpl.fields[i].span;
        followLiteral(walk, {pos, field.at});
        if (walk->visitor.field)
            walk->visitor.field(i, walk->state);
        followValue(&walk->state);
        pos = field.end;
    }
    followLiteral(walk, {pos, span.end});
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
        const FieldRange range = fieldsIn(walk->tpl, element.span);
        for (size_t i = range.first; i < range.last && walk->visitor.argument; ++i)
            walk->visitor.argument(i, element, previous, compared);
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

void followOutput(const Template &tpl, const OutputVisitor &visitor)
{
    Walk walk = {tpl, visitor, beginOf(tpl.path)};
    for (const Item &item : tpl.items) {
        if (item.command)
            followCommand(&walk, *item.command, false, true);
        else
            followText(&walk, item.span);
    }
}

std::string_view tagAround(std::string_view source, size_t at)
{
    static constexpr size_t LONGEST = 4096; // of a tag: without its > it would be all that follows
    const size_t first = at > LONGEST ? at - LONGEST : 0;
    source = source.substr(first, at - first + LONGEST);
    size_t start = at - first;
    do
        start = start > 0 ? source.rfind('<', start - 1) : std::string_view::npos;
    while (start != std::string_view::npos && // a command is no tag
           !isLetter(start + 1 < source.size() ? source[start + 1] : ' '));
    if (start == std::string_view::npos)
        return "";
    size_t end = start;
    do
        end = source.find('>', end + 1);
    while (end != std::string_view::npos && source[end - 1] == '?');
    return source.substr(start, end - start);
}

std::string_view attributeOf(std::string_view tag, std::string_view name)
{
    static constexpr char BLANKS[] = " \t\r\n";
    const auto isSame = [](char a, char b) { return a == toSmall(b); };
    for (size_t at = 1; at + name.size() < tag.size(); ++at) {
        std::string_view rest = tag.substr(at);
        if (!isHtmlBlank(tag[at - 1]) ||
            !std::equal(name.begin(), name.end(), rest.begin(), isSame))
            continue;
        rest.remove_prefix(name.size());
        rest.remove_prefix(std::min(rest.find_first_not_of(BLANKS), rest.size()));
        if (!rest.starts_with('='))
            continue;
        rest.remove_prefix(1);
        rest.remove_prefix(std::min(rest.find_first_not_of(BLANKS), rest.size()));
        const bool isQuoted = rest.starts_with('"') || rest.starts_with('\'');
        return isQuoted ? rest.substr(1, rest.find(rest[0], 1) - 1)
                        : rest.substr(0, rest.find_first_of(" \t\r\n/>"));
    }
    return "";
}

size_t maxLengthAt(std::string_view source, Span field, const HtmlState &state)
{
    const std::string_view element = state.element;
    const bool isInput =
        element == "input" && (state.part == Part::VALUE || state.part == Part::BEFORE_VALUE);
    const bool isArea = element == "textarea" && state.part == Part::RAW;
    if (!isInput && !isArea)
        return 0;
    const std::string_view tag = tagAround(source, field.at);
    const bool isValue =
        attributeOf(tag, "value").find(source.substr(field.at, field.end - field.at)) !=
        std::string_view::npos;
    return isInput && !isValue
               ? 0
               : strtoul(std::string(attributeOf(tag, "maxlength")).c_str(), nullptr, 10);
}
