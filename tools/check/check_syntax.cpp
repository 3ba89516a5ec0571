/* tools/check/check_syntax.cpp - what the scanner and the grammar complain about, and
 * what was probably meant. */
#include <algorithm>

#include "grammar/commands.h"
#include "report.h"

using std::string;
using std::string_view;

// The words that can follow "<?", a command's first word each.
static const std::vector<string_view> &keywords()
{
    static const std::vector<string_view> words = [] {
        std::vector<string_view> list;
        for (const CommandDef &row : commandTable) {
            const string_view all = row.words;
            list.push_back(all.substr(0, all.find(' ')));
            if (all.substr(0, 3) == "if ")
                list.push_back(all.substr(3));
        }
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        return list;
    }();
    return words;
}

static bool isKeyword(string_view word)
{
    return std::binary_search(keywords().begin(), keywords().end(), word);
}

static string lowered(string_view text)
{
    string copy(text);
    for (char &c : copy)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return copy;
}

static string_view wordAt(string_view source, size_t at)
{
    size_t end = at;
    while (end < source.size() && (isalnum(static_cast<unsigned char>(source[end])) ||
                                   source[end] == '_' || source[end] == '-'))
        ++end;
    return source.substr(at, end - at);
}

static size_t passBlanks(string_view source, size_t at)
{
    return std::min(source.find_first_not_of(" \t\r\n", at), source.size());
}

// What has to follow a keyword that stands there by itself.
static string hintBehind(string_view word, string_view next)
{
    if (word == "if") {
        const string_view near =
            nearest(next, {"eq", "neq", "gt", "gte", "lt", "lte", "and", "or"});
        return "one of eq, neq, gt, gte, lt, lte, and, or must follow if" +
               (near.empty() ? "" : "; did you mean 'if " + string(near) + "'?");
    }
    if (word == "repeat")
        return "a bracket must follow repeat, [ or ], with white space around it: repeat [ 1 3 ]";
    if (word == "calc")
        return "an operator must follow calc, one of + - * /, with white space around it";
    if (word == "error")
        return "it is 'error found ' or 'error message ', with white space behind it";
    if (word == "setvariable" || word == "setvariableonce")
        return "var: and a name of letters and digits must follow " + string(word);
    return "white space must follow " + string(word);
}

static string hintUnknown(const Template &tpl, const Begun &begun)
{
    const string_view source = tpl.source;
    const size_t at = passBlanks(source, begun.words.at + 2);
    const string_view word = wordAt(source, at);
    const string_view next = wordAt(source, passBlanks(source, at + word.size()));
    if (isKeyword(word))
        return hintBehind(word, next);
    if (isKeyword(lowered(word)))
        return "keywords are written in lower case: " + lowered(word);
    const string_view near = nearest(lowered(word), keywords());
    if (!near.empty())
        return "did you mean '" + string(near) + "'?";
    for (const string_view keyword : keywords()) // "echo$var:x" and "echox"
        if (keyword.size() > 3 && word.substr(0, keyword.size()) == keyword)
            return "white space must follow " + string(keyword);
    return "no command begins like this, and <? comes out as page text";
}

static const char *needsOf(int token)
{
    const CommandDef &row = commandOf(token);
    if (row.id & CMDF_IF)
        return "two values to compare, then what to print, and perhaps what to print otherwise";
    if (row.id & CMDF_CALC)
        return "two numbers";
    if (row.id == ID_REPEATINCL || row.id == ID_REPEATEXCL)
        return "two bounds, a bracket and a body: repeat [ 1 3 ] 'body'";
    if (row.tail == Tail::ELEMENT)
        return "an index in brackets, white space and one value";
    return "an argument";
}

static string wordsAndNeeds(int token, bool surplus)
{
    if (token == F_ERRORFOUND)
        return "error found takes no argument";
    return wordsOfToken(token) + (surplus ? " takes " : " needs ") + needsOf(token) +
           (surplus ? ", and no more" : "");
}

// Notes on where the argument too many begins, and where a quote opened.
static std::vector<Note> notesOn(const Template &tpl, const Begun &begun, bool surplus)
{
    std::vector<Note> notes;
    if (begun.token == F_UNDEF)
        return notes;
    const size_t most = mostArguments(begun.token);
    if (surplus && begun.argumentAts.size() > most)
        notes.push_back(noteAt(tpl, begun.argumentAts[most],
                               "this begins an argument too many; text with blanks needs quotes"));
    if (begun.quoteAt && (surplus || begun.quoteOpen))
        notes.push_back(noteAt(tpl, begun.quoteAt, "the last quote opens here"));
    return notes;
}

static bool isInside(const Template &tpl, int32_t begun, Fate fate)
{
    for (begun = tpl.begun[static_cast<size_t>(begun)].parent; begun >= 0;
         begun = tpl.begun[static_cast<size_t>(begun)].parent)
        if (tpl.begun[static_cast<size_t>(begun)].fate == fate)
            return true;
    return false;
}

// Whether a command is wrong by itself, whatever stands around it.
static bool isMistake(const Begun &begun)
{
    return begun.token == F_UNDEF || (begun.fate != Fate::MADE && hasSurplus(begun));
}

