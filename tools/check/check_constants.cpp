/* tools/check/check_constants.cpp - comparisons that come out the same whatever happens,
 * ranges that are empty or endless, and sums of what is no number. */
#include <stdlib.h>

#include <algorithm>
#include <charconv>

#include "hints.h"
#include "report.h"
#include "walk.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

static constexpr int64_t MOST_NUMBERS = 1000000; // of one repeat, which a page waits for

static string sourceOf(const Template &tpl, const Command &command, size_t index)
{
    const Span span = argumentSpan(command, index);
    return tpl.source.substr(span.at, span.end - span.at);
}

// ---- if ----

// A sign or word of other languages that stands by itself as an argument of an if. One sign
// may be what a value is compared with.
static bool isForeignSign(const Command &command, size_t index)
{
    static constexpr string_view signs[] = {"!=", "=", "<>", "<", ">", "<=", ">=", "&&", "||"};
    string text; // a "<" may be an element of its own
    for (const Element &element : command.args[index].elements) {
        if (element.type != ELEM_TEXT || element.quote)
            return false;
        text += element.text;
    }
    const bool isFull = command.args.size() == 4;
    if (index == 1)
        return text == "==" ||
               (isFull && std::find(std::begin(signs), std::end(signs), text) != std::end(signs));
    return isFull && index == 2 && (text == "then" || text == "else");
}

// Whether an argument is text that another rule takes for a variable.
static bool isMeantVariable(string_view text)
{
    const string low = lowered(text);
    return low.starts_with("var:") || low.starts_with("$");
}

static bool isSame(const Template &tpl, const Command &command)
{
    const auto &a = command.args[0].elements;
    const auto isValue = [](const Element &e) { return e.type != ELEM_CMD && e.type != ELEM_TEXT; };
    return std::any_of(a.begin(), a.end(), isValue) &&
           std::none_of(a.begin(), a.end(), [](const Element &e) { return e.type == ELEM_CMD; }) &&
           sourceOf(tpl, command, 0) == sourceOf(tpl, command, 1);
}

// A sign that was meant to say how two values are compared. Returns whether there is one.
static bool checkSign(Report &all, const Template &tpl, const Command &command)
{
    for (size_t i = 1; i < std::min<size_t>(command.args.size(), 4); ++i) {
        if (!isForeignSign(command, i))
            continue;
        report(all, tpl, argumentSpan(command, i), "if-constant",
               "'" + sourceOf(tpl, command, i) +
                   "' is a text here, and no sign: the word in front says how two values are "
                   "compared, if eq A B `then` `else`");
        return true;
    }
    return false;
}

// A constant in the place of something that is true or not.
static void tellTruth(Report &all, const Template &tpl, Span span, const string &text)
{
    const bool isTrue = !text.empty() && text[0] != '0';
    report(all, tpl, span, "if-constant",
           "'" + text + "' is always " + (isTrue ? "true" : "false") +
               ": and, or take two values that are true or not");
}

static void checkIf(Report &all, const Template &tpl, const Command &command)
{
    const bool isLogic = command.id == ID_IFAND || command.id == ID_IFOR;
    string a;
    string b;
    if (command.args.size() < 2 || checkSign(all, tpl, command))
        return;
    const bool knowsA = constantText(tpl, command.args[0], &a);
    const bool knowsB = constantText(tpl, command.args[1], &b);
    if ((knowsA && isMeantVariable(a)) || (knowsB && isMeantVariable(b)))
        return;
    if (knowsA && knowsB)
        report(all, tpl, argumentSpan(command, 0), "if-constant",
               "two constants are compared, '" + a + "' and '" + b +
                   "': it always comes out the same");
    else if (isSame(tpl, command) && !isLogic)
        report(all, tpl, argumentSpan(command, 0), "if-constant",
               sourceOf(tpl, command, 0) +
                   " is compared with itself: it always comes out the same");
    else if (isLogic && (knowsA || knowsB))
        tellTruth(all, tpl, argumentSpan(command, knowsA ? 0 : 1), knowsA ? a : b);
}

// ---- numbers ----

