/* fuzz/fuzz.h - what the fuzz targets share. Each gets one input after another,
 * in one process, and ends it when something does not hold. */
#ifndef ORV_FUZZ_FUZZ_H
#define ORV_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Holds in every build, unlike assert.
#define MUST(condition)                                                                            \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);         \
            abort();                                                                               \
        }                                                                                          \
    } while (0)

/* Tries one input. Returns 0. */
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

#endif
