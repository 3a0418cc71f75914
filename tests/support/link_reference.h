/**
 * @file
 * A second writer of link frames, made from the offset tables of the documents by appending bytes in order.
 * It shares nothing with the headers under test but the record types: not the field lists, not the CRC.
 */
#ifndef TEST_LINK_REFERENCE_H
#define TEST_LINK_REFERENCE_H

#include "vxlink/vxlink.h"

#include <bit>
#include <cstdint>
#include <vector>

namespace reference {

using bytes_t = std::vector<uint8_t>;

class writer {
public:
    explicit writer(bytes_t &out) : out_(out) {}

    template <class... Values>
    void all(const Values &...values) {
        (one(values), ...);
    }

private:
    void number(uint64_t value, int width) {
        for (int i = 0; i < width; ++i) {
            out_.push_back(static_cast<uint8_t>(value >> (8 * i)));
        }
    }
    void one(uint8_t value) { number(value, 1); }
    void one(uint32_t value) { number(value, 4); }
    void one(uint64_t value) { number(value, 8); }
    void one(float value) { number(std::bit_cast<uint32_t>(value), 4); }
    template <class Value, size_t Count>
    void one(const Value (&values)[Count]) {
        for (const Value &value : values) {
            one(value);
        }
    }

    bytes_t &out_;
};

template <class... Values>
bytes_t laid_out(const Values &...values) {
    bytes_t out;
    writer(out).all(values...);
    return out;
}

inline bytes_t payload(const vxlink_movidus_command_t &r) {
    return laid_out(r.command, r.data);
}

inline bytes_t payload(const vxlink_movidus_report_track_status_t &r) {
    return laid_out(r.timestamp, r.start_x, r.start_y, r.width, r.height, r.confidence, r.distance, r.status,
                    r.type, r.resolution_width, r.resolution_height, r.id, r.object_id);
}

inline bytes_t payload(const vxlink_movidus_report_goal_area_t &r) {
    return laid_out(r.timestamp, r.number, r.total, r.start_x, r.start_y, r.width, r.height, r.distance,
                    r.status, r.confidence, r.type, r.id, r.resolution_width, r.resolution_height,
                    r.object_id, r.info);
}

inline bytes_t payload(const vxlink_movidus_report_orbit_status_t &r) {
    return laid_out(r.timestamp, r.expect_radius, r.actual_radius, r.expect_height, r.actual_height,
                    r.max_speed, r.rotate, r.status, r.set_speed, r.flag, r.reserve);
}

inline bytes_t payload(const vxlink_movidus_report_orbit_area_t &r) {
    return laid_out(r.timestamp, r.start_x, r.start_y, r.width, r.height, r.resolution_width,
                    r.resolution_height, r.status);
}

/** The CRC bit by bit: polynomial 0x1021 from the low end, start 0xFFFF. */
inline uint16_t crc(const bytes_t &bytes, uint16_t start = 0xFFFF) {
    unsigned crc = start;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? (crc >> 1) ^ 0x8408 : crc >> 1;
        }
    }
    return static_cast<uint16_t>(crc);
}

struct address {
    uint8_t dest;
    uint8_t source;
    uint8_t seq;
};

/** A whole frame image. */
inline bytes_t frame(const bytes_t &payload, uint8_t msgid, uint8_t crc_extra, const address &to) {
    bytes_t image = {0xFD,
                     static_cast<uint8_t>(payload.size() % 256),
                     static_cast<uint8_t>(payload.size() / 256),
                     to.seq,
                     to.dest,
                     to.source,
                     msgid};
    unsigned sum = 0;
    for (const uint8_t byte : image) {
        sum += byte;
    }
    image.push_back(static_cast<uint8_t>(sum % 256));
    image.insert(image.end(), payload.begin(), payload.end());
    bytes_t covered(image.begin() + 1, image.end());
    covered.push_back(crc_extra);
    const uint16_t check = crc(covered);
    image.push_back(static_cast<uint8_t>(check % 256));
    image.push_back(static_cast<uint8_t>(check / 256));
    return image;
}

} // namespace reference

#endif
