// Datagrams of the vision link, read. See link_decode.h.
#include "link_decode.h"

#include "vision_protocol.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <fmt/core.h>
#include <fmt/ranges.h>
#include <type_traits>

namespace vexa {
namespace {

using nlohmann::ordered_json;

constexpr uint8_t k_flags = 0xE0; // start, final, form
constexpr size_t k_flag_at = 3;
constexpr int k_any_length = -1;

ordered_json number(uint32_t value) {
    return value;
}

ordered_json number(uint64_t value) {
    return value;
}

/// 0.2F is 0.200000002980232 as a double; its shortest text gives the double that prints as 0.2.
ordered_json number(float value) {
    const std::string text = fmt::format("{}", value);
    double shortest = 0;
    (void)std::from_chars(text.data(), text.data() + text.size(), shortest); // the text is a number's
    return std::isfinite(value) ? ordered_json(shortest) : ordered_json(text);
}

template <class Value>
ordered_json field(const uint8_t *at) {
    if constexpr (std::is_same_v<Value, uint8_t>) {
        return *at;
    } else if constexpr (std::is_same_v<Value, uint64_t>) {
        return number(ut_get_le64(at));
    } else if constexpr (std::is_same_v<Value, float>) {
        return number(std::bit_cast<float>(ut_get_le32(at)));
    } else {
        static_assert(std::is_same_v<Value, uint32_t>);
        return number(ut_get_le32(at));
    }
}

std::string hex(std::span<const uint8_t> bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

template <class Value>
ordered_json array_field(const uint8_t *at, size_t count) {
    if constexpr (std::is_same_v<Value, uint8_t>) {
        return hex({at, count});
    } else {
        ordered_json values = ordered_json::array();
        for (size_t i = 0; i < count; ++i) {
            values.push_back(field<Value>(at + i * sizeof(Value)));
        }
        return values;
    }
}

// One reader per message, read_movidus_command and so on, made of the lists that the senders pack by.
#define READ_VALUE(type, name, offset) fields[#name] = field<type>(payload.data() + (offset));
#define READ_ARRAY(type, name, count, offset)                                                                \
    fields[#name] = array_field<type>(payload.data() + (offset), count);
#define READER(name, NAME)                                                                                   \
    ordered_json read_##name(std::span<const uint8_t> payload) {                                             \
        ordered_json fields;                                                                                 \
        VXLINK_##NAME##_FIELDS(READ_VALUE, READ_ARRAY) return fields;                                        \
    }
VXLINK_MESSAGES(READER)
#undef READER
#undef READ_ARRAY
#undef READ_VALUE

/// An acknowledgement is a command whose data begin with a status and, behind one byte, a second one.
ordered_json read_acknowledgement(std::span<const uint8_t> payload) {
    ordered_json fields;
    fields["command"] = payload[0];
    fields["status"] = payload[1];
    fields["status1"] = ut_get_le32(payload.data() + 3);
    fields["data"] = hex(payload.subspan(1));
    return fields;
}

ordered_json read_bytes(std::span<const uint8_t> payload) {
    ordered_json fields;
    fields["payload"] = hex(payload);
    return fields;
}

struct link_message {
    uint16_t msg_type;
    const char *name;
    link_end end;
    uint16_t msg_dst;
    int payload_len; // [bytes], or k_any_length
    ordered_json (*read)(std::span<const uint8_t> payload);
};

constexpr std::array<link_message, 7> k_messages = {{
    {0x0900, "camera_command", link_end::camera, CARMERA_NODE, VXLINK_MSG_ID_MOVIDUS_COMMAND_LEN,
     read_movidus_command},
    {0x0901, "command_ack", link_end::flight, PHONE_NODE, VXLINK_MSG_ID_MOVIDUS_COMMAND_LEN,
     read_acknowledgement},
    {0x0907, "to_remote_control", link_end::flight, PHONE_NODE | TELE_CTRL_NODE, k_any_length, read_bytes},
    {0x090C, "goal_area", link_end::flight, PHONE_NODE, VXLINK_MSG_ID_MOVIDUS_REPORT_GOAL_AREA_LEN,
     read_movidus_report_goal_area},
    {0x090D, "track_status", link_end::flight, PHONE_NODE, VXLINK_MSG_ID_MOVIDUS_REPORT_TRACK_STATUS_LEN,
     read_movidus_report_track_status},
    {0x090F, "orbit_status", link_end::flight, PHONE_NODE, VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_STATUS_LEN,
     read_movidus_report_orbit_status},
    {0x0910, "orbit_area", link_end::flight, PHONE_NODE, VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_AREA_LEN,
     read_movidus_report_orbit_area},
}};

const link_message *find_message(uint16_t msg_type) {
    const auto *found = std::find_if(k_messages.begin(), k_messages.end(),
                                     [msg_type](const link_message &m) { return m.msg_type == msg_type; });
    return found != k_messages.end() ? found : nullptr;
}

/// Collects what is wrong with a datagram.
class fault_list {
public:
    explicit fault_list(std::vector<std::string> &faults) : faults_(faults) {}

    template <class... Values>
    void add(fmt::format_string<const Values &...> text, const Values &...values) {
        faults_.push_back(fmt::format(text, values...));
    }

    void expect_word(const char *name, uint16_t is, uint16_t must_be) {
        if (is != must_be) {
            add("{} is 0x{:04x}, not 0x{:04x}", name, is, must_be);
        }
    }

private:
    std::vector<std::string> &faults_;
};

void check_head(fault_list &faults, const msg_head_t &head, std::span<const uint8_t> bytes) {
    if (head.version != VISION_MSG_VERSION) {
        faults.add("version is {}, not {}", head.version, VISION_MSG_VERSION);
    }
    if (bytes[k_flag_at] != k_flags) {
        faults.add("flags are 0x{:02x}, not 0x{:02x}", bytes[k_flag_at], k_flags);
    }
    const uint16_t length = head.length;
    if (length != bytes.size()) {
        faults.add("length says {} bytes, {} arrived", length, bytes.size());
    }
    faults.expect_word("msg_src", head.msg_src, MOVIDIUS_NODE);
    faults.expect_word("package_id", head.package_id, 0);
}

void read_message(link_datagram &read, fault_list &faults, const link_message &message, uint16_t msg_dst,
                  std::span<const uint8_t> payload) {
    read.name = message.name;
    faults.expect_word("msg_dst", msg_dst, message.msg_dst);
    if (message.payload_len != k_any_length && payload.size() != static_cast<size_t>(message.payload_len)) {
        faults.add("the payload has {} bytes, that of {} has {}", payload.size(), message.name,
                   message.payload_len);
        return;
    }
    read.fields = message.read(payload);
}

} // namespace

link_datagram decode_link(link_end end, std::span<const uint8_t> bytes) {
    link_datagram read;
    fault_list faults(read.faults);
    if (bytes.size() < VISION_MSG_HEAD_SIZE) {
        faults.add("{} bytes are no header, which has {}", bytes.size(), VISION_MSG_HEAD_SIZE);
        return read;
    }
    msg_head_t head;
    msg_head_load(bytes.data(), &head);
    if (bytes[0] != VISION_MSG_MAGIC_0 || bytes[1] != VISION_MSG_MAGIC_1) {
        faults.add("magic is {:02x} {:02x}, not {:02x} {:02x}", bytes[0], bytes[1], VISION_MSG_MAGIC_0,
                   VISION_MSG_MAGIC_1);
        return read;
    }
    read.msg_type = head.msg_type;
    read.sequence = head.sequence;
    check_head(faults, head, bytes);
    const link_message *message = find_message(head.msg_type);
    if (message == nullptr) {
        faults.add("msg_type 0x{:04x} is not known", *read.msg_type);
        return read;
    }
    if (message->end != end) {
        faults.add("{} is for the {}", message->name,
                   message->end == link_end::camera ? "camera" : "flight side");
    }
    read_message(read, faults, *message, head.msg_dst, bytes.subspan(VISION_MSG_HEAD_SIZE));
    return read;
}

} // namespace vexa
