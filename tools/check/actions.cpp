/* tools/check/actions.cpp - a rule for each kind of finding that can be mended for certain
 * proposes a change; it is offered only when the checker agrees that it mends. */
#include "actions.h"

#include <string.h>

#include <algorithm>

#include "grammar/commands.h"
#include "hints.h"
#include "lookup.h"
#include "report.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

namespace
{
// What a rule goes by.
struct Case {
    const Site &site;
    const Template &tpl;
    string_view file;
    Span span; // of the finding, in the file
};

struct Rule {
    const char *kind;
    std::optional<Mending> (*propose)(const Case &about);
};
} // namespace

static Mending replacing(size_t at, size_t end, string text)
{
    string title = "Replace by " + text;
    return {
        std::move(title), {static_cast<uint32_t>(at), static_cast<uint32_t>(end)}, std::move(text)};
}

static string applied(string_view file, const Mending &mending)
{
    return string(file.substr(0, mending.span.at)) + mending.text +
           string(file.substr(mending.span.end));
}

// ---- names that are nearly right ----

// Proposes a near name for the one at the finding's place, between begin and end.
static std::optional<Mending> proposeNear(const Case &about, string_view begin, string_view end,
                                          const std::vector<string_view> &candidates)
{
    const string_view text = about.file.substr(about.span.at, about.span.end - about.span.at);
    if (text.size() < begin.size() + end.size() || !text.starts_with(begin) || !text.ends_with(end))
        return {};
    const size_t length = text.size() - begin.size() - end.size();
    const string_view near = onlyNearest(text.substr(begin.size(), length), candidates);
    const size_t at = about.span.at + begin.size();
    if (near.empty())
        return {};
    return replacing(at, at + length, string(near));
}

// Names of variables, without elements; those that the web program has alone, or all.
static std::vector<string_view> namesOf(const Site &site, bool isFromWebAlone)
{
    std::vector<string_view> names(site.fromWeb.begin(), site.fromWeb.end());
    names.insert(names.end(), site.fromForms.begin(), site.fromForms.end());
    for (const auto &[key, variable] : site.variables)
        if (!isFromWebAlone && !variable.sets.empty())
            names.emplace_back(key);
    std::erase_if(names, [](string_view name) { return name.find('[') != string_view::npos; });
    return names;
}

static std::optional<Mending> proposeVariable(const Case &about)
{
    return proposeNear(about, "$var:", "", namesOf(about.site, false));
}

static std::optional<Mending> proposeParameter(const Case &about)
{
    return proposeNear(about, ":", "", namesOf(about.site, true));
}

static std::optional<Mending> proposeText(const Case &about)
{
    return proposeNear(about, "{?", "?}", about.site.textIds);
}

static std::optional<Mending> proposePath(const Case &about)
{
    return proposeNear(about, "", "", {about.site.files.begin(), about.site.files.end()});
}

static std::optional<Mending> proposeKind(const Case &about)
{
    return proposeNear(about, "", "", kindIds());
}

// ---- a command that suits its place ----

static std::optional<Mending> proposePrintjs(const Case &about)
{
    const Found found = findAt(about.site, about.tpl, about.span.at);
    if (!found.command || found.command->id != ID_ECHO)
        return {};
    const size_t at = about.file.find("echo", inFile(about.tpl, found.command->words.at));
    return replacing(at, at + 4, "printjs");
}

// ---- keywords ----

// Passes words whose blanks may be any white space. Returns where they end, npos when they are
// not there but for their case.
static size_t passWords(string_view file, size_t at, string_view words)
{
    for (const char c : words) {
        if (c == ' ' && passBlanks(file, at) == at)
            return string_view::npos;
        if (c == ' ')
            at = passBlanks(file, at);
        else if (lowered(file.substr(std::min(at, file.size()), 1)) != string(1, c))
            return string_view::npos;
        else
            ++at;
    }
    return at;
}

// In lower case, as keywords are.
static std::optional<Mending> proposeCase(string_view file, size_t at)
{
    for (const CommandDef &row : commandTable) {
        const size_t end = passWords(file, at, row.words);
        const size_t length = end == string_view::npos ? 0 : end - at;
        if (length > 0 && lowered(file.substr(at, length)) != file.substr(at, length))
            return replacing(at, end, lowered(file.substr(at, length)));
    }
    return {};
}

