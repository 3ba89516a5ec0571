/* tools/preview/answer.cpp - what is sent for each address.
 *
 * Pages come as the web program would send them, and the bar behind them. Everything is
 * read below the site's folder; a name with a dot in front, and a link that leads out,
 * are as good as missing. Requests that another site's page may have caused through a
 * name of its own for 127.0.0.1 are refused by their Host header. */
#include "answer.h"

#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <optional>

#include "job.h"
#include "own.h"
#include "render.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

// ---- Other files, and folders ----

// A file's name up to its ending, small.
static string stemOf(const string &name)
{
    return lowered(name.substr(0, name.find('.')));
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

// Whether a file is sent when it is asked for.
static bool isSent(const Job &job, const string &path)
{
    int32_t fd = -1;
    if (hostOpenFile(job.trace, path.c_str(), &fd))
        return false;
    close(fd);
    return true;
}

// Pages of the same folder that have much of the name.
static std::vector<string> similarPages(const Job &job, const string &path)
{
    const size_t slash = path.rfind('/');
    const string folder = slash == string::npos ? "" : path.substr(0, slash + 1);
    const string wanted = stemOf(path.substr(folder.size()));
    std::vector<string> pages;
    DIR *dir = wanted.empty() ? nullptr : opendir(folder.empty() ? "." : folder.c_str());
    while (const dirent *entry = dir ? readdir(dir) : nullptr) {
        const string stem = stemOf(entry->d_name);
        if (!stem.empty() && kindOfFile(entry->d_name) == FolderEntry::PAGE &&
            (stem.starts_with(wanted.substr(0, 3)) || stem.find(wanted) != string::npos) &&
            isSent(job, folder + entry->d_name))
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
        trouble.links = similarPages(job, path);
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
        const bool isBelow = isFolder(job, path + entry->d_name);
        if (entry->d_name[0] != '.' && (isBelow || isSent(job, path + entry->d_name)))
            entries.push_back(
                {isBelow ? FolderEntry::FOLDER : kindOfFile(entry->d_name), entry->d_name});
    }
    closedir(dir);
    std::sort(entries.begin(), entries.end(),
              [](const FolderEntry &a, const FolderEntry &b) { return a.name < b.name; });
    const string title = job.config.docRoot.substr(job.config.docRoot.rfind('/') + 1) + "/" + path;
    return answerPage(job, "200 OK", folderPage(title, job.request.path, entries), "");
}

static bool hasHiddenStep(string_view path)
{
    return path.starts_with('.') || path.find("/.") != string_view::npos;
}

static int answerSite(Job &job)
{
    string path = job.request.path.substr(1);
    if (hasHiddenStep(path))
        return answerMissing(job, path, "Names with a dot in front are not shown.");
    if (isFolder(job, path)) {
        if (path.empty() || path.ends_with('/'))
            return answerFolder(job, path);
        job.headers.clear(); // the tab's cookie is for where it is led to
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
    request.host = lowered(fromEnvironment("HTTP_HOST"));
    if (!isOwnHost(job.config, request.host))
        return answer(job, "403 Forbidden", "text/plain",
                      "The preview is at http://127.0.0.1 alone.\n");
    if (request.method != "GET" && request.method != "HEAD" && request.method != "POST")
        return answer(job, "405 Method Not Allowed", "text/plain", "",
                      "Allow: GET, HEAD, POST\r\n");
    if (!request.path.starts_with('/'))
        request.path = "/";
    readSwitches(job);
    const std::optional<string> problem = readFields(request);
    string why;
    const int ownStatus = problem ? -1 : answerOwn(job);
    if (ownStatus >= 0)
        return ownStatus;
    if (!traceOpen(job.trace, job.config, &why))
        return answerTrouble(job, "503 Service Unavailable",
                             {"The folder is gone", job.config.docRoot + ": " + why,
                              "When it is back, this page shows it again."});
    const int status =
        problem ? answerTrouble(job, "400 Bad Request", {"The request is refused", *problem})
                : answerSite(job);
    hostClose(job.trace); // a page's run has done it, but not all answers are pages
    return status;
}
