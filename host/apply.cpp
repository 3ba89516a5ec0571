/* host/apply.cpp - runs the program that carries changes out. Its input is a file in memory, so
 * neither waits for the other to read. */
#include "apply.h"
#include "complain.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

using std::string;

static constexpr int APPLY_SECONDS = 10;
static constexpr size_t ANSWER_LIMIT = 400;

// Starts the program with these for its standard input and output. Returns its number, -1 with
// errno set.
static pid_t start(const char *path, int input, int output)
{
    pid_t child = -1;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    char *arguments[] = {const_cast<char *>(path), nullptr};
    char searched[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    char *environment[] = {searched, nullptr}; // nothing of a request
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    // A group of its own, so that what it has started ends with it.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    errno = posix_spawn(&child, path, &actions, &attributes, arguments, environment);
    if (errno != 0)
        child = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return child;
}

// Reads what comes until its end, or until the time is over. Returns whether it has ended.
static bool readAnswer(int fd, string &answer)
{
    char piece[256];
    time_t end = time(nullptr) + APPLY_SECONDS;
    pollfd waiting = {fd, POLLIN, 0};
    while (time(nullptr) <= end) {
        if (poll(&waiting, 1, 1000) <= 0)
            continue;
        ssize_t size = read(fd, piece, sizeof piece);
        if (size <= 0)
            return true;
        answer.append(piece, static_cast<size_t>(size));
        answer.resize(answer.size() < ANSWER_LIMIT ? answer.size() : ANSWER_LIMIT);
    }
    return false;
}

// Waits for the end of the program, which has closed its output or must not go on. Returns its
// status, -1 where it was ended.
static int finish(pid_t child, bool mayRun)
{
    static constexpr int STEP_MICROSECONDS = 10000;
    int status = -1;
    for (int waited = 0; mayRun && waited < APPLY_SECONDS * 1000000; waited += STEP_MICROSECONDS) {
        if (waitpid(child, &status, WNOHANG) != 0)
            return status;
        usleep(STEP_MICROSECONDS);
    }
    kill(-child, SIGKILL);
    waitpid(child, &status, 0);
    return -1;
}

bool runApply(const char *path, const string &told, string &answer)
{
    int pipes[2] = {-1, -1};
    pid_t child = -1;
    int input = memfd_create("told", MFD_CLOEXEC);
    bool isReady = input >= 0 && pipe2(pipes, O_CLOEXEC) == 0 &&
                   write(input, told.data(), told.size()) == static_cast<ssize_t>(told.size()) &&
                   lseek(input, 0, SEEK_SET) == 0;
    if (isReady)
        child = start(path, input, pipes[1]);
    if (child < 0)
        complain("cannot run %s: %s", path, strerror(errno));
    close(input);
    close(pipes[1]);
    int status = child > 0 ? finish(child, readAnswer(pipes[0], answer)) : -1;
    if (child > 0 && status != 0)
        complain("%s has failed, or took longer than %d seconds: %s", path, APPLY_SECONDS,
                 answer.c_str());
    close(pipes[0]);
    return status == 0;
}
