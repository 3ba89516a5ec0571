/* tools/preview/answer.cpp - what is sent for each address.
 *
 * Pages come as the web program would send them, and the bar behind them. Everything is
 * read below the site's folder; a name with a dot in front, and a link that leads out,
 * are as good as missing. Requests that another site's page may have caused through a
 * name of its own for 127.0.0.1 are refused by their Host header. */
#include "answer.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <initializer_list>
#include <optional>

#include "config.h"
#include "embedded.h"
#include "grammar/commands.h"
#include "markup.h"
#include "pages.h"
#include "report.h"
#include "request.h"
#include "tools/common/files.h"
#include "trace.h"

using std::string;
using std::string_view;

namespace
{
struct Request {
    string method;
    string path;  // decoded, begins with '/'
    string query; // as it was sent
    string host;
    std::vector<FormField> fields;

    bool isHead() const
    {
        return method == "HEAD";
    }
};

// What all steps of an answer need.
struct Job {
    string work;
    Config config;
    Switches switches;
    string generation;
    Request request;
    Trace trace;
    string headers; // further ones of the answer
};
} // namespace

static const char *fromEnvironment(const char *name)
{
    const char *value = getenv(name);
    return value ? value : "";
}

static string lower(string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return text;
}

// Writes an answer. Nothing is kept by a cache: the files change all the time.
static int answer(const Job &job, const char *status, string_view type, string_view body,
                  const string &headers = "")
{
    printf("Status: %s\r\nContent-Type: %.*s\r\nCache-Control: no-store\r\n"
           "X-Content-Type-Options: nosniff\r\n%s%s\r\n",
           status, static_cast<int>(type.size()), type.data(), job.headers.c_str(),
           headers.c_str());
    if (!job.request.isHead())
        fwrite(body.data(), 1, body.size(), stdout);
    return fflush(stdout) == 0 ? 0 : 1;
}

// ---- Kinds of files ----

static constexpr struct {
    const char *ending;
    const char *type;
    bool mayBeTemplate = false; // where its text has a command
} types[] = {
    {".css", "text/css; charset=utf-8", true},
    {".js", "text/javascript; charset=utf-8", true},
    {".mjs", "text/javascript; charset=utf-8"},
    {".json", "application/json", true},
    {".map", "application/json"},
    {".webmanifest", "application/manifest+json"},
    {".txt", "text/plain; charset=utf-8", true},
    {".md", "text/plain; charset=utf-8"},
    {".po", "text/plain; charset=utf-8"},
    {".sql", "text/plain; charset=utf-8"},
    {".csv", "text/csv; charset=utf-8", true},
    {".xml", "application/xml", true},
    {".xhtml", "application/xhtml+xml"},
    {".svg", "image/svg+xml", true},
    {".png", "image/png"},
    {".jpg", "image/jpeg"},
    {".jpeg", "image/jpeg"},
    {".gif", "image/gif"},
    {".webp", "image/webp"},
    {".avif", "image/avif"},
    {".ico", "image/x-icon"},
    {".woff", "font/woff"},
    {".woff2", "font/woff2"},
    {".ttf", "font/ttf"},
    {".otf", "font/otf"},
    {".pdf", "application/pdf"},
    {".mp3", "audio/mpeg"},
    {".mp4", "video/mp4"},
    {".webm", "video/webm"},
    {".wasm", "application/wasm"},
};

static const char *typeOf(const string &path)
{
    const string name = lower(path);
    for (const auto &row : types)
        if (name.ends_with(row.ending))
            return row.type;
    return "application/octet-stream";
}

// Whether a command begins somewhere in text.
static bool hasCommand(string_view text)
{
    for (size_t at = 0; (at = text.find("<?", at)) != string_view::npos; ++at) {
        string_view rest = text.substr(at + 2);
        rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n"), rest.size()));
        const string_view word = rest.substr(0, rest.find_first_of(" \t\r\n"));
        for (const CommandDef &command : commandTable) {
            const string_view words = command.words;
            if (!word.empty() && word == words.substr(0, words.find(' ')))
                return true;
        }
    }
    return false;
}

// Whether a file is rendered. Web programs also fill templates that make no pages, such as
// tables to keep: these are told by what stands in them.
static bool isTemplate(const Job &job, const string &path)
{
    if (kindOfFile(path) != FolderEntry::FILE)
        return true;
    string bytes;
    for (const auto &row : types)
        if (row.mayBeTemplate && lower(path).ends_with(row.ending))
            return !readBelow(job.trace, path, bytes) && hasCommand(bytes);
    return false;
}

