/* tools/common/listing.cpp - looks through the files of a site for templates. */
#include "tools/common/listing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "grammar/commands.h"
#include "host/ascii.h"
#include "tools/common/fieldid.h"
#include "tools/common/files.h"

using std::string;
using std::string_view;

namespace fs = std::filesystem;

static constexpr off_t LARGEST = 16 << 20; // bytes of a file that is looked into
static constexpr size_t BEGIN = 8192;      // bytes that tell text from other data

bool listFiles(const string &folder, std::vector<string> *files, string *problem)
{
    std::error_code error;
    const fs::path root = folder;
    for (auto it = fs::recursive_directory_iterator(
             root, fs::directory_options::skip_permission_denied, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        if (it->path().filename().string().starts_with(".")) {
            it.disable_recursion_pending();
            continue;
        }
        std::error_code unreadable;
        if (it->is_regular_file(unreadable))
            files->push_back(it->path().lexically_relative(root).generic_string());
    }
    if (error)
        *problem = "cannot read " + folder + ": " + error.message();
    std::sort(files->begin(), files->end());
    return !error;
}

static bool beginsWith(string_view text, string_view word)
{
    return !word.empty() && text.starts_with(word) &&
           (text.size() == word.size() || !isLetter(text[word.size()]));
}

// Whether the first word of a command, with or without its if, or a comment begins a text.
static bool looksLikeCommand(string_view text)
{
    return text.starts_with("--") ||
           std::any_of(std::begin(commandTable), std::end(commandTable),
                       [&](const CommandDef &command) {
                           const string_view words = command.words;
                           return beginsWith(text, words.substr(0, words.find(' '))) ||
                                  (words.starts_with("if ") && beginsWith(text, words.substr(3)));
                       });
}

bool holdsCommand(string_view text)
{
    for (size_t at = text.find('?'); at != string_view::npos; at = text.find('?', at + 1)) {
        const char before = at > 0 ? text[at - 1] : '\0';
        const size_t end = before == '{' ? idEnd(text, at + 1) : 0;
        if ((before == '<' && looksLikeCommand(text.substr(at + 1))) ||
            (end > at + 1 && text.substr(end, 2) == "?}"))
            return true;
    }
    return false;
}

static bool hasSuffix(string_view path, std::initializer_list<const char *> suffixes)
{
    return std::any_of(suffixes.begin(), suffixes.end(),
                       [&](const char *suffix) { return path.ends_with(suffix); });
}

// Reads what is left of an open file and tells whether it is text that holds a command.
static bool isTemplateText(int fd)
{
    struct stat status;
    string text(BEGIN, '\0');
    if (fstat(fd, &status) != 0 || status.st_size > LARGEST)
        return false;
    const ssize_t length = read(fd, text.data(), text.size());
    text.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return text.find('\0') == string::npos && readOpen(fd, &text) && holdsCommand(text);
}

bool isTemplateFile(const string &folder, const string &path)
{
    if (hasSuffix(path, {"~", ".bak", ".orig", ".rej", ".po", ".pot"}))
        return false;
    std::error_code error;
    const fs::path file = fs::path(folder) / path;
    if (fs::is_symlink(file, error)) {
        const fs::path target = fs::canonical(file, error);
        const fs::path below = target.lexically_relative(fs::canonical(folder, error));
        if (!error && !below.empty() && *below.begin() != "..")
            return false;
    }
    if (hasSuffix(path, {".htm", ".html"}))
        return true;
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const bool isTemplate = fd >= 0 && isTemplateText(fd);
    if (fd >= 0)
        close(fd);
    return isTemplate;
}
