/* vars/tree.cpp - the variables and array elements of a handle, a radix tree.
 *
 * Every edge carries a piece of the key (label); a value sits where its pieces
 * end. Between calls: siblings ascend by the first byte of their labels, taken
 * as unsigned, and never share it; a node without value has two children or
 * more, the root one or more. An array is no structure of its own: its elements
 * and bounds are keys. Uses no process-wide state. */
#include "vars/tree.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "base/text.h"
#include "vars/number.h"

static uint8_t firstByte(const char *text)
{
    return static_cast<uint8_t>(*text);
}

// Length of the label if key begins with it, else 0.
static size_t matchLabel(const char *label, const char *key)
{
    size_t length = 0;
    while (label[length] && label[length] == key[length])
        ++length;
    return label[length] ? 0 : length;
}

namespace
{
// Where a search ended.
struct Place {
    VarNode *found;    // carries the key's value, or null
    const char *rest;  // the key behind the pieces that matched
    VarNode *parent;   // last node whose children were searched
    VarNode *insertAt; // last of them whose first byte is not above the key's, or null
};

enum class Stored { DONE, REFUSED, NO_MEMORY };

struct StoreResult {
    Stored outcome;
    VarNode *node; // null unless DONE
};
} // namespace

static Place search(VarNode *root, const char *key)
{
    Place place = {nullptr, key, nullptr, nullptr};
    VarNode *node = root;
    while (node) {
        if (node->hasValue && !*place.rest) {
            place.found = node;
            break;
        }
        place.parent = node;
        place.insertAt = nullptr;
        for (VarNode *child = node->firstChild;
             child && firstByte(child->label) <= firstByte(place.rest); child = child->nextSibling)
            place.insertAt = child;
        node = place.insertAt;
        const size_t matched = node ? matchLabel(node->label, place.rest) : 0;
        if (matched == 0)
            break;
        place.rest += matched;
    }
    return place;
}

VarNode *lookupNode(VarNode *root, const char *key, int32_t *consumed, VarNode **parent,
                    VarNode **insertAt)
{
    const Place place = search(root, key);
    *consumed = static_cast<int32_t>(place.rest - key);
    *parent = place.parent;
    *insertAt = place.insertAt;
    return place.found;
}

const char *findVar(VarNode *root, const char *name)
{
    const VarNode *node = root && name ? search(root, name).found : nullptr;
    return node ? node->value : nullptr;
}

static void freeNode(VarNode *node)
{
    if (!node)
        return;
    free(node->label);
    free(node->value);
    free(node);
}

// A node with copies of both texts, or null. label or value may be null.
static VarNode *newNode(const char *label, const char *value)
{
    auto *node = static_cast<VarNode *>(calloc(1, sizeof(VarNode)));
    if (!node)
        return nullptr;
    node->label = label ? copyText(label) : nullptr;
    node->value = value ? copyText(value) : nullptr;
    node->hasValue = value ? 1 : 0;
    if ((label && !node->label) || (value && !node->value)) {
        freeNode(node);
        return nullptr;
    }
    return node;
}

// Gives node a copy of value in place of the one it carries.
static VarNode *replaceValue(VarNode *node, const char *value)
{
    char *copy = copyText(value);
    if (!copy)
        return nullptr;
    free(node->value);
    node->value = copy;
    node->hasValue = 1;
    return node;
}

static VarNode *plantRoot(VarNode **root, const char *key, const char *value)
{
    VarNode *top = newNode(nullptr, nullptr);
    VarNode *leaf = newNode(key, value);
    if (!top || !leaf) {
        freeNode(top);
        freeNode(leaf);
        return nullptr;
    }
    top->firstChild = leaf;
    *root = top;
    return leaf;
}

static VarNode *addChild(const Place &place, const char *value)
{
    VarNode *leaf = newNode(place.rest, value);
    if (!leaf)
        return nullptr;
    VarNode **link = place.insertAt ? &place.insertAt->nextSibling : &place.parent->firstChild;
    leaf->nextSibling = *link;
    *link = leaf;
    return leaf;
}

/* Cuts at's label where the key leaves it, and hangs the rest of the label and the
 * rest of the key below the cut. at keeps its place among its siblings.
 *
 *   abcd=1, then abx=2              abcd=1, then ab=2
 *
 *     "abcd" =1      "ab"             "abcd" =1      "ab" =2
 *         :     -->   |                   :     -->   |
 *     children       "cd" =1 -- "x" =2  children     "cd" =1
 *                      :                               :
 *                    children                        children
 */