// ---- Switches, which hold for one tab ----

// The cookies are those of all ports of this machine.
static string cookieName(const Job &job, const char *kind)
{
    return string("orv") + kind + std::to_string(job.config.port);
}

// Whether the browser shows what it asks for as the page of a tab.
static bool isTab()
{
    return strcmp(fromEnvironment("HTTP_SEC_FETCH_DEST"), "document") == 0;
}

// Reads what the tab has chosen. Its bar sets a cookie for as long as another page of it is on
// its way; what pages load, or fetch, is told by one that the tab's last page was sent with.
static void readSwitches(Job &job)
{
    const string_view cookies = fromEnvironment("HTTP_COOKIE");
    string_view chosen = findCookie(cookies, cookieName(job, "tab"));
    if (chosen.empty() && !isTab())
        chosen = findCookie(cookies, cookieName(job, "page"));
    job.switches.error = job.config.error;
    std::vector<FormField> fields;
    if (chosen.empty() || decodeForm(chosen, fields) != FORM_DONE)
        return;
    const auto field = [&](const char *name) {
        const string *found = findField(fields, name);
        return found ? *found : "";
    };
    job.switches.language = field("language");
    job.switches.error = field("error");
    const long marks = strtol(field("marks").c_str(), nullptr, 10);
    job.switches.marks = static_cast<int>(std::clamp(marks, 0L, 2L));
}

static void sendSwitches(Job &job)
{
    const Switches &switches = job.switches;
    if (isTab())
        job.headers += "Set-Cookie: " + cookieName(job, "page") + "=" +
                       encodeField({"language", switches.language}) + "&" +
                       encodeField({"marks", std::to_string(switches.marks)}) + "&" +
                       encodeField({"error", switches.error}) + "; Path=/; SameSite=Strict\r\n";
}

// ---- Pages, with the bar ----

// Whether the browser shows what it asks for as a page, in a window or a frame. Browsers that
// do not say get the bar.
static bool isShown()
{
    static constexpr string_view shown[] = {"", "document", "iframe", "frame", "embed", "object"};
    return std::ranges::find(shown, fromEnvironment("HTTP_SEC_FETCH_DEST")) != std::end(shown);
}

// Answers with a page and the bar behind it; what a page's script fetches comes as it is,
// as from the device. A page whose own policy could forbid the
// bar's script gets that in front of the policy, where it is not in force yet; the script
// takes itself out of the page at once.
static int answerPage(const Job &job, const char *status, const string &page, ReportSetting setting)
{
    static constexpr char type[] = "text/html; charset=utf-8";
    if (!isShown())
        return answer(job, status, type, page);
    const Markup markup = readMarkup(page);
    setting.openMarkup = markup.open;
    setting.hasPolicy = markup.policy != string::npos;
    const string script =
        "<script src=\"http://" + job.request.host + ownAddress + "bar.js\"></script>";
    string body = page;
    if (setting.hasPolicy)
        body.insert(markup.policy, script);
    body += markup.closing + "<script type=\"application/json\" id=\"orv-preview\">" +
            reportJson(job.trace, setting) + "</script>";
    if (!setting.hasPolicy)
        body += script;
    return answer(job, status, type, body);
}

static ReportSetting settingOf(Job &job, const string &page)
{
    ReportSetting setting{job.config, job.switches, job.generation, page, "", ""};
    sendSwitches(job);
    setting.isPosted = job.request.method == "POST";
    readWhole(job.work + "/findings", setting.findings);
    return setting;
}

// Answers why there is no page, which is the first of the errors that its bar tells.
static int answerTrouble(Job &job, const char *status, const Trouble &trouble)
{
    job.trace.messages.insert(job.trace.messages.begin(),
                              {ORV_LOG_ERROR, trouble.place, trouble.title + ". " + trouble.text,
                               trouble.hint, trouble.topic, trouble.log});
    ReportSetting setting = settingOf(job, trouble.place.file);
    setting.isTrouble = true;
    Sources sources = {job.config.docRoot, {}};
    return answerPage(job, status, troublePage(trouble, sources), setting);
}

