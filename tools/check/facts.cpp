/* tools/check/facts.cpp - rules about what a page says about itself. */
#include "facts.h"

#include <algorithm>

#include "host/ascii.h"
#include "tools/common/files.h"
#include "tools/common/words.h"

using std::string;
using std::string_view;

static constexpr char HTML_BLANKS[] = " \t\r\n\f";

bool mayMatch(string_view pattern, string_view text)
{
    const size_t first = pattern.find(MARK);
    if (first == string_view::npos)
        return pattern == text;
    const size_t last = pattern.rfind(MARK);
    const string_view begin = pattern.substr(0, first);
    const string_view end = pattern.substr(last + 1);
    const size_t mark = text.find(MARK);
    if (mark != string_view::npos) // two patterns: as far as both are known
        return text.substr(0, std::min(mark, first)) == begin.substr(0, std::min(mark, first));
    return text.size() >= begin.size() + end.size() && text.starts_with(begin) &&
           text.ends_with(end);
}

static std::vector<string> wordsOf(string_view text)
{
    std::vector<string> words;
    for (size_t at = text.find_first_not_of(HTML_BLANKS); at != string_view::npos;) {
        const size_t end = std::min(text.find_first_of(HTML_BLANKS, at), text.size());
        words.emplace_back(text.substr(at, end - at));
        at = text.find_first_not_of(HTML_BLANKS, end);
    }
    return words;
}

static bool isKnown(string_view text)
{
    return text.find(MARK) == string_view::npos;
}

// Whether an attribute is there and says something.
static bool says(const Tag &tag, string_view name)
{
    const Attribute *attribute = tag.find(name);
    return attribute && std::ranges::any_of(attribute->values, [](const string &value) {
               return value.find_first_not_of(HTML_BLANKS) != string::npos;
           });
}

static bool isValue(const Tag &tag, string_view name, string_view value)
{
    const Attribute *attribute = tag.find(name);
    return attribute && attribute->values.size() == 1 && attribute->values[0] == value;
}

static bool isHidden(const Tag &tag)
{
    return tag.find("hidden") || isValue(tag, "aria-hidden", "true");
}

// ---- on the way ----

void Facts::beginPage(const Paths &)
{
    ids.clear();
    singles.clear();
    references.clear();
    fields.clear();
    labels.clear();
    lostLabels.clear();
    seen.clear();
    html = nullptr;
    usesBase = false;
}

bool Facts::hasSeen(string_view name) const
{
    return seen.contains(name);
}

bool Facts::isRead(const Tag &tag)
{
    return says(tag, "aria-label") || (tag.name == "img" && says(tag, "alt")) ||
           (tag.name == "input" && says(tag, "value")) || tag.name == "object" ||
           tag.name == "slot" || (tag.name == "img" && tag.unknown) ||
           (tag.name == "svg" && (tag.find("aria-labelledby") || says(tag, "title")));
}

// The conditions under which a part of a tag is in the page.
static Outcomes whenOf(Paths &paths, const Attribute &attribute)
{
    Outcomes when = paths.conditions;
    for (const Branch &branch : attribute.within)
        when.push_back(outcomeOf(paths, *branch.tpl, *branch.command, branch.way));
    return when;
}

// Whether what stands here comes once for each row, whatever else is so.
static bool comesOften(const Paths &paths)
{
    for (size_t i = paths.conditions.size(); i-- > 0;) {
        const Atom &atom = paths.atoms[paths.conditions[i].atom];
        if (atom.kind != NodeKind::ROWS)
            return false;
        if (atom.repeats)
            return true;
    }
    return false;
}

static void noteId(Facts &facts, Paths &paths, const Tag &tag, const Attribute &attribute)
{
    const bool many = comesOften(paths) && attribute.within.empty();
    for (const string &value : attribute.values) {
        const bool isWrong =
            isKnown(value) && (value.empty() || value.find_first_of(HTML_BLANKS) != string::npos);
        if (isWrong)
            reportPlace(facts.all, Grade::ERROR, attribute.place, "html-id",
                        value.empty() ? "an id cannot be empty"
                                      : "an id has no blanks: '" + value + "'");
        facts.ids.push_back({value, &tag, attribute.place, whenOf(paths, attribute), paths.chain,
                             many && attribute.values.size() == 1});
    }
}

// Attributes that name ids, and how they are read.
static bool namesIds(const Tag &tag, const Attribute &attribute)
{
    static constexpr string_view words =
        "for form list headers popovertarget commandfor aria-activedescendant aria-controls "
        "aria-describedby aria-details aria-errormessage aria-flowto aria-labelledby aria-owns";
    return hasWord(words, attribute.name) &&
           !(attribute.name == "for" && tag.name != "label" && tag.name != "output") &&
           !(attribute.name == "list" && tag.name != "input");
}

