/* host/site.cpp - reads a request, and decides what answers it. */
#include "apply.h"
#include "complain.h"
#include "exchange.h"
#include "private.h"
#include "script.h"

#include <errno.h>
#include <glob.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <algorithm>
#include <new>

using std::string;
using std::string_view;

static string fromEnvironment(const char *name)
{
    const char *value = getenv(name);
    return value ? value : "";
}

static const char *textOf(const char *text)
{
    return text ? text : "";
}

static string fieldOr(const Exchange &x, const char *name, const char *otherwise)
{
    const string *value = findField(x.fields, name);
    return value ? *value : otherwise;
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
    if (fread(body.data(), 1, length, stdin) != length) {
        if (ferror(stdin))
            complain("cannot read the form: %s", strerror(errno));
        return BAD_REQUEST;
    }
    FormResult result =
        boundary.empty() ? decodeForm(body, x.fields) : decodeMultipart(body, boundary, x.fields);
    return result == FORM_DONE ? OK : result == FORM_BAD ? BAD_REQUEST : TOO_LARGE;
}

// Looks whether there is the page, which anybody may ask for. Returns 0, or the status that
// tells a name of none from one that cannot be opened now.
static int findPage(const Exchange &x)
{
    int32_t fd = -1;
    errno = 0;
    const char *problem = hostOpenFile(x.host, x.page.c_str(), &fd);
    if (!problem) {
        close(fd);
        return 0;
    }
    if (errno != EMFILE && errno != ENFILE && errno != ENOMEM && errno != EACCES && errno != EIO)
        return NOT_FOUND;
    complain("cannot open template '%s': %s", x.page.c_str(), problem);
    return BROKEN;
}

