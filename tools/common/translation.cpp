/* tools/common/translation.cpp - judges translations. Each kind of fault is a function of the
 * text and its source; all of them are in one table. Where a text could be meant so, nothing
 * is said. */
#include "translation.h"

#include "entities.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "host/encoding.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

// A judgement in progress.
struct Judgement {
    string_view text;
    const string *source; // null without one
    const std::set<string> &flags;
    std::vector<TextFlaw> faults;
};

static bool isSmall(char c)
{
    return c >= 'a' && c <= 'z';
}

// Returns the byte at pos, 0 behind the end.
static char at(string_view text, size_t pos)
{
    return pos < text.size() ? text[pos] : '\0';
}

static void add(Judgement *judgement, const char *kind, string problem)
{
    judgement->faults.push_back({kind, std::move(problem)});
}

// ---- references and placeholders ----

// What stands for a value: those with a name or a number of their own, and those that take
// the next value, in their order.
struct Placeholders {
    std::set<string> named;
    std::vector<string> inTurn;
};

// Sums of money are no references.
size_t referenceLength(string_view rest)
{
    static constexpr string_view VARIABLE = "$var:";
    if (rest.starts_with(VARIABLE)) {
        const size_t end = skip(rest, VARIABLE.size(), isLetterOrDigit);
        const size_t index = at(rest, end) == '[' ? rest.find(']', end) : string_view::npos;
        if (end > VARIABLE.size())
            return index == string_view::npos ? end : index + 1;
    }
    const size_t digits = skip(rest, 1, isDigit);
    const bool isMoney =
        digits > 3 || (digits > 1 && (at(rest, digits) == '.' || at(rest, digits) == ',') &&
                       isDigit(at(rest, digits + 1)));
    if (isMoney || !(isDigit(at(rest, 1)) || isSmall(at(rest, 1))))
        return 0;
    return isDigit(rest[1]) && (isDigit(at(rest, 2)) || isSmall(at(rest, 2))) ? 3 : 2;
}

// Returns the length of a printf conversion at a "%", or of a numbered argument such as "%1", 0
// without one. isNamed: out, it says itself which value it takes.
static size_t conversionLength(string_view rest, bool *isNamed)
{
    static constexpr string_view CONVERSIONS = "diouxXeEfFgGaAcspn";
    size_t pos = 1;
    *isNamed = false;
    if (at(rest, pos) == '(') {
        pos = rest.find(')');
        *isNamed = true;
        return pos != string_view::npos && isLetter(at(rest, pos + 1)) ? pos + 2 : 0;
    }
    const size_t number = skip(rest, pos, isDigit);
    if (number > pos && at(rest, number) == '$') {
        *isNamed = true;
        pos = number + 1;
    }
    pos = skip(rest, pos, [](char c) { return c == '-' || c == '+' || c == '#' || c == '0'; });
    pos = skip(rest, pos, isDigit);
    if (at(rest, pos) == '.')
        pos = skip(rest, pos + 1, isDigit);
    pos =
        skip(rest, pos, [](char c) { return string_view("hlLqjzt").find(c) != string_view::npos; });
    if (pos < rest.size() && CONVERSIONS.find(rest[pos]) != string_view::npos)
        return pos + 1;
    *isNamed = true;
    return number == 2 && !isLetter(at(rest, number)) ? number : 0;
}

// Returns the length of what stands for a value at pos of a text, 0 for nothing. isNamed: out, it
// says itself which value it takes.
static size_t placeholderLength(string_view text, size_t pos, bool *isNamed)
{
    const string_view rest = text.substr(pos);
    const char before = pos > 0 ? text[pos - 1] : ' ';
    const auto isInBraces = [](char c) {
        return isLetter(c) || isDigit(c) || string_view("_.:-").find(c) != string_view::npos;
    };
    *isNamed = true;
    if (rest[0] == '$')
        return referenceLength(rest);
    if (rest[0] == '%' && !isDigit(before) && before != '/' && before != '=')
        return conversionLength(rest, isNamed);
    const size_t end = skip(rest, 1, isInBraces);
    return rest[0] == '{' && end > 1 && at(rest, end) == '}' ? end + 1 : 0;
}

