/* tools/check/misplaced.cpp - what may stand in what, as HTML's content models say. */
#include "facts.h"
#include "structure.h"
#include "tools/common/words.h"

using std::string;
using std::string_view;

static string listOfWords(string_view words)
{
    string list;
    for (size_t at = 0; at < words.size();) {
        const size_t end = std::min(words.find(' ', at), words.size());
        const string_view word = words.substr(at, end - at);
        at = end + 1;
        if (word != "script" && word != "template")
            list += (list.empty() ? "<" : ", <") + string(word) + ">";
    }
    return list;
}

static bool isHiddenField(const Tag &tag)
{
    const Attribute *type = tag.find("type");
    return tag.name == "input" && type && type->values.size() == 1 && type->values[0] == "hidden";
}

// Those whose content may be what may stand around them.
static bool isTransparent(string_view name)
{
    return name == "a" || name == "ins" || name == "del" || name == "map" || name == "font";
}

static bool isInteractive(const Tag &tag)
{
    return (tag.is(IS_INTERACTIVE) && !isHiddenField(tag) && tag.name != "label") ||
           (tag.name == "a" && tag.find("href"));
}

// Why a tag cannot stand somewhere inside of what is open; null for no reason.
static const Open *forbiddenIn(const Open *top, const Tag &tag)
{
    for (const Open *open = top; open; open = open->outer) {
        const bool self = (tag.name == "form" || tag.name == "a" || tag.name == "button" ||
                           tag.name == "label") &&
                          open->name == tag.name;
        const bool inside = isInteractive(tag) && (open->name == "button" ||
                                                   (open->name == "a" && open->tag->find("href")));
        if (self || inside)
            return open;
        if (open->name == "template" || open->name == "iframe")
            return nullptr;
    }
    return nullptr;
}

string inOpen(const Open &open, const Template *reader)
{
    return open.implied ? "<" + string(open.name) + ">" : nameOfTag(*open.tag, reader);
}

string misplaced(const State &state, const Tag &tag, const Open **with)
{
    const Open *top = state.top;
    const Template *reader = tag.place.tpl;
    *with = top;
    if (state.behindBody && !tag.is(IS_META) && tag.row)
        return "stands behind </body>";
    if (!top || top->foreign || !tag.row)
        return "";
    if (const Open *outer = forbiddenIn(top, tag)) {
        *with = outer;
        return "cannot stand in " + inOpen(*outer, reader);
    }
    const bool isKnown = top->implied || top->tag->row;
    const string_view parents = parentsOf(tag.name);
    if (!isKnown || top->name == "template" || top->name == "noscript")
        return "";
    if (!parents.empty() && !hasWord(parents, top->name))
        return "must stand in " + listOfWords(parents) + ", not in " + inOpen(*top, reader);
    const string_view children = childrenOf(top->name);
    if (!children.empty() && !hasWord(children, tag.name) && !isHiddenField(tag))
        return "cannot stand directly in " + inOpen(*top, reader) + ", which holds " +
               listOfWords(children);
    if (top->name == "head" && !tag.is(IS_META))
        return "cannot stand in " + inOpen(*top, reader);
    while (isTransparent(top->name) && top->outer)
        top = top->outer;
    *with = top;
    const bool isBlock = tag.is(ENDS_P) || tag.name == "li";
    if (isBlock && !top->implied && top->tag->is(HOLDS_PHRASES) &&
        !(top->name == "p" && top == state.top))
        return "cannot stand in " + inOpen(*top, reader) + ", which holds no blocks";
    return "";
}
