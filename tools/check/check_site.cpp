/* tools/check/check_site.cpp - rules about the site as a whole: includes, variables,
 * texts. */
#include <string.h>

#include <algorithm>
#include <set>

#include "grammar/commands.h"
#include "report.h"
#include "host/ascii.h"
#include "tools/common/hardcoded.h"
#include "tools/common/output.h"
#include "tools/common/po.h"
#include "tools/common/translation.h"

using std::string;
using std::string_view;

static string inQuotes(string_view text)
{
    return "'" + string(text) + "'";
}

// Where thousands of names are wrong, the first of them have a suggestion: more would take a time
// that is the square of their number.
static string didYouMean(Report &all, string_view word, const std::vector<string_view> &candidates)
{
    constexpr size_t most = 1000000; // pairs of words
    all.likened += candidates.size();
    const string_view near = all.likened > most ? "" : nearest(word, candidates);
    return near.empty() ? "" : "; did you mean " + inQuotes(near) + "?";
}

// ---- includes ----

namespace
{
enum class Mark : uint8_t { NEW, OPEN, DONE };

struct Includes {
    Report &all;
    std::map<string, Mark> marks;
    std::map<string, size_t> heights; // templates open at most below one, itself included
};
} // namespace

static void checkPath(Report &all, const PathUse &use)
{
    const bool include = use.command->id == ID_INCLUDE;
    const Span span = argumentSpan(*use.command, 0);
    const std::vector<string_view> files(all.site.files.begin(), all.site.files.end());
    if (use.dynamic)
        report(all, *use.tpl, span, include ? "include-dynamic" : "base64-dynamic",
               include ? "the path is not written in the template"
                       : "the path is not written in the template, and base64 opens any file");
    for (const string &path : use.paths) {
        const auto tpl = all.site.templates.find(path);
        const bool exists = fileExists(all.site, path);
        const bool read = !include || tpl != all.site.templates.end();
        if (exists && read && !(include && tpl->second->source.empty()))
            continue;
        const char *fault = read ? " is empty, which is left out" : " cannot be read";
        report(all, *use.tpl, span, include ? "include-missing" : "base64-missing",
               exists ? inQuotes(path) + fault
                      : "there is no " + inQuotes(path) + " below the document root" +
                            didYouMean(all, path, files));
    }
}

static void visitIncludes(Includes &includes, const string &path)
{
    includes.marks[path] = Mark::OPEN;
    size_t height = 0;
    for (const PathUse &use : includes.all.site.includes[path]) {
        for (const string &next : use.paths) {
            if (!includes.all.site.templates.contains(next))
                continue;
            if (includes.marks[next] == Mark::NEW)
                visitIncludes(includes, next);
            if (includes.marks[next] == Mark::OPEN) {
                reportAs(includes.all, use.conditional ? Grade::WARNING : Grade::ERROR, *use.tpl,
                         argumentSpan(*use.command, 0), "include-cycle",
                         next == path ? inQuotes(next) + " includes itself"
                                      : inQuotes(next) + " includes this template in turn");
                continue;
            }
            height = std::max(height, includes.heights[next]);
        }
    }
    includes.heights[path] = height + 1;
    includes.marks[path] = Mark::DONE;
}

// Follows the includes that go deepest down to the one that is refused.
static void reportDepth(Includes &includes, const string &page)
{
    const string *path = &page;
    std::vector<Note> notes;
    for (size_t open = 1; open <= MOST_OPEN; ++open) {
        const PathUse *deepest = nullptr;
        const string *next = nullptr;
        for (const PathUse &use : includes.all.site.includes[*path])
            for (const string &target : use.paths)
                if (target != *path && includes.heights[target] &&
                    (!next || includes.heights[target] > includes.heights[*next])) {
                    deepest = &use;
                    next = &target;
                }
        if (!deepest)
            return;
        if (open == MOST_OPEN) {
            std::reverse(notes.begin(), notes.end());
            report(includes.all, *deepest->tpl, argumentSpan(*deepest->command, 0), "include-depth",
                   inQuotes(*next) + " would be the 21st open template, and 20 are the most",
                   std::move(notes));
            return;
        }
        notes.push_back(noteAt(*deepest->tpl, deepest->command->span.at, "included from here"));
        path = next;
    }
}

void checkIncludes(Report &all)
{
    for (const auto &[path, uses] : all.site.includes)
        for (const PathUse &use : uses)
            checkPath(all, use);
    for (const PathUse &use : all.site.encoded)
        checkPath(all, use);
    Includes includes = {all, {}, {}};
    for (const string &page : all.site.pages)
        if (includes.marks[page] == Mark::NEW)
            visitIncludes(includes, page);
    for (const string &page : all.site.pages)
        if (includes.heights[page] > MOST_OPEN)
            reportDepth(includes, page);
}

