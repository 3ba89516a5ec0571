/* tools/check/typing.cpp - reads what stands in front of a place, as the interpreter does
 * when a file ends there: what is open then is open at the place. */
#include "typing.h"

#include <algorithm>

#include "grammar/commands.h"

using std::string;
using std::string_view;

static OpenCommand openedBy(const Template &front, const Begun &begun)
{
    const bool isQuoted =
        begun.quoteAt && !begun.argumentAts.empty() && begun.quoteAt >= begun.argumentAts.back();
    return {begun.token,
            begun.words.at,
            {begun.argumentAts.begin(), begun.argumentAts.end()},
            isQuoted ? front.source[begun.quoteAt] : '\0'};
}

// The index of the argument that is a command's first body among those that are counted;
// a repeat's second bracket is one of them. Returns false when it has none.
static bool bodyArgument(int token, size_t *index)
{
    const uint32_t id = commandOf(token).id;
    const bool isRepeat = id == ID_REPEATINCL || id == ID_REPEATEXCL;
    *index = static_cast<size_t>(!!(id & CMDF_ARG1) + !!(id & CMDF_ARG2) + isRepeat);
    return (id & CMDF_BODY) != 0;
}

// Reads the commands in whose bodies the place is, each as the body of the one around it.
static void readHeads(const Template &front, Typing *typing)
{
    string text;
    string ends;
    size_t body;
    for (const OpenCommand &open : typing->open)
        if (bodyArgument(open.token, &body) && open.argument() >= body) {
            text += string_view(front.source).substr(open.at, open.ats[body] - open.at);
            ends += "?>";
        }
    readTemplate(&typing->heads, front.path, text + "x" + ends, false);
    const auto &items = typing->heads.items;
    const Command *command = items.empty() ? nullptr : items[0].command.get();
    while (command) {
        typing->levels.push_back(command);
        const int index = bodyIndex(*command);
        if (index < 0 || command->args[static_cast<size_t>(index)].elements.empty())
            return;
        command = command->args[static_cast<size_t>(index)].elements[0].command.get();
    }
}

void readTyping(const Template &tpl, uint32_t offset, Typing *typing)
{
    Template front;
    readTemplate(&front, tpl.path, fileOf(tpl).substr(0, offset), false);
    for (const Begun &begun : front.begun)
        if (begun.end == 0 && begun.token != F_UNDEF)
            typing->open.push_back(openedBy(front, begun));
    typing->inComment = !front.openComments.empty();
    if (typing->inComment)
        typing->commentAt = front.openComments.front();
    readHeads(front, typing);
}
