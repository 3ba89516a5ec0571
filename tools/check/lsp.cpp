/* tools/check/lsp.cpp - messages of the Language Server Protocol, in and out.
 *
 * The site is read anew after changes, and only when no further message waits. Open
 * documents stand for their files. What a client sends wrongly gets an error, and the
 * server goes on; a stream that has lost its frame ends it. */
#include "lsp.h"

#include <limits.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "actions.h"
#include "complete.h"
#include "host/encoding.h"
#include "lookup.h"
#include "report.h"
#include "host/ascii.h"
#include "tools/common/files.h"
#include "tools/common/json.h"

using std::string;
using std::string_view;

namespace fs = std::filesystem;

static constexpr int PARSE_ERROR = -32700;
static constexpr int INVALID_REQUEST = -32600;
static constexpr int METHOD_NOT_FOUND = -32601;
static constexpr int INVALID_PARAMS = -32602;
static constexpr size_t LONGEST_MESSAGE = 256U << 20;

namespace
{
// A site with its open documents.
struct Served {
    string folder;                  // absolute: where its site file is, or else the client's folder
    SiteOptions options;            // docRoot is absolute
    std::unique_ptr<Site> site;     // null until it is needed
    std::unique_ptr<Site> former;   // before the last change; its texts are read again when needed
    bool changed = true;            // since the diagnostics were sent
    std::vector<Finding> findings;  // of those
    std::map<string, string> texts; // of open documents, by absolute path
    std::map<string, string> uris;  // as the client writes them, by absolute path
    std::set<string> told;          // URIs with diagnostics
    string problem;                 // the last one shown to the user
};

struct Server {
    GivenOptions given;             // its paths are absolute
    std::vector<string> folders;    // the client's, absolute
    std::map<string, Served> sites; // by folder
    bool initialized = false;
    bool stopping = false;
    string input; // read and not used
    bool inputEnded = false;
};
} // namespace

// ---- frames ----

