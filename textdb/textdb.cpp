/* textdb/textdb.cpp - text database files: mapped whole, searched in place.
 *
 * A file is a radix tree: 16 bytes that are skipped, the node array, and the
 * strings, whose offsets count from the node array. Siblings lie side by side
 * and ascend by the first byte of their labels, taken as unsigned. Of ab=X and ac=Y:
 *
 *   0        16                                  48
 *   | header | node 0 | node 1 | node 2 | node 3 | \0 a\0 b\0X\0 c\0Y\0 |
 *              root     "a"      "b" =X   "c" =Y
 *              child 1  child 2  more --> last      image = start + 16
 *
 *   a node:  | value offset 12 | first child 20 |  attr 1 | more 1 | label offset 30 |
 *              from the label,   index, 0 for       bits of two little-endian words
 *              0 for no value    no child
 *
 * Nothing in a file is trusted: a lookup that would leave the mapping finds nothing. Between
 * calls: every mapping stands in the list of mappings with its length. */
#include "textdb/textdb.h"

#include <endian.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/files.h"

static Mapping *mappings; // every mapped text database

static constexpr size_t HEADER_SIZE = 16;
static constexpr size_t NODE_SIZE = 8;

// Of a record's first word, and of its second.
static constexpr uint32_t CHILD_BITS = 0xFFFFF;
static constexpr uint32_t VALUE_SHIFT = 20;
static constexpr uint32_t LABEL_BITS = 0x3FFFFFFF;
static constexpr uint32_t SIBLING_BIT = 0x40000000; // the next record is the next sibling
static constexpr uint32_t ATTRIBUTE_BIT = 0x80000000;

using std::string_view;

namespace
{
// A node record as it stands in the file.
struct Node {
    uint32_t links;
    uint32_t strings;

    // Index of the first child, 0 for none.
    uint32_t firstChild() const
    {
        return links & CHILD_BITS;
    }
    // From the label's first byte, 0 for no value.
    uint32_t valueOffset() const
    {
        return links >> VALUE_SHIFT;
    }
    // Offset of the label.
    uint32_t label() const
    {
        return strings & LABEL_BITS;
    }
};

// The bytes of one mapping behind the header.
struct Image {
    const char *bytes;
    size_t length;

    // The byte at offset, or -1 outside.
    int at(size_t offset) const
    {
        return offset < length ? static_cast<unsigned char>(bytes[offset]) : -1;
    }
};
} // namespace

static const Mapping *findMapping(const char *image)
{
    const Mapping *mapping = mappings;
    while (mapping && mapping->image != image)
        mapping = mapping->next;
    return mapping;
}

// A little-endian word of the file, at any alignment.
static uint32_t readWord(const char *at)
{
    uint32_t word;
    memcpy(&word, at, sizeof word);
    return le32toh(word);
}

static bool holdsNode(const Image &image, size_t index)
{
    return index < image.length / NODE_SIZE;
}

// The record of that index, which lies in the image.
static Node readNode(const Image &image, size_t index)
{
    const char *record = image.bytes + index * NODE_SIZE;
    return {readWord(record), readWord(record + 4)};
}

// Index of the last of the siblings from first on whose label does not begin with a byte
// above c; 0, which is no child's, when there is none, or a record or label on the way lies
// outside the image.
static size_t chooseChild(const Image &image, size_t first, int c)
{
    for (size_t index = first; holdsNode(image, index); ++index) {
        const uint32_t strings = readNode(image, index).strings;
        const int start = image.at(strings & LABEL_BITS);
        if (start < 0)
            return 0;
        if (start > c)
            return index == first ? 0 : index - 1;
        if (!(strings & SIBLING_BIT))
            return index;
    }
    return 0;
}

// Moves key behind the label at offset. False when key does not begin with it, or
// the label is empty or leaves the image.
static bool passLabel(const Image &image, size_t offset, const char **key)
{
    const char *at = *key;
    int c = image.at(offset);
    if (c <= 0)
        return false;
    do {
        if (static_cast<unsigned char>(*at++) != c)
            return false;
        c = image.at(++offset);
    } while (c > 0);
    *key = at;
    return c == 0;
}

// The value of a node, if it ends within the image.
static string_view valueOf(const Image &image, const Node &node)
{
    const size_t offset = static_cast<size_t>(node.label()) + node.valueOffset();
    if (offset >= image.length)
        return {};
    const char *text = image.bytes + offset;
    const auto *end = static_cast<const char *>(memchr(text, '\0', image.length - offset));
    return end ? string_view(text, static_cast<size_t>(end - text)) : string_view();
}

string_view findText(const char *image, const char *key, int32_t *attribute)
{
    if (!image || !key)
        return {};
    const Mapping *mapping = findMapping(image);
    // Bytes that were not mapped here are their owner's to vouch for.
    const Image whole = {image, mapping ? mapping->length - std::min(mapping->length, HEADER_SIZE)
                                        : SIZE_MAX / 2};
    if (!holdsNode(whole, 0))
        return {};
    Node node = readNode(whole, 0);
    while (*key) {
        const size_t first = node.firstChild();
        const auto c = static_cast<unsigned char>(*key);
        const size_t child = first ? chooseChild(whole, first, c) : 0;
        if (child == 0)
            return {};
        node = readNode(whole, child);
        if (!passLabel(whole, node.label(), &key))
            return {};
    }
    if (node.valueOffset() == 0)
        return {};
    if (attribute)
        *attribute = (node.strings & ATTRIBUTE_BIT) != 0;
    return valueOf(whole, node);
}

const char *findMmapVar(const char *image, const char *key, int32_t *attribute)
{
    return findText(image, key, attribute).data();
}

static const char *mapWhole(int fd, size_t *length)
{
    struct stat status;
    if (fstat(fd, &status) != 0 || static_cast<uint64_t>(status.st_size) > SIZE_MAX)
        return nullptr;
    *length = static_cast<size_t>(status.st_size);
    void *start = mmap(nullptr, *length, PROT_READ, MAP_SHARED, fd, 0);
    return start == MAP_FAILED ? nullptr : static_cast<const char *>(start);
}

int32_t loadMmapTree(const char *path, const char **image)
{
    *image = nullptr;
    const int fd = openFile(path, O_RDONLY);
    if (fd < 0)
        return -1;
    auto *mapping = static_cast<Mapping *>(malloc(sizeof(Mapping)));
    size_t length = 0;
    const char *start = mapping ? mapWhole(fd, &length) : nullptr;
    if (!start) {
        free(mapping);
        close(fd);
        return -1;
    }
    *mapping = {start + HEADER_SIZE, length, mappings};
    mappings = mapping;
    *image = mapping->image;
    return fd;
}

void unloadMmapTree(const char *, int32_t fd, const char **image)
{
    if (!*image)
        return;
    Mapping **link = &mappings;
    while (*link && (*link)->image != *image)
        link = &(*link)->next;
    *image = nullptr;
    if (Mapping *mapping = *link) {
        *link = mapping->next;
        munmap(const_cast<char *>(mapping->image) - HEADER_SIZE, mapping->length);
        free(mapping);
    }
    close(fd);
}
