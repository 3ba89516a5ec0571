/* bench/engines/launch.c - starts a program and waits for its end, as a web
 * server does for a CGI: launch TIMES PROGRAM [ARGUMENT]... Prints a line for
 * each time on descriptor 3: nanoseconds from before the start to the end, the
 * peak of resident memory in KiB, and the number of page faults. Linked statically and small, since
 * the peak of a program that has just been forked is at least its parent's. */
#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static long long now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000000000LL + time.tv_nsec;
}

/* Runs the program once. Returns its exit status, and prints only when that is 0. */
static int launch(char **command)
{
    const long long start = now();
    const pid_t child = vfork();
    if (child == 0) {
        execv(command[0], command);
        _exit(127);
    }
    int status;
    struct rusage usage;
    if (child < 0 || wait4(child, &status, 0, &usage) != child)
        return 1;
    const long long end = now();
    if (status != 0)
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    dprintf(3, "%lld %ld %ld\n", end - start, usage.ru_maxrss, usage.ru_minflt);
    return 0;
}

int main(int argc, char **argv)
{
    int status = argc < 3 ? 2 : 0;
    for (int left = status == 0 ? atoi(argv[1]) : 0; left > 0 && status == 0; --left)
        status = launch(argv + 2);
    return status;
}
