/* examples/zarn/zarn.cpp - the demo site's web program, a CGI program (RFC 3875).
 *
 * PATH_INFO names the page. The web server's configuration says where things are:
 *   ZARN_DOCROOT  the folder of the pages
 *   ZARN_DB       the SQLite database that they show; made when it is missing
 *   ZARN_SESSIONS the folder of the sessions, an absolute path, which nobody else may use;
 *                 made when it is missing; without it /tmp/zarn-UID, UID being the user's
 *   ZARN_ROOT     put in front of the interpreter's own paths; may be missing
 *   ZARN_NAMES    names that the device has besides the one in its settings, with
 *                 blanks between; may be missing
 * Problems and the interpreter's diagnostics go to standard error, which is the web
 * server's error log.
 *
 * NAME.htm is a page; NAME.csv and NAME.json are files to keep. A form of NAME.htm is
 * sent back to it, and NAME.sql says what becomes of it: the statement with rows, if any,
 * tells what is wrong, a field and a text's id each. Then the page is shown again with
 * what was typed. Two names are no fields': "again" asks for the page as it was typed, and
 * "done" ends the script, with a text for the next page, if any. Without a session every page
 * is the login page.
 *
 * Variables of pages that are the program's own, whatever a request sends: those in
 * pageVariables; error[FIELD], what is wrong with a field, wrong naming the first; sent[FIELD],
 * what was typed there, when typed is 1; on the login page kept[N] and value[N], names and values
 * of the fields of a request that came without a session. Parameters of scripts: the fields, and
 * those in runFormScript. The fields are in a table as well, form (name, value). */
#include "host.h"
#include "private.h"
#include "request.h"
#include "session.h"
#include "store.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <algorithm>
#include <new>
#include <sstream>
#include <utility>

using std::string;
using std::string_view;

static constexpr char startPage[] = "overview.htm";
static constexpr char loginPage[] = "login.htm";
static constexpr char logoutPage[] = "logout.htm";
static constexpr char passwordPage[] = "password.htm";
static constexpr char errorPage[] = "error.frm"; // no request can ask for it
static constexpr char sessionCookie[] = "zarnsession";
static constexpr char languageCookie[] = "zarnlang";
static constexpr int32_t OUTPUT_BUFFER = 16384;

// In front of the line that ends each header. The pages have no script, style or
// picture in their text but the icon, and no page is for a frame.
static constexpr char commonHeaders[] =
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Referrer-Policy: same-origin\r\n"
    "Content-Security-Policy: default-src 'none'; style-src 'self'; script-src 'self'; "
    "connect-src 'self'; img-src data:; form-action 'self'; base-uri 'none'; "
    "frame-ancestors 'none'\r\n";

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

static constexpr struct {
    int status;
    const char *reason;
} reasons[] = {
    {OK, "OK"},
    {SEE_OTHER, "See Other"},
    {BAD_REQUEST, "Bad Request"},
    {FORBIDDEN, "Forbidden"},
    {NOT_FOUND, "Not Found"},
    {WRONG_METHOD, "Method Not Allowed"},
    {TOO_LARGE, "Content Too Large"},
    {WRONG_TYPE, "Unsupported Media Type"},
    {WRONG_VALUES, "Unprocessable Content"},
    {BROKEN, "Internal Server Error"},
    {NOT_STORED, "Service Unavailable"},
};

// What a page's name may end in, and what that is. Files to keep are no pages to show.
static constexpr struct {
    const char *suffix;
    const char *type;
    bool isFile;
} kinds[] = {
    {".htm", "text/html; charset=utf-8", false},
    {".csv", "text/csv; charset=utf-8", true},
    {".json", "application/json", true},
};

// Fields that the login page does not keep: its own, and passwords.
static constexpr const char *loginFields[] = {"password", "repeat", "old", "back",
                                              "method",   "token",  "lang"};

