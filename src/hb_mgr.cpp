// The heartbeat frame and its field-by-field updates.
//
// Application threads and the I/O thread change the frame, everybody copies it out, all under hb_mutex. The
// table of hb_fields.h says where each field lies and how it is logged; one function writes any field.
#include "hb_mgr.h"

#include "after_fork.h"
#include "hb_fields.h"
#include "log_throttle.h"
#include "vx_lock.h"
#include "vx_log.h"
#include "vx_msg_def.h"

#include <array>
#include <cstdio>
#include <cstring>

pthread_mutex_t hb_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr char k_unit[] = "src/hb_mgr";

static_assert(sizeof(HeartBeatPair) == VX_HB_PAIR_SIZE);

using frame_bytes = std::array<uint8_t, sizeof(VPHeartbeatFrame)>;

constinit mutex_ref frame_lock{hb_mutex};
// environment_light 1, the six stereo calibrations 1, overheat 1
constinit frame_bytes g_vision_hb VX_TSA(guarded_by(frame_lock)) = {0x01, 0x00, 0x7E, 0x00, 0x08};
constinit std::array<log_on_change, k_hb_fields.size()> g_throttles VX_TSA(guarded_by(frame_lock)){};

void write_field(const hb_field_t &f, int value) VX_TSA(requires_capability(frame_lock)) {
    uint8_t &byte = g_vision_hb[f.first_bit / 8];
    const unsigned shift = f.first_bit % 8;
    const unsigned mask = ((1U << f.width) - 1U) << shift;
    byte = static_cast<uint8_t>((byte & ~mask) | ((static_cast<unsigned>(value) << shift) & mask));
}

void apply(int field, int value) VX_TSA(requires_capability(frame_lock)) {
    const auto row =
        static_cast<uint32_t>(field); // a negative number lies above the table like any other stranger
    if (row >= k_hb_fields.size()) {
        VX_LOG_AS("hbmgr_set_hb", INFO, "set heartbeat, %d is a invalid field\n", field);
        return;
    }
    const hb_field_t &f = k_hb_fields[row];
    write_field(f, value);
    if (g_throttles[row].passes(value)) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // the table's formats take one unsigned each
        VX_LOG_AS("hbmgr_set_hb", INFO, f.log_format, static_cast<unsigned>(value));
#pragma GCC diagnostic pop
    }
}

} // namespace

int hbmgr_get_hb(struct VPHeartbeatFrame *frame) {
    const mutex_guard hold{frame_lock};
    memcpy(frame, g_vision_hb.data(), sizeof *frame);
    return 0;
}

int hbmgr_set_hb(const HeartBeatPair *pairs, int len) {
    const mutex_guard hold{frame_lock};
    for (int i = 0; pairs != nullptr && i < len; ++i) {
        apply(pairs[i].field, pairs[i].value);
    }
    return 0;
}

void hbmgr_set_hb_wire(const uint8_t *pairs, int len) {
    const mutex_guard hold{frame_lock};
    for (int i = 0; i < len; ++i) {
        const uint8_t *pair = pairs + static_cast<ptrdiff_t>(i) * VX_HB_PAIR_SIZE;
        apply(static_cast<int>(ut_get_le32(pair)), static_cast<int>(ut_get_le32(pair + 4)));
    }
}

void hbmgr_after_fork() {
    if (pthread_mutex_trylock(&hb_mutex) == 0) {
        (void)pthread_mutex_unlock(&hb_mutex);
    } else {
        (void)pthread_mutex_init(&hb_mutex, nullptr); // its owner is not in this process
    }
}

void print_hb(struct VPHeartbeatFrame *frame) {
    frame_bytes bytes;
    memcpy(bytes.data(), frame, sizeof bytes);
    (void)puts("HB INFO:");
    (void)printf("bottom_flash_state:%u\n", bytes[4] & 7U);
    (void)printf("detec checking mode:%u\n", frame->core.details.detection_tracking_mode);
    (void)printf("workmode %u\n", frame->task.details.work_mode);
}
