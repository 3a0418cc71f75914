// Runs what is written in C, one case for each function.
#include "ut_loop_in_c.h"

#include <gtest/gtest.h>

constexpr int k_every_check_held = 0; // else the line of ut_loop_in_c.c

TEST(UtLoopInC, ReadsADatagram) {
    EXPECT_EQ(c_loop_reads_a_datagram(), k_every_check_held);
}

TEST(UtTimerInC, RepeatsUntilStopped) {
    EXPECT_EQ(c_timer_repeats_until_stopped(), k_every_check_held);
}

TEST(UtSockInC, ReadsDescriptions) {
    EXPECT_EQ(c_sock_reads_descriptions(), k_every_check_held);
}
