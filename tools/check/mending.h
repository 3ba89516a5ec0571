/* tools/check/mending.h - what the parts of mend.cpp share: the template as far as it is mended,
 * and changes that are tried on it. */
#ifndef ORV_CHECK_MENDING_H
#define ORV_CHECK_MENDING_H

#include <string.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mend.h"

struct Mender {
    const std::string &path;
    const std::string &file; // its bytes
    std::unique_ptr<Template> tpl;
    std::vector<Mistake> mistakes = {};
    std::vector<Span> doubtful = {};
};

// A change that may mend something, in the source.
struct Trial {
    Edit edit;
    uint32_t culprit; // where the mistake is
};

struct Best {
    std::unique_ptr<Template> tpl;
    size_t index; // of the trial
    size_t faults;
};

/* The template of a mender with further changes, which are of its source. */
std::unique_ptr<Template> readWith(const Mender &mender, std::span<const Edit> changes);

/* How much is wrong with a template. */
size_t countFaults(const Template &tpl);

/* Where a "?>" stands in page text. */
std::vector<uint32_t> strayEnds(const Template &tpl);

/* Whether a name that is set has a sign that none has: what stands behind the name is the
 * value then. */
bool hasLongerName(const Template &tpl, const Begun &begun);

/* Reads the template with each of the changes. The first that leaves the fewest faults is
 * the best; none, with a null template, where none leaves fewer than there are. */
Best tryAll(const Mender &mender, const std::vector<Trial> &trials);

/* Reads the template without a command, or with a change that may be what was meant; one
 * without a text that removes nothing stands for none. */
void settle(Mender *mender, const Begun &begun, const Edit &meant);

/* A mistake of a span of the source, and places in the source that belong to it. */
Mistake mistakeAt(const Template &tpl, Span span, const char *kind, std::string text);
void note(Mistake *mistake, const Template &tpl, uint32_t at, std::string text);

/* Notes where a command begins of which the mistake is told on another line. */
void noteBegin(Mistake *mistake, const Template &tpl, const Begun &begun, uint32_t at);

inline Trial insertion(size_t at, std::string text, size_t culprit)
{
    return {{static_cast<uint32_t>(at), 0, std::move(text)}, static_cast<uint32_t>(culprit)};
}

inline uint32_t lineOf(const Template &tpl, uint32_t offset)
{
    return placeOf(tpl, offset).line;
}

inline size_t lineEnd(std::string_view source, size_t at)
{
    return std::min(source.find('\n', at), source.size());
}

// In front of the white space that ends there.
inline size_t trimmed(std::string_view source, size_t at)
{
    while (at > 0 && strchr(" \t\r\n", source[at - 1]) && source[at - 1])
        --at;
    return at;
}

inline bool isQuote(char c)
{
    return c == '"' || c == '\'' || c == '`';
}

// Each part below tells a mistake and mends it, and returns whether it has mended one.

/* mend_ends.cpp: a command or comment that nothing closes, where false leaves the rest of the file
 * alone; a "<?" that is only half there; an index that is open when its command ends. */
bool mendUnclosed(Mender *mender, const Complaint &complaint);
bool mendComment(Mender *mender);
bool mendBegin(Mender *mender);
bool mendIndex(Mender *mender);

/* mend_quotes.cpp: a command in which a quote is missing; one that ends in the midst of text, which
 * is only told, front in front of it; all that the interpreter does not complain of. */
bool mendQuote(Mender *mender, const Begun &begun);
void tellGlued(Mender *mender, const Begun &begun, const char *kind, const std::string &front);
bool mendQuotes(Mender *mender);

/* mend_commands.cpp: what a complaint of the interpreter comes from; a sign in a name; how the log
 * complains of a command. */
void mendComplaint(Mender *mender, const Complaint &complaint);
bool mendName(Mender *mender, const Begun &begun);
std::string loggedAs(const Begun &begun);

#endif
