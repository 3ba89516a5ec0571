/* tools/check/tags.cpp - HTML's tokenizer, by the states of its standard: one function for
 * each. */
#include "tags.h"

#include <algorithm>

#include "facts.h"
#include "host/ascii.h"
#include "tools/common/entities.h"
#include "tools/common/words.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_VALUES = 8;

namespace
{
// Text on its way.
struct Text {
    Reader &reader;
    string_view text;
    const Place &from;
    size_t at;

    Place place(size_t begin, size_t end) const
    {
        if (from.text)
            return from;
        const auto base = from.span.at;
        return {from.tpl,
                {base + static_cast<uint32_t>(begin), base + static_cast<uint32_t>(end)},
                nullptr};
    }
    Place here(size_t length = 1) const
    {
        return place(at, at + length);
    }
};
} // namespace

const Attribute *Tag::find(string_view wanted) const
{
    const auto found = std::ranges::find(attributes, wanted, &Attribute::name);
    return found == attributes.end() ? nullptr : &*found;
}

Node &addNode(Reader &reader, NodeKind kind, const Place &place)
{
    Node &node = reader.nodes->emplace_back();
    node.kind = kind;
    node.place = place;
    return node;
}

static void addWords(Reader &reader, const Place &place)
{
    if (reader.nodes->empty() || reader.nodes->back().kind != NodeKind::WORDS)
        addNode(reader, NodeKind::WORDS, place);
}

static void tell(const Text &text, const Place &place, const char *id, string words)
{
    reportPlace(text.reader.forest.all, findKind(id)->severity, place, id, std::move(words));
}

bool isInTag(Mode mode)
{
    return mode >= Mode::OPEN && mode <= Mode::BEHIND_VALUE;
}

// ---- a tag's end ----

bool isJsonScript(const Tag &tag)
{
    const Attribute *type = tag.find("type");
    if (!type || type->values.size() != 1)
        return false;
    const string value = lowered(type->values[0].substr(0, type->values[0].find(';')));
    return value.ends_with("json") || value == "importmap" || value == "speculationrules";
}

static bool isEndless(const Forest &forest, const Place &place)
{
    return forest.all.endless.contains({place.tpl, place.span.at});
}

static void beginContent(Reading &now, const Tag &tag, uint32_t resume)
{
    const bool isText = tag.is(IS_RAW) && !(now.foreign && tag.name != "script");
    if (!isText || tag.selfClosing || (tag.lost && resume <= tag.place.span.end))
        return;
    now.resume = tag.lost ? resume : 0;
    now.mode = Mode::RAW;
    now.raw = tag.name;
    now.json = tag.name == "script" && isJsonScript(tag);
    now.from = tag.place;
    now.matched = 0;
}

static void countForeign(Reading &now, const Tag &tag)
{
    if (tag.name != "svg" && tag.name != "math")
        return;
    if (tag.closing)
        now.foreign = std::max(now.foreign - 1, 0);
    else if (!tag.selfClosing)
        ++now.foreign;
}

// A value that is none of those which an attribute can have: browsers take another one then.
static void checkChoice(const Text &text, const Tag &tag, const Attribute &attribute)
{
    const ChoiceRow *row = findChoice(tag.name, attribute.name);
    if (!row || attribute.values.size() != 1 || attribute.values[0].empty())
        return;
    const string value = lowered(attribute.values[0]);
    if (value.find(MARK) != string::npos || hasWord(row->words, value))
        return;
    tell(text, attribute.value, "html-attribute",
         attribute.name + " of <" + tag.name + "> cannot be '" + value + "': browsers take " +
             string(row->instead) + " in its place");
}

// Whether a field holds a number, by its type.
static bool isNumberField(const Tag &tag)
{
    const Attribute *type = tag.find("type");
    return tag.name == "input" && type && type->values.size() == 1 &&
           hasWord("number range", lowered(type->values[0]));
}

