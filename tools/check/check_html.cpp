/* tools/check/check_html.cpp - rules about the part of a page that a value or a text
 * lands in. Each page is followed from its begin through its commands' bodies and its
 * includes; a template that is included in the same part once more is not followed
 * again. */
#include <algorithm>
#include <set>

#include "grammar/commands.h"
#include "tools/common/html.h"
#include "tools/common/placed.h"
#include "tools/common/translation.h"
#include "blame.h"
#include "report.h"

using std::string;
using std::string_view;

namespace
{
struct Followed {
    HtmlState from;
    HtmlState to;
};

struct Follower {
    Report &all;
    std::map<const Template *, std::vector<Followed>> done;
    std::vector<Note> from; // the includes that led here, the outermost first
    std::set<const Template *> open;
    HtmlState state;
};

// What a value is, and where it stands.
struct Output {
    const Template &tpl;
    Span span;
    uint32_t id;   // of the command in whose body it stands
    uint8_t holds; // VALUE_ bits of what comes out
    string name;   // as it is shown
    std::vector<Note> notes = {};
    string key = {}; // of a variable
};
} // namespace

static void followCommand(Follower &follower, const Template &tpl, const Command &command,
                          Levels &levels);

static std::vector<Note> includedFrom(const Follower &follower)
{
    return {follower.from.rbegin(), follower.from.rend()};
}

static void add(Follower &follower, const Output &output, const char *id, string text)
{
    std::vector<Note> notes = output.notes;
    if (!output.key.empty())
        notes = blameFor(follower.all.site, output.key);
    if (notes.empty() || output.key.empty()) // a page that includes it is not to blame
        for (Note &note : includedFrom(follower))
            notes.push_back(std::move(note));
    report(follower.all, output.tpl, output.span, id, std::move(text), std::move(notes));
}

// ---- values ----

static string insteadOfEcho(uint32_t id)
{
    switch (id) {
    case ID_QUERYTEXT:
        return "use query, or put it into an echo of its own";
    case ID_MULTIQUERYTEXT:
        return "use multiquery, or put it into an echo of its own";
    case ID_PRINT:
        return "use echo";
    case ID_ERRORMESSAGE:
        return "take it through a variable to an echo";
    default:
        return "put it into an echo of its own";
    }
}

static string notEscaped(const Output &output, const HtmlState &state)
{
    string text = output.name + " comes out as it is, in " + describe(state) + ": ";
    if (output.holds & VALUE_SCRIPT)
        return output.name + " is escaped for scripts, but stands in " + describe(state) +
               ": use echo";
    const string words = wordsOf(output.id);
    if (!words.empty())
        text += (output.id & CMDF_IF) ? "the body of an if does not escape; "
                                      : words + " does not escape; ";
    return text + insteadOfEcho(output.id);
}

static void checkAttribute(Follower &follower, const Output &output)
{
    const HtmlState &state = follower.state;
    const bool quoted = state.part == Part::VALUE && state.quote == '"';
    if (output.holds & (VALUE_RAW | VALUE_SCRIPT))
        add(follower, output, "escape-missing", notEscaped(output, state));
    else if (!quoted)
        add(follower, output, "escape-attribute",
            output.name + " stands in " + describe(state) +
                ", where HTML escaping is not enough: write double quotes around the value");
    if (beginsAddress(state))
        add(follower, output, "escape-url",
            output.name + " is the beginning of an address, and can be javascript: or any other "
                          "site; write what the address begins with in the template");
}

static void checkScript(Follower &follower, const Output &output)
{
    const HtmlState &state = follower.state;
    const bool attribute = state.part == Part::VALUE;
    const bool string_ = state.script == Script::DQUOTE || state.script == Script::SQUOTE;
    if (!string_) {
        add(follower, output, "escape-script",
            output.name + " stands in " + describe(state) +
                (state.script == Script::TEMPLATE
                     ? ", which no escaping makes safe: use a string in quotes and printjs"
                     : ", outside of a string: put quotes around it and use printjs"));
        return;
    }
    const uint8_t safe = attribute ? VALUE_BOTH : VALUE_SCRIPT;
    if (!(output.holds & static_cast<uint8_t>(~safe)))
        return;
    if (attribute)
        add(follower, output, "escape-script",
            output.name + " needs escaping for the script and for HTML here: set a variable to "
                          "<?printjs ...?> and echo that, or put it into a data- attribute");
    else
        add(follower, output, "escape-script",
            output.name +
                (output.holds & (VALUE_HTML | VALUE_BOTH) ? " is escaped for HTML, but stands in "
                                                          : " is not escaped, in ") +
                describe(state) + ": use printjs");
}

