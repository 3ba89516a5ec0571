/* tools/preview/job.h - one request, and the steps of its answer that all kinds share. */
#ifndef PREVIEW_JOB_H
#define PREVIEW_JOB_H

#include <string>
#include <string_view>
#include <vector>

#include "config.h"
#include "pages.h"
#include "report.h"
#include "request.h"
#include "trace.h"

// Where the preview's own addresses begin. No file of a site has one: names with a dot
// in front are not sent.
inline constexpr char ownAddress[] = "/.orv-preview/";

struct Request {
    std::string method;
    std::string path;  // decoded, begins with '/'
    std::string query; // as it was sent
    std::string host;
    std::vector<FormField> fields;

    bool isHead() const
    {
        return method == "HEAD";
    }
};

// What all steps of an answer need.
struct Job {
    std::string work;
    Config config;
    Switches switches;
    std::string generation;
    Request request;
    Trace trace;
    std::string headers; // further ones of the answer
    const char *cache = "no-store";
};

/* A variable of the environment, empty without one. */
const char *fromEnvironment(const char *name);

/* The type of a file of that name, as browsers are told. */
const char *typeOf(const std::string &path);

/* Whether a file is rendered. Web programs also fill templates that make no pages, such as
 * tables to keep: these are told by what stands in them. */
bool isTemplate(const Job &job, const std::string &path);

/* Reads what the tab has chosen. Its bar sets a cookie when another page of it is asked for, and
 * the answer removes that; what pages load, or fetch, is told by one that the tab's last page was
 * sent with. */
void readSwitches(Job &job);

/* Each writes an answer, and returns the exit status. Nothing of the site is kept by a cache:
 * the files change all the time. */
int answer(const Job &job, const char *status, std::string_view type, std::string_view body,
           const std::string &headers = "");

/* The same with a page, and the bar behind it; what a page's script fetches comes as it is, as
 * from the device. file: its template, empty for none. */
int answerPage(Job &job, const char *status, const std::string &html, const std::string &file,
               bool isTrouble = false);

/* The same with a page that tells why there is none, which is the first of the errors that its
 * bar tells. */
int answerTrouble(Job &job, const char *status, const Trouble &trouble);

#endif
