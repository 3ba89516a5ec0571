/* examples/zarn/zarn.cpp - the demo site's web program, a CGI program (RFC 3875).
 *
 * PATH_INFO names the page. The web server's configuration says where things are:
 *   ZARN_DOCROOT  the folder of the pages
 *   ZARN_DB       the SQLite database that they show
 *   ZARN_ROOT     put in front of the interpreter's own paths; may be missing
 * Problems and the interpreter's diagnostics go to standard error, which is the web
 * server's error log.
 *
 * Three variables are the program's own, whatever the request sends: token, for
 * the form of a page that changes something; typed, 1 when the form comes back
 * with an error and shows what was typed; lang, the language. */
#include "host.h"
#include "request.h"
#include "settings.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>
#include <new>

using std::string;
using std::string_view;

static constexpr char startPage[] = "overview.htm";
static constexpr char settingsPage[] = "settings.htm";
static constexpr char tokenCookie[] = "zarntoken";
static constexpr char languageCookie[] = "zarnlang";
static constexpr int32_t outputBuffer = 16384;

// In front of the line that ends each header. The pages have no script, style or
// picture in their text but the icon, and no page is for a frame.
static constexpr char commonHeaders[] =
    "Content-Type: text/html; charset=utf-8\r\n"
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Referrer-Policy: same-origin\r\n"
    "Content-Security-Policy: default-src 'none'; style-src 'self'; script-src 'self'; "
    "img-src data:; form-action 'self'; base-uri 'none'; frame-ancestors 'none'\r\n";

// Why there is no page: the numbers of HTTP.
enum {
    BAD_REQUEST = 400,
    NOT_FOUND = 404,
    WRONG_METHOD = 405,
    TOO_LARGE = 413,
    WRONG_TYPE = 415,
    BROKEN = 500
};

static constexpr struct {
    int status;
    const char *reason;
    const char *text;
} refusals[] = {
    {BAD_REQUEST, "Bad Request", "The request is not encoded as a form."},
    {NOT_FOUND, "Not Found", "There is no such page."},
    {WRONG_METHOD, "Method Not Allowed", "This page cannot be asked for in that way."},
    {TOO_LARGE, "Content Too Large", "The request is too large."},
    {WRONG_TYPE, "Unsupported Media Type", "The request does not bring a form."},
    {BROKEN, "Internal Server Error", "The page cannot be made; the error log says why."},
};

struct Request {
    string page;                   // below the document root
    bool isHead = false;           // headers alone are wanted
    bool isPost = false;           // of the settings page
    std::vector<FormField> fields; // of the body for a POST, else of the query string
    string token;                  // the cookie's, or a new one
    bool isNewToken = false;
    string language;            // empty for the device's own
    bool isNewLanguage = false; // asked for by parameter: the cookie follows
};

static const char *fromEnvironment(const char *name)
{
    const char *value = getenv(name);
    return value ? value : "";
}

/* Answers with a small page, and the headers that belong to the status. */
static void refuse(int status, bool isHead, const char *allow)
{
    for (const auto &refusal : refusals) {
        if (refusal.status != status)
            continue;
        printf("Status: %d %s\r\n%s", status, refusal.reason, commonHeaders);
        if (status == WRONG_METHOD)
            printf("Allow: %s\r\n", allow);
        fputs("\r\n", stdout);
        if (!isHead)
            printf("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                   "<title>%s</title>\n</head>\n<body>\n<h1>%d %s</h1>\n<p>%s</p>\n</body>\n"
                   "</html>\n",
                   refusal.reason, status, refusal.reason, refusal.text);
    }
}

/* Reads the body of a POST. Returns 0, or the status that refuses it. */
static int readBody(string &body)
{
    size_t length;
    if (!isFormType(fromEnvironment("CONTENT_TYPE")))
        return WRONG_TYPE;
    if (!readNumber(fromEnvironment("CONTENT_LENGTH"), &length))
        return BAD_REQUEST;
    if (length > maxForm)
        return TOO_LARGE;
    body.resize(length);
    return fread(body.data(), 1, length, stdin) == length ? 0 : BAD_REQUEST;
}

/* Reads the request but its language. Needs the host, which knows the pages.
 * Returns 0, or the status that refuses it; allow: out, the methods that work. */
static int readRequest(Host &host, Request &request, const char **allow)
{
    string_view method = fromEnvironment("REQUEST_METHOD");
    string_view path = fromEnvironment("PATH_INFO");
    request.isHead = method == "HEAD";
    *allow = "GET, HEAD";
    request.page = path.size() > 1 ? path.substr(1) : startPage;
    if (request.page == settingsPage)
        *allow = "GET, HEAD, POST";
    request.isPost = method == "POST" && request.page == settingsPage;
    if (!isPageName(request.page))
        return NOT_FOUND;
    if (!hostHasTemplate(host, request.page.c_str()))
        return NOT_FOUND;
    if (!request.isPost && method != "GET" && method != "HEAD")
        return WRONG_METHOD;
    string form = fromEnvironment("QUERY_STRING");
    int status = request.isPost ? readBody(form) : 0;
    if (status != 0)
        return status;
    FormResult result = decodeForm(form, request.fields);
    return result == FORM_DONE ? 0 : result == FORM_BAD ? BAD_REQUEST : TOO_LARGE;
}

/* Takes the token of the browser's cookie, or makes one. The browser keeps the
 * cookie from requests that other sites cause, so these cannot know or send it.
 * Returns false when there is no randomness. */
static bool chooseToken(Request &request)
{
    unsigned char random[tokenDigits / 2];
    request.token = findCookie(fromEnvironment("HTTP_COOKIE"), tokenCookie);
    if (isToken(request.token))
        return true;
    if (getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random))
        return false;
    request.isNewToken = true;
    request.token.clear();
    for (unsigned char byte : random) {
        request.token += "0123456789abcdef"[byte >> 4];
        request.token += "0123456789abcdef"[byte & 15];
    }
    return true;
}