static void checkOutput(Follower &follower, const Output &output)
{
    if (!output.holds)
        return;
    const HtmlState &state = follower.state;
    if (isJson(state))
        return; // which the rules about JSON look at
    switch (state.part) {
    case Part::PLAIN:
        return;
    case Part::OPEN:
    case Part::TAG_NAME:
    case Part::TAG:
    case Part::NAME:
    case Part::AFTER_NAME:
        add(follower, output, "escape-name",
            output.name +
                (state.part == Part::OPEN || state.part == Part::TAG_NAME
                     ? " is a tag's name"
                     : " is an attribute's name, or several attributes") +
                ", which no escaping makes safe");
        return;
    case Part::BEFORE_VALUE:
    case Part::VALUE:
    case Part::RAW:
        if (state.content == Content::SCRIPT && state.part != Part::BEFORE_VALUE)
            return checkScript(follower, output);
        if (state.content == Content::SCRIPT)
            return add(follower, output, "escape-script", output.name + " is a script");
        if (state.content == Content::STYLE)
            return add(follower, output, "escape-style",
                       output.name + " stands in " + describe(state) +
                           ", where no escaping makes it safe: choose among constants with if");
        if (state.content == Content::DOCUMENT)
            return add(follower, output, "escape-document",
                       output.name + " stands in srcdoc, which is read as a page of its own: its "
                                     "escaping is undone in front of that, and no other makes it "
                                     "safe; let src lead to a page that holds it");
        if (state.part != Part::RAW)
            return checkAttribute(follower, output);
        break;
    default:
        break;
    }
    if (output.holds & (VALUE_RAW | VALUE_SCRIPT))
        add(follower, output, "escape-missing", notEscaped(output, state));
}

static void putValue(Follower &follower, const Output &output)
{
    checkOutput(follower, output);
    followValue(&follower.state);
}

// A column's value, of the rows of a command. The texts that the query names are constants
// as long as they stay in their part.
static void putColumn(Follower &follower, const Command &command, const SqlColumn *column,
                      Output output)
{
    uint8_t holds = holdsOfColumn(column);
    for (const string &text : column ? column->values.texts : std::set<string>())
        if (follower.state.part != Part::PLAIN && leavesPart(text, follower.state))
            holds = VALUE_RAW;
    output.holds = escapedBy(output.id, holds);
    if (holds && column && !column->declared.empty())
        output.notes = {noteAt(output.tpl, command.span.at,
                               "its column " + column->name + " is declared " + column->declared +
                                   ", but only a STRICT table keeps texts out; cast(" +
                                   column->name + " as " + column->declared + ") is a number")};
    putValue(follower, output);
}

// ---- texts ----

static void putField(Follower &follower, const Template &tpl, const Field &field)
{
    string codes;
    const string *shown = nullptr;
    std::vector<Note> notes;
    for (const Language &language : follower.all.site.languages) {
        const auto text = language.texts.find(field.id);
        if (text == language.texts.end() || follower.state.part == Part::PLAIN ||
            !leavesPart(text->second.text, follower.state) ||
            hasWrongTags(follower.all, language.path, std::max(text->second.line, 1U)) ||
            isLeftOut(flagsOf(follower.all.site, field.id, text->second), TEXT_BREAKS))
            continue;
        codes += (codes.empty() ? "" : ", ") + language.code;
        shown = shown ? shown : &text->second.text;
        notes.push_back({language.path, std::max(text->second.line, 1U), 1, 1, "the text is here"});
    }
    if (shown) {
        for (Note &note : includedFrom(follower))
            notes.push_back(std::move(note));
        report(follower.all, tpl, field.span, "text-breaks",
               "the text of " + codes + " does not stay in " + describe(follower.state) + "; " +
                   cureOf(follower.state) + ": " + shown->substr(0, 40),
               std::move(notes));
    }
    followValue(&follower.state);
}

// Whether a ?> ends an unknown command, or was to be held by a quote: that is told already.
static bool isToldOf(const Template &tpl, uint32_t at)
{
    return std::any_of(tpl.begun.begin(), tpl.begun.end(), [&](const Begun &begun) {
        const bool unknown = begun.token == F_UNDEF;
        const uint32_t from = unknown ? begun.words.at : begun.end;
        return (unknown || begun.quoteOpen) && from <= at && tpl.source.find("?>", from) == at;
    });
}