struct Exchange {
    // The request.
    string page; // below the document root
    bool isHead = false;
    bool isPost = false;
    bool isVisit = false; // a person looks at it
    std::vector<FormField> fields;
    string language;            // empty for the device's own
    bool isNewLanguage = false; // asked for by parameter: the cookie follows
    sqlite3 *db = nullptr;
    string cookie; // the session's, as it came
    Session session;
    // The answer.
    int status = OK;
    string shown;         // the template
    string location;      // instead of it
    string newSecret;     // of the session that has begun
    string told;          // by the script, for the next page: a text's id
    bool isOut = false;   // signed out: the browser is to forget the session
    bool isTyped = false; // the form shows what was sent instead of what is stored
    string back;          // the page that the login page leads to,
    string backMethod;    // and how it was asked for
    Rows problems;        // of the form: field, text's id
};

static string fromEnvironment(const char *name)
{
    const char *value = getenv(name);
    return value ? value : "";
}

static void refuse(Exchange &x, int status)
{
    x.status = status;
    x.shown = errorPage;
}

static string fieldOr(const Exchange &x, const char *name, const char *otherwise)
{
    const string *value = findField(x.fields, name);
    return value ? *value : otherwise;
}

// Returns the row of kinds that a page's name ends in; null for none, and for a name
// that could lead elsewhere.
static const auto *findKind(const string &page)
{
    for (const auto &kind : kinds)
        if (page.ends_with(kind.suffix))
            return isPageName(page.substr(0, page.rfind('.')) + ".htm") ? &kind : nullptr;
    return static_cast<decltype(&kinds[0])>(nullptr);
}

// Returns the name of the script that answers a page's forms.
static string scriptName(const string &page)
{
    return page.substr(0, page.rfind('.')) + ".sql";
}

// Whether a page has forms. A script that is there and cannot be read is no reason to
// refuse them: they fail.
static bool hasScript(const string &page)
{
    return access(scriptName(page).c_str(), F_OK) == 0 || errno != ENOENT;
}

// Reads the body of a POST into the fields. Returns OK, or the status that refuses it.
static int readBody(Exchange &x)
{
    string type = fromEnvironment("CONTENT_TYPE");
    string_view boundary = multipartBoundary(type);
    size_t length;
    if (!isFormType(type) && boundary.empty())
        return WRONG_TYPE;
    if (!readNumber(fromEnvironment("CONTENT_LENGTH"), &length))
        return BAD_REQUEST;
    if (length > MAX_FORM)
        return TOO_LARGE;
    string body(length, '\0');
    if (fread(body.data(), 1, length, stdin) != length)
        return BAD_REQUEST;
    FormResult result =
        boundary.empty() ? decodeForm(body, x.fields) : decodeMultipart(body, boundary, x.fields);
    return result == FORM_DONE ? OK : result == FORM_BAD ? BAD_REQUEST : TOO_LARGE;
}

// Reads the request. Returns OK, or the status that refuses it.
static int readRequest(Exchange &x, Host &host)
{
    string method = fromEnvironment("REQUEST_METHOD");
    string path = fromEnvironment("PATH_INFO");
    string mode = fromEnvironment("HTTP_SEC_FETCH_MODE");
    x.isHead = method == "HEAD";
    x.isVisit = !x.isHead && (mode.empty() || mode == "navigate");
    x.page = path.size() > 1 ? path.substr(1) : startPage;
    x.shown = x.page;
    if (!findKind(x.page) || !hostHasTemplate(host, x.page.c_str()))
        return NOT_FOUND;
    x.isPost = method == "POST" && hasScript(x.page);
    if (x.isPost)
        return readBody(x);
    if (method != "GET" && method != "HEAD")
        return WRONG_METHOD;
    FormResult result = decodeForm(fromEnvironment("QUERY_STRING"), x.fields);
    return result == FORM_DONE ? OK : result == FORM_BAD ? BAD_REQUEST : TOO_LARGE;
}

static bool useLanguage(Exchange &x, string_view code)
{
    string language(code);
    if (!isLanguage(code) || Orv_Interpreter_SetLanguage(language.c_str()) != 0)
        return false;
    x.language = language;
    return true;
}

