// The wire format, byte for byte: headers and records against images that were written by hand.
#include "vx_msg_def.h"

#include "node_records.h"
#include "vectors.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using node_records::bytes_of;
using node_records::filled;
using node_records::record;
using bytes = std::vector<uint8_t>;

namespace {

constexpr size_t k_head_size = 16;
constexpr size_t k_record_size = 38;

vx_msg_head_t head(unsigned msg_type, unsigned data_length, unsigned src, unsigned dst) {
    vx_msg_head_t made{};
    made.magic = 0x5E3A;
    made.msg_type = static_cast<uint8_t>(msg_type);
    made.data_length = static_cast<uint16_t>(data_length);
    made.src = static_cast<uint16_t>(src);
    made.dst = static_cast<uint16_t>(dst);
    return made;
}

struct image {
    const char *name;
    size_t size;
    vx_msg_head_t head;
    uint8_t flag;
};

const image k_images[] = {
    {"route_register_node9", 58, head(MSTP_NODE_MGR, 42, NODE_DETECTION_TRACKING, NODE_RESERVED_ZERO), 0},
    {"route_unregister_node5", 74, head(MSTP_NODE_MGR, 58, NODE_SOA, NODE_RESERVED_ZERO), 0},
    {"route_manager_answer", 96, head(MSTP_NODE_MGR, 80, NODE_RESERVED_ZERO, NODE_DETECTION_TRACKING), 0x80},
    {"route_status_node9_to_5", 26, head(MSTP_USER_DATA_OVER_WRITE, 10, 9, NODE_SOA), 0},
    {"route_message_node9_to_3", 21, head(MSTP_USER_DATA_PROC_BY_CALLBACK, 5, 9, NODE_VIO), 0},
    {"route_message_node9_to_app", 21, head(MSTP_USER_DATA_PROC_BY_CALLBACK, 5, 9, NODE_APP), 0},
    {"route_heartbeat_two_pairs", 32, head(MSTP_OPERATION_ON_HB, 16, 9, PROXY_NODE_ID), 0},
    {"route_heartbeat_13_bytes", 29, head(MSTP_OPERATION_ON_HB, 13, 9, PROXY_NODE_ID), 0},
    {"route_node_info_9_to_3", 54, head(MSTP_NODE_MGR, 38, 9, NODE_VIO), 0},
    {"route_broadcast_status_node9", 26, head(MSTP_USER_DATA_OVER_WRITE, 10, 9, VX_MSG_BROADCAST), 0},
    {"route_broadcast_status_node9_at_3", 26, head(MSTP_USER_DATA_OVER_WRITE, 10, 9, NODE_VIO), 0},
    {"route_broadcast_message_node9_at_3", 21, head(MSTP_USER_DATA_PROC_BY_CALLBACK, 5, 9, NODE_VIO), 0},
};

/// The same bytes at an odd address, in a block that ends with them.
class odd {
public:
    explicit odd(const bytes &from) : block_(from.size() + 1) {
        std::copy(from.begin(), from.end(), block_.begin() + 1);
    }
    uint8_t *data() { return block_.data() + 1; }
    [[nodiscard]] bytes copy() const { return {block_.begin() + 1, block_.end()}; }

private:
    bytes block_;
};

bytes part(const bytes &all, size_t from, size_t size) {
    const auto start = all.begin() + static_cast<ptrdiff_t>(from);
    return {start, start + static_cast<ptrdiff_t>(size)};
}

uint8_t flag_byte(const vx_msg_head_t &h) {
    uint8_t byte = 0;
    memcpy(&byte, &h.flag, 1);
    return byte;
}

} // namespace

TEST(MessageImages, AreAsLongAsTheirHeadersSay) {
    for (const image &i : k_images) {
        EXPECT_EQ(vectors::bytes(i.name).size(), i.size) << i.name;
        EXPECT_EQ(i.size, k_head_size + i.head.data_length) << i.name;
    }
}

TEST(MessageHead, IsLoadedFromEveryImage) {
    for (const image &i : k_images) {
        odd datagram(part(vectors::bytes(i.name), 0, k_head_size));
        const vx_msg_head_t loaded = vx_msg_head_load(datagram.data());
        EXPECT_EQ(loaded.magic, 0x5E3A) << i.name;
        EXPECT_EQ(flag_byte(loaded), i.flag) << i.name;
        EXPECT_EQ(loaded.msg_type, i.head.msg_type) << i.name;
        EXPECT_EQ(loaded.data_length, i.head.data_length) << i.name;
        EXPECT_EQ(loaded.src, i.head.src) << i.name;
        EXPECT_EQ(loaded.dst, i.head.dst) << i.name;
        EXPECT_EQ(loaded.sequence, 0) << i.name;
        EXPECT_EQ(loaded.recv_time, 0U) << i.name;
    }
}

TEST(MessageHead, IsStoredAsEveryImage) {
    for (const image &i : k_images) {
        vx_msg_head_t from = i.head;
        memcpy(&from.flag, &i.flag, 1);
        odd datagram(bytes(k_head_size, 0xEE));
        vx_msg_head_store(datagram.data(), &from);
        EXPECT_EQ(datagram.copy(), part(vectors::bytes(i.name), 0, k_head_size)) << i.name;
    }
}

