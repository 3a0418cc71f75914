// A node's knowledge of itself. See node_record.h.
//
// The library calls its log with its own locks held, so nothing here calls the library while it holds the
// lock of this unit.
#include "node_record.h"

#include "node_mapping.h"
#include "receiver.h"
#include "status_watch.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>

namespace soak {
namespace {

constexpr size_t k_counts = 4096;
constexpr size_t k_long_message = 4096; // [bytes] with header; longer ones are remarked upon
constexpr uint32_t k_last_field = 72;

struct last_broadcast {
    way by = way::none;
    uint32_t number = 0;
};

uint16_t self = 0;         // these two are written before the node starts
std::vector<uint16_t> bus; // the ids of all nodes, in order
std::mutex lock;           // guards what follows
tally counts{k_counts};    // NOLINT(cert-err58-cpp): without memory at its start the program may end
queue_model rx_queue;
copies tx_copies;
piece_model pieces;                             // of both queues
std::array<vexa_node_t, VX_NODE_COUNT> table{}; // as it must be
bool own_entry_known = false;
last_broadcast broadcast_begun;
std::map<uint16_t, status_watch> statuses; // by key; the map itself does not change
std::string wrong;                         // the first thing that was not as it must be
thread_local bool own_heartbeat = false;

bool is_member(int id) {
    return id != 0 && std::ranges::binary_search(bus, id);
}

bool has_relay_socket(int id) {
    return id == k_witness || is_member(id);
}

void note_wrong(const std::string &what) {
    if (wrong.empty()) {
        wrong = what;
    }
}

void line_due(log_line line, uint16_t sender = 0) {
    counts.add({.what = event::line_due, .place = static_cast<uint8_t>(line), .sender = sender});
}

/// The bus's sockets: those of the relay, the manager's and each node's own.
std::optional<uint8_t> place_of(const sockaddr_in &to) {
    const uint32_t ip = ntohl(to.sin_addr.s_addr);
    const int port = ntohs(to.sin_port);
    in_addr relay{};
    in_addr manager{};
    (void)inet_pton(AF_INET, k_relay_ip, &relay);
    (void)inet_pton(AF_INET, k_manager_ip, &manager);
    if (to.sin_addr.s_addr == relay.s_addr && has_relay_socket(port - k_relay_port_base)) {
        return static_cast<uint8_t>(port - k_relay_port_base);
    }
    if (to.sin_addr.s_addr == manager.s_addr && port == VX_NODE_PORT_BASE) {
        return uint8_t{0};
    }
    if (to.sin_addr.s_addr == manager.s_addr && port == k_manager_real_port) {
        return k_place_beyond_relay;
    }
    const bool local = ip >> 8 == ntohl(relay.s_addr) >> 8 || ip >> 24 == 127 || ip == INADDR_ANY;
    if (local && is_member(port - VX_NODE_PORT_BASE)) {
        return static_cast<uint8_t>(k_place_beyond_relay + port - VX_NODE_PORT_BASE);
    }
    return std::nullopt;
}

/// The nodes of the bus that a broadcast of `sender` ought to reach and that are not active here. Only the
/// I/O thread changes that, so on it the answer holds until the broadcast is done.
std::vector<uint16_t> inactive_below(uint16_t sender) {
    std::vector<uint16_t> ids;
    for (const uint16_t id : bus) {
        if (id < sender && nmapping_get_stat(id) != NODE_STAT_ACTIVED) {
            ids.push_back(id);
        }
    }
    return ids;
}

void count_inactive(way by, const std::vector<uint16_t> &ids) {
    for (const uint16_t id : ids) {
        counts.add({.what = event::inactive, .by = by, .sender = self, .target = id});
    }
}

/// Whether this is the first datagram of a broadcast.
bool begins_broadcast(way by, std::span<const uint8_t> datagram) {
    const auto note = is_broadcast(by) ? read_payload(datagram.subspan(VX_MSG_HEAD_SIZE)) : std::nullopt;
    if (!note || (broadcast_begun.by == by && broadcast_begun.number == note->number)) {
        return false;
    }
    broadcast_begun = {by, note->number};
    return true;
}

/// Whether the library remarks upon the copy of such a message.
bool is_long(size_t payload_bytes) {
    return VX_MSG_HEAD_SIZE + payload_bytes > k_long_message;
}

void learn_own_entry(std::span<const uint8_t> datagram) {
    constexpr size_t record = VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE;
    if (!own_entry_known && datagram.size() >= record + VX_NODE_RECORD_SIZE) {
        table.at(self) = vexa_node_load(&datagram[record]);
        own_entry_known = true;
    }
}

void expect_status(std::span<const uint8_t> datagram, const verdict &what) {
    const kept_status kept = status_in(datagram);
    const put_result put = rx_queue.put(kept);
    if (put != put_result::overwritten) {
        pieces.take(queue_model::copy_size(kept.length));
    }
    if (put == put_result::grown || put == put_result::overstocked) {
        line_due(put == put_result::grown ? log_line::grown : log_line::rx_overstocked);
    }
    if (put != put_result::overwritten && is_long(kept.length)) {
        line_due(log_line::too_long);
    }
    const auto watched = statuses.find(kept.key);
    if (watched == statuses.end()) {
        counts.add({.what = event::unpolled, .by = what.by, .result = what.what, .sender = what.sender});
    } else if (!watched->second.arrived({kept.check, what})) {
        note_wrong("a status was not polled for so long that its arrivals are forgotten");
    }
}

void expect_table(std::span<const uint8_t> datagram) {
    if ((datagram[offsetof(vx_msg_head_t, flag)] & 0x80U) != 0) {
        table[VX_NODE_MANAGER_ID].stat = NODE_STAT_ACTIVED;
    }
    const std::span<const uint8_t> records = records_in(datagram);
    for (size_t at = 0; at < records.size(); at += VX_NODE_RECORD_SIZE) {
        const vexa_node_t node = vexa_node_load(&records[at]);
        if (node.node_id < VX_NODE_COUNT) {
            table.at(node.node_id) = node;
        } else {
            line_due(log_line::record_skipped);
        }
    }
}

void expect_heartbeat(std::span<const uint8_t> datagram) {
    const std::span<const uint8_t> pairs = pairs_in(datagram);
    for (size_t at = 0; at < pairs.size(); at += VX_HB_PAIR_SIZE) {
        const uint32_t field = ut_get_le32(&pairs[at]);
        if (field > k_last_field) {
            const auto sender = heartbeat_sender(static_cast<int32_t>(field));
            line_due(sender ? log_line::field_unknown : log_line::field_senseless, sender.value_or(0));
        }
    }
}

bool is_heartbeat(std::span<const uint8_t> datagram, const verdict &what) {
    return what.what == outcome::damaged_heartbeat ||
           (what.what == outcome::whole && datagram[3] == MSTP_OPERATION_ON_HB);
}

/// The line that comes with a datagram that is dropped.
std::optional<log_line> line_of_drop(outcome what) {
    switch (what) {
    case outcome::too_short:
        return log_line::too_short;
    case outcome::wrong_magic:
        return log_line::wrong_magic;
    case outcome::wrong_ids:
        return log_line::wrong_ids;
    case outcome::irrelevant_kind:
        return log_line::irrelevant_kind;
    case outcome::status_cut_short:
        return log_line::status_cut_short;
    case outcome::status_foreign:
        return log_line::status_foreign;
    default:
        return std::nullopt;
    }
}

void expect(std::span<const uint8_t> datagram, const verdict &what) {
    if (const auto line = line_of_drop(what.what)) {
        line_due(*line);
    } else if (what.what == outcome::table) {
        expect_table(datagram);
    } else if (is_heartbeat(datagram, what)) {
        expect_heartbeat(datagram);
    } else if (datagram[3] == MSTP_USER_DATA_OVER_WRITE) {
        expect_status(datagram, what);
    }
}

tally_key key_of(event what, const verdict &it) {
    return {.what = what, .by = it.by, .result = it.what, .sender = it.sender};
}

void poll_one(uint16_t key, status_watch &watched) {
    static std::array<uint8_t, VX_MSG_MAX_PAYLOAD> payload;
    MsgExtra extra{};
    const int size = vision_recv_status(static_cast<MsgType>(key), payload.data(),
                                        static_cast<int>(payload.size()), &extra);
    if (size <= 0) {
        return;
    }
    const auto skip = [](const status_watch::arrival &one) {
        counts.add(key_of(event::overwritten, one.what));
    };
    const uint64_t check = check_of(std::span{payload}.first(static_cast<size_t>(size)));
    const std::lock_guard hold{lock};
    std::optional<status_watch::arrival> found;
    if (!watched.seen(check, extra.recv_time, skip, found)) {
        note_wrong("a poll has brought what never arrived");
    }
    if (found) {
        counts.add(key_of(event::given, found->what));
    }
}

bool same_entry(const vexa_node_t &a, const vexa_node_t &b) {
    return std::ranges::equal(a.name, b.name) && std::ranges::equal(a.ip, b.ip) && a.port == b.port &&
           a.node_id == b.node_id && a.stat == b.stat;
}

void preset_table() {
    for (uint16_t id = 0; id < VX_NODE_COUNT; ++id) {
        table.at(id) = {};
        table.at(id).node_id = id;
    }
    table[VX_NODE_MANAGER_ID] = {"mgr_server", "192.168.1.1", VX_NODE_PORT_BASE, VX_NODE_MANAGER_ID,
                                 NODE_STAT_INACTIVED};
    table[k_witness] = witness_entry();
}

std::string check_table() {
    for (uint16_t id = 0; id < VX_NODE_COUNT; ++id) {
        vexa_node_t node{};
        (void)nmapping_get(id, &node);
        const std::lock_guard hold{lock};
        if (!same_entry(node, table.at(id))) {
            return "entry " + std::to_string(id) +
                   " of the node table is not what the manager's messages say";
        }
    }
    return {};
}

/// Every key's first entry, which is the one that a poll must find.
std::map<uint16_t, kept_status> expected_statuses() {
    const std::lock_guard hold{lock};
    std::map<uint16_t, kept_status> expected;
    for (const queue_model::entry &one : rx_queue.entries()) {
        expected.emplace(one.kept.key, one.kept);
    }
    return expected;
}

std::string check_queue() {
    std::array<uint8_t, VX_MSG_MAX_PAYLOAD> payload{};
    for (const auto &[key, kept] : expected_statuses()) {
        MsgExtra extra{};
        const int size = vision_recv_status(static_cast<MsgType>(key), payload.data(),
                                            static_cast<int>(payload.size()), &extra);
        if (size != kept.length || check_of(std::span{payload}.first(kept.length)) != kept.check) {
            return "the status of key " + std::to_string(key) + " is not the newest";
        }
    }
    return {};
}

} // namespace

void record_start(uint16_t own_id, const std::vector<uint16_t> &ids) {
    self = own_id;
    bus = ids;
    std::ranges::sort(bus);
    preset_table();
    for (const uint16_t id : bus) {
        (void)statuses[status_key(way::status, id)];
        (void)statuses[status_key(way::status_broadcast, id)];
    }
}

vexa_node_t witness_entry() {
    vexa_node_t node = {"witness", "", k_relay_port_base + k_witness, k_witness, NODE_STAT_ACTIVED};
    std::ranges::copy(k_relay_ip, node.ip);
    return node;
}

void record_call(way by, uint16_t target, size_t size, bool accepted) {
    const std::lock_guard hold{lock};
    for (const uint16_t id : bus) {
        if (is_broadcast(by) ? id < self : id == std::min<uint16_t>(target, PROXY_NODE_ID)) {
            const uint16_t to = is_broadcast(by) ? id : target;
            counts.add({.what = event::call, .by = by, .sender = self, .target = to});
            counts.add({.what = event::refused, .by = by, .sender = self, .target = to}, accepted ? 0 : 1);
        }
    }
    if (accepted && (is_queued(by) || is_broadcast(by))) {
        tx_copies.add(queue_model::copy_size(size));
        pieces.take(queue_model::copy_size(size));
        if (is_long(size)) {
            line_due(log_line::too_long);
        }
    }
}

void record_own_heartbeat(bool begins) {
    own_heartbeat = begins;
}

void record_sent(std::span<const uint8_t> datagram, const sockaddr_in &to, bool taken) {
    tally_key key = stream_of(datagram);
    const auto inactive = is_broadcast(key.by) ? inactive_below(self) : std::vector<uint16_t>{};
    const auto place = place_of(to);
    const std::lock_guard hold{lock};
    if (key.by == way::registration) {
        learn_own_entry(datagram);
    }
    if (begins_broadcast(key.by, datagram)) {
        count_inactive(key.by, inactive);
    }
    key.what = !taken ? event::failed : place ? event::handed : event::astray;
    key.place = taken ? place.value_or(0) : 0;
    if (key.place > k_place_beyond_relay) {
        key.result = judge(datagram, static_cast<uint16_t>(key.place - k_place_beyond_relay)).what;
    }
    counts.add(key);
}

void record_read(std::span<const uint8_t> datagram) {
    const verdict what = judge(datagram, self);
    const bool sent_on = self == PROXY_NODE_ID && is_heartbeat(datagram, what);
    const auto inactive = sent_on ? inactive_below(PROXY_NODE_ID) : std::vector<uint16_t>{};
    const std::lock_guard hold{lock};
    counts.add(key_of(event::read, what));
    count_inactive(way::heartbeat_on, inactive);
    expect(datagram, what);
}

void record_callback(std::span<const uint8_t> payload, uint16_t src, uint16_t dst) {
    const verdict what = judge_given(payload, MSTP_USER_DATA_PROC_BY_CALLBACK, src, dst, self);
    const std::lock_guard hold{lock};
    counts.add(key_of(event::given, what));
}

void record_line(log_line line, int value) {
    if (line == log_line::field_unknown && own_heartbeat) {
        return;
    }
    const std::lock_guard hold{lock};
    uint16_t sender = 0;
    if (line == log_line::field_unknown) {
        const auto whose = heartbeat_sender(value);
        line = whose ? line : log_line::field_senseless;
        sender = whose.value_or(0);
    }
    if (line == log_line::inactive) {
        const bool by_proxy = value == PROXY_NODE_ID;
        counts.add({.what = event::inactive,
                    .by = value == VX_NODE_MANAGER_ID ? way::registration
                          : by_proxy                  ? way::app_queued
                                                      : way::queued,
                    .sender = self,
                    .target = by_proxy ? static_cast<uint16_t>(NODE_APP) : static_cast<uint16_t>(value)});
    }
    if (line == log_line::tx_overstocked) {
        counts.add({.what = event::overstocked, .sender = self});
    }
    counts.add({.what = event::line_seen, .place = static_cast<uint8_t>(line), .sender = sender});
}

void record_poll() {
    for (auto &[key, watched] : statuses) {
        poll_one(key, watched);
    }
}

std::string record_check_state() {
    record_poll();
    {
        const std::lock_guard hold{lock};
        for (auto &[key, watched] : statuses) {
            watched.settle(
                [](const status_watch::arrival &one) { counts.add(key_of(event::overwritten, one.what)); });
        }
        if (!wrong.empty()) {
            return wrong;
        }
    }
    const std::string in_table = check_table();
    return in_table.empty() ? check_queue() : in_table;
}

bool record_table_whole() {
    return std::ranges::all_of(bus, [](uint16_t id) {
        vexa_node_t node{};
        (void)nmapping_get(id, &node);
        vexa_node_end_texts(&node);
        return node.stat == NODE_STAT_ACTIVED && node.ip == std::string_view{k_relay_ip} &&
               node.port == k_relay_port_base + id;
    });
}

queue_use record_queues() {
    const std::lock_guard hold{lock};
    copies made = rx_queue.made();
    made.blocks += tx_copies.blocks;
    made.bytes += tx_copies.bytes;
    return {made, rx_queue.held(), pieces.pieces()};
}

tally record_counts() {
    const std::lock_guard hold{lock};
    return counts;
}

} // namespace soak
