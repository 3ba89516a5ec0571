/* tools/check/walk.cpp - commands within commands, in arguments and indices. */
#include "walk.h"

static void walkElement(const Element &element, const Levels &levels, const Walker &walker)
{
    if (element.command)
        walkCommand(*element.command, levels, walker);
    for (const Element &index : element.index)
        walkElement(index, levels, walker);
}

void walkCommand(const Command &command, const Levels &levels, const Walker &walker)
{
    const int body = bodyIndex(command);
    Levels inside = levels;
    inside.push_back(&command);
    if (walker.command)
        walker.command(command, levels);
    for (size_t i = 0; i < command.args.size(); ++i) {
        const bool inBody = body >= 0 && i >= static_cast<size_t>(body);
        const Levels &around = inBody ? inside : levels;
        const auto &elements = command.args[i].elements;
        for (size_t k = 0; k < elements.size(); ++k) {
            if (walker.piece)
                walker.piece(elements[k], {command, i, k, around, inBody});
            walkElement(elements[k], around, walker);
        }
    }
}

void walkTemplate(const Template &tpl, const Walker &walker)
{
    for (const Item &item : tpl.items)
        if (item.command)
            walkCommand(*item.command, {}, walker);
}
