/* tools/preview/editor.cpp - a table of the editors that people use: each has its own way to
 * say where in a file it is to open it. */
#include "editor.h"

#include <stdlib.h>
#include <string.h>
#include <algorithm>

#include "program.h"

using std::string;
using std::string_view;

static constexpr struct {
    const char *names; // with a blank on each side
    const char *place; // behind the program and its options
    bool needsTerminal = false;
} editors[] = {
    {" code code-insiders codium vscodium cursor ", "-g {file}:{line}:{column}"},
    {" subl zed zeditor geany ", "{file}:{line}:{column}"},
    {" hx helix ", "{file}:{line}:{column}", true},
    {" emacs emacsclient gedit gnome-text-editor pluma xed ", "+{line}:{column} {file}"},
    {" kate kwrite ", "-l {line} -c {column} {file}"},
    {" gvim mvim mousepad ", "+{line} {file}"},
    {" idea pycharm webstorm phpstorm ", "--line {line} --column {column} {file}"},
    {" nano micro ", "+{line},{column} {file}", true},
    {" vi vim nvim joe ne mcedit ed ", "+{line} {file}", true},
};

bool isAddress(string_view editor)
{
    return editor.find("://") != string_view::npos;
}

static std::vector<string> split(string_view line)
{
    std::vector<string> words;
    char quote = 0;
    bool isInWord = false;
    for (const char c : line) {
        const bool isBlank = c == ' ' && quote == 0;
        if (!isBlank && !isInWord)
            words.emplace_back();
        isInWord = !isBlank;
        if (isBlank)
            continue;
        if (c == quote)
            quote = 0;
        else if (quote == 0 && (c == '"' || c == '\''))
            quote = c;
        else
            words.back() += c;
    }
    return words;
}

static void replaceAll(string &text, string_view name, const string &value)
{
    for (size_t at = 0; (at = text.find(name, at)) != string::npos; at += value.size())
        text.replace(at, name.size(), value);
}

// The window of a terminal, as the system's own choice opens it; empty without one.
static string findTerminal()
{
    const char *x11 = getenv("DISPLAY");
    const char *wayland = getenv("WAYLAND_DISPLAY");
    const bool hasScreen = (x11 && *x11) || (wayland && *wayland);
    return hasScreen ? findProgram("x-terminal-emulator") : "";
}

std::vector<string> editorWords(const string &editor, const string &file, int32_t line,
                                int32_t column, string *problem)
{
    std::vector<string> words = split(editor);
    const string program = words.empty() ? "" : findProgram(words[0]);
    if (program.empty()) {
        *problem = "'" + (words.empty() ? editor : words[0]) + "' is not installed";
        return {};
    }
    const string name = " " + words[0].substr(words[0].rfind('/') + 1) + " ";
    const auto *const known = std::ranges::find_if(
        editors, [&](const auto &row) { return strstr(row.names, name.c_str()); });
    const bool isKnown = known != std::end(editors);
    words[0] = program;
    if (editor.find("{file}") == string::npos)
        for (string &word : split(isKnown ? known->place : "{file}"))
            words.push_back(std::move(word));
    for (size_t i = 1; i < words.size(); ++i) {
        replaceAll(words[i], "{line}", std::to_string(std::max(line, 1)));
        replaceAll(words[i], "{column}", std::to_string(std::max(column, 1)));
        replaceAll(words[i], "{file}", file);
    }
    if (isKnown && known->needsTerminal) {
        const string terminal = findTerminal();
        if (terminal.empty()) {
            *problem = "'" + name.substr(1, name.size() - 2) + "' needs the window of a terminal";
            return {};
        }
        words.insert(words.begin(), {terminal, "-e"});
    }
    return words;
}