static Placeholders placeholdersOf(string_view text)
{
    Placeholders found;
    for (size_t pos = 0; pos < text.size();) {
        const string_view rest = text.substr(pos);
        bool isNamed = true;
        const bool isSign = rest.starts_with("$$") || rest.starts_with("%%");
        const size_t length = isSign ? 0 : placeholderLength(text, pos, &isNamed);
        if (length && isNamed)
            found.named.emplace(rest.substr(0, length));
        else if (length)
            found.inTurn.emplace_back(rest.substr(0, length));
        pos += isSign ? 2 : std::max<size_t>(length, 1);
    }
    return found;
}

std::set<string> referencesOf(string_view text)
{
    std::set<string> named;
    if (text.find('$') != string_view::npos)
        named = placeholdersOf(text).named;
    std::erase_if(named, [](const string &name) { return name[0] != '$'; });
    return named;
}

std::set<string> meantReferences(string_view text, const string *source,
                                 const std::set<string> &flags)
{
    if (source)
        return referencesOf(*source);
    return flags.contains("text-references") ? referencesOf(text) : std::set<string>();
}

// Whether a reference that is lost was a sum of money, which other languages write as "5 $".
static bool isMoneyIn(string_view text, const string &reference)
{
    const string number = reference.substr(1);
    for (size_t pos = text.find(number); pos != string_view::npos;
         pos = text.find(number, pos + 1)) {
        string_view rest = text.substr(pos + number.size());
        for (const char *blank : {" ", "\u00a0", "\u202f", "&nbsp;"})
            if (rest.starts_with(blank))
                rest.remove_prefix(string_view(blank).size());
        if (rest.starts_with('$') && referenceLength(rest) == 0)
            return true;
    }
    return false;
}

static std::vector<string> without(std::vector<string> all, const std::vector<string> &others)
{
    for (const string &other : others) {
        const auto found = std::find(all.begin(), all.end(), other);
        if (found != all.end())
            all.erase(found);
    }
    return all;
}

static void judgeReferences(Judgement *judgement)
{
    if (!judgement->source)
        return;
    const Placeholders wanted = placeholdersOf(*judgement->source);
    const Placeholders had = placeholdersOf(judgement->text);
    std::vector<string> lost = without(wanted.inTurn, had.inTurn);
    std::vector<string> added = without(had.inTurn, wanted.inTurn);
    std::set_difference(wanted.named.begin(), wanted.named.end(), had.named.begin(),
                        had.named.end(), std::back_inserter(lost));
    std::set_difference(had.named.begin(), had.named.end(), wanted.named.begin(),
                        wanted.named.end(), std::back_inserter(added));
    std::erase_if(lost, [judgement](const string &reference) {
        return reference[0] == '$' && isMoneyIn(judgement->text, reference);
    });
    std::erase_if(added, [judgement](const string &reference) {
        return reference[0] == '$' && isMoneyIn(*judgement->source, reference);
    });
    if (lost.size() == 1 && added.size() == 1) {
        add(judgement, TEXT_REFERENCE,
            "has " + added[0] + " in the place of " + lost[0] +
                ": write it as the source text does");
        return;
    }
    for (const string &reference : lost)
        add(judgement, TEXT_REFERENCE, "lacks " + reference + ": put it where its value belongs");
    for (const string &reference : added)
        add(judgement, TEXT_REFERENCE,
            "has " + reference + ", which the source text has not: take it out");
    if (lost.empty() && added.empty() && wanted.inTurn != had.inTurn)
        add(judgement, TEXT_REFERENCE,
            "has " + had.inTurn[0] + " in front, but the source text begins with " +
                wanted.inTurn[0] + ", and each takes the value whose turn it is: keep their order");
}

// ---- tags ----

namespace
{
struct Tag {
    string name; // in small letters, "/" in front of an end tag's
    std::set<string> attributes;
    bool isClosed; // its ">" is there
};
} // namespace

// Reads the attributes of a tag up to its end, or to where another tag begins.
static size_t readAttributes(string_view text, size_t pos, Tag *tag)
{
    while (pos < text.size() && text[pos] != '>' && text[pos] != '<') {
        if (isBlank(text[pos]) || text[pos] == '/') {
            ++pos;
            continue;
        }
        const size_t end = skip(text, pos + 1, [](char c) {
            return !isBlank(c) && c != '=' && c != '>' && c != '<' && c != '/';
        });
        tag->attributes.insert(lowered(text.substr(pos, end - pos)));
        pos = skip(text, end, isBlank);
        if (at(text, pos) != '=')
            continue;
        pos = skip(text, pos + 1, isBlank);
        const char quote = at(text, pos);
        pos = quote == '"' || quote == '\''
                  ? std::min(text.find(quote, pos + 1), text.size() - 1) + 1
                  : skip(text, pos, [](char c) { return !isBlank(c) && c != '>'; });
    }
    tag->isClosed = at(text, pos) == '>';
    return pos + (tag->isClosed ? 1 : 0);
}

