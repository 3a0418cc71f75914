/**
 * @file
 * What a fuzz target promises, held. A promise that does not hold ends the run the way a fault of memory
 * does: with the stack, and the input kept in a file.
 *
 *     FUZZ_CHECK(len <= room);
 */
#ifndef FUZZ_CHECK_H
#define FUZZ_CHECK_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(promise)                                                                                  \
    do {                                                                                                     \
        if (!(promise)) {                                                                                    \
            (void)fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #promise);               \
            abort();                                                                                         \
        }                                                                                                    \
    } while (false)

// The two functions that the fuzzer calls. A target defines the second, and the first when it has to start
// something.
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

#endif