// Takes the first language that there are texts for: the parameter's, the cookie's,
// or one that the browser is set to.
static void chooseLanguage(Exchange &x)
{
    const string *wanted = findField(x.fields, "lang");
    x.isNewLanguage = wanted && useLanguage(x, *wanted);
    if (x.isNewLanguage ||
        useLanguage(x, findCookie(fromEnvironment("HTTP_COOKIE"), languageCookie)))
        return;
    for (const string &code : acceptedLanguages(fromEnvironment("HTTP_ACCEPT_LANGUAGE")))
        if (useLanguage(x, code))
            return;
}

// Shows the login page in the place of the one that was asked for.
static void askToLogIn(Exchange &x)
{
    x.status = FORBIDDEN;
    x.problems.clear();
    x.shown = loginPage;
    x.back = x.page;
    x.backMethod = x.isPost ? "post" : "get";
}

// Shows the login page to somebody who has signed out, or wants to and need not. It leads
// to the start: from the page for signing out there is nothing to go on with.
static void sayGoodbye(Exchange &x)
{
    x.isOut = true;
    x.shown = loginPage;
    x.session.flash = "site.logout.done";
    x.fields.clear();
    x.back = startPage;
    x.backMethod = "get";
}

// Goes on with what the login page was in the way of. A form is not carried out now, but
// shown with what was typed.
static void goBack(Exchange &x, Host &host)
{
    string query;
    std::erase_if(x.fields, [](const FormField &field) {
        return std::find(std::begin(loginFields), std::end(loginFields), field.name) !=
               std::end(loginFields);
    });
    if (!findKind(x.back) || !hostHasTemplate(host, x.back.c_str()) || x.back == loginPage) {
        x.back = startPage;
        x.fields.clear();
    } else if (x.backMethod == "post") {
        x.shown = x.back;
        x.isTyped = true;
        x.session.flash = "site.login.again";
        return;
    }
    for (const FormField &field : x.fields)
        query += (query.empty() ? '?' : '&') + encodeField(field);
    x.location = x.back + query;
}

// Reads a script with the scripts in their places that it reads by lines ".read NAME", as
// sqlite3 has them, too. Returns false after a line on standard error: half a script is none.
static bool readScript(Host &host, const string &name, string &script)
{
    static constexpr string_view read = ".read ";
    string text;
    if (!hostReadFile(host, name.c_str(), text))
        return false;
    std::istringstream lines(text);
    for (string line; std::getline(lines, line);) {
        if (!line.starts_with(read))
            script += line + '\n';
        else if (!readScript(host, line.substr(read.size()), script))
            return false;
    }
    return true;
}

// Runs the page's script over the form. newSecret and newToken: of the session that it
// may begin.
static ScriptResult runFormScript(Exchange &x, Host &host, const string &newSecret,
                                  const string &newToken)
{
    string script;
    std::vector<FormField> parameters = x.fields;
    const FormField own[] = {{"sid", x.session.number},
                             {"address", fromEnvironment("REMOTE_ADDR")},
                             {"newsecret", newSecret},
                             {"newtoken", newToken},
                             {"neworigin", requestOrigin()}};
    parameters.insert(parameters.end(), std::begin(own), std::end(own));
    ScriptResult result = SCRIPT_FAILED;
    if (readScript(host, scriptName(x.page), script) && storeForm(x.db, x.fields))
        result = runScript(x.db, script, parameters, x.problems);
    if (result == SCRIPT_ROWS && x.problems[0][0] == "done") {
        x.told = x.problems[0][1];
        x.problems.clear();
        result = SCRIPT_DONE;
    }
    std::erase_if(x.problems, [](const std::vector<string> &row) { return row[1].empty(); });
    x.isTyped = result != SCRIPT_DONE;
    return result;
}

static void carryOut(Exchange &x, Host &host)
{
    string secret = makeSecret();
    string token = makeSecret();
    Session begun;
    ScriptResult result = SCRIPT_FAILED;
    if (!secret.empty() && !token.empty())
        result = runFormScript(x, host, secret, token);
    if (result != SCRIPT_FAILED && !findSession(x.db, secret, false, begun))
        return refuse(x, BROKEN);
    if (result == SCRIPT_FAILED) {
        x.status = NOT_STORED;
        x.problems = {{"form", "site.bad.store"}};
    } else if (!x.problems.empty()) {
        x.status = WRONG_VALUES;
    } else if (!x.isTyped) {
        if (!begun.number.empty()) {
            x.session = begun;
            x.newSecret = secret;
        }
        setFlash(x.db, x.session, x.told);
        x.isOut = x.page == logoutPage;
        if (x.page == loginPage)
            goBack(x, host);
        else
            x.location = x.page;
    }
}