// The page's language is that of the request, and stays: a site's own links switch it, as
// they do on the device.
static void keepLanguage(Job &job)
{
    const string *wanted = findField(job.request.fields, "lang");
    const auto &known = job.config.languages;
    if (!wanted || std::find(known.begin(), known.end(), *wanted) == known.end() ||
        *wanted == job.switches.language)
        return;
    job.switches.language = *wanted;
}

static void setVariables(Job &job, Interpreter *interpreter)
{
    for (const auto &[name, value] : job.config.variables)
        traceSet(job.trace, interpreter, name, value, "--set");
    if (!job.switches.language.empty())
        traceSet(job.trace, interpreter, "lang", job.switches.language, "the language switch");
    for (const FormField &field : job.request.fields)
        traceSet(job.trace, interpreter, field.name, field.value,
                 job.request.method == "POST" ? "the form" : "the address");
}

// Takes a message off the trace: the page says it in words of its own, and where it was.
// Returns whether there was one.
static bool takeMessage(Trace &trace, Message id, Trouble &trouble)
{
    const auto found = std::ranges::find_if(
        trace.messages, [id](const TraceMessage &message) { return message.id == id; });
    if (found == trace.messages.end())
        return false;
    trouble.place = found->place;
    trouble.log = found->log;
    trace.messages.erase(found);
    return true;
}

static Trouble withoutPage(Job &job, const string &page)
{
    const auto &templates = job.trace.templates;
    const bool isEmpty = templates.empty() || templates.front().problem.empty();
    Trouble trouble;
    trouble.title = page + (isEmpty ? " is empty" : " cannot be opened");
    trouble.text = isEmpty ? "An empty template makes no page." : templates.front().problem;
    takeMessage(job.trace, Message::CANNOT_MAP, trouble);
    return trouble;
}

// Why a page breaks off. Its cause is the run's last syntax error, if it has told one.
static Trouble brokenOff(Job &job, const string &made)
{
    auto &told = job.trace.messages;
    Trouble trouble;
    trouble.title = "The page breaks off";
    trouble.place = job.trace.stopped;
    trouble.topic = Topic::SYNTAX;
    trouble.page = made;
    const auto last = std::find_if(told.rbegin(), told.rend(), [](const TraceMessage &message) {
        return message.topic == Topic::SYNTAX;
    });
    if (takeMessage(job.trace, Message::ENDS_INSIDE, trouble)) {
        trouble.text = "The template ends inside a command: its ?> is missing.";
    } else if (last != told.rend()) {
        trouble.text = last->text + ".";
        trouble.hint = last->hint;
        trouble.place = last->place;
        trouble.log = last->log;
        told.erase(std::next(last).base());
    } else {
        trouble.text = "The interpreter gave up here, and the rest of the page is lost.";
        trouble.hint =
            made.empty()
                ? "A command with too many arguments breaks the page off where it is the first "
                  "thing in it. Put quotes around its text, or any page text, such as "
                  "<!DOCTYPE html>, in front."
                : "The usual causes are a command without its ?>, and an argument of more "
                  "than some 10,000 pieces.";
    }
    return trouble;
}

// Answers for a run that was stopped, and ends the process.
static void answerStopped(Job &job, const char *why)
{
    Trace &trace = job.trace;
    Trouble trouble;
    trouble.title = why;
    trouble.place = tracePlace(trace);
    const bool isAsking = !trace.queries.empty() && trace.queries.back().isOpen;
    if (isAsking) {
        TraceQuery &query = trace.queries.back();
        query.problem = "It was not done when the page was stopped.";
        trouble.place = query.place;
        trouble.text = "It waited for the answer to the query: " + query.text;
        trouble.hint = "Look at the query: tables that nothing joins, or a column that is "
                       "compared in each row and has no index, make one slow.";
    } else {
        trouble.text = "It was at the place below.";
        trouble.hint = "A repeat with a very great number, or one within another, is the usual "
                       "cause.";
    }
    _exit(answerTrouble(job, "500 Internal Server Error", trouble));
}

