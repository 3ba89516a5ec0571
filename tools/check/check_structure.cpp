/* tools/check/check_structure.cpp - rules about the elements of pages: which tags belong
 * together, and what may stand in what. */
#include <algorithm>

#include "facts.h"
#include "faults.h"
#include "json_pages.h"
#include "structure.h"
#include "tools/common/words.h"

using std::string;
using std::string_view;

namespace
{
// An element that was opened within a branch and closed behind it, or the other way round.
struct Crossing {
    const Open *open;
    const Tag *end;
    Outcomes when; // the end tag's
};

// An end tag that closes nothing, with what was open there.
struct Stray {
    const Tag *tag;
    const Tag *open;
};

struct Structure final : PathVisitor {
    Report &all;
    Faults faults;
    Facts facts;
    JsonPages json;
    std::deque<Open> opens; // of the page that is walked
    std::deque<Breach> breaks;
    std::vector<Crossing> crossings;
    std::vector<std::pair<const Open *, const Tag *>> shifted; // start and end tag differ in indent
    std::vector<Stray> strays;
    // The first tag that is told of an element's content, by what is wrong.
    std::map<std::pair<const Open *, string>, const Tag *> misplaced;

    explicit Structure(Report &of) : all(of), faults(of), facts{of, faults}, json{of}
    {
    }
    void visitTag(Paths &paths, const Node &node) override;
    void visitWords(Paths &paths, const Node &node) override;
    void visitData(Paths &paths, const Node &node) override;
    bool isSame(const State &a, const State &b) const override;
};
} // namespace

// ---- what is open ----

static bool isOptional(const Open &open)
{
    return open.implied || open.tag->is(IS_OPTIONAL);
}

const Open *findOpen(const Open *top, string_view name)
{
    while (top && top->name != name)
        top = top->outer;
    return top;
}

bool Structure::isSame(const State &a, const State &b) const
{
    const auto areSame = [](const Open *x, const Open *y) {
        for (; x != y; x = x->outer, y = y->outer)
            if (!x || !y || x->name != y->name)
                return false;
        return true;
    };
    return areSame(a.top, b.top) && a.behindBody == b.behindBody && a.json == b.json &&
           a.literal == b.literal && areSame(a.list, b.list);
}

// Where a page is to blame for what belongs to one place and shows at another: in the template
// that both have come through.
static Place meetingOf(const Chain *from, const Chain *to, const Place &place)
{
    const Chain *last = nullptr;
    while (from != to) {
        const size_t depth = from ? from->depth : 0;
        if (to && to->depth >= depth) {
            last = to;
            to = to->outer;
        } else {
            from = from->outer;
        }
    }
    return last ? last->node->place : place;
}

static uint32_t lineOf(const Place &place)
{
    return placeOf(*place.tpl, place.span.at).line;
}

// The column of a tag that is the first of its line; 0 for others.
static uint32_t indentOf(const Place &place)
{
    if (place.text)
        return 0;
    const LineColumn at = placeOf(*place.tpl, place.span.at);
    const string_view source = place.tpl->source;
    const string_view before = source.substr(place.span.at + 1 - at.column, at.column - 1);
    return before.find_first_not_of(" \t") == string_view::npos ? at.column : 0;
}

static void push(Structure &self, Paths &paths, State *state, const Tag *tag, string_view name,
                 bool implied)
{
    const bool isForeign =
        name == "svg" || name == "math" ||
        (state->top && state->top->foreign && state->top->name != "foreignobject");
    self.opens.push_back(
        {state->top, tag, name, paths.chain, paths.conditions, isForeign, implied});
    state->top = &self.opens.back();
}

// Notes that an element ends, and what it held.
static void closeOpen(Structure &self, const Paths &paths, const Open *open)
{
    const Attribute *hidden = open->tag->find("aria-hidden");
    const bool isHidden = hidden && hidden->values == std::vector<string>{"true"};
    if (open->outer && open->named && !isHidden)
        open->outer->named = true;
    self.facts.close(paths, *open);
}

// ---- tags without the other one ----

static bool isInside(const Open *inner, const Open *outer)
{
    for (inner = inner->outer; inner; inner = inner->outer)
        if (inner == outer)
            return true;
    return false;
}

