/* tools/textdb/textfields.cpp - follows the output of a template from text field to
 * text field, command by command. */
#include "textfields.h"

#include <algorithm>

#include "host/ascii.h"
#include "tools/common/fieldid.h"
#include "tools/common/files.h"
#include "tools/common/output.h"

static uint8_t standsIn(const HtmlState &state)
{
    const bool isValue = state.part == Part::VALUE || state.part == Part::BEFORE_VALUE;
    const bool isTag = isValue || state.part == Part::TAG || state.part == Part::NAME ||
                       state.part == Part::AFTER_NAME;
    const bool isScript =
        (isValue || state.part == Part::RAW) &&
        (state.content == Content::SCRIPT || state.content == Content::OTHER_SCRIPT);
    return static_cast<uint8_t>((isTag ? STANDS_IN_ATTRIBUTE : 0) |
                                (isScript ? STANDS_IN_SCRIPT : 0));
}

// Returns why what follows a "{?" is no field although it looks like one, or null.
// text: from the "{?" to the "}".
static const char *whyBroken(std::string_view text)
{
    const std::string_view inner = text.substr(2, text.size() - 3);
    if (inner.find_first_of(" \t\r") != std::string_view::npos)
        return "a field has no blanks";
    if (!inner.ends_with('?'))
        return "a field ends in \"?}\"";
    return "a field names only letters, digits, '.', '_' and ':'";
}

static void findBroken(const Template &source, TemplateFields *found)
{
    const std::string_view text = source.source;
    size_t next = 0; // the field that comes next
    for (size_t at = text.find("{?"); at != std::string_view::npos; at = text.find("{?", at + 2)) {
        while (next < source.fields.size() && source.fields[next].span.at < at)
            ++next;
        if (next < source.fields.size() && source.fields[next].span.at == at)
            continue;
        const size_t end = text.find_first_of("{}\n", at + 2);
        if (end == std::string_view::npos || text[end] != '}' || end - at > MAX_ID_LENGTH + 8)
            continue;
        const std::string_view whole = text.substr(at, end + 1 - at);
        if (!looseId(whole).empty())
            found->broken.push_back({placeOf(source, static_cast<uint32_t>(at)).line,
                                     std::string(whole), whyBroken(whole)});
    }
}

// readable: cleared, after a complaint, when there is no memory or descriptor to read it with.
static TemplateFields fieldsOf(const char *path, std::string bytes, bool *readable)
{
    TemplateFields found = {path, {}, {}};
    Template source;
    readTemplate(&source, path, std::move(bytes), true);
    if (source.unread)
        *readable = complain(0, "cannot read %s: %s", path, UNREAD) != 0;
    for (const Field &field : source.fields)
        found.uses.push_back({std::string(field.id.substr(0, MAX_ID_LENGTH)),
                              placeOf(source, field.span.at).line,
                              0,
                              false,
                              {},
                              placeInPage(source, field),
                              0,
                              path});
    OutputVisitor visitor;
    visitor.field = [&](size_t field, const HtmlState &state) {
        FieldUse &use = found.uses[field];
        use.stands |= standsIn(state);
        use.state = state;
        use.isWritten = true;
        use.maxLength = maxLengthAt(source.source, source.fields[field].span, state);
    };
    visitor.argument = [&](size_t field, const Element &element, const Element *before,
                           bool compared) {
        FieldUse &use = found.uses[field];
        use.place = placeInArgument(source, source.fields[field], element, before);
        use.stands |= compared ? STANDS_IN_COMPARISON : 0;
    };
    followOutput(source, visitor);
    findBroken(source, &found);
    return found;
}

bool readTemplates(const std::vector<const char *> &paths, std::vector<TemplateFields> *templates,
                   const std::string &folder)
{
    bool readable = true;
    for (const char *path : paths) {
        std::string bytes;
        if (readFile((folder + path).c_str(), &bytes))
            templates->push_back(fieldsOf(path, std::move(bytes), &readable));
        else
            readable = false;
    }
    return readable;
}

Uses collectUses(const std::vector<TemplateFields> &templates)
{
    Uses uses;
    for (const TemplateFields &page : templates)
        for (const FieldUse &use : page.uses) {
            IdUses &all = uses[use.id];
            all.stands |= use.stands;
            if (use.maxLength && (!all.maxLength || use.maxLength < all.maxLength))
                all.maxLength = use.maxLength;
            all.places.push_back({page.path.c_str(), use.line});
        }
    return uses;
}

std::string breaksPlace(std::string_view text, const FieldUse &use,
                        const std::set<std::string> &meant, std::string *cure)
{
    if (const Break *found = breakOf(text, use.place, meant)) {
        *cure = found->inText;
        return found->what;
    }
    if (!use.isWritten || !leavesPart(text, use.state))
        return "";
    *cure = cureOf(use.state);
    return "does not stay in " + describe(use.state);
}

std::string looseId(std::string_view id)
{
    std::string loose;
    for (const char c : id)
        if (isLetterOrDigit(c))
            loose.push_back(toSmall(c));
    return loose;
}
