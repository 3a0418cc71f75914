// The soak's balance: what adds up is left alone, and at every border one message too few or too many is
// named.
#include "account.h"
#include "log_line.h"
#include "memory.h"
#include "traffic.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using soak::event;
using soak::outcome;
using soak::tally_key;
using soak::way;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr uint16_t k_sender = 3;
constexpr uint16_t k_receiver = 2;

/// A key of messages on one way from the sender to the receiver.
tally_key key(event what, way by, outcome result = outcome::none, uint8_t place = 0) {
    return {
        .what = what, .by = by, .result = result, .place = place, .sender = k_sender, .target = k_receiver};
}

/// As a receiver counts: by whose it is, not by whom it was for.
tally_key received(event what, way by) {
    tally_key one = key(what, by, outcome::whole);
    one.target = 0;
    return one;
}

/// One direct message goes through, one queued, one is refused, and the relay loses another.
soak::observation balanced() {
    soak::observation all;
    all.ids = {k_receiver, k_sender, 127};
    for (const uint16_t id : all.ids) {
        all.nodes[id];
    }
    soak::tally &from = all.nodes[k_sender].counts;
    from.add(key(event::call, way::direct), 3);
    from.add(key(event::refused, way::direct));
    from.add({.what = event::line_seen, .place = static_cast<uint8_t>(soak::log_line::refused)});
    from.add(key(event::handed, way::direct, outcome::none, k_receiver), 2);
    from.add(key(event::call, way::queued));
    from.add(key(event::handed, way::queued, outcome::none, k_receiver));
    all.relay = soak::tally{64};
    all.relay.add(key(event::taken, way::direct, outcome::none, k_receiver), 2);
    all.relay.add(key(event::lost, way::direct, outcome::none, k_receiver));
    all.relay.add(key(event::put, way::direct, outcome::whole, k_receiver));
    all.relay.add(key(event::taken, way::queued, outcome::none, k_receiver));
    all.relay.add(key(event::put, way::queued, outcome::whole, k_receiver));
    soak::tally &to = all.nodes[k_receiver].counts;
    for (const way by : {way::direct, way::queued}) {
        to.add(received(event::read, by));
        to.add(received(event::given, by));
    }
    return all;
}

TEST(SoakAccount, LeavesAloneWhatAddsUp) {
    EXPECT_THAT(soak::unexplained(balanced()), IsEmpty());
}

struct imbalance {
    const char *name;
    std::function<void(soak::observation &)> cause;
    const char *said;
};

void PrintTo(const imbalance &row, std::ostream *out) {
    *out << row.name;
}

class SoakAccountNames : public testing::TestWithParam<imbalance> {};

TEST_P(SoakAccountNames, WhatDoesNotAddUp) {
    soak::observation all = balanced();
    GetParam().cause(all);
    EXPECT_THAT(soak::unexplained(all), Contains(HasSubstr(GetParam().said))) << GetParam().name;
}

soak::tally &sender(soak::observation &all) {
    return all.nodes[k_sender].counts;
}
soak::tally &receiver(soak::observation &all) {
    return all.nodes[k_receiver].counts;
}

INSTANTIATE_TEST_SUITE_P(
    Each, SoakAccountNames,
    testing::ValuesIn(std::vector<imbalance>{
        {"a call that came to nothing", [](auto &all) { sender(all).add(key(event::call, way::direct)); },
         "between the calls of node 3 and the system: 1 unexplained: direct from node 3 to 2"},
        {"sent without a call",
         [](auto &all) {
             sender(all).add(key(event::handed, way::direct, outcome::none, 2));
             all.relay.add(key(event::taken, way::direct, outcome::none, 2));
             all.relay.add(key(event::lost, way::direct, outcome::none, 2));
         },
         "between the calls of node 3 and the system: -1 unexplained"},
        {"a queued message that vanished", [](auto &all) { sender(all).add(key(event::call, way::queued)); },
         "node 3 and the system: 1 missing, of which 0 are known to be dropped; 1 x queued from node 3 to 2"},
        {"a drop that nothing misses",
         [](auto &all) { sender(all).add({.what = event::overstocked, .sender = 3}); },
         "node 3 and the system: 0 missing, of which 1 are known to be dropped"},
        {"stolen before the relay",
         [](auto &all) {
             sender(all).add(key(event::call, way::direct));
             sender(all).add(key(event::handed, way::direct, outcome::none, 2));
         },
         "on the way to the relay's socket for node 2: 1 missing, of which 0 are known to be dropped; 1 x "
         "direct"},
        {"come out of nothing",
         [](auto &all) { all.relay.add(key(event::taken, way::direct, outcome::none, 2)); },
         "on the way to the relay's socket for node 2: 1 more than there can be"},
        {"kept by the relay",
         [](auto &all) { all.relay.add(key(event::doubled, way::direct, outcome::none, 2)); },
         "in the relay, on the way to node 2: 1 unexplained: direct from node 3 to 2"},
        {"lost behind the relay",
         [](auto &all) {
             all.relay.add(key(event::doubled, way::direct, outcome::none, 2));
             all.relay.add(key(event::put, way::direct, outcome::whole, 2));
         },
         "on the way from the relay to node 2: 1 missing, of which 0 are known to be dropped"},
        {"a drop of the system that nothing misses", [](auto &all) { all.drops[9002] = 2; },
         "on the way from the relay to node 2: 0 missing, of which 2 are known to be dropped"},
        {"read and not given",
         [](auto &all) {
             receiver(all).add(received(event::read, way::direct));
             all.relay.add(key(event::doubled, way::direct, outcome::none, 2));
             all.relay.add(key(event::put, way::direct, outcome::whole, 2));
         },
         "in node 2: 1 unexplained between library and application: whole, direct of node 3"},
        {"given twice", [](auto &all) { receiver(all).add(received(event::given, way::direct)); },
         "in node 2: -1 unexplained between library and application"},
        {"a line that was not logged",
         [](auto &all) {
             receiver(all).add(
                 {.what = event::line_due, .place = static_cast<uint8_t>(soak::log_line::wrong_magic)});
         },
         "in the log of node 2: 1 lines too few: wrong magic"},
        {"a line that was not due",
         [](auto &all) {
             receiver(all).add(
                 {.what = event::line_seen, .place = static_cast<uint8_t>(soak::log_line::unexpected)});
         },
         "in the log of node 2: 1 lines too many: unexpected line"},
        {"a wrong state", [](auto &all) { all.nodes[2].wrong = "entry 5 of the node table"; },
         "node 2: entry 5"},
    }));

