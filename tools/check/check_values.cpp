/* tools/check/check_values.cpp - rules about numbered values: whether their level, their column and
 * their counter are there, and what was meant by a digit with a letter. */
#include "grammar/commands.h"
#include "visit.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

static string nameOf(const Numbered &value, size_t level)
{
    const char column =
        static_cast<char>(value.column < 10 ? '0' + value.column : 'a' + value.column - 10);
    return string("$") + (level > 0 ? std::to_string(level) : "") + column;
}

// The innermost level whose body has that column, or that counts; -1 for none.
static int levelWith(const Visit &visit, int column)
{
    for (size_t level = visit.levels.size(); level-- > 0;) {
        const RowsOf &rows = rowsOf(visit.all.site, *visit.levels[level]);
        if (column == 0 ? rows.counts : rows.hasRows)
            return static_cast<int>(level);
    }
    return -1;
}

static bool hasColumn(const RowsOf &rows, int column)
{
    return rows.hasRows && (!rows.known || static_cast<size_t>(column) <= rows.columns.size());
}

static std::vector<Note> noteColumns(const Visit &visit, const Command &command)
{
    const Span words = command.words;
    return {noteAt(visit.tpl,
                   command.args.empty() || command.args[0].elements.empty()
                       ? words.at
                       : command.args[0].elements[0].span.at,
                   "the column list is here")};
}

static string suggestion(const Visit &visit, const Numbered &value)
{
    const int level = levelWith(visit, value.column);
    if (level < 0)
        return "";
    return "; did you mean " + nameOf(value, static_cast<size_t>(level)) + ", of level " +
           std::to_string(level) + "?";
}

// A digit and a letter that were meant as a column and text.
static bool isDigitsMistake(const Visit &visit, const Element &element)
{
    const string &digits = element.text;
    if (digits.size() != 2 || digits[1] < 'a')
        return false;
    const Numbered value = takeApart(digits);
    const auto level = static_cast<size_t>(value.level);
    const bool fits = level < visit.levels.size() &&
                      hasColumn(rowsOf(visit.all.site, *visit.levels[level]), value.column);
    const char next =
        element.span.end < visit.tpl.source.size() ? visit.tpl.source[element.span.end] : ' ';
    const bool goesOn = isLetter(next) || (next & 0x80);
    return !fits || goesOn;
}

string_view wordOfValue(const Visit &visit, const Element &element)
{
    const string_view source = visit.tpl.source;
    uint32_t end = element.span.end;
    while (end < source.size() && isLetterOrDigit(source[end]))
        ++end;
    const bool isWord = isLetter(element.text[0]) && end > element.span.end;
    return isWord ? source.substr(element.span.at + 1, end - element.span.at - 1) : string_view();
}

// A variable without its var: in front.
static bool checkWord(const Visit &visit, const Element &element)
{
    const string word(wordOfValue(visit, element));
    const Site &site = visit.all.site;
    const Numbered value = takeApart(element.text);
    const bool isKnown =
        isFromWeb(site, word) || !setsOf(site, word).empty() || !setsOf(site, word + "[*]").empty();
    const bool fits =
        !visit.levels.empty() && hasColumn(rowsOf(visit.all.site, *visit.levels[0]), value.column);
    if (word.empty() || (fits && !isKnown))
        return false;
    const string rest = word.substr(element.text.size());
    const Span span = {element.span.at, element.span.at + 1 + static_cast<uint32_t>(word.size())};
    report(visit.all, visit.tpl, span, "variable-name",
           "$" + word + " is column " + std::to_string(value.column) + " and the text '" + rest +
               (word == "var" ? "'; a variable is written $var:NAME"
                              : "'; for a variable write $var:" + word +
                                    (isKnown ? "" : ", for a dollar sign $$")));
    return true;
}

// What to do about a value that is none in an included template; else the other hint.
static string hintIncluded(const Visit &visit, string other)
{
    for (const auto &[path, uses] : visit.all.site.includes)
        for (const PathUse &use : uses)
            if (use.conditional &&
                std::find(use.paths.begin(), use.paths.end(), visit.tpl.path) != use.paths.end())
                return "; the values of the body that includes this template do not reach it: "
                       "set a variable there, in front of the include";
    return other;
}

