/* tools/preview/reply.cpp - how answers are written: their headers, the types of files, the
 * switches of a tab, and the bar that stands behind each page. */
#include "job.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <algorithm>
#include <utility>

#include "embedded.h"
#include "grammar/commands.h"
#include "markup.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

const char *fromEnvironment(const char *name)
{
    const char *value = getenv(name);
    return value ? value : "";
}

int answer(const Job &job, const char *status, string_view type, string_view body,
           const string &headers)
{
    printf("Status: %s\r\nContent-Type: %.*s\r\nCache-Control: %s\r\n"
           "X-Content-Type-Options: nosniff\r\n%s%s\r\n",
           status, static_cast<int>(type.size()), type.data(), job.cache, job.headers.c_str(),
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

const char *typeOf(const string &path)
{
    const string name = lowered(path);
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

bool isTemplate(const Job &job, const string &path)
{
    if (kindOfFile(path) != FolderEntry::FILE)
        return true;
    string bytes;
    for (const auto &row : types)
        if (row.mayBeTemplate && lowered(path).ends_with(row.ending))
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

void readSwitches(Job &job)
{
    const string_view cookies = fromEnvironment("HTTP_COOKIE");
    string_view chosen = findCookie(cookies, cookieName(job, "tab"));
    if (chosen.empty() && !isTab())
        chosen = findCookie(cookies, cookieName(job, "page"));
    else if (isTab()) // what is asked for is on its way no more
        job.headers = "Set-Cookie: " + cookieName(job, "tab") + "=; Path=/; Max-Age=0\r\n";
    job.switches.told = chosen;
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

// A page whose own policy could forbid the bar's script gets that in front of the policy, where
// it is not in force yet; the script takes itself out of the page at once.
int answerPage(Job &job, const char *status, const string &html, const string &file, bool isTrouble)
{
    static constexpr char type[] = "text/html; charset=utf-8";
    sendSwitches(job);
    if (!isShown())
        return answer(job, status, type, html);
    const Markup markup = readMarkup(html);
    ReportSetting setting = {job.config, job.switches, job.generation, file, "", markup.open};
    readWhole(job.work + "/findings", setting.findings);
    setting.isTrouble = isTrouble;
    setting.isPosted = job.request.method == "POST";
    setting.hasPolicy = markup.policy != string::npos;
    const string script = "<script src=\"http://" + job.request.host + ownAddress + "bar.js?" +
                          embedded_id + "\"></script>";
    string body = html;
    if (setting.hasPolicy)
        body.insert(markup.policy, script);
    body += markup.closing + "<script type=\"application/json\" id=\"orv-preview\">" +
            reportJson(job.trace, setting) + "</script>";
    if (!setting.hasPolicy)
        body += script;
    return answer(job, status, type, body);
}

int answerTrouble(Job &job, const char *status, const Trouble &trouble)
{
    Sources sources = {job.config.docRoot, {}};
    job.trace.messages.insert(job.trace.messages.begin(),
                              {ORV_LOG_ERROR, trouble.place, trouble.title + ". " + trouble.text,
                               trouble.hint, trouble.topic, trouble.log});
    return answerPage(job, status, troublePage(trouble, sources), trouble.place.file, true);
}
