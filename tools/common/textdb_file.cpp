/* tools/common/textdb_file.cpp - text database files: laid out from sorted texts,
 * checked record by record, listed.
 *
 * A file is a header, an array of records and an area of strings; the records
 * are the nodes of a radix tree. Numbers are taken apart and put together byte
 * by byte, so files are the same on every machine. */
#include "tools/common/textdb_file.h"

#include <algorithm>
#include <cassert>
#include <cstring>

static constexpr size_t HEADER_SIZE = 16;
static constexpr size_t RECORD_SIZE = 8;
static constexpr uint32_t MAX_CHILD_INDEX = (1u << 20) - 1;
static constexpr uint32_t MAX_VALUE_DISTANCE = (1u << 12) - 1;
static constexpr uint32_t MAX_LABEL_OFFSET = (1u << 30) - 1;
static constexpr uint32_t MORE_SIBLINGS = 1u << 30;

// The header that buildTextDb writes: these bytes, then version and number of
// records in four bytes each. Readers skip it.
static constexpr std::string_view MAGIC("orvtext\0", 8);
static constexpr uint32_t VERSION = 1;

// A record's fields, as docs/textdb.md lists them.
struct Record {
    uint32_t firstChild;
    uint32_t valueDistance;
    uint32_t labelOffset; // from the first record, as all string offsets are
    bool more;
};

static void appendNumber(std::string *out, uint32_t number)
{
    for (int shift = 0; shift < 32; shift += 8)
        out->push_back(static_cast<char>(number >> shift & 0xff));
}

static uint32_t numberAt(std::string_view file, size_t offset)
{
    uint32_t number = 0;
    for (size_t i = 0; i < 4; ++i)
        number |= static_cast<uint32_t>(static_cast<unsigned char>(file[offset + i])) << (8 * i);
    return number;
}

static size_t recordOffset(size_t index)
{
    return HEADER_SIZE + index * RECORD_SIZE;
}

static Record recordAt(std::string_view file, size_t index)
{
    const uint32_t low = numberAt(file, recordOffset(index));
    const uint32_t high = numberAt(file, recordOffset(index) + 4);
    return {low & MAX_CHILD_INDEX, low >> 20, high & MAX_LABEL_OFFSET, (high & MORE_SIBLINGS) != 0};
}

// ---- Layout ----

// A record to be. Its key is the common beginning, keyLength bytes long, of the
// ids of entries [first, last); its label is the last labelLength bytes of it.
struct BuildNode {
    size_t first;
    size_t last;
    size_t keyLength;
    uint32_t labelLength;
    uint32_t firstChild;
    uint32_t labelOffset;
    bool more;
};

// Length of the beginning that all ids of entries [first, last) share: what the
// first and the last share, as they are sorted.
static size_t sharedLength(std::span<const TextEntry> entries, size_t first, size_t last)
{
    const std::string_view a = entries[first].id;
    const std::string_view b = entries[last - 1].id;
    return static_cast<size_t>(std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first -
                               a.begin());
}

static bool hasText(std::span<const TextEntry> entries, const BuildNode &node)
{
    return node.first < node.last && entries[node.first].id.size() == node.keyLength;
}

// Appends the children of nodes[parent]: one for each byte that follows its key.
// A label is cut so that the text behind it stays within the value distance; the
// rest of a longer one goes to a child of its own.
static void appendChildren(std::span<const TextEntry> entries, std::vector<BuildNode> *nodes,
                           size_t parent)
{
    const BuildNode node = (*nodes)[parent];
    size_t first = node.first + (hasText(entries, node) ? 1 : 0);
    if (first == node.last)
        return;
    (*nodes)[parent].firstChild = static_cast<uint32_t>(nodes->size());
    while (first < node.last) {
        size_t last = first + 1;
        while (last < node.last &&
               entries[last].id[node.keyLength] == entries[first].id[node.keyLength])
            ++last;
        const size_t length = std::min<size_t>(sharedLength(entries, first, last) - node.keyLength,
                                               MAX_VALUE_DISTANCE - 1);
        nodes->push_back({first, last, node.keyLength + length, static_cast<uint32_t>(length), 0, 0,
                          last < node.last});
        first = last;
    }
}

// Gives each node its place among the strings.
// Returns the size of records and strings, or 0 when the node of index *culprit
// cannot be placed.
static size_t placeStrings(std::span<const TextEntry> entries, std::vector<BuildNode> *nodes,
                           size_t *culprit)
{
    size_t offset = nodes->size() * RECORD_SIZE;
    for (BuildNode &node : *nodes) {
        if (offset > MAX_LABEL_OFFSET) {
            *culprit = node.first;
            return 0;
        }
        node.labelOffset = static_cast<uint32_t>(offset);
        offset += node.labelLength + 1;
        if (hasText(entries, node))
            offset += entries[node.first].text.size() + 1;
    }
    return offset;
}

