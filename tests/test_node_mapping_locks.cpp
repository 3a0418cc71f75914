// The node table's locks: one per slot, held for the length of one copy.
#include "node_mapping.h"

#include "lock_probe.h"
#include "node_records.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

using node_records::bytes_of;
using node_records::filled;
using node_records::record;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class NodeTableLocks : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(nmapping_create(), 0); }
    void TearDown() override { nmapping_destroy(); }
};

int set_stat(uint16_t id) {
    nmapping_set_stat(id, 1);
    return 0;
}

int get(uint16_t id) {
    vexa_node_t out;
    return nmapping_get(id, &out);
}

int add(uint16_t id) {
    const vexa_node_t node = record("x", "1.2.3.4", 1, id, 1);
    return nmapping_add(id, &node);
}

int set(uint16_t id) {
    const vexa_node_t node = record("x", "1.2.3.4", 1, id, 1);
    return nmapping_set(id, &node);
}

constexpr int (*k_operations[])(uint16_t) = {get, add, set, nmapping_del, nmapping_get_stat, set_stat};

} // namespace

TEST_F(NodeTableLocks, AreTakenOnceByEachOperationOnASlot) {
    lock_probe::watch locks;
    for (auto *operation : k_operations) {
        EXPECT_GE(lock_probe::during(locks, [&] { return operation(3); }), 0);
    }
    EXPECT_THAT(locks.taken, SizeIs(std::size(k_operations)));
    EXPECT_THAT(locks.taken, testing::Each(locks.taken.at(0))) << "and it is always the same";
    EXPECT_EQ(locks.most_held, 1);
    EXPECT_EQ(locks.held, 0);
}

TEST_F(NodeTableLocks, AreOnePerSlot) {
    lock_probe::watch locks;
    for (uint16_t id = 0; id < 128; ++id) {
        EXPECT_EQ(lock_probe::during(locks, [&] { return nmapping_get_stat(id); }), 0);
    }
    EXPECT_THAT(std::set(locks.taken.begin(), locks.taken.end()), SizeIs(128));
}

TEST_F(NodeTableLocks, AreTakenInTurnByTheDump) {
    lock_probe::watch locks;
    lock_probe::during(locks, [] {
        nmapping_valid_item_show();
        return 0;
    });
    EXPECT_THAT(std::set(locks.taken.begin(), locks.taken.end()), SizeIs(128));
    EXPECT_EQ(locks.most_held, 1);
}

TEST_F(NodeTableLocks, AreHeldWhileARecordIsCopiedOut) {
    vexa_node_t stored = filled(0x41);
    stored.node_id = 3;
    ASSERT_EQ(nmapping_set(3, &stored), 0);
    vexa_node_t out = filled(0xEE);
    lock_probe::watch locks;
    bool copied_later = false;
    bool copied_before = false;
    locks.before_lock = [&] { copied_later = bytes_of(out) == bytes_of(filled(0xEE)); };
    locks.before_unlock = [&] { copied_before = bytes_of(out) == bytes_of(stored); };
    EXPECT_EQ(lock_probe::during(locks, [&] { return nmapping_get(3, &out); }), 0);
    EXPECT_TRUE(copied_later);
    EXPECT_TRUE(copied_before);
}

TEST_F(NodeTableLocks, AreHeldUntilARecordIsCopiedIn) {
    vexa_node_t given = filled(0x41);
    lock_probe::watch locks;
    // What is changed once the lock is to be taken still counts, what is changed on giving it back does not.
    locks.before_lock = [&] { given.node_id = 3; };
    locks.before_unlock = [&] { given.node_id = 4; };
    EXPECT_EQ(lock_probe::during(locks, [&] { return nmapping_set(3, &given); }), 0);
    vexa_node_t out{};
    EXPECT_EQ(nmapping_get(3, &out), 0);
}

TEST_F(NodeTableLocks, AreNotTakenForWhatHasNoSlot) {
    lock_probe::watch locks;
    for (const uint16_t id : {uint16_t{128}, uint16_t{64001}, uint16_t{65280}}) {
        EXPECT_EQ(lock_probe::during(locks, [&] { return add(id); }), -1);
        EXPECT_EQ(lock_probe::during(locks, [&] { return nmapping_del(id); }), -1);
        EXPECT_EQ(lock_probe::during(locks, [&] { return nmapping_get_stat(id); }), -1);
        EXPECT_EQ(lock_probe::during(locks, [&] { return set_stat(id); }), 0);
    }
    EXPECT_THAT(locks.taken, IsEmpty());
}

TEST_F(NodeTableLocks, AreNotTakenForTheOwnIdAndTheNextHop) {
    lock_probe::watch locks;
    EXPECT_EQ(lock_probe::during(locks,
                                 [] {
                                     nmapping_set_self(9);
                                     return nmapping_self_node_id() + nmapping_get_next_hop(5) +
                                            nmapping_get_size();
                                 }),
              9 + 5 + 128);
    EXPECT_THAT(locks.taken, IsEmpty());
}
