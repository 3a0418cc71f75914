/**
 * @file
 * What nodes and the node manager say to each other, seen from the manager: a datagram becomes a request that
 * can be believed, or a refusal with a name; the table of nodes becomes a datagram. Nothing here keeps state
 * or touches a socket.
 *
 *     const auto read = vexa::read_request(datagram);
 *     if (const auto *request = std::get_if<vexa::manager_request>(&read)) { ... }
 */
#ifndef VEXA_MANAGER_PROTOCOL_H
#define VEXA_MANAGER_PROTOCOL_H

#include "datagrams.h"
#include "vx_msg_def.h"

#include <optional>
#include <span>
#include <variant>
#include <vector>

namespace vexa {

/** Why a datagram was not acted on. */
enum class refusal {
    too_short,
    wrong_magic,
    wrong_kind,
    not_for_manager,
    cut_short,
    unknown_command,
    wrong_count,
    bad_id,
    foreign_id,
    unterminated_text,
    bad_address,
    bad_port,
    id_taken,
    not_registered,
    number_of_refusals
};

/** The name of a refusal, as it stands in the program's JSON: "id_taken". */
const char *name_of(refusal why);

/** The same as a clause: "the id is held by an active node on another machine". */
const char *explanation_of(refusal why);

/** A REGISTER or UNREGISTER that has been checked against the bytes that arrived. */
struct manager_request {
    mgr_msg_cmd command; /**< MGR_CMD_REGISTER or MGR_CMD_UNREGISTER */
    vexa_node_t node;    /**< of an UNREGISTER only `node_id` is checked; the texts of a REGISTER end in a NUL
                              and are zero behind it */
};

/**
 * Reads what a node has sent to the manager. Whether the node may do what it asks is the registry's to say.
 * @param datagram  the bytes that arrived; nothing in them is believed before it is checked
 */
std::variant<manager_request, refusal> read_request(std::span<const uint8_t> datagram);

/**
 * Builds the message with the table of nodes.
 * @param dst       the node that it goes to
 * @param accepted  whether it answers a REGISTER, and so says that the registration is accepted
 * @param nodes     at most 127 records, so that a node reads the message whole
 */
std::vector<uint8_t> table_message(uint16_t dst, bool accepted, std::span<const vexa_node_t> nodes);

/** The records of a message of the node manager; nothing when it is none, or has a record that cannot be. */
std::optional<std::vector<vexa_node_t>> table_in(const udp_datagram &datagram);

} // namespace vexa

#endif
