// Runs what is written in C, one case for each function.
#include "ut_containers_in_c.h"

#include <gtest/gtest.h>

constexpr int k_every_check_held = 0; // else the line of ut_containers_in_c.c

TEST(ListInC, OwnsCopies) {
    EXPECT_EQ(c_list_owns_copies(), k_every_check_held);
}

TEST(ListInC, WalksFindsAndIndexes) {
    EXPECT_EQ(c_list_walks_finds_and_indexes(), k_every_check_held);
}

TEST(ListInC, IsCopied) {
    EXPECT_EQ(c_list_is_copied(), k_every_check_held);
}

TEST(DictInC, KeepsWhatItIsGiven) {
    EXPECT_EQ(c_dict_keeps_what_it_is_given(), k_every_check_held);
}

TEST(DictInC, OwnsCopies) {
    EXPECT_EQ(c_dict_owns_copies(), k_every_check_held);
}

TEST(DictInC, ClearsInConstantTime) {
    EXPECT_EQ(c_dict_clears_in_constant_time(), k_every_check_held);
}
