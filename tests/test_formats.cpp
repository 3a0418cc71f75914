// The decoder of the tools on the byte images, and on everything that can be wrong with them.
#include "decoder.h"
#include "show.h"

#include "utils/ut_le.h"
#include "vectors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

using formats::decode;
using formats::decoded;
using formats::node;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using bytes_t = std::vector<uint8_t>;

decoded read(const bytes_t &bytes, uint16_t port) {
    return decode({.bytes = bytes, .wire_size = bytes.size(), .dst_port = port});
}

std::vector<std::string> texts(const decoded &read) {
    std::vector<std::string> all;
    for (const formats::finding &f : read.findings) {
        all.push_back(std::string(name_of(f.how)) + " at " + std::to_string(f.offset) + ": " + f.text);
    }
    return all;
}

void list(const node &n, std::vector<std::string> &lines) {
    if (n.parts.empty() || n.what != nullptr) {
        lines.push_back(key_of(n) + "=" + text_of(n));
    }
    for (const node &part : n.parts) {
        if (n.what == nullptr) {
            list(part, lines);
        }
    }
}

/// Every field but the header's.
std::vector<std::string> payload(const decoded &read) {
    std::vector<std::string> lines;
    for (const node &n : read.fields) {
        if (n.in != &read.wire->head) {
            list(n, lines);
        }
    }
    return lines;
}

} // namespace

TEST(Formats, ReadTheManagersAnswer) {
    const bytes_t bytes = vectors::bytes("route_manager_answer");
    const decoded message = read(bytes, 9009);
    EXPECT_STREQ(message.name(), "notify");
    EXPECT_EQ(message.kin(), formats::family::manager);
    EXPECT_THAT(texts(message), IsEmpty());
    EXPECT_EQ(text_of(*message.find("flag")), "0x80");
    EXPECT_EQ(message.find("flag")->parts[3].raw, 1U);
    EXPECT_EQ(text_of(*message.find("dst")), "NODE_DETECTION_TRACKING (9)");
    EXPECT_THAT(payload(message),
                ElementsAre("vexamsg.mgr.cmd=MGR_CMD_NOTIFY (2)", "vexamsg.mgr.cnt=2",
                            "vexamsg.node.name=vio", "vexamsg.node.ip=192.168.1.3", "vexamsg.node.port=9003",
                            "vexamsg.node.node_id=NODE_VIO (3)", "vexamsg.node.stat=NODE_STAT_ACTIVED (1)",
                            "vexamsg.node.unused=0", "vexamsg.node.name=proxy",
                            "vexamsg.node.ip=192.168.1.127", "vexamsg.node.port=9127",
                            "vexamsg.node.node_id=PROXY_NODE_ID (127)",
                            "vexamsg.node.stat=NODE_STAT_ACTIVED (1)", "vexamsg.node.unused=0"));
}

TEST(Formats, ReadHeartbeatOperationsByName) {
    const bytes_t bytes = vectors::bytes("route_heartbeat_13_bytes");
    const decoded message = read(bytes, 9127);
    EXPECT_STREQ(message.name(), "heartbeat_set");
    EXPECT_THAT(payload(message), ElementsAre("vexamsg.pair.field=VIO_MODE (30)", "vexamsg.pair.value=511",
                                              "vexamsg.surplus=0000000007"));
    EXPECT_THAT(texts(message), ElementsAre("note at 24: 5 bytes follow the last pair, not 0"));
}
