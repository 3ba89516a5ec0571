/* tools/check/check_commands.cpp - rules about one command and what stands around it:
 * numbered values, comparisons, queries, limits, texts in arguments. */
#include <string.h>

#include <algorithm>
#include <array>
#include <utility>

#include "grammar/commands.h"
#include "base/bounds.h"
#include "blame.h"
#include "hints.h"
#include "report.h"
#include "schema.h"
#include "host/ascii.h"
#include "tools/common/placed.h"
#include "tools/common/translation.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_BODIES = MAX_CMD_DEPTH;
static constexpr size_t MOST_LEVELS = 10; // that a digit can name
static constexpr size_t MOST_COLUMNS = ORV_MAX_COLUMNS;
static constexpr size_t MOST_ARGUMENT = ARG_MAXLEN + ARG_STEP - 1;

namespace
{
struct Visit {
    Report &all;
    const Template &tpl;
    Levels levels;
    bool direct = true; // output goes to the page, not into an argument
    // The first value of each level, in the body that is being visited.
    std::array<const Element *, MOST_BODIES> values = {};
};
} // namespace

static void visitCommand(Visit &visit, const Command &command);

// ---- texts in arguments ----

static string excerpt(string_view text)
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

// ---- numbered values ----

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

// The word that a value's letter begins, such as "theme" of $theme; empty for a value.
static string_view wordOfValue(const Visit &visit, const Element &element)
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

static void checkValue(Visit &visit, const Element &element)
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

// ---- queries ----

// The place in the templates of an offset in an assembled text.
static Note placeInText(const Assembled &text, size_t offset, const Template **tpl, Span *span)
{
    const TextPiece *piece = nullptr;
    for (const TextPiece &candidate : text.pieces)
        if (candidate.at <= offset || !piece)
            piece = &candidate;
    if (!piece)
        return {};
    *tpl = piece->tpl;
    const auto into = static_cast<uint32_t>(offset - std::min(piece->at, offset));
    span->at = piece->hole ? piece->span.at : std::min(piece->span.at + into, piece->span.end);
    span->end = std::min(span->at + 1, std::max(piece->span.end, span->at));
    return noteAt(*piece->tpl, span->at, "");
}

static std::vector<Note> usedHere(const Visit &visit, const Template *tpl, const Command &command)
{
    if (tpl == &visit.tpl && !command.args.empty())
        return {};
    return {noteAt(visit.tpl, command.span.at, "in the query here")};
}

static std::vector<string_view> parameterNames(const Site &site)
{
    std::vector<string_view> names(site.fromWeb.begin(), site.fromWeb.end());
    names.insert(names.end(), site.fromForms.begin(), site.fromForms.end());
    return names;
}

static const Element *onlyElement(const Argument *argument)
{
    return argument && argument->elements.size() == 1 ? argument->elements.data() : nullptr;
}

// The variable of the web program whose value a template's variable has, by a set that
// consists of it alone; empty for none.
static string_view originOf(const Site &site, string_view name)
{
    for (const VariableUse *use : setsOf(site, name)) {
        const Element *element = onlyElement(use->value);
        while (element && element->command && element->command->id == ID_ECHO &&
               bodyIndex(*element->command) == 0)
            element = onlyElement(element->command->args.data());
        if (element && element->type == ELEM_GETVAR && isFromWeb(site, element->text))
            return element->text;
    }
    return "";
}

static void checkParameters(const Visit &visit, const Command &command, const Assembled &text,
                            const std::vector<SqlParameter> &parameters)
{
    for (const SqlParameter &parameter : parameters) {
        const Template *tpl = &visit.tpl;
        Span span = command.words;
        placeInText(text, parameter.at, &tpl, &span);
        span.end = std::max(span.end, span.at + static_cast<uint32_t>(parameter.name.size()));
        const string_view name = string_view(parameter.name).substr(1);
        if (parameter.name[0] != ':') {
            report(visit.all, *tpl, span, "query-parameter",
                   "only parameters of the form :NAME have a value, not " + parameter.name);
        } else if (!isFromWeb(visit.all.site, name)) {
            const auto sets = setsOf(visit.all.site, name);
            string_view near = originOf(visit.all.site, name);
            if (near.empty())
                near = nearest(name, parameterNames(visit.all.site));
            const string hint = !near.empty() ? "; did you mean ':" + string(near) + "'?"
                                : !sets.empty()
                                    ? "; a number can stand in the query as $var:" + string(name)
                                    : "";
            std::vector<Note> notes;
            if (!sets.empty())
                notes = {noteAt(*sets[0]->tpl, sets[0]->command->nameSpan.at, "it is set here")};
            report(visit.all, *tpl, span, "query-parameter",
                   (sets.empty()
                        ? "no variable " + string(name) + " is set anywhere, so "
                        : "only templates set " + string(name) +
                              ", and parameters stand for what the web program sets, so ") +
                       parameter.name + " is NULL" + hint,
                   std::move(notes));
        }
    }
}

