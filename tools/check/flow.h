/* tools/check/flow.h - what a template prints, as a tree: tags and words, and around them the
 * branches, rows and includes by which they come into a page or do not.
 *
 * Each template is read once, whatever pages include it; a page is then a walk through these
 * trees (paths.h). What is wrong in a tag itself is told while it is read. */
#ifndef ORV_CHECK_FLOW_H
#define ORV_CHECK_FLOW_H

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "markup.h"
#include "report.h"
#include "rows.h"

// Where a language's text stands.
struct TextPlace {
    std::string path;
    uint32_t line;
};

// Where something stands: in a template, and perhaps in a text whose field stands there.
struct Place {
    const Template *tpl = nullptr;
    Span span;
    const TextPlace *text = nullptr; // borrowed from the forest
};

// The branch of an if, or the body, that a part of a tag stands in.
struct Branch {
    const Command *command;
    const Template *tpl;
    uint8_t way;
};

// What the rules about pages look at an attribute for.
enum class Use : uint8_t { NONE, ID, NAME, REFERENCE, LINK, ADDRESS };

struct Attribute {
    std::string name; // in small letters
    Place place;      // of the name
    Place value;      // from behind its quote on
    bool hasValue = false;
    Use use = Use::NONE;
    std::vector<std::string> values; // what it can be, with MARK for what is not known
    std::vector<Branch> within;      // of the tag's own branches
};

struct Tag {
    std::string name; // in small letters; with MARK where it is not known
    const ElementRow *row = nullptr;
    bool closing = false;
    bool selfClosing = false;
    bool unknown = false; // it has attributes that are not known
    bool lost = false;    // its end tag is missing, which is told already
    Place place;
    std::vector<Attribute> attributes;

    /* The attribute of that name, null without one. */
    const Attribute *find(std::string_view wanted) const;
    bool is(uint16_t bits) const
    {
        return row && (row->is & bits);
    }
};

enum class NodeKind : uint8_t {
    TAG,
    WORDS,    // text that is seen
    DATA,     // text of a JSON document
    VALUE,    // a value of unknown text
    VARIABLE, // what a variable is set to
    SET,      // sets a variable
    IF,       // its ways are the branches
    ROWS,     // its way is a body that runs for each row or number, or once or not at all
    INCLUDE,  // goes on in one of the templates
    TEXTS,    // its ways are the texts of the languages
};

struct Node;
using Nodes = std::vector<Node>;

// A value that comes out.
struct Shown {
    const Element *element = nullptr; // null for a command's output
    uint32_t id = 0;                  // of the command in whose body it stands
    uint8_t holds = 0;                // VALUE_ bits of what comes out
    bool isNumber = false;
    uint8_t json = 0;    // as Values
    bool markup = false; // may be tags
    std::string name;    // as it is shown
    Levels levels;
    bool isText = false; // a column of any texts
};

struct Node {
    NodeKind kind;
    bool plain = false;  // of IF and ROWS: holds no more than words, values and sets
    bool isData = false; // of INCLUDE: what is included is JSON
    Place place;
    const Command *command = nullptr;   // of SET, IF, ROWS, INCLUDE
    std::shared_ptr<const Tag> tag;     // of TAG
    std::shared_ptr<const Shown> shown; // of VALUE and VARIABLE
    std::string text;                   // of DATA
    std::vector<Nodes> ways;
    std::vector<const Template *> templates; // of INCLUDE
};

enum class Mode : uint8_t {
    TEXT,
    OPEN,
    TAG_NAME,
    BEFORE_NAME,
    NAME,
    AFTER_NAME,
    BEFORE_VALUE,
    VALUE,
    BEHIND_VALUE,
    DECLARATION,
    COMMENT,
    RAW,  // the text of a script, style, title ...
    DATA, // a JSON document
    PLAIN
};

// How far a page has been read.
struct Reading {
    Mode mode = Mode::TEXT;
    char quote = 0;      // of VALUE
    bool json = false;   // RAW is JSON
    int foreign = 0;     // svg and math elements that are open
    uint32_t resume = 0; // of RAW without end: where it is taken to end
    size_t matched = 0;  // bytes of the end of RAW, COMMENT, or of the begin of DECLARATION
    std::string raw;     // the element whose text RAW is
    Place from;          // the tag, comment or value that is open
    Tag tag;             // that is being read
};

// A template, or the value of a variable.
struct Flow {
    Nodes nodes;
    Reading end;
    bool broken = false; // it goes on in different parts of HTML, which is told elsewhere
    bool isOpen = false; // it is being read
};

struct Forest {
    Report &all;
    std::map<std::pair<const void *, Mode>, std::unique_ptr<Flow>> flows;
    std::map<std::pair<const Language *, std::string>, TextPlace> places;
    std::unordered_map<const Command *, RowBounds> bounds; // of queries, when first asked for
    bool again = false;                                    // something was added to those
    std::vector<Finding> told = {};                        // of those

    explicit Forest(Report &of) : all(of)
    {
    }
};

/* How a page of that path begins. */
Mode modeOf(const std::string &path);

/* The tree of a template; null while that is being read. */
const Flow *flowOf(Forest &forest, const Template &tpl, Mode mode);

/* The tree of what a variable is set to. */
const Flow *flowOf(Forest &forest, const VariableUse &use, Mode mode);

/* Reports that what a page ends in has no end, and remembers it. resume: where what follows
 * begins, in the same template; 0 when that is not known. */
void reportEndless(Forest &forest, const Reading &end, uint32_t resume);

/* Reports what has no end, and takes it as ended from now on. resume: as of Report. */
void tellEndless(Forest &forest, const Place &place, uint32_t resume, const char *id,
                 std::string text);

/* Reports at a place. */
void reportPlace(Report &all, Grade grade, const Place &place, const char *id, std::string text,
                 std::vector<Note> notes = {});

/* "<p> in line 5", or "<p> of menu.frm, line 5" for another template's reader. */
std::string nameOfTag(const Tag &tag, const Template *reader);

#endif
