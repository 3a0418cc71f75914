// The node table when locks cannot be made.
#include "node_mapping.h"

#include "faults.h"
#include "log_lines.h"
#include "node_records.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using faults::call;
using node_records::bytes_of;
using node_records::filled;
using node_records::record;
using testing::IsEmpty;

namespace {

class NodeTableFaults : public testing::Test {
protected:
    void TearDown() override {
        faults::clear();
        nmapping_destroy();
    }

    static bool is_refused(uint16_t id) {
        vexa_node_t out = filled(0xEE);
        return nmapping_get(id, &out) == -1 && bytes_of(out) == bytes_of(filled(0xEE)) &&
               nmapping_get_stat(id) == -1;
    }
};

} // namespace

TEST_F(NodeTableFaults, CreateFailsAtWhicheverLockCannotBeMade) {
    for (int lock = 0; lock < 128; ++lock) {
        faults::fail(call::pthread_mutex_init, ENOMEM, 1, lock);
        EXPECT_EQ(nmapping_create(), -1) << lock;
        EXPECT_TRUE(is_refused(0)) << lock;
        EXPECT_TRUE(is_refused(127)) << lock;
        EXPECT_THAT(logs::lines(), IsEmpty()) << lock;
    }
}

TEST_F(NodeTableFaults, CreateStopsAtTheFirstLockThatCannotBeMade) {
    faults::fail(call::pthread_mutex_init, EAGAIN, faults::k_forever, 5);
    EXPECT_EQ(nmapping_create(), -1);
    EXPECT_EQ(faults::calls(call::pthread_mutex_init), 6);
}

TEST_F(NodeTableFaults, WorksInFullOnceTheFaultIsGone) {
    for (const int lock : {0, 1, 64, 127}) {
        faults::fail(call::pthread_mutex_init, ENOMEM, 1, lock);
        ASSERT_EQ(nmapping_create(), -1);
        faults::clear();
        ASSERT_EQ(nmapping_create(), 0);
        for (uint16_t id = 0; id < 128; ++id) {
            vexa_node_t out = filled(0xEE);
            EXPECT_EQ(nmapping_get(id, &out), 0) << id;
            EXPECT_EQ(out.node_id, id);
        }
        nmapping_destroy();
    }
}

TEST_F(NodeTableFaults, KeepsTheRecordsOfAnEarlierLife) {
    ASSERT_EQ(nmapping_create(), 0);
    const vexa_node_t vio = record("vio", "192.168.1.3", 9003, 3, 1);
    ASSERT_EQ(nmapping_set(3, &vio), 0);
    nmapping_destroy();
    faults::fail(call::pthread_mutex_init, ENOMEM, 1, 100);
    ASSERT_EQ(nmapping_create(), -1);
    ASSERT_EQ(nmapping_create(), 0);
    vexa_node_t out{};
    EXPECT_EQ(nmapping_get(3, &out), 0);
    EXPECT_EQ(bytes_of(out), bytes_of(vio));
}

TEST_F(NodeTableFaults, DestroysAsManyLocksAsItHasMade) {
    faults::fail(call::pthread_mutex_init, ENOMEM, 1, 100);
    ASSERT_EQ(nmapping_create(), -1); // 100 locks stay
    ASSERT_EQ(nmapping_create(), 0);
    ASSERT_EQ(nmapping_create(), 0); // makes none
    nmapping_destroy();
    nmapping_destroy(); // finds none
    EXPECT_EQ(faults::calls(call::pthread_mutex_destroy), faults::calls(call::pthread_mutex_init) - 1);
    EXPECT_EQ(faults::calls(call::pthread_mutex_init), 101 + 128);
}

TEST_F(NodeTableFaults, AllocatesNothing) {
    faults::fail(call::malloc, 0);
    faults::fail(call::calloc, 0);
    const vexa_node_t vio = record("vio", "192.168.1.3", 9003, 3, 1);
    EXPECT_EQ(nmapping_create(), 0);
    EXPECT_EQ(nmapping_set(3, &vio), 0);
    vexa_node_t out{};
    EXPECT_EQ(nmapping_get(3, &out), 0);
    nmapping_valid_item_show();
    EXPECT_EQ(faults::calls(call::malloc) + faults::calls(call::calloc), 0);
}