// Whether a condition is among some, as it turned out or the other way.
static bool stands(const Paths &paths, const Outcomes &when, Outcome blame, bool same)
{
    const Atom &atom = paths.atoms[blame.atom];
    const Outcome wanted = atom.isMore ? Outcome{atom.runs, 1} : blame;
    return std::ranges::any_of(when, [&](Outcome outcome) {
        return outcome.atom == wanted.atom && (outcome.value == wanted.value) == same;
    });
}

// Blames what stands in the branch that makes an element stay open: the end tag that is there,
// or in the other branch only, or a start tag that takes the end tag of the one outside.
static void blameForOpen(const Structure &self, const Paths &paths, const Open &open, Outcome blame,
                         Fault *fault)
{
    const string fork = conditionOf(paths, blame);
    for (const Crossing &crossing : self.crossings) {
        const Tag &start = *crossing.open->tag;
        if (crossing.open->tag == open.tag && stands(paths, crossing.when, blame, false)) {
            fault->there = crossing.end->place;
            fault->text = "</" + start.name + "> is missing " + fork + ", to close " +
                          nameOfTag(start, crossing.end->place.tpl) +
                          ", as this one does otherwise";
            return;
        }
        if (crossing.open->name == open.name && isInside(crossing.open, &open) &&
            stands(paths, crossing.open->when, blame, true)) {
            fault->there = start.place;
            fault->text = "<" + start.name + "> is not closed " + fork + ": the </" + start.name +
                          "> behind it is that of " + nameOfTag(*open.tag, start.place.tpl);
            return;
        }
    }
    fault->text = fault->plain + ", " + fork;
}

// The same for an end tag that closes nothing.
static void blameForEnd(const Structure &self, const Paths &paths, const Tag &end, Outcome blame,
                        Fault *fault)
{
    const string fork = conditionOf(paths, blame);
    for (const Crossing &crossing : self.crossings) {
        const Tag &start = *crossing.open->tag;
        if (crossing.end == &end && stands(paths, crossing.open->when, blame, false)) {
            fault->there = start.place;
            fault->text = "<" + start.name + "> does not stand here " + fork + ", but " +
                          nameOfTag(end, start.place.tpl) + " does";
            return;
        }
        if (start.name == end.name && stands(paths, crossing.when, blame, true)) {
            fault->there = crossing.end->place;
            fault->text = "</" + start.name + "> closes " +
                          nameOfTag(start, crossing.end->place.tpl) + " " + fork + ", and " +
                          nameOfTag(end, crossing.end->place.tpl) + " then closes nothing";
            return;
        }
    }
    fault->text = fault->plain + ", " + fork;
}

// open: that is not closed; null for an end tag that closes nothing, or what is misplaced.
static void addFault(const Structure &self, Paths &paths, Suspect &suspect,
                     const std::vector<bool> &wrong, Fault fault, const Open *open, const Tag *end)
{
    Outcome blame;
    fault.page = paths.page;
    const bool certain = isCertain(paths, wrong, suspect.tpl, &blame);
    fault.weak = isWeak(paths, suspect.tpl, open ? open->when : paths.conditions);
    if (certain && blame.atom < paths.atoms.size()) {
        fault.somewhere = true;
        fault.there = suspect.place;
        if (open)
            blameForOpen(self, paths, *open, blame, &fault);
        else if (end)
            blameForEnd(self, paths, *end, blame, &fault);
        else
            fault.text = fault.plain + ", " + conditionOf(paths, blame);
    }
    suspect.faults.push_back(std::move(fault));
}

// Whether a variant's state has something open, up to an outer element.
static bool hasOpen(const Open *top, const Open *end, const Tag *tag)
{
    for (; top != end; top = top->outer)
        if (top->tag == tag && !isOptional(*top))
            return true;
    return false;
}

// A start tag that is further left or right than its end tag, inside of one that has none.
static const Tag *shiftedIn(const Structure &self, const Open &open)
{
    for (const auto &[inner, end] : self.shifted) {
        if (isInside(inner, &open) && inner->name == open.name &&
            indentOf(inner->tag->place) > indentOf(end->place))
            return inner->tag;
    }
    return nullptr;
}

