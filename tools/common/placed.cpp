/* tools/common/placed.cpp - texts in their places: in arguments as the scanner reads them, and
 * in the parts of a page. */
#include "placed.h"

#include "translation.h"
#include "host/ascii.h"

using std::string_view;

// So much of what stands beside a field can make a command, an end or a variable with it.
static constexpr size_t BESIDE = 4;

FieldPlace placeInPage(const Template &tpl, const Field &field)
{
    const string_view source = tpl.source;
    const string_view before = source.substr(0, field.span.at);
    FieldPlace place;
    place.next = source.substr(field.span.end, BESIDE);
    if (before.ends_with('<') || before.ends_with('?'))
        place.before = before.substr(before.size() - 1);
    const size_t dollars = before.size() - (before.find_last_not_of('$') + 1);
    if (dollars % 2 != 0) // two of them are one of text
        place.before = "$";
    return place;
}

FieldPlace placeInArgument(const Template &tpl, const Field &field, const Element &element,
                           const Element *before)
{
    FieldPlace place = placeInPage(tpl, field);
    place.inCommand = true;
    place.quote = element.quote;
    const bool isOpen =
        before &&
        (before->type == ELEM_GETVAR ||
         (before->type == ELEM_NUMVAR && before->text.size() == 1 && isDigit(before->text[0])));
    place.behindReference =
        isOpen && field.span.at == element.span.at && before->span.end == element.span.at;
    return place;
}

// Whether a "$" begins more than itself with what follows it.
static bool beginsReference(string_view rest)
{
    return !rest.empty() && ((rest[0] >= '0' && rest[0] <= '9') ||
                             (rest[0] >= 'a' && rest[0] <= 'z') || rest[0] == '$');
}

static constexpr char OTHER_QUOTE[] = "use another quote, or write &#39; or &quot;";
static constexpr char OF_TEMPLATE[] = "the template must change: tell its author";
static constexpr char IN_BACKQUOTES[] = "put the argument between backquotes";

static constexpr Break holdsField = {"holds {?, which is not replaced once more", "take it out",
                                     ""};
static constexpr Break beginsCommand = {"begins a command", "write &lt; for the <", ""};
static constexpr Break endsCommand = {"ends the command", "write &gt; for the >", ""};
static constexpr Break beginsValue = {"begins a variable or value", "write $$ for a dollar sign",
                                      ""};
static constexpr Break endsQuote = {"ends the quote that it stands in", OTHER_QUOTE,
                                    "put the argument between other quotes"};
static constexpr Break opensQuote = {"opens a quote", OTHER_QUOTE, IN_BACKQUOTES};
static constexpr Break breaksIndex = {"breaks the index that it stands in",
                                      "leave quotes, brackets and blanks out", ""};
static constexpr Break endsArgument = {"ends the argument at its blank", OF_TEMPLATE,
                                       IN_BACKQUOTES};
static constexpr Break lengthens = {"lengthens the variable or value in front of it", OF_TEMPLATE,
                                    "put a sign in between that is no letter or digit"};

// What the byte at the front of rest does in a command; null for nothing.
static const Break *breakOfByte(char byte, char quote)
{
    const bool isQuote = byte == '"' || byte == '\'' || byte == '`';
    if (quote == ']')
        return isQuote || byte == ']' || isBlank(byte) ? &breaksIndex : nullptr;
    if (quote)
        return byte == quote ? &endsQuote : nullptr;
    return isQuote ? &opensQuote : isBlank(byte) ? &endsArgument : nullptr;
}

// What the text does at whole[i]; null for nothing.
static const Break *breakAt(string_view whole, size_t i, const FieldPlace &place)
{
    const string_view rest = whole.substr(i);
    if (rest.starts_with("<?"))
        return &beginsCommand;
    if (!place.inCommand)
        return nullptr;
    if (rest.starts_with("?>"))
        return &endsCommand;
    if (rest[0] == '$' && beginsReference(rest.substr(1)))
        return &beginsValue;
    return i < place.before.size() ? nullptr : breakOfByte(rest[0], place.quote);
}

// Returns the length of what is no break at i, however it looks: two dollar signs, a reference
// that is meant; 0 for anything else.
static size_t soundLength(string_view whole, size_t i, const std::set<std::string> &meant)
{
    if (whole.substr(i, 2) == "$$")
        return 2;
    const size_t length = whole[i] == '$' ? referenceLength(whole.substr(i)) : 0;
    return length && meant.contains(std::string(whole.substr(i, length))) ? length : 0;
}

const Break *breakOf(string_view text, const FieldPlace &place, const std::set<std::string> &meant)
{
    const std::string whole = place.before + std::string(text) + place.next;
    const size_t end = place.before.size() + text.size();
    if (text.find("{?") != string_view::npos)
        return &holdsField;
    if (!place.inCommand && !place.behindReference)
        return !text.empty() && whole.find("<?") < end ? &beginsCommand : nullptr;
    for (size_t i = text.empty() ? end : 0; i < end;) {
        const size_t sound = place.inCommand ? soundLength(whole, i, meant) : 0;
        const bool isSound = sound && i >= place.before.size() && i + sound <= end;
        const Break *found = isSound ? nullptr : breakAt(whole, i, place);
        if (found)
            return found;
        i += isSound ? sound : 1;
    }
    const bool goesOn = !text.empty() && isLetterOrDigit(text[0]);
    return place.behindReference && goesOn ? &lengthens : nullptr;
}

bool leavesPart(string_view text, const HtmlState &state)
{
    HtmlState expected = state;
    followValue(&expected);
    HtmlState reached = state;
    const bool inside =
        state.part == Part::VALUE || state.part == Part::BEFORE_VALUE || state.part == Part::RAW;
    const bool unquoted = expected.part == Part::VALUE && !expected.quote;
    const bool hasStrings = state.content == Content::SCRIPT || state.content == Content::STYLE;
    if (!inside)
        follow(&reached, text);
    for (size_t i = 0; inside && i < text.size(); ++i) {
        follow(&reached, text.substr(i, 1));
        const bool same = reached.part == expected.part && reached.quote == expected.quote &&
                          reached.script == expected.script;
        if (!same && (expected.part == Part::VALUE || hasStrings || reached.part != expected.part))
            return true;
        if (unquoted && reached.part != Part::VALUE)
            return true;
    }
    if (inside && hasStrings && reached.escaped)
        return true; // the byte behind the text would be escaped
    HtmlState joined;
    return !text.empty() && !inside && !joinStates(expected, reached, &joined);
}

const char *cureOf(const HtmlState &state)
{
    const bool hasStrings = state.content == Content::SCRIPT || state.content == Content::STYLE;
    return hasStrings ? "use another quote, or write a backslash in front of it"
                      : "write &lt; for <, &#39; and &quot; for quotes";
}