// Reads the request. Returns OK, or the status that refuses it.
static int readRequest(Exchange &x)
{
    string method = fromEnvironment("REQUEST_METHOD");
    string path = fromEnvironment("PATH_INFO");
    string mode = fromEnvironment("HTTP_SEC_FETCH_MODE");
    x.isHead = method == "HEAD";
    x.isVisit = !x.isHead && (mode.empty() || mode == "navigate");
    x.page = path.size() > 1 ? path.substr(1) : x.site->startPage;
    x.shown = x.page;
    if (!findKind(x.page))
        return NOT_FOUND;
    if (int status = findPage(x))
        return status;
    x.isPost = method == "POST" && hasScript(scriptName(x.page));
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

// Whether there are texts in the language that is chosen, or to fall back to.
static bool hasTexts(const Exchange &x)
{
    return !x.site->commonText || Orv_Interpreter_LookupDBField(x.site->commonText);
}

// Takes a language that is there, where the device's own is missing.
static void useAnyLanguage(Exchange &x)
{
    glob_t found;
    string pattern = string(systemRoot) + "/etc/htmltext_??.db";
    if (glob(pattern.c_str(), 0, nullptr, &found) != 0)
        return;
    for (size_t i = 0; i < found.gl_pathc && x.language.empty(); ++i)
        useLanguage(x, string_view(found.gl_pathv[i]).substr(pattern.size() - 5, 2));
    globfree(&found);
}

// Takes the first language that there are texts for: the parameter's, the cookie's,
// or one that the browser is set to.
static void chooseLanguage(Exchange &x)
{
    const string *wanted = findField(x.fields, "lang");
    x.isNewLanguage = wanted && useLanguage(x, *wanted);
    if (x.isNewLanguage ||
        useLanguage(x, findCookie(fromEnvironment("HTTP_COOKIE"), string(x.site->name) + "lang")))
        return;
    for (const string &code : acceptedLanguages(fromEnvironment("HTTP_ACCEPT_LANGUAGE")))
        if (useLanguage(x, code))
            return;
    if (!hasTexts(x))
        useAnyLanguage(x);
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
    x.back = x.site->startPage;
    x.backMethod = "get";
}

// Goes on with what the login page was in the way of. A form is not carried out now, but
// shown with what was typed.
static void goBack(Exchange &x)
{
    string query;
    std::erase_if(x.fields, [](const FormField &field) {
        return std::find(std::begin(loginFields), std::end(loginFields), field.name) !=
               std::end(loginFields);
    });
    if (!findKind(x.back) || !hostHasTemplate(x.host, x.back.c_str()) || x.back == loginPage) {
        x.back = x.site->startPage;
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

// Runs the page's script over the form. newSecret and newToken: of the session that it
// may begin.
static ScriptResult runFormScript(Exchange &x, const string &newSecret, const string &newToken)
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
    if (readScript(x.host, scriptName(x.page), script) && storeForm(x.db, x.fields))
        result = runScript(x.db, script, parameters, x.problems);
    if (result == SCRIPT_ROWS && (x.problems[0][0] == "done" || x.problems[0][0] == "show")) {
        const std::vector<string> row = std::move(x.problems[0]);
        (row[0] == "show" ? x.shown : x.told) = row[1];
        x.location = row.size() > 2 ? row[2] : "";
        x.problems.clear();
        result = SCRIPT_DONE;
    }
    std::erase_if(x.problems, [](const std::vector<string> &row) { return row[1].empty(); });
    x.isTyped = result != SCRIPT_DONE;
    return result;
}

// Whether the browser's session is still alive.
static bool isLive(const Exchange &x)
{
    Session session;
    return findSession(x.db, x.cookie, false, session) && !session.number.empty();
}

// Lets what has changed reach the device, and notes what has. changes.sql has a name and a value
// in each row; applied.sql takes them as :name and :value. What the program answers is shown.
static void applyChanges(Exchange &x)
{
    Rows changes;
    string find;
    string note;
    string told;
    string answer;
    if (!x.site->apply || !hasScript("changes.sql") || !readScript(x.host, "changes.sql", find) ||
        !readScript(x.host, "applied.sql", note) ||
        runScript(x.db, find, {}, changes) != SCRIPT_ROWS)
        return;
    // One after the other, and each with what is stored by then: the last value holds.
    bool hasTurn = storeApplyTurn(x.db);
    if (hasTurn && runScript(x.db, find, {}, changes) != SCRIPT_ROWS)
        return;
    for (const std::vector<string> &row : changes)
        told += row[0] + '=' + row[1] + '\n';
    if (!hasTurn || !runApply(x.site->apply, told, answer))
        x.told = "site.apply.bad";
    else
        for (const std::vector<string> &row : changes) {
            Rows none;
            runScript(x.db, note, {{"name", row[0]}, {"value", row[1]}}, none);
        }
    std::replace_if(
        answer.begin(), answer.end(), [](char c) { return c >= 0 && c < ' '; }, ' ');
    if (!answer.empty() && isText(answer))
        x.told += '\n' + answer;
}

static void carryOut(Exchange &x)
{
    string secret = makeSecret();
    string token = makeSecret();
    Session begun;
    ScriptResult result = SCRIPT_FAILED;
    if (!secret.empty() && !token.empty())
        result = runFormScript(x, secret, token);
    if (result != SCRIPT_FAILED && !findSession(x.db, secret, false, begun))
        return refuse(x, BROKEN);
    if (result == SCRIPT_FAILED) {
        x.status = NOT_STORED;
        x.problems = {{"form", "site.bad.store"}};
    } else if (!x.problems.empty()) {
        x.status = WRONG_VALUES;
    } else if (!x.isTyped && x.shown == x.page) {
        if (!begun.number.empty()) {
            x.session = begun;
            x.newSecret = secret;
        }
        applyChanges(x);
        setFlash(x.db, x.session, x.told);
        x.isOut = x.page == logoutPage && !isLive(x);
        if (x.page == loginPage)
            goBack(x);
        else if (x.location.empty() || x.isOut)
            x.location = x.page;
    }
}

// Answers a form. One that brings the password, which no other page knows, needs no token, and
// that for a new one a session that may have ended: a second click comes with the one that
// the first has ended.
static void answerPost(Exchange &x)
{
    bool isProof =
        x.page == loginPage || (x.page == passwordPage && isFormerSession(x.db, x.cookie));
    bool isInside = x.page == loginPage || !x.session.number.empty();
    string script;
    if (hasScript("names.sql") && !readScript(x.host, "names.sql", script))
        return refuse(x, BROKEN);
    const char *reason = foreignReason(x.db, script, textOf(x.site->names), x.session.origin);
    if (reason) {
        complain("a form from elsewhere is refused: %s", reason);
        return refuse(x, FORBIDDEN);
    }
    if (isProof || (isInside && isSameSecret(fieldOr(x, "token", ""), x.session.token)))
        carryOut(x);
    else if (isInside) {
        x.status = FORBIDDEN;
        x.isTyped = true;
        x.problems = {{"form", "site.bad.token"}};
    }
    if (!isInside && x.location.empty() && x.status < BROKEN)
        askToLogIn(x);
}

// Lets the site's script take the events that have waited. They go on waiting where it cannot.
static void takeEvents(Exchange &x)
{
    string script;
    if (hasScript("visit.sql") && readScript(x.host, "visit.sql", script)) {
        Rows rows;
        runScript(x.db, script, {}, rows);
    }
}

// Decides what the answer is to a request that was read with that status.
static void decide(Exchange &x, int status)
{
    x.cookie = findCookie(fromEnvironment("HTTP_COOKIE"), string(x.site->name) + "session");
    if (!findSession(x.db, x.cookie, x.isVisit && !x.isPost && status == OK, x.session))
        return refuse(x, BROKEN);
    if (x.session.isAwaited)
        takeEvents(x);
    bool isFile = !multipartBoundary(fromEnvironment("CONTENT_TYPE")).empty();
    if (status == TOO_LARGE && isFile && !x.session.number.empty()) {
        x.status = status;
        x.problems = {{"file", "site.refused.large"}};
        return;
    }
    if (status != OK)
        return refuse(x, status);
    if (x.page == loginPage && !x.isPost) // a link must not say what to go on with
        x.fields.clear();
    if (x.page == loginPage) {
        x.back = fieldOr(x, "back", x.site->startPage);
        x.backMethod = fieldOr(x, "method", "get");
    }
    if (x.page == logoutPage && x.session.number.empty())
        sayGoodbye(x);
    else if (x.isPost)
        answerPost(x);
    else if (x.page == loginPage && !x.session.number.empty())
        x.location = x.site->startPage;
    else if (x.page != loginPage && x.session.number.empty())
        askToLogIn(x);
}

// Lets the site's script put what the device measures before the page that is shown. Returns false
// when it cannot: what is made up is not to be shown in its place.
static bool findFigures(Exchange &x)
{
    Rows rows;
    string script;
    string name = x.shown.substr(0, x.shown.rfind('.')) + ".figures.sql";
    return !x.site->figures || !x.location.empty() || !hasScript(name) ||
           (readScript(x.host, name, script) && runScript(x.db, script, {}, rows) == SCRIPT_DONE);
}

// Makes what is missing in the databases. Returns false after a line on standard error; x.reason
// then says more.
static bool prepareStore(Exchange &x)
{
    Rows rows;
    string script;
    if (!storeHasSessions(x.db) && (!readScript(x.host, "sessions.sql", script) ||
                                    runScript(x.db, script, {}, rows) != SCRIPT_DONE))
        return false;
    UpgradeResult result = upgradeDatabase(x.db, x.host);
    x.reason = result == UPGRADE_NEWER ? "newer" : "";
    return result == UPGRADE_DONE;
}

// Opens the databases that the site names. Returns null after a line on standard error.
static sqlite3 *openStore(const OrvSite &site)
{
    string file;
    string folder = textOf(site.sessions);
    if (folder.empty())
        folder = string("/tmp/") + site.name + '-' + std::to_string(geteuid());
    bool isReady = privateFile(folder, "sessions.db", file);
    return isReady ? storeOpen(textOf(site.database), file, site.figures) : nullptr;
}

// Opens what the site names and answers. Returns false when it cannot.
static bool run(Exchange &x)
{
    x.db = openStore(*x.site); // before the folder changes
    if (!hostOpen(x.host, textOf(x.site->docRoot), nullptr))
        return false;
    int status = readRequest(x);
    chooseLanguage(x);
    if (!hasTexts(x)) {
        complain("there are no texts in any language");
        return false;
    }
    bool hasStore = x.db && prepareStore(x);
    if (hasStore)
        decide(x, status);
    if (!hasStore || !findFigures(x))
        refuse(x, BROKEN);
    return (!hasStore || hostTakeDatabase(x.host, x.db)) && sendAnswer(x);
}

// The request. It is not freed, nor its database closed: the end of the process, which comes
// now, does that in a twentieth of the time.
static Exchange *exchange;

int Orv_Site_Answer(const OrvSite *site)
{
    std::set_new_handler([] {
        complain("out of memory");
        _exit(1); // without headers the web server answers with status 500
    });
    umask(S_IRWXG | S_IRWXO); // the database is nobody else's
    systemRoot = textOf(site->root);
    exchange = new Exchange;
    Exchange &x = *exchange;
    x.site = site;
    x.host.program = program_invocation_short_name;
    x.host.reportTemplates = true;
    return run(x) || sendBroken(x) ? 0 : 1;
}
