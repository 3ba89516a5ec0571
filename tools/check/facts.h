/* tools/check/facts.h - what a page says about itself: ids and who refers to them, fields and
 * their labels, links and what they lead to. */
#ifndef ORV_CHECK_FACTS_H
#define ORV_CHECK_FACTS_H

#include "faults.h"
#include "structure.h"

// An id, or an element of which a page has one.
struct IdUse {
    std::string id;
    const Tag *tag;
    Place place;
    Outcomes when;
    const Chain *chain;
    bool many; // it comes once for each row, for certain
};

// An attribute that names ids.
struct IdReference {
    const Tag *tag;
    const Attribute *attribute;
    std::vector<std::vector<std::string>> ways; // the ids of each of its values
    Outcomes when;
    const Chain *chain;
};

// A form's field that needs a label.
struct LabelledField {
    const Tag *tag;
    std::vector<std::string> ids;
    const Open *label; // around it, null without one
    const Chain *chain;
    Outcomes when;
};

// A link to a place of another page.
struct FarLink {
    std::string page;
    std::string id;
    Place place;
};

// The name of a frame that a link or form opens in.
struct Target {
    std::string name;
    Place place;
};

struct PageIds {
    std::set<std::string> ids;
    bool opaque = false; // it may have others
};

struct Facts {
    Report &all;
    Faults &faults;
    // Of the page that is walked.
    std::vector<IdUse> ids = {};
    std::vector<IdUse> singles = {};
    std::vector<IdReference> references = {};
    std::vector<LabelledField> fields = {};
    std::vector<std::pair<std::string, bool>> labels = {}; // what they are for; they have text
    std::vector<std::string> lostLabels = {};              // those that are for no field
    std::set<std::string, std::less<>> seen = {};          // elements of the document
    const Tag *html = nullptr;
    const Chain *htmlChain = nullptr;
    bool usesBase = false;
    // Of the site.
    std::map<std::string, PageIds> pages = {};
    std::vector<FarLink> farLinks = {};
    std::set<std::string> frames = {}; // their names
    std::vector<Target> targets = {};
    std::set<std::string> manifests = {};
    std::set<std::string> checkedLinks = {};
    std::string scripts = {}; // all of them, when first asked for
    bool scriptsRead = false;

    void beginPage(const Paths &paths);
    void start(Paths &paths, const Tag &tag);
    void close(const Paths &paths, const Open &open);
    void endPage(const Paths &paths);
    void endSite();
    /* Whether an element is read out in the place of text. */
    static bool isRead(const Tag &tag);
    bool hasSeen(std::string_view name) const;
};

/* What an attribute of a tag is looked at for. */
Use useOf(const Tag &tag, const Attribute &attribute);

/* Whether an attribute leads somewhere, and checks where to. */
bool leadsSomewhere(const Tag &tag, const Attribute &attribute);
void checkLink(Facts &facts, const Paths &paths, const Tag &tag, const Attribute &attribute);

/* The path below the document root that an address in a file means, empty where it leads
 * elsewhere or is not known; and why that is a mistake, empty where it is none. isFile: whether
 * it has to be a file, whatever its ending. */
std::string targetFile(const std::string &from, std::string_view address);
std::string whyMissing(const Site &site, const std::string &file, bool isFile);

/* Whether a script makes an element of that id. */
bool isMadeByScript(Facts &facts, std::string_view id);

/* All scripts of the site, the files and those in templates; borrowed. */
const std::string &scriptsOf(Facts &facts);

/* The id among those that was probably meant, as the end of a message; empty for none. */
std::string didYouMean(std::string_view id, const std::vector<std::string_view> &known);

/* Checks what the site's scripts, styles and manifests name, when all pages are known. */
void checkResources(Facts &facts);

/* Whether a value that may have MARKs in it can be that text. */
bool mayMatch(std::string_view pattern, std::string_view text);

#endif