// ---- variables ----

static std::vector<string_view> knownNames(const Site &site)
{
    std::vector<string_view> names(site.fromWeb.begin(), site.fromWeb.end());
    names.insert(names.end(), site.fromForms.begin(), site.fromForms.end());
    for (const auto &[key, variable] : site.variables)
        if (!variable.sets.empty())
            names.push_back(key);
    return names;
}

// An index that is a number, but not in the form in which elements are stored.
static string storedForm(string_view index)
{
    const string key = keyOfSet([&] {
        Command command;
        command.id = ID_SETARRAY;
        Element text;
        text.text = index;
        Argument argument;
        argument.elements.push_back(std::move(text));
        command.args.push_back(std::move(argument));
        return command;
    }());
    return key.substr(1, key.size() - 2);
}

// Of a read of "page" in $var:page_title: the sign and what follows it.
static string behindName(const VariableUse &use)
{
    const string_view source = use.tpl->source;
    size_t end = use.span.end;
    if (end >= source.size() || !strchr("_-.", source[end]) || source[use.span.end - 1] == ']')
        return "";
    while (end < source.size() && (isLetterOrDigit(source[end]) || strchr("_-", source[end])))
        ++end;
    return string(source.substr(use.span.end, end - use.span.end));
}

// A name with a sign that no name has. Returns false where there is none, or where the sign
// may be text.
static bool checkLongName(Report &all, const string &key, const VariableUse &use)
{
    const string rest = behindName(use);
    if (rest.size() < 2)
        return false;
    const string element = key + "[" + rest.substr(1) + "]";
    const string joined = key + rest.substr(1);
    const auto isKnown = [&](const string &name) {
        return !setsOf(all.site, name).empty() || isFromWeb(all.site, name);
    };
    const string meant = isKnown(element) ? element : isKnown(joined) ? joined : "";
    if (rest[0] != '_' && meant.empty())
        return false;
    report(all, *use.tpl, use.span, "variable-name",
           "names have letters and digits: this reads " + key + ", and '" + rest + "' is text" +
               (meant.empty() ? "" : "; did you mean $var:" + meant + "?"));
    return true;
}

// Whether a form or link sends it as a part of a name that no variable has, which is told.
static bool isInLongerName(const Site &site, string_view key)
{
    return std::any_of(site.fromForms.begin(), site.fromForms.end(), [&](const string &name) {
        const size_t at = name.find(key);
        return at != string::npos && name.find_first_of("-.") != string::npos &&
               (at == 0 || strchr("-.", name[at - 1])) &&
               (at + key.size() == name.size() || strchr("-.", name[at + key.size()]));
    });
}

static void checkReads(Report &all, const string &key, const Variable &variable,
                       const std::vector<string_view> &known)
{
    const size_t bracket = key.find('[');
    const string index =
        bracket == string::npos ? "" : key.substr(bracket + 1, key.size() - bracket - 2);
    const bool computed = index == "*";
    const string stored = index.empty() || computed ? index : storedForm(index);
    const bool unset = setsOf(all.site, key).empty() && !isFromWeb(all.site, key) &&
                       !all.site.meant.contains(key.substr(0, bracket));
    const string neverMatches =
        "[" + index + "] never matches: elements are stored as [" + stored + "]";
    for (const VariableUse &use : variable.reads) {
        if (stored != index) {
            report(all, *use.tpl, use.span, "variable-index", neverMatches);
        } else if (unset && !checkLongName(all, key, use) && !isInLongerName(all.site, key)) {
            const string shown = computed ? key.substr(0, bracket).append("[...]") : key;
            report(all, *use.tpl, use.span, "variable-unset",
                   "$var:" + shown + " is not set anywhere" + didYouMean(all, key, known));
        }
    }
}

void checkVariables(Report &all)
{
    const std::vector<string_view> known = knownNames(all.site);
    std::set<string> meant; // of sets that are misspelt, which is told there
    for (const auto &[set, read] : misspeltSets(all.site))
        meant.insert(read);
    for (const auto &[key, variable] : all.site.variables) {
        if (!variable.reads.empty() && !meant.contains(key))
            checkReads(all, key, variable, known);
        if (key == "lang" || !all.site.fromWeb.contains(key))
            continue;
        for (const VariableUse &use : variable.sets)
            if (use.command->id == ID_SETVARIABLE || use.command->id == ID_SETARRAY)
                report(all, *use.tpl, use.command->nameSpan, "variable-hidden",
                       "the web program sets " + key +
                           (use.command->id == ID_SETARRAY ? ", and this value replaces its own"
                                                           : ", and its value hides this one"));
    }
}

