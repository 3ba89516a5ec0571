/* base/observe.cpp - what a run tells who watches it, in orv_observed alone.
 *
 * A place in a file is not where its bytes lie: a refill puts texts in the place of
 * fields. So it is counted how much each open template has delivered to the scanner,
 * and each text is kept with the length of what it replaced. All state is of the run
 * in progress. */
#include "base/observe.h"

#include <stdarg.h>
#include <string.h>

#include <vector>

#include "base/log.h"
#include "base/process.h"
#include "scanner/buffer.h"

namespace
{
struct Substitution {
    size_t start;    // in what the scanner is given
    size_t length;   // of the text there
    size_t original; // in the file
    size_t replaced; // length of the field
};

struct Delivery {
    size_t bytes; // that the scanner has been given
    std::vector<Substitution> texts;
};
} // namespace

static const observe::Observer *observer;
static Delivery deliveries[MAX_INCLUDE_DEPTH];
static observe::Match match; // the one that begins

void observe::setObserver(const Observer *watcher)
{
    observer = watcher;
}

static Delivery &top()
{
    return deliveries[inpr->includeIndex];
}

// Place in the file of the byte at "at" of what the scanner is given.
static size_t originalOf(size_t at, bool isEnd)
{
    const std::vector<Substitution> &texts = top().texts;
    auto last = texts.rbegin();
    while (last != texts.rend() && last->start + (isEnd && last->length > 0) > at)
        ++last;
    if (last == texts.rend())
        return at;
    const size_t behind = at - last->start;
    if (behind < last->length)
        return last->original + (isEnd ? last->replaced : 0);
    return last->original + last->replaced + behind - last->length;
}

static size_t scanned()
{
    return inpr && inpr->includeIndex >= 0 ? top().bytes - bytesRead() : 0;
}

static size_t offset()
{
    return inpr && inpr->includeIndex >= 0 ? originalOf(scanned(), false) : 0;
}

static observe::Spot spot()
{
    const char *path = currentTemplate();
    return {path, *path ? currentLine() : 0, offset()};
}

static const observe::Match &matched()
{
    match.end = originalOf(scanned(), true);
    match.after = scanner.condition;
    match.depthAfter = scanner.depth;
    return match;
}

void observe::opened(const char *path)
{
    top().bytes = 0;
    top().texts.clear();
    if (observer && observer->opened)
        observer->opened(observer->self, path);
}

void observe::closed(const char *path)
{
    if (observer && observer->closed)
        observer->closed(observer->self, path);
}

void observe::delivered(size_t bytes)
{
    top().bytes += bytes;
}

void observe::substituted(size_t placed, size_t fieldLength, size_t textLength)
{
    const size_t start = top().bytes + placed;
    top().texts.push_back({start, textLength, originalOf(start, false), fieldLength});
}

void observe::matchBegins()
{
    match.at = offset();
    match.before = scanner.condition;
    match.depthBefore = scanner.depth;
}

bool observe::seesTokens()
{
    return observer && observer->token;
}

void observe::token(int token, const ArgElem *value)
{
    if (observer && observer->token)
        observer->token(observer->self, token, matched(), value);
}

void observe::commented()
{
    if (observer && observer->commented)
        observer->commented(observer->self, matched());
}

bool observe::unmatched()
{
    if (!observer || !observer->unmatched)
        return false;
    observer->unmatched(observer->self, offset());
    return true;
}

void observe::blundered()
{
    if (observer && observer->blundered)
        observer->blundered(observer->self, spot());
}

void observe::made(const Cmd *cmd)
{
    if (observer && observer->made && cmd)
        observer->made(observer->self, cmd);
}

bool observe::keeps(const Cmd *cmd)
{
    return observer && observer->keeps && observer->keeps(observer->self, cmd);
}

void observe::begins(const Cmd *cmd)
{
    if (observer && observer->begins)
        observer->begins(observer->self, cmd);
}

void observe::ended(const Cmd *cmd, int32_t result)
{
    if (observer && observer->ended)
        observer->ended(observer->self, cmd, result);
}

int64_t observe::repeats(int64_t lower, int64_t upper)
{
    return observer && observer->repeats ? observer->repeats(observer->self, lower, upper) : upper;
}

void observe::piece(std::string_view piece)
{
    if (!observer || !observer->piece)
        return;
    const size_t end = scanned();
    observer->piece(observer->self, piece,
                    originalOf(end > piece.size() ? end - piece.size() : 0, false));
}

void observe::assigned(const char *name, const char *index, const char *value, bool stored)
{
    if (observer && observer->assigned && name && value)
        observer->assigned(observer->self, name, index, value, stored);
}

void observe::read(const char *name, const char *value)
{
    if (observer && observer->read)
        observer->read(observer->self, name, value);
}

void observe::asks(int32_t mode, const char *query)
{
    if (observer && observer->asks)
        observer->asks(observer->self, mode, query);
}

void observe::answered(int32_t result, const QueryRow *rows)
{
    if (observer && observer->answered)
        observer->answered(observer->self, result, rows);
}

void observe::looksUp(const char *id, size_t at)
{
    if (observer && observer->looksUp)
        observer->looksUp(observer->self, id, at);
}

FILE *observe::openFile(const char *path)
{
    if (observer && observer->opensFile)
        return observer->opensFile(observer->self, path);
    return fopen(path, "r");
}

void observe::tell(Message id, const char *form, const Value *values, size_t count, ...)
{
    if (!observer || !observer->message)
        return;
    char text[LOG_CAPACITY];
    va_list arguments;
    va_start(arguments, count);
    vsnprintf(text, sizeof text, form, arguments);
    va_end(arguments);
    Spot at = spot();
    const std::string_view begin = form; // the line is the second value where the form has one
    if (begin.starts_with("%s, line %d") || begin.starts_with("%s, near line %d"))
        at.line = static_cast<int32_t>(values[1].number);
    observer->message(observer->self, {id, at, text, values, count});
}
