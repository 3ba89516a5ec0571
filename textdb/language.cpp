/* textdb/language.cpp - which text database is in use.
 *
 * The language code, or else the device's own link, chooses the file. What that
 * file lacks is looked up in the fallback, which is mapped at the first miss and
 * for good. All of it belongs to the process and outlives handles. Between
 * calls: htmlDB is either whole or empty. */
#include "textdb/language.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "base/files.h"
#include "base/log.h"

using std::string_view;

TextDatabase htmlDB;                  // outlives handles
TextDatabase htmlFallbackDB;          // once mapped, for good
static char lookupBuf[MARK_CAPACITY]; // until the host's next lookup

static constexpr char languagePrefix[] = "/etc/htmltext_";
static constexpr char languageSuffix[] = ".db";
static constexpr char defaultPath[] = "/var/htmltext.db";
static constexpr char fallbackPath[] = "/etc/htmltext.db";
static constexpr size_t CODE_LENGTH = 2;

// Resolves one of the library's own paths; resolved has room for PATH_MAX bytes.
static bool resolvePath(const char *path, char *resolved)
{
    char full[PATH_MAX];
    return systemPath(full, sizeof full, path) && realpath(full, resolved);
}

// A resolved path as the device's own: without the root that stands before it.
static const char *withoutRoot(const char *resolved)
{
    char root[PATH_MAX];
    if (!*systemRoot || !realpath(systemRoot, root))
        return resolved;
    const size_t length = strlen(root);
    const bool below = strncmp(resolved, root, length) == 0 && resolved[length] == '/';
    return below ? resolved + length : resolved;
}

// Maps the resolved file in the place of the one in use.
static bool useDatabase(const char *resolved, const char *code)
{
    const char *image;
    const int32_t fd = loadMmapTree(resolved, &image);
    if (fd < 0)
        return false;
    unloadMmapTree(htmlDB.path, htmlDB.fd, &htmlDB.image);
    htmlDB.image = image;
    htmlDB.fd = fd;
    snprintf(htmlDB.language, sizeof htmlDB.language, "%s", code);
    snprintf(htmlDB.path, sizeof htmlDB.path, "%s", resolved);
    return true;
}

int32_t Orv_Interpreter_SetLanguage(const char *code)
{
    char path[127];
    char own[CODE_LENGTH + 1] = ""; // code may be a text of the database that goes
    char resolved[PATH_MAX];
    const size_t length = code ? strlen(code) : 0;
    if (length != 0 && length != CODE_LENGTH) {
        logMessage<Message::LANGUAGE_INVALID>(code);
        return ORV_FAILED;
    }
    if (code)
        snprintf(own, sizeof own, "%s", code);
    if (length != 0)
        snprintf(path, sizeof path, "%s%s%s", languagePrefix, own, languageSuffix);
    else
        snprintf(path, sizeof path, "%s", defaultPath);
    if (!resolvePath(path, resolved)) {
        logMessage<Message::LANGUAGE_NO_LINK>(path);
        return ORV_FAILED;
    }
    if (strcmp(resolved, htmlDB.path) == 0)
        return ORV_OK;
    if (!useDatabase(resolved, own)) {
        logMessage<Message::LANGUAGE_NO_DATABASE>(withoutRoot(resolved), code ? own : "*default*");
        return ORV_FAILED;
    }
    return ORV_OK;
}

static bool openFallback()
{
    char full[PATH_MAX];
    htmlFallbackDB.fd = systemPath(full, sizeof full, fallbackPath)
                            ? loadMmapTree(full, &htmlFallbackDB.image)
                            : -1;
    return htmlFallbackDB.fd >= 0;
}

string_view lookupText(const char *id)
{
    if (!htmlDB.image)
        Orv_Interpreter_SetLanguage(nullptr);
    const string_view text = findText(htmlDB.image, id, nullptr);
    if (text.data())
        return text;
    if (!htmlFallbackDB.image) {
        if (!openFallback()) {
            logMessage<Message::FALLBACK_FAILED>(fallbackPath);
            return {};
        }
        logMessage<Message::FALLBACK_OPENED>(fallbackPath);
    }
    logMessage<Message::FALLBACK_USED>(id);
    return findText(htmlFallbackDB.image, id, nullptr);
}

const char *lookupDBField(const char *id)
{
    return lookupText(id).data();
}

size_t formatMark(char mark[MARK_CAPACITY], string_view text, const char *id)
{
    const size_t shown = std::min(text.size(), MARK_CAPACITY);
    const int length =
        snprintf(mark, MARK_CAPACITY, "-=%.*s {?%s?}=-", static_cast<int>(shown), text.data(), id);
    return std::min(static_cast<size_t>(length), MARK_CAPACITY - 1);
}

const char *Orv_Interpreter_LookupDBField(const char *id)
{
    if (!id)
        return nullptr;
    const string_view text = lookupText(id);
    if (getTooltipVar() != 2 || !text.data())
        return text.data();
    char marked[MARK_CAPACITY]; // id may be the last result
    formatMark(marked, text, id);
    memcpy(lookupBuf, marked, sizeof marked);
    return lookupBuf;
}