Use useOf(const Tag &tag, const Attribute &attribute)
{
    const string_view name = attribute.name;
    if (name == "id")
        return Use::ID;
    if (name == "name" && (tag.name == "a" || tag.name == "map"))
        return Use::NAME;
    if (name == "href" || name == "xlink:href" || name == "usemap")
        return Use::LINK;
    return namesIds(tag, attribute)         ? Use::REFERENCE
           : leadsSomewhere(tag, attribute) ? Use::ADDRESS
                                            : Use::NONE;
}

static void noteReference(Facts &facts, Paths &paths, const Tag &tag, const Attribute &attribute)
{
    std::vector<std::vector<string>> ways;
    for (const string &value : attribute.values)
        ways.push_back(wordsOf(value));
    facts.references.push_back(
        {&tag, &attribute, std::move(ways), whenOf(paths, attribute), paths.chain});
}

// Of a link within the page.
static void noteFragment(Facts &facts, Paths &paths, const Tag &tag, const Attribute &attribute)
{
    const string &value = attribute.values[0];
    const bool isPlace =
        value.size() > 1 && value[0] == '#' && value != "#top" &&
        std::ranges::all_of(value.substr(1), [](char c) {
            return isLetterOrDigit(c) || c == '-' || c == '_' || c == '.' || c == ':' || (c & 0x80);
        });
    if (isPlace && attribute.values.size() == 1)
        facts.references.push_back(
            {&tag, &attribute, {{value.substr(1)}}, whenOf(paths, attribute), paths.chain});
}

// Whether a script fills what stands there.
static bool inTemplate(const Paths &paths)
{
    return std::ranges::any_of(paths.variants, [](const Variant &variant) {
        return findOpen(variant.state.top, "template");
    });
}

static void noteField(Facts &facts, const Paths &paths, const Tag &tag)
{
    const Attribute *type = tag.find("type");
    const string kind = type && type->values.size() == 1 ? type->values[0] : "";
    if (tag.unknown || isHidden(tag) || tag.name == "keygen" || inTemplate(paths))
        return;
    if (tag.name == "input" && hasWord("hidden submit reset image button", kind)) {
        const char *needed = kind == "image" ? "alt" : kind == "button" ? "value" : nullptr;
        if (needed && !says(tag, needed) && !says(tag, "aria-label") && !says(tag, "title") &&
            !tag.find("aria-labelledby"))
            reportPlace(facts.all, Grade::WARNING, tag.place, "html-name",
                        "this " + kind +
                            " button has no name for those who do not see it: give "
                            "it " +
                            needed);
        return;
    }
    LabelledField field = {&tag, {}, nullptr, paths.chain, paths.conditions};
    if (const Attribute *id = tag.find("id"))
        field.ids = id->values;
    for (const Variant &variant : paths.variants)
        if (const Open *label = findOpen(variant.state.top, "label"))
            field.label = label;
    facts.fields.push_back(std::move(field));
}

static void noteTag(Facts &facts, Paths &paths, const Tag &tag)
{
    const bool isForeign = std::ranges::any_of(paths.variants, [](const Variant &variant) {
        return variant.state.top && variant.state.top->foreign;
    });
    if (!isForeign && hasWord("html head body main title base", tag.name)) {
        facts.seen.insert(tag.name);
        facts.singles.push_back({"<" + tag.name + ">", &tag, tag.place, paths.conditions,
                                 paths.chain, comesOften(paths)});
        facts.usesBase = facts.usesBase || tag.name == "base";
        if (tag.name == "html") {
            facts.html = &tag;
            facts.htmlChain = paths.chain;
        }
    }
    const bool isPicture = tag.name == "img" || (tag.name == "area" && tag.find("href"));
    if (isPicture && !tag.find("alt") && !tag.unknown && !isHidden(tag) &&
        !isValue(tag, "role", "presentation") && !isValue(tag, "role", "none"))
        reportPlace(facts.all, Grade::WARNING, tag.place, "html-name",
                    "<" + tag.name +
                        "> has no alt: write what it shows, or alt=\"\" for one "
                        "that only decorates");
    if (tag.name == "iframe" && !says(tag, "title") && !says(tag, "aria-label") && !tag.unknown &&
        !isHidden(tag))
        reportPlace(facts.all, Grade::WARNING, tag.place, "html-name",
                    "<iframe> has no title, which tells what is in it");
}

