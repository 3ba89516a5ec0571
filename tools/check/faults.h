/* tools/check/faults.h - what is wrong with a tag in some pages, until all pages are known.
 *
 * A tag of a header that some page closes is sound, and a page that does not close it is to
 * blame; a tag that no page closes is to blame itself. */
#ifndef ORV_CHECK_FAULTS_H
#define ORV_CHECK_FAULTS_H

#include <deque>

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
    const Tag *tag = nullptr;
    std::string_view rule;
    const Template *tpl = nullptr; // of the tag
    Place place;                   // what is shown of it
    const char *kind = nullptr;
    std::string text = {};                   // where the tag is to blame
    std::vector<const Template *> fine = {}; // pages in which it is sound
    std::vector<Fault> faults = {};
    std::vector<const Tag *> because = {}; // where one of these is not closed, that is told
    bool dropped = false;                  // another one tells
};

// A tag is sound by a rule in a page. Most tags are by all rules in all pages, so these are
// kept apart, and small.
struct Acquittal {
    const Tag *tag;
    std::string_view rule;
    const Template *page;
};

struct Faults {
    Report &all;
    std::deque<Suspect> suspects; // in the order in which they were first asked for
    std::unordered_multimap<const Tag *, Suspect *> byTag;
    std::vector<Acquittal> acquittals;
    std::vector<Suspect *> ofPage; // those that the page which is walked has asked for

    explicit Faults(Report &of) : all(of)
    {
    }
};

/* Where a page brings in what stands at a place: that, or its outermost include. */
Place inPage(const Chain *chain, const Place &place);

/* The suspect of a tag and a rule, null when nobody has asked for it yet. */
Suspect *findSuspect(Faults &faults, const Tag *tag, std::string_view rule);

/* The same, made where there is none. The rule's name is one of this file's users' own. */
Suspect &suspectOf(Faults &faults, const Tag *tag, std::string_view rule, const char *kind);

/* Whether what stands in a template under conditions may never come into a page that includes
 * it, which the page knows and we do not. */
bool isWeak(const Paths &paths, const Template *tpl, const Outcomes &when);

/* Notes that a tag is sound by a rule in a page. */
void acquit(Faults &faults, const Tag *tag, std::string_view rule, const Template *page);

/* Tells the suspects in which pages they are sound, when all pages are known. */
void settle(Faults &faults);

/* Whether a tag has faults of a rule, and is sound in no page. suspect: may be null. */
bool isGuilty(const Suspect *suspect);

/* Reports what is left. */
void reportFaults(Faults &faults);

#endif