static VarNode *split(VarNode *at, const char *rest, const char *value)
{
    size_t shared = 1;
    while (at->label[shared] == rest[shared])
        ++shared;
    const bool endsHere = rest[shared] == '\0';
    char *head = copyText({at->label, shared});
    char *ownValue = endsHere ? copyText(value) : nullptr;
    VarNode *tail = newNode(at->label + shared, nullptr);
    VarNode *leaf = endsHere ? nullptr : newNode(rest + shared, value);
    if (!head || !tail || !(endsHere ? ownValue != nullptr : leaf != nullptr)) {
        free(head);
        free(ownValue);
        freeNode(tail);
        freeNode(leaf);
        return nullptr;
    }
    tail->hasValue = at->hasValue;
    tail->value = at->value;
    tail->firstChild = at->firstChild;
    free(at->label);
    at->label = head;
    at->hasValue = endsHere ? 1 : 0;
    at->value = ownValue;
    at->firstChild = tail;
    if (endsHere)
        return at;
    if (firstByte(leaf->label) < firstByte(tail->label)) {
        at->firstChild = leaf;
        leaf->nextSibling = tail;
    } else {
        tail->nextSibling = leaf;
    }
    return leaf;
}

static StoreResult store(VarNode **root, const char *key, const char *value, uint32_t flags)
{
    const Place place = search(*root, key);
    VarNode *node;
    if (place.found) {
        if (strcmp(place.found->value, value) == 0)
            return {Stored::DONE, place.found};
        if (!(flags & VAR_REPLACE))
            return {Stored::REFUSED, nullptr};
        node = replaceValue(place.found, value);
    } else if (!*root) {
        node = plantRoot(root, key, value);
    } else if (!place.insertAt && !*place.rest) {
        node = replaceValue(place.parent, value);
    } else if (!place.insertAt || firstByte(place.insertAt->label) != firstByte(place.rest)) {
        node = addChild(place, value);
    } else {
        node = split(place.insertAt, place.rest, value);
    }
    return {node ? Stored::DONE : Stored::NO_MEMORY, node};
}

VarNode *insertVar(VarNode **root, const char *key, const char *value, uint32_t flags)
{
    if (!key || !value || !*key)
        return nullptr;
    return store(root, key, value, flags).node;
}

// The node without value whose key is the array's name, or null.
static VarNode *findArray(VarNode *root, const char *name)
{
    const Place place = search(root, name);
    return !place.found && !place.insertAt && !*place.rest ? place.parent : nullptr;
}

// Moves the bound under key ("-" or "+") of an array when index lies beyond it
// on that side, or when it is missing or no number.
static void widenBound(VarNode *array, const char *key, int32_t index, const char *indexText)
{
    const char *stored = findVar(array, key);
    if (stored) {
        char *end;
        const int32_t bound = readNumber(stored, &end);
        if (!*end && (*key == '-' ? index >= bound : index <= bound))
            return;
    }
    insertVar(&array, key, indexText, VAR_REPLACE);
}

static VarNode *insertElement(VarNode *array, const char *indexText, bool numeric, int32_t index,
                              const char *value, uint32_t flags)
{
    const StoreResult stored = store(&array, indexText, value, flags);
    if (stored.outcome == Stored::NO_MEMORY || !numeric)
        return stored.node;
    widenBound(array, "-", index, indexText);
    widenBound(array, "+", index, indexText);
    return stored.node ? search(array, indexText).found : nullptr; // a bound may have split it
}

// The first element of an array: its name becomes a node when the bounds join.
static VarNode *insertFirst(VarNode **root, const char *name, const char *indexText,
                            const char *value, uint32_t flags)
{
    const size_t nameLength = strlen(name);
    const size_t indexLength = strlen(indexText);
    auto *key = static_cast<char *>(malloc(nameLength + indexLength + 2));
    if (!key)
        return nullptr;
    memcpy(key, name, nameLength + 1);
    memcpy(key + nameLength, indexText, indexLength + 1);
    const StoreResult stored = store(root, key, value, flags);
    VarNode *node = nullptr;
    if (stored.outcome != Stored::NO_MEMORY) {
        memcpy(key + nameLength, "-", 2);
        insertVar(root, key, indexText, VAR_REPLACE);
        memcpy(key + nameLength, "+", 2);
        insertVar(root, key, indexText, VAR_REPLACE);
        memcpy(key + nameLength, indexText, indexLength + 1);
        node = stored.node ? search(*root, key).found : nullptr;
    }
    free(key);
    return node;
}

VarNode *insertArray(VarNode **root, const char *name, const char *index, const char *value,
                     uint32_t flags)
{
    if (!name || !index || !value || !*name)
        return nullptr;
    char *end;
    const int32_t number = readNumber(index, &end);
    const bool numeric = !*end;
    char digits[sizeof "-2147483648"];
    snprintf(digits, sizeof digits, "%d", number);
    const char *indexText = numeric ? digits : index;
    if (VarNode *array = findArray(*root, name))
        return insertElement(array, indexText, numeric, number, value, flags);
    return insertFirst(root, name, indexText, value, flags);
}

void destroyTree(VarNode **root)
{
    VarNode *node = *root;
    *root = nullptr;
    while (node) {
        // The children join the list behind their parent: a tree may be deeper than a stack.
        if (VarNode *last = node->firstChild) {
            while (last->nextSibling)
                last = last->nextSibling;
            last->nextSibling = node->nextSibling;
            node->nextSibling = node->firstChild;
        }
        VarNode *next = node->nextSibling;
        freeNode(node);
        node = next;
    }
}
