// The reader of link datagrams on any bytes, as the flight side and as the camera: what it finds no fault
// with has the length of its message, and its fields, written out again, are the payload. Whatever it says
// can be printed.
#include "link_decode.h"
#include "support/check.h"
#include "support/input.h"
#include "vision_protocol.h"

#include <bit>
#include <cmath>
#include <type_traits>

namespace {

using nlohmann::ordered_json;

class payload_writer {
public:
    template <class Value>
    void value(const ordered_json &field) {
        if constexpr (std::is_same_v<Value, float>) {
            number(bits_of(field), sizeof(float));
        } else {
            number(field.get<uint64_t>(), sizeof(Value));
        }
    }

    template <class Value>
    void array(const ordered_json &field, size_t count) {
        if constexpr (std::is_same_v<Value, uint8_t>) {
            const auto hex = field.get<std::string>();
            FUZZ_CHECK(hex.size() == 2 * count);
            for (size_t i = 0; i < hex.size(); i += 2) {
                number(std::stoul(hex.substr(i, 2), nullptr, 16), 1);
            }
        } else {
            FUZZ_CHECK(field.size() == count);
            for (const ordered_json &one : field) {
                value<Value>(one);
            }
        }
    }

    [[nodiscard]] const fuzz::bytes &payload() const { return payload_; }

private:
    static uint32_t bits_of(const ordered_json &field) {
        if (field.is_string()) { // infinite, or no number, whose bits its name does not tell
            return std::bit_cast<uint32_t>(std::stof(field.get<std::string>()));
        }
        return std::bit_cast<uint32_t>(static_cast<float>(field.get<double>()));
    }

    void number(uint64_t value, size_t width) {
        for (size_t i = 0; i < width; ++i) {
            payload_.push_back(static_cast<uint8_t>(value >> (8 * i)));
        }
    }

    fuzz::bytes payload_;
};

#define WRITE_VALUE(type, name, offset) writer.value<type>(fields.at(#name));
#define WRITE_ARRAY(type, name, count, offset) writer.array<type>(fields.at(#name), count);
#define WRITER(name, NAME)                                                                                   \
    fuzz::bytes write_##name(const ordered_json &fields) {                                                   \
        payload_writer writer;                                                                               \
        VXLINK_##NAME##_FIELDS(WRITE_VALUE, WRITE_ARRAY) return writer.payload();                            \
    }
VXLINK_MESSAGES(WRITER)
#undef WRITER
#undef WRITE_ARRAY
#undef WRITE_VALUE

fuzz::bytes write_acknowledgement(const ordered_json &fields) {
    payload_writer writer;
    writer.value<uint8_t>(fields.at("command"));
    writer.array<uint8_t>(fields.at("data"), 31);
    FUZZ_CHECK(fields.at("status") == writer.payload()[1]);
    FUZZ_CHECK(fields.at("status1") == ut_get_le32(&writer.payload()[3]));
    return writer.payload();
}

fuzz::bytes write(uint16_t msg_type, const ordered_json &fields) {
    switch (msg_type) {
    case 0x0900:
        return write_movidus_command(fields);
    case 0x0901:
        return write_acknowledgement(fields);
    case 0x090C:
        return write_movidus_report_goal_area(fields);
    case 0x090D:
        return write_movidus_report_track_status(fields);
    case 0x090F:
        return write_movidus_report_orbit_status(fields);
    case 0x0910:
        return write_movidus_report_orbit_area(fields);
    default:
        FUZZ_CHECK(msg_type == 0x0907);
        payload_writer writer;
        if (fields.contains("payload")) {
            writer.array<uint8_t>(fields.at("payload"),
                                  fields.at("payload").get_ref<const std::string &>().size() / 2);
        }
        return writer.payload();
    }
}

bool is_nan_at(const fuzz::bytes &payload, size_t at) {
    return at + 4 <= payload.size() && std::isnan(std::bit_cast<float>(ut_get_le32(&payload[at])));
}

/// The bits of what is no number are not told, so its bytes may differ.
void compare_payloads(const fuzz::bytes &written, const fuzz::bytes &payload) {
    FUZZ_CHECK(written.size() <= payload.size());
    for (size_t at = 0; at < written.size(); ++at) {
        const size_t word = at / 4 * 4;
        FUZZ_CHECK(written[at] == payload[at] || (is_nan_at(written, word) && is_nan_at(payload, word)));
    }
}

void check(vexa::link_end end, const fuzz::exact_block &datagram) {
    const vexa::link_datagram read = vexa::decode_link(end, {datagram.data(), datagram.size()});
    FUZZ_CHECK(read.msg_type.has_value() == read.sequence.has_value());
    for (const std::string &fault : read.faults) {
        FUZZ_CHECK(!fault.empty());
    }
    const std::string text = read.fields.dump();
    FUZZ_CHECK(ordered_json::parse(text).dump() == text);
    if (read.fields.is_null()) {
        FUZZ_CHECK(!read.faults.empty());
        return;
    }
    const fuzz::bytes whole = datagram.copy();
    FUZZ_CHECK(whole.size() >= VISION_MSG_HEAD_SIZE && read.name != "unknown");
    FUZZ_CHECK(!read.faults.empty() || ut_get_le16(&whole[4]) == whole.size());
    const fuzz::bytes payload(whole.begin() + VISION_MSG_HEAD_SIZE, whole.end());
    const fuzz::bytes written = write(*read.msg_type, read.fields);
    compare_payloads(written, payload);
    FUZZ_CHECK(!read.faults.empty() ||
               written.size() == payload.size()); // more than its header says may arrive
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const fuzz::exact_block datagram(fuzz::input(data, size).rest());
    check(vexa::link_end::flight, datagram);
    check(vexa::link_end::camera, datagram);
    return 0;
}
