/* tools/common/stack.cpp */
#include "tools/common/stack.h"

#include <malloc.h>
#include <pthread.h>
#include <signal.h>

#include <cstddef>

// Some 10,000 levels, each of three functions, whose frames a sanitizer swells to
// 2 KiB together. What is not touched costs no memory.
static constexpr size_t DEEP_STACK = size_t{64} << 20;

namespace
{
struct Call {
    int (*work)(int, char **);
    int argc;
    char **argv;
    int result;
};
} // namespace

static void *perform(void *given)
{
    auto *call = static_cast<Call *>(given);
    call->result = call->work(call->argc, call->argv);
    return nullptr;
}

int runOnDeepStack(int (*work)(int, char **), int argc, char **argv)
{
    Call call = {work, argc, argv, 0};
    pthread_attr_t attributes;
    pthread_t thread;
    bool runs = false;
#ifdef M_ARENA_MAX
    mallopt(M_ARENA_MAX, 1); // another thread's own heap would grow by a call for each page
#endif
    if (pthread_attr_init(&attributes) == 0) {
        runs = pthread_attr_setstacksize(&attributes, DEEP_STACK) == 0 &&
               pthread_create(&thread, &attributes, perform, &call) == 0;
        pthread_attr_destroy(&attributes);
    }
    if (!runs)
        return work(argc, argv);
    sigset_t all; // signals go to the work, which holds back what must not end it just then
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    pthread_join(thread, nullptr);
    return call.result;
}
