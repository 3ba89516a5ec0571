/* tools/check/flow.cpp - reads templates into trees. */
#include "flow.h"

#include <algorithm>

#include "tags.h"
#include "tools/common/html.h"

using std::string;
using std::string_view;

static void flowCommand(Reader &reader, const Template &tpl, const Command &command,
                        Levels &levels);

// ---- places ----

void reportPlace(Report &all, Grade grade, const Place &place, const char *id, string text,
                 std::vector<Note> notes)
{
    if (!place.text) {
        reportAs(all, grade, *place.tpl, place.span, id, std::move(text), std::move(notes));
        return;
    }
    const size_t before = all.findings.size();
    const bool isOfTags = string_view(id) == "html-tag" || string_view(id) == "html-nesting";
    if (isOfTags && hasWrongTags(all, place.text->path, place.text->line))
        return;
    reportLine(all, place.text->path, place.text->line, id, std::move(text));
    if (all.findings.size() == before)
        return;
    all.findings.back().severity = grade;
    notes.insert(notes.begin(), noteAt(*place.tpl, place.span.at, "the text's field is here"));
    all.findings.back().notes = std::move(notes);
}

string nameOfTag(const Tag &tag, const Template *reader)
{
    const string name = "<" + string(tag.closing ? "/" : "") + tag.name + "> ";
    const string line = "line " + std::to_string(placeOf(*tag.place.tpl, tag.place.span.at).line);
    return name +
           (tag.place.tpl == reader ? "in " + line : "of " + tag.place.tpl->path + ", " + line);
}

// ---- texts of the languages ----

// A text as it comes out by itself; false when it does not end where it began.
static bool flowText(Reader &reader, const Template &tpl, const Field &field,
                     const Language &language, const LanguageText &text, Nodes *nodes)
{
    const auto [entry, isNew] = reader.forest.places.try_emplace(
        {&language, string(field.id)}, TextPlace{language.path, std::max(text.line, 1U)});
    const Place place = {&tpl, field.span, &entry->second};
    Reader own = {reader.forest, reader.now, nodes};
    if (text.text.find("<?") != string::npos)
        readShown(own, {}, place);
    else
        readLiteral(own, text.text, place);
    return own.now.mode == Mode::TEXT && !own.broken;
}

// A field where its text can be markup.
static void flowField(Reader &reader, const Template &tpl, const Field &field)
{
    const Place place = {&tpl, field.span, nullptr};
    Node node = {};
    bool hasTags = false;
    for (const Language &language : reader.forest.all.site.languages) {
        const auto text = language.texts.find(field.id);
        if (text == language.texts.end())
            continue;
        hasTags = hasTags || text->second.text.find_first_of("<&") != string::npos;
        if (reader.now.mode == Mode::TEXT &&
            !flowText(reader, tpl, field, language, text->second, &node.ways.emplace_back()))
            return readShown(reader, {}, place); // text-breaks tells
    }
    if (!hasTags || reader.now.mode != Mode::TEXT)
        return readShown(reader, {}, place);
    node.kind = NodeKind::TEXTS;
    node.place = place;
    reader.nodes->push_back(std::move(node));
}

// Text with its fields. at: where the literal begins in the source.
static void flowLiteral(Reader &reader, const Template &tpl, Span span, string_view literal)
{
    const FieldRange fields = fieldsIn(tpl, span);
    if (fields.empty())
        return readLiteral(reader, literal, {&tpl, span, nullptr});
    const string_view source = tpl.source;
    uint32_t at = span.at;
    for (size_t i = fields.first; i < fields.last; ++i) {
        const Field &field = tpl.fields[i];
        readLiteral(reader, source.substr(at, field.span.at - at),
                    {&tpl, {at, field.span.at}, nullptr});
        flowField(reader, tpl, field);
        at = field.span.end;
    }
    readLiteral(reader, source.substr(at, span.end - at), {&tpl, {at, span.end}, nullptr});
}

// ---- values ----

static bool isMarkup(const SqlColumn *column)
{
    return column && std::ranges::any_of(column->values.texts, [](const string &text) {
               return text.find('<') != string::npos;
           });
}

