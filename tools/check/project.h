/* tools/check/project.h - the site file's part of what the checker goes by, and a first site
 * file for a site that has none. */
#ifndef ORV_CHECK_PROJECT_H
#define ORV_CHECK_PROJECT_H

#include "site.h"

// What a command line says of a site: empty where it is silent.
struct GivenOptions {
    std::string config; // the site file
    SiteOptions site;
};

/* Makes out what is known of a site: what its site file says, and what is given, which wins.
 * folder: from where the file is looked for, unless a document root is given. Returns false,
 * with the reason and its place in problem, when the file is wrong or names what is not
 * there. */
bool makeOptions(const GivenOptions &given, const std::string &folder, SiteOptions *site,
                 std::string *problem);

/* Appends the variables of a list, one a line, with the word safe behind a safe one. Returns
 * false when it cannot be read; errno tells why. */
bool readNames(const std::string &path, SiteOptions *site);

/* The text of a site file for the site in the working directory, with what can be guessed of
 * it. given: what is known already, and is not guessed then. */
std::string initialSiteFile(const SiteOptions &given);

/* The path below the document root of a template that is named by the path that leads to it,
 * or by that below the document root. */
std::string templatePath(const std::string &docRoot, const std::string &named);

#endif
