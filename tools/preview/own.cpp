/* tools/preview/own.cpp - what bars ask for. The stream tells of the files that the launcher
 * replaces in its work folder, and ends when that is gone. */
#include "own.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <initializer_list>

#include "embedded.h"
#include "tools/common/files.h"
#include "tools/common/json.h"

using std::string;

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

static int answerWorker(const Job &job)
{
    return answerScript(job, {follow_js, worker_js});
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

int answerOwn(Job &job)
{
    static constexpr struct {
        const char *name;
        int (*answer)(const Job &job);
    } table[] = {
        {"bar.js", answerBar},
        {"worker.js", answerWorker},
        {"events", streamEvents},
        {"open", answerOpen},
    };
    for (const auto &row : table) {
        if (job.request.path != string(ownAddress) + row.name)
            continue;
        if (job.request.query == embedded_id) // it names this very script, which can be kept
            job.cache = "max-age=31536000, immutable";
        return row.answer(job);
    }
    return -1;
}