static bool useLanguage(Request &request, string_view code)
{
    string language(code);
    if (!isLanguage(code) || Orv_Interpreter_SetLanguage(language.c_str()) != 0)
        return false;
    request.language = language;
    return true;
}

/* Takes the first language that there are texts for: the parameter's, the cookie's,
 * or one that the browser is set to. */
static void chooseLanguage(Request &request)
{
    const string *wanted = findField(request.fields, "lang");
    request.isNewLanguage = wanted && useLanguage(request, *wanted);
    if (request.isNewLanguage ||
        useLanguage(request, findCookie(fromEnvironment("HTTP_COOKIE"), languageCookie)))
        return;
    for (const string &code : acceptedLanguages(fromEnvironment("HTTP_ACCEPT_LANGUAGE")))
        if (useLanguage(request, code))
            return;
}

/* Returns null when the form has been stored, else the id of the error's text. */
static const char *answerPost(const Request &request, const char *dbFile, bool *hasToken)
{
    const string *token = findField(request.fields, "token");
    *hasToken = token && isSameToken(*token, request.token);
    return *hasToken ? saveSettings(dbFile, request.fields) : "site.settings.bad.token";
}

/* Sets the variables of the page. Returns false when memory ran out. */
static bool setVariables(Host &host, Interpreter *interpreter, const Request &request,
                         bool showsTyped)
{
    bool isDone = true;
    for (const FormField &field : request.fields)
        if (field.name != "lang")
            isDone &= hostSet(host, interpreter, field.name.c_str(), field.value.c_str()) == 0;
    if (!request.language.empty())
        isDone &= hostSet(host, interpreter, "lang", request.language.c_str()) == 0;
    isDone &= hostSet(host, interpreter, "token", request.token.c_str()) == 0;
    return isDone && hostSet(host, interpreter, "typed", showsTyped ? "1" : "") == 0;
}

static void printHeaders(const Request &request, const char *status)
{
    printf("Status: %s\r\n%s", status, commonHeaders);
    if (request.isNewToken)
        printf("Set-Cookie: %s=%s; Path=/; HttpOnly; SameSite=Strict\r\n", tokenCookie,
               request.token.c_str());
    if (request.isNewLanguage)
        printf("Set-Cookie: %s=%s; Path=/; Max-Age=31536000; HttpOnly; SameSite=Lax\r\n",
               languageCookie, request.language.c_str());
}

/* Answers a request that names a page. The variables are set before the log is open:
 * it would tell their values, and a form's values and the token are nobody else's
 * business. Returns 0, or the status that refuses the request. */
static int answer(Host &host, Interpreter *interpreter, Request &request, const char *dbFile)
{
    string error; // a copy: the looked-up text ends with the next change of language
    bool hasToken = false;
    if (!chooseToken(request))
        return BROKEN;
    chooseLanguage(request);
    if (request.isPost) {
        const char *problem = answerPost(request, dbFile, &hasToken);
        if (!problem) {
            printHeaders(request, "303 See Other");
            printf("Location: %s?saved=1\r\n\r\n", settingsPage);
            return 0;
        }
        const char *text = Orv_Interpreter_LookupDBField(problem);
        error = text ? text : problem;
        host.error = error.c_str();
    }
    if (!setVariables(host, interpreter, request, hasToken) ||
        Orv_Interpreter_SetLog(STDERR_FILENO) != 0)
        return BROKEN;
    printHeaders(request, "200 OK");
    fputs("\r\n", stdout);
    fflush(stdout); // the interpreter writes past it
    int32_t result = ORV_RUN_DONE;
    if (!request.isHead)
        result = Orv_Interpreter_Run(interpreter, request.page.c_str(), STDOUT_FILENO);
    if (result != ORV_RUN_DONE)
        fprintf(stderr, "zarn: the page %s is not whole (%d)\n", request.page.c_str(), result);
    if (const int32_t lost = Orv_Interpreter_OutputError(interpreter); lost > 0)
        fprintf(stderr, "zarn: the page %s was not sent whole: %s\n", request.page.c_str(),
                strerror(lost));
    return 0;
}

/* Opens what the configuration names and answers. Returns 0, or the status that
 * refuses the request; allow as in readRequest. */
static int run(Host &host, Request &request, const char **allow)
{
    char dbFile[PATH_MAX]; // hostOpen changes the working directory
    systemRoot = fromEnvironment("ZARN_ROOT");
    if (!realpath(fromEnvironment("ZARN_DB"), dbFile)) {
        fprintf(stderr, "zarn: cannot find the database ZARN_DB: %s\n", strerror(errno));
        return BROKEN;
    }
    if (!hostOpen(host, fromEnvironment("ZARN_DOCROOT"), dbFile))
        return BROKEN;
    int status = readRequest(host, request, allow);
    if (status != 0)
        return status;
    Interpreter *interpreter = hostInterpreter(host);
    status = BROKEN;
    if (interpreter && Orv_Interpreter_SetOutputBuffer(interpreter, outputBuffer) == 0)
        status = answer(host, interpreter, request, dbFile);
    Orv_Interpreter_Destroy(interpreter);
    return status;
}

int main()
{
    std::set_new_handler([] {
        fputs("zarn: out of memory\n", stderr);
        _exit(1); // without headers the web server answers with status 500
    });
    Host host;
    Request request;
    const char *allow = "GET, HEAD";
    host.program = "zarn";
    host.reportTemplates = true;
    int status = run(host, request, &allow);
    hostClose(host);
    if (status != 0)
        refuse(status, request.isHead, allow);
    return 0;
}
