/**
 * @file
 * Datagrams of the bus for the tests, made byte by byte without the code under test, so that they can be as
 * wrong as a test wants them.
 *
 *     const bytes notice = manager_message({record_of(3), record_of(127)}, k_accepted);
 */
#ifndef TEST_ROUTE_MESSAGES_H
#define TEST_ROUTE_MESSAGES_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace bus {

using bytes = std::vector<uint8_t>;
using ids = std::vector<uint16_t>;

constexpr uint16_t k_manager = 0;
constexpr uint16_t k_proxy = 127;
constexpr uint16_t k_everybody = 0xFF00;
constexpr uint8_t k_accepted = 0x80; // the flag byte of a manager message that accepts
constexpr size_t k_head_size = 16;

struct head {
    int kind = 1;
    uint16_t src = 0;
    uint16_t dst = 0;
    uint8_t flag = 0;
};

inline void append16(bytes &to, unsigned value) {
    to.push_back(static_cast<uint8_t>(value));
    to.push_back(static_cast<uint8_t>(value >> 8));
}

inline void append32(bytes &to, uint32_t value) {
    append16(to, value & 0xFFFF);
    append16(to, value >> 16);
}

inline unsigned word_at(const bytes &from, size_t offset) {
    return from.at(offset) | static_cast<unsigned>(from.at(offset + 1)) << 8;
}

inline bytes joined(bytes left, const bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline bytes text(const std::string &characters) {
    return {characters.begin(), characters.end()};
}

/** `size` bytes, no two neighbours alike. */
inline bytes pattern(size_t size) {
    bytes made(size);
    for (size_t i = 0; i < size; ++i) {
        made[i] = static_cast<uint8_t>(i * 7 + i / 256);
    }
    return made;
}

/** A datagram whose header says `said` payload bytes, whatever follows it. */
inline bytes message_saying(unsigned said, const head &h, const bytes &payload) {
    bytes made = {0x3A, 0x5E, h.flag, static_cast<uint8_t>(h.kind)};
    append16(made, said);
    append16(made, h.src);
    append16(made, h.dst);
    append16(made, 0);
    append32(made, 0);
    return joined(std::move(made), payload);
}

inline bytes message(const head &h, const bytes &payload = {}) {
    return message_saying(static_cast<unsigned>(payload.size()), h, payload);
}

inline bytes payload_of(const bytes &datagram) {
    return {datagram.begin() + k_head_size, datagram.end()};
}

inline std::string ip_of(uint16_t id) {
    return "192.168.1." + std::to_string(id == k_manager ? 1 : id);
}

struct record {
    std::string name;
    std::string ip;
    uint16_t port = 0;
    uint16_t id = 0;
    uint8_t stat = 1;
};

/** The record of a node as the manager sends it. */
inline record record_of(uint16_t id, uint8_t stat = 1) {
    return {"node" + std::to_string(id), ip_of(id), static_cast<uint16_t>(9000 + id), id, stat};
}

inline bytes encoded(const record &r) {
    bytes made;
    for (const std::string &field : {r.name, r.ip}) {
        bytes fixed = text(field);
        fixed.resize(16); // a field of 16 characters has no end, as a hostile one may
        made = joined(std::move(made), fixed);
    }
    append16(made, r.port);
    append16(made, r.id);
    made.push_back(r.stat);
    made.push_back(0);
    return made;
}

/** A manager payload whose count is `said`, whatever follows it. */
inline bytes table_saying(int said, const std::vector<record> &records, int cmd = 2) {
    bytes made;
    append16(made, static_cast<unsigned>(cmd));
    append16(made, static_cast<unsigned>(said));
    for (const record &r : records) {
        made = joined(std::move(made), encoded(r));
    }
    return made;
}

inline bytes table(const std::vector<record> &records, int cmd = 2) {
    return table_saying(static_cast<int>(records.size()), records, cmd);
}

struct pair {
    int field;
    int value;
};

inline bytes encoded(std::initializer_list<pair> pairs) {
    bytes made;
    for (const pair &p : pairs) {
        append32(made, static_cast<uint32_t>(p.field));
        append32(made, static_cast<uint32_t>(p.value));
    }
    return made;
}

} // namespace bus

#endif
