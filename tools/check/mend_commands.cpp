/* tools/check/mend_commands.cpp - tells what is wrong with a command that the interpreter complains
 * of, and how it is written: unknown words, arguments too many or too few, signs in names. */
#include "mending.h"

#include "grammar/commands.h"
#include "hints.h"
#include "host/ascii.h"
#include "tools/common/advice.h"

using std::string;
using std::string_view;

string loggedAs(const Begun &begun)
{
    const bool isMalformed = begun.token != F_UNDEF && commandOf(begun.token).stop[0];
    return isMalformed ? string("Too few arguments in <? ") + nameOf(commandOf(begun.token)).data()
                       : adviceOn(Message::SURPLUS).told;
}

// The command that is innermost around an offset, or null.
static const Begun *commandAround(const Template &tpl, uint32_t offset)
{
    const Begun *found = nullptr;
    for (const Begun &begun : tpl.begun)
        if (begun.words.at <= offset && offset < std::max(begun.end, begun.words.end))
            found = &begun;
    return found;
}

// Whether a command is wrong by itself, whatever stands around it.
static bool isMistake(const Begun &begun)
{
    return begun.token == F_UNDEF || (begun.fate != Fate::MADE && hasSurplus(begun));
}

// The mistake inside a command that has spoilt it, the innermost; itself where there is none.
static size_t findCause(const Template &tpl, size_t outer)
{
    for (size_t i = outer + 1;
         i < tpl.begun.size() && tpl.begun[i].parent >= static_cast<int32_t>(outer); ++i)
        if (isMistake(tpl.begun[i]))
            return findCause(tpl, i);
    return outer;
}

// "repeat [1 3]" and "repeat 1 3" with white space and brackets where they belong.
static Edit bracketEdit(string_view source, size_t at)
{
    const size_t begin = passBlanks(source, at);
    const size_t line = lineEnd(source, begin);
    const bool opens = begin < source.size() && (source[begin] == '[' || source[begin] == ']');
    size_t end = begin + opens;
    if (opens) {
        end = source.find_first_of("[]", end);
    } else {
        for (int i = 0; i < 2; ++i)
            end = source.find_first_of(" \t", passBlanks(source, end));
    }
    if (end == string_view::npos || end > line)
        return {0, 0, {}};
    const string inner(source.substr(begin + opens, end - begin - opens));
    const char first = opens ? source[begin] : '[';
    const char last = opens ? source[end] : ']';
    return {static_cast<uint32_t>(at), static_cast<uint32_t>(end + opens - at),
            string(" ") + first + " " + inner + " " + last + " "};
}

// The "<?" and the word behind it, or the sign.
static Span unknownWords(string_view source, const Begun &begun)
{
    const size_t at = passBlanks(source, begun.words.at + 2);
    const size_t end = at + std::max<size_t>(wordAt(source, at).size(), 1);
    return end > lineEnd(source, begun.words.at) ? begun.words
                                                 : Span{begun.words.at, static_cast<uint32_t>(end)};
}

static void mendUnknown(Mender *mender, const Complaint &complaint, const Begun &begun)
{
    const Template &tpl = *mender->tpl;
    Hint hint = hintUnknown(tpl, begun);
    const size_t at = passBlanks(tpl.source, begun.words.at + 2);
    if (wordAt(tpl.source, at) == "repeat")
        hint.edit = bracketEdit(tpl.source, at + 6);
    mender->mistakes.push_back(
        mistakeAt(tpl, unknownWords(tpl.source, begun), "syntax",
                  (complaint.id == Message::UNKNOWN_COMMAND ? complaint.text : "Unknown Cmd") +
                      ": " + hint.text));
    settle(mender, begun, hint.edit);
}

static string_view argumentText(const Template &tpl, const Begun &begun, size_t index)
{
    const size_t at = begun.argumentAts[index];
    const string_view rest = string_view(tpl.source).substr(at);
    return rest.substr(0, std::min(rest.find_first_of(" \t\r\n?"), rest.size()));
}

// What is known of an argument too many beyond that it is.
static string hintSurplus(const Template &tpl, const Begun &begun)
{
    const CommandDef &row = commandOf(begun.token);
    const string before = tpl.source.substr(
        begun.words.at, begun.argumentAts[mostArguments(begun.token)] - begun.words.at);
    for (size_t i = 0; i < begun.argumentAts.size(); ++i) {
        const string_view word = argumentText(tpl, begun, i);
        if ((row.id & CMDF_IF) && (word == "else" || word == "then" || word == "==" || word == "="))
            return "; no '" + string(word) + "' belongs there: if eq A B `then` `else`";
        if (row.tail == Tail::NAME && i == 0 && (word == "=" || word == ":="))
            return "; no = stands between them: setvariable var:NAME VALUE";
    }
    const size_t index = before.rfind('[');
    if (index != string::npos && before.find(']', index) == string::npos &&
        row.tail != Tail::ELEMENT)
        return "; no white space can stand in an index, which is one piece";
    return begun.quoteAts.empty() ? "; text with blanks needs quotes" : "";
}

