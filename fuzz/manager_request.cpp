// The node manager's reader on any bytes: what it takes for a request is one, record by record as it arrived;
// what it refuses it can name. The table that it would send is read back byte by byte.
#include "manager_protocol.h"
#include "support/check.h"
#include "support/input.h"

#include <arpa/inet.h>

namespace {

constexpr size_t k_record_at = VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE;

template <size_t Size>
void check_text(const char (&text)[Size], const uint8_t *arrived) {
    const size_t len = strnlen(text, Size);
    FUZZ_CHECK(len < Size && memcmp(text, arrived, len + 1) == 0);
    for (size_t i = len; i < Size; ++i) {
        FUZZ_CHECK(text[i] == '\0'); // nobody's memory travels on
    }
}

void check_register(const vexa_node_t &node, const uint8_t *arrived) {
    check_text(node.name, arrived);
    check_text(node.ip, arrived + 16);
    in_addr address{};
    FUZZ_CHECK(inet_pton(AF_INET, node.ip, &address) == 1);
    FUZZ_CHECK(address.s_addr != 0 && ntohl(address.s_addr) >> 28 < 0xE);
    FUZZ_CHECK(node.port != 0 && node.port == ut_get_le16(arrived + 32));
}

void check_request(const vexa::manager_request &request, const fuzz::bytes &datagram) {
    FUZZ_CHECK(datagram.size() >= k_record_at + VX_NODE_RECORD_SIZE);
    FUZZ_CHECK(datagram[0] == 0x3A && datagram[1] == 0x5E && datagram[3] == 2);
    const unsigned length = ut_get_le16(&datagram[4]);
    FUZZ_CHECK(length >= VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE &&
               length <= datagram.size() - VX_MSG_HEAD_SIZE);
    const unsigned id = request.node.node_id;
    FUZZ_CHECK(id >= 1 && id <= 127 && id == ut_get_le16(&datagram[6]) && ut_get_le16(&datagram[8]) == 0);
    FUZZ_CHECK(id == ut_get_le16(&datagram[k_record_at + 34]));
    FUZZ_CHECK(ut_get_le16(&datagram[16]) == request.command && ut_get_le16(&datagram[18]) == 1);
    if (request.command == MGR_CMD_REGISTER) {
        check_register(request.node, &datagram[k_record_at]);
    } else {
        FUZZ_CHECK(request.command == MGR_CMD_UNREGISTER);
    }
}

/// The input as a table: as many records as it fills.
void check_table(const fuzz::bytes &raw) {
    std::vector<vexa_node_t> nodes;
    for (size_t at = 0; at + VX_NODE_RECORD_SIZE <= raw.size() && nodes.size() < 127;
         at += VX_NODE_RECORD_SIZE) {
        nodes.push_back(vexa_node_load(&raw[at]));
    }
    const fuzz::bytes message = vexa::table_message(7, nodes.size() % 2 != 0, nodes);
    FUZZ_CHECK(message.size() == k_record_at + nodes.size() * VX_NODE_RECORD_SIZE);
    FUZZ_CHECK(ut_get_le16(&message[4]) == message.size() - VX_MSG_HEAD_SIZE);
    FUZZ_CHECK(message[2] == (nodes.size() % 2 != 0 ? 0x80 : 0) && message[3] == 2);
    FUZZ_CHECK(ut_get_le16(&message[18]) == nodes.size());
    for (size_t i = 0; i < nodes.size(); ++i) {
        const uint8_t *record = &message[k_record_at + i * VX_NODE_RECORD_SIZE];
        FUZZ_CHECK(memcmp(record, &raw[i * VX_NODE_RECORD_SIZE], VX_NODE_RECORD_SIZE - 1) == 0);
        FUZZ_CHECK(record[VX_NODE_RECORD_SIZE - 1] == 0);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const fuzz::bytes raw = fuzz::input(data, size).rest();
    const fuzz::exact_block datagram(raw);
    const auto read = vexa::read_request({datagram.data(), datagram.size()});
    if (const auto *request = std::get_if<vexa::manager_request>(&read)) {
        check_request(*request, raw);
    } else {
        const auto why = std::get<vexa::refusal>(read);
        FUZZ_CHECK(*vexa::name_of(why) != '\0' && *vexa::explanation_of(why) != '\0');
    }
    check_table(raw);
    return 0;
}
