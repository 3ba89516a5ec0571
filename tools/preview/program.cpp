/* tools/preview/program.cpp - finds the programs of one installation, whether built or
 * installed, and starts them free of what the launcher holds back. */
#include "program.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <unistd.h>
#include <algorithm>
#include <filesystem>

using std::string;

string findProgram(const string &name)
{
    if (name.find('/') != string::npos)
        return access(name.c_str(), X_OK) == 0 ? name : "";
    string self(PATH_MAX, '\0');
    const ssize_t length = readlink("/proc/self/exe", self.data(), self.size());
    self.resize(length > 0 ? static_cast<size_t>(length) : 0);
    const string folder = self.substr(0, self.rfind('/') + 1);
    std::vector<string> candidates = {folder + name};
    const char *path = getenv("PATH");
    string rest = string(path ? path : "") + ":/usr/sbin";
    while (!rest.empty()) {
        const size_t end = std::min(rest.find(':'), rest.size());
        candidates.push_back(rest.substr(0, end) + "/" + name);
        rest.erase(0, end + 1);
    }
    std::error_code ignored;
    for (const string &candidate : candidates)
        if (candidate[0] == '/' && access(candidate.c_str(), X_OK) == 0 &&
            std::filesystem::is_regular_file(candidate, ignored))
            return candidate;
    return "";
}

pid_t startProgram(const std::vector<string> &arguments, const string &out, const string &err)
{
    std::vector<char *> argv;
    argv.reserve(arguments.size() + 1);
    for (const string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), flags, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), flags, 0600);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setsigmask(&attributes, &none);
    pid_t child;
    if (posix_spawn(&child, argv[0], &actions, &attributes, argv.data(), environ) != 0)
        child = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return child;
}