// The first command inside another, which stand behind it in a row, that fits; null for none.
template <typename Fits>
static const Begun *findInside(const Template &tpl, size_t outer, Fits fits)
{
    for (size_t i = outer + 1;
         i < tpl.begun.size() && tpl.begun[i].parent >= static_cast<int32_t>(outer); ++i)
        if (fits(tpl.begun[i]))
            return &tpl.begun[i];
    return nullptr;
}

static void reportComplaint(Report &all, const Template &tpl, const Complaint &complaint)
{
    const Begun *begun =
        complaint.begun >= 0 ? &tpl.begun[static_cast<size_t>(complaint.begun)] : nullptr;
    string shown = complaint.text;
    std::vector<Note> notes;
    if (begun && begun->token == F_UNDEF) {
        shown += ": " + hintUnknown(tpl, *begun);
    } else if (begun && complaint.id == Message::ENDS_INSIDE) {
        shown += ": " + wordsOfToken(begun->token) + " has no ?>";
        if (begun->quoteAt)
            notes.push_back(noteAt(tpl, begun->quoteAt, "the quote that opens here is not closed"));
    } else if (begun) {
        const bool surplus = hasSurplus(*begun);
        const string words = wordsOfToken(begun->token);
        const Begun *inside =
            surplus ? nullptr : findInside(tpl, static_cast<size_t>(complaint.begun), isMistake);
        if (inside) {
            shown += ": " + words + " is taken along by the mistake inside it";
            notes.push_back(noteAt(tpl, inside->words.at, "the mistake is here"));
        } else if (complaint.id == Message::SURPLUS && !surplus) {
            shown += ": " + words + " is taken along by the mistake in front of it";
        } else {
            shown += ": " + wordsAndNeeds(begun->token, surplus);
            notes = notesOn(tpl, *begun, surplus);
        }
    } else if (complaint.id == Message::EMPTY_INDEX) {
        shown += ": write $var:NAME[INDEX]";
    } else if (complaint.id == Message::SURPLUS) {
        shown += ": what is left of a command that was dropped";
    }
    report(all, tpl, complaint.span, "syntax", std::move(shown), std::move(notes));
}

static bool isBlamed(const Begun &begun)
{
    return begun.fate == Fate::BLAMED;
}

static void checkBegun(Report &all, const Template &tpl)
{
    const Begun *last = nullptr; // mistake in front
    for (size_t i = 0; i < tpl.begun.size(); ++i) {
        const Begun &begun = tpl.begun[i];
        const auto index = static_cast<int32_t>(i);
        if (isBlamed(begun))
            last = &begun;
        if (begun.quoteOpen && begun.fate == Fate::MADE)
            report(all, tpl, {begun.quoteAt, begun.quoteAt + 1}, "quote-open",
                   wordsOfToken(begun.token) +
                       " ends inside the quote that opens here: no quote can hold ?>",
                   {noteAt(tpl, begun.end - 2, "the command ends here")});
        // Recovery has named the command around it alone.
        if (begun.fate == Fate::LOST && begun.token != F_UNDEF && hasSurplus(begun) &&
            isInside(tpl, index, Fate::BLAMED))
            report(all, tpl, begun.words, "syntax", wordsAndNeeds(begun.token, true),
                   notesOn(tpl, begun, true));
        if (begun.fate != Fate::LOST || begun.token == F_UNDEF || index == tpl.gaveUpAt ||
            isInside(tpl, index, Fate::BLAMED) || isInside(tpl, index, Fate::LOST))
            continue;
        std::vector<Note> notes;
        const Begun *inside = findInside(tpl, i, isBlamed);
        if (const Begun *cause = inside ? inside : last)
            notes.push_back(noteAt(tpl, cause->words.at, "by the mistake here"));
        report(all, tpl, begun.words, "swallowed", wordsOfToken(begun.token) + " is lost",
               std::move(notes));
    }
}

void checkSyntax(Report &all)
{
    for (const auto &[path, tpl] : all.site.templates) {
        for (const Complaint &complaint : tpl->complaints)
            reportComplaint(all, *tpl, complaint);
        if (tpl->gaveUpAt >= 0 && !tpl->exhausted) {
            const Begun &begun = tpl->begun[static_cast<size_t>(tpl->gaveUpAt)];
            const bool surplus = begun.token != F_UNDEF && hasSurplus(begun);
            report(all, *tpl, begun.words, "gives-up",
                   surplus && !commandOf(begun.token).stop[0]
                       ? "the run ends here, and the rest of the page is lost: " +
                             wordsOfToken(begun.token) +
                             " has too many arguments, and nothing stands in front of it"
                       : "the run ends here: the command, or one inside it, is malformed, and "
                         "nothing follows that ends it",
                   notesOn(*tpl, begun, surplus));
        }
        if (tpl->exhausted)
            report(all, *tpl,
                   tpl->gaveUpAt < 0 ? Span{}
                                     : tpl->begun[static_cast<size_t>(tpl->gaveUpAt)].words,
                   "limit", "an argument has too many pieces: the run ends there");
        for (const uint32_t at : tpl->strayQuotes)
            report(all, *tpl, {at, at + 1}, "variable-index",
                   "a quote cannot stand in an index: it goes to the standard output of the web "
                   "program");
        checkBegun(all, *tpl);
    }
}