// Answers a form. One that brings the password, which no other page knows, needs no token, and
// that for a new one a session that may have ended: a second click comes with the one that
// the first has ended.
static void answerPost(Exchange &x, Host &host)
{
    bool isProof =
        x.page == loginPage || (x.page == passwordPage && isFormerSession(x.db, x.cookie));
    bool isInside = x.page == loginPage || !x.session.number.empty();
    const char *reason = foreignReason(x.db, fromEnvironment("ZARN_NAMES"), x.session.origin);
    if (reason) {
        fprintf(stderr, "zarn: a form from elsewhere is refused: %s\n", reason);
        return refuse(x, FORBIDDEN);
    }
    if (isProof || (isInside && isSameSecret(fieldOr(x, "token", ""), x.session.token)))
        carryOut(x, host);
    else if (isInside) {
        x.status = FORBIDDEN;
        x.isTyped = true;
        x.problems = {{"form", "site.bad.token"}};
    }
    if (!isInside && x.location.empty() && x.status < BROKEN)
        askToLogIn(x);
}

// Decides what the answer is to a request that was read with that status.
static void decide(Exchange &x, Host &host, int status)
{
    x.cookie = findCookie(fromEnvironment("HTTP_COOKIE"), sessionCookie);
    chooseLanguage(x);
    if (!findSession(x.db, x.cookie, x.isVisit && !x.isPost && status == OK, x.session))
        return refuse(x, BROKEN);
    if (status != OK)
        return refuse(x, status);
    if (x.page == loginPage && !x.isPost) // a link must not say what to go on with
        x.fields.clear();
    if (x.page == loginPage) {
        x.back = fieldOr(x, "back", startPage);
        x.backMethod = fieldOr(x, "method", "get");
    }
    if (x.page == logoutPage && x.session.number.empty())
        sayGoodbye(x);
    else if (x.isPost)
        answerPost(x, host);
    else if (x.page == loginPage && !x.session.number.empty())
        x.location = startPage;
    else if (x.page != loginPage && x.session.number.empty())
        askToLogIn(x);
}

static string lookUp(const string &id)
{
    const char *text = id.empty() ? "" : Orv_Interpreter_LookupDBField(id.c_str());
    return text ? text : id;
}

// Gathers the variables of the page that is shown, the program's own last.
static std::vector<HostVariable> pageVariables(const Exchange &x)
{
    std::vector<HostVariable> all;
    int kept = 0;
    for (const FormField &field : x.fields) {
        bool isOwn = std::find(std::begin(loginFields), std::end(loginFields), field.name) !=
                     std::end(loginFields);
        if (x.isTyped)
            all.push_back({"sent[" + field.name + "]", field.value});
        if (x.shown == loginPage && !isOwn) {
            all.push_back({"kept[" + std::to_string(kept) + "]", field.name});
            all.push_back({"value[" + std::to_string(kept++) + "]", field.value});
        } else if (x.shown != loginPage && field.name != "lang") {
            all.push_back({field.name, field.value});
        }
    }
    for (const std::vector<string> &problem : x.problems)
        all.push_back({"error[" + problem[0] + "]", lookUp(problem[1])});
    string base;
    for (size_t i = 0; i < x.page.size(); ++i)
        base += x.page[i] == '/' ? "../" : "";
    const HostVariable own[] = {
        {"token", x.session.token},
        {"sid", x.session.number},
        {"outside", x.session.number.empty() ? "1" : ""},
        {"typed", x.isTyped ? "1" : ""},
        {"flash", lookUp(x.session.flash)},
        {"wrong", x.problems.empty() ? "" : x.problems[0][0]},
        {"status", std::to_string(x.status)},
        {"base", base},
        {"back", x.back},
        {"method", x.backMethod},
    };
    all.insert(all.end(), std::begin(own), std::end(own));
    if (!x.language.empty())
        all.push_back({"lang", x.language});
    return all;
}

