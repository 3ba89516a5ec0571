/* host/script.cpp - finds scripts, and carries a database from one version to the next. */
#include "script.h"

#include "complain.h"
#include "host.h"
#include "store.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <algorithm>
#include <string_view>
#include <utility>

using std::string;
using std::string_view;

// Made of the files in host/sql, each a name and a text.
static constexpr struct {
    string_view name;
    string_view text;
} commonScripts[] = {
#include "sql.inc"
};

static bool isOwn(const string &name)
{
    return access(name.c_str(), F_OK) == 0 || errno != ENOENT;
}

// Returns the text of a script that every site has, null when there is none of that name.
static const string_view *findCommon(const string &name)
{
    for (const auto &script : commonScripts)
        if (script.name == name)
            return &script.text;
    return nullptr;
}

bool hasScript(const string &name)
{
    return isOwn(name) || findCommon(name);
}

bool readScript(Host &host, const string &name, string &script)
{
    static constexpr string_view read = ".read ";
    const string_view *common = isOwn(name) ? nullptr : findCommon(name);
    string text(common ? *common : "");
    if (!common && !hostReadFile(host, name.c_str(), text))
        return false;
    for (string_view rest = text; !rest.empty();) {
        string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        if (!line.starts_with(read))
            script.append(line) += '\n';
        else if (!readScript(host, string(line.substr(read.size())), script))
            return false;
    }
    return true;
}

// Returns the name of the script that carries a database to a version.
static string versionScript(int version)
{
    char name[32];
    snprintf(name, sizeof name, "database-%02d.sql", version);
    return name;
}

// Returns the scripts that carry a database of that version to the last one, as one
// transaction. It has a row when another process has been faster. Empty when there are none;
// isRead: out, false after a line on standard error.
static string upgradeScript(Host &host, int version, bool &isRead)
{
    string all;
    string script;
    isRead = true;
    for (int next = version + 1; isRead && isOwn(versionScript(next)); ++next) {
        isRead = hostReadFile(host, versionScript(next).c_str(), script);
        all += script;
    }
    if (all.empty())
        return all;
    return "begin immediate; select 1 from pragma_user_version where user_version <> " +
           std::to_string(version) + ';' + all + "commit;";
}

UpgradeResult upgradeDatabase(sqlite3 *db, Host &host)
{
    Rows rows;
    int version = -1;
    bool isRead = true;
    while (runScript(db, "pragma user_version", {}, rows) == SCRIPT_ROWS) {
        int former =
            std::exchange(version, static_cast<int>(strtol(rows[0][0].c_str(), nullptr, 10)));
        string script = upgradeScript(host, version, isRead);
        if (isRead && script.empty()) {
            if (version == 0 || isOwn(versionScript(version)))
                return UPGRADE_DONE;
            complain("the database is of version %d, of a newer program", version);
            return UPGRADE_NEWER;
        }
        if (former == version)
            complain("the scripts behind version %d lead to no other", version);
        if (former == version || !isRead || runScript(db, script, {}, rows) == SCRIPT_FAILED)
            return UPGRADE_FAILED;
    }
    return UPGRADE_FAILED;
}
