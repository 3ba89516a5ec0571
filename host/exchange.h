/* host/exchange.h - one request and its answer, as the parts of a web program know it. */
#ifndef HOST_EXCHANGE_H
#define HOST_EXCHANGE_H

#include <string>
#include <string_view>
#include <vector>

#include "host.h"
#include "orvhost.h"
#include "request.h"
#include "session.h"
#include "store.h"

// Pages that mean something to the program. No request can ask for the last.
inline constexpr char loginPage[] = "login.htm";
inline constexpr char logoutPage[] = "logout.htm";
inline constexpr char passwordPage[] = "password.htm";
inline constexpr char errorPage[] = "error.frm";

enum {
    OK = 200,
    SEE_OTHER = 303,
    BAD_REQUEST = 400,
    FORBIDDEN = 403,
    NOT_FOUND = 404,
    WRONG_METHOD = 405,
    TOO_LARGE = 413,
    WRONG_TYPE = 415,
    WRONG_VALUES = 422,
    BROKEN = 500,
    NOT_STORED = 503
};

// Fields that the login page does not keep: its own, and passwords.
inline constexpr const char *loginFields[] = {"username", "password", "repeat", "old",
                                              "back",     "method",   "token",  "lang"};

struct Exchange {
    const OrvSite *site = nullptr; // borrowed
    Host host;
    sqlite3 *db = nullptr; // the host's in the end
    // The request.
    std::string page; // below the document root
    bool isHead = false;
    bool isPost = false;
    bool isVisit = false; // a person looks at it
    std::vector<FormField> fields;
    std::string language;       // empty for the device's own
    bool isNewLanguage = false; // asked for by parameter: the cookie follows
    std::string cookie;         // the session's, as it came
    Session session;
    // The answer.
    int status = OK;
    std::string reason;     // for an error page: a word, or nothing
    std::string shown;      // the template
    std::string location;   // instead of it
    std::string newSecret;  // of the session that has begun
    std::string told;       // by the script, for the next page: a text's id
    bool isOut = false;     // signed out: the browser is to forget the session
    bool isTyped = false;   // the form shows what was sent instead of what is stored
    std::string back;       // the page that the login page leads to,
    std::string backMethod; // and how it was asked for
    Rows problems;          // of the form: field, text's id
};

// What a page's name may end in, and what that is. Files to keep are no pages to show.
struct PageKind {
    const char *suffix;
    const char *type;
    bool isFile;
};

/* Returns the kind of a page by its name; null for none, and for a name that could lead
 * elsewhere. */
const PageKind *findKind(const std::string &page);

/* Returns the name of the script that answers a page's forms. */
std::string scriptName(const std::string &page);

/* Makes x the error page with that status. */
void refuse(Exchange &x, int status);

/* Sends the answer, when the database is free again. Returns false when it could not be made;
 * nothing is sent then. */
bool sendAnswer(Exchange &x);

/* Answers where there is no site to answer with, or no texts: by the site's error.html. Returns
 * false when that cannot be sent. */
bool sendBroken(Exchange &x);

#endif