// Names of frames, and what opens in them.
static void noteFrames(Facts &facts, const Tag &tag)
{
    for (const Attribute &attribute : tag.attributes) {
        const bool isTarget = attribute.name == "target" || attribute.name == "formtarget";
        const bool isFrame = attribute.name == "name" && hasWord("iframe frame object", tag.name);
        for (const string &value : attribute.values) {
            if (isFrame)
                facts.frames.insert(value);
            if (isTarget)
                facts.targets.push_back({value, attribute.value});
        }
    }
}

void Facts::start(Paths &paths, const Tag &tag)
{
    if (tag.name == "!doctype") {
        seen.insert(tag.name);
        return;
    }
    noteTag(*this, paths, tag);
    noteFrames(*this, tag);
    if (tag.is(IS_FIELD))
        noteField(*this, paths, tag);
    for (const Attribute &attribute : tag.attributes) {
        if (attribute.values.empty())
            continue;
        switch (attribute.use) {
        case Use::ID:
            noteId(*this, paths, tag, attribute);
            break;
        case Use::NAME:
            ids.push_back({attribute.values[0], nullptr, attribute.place, {}, nullptr, false});
            break;
        case Use::REFERENCE:
            noteReference(*this, paths, tag, attribute);
            break;
        case Use::LINK:
            noteFragment(*this, paths, tag, attribute);
            checkLink(*this, paths, tag, attribute);
            break;
        case Use::ADDRESS:
            checkLink(*this, paths, tag, attribute);
            break;
        case Use::NONE:
            break;
        }
    }
}

void Facts::close(const Paths &paths, const Open &open)
{
    const Tag &tag = *open.tag;
    if (open.implied)
        return;
    if (tag.name == "label") {
        const Attribute *target = tag.find("for");
        for (const string &id : target ? target->values : std::vector<string>())
            labels.emplace_back(id, open.named);
        return;
    }
    const bool needs = (tag.name == "a" && tag.find("href")) || tag.name == "button" ||
                       (tag.name == "title" && !open.foreign);
    if (!needs || tag.unknown || isHidden(tag) || findOpen(open.outer, "template"))
        return;
    if (open.named || says(tag, "aria-label") || says(tag, "title") ||
        tag.find("aria-labelledby") || paths.opaque) {
        acquit(faults, &tag, "name", paths.page);
        return;
    }
    const char *what = tag.name == "a"        ? "this link has no text"
                       : tag.name == "button" ? "this button has no text"
                                              : "<title> is empty";
    Suspect &suspect =
        suspectOf(faults, &tag, "name", tag.name == "title" ? "html-document" : "html-name");
    suspect.faults.push_back(
        {paths.page, tag.place,
         string(what) + (tag.name == "title" ? ": browsers show the address in its place"
                                             : ", and no name for those who do not see it: "
                                               "give it aria-label")});
}

// ---- at a page's end ----

static void reportTwice(Facts &facts, const IdUse &first, const IdUse &second, string text)
{
    const size_t depth = first.chain ? first.chain->depth : 0;
    const size_t other = second.chain ? second.chain->depth : 0;
    const bool isSecond = other <= depth; // the page rather than what it includes
    const IdUse &told = isSecond ? second : first;
    const IdUse &noted = isSecond ? first : second;
    std::vector<Note> notes;
    if (told.place.tpl != noted.place.tpl || told.place.span.at != noted.place.span.at)
        notes.push_back(noteAt(*noted.place.tpl, noted.place.span.at, "the other one is here"));
    else if (told.chain)
        notes.push_back(noteAt(*told.chain->tpl, told.chain->node->place.span.at,
                               "included once more from here"));
    reportPlace(facts.all, Grade::ERROR, told.place, "html-id", std::move(text), std::move(notes));
}

static void checkTwice(Facts &facts, const std::vector<IdUse> &uses, const char *what)
{
    std::map<string_view, std::vector<const IdUse *>> byId;
    for (const IdUse &use : uses)
        if (use.tag && isKnown(use.id) && !use.id.empty())
            byId[use.id].push_back(&use);
    for (const auto &entry : byId) {
        const string_view id = entry.first;
        const auto &same = entry.second;
        const string name = what + string(id) + (*what ? "'" : "");
        for (size_t i = 0; i < same.size(); ++i) {
            if (same[i]->many) {
                reportPlace(facts.all, Grade::ERROR, same[i]->place, "html-id",
                            name + " comes once for each row; an id is that of one element");
                break;
            }
            const auto earlier = std::find_if(
                same.begin(), same.begin() + static_cast<ptrdiff_t>(i), [&](const IdUse *use) {
                    const bool isAgain = use->tag == same[i]->tag && use->chain == same[i]->chain;
                    return !isAgain && !exclude(use->when, same[i]->when) &&
                           (covers(use->when, same[i]->when) || covers(same[i]->when, use->when));
                });
            if (earlier == same.begin() + static_cast<ptrdiff_t>(i))
                continue;
            reportTwice(facts, **earlier, *same[i], name + " stands in the page twice");
            break;
        }
    }
}

