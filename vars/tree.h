/* vars/tree.h - the variables and array elements of a handle. */
#ifndef ORV_VARS_TREE_H
#define ORV_VARS_TREE_H

#include <stdint.h>

#include "interface/orvinterpreter.h"

struct VarNode {
    char *label;          // owned, the key's piece on the way from the parent; null in a root
    uint8_t hasValue;     // 1 when the node carries a value
    char *value;          // owned, null when hasValue is 0
    VarNode *firstChild;  // owned
    VarNode *nextSibling; // owned
};

constexpr uint32_t VAR_REPLACE = 1; // a different value may be overwritten

extern "C" {
/* Searches the tree for the node that carries key's value.
 * root: may be null. consumed: out, bytes of the key that labels matched.
 * parent: out, the last node whose children were searched. insertAt: out, the
 * child of it at which or behind which the key would go, or null.
 *
 * Returns the node, borrowed as insertVar's is, or null. */
ORV_API VarNode *lookupNode(VarNode *root, const char *key, int32_t *consumed, VarNode **parent,
                            VarNode **insertAt);

/* Returns the value under name, borrowed until it is replaced or the tree is
 * destroyed; null when there is none, or root or name is null. */
ORV_API const char *findVar(VarNode *root, const char *name);

/* Stores value under key in the tree at *root and makes the root if needed.
 * Key and value are copied. VAR_REPLACE in flags lets a different value be
 * overwritten; without it that value stays and the call fails.
 *
 * Returns the node that carries the value, borrowed and good only until the
 * next insertion or destroyTree: a split moves values between nodes. Null if
 * key or value is null, key is empty, the value may not be replaced or memory
 * ran out; the tree is then as before. */
ORV_API VarNode *insertVar(VarNode **root, const char *key, const char *value, uint32_t flags);

/* Stores value as an element of an array and keeps the array's smallest and
 * greatest index, the keys name- and name+.
 * name: with its opening bracket. index: a 32-bit decimal number is brought to
 * its shortest form (007 is 7, the empty text is 0); any other text is taken as
 * it is, and moves the bounds only as the first element. flags: as insertVar's.
 *
 * Returns as insertVar does. A bound that memory does not suffice for is left as
 * it was, or missing. */
ORV_API VarNode *insertArray(VarNode **root, const char *name, const char *index, const char *value,
                             uint32_t flags);

/* Frees the whole tree and leaves *root null. */
ORV_API void destroyTree(VarNode **root);
}

#endif
