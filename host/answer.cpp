/* host/answer.cpp - makes the page that answers a request, and sends it with its headers. */
#include "complain.h"
#include "exchange.h"
#include "script.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <algorithm>
#include <string_view>

using std::string;

static constexpr int32_t OUTPUT_BUFFER = 16384;

// What the error log gets of one page's diagnostics at most, in bytes.
static constexpr size_t LOG_LIMIT = 2048;

// In front of the line that ends each header. The pages have no script, style or
// picture in their text but the icon, and no page is for a frame.
static constexpr char commonHeaders[] =
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Referrer-Policy: same-origin\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Content-Security-Policy: default-src 'none'; style-src 'self'; script-src 'self'; "
    "connect-src 'self'; img-src data:; form-action 'self'; base-uri 'none'; "
    "frame-ancestors 'none'\r\n";

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

// What the program and its scripts say, for sites without texts of their own.
static constexpr struct {
    const char *id;
    const char *text;
} commonTexts[] = {
    {"site.apply.bad", "This has been saved, but the device does not follow yet."},
    {"site.error.fields", "Please look at the marked fields. Nothing has been saved."},
    {"site.bad.token", "Nothing has been saved: the form was too old. Please send it again."},
    {"site.bad.store", "This cannot be done at the moment, and nothing has been changed."},
    {"site.refused.large", "The request was too large."},
    {"site.login.again", "You are signed in again. Nothing has been saved yet."},
    {"site.login.bad.password", "This password is wrong."},
    {"site.login.bad.wait", "Too many wrong passwords. Please wait a minute and try again."},
    {"site.logout.done", "You are signed out."},
    {"site.session.ended", "The other browser is signed out."},
    {"site.password.saved", "The password has been changed."},
    {"site.password.bad.length", "The password must have 8 to 64 characters."},
    {"site.password.bad.repeat", "The two passwords differ."},
    {"site.password.bad.weak", "This password is one of those that are tried first."},
};

static constexpr PageKind kinds[] = {
    {".htm", "text/html; charset=utf-8", false},
    {".csv", "text/csv; charset=utf-8", true},
    {".json", "application/json", true},
};

const PageKind *findKind(const string &page)
{
    for (const PageKind &kind : kinds)
        if (page.ends_with(kind.suffix))
            return isPageName(page.substr(0, page.rfind('.')) + ".htm") ? &kind : nullptr;
    return nullptr;
}

string scriptName(const string &page)
{
    return page.substr(0, page.rfind('.')) + ".sql";
}

void refuse(Exchange &x, int status)
{
    x.status = status;
    x.shown = errorPage;
}

// Returns the text of an id, in the language that is chosen or as all sites have it; what is no
// id is a text.
static string lookUp(const string &id)
{
    const char *text = id.empty() ? "" : Orv_Interpreter_LookupDBField(id.c_str());
    if (text)
        return text;
    for (const auto &common : commonTexts)
        if (id == common.id)
            return common.text;
    return id;
}

// Returns what leads from the page that was asked for to the site's own folder.
static string basePath(const Exchange &x)
{
    string base;
    for (char c : x.page)
        base += c == '/' ? "../" : "";
    return base;
}

// Adds the sessions to the variables of the page of the password.
static void addSessions(const Exchange &x, std::vector<HostVariable> &all)
{
    static constexpr const char *names[] = {"session", "address", "started", "used"};
    Rows rows;
    if (x.shown == passwordPage)
        listSessions(x.db, rows);
    for (size_t i = 0; i < rows.size(); ++i)
        for (size_t k = 0; k < std::size(names); ++k)
            all.push_back({string(names[k]) + '[' + std::to_string(i) + ']', rows[i][k]});
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
    addSessions(x, all);
    for (const std::vector<string> &problem : x.problems)
        all.push_back({"error[" + problem[0] + "]", lookUp(problem[1])});
    const HostVariable own[] = {
        {"token", x.session.token},
        {"sid", x.session.number},
        {"outside", x.session.number.empty() ? "1" : ""},
        {"typed", x.isTyped ? "1" : ""},
        {"flash", lookUp(x.session.flash)},
        {"told", x.session.flash},
        {"answer", x.session.answer},
        {"port", hostPort()},
        {"wrong", x.problems.empty() ? "" : x.problems[0][0]},
        {"status", std::to_string(x.status)},
        {"base", basePath(x)},
        {"reason", x.reason},
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
    string name = x.shown.substr(0, x.shown.rfind(".frm"));
    const PageKind *kind = findKind(name);
    for (const auto &[status, reason] : reasons)
        if (status == x.status)
            printf("Status: %d %s\r\n", status, reason);
    printf("Content-Type: %s\r\n%s", (kind ? kind : kinds)->type, commonHeaders);
    if (kind && kind->isFile)
        printf("Content-Disposition: attachment; filename=\"%s\"\r\n", name.c_str());
    if (x.status == WRONG_METHOD)
        printf("Allow: GET, HEAD%s\r\n", hasScript(scriptName(x.page)) ? ", POST" : "");
    if (!x.newSecret.empty())
        printf("Set-Cookie: %ssession=%s; Path=/; HttpOnly; SameSite=Strict%s\r\n", x.site->name,
               x.newSecret.c_str(), x.session.origin.starts_with("https:") ? "; Secure" : "");
    // Without its cookie Chromium does not keep the owner's pages for "Back" any more.
    if (x.isOut)
        printf("Set-Cookie: %ssession=; Path=/; Max-Age=0; HttpOnly; SameSite=Strict\r\n",
               x.site->name);
    if (x.isNewLanguage && x.isVisit) // a script of one window leaves the others' alone
        printf("Set-Cookie: %slang=%s; Path=/; Max-Age=31536000; HttpOnly; SameSite=Lax\r\n",
               x.site->name, x.language.c_str());
}

static int32_t countProblems()
{
    return Orv_Interpreter_LogCount(ORV_LOG_ERROR) + Orv_Interpreter_LogCount(ORV_LOG_WARNING);
}

// Passes the lines of a log on to the error log, but for notices and what is beyond the limit:
// a page that is looked at every ten seconds must not fill a disk.
static void passProblemsOn(int log)
{
    char text[LOG_LIMIT];
    ssize_t size = pread(log, text, sizeof text, 0);
    std::string_view rest(text, size > 0 ? static_cast<size_t>(size) : 0);
    while (!rest.empty()) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        if (!line.starts_with("zarn - ") || line.starts_with("zarn - ERROR"))
            complain("%.*s", static_cast<int>(line.size()), line.data());
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    }
}

