/* tools/preview/texts.cpp - lays out what the interpreter looks for below its root. Databases
 * are made by orv-textdb; those of the device are linked. */
#include "texts.h"

#include <errno.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <filesystem>

#include "program.h"
#include "request.h"
#include "tools/common/files.h"

using std::string;

namespace fs = std::filesystem;

static constexpr int MARK_MODES = 3; // 0, 1 and 2

string languageOf(const string &path)
{
    string name = fs::path(path).filename();
    if (name.starts_with("htmltext_") && name.ends_with(".db"))
        name.erase(0, strlen("htmltext_"));
    const bool isKnown = name.ends_with(".po") || name.ends_with(".db");
    return isKnown && name.size() == 5 && isLanguage(name.substr(0, 2)) ? name.substr(0, 2) : "";
}

// Builds the database of a PO file, beside the target first: a file with mistakes leaves
// the texts as they were.
static void buildTexts(const TextSource &source, const string &work, const string &target,
                       std::vector<FileProblem> &problems)
{
    const string tool = findProgram("orv-textdb");
    if (tool.empty()) {
        problems.push_back(
            {source.path, 0, "orv-textdb, which makes texts of it, is not installed"});
        return;
    }
    const string made = work + "/made-" + source.language + ".db";
    const pid_t child =
        startProgram({tool, "build", "-o", made, source.path}, "/dev/null", work + "/complaints");
    int status = -1;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR)
        ;
    if (status == 0 && rename(made.c_str(), target.c_str()) == 0)
        return;
    string complaints;
    readWhole(work + "/complaints", complaints);
    const size_t known = problems.size();
    for (size_t at = 0; at < complaints.size();) {
        const size_t end = std::min(complaints.find('\n', at), complaints.size());
        if (complaints.find(made, at) >= end) // else of the file that is not written
            problems.push_back(problemOf(source.path, complaints.substr(at, end - at)));
        at = end + 1;
    }
    if (problems.size() == known)
        problems.push_back({source.path, 0, "the texts cannot be made of it"});
}

static bool placeLink(const string &target, const string &path)
{
    return (unlink(path.c_str()) == 0 || errno == ENOENT) &&
           symlink(target.c_str(), path.c_str()) == 0;
}

// The device's own text databases, by links.
static void linkDevice(const string &deviceRoot, const string &root)
{
    const string databases = root + "/etc/";
    eachEntry(deviceRoot + "/etc", [&](const fs::directory_entry &entry) {
        const string name = entry.path().filename();
        if (name.starts_with("htmltext") && name.ends_with(".db"))
            placeLink(entry.path(), databases + name);
    });
    const string chosen = deviceRoot + "/var/htmltext.db";
    if (access(chosen.c_str(), F_OK) == 0)
        placeLink(chosen, root + "/var/htmltext.db");
}

static std::vector<string> languagesIn(const string &folder)
{
    std::vector<string> languages;
    eachEntry(folder, [&](const fs::directory_entry &entry) {
        const string name = entry.path().filename();
        std::error_code error;
        if (name.starts_with("htmltext_") && fs::exists(entry.path(), error) &&
            !languageOf(name).empty())
            languages.push_back(languageOf(name));
    });
    std::sort(languages.begin(), languages.end());
    return languages;
}

bool makeRoots(const string &work, const string &deviceRoot, const std::vector<TextSource> &sources,
               Config &config)
{
    const string root = rootFolder(work, 0);
    std::error_code error;
    for (const char *folder : {"/etc", "/var"})
        if (!fs::create_directories(root + folder, error) && error) {
            errno = error.value();
            return false;
        }
    if (!deviceRoot.empty())
        linkDevice(deviceRoot, root);
    for (const TextSource &source : sources) {
        const string target = root + "/etc/htmltext_" + source.language + ".db";
        if (source.path.ends_with(".po"))
            buildTexts(source, work, target, config.problems);
        else
            placeLink(source.path, target);
        if (access(source.path.c_str(), R_OK) != 0 && source.path.ends_with(".db"))
            config.problems.push_back({source.path, 0, strerror(errno)});
    }
    if (!sources.empty()) {
        const string first = "htmltext_" + sources[0].language + ".db";
        if (access((root + "/etc/htmltext.db").c_str(), F_OK) != 0)
            placeLink(first, root + "/etc/htmltext.db");
        if (access((root + "/var/htmltext.db").c_str(), F_OK) != 0)
            placeLink("../etc/" + first, root + "/var/htmltext.db");
    }
    config.languages = languagesIn(root + "/etc");
    for (int marks = 1; marks < MARK_MODES; ++marks) {
        const string marked = rootFolder(work, marks);
        fs::create_directories(marked + "/proc", error);
        if (!placeLink(root + "/etc", marked + "/etc") ||
            !placeLink(root + "/var", marked + "/var") ||
            !replaceFile(marked + "/proc/cmdline", "tooltip=" + std::to_string(marks) + "\n"))
            return false;
    }
    return true;
}