static void showColumn(Reader &reader, const Place &place, const Command &command, size_t index,
                       Shown shown)
{
    const SqlColumn *column = columnOf(reader.forest.all.site, command, index);
    shown.json = column && column->values.isFree ? column->values.json : uint8_t{0};
    shown.isText = column && column->isText && column->values.isFree;
    shown.isNumber = column && column->values.isNumber();
    shown.holds = escapedBy(shown.id, holdsOfColumn(column));
    shown.markup = isMarkup(column) && !(shown.id & CMDF_HTML);
    readShown(reader, shown, place);
}

static string sourceAt(const Template &tpl, Span span)
{
    return tpl.source.substr(span.at, span.end - span.at);
}

static void flowElement(Reader &reader, const Template &tpl, const Element &element, uint32_t id,
                        const Levels &levels)
{
    const Place place = {&tpl, element.span, nullptr};
    Shown shown = {&element, id, 0, false, 0, false, sourceAt(tpl, element.span), levels};
    size_t column = 0;
    if (element.type == ELEM_NUMVAR) {
        if (const Command *command = commandOfValue(element, levels, &column))
            return showColumn(reader, place, *command, column, std::move(shown));
        shown.isNumber = true;
    } else {
        shown.holds = escapedBy(id, holdsOfElement(reader.forest.all.site, element, levels));
    }
    readShown(reader, shown, place);
}

static void flowArgument(Reader &reader, const Template &tpl, const Argument &argument, uint32_t id,
                         Levels &levels)
{
    for (const Element &element : argument.elements) {
        if (element.type == ELEM_TEXT)
            flowLiteral(reader, tpl, element.span, element.text);
        else if (element.type != ELEM_CMD)
            flowElement(reader, tpl, element, id, levels);
        else if (element.command)
            flowCommand(reader, tpl, *element.command, levels);
    }
}

// ---- commands ----

// Reads a body from where the reader is, into nodes; the reader stays where it is.
static Reading flowBody(Reader &reader, const Template &tpl, const Command &command, size_t index,
                        Levels &levels, Nodes *nodes)
{
    Reader own = {reader.forest, reader.now, nodes};
    if (index < command.args.size())
        flowArgument(own, tpl, command.args[index], command.id, levels);
    reader.broken = reader.broken || own.broken;
    return std::move(own.now);
}

static bool isPlain(const Nodes &nodes)
{
    return std::ranges::all_of(nodes, [](const Node &node) {
        const bool isLeaf = node.kind == NodeKind::WORDS || node.kind == NodeKind::VALUE ||
                            node.kind == NodeKind::SET;
        return isLeaf || node.plain;
    });
}

static bool isEmpty(const Reading &reading)
{
    return reading.mode != Mode::TEXT && reading.mode != Mode::DATA;
}

// Whether output can go on from either without a difference, and where from, in reading.
static bool joinReadings(Reading *reading, const Reading &other, const Reading &before,
                         const Branch &branch)
{
    if (isInTag(reading->mode) && isInTag(other.mode)) {
        const bool isSame = isInTag(before.mode);
        joinTags(reading, other, isSame ? before.tag.attributes.size() : 0, branch);
        return true;
    }
    return reading->mode == other.mode && (reading->mode != Mode::RAW || reading->raw == other.raw);
}

static void flowWays(Reader &reader, const Template &tpl, const Command &command, NodeKind kind,
                     size_t body, Levels &levels)
{
    Node node = {};
    const bool isIf = kind == NodeKind::IF;
    node.kind = kind;
    node.place = {&tpl, command.words, nullptr};
    node.command = &command;
    node.ways.resize(isIf ? 2 : 1);
    Reading then = flowBody(reader, tpl, command, body, levels, node.ways.data());
    Reading otherwise = reader.now;
    if (isIf)
        otherwise = flowBody(reader, tpl, command, body + 1, levels, &node.ways[1]);
    const Branch branch = {&command, &tpl, 0};
    if (joinReadings(&then, otherwise, reader.now, branch))
        reader.now = std::move(then);
    else
        reader.broken = true;
    if (isEmpty(reader.now) && node.ways[0].empty() && (!isIf || node.ways[1].empty()))
        return;
    const bool inJson =
        reader.now.mode == Mode::DATA || (reader.now.mode == Mode::RAW && reader.now.json);
    node.plain = !inJson && std::ranges::all_of(node.ways, isPlain);
    reader.nodes->push_back(std::move(node));
}

