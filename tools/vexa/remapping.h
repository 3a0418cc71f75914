/**
 * @file
 * Other node ids and addresses in recorded messages, so that they can be played where the recorded nodes are
 * not. Ids are changed wherever the formats say that a node's id stands: in the header, and in the records of
 * nodes. What follows from an id or an address follows: the port 9000 + id, and address and port in a record.
 *
 *     vexa::remapping other;
 *     other.add_id("5=7");
 *     other.add_address("192.168.1.2=127.0.0.1");
 *     const vexa::endpoint to = other.apply(bytes, destination);
 */
#ifndef VEXA_REMAPPING_H
#define VEXA_REMAPPING_H

#include "decoder.h"
#include "endpoint.h"

#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vexa {

class remapping {
public:
    /** "5=7", "soa=vio". @throws std::invalid_argument */
    void add_id(const std::string &text);

    /** "192.168.1.2=127.0.0.1", each with a port if wanted: ":9005". @throws std::invalid_argument */
    void add_address(const std::string &text);

    /**
     * Changes one datagram. A field that the datagram is too short for is left as it is.
     * @param bytes  the payload, of which no more than the values of fields are written
     * @return where it goes instead of `to`
     */
    [[nodiscard]] endpoint apply(std::span<uint8_t> bytes, endpoint to) const;

private:
    struct address_row {
        endpoint from; // port 0: any
        endpoint to;   // port 0: as it was
    };

    [[nodiscard]] uint16_t id(uint64_t old) const;
    [[nodiscard]] endpoint moved(endpoint old, bool by_node_id) const;
    void change_ids(std::span<uint8_t> bytes, const std::vector<formats::node> &fields) const;
    void change_records(std::span<uint8_t> bytes, const std::vector<formats::node> &fields) const;

    std::map<uint16_t, uint16_t> ids_;
    std::vector<address_row> addresses_;
};

} // namespace vexa

#endif