// What to do about a value that is a piece of SQL. Only what the web program sets has a
// parameter; a number needs none.
static string insteadOfPiece(const Site &site, const TextPiece &piece)
{
    const Element *element = piece.element;
    if (element->type == ELEM_GETVAR && isFromWeb(site, element->text))
        return "write the parameter :" + element->text +
               (piece.inString ? " without quotes around it" : "") + " instead";
    if (element->type == ELEM_NUMVAR)
        return "join both queries in one, or let the outer one make a number of it, "
               "cast(... as integer)";
    if (const string_view origin =
            element->type == ELEM_GETVAR ? originOf(site, element->text) : string_view();
        !origin.empty())
        return "write the parameter :" + string(origin) + ", whose value it has";
    return "no parameter stands for it: join the queries in one, or let the one that it comes from "
           "make a number of it, cast(... as integer)";
}

static void checkInjection(const Visit &visit, const Assembled &text)
{
    for (const TextPiece &piece : text.pieces) {
        if (!piece.hole || !piece.holds)
            continue;
        const string name = piece.tpl->source.substr(piece.span.at, piece.span.end - piece.span.at);
        report(visit.all, *piece.tpl, piece.span, "query-injection",
               (name.size() < 40 ? name : "this value") + " is a piece of SQL; " +
                   insteadOfPiece(visit.all.site, piece),
               piece.element->type >= ELEM_GETARRAY || piece.element->type == ELEM_GETVAR
                   ? blameFor(visit.all.site, keyOfRead(*piece.element))
                   : std::vector<Note>());
    }
}

// Texts that end the string of SQL that they stand in.
static void checkTextsIn(const Visit &visit, const Assembled &text)
{
    for (const TextPiece &piece : text.pieces) {
        const FieldRange fields = fieldsIn(*piece.tpl, piece.span);
        if (!piece.hole || !piece.inString || fields.empty() ||
            piece.tpl->fields[fields.first].span.at != piece.span.at)
            continue;
        string codes;
        string shown;
        std::vector<Note> notes;
        for (const Language &language : visit.all.site.languages) {
            const auto found = language.texts.find(piece.tpl->fields[fields.first].id);
            if (found == language.texts.end() || found->second.text.find('\'') == string::npos)
                continue;
            codes += (codes.empty() ? "" : ", ") + language.code;
            shown = excerpt(found->second.text);
            notes.push_back(
                {language.path, std::max(found->second.line, 1U), 1, 1, "the text is here"});
        }
        codes += " ends the string of the query; write two quotes for one in it: " + shown;
        if (!notes.empty())
            report(visit.all, *piece.tpl, piece.span, "text-breaks", "the text of " + codes,
                   std::move(notes));
    }
}

// A character that nobody sees is told by itself.
static bool hasInvisible(string_view sql)
{
    for (size_t i = 0; i < sql.size(); ++i)
        if (invisibleAt(sql, i) && !inSqlString(sql.substr(0, i)))
            return true;
    return false;
}

// The name of a parameter that a string of SQL consists of, with % around it or not.
static string_view quotedParameter(string_view inner)
{
    if (inner.starts_with("%"))
        inner.remove_prefix(1);
    if (inner.ends_with("%"))
        inner.remove_suffix(1);
    const bool isName = inner.size() > 1 && inner[0] == ':' && isLetter(inner[1]) &&
                        std::all_of(inner.begin() + 1, inner.end(),
                                    [](char c) { return isLetterOrDigit(c) || c == '_'; });
    return isName ? inner : string_view();
}

