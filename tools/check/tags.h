/* tools/check/tags.h - reads tags out of what a template prints, piece by piece, as browsers
 * do, and tells what is wrong inside of them. */
#ifndef ORV_CHECK_TAGS_H
#define ORV_CHECK_TAGS_H

#include "flow.h"

struct Reader {
    Forest &forest;
    Reading now;
    Nodes *nodes;        // where what is read goes
    bool broken = false; // as of Flow
};

/* Reads text. from: where it stands, a byte for each of the text's, unless that is a
 * language's. */
void readLiteral(Reader &reader, std::string_view literal, const Place &from);

/* Reads a value of which the text is not known. */
void readShown(Reader &reader, const Shown &shown, const Place &place);

/* Appends a node of that kind, and returns it. */
Node &addNode(Reader &reader, NodeKind kind, const Place &place);

/* Whether a script element holds JSON, by its type. */
bool isJsonScript(const Tag &tag);

/* Whether a mode is one between "<" and ">" of a tag. */
bool isInTag(Mode mode);

/* Joins how far two branches have come, both within one tag, in one. before: how many
 * attributes the tag had in front of them. */
void joinTags(Reading *reading, const Reading &other, size_t before, const Branch &branch);

#endif