// What was skipped in any of the variants, each tag once.
static std::vector<const Open *> skippedIn(const std::vector<const Breach *> &skipped)
{
    std::vector<const Open *> all;
    for (const Breach *one : skipped)
        for (const Open *open = one ? one->before : nullptr; one && open != one->closed;
             open = open->outer)
            if (!isOptional(*open) && !open->reopened &&
                std::ranges::find(all, open->tag, &Open::tag) == all.end())
                all.push_back(open);
    return all;
}

// The texts for an element that is not closed where that is to blame.
static void describeUnclosed(const Structure &self, const Open &open, const Tag *end,
                             const string &closer, Suspect *suspect)
{
    const string lost = "</" + open.tag->name + "> is missing";
    if (suspect->text.empty())
        suspect->text = "<" + open.tag->name + "> is not closed in front of " +
                        (end ? closer + "in line " + std::to_string(lineOf(end->place))
                             : "the end of the page") +
                        ": " + lost;
    if (const Tag *tag = shiftedIn(self, open)) {
        suspect->place = tag->place;
        suspect->text = lost + ": the one that closes this <" + tag->name +
                        "> stands where that of line " + std::to_string(lineOf(open.tag->place)) +
                        " would";
    }
}

// Elements that were skipped, of some variants; an entry of ends for each variant.
static void reportSkipped(Structure &self, Paths &paths, const std::vector<const Breach *> &skipped,
                          const Tag *end, const Place &endPlace)
{
    for (const Open *open : skippedIn(skipped)) {
        std::vector<bool> wrong;
        const Breach *first = nullptr;
        for (const Breach *one : skipped) {
            wrong.push_back(one && hasOpen(one->before, one->closed, open->tag));
            first = first || !wrong.back() ? first : one;
        }
        Suspect &suspect = suspectOf(self.faults, open->tag, "unclosed", "html-tag");
        const string closer =
            end ? (end->closing ? "</" : "<") + end->name + "> " : "the end of the page ";
        Fault fault = {};
        fault.at = meetingOf(open->chain, paths.chain, endPlace);
        fault.plain = nameOfTag(*open->tag, fault.at.tpl) + " is still open where " + closer +
                      "comes: </" + open->tag->name + "> is missing";
        fault.skipped = first;
        if (end)
            fault.notes.push_back(noteAt(*end->place.tpl, end->place.span.at, closer + "is here"));
        describeUnclosed(self, *open, end, closer, &suspect);
        addFault(self, paths, suspect, wrong, std::move(fault), open, nullptr);
    }
}

// ---- end tags ----

static void noteMatch(Structure &self, Paths &paths, const Open *open, const Tag *end)
{
    acquit(self.faults, open->tag, "unclosed", paths.page);
    const bool apart =
        !covers(open->when, paths.conditions) || !covers(paths.conditions, open->when);
    if (apart && std::ranges::find_if(self.crossings, [&](const Crossing &crossing) {
                     return crossing.open == open && crossing.end == end;
                 }) == self.crossings.end())
        self.crossings.push_back({open, end, paths.conditions});
    if (open->tag->place.tpl != end->place.tpl || lineOf(open->tag->place) == lineOf(end->place))
        return;
    const uint32_t from = indentOf(open->tag->place);
    const uint32_t to = indentOf(end->place);
    if (from && to && from != to)
        self.shifted.emplace_back(open, end);
}

static bool isHeading(string_view name)
{
    return name.size() == 2 && name[0] == 'h' && name[1] >= '1' && name[1] <= '6';
}

// Whether an end tag that closes nothing was meant for what is open.
static bool isMeantFor(const Tag &end, const Open *top)
{
    if (!top || isOptional(*top))
        return false;
    return (isHeading(end.name) && isHeading(top->name)) ||
           (!end.row && end.name.find('-') == string::npos &&
            nearestElement(end.name) == top->name);
}

// Whether a </p> is that of a paragraph which another tag has ended, which is told then.
static bool closesEnded(Structure &self, const Paths &paths, const State &state, const Tag &tag)
{
    for (const Open *ended = state.ended; tag.name == "p" && ended; ended = ended->outer) {
        const Open *outer = ended->paragraph->outer;
        const Open *open = state.top;
        while (open && open != outer)
            open = open->outer;
        if (open != outer)
            continue;
        Suspect &suspect = suspectOf(self.faults, ended->tag, "paragraph", "html-nesting");
        Fault fault = {};
        fault.page = paths.page;
        fault.at = meetingOf(ended->paragraph->chain, ended->chain, ended->tag->place);
        fault.plain = "<" + ended->tag->name + "> cannot stand in the paragraph of " +
                      nameOfTag(*ended->paragraph->tag, fault.at.tpl) +
                      ": browsers end that here, and its </p> closes nothing";
        suspect.faults.push_back(std::move(fault));
        return true;
    }
    return false;
}