const string &scriptsOf(Facts &facts)
{
    if (facts.scriptsRead)
        return facts.scripts;
    facts.scriptsRead = true;
    for (const string &path : facts.all.site.files) {
        string bytes;
        if (path.ends_with(".js") &&
            readBytes((facts.all.site.options.docRoot + "/" + path).c_str(), &bytes))
            facts.scripts += bytes + "\n";
    }
    for (const auto &[path, tpl] : facts.all.site.templates) {
        const string_view source = tpl->source;
        for (size_t at = 0; (at = source.find("<script", at)) != string_view::npos; ++at) {
            const size_t end = std::min(source.find("</script", at), source.size());
            facts.scripts += string(source.substr(at, end - at)) + "\n";
        }
    }
    return facts.scripts;
}

// As in ".id = 'x'" and "id=\"x\"".
bool isMadeByScript(Facts &facts, string_view id)
{
    const string_view scripts = scriptsOf(facts);
    for (size_t at = 0; (at = scripts.find(id, at)) != string_view::npos; ++at) {
        size_t begin = at;
        while (begin > 0 && at - begin < 8 && !isLetterOrDigit(scripts[begin - 1]))
            --begin;
        const bool isId = begin >= 2 && begin < at && scripts.substr(begin - 2, 2) == "id" &&
                          (begin == 2 || !isLetterOrDigit(scripts[begin - 3]));
        if (isId)
            return true;
    }
    return false;
}

static bool isThere(const Facts &facts, const IdReference &reference, const string &id)
{
    return std::ranges::any_of(facts.ids, [&](const IdUse &use) {
        return mayMatch(use.id, id) && !exclude(use.when, reference.when);
    });
}

string didYouMean(string_view id, const std::vector<string_view> &known)
{
    const string_view near = nearest(id, known);
    return near.empty() ? "" : "; did you mean '" + string(near) + "'?";
}

static string nearestId(const Facts &facts, string_view id)
{
    std::vector<string_view> known;
    for (const IdUse &use : facts.ids)
        if (isKnown(use.id))
            known.push_back(use.id);
    return didYouMean(id, known);
}

// The first id of a way that no element of the page has; empty for none.
static string lostOf(Facts &facts, const Paths &paths, const IdReference &reference,
                     const std::vector<string> &ids)
{
    const bool isLink = reference.attribute->name == "href";
    const auto lost = std::ranges::find_if(ids, [&](const string &id) {
        return isKnown(id) && !paths.opaque && !isThere(facts, reference, id) &&
               !isMadeByScript(facts, id) &&
               !(isLink && scriptsOf(facts).find("hash") != string::npos);
    });
    return lost == ids.end() ? "" : *lost;
}

// Of an attribute with several values one may be that of this page: all have to be lost.
static void checkReference(Facts &facts, const Paths &paths, const IdReference &reference)
{
    const Attribute &attribute = *reference.attribute;
    const bool isLink = attribute.name == "href";
    string id;
    for (const std::vector<string> &way : reference.ways) {
        const string lost = lostOf(facts, paths, reference, way);
        if (lost.empty())
            return acquit(facts.faults, reference.tag, attribute.name, paths.page);
        id = id.empty() ? lost : id;
    }
    if (attribute.name == "for")
        facts.lostLabels.push_back(id);
    Suspect &suspect = suspectOf(facts.faults, reference.tag, attribute.name, "html-reference");
    suspect.place = attribute.hasValue ? attribute.value : attribute.place;
    string text = isLink ? "#" + id + " leads to no place: no" : attribute.name + ": no";
    text.append(" element of this page has the id '").append(id).append("'");
    text += nearestId(facts, id);
    suspect.faults.push_back({paths.page, inPage(reference.chain, suspect.place), std::move(text)});
    suspect.faults.back().weak = isWeak(paths, suspect.tpl, reference.when);
}

// Whether something names a field.
static bool isNamed(const Facts &facts, const LabelledField &field)
{
    const Tag &tag = *field.tag;
    if (says(tag, "aria-label") || says(tag, "title") || says(tag, "placeholder") ||
        tag.find("aria-labelledby") || (field.label && field.label->named))
        return true;
    return std::ranges::any_of(facts.labels, [&](const auto &label) {
        return label.second && std::ranges::any_of(field.ids, [&](const string &id) {
                   return mayMatch(label.first, id) || mayMatch(id, label.first);
               });
    });
}