static std::vector<Tag> tagsOf(string_view text)
{
    std::vector<Tag> tags;
    for (size_t pos = text.find('<'); pos < text.size(); pos = text.find('<', pos)) {
        const size_t name = pos + (at(text, pos + 1) == '/' ? 2 : 1);
        if (!isLetter(at(text, name))) {
            pos = text.substr(pos).starts_with("<!--")
                      ? std::min(text.find("-->", pos), text.size())
                      : pos + 1;
            continue;
        }
        const size_t end = skip(
            text, name, [](char c) { return !isBlank(c) && c != '/' && c != '>' && c != '<'; });
        Tag tag = {lowered(text.substr(pos + 1, end - pos - 1)), {}, false};
        pos = readAttributes(text, end, &tag);
        tags.push_back(std::move(tag));
    }
    return tags;
}

static bool isVoid(const string &name)
{
    static constexpr std::array words = {"area",  "base", "br",   "col",    "embed", "hr", "img",
                                         "input", "link", "meta", "source", "track", "wbr"};
    return std::ranges::find(words, string_view(name)) != words.end();
}

// Those that a language may need although the source does without them.
static bool isOwn(const string &name)
{
    static constexpr std::array words = {"wbr", "bdi", "/bdi", "bdo", "/bdo"};
    return std::ranges::find(words, string_view(name)) != words.end();
}

// Returns what is wrong with the order of tags, empty when each closes what was opened last.
static string wrongOrder(const std::vector<Tag> &tags)
{
    std::vector<string> open;
    for (const Tag &tag : tags) {
        if (tag.name[0] != '/') {
            if (!isVoid(tag.name))
                open.push_back(tag.name);
        } else if (open.empty() || open.back() != tag.name.substr(1)) {
            return "has <" + tag.name +
                   (open.empty() ? "> where it closes nothing"
                                 : "> inside of <" + open.back() + ">");
        } else {
            open.pop_back();
        }
    }
    return open.empty() ? "" : "has <" + open.back() + ">, which is not closed";
}

static std::vector<string> namesOf(const std::vector<Tag> &tags)
{
    std::vector<string> names;
    for (const Tag &tag : tags)
        if (!isOwn(tag.name))
            names.push_back(tag.name);
    return names;
}

// Returns the attributes that tags have, each with the name of its tag.
static std::vector<string> attributesOf(const std::vector<Tag> &tags)
{
    std::vector<string> all;
    for (const Tag &tag : tags)
        for (const string &attribute : tag.attributes)
            all.push_back("lacks " + attribute + " of <" + tag.name + ">");
    return all;
}

// "<b>, <i> and <u>".
static string listTags(const std::vector<string> &names)
{
    string list;
    for (size_t i = 0; i < names.size(); ++i)
        list += (i == 0 ? "<" : i + 1 < names.size() ? ", <" : " and <") + names[i] + ">";
    return list;
}

// What is wrong where tags are missing, or there are others.
static string otherTags(const std::vector<string> &lost, const std::vector<string> &added)
{
    if (added.empty())
        return "lacks " + listTags(lost) + ": put the source text's tags around the same words";
    if (lost.empty())
        return "has " + listTags(added) + ", which the source text has not: take " +
               (added.size() == 1 ? "it" : "them") + " out";
    return "has " + listTags(added) + " in the place of " + listTags(lost) +
           ": put the source text's tags around the same words";
}