// Whether an end tag is that of an element which the last one has skipped: the last one was
// the wrong one then, which is told, and what it has closed is open again.
static bool closesSkipped(Structure &self, const Paths &paths, State *state, const Tag &tag)
{
    const Breach *last = state->breaks;
    if (!last || !last->closed || state->top != last->closed->outer)
        return false;
    const Open *open = last->before;
    while (open != last->closed && open->name != tag.name)
        open = open->outer;
    if (open == last->closed)
        return false;
    last->crosses = true;
    if (const Open *reopened = findOpen(open->outer, last->end->name))
        reopened->reopened = true;
    state->top = open->outer;
    state->breaks = last->outer;
    acquit(self.faults, open->tag, "unclosed", paths.page);
    Suspect &suspect = suspectOf(self.faults, last->end, "crossing", "html-tag");
    suspect.text = "<" + string(last->end->closing ? "/" : "") + last->end->name +
                   "> stands where " + nameOfTag(*open->tag, last->end->place.tpl) +
                   " is still open; its </" + string(open->name) + "> follows in line " +
                   std::to_string(lineOf(tag.place));
    suspect.faults.push_back({paths.page, last->end->place, suspect.text});
    return true;
}

// An end tag whose element is not open. Returns whether that is to be told by itself.
static bool closeNothing(Structure &self, const Paths &paths, State *state, const Tag *tag)
{
    if (closesEnded(self, paths, *state, *tag) || closesSkipped(self, paths, state, *tag))
        return false;
    if ((tag->name == "html" || tag->name == "head" || tag->name == "body") &&
        !self.facts.hasSeen(tag->name))
        return false; // its start tag may be left out
    if (tag->name == "tbody" && findOpen(state->top, "table"))
        return false;
    if (isMeantFor(*tag, state->top)) {
        acquit(self.faults, state->top->tag, "unclosed", paths.page);
        Suspect &suspect = suspectOf(self.faults, tag, "stray", "html-tag");
        suspect.text = "</" + tag->name + "> does not close " +
                       nameOfTag(*state->top->tag, tag->place.tpl) + "; did you mean </" +
                       string(state->top->name) + ">?";
        suspect.faults.push_back({paths.page, tag->place, suspect.text});
        closeOpen(self, paths, state->top);
        state->top = state->top->outer;
        return false;
    }
    return true;
}

// An end tag that stands in a branch as its start tag does, and comes too late: another one
// outside of them has closed that. Blames the other one.
static bool blameEarlier(Structure &self, Paths &paths, const Tag *tag)
{
    for (const Crossing &crossing : self.crossings) {
        const Outcomes &when = crossing.open->when;
        const bool isOther = crossing.when.size() < paths.conditions.size() &&
                             covers(when, paths.conditions) && covers(paths.conditions, when);
        if (!isOther || crossing.open->name != tag->name)
            continue;
        suspectOf(self.faults, crossing.end, "stray", "html-tag").dropped = true;
        Suspect &suspect = suspectOf(self.faults, crossing.end, "early", "html-tag");
        suspect.faults.push_back({paths.page, crossing.end->place,
                                  "this </" + tag->name + "> closes " +
                                      nameOfTag(*crossing.open->tag, crossing.end->place.tpl) +
                                      ", and is one too many: it comes in front of " +
                                      nameOfTag(*tag, crossing.end->place.tpl)});
        return true;
    }
    return false;
}

