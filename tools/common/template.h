/* tools/common/template.h - a template as the library reads it, with every place kept.
 *
 * The library itself reads the template, and tells what it reads: text fields are
 * replaced by marks of the same length first, so that they are part of what stands
 * around them, and a command is kept instead of run. Each template is read by itself; includes are
 * commands like others. */
#ifndef ORV_CHECK_TEMPLATE_H
#define ORV_CHECK_TEMPLATE_H

#include <stdint.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "grammar/records.h"
#include "base/messages.h"
#include "tools/common/fieldid.h"

// Bytes of a template from at to before end, offsets in the file.
struct Span {
    uint32_t at = 0;
    uint32_t end = 0;

    bool contains(uint32_t offset) const
    {
        return offset >= at && offset < end;
    }
};

struct Command;

// A piece of an argument. text: literal text; a variable's or an array's name without
// its bracket; a numbered value's digits.
struct Element {
    int32_t type = ELEM_TEXT; // an ELEM_ number
    Span span;                // with its index; of a text: its content, without a quote in front
    char quote = 0;           // the quote that it stands in, ']' in an index
    std::string text;
    std::unique_ptr<Command> command; // of ELEM_CMD; null for one that was dropped
    std::vector<Element> index;       // of ELEM_GETARRAY, one piece
};

struct Argument {
    std::vector<Element> elements;
};

struct Command {
    uint32_t id = 0; // an ID_ number
    Span span;       // from "<?" to behind "?>"
    Span words;      // from "<?" to behind the keyword and the blanks that follow it
    std::string name;
    Span nameSpan;
    bool upperExcluded = false;
    std::vector<Argument> args;
};

// What a template consists of: page text, or a command.
struct Item {
    Span span;
    std::unique_ptr<Command> command; // null for page text
};

// A text field.
struct Field {
    Span span;
    std::string_view id; // in the template's source
};

// Why a keyword did not become a command.
enum class Fate { MADE, BLAMED, LOST };

// A command's beginning, whatever became of it.
struct Begun {
    int token;      // F_ number
    int32_t line;   // as the grammar reports it
    Span words;     // as Command's
    uint32_t end;   // behind its "?>", 0 when that was not seen
    int32_t parent; // index of the command around it, -1 for none
    Fate fate;
    uint32_t quoteAt;                  // where a quote opened last, 0 for none
    bool quoteOpen;                    // the command ended inside that quote
    std::vector<uint32_t> argumentAts; // where an argument begins
    std::vector<uint32_t> quoteAts;    // where quotes open
    uint32_t indexAt = 0;              // where the last array reference begins
    bool indexOpen = false;            // the command ended inside its index
    uint32_t gluedAt = 0;              // the first quote that ends in the midst of text, 0 for none
};

// A change of a template, at an offset in its file, to read it as it was probably meant.
struct Edit {
    uint32_t at;
    uint32_t removed; // bytes
    std::string text; // in their place; no line begins or ends in either
};

// What the scanner or the grammar has complained about.
struct Complaint {
    Message id;
    int32_t line;     // as the log names it; 0 when it names none
    Span span;        // where the mistake begins; on that line
    int32_t begun;    // index of the command that it is about, -1 for none
    std::string text; // what the author is told
};

// Why a template whose bytes are there cannot be read.
inline constexpr char UNREAD[] = "no memory or descriptors are left";

struct Template {
    std::string path;        // below the document root
    std::string source;      // the file's bytes, with the edits: offsets elsewhere are into these
    std::string file;        // the file's bytes where there are edits
    std::vector<Edit> edits; // ascending
    std::string marked;      // the same with MARK bytes in the place of fields
    std::vector<uint32_t> lineStarts;
    std::vector<uint32_t> unitMarks; // UTF-16 units in front of every UNIT_STRIDE bytes
    std::vector<Item> items;
    std::vector<Field> fields;          // ascending
    std::vector<Span> comments;         // with their "<?" and "?>", ascending
    std::vector<uint32_t> openComments; // where those begin that nothing closes, outermost first
    std::vector<Begun> begun;           // in the order of their keywords
    std::vector<Complaint> complaints;  // in the order of the log
    std::vector<uint32_t> strayQuotes;  // in indices, where they are no part of it
    bool unread = false;                // it could not be read, for want of what UNREAD names
    int32_t gaveUpAt = -1;              // index in begun of the command that ends the run
    bool exhausted = false;             // the parser's stack was

    Template() = default;
    Template(const Template &) = delete; // texts in it are looked at where they stand
    Template &operator=(const Template &) = delete;
};

constexpr char MARK = '\x1A';
constexpr size_t UNIT_STRIDE = 1024;

/* Reads a template into tpl, which is new.
 * page: it is run by itself; otherwise included, page text stands around it then.
 * A page whose first command ends the run is read on behind that. */
void readTemplate(Template *tpl, std::string path, std::string source, bool page);

/* Reads it with edits, which ascend: places of the template are then those of the file. */
void readEdited(Template *tpl, std::string path, std::string file, std::vector<Edit> edits,
                bool page);

/* The file's bytes, and where one of the source stands in it and the other way round. */
const std::string &fileOf(const Template &tpl);
uint32_t inFile(const Template &tpl, uint32_t offset);
uint32_t inSource(const Template &tpl, uint32_t offset);

/* Line and column of an offset, counted from 1; a column counts bytes. */
struct LineColumn {
    uint32_t line;
    uint32_t column;
};
LineColumn placeOf(const Template &tpl, uint32_t offset);
LineColumn placeInFile(const Template &tpl, uint32_t offset); // of the file

/* Notes where the file's lines begin, for all of these: part of reading it. */
void measure(Template *tpl);

/* UTF-16 units between the begin of its line and an offset. */
uint32_t unitsBefore(const Template &tpl, uint32_t offset);
uint32_t unitsInFile(const Template &tpl, uint32_t offset); // of the file

/* The fields within a span, as indices from first to before last. */
struct FieldRange {
    size_t first;
    size_t last;

    bool empty() const
    {
        return first == last;
    }
};
FieldRange fieldsIn(const Template &tpl, Span span);

/* The most arguments that a command takes, the index of an element included, and
 * whether one has been given more. */
size_t mostArguments(int token);
bool hasSurplus(const Begun &begun);

/* A command's words as templates write them: "echo", "if eq", "calc +". */
std::string wordsOf(uint32_t id);
std::string wordsOfToken(int token);

#endif
