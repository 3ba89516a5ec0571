/* tools/check/faults.h - what is wrong with a tag in some pages, until all pages are known.
 *
 * A tag of a header that some page closes is sound, and a page that does not close it is to
 * blame; a tag that no page closes is to blame itself. */
#ifndef ORV_CHECK_FAULTS_H
#define ORV_CHECK_FAULTS_H

#include "paths.h"

struct Fault {
    const Template *page;
    Place at;          // where the page is to blame
    std::string plain; // what is wrong
    std::vector<Note> notes = {};
    bool weak = false;      // in a branch that this page may never take
    bool somewhere = false; // in one of the ways for certain, whatever else
    Place there = {};       // what is to blame for that
    std::string text = {};  // and how
    const Breach *skipped = nullptr;
};

// One kind of fault of one tag.
struct Suspect {
    const Template *tpl = nullptr; // of the tag
    Place place;                   // what is shown of it
    const char *kind = nullptr;
    std::string text;                   // where the tag is to blame
    std::vector<const Template *> fine; // pages in which it is sound
    std::vector<Fault> faults;
    std::vector<const Tag *> because = {}; // where one of these is not closed, that is told
    bool dropped = false;                  // another one tells
};

struct Faults {
    Report &all;
    std::map<std::pair<const Tag *, std::string_view>, Suspect> suspects;

    explicit Faults(Report &of) : all(of)
    {
    }
};

/* Where a page brings in what stands at a place: that, or its outermost include. */
Place inPage(const Chain *chain, const Place &place);

/* The suspect of a tag and a rule, which is one of this file's users' own. */
Suspect &suspectOf(Faults &faults, const Tag *tag, std::string_view rule, const char *kind);

/* Whether what stands in a template under conditions may never come into a page that includes
 * it, which the page knows and we do not. */
bool isWeak(const Paths &paths, const Template *tpl, const Outcomes &when);

/* Notes that a tag is sound in a page. */
void acquit(Suspect &suspect, const Template *page);

/* Reports what is left. */
void reportFaults(Faults &faults);

#endif