static void judgeTags(Judgement *judgement)
{
    if (!judgement->source)
        return;
    const std::vector<Tag> wanted = tagsOf(*judgement->source);
    const std::vector<Tag> had = tagsOf(judgement->text);
    const auto isOpen = [](const Tag &tag) { return !tag.isClosed; };
    const auto cut = std::find_if(had.begin(), had.end(), isOpen);
    if (cut != had.end() && std::none_of(wanted.begin(), wanted.end(), isOpen)) {
        add(judgement, TEXT_TAGS,
            "has the tag <" + cut->name +
                " without an end: write its >, or &lt; for a < that is to be seen");
        return;
    }
    const std::vector<string> lost = without(namesOf(wanted), namesOf(had));
    const std::vector<string> added = without(namesOf(had), namesOf(wanted));
    if (!lost.empty() || !added.empty()) {
        add(judgement, TEXT_TAGS, otherTags(lost, added));
        return;
    }
    const string order = wrongOrder(had);
    if (wrongOrder(wanted).empty() ? !order.empty() : namesOf(wanted) != namesOf(had))
        add(judgement, TEXT_TAGS,
            (order.empty() ? "has the tags in another order than the source text" : order) +
                ": put them in the source text's order");
    for (const string &attribute : without(attributesOf(wanted), attributesOf(had)))
        add(judgement, TEXT_TAGS, attribute + ": copy the tag from the source text");
}

// ---- entities ----

// What is wrong in a text, each with its cure, in the text's order.
static std::vector<std::pair<string, string>> wrongEntities(string_view text)
{
    std::vector<std::pair<string, string>> all;
    for (size_t pos = text.find('&'); pos != string_view::npos; pos = text.find('&', pos + 1)) {
        string cure;
        if (const size_t length = wrongEntity(text.substr(pos), &cure))
            all.emplace_back(text.substr(pos, length), std::move(cure));
    }
    return all;
}

static void judgeEntities(Judgement *judgement)
{
    std::set<string> meant; // the source has them, too
    if (judgement->source)
        for (const auto &[entity, cure] : wrongEntities(*judgement->source))
            meant.insert(entity);
    for (const auto &[entity, cure] : wrongEntities(judgement->text))
        if (!meant.contains(entity))
            add(judgement, TEXT_ENTITY,
                string("has ").append(entity).append(", which is no entity: ").append(cure));
}

// ---- blanks ----

// Returns the length of the blank that text begins with, 0 without one.
static size_t blankLength(string_view text)
{
    for (const char *blank : {" ", "\t", "\n", "\r", "\u00a0", "\u202f", "\u3000", "&nbsp;"})
        if (text.starts_with(blank))
            return string_view(blank).size();
    return 0;
}

static const char *behind(string_view text)
{
    return text.data() + text.size();
}

static string_view withoutBlanks(string_view text)
{
    while (const size_t length = blankLength(text))
        text.remove_prefix(length);
    for (size_t length = 1; length <= 6 && length <= text.size();) { // of the longest blank
        const bool isBlankEnd = blankLength(text.substr(text.size() - length)) == length;
        text.remove_suffix(isBlankEnd ? length : 0);
        length = isBlankEnd ? 1 : length + 1;
    }
    return text;
}

// Whether text ends in a mark as wide as a letter, which has its blank in itself.
static bool endsWide(string_view text)
{
    if (text.size() < 3)
        return false;
    const string_view last = text.substr(text.size() - 3);
    return last.starts_with("\xe3\x80") || last.starts_with("\xef\xbc") ||
           last.starts_with("\xef\xbd");
}

static void judgeEdge(Judgement *judgement, bool isWanted, bool isThere, const string &verb)
{
    if (isWanted && !isThere)
        add(judgement, TEXT_BLANK,
            "lacks the blank that the source text " + verb + " with: add it");
    if (!isWanted && isThere)
        add(judgement, TEXT_BLANK,
            verb + " with a blank, which the source text does not: take it out");
}

static void judgeBlanks(Judgement *judgement)
{
    const string_view text = judgement->text;
    const string_view inner = withoutBlanks(text);
    const string_view source = judgement->source ? string_view(*judgement->source) : string_view();
    const string_view sourceInner = withoutBlanks(source);
    if (inner.empty() && (!judgement->source || !sourceInner.empty()))
        add(judgement, TEXT_BLANK, "has nothing but blanks: translate it, or note it as empty");
    if (inner.empty() || sourceInner.empty())
        return;
    judgeEdge(judgement, sourceInner.data() != source.data(), inner.data() != text.data(),
              "begins");
    if (!endsWide(inner) && !endsWide(sourceInner))
        judgeEdge(judgement, behind(sourceInner) != behind(source), behind(inner) != behind(text),
                  "ends");
}

// ---- control bytes ----