// The site's templates that the command includes.
static std::vector<const Template *> includedBy(const Site &site, const Template &tpl,
                                                const Command &command)
{
    std::vector<const Template *> templates;
    const auto uses = site.includes.find(tpl.path);
    if (uses == site.includes.end())
        return templates;
    for (const PathUse &use : uses->second) {
        if (use.command != &command)
            continue;
        for (const string &path : use.paths)
            if (const auto found = site.templates.find(path); found != site.templates.end())
                templates.push_back(found->second.get());
    }
    return templates;
}

static void flowInclude(Reader &reader, const Template &tpl, const Command &command)
{
    const std::vector<const Template *> templates =
        includedBy(reader.forest.all.site, tpl, command);
    const Place place = {&tpl, command.span, nullptr};
    const Mode mode = reader.now.mode;
    if (templates.empty() || isInTag(mode) || mode == Mode::COMMENT)
        return readShown(reader, {nullptr, 0, VALUE_RAW, false, 0, true, "", {}}, place);
    const bool inScript = mode == Mode::RAW && reader.now.json;
    const bool areJson = std::ranges::all_of(
        templates, [](const Template *included) { return modeOf(included->path) == Mode::DATA; });
    if (inScript && !areJson)
        return readShown(reader, {nullptr, 0, 0, false, 0, false, "", {}}, place);
    if (mode != Mode::TEXT && mode != Mode::DATA && !inScript)
        return;
    Node &node = addNode(reader, NodeKind::INCLUDE, place);
    node.command = &command;
    node.templates = templates;
    node.isData = mode != Mode::TEXT;
    for (const Template *included : templates) {
        const Flow *flow = flowOf(reader.forest, *included, node.isData ? Mode::DATA : Mode::TEXT);
        reader.broken = reader.broken || (flow && flow->broken);
        if (inScript)
            continue; // it is read on behind the include
        if (flow && included == templates.front())
            reader.now = flow->end;
        else if (flow && flow->end.mode != reader.now.mode)
            reader.broken = true;
    }
}

static void flowWithoutBody(Reader &reader, const Template &tpl, const Command &command,
                            Levels &levels)
{
    const Prints prints = printsOf(command);
    const Place place = {&tpl, command.span, nullptr};
    Shown shown = {nullptr, command.id, 0, false, 0, false, sourceAt(tpl, command.words), {}};
    if (command.id == ID_INCLUDE)
        return flowInclude(reader, tpl, command);
    if (prints == Prints::ARGUMENT) {
        for (const Argument &argument : command.args)
            flowArgument(reader, tpl, argument, command.id, levels);
    } else if (prints == Prints::NUMBER || prints == Prints::BRANCH) {
        shown.isNumber = command.id != ID_BASE64;
        readShown(reader, shown, place);
    } else if (command.id & (CMDF_QUERY | CMDF_ERROR)) {
        shown.name = command.id & CMDF_QUERY ? "column 1" : "the error's text";
        showColumn(reader, place, command, 0, std::move(shown));
    } else if (command.id == ID_SETVARIABLE || command.id == ID_SETVARIABLEONCE ||
               command.id == ID_SETARRAY || command.id == ID_SETARRAYONCE) {
        addNode(reader, NodeKind::SET, place).command = &command;
    }
}

static void flowCommand(Reader &reader, const Template &tpl, const Command &command, Levels &levels)
{
    const int index = bodyIndex(command);
    if (index < 0)
        return flowWithoutBody(reader, tpl, command, levels);
    const auto body = static_cast<size_t>(index);
    const bool isRows =
        printsOf(command) == Prints::BODIES || (command.id & (CMDF_QUERY | CMDF_ERROR));
    levels.push_back(&command);
    if (printsOf(command) == Prints::BRANCH)
        flowWays(reader, tpl, command, NodeKind::IF, body, levels);
    else if (isRows)
        flowWays(reader, tpl, command, NodeKind::ROWS, body, levels);
    else
        flowArgument(reader, tpl, command.args[body], command.id, levels);
    levels.pop_back();
}

// ---- whole trees ----