static int answerTemplate(Job &job, const string &page)
{
    static string root; // systemRoot must outlive the interpreter
    keepLanguage(job);
    root = rootFolder(job.work, job.switches.marks);
    systemRoot = root.c_str();
    if (!job.switches.error.empty())
        job.trace.error = job.switches.error.c_str();
    Interpreter *interpreter = traceInterpreter(job.trace);
    if (!interpreter)
        return answerTrouble(job, "500 Internal Server Error",
                             {"Out of memory", "There was none to make the page."});
    job.trace.stop = [&job](const char *why) { answerStopped(job, why); };
    setVariables(job, interpreter);
    const string made = traceRun(job.trace, interpreter, page);
    if (job.trace.result == ORV_RUN_NO_TEMPLATE)
        return answerTrouble(job, "500 Internal Server Error", withoutPage(job, page));
    if (job.trace.result != ORV_RUN_DONE)
        return answerTrouble(job, "500 Internal Server Error", brokenOff(job, made));
    job.headers += "Server-Timing: orv-rendered\r\n"; // tells the bar what made it
    if (kindOfFile(page) == FolderEntry::FILE)        // no page that a bar could stand in
        return answer(job, "200 OK", typeOf(page), made);
    return answerPage(job, "200 OK", made, settingOf(job, page));
}

// ---- Other files, and folders ----

// Pages of the same folder that have much of the name.
static std::vector<string> similarPages(const string &path)
{
    const size_t slash = path.rfind('/');
    const string folder = slash == string::npos ? "" : path.substr(0, slash + 1);
    const string stem =
        lower(path.substr(folder.size(), path.find('.', folder.size()) - folder.size()));
    std::vector<string> pages;
    DIR *dir = opendir(folder.empty() ? "." : folder.c_str());
    while (const dirent *entry = dir ? readdir(dir) : nullptr) {
        const string name = lower(entry->d_name);
        if (name[0] != '.' && kindOfFile(name) == FolderEntry::PAGE &&
            (name.starts_with(stem.substr(0, 3)) || name.find(stem) != string::npos))
            pages.push_back(folder + entry->d_name);
    }
    if (dir)
        closedir(dir);
    std::sort(pages.begin(), pages.end());
    return pages;
}

static int answerMissing(Job &job, const string &path, const string &why)
{
    Trouble trouble;
    const bool wantsPage = kindOfFile(path) != FolderEntry::FILE;
    trouble.title = "There is no " + string(wantsPage ? "page " : "file ") + path;
    trouble.text = why;
    trouble.hint = "The folder that is shown is " + job.config.docRoot + ".";
    if (why.find("document root") == string::npos)
        trouble.links = similarPages(path);
    return answerTrouble(job, "404 Not Found", trouble);
}

static int answerFile(Job &job, const string &path)
{
    string bytes;
    if (const char *problem = readBelow(job.trace, path, bytes))
        return answerMissing(job, path, problem);
    return answer(job, "200 OK", typeOf(path), bytes);
}

static int answerFolder(Job &job, const string &path)
{
    std::vector<FolderEntry> entries;
    DIR *dir = opendir(path.empty() ? "." : path.c_str());
    if (!dir)
        return answerMissing(job, path, strerror(errno));
    while (const dirent *entry = readdir(dir)) {
        struct stat status;
        if (entry->d_name[0] == '.' || stat((path + entry->d_name).c_str(), &status) != 0)
            continue;
        entries.push_back(
            {S_ISDIR(status.st_mode) ? FolderEntry::FOLDER : kindOfFile(entry->d_name),
             entry->d_name});
    }
    closedir(dir);
    std::sort(entries.begin(), entries.end(),
              [](const FolderEntry &a, const FolderEntry &b) { return a.name < b.name; });
    const string title = job.config.docRoot.substr(job.config.docRoot.rfind('/') + 1) + "/" + path;
    return answerPage(job, "200 OK", folderPage(title, job.request.path, entries),
                      settingOf(job, ""));
}

static bool hasHiddenStep(string_view path)
{
    return path.starts_with('.') || path.find("/.") != string_view::npos;
}

// Whether path is a folder below the site's, or that itself.
static bool isFolder(const Job &job, const string &path)
{
    char resolved[PATH_MAX + 1];
    struct stat status;
    if (!realpath(path.empty() ? "." : path.c_str(), resolved))
        return false;
    return stat(resolved, &status) == 0 && S_ISDIR(status.st_mode) &&
           (string(resolved) + "/").starts_with(job.trace.docRoot);
}