static std::optional<Mending> proposeKeyword(string_view file, size_t at)
{
    std::vector<string_view> words;
    for (const CommandDef &row : commandTable)
        words.push_back(string_view(row.words).substr(0, string_view(row.words).find(' ')));
    const string_view word = wordAt(file, at);
    const string_view near = isKeyword(word) ? string_view() : onlyNearest(word, words);
    if (near.empty())
        return {};
    return replacing(at, at + word.size(), string(near));
}

// Passes a bound that is a number, a value or a variable.
static size_t passBound(string_view file, size_t at)
{
    return std::min(file.find_first_not_of("$:0123456789abcdefghijklmnopqrstuvwxyz"
                                           "ABCDEFGHIJKLMNOPQRSTUVWXYZ+-",
                                           at),
                    file.size());
}

// With a blank on each side of both brackets.
static std::optional<Mending> proposeBrackets(string_view file, size_t begin)
{
    constexpr string_view word = "repeat";
    if (file.substr(begin, word.size()) != word)
        return {};
    size_t at = passBlanks(file, begin + word.size());
    string text(word);
    for (int side = 0; side < 2; ++side) {
        if (at >= file.size() || !strchr("[]", file[at]))
            return {};
        text += string(" ") + file[at];
        at = passBlanks(file, at + 1);
        for (int bound = 0; side == 0 && bound < 2; ++bound) {
            const size_t end = passBound(file, at);
            if (end == at)
                return {};
            text += " " + string(file.substr(at, end - at));
            at = passBlanks(file, end);
        }
    }
    Mending mending = replacing(begin, at, text + " ");
    mending.title = "Put blanks around the brackets";
    return mending;
}

// Whether a command comes about there in a text.
static bool isMade(const Template &tpl, string text, size_t at)
{
    Template read;
    readTemplate(&read, tpl.path, std::move(text), false);
    return std::any_of(read.begun.begin(), read.begun.end(), [&](const Begun &begun) {
        return begun.words.at == at && begun.fate == Fate::MADE;
    });
}

static std::optional<Mending> proposeSyntax(const Case &about)
{
    const size_t begin = about.file.rfind("<?", about.span.at);
    if (begin == string_view::npos)
        return {};
    const size_t at = passBlanks(about.file, begin + 2);
    for (const auto propose : {proposeCase, proposeKeyword, proposeBrackets})
        if (std::optional<Mending> mending = propose(about.file, at);
            mending && isMade(about.tpl, applied(about.file, *mending), begin))
            return mending;
    return {};
}

// ---- the whole ----

static constexpr Rule actionRules[] = {
    {"syntax", proposeSyntax},           {"gives-up", proposeSyntax},
    {"variable-unset", proposeVariable}, {"query-parameter", proposeParameter},
    {"text-missing", proposeText},       {"include-missing", proposePath},
    {"base64-missing", proposePath},     {"ignore-comment", proposeKind},
    {"escape-script", proposePrintjs},
};

// Whether the site is rid of a finding then. What stands behind it may bring others.
static bool isGone(Site &site, const Template &tpl, const Mending &mending, const Finding &finding)
{
    SiteOptions options = site.options;
    options.unsaved[tpl.path] = applied(fileOf(tpl), mending);
    size_t column = finding.column; // where it would be now, on the same line
    if (placeInFile(tpl, mending.span.end).column <= column)
        column += mending.text.size() + mending.span.at - mending.span.end;
    Site trial;
    string problem;
    const bool isLoaded = loadSite(std::move(options), &trial, &problem, {}, &site);
    std::vector<Finding> left;
    if (isLoaded)
        left = checkSite(trial);
    giveBack(&trial, &site);
    return isLoaded && std::none_of(left.begin(), left.end(), [&](const Finding &other) {
               return other.path == finding.path && other.line == finding.line &&
                      other.column == column && other.kind == finding.kind;
           });
}

std::optional<Mending> mendingOf(Site &site, const Template &tpl, const Finding &finding)
{
    const auto *rule =
        std::find_if(std::begin(actionRules), std::end(actionRules),
                     [&](const Rule &each) { return strcmp(each.kind, finding.kind->id) == 0; });
    if (rule == std::end(actionRules))
        return {};
    const Span span = {offsetOfUnits(tpl, finding.line - 1, finding.unit - 1),
                       offsetOfUnits(tpl, finding.endLine - 1, finding.endUnit - 1)};
    const string_view file = fileOf(tpl);
    const std::optional<Mending> mending = rule->propose({site, tpl, file, span});
    const bool isSound =
        mending && (rule->propose == proposeSyntax || isGone(site, tpl, *mending, finding));
    return isSound ? mending : std::nullopt;
}