static void reportStray(Structure &self, Paths &paths, const Tag *tag,
                        const std::vector<bool> &wrong, const Open *top)
{
    Suspect &suspect = suspectOf(self.faults, tag, "stray", "html-tag");
    Fault fault = {};
    fault.at = meetingOf(nullptr, paths.chain, tag->place);
    suspect.dropped = suspect.dropped || blameEarlier(self, paths, tag);
    const string name =
        fault.at.tpl == tag->place.tpl ? "</" + tag->name + ">" : nameOfTag(*tag, fault.at.tpl);
    fault.plain = name + " closes nothing: no <" + tag->name + "> is open here";
    if (suspect.text.empty()) {
        suspect.text = "</" + tag->name + "> closes nothing: no <" + tag->name + "> is open here";
        for (const auto &[open, end] : self.shifted)
            if (open->name == tag->name && end->place.tpl == tag->place.tpl &&
                indentOf(open->tag->place) < indentOf(end->place)) {
                suspect.place = end->place;
                suspect.text = "this </" + tag->name + "> closes " +
                               nameOfTag(*open->tag, tag->place.tpl) +
                               ", which begins further left: it is one too many, or its <" +
                               tag->name + "> is missing";
                break;
            }
    }
    while (top && isOptional(*top))
        top = top->outer;
    if (top && top->tag->place.tpl == tag->place.tpl)
        self.strays.push_back({tag, top->tag});
    addFault(self, paths, suspect, wrong, std::move(fault), nullptr, tag);
}

// Closes what an end tag closes, in one variant. Returns what it has skipped, or null.
static const Breach *closeTo(Structure &self, const Paths &paths, State *state, const Open *open,
                             const Tag *end)
{
    const Breach *skipped = nullptr;
    bool skips = false;
    for (const Open *inner = state->top; inner != open; inner = inner->outer) {
        skips = skips || !isOptional(*inner);
        closeOpen(self, paths, inner);
    }
    if (skips) {
        self.breaks.push_back({state->breaks, state->top, open, end});
        skipped = state->breaks = &self.breaks.back();
    }
    closeOpen(self, paths, open);
    state->top = open->outer;
    return skipped;
}

static void visitEnd(Structure &self, Paths &paths, const Tag *tag)
{
    std::vector<const Breach *> skipped;
    std::vector<bool> stray;
    const Open *top = nullptr;
    if (tag->is(IS_VOID)) {
        reportPlace(self.all, Grade::ERROR, tag->place, "html-tag",
                    "<" + tag->name + "> has no content, and no end tag");
        return;
    }
    for (Variant &variant : paths.variants) {
        State *state = &variant.state;
        const Open *open = findOpen(state->top, tag->name);
        skipped.push_back(nullptr);
        stray.push_back(false);
        if (!open) {
            stray.back() = closeNothing(self, paths, state, tag);
            top = stray.back() ? state->top : top;
            continue;
        }
        noteMatch(self, paths, open, tag);
        acquit(self.faults, tag, "stray", paths.page);
        skipped.back() = closeTo(self, paths, state, open, tag);
        state->behindBody = state->behindBody || tag->name == "body" || tag->name == "html";
    }
    if (std::ranges::find(stray, true) != stray.end())
        reportStray(self, paths, tag, stray, top);
    if (std::ranges::any_of(skipped, [](const Breach *one) { return one != nullptr; }))
        reportSkipped(self, paths, skipped, tag, tag->place);
}

// ---- start tags ----

// Ends what a start tag ends, in one variant.
static const Breach *endImplied(Structure &self, Paths &paths, State *state, const Tag *tag)
{
    const Open *last = nullptr; // the outermost that is ended
    for (const Open *open = state->top; open; open = open->outer) {
        if (endsOpen(tag->name, open->name))
            last = open;
        else if (!isOptional(*open) && (open->implied || open->tag->is(IS_SCOPE)))
            break;
    }
    if (last)
        return closeTo(self, paths, state, last, tag);
    if (tag->is(ENDS_P) && state->top && state->top->name == "p") {
        const Open *paragraph = state->top;
        closeOpen(self, paths, paragraph);
        state->top = paragraph->outer;
        self.opens.push_back(
            {state->ended, tag, "p", paths.chain, paths.conditions, false, false, paragraph});
        state->ended = &self.opens.back();
    }
    return nullptr;
}

// The elements whose missing end is told in the place of what stands wrong in open: that, and where
// its end may be left out, those around it up to one that has to have it.
static void addCulprits(const Open *open, std::vector<const Tag *> *culprits)
{
    for (; open; open = open->outer) {
        if (open->implied)
            continue;
        culprits->push_back(open->tag);
        if (!isOptional(*open))
            return;
    }
}

