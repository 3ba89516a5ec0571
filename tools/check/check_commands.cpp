/* tools/check/check_commands.cpp - rules about one command and what stands around it:
 * comparisons, includes, limits, texts in arguments. Numbered values and queries have files of
 * their own. */
#include <string.h>

#include <algorithm>
#include <utility>

#include "grammar/commands.h"
#include "base/bounds.h"
#include "hints.h"
#include "visit.h"
#include "host/ascii.h"
#include "tools/common/placed.h"
#include "tools/common/translation.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_ARGUMENT = ARG_MAXLEN + ARG_STEP - 1;

static void visitCommand(Visit &visit, const Command &command);

// ---- texts in arguments ----

string excerpt(string_view text)
{
    constexpr size_t most = 40;
    string shown(text.substr(0, most));
    for (char &c : shown)
        if (static_cast<unsigned char>(c) < ' ')
            c = ' ';
    return shown + (text.size() > most ? "..." : "");
}

// Reports the languages whose text breaks something, one finding for each way.
static void checkField(Report &all, const Template &tpl, const Field &field,
                       const FieldPlace &place)
{
    std::map<const Break *, std::vector<const Language *>> reasons;
    for (const Language &language : all.site.languages) {
        const auto found = language.texts.find(field.id);
        if (found == language.texts.end())
            continue;
        const LanguageText &text = found->second;
        const std::set<string> flags = flagsOf(all.site, field.id, text);
        const Break *reason =
            isLeftOut(flags, TEXT_BREAKS)
                ? nullptr
                : breakOf(text.text, place,
                          meantReferences(text.text, sourceOf(all.site, language, field.id, text),
                                          flags));
        if (reason)
            reasons[reason].push_back(&language);
    }
    for (const auto &[reason, languages] : reasons) {
        string message;
        std::vector<Note> notes;
        for (const Language *language : languages) {
            const LanguageText &text = language->texts.find(field.id)->second;
            message.append(message.empty() ? "the text of " : ", ").append(language->code);
            notes.push_back({language->path, std::max(text.line, 1U), 1, 1, "the text is here"});
        }
        message.append(" ").append(reason->what).append("; ");
        message.append(reason->inTemplate[0] ? reason->inTemplate : reason->inText).append(": ");
        message += excerpt(languages[0]->texts.find(field.id)->second.text);
        report(all, tpl, field.span, "text-breaks", std::move(message), std::move(notes));
    }
}

static void checkFieldsIn(const Visit &visit, const Element &element, const Element *before)
{
    const FieldRange fields = fieldsIn(visit.tpl, element.span);
    for (size_t i = fields.first; i < fields.last; ++i) {
        const Field &field = visit.tpl.fields[i];
        checkField(visit.all, visit.tpl, field, placeInArgument(visit.tpl, field, element, before));
    }
}

// ---- arguments ----

// Bytes that an argument has at least.
static size_t leastLength(const Template &tpl, const Argument &argument)
{
    size_t length = 0;
    for (const Element &element : argument.elements) {
        if (element.type == ELEM_TEXT) {
            length += element.text.size();
            const FieldRange fields = fieldsIn(tpl, element.span);
            for (size_t i = fields.first; i < fields.last; ++i)
                length -= std::min<size_t>(length, tpl.fields[i].span.end - tpl.fields[i].span.at);
        } else if (element.command) {
            const Command &command = *element.command;
            const int body = bodyIndex(command);
            if (body < 0)
                continue;
            size_t least = leastLength(tpl, command.args[static_cast<size_t>(body)]);
            const Prints prints = printsOf(command);
            if (prints == Prints::BODIES)
                least = 0;
            else if (prints == Prints::BRANCH)
                least = command.args.size() < 4
                            ? 0
                            : std::min(least, leastLength(tpl, command.args[3]));
            length += least;
        }
    }
    return length;
}

static void checkOperand(const Visit &visit, const Argument &operand)
{
    for (const Element &element : operand.elements) {
        const int body = element.command ? bodyIndex(*element.command) : -1;
        for (size_t i = static_cast<size_t>(body); body >= 0 && i < element.command->args.size();
             ++i)
            checkOperand(visit, element.command->args[i]);
        if (element.type != ELEM_TEXT)
            continue;
        const FieldRange fields = fieldsIn(visit.tpl, element.span);
        for (size_t i = fields.first; i < fields.last; ++i)
            report(
                visit.all, visit.tpl, visit.tpl.fields[i].span, "text-compared",
                "a text is compared: each language, and marks for translators, change the outcome");
    }
}