static int answerSite(Job &job)
{
    string path = job.request.path.substr(1);
    if (hasHiddenStep(path))
        return answerMissing(job, path, "Names with a dot in front are not shown.");
    if (isFolder(job, path)) {
        if (path.empty() || path.ends_with('/'))
            return answerFolder(job, path);
        return answer(job, "302 Found", "text/plain", "",
                      "Location: " + addressOf(path.substr(path.rfind('/') + 1)) + "/\r\n");
    }
    int32_t fd = -1;
    const char *problem = hostOpenFile(job.trace, path.c_str(), &fd);
    if (problem && path == "favicon.ico") // asked for by browsers themselves
        return answer(job, "204 No Content", "image/x-icon", "");
    if (problem)
        return answerMissing(job, path, problem);
    close(fd);
    return isTemplate(job, path) ? answerTemplate(job, path) : answerFile(job, path);
}

// ---- The preview's own addresses ----

// The scripts are of parts that share one scope.
static int answerScript(const Job &job, std::initializer_list<const char *> parts)
{
    string script = "(() => {\n'use strict';\n";
    for (const char *part : parts)
        script += part;
    return answer(job, "200 OK", "text/javascript; charset=utf-8", script + "})();\n");
}

static int answerBar(const Job &job)
{
    const string style = "const style = " + scriptText(bar_css) + ";\n";
    return answerScript(job, {style.c_str(), follow_js, keep_js, reload_js, causes_js, elements_js,
                              sheets_js, bar_js});
}

