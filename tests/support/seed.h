/**
 * @file
 * The seed of a randomised test. Drawn anew for every run and printed; the environment variable
 * VEXAMSG_TEST_SEED sets it, to run a failure again.
 */
#ifndef TEST_SEED_H
#define TEST_SEED_H

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>

inline uint64_t test_seed() {
    const char *given = getenv("VEXAMSG_TEST_SEED");
    std::random_device device;
    const uint64_t seed =
        given != nullptr ? strtoull(given, nullptr, 0) : uint64_t{device()} << 32 | device();
    std::cout << "VEXAMSG_TEST_SEED=" << seed << std::endl;
    return seed;
}

#endif
