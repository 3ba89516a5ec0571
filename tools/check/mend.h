/* tools/check/mend.h - a template read as it was probably meant.
 *
 * One mistake of the syntax spoils what stands behind it: a command that nothing closes
 * takes the rest of the file. So each is mended by the smallest change that leaves the
 * fewest complaints, and the template is read again. What then stands there is checked like
 * any other, and each mistake is told once, where it was made. */
#ifndef ORV_CHECK_MEND_H
#define ORV_CHECK_MEND_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/common/template.h"

struct Mistake {
    const char *kind; // its id
    Span span;        // in the file
    std::string text;
    std::vector<std::pair<uint32_t, std::string>> notes; // by place in the file
};

struct Mended {
    std::unique_ptr<Template> tpl; // with the edits that mend it
    std::vector<Mistake> mistakes; // of the syntax, in no order
    std::vector<Span> doubtful;    // in the file: nobody knows what was meant there
};

/* Reads a template. page: as of readTemplate. */
Mended readMended(const std::string &path, const std::string &file, bool page);

/* What stands in a command that was left out because of its mistake: in the source. */
std::vector<Span> leftOut(const Template &tpl);

#endif