static bool hasLimit(const string &query)
{
    const auto pieces = scanSql(query);
    return std::any_of(pieces.begin(), pieces.end(), [&query](const SqlPiece &piece) {
        constexpr string_view word = "limit";
        return piece.token == SqlToken::WORD && piece.end - piece.at == word.size() &&
               strncasecmp(query.c_str() + piece.at, word.data(), word.size()) == 0;
    });
}

// An include of each row has the queries around it asked again for each.
static void checkRows(const Visit &visit, const Command &include)
{
    for (size_t level = 0; level < visit.levels.size(); ++level) {
        const Command &command = *visit.levels[level];
        if (!(command.id & CMDF_QUERY) || printsOf(command) != Prints::BODIES)
            continue;
        const Levels around(visit.levels.begin(),
                            visit.levels.begin() + static_cast<ptrdiff_t>(level));
        const auto queries = queriesOf(visit.all.site, visit.tpl, command, around);
        if (std::all_of(queries.begin(), queries.end(),
                        [](const Assembled &query) { return hasLimit(query.text); }))
            continue;
        report(visit.all, visit.tpl, include.words, "include-rows",
               "the query around it has no limit, and is asked again for each row: the cost grows "
               "with the square of the rows",
               {noteAt(visit.tpl, command.words.at, "the query is here")});
        return;
    }
}

static void checkInclude(const Visit &visit, const Command &command)
{
    if (visit.direct) {
        checkRows(visit, command);
        return;
    }
    const bool refused = !visit.levels.empty();
    reportAs(visit.all, refused ? Grade::ERROR : Grade::WARNING, visit.tpl, command.words,
             "include-in-argument",
             refused ? "an include in an argument of a running body is refused"
                     : "the template's text goes to the page, not into the argument");
}

// A second piece in an index, such as "+1" of $var:mode[$0+1].
static void checkIndex(const Visit &visit, const Element &element)
{
    report(visit.all, visit.tpl, element.span, "variable-index",
           "an index is one piece, and no sum: '" + excerpt(element.text) +
               "' comes out behind the element; set a variable to the index first");
}

static void visitArgument(Visit &visit, const Argument &argument)
{
    const Element *before = nullptr;
    for (const Element &element : argument.elements) {
        if (element.type == ELEM_TEXT)
            checkFieldsIn(visit, element, before);
        if (element.type == ELEM_NUMVAR)
            checkValue(visit, element);
        for (const Element &index : element.index) {
            if (index.type == ELEM_NUMVAR)
                checkValue(visit, index);
            if (index.type == ELEM_TEXT)
                checkFieldsIn(visit, index, nullptr);
            if (index.command) {
                const bool direct = visit.direct;
                visit.direct = false;
                visitCommand(visit, *index.command);
                visit.direct = direct;
            }
        }
        if (element.command)
            visitCommand(visit, *element.command);
        if (before && before->type == ELEM_GETARRAY && element.type < ELEM_GETARRAY &&
            element.quote == ']' &&
            (element.type != ELEM_NUMVAR || wordOfValue(visit, element).empty()))
            checkIndex(visit, element);
        before = &element;
    }
}

// A set whose brackets are empty is refused when it runs.
static void checkEmptyIndex(const Visit &visit, const Command &command)
{
    const Span name = command.nameSpan;
    const size_t end = passBlanks(visit.tpl.source, name.end + 1);
    if (end < visit.tpl.source.size() && visit.tpl.source[end] == ']')
        report(visit.all, visit.tpl, {name.at, static_cast<uint32_t>(end) + 1}, "variable-index",
               "the index is missing, and nothing is set: write var:" + command.name + "[INDEX]");
}