static void send(const Json &message)
{
    const string body = writeJson(message, -1);
    writeAll(STDOUT_FILENO, "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

static void notify(const char *method, Json parameters)
{
    send({{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(parameters)}});
}

static void answer(const Json &id, Json result)
{
    send({{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}});
}

static void refuse(const Json &id, int code, const string &text)
{
    send({{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", text}}}});
}

static bool readMore(Server &server)
{
    char piece[65536];
    const ssize_t count = read(STDIN_FILENO, piece, sizeof piece);
    if (count <= 0) {
        server.inputEnded = true;
        return false;
    }
    server.input.append(piece, static_cast<size_t>(count));
    return true;
}

static bool inputWaits(const Server &server)
{
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return !server.input.empty() || poll(&input, 1, 0) > 0;
}

// The length that a message's header tells; none when it tells no sound one.
static bool readLength(string_view header, size_t *length)
{
    const string lower = lowered(header);
    const size_t at = lower.find("content-length:");
    if (at == string::npos)
        return false;
    char *end;
    const unsigned long long value = strtoull(lower.c_str() + at + 15, &end, 10);
    *length = static_cast<size_t>(std::min<unsigned long long>(value, LONGEST_MESSAGE));
    return end != lower.c_str() + at + 15 && value <= LONGEST_MESSAGE;
}

// The next message's body. Returns false at the end of the input, and where no frame
// can be made out any more.
static bool readMessage(Server &server, string *body)
{
    size_t end;
    while ((end = server.input.find("\r\n\r\n")) == string::npos)
        if (server.input.size() > 4096 || !readMore(server))
            return false;
    size_t length;
    if (!readLength(string_view(server.input).substr(0, end), &length))
        return false;
    while (server.input.size() < end + 4 + length)
        if (!readMore(server))
            return false;
    *body = server.input.substr(end + 4, length);
    server.input.erase(0, end + 4 + length);
    return true;
}

// ---- paths ----

static string decodeUri(string_view uri)
{
    if (uri.starts_with("file://"))
        uri.remove_prefix(7);
    string path;
    return decodePercent(path, uri, false) ? path : string(uri);
}

static string encodeUri(const string &path)
{
    return "file://" + encodePercent(path, "/._-~");
}

static string resolved(const string &path)
{
    std::error_code error;
    const fs::path absolute = fs::weakly_canonical(path, error);
    return error ? path : absolute.string();
}

static bool isBelow(const string &path, const string &folder)
{
    return path.starts_with(folder + "/") || folder == "/";
}

// The site of a file, by its absolute path.
static Served &siteOf(Server &server, const string &path)
{
    const bool isOne = !server.given.config.empty() || !server.given.site.docRoot.empty();
    string folder;
    if (!isOne) {
        const string file = findSiteFile(fs::path(path).parent_path());
        if (!file.empty())
            folder = resolved(fs::path(file).parent_path());
    }
    if (folder.empty()) {
        const auto found = std::find_if(server.folders.begin(), server.folders.end(),
                                        [&](const string &each) { return isBelow(path, each); });
        folder = found == server.folders.end() || isOne ? server.folders.front() : *found;
    }
    Served &served = server.sites[folder];
    served.folder = folder;
    return served;
}

static string pathOf(const Json &uri)
{
    return resolved(decodeUri(uri.asText()));
}

// The path below the document root, as templates name it.
static string pathBelow(const Served &served, const string &path)
{
    return fs::path(path).lexically_relative(served.options.docRoot).generic_string();
}

static string uriOf(const Served &served, const string &path, bool isTemplate)
{
    const string whole = resolved(isTemplate ? served.options.docRoot + "/" + path : path);
    const auto open = served.uris.find(whole);
    return open != served.uris.end() ? open->second : encodeUri(whole);
}

// ---- the site ----

static void tellProblem(Served &served, const string &problem)
{
    if (problem != served.problem && !problem.empty())
        notify("window/showMessage", {{"type", 1}, {"message", "orv-check: " + problem}});
    served.problem = problem;
}

// The site as it is with the open documents; null when it cannot be read.
static Site *currentSite(const Server &server, Served &served)
{
    if (served.site)
        return served.site.get();
    auto site = std::make_unique<Site>();
    SiteOptions options;
    string problem;
    bool isRead = makeOptions(server.given, served.folder, &options, &problem);
    if (isRead) {
        const bool isFolder = options.file.empty() && server.given.site.docRoot.empty();
        options.docRoot = resolved(isFolder ? served.folder : options.docRoot);
        served.options = options;
        for (const auto &[path, text] : served.texts)
            options.unsaved[pathBelow(served, path)] = text;
        isRead = loadSite(std::move(options), site.get(), &problem, {}, served.former.get());
        served.former.reset();
    }
    tellProblem(served, problem);
    if (isRead)
        served.site = std::move(site);
    return served.site.get();
}

static Json range(uint32_t line, uint32_t unit, uint32_t endLine, uint32_t endUnit)
{
    return {{"start", {{"line", line - 1}, {"character", unit - 1}}},
            {"end", {{"line", endLine - 1}, {"character", endUnit - 1}}}};
}

static Json diagnosticOf(const Served &served, const Finding &finding)
{
    static constexpr int severities[] = {4, 2, 1}; // of Grade, as the protocol counts them
    const auto isTemplate = [&](const string &path) {
        return served.site->templates.contains(path);
    };
    Json related = Json::array();
    for (const Note &note : finding.notes)
        related.push_back({{"location",
                            {{"uri", uriOf(served, note.path, isTemplate(note.path))},
                             {"range", range(note.line, note.unit, note.line, note.unit)}}},
                           {"message", note.text}});
    Json diagnostic = {
        {"range", range(finding.line, finding.unit, finding.endLine, finding.endUnit)},
        {"severity", severities[static_cast<size_t>(finding.severity)]},
        {"code", finding.kind->id},
        {"source", "orv-check"},
        {"message", finding.text},
        {"relatedInformation", std::move(related)}};
    const string uri = kindUri(*finding.kind);
    if (!uri.empty())
        diagnostic["codeDescription"] = {{"href", uri}};
    return diagnostic;
}

// Takes the place off a problem's front, "FILE:LINE: text" or "FILE:LINE:COLUMN: text". Returns
// false where it has none.
static bool splitProblem(const string &problem, string *path, uint32_t *line, string *text)
{
    const size_t end = problem.find(": ");
    *path = problem.substr(0, end);
    *line = 0;
    for (size_t colon; (colon = path->rfind(':')) != string::npos; path->resize(colon)) {
        const auto number = static_cast<uint32_t>(strtoul(path->c_str() + colon + 1, nullptr, 10));
        if (number == 0)
            break;
        *line = number;
    }
    *text = end == string::npos ? "" : problem.substr(end + 2);
    return *line > 0;
}

// Shows why a site cannot be read in the file that is wrong: the site file, or a script.
static void sendProblem(Served &served)
{
    constexpr uint32_t wholeLine = 1000; // or what it has
    string path;
    string text;
    uint32_t line;
    if (!splitProblem(served.problem, &path, &line, &text))
        return;
    const string uri = uriOf(served, path, false);
    served.told.insert(uri);
    const Json diagnostic = {{"range", range(line, 1, line, wholeLine)},
                             {"severity", 1},
                             {"source", "orv-check"},
                             {"message", text}};
    notify("textDocument/publishDiagnostics",
           {{"uri", uri}, {"diagnostics", Json::array({diagnostic})}});
}

// Sends the diagnostics of all files of a site that have any, and of those that had some.
static void sendDiagnostics(const Server &server, Served &served)
{
    served.changed = false;
    Site *site = currentSite(server, served);
    if (!site)
        return sendProblem(served);
    std::map<string, Json> lists;
    for (const string &uri : served.told)
        lists[uri] = Json::array();
    for (const auto &[path, uri] : served.uris)
        lists[uri] = Json::array();
    served.told.clear();
    served.findings = checkSite(*site);
    for (const Finding &finding : served.findings) {
        const string uri = uriOf(served, finding.path, site->templates.contains(finding.path));
        served.told.insert(uri);
        auto [list, isNew] = lists.try_emplace(uri, Json::array());
        list->second.push_back(diagnosticOf(served, finding));
    }
    for (auto &[uri, list] : lists)
        notify("textDocument/publishDiagnostics", {{"uri", uri}, {"diagnostics", std::move(list)}});
}

// ---- requests ----

static void addFolder(Server &server, const Json &uri)
{
    if (uri.isText())
        server.folders.push_back(resolved(decodeUri(uri.text)));
}

static Json initialize(Server &server, const Json &parameters)
{
    for (const Json &folder : parameters.value("workspaceFolders", Json::array()))
        addFolder(server, folder.value("uri", Json()));
    if (server.folders.empty())
        addFolder(server, parameters.value("rootUri", Json()));
    if (server.folders.empty())
        server.folders.push_back(resolved("."));
    server.initialized = true;
    return {{"capabilities",
             {{"textDocumentSync", {{"openClose", true}, {"change", 1}, {"save", true}}},
              {"hoverProvider", true},
              {"definitionProvider", true},
              {"referencesProvider", true},
              {"documentLinkProvider", Json::object()},
              {"codeActionProvider", {{"codeActionKinds", {"quickfix"}}}},
              {"completionProvider", {{"triggerCharacters", {"?", "$", ":", ".", "[", " ", "/"}}}},
              {"workspace",
               {{"workspaceFolders", {{"supported", true}, {"changeNotifications", true}}}}}}},
            {"serverInfo", {{"name", "orv-check"}, {"version", ORV_VERSION}}}};
}

// What a request is about; site is null when there is no such template.
namespace
{
struct Request {
    Served *served;
    Site *site;
    const Template *tpl;
    uint32_t offset; // in the file, of a request about a place
};
} // namespace

static Request readDocument(Server &server, const Json &parameters)
{
    const string path = pathOf(parameters.at("textDocument").at("uri"));
    Request request = {&siteOf(server, path), nullptr, nullptr, 0};
    Site *site = currentSite(server, *request.served);
    if (!site)
        return request;
    const auto found = site->templates.find(pathBelow(*request.served, path));
    if (found == site->templates.end())
        return request;
    request.site = site;
    request.tpl = found->second.get();
    return request;
}

static Request readRequest(Server &server, const Json &parameters)
{
    Request request = readDocument(server, parameters);
    const Json &position = parameters.at("position");
    const uint32_t line = position.at("line").asCount();
    const uint32_t unit = position.at("character").asCount();
    if (request.tpl)
        request.offset = offsetOfUnits(*request.tpl, line, unit);
    return request;
}

static Found findAt(const Request &about)
{
    return findAt(*about.site, *about.tpl, about.offset);
}

static Json locations(const Served &served, const std::vector<FilePlace> &places)
{
    Json list = Json::array();
    for (const FilePlace &place : places)
        list.push_back({{"uri", uriOf(served, place.path, place.isTemplate)},
                        {"range", range(place.line, place.unit, place.line, place.endUnit)}});
    return list;
}

static Span spanOf(const Template &tpl, const Finding &finding)
{
    return {offsetOfUnits(tpl, finding.line - 1, finding.unit - 1),
            offsetOfUnits(tpl, finding.endLine - 1, finding.endUnit - 1)};
}

// The findings that a piece of a template's file touches; none while they are out of date.
static std::vector<const Finding *> findingsIn(const Request &about, Span piece)
{
    std::vector<const Finding *> found;
    if (about.served->changed || !about.tpl)
        return found;
    for (const Finding &finding : about.served->findings) {
        const Span span = spanOf(*about.tpl, finding);
        if (finding.path == about.tpl->path && span.at <= piece.end && piece.at <= span.end)
            found.push_back(&finding);
    }
    return found;
}

static Json hover(Server &server, const Json &parameters)
{
    const Request about = readRequest(server, parameters);
    string text = about.site ? hoverText(*about.site, findAt(about)) : "";
    std::set<string> told;
    for (const Finding *finding : findingsIn(about, {about.offset, about.offset}))
        if (const string more = describeFinding(*finding); told.insert(more).second)
            text += (text.empty() ? "" : "\n\n") + more;
    if (text.empty())
        return nullptr;
    return {{"contents", {{"kind", "markdown"}, {"value", text}}}};
}

static Json definition(Server &server, const Json &parameters)
{
    const Request about = readRequest(server, parameters);
    if (!about.site)
        return nullptr;
    return locations(*about.served, definitionsOf(*about.site, *about.tpl, findAt(about)));
}

static Json references(Server &server, const Json &parameters)
{
    const Request about = readRequest(server, parameters);
    if (!about.site)
        return nullptr;
    const bool definitions =
        parameters.value("context", Json::object()).value("includeDeclaration", false);
    return locations(*about.served, referencesOf(*about.site, findAt(about), definitions));
}

static Json completion(Server &server, const Json &parameters)
{
    const Request about = readRequest(server, parameters);
    if (!about.site)
        return nullptr;
    Json list = Json::array();
    const Template &tpl = *about.tpl;
    const Completions all = completionsAt(*about.site, tpl, about.offset);
    const LineColumn from = placeInFile(tpl, all.begin);
    const LineColumn to = placeInFile(tpl, about.offset);
    const Json place = range(from.line, unitsInFile(tpl, all.begin) + 1, to.line,
                             unitsInFile(tpl, about.offset) + 1);
    for (const Completion &item : all.list)
        list.push_back({{"label", item.text},
                        {"detail", item.detail},
                        {"kind", static_cast<int>(item.kind)},
                        {"textEdit", {{"range", place}, {"newText", item.text}}}});
    return list;
}

static Json documentLink(Server &server, const Json &parameters)
{
    const Request about = readDocument(server, parameters);
    Json list = Json::array();
    if (about.site)
        for (const FileLink &link : linksOf(*about.site, *about.tpl))
            list.push_back({{"range", range(link.line, link.unit, link.line, link.endUnit)},
                            {"target", uriOf(*about.served, link.path, true)}});
    return list;
}

static Json actionOf(const Request &about, const Finding &finding, const Mending &mending)
{
    const Template &tpl = *about.tpl;
    const LineColumn from = placeInFile(tpl, mending.span.at);
    const LineColumn to = placeInFile(tpl, mending.span.end);
    const Json edit = {{"range", range(from.line, unitsInFile(tpl, mending.span.at) + 1, to.line,
                                       unitsInFile(tpl, mending.span.end) + 1)},
                       {"newText", mending.text}};
    Json changes = Json::object();
    changes[uriOf(*about.served, tpl.path, true)] = Json::array({edit});
    return {{"title", mending.title},
            {"kind", "quickfix"},
            {"isPreferred", true},
            {"diagnostics", Json::array({diagnosticOf(*about.served, finding)})},
            {"edit", {{"changes", std::move(changes)}}}};
}

static Json codeAction(Server &server, const Json &parameters)
{
    const Request about = readDocument(server, parameters);
    const Json &start = parameters.at("range").at("start");
    const Json &end = parameters.at("range").at("end");
    Json list = Json::array();
    if (!about.site)
        return list;
    if (about.served->changed) // a client that has just changed something asks for now
        sendDiagnostics(server, *about.served);
    const auto offset = [&](const Json &place) {
        return offsetOfUnits(*about.tpl, place.at("line").asCount(),
                             place.at("character").asCount());
    };
    for (const Finding *finding : findingsIn(about, {offset(start), offset(end)}))
        if (const auto mending = mendingOf(*about.site, *about.tpl, *finding))
            list.push_back(actionOf(about, *finding, *mending));
    return list;
}

// ---- notifications ----

static void readAnew(Served &served)
{
    if (served.site)
        served.former = std::move(served.site);
    served.changed = true;
}

static void setDocument(Server &server, const Json &uri, const string &text)
{
    const string path = pathOf(uri);
    Served &served = siteOf(server, path);
    served.texts[path] = text;
    served.uris[path] = uri.asText();
    readAnew(served);
}

static void didOpen(Server &server, const Json &parameters)
{
    const Json &document = parameters.at("textDocument");
    setDocument(server, document.at("uri"), document.at("text").asText());
}

static void didChange(Server &server, const Json &parameters)
{
    const Json &changes = parameters.at("contentChanges");
    if (!changes.empty())
        setDocument(server, parameters.at("textDocument").at("uri"),
                    changes[changes.size() - 1].at("text").asText());
}

static void didClose(Server &server, const Json &parameters)
{
    const Json &uri = parameters.at("textDocument").at("uri");
    const string path = pathOf(uri);
    Served &served = siteOf(server, path);
    served.texts.erase(path);
    served.uris.erase(path);
    served.told.insert(uri.asText());
    readAnew(served);
}

// Takes back what was said of a site that is none any more.
static void forgetSite(const Served &served)
{
    for (const string &uri : served.told)
        notify("textDocument/publishDiagnostics", {{"uri", uri}, {"diagnostics", Json::array()}});
}

// Another file may have changed: texts, a template that is not open; or a site file, and then
// documents may belong to another site.
static void didSave(Server &server, const Json &)
{
    std::map<string, string> texts;
    std::map<string, string> uris;
    for (auto &[folder, served] : server.sites) {
        texts.merge(served.texts);
        uris.merge(served.uris);
        readAnew(served);
    }
    for (auto &[path, text] : texts) {
        Served &served = siteOf(server, path);
        served.texts[path] = std::move(text);
        served.uris[path] = uris[path];
    }
    std::erase_if(server.sites, [&](const auto &entry) {
        const bool isGone = siteOf(server, entry.first + "/.").folder != entry.first;
        if (isGone)
            forgetSite(entry.second);
        return isGone;
    });
}

static void didChangeFolders(Server &server, const Json &parameters)
{
    const Json &event = parameters.at("event");
    for (const Json &folder : event.value("removed", Json::array()))
        std::erase(server.folders, pathOf(folder.at("uri")));
    for (const Json &folder : event.value("added", Json::array()))
        addFolder(server, folder.at("uri"));
    if (server.folders.empty())
        server.folders.push_back(resolved("."));
    didSave(server, parameters);
}

// ---- dispatch ----

namespace
{
struct Method {
    const char *name;
    Json (*run)(Server &, const Json &);
};
struct Notification {
    const char *method;
    void (*run)(Server &, const Json &);
};
} // namespace

static constexpr Method requests[] = {
    {"initialize", initialize},
    {"textDocument/hover", hover},
    {"textDocument/definition", definition},
    {"textDocument/references", references},
    {"textDocument/completion", completion},
    {"textDocument/documentLink", documentLink},
    {"textDocument/codeAction", codeAction},
    {"shutdown",
     [](Server &server, const Json &) -> Json {
         server.stopping = true;
         return nullptr;
     }},
};

static constexpr Notification notifications[] = {
    {"textDocument/didOpen", didOpen},
    {"textDocument/didChange", didChange},
    {"textDocument/didClose", didClose},
    {"textDocument/didSave", didSave},
    {"workspace/didChangeWatchedFiles", didSave},
    {"workspace/didChangeWorkspaceFolders", didChangeFolders},
};

static void handleRequest(Server &server, const string &method, const Json &id,
                          const Json &parameters)
{
    constexpr int notInitialized = -32002;
    if (!server.initialized && method != "initialize")
        return refuse(id, notInitialized, "initialize comes first");
    for (const Method &request : requests)
        if (method == request.name) {
            try {
                answer(id, request.run(server, parameters));
            } catch (const JsonError &wrong) {
                refuse(id, INVALID_PARAMS, wrong.text);
            }
            return;
        }
    refuse(id, METHOD_NOT_FOUND, "there is no " + method);
}

static void handleNotification(Server &server, const string &method, const Json &parameters)
{
    for (const Notification &notification : notifications)
        if (server.initialized && method == notification.method) {
            try {
                notification.run(server, parameters);
            } catch (const JsonError &wrong) {
                complain(0, "%s: %s", method.c_str(), wrong.text.c_str());
            }
        }
}

// Returns false when the client says exit.
static bool handle(Server &server, const string &body)
{
    Json message;
    string problem;
    if (!readJson(body, &message, &problem)) {
        refuse(nullptr, PARSE_ERROR, problem);
        return true;
    }
    const Json *const name = message.find("method");
    if (!name || !name->isText()) {
        if (!message.isObject() || !(message.contains("result") || message.contains("error")))
            refuse(nullptr, INVALID_REQUEST, "no request");
        return true;
    }
    const string &method = name->text;
    const Json id = message.value("id", Json());
    if (!id.isNull() && !id.isText() && !id.isNumber()) {
        refuse(nullptr, INVALID_REQUEST, "an id is a number or a text");
        return true;
    }
    const Json parameters = message.value("params", Json::object());
    if (method == "exit")
        return false;
    if (message.contains("id"))
        handleRequest(server, method, id, parameters);
    else
        handleNotification(server, method, parameters);
    return true;
}

// Sends what has changed, once no further message waits.
static void tellChanges(Server &server)
{
    for (auto &[folder, served] : server.sites)
        if (served.changed && !inputWaits(server))
            sendDiagnostics(server, served);
}

int serveLsp(GivenOptions given)
{
    Server server = {std::move(given), {}, {}, false, false, {}, false};
    for (SiteDatabase &database : server.given.site.databases)
        database.file.path = resolved(database.file.path);
    for (string &path : server.given.site.texts)
        path = resolved(path);
    for (string *path : {&server.given.config, &server.given.site.docRoot})
        if (!path->empty())
            *path = resolved(*path);
    string body;
    while (readMessage(server, &body)) {
        if (!handle(server, body))
            return server.stopping ? 0 : 1;
        if (server.initialized && !server.stopping)
            tellChanges(server);
    }
    return server.stopping && server.inputEnded ? 0 : 1;
}
