/* host/script.h - the scripts of a site, and those that all sites have. */
#ifndef HOST_SCRIPT_H
#define HOST_SCRIPT_H

#include <string>

struct Host;
struct sqlite3;

/* Whether the site, or every site, has a script. One that is there and cannot be read is. */
bool hasScript(const std::string &name);

/* Reads a script, the site's own or else that of all sites, with the scripts in their places
 * that it reads by lines ".read NAME", as sqlite3 has them, too.
 *
 * Returns false after a line on standard error: half a script is none. */
bool readScript(Host &host, const std::string &name, std::string &script);

enum UpgradeResult { UPGRADE_DONE, UPGRADE_FAILED, UPGRADE_NEWER };

/* Carries the database to the version of the last of the scripts database-01.sql,
 * database-02.sql and so on, all that are missing in one transaction.
 *
 * Returns UPGRADE_NEWER for one of a later version, UPGRADE_FAILED where it cannot be done; both
 * after a line on standard error, and the database is then as it was. */
UpgradeResult upgradeDatabase(sqlite3 *db, Host &host);

#endif
