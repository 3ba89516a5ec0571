/* tools/preview/databases.h - the site's databases: those that are scripts are made, and a
 * page's connection has them all. */
#ifndef PREVIEW_DATABASES_H
#define PREVIEW_DATABASES_H

#include <string>
#include <vector>

#include "config.h"
#include "host.h"

/* The files that stand behind a database: itself, or the scripts that make it; its pattern where
 * there are none. */
std::vector<std::string> filesOf(const Database &database);

/* Sets the configuration's databases to those of the site, whose scripts are run for that: each
 * makes a file in the work folder, in one step. What is wrong in a script is added to its
 * problems; the database stays as it was then. */
void makeDatabases(const std::string &work, const std::vector<Database> &databases, Config &config);

/* Opens a page's host with the databases, the first of which is the one that has no name in
 * queries; functions are there, and give NULL or 0. Returns the empty text, or why not; host can
 * be opened again then. */
std::string openDatabases(Host &host, const Config &config);

#endif
