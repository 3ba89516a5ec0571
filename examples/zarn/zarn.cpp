/* examples/zarn/zarn.cpp - the demo site's web program, a CGI program. The web server's
 * configuration says where things are:
 *   ZARN_DOCROOT  the folder of the pages
 *   ZARN_DB       the SQLite database that they show; made when it is missing
 *   ZARN_SESSIONS the folder of the sessions, an absolute path, which nobody else may use;
 *                 made when it is missing; without it /tmp/zarn-UID, UID being the user's
 *   ZARN_ROOT     put in front of the interpreter's own paths; may be missing
 *   ZARN_NAMES    names that the device has besides the one in its settings, with
 *                 blanks between; may be missing
 *   ZARN_APPLY    the program that is told what has changed, and makes it so; may be missing
 *   ZARN_FIGURES  the folder of what the device measures; without it that is made up
 *   ZARN_LOG      whatever it says, all diagnostics go to the error log, not only problems */
#include "orvhost.h"

#include <stdlib.h>

int main()
{
    OrvSite site = {};
    site.name = "zarn";
    site.startPage = "overview.htm";
    site.commonText = "site.lang";
    site.docRoot = getenv("ZARN_DOCROOT");
    site.database = getenv("ZARN_DB");
    site.sessions = getenv("ZARN_SESSIONS");
    site.names = getenv("ZARN_NAMES");
    site.apply = getenv("ZARN_APPLY");
    site.figures = getenv("ZARN_FIGURES");
    site.logsAll = getenv("ZARN_LOG") != nullptr;
    site.root = getenv("ZARN_ROOT");
    return Orv_Site_Answer(&site);
}