// Whether an attribute's value is one from which browsers read no number. Behind most numbers
// anything may stand, but a field takes whole ones only.
static bool lacksNumber(const Tag &tag, const Attribute &attribute, string_view value)
{
    const bool isWhole = isNumberField(tag) && hasWord("value min max step", attribute.name);
    if (value.empty() || value.find(MARK) != string_view::npos ||
        (isWhole && attribute.name == "step" && lowered(value) == "any"))
        return false;
    if (isWhole)
        return value.find_first_not_of("0123456789+-.eE") != string_view::npos;
    const size_t digit = value.find_first_not_of(" \t\r\n\f+-.");
    return takesNumber(tag.name, attribute.name) &&
           (digit == string_view::npos || !isDigit(value[digit]));
}

static void checkNumber(const Text &text, const Tag &tag, const Attribute &attribute)
{
    const auto wrong = std::ranges::find_if(
        attribute.values, [&](string_view value) { return lacksNumber(tag, attribute, value); });
    if (wrong != attribute.values.end())
        tell(text, attribute.value, "html-attribute",
             attribute.name + " of <" + tag.name + "> cannot be '" + *wrong +
                 "': browsers leave out what is no number" +
                 (wrong->find(',') == string::npos ? "" : ", as one with a comma"));
}

// Whether a value that was meant for a language's tag is none. One begins with a code of two or
// three letters, as de-AT, or with x-; en_US is written so elsewhere.
static bool isNoLanguage(string_view value)
{
    constexpr size_t longest = 3;
    const bool isWord = std::ranges::all_of(
        value, [](char c) { return isLetterOrDigit(c) || c == '-' || c == '_'; });
    const size_t length = std::min(value.find('-'), value.size());
    const bool isTag = length <= longest && (length > 1 || value.starts_with('x')) &&
                       value.find('_') == string_view::npos;
    return !value.empty() && isWord && !isTag;
}

static void checkLanguage(const Text &text, const Tag &tag, const Attribute &attribute)
{
    const auto wrong = std::ranges::find_if(attribute.values, isNoLanguage);
    if (hasWord("lang hreflang", attribute.name) && wrong != attribute.values.end())
        tell(text, attribute.value, "html-attribute",
             attribute.name + " of <" + tag.name + "> cannot be '" + *wrong +
                 "': it takes a language's code, such as en or de-AT");
}

static void checkAttributes(const Text &text, const Tag &tag)
{
    if (tag.closing && !tag.attributes.empty())
        tell(text, tag.attributes[0].place, "html-attribute", "an end tag has no attributes");
    if (!tag.row || text.reader.now.foreign || tag.closing)
        return;
    for (const Attribute &attribute : tag.attributes) {
        if (const string_view meant = nearestAttribute(attribute.name);
            !meant.empty() && attribute.name.find_first_of("\"'<") == string::npos)
            tell(text, attribute.place, "html-attribute",
                 "no element has an attribute " + attribute.name + "; did you mean " +
                     string(meant) + "?");
        checkChoice(text, tag, attribute);
        checkNumber(text, tag, attribute);
        checkLanguage(text, tag, attribute);
    }
}

// Whether two places of a tag can both be in one page.
static bool exclude(const Attribute &a, const Attribute &b)
{
    for (const Branch &first : a.within)
        for (const Branch &second : b.within)
            if (first.command == second.command && first.way != second.way)
                return true;
    return false;
}

// Whether all branches of one attribute are ones of the other.
static bool covers(const Attribute &a, const Attribute &b)
{
    return std::ranges::all_of(a.within, [&](const Branch &branch) {
        return std::ranges::any_of(b.within, [&](const Branch &other) {
            return branch.command == other.command && branch.way == other.way;
        });
    });
}

static void checkTwice(const Text &text, const Tag &tag)
{
    for (size_t i = 1; i < tag.attributes.size(); ++i)
        for (size_t k = 0; k < i; ++k) {
            const Attribute &first = tag.attributes[k];
            const Attribute &second = tag.attributes[i];
            if (first.name != second.name || exclude(first, second) ||
                !(covers(first, second) || covers(second, first)))
                continue;
            tell(text, second.place, "html-attribute",
                 second.name + " stands in this tag twice; browsers take the first only");
            break;
        }
}