static void reportMisplaced(Structure &self, Paths &paths, const Tag *tag)
{
    std::vector<bool> wrong;
    string text;
    const Open *reason = nullptr;
    const Open *inner = nullptr;
    for (const Variant &variant : paths.variants) {
        const Open *with = nullptr;
        const string problem = misplaced(variant.state, *tag, &with);
        wrong.push_back(!problem.empty());
        if (!problem.empty() && text.empty()) {
            text = "<" + tag->name + "> " + problem;
            inner = variant.state.top;
            reason = with;
        }
    }
    if (text.empty()) {
        if (tag->place.tpl != paths.page || findSuspect(self.faults, tag, "misplaced"))
            acquit(self.faults, tag, "misplaced", paths.page);
        return;
    }
    const string rule = tag->name + text.substr(0, text.find(" in "));
    const bool isTold = reason && !self.misplaced.try_emplace({reason, rule}, tag).second &&
                        self.misplaced[{reason, rule}] != tag;
    if (reason && (reason->reopened || isTold))
        return;
    Suspect &suspect = suspectOf(self.faults, tag, "misplaced", "html-nesting");
    Fault fault = {};
    fault.at = meetingOf(reason ? reason->chain : nullptr, paths.chain, tag->place);
    fault.plain = text;
    suspect.because.clear();
    addCulprits(reason, &suspect.because);
    addCulprits(inner, &suspect.because);
    addFault(self, paths, suspect, wrong, std::move(fault), nullptr, nullptr);
}

static void checkName(Structure &self, const Paths &paths, const Tag &tag)
{
    const bool isForeign = std::ranges::any_of(paths.variants, [](const Variant &variant) {
        return variant.state.top && variant.state.top->foreign;
    });
    if (!tag.row && !isForeign && tag.name.find('-') == string::npos) {
        const string_view near = nearestElement(tag.name);
        reportPlace(self.all, Grade::ERROR, tag.place, "html-tag",
                    "HTML has no element <" + tag.name + ">" +
                        (near.empty() ? "" : "; did you mean <" + string(near) + ">?"));
    }
    if (tag.selfClosing && tag.row && !tag.is(IS_VOID) && !isForeign && tag.name != "svg" &&
        tag.name != "math")
        reportPlace(self.all, Grade::ERROR, tag.place, "html-tag",
                    "the / closes nothing: <" + tag.name + "> needs </" + tag.name + ">");
}

static void visitStart(Structure &self, Paths &paths, const Tag *tag)
{
    std::vector<const Breach *> skipped;
    for (Variant &variant : paths.variants) {
        const bool isForeign = variant.state.top && variant.state.top->foreign;
        skipped.push_back(isForeign ? nullptr : endImplied(self, paths, &variant.state, tag));
        if (tag->name == "tr" && variant.state.top && variant.state.top->name == "table")
            push(self, paths, &variant.state, tag, "tbody", true);
    }
    if (std::ranges::any_of(skipped, [](const Breach *one) { return one != nullptr; }))
        reportSkipped(self, paths, skipped, tag, tag->place);
    checkName(self, paths, *tag);
    reportMisplaced(self, paths, tag);
    self.facts.start(paths, *tag);
    const bool isClosed = tag->selfClosing || tag->lost || tag->is(IS_VOID);
    for (Variant &variant : paths.variants) {
        if (variant.state.top && Facts::isRead(*tag))
            variant.state.top->named = true;
        if (!isClosed)
            push(self, paths, &variant.state, tag, tag->name, false);
    }
}

// ---- the walk ----

void Structure::visitTag(Paths &paths, const Node &node)
{
    const Tag *tag = node.tag.get();
    if (tag->name == "!doctype")
        return facts.start(paths, *tag);
    if (tag->name.find(MARK) != string::npos) {
        paths.crowded = paths.opaque = true; // nothing is certain from here on
        return;
    }
    json.visitTag(paths, *tag);
    if (tag->closing)
        visitEnd(*this, paths, tag);
    else
        visitStart(*this, paths, tag);
}

