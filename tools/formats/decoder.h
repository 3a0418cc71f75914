/**
 * @file
 * Reads any datagram of this system by the tables, and says everything that is wrong with it. Nothing is
 * believed before it was measured against the bytes that are there; nothing here keeps state.
 *
 *     const formats::decoded read = formats::decode({bytes, bytes.size(), 9005});
 *     const formats::node *dst = read.find("dst");
 *     if (dst != nullptr) { use(dst->raw); }
 *
 * @par Threads  Any thread.
 */
#ifndef FORMATS_DECODER_H
#define FORMATS_DECODER_H

#include "description.h"
#include "finding.h"

#include <optional>
#include <string>
#include <vector>

namespace formats {

/** A UDP datagram's payload and what is known about its journey. */
struct datagram {
    std::span<const uint8_t> bytes = {}; /**< that were captured */
    size_t wire_size = 0;                /**< [bytes] that travelled; not less than bytes.size() */
    uint16_t dst_port = 0;               /**< UDP */
    bool incomplete = false;             /**< IP fragments of it are missing; `bytes` end before the first */
};

/**
 * One thing that was read. A field with bits has a part per bit field, an array one per element; a block that
 * repeats is a node of its own, without a field, whose parts are the fields.
 */
struct node {
    const block *in = nullptr;
    const field *what = nullptr;         /**< nullptr for a repeated block as a whole */
    const bit_field *bit = nullptr;      /**< of `what`; nullptr for the field as a whole */
    int index = k_any;                   /**< of a repeated block or of an array's element */
    size_t offset = 0;                   /**< [bytes] from the datagram's first */
    size_t size = 0;                     /**< [bytes] */
    uint64_t raw = 0;                    /**< a number, sign-extended; the bits of a float */
    std::span<const uint8_t> bytes = {}; /**< of text and bytes: into the datagram that was given */
    std::vector<node> parts = {};

    /** "cnt"; for a repeated block "node". */
    [[nodiscard]] const char *name() const;
};

struct decoded {
    const envelope *wire = nullptr; /**< nullptr: none of this system's datagrams */
    const form *what = nullptr;     /**< nullptr: the header does not say which message it is */
    std::vector<node> fields;       /**< header, payload, tail, in the order of the bytes */
    std::vector<finding> findings;

    [[nodiscard]] family kin() const;

    /** "track_status"; "unknown" when there is no telling. */
    [[nodiscard]] const char *name() const;

    /** The first field of that name, not looking into repeated blocks; nullptr when it was not read. */
    [[nodiscard]] const node *find(std::string_view name) const;

    /** The gravest of the findings; nothing when there are none. */
    [[nodiscard]] std::optional<severity> worst() const;
};

decoded decode(const datagram &from);

/** The same where it is known what must come. */
decoded decode_as(const envelope &wire, const datagram &from);

/** What can be had of a datagram without reading its payload. */
struct glance {
    const envelope *wire = nullptr;
    const form *what = nullptr;  /**< for a payload too short to tell, as for one that begins with zeros */
    uint16_t src = 0;            /**< as the header says; 0 of a frame, which has devices */
    uint16_t dst = 0;            /**< likewise */
    uint16_t kind = 0;           /**< value of the selecting field: `msg_type` or `msgid` */
    std::optional<uint16_t> key; /**< of user data: the first word of the payload */
};

/** The same without a tree and without findings, for whoever counts many: no memory is allocated. */
glance look(const datagram &from);

/** Which format a datagram has, by its first bytes and its port; nullptr when none. */
const envelope *recognise(const datagram &from);

} // namespace formats

#endif
