/* tools/common/html.h - in which part of an HTML page a piece of output lands.
 *
 * A page is followed piece by piece through text, tags, attributes, addresses,
 * scripts with their strings, styles and comments. The state is a plain value: copied
 * for the branches of a command, compared where they meet. It keeps what browsers
 * look at and no tree of elements. */
#ifndef ORV_CHECK_HTML_H
#define ORV_CHECK_HTML_H

#include <stdint.h>

#include <string>
#include <string_view>

enum class Part : uint8_t {
    TEXT,
    OPEN,       // behind "<"
    TAG_NAME,   // of a tag that opens or closes
    TAG,        // between a tag's attributes
    NAME,       // of an attribute
    AFTER_NAME, // blanks behind it
    BEFORE_VALUE,
    VALUE,
    DECLARATION, // "<!..." or "<?..."
    COMMENT,
    RAW,   // the text of a script, style, title or textarea
    PLAIN, // no HTML: nothing is followed
};

// What an element's text or an attribute's value is read as.
// REFRESH: of a meta element, in which an address may follow "url=". DOCUMENT: a page.
enum class Content : uint8_t { TEXT, ADDRESS, REFRESH, SCRIPT, STYLE, OTHER_SCRIPT, DOCUMENT };

// Where in a script.
enum class Script : uint8_t { CODE, DQUOTE, SQUOTE, TEMPLATE, REGEX, LINE_COMMENT, BLOCK_COMMENT };

struct HtmlState {
    static constexpr size_t WORD = 24;
    static constexpr size_t TEMPLATES = 4;

    Part part = Part::TEXT;
    Content content = Content::TEXT; // of VALUE and RAW
    char quote = 0;                  // of VALUE, 0 without one
    bool closing = false;            // the tag closes an element
    bool valueBegun = false;         // the value has bytes
    Script script = Script::CODE;
    bool regexAllowed = true; // a "/" begins a regular expression
    bool inClass = false;     // inside "[...]" of one
    bool escaped = false;     // behind a backslash
    uint8_t templates = 0;    // template strings whose "${" is open
    uint8_t braces[TEMPLATES] = {};
    char last = 0;         // the byte in front
    char beforeLast = 0;   // and the one in front of that
    char element[12] = {}; // the tag's name; of RAW, the element that it is the text of
    char word[WORD] = {};  // a name that is being read; the begin of an address
    uint8_t wordLength = 0;
    char type[WORD] = {}; // the value of a script's type
    uint8_t typeLength = 0;
    bool readsType = false;

    bool operator==(const HtmlState &) const = default;
};

/* The state in front of a template of that path: a script's, a style's or, without a
 * name of HTML, none. */
HtmlState beginOf(std::string_view path);

/* Follows literal output. */
void follow(HtmlState *state, std::string_view text);

/* Follows a value of unknown text, not empty. */
void followValue(HtmlState *state);

/* Whether output may go on from either state without a difference, and if so the
 * state that stands for both, in joined. */
bool joinStates(const HtmlState &a, const HtmlState &b, HtmlState *joined);

/* Whether a value here would be the beginning of an address. */
bool beginsAddress(const HtmlState &state);

/* Whether the text of a script is JSON. */
bool isJson(const HtmlState &state);

/* What a reader calls that part: "the value of href in double quotes". */
std::string describe(const HtmlState &state);

#endif
