/* tools/common/advice.h - what an author is told of each message of the library, and how
 * the mistake is mended. The checker, the preview and editors say the same. */
#ifndef ORV_COMMON_ADVICE_H
#define ORV_COMMON_ADVICE_H

#include <string>

#include "base/messages.h"
#include "base/observe.h"

struct Advice {
    Message id;
    const char *told;    // %1: the message's first value; empty: of no use to an author, or
                         // told where it is shown
    const char *mending; // a sentence or more; empty when nothing is to be mended
};

/* What there is to say of a message. */
const Advice &adviceOn(Message id);

/* What an author is told of a message, with its values. */
std::string tellAuthor(const observe::Told &told);

#endif