// Whether a label that is for no field was meant for this one, which is told then.
static bool hasLostLabel(const Facts &facts, const LabelledField &field)
{
    const Attribute *name = field.tag->find("name");
    return std::ranges::any_of(facts.lostLabels, [&](const string &label) {
        const bool isName =
            field.ids.empty() && name && !name->values.empty() && mayMatch(name->values[0], label);
        return isName || std::ranges::any_of(field.ids, [&](const string &id) {
                   return !nearest(label, {id}).empty();
               });
    });
}

static void checkField(Facts &facts, const Paths &paths, const LabelledField &field)
{
    if (paths.opaque || isNamed(facts, field) || hasLostLabel(facts, field))
        return acquit(facts.faults, field.tag, "label", paths.page);
    Suspect &suspect = suspectOf(facts.faults, field.tag, "label", "html-name");
    suspect.faults.push_back(
        {paths.page, inPage(field.chain, field.tag->place),
         "this <" + field.tag->name +
             "> has no name for those who do not see it: give it a <label>" +
             (field.ids.empty() ? ", and an id for that" : " with for=\"" + field.ids[0] + "\"") +
             ", or aria-label"});
    suspect.faults.back().weak = isWeak(paths, suspect.tpl, field.when);
}

static void checkDocument(Facts &facts, const Paths &paths)
{
    if (!facts.html)
        return;
    const auto check = [&](const char *rule, bool fine, const char *text) {
        if (fine)
            return acquit(facts.faults, facts.html, rule, paths.page);
        Suspect &suspect = suspectOf(facts.faults, facts.html, rule, "html-document");
        suspect.faults.push_back({paths.page, inPage(facts.htmlChain, facts.html->place), text});
    };
    check("title", facts.hasSeen("title") || paths.opaque, "the page has no <title>");
    check("doctype", facts.hasSeen("!doctype") || paths.opaque,
          "<!DOCTYPE html> is missing in front: browsers fall back to the ways of old ones");
    check("lang", facts.html->find("lang") || facts.html->unknown,
          "<html> has no lang, by which the page is read out in its language");
}

void Facts::endPage(const Paths &paths)
{
    PageIds &own = pages[paths.page->path];
    own.opaque = paths.opaque;
    for (const IdUse &use : ids) {
        own.ids.insert(use.id);
    }
    checkTwice(*this, ids, "the id '");
    checkTwice(*this, singles, "");
    for (const IdReference &reference : references)
        checkReference(*this, paths, reference);
    for (const LabelledField &field : fields)
        checkField(*this, paths, field);
    checkDocument(*this, paths);
}

// A window of any name can be opened: told is what was meant for a frame, or for one of the four
// words of HTML.
static void checkTarget(Facts &facts, const Target &target)
{
    static constexpr string_view words = "_blank _self _parent _top";
    const string name = lowered(target.name);
    const bool isWord = name.starts_with('_');
    if (name.empty() || hasWord(words, name) || !isKnown(name) ||
        std::ranges::any_of(facts.frames,
                            [&](const string &frame) { return mayMatch(frame, target.name); }))
        return;
    const string word = "_" + name.substr(isWord);
    string near(isWord ? nearest(name, {"_blank", "_self", "_parent", "_top"})
                       : nearest(name, {facts.frames.begin(), facts.frames.end()}));
    if (hasWord(words, word))
        near = word;
    if (!isWord && (near.empty() || scriptsOf(facts).find(target.name) != string::npos))
        return;
    reportPlace(facts.all, isWord ? Grade::ERROR : Grade::WARNING, target.place, "html-reference",
                near.empty()
                    ? "no frame can be called '" + target.name +
                          "': with _ begin _blank, _self, _parent and _top alone"
                    : "no frame is called '" + target.name + "'; did you mean '" + near + "'?");
}

void Facts::endSite()
{
    for (const Target &target : targets)
        checkTarget(*this, target);
    checkResources(*this);
    for (const FarLink &link : farLinks) {
        const auto page = pages.find(link.page);
        if (page == pages.end() || page->second.opaque ||
            std::ranges::any_of(page->second.ids,
                                [&](const string &id) { return mayMatch(id, link.id); }) ||
            isMadeByScript(*this, link.id) || scriptsOf(*this).find("hash") != string::npos)
            continue;
        reportPlace(all, Grade::ERROR, link.place, "html-reference",
                    "no element of " + link.page + " has the id '" + link.id + "'");
    }
}