// An argument too many: told where it begins.
static void mendSurplus(Mender *mender, const string &logged, const Begun &begun)
{
    const Template &tpl = *mender->tpl;
    if (begun.gluedAt) {
        tellGlued(mender, begun, "syntax", logged + ": ");
    } else {
        const size_t most = mostArguments(begun.token);
        const uint32_t at =
            begun.argumentAts.size() > most ? begun.argumentAts[most] : begun.words.at;
        Mistake mistake =
            mistakeAt(tpl, {at, at + 1}, "syntax",
                      logged + ": " + wordsAndNeeds(begun.token, true) +
                          (begun.argumentAts.size() > most ? hintSurplus(tpl, begun) : ""));
        noteBegin(&mistake, tpl, begun, at);
        if (begun.quoteAt && begun.quoteAt >= at)
            note(&mistake, tpl, begun.quoteAt, "the last quote opens here");
        mender->mistakes.push_back(std::move(mistake));
    }
    settle(mender, begun, {0, 0, {}});
}

// Too few arguments.
static void mendLack(Mender *mender, const Complaint &complaint, const Begun &begun)
{
    const Template &tpl = *mender->tpl;
    string text = complaint.text + ": " + wordsAndNeeds(begun.token, false);
    const CommandDef &row = commandOf(begun.token);
    const string_view source = tpl.source;
    const size_t bracket = source.find_first_of("[]", begun.words.end);
    const bool isGlued = bracket < begun.end && bracket > 0 &&
                         (!isBlank(source[bracket - 1]) || !isBlank(source[bracket + 1]));
    Edit meant = {0, 0, {}};
    if ((row.id == ID_REPEATINCL || row.id == ID_REPEATEXCL) && isGlued) {
        text += ", with white space around each bracket";
        meant = bracketEdit(source, begun.words.at + 2 + strlen("repeat"));
    }
    mender->mistakes.push_back(mistakeAt(tpl, begun.words, "syntax", std::move(text)));
    settle(mender, begun, meant);
}

bool mendName(Mender *mender, const Begun &begun)
{
    const Template &tpl = *mender->tpl;
    const uint32_t at = begun.words.end;
    if (!hasLongerName(tpl, begun))
        return false;
    const char sign = tpl.source[at];
    const size_t colon = tpl.source.rfind(':', at - 1);
    const string name = tpl.source.substr(colon + 1, at - colon - 1);
    size_t end = at;
    while (end < tpl.source.size() &&
           (isLetterOrDigit(tpl.source[end]) || strchr("_-.:+/", tpl.source[end]) ||
            (tpl.source[end] & 0x80)))
        ++end;
    const string whole = tpl.source.substr(colon + 1, end - colon - 1);
    mender->mistakes.push_back(mistakeAt(
        tpl, {static_cast<uint32_t>(colon) + 1, at + 1}, "variable-name",
        sign == '=' ? "white space, and no =, stands between the name " + name + " and its value"
                    : "names have letters and digits: this sets " + name + ", not " + whole));
    string joined;
    for (const char c : whole)
        if (isLetterOrDigit(c))
            joined += c;
    const auto from = static_cast<uint32_t>(colon) + 1;
    settle(mender, begun,
           sign == '=' ? Edit{at, 1, " "}
                       : Edit{from, static_cast<uint32_t>(end) - from, joined + " "});
    return true;
}

void mendComplaint(Mender *mender, const Complaint &complaint)
{
    const Template &tpl = *mender->tpl;
    if (complaint.begun < 0) {
        const Begun *around = commandAround(tpl, complaint.span.at);
        const bool isIndex = complaint.id == Message::EMPTY_INDEX;
        mender->mistakes.push_back(
            mistakeAt(tpl, complaint.span, "syntax",
                      complaint.text +
                          (isIndex ? ": write $var:NAME[INDEX]" : ": what is left of a command")));
        if (around)
            settle(mender, *around, {0, 0, {}});
        return;
    }
    const bool spoils = complaint.id == Message::SURPLUS || complaint.id == Message::MALFORMED;
    const auto index = static_cast<size_t>(complaint.begun);
    const Begun &begun = tpl.begun[findCause(tpl, index)];
    if (begun.token == F_UNDEF)
        return mendUnknown(mender, complaint, begun);
    if (mendName(mender, begun))
        return;
    const bool lacksQuote = begun.quoteOpen || begun.gluedAt;
    if (spoils && lacksQuote && begun.end && mendQuote(mender, begun))
        return;
    if (spoils && hasSurplus(begun))
        return mendSurplus(mender, loggedAs(begun), begun);
    mendLack(mender, complaint, begun);
}