// The tag has been read to its ">".
static void endTag(Text &text)
{
    Reader &reader = text.reader;
    Reading &now = reader.now;
    Tag tag = std::move(now.tag);
    now.tag = Tag();
    now.mode = Mode::TEXT;
    if (tag.place.tpl == text.from.tpl && !text.from.text)
        tag.place.span.end = text.here().span.end;
    tag.row = findElement(tag.name);
    const auto &all = reader.forest.all.endless;
    const auto endless = all.find({tag.place.tpl, tag.place.span.at});
    tag.lost = endless != all.end();
    for (Attribute &attribute : tag.attributes)
        attribute.use = useOf(tag, attribute);
    checkAttributes(text, tag);
    checkTwice(text, tag);
    if (!tag.closing)
        beginContent(now, tag, tag.lost ? endless->second : 0);
    countForeign(now, tag);
    Node &node = addNode(reader, NodeKind::TAG, tag.place);
    node.tag = std::make_shared<const Tag>(std::move(tag));
}

// ---- attributes ----

static void beginAttribute(Text &text)
{
    Attribute attribute;
    attribute.place = text.here();
    text.reader.now.tag.attributes.push_back(std::move(attribute));
}

static Attribute &attributeOf(Reading &now)
{
    return now.tag.attributes.back();
}

// Whether the value of an attribute has ended at the quote of the next one's.
static bool takesQuote(const Attribute &attribute)
{
    return !attribute.values.empty() && attribute.values[0].ends_with('=') &&
           attribute.values[0].find(' ') != string::npos;
}

// What is wrong when a quote stands in an attribute's name: mostly another quote is missing.
static void tellQuote(const Text &text, char c)
{
    const Tag &tag = text.reader.now.tag;
    const Attribute *before =
        tag.attributes.size() > 1 ? &tag.attributes[tag.attributes.size() - 2] : nullptr;
    const bool isLost = before && before->hasValue && !before->values.empty() &&
                        before->values[0].find_first_of("<>=\n") != string::npos;
    if (before && takesQuote(*before))
        return; // told
    if (isLost)
        tell(text, before->value, "html-attribute",
             "the quote around the value of " + before->name +
                 " that opens here is closed by "
                 "the next attribute's: its own is missing");
    else
        tell(text, text.here(), "html-attribute",
             string("a ") + c + " cannot stand in an attribute's name" +
                 (c == '=' ? ": a name is missing in front of it"
                           : ": a quote in front of it is missing, or one too many"));
}

static bool startsTag(const Text &text)
{
    const char next = text.at + 1 < text.text.size() ? text.text[text.at + 1] : ' ';
    return isLetter(next) || next == '/';
}

// Another tag begins in the midst of this one.
static void cutTag(Text &text)
{
    Reading &now = text.reader.now;
    tell(text, now.tag.place, "html-tag",
         "the tag <" + string(now.tag.closing ? "/" : "") + now.tag.name +
             " is not closed by > in front of the next one");
    endTag(text);
    now.mode = Mode::TEXT;
    --text.at; // is read once more
}

static void readBeforeName(Text &text, char c)
{
    Reading &now = text.reader.now;
    if (isHtmlBlank(c))
        return;
    if (c == '>')
        return endTag(text);
    if (c == '/') {
        now.tag.selfClosing = true;
        return;
    }
    now.tag.selfClosing = false;
    if (c == '<' && startsTag(text))
        return cutTag(text);
    beginAttribute(text);
    if (c == '"' || c == '\'' || c == '<' || c == '=')
        tellQuote(text, c);
    attributeOf(now).name = toSmall(c);
    now.mode = Mode::NAME;
}

static void endName(Text &text, Mode next)
{
    Reading &now = text.reader.now;
    Attribute &attribute = attributeOf(now);
    if (!text.from.text && attribute.place.tpl == text.from.tpl)
        attribute.place.span.end = text.here().span.at;
    now.mode = next;
}

static void readName(Text &text, char c)
{
    Reading &now = text.reader.now;
    if (isHtmlBlank(c))
        return endName(text, Mode::AFTER_NAME);
    if (c == '=')
        return endName(text, Mode::BEFORE_VALUE);
    if (c == '>') {
        endName(text, Mode::BEFORE_NAME);
        return endTag(text);
    }
    if (c == '/') {
        now.tag.selfClosing = true;
        return endName(text, Mode::BEFORE_NAME);
    }
    const bool isWrong = c == '"' || c == '\'' || c == '<';
    if (isWrong && attributeOf(now).name.find_first_of("\"'<=") == string::npos)
        tellQuote(text, c);
    attributeOf(now).name += toSmall(c);
}

