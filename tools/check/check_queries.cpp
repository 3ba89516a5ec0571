/* tools/check/check_queries.cpp - rules about queries: what the database makes of them, their
 * parameters, and pieces of them that anybody can write. */
#include <algorithm>

#include "grammar/commands.h"
#include "blame.h"
#include "hints.h"
#include "schema.h"
#include "visit.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_COLUMNS = ORV_MAX_COLUMNS;

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

// What was meant by a name that SQLite does not know, "no such column: d.n".
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

void checkQuery(const Visit &visit, const Command &command)
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
