// Link frames of any payload, length, address and channel: the image is the reference writer's, byte by byte,
// frames are numbered per channel and destination, and what cannot be framed leaves record and number alone.
#include "link_reference.h"
#include "support/check.h"
#include "support/input.h"

#include <map>
#include <utility>

namespace {

constexpr unsigned k_channels = 16;
constexpr size_t k_longest_payload = 518;
constexpr size_t k_overhead = 10; // header and CRC of a frame image

std::map<std::pair<uint8_t, uint8_t>, uint8_t>
    numbers; // by channel and destination, for the life of the process

struct request {
    uint8_t chan;
    uint8_t dest;
    uint8_t source;
    uint8_t crc_extra;
    uint8_t msgid;
    uint16_t length;
};

request draw(fuzz::input &in) {
    request r{};
    r.chan = in.u8() % (k_channels + 2);
    r.dest = in.u8();
    r.source = in.u8();
    r.crc_extra = in.u8();
    r.msgid = in.u8();
    r.length = in.u16();
    return r;
}

void check_frame(const request &r, const vxlink_message_head_t &record, uint16_t made) {
    const uint8_t seq = numbers[{r.chan, r.dest}]++;
    const uint8_t *payload =
        reinterpret_cast<const uint8_t *>(&record) + offsetof(vxlink_message_head_t, payload64);
    const reference::bytes_t expected =
        reference::frame({payload, payload + r.length}, r.msgid, r.crc_extra, {r.dest, r.source, seq});
    FUZZ_CHECK(made == r.length + k_overhead && made == expected.size());
    FUZZ_CHECK(std::equal(expected.begin(), expected.end(), vxlink_frame_image(&record)));
    FUZZ_CHECK(record.len == r.length && record.crc == ut_get_le16(&expected[expected.size() - 2]));
}

void finalize(fuzz::input &in) {
    const request r = draw(in);
    fuzz::exact_block block(sizeof(vxlink_message_head_t));
    auto *record = reinterpret_cast<vxlink_message_head_t *>(block.data());
    const fuzz::bytes payload = in.take(std::min<size_t>(r.length, VXLINK_PAYLOAD_STORAGE));
    std::copy(payload.begin(), payload.end(), vxlink_payload(record));
    record->msgid = r.msgid;
    const fuzz::bytes before = block.copy();
    const uint16_t made =
        vxlink_finalize_message_chan(record, r.dest, r.source, r.chan, r.length, r.crc_extra);
    if (r.chan >= k_channels || r.length > k_longest_payload) {
        FUZZ_CHECK(made == 0 && block.copy() == before);
    } else {
        check_frame(r, *record, made);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    for (fuzz::input in(data, size); !in.empty();) {
        finalize(in);
    }
    return 0;
}
