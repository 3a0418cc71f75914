// The soak's parts that know: its messages, its rules of reception, its model of the receive queue, its
// faults.
#include "io_pool.h"
#include "log_line.h"
#include "mishaps.h"
#include "queue_model.h"
#include "receiver.h"
#include "seed.h"
#include "tally.h"
#include "traffic.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <set>

using soak::outcome;
using soak::way;
using bytes = std::vector<uint8_t>;

namespace {

bytes payload_of(const soak::message_note &note, size_t size = 100) {
    bytes payload(size);
    soak::write_payload(payload, note);
    return payload;
}

bytes datagram_of(uint8_t kind, uint16_t src, uint16_t dst, const bytes &payload) {
    bytes datagram(VX_MSG_HEAD_SIZE);
    const vx_msg_head_t head = vx_msg_head_make(kind, static_cast<uint16_t>(payload.size()), src, dst);
    vx_msg_head_store(datagram.data(), &head);
    datagram.insert(datagram.end(), payload.begin(), payload.end());
    return datagram;
}

bytes direct_message() {
    return datagram_of(MSTP_USER_DATA_PROC_BY_CALLBACK, 3, 5, payload_of({way::direct, 3, 5, 77}));
}

bytes status_message() {
    return datagram_of(MSTP_USER_DATA_OVER_WRITE, 3, 5, payload_of({way::status, 3, 5, 77}));
}

bytes heartbeat_message(uint16_t src, uint16_t dst) {
    bytes payload(16);
    const auto pairs = soak::heartbeat_pairs(3, 9);
    for (size_t i = 0; i < pairs.size(); ++i) {
        ut_put_le32(&payload[8 * i], static_cast<uint32_t>(pairs[i].field));
        ut_put_le32(&payload[8 * i + 4], static_cast<uint32_t>(pairs[i].value));
    }
    return datagram_of(MSTP_OPERATION_ON_HB, src, dst, payload);
}

bytes changed(bytes datagram, size_t at, uint8_t value) {
    datagram.at(at) = value;
    return datagram;
}

bytes resized(bytes datagram, size_t size) {
    datagram.resize(size);
    return datagram;
}

struct judged {
    const char *name;
    bytes datagram;
    uint16_t receiver;
    outcome what;
};

void PrintTo(const judged &row, std::ostream *out) {
    *out << row.name;
}

class SoakJudges : public testing::TestWithParam<judged> {};

TEST_P(SoakJudges, Datagrams) {
    EXPECT_EQ(soak::judge(GetParam().datagram, GetParam().receiver).what, GetParam().what) << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(
    Each, SoakJudges,
    testing::ValuesIn(std::vector<judged>{
        {"whole", direct_message(), 5, outcome::whole},
        {"at another node", direct_message(), 6, outcome::damaged_callback},
        {"another sender", changed(direct_message(), 6, 4), 5, outcome::damaged_callback},
        {"longer", resized(direct_message(), 120), 5, outcome::damaged_callback},
        {"a field that nobody reads", changed(direct_message(), 10, 1), 5, outcome::whole},
        {"empty", {}, 5, outcome::too_short},
        {"half a header", resized(direct_message(), 15), 5, outcome::too_short},
        {"magic", changed(direct_message(), 0, 0), 5, outcome::wrong_magic},
        {"destination 200", changed(direct_message(), 8, 200), 5, outcome::wrong_ids},
        {"destination 200 at the proxy", changed(direct_message(), 8, 200), 127, outcome::damaged_callback},
        {"kind 3", changed(direct_message(), 3, 3), 5, outcome::irrelevant_kind},
        {"kind 2", changed(direct_message(), 3, 2), 5, outcome::table},
        {"kind 4", changed(direct_message(), 3, 4), 5, outcome::damaged_heartbeat},
        {"kind 0 of a message", changed(direct_message(), 3, 0), 5, outcome::damaged_status},
        {"status", status_message(), 5, outcome::whole},
        {"status and more behind it", resized(status_message(), 130), 5, outcome::whole},
        {"status cut", resized(status_message(), 100), 5, outcome::status_cut_short},
        {"status of node 200", datagram_of(0, 200, 0xFF00, payload_of({way::status, 3, 5, 1})), 5,
         outcome::status_foreign},
        {"heartbeat at the proxy", heartbeat_message(3, 127), 127, outcome::whole},
        {"heartbeat at a node", heartbeat_message(127, 5), 5, outcome::whole},
        {"heartbeat, another value", changed(heartbeat_message(3, 127), 20, 255), 127,
         outcome::damaged_heartbeat},
    }));

TEST(SoakPayload, SaysWhoseItIs) {
    const auto note = soak::read_payload(payload_of({way::queued, 12, 7, 123456}));
    ASSERT_TRUE(note.has_value());
    EXPECT_EQ(note->by, way::queued);
    EXPECT_EQ(note->sender, 12);
    EXPECT_EQ(note->target, 7);
    EXPECT_EQ(note->number, 123456U);
}

TEST(SoakPayload, IsNotReadWhenAnyOneByteDiffers) {
    const bytes whole = payload_of({way::direct, 1, 2, 3}, 64);
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const int flip : {0x01, 0x80, 0xFF}) {
            EXPECT_FALSE(
                soak::read_payload(changed(whole, at, static_cast<uint8_t>(whole[at] ^ flip))).has_value())
                << at;
        }
    }
}

