/* tools/check/lsp.cpp - messages of the Language Server Protocol, in and out.
 *
 * The site is read anew after changes, and only when no further message waits. Open
 * documents stand for their files. What a client sends wrongly gets an error, and the
 * server goes on; a stream that has lost its frame ends it. */
#include "lsp.h"

#include <ctype.h>
#include <limits.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "host/encoding.h"
#include "lookup.h"
#include "report.h"
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
struct Server {
    SiteOptions options; // docRoot is absolute; unsaved holds the open documents
    bool ownRoot;
    std::unique_ptr<Site> site; // null until first needed
    bool changed = true;        // since the diagnostics were sent
    bool initialized = false;
    bool stopping = false;
    std::map<string, string> uris; // of open documents by path, as the client writes them
    string input;                  // read and not used
    bool inputEnded = false;
    std::set<string> told; // URIs with diagnostics
    string problem;        // the last one shown to the user
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
    string lower(header);
    for (char &c : lower)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    const size_t at = lower.find("content-length:");
    if (at == string::npos)
        return false;
    char *end;
    const unsigned long long value = strtoull(lower.c_str() + at + 15, &end, 10);
    *length = value;
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

// The path below the document root, as templates name it.
static string pathBelow(const Server &server, const Json &uri)
{
    const fs::path path = resolved(decodeUri(uri.asText()));
    return path.lexically_relative(server.options.docRoot).generic_string();
}

static string uriOf(const Server &server, const string &path, bool isTemplate)
{
    if (const auto open = server.uris.find(path); isTemplate && open != server.uris.end())
        return open->second;
    return encodeUri(isTemplate ? server.options.docRoot + "/" + path : resolved(path));
}

// ---- the site ----

static void tellProblem(Server &server, const string &problem)
{
    if (problem != server.problem && !problem.empty())
        notify("window/showMessage", {{"type", 1}, {"message", "orv-check: " + problem}});
    server.problem = problem;
}

// The site as it is with the open documents; null when it cannot be read.
static Site *currentSite(Server &server)
{
    if (server.site)
        return server.site.get();
    auto site = std::make_unique<Site>();
    string problem;
    if (!loadSite(server.options, site.get(), &problem)) {
        tellProblem(server, problem);
        return nullptr;
    }
    tellProblem(server, "");
    server.site = std::move(site);
    return server.site.get();
}

static Json range(uint32_t line, uint32_t unit, uint32_t endLine, uint32_t endUnit)
{
    return {{"start", {{"line", line - 1}, {"character", unit - 1}}},
            {"end", {{"line", endLine - 1}, {"character", endUnit - 1}}}};
}

static Json diagnosticOf(const Server &server, const Site &site, const Finding &finding)
{
    static constexpr int severities[] = {4, 2, 1}; // of Grade, as the protocol counts them
    Json related = Json::array();
    for (const Note &note : finding.notes)
        related.push_back({{"location",
                            {{"uri", uriOf(server, note.path, site.templates.contains(note.path))},
                             {"range", range(note.line, note.unit, note.line, note.unit)}}},
                           {"message", note.text}});
    return {{"range", range(finding.line, finding.unit, finding.endLine, finding.endUnit)},
            {"severity", severities[static_cast<size_t>(finding.severity)]},
            {"code", finding.kind->id},
            {"source", "orv-check"},
            {"message", finding.text},
            {"relatedInformation", std::move(related)}};
}

// Sends the diagnostics of all files that have any, and of those that had some.
static void sendDiagnostics(Server &server)
{
    server.changed = false;
    Site *site = currentSite(server);
    if (!site)
        return;
    std::map<string, Json> lists;
    for (const string &uri : server.told)
        lists[uri] = Json::array();
    for (const auto &[path, content] : server.options.unsaved)
        lists[uriOf(server, path, true)] = Json::array();
    server.told.clear();
    for (const Finding &finding : checkSite(*site)) {
        const string uri = uriOf(server, finding.path, site->templates.contains(finding.path));
        server.told.insert(uri);
        auto [list, isNew] = lists.try_emplace(uri, Json::array());
        list->second.push_back(diagnosticOf(server, *site, finding));
    }
    for (auto &[uri, list] : lists)
        notify("textDocument/publishDiagnostics", {{"uri", uri}, {"diagnostics", std::move(list)}});
}

// ---- requests ----

static Json initialize(Server &server, const Json &parameters)
{
    const Json root = parameters.value("rootUri", Json());
    if (!server.ownRoot && root.isText())
        server.options.docRoot = decodeUri(root.text);
    server.options.docRoot = resolved(server.options.docRoot);
    server.initialized = true;
    return {
        {"capabilities",
         {{"textDocumentSync", {{"openClose", true}, {"change", 1}, {"save", true}}},
          {"hoverProvider", true},
          {"definitionProvider", true},
          {"referencesProvider", true},
          {"completionProvider", {{"triggerCharacters", {"?", "$", ":", ".", "[", " ", "/"}}}}}},
        {"serverInfo", {{"name", "orv-check"}, {"version", ORV_VERSION}}}};
}

// The template and the offset that a request is about; null when there is none.
static const Template *placeOfRequest(Server &server, const Json &parameters, uint32_t *offset)
{
    Site *site = currentSite(server);
    if (!site)
        return nullptr;
    const auto found =
        site->templates.find(pathBelow(server, parameters.at("textDocument").at("uri")));
    if (found == site->templates.end())
        return nullptr;
    const Json &position = parameters.at("position");
    *offset = offsetOfUnits(*found->second, position.at("line").asCount(),
                            position.at("character").asCount());
    return found->second.get();
}

static Json locations(const Server &server, const std::vector<FilePlace> &places)
{
    Json list = Json::array();
    for (const FilePlace &place : places)
        list.push_back({{"uri", uriOf(server, place.path, place.isTemplate)},
                        {"range", range(place.line, place.unit, place.line, place.endUnit)}});
    return list;
}

static Json hover(Server &server, const Json &parameters)
{
    uint32_t offset;
    const Template *tpl = placeOfRequest(server, parameters, &offset);
    const string text = tpl ? hoverText(*server.site, *tpl, findAt(*tpl, offset)) : string();
    if (text.empty())
        return nullptr;
    return {{"contents", {{"kind", "markdown"}, {"value", text}}}};
}

static Json definition(Server &server, const Json &parameters)
{
    uint32_t offset;
    const Template *tpl = placeOfRequest(server, parameters, &offset);
    if (!tpl)
        return nullptr;
    return locations(server, definitionsOf(*server.site, *tpl, findAt(*tpl, offset)));
}

static Json references(Server &server, const Json &parameters)
{
    uint32_t offset;
    const Template *tpl = placeOfRequest(server, parameters, &offset);
    if (!tpl)
        return nullptr;
    const bool definitions =
        parameters.value("context", Json::object()).value("includeDeclaration", false);
    return locations(server, referencesOf(*server.site, findAt(*tpl, offset), definitions));
}

static Json completion(Server &server, const Json &parameters)
{
    uint32_t offset;
    const Template *tpl = placeOfRequest(server, parameters, &offset);
    if (!tpl)
        return nullptr;
    uint32_t typed = 0;
    Json list = Json::array();
    const auto line = parameters.at("position").at("line").asCount();
    const auto unit = parameters.at("position").at("character").asCount();
    const auto completions = completionsAt(*server.site, *tpl, offset, &typed);
    const Json place = range(line + 1, unit + 1 - std::min(typed, unit), line + 1, unit + 1);
    for (const Completion &item : completions)
        list.push_back({{"label", item.label},
                        {"detail", item.detail},
                        {"kind", item.kind},
                        {"textEdit", {{"range", place}, {"newText", item.label}}}});
    return list;
}

// ---- notifications ----

static void setDocument(Server &server, const Json &uri, const string &text)
{
    const string path = pathBelow(server, uri);
    server.options.unsaved[path] = text;
    server.uris[path] = uri.asText();
    server.site.reset();
    server.changed = true;
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
    const string path = pathBelow(server, parameters.at("textDocument").at("uri"));
    server.options.unsaved.erase(path);
    server.uris.erase(path);
    server.site.reset();
    server.changed = true;
}

// Another file may have changed: texts, a template that is not open.
static void didSave(Server &server, const Json &)
{
    server.site.reset();
    server.changed = true;
}

// ---- dispatch ----

namespace
{
struct Request {
    const char *method;
    Json (*run)(Server &, const Json &);
};
struct Notification {
    const char *method;
    void (*run)(Server &, const Json &);
};
} // namespace

static constexpr Request requests[] = {
    {"initialize", initialize},
    {"textDocument/hover", hover},
    {"textDocument/definition", definition},
    {"textDocument/references", references},
    {"textDocument/completion", completion},
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
};

static void handleRequest(Server &server, const string &method, const Json &id,
                          const Json &parameters)
{
    constexpr int notInitialized = -32002;
    if (!server.initialized && method != "initialize")
        return refuse(id, notInitialized, "initialize comes first");
    for (const Request &request : requests)
        if (method == request.method) {
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

int serveLsp(SiteOptions options, bool ownRoot)
{
    Server server = {
        std::move(options), ownRoot, nullptr, true, false, false, {}, {}, false, {}, {}};
    for (string *path : {&server.options.db})
        if (!path->empty())
            *path = resolved(*path);
    for (string &path : server.options.texts)
        path = resolved(path);
    string body;
    while (readMessage(server, &body)) {
        if (!handle(server, body))
            return server.stopping ? 0 : 1;
        if (server.initialized && !server.stopping && server.changed && !inputWaits(server))
            sendDiagnostics(server);
    }
    return server.stopping && server.inputEnded ? 0 : 1;
}