// Whether a path, that of a piece such as feed.xml.frm too, is of markup that is no HTML.
static bool isOtherMarkup(string_view path)
{
    if (path.ends_with(".frm"))
        path.remove_suffix(4);
    return path.ends_with(".xml") || path.ends_with(".svg") || path.ends_with(".rss") ||
           path.ends_with(".atom") || path.ends_with(".xsl");
}

Mode modeOf(const string &path)
{
    if (isOtherMarkup(path))
        return Mode::PLAIN;
    if (path.ends_with(".json") || path.ends_with(".webmanifest"))
        return Mode::DATA;
    return beginOf(path).part == Part::TEXT ? Mode::TEXT : Mode::PLAIN;
}

// The entry of a tree, and whether it is to be read now.
static std::pair<Flow *, bool> enter(Forest &forest, const void *of, Mode mode)
{
    std::unique_ptr<Flow> &entry = forest.flows[{of, mode}];
    if (entry)
        return {entry->isOpen ? nullptr : entry.get(), false};
    entry = std::make_unique<Flow>();
    entry->isOpen = true;
    return {entry.get(), true};
}

static void leave(Flow *flow, Reader &reader)
{
    flow->end = std::move(reader.now);
    flow->broken = reader.broken;
    flow->isOpen = false;
}

const Flow *flowOf(Forest &forest, const Template &tpl, Mode mode)
{
    const auto [flow, isNew] = enter(forest, &tpl, mode);
    if (!isNew)
        return flow;
    Reader reader = {forest, {}, &flow->nodes};
    reader.now.mode = mode;
    const auto doubtful = forest.all.site.doubtful.find(&tpl); // what comes out is not known
    reader.broken = doubtful != forest.all.site.doubtful.end() && !doubtful->second.empty();
    Levels levels;
    for (const Item &item : tpl.items) {
        if (item.command)
            flowCommand(reader, tpl, *item.command, levels);
        else
            flowLiteral(reader, tpl, item.span,
                        string_view(tpl.source).substr(item.span.at, item.span.end - item.span.at));
    }
    leave(flow, reader);
    return flow;
}

const Flow *flowOf(Forest &forest, const VariableUse &use, Mode mode)
{
    const auto [flow, isNew] = enter(forest, use.value, mode);
    if (!isNew)
        return flow;
    Reader reader = {forest, {}, &flow->nodes};
    reader.now.mode = mode;
    Levels levels = *use.levels;
    flowArgument(reader, *use.tpl, *use.value, 0, levels);
    leave(flow, reader);
    return flow;
}

// ---- what has no end ----

static string nameOfEndless(const Reading &end)
{
    return end.mode == Mode::COMMENT       ? "the comment that begins here is not closed by -->"
           : end.mode == Mode::DECLARATION ? "the declaration that begins here is not closed by >"
           : end.mode == Mode::RAW         ? "<" + end.raw + "> is not closed by </" + end.raw + ">"
           : end.mode == Mode::VALUE && end.quote ? "the quote that opens here is not closed"
                                                  : "the tag that begins here is not closed by >";
}

void tellEndless(Forest &forest, const Place &place, uint32_t resume, const char *id, string text)
{
    Report &all = forest.all;
    const size_t before = all.findings.size();
    const bool isNew = all.endless.try_emplace({place.tpl, place.span.at}, resume).second;
    forest.again = forest.again || isNew;
    reportPlace(all, Grade::ERROR, place, id, std::move(text));
    if (isNew)
        forest.told.insert(forest.told.end(), all.findings.begin() + static_cast<ptrdiff_t>(before),
                           all.findings.end());
    all.findings.resize(before);
}

void reportEndless(Forest &forest, const Reading &end, uint32_t resume)
{
    const bool isValue = end.mode == Mode::VALUE && end.quote && !end.tag.attributes.empty();
    const Place place = isValue             ? end.tag.attributes.back().value
                        : isInTag(end.mode) ? end.tag.place
                                            : end.from;
    if (!place.tpl) // a "<" at the very end, which begins nothing
        return;
    if (end.mode == Mode::COMMENT) // of one line, probably
        resume = static_cast<uint32_t>(
            std::min(place.tpl->source.find('\n', place.span.at), place.tpl->source.size()));
    else if (end.mode == Mode::RAW && resume == 0)
        resume = place.span.end;
    tellEndless(forest, place, resume, "html-open",
                nameOfEndless(end) + ": what follows is lost in it");
}