// Returns what the error box says: what no field of the form is to blame for, or that
// fields are marked. Empty when nothing is wrong.
static string errorText(const Exchange &x)
{
    if (x.problems.empty())
        return {};
    const string &field = x.problems[0][0];
    bool isAboutAll = field == "form" || field == "version";
    return lookUp(isAboutAll ? x.problems[0][1] : "site.error.fields");
}

static void printHeaders(const Exchange &x)
{
    const auto *kind = findKind(x.shown);
    for (const auto &[status, reason] : reasons)
        if (status == x.status)
            printf("Status: %d %s\r\n", status, reason);
    printf("Content-Type: %s\r\n%s", (kind ? kind : kinds)->type, commonHeaders);
    if (kind && kind->isFile)
        printf("Content-Disposition: attachment; filename=\"%s\"\r\n", x.shown.c_str());
    if (x.status == WRONG_METHOD)
        printf("Allow: GET, HEAD%s\r\n", hasScript(x.page) ? ", POST" : "");
    if (!x.newSecret.empty())
        printf("Set-Cookie: %s=%s; Path=/; HttpOnly; SameSite=Strict%s\r\n", sessionCookie,
               x.newSecret.c_str(), x.session.origin.starts_with("https:") ? "; Secure" : "");
    // Without its cookie Chromium does not keep the owner's pages for "Back" any more.
    if (x.isOut)
        printf("Set-Cookie: %s=; Path=/; Max-Age=0; HttpOnly; SameSite=Strict\r\n", sessionCookie);
    if (x.isNewLanguage)
        printf("Set-Cookie: %s=%s; Path=/; Max-Age=31536000; HttpOnly; SameSite=Lax\r\n",
               languageCookie, x.language.c_str());
}

// Runs the template that is shown into a file in memory: the database is free again
// before a slow browser has the page, and a page that is not whole is not sent. The
// variables are set before the log is open: it would tell their values, and those of
// forms and sessions are nobody else's business.
//
// Returns the file's descriptor, the caller's; -1 after a line on standard error.
static int makePage(const Exchange &x, Host &host)
{
    Interpreter *interpreter = hostInterpreter(host);
    int file = memfd_create("page", MFD_CLOEXEC);
    string error = errorText(x);
    host.error = error.empty() ? nullptr : error.c_str();
    bool isReady = interpreter && file >= 0 &&
                   Orv_Interpreter_SetOutputBuffer(interpreter, OUTPUT_BUFFER) == 0;
    if (isReady)
        for (const HostVariable &variable : pageVariables(x))
            isReady &=
                hostSet(host, interpreter, variable.name.c_str(), variable.value.c_str()) == 0;
    isReady = isReady && Orv_Interpreter_SetLog(STDERR_FILENO) == 0;
    int32_t result = isReady ? Orv_Interpreter_Run(interpreter, x.shown.c_str(), file) : -1;
    if (result != ORV_RUN_DONE || Orv_Interpreter_OutputError(interpreter) != 0) {
        fprintf(stderr, "zarn: the page %s cannot be made (%d)\n", x.shown.c_str(), result);
        close(file);
        file = -1;
    }
    Orv_Interpreter_Destroy(interpreter);
    host.variables.clear();
    host.error = nullptr;
    return file;
}

static void sendFile(int file)
{
    char piece[4096];
    ssize_t size;
    lseek(file, 0, SEEK_SET);
    while ((size = read(file, piece, sizeof piece)) > 0)
        fwrite(piece, 1, static_cast<size_t>(size), stdout);
    close(file);
}

// Answers where there is no site to answer with.
static void sendBroken()
{
    printf("Status: 500 Internal Server Error\r\nContent-Type: text/plain\r\n%s\r\n"
           "The page cannot be made; the error log says why.\n",
           commonHeaders);
}