TEST(SoakAccount, TakesASocketsDropsForAnExplanation) {
    soak::observation all = balanced();
    all.relay.add(key(event::doubled, way::direct, outcome::none, k_receiver));
    all.relay.add(key(event::put, way::direct, outcome::whole, k_receiver));
    all.drops[9000 + k_receiver] = 1;
    EXPECT_THAT(soak::unexplained(all), IsEmpty());
    EXPECT_EQ(soak::balance_of(all)[static_cast<size_t>(way::direct)].kernel, 1);
}

TEST(SoakAccount, TakesAFullQueueForAnExplanation) {
    soak::observation all = balanced();
    sender(all).add(key(event::call, way::queued), 2);
    sender(all).add({.what = event::overstocked, .sender = k_sender}, 2);
    EXPECT_THAT(soak::unexplained(all), IsEmpty());
    EXPECT_EQ(soak::balance_of(all)[static_cast<size_t>(way::queued)].overstocked, 2);
}

TEST(SoakAccount, HoldsTheManagerToItsSummary) {
    soak::observation all = balanced();
    all.relay.add({.what = event::call, .place = 0}, 5);
    all.relay.add({.what = event::put, .result = outcome::refused_by_manager, .place = 0}, 5);
    all.manager = {.received = 5, .sent = 0, .unreadable = 5};
    EXPECT_THAT(soak::unexplained_session(all), IsEmpty());
    all.manager.received = 4;
    all.manager.sent = 1;
    EXPECT_THAT(soak::unexplained_session(all),
                testing::ElementsAre(HasSubstr("datagrams received: 4 instead of 5"),
                                     HasSubstr("messages that came to the relay: 0 instead of 1")));
}

TEST(SoakBalance, ShowsEachWay) {
    const soak::way_balance direct = soak::balance_of(balanced())[static_cast<size_t>(way::direct)];
    EXPECT_EQ(direct.sent, 3);
    EXPECT_EQ(direct.refused, 1);
    EXPECT_EQ(direct.lost, 1);
    EXPECT_EQ(direct.delivered, 1);
    EXPECT_EQ(direct.difference(), 0);
}

soak::memory_reports one_node(const std::function<void(soak::memory_report &)> &change) {
    soak::memory_report report{.heap_watched = true, .resident = 10 << 20, .threads = 4, .descriptors = 13};
    change(report);
    return {{1, report}};
}

TEST(SoakMemory, LeavesAloneWhatIsFlat) {
    const auto before = one_node([](auto &) {});
    EXPECT_THAT(soak::unexplained_memory(before, before, true), IsEmpty());
}

TEST(SoakMemory, ExplainsResidentPagesByPiecesOfKeptCopies) {
    const auto before = one_node([](auto &) {});
    const auto now = one_node([](auto &report) {
        report.pieces = report.pieces_due = 128;
        report.resident += 8 << 20;
    });
    EXPECT_THAT(soak::unexplained_memory(before, now, false), IsEmpty());
}

TEST(SoakMemory, AllowsNoPieceWhereCopiesAreGivenBackAndOneInDoubtWhereTheyAreKept) {
    const auto before = one_node([](auto &) {});
    const auto one = one_node([](auto &report) { report.pieces = 1; });
    const auto two = one_node([](auto &report) { report.pieces = 2; });
    EXPECT_THAT(soak::unexplained_memory(before, one, false), IsEmpty());
    EXPECT_THAT(soak::unexplained_memory(before, one, true), Contains(HasSubstr("pieces of kept copies")));
    EXPECT_THAT(soak::unexplained_memory(before, two, false), Contains(HasSubstr("pieces of kept copies")));
}

struct growth_row {
    int64_t soak::memory_report::*what;
    int64_t by;
    const char *said;
};

void PrintTo(const growth_row &row, std::ostream *out) {
    *out << row.said;
}

class SoakMemoryNames : public testing::TestWithParam<growth_row> {};

TEST_P(SoakMemoryNames, WhatHasGrown) {
    const auto before = one_node([](auto &) {});
    const auto now = one_node([](auto &report) { report.*GetParam().what += GetParam().by; });
    EXPECT_THAT(soak::unexplained_memory(before, now, false),
                testing::ElementsAre(HasSubstr(GetParam().said)));
}

INSTANTIATE_TEST_SUITE_P(
    Each, SoakMemoryNames,
    testing::Values(growth_row{&soak::memory_report::blocks_beyond, 1,
                               "blocks of the library beyond its queues have grown by 1"},
                    growth_row{&soak::memory_report::bytes_beyond, -1,
                               "bytes of the library beyond its queues have grown by -1"},
                    growth_row{&soak::memory_report::other_bytes, 20'000, "bytes of the rest of the process"},
                    growth_row{&soak::memory_report::resident, 2 << 20, "resident bytes"},
                    growth_row{&soak::memory_report::threads, 1, "threads"},
                    growth_row{&soak::memory_report::descriptors, 1, "descriptors"}));

} // namespace