static void readAfterName(Text &text, char c)
{
    if (isHtmlBlank(c))
        return;
    if (c == '=')
        text.reader.now.mode = Mode::BEFORE_VALUE;
    else
        readBeforeName(text, c);
    if (text.reader.now.mode == Mode::AFTER_NAME) // a "/"
        text.reader.now.mode = Mode::BEFORE_NAME;
}

static void readBeforeValue(Text &text, char c)
{
    Reading &now = text.reader.now;
    Attribute &attribute = attributeOf(now);
    if (isHtmlBlank(c))
        return;
    if (c == '>') {
        tell(text, attribute.place, "html-attribute",
             "the value of " + attribute.name + " is missing behind =");
        return endTag(text);
    }
    const bool isQuoted = c == '"' || c == '\'';
    attribute.hasValue = true;
    attribute.values = {isQuoted ? "" : string(1, c)};
    attribute.value = text.here();
    now.quote = isQuoted ? c : '\0';
    now.mode = Mode::VALUE;
}

static void appendValue(Attribute &attribute, string_view piece)
{
    for (string &value : attribute.values)
        value += piece;
}

static void readValueByte(Text &text, char c)
{
    Reading &now = text.reader.now;
    Attribute &attribute = attributeOf(now);
    if (now.quote ? c == now.quote : isHtmlBlank(c)) {
        now.mode = now.quote ? Mode::BEHIND_VALUE : Mode::BEFORE_NAME;
        return;
    }
    const bool isLost = now.quote && c == '>' && isEndless(text.reader.forest, attribute.value);
    if ((!now.quote && c == '>') || isLost)
        return endTag(text);
    if (!now.quote && (c == '"' || c == '\'' || c == '<') &&
        attribute.values[0].find_first_of("\"'<") == string::npos)
        tell(text, text.here(), "html-attribute",
             string("a ") + c + " stands in the value of " + attribute.name +
                 ", which has no quotes around it");
    appendValue(attribute, {&c, 1});
}

// Of a quote that is missing: the tag ends at the next ">" then.
static bool isQuoteLost(const Attribute &attribute)
{
    const string &value = attribute.values[0];
    const size_t end = value.find('>');
    return end != string::npos && value.find('<', end) != string::npos &&
           value.find('=', end) != string::npos;
}

static void readBehindValue(Text &text, char c)
{
    Reading &now = text.reader.now;
    now.mode = Mode::BEFORE_NAME;
    if (!isHtmlBlank(c) && c != '/' && c != '>') {
        const Attribute &attribute = attributeOf(now);
        if (isQuoteLost(attribute))
            tellEndless(text.reader.forest, attribute.value, 0, "html-attribute",
                        "the quote that opens here is closed by the next tag's: its own is "
                        "missing");
        else if (takesQuote(attribute))
            tell(text, attribute.value, "html-attribute",
                 "the quote around the value of " + attribute.name +
                     " that opens here is closed by the next attribute's: its own is missing");
        else
            tell(text, text.here(), "html-attribute",
                 "a blank is missing between the value of " + attribute.name + " and what follows");
        if (c == '"' || c == '\'') { // told by that
            beginAttribute(text);
            attributeOf(now).name = string(1, c);
            now.mode = Mode::NAME;
            return;
        }
    }
    readBeforeName(text, c);
}

// ---- tags and what stands between them ----

static void readOpen(Text &text, char c)
{
    Reading &now = text.reader.now;
    if (isLetter(c)) {
        now.mode = Mode::TAG_NAME;
        now.tag.name = toSmall(c);
        return;
    }
    if (c == '/' && !now.tag.closing) {
        now.tag.closing = true;
        return;
    }
    if (c == '!' && !now.tag.closing) {
        now.mode = Mode::DECLARATION;
        now.from = now.tag.place;
        now.raw.clear();
        return;
    }
    if (now.tag.closing)
        tell(text, now.tag.place, "html-tag", "the name of the end tag must follow </ at once");
    else if (c == '>')
        tell(text, now.tag.place, "html-tag", "this tag has no name; write &lt;&gt; for <>");
    const bool isComment = (now.tag.closing && c != '>') || c == '?';
    now.mode = isComment ? Mode::DECLARATION : Mode::TEXT;
    now.raw = isComment ? "?" : "";
    now.from = now.tag.place;
    if (!isComment && c == '<')
        --text.at;
    now.tag = Tag();
}