static void appendRecord(std::span<const TextEntry> entries, const BuildNode &node,
                         std::string *file)
{
    const uint32_t distance = hasText(entries, node) ? node.labelLength + 1 : 0;
    assert(distance <= MAX_VALUE_DISTANCE && node.firstChild <= MAX_CHILD_INDEX);
    appendNumber(file, node.firstChild | distance << 20);
    appendNumber(file, node.labelOffset | (node.more ? MORE_SIBLINGS : 0));
}

static void appendStrings(std::span<const TextEntry> entries, const BuildNode &node,
                          std::string *file)
{
    if (node.labelLength)
        file->append(
            entries[node.first].id.substr(node.keyLength - node.labelLength, node.labelLength));
    file->push_back('\0');
    if (hasText(entries, node)) {
        file->append(entries[node.first].text);
        file->push_back('\0');
    }
}

const char *buildTextDb(std::span<const TextEntry> entries, std::string *file, size_t *culprit)
{
    file->clear();
    std::vector<BuildNode> nodes = {{0, entries.size(), 0, 0, 0, 0, false}};
    for (size_t i = 0; i < nodes.size(); ++i) {
        appendChildren(entries, &nodes, i);
        if (nodes.size() > size_t(MAX_CHILD_INDEX) + 1) {
            *culprit = nodes[MAX_CHILD_INDEX + 1].first;
            return "the database would need more than 1048576 records";
        }
    }
    const size_t size = placeStrings(entries, &nodes, culprit);
    if (!size)
        return "its place would lie beyond the 1073741823 bytes that a database can address";

    file->reserve(HEADER_SIZE + size);
    file->append(MAGIC);
    appendNumber(file, VERSION);
    appendNumber(file, static_cast<uint32_t>(nodes.size()));
    for (const BuildNode &node : nodes)
        appendRecord(entries, node, file);
    for (const BuildNode &node : nodes)
        appendStrings(entries, node, file);
    return nullptr;
}

// ---- Check ----

// A check in progress. The file does not say how many records it has: the array
// ends where the first of the strings begins, and that is known only from the
// labels of the records that have been looked at.
struct Check {
    std::string_view file;
    std::string_view area;     // the file from its first record on
    size_t stringsStart;       // smallest label offset so far, or the area's size
    std::vector<bool> reached; // by record index, for all that fit into the file
    std::vector<size_t> queue; // reached records, in the order they were reached
    TextDbReport report;
};

static void addFault(Check *check, size_t record, std::string problem)
{
    check->report.faults.push_back(
        {recordOffset(record), "record " + std::to_string(record) + ": " + std::move(problem)});
}

// Finds the string at offset, without its zero byte. Adds a fault and returns
// false when it does not lie within the file.
static bool stringAt(Check *check, size_t record, const char *what, size_t offset,
                     std::string_view *string)
{
    if (offset >= check->area.size()) {
        addFault(check, record,
                 std::string(what) + " offset " + std::to_string(offset) +
                     " lies outside the file");
        return false;
    }
    const size_t end = check->area.find('\0', offset);
    if (end == std::string_view::npos) {
        addFault(check, record, std::string(what) + " is not terminated");
        return false;
    }
    *string = check->area.substr(offset, end - offset);
    return true;
}

static void checkStrings(Check *check, size_t index)
{
    const Record record = recordAt(check->file, index);
    std::string_view label;
    std::string_view value;
    if (record.valueDistance)
        ++check->report.texts;
    if (!stringAt(check, index, "label", record.labelOffset, &label))
        return;
    // The root's label is never read, it only stands in front of the root's text.
    const bool labelCounts = index != 0 || record.valueDistance != 0;
    if (record.labelOffset >= (index + 1) * RECORD_SIZE)
        check->stringsStart = std::min<size_t>(check->stringsStart, record.labelOffset);
    else if (labelCounts)
        addFault(check, index,
                 "label offset " + std::to_string(record.labelOffset) + " lies among the records");
    if (label.empty() && index != 0)
        addFault(check, index, "label is empty");
    if (!record.valueDistance)
        return;
    if (record.valueDistance <= label.size())
        addFault(check, index,
                 "value distance " + std::to_string(record.valueDistance) + " ends in the label");
    stringAt(check, index, "value", size_t{record.labelOffset} + record.valueDistance, &value);
}