static void tellDigits(const Visit &visit, const Element &element, const Numbered &value)
{
    const string first(1, element.text[0]);
    report(visit.all, visit.tpl, element.span, "value-digits",
           "$" + element.text + " is column " + std::to_string(value.column) + " of level " +
               first + "; for $" + first + " and the text '" + element.text[1] + "' write $0" +
               first + element.text[1]);
}

// A counter of a body that does not count.
static void checkCounter(const Visit &visit, const Element &element, const Command &command,
                         const Numbered &value)
{
    const bool isElsewhere = levelWith(visit, 0) >= 0;
    reportAs(visit.all, Grade::WARNING, visit.tpl, element.span,
             isElsewhere ? "value-level" : "value-outside",
             "$" + element.text + " is the counter of " + wordsOf(command.id) + ", always 0" +
                 (isElsewhere ? suggestion(visit, value)
                              : hintIncluded(visit, "; only repeat and the multiqueries count")));
}

static void keepFirst(Visit &visit, const Element &element, size_t level)
{
    if (level < visit.values.size() && !visit.values[level])
        visit.values[level] = &element;
}

void checkValue(Visit &visit, const Element &element)
{
    Report &all = visit.all;
    const Numbered value = takeApart(element.text);
    const auto level = static_cast<size_t>(value.level);
    keepFirst(visit, element, level);
    const string shown = "$" + element.text;
    if (checkWord(visit, element))
        return;
    if (isDigitsMistake(visit, element))
        return tellDigits(visit, element, value);
    if (visit.levels.empty()) {
        report(all, visit.tpl, element.span, "value-outside",
               shown + " stands in no body" +
                   hintIncluded(visit, "; for a dollar sign write $$" + element.text));
        return;
    }
    if (level >= visit.levels.size()) {
        string hint = suggestion(visit, value);
        if (element.text.size() == 2 && isDigit(element.text[1]) && levelWith(visit, 1) == 0) {
            const int column = std::stoi(element.text);
            if (column >= 10 && column <= ORV_MAX_COLUMNS)
                hint = string("; column ") + element.text + " is $" +
                       static_cast<char>('a' + column - 10);
        }
        report(all, visit.tpl, element.span, "value-level",
               shown + " is of level " + std::to_string(level) + ", but only " +
                   std::to_string(visit.levels.size()) +
                   (visit.levels.size() == 1 ? " body is" : " bodies are") + " around it" + hint);
        return;
    }
    const Command &command = *visit.levels[level];
    const RowsOf &rows = rowsOf(all.site, command);
    if (value.column == 0) {
        if (!rows.counts)
            checkCounter(visit, element, command, value);
        return;
    }
    if (!rows.hasRows) {
        const int other = levelWith(visit, value.column);
        report(all, visit.tpl, element.span, other >= 0 ? "value-level" : "value-outside",
               shown + " is of the body of " + wordsOf(command.id) + ", which has no columns" +
                   (other >= 0
                        ? suggestion(visit, value)
                        : hintIncluded(visit, "; for a dollar sign write $$" + element.text)));
        return;
    }
    if (!hasColumn(rows, value.column))
        report(all, visit.tpl, element.span, "value-column",
               shown + " is column " + std::to_string(value.column) + ", but " +
                   (command.id == ID_ERRORMESSAGE
                        ? "error message has one"
                        : "the query has " + std::to_string(rows.columns.size())),
               noteColumns(visit, command));
}

void checkOwnRows(const Visit &visit, const Command &command)
{
    const size_t own = visit.levels.size();
    if (own == 0 || own >= MOST_LEVELS || visit.values[own])
        return;
    for (size_t level = own; level-- > 0;) {
        const Element *element = visit.values[level];
        const int column = element ? takeApart(element->text).column : 0;
        if (column == 0 || !hasColumn(rowsOf(visit.all.site, *visit.levels[level]), column) ||
            !hasColumn(rowsOf(visit.all.site, command), column))
            continue;
        report(visit.all, visit.tpl, element->span, "value-outer",
               "$" + element->text + " is of the rows around this body, which uses none of its " +
                   "own; did you mean " + nameOf({static_cast<int>(own), column}, own) + "?");
        return;
    }
}
