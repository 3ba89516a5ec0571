/* tools/common/output.h - what a template prints by itself, piece by piece, each with the part
 * of a page that it lands in. Includes are not followed, and a template that is included
 * itself begins as a page does. */
#ifndef TOOLS_OUTPUT_H
#define TOOLS_OUTPUT_H

#include <functional>
#include <string>
#include <string_view>

#include "html.h"
#include "template.h"

// What is called while a template is followed; each may be empty.
struct OutputVisitor {
    // Text of the template that comes out, and the state in front of it.
    std::function<void(Span span, const HtmlState &state)> literal;
    // A text field that comes out, by its index.
    std::function<void(size_t field, const HtmlState &state)> field;
    // A text field in an argument of a command, whether or not that comes out, the element that
    // it stands in, and the element in front of that, or null. compared: with something.
    std::function<void(size_t field, const Element &element, const Element *before, bool compared)>
        argument;
};

void followOutput(const Template &tpl, const OutputVisitor &visitor);

/* The tag that begins in front of a place of a template, up to its end where that is known;
 * empty without one. */
std::string_view tagAround(std::string_view source, size_t at);

/* The value of an attribute of a tag, empty without it. name: in small letters. */
std::string_view attributeOf(std::string_view tag, std::string_view name);

/* How many characters the field of a form takes whose value a text field is, 0 when there is
 * no such limit. state: in front of the text field. */
size_t maxLengthAt(std::string_view source, Span field, const HtmlState &state);

#endif