// The texts that an argument comes to, as far as all of them are known; none otherwise.
static std::vector<string> knownTexts(Report &all, const Template &tpl, const Argument &argument,
                                      const Levels &levels)
{
    std::vector<string> texts;
    for (const Assembled &text : assemble(all.site, tpl, argument, levels)) {
        if (std::any_of(text.pieces.begin(), text.pieces.end(),
                        [](const TextPiece &piece) { return piece.hole; }))
            return {};
        texts.push_back(text.text);
    }
    return texts;
}

// The bytes of the number that a text begins with.
static size_t numberLength(const string &text, double *number)
{
    char *end = nullptr;
    *number = strtod(text.c_str(), &end);
    return static_cast<size_t>(end - text.c_str());
}

// What is wrong with a text as an operand of calc; empty for a number.
static string faultOf(const string &text, bool divides)
{
    double number = 0;
    const size_t length = numberLength(text, &number);
    if (isMeantVariable(text))
        return "";
    if (length == 0)
        return "'" + text + "' is no number: nothing is printed";
    if (text[length] == ',')
        return "'" + text + "' counts as " + text.substr(0, length) +
               ": the decimal sign is a full stop";
    return divides && number == 0 ? "a division by 0 prints inf or nan" : "";
}

// Of several texts that it may come to, one that is sound is enough.
static void checkOperand(Report &all, const Template &tpl, const Command &command, size_t index,
                         const Levels &levels)
{
    const std::vector<string> texts = knownTexts(all, tpl, command.args[index], levels);
    const bool divides = command.id == ID_CALCDIV && index == 1;
    const bool isSound = std::any_of(texts.begin(), texts.end(), [&](const string &text) {
        return faultOf(text, divides).empty();
    });
    if (!texts.empty() && !isSound)
        report(all, tpl, argumentSpan(command, index), "calc-number", faultOf(texts[0], divides));
}

// Reads a bound that is known. Returns false where it is not, or no number.
static bool readBound(Report &all, const Template &tpl, const Command &command, size_t index,
                      const Levels &levels, int64_t *bound)
{
    const std::vector<string> texts = knownTexts(all, tpl, command.args[index], levels);
    if (texts.size() != 1)
        return false;
    char *end = nullptr;
    *bound = std::clamp<int64_t>(strtoll(texts[0].c_str(), &end, 10), INT32_MIN, INT32_MAX);
    const bool isNumber = end != texts[0].c_str();
    if (!isNumber && !isMeantVariable(texts[0]))
        report(all, tpl, argumentSpan(command, index), "repeat-range",
               "'" + texts[0] + "' is no number, and counts as 0");
    return isNumber;
}

static void checkRepeat(Report &all, const Template &tpl, const Command &command,
                        const Levels &levels)
{
    int64_t from = 0;
    int64_t to = 0;
    if (command.args.size() < 2)
        return;
    const bool knowsFrom = readBound(all, tpl, command, 0, levels, &from);
    if (!readBound(all, tpl, command, 1, levels, &to))
        return;
    from += command.id == ID_REPEATEXCL;
    to -= command.upperExcluded;
    const Span span = {argumentSpan(command, 0).at, argumentSpan(command, 1).end};
    if (knowsFrom && to < from)
        report(all, tpl, span, "repeat-range",
               "the range is empty, and nothing is printed: repeat counts upwards only");
    else if (to - from >= MOST_NUMBERS)
        report(all, tpl, span, "repeat-range",
               "this prints the body " + std::to_string(to - from + 1) + " times");
}

void checkConstants(Report &all)
{
    for (const auto &[path, tpl] : all.site.templates) {
        const Template &read = *tpl;
        Walker walker;
        walker.command = [&](const Command &command, const Levels &levels) {
            if (command.id & CMDF_IF)
                checkIf(all, read, command);
            for (size_t i = 0; (command.id & CMDF_CALC) && i < command.args.size(); ++i)
                checkOperand(all, read, command, i, levels);
            if (command.id == ID_REPEATINCL || command.id == ID_REPEATEXCL)
                checkRepeat(all, read, command, levels);
        };
        walkTemplate(read, walker);
    }
}
