/**
 * @file
 * What can be said about a datagram besides its fields: that bytes are missing, that something is wrong, or
 * that something is worth knowing. The words stand in one table, from which the Wireshark dissector has them
 * too.
 */
#ifndef FORMATS_FINDING_H
#define FORMATS_FINDING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace formats {

enum class severity : uint8_t {
    note,      /**< nothing is wrong, but a reader wonders */
    cut,       /**< bytes are missing */
    malformed, /**< something is not as it must be */
};

/** "note", "cut", "malformed". */
const char *name_of(severity how);

enum class finding_code : uint8_t {
    short_head,
    capture_cut,
    fragment,
    wrong_value,
    unknown_value,
    length_cut,
    length_long,
    wrong_end,
    payload_size,
    short_part,
    wrong_count,
    surplus,
    unended_text,
    over_read,
    ids_refused,
    remark,
};

struct finding_words {
    finding_code code; /**< also the row's index */
    const char *name;  /**< for programs */
    severity how;
    const char *text; /**< for people; each {} is filled in */
};

inline constexpr auto k_finding_words = std::to_array<finding_words>({
    {finding_code::short_head, "short_head", severity::cut, "{} bytes are no header, which has {}"},
    {finding_code::capture_cut, "capture_cut", severity::cut, "captured were {} of {} bytes"},
    {finding_code::fragment, "fragment", severity::cut, "an IP fragment, whose other fragments are missing"},
    {finding_code::wrong_value, "wrong_value", severity::malformed, "{} is {}, not {}"},
    {finding_code::unknown_value, "unknown_value", severity::malformed, "{} {} is not known"},
    {finding_code::length_cut, "length_cut", severity::cut, "{} says {} bytes, {} arrived"},
    {finding_code::length_long, "length_long", severity::malformed, "{} says {} bytes, {} arrived"},
    {finding_code::wrong_end, "wrong_end", severity::malformed, "{} is for the {}"},
    {finding_code::payload_size, "payload_size", severity::malformed,
     "the payload has {} bytes, that of {} has {}"},
    {finding_code::short_part, "short_part", severity::malformed,
     "the payload has {} bytes left, too few for a {}, which has {}"},
    {finding_code::wrong_count, "wrong_count", severity::malformed,
     "{} is {}, there is room for {} of {} bytes"},
    {finding_code::surplus, "surplus", severity::note, "{} bytes follow the last {}, not {}"},
    {finding_code::unended_text, "unended_text", severity::malformed, "{} does not end in a NUL"},
    {finding_code::over_read, "over_read", severity::note, "a receiver takes {} of {} bytes"},
    {finding_code::ids_refused, "ids_refused", severity::note, "no node takes it: src is {}, dst is {}"},
    {finding_code::remark, "remark", severity::note, "{}"},
});

consteval bool in_order_of_codes() {
    for (size_t i = 0; i < k_finding_words.size(); ++i) {
        if (static_cast<size_t>(k_finding_words[i].code) != i) {
            return false;
        }
    }
    return true;
}
static_assert(in_order_of_codes());

struct finding {
    finding_code code;
    severity how;
    size_t offset;    /**< [bytes] from the datagram's first; where it is wrong or where it ends */
    std::string text; /**< a clause: "version is 9, not 1" */

    /** "version", so to speak: the row of k_finding_words. */
    [[nodiscard]] const finding_words &words() const { return k_finding_words[static_cast<size_t>(code)]; }
};

} // namespace formats

#endif
