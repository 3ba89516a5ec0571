/* orvhost.h - the part of a web program that all sites share: a CGI program (RFC 3875) names its
 * folders and calls one function. It opens the databases, reads the request, knows whose it is,
 * makes the page, and sends it with the headers that keep it safe. What the pages show and what
 * becomes of their forms is in the site's folder, in templates and SQL. */
#ifndef ORVHOST_H
#define ORVHOST_H

#if defined __GNUC__
#define ORV_HOST_API __attribute__((visibility("default")))
#else
#define ORV_HOST_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A site. Texts are borrowed for the call. */
typedef struct OrvSite {
    const char *name;       /* lower-case letters: begins the names of its cookies */
    const char *startPage;  /* what "/" stands for, such as "overview.htm" */
    const char *docRoot;    /* the folder of the pages and their scripts, which is not handed out */
    const char *database;   /* the SQLite database that they show; made when it is missing */
    const char *sessions;   /* the folder of the sessions, an absolute path, which nobody else may
                               use; made when it is missing; null: /tmp/NAME-UID, UID the user's */
    const char *names;      /* names that the device has besides those of its script names.sql,
                               with blanks between; null for none */
    const char *apply;      /* the program that lets changes reach the device; null for none */
    const char *figures;    /* a folder of files of lines: figure('NAME') reads them in the scripts
                               PAGE.figures.sql; null for none */
    const char *commonText; /* the id of a text that each language has; null for pages without */
    int logsAll;            /* all diagnostics of the interpreter go to the error log, not only
                               problems */
    const char *root;       /* put in front of the interpreter's own paths; null for nothing */
} OrvSite;

/* Answers the request that the environment and standard input bring, on standard output.
 * Problems go to standard error, which is the web server's error log, of one page some
 * KiB at most. It is to be called once, by a process that has one thread: it changes the working
 * directory, and locks that it takes last until the process ends.
 *
 * Returns 0 when an answer was sent, be it one that says what is wrong; 1 when none could be
 * sent, after a line on standard error. */
ORV_HOST_API int Orv_Site_Answer(const OrvSite *site);

#ifdef __cplusplus
}
#endif

#endif
