// The soak's relay between two nodes and a manager that the test plays: what it does to datagrams and what it
// says that it did are the same.
#include "receiver.h"
#include "relay.h"
#include "traffic.h"
#include "udp_peer.h"
#include "wait.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using soak::event;
using soak::way;
using bytes = std::vector<uint8_t>;

namespace {

constexpr int k_messages = 3000;

bytes message(uint32_t number) {
    bytes datagram(VX_MSG_HEAD_SIZE + 60);
    const vx_msg_head_t head = vx_msg_head_make(MSTP_USER_DATA_PROC_BY_CALLBACK, 60, 2, 3);
    vx_msg_head_store(datagram.data(), &head);
    soak::write_payload(std::span{datagram}.subspan(VX_MSG_HEAD_SIZE), {way::direct, 2, 3, number});
    return datagram;
}

class SoakRelay : public testing::Test {
protected:
    explicit SoakRelay(uint32_t steal = 0) : relay_({.seed = 5, .ids = {2, 3}, .steal = steal}) {}

    uint64_t counted(event what) const {
        uint64_t sum = 0;
        relay_.counts().each(
            [&](const soak::tally_key &key, uint64_t count) { sum += key.what == what ? count : 0; });
        return sum;
    }

    uint64_t put_to(uint8_t place) const {
        uint64_t sum = 0;
        relay_.counts().each([&](const soak::tally_key &key, uint64_t count) {
            sum += key.what == event::put && key.place == place ? count : 0;
        });
        return sum;
    }

    /// Sends from node 2 to node 3, one after the other.
    std::vector<bytes> send_all() {
        std::vector<bytes> arrived;
        for (uint32_t number = 0; number < k_messages; ++number) {
            EXPECT_TRUE(from_.send(message(number), soak::k_relay_ip, soak::k_relay_port_base + 3));
            (void)relay_.service();
            take(arrived);
        }
        relay_.set_hostile(false);
        EXPECT_TRUE(wait_until([&] {
            const bool busy = relay_.service();
            take(arrived);
            return !busy && relay_.waiting() == 0;
        }));
        take(arrived);
        return arrived;
    }

    void take(std::vector<bytes> &arrived) {
        for (auto next = to_.receive(0ms); next; next = to_.receive(0ms)) {
            arrived.push_back(std::move(*next));
        }
    }

    soak::relay &relay() { return relay_; }
    udp_peer &from() { return from_; }
    udp_peer &to() { return to_; }
    udp_peer &manager() { return manager_; }

private:
    soak::relay relay_;
    udp_peer from_{"0.0.0.0", 9002};
    udp_peer to_{"0.0.0.0", 9003};
    udp_peer manager_{soak::k_manager_ip, soak::k_manager_real_port};
};

class SoakRelayThatSteals : public SoakRelay {
protected:
    SoakRelayThatSteals() : SoakRelay(3) {}
};

TEST_F(SoakRelay, PassesEverythingOnWhenNotHostile) {
    const auto arrived = send_all();
    ASSERT_EQ(arrived.size(), static_cast<size_t>(k_messages));
    for (uint32_t number = 0; number < k_messages; ++number) {
        EXPECT_EQ(arrived[number], message(number));
    }
    EXPECT_EQ(counted(event::taken), static_cast<uint64_t>(k_messages));
    EXPECT_EQ(counted(event::put), static_cast<uint64_t>(k_messages));
}

TEST_F(SoakRelay, SaysWhatItDoes) {
    relay().set_hostile(true);
    const auto arrived = send_all();
    EXPECT_EQ(counted(event::taken), static_cast<uint64_t>(k_messages));
    EXPECT_EQ(counted(event::taken) + counted(event::doubled) + counted(event::call),
              counted(event::lost) + counted(event::put));
    EXPECT_EQ(put_to(3), arrived.size());
    for (const event each :
         {event::lost, event::doubled, event::corrupted, event::delayed, event::held_back, event::call}) {
        EXPECT_GT(counted(each), 0U) << static_cast<int>(each);
    }
}

TEST_F(SoakRelay, SaysWhatBecomesOfWhatItCorrupts) {
    relay().set_hostile(true);
    std::map<soak::outcome, uint64_t> judged;
    for (const bytes &one : send_all()) {
        ++judged[soak::judge(one, 3).what];
    }
    std::map<soak::outcome, uint64_t> said;
    relay().counts().each([&said](const soak::tally_key &key, uint64_t count) {
        if (key.what == event::put && key.place == 3) {
            said[key.result] += count;
        }
    });
    EXPECT_EQ(said, judged);
}

TEST_F(SoakRelay, PutsSomeOutOfOrder) {
    relay().set_hostile(true);
    std::optional<uint32_t> last;
    int out_of_order = 0;
    for (const bytes &one : send_all()) {
        const auto note = one.size() > VX_MSG_HEAD_SIZE
                              ? soak::read_payload(std::span{one}.subspan(VX_MSG_HEAD_SIZE))
                              : std::nullopt;
        out_of_order += note && last && note->number < *last ? 1 : 0;
        last = note ? note->number : last;
    }
    EXPECT_GT(out_of_order, 0);
}

TEST_F(SoakRelayThatSteals, DoesNotCountWhatItSteals) {
    relay().set_hostile(true);
    (void)send_all();
    EXPECT_EQ(counted(event::taken), static_cast<uint64_t>(k_messages) - 3);
}

TEST_F(SoakRelay, TellsTheManagerItsOwnPortAndBringsTheAnswerBack) {
    bytes request(VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE);
    const vx_msg_head_t head = vx_msg_head_make(MSTP_NODE_MGR, VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE, 2, 0);
    vx_msg_head_store(request.data(), &head);
    ut_put_le16(&request[18], 1);
    const vexa_node_t own = {"two", "192.168.1.2", 9002, 2, NODE_STAT_ACTIVED};
    vexa_node_store(&request[20], &own);
    ASSERT_TRUE(from().send(request, soak::k_manager_ip, VX_NODE_PORT_BASE));
    ASSERT_TRUE(wait_until([this] { return relay().service(); }));
    const auto told = manager().receive();
    ASSERT_TRUE(told.has_value());
    EXPECT_EQ(vexa_node_load(&(*told)[20]).port, soak::k_relay_port_base + 2);

    const vx_msg_head_t answer_head = vx_msg_head_make(MSTP_NODE_MGR, 0, 0, 2);
    bytes answer(VX_MSG_HEAD_SIZE);
    vx_msg_head_store(answer.data(), &answer_head);
    ASSERT_TRUE(manager().send(answer, soak::k_relay_ip, soak::k_relay_port_base + 2));
    ASSERT_TRUE(wait_until([this] { return relay().service(); }));
    EXPECT_EQ(from().receive(), answer);
}

TEST_F(SoakRelay, KeepsAndCountsWhatIsForTheWitness) {
    ASSERT_TRUE(from().send(message(1), soak::k_relay_ip, soak::k_relay_port_base + soak::k_witness));
    ASSERT_TRUE(wait_until([this] { return relay().service(); }));
    EXPECT_EQ(counted(event::taken), 1U);
    EXPECT_EQ(counted(event::lost), 1U);
    EXPECT_EQ(counted(event::put), 0U);
}

} // namespace
