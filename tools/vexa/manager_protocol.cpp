// Reading requests and building tables. A length or count in a datagram is compared with what arrived before
// it is used, and the reader stops at the first thing that is wrong.
#include "manager_protocol.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <optional>

namespace vexa {
namespace {

constexpr uint8_t k_accepted_flag = 0x80; // the top bit of the flag byte
constexpr size_t k_record_unused = 37;    // the one byte of a record that carries nothing

struct refusal_words {
    refusal which; // also the row's index
    const char *name;
    const char *explanation;
};

constexpr auto k_refusals = std::to_array<refusal_words>({
    {refusal::too_short, "too_short", "it is shorter than a header"},
    {refusal::wrong_magic, "wrong_magic", "it does not begin with the magic number"},
    {refusal::wrong_kind, "wrong_kind", "it is not a node-manager message"},
    {refusal::not_for_manager, "not_for_manager", "it is addressed to another node"},
    {refusal::cut_short, "cut_short", "it is shorter than it says"},
    {refusal::unknown_command, "unknown_command", "it is neither REGISTER nor UNREGISTER"},
    {refusal::wrong_count, "wrong_count", "it does not carry exactly one record"},
    {refusal::bad_id, "bad_id", "its node id is not 1 to 127"},
    {refusal::foreign_id, "foreign_id", "its sender and its record have different ids"},
    {refusal::unterminated_text, "unterminated_text", "a text in its record does not end"},
    {refusal::bad_address, "bad_address", "its ip is not the IPv4 address of a host"},
    {refusal::bad_port, "bad_port", "its port is 0"},
    {refusal::id_taken, "id_taken", "the id is held by an active node on another machine"},
    {refusal::not_registered, "not_registered", "the node is not registered"},
});
static_assert(k_refusals.size() == static_cast<size_t>(refusal::number_of_refusals));
static_assert(std::ranges::all_of(k_refusals, [](const refusal_words &row) {
    return static_cast<size_t>(row.which) == static_cast<size_t>(&row - k_refusals.data());
}));

const refusal_words &words_of(refusal why) {
    return k_refusals[static_cast<size_t>(why)];
}

/// Zeroes what follows a text's NUL, so that nobody's memory travels on. False when there is no NUL.
template <size_t Size>
bool end_text(char (&text)[Size]) {
    char *const end = std::find(text, text + Size, '\0');
    if (end == text + Size) {
        return false;
    }
    std::fill(end, text + Size, '\0');
    return true;
}

/// An address that other nodes can send to: neither "any", nor a group, nor everybody.
bool is_host(const char *ip) {
    in_addr address{};
    if (inet_pton(AF_INET, ip, &address) != 1) {
        return false;
    }
    const uint32_t number = ntohl(address.s_addr);
    return number != INADDR_ANY && number < 0xE0000000U;
}

std::optional<refusal> wrong_in_header(std::span<const uint8_t> datagram) {
    if (datagram.size() < VX_MSG_HEAD_SIZE) {
        return refusal::too_short;
    }
    const vx_msg_head_t head = vx_msg_head_load(datagram.data());
    if (head.magic != VX_MSG_MAGIC) {
        return refusal::wrong_magic;
    }
    if (head.msg_type != MSTP_NODE_MGR) {
        return refusal::wrong_kind;
    }
    if (head.dst != VX_NODE_MANAGER_ID) {
        return refusal::not_for_manager;
    }
    const size_t arrived = datagram.size() - VX_MSG_HEAD_SIZE;
    return head.data_length > arrived || head.data_length < VX_MGR_HEAD_SIZE
               ? std::optional{refusal::cut_short}
               : std::nullopt;
}

std::optional<refusal> wrong_in_record(vexa_node_t &node, uint16_t sender, mgr_msg_cmd command) {
    if (node.node_id == VX_NODE_MANAGER_ID || node.node_id >= VX_NODE_COUNT) {
        return refusal::bad_id;
    }
    if (node.node_id != sender) {
        return refusal::foreign_id;
    }
    if (command == MGR_CMD_UNREGISTER) {
        return std::nullopt; // its record is what the node was told; only the id matters
    }
    if (!end_text(node.name) || !end_text(node.ip)) {
        return refusal::unterminated_text;
    }
    if (!is_host(node.ip)) {
        return refusal::bad_address;
    }
    return node.port == 0 ? std::optional{refusal::bad_port} : std::nullopt;
}

} // namespace

const char *name_of(refusal why) {
    return words_of(why).name;
}

const char *explanation_of(refusal why) {
    return words_of(why).explanation;
}

std::variant<manager_request, refusal> read_request(std::span<const uint8_t> datagram) {
    if (const auto wrong = wrong_in_header(datagram)) {
        return *wrong;
    }
    const vx_msg_head_t head = vx_msg_head_load(datagram.data());
    const auto payload = datagram.subspan(VX_MSG_HEAD_SIZE, head.data_length);
    const uint16_t command = ut_get_le16(payload.data());
    if (command != MGR_CMD_REGISTER && command != MGR_CMD_UNREGISTER) {
        return refusal::unknown_command;
    }
    if (ut_get_le16(payload.data() + 2) != 1) { // a node speaks for itself only
        return refusal::wrong_count;
    }
    if (payload.size() < VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE) {
        return refusal::cut_short;
    }
    manager_request request{static_cast<mgr_msg_cmd>(command),
                            vexa_node_load(payload.data() + VX_MGR_HEAD_SIZE)};
    if (const auto wrong = wrong_in_record(request.node, head.src, request.command)) {
        return *wrong;
    }
    return request;
}

std::vector<uint8_t> table_message(uint16_t dst, bool accepted, std::span<const vexa_node_t> nodes) {
    const size_t payload_size = VX_MGR_HEAD_SIZE + nodes.size() * VX_NODE_RECORD_SIZE;
    std::vector<uint8_t> bytes(VX_MSG_HEAD_SIZE + payload_size);
    const vx_msg_head_t head =
        vx_msg_head_make(MSTP_NODE_MGR, static_cast<uint16_t>(payload_size), VX_NODE_MANAGER_ID, dst);
    vx_msg_head_store(bytes.data(), &head);
    bytes[offsetof(vx_msg_head_t, flag)] = accepted ? k_accepted_flag : 0;
    uint8_t *at = bytes.data() + VX_MSG_HEAD_SIZE;
    ut_put_le16(at, MGR_CMD_NOTIFY);
    ut_put_le16(at + 2, static_cast<uint16_t>(nodes.size()));
    at += VX_MGR_HEAD_SIZE;
    for (const vexa_node_t &node : nodes) {
        vexa_node_store(at, &node);
        at[k_record_unused] = 0;
        at += VX_NODE_RECORD_SIZE;
    }
    return bytes;
}

std::optional<std::vector<vexa_node_t>> table_in(const udp_datagram &datagram) {
    const std::span<const uint8_t> bytes = datagram.bytes;
    if (bytes.size() < VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE) {
        return std::nullopt;
    }
    const vx_msg_head_t head = vx_msg_head_load(bytes.data());
    const size_t count = ut_get_le16(&bytes[VX_MSG_HEAD_SIZE + 2]);
    const bool from_manager = head.magic == VX_MSG_MAGIC && head.msg_type == MSTP_NODE_MGR &&
                              head.src == VX_NODE_MANAGER_ID; // nodes do not look at the command either
    const size_t whole = VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE + count * VX_NODE_RECORD_SIZE;
    if (!from_manager || datagram.incomplete || bytes.size() < whole) {
        return std::nullopt;
    }
    std::vector<vexa_node_t> nodes;
    for (size_t i = 0; i < count; ++i) {
        vexa_node_t node =
            vexa_node_load(&bytes[VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE + i * VX_NODE_RECORD_SIZE]);
        if (node.node_id >= VX_NODE_COUNT) {
            return std::nullopt;
        }
        vexa_node_end_texts(&node);
        nodes.push_back(node);
    }
    return nodes;
}

} // namespace vexa