// ---- texts ----

static string listOf(const std::vector<string> &words)
{
    string list;
    for (size_t i = 0; i < words.size(); ++i)
        list += (i == 0 ? "" : i + 1 == words.size() ? " and " : ", ") + words[i];
    return list;
}

static void checkMissing(Report &all, const string &id, const std::vector<FieldUse> &uses,
                         const std::vector<string_view> &ids)
{
    std::vector<string> missing;
    for (const Language &language : all.site.languages)
        if (!language.texts.contains(id))
            missing.push_back(language.code);
    if (missing.empty())
        return;
    const bool everywhere = missing.size() == all.site.languages.size();
    for (const FieldUse &use : uses)
        reportAs(all, everywhere ? Grade::ERROR : Grade::WARNING, *use.tpl,
                 use.tpl->fields[use.field].span, "text-missing",
                 "no text " + inQuotes(id) + " in " + listOf(missing) +
                     (everywhere ? didYouMean(all, id, ids) : ""));
}

// What was probably meant by a "{?" that begins no field.
static string hintMalformed(string_view source, size_t at)
{
    size_t begin = at + 2;
    while (begin < source.size() && source[begin] == ' ')
        ++begin;
    size_t end = begin;
    while (end < source.size() && (isFieldByte(source[end]) || source[end] == '-'))
        ++end;
    const string id(source.substr(begin, end - begin));
    if (id.empty())
        return "";
    if (begin > at + 2)
        return ": no blank may stand behind {?";
    if (id.find('-') != string::npos)
        return ": an id has no '-' (letters, digits, '.', '_' and ':')";
    if (end < source.size() && source[end] == '}')
        return "; did you mean {?" + id + "?}?";
    return ": ?} must follow the id at once";
}

static void checkMalformed(Report &all, const Template &tpl, const std::set<string_view> &ids)
{
    const string &source = tpl.source;
    for (size_t at = 0; (at = source.find('{', at)) != string::npos; ++at) {
        const auto offset = static_cast<uint32_t>(at);
        if (source.compare(at, 2, "{?") == 0) {
            if (fieldsIn(tpl, {offset, offset + 1}).empty() && !inComment(tpl, offset))
                report(all, tpl, {offset, offset + 2}, "text-malformed",
                       "this begins no text field" + hintMalformed(source, at));
            continue;
        }
        size_t end = at + 1;
        end = idEnd(source, end);
        const string_view id = string_view(source).substr(at + 1, end - at - 1);
        const bool closed = source.compare(end, 2, "?}") == 0 ||
                            (source.compare(end, 1, "}") == 0 && id.find('.') != string_view::npos);
        if (closed && ids.contains(id) && !inComment(tpl, offset))
            report(all, tpl, {offset, static_cast<uint32_t>(end)}, "text-malformed",
                   "did you mean {?" + string(id) + "?}?");
    }
}

// Whether a comment in a language's file says that the web program uses the text.
static bool isUsedElsewhere(const Site &site, string_view id)
{
    return std::any_of(site.languages.begin(), site.languages.end(),
                       [id](const Language &language) { return isUsed(language.used, id); });
}

// Whether a template names a text otherwise than as a field, which is told already.
static bool isMeant(const Site &site, string_view id)
{
    return std::any_of(site.templates.begin(), site.templates.end(), [&](const auto &entry) {
        const string &file = fileOf(*entry.second);
        for (size_t at = 0; (at = file.find(id, at)) != string::npos; ++at) {
            const size_t end = at + id.size();
            if (at > 0 && (file[at - 1] == '{' || file[at - 1] == '?' || file[at - 1] == ' ') &&
                (end == file.size() || !isFieldByte(file[end])))
                return true;
        }
        return false;
    });
}

static void checkUnused(Report &all)
{
    std::set<string_view> meant;
    for (const auto &[id, uses] : all.site.fields) // by fields whose id is none
        if (!std::binary_search(all.site.textIds.begin(), all.site.textIds.end(), id))
            meant.insert(nearest(id, all.site.textIds));
    for (const string_view id : all.site.textIds) {
        if (all.site.fields.contains(id) || all.site.otherFields.contains(id) ||
            isUsedElsewhere(all.site, id) || meant.contains(id) || isMeant(all.site, id))
            continue;
        const auto language =
            std::find_if(all.site.languages.begin(), all.site.languages.end(),
                         [&](const Language &each) { return each.texts.contains(id); });
        reportLine(all, language->path, language->texts.find(id)->second.line, "text-unused",
                   "no template uses the text " + inQuotes(id));
    }
}