// A ?> in page text, which ends nothing and comes out.
static void checkEndMark(const Follower &follower, const Template &tpl, uint32_t at)
{
    const HtmlState &state = follower.state;
    const bool inScript =
        (state.part == Part::RAW || state.part == Part::VALUE) && state.content == Content::SCRIPT;
    const bool isText = state.part == Part::COMMENT ||
                        (inScript && state.script >= Script::REGEX); // or of a comment
    if (isText || isToldOf(tpl, at))
        return;
    const size_t previous = at > 0 ? tpl.source.rfind("?>", at - 1) : string::npos;
    const bool behindComment =
        std::any_of(tpl.comments.begin(), tpl.comments.end(),
                    [&](const Span &comment) { return comment.end == previous + 2; });
    report(follower.all, tpl, {at, at + 2}, "end-in-text",
           behindComment ? "this ?> comes out: the comment in front of it has ended already"
                         : "this ?> comes out: no command is open here");
}

static void followPiece(Follower &follower, const Template &tpl, uint32_t at, string_view literal)
{
    size_t begin = 0;
    for (const auto &[place, resume] : follower.all.endless) {
        const bool isHere = place.first == &tpl && resume > at && resume - at <= literal.size();
        if (!isHere || resume - at < begin)
            continue;
        follow(&follower.state, literal.substr(begin, resume - at - begin));
        follower.state = HtmlState(); // it is told that the end is missing
        begin = resume - at;
    }
    follow(&follower.state, literal.substr(begin));
}

// Follows page text, or a text of an argument, in which no ?> can stand.
static void followLiteral(Follower &follower, const Template &tpl, uint32_t at, string_view literal)
{
    size_t begin = 0;
    for (size_t mark; (mark = literal.find("?>", begin)) != string_view::npos; begin = mark + 2) {
        followPiece(follower, tpl, at + static_cast<uint32_t>(begin),
                    literal.substr(begin, mark - begin));
        checkEndMark(follower, tpl, at + static_cast<uint32_t>(mark));
        follow(&follower.state, literal.substr(mark, 2));
    }
    followPiece(follower, tpl, at + static_cast<uint32_t>(begin), literal.substr(begin));
}

static void putText(Follower &follower, const Template &tpl, Span span, string_view literal)
{
    const FieldRange fields = fieldsIn(tpl, span);
    if (fields.empty()) {
        followLiteral(follower, tpl, span.at, literal);
        return;
    }
    const string_view source = tpl.source;
    uint32_t at = span.at;
    for (size_t i = fields.first; i < fields.last; ++i) {
        const Field &field = tpl.fields[i];
        followLiteral(follower, tpl, at, source.substr(at, field.span.at - at));
        putField(follower, tpl, field);
        at = field.span.end;
    }
    followLiteral(follower, tpl, at, source.substr(at, span.end - at));
}

// ---- commands ----

static string nameOf(const Template &tpl, const Element &element)
{
    if (element.type == ELEM_GETVAR || element.type == ELEM_GETARRAY) {
        const string key = keyOfRead(element);
        return "$var:" + (key.ends_with("[*]") ? element.text + "[...]" : key);
    }
    return tpl.source.substr(element.span.at, element.span.end - element.span.at);
}

static void followArgument(Follower &follower, const Template &tpl, const Argument &argument,
                           uint32_t id, Levels &levels)
{
    for (const Element &element : argument.elements) {
        switch (element.type) {
        case ELEM_TEXT:
            putText(follower, tpl, element.span, element.text);
            break;
        case ELEM_CMD:
            if (element.command)
                followCommand(follower, tpl, *element.command, levels);
            break;
        case ELEM_NUMVAR: {
            size_t column = 0;
            if (const Command *command = commandOfValue(element, levels, &column))
                putColumn(follower, *command, columnOf(follower.all.site, *command, column),
                          {tpl, element.span, id, 0, nameOf(tpl, element)});
            else
                followValue(&follower.state); // a counter
            break;
        }
        default:
            putValue(follower, {tpl,
                                element.span,
                                id,
                                escapedBy(id, holdsOfElement(follower.all.site, element, levels)),
                                nameOf(tpl, element),
                                {},
                                keyOfRead(element)});
            break;
        }
    }
}

static void differ(Follower &follower, const Template &tpl, const Command &command,
                   const HtmlState &a, const HtmlState &b, const char *what)
{
    string text = string(what) + " end in " + describe(a) + " and in " + describe(b);
    report(follower.all, tpl, command.words, "escape-context", std::move(text),
           includedFrom(follower));
}

static void followIf(Follower &follower, const Template &tpl, const Command &command,
                     Levels &levels)
{
    const HtmlState before = follower.state;
    followArgument(follower, tpl, command.args[2], command.id, levels);
    const HtmlState then = follower.state;
    follower.state = before;
    if (command.args.size() > 3)
        followArgument(follower, tpl, command.args[3], command.id, levels);
    const HtmlState otherwise = follower.state;
    if (!joinStates(then, otherwise, &follower.state))
        differ(follower, tpl, command, then, otherwise,
               command.args.size() > 3 ? "the branches" : "the body and the page without it");
}