// Compares a sibling's first byte with that of the record before it. Labels that
// lie outside the file are left to checkStrings.
static void checkOrder(Check *check, size_t index)
{
    const uint32_t before = recordAt(check->file, index - 1).labelOffset;
    const uint32_t here = recordAt(check->file, index).labelOffset;
    if (before >= check->area.size() || here >= check->area.size())
        return;
    const auto byteBefore = static_cast<unsigned char>(check->area[before]);
    const auto byteHere = static_cast<unsigned char>(check->area[here]);
    if (byteBefore == byteHere)
        addFault(check, index, "label begins with the same byte as its sibling before it");
    else if (byteBefore > byteHere)
        addFault(check, index, "label comes before that of its sibling before it");
}

// Puts the children of a record into the queue.
static void checkChildren(Check *check, size_t parent)
{
    const size_t first = recordAt(check->file, parent).firstChild;
    if (!first)
        return;
    for (size_t index = first;; ++index) {
        const size_t from = index == first ? parent : index - 1;
        const char *how = index == first ? "first child " : "next sibling ";
        if (index >= check->reached.size() || (index + 1) * RECORD_SIZE > check->stringsStart) {
            addFault(check, from, how + std::to_string(index) + " lies beyond the records");
            return;
        }
        if (check->reached[index]) {
            addFault(check, from, how + std::to_string(index) + " is reached a second time");
            return;
        }
        check->reached[index] = true;
        check->queue.push_back(index);
        if (index != first)
            checkOrder(check, index);
        if (!recordAt(check->file, index).more)
            return;
    }
}

// Looks at the records that nothing leads to: a fault, unless they fill the
// space between the last record and the strings with zeros.
static void checkGaps(Check *check)
{
    const size_t end = std::min(check->reached.size(), check->stringsStart / RECORD_SIZE);
    const size_t last = *std::max_element(check->queue.begin(), check->queue.end());
    for (size_t i = 0; i < end; ++i) {
        if (check->reached[i])
            continue;
        const size_t first = i;
        bool used = false;
        for (; i < end && !check->reached[i]; ++i)
            used = used || i < last || numberAt(check->file, recordOffset(i)) != 0 ||
                   numberAt(check->file, recordOffset(i) + 4) != 0;
        if (used)
            addFault(check, first,
                     "nothing leads to it" +
                         (i - first > 1 ? ", nor to those up to record " + std::to_string(i - 1)
                                        : std::string()));
    }
}

static std::string noteOnHeader(std::string_view file, size_t records)
{
    if (file.substr(0, MAGIC.size()) != MAGIC || numberAt(file, MAGIC.size()) != VERSION)
        return "the header is not that of orv-textdb";
    const uint32_t count = numberAt(file, MAGIC.size() + 4);
    if (count != records)
        return "the header counts " + std::to_string(count) + " records, but " +
               std::to_string(records) + " are in use";
    return "";
}

TextDbReport checkTextDb(std::string_view file)
{
    if (file.size() < HEADER_SIZE + RECORD_SIZE)
        return {{{file.size(), "the file ends before its first record does"}}, "", 0, 0};
    Check check = {file, file.substr(HEADER_SIZE), file.size() - HEADER_SIZE, {}, {0}, {}};
    check.reached.assign(check.area.size() / RECORD_SIZE, false);
    check.reached[0] = true;
    for (size_t i = 0; i < check.queue.size(); ++i) {
        checkStrings(&check, check.queue[i]);
        checkChildren(&check, check.queue[i]);
    }
    for (const size_t index : check.queue)
        if ((index + 1) * RECORD_SIZE > check.stringsStart)
            addFault(&check, index,
                     "overlaps the strings, which begin at offset " +
                         std::to_string(check.stringsStart + HEADER_SIZE));
    checkGaps(&check);
    check.report.records = check.queue.size();
    check.report.headerNote = noteOnHeader(file, check.queue.size());
    return std::move(check.report);
}

bool isTextDb(std::string_view file)
{
    return file.starts_with(MAGIC) || checkTextDb(file).faults.empty();
}

// ---- Listing ----

void walkTextDb(std::string_view file,
                const std::function<void(std::string_view id, std::string_view text)> &visit)
{
    struct Step {
        size_t index;
        size_t keyLength; // of the parent's key
    };
    const char *area = file.data() + HEADER_SIZE;
    std::vector<Step> stack = {{0, 0}};
    std::string key;
    while (!stack.empty()) {
        const Step step = stack.back();
        stack.pop_back();
        const Record record = recordAt(file, step.index);
        key.resize(step.keyLength);
        if (step.index != 0)
            key += area + record.labelOffset;
        if (record.valueDistance)
            visit(key, area + record.labelOffset + record.valueDistance);
        if (record.more && step.index != 0)
            stack.push_back({step.index + 1, step.keyLength});
        if (record.firstChild)
            stack.push_back({record.firstChild, key.size()});
    }
}