// Returns the number of a character that no text has, 0 for any other. length: out.
static unsigned controlNumber(string_view rest, size_t *length)
{
    static constexpr struct {
        const char *bytes;
        unsigned number;
    } characters[] = {{"\ufeff", 0xfeff}, {"\ufffd", 0xfffd}};
    const auto byte = [&](size_t pos) { return static_cast<unsigned char>(at(rest, pos)); };
    *length = std::max<size_t>(characterLength(rest), 1);
    for (const auto &[bytes, number] : characters)
        if (rest.starts_with(bytes))
            return number;
    if (byte(0) == 0xc2 && byte(1) < 0xa0)
        return byte(1);
    return (byte(0) < ' ' && rest[0] != '\n' && rest[0] != '\t') || byte(0) == 0x7f ? byte(0) : 0;
}

static void judgeControl(Judgement *judgement)
{
    const string_view text = judgement->text;
    std::set<unsigned> told;
    for (size_t pos = 0, length; pos < text.size(); pos += length) {
        const unsigned number = controlNumber(text.substr(pos), &length);
        const bool isSource =
            judgement->source && judgement->source->find(text.substr(pos, length)) != string::npos;
        if (number == 0 || isSource || !told.insert(number).second)
            continue;
        char name[16];
        snprintf(name, sizeof name, "U+%04X", number);
        add(judgement, TEXT_CONTROL,
            "has the character " + string(name) + ", which is " +
                (number == 0xfffd ? "what a lost one becomes: write it again"
                                  : "none that is seen: take it out"));
    }
}

// ---- lengths ----

size_t visibleLength(string_view text)
{
    size_t count = 0;
    for (size_t pos = 0; pos < text.size(); ++count) {
        const string_view rest = text.substr(pos);
        const bool isTag = rest[0] == '<' && (isLetter(at(rest, 1)) || at(rest, 1) == '/');
        const size_t end = rest[0] == '&' ? rest.find(';') : isTag ? rest.find('>') : 0;
        const bool isPiece = end > 0 && end < rest.size() && (isTag || end < 12);
        pos += isPiece ? end + 1 : std::max<size_t>(characterLength(rest), 1);
        count -= isPiece && isTag ? 1 : 0;
    }
    return count;
}

static constexpr string_view LIMIT = "max-length:";

size_t maxLength(const std::set<string> &flags)
{
    size_t least = 0;
    for (auto flag = flags.lower_bound(string(LIMIT));
         flag != flags.end() && flag->starts_with(LIMIT); ++flag) {
        const size_t most = strtoul(flag->c_str() + LIMIT.size(), nullptr, 10);
        least = least && least < most ? least : most;
    }
    return least;
}

void dropLimit(std::set<string> *flags)
{
    std::erase_if(*flags, [](const string &flag) { return flag.starts_with(LIMIT); });
}

void limitLength(std::set<string> *flags, size_t most)
{
    const size_t now = maxLength(*flags);
    dropLimit(flags);
    flags->insert(string(LIMIT) + std::to_string(now && now < most ? now : most));
}

static void judgeLength(Judgement *judgement)
{
    const size_t most = maxLength(judgement->flags);
    const size_t length = visibleLength(judgement->text);
    if (most && length > most)
        add(judgement, TEXT_LENGTH,
            "has " + std::to_string(length) + " characters, and " + std::to_string(most) +
                " are the most: shorten it");
}

// ---- ends of sentences ----

// Returns the text without what may stand behind the end of a sentence: blanks, tags, quotes.
static string_view sentence(string_view text)
{
    for (bool goesOn = true; goesOn;) {
        text = withoutBlanks(text);
        goesOn = false;
        if (text.ends_with('>') && text.rfind('<') != string_view::npos) {
            text = text.substr(0, text.rfind('<'));
            goesOn = true;
        }
        for (const char *close :
             {"\"", "'", ")", "]", "»", "«", "”", "“", "’", "‘", "」", "』", "）"})
            if (text.ends_with(close)) {
                text.remove_suffix(string_view(close).size());
                goesOn = true;
            }
    }
    return text;
}