// Sends the answer. Returns false when it could not be made; nothing is sent then.
static bool sendAnswer(Exchange &x, Host &host)
{
    int file = -1;
    bool hasPage = x.location.empty() && !x.isHead;
    if (hasPage && (file = makePage(x, host)) < 0) {
        refuse(x, BROKEN);
        file = makePage(x, host);
    }
    hostClose(host);
    if (hasPage && file < 0)
        return false;
    if (!x.location.empty())
        x.status = SEE_OTHER;
    printHeaders(x);
    if (!x.location.empty())
        printf("Location: %s\r\n", x.location.c_str());
    fputs("\r\n", stdout);
    if (file >= 0)
        sendFile(file);
    if (fflush(stdout) != 0)
        fprintf(stderr, "zarn: the page %s was not sent whole: %s\n", x.shown.c_str(),
                strerror(errno));
    return true;
}

// Returns the name of the script that carries a database to a version.
static string versionScript(int version)
{
    char name[32];
    snprintf(name, sizeof name, "database-%02d.sql", version);
    return name;
}

static bool isFile(const string &name)
{
    return access(name.c_str(), F_OK) == 0;
}

// Returns the scripts that carry a database of that version to the last one, as one
// transaction. It has a row when another process has been faster. Empty when there are none;
// isRead: out, false after a line on standard error.
static string upgradeScript(Host &host, int version, bool &isRead)
{
    string all;
    string script;
    isRead = true;
    for (int next = version + 1; isRead && isFile(versionScript(next)); ++next) {
        isRead = hostReadFile(host, versionScript(next).c_str(), script);
        all += script;
    }
    if (all.empty())
        return all;
    return "begin immediate; select 1 from pragma_user_version where user_version <> " +
           std::to_string(version) + ';' + all + "commit;";
}

// Carries the database to the version of the last script. Returns false after a line on
// standard error; the database is then as it was.
static bool upgradeDatabase(sqlite3 *db, Host &host)
{
    Rows rows;
    int version = -1;
    bool isRead = true;
    while (runScript(db, "pragma user_version", {}, rows) == SCRIPT_ROWS) {
        int former = std::exchange(version, atoi(rows[0][0].c_str()));
        string script = upgradeScript(host, version, isRead);
        if (isRead && script.empty()) {
            if (version == 0 || isFile(versionScript(version)))
                return true;
            fprintf(stderr, "zarn: the database is of version %d, of a newer program\n", version);
            return false;
        }
        if (former == version)
            fprintf(stderr, "zarn: the scripts behind version %d lead to no other\n", version);
        if (former == version || !isRead || runScript(db, script, {}, rows) == SCRIPT_FAILED)
            return false;
    }
    return false;
}

// Opens the databases that the configuration names, and makes what is missing. Returns false
// after a line on standard error.
static bool openStore(Exchange &x, Host &host)
{
    Rows rows;
    string script;
    return (storeHasSessions(x.db) || (hostReadFile(host, "sessions.sql", script) &&
                                       runScript(x.db, script, {}, rows) == SCRIPT_DONE)) &&
           upgradeDatabase(x.db, host);
}

// Opens what the configuration names and answers. Returns false when it cannot.
static bool run(Host &host, Exchange &x)
{
    string sessionsFile;
    string root = fromEnvironment("ZARN_ROOT");
    string folder = fromEnvironment("ZARN_SESSIONS");
    systemRoot = root.c_str();
    if (folder.empty())
        folder = "/tmp/zarn-" + std::to_string(geteuid());
    if (!privateFile(folder, "sessions.db", sessionsFile))
        return false;
    x.db = storeOpen(fromEnvironment("ZARN_DB"), sessionsFile); // before the folder changes
    if (!x.db || !hostOpen(host, fromEnvironment("ZARN_DOCROOT").c_str(), nullptr) ||
        !openStore(x, host))
        return false;
    decide(x, host, readRequest(x, host));
    return hostTakeDatabase(host, x.db) && sendAnswer(x, host);
}

int main()
{
    std::set_new_handler([] {
        fputs("zarn: out of memory\n", stderr);
        _exit(1); // without headers the web server answers with status 500
    });
    umask(S_IRWXG | S_IRWXO); // the database is nobody else's
    Host host;
    Exchange exchange;
    host.program = "zarn";
    host.reportTemplates = true;
    if (!run(host, exchange))
        sendBroken();
    hostClose(host);
    return 0;
}