void Structure::visitWords(Paths &paths, const Node &node)
{
    if (node.kind != NodeKind::WORDS)
        json.visitValue(paths, node);
    std::vector<bool> wrong;
    const Open *top = nullptr;
    for (const Variant &variant : paths.variants) {
        const Open *open = variant.state.top;
        const bool inTable = open && hasWord("table thead tbody tfoot tr", open->name);
        wrong.push_back(inTable && node.kind == NodeKind::WORDS);
        top = wrong.back() ? open : top;
        if (open)
            open->named = true;
    }
    Outcome blame;
    if (top && !node.place.text && isCertain(paths, wrong, node.place.tpl, &blame) &&
        blame.atom == paths.atoms.size())
        reportPlace(all, Grade::ERROR, node.place, "html-nesting",
                    "text cannot stand directly in " + inOpen(*top, node.place.tpl) +
                        "; put it into a <td>");
}

void Structure::visitData(Paths &paths, const Node &node)
{
    json.visitData(paths, node);
}

// Pages that end with elements open.
static void endPage(Structure &self, Paths &paths)
{
    std::vector<const Breach *> skipped;
    const Template &page = *paths.page;
    const auto size = static_cast<uint32_t>(page.source.size());
    for (Variant &variant : paths.variants) {
        for (const Open *open = variant.state.top; open; open = open->outer)
            closeOpen(self, paths, open);
        self.breaks.push_back({variant.state.breaks, variant.state.top, nullptr, nullptr});
        skipped.push_back(&self.breaks.back());
    }
    reportSkipped(self, paths, skipped, nullptr, {&page, {size, size}, nullptr});
    if (paths.crowded) // nothing is known for certain
        for (Suspect *suspect : self.faults.ofPage)
            std::erase_if(suspect->faults,
                          [&](const Fault &fault) { return fault.page == paths.page; });
    self.json.endPage(paths);
    self.facts.endPage(paths);
}

// An end tag without start and a start tag without end, one behind the other, are one mistake.
static void joinStrays(Structure &self)
{
    for (const Stray &stray : self.strays) {
        Suspect *end = findSuspect(self.faults, stray.tag, "stray");
        Suspect *start = findSuspect(self.faults, stray.open, "unclosed");
        if (!end || !end->fine.empty() || !isGuilty(start) || start->dropped)
            continue;
        start->dropped = true;
        end->place = stray.tag->place;
        end->text = "</" + stray.tag->name + "> does not close " +
                    nameOfTag(*stray.open, stray.tag->place.tpl) + "; write </" + stray.open->name +
                    ">, or add what is missing of the two";
    }
}

// Reads all pages as trees; what has no end is told, and taken as ended.
static void readPages(Forest &forest)
{
    constexpr int rounds = 6;
    Report &all = forest.all;
    std::vector<Finding> told;
    for (int round = 0; round < rounds; ++round) {
        const size_t before = all.findings.size();
        forest.flows.clear();
        forest.again = false;
        for (const string &path : all.site.pages) {
            const Flow *flow = flowOf(forest, *all.site.templates[path], modeOf(path));
            const Mode end = flow->end.mode;
            if (!flow->broken && end != Mode::TEXT && end != Mode::DATA && end != Mode::PLAIN)
                reportEndless(forest, flow->end, 0);
        }
        if (!forest.again)
            break;
        told.insert(told.end(), forest.told.begin(), forest.told.end());
        forest.told.clear();
        all.findings.resize(before);
    }
    all.findings.insert(all.findings.end(), told.begin(), told.end());
}

void checkStructure(Report &all)
{
    Forest forest(all);
    Structure self(all);
    readPages(forest);
    for (const string &path : all.site.pages) {
        const Template &page = *all.site.templates[path];
        const Flow *flow = flowOf(forest, page, modeOf(path));
        if (flow->broken || modeOf(path) == Mode::PLAIN)
            continue;
        Paths paths(forest, self, &page);
        paths.many = paths.inData = modeOf(path) == Mode::DATA;
        self.faults.ofPage.clear();
        self.json.beginPage(paths);
        self.facts.beginPage(paths);
        walkPage(paths, *flow);
        endPage(self, paths);
        self.opens.clear();
        self.crossings.clear();
        self.misplaced.clear();
        self.shifted.clear();
    }
    settle(self.faults);
    joinStrays(self);
    reportFaults(self.faults);
    self.facts.endSite();
}