// Runs the template that is shown into a file in memory: the database is free again
// before a slow browser has the page, and a page that is not whole is not sent. The
// variables are set before the log is open: it would tell their values, and those of
// forms and sessions are nobody else's business.
//
// Returns the file's descriptor, the caller's; -1 after a line on standard error.
static int makePage(Exchange &x)
{
    Interpreter *interpreter = hostInterpreter(x.host);
    int file = memfd_create("page", MFD_CLOEXEC);
    int log = x.site->logsAll ? dup(STDERR_FILENO) : memfd_create("log", MFD_CLOEXEC);
    int32_t former = countProblems();
    string error = errorText(x);
    x.host.error = error.empty() ? nullptr : error.c_str();
    x.host.failures = 0;
    bool isReady = interpreter && file >= 0 &&
                   Orv_Interpreter_SetOutputBuffer(interpreter, OUTPUT_BUFFER) == 0;
    if (isReady)
        for (const HostVariable &variable : pageVariables(x))
            isReady &=
                hostSet(x.host, interpreter, variable.name.c_str(), variable.value.c_str()) == 0;
    isReady = isReady && Orv_Interpreter_SetLog(log) == 0;
    int32_t result = isReady ? Orv_Interpreter_Run(interpreter, x.shown.c_str(), file) : -1;
    if (result != ORV_RUN_DONE || Orv_Interpreter_OutputError(interpreter) != 0 ||
        x.host.failures > 0) {
        complain("the page %s cannot be made (%d)", x.shown.c_str(), result);
        close(file);
        file = -1;
    }
    Orv_Interpreter_Destroy(interpreter);
    if (!x.site->logsAll && countProblems() != former)
        passProblemsOn(log);
    close(log);
    x.host.variables.clear();
    x.host.error = nullptr;
    return file;
}

// Sends what is in a file, and closes it. Returns false when a part cannot be read or written.
static bool sendFile(int file)
{
    char piece[4096];
    ssize_t size = lseek(file, 0, SEEK_SET);
    while (size >= 0 && (size = read(file, piece, sizeof piece)) > 0)
        if (fwrite(piece, 1, static_cast<size_t>(size), stdout) != static_cast<size_t>(size))
            size = -1;
    close(file);
    return size == 0;
}

bool sendBroken(Exchange &x)
{
    string page;
    bool isPage = x.host.docRoot[0] && hostReadFile(x.host, "error.html", page);
    if (!isPage)
        page = "The page cannot be made; the error log says why.\n";
    printf("Status: 500 Internal Server Error\r\nContent-Type: text/%s; charset=utf-8\r\n%s\r\n%s",
           isPage ? "html" : "plain", commonHeaders, page.c_str());
    return fflush(stdout) == 0;
}

bool sendAnswer(Exchange &x)
{
    int file = -1;
    bool hasPage = x.location.empty() && !x.isHead;
    if (hasPage && (file = makePage(x)) < 0) {
        refuse(x, BROKEN);
        file = makePage(x);
    }
    hostEndReading(x.host);
    if (hasPage && file < 0)
        return false;
    if (!x.location.empty())
        x.status = SEE_OTHER;
    printHeaders(x);
    if (!x.location.empty())
        printf("Location: %s%s\r\n", basePath(x).c_str(), x.location.c_str());
    fputs("\r\n", stdout);
    bool isSent = file < 0 || sendFile(file);
    if (!isSent || fflush(stdout) != 0)
        complain("the page %s was not sent whole: %s", x.shown.c_str(), strerror(errno));
    return true;
}