TEST(SoakPayload, IsNotReadWhenItIsCut) {
    const bytes whole = payload_of({way::direct, 1, 2, 3}, 64);
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(soak::read_payload(resized(whole, size)).has_value()) << size;
    }
}

TEST(SoakHeartbeat, MarkerNamesItsSenderAndNoFieldThatExists) {
    for (uint16_t sender = 1; sender < 128; ++sender) {
        const int32_t marker = soak::heartbeat_pairs(sender, 40'000U + sender)[1].field;
        EXPECT_EQ(soak::heartbeat_sender(marker), sender);
        EXPECT_GT(marker, 72);
    }
    EXPECT_FALSE(soak::heartbeat_sender(73).has_value());
    EXPECT_FALSE(soak::heartbeat_sender(-1).has_value());
}

TEST(SoakLog, KnowsALineByItsFormat) {
    EXPECT_EQ(soak::log_line_of("mgic check error\n", true), soak::log_line::wrong_magic);
    EXPECT_EQ(soak::log_line_of("never heard of\n", true), soak::log_line::unexpected);
    EXPECT_EQ(soak::log_line_of("never heard of\n", false), soak::log_line::number_of_lines);
    EXPECT_EQ(soak::log_line_of("", true), soak::log_line::unexpected);
}

TEST(SoakTally, CountsByKey) {
    soak::tally counts{4};
    counts.add({.what = soak::event::lost, .sender = 1});
    counts.add({.what = soak::event::lost, .sender = 1}, 2);
    counts.add({.what = soak::event::lost, .sender = 2});
    EXPECT_EQ(counts.get({.what = soak::event::lost, .sender = 1}), 3U);
    EXPECT_EQ(counts.get({.what = soak::event::lost, .sender = 3}), 0U);
    uint64_t sum = 0;
    counts.each([&sum](const soak::tally_key &, uint64_t count) { sum += count; });
    EXPECT_EQ(sum, 4U);
}

TEST(SoakTally, WouldRatherEndThanForget) {
    soak::tally counts{2};
    counts.add({.sender = 1});
    counts.add({.sender = 2});
    EXPECT_THROW(counts.add({.sender = 3}), std::length_error);
}

TEST(SoakFaults, AlwaysChangeTheDatagram) {
    const bytes whole = direct_message();
    for (uint64_t dice = 0; dice < 20'000; ++dice) {
        bytes damaged = whole;
        soak::corrupt(damaged, dice);
        EXPECT_NE(damaged, whole) << dice;
    }
    bytes nothing;
    soak::corrupt(nothing, 1);
    EXPECT_FALSE(nothing.empty());
}

TEST(SoakFaults, LeadToEveryOutcome) {
    std::set<outcome> seen;
    for (uint64_t dice = 0; dice < 20'000; ++dice) {
        bytes damaged = status_message();
        soak::corrupt(damaged, dice);
        seen.insert(soak::judge(damaged, 5).what);
    }
    for (const outcome each :
         {outcome::whole, outcome::damaged_callback, outcome::damaged_status, outcome::damaged_heartbeat,
          outcome::table, outcome::too_short, outcome::wrong_magic, outcome::wrong_ids,
          outcome::irrelevant_kind, outcome::status_cut_short}) {
        EXPECT_TRUE(seen.contains(each)) << static_cast<int>(each);
    }
}

TEST(SoakFaults, ComeAsOftenAsTheyShould) {
    constexpr int k_datagrams = 200'000;
    int lost = 0;
    int delayed = 0;
    for (uint64_t ordinal = 0; ordinal < k_datagrams; ++ordinal) {
        const soak::fate its =
            soak::fate_of(1, {.by = way::direct, .sender = 3, .target = 5}, ordinal, soak::k_hostile);
        lost += its.what == soak::mishap::lose ? 1 : 0;
        delayed += its.delay.count() > 0 ? 1 : 0;
    }
    EXPECT_NEAR(lost, soak::k_hostile.lose * k_datagrams, 400);
    EXPECT_NEAR(delayed, soak::k_hostile.delay * k_datagrams, 600);
}

TEST(SoakFaults, DependOnSeedStreamAndPlaceAlone) {
    const soak::tally_key stream = {.by = way::direct, .sender = 3, .target = 5};
    EXPECT_EQ(soak::fate_of(1, stream, 8, soak::k_hostile).dice,
              soak::fate_of(1, stream, 8, soak::k_hostile).dice);
    EXPECT_NE(soak::fate_of(1, stream, 8, soak::k_hostile).dice,
              soak::fate_of(2, stream, 8, soak::k_hostile).dice);
    EXPECT_NE(soak::fate_of(1, stream, 8, soak::k_hostile).dice,
              soak::fate_of(1, stream, 9, soak::k_hostile).dice);
}

bool same_key(const void *a, const void *b) {
    return memcmp(a, b, sizeof(uint16_t)) == 0;
}

/// Puts the same statuses into the library's receive queue and into the model, and compares what is found.
void compare_with_library(uint64_t seed, unsigned keys, int puts) {
    std::mt19937_64 dice{seed};
    soak::queue_model model;
    ASSERT_EQ(io_pool_init(same_key), 0);
    for (int i = 0; i < puts; ++i) {
        bytes payload(2 + dice() % 60);
        std::ranges::generate(payload, [&dice] { return static_cast<uint8_t>(dice()); });
        ut_put_le16(payload.data(), static_cast<uint16_t>(dice() % keys));
        bytes message = datagram_of(MSTP_USER_DATA_OVER_WRITE, 3, 5, payload);
        (void)model.put(soak::status_in(message));
        alignas(vx_msg_head_t) std::array<uint8_t, 128> aligned{};
        const vx_msg_head_t head = vx_msg_head_load(message.data());
        memcpy(aligned.data(), message.data(), message.size());
        memcpy(aligned.data(), &head, sizeof head);
        ASSERT_EQ(io_pool_rx_put(reinterpret_cast<const vx_msg_head_t *>(aligned.data())), 0);
    }
    std::set<uint16_t> compared;
    for (const auto &entry : model.entries()) {
        if (!compared.insert(entry.kept.key).second) {
            continue;
        }
        std::array<char, VX_MSG_MAX_PAYLOAD> found{};
        int len = 0;
        vx_msg_head_t head{};
        (void)io_pool_rx_get(&entry.kept.key, found.data(), &len, &head);
        ASSERT_EQ(len, entry.kept.length) << "key " << entry.kept.key;
        EXPECT_EQ(soak::check_of({reinterpret_cast<const uint8_t *>(found.data()), static_cast<size_t>(len)}),
                  entry.kept.check);
    }
    io_pool_deinit();
}

TEST(SoakQueueModel, AgreesWithTheLibraryOnFewKeys) {
    compare_with_library(test_seed(), 20, 2000);
}

TEST(SoakQueueModel, AgreesWithTheLibraryWhenItIsFull) {
    compare_with_library(test_seed(), 3000, 6000);
}

TEST(SoakQueueModel, CountsACopyForEachAppendAndNoneForAnOverwrite) {
    soak::queue_model model;
    EXPECT_EQ(model.put({1, 20, 0}), soak::put_result::first_of_its_key);
    EXPECT_EQ(model.put({1, 10, 0}), soak::put_result::overwritten);
    EXPECT_EQ(model.put({1, 20, 0}), soak::put_result::grown);
    EXPECT_EQ(model.put({2, 0, 0}), soak::put_result::first_of_its_key);
    EXPECT_EQ(model.made().blocks, 3U);
    EXPECT_EQ(model.made().bytes, 36U + 36U + 18U);
    EXPECT_EQ(model.held().blocks, 2U);
    EXPECT_EQ(model.held().bytes, 36U + 18U);
}

TEST(SoakPieceModel, BeginsANewPieceForWhatDoesNotFit) {
    soak::piece_model model;
    EXPECT_EQ(model.pieces(), 0U);
    for (int i = 0; i < 7; ++i) {
        model.take(8200); // 8208 with what alignment adds
    }
    EXPECT_EQ(model.pieces(), 1U);
    model.take(65536 - 16 - 7 * 8208);
    EXPECT_EQ(model.pieces(), 1U);
    model.take(1);
    EXPECT_EQ(model.pieces(), 2U);
}

} // namespace
