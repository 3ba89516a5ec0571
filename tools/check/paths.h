/* tools/check/paths.h - all ways through a page at once.
 *
 * A page is walked once. Where branches or rows leave different things open, the walk goes on
 * with a variant for each, with the conditions under which it comes about; variants in which
 * the same is open become one again. So a condition that is asked twice is answered the same
 * way twice, and the number of ways does not double with each if. What a constant decides is
 * followed in one way only. */
#ifndef ORV_CHECK_PATHS_H
#define ORV_CHECK_PATHS_H

#include <functional>
#include <optional>

#include "flow.h"

struct Open;
struct Breach;

// What is open on the way to a place of a page.
struct State {
    const Open *top = nullptr;      // elements, the innermost first
    const Breach *breaks = nullptr; // where end tags have skipped some, the last first
    const Open *ended = nullptr;    // paragraphs that were ended by other tags, the same way
    bool behindBody = false;
    uint8_t json = 0;           // of a JSON document: what can come next; 0 outside
    const Open *list = nullptr; // its lists and objects
    uint8_t literal = 0;        // bytes of a word or an escape in it
};

// A condition, and how it turned out: for rows, 1 when there are any.
struct Outcome {
    uint32_t atom;
    uint8_t value;

    bool operator==(const Outcome &) const = default;
};
using Outcomes = std::vector<Outcome>;

struct Variant {
    State state;
    Outcomes when;
};

// What branches were there at a fork.
struct Atom {
    NodeKind kind;
    const Command *command;
    const Template *tpl;
    bool repeats = false; // of rows: there can be several
    bool isMore = false;  // of rows: whether there are several, when there are any
    uint32_t runs = 0;    // of such a one: the atom that there are any
};

// The includes by which a place has come into a page.
struct Chain {
    const Chain *outer;
    const Template *tpl; // that includes
    const Node *node;
    size_t depth;
};

// What a variable holds at a place of the page.
struct Held {
    std::optional<std::string> value;      // when it is certain
    std::vector<const VariableUse *> sets; // that may have been the last; none for unknown
    uint32_t version = 0;
};

struct Paths;

// What is done on the way. Each is called for all variants at once.
struct PathVisitor {
    virtual void visitTag(Paths &paths, const Node &node) = 0;
    virtual void visitWords(Paths &paths, const Node &node) = 0; // or a value
    virtual void visitData(Paths &paths, const Node &node) = 0;
    virtual bool isSame(const State &a, const State &b) const = 0;
    virtual ~PathVisitor() = default;
};

// A body that is open: of rows, with what is known of them.
struct Frame {
    const Command *command;
    uint32_t instance; // differs in each pass
    std::optional<long> counter;
};

struct Paths {
    Forest &forest;
    PathVisitor &walker;
    const Template *page;
    bool many = false;    // of .json: a query has one row
    bool inData = false;  // what is walked is a template of JSON, included in a script or not
    bool opaque = false;  // something comes out of which nothing is known
    bool crowded = false; // and of no structure: there were too many variants, or half a tag
    std::vector<Variant> variants{1};
    Outcomes conditions;       // around the place
    std::vector<Frame> frames; // bodies around it, in its template
    const Chain *chain = nullptr;
    std::deque<Chain> chains;
    std::vector<Atom> atoms;
    std::map<std::string, uint32_t> atomsByKey;
    std::map<std::string, Held, std::less<>> held;
    std::vector<std::pair<std::string, Held>> undo;
    uint32_t counted = 0;
    bool again = false; // the body runs for the second row
    size_t decided = 0; // conditions that a constant has decided
    std::set<const Template *> open;
    std::set<std::string, std::less<>> reading; // variables whose values are being walked

    Paths(Forest &of, PathVisitor &by, const Template *start) : forest(of), walker(by), page(start)
    {
    }
};

/* Walks a page from its begin to its end. */
void walkPage(Paths &paths, const Flow &flow);

/* Whether something that goes wrong in some variants is a mistake for certain: in all of them,
 * or in all in which one condition turns out one way. where: the template of the mistake;
 * such a condition has to stand in it too. blame: out, that condition, atom
 * paths.atoms.size() for none. */
bool isCertain(const Paths &paths, const std::vector<bool> &wrong, const Template *where,
               Outcome *blame);

/* Whether a place, or the outcome that is to blame for it, hangs on a value of a row. */
bool dependsOnRow(const Paths &paths, Outcome blame);

/* Whether two places cannot both be in one page, by their conditions, and whether the first is
 * there whenever the other one is. */
bool exclude(const Outcomes &a, const Outcomes &b);
bool covers(const Outcomes &a, const Outcomes &b);

/* A condition as words: "where eq $var:a 1 holds", "when there is no row". */
std::string conditionOf(const Paths &paths, Outcome outcome);

/* The condition of an if, as it would be at this place. value: for a way. */
Outcome outcomeOf(Paths &paths, const Template &tpl, const Command &command, uint8_t way);

#endif