// Has the launcher open a place in the author's editor.
static int answerOpen(const Job &job)
{
    const string from = fromEnvironment("HTTP_SEC_FETCH_SITE");
    const string origin = fromEnvironment("HTTP_ORIGIN");
    if (job.request.method != "POST" || (!from.empty() && from != "same-origin") ||
        (!origin.empty() && origin != "http://" + job.request.host))
        return answer(job, "403 Forbidden", "text/plain", "Only the preview's own pages open.\n");
    Json order = Json::object();
    for (const FormField &field : job.request.fields)
        order[field.name] = field.name == "file" ? Json(field.value)
                                                 : Json(strtol(field.value.c_str(), nullptr, 10));
    const string line = writeJson(order, -1) + "\n";
    const int fd = open((job.work + "/orders").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    const bool isSent = fd >= 0 && line.size() <= PIPE_BUF && writeAll(fd, line);
    if (fd >= 0)
        close(fd);
    return isSent ? answer(job, "204 No Content", "text/plain", "")
                  : answer(job, "503 Service Unavailable", "text/plain", "There is no editor.\n");
}

// Sends one event, data without line ends.
static bool sendEvent(const char *name, const string &data)
{
    return printf("event: %s\ndata: %s\n\n", name, data.c_str()) > 0 && fflush(stdout) == 0;
}

// Tells of each change for as long as the reader and the launcher are there.
static int streamEvents(const Job &job)
{
    static constexpr int beat = 15000; // milliseconds between signs of life
    const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (watch < 0 || inotify_add_watch(watch, job.work.c_str(), IN_MOVED_TO | IN_DELETE_SELF) < 0)
        return answer(job, "503 Service Unavailable", "text/plain", "Changes cannot be watched.\n");
    signal(SIGPIPE, SIG_DFL);
    fputs("Status: 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-store\r\n\r\n"
          "retry: 500\n\n",
          stdout);
    string sent;
    string sentFindings;
    for (;;) {
        const string changes = readChanges(job.work);
        string findings;
        readWhole(job.work + "/findings", findings);
        if (changes.empty())
            return 0; // the launcher has gone
        if (changes != sent && !sendEvent("changes", changes))
            return 1;
        if (!findings.empty() && findings != sentFindings && !sendEvent("findings", findings))
            return 1;
        sent = changes;
        sentFindings = findings;
        pollfd waits[] = {{watch, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
        if (poll(waits, 2, beat) == 0 && (fputs(":\n\n", stdout) < 0 || fflush(stdout) != 0))
            return 1;
        if (waits[1].revents != 0)
            return 0; // nobody reads any more
        char events[4096];
        while (read(watch, events, sizeof events) > 0)
            ;
    }
}

// ---- The request ----

// Whether the browser was led here by this server's own names.
static bool isOwnHost(const Config &config, const string &host)
{
    const string port = ":" + std::to_string(config.port);
    return host == "127.0.0.1" + port || host == "localhost" + port ||
           (config.port == 80 && (host == "127.0.0.1" || host == "localhost"));
}

static constexpr char REFUSES[] = " The web program refuses such a request.";

// What is wrong with a form's field, by its name; of several, with the first.
static string tellBadField(string_view form)
{
    std::vector<FormField> fields;
    while (!form.empty()) {
        const string_view piece = form.substr(0, form.find('&'));
        form.remove_prefix(std::min(piece.size() + 1, form.size()));
        if (decodeForm(piece, fields) != FORM_BAD)
            continue;
        const string_view name = piece.substr(0, piece.find('='));
        const bool isNameBad = decodeForm(name, fields) == FORM_BAD;
        decodeForm("n=" + string(name), fields);
        const string shown = fields.empty() ? string(name) : fields[0].value;
        return "The field '" + shown + "' " +
               (isNameBad ? "has a name that is not made of letters and digits alone."
                          : "has a value that is no text in UTF-8.") +
               REFUSES;
    }
    return string("A field's name is not made of letters and digits alone, or a value is no text "
                  "in UTF-8.") +
           REFUSES;
}

// Says what is wrong with what was sent; nothing if nothing is. form: empty for one in parts.
static std::optional<string> problemOf(FormResult result, string_view form)
{
    if (result == FORM_BAD)
        return tellBadField(form);
    if (result == FORM_TOO_LARGE)
        return string("There are too many fields, or a name or a value is too long.") + REFUSES;
    return {};
}

// Reads the fields of the address, and of a form that was sent. Returns what is wrong with
// them; nothing if nothing is.
static std::optional<string> readFields(Request &request)
{
    if (auto problem = problemOf(decodeForm(request.query, request.fields), request.query))
        return problem;
    if (request.method != "POST")
        return {};
    size_t length;
    const char *type = fromEnvironment("CONTENT_TYPE");
    const string_view boundary = multipartBoundary(type);
    if (!isFormType(type) && boundary.empty())
        return "What was sent is in none of the encodings of a form.";
    if (!readNumber(fromEnvironment("CONTENT_LENGTH"), &length) || length > MAX_FORM)
        return problemOf(FORM_TOO_LARGE, "");
    string body(length, '\0');
    std::vector<FormField> fields;
    if (fread(body.data(), 1, length, stdin) != length)
        return problemOf(FORM_BAD, "");
    const bool hasParts = !boundary.empty();
    if (auto problem =
            problemOf(hasParts ? decodeMultipart(body, boundary, fields) : decodeForm(body, fields),
                      hasParts ? "" : body))
        return problem;
    request.fields.insert(request.fields.end(), fields.begin(), fields.end());
    return {};
}

int answerRequest(const string &work)
{
    Job job{work, readConfig(work), {}, readGeneration(work), {}, {}, ""};
    Request &request = job.request;
    request.method = fromEnvironment("REQUEST_METHOD");
    request.path = fromEnvironment("PATH_INFO");
    request.query = fromEnvironment("QUERY_STRING");
    request.host = lower(fromEnvironment("HTTP_HOST"));
    if (!isOwnHost(job.config, request.host))
        return answer(job, "403 Forbidden", "text/plain",
                      "The preview is at http://127.0.0.1 alone.\n");
    if (request.method != "GET" && request.method != "HEAD" && request.method != "POST")
        return answer(job, "405 Method Not Allowed", "text/plain", "",
                      "Allow: GET, HEAD, POST\r\n");
    if (!request.path.starts_with('/'))
        request.path = "/";
    readSwitches(job);
    if (request.path == ownAddress + string("bar.js"))
        return answerBar(job);
    if (request.path == ownAddress + string("worker.js"))
        return answerScript(job, {follow_js, worker_js});
    if (request.path == ownAddress + string("events"))
        return streamEvents(job);
    const std::optional<string> problem = readFields(request);
    string why;
    if (!problem && request.path == ownAddress + string("open"))
        return answerOpen(job);
    if (!traceOpen(job.trace, job.config.docRoot, job.config.db, &why))
        return answerTrouble(job, "503 Service Unavailable",
                             {"The folder is gone",
                              job.config.docRoot + ": " + why,
                              "When it is back, this page shows it again.",
                              {},
                              {},
                              "",
                              {}});
    const int status =
        problem ? answerTrouble(job, "400 Bad Request", {"The request is refused", *problem})
                : answerSite(job);
    hostClose(job.trace); // a page's run has done it, but not all answers are pages
    return status;
}
