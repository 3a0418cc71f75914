// A process that forks while its node is being stopped: whatever is half gone at that moment, the child does
// not touch it.
#include "faults.h"
#include "forked.h"
#include "peer.h"
#include "refusals.h"
#include "vision_service_route_funcs.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

namespace {

using bus::message;

constexpr uint16_t k_id = 9;
constexpr int k_works = 42;

/// A child is forked at each call of this kind that the stop makes on the thread that asked for it.
std::vector<pid_t> forked_while_stopping(bus::node_under_test &node, faults::call which) {
    std::vector<pid_t> children;
    const pid_t parent = getpid();
    faults::before(which, [&children, parent] {
        // Not on the node's threads, which end while others still run, and not in a child, which clears up
        // what it finds by the same calls.
        if (gettid() != parent) {
            return;
        }
        children.push_back(forked([] {
            faults::clear();
            bus::expect_refusals();
            vision_msg_component_deinit();
            return testing::Test::HasFailure() ? 1 : k_works;
        }));
    });
    node.stop();
    faults::clear();
    return children;
}

} // namespace

class ForkWhileStopping : public testing::TestWithParam<faults::call> {};

TEST_P(ForkWhileStopping, LeavesTheChildWhatIsWholeAndNothingElse) {
    bus::node_under_test node{k_id};
    ASSERT_TRUE(node.join({3}));
    for (const uint8_t type : bus::bytes{1, 2, 3}) {
        node.send(message({0, 3, k_id}, {type, 0, 1}));
    }
    ASSERT_TRUE(node.settle());
    const std::vector<pid_t> children = forked_while_stopping(node, GetParam());
    EXPECT_GE(children.size(), size_t{4});
    for (size_t i = 0; i < children.size(); ++i) {
        EXPECT_EQ(status_of(children[i]), k_works) << "forked at the call number " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(, ForkWhileStopping,
                         testing::Values(faults::call::free, faults::call::pthread_mutex_destroy,
                                         faults::call::close),
                         [](const auto &each) {
                             switch (each.param) {
                             case faults::call::free:
                                 return "BehindFree";
                             case faults::call::close:
                                 return "BeforeADescriptorIsClosed";
                             default:
                                 return "BeforeALockIsDestroyed";
                             }
                         });