TEST(MessageHead, IsLittleEndianInEveryField) {
    const bytes image = {0x02, 0x01, 0x85, 0x06, 0x04, 0x03, 0x08, 0x07,
                         0x0A, 0x09, 0x0C, 0x0B, 0x10, 0x0F, 0x0E, 0x0D};
    odd datagram(image);
    const vx_msg_head_t loaded = vx_msg_head_load(datagram.data());
    EXPECT_EQ(loaded.magic, 0x0102);
    EXPECT_EQ(loaded.msg_type, 0x06);
    EXPECT_EQ(loaded.data_length, 0x0304);
    EXPECT_EQ(loaded.src, 0x0708);
    EXPECT_EQ(loaded.dst, 0x090A);
    EXPECT_EQ(loaded.sequence, 0x0B0C);
    EXPECT_EQ(loaded.recv_time, 0x0D0E0F10U);
    odd stored(bytes(k_head_size, 0xEE));
    vx_msg_head_store(stored.data(), &loaded);
    EXPECT_EQ(stored.copy(), image);
}

TEST(MessageHead, MayBeStoredOverItself) {
    const image &i = k_images[0];
    vx_msg_head_t own = i.head;
    vx_msg_head_store(reinterpret_cast<uint8_t *>(&own), &own);
    bytes stored(k_head_size);
    memcpy(stored.data(), &own, k_head_size);
    EXPECT_EQ(stored, part(vectors::bytes(i.name), 0, k_head_size));
}

TEST(MessageHead, TellsTheThreePartsOfItsFlagApart) {
    struct {
        uint8_t byte;
        int ack;
        int qos;
        int reserved;
    } const rows[] = {{0x00, 0, 0, 0}, {0x01, 1, 0, 0}, {0x06, 0, 3, 0}, {0x80, 0, 0, 16}, {0xFD, 1, 2, 31}};
    for (const auto &row : rows) {
        bytes image(k_head_size);
        image[2] = row.byte;
        const vx_msg_head_t loaded = vx_msg_head_load(image.data());
        EXPECT_EQ(loaded.flag.ack, row.ack) << int{row.byte};
        EXPECT_EQ(loaded.flag.qos, row.qos) << int{row.byte};
        EXPECT_EQ(loaded.flag.reserved, row.reserved) << int{row.byte};
    }
}

TEST(NodeRecord, IsLoadedFromTheImages) {
    struct {
        const char *name;
        size_t offset;
        vexa_node_t node;
    } const rows[] = {
        {"route_register_node9", 20, record("detection", "192.168.1.9", 9009, 9, 1)},
        {"route_unregister_node5", 20, record("soa", "192.168.1.5", 9005, 5, 1)},
        {"route_manager_answer", 20, record("vio", "192.168.1.3", 9003, 3, 1)},
        {"route_manager_answer", 20 + 38, record("proxy", "192.168.1.127", 9127, 127, 1)},
        {"route_node_info_9_to_3", 16, record("detection", "192.168.1.9", 9009, 9, 1)},
    };
    for (const auto &row : rows) {
        odd image(part(vectors::bytes(row.name), row.offset, k_record_size));
        EXPECT_EQ(bytes_of(vexa_node_load(image.data())), bytes_of(row.node)) << row.name;
        odd stored(bytes(k_record_size, 0xEE));
        vexa_node_store(stored.data(), &row.node);
        EXPECT_EQ(stored.copy(), image.copy()) << row.name;
    }
}

TEST(NodeRecord, TravelsWithAllItsBytes) {
    bytes image(k_record_size);
    for (size_t i = 0; i < image.size(); ++i) {
        image[i] = static_cast<uint8_t>(0x80 + i);
    }
    odd from(image);
    const vexa_node_t node = vexa_node_load(from.data());
    EXPECT_EQ(node.port, 0xA1A0);
    EXPECT_EQ(node.node_id, 0xA3A2);
    EXPECT_EQ(node.stat, 0xA4);
    odd stored{bytes(k_record_size)};
    vexa_node_store(stored.data(), &node);
    EXPECT_EQ(stored.copy(), image) << "the unused byte too";
}

TEST(NodeRecord, LosesTheLastCharacterOfATextThatHasNoEnd) {
    vexa_node_t node = filled('x');
    vexa_node_end_texts(&node);
    EXPECT_EQ(std::string(node.name), std::string(15, 'x'));
    EXPECT_EQ(std::string(node.ip), std::string(15, 'x'));
    vexa_node_t expected = filled('x');
    expected.name[15] = '\0';
    expected.ip[15] = '\0';
    EXPECT_EQ(bytes_of(node), bytes_of(expected)) << "nothing else";
}

TEST(NodeRecord, KeepsTextsThatHaveAnEnd) {
    vexa_node_t node = record("fifteen_letters", "192.168.100.127", 1, 1, 1);
    vexa_node_end_texts(&node);
    EXPECT_STREQ(node.name, "fifteen_letters");
    EXPECT_STREQ(node.ip, "192.168.100.127");
}

TEST(ManagerImages, BeginWithCommandAndCount) {
    struct {
        const char *name;
        unsigned cmd;
        unsigned cnt;
        unsigned word;
    } const rows[] = {{"route_register_node9", MGR_CMD_REGISTER, 1, 0x00010000},
                      {"route_unregister_node5", MGR_CMD_UNREGISTER, 1, 0x00010001},
                      {"route_manager_answer", MGR_CMD_NOTIFY, 2, 0x00020002}};
    for (const auto &row : rows) {
        const bytes datagram = vectors::bytes(row.name);
        EXPECT_EQ(ut_get_le16(&datagram[16]), row.cmd) << row.name;
        EXPECT_EQ(ut_get_le16(&datagram[18]), row.cnt) << row.name;
        EXPECT_EQ(ut_get_le32(&datagram[16]), row.word) << row.name;
    }
}