static void followLoop(Follower &follower, const Template &tpl, const Command &command, size_t body,
                       Levels &levels)
{
    const HtmlState before = follower.state;
    followArgument(follower, tpl, command.args[body], command.id, levels);
    const HtmlState after = follower.state;
    if (!joinStates(before, after, &follower.state)) {
        if (printsOf(command) == Prints::BODIES)
            differ(follower, tpl, command, before, after, "no iteration of the body and one");
        else
            differ(follower, tpl, command, after, before, "the body and the page without it");
        follower.state = before;
    }
}

static void followTemplate(Follower &follower, const Template &tpl);

static void followInclude(Follower &follower, const Template &tpl, const Command &command)
{
    const auto uses = follower.all.site.includes.find(tpl.path);
    if (uses == follower.all.site.includes.end())
        return;
    const HtmlState before = follower.state;
    bool first = true;
    for (const PathUse &use : uses->second) {
        if (use.command != &command)
            continue;
        for (const string &path : use.paths) {
            const auto included = follower.all.site.templates.find(path);
            if (included == follower.all.site.templates.end())
                continue;
            const HtmlState previous = follower.state;
            follower.state = before;
            follower.from.push_back(noteAt(tpl, command.span.at, "included from here"));
            followTemplate(follower, *included->second);
            follower.from.pop_back();
            HtmlState joined;
            if (!first && joinStates(previous, follower.state, &joined))
                follower.state = joined;
            first = false;
        }
    }
}

// A command without body that prints a column or the error.
static void followColumn(Follower &follower, const Template &tpl, const Command &command)
{
    putColumn(follower, command, columnOf(follower.all.site, command, 0),
              {tpl, command.words, command.id, 0,
               command.id & CMDF_QUERY ? "column 1" : "the error's text"});
}

// What prints 1 or 0, in the page or in a tag.
static void followTruth(Follower &follower, const Template &tpl, const Command &command)
{
    const Part part = follower.state.part;
    if (part == Part::TAG || part == Part::AFTER_NAME)
        report(follower.all, tpl, command.words, "html-attribute",
               "1 or 0 is no attribute: what is printed where the condition holds is missing "
               "behind its two values",
               includedFrom(follower));
    followValue(&follower.state);
}

// A command whose output is no body.
static void followWithoutBody(Follower &follower, const Template &tpl, const Command &command,
                              Levels &levels)
{
    const Prints prints = printsOf(command);
    if (command.id == ID_INCLUDE)
        followInclude(follower, tpl, command);
    else if (prints == Prints::ARGUMENT)
        for (const Argument &argument : command.args)
            followArgument(follower, tpl, argument, command.id, levels);
    else if (prints == Prints::BRANCH)
        followTruth(follower, tpl, command);
    else if (prints == Prints::NUMBER)
        followValue(&follower.state);
    else if (command.id & (CMDF_QUERY | CMDF_ERROR))
        followColumn(follower, tpl, command);
}

static void followCommand(Follower &follower, const Template &tpl, const Command &command,
                          Levels &levels)
{
    const int body = bodyIndex(command);
    if (body < 0)
        return followWithoutBody(follower, tpl, command, levels);
    const Prints prints = printsOf(command);
    levels.push_back(&command);
    if (prints == Prints::BRANCH)
        followIf(follower, tpl, command, levels);
    else if (prints == Prints::BODIES || command.id & (CMDF_QUERY | CMDF_ERROR))
        followLoop(follower, tpl, command, static_cast<size_t>(body), levels);
    else
        followArgument(follower, tpl, command.args[static_cast<size_t>(body)], command.id, levels);
    levels.pop_back();
}

static void followTemplate(Follower &follower, const Template &tpl)
{
    for (const Followed &followed : follower.done[&tpl])
        if (followed.from == follower.state) {
            follower.state = followed.to;
            return;
        }
    if (!follower.open.insert(&tpl).second)
        return; // it includes itself
    const HtmlState from = follower.state;
    Levels levels;
    for (const Item &item : tpl.items) {
        if (item.command)
            followCommand(follower, tpl, *item.command, levels);
        else
            putText(follower, tpl, item.span,
                    string_view(tpl.source).substr(item.span.at, item.span.end - item.span.at));
    }
    follower.done[&tpl].push_back({from, follower.state});
    follower.open.erase(&tpl);
}

void checkHtml(Report &all)
{
    Follower follower = {all, {}, {}, {}, {}};
    for (const string &page : all.site.pages) {
        const Template &tpl = *all.site.templates[page];
        follower.state = beginOf(page);
        followTemplate(follower, tpl);
    }
}
