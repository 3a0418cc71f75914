/**
 * @file
 * The words in which the formats of this system are described: fields make a block, blocks make a message, a
 * header with its messages is an envelope. The tables written in these words (route_format.h, link_format.h)
 * are the one description from which the decoder of the tools and the Wireshark dissector both work; nothing
 * else in tools/ knows an offset.
 *
 * All numbers are little-endian. Everything here is constexpr and has static storage.
 */
#ifndef FORMATS_DESCRIPTION_H
#define FORMATS_DESCRIPTION_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace formats {

/** A number and what it is called. */
struct value_name {
    int64_t value;
    const char *name;
};

/** The names of a field's values. */
struct name_table {
    const char *id; /**< of the table: "node_id" */
    std::span<const value_name> rows;
    bool bit_set = false;  /**< the names are single bits, and a value is any number of them */
    bool complete = false; /**< a value without a name is wrong */
};

enum class field_type : uint8_t { u8, u16, u32, u64, i16, i32, f32, text, bytes };

enum class number_base : uint8_t { decimal, hex };

/** Some bits of a number, with a name of their own. */
struct bit_field {
    const char *name;
    uint8_t first_bit; /**< 0 is the lowest */
    uint8_t width;     /**< [bits] */
};

/** A value that follows from the rest of the datagram. */
enum class calculated : uint8_t {
    no,
    head_sum, /**< sum of the bytes of the header before it, modulo 256 */
    frame_crc /**< CRC over the frame without its first byte, then over the message's extra byte */
};

constexpr int64_t k_anything = INT64_MIN; /**< no value is asked for */

struct field {
    const char *name;
    field_type type;
    uint16_t offset;    /**< [bytes] from the start of its block */
    uint16_t count = 1; /**< elements; for text and bytes their length, where 0 is all that is left */
    const char *about = "";
    number_base base = number_base::decimal;
    const name_table *names = nullptr;
    std::span<const bit_field> bits = {};
    int64_t must = k_anything; /**< the one right value */
    calculated from = calculated::no;
};

/** Fields that stand together. */
struct block {
    const char *name; /**< of one: "node" */
    const char *key;  /**< what the fields' names stand behind in a display filter: "vexamsg.node" */
    uint16_t size;    /**< [bytes] of one; 0 when it is all that is left */
    std::span<const field> fields;
};

/** How often a block stands in a payload. */
enum class repeat : uint8_t {
    once,
    if_room, /**< once, or not at all when the payload is shorter */
    counted, /**< as often as another field of the payload says */
    fill     /**< as often as there is room */
};

struct part {
    const block *what;
    repeat how = repeat::once;
    const char *count_field = nullptr; /**< for `counted` */
};

/** What a message is about, for people who look for some and not for others. */
enum class family : uint8_t { unknown, user, manager, heartbeat, report, camera, frame };

constexpr int k_any = -1;

/** One message: what stands behind the header when the header says so. */
struct form {
    uint16_t selector; /**< value of the header's selecting field */
    const char *name;
    family kin;
    std::span<const part> parts = {};
    int payload_size = k_any;        /**< [bytes] the only right one */
    const block *rest = nullptr;     /**< takes what the parts leave; nullptr: nothing is expected there */
    int rest_size = k_any;           /**< [bytes] the only right one */
    int if_payload = k_any;          /**< the message is meant only when the payload has this size [bytes] */
    int if_command = k_any;          /**< ... only when it begins with this 16-bit number */
    const char *dst_field = nullptr; /**< a field of the header */
    uint16_t dst_must = 0;           /**< and what it must be for this message */
    uint16_t port = 0;               /**< UDP port that it belongs to; 0: none in particular */
    const char *end = nullptr;       /**< who receives there */
    const char *remark = nullptr;    /**< said of every such message */
};

/** A header, and all messages that can stand behind it. */
struct envelope {
    const char *name; /**< "routing message" */
    const char *column;
    block head;               /**< its first field tells whether it is one at all */
    const char *length_field; /**< of the header */
    int length_bias;          /**< [bytes] that it counts besides the payload */
    const char *selector_field;
    const block *tail; /**< behind the payload; may be nullptr */
    int most_read;     /**< [bytes] of a datagram that a receiver takes; 0: all */
    bool by_node_id;   /**< `src` and `dst` are node ids, and only the proxy takes strange ones */
    std::span<const form> forms;
};

/** [bytes] of one element. */
constexpr size_t element_size(field_type type) {
    switch (type) {
    case field_type::u16:
    case field_type::i16:
        return 2;
    case field_type::u32:
    case field_type::i32:
    case field_type::f32:
        return 4;
    case field_type::u64:
        return 8;
    default:
        return 1;
    }
}

/** [bytes] of the whole field. */
constexpr size_t size_of(const field &f) {
    return element_size(f.type) * f.count;
}

constexpr bool is_run(field_type type) {
    return type == field_type::text || type == field_type::bytes;
}

/** The field of that name; nullptr when the block has none. */
constexpr const field *find_field(const block &in, std::string_view name) {
    for (const field &f : in.fields) {
        if (name == f.name) {
            return &f;
        }
    }
    return nullptr;
}

/** Whether there is one; said without a pointer, which GCC's sanitizer takes for no constant. */
constexpr bool has_field(const block &in, std::string_view name) {
    for (const field &f : in.fields) {
        if (name == f.name) {
            return true;
        }
    }
    return false;
}

/** Whether no field reaches beyond the block. */
constexpr bool inside(const block &b) {
    for (const field &f : b.fields) {
        if (f.offset + size_of(f) > b.size) {
            return false;
        }
    }
    return true;
}

/** Whether the fields follow each other without gap or overlap, and end where the block does. */
constexpr bool well_laid(const block &b) {
    size_t end = 0;
    for (const field &f : b.fields) {
        if (f.offset != end) {
            return false;
        }
        for (const bit_field &bits : f.bits) {
            if (bits.width == 0 || bits.first_bit + bits.width > static_cast<int>(8 * element_size(f.type))) {
                return false;
            }
        }
        end = f.offset + size_of(f);
    }
    return end == b.size;
}

/** Whether a table's row n is named for value n, for all numbers from 0 on. */
constexpr bool counts_up(std::span<const value_name> rows) {
    for (size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].value != static_cast<int64_t>(i)) {
            return false;
        }
    }
    return true;
}

/** Whether the names an envelope refers to are those of its fields. */
constexpr bool well_named(const envelope &e) {
    if (!has_field(e.head, e.length_field) || !has_field(e.head, e.selector_field)) {
        return false;
    }
    for (const form &f : e.forms) {
        if (f.dst_field != nullptr && !has_field(e.head, f.dst_field)) {
            return false;
        }
        for (const part &p : f.parts) {
            if ((p.how == repeat::counted) != (p.count_field != nullptr)) {
                return false;
            }
        }
    }
    return true;
}

/** "user"; what the filter of `vexa echo` calls it. */
constexpr const char *name_of(family which) {
    switch (which) {
    case family::user:
        return "user";
    case family::manager:
        return "manager";
    case family::heartbeat:
        return "heartbeat";
    case family::report:
        return "report";
    case family::camera:
        return "camera";
    case family::frame:
        return "frame";
    default:
        return "unknown";
    }
}

} // namespace formats

#endif