static void readTagName(Text &text, char c)
{
    Reading &now = text.reader.now;
    if (isHtmlBlank(c) || c == '/' || c == '>') {
        now.mode = Mode::BEFORE_NAME;
        readBeforeName(text, c);
    } else if (c == '<' && startsTag(text)) {
        cutTag(text);
    } else {
        now.tag.name += toSmall(c);
    }
}

static void readDeclaration(Text &text, char c)
{
    Reading &now = text.reader.now;
    if (now.raw.size() < 7)
        now.raw += toSmall(c);
    if (now.raw == "--") {
        now.mode = Mode::COMMENT;
        now.matched = 2; // <!--> is a whole one
        now.tag = Tag();
    } else if (c == '>') {
        if (now.raw == "doctype") { // is seen by who asks for it
            Tag tag;
            tag.name = "!doctype";
            tag.place = now.from;
            addNode(text.reader, NodeKind::TAG, now.from).tag =
                std::make_shared<const Tag>(std::move(tag));
        }
        now.tag = Tag();
        now.mode = Mode::TEXT;
    }
}

static void readComment(Text &text, char c)
{
    Reading &now = text.reader.now;
    const bool isLine = c == '\n' && isEndless(text.reader.forest, now.from);
    if ((c == '>' && now.matched >= 2) || isLine)
        now.mode = Mode::TEXT;
    now.matched = c == '-' ? now.matched + 1 : 0;
}

// ---- text that has no tags but one ----

// Whether markup in the text of an element tells that its end tag is missing.
static bool tellsEnd(const Text &text, string_view raw)
{
    const string ahead = lowered(text.text.substr(text.at + 1, 8));
    const size_t line = text.text.find_last_not_of(" \t", text.at ? text.at - 1 : 0);
    const bool beginsLine = text.at == 0 || line == string_view::npos || text.text[line] == '\n';
    const auto isAhead = [&](std::initializer_list<string_view> words) {
        return std::ranges::any_of(words, [&](string_view word) {
            return ahead.starts_with(word) &&
                   (ahead.size() == word.size() || !isLetter(ahead[word.size()]));
        });
    };
    if (raw == "title" || raw == "style")
        return isAhead({"/head", "body", "meta", "link", "script", "style", "title", "/body"});
    if (raw == "textarea")
        return isAhead({"/form", "/body", "/html", "textarea"});
    return raw == "script" && beginsLine && isAhead({"/head", "body", "/body", "script", "/html"});
}

static void addData(Text &text, size_t begin, size_t end)
{
    if (begin < end) {
        Node &node = addNode(text.reader, NodeKind::DATA, text.place(begin, end));
        node.text = text.text.substr(begin, end - begin);
    }
}

// What of an element's text the rules look at.
static void addRaw(Text &text, size_t begin, size_t end)
{
    const Reading &now = text.reader.now;
    if (begin >= end)
        return;
    if (now.json)
        addData(text, begin, end);
    const size_t seen = text.text.find_first_not_of(" \t\r\n", begin);
    if (now.raw == "title" && seen < end)
        addWords(text.reader, text.place(begin, end));
}

// Whether the text of an element without end is taken to end here; tells of one that is found.
static bool endsHere(const Text &text)
{
    Reading &now = text.reader.now;
    if (now.resume)
        return text.here().span.at == now.resume && text.from.tpl == now.from.tpl;
    if (text.text[text.at] != '<' || !tellsEnd(text, now.raw))
        return false;
    const bool isHere = text.from.tpl == now.from.tpl && !text.from.text;
    reportEndless(text.reader.forest, now, isHere ? text.here().span.at : 0);
    return true;
}

