// The gate that keeps what a stop takes away alive while somebody uses it.
#include "usage_gate.h"

#include "wait.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

TEST(UsageGate, IsClosedUntilOpened) {
    usage_gate gate;
    EXPECT_FALSE(gate_pass{gate});
    gate.open();
    EXPECT_TRUE(gate_pass{gate});
}

TEST(UsageGate, TurnsNewcomersAwayOnceClosed) {
    usage_gate gate;
    gate.open();
    gate.close();
    EXPECT_FALSE(gate_pass{gate});
}

TEST(UsageGate, OpensAgain) {
    usage_gate gate;
    gate.open();
    gate.close();
    gate.open();
    EXPECT_TRUE(gate_pass{gate});
}

TEST(UsageGate, ClosingWaitsForTheLastUser) {
    usage_gate gate;
    gate.open();
    ASSERT_TRUE(gate.enter());
    ASSERT_TRUE(gate.enter());
    std::atomic<bool> closed{false};
    std::thread closer([&] {
        gate.close();
        closed = true;
    });
    ASSERT_TRUE(wait_until([&] {
        const bool open = gate.enter();
        if (open) {
            gate.leave();
        }
        return !open;
    }));
    gate.leave();
    EXPECT_FALSE(closed);
    gate.leave();
    closer.join();
    EXPECT_TRUE(closed);
}

TEST(UsageGate, ShutTurnsNewcomersAwayAndWaitsForNobody) {
    usage_gate gate;
    gate.open();
    ASSERT_TRUE(gate.enter());
    gate.shut();
    EXPECT_FALSE(gate_pass{gate});
    gate.leave();
}

TEST(UsageGate, ClosingWithADeadlineGivesUpAndMayBeAskedAgain) {
    usage_gate gate;
    gate.open();
    ASSERT_TRUE(gate.enter());
    const deadline_t end = deadline_in(std::chrono::milliseconds(5));
    EXPECT_FALSE(gate.close_by(end));
    EXPECT_GE(std::chrono::steady_clock::now(), end);
    EXPECT_FALSE(gate_pass{gate}) << "it is closed all the same";
    gate.leave();
    EXPECT_TRUE(gate.close_by(end)) << "asks once though the time is over";
}

TEST(UsageGate, NobodyIsInsideAClosedGateWhileManyPass) {
    usage_gate gate;
    std::atomic<int> inside{0};
    std::atomic<bool> over{false};
    std::vector<std::thread> users;
    for (int i = 0; i < 4; ++i) {
        users.emplace_back([&] {
            while (!over) {
                if (const gate_pass pass{gate}) {
                    ++inside;
                    --inside;
                }
            }
        });
    }
    for (int round = 0; round < 1000; ++round) {
        gate.open();
        gate.close();
        EXPECT_EQ(inside, 0);
    }
    over = true;
    for (std::thread &user : users) {
        user.join();
    }
}