// Parameters in quotes, which are texts. Returns whether there are any.
static bool checkQuotedParameters(const Visit &visit, const Command &command, const Assembled &text)
{
    bool found = false;
    for (const SqlPiece &piece : scanSql(text.text)) {
        const size_t length = piece.end - piece.at;
        if ((piece.token != SqlToken::STRING && piece.token != SqlToken::NAME) || length < 4)
            continue;
        const string inner = text.text.substr(piece.at + 1, length - 2);
        const string name(quotedParameter(inner));
        if (name.empty())
            continue;
        const Template *tpl = &visit.tpl;
        Span span = command.words;
        placeInText(text, piece.at, &tpl, &span);
        span.end = span.at + static_cast<uint32_t>(length);
        string told = "in quotes ";
        told.append(name).append(" is a text, and no parameter: write ");
        told.append(inner[0] == '%' ? "'%' || " : "").append(name);
        told.append(inner.back() == '%' ? " || '%'" : "");
        report(visit.all, *tpl, span, "query-parameter", std::move(told),
               usedHere(visit, tpl, command));
        found = true;
    }
    return found;
}

// What was meant by a name that SQLite does not know, "no such column: d.nmae".
static string hintName(const Site &site, const string &sql, const string &error)
{
    const bool isColumn = error.starts_with("no such column: ");
    if (!isColumn && !error.starts_with("no such table: "))
        return "";
    const std::vector<Table> schema = readSchema(site.database->db);
    std::vector<string_view> names;
    if (isColumn) {
        for (const NamedTable &named : tablesIn(sql, schema))
            for (const TableColumn &column : named.table->columns)
                names.push_back(column.name);
    } else {
        for (const Table &table : schema)
            names.push_back(table.name);
    }
    const string_view name = string_view(error).substr(error.find_last_of(" .") + 1);
    const string_view near = name.size() > 2 ? nearest(name, names) : string_view();
    return near.empty() ? "" : "; did you mean '" + string(near) + "'?";
}

// isRound: one of several rounds of a loop, of which another is sound.
static void checkAnswer(const Visit &visit, const Command &command, const Assembled &text,
                        bool isRound)
{
    Report &all = visit.all;
    const SqlAnswer &answer = prepareQuery(all.site.database.get(), text.text);
    checkParameters(visit, command, text, answer.parameters);
    const Template *tpl = &visit.tpl;
    Span span = command.words;
    if (answer.writes) {
        placeInText(text, answer.writesAt, &tpl, &span);
        report(all, *tpl, span, "query-writes", "the statement changes the database",
               usedHere(visit, tpl, command));
    }
    const bool isTold = checkQuotedParameters(visit, command, text) || hasInvisible(text.text);
    if (!answer.error.empty() && !hasUnknown(text) && !answer.writes && !isTold && !isRound) {
        placeInText(text, answer.errorAt, &tpl, &span);
        report(all, *tpl, span, "query-sql",
               answer.error + hintName(all.site, text.text, answer.error),
               usedHere(visit, tpl, command));
    }
    if (answer.columns.size() > MOST_COLUMNS) {
        placeInText(text, 0, &tpl, &span);
        report(all, *tpl, span, "limit",
               "the query has " + std::to_string(answer.columns.size()) +
                   " columns; those behind the 35th are lost");
    }
}

static void checkQuery(const Visit &visit, const Command &command)
{
    const bool sql = visit.all.site.database != nullptr;
    const std::vector<Assembled> texts =
        queriesOf(visit.all.site, visit.tpl, command, visit.levels);
    const bool anySound =
        sql && std::any_of(texts.begin(), texts.end(), [&](const Assembled &text) {
            return text.isOneOf &&
                   prepareQuery(visit.all.site.database.get(), text.text).error.empty();
        });
    for (const Assembled &text : texts) {
        if (sql || looksLikeSql(text.text)) {
            checkInjection(visit, text);
            checkTextsIn(visit, text);
        }
        if (sql)
            checkAnswer(visit, command, text, text.isOneOf && anySound);
        else if (looksLikeSql(text.text)) {
            SqlAnswer answer;
            for (const SqlPiece &piece : scanSql(text.text))
                if (piece.token == SqlToken::PARAMETER)
                    answer.parameters.push_back(
                        {text.text.substr(piece.at, piece.end - piece.at), piece.at});
            checkParameters(visit, command, text, answer.parameters);
            checkQuotedParameters(visit, command, text);
        }
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

static Span spanOf(const Command &command, size_t index)
{
    const auto &elements = command.args[index].elements;
    return elements.empty() ? command.words
                            : Span{elements.front().span.at, elements.back().span.end};
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

// "$0+1" as the index of an element that is set: a text.
static void checkSetIndex(const Visit &visit, const Command &command)
{
    if (command.args.empty())
        return;
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

// A body that prints a row for each of its own, and only of the rows around it: mostly a level
// was forgotten.
static void checkOwnRows(const Visit &visit, const Command &command)
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
        report(visit.all, visit.tpl, spanOf(command, 0), "limit",
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