// Begins the end tag of the element, whose name has been read. length: of "</" and that.
static void beginEndTag(const Text &text, size_t length)
{
    Reading &now = text.reader.now;
    now.tag = Tag();
    now.tag.closing = true;
    now.tag.name = now.raw;
    now.tag.place = text.place(text.at >= length ? text.at - length : 0, text.at);
    now.mode = Mode::BEFORE_NAME;
}

// Reads up to the element's end tag; text.at is behind what was read.
static void readRaw(Text &text)
{
    Reading &now = text.reader.now;
    const size_t begin = text.at;
    const string end = "</" + now.raw;
    size_t last = text.text.size();
    for (; text.at < text.text.size() && now.mode == Mode::RAW; ++text.at) {
        const char c = text.text[text.at];
        if (now.matched == end.size() && (isHtmlBlank(c) || c == '/' || c == '>')) {
            last = text.at >= end.size() ? text.at - end.size() : 0;
            addRaw(text, begin, last);
            beginEndTag(text, end.size());
            break;
        }
        if (endsHere(text)) {
            now.mode = Mode::TEXT;
            break;
        }
        const bool fits = now.matched < end.size() && toSmall(c) == end[now.matched];
        now.matched = fits ? now.matched + 1 : c == '<' ? 1 : 0;
    }
    if (now.mode == Mode::RAW)
        addRaw(text, begin, last);
    --text.at; // the caller's step
}

// ---- page text ----

// The entity that an unknown name is a mistake of; a name that is like none may be a rare one.
static string_view nearestEntity(string_view name)
{
    static const std::vector<string_view> names = [] {
        std::vector<string_view> list;
        const string_view all = entityNames();
        for (size_t at = 0, end; (end = all.find(' ', at)) != string_view::npos; at = end + 1)
            list.push_back(all.substr(at, end - at));
        return list;
    }();
    const bool isKnown = std::ranges::find(names, name) != names.end();
    return isKnown ? name : name.size() < 4 ? "" : nearest(name, names);
}

// Where a reference that is none stands in page text.
static void checkReferences(const Text &text, size_t begin, size_t end)
{
    size_t at = text.text.find('&', begin);
    for (; at < end; at = text.text.find('&', at + 1)) {
        const string_view rest = text.text.substr(at, std::min<size_t>(end - at, 40));
        string cure;
        const size_t length = wrongEntity(rest, &cure);
        const string_view name = rest.substr(1, std::min(rest.find_first_of("; ", 1), length) - 1);
        const string_view meant = length > 1 ? nearestEntity(name) : "";
        if (!meant.empty() && meant != name)
            cure = "did you mean &" + string(meant) + ";?";
        if (length > 1 && !meant.empty())
            tell(text, text.place(at, at + length), "html-entity",
                 string(rest.substr(0, length)) + " is no whole character reference: " + cure);
    }
}

static void readText(Text &text)
{
    Reading &now = text.reader.now;
    const size_t begin = text.at;
    const size_t end = std::min(text.text.find('<', begin), text.text.size());
    const size_t seen = text.text.find_first_not_of(" \t\r\n\f", begin);
    if (seen < end)
        addWords(text.reader, text.place(seen, end));
    checkReferences(text, begin, end);
    text.at = end;
    if (end == text.text.size()) {
        --text.at; // the caller's step
        return;
    }
    now.tag = Tag();
    now.tag.place = text.here();
    now.mode = Mode::OPEN;
}

void readLiteral(Reader &reader, string_view literal, const Place &from)
{
    using Read = void (*)(Text &, char);
    static constexpr Read table[] = {
        nullptr,         readOpen,      readTagName,     readBeforeName,  readName,   readAfterName,
        readBeforeValue, readValueByte, readBehindValue, readDeclaration, readComment};
    Text text = {reader, literal, from, 0};
    for (; text.at < literal.size(); ++text.at) {
        switch (reader.now.mode) {
        case Mode::TEXT:
            readText(text);
            break;
        case Mode::RAW:
            readRaw(text);
            break;
        case Mode::DATA:
            addData(text, text.at, literal.size());
            return;
        case Mode::PLAIN:
            return;
        default:
            table[static_cast<size_t>(reader.now.mode)](text, literal[text.at]);
        }
    }
}

