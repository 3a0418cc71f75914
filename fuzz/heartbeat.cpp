// Heartbeat pairs, from the wire and from a program: the frame is that of the model after every batch, and a
// line is logged for exactly those values that differ from the last one logged for their field.
#include "hb_mgr.h"
#include "hb_rows.h"
#include "support/check.h"
#include "support/input.h"
#include "support/log.h"

#include <map>

namespace {

std::map<int, int> last_logged; // as raw values; the node keeps this for the life of its process

size_t expected_line(int field, int value) {
    if (static_cast<uint32_t>(field) >= std::size(hb_rows::all)) {
        return 1;
    }
    const auto [seen, first] = last_logged.try_emplace(field, value);
    if (!first && seen->second == value) {
        return 0;
    }
    seen->second = value;
    return 1;
}

hb_rows::frame_bytes current_frame() {
    fuzz::exact_block frame(sizeof(VPHeartbeatFrame));
    FUZZ_CHECK(hbmgr_get_hb(reinterpret_cast<VPHeartbeatFrame *>(frame.data())) == 0);
    hb_rows::frame_bytes copy;
    memcpy(copy.data(), frame.data(), copy.size());
    return copy;
}

void apply_from_program(const fuzz::bytes &pairs, int count) {
    const size_t whole = pairs.size() / sizeof(HeartBeatPair);
    fuzz::exact_block block(whole * sizeof(HeartBeatPair));
    auto *records = reinterpret_cast<HeartBeatPair *>(block.data());
    for (size_t i = 0; i < whole; ++i) {
        records[i].field = static_cast<HeartBeatField>(static_cast<int>(ut_get_le32(&pairs[8 * i])));
        records[i].value = static_cast<int>(ut_get_le32(&pairs[8 * i + 4]));
    }
    FUZZ_CHECK(hbmgr_set_hb(records, count) == 0);
}

void apply(const fuzz::bytes &pairs, bool from_wire) {
    hb_rows::frame_bytes expected = current_frame();
    size_t lines = 0;
    const size_t count = pairs.size() / 8;
    for (size_t i = 0; i < count; ++i) {
        const int field = static_cast<int>(ut_get_le32(&pairs[8 * i]));
        const int value = static_cast<int>(ut_get_le32(&pairs[8 * i + 4]));
        lines += expected_line(field, value);
        if (static_cast<uint32_t>(field) < std::size(hb_rows::all)) {
            hb_rows::set(expected, hb_rows::all[field].where, value);
        }
    }
    (void)fuzz::lines_logged();
    if (from_wire) {
        const fuzz::exact_block block(pairs);
        hbmgr_set_hb_wire(block.data(), static_cast<int>(count));
    } else {
        apply_from_program(pairs, static_cast<int>(count));
    }
    FUZZ_CHECK(current_frame() == expected);
    FUZZ_CHECK(fuzz::lines_logged() == lines);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    for (fuzz::input in(data, size); !in.empty();) {
        const uint8_t how = in.u8(); // the lowest bit: from where; the rest: bytes of pairs, also in part
        const fuzz::bytes pairs = in.take(how >> 1);
        apply(pairs, (how & 1) != 0);
        const hb_rows::frame_bytes before = current_frame();
        apply_from_program(pairs, -static_cast<int>(how)); // none
        FUZZ_CHECK(current_frame() == before);
    }
    return 0;
}