// Returns the sign that a sentence ends with, in the form of the Latin alphabet, 0 without one.
static char endOf(string_view text)
{
    static constexpr struct {
        const char *bytes;
        char sign;
    } signs[] = {{"...", 'o'},    {"…", 'o'},  {"⋯", 'o'},  {"&hellip;", 'o'}, {".", '.'},
                 {"。", '.'},     {"．", '.'}, {"।", '.'},  {"۔", '.'},        {"։", '.'},
                 {"።", '.'},      {"?", '?'},  {"？", '?'}, {"؟", '?'},        {";", ';'},
                 {"\u037e", ';'}, {"!", '!'},  {"！", '!'}, {":", ':'},        {"：", ':'}};
    text = sentence(text);
    for (const auto &[bytes, sign] : signs)
        if (text.ends_with(bytes))
            return sign;
    return '\0';
}

// Whether text ends in a script that has no sign for the end of a sentence: Thai, Lao, Burmese,
// Khmer.
static bool endsWithoutSign(string_view text)
{
    text = sentence(text);
    if (text.size() < 3)
        return false;
    const unsigned number = characterNumber(text.substr(text.size() - 3));
    return (number >= 0xe00 && number < 0xf00) || (number >= 0x1000 && number < 0x10a0) ||
           (number >= 0x1780 && number < 0x1800);
}

static void judgeEnding(Judgement *judgement)
{
    const string_view source = judgement->source ? string_view(*judgement->source) : string_view();
    if (sentence(source).empty() || sentence(judgement->text).empty())
        return;
    const char wanted = endOf(source);
    const char had = endOf(judgement->text);
    const bool isGreek = wanted == '?' && had == ';';
    const bool isBoth = wanted == ';' || had == ';' || endsWithoutSign(judgement->text);
    if (wanted == had || isGreek || isBoth)
        return;
    const auto show = [](char sign) {
        return sign == 'o' ? string("...") : "\"" + string(1, sign) + "\"";
    };
    add(judgement, TEXT_ENDING,
        wanted && had ? "ends in " + show(had) + ", and the source text in " + show(wanted)
        : wanted      ? "lacks the " + show(wanted) + " that the source text ends in"
                      : "ends in " + show(had) + ", which the source text does not");
}

// ---- what stays ----

size_t keptLength(string_view text, size_t pos)
{
    const string_view rest = text.substr(pos);
    const auto through = [rest](const char *end) {
        const size_t found = rest.find(end);
        return found == string_view::npos ? 0 : found + string_view(end).size();
    };
    bool isNamed;
    if (rest[0] == '\\')
        return std::min<size_t>(rest.size(), 2);
    if (rest.starts_with("$$") || rest.starts_with("%%"))
        return 2;
    if (rest.starts_with("<?"))
        return through("?>");
    if (rest.starts_with("{?"))
        return through("?}");
    if (rest[0] == '<' && (isLetter(at(rest, 1)) || at(rest, 1) == '/' || at(rest, 1) == '!'))
        return through(">");
    if (rest[0] == '&' && through(";") < 12)
        return through(";");
    return placeholderLength(text, pos, &isNamed);
}

// ---- all of it ----

bool isLeftOut(const std::set<string> &flags, string_view kind)
{
    return flags.contains("no-" + string(kind));
}

std::vector<TextFlaw> judgeText(string_view text, const string *source,
                                const std::set<string> &flags)
{
    static constexpr void (*judges[])(Judgement *) = {judgeReferences, judgeTags,    judgeEntities,
                                                      judgeBlanks,     judgeControl, judgeLength,
                                                      judgeEnding};
    Judgement judgement = {text, source, flags, {}};
    for (const auto judge : judges)
        judge(&judgement);
    std::erase_if(judgement.faults,
                  [&](const TextFlaw &fault) { return isLeftOut(flags, fault.kind); });
    return std::move(judgement.faults);
}

// ---- the language of a file ----

bool isOtherLanguage(string_view path, string_view code, string *named)
{
    const auto isSeparator = [](char c) {
        return string_view("_-.@").find(c) != string_view::npos;
    };
    string_view name = path.substr(path.rfind('/') + 1);
    name = name.substr(0, name.rfind('.'));
    const size_t last = name.find_last_of("_-.");
    const string_view end = name.substr(last == string_view::npos ? 0 : last + 1);
    const auto isCode = [](string_view part) {
        return part.size() == 2 && isSmall(part[0]) && isSmall(part[1]);
    };
    if (isCode(name.substr(0, 2)) && (name.size() == 2 || isSeparator(name[2])))
        *named = name.substr(0, 2);
    else if (isCode(end))
        *named = end;
    else
        return false;
    const string_view own = code.substr(0, code.find_first_of("_-@."));
    return !own.empty() && *named != lowered(own);
}