// ---- values ----

// A text in the query part of an address, which no escaping here fits.
static void checkQuery(Reader &reader, const Shown &shown, const Place &place)
{
    const Attribute &attribute = attributeOf(reader.now);
    const string &value = attribute.values[0];
    const bool isAddress = hasWord("href src action formaction data poster", attribute.name);
    if (!shown.isText || !isAddress || value.find('?') == string::npos ||
        value.find('#') != string::npos)
        return;
    reportPlace(reader.forest.all, Grade::WARNING, place, "escape-query",
                shown.name +
                    " is a text in the query part of an address, where its &, #, + and % "
                    "change what is sent: send a number that stands for it, or use a form");
}

static void readShownInTag(Reader &reader, const Shown &shown, const Place &place)
{
    Reading &now = reader.now;
    switch (now.mode) {
    case Mode::OPEN:
    case Mode::TAG_NAME:
        now.tag.name += MARK;
        now.mode = Mode::TAG_NAME;
        break;
    case Mode::BEFORE_VALUE:
        attributeOf(now).hasValue = true;
        attributeOf(now).values = {string(1, MARK)};
        attributeOf(now).value = place;
        now.quote = 0;
        now.mode = Mode::VALUE;
        break;
    case Mode::VALUE:
        checkQuery(reader, shown, place);
        appendValue(attributeOf(now), {&MARK, 1});
        break;
    default:
        now.tag.unknown = true;
        if (now.mode == Mode::NAME)
            attributeOf(now).name += MARK;
        now.mode = now.mode == Mode::NAME ? Mode::NAME : Mode::BEFORE_NAME;
        break;
    }
}

void readShown(Reader &reader, const Shown &shown, const Place &place)
{
    Reading &now = reader.now;
    if (isInTag(now.mode))
        return readShownInTag(reader, shown, place);
    const bool isSeen = now.mode == Mode::TEXT || now.mode == Mode::DATA ||
                        (now.mode == Mode::RAW && (now.json || now.raw == "title"));
    now.matched = 0;
    if (!isSeen)
        return;
    const bool isVariable = shown.element && (shown.element->type == ELEM_GETVAR ||
                                              shown.element->type == ELEM_GETARRAY);
    const bool resolves = isVariable && now.mode != Mode::RAW;
    Node &node = addNode(reader, resolves ? NodeKind::VARIABLE : NodeKind::VALUE, place);
    node.shown = std::make_shared<const Shown>(shown);
}

// ---- branches within a tag ----

// Adds the texts of the other branch to those of the attribute that both are in.
static void joinValues(Attribute *attribute, const Attribute &other)
{
    for (const string &value : other.values)
        if (std::ranges::find(attribute->values, value) == attribute->values.end())
            attribute->values.push_back(value);
    if (attribute->values.size() > MOST_VALUES)
        attribute->values = {string(1, MARK)};
    if (!attribute->hasValue && other.hasValue)
        attribute->value = other.value;
    attribute->hasValue = attribute->hasValue || other.hasValue;
}

void joinTags(Reading *reading, const Reading &other, size_t before, const Branch &branch)
{
    Tag &tag = reading->tag;
    // A way may have ended the tag and begun another, with fewer.
    before = std::min({before, tag.attributes.size(), other.tag.attributes.size()});
    Branch otherwise = branch;
    otherwise.way = 1;
    for (size_t i = before; i < tag.attributes.size(); ++i)
        tag.attributes[i].within.push_back(branch);
    if (tag.name != other.tag.name)
        tag.name += MARK;
    tag.unknown = tag.unknown || other.tag.unknown;
    const bool bothInValue = reading->mode == Mode::VALUE && other.mode == Mode::VALUE;
    for (size_t i = 0; i < before; ++i)
        joinValues(&tag.attributes[i], other.tag.attributes[i]);
    for (size_t i = before; i < other.tag.attributes.size(); ++i) {
        tag.attributes.push_back(other.tag.attributes[i]);
        tag.attributes.back().within.push_back(otherwise);
    }
    if (reading->mode != other.mode && !bothInValue)
        reading->mode = Mode::BEFORE_NAME;
}