// One finding for each file: what follows its first mistake may come from that.
static void reportBroken(Report &all)
{
    Finding *first = nullptr;
    for (const TextFault &fault : all.site.textFaults) {
        const uint32_t line = std::max(static_cast<uint32_t>(fault.line), 1U);
        if (first && first->path == fault.path) {
            first->notes.push_back({fault.path, line, 1, 1, fault.text});
            continue;
        }
        reportLine(all, fault.path, line, "texts-broken",
                   fault.text + "; the language is left out");
        first = &all.findings.back();
    }
}

using Limits = decltype(JudgedTexts::limits);

// Finds the least maxlength of the forms' fields that a text is the value of, by its id.
static Limits limitsOf(const Site &site)
{
    Limits limits;
    for (const auto &entry : site.templates) {
        const Template &tpl = *entry.second;
        OutputVisitor visitor;
        visitor.field = [&](size_t index, const HtmlState &state) {
            const Field &field = tpl.fields[index];
            const size_t most = maxLengthAt(tpl.source, field.span, state);
            if (most == 0)
                return;
            size_t &least = limits[string(field.id)];
            least = least && least < most ? least : most;
        };
        followOutput(tpl, visitor);
    }
    return limits;
}

// Compares a text with its source text.
static void judgeTranslation(const Site &site, size_t language, const string &id,
                             const LanguageText &text, JudgedTexts *judged)
{
    std::set<string> flags = flagsOf(site, id, text);
    if (const auto limit = judged->limits.find(id); limit != judged->limits.end())
        limitLength(&flags, limit->second);
    if (text.text.empty())
        return;
    const string *source = sourceOf(site, site.languages[language], id, text);
    for (const TextFlaw &flaw : judgeText(text.text, source, flags))
        judged->judgements.push_back(
            {language, text.line, flaw.kind, "the text " + inQuotes(id) + " " + flaw.problem});
}

// Judges all texts, unless that has been done and no field's limit is another now.
static void judgeTranslations(Site &site)
{
    Limits limits = limitsOf(site);
    if (site.judged && site.judged->limits == limits)
        return;
    site.judged = {std::move(limits), {}};
    for (size_t i = 0; i < site.languages.size(); ++i)
        for (const auto &[id, text] : site.languages[i].texts)
            judgeTranslation(site, i, id, text, &*site.judged);
}

static void checkTranslations(Report &all)
{
    for (const Language &language : all.site.languages) {
        string named;
        if (isOtherLanguage(language.path, language.header, &named))
            reportLine(all, language.path, 1, TEXT_LANGUAGE,
                       "the header says Language: " + language.header +
                           ", but the file's name says " + named + ": correct one of them");
    }
    judgeTranslations(all.site);
    for (const TextJudgement &flaw : all.site.judged->judgements)
        reportLine(all, all.site.languages[flaw.language].path, flaw.line, flaw.kind, flaw.text);
}

static void checkHardCoded(Report &all)
{
    if (!isLookedFor(all.site.options, *findKind("text-hard-coded")))
        return;
    for (const auto &[path, tpl] : all.site.templates)
        for (const HardCoded &words : findHardCoded(*tpl))
            report(all, *tpl, words.span, "text-hard-coded",
                   (words.attribute.empty() ? "" : "in " + words.attribute + ": ") +
                       inQuotes(words.text.substr(0, 40)) +
                       " stands in the template: put a text field in its place");
}

void checkTexts(Report &all)
{
    checkHardCoded(all);
    constexpr size_t longest = 128; // bytes of an id
    reportBroken(all);
    checkTranslations(all);
    const std::vector<string_view> &ids = all.site.textIds;
    std::set<string_view> known(ids.begin(), ids.end());
    for (const auto &[id, uses] : all.site.fields) {
        known.insert(id);
        if (id.size() > longest)
            for (const FieldUse &use : uses)
                report(all, *use.tpl, use.tpl->fields[use.field].span, "limit",
                       "the id has " + std::to_string(id.size()) +
                           " characters; what is behind the "
                           "128th is ignored");
        else if (!all.site.languages.empty())
            checkMissing(all, id, uses, ids);
    }
    for (const auto &[path, tpl] : all.site.templates)
        checkMalformed(all, *tpl, known);
    if (all.site.options.templates.empty())
        checkUnused(all);
}
