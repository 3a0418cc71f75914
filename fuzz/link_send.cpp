// The senders of the vision link, on a network that fails as the input says: one datagram at most, header and
// payload byte by byte, and the result that the attempts give.
#include "support/check.h"
#include "support/input.h"
#include "support/outside.h"
#include "vision_protocol.h"

#include <arpa/inet.h>
#include <cerrno>

namespace {

constexpr size_t k_head = 16;
constexpr int k_attempts = 5;
constexpr int k_nothing_sent = -1;

uint16_t number = 0; // of the next datagram, for the life of the process

/// Plans so many failures; gives what the sender must return for a datagram of this size.
int plan(unsigned failures, size_t size) {
    std::deque<fuzz::outside::answer> answers(failures, {EHOSTUNREACH, {}});
    fuzz::outside::plan_sends(answers);
    return failures < k_attempts - 1 ? static_cast<int>(size)
                                     : k_nothing_sent; // the last attempt never counts
}

fuzz::bytes header(size_t payload, uint16_t dst, uint16_t type, uint16_t sequence) {
    fuzz::bytes made = {0x00, 0x56, 0x01, 0xE0};
    made.resize(k_head);
    ut_put_le16(&made[4], static_cast<uint16_t>(k_head + payload));
    ut_put_le16(&made[6], 0x0020);
    ut_put_le16(&made[8], dst);
    ut_put_le16(&made[10], type);
    ut_put_le16(&made[12], sequence);
    return made;
}

void check_sent(bool expected, const char *ip, uint16_t port, const fuzz::bytes &content) {
    const std::vector<fuzz::outside::datagram> sent = fuzz::outside::take_sent();
    fuzz::outside::plan_sends({});
    FUZZ_CHECK(sent.size() == (expected ? 1 : 0));
    if (expected) {
        FUZZ_CHECK(sent[0].ip == ntohl(inet_addr(ip)) && sent[0].port == port);
        FUZZ_CHECK(sent[0].content == content);
    }
}

/// A record with any length and any payload, which nobody has finalized.
void send_any_record(fuzz::input &in, bool to_camera, unsigned failures) {
    fuzz::exact_block block(sizeof(vxlink_message_head_t));
    auto *record = reinterpret_cast<vxlink_message_head_t *>(block.data());
    const uint16_t type = in.u16();
    const uint16_t len = in.u16();
    const fuzz::bytes given = in.take(VXLINK_PAYLOAD_STORAGE);
    std::copy(given.begin(), given.end(), vxlink_payload(record));
    record->len = len;
    const bool refused = len > VXLINK_PAYLOAD_STORAGE;
    const int planned = plan(failures, k_head + len);
    const int result =
        to_camera ? send_general_message_cam(type, record) : send_general_message(type, record);
    if (refused) {
        FUZZ_CHECK(result == -1);
        check_sent(false, "", 0, {});
        return;
    }
    FUZZ_CHECK(result == (to_camera && planned != k_nothing_sent ? 0 : planned));
    const uint16_t dst = to_camera ? 0x0002 : type == 0x0907 ? 0x1800 : 0x1000;
    fuzz::bytes expected = header(len, dst, type, number++);
    const uint8_t *payload = vxlink_payload(record);
    expected.insert(expected.end(), payload, payload + len);
    check_sent(failures < k_attempts, to_camera ? "192.168.1.11" : "192.168.1.5", to_camera ? 5685 : 5673,
               expected);
}

void send_command(fuzz::input &in, unsigned failures) {
    const uint8_t cmd = in.u8();
    const uint16_t length = in.flag() ? in.u16() : in.u8() % 33;
    fuzz::bytes data = in.take(length);
    data.resize(std::min<size_t>(length, 64)); // a longer one is refused before it is looked at
    fuzz::exact_block block(data);
    const int planned = plan(failures, k_head + 32);
    const int result = send_ifly_command_cam(cmd, block.data(), length);
    if (length > 31) {
        FUZZ_CHECK(result == -1);
        check_sent(false, "", 0, {});
        return;
    }
    FUZZ_CHECK(result == (planned == k_nothing_sent ? -1 : 0));
    fuzz::bytes expected = header(32, 0x0002, 0x0900, number++);
    expected.push_back(cmd);
    expected.insert(expected.end(), data.begin(), data.end());
    expected.resize(k_head + 32);
    check_sent(failures < k_attempts, "192.168.1.11", 5685, expected);
}

void send_ack(fuzz::input &in, bool with_status1, unsigned failures) {
    const uint8_t cmd = in.u8();
    const uint8_t status = in.u8();
    const uint32_t status1 = with_status1 ? in.u32() : 0;
    const int planned = plan(failures, k_head + 32);
    const int result =
        with_status1 ? send_ifly_command_ack_rc(cmd, status, status1) : send_ifly_command_ack(cmd, status);
    FUZZ_CHECK(result == planned);
    fuzz::bytes expected = header(32, 0x1000, 0x0901, number++);
    expected.insert(expected.end(), {cmd, status, 0});
    expected.resize(k_head + 32);
    ut_put_le32(&expected[k_head + 3], status1);
    check_sent(failures < k_attempts, "192.168.1.5", 5673, expected);
}

/// Any bytes to any text: what is no address means 0.0.0.0.
void send_raw(fuzz::input &in, unsigned failures) {
    const uint16_t port = in.u16();
    fuzz::exact_block ip(in.text(64));
    fuzz::exact_block block(in.rest());
    in_addr address{};
    if (inet_pton(AF_INET, ip.chars(), &address) != 1) {
        address = {};
    }
    if (block.size() == 0) {
        return; // 0 bytes sent count as a failed attempt, which no plan tells
    }
    const int planned = plan(failures, block.size());
    FUZZ_CHECK(vision_udp_send(block.chars(), static_cast<int>(block.size()), ip.chars(), port) == planned);
    check_sent(failures < k_attempts, inet_ntoa(address), port, block.copy());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const uint8_t what = in.u8();
    const unsigned failures = what >> 3 < 24 ? 0 : (what >> 3) - 24U; // 0 to 7, seldom any
    switch (what & 7) {
    case 0:
    case 1:
        send_any_record(in, (what & 1) != 0, failures);
        break;
    case 2:
    case 3:
        send_command(in, failures);
        break;
    case 4:
    case 5:
        send_ack(in, (what & 1) != 0, failures);
        break;
    default:
        send_raw(in, failures);
    }
    return 0;
}
