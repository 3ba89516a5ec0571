/* tools/check/json_pages.h - whether JSON pages and JSON in pages are JSON in all ways
 * through them. */
#ifndef ORV_CHECK_JSON_PAGES_H
#define ORV_CHECK_JSON_PAGES_H

#include "structure.h"

// Where an object has a name.
struct JsonName {
    Place place;
    Outcomes when;
};

struct JsonPages {
    Report &all;
    std::deque<Open> lists = {};
    std::set<std::pair<const Template *, uint32_t>> told = {};                        // where
    std::map<std::pair<const Open *, std::string>, std::vector<JsonName>> names = {}; // of the page
    Place comma = {};           // the last one
    const Node *word = nullptr; // that a number has begun with

    void beginPage(Paths &paths);
    void visitTag(Paths &paths, const Tag &tag);
    void visitData(Paths &paths, const Node &node);
    void visitValue(Paths &paths, const Node &node);
    void endPage(Paths &paths);
};

#endif