// "$0+1" as the index of an element that is set: a text.
static void checkSetIndex(const Visit &visit, const Command &command)
{
    if (command.args.empty())
        return checkEmptyIndex(visit, command);
    const auto &elements = command.args[0].elements;
    for (size_t i = 1; i < elements.size(); ++i) {
        const string &text = elements[i].text;
        const bool isSum = text.size() > 1 && strchr("+-*/", text[0]) && isDigit(text[1]);
        if (elements[i - 1].type != ELEM_TEXT && elements[i].type == ELEM_TEXT && isSum)
            report(visit.all, visit.tpl, elements[i].span, "variable-index",
                   "an index is no sum: '" + excerpt(text) +
                       "' is a part of its text; write <?calc + A B?> in the index");
    }
}

static void enterBody(Visit &visit, const Command &command, size_t body)
{
    const bool useful = (command.id & CMDF_QUERY) || printsOf(command) == Prints::BODIES;
    if (visit.levels.size() == MOST_BODIES)
        report(visit.all, visit.tpl, command.words, "limit",
               std::to_string(MOST_BODIES) +
                   " bodies are around this one, and no more run: it is dropped");
    else if (visit.levels.size() == MOST_LEVELS && useful)
        reportAs(visit.all, Grade::WARNING, visit.tpl, command.words, "limit",
                 "this body is level 10 or deeper: no value can name its columns or its counter");
    const auto around = std::exchange(visit.values, {});
    visit.levels.push_back(&command);
    for (size_t i = body; i < command.args.size(); ++i)
        visitArgument(visit, command.args[i]);
    visit.levels.pop_back();
    if ((command.id & CMDF_QUERY) && printsOf(command) == Prints::BODIES)
        checkOwnRows(visit, command);
    for (size_t level = 0; level < around.size(); ++level)
        if (around[level])
            visit.values[level] = around[level];
}

static void visitCommand(Visit &visit, const Command &command)
{
    const int body = bodyIndex(command);
    const size_t leading = body < 0 ? command.args.size() : static_cast<size_t>(body);
    const bool direct = visit.direct;
    visit.direct = false;
    size_t length = 0;
    for (size_t i = 0; i < leading; ++i) {
        visitArgument(visit, command.args[i]);
        length += leastLength(visit.tpl, command.args[i]) + (i > 0);
        if ((command.id & CMDF_IF) && i < 2)
            checkOperand(visit, command.args[i]);
    }
    visit.direct = direct;
    if (length > MOST_ARGUMENT)
        report(visit.all, visit.tpl, argumentSpan(command, 0), "limit",
               "the arguments have " + std::to_string(length) + " bytes at least, and " +
                   std::to_string(MOST_ARGUMENT) + " are the most");
    if (command.id == ID_SETARRAY || command.id == ID_SETARRAYONCE)
        checkSetIndex(visit, command);
    if (command.id == ID_INCLUDE)
        checkInclude(visit, command);
    if (command.id & CMDF_QUERY)
        checkQuery(visit, command);
    if (body >= 0)
        enterBody(visit, command, leading);
}

// Page text that was meant as a variable.
static void checkPageText(Report &all, const Template &tpl, Span span)
{
    static constexpr string_view begin = "$var:";
    const string_view text = string_view(tpl.source).substr(0, span.end);
    for (size_t at = span.at; (at = text.find(begin, at)) != string_view::npos;) {
        size_t end = at + begin.size();
        while (end < text.size() && isLetterOrDigit(text[end]))
            ++end;
        const size_t close = end < text.size() && text[end] == '[' ? text.find(']', end) : 0;
        if (close != string_view::npos && close > end && close - end < 40)
            end = close + 1;
        const string name(text.substr(at, end - at));
        if (name.size() > begin.size())
            report(
                all, tpl, {static_cast<uint32_t>(at), static_cast<uint32_t>(end)},
                "variable-in-text",
                string(name).append(" is page text here; write <?echo ").append(name).append("?>"));
        at = end;
    }
}

void checkCommands(Report &all)
{
    for (const auto &[path, tpl] : all.site.templates) {
        Visit visit = {all, *tpl, {}};
        for (const Item &item : tpl->items) {
            if (item.command) {
                visitCommand(visit, *item.command);
                continue;
            }
            checkPageText(all, *tpl, item.span);
            const FieldRange fields = fieldsIn(*tpl, item.span);
            for (size_t i = fields.first; i < fields.last; ++i)
                checkField(all, *tpl, tpl->fields[i], placeInPage(*tpl, tpl->fields[i]));
        }
    }
}
