/* tools/preview/markup.h - what must be known of a page to add something behind it. */
#ifndef PREVIEW_MARKUP_H
#define PREVIEW_MARKUP_H

#include <stddef.h>
#include <string>
#include <string_view>

struct Markup {
    size_t policy = std::string_view::npos; // offset of the first meta element with a
                                            // content security policy, npos without one
    std::string open;    // what the page leaves open at its end and would swallow what
                         // follows: "a comment", "<script>", ...; empty when nothing
    std::string closing; // text that ends that
};

/* Reads a page as a browser's tokenizer does, as far as these answers need. */
Markup readMarkup(std::string_view page);

#endif
