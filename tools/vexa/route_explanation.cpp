// Why a message travels, or does not. See route_explanation.h.
#include "route_explanation.h"

#include "named_value.h"
#include "node_mapping.h"
#include "thread_io.h"

#include <fmt/core.h>

namespace vexa {
namespace {

constexpr uint64_t k_arrives = VX_MSG_MAX_READ - VX_MSG_HEAD_SIZE; // [bytes] of payload that a receiver reads

/// "node 5 (soa)"
std::string who(const known_table &table, uint16_t id) {
    const auto node = table.find(id);
    return node && node->name[0] != '\0' ? fmt::format("node {} ({})", id, node->name)
                                         : fmt::format("node {}", id);
}

std::string why_inactive(const known_table &table, uint16_t id) {
    return table.find(id) ? "it has left, or its keep-alives have stopped"
                          : "it has not registered with the node manager";
}

bool is_active(uint16_t id) {
    return nmapping_get_stat(id) == NODE_STAT_ACTIVED;
}

/// Makes the library's table the one that the sender has.
void become(const known_table &table, uint16_t sender) {
    if (nmapping_create() != 0) {
        throw node_trouble("the node table cannot be made");
    }
    for (const vexa_node_t &node : table.nodes) {
        (void)nmapping_set(node.node_id, &node); // ids were checked when the table was read
    }
    nmapping_set_self(sender);
    if (is_active(sender)) {
        nmapping_set_stat(VX_NODE_MANAGER_ID, NODE_STAT_ACTIVED); // the manager has accepted it
    }
}

class explanation {
public:
    explanation(const known_table &table, const route_question &question)
        : table_(table), question_(question) {}

    route_answer run() {
        if (!sender_is_there() || !size_is_taken()) {
            return answer_;
        }
        if (question_.to == VX_MSG_BROADCAST) {
            broadcast();
        } else {
            to_one();
        }
        if (answer_.travels) {
            say_what_arrives();
        }
        return answer_;
    }

private:
    template <class... Values>
    void say(fmt::format_string<const Values &...> text, const Values &...values) {
        answer_.reasons.push_back(fmt::format(text, values...));
    }

    bool sender_is_there() {
        const uint16_t from = question_.from;
        if (is_active(from)) {
            say("{} is active: the node manager has accepted it and told it where the others are.",
                who(table_, from));
            return true;
        }
        say("{} is not active: {}. Until the node manager has accepted it, its own table has nobody to send "
            "to, and the library refuses what it sends (-1).",
            who(table_, from), why_inactive(table_, from));
        return false;
    }

    bool size_is_taken() {
        if (question_.size.value_or(0) <= VX_MSG_MAX_PAYLOAD) {
            return true;
        }
        say("{} bytes are more than the {} that a sending function accepts: refused (-1).", *question_.size,
            VX_MSG_MAX_PAYLOAD);
        return false;
    }

    void say_what_arrives() {
        if (question_.size.value_or(0) > k_arrives) {
            say("Of {} bytes of payload the receiver reads the first {}: a datagram is read up to {} bytes, "
                "header included.",
                *question_.size, k_arrives, VX_MSG_MAX_READ);
        }
    }

    void to_one() {
        const uint16_t hop = nmapping_get_next_hop(question_.to);
        answer_.next_hop = hop;
        say_next_hop(hop);
        if (!is_active(hop)) {
            say("{} is not active: {}. vision_send_msg, vision_send_status and vxmsg_send_general refuse "
                "(-1), and nothing is sent.",
                who(table_, hop), why_inactive(table_, hop));
            return;
        }
        vexa_node_t record{};
        (void)nmapping_get(hop, &record);
        vexa_node_end_texts(&record);
        say("{} is active: the library sends to {}:{}, where the node manager says it receives.",
            who(table_, hop), record.ip, record.port);
        answer_.travels = is_reachable(record) && is_accepted(hop);
        if (answer_.travels) {
            answer_.reached.push_back(hop);
        }
    }

    void say_next_hop(uint16_t hop) {
        if (hop != question_.to) {
            say("The next hop for {} is node {}, the proxy, as for every destination from 127 up. The "
                "message keeps {} as its destination; what becomes of it there is the proxy's business.",
                named(k_node_names, question_.to), hop, question_.to);
        } else if (hop == question_.from) {
            say("{} sends to itself, which the library does like any other send.", who(table_, hop));
        } else {
            say("The next hop for {} is the node itself: ids up to 127 are reached directly.",
                named(k_node_names, question_.to));
        }
    }

    bool is_reachable(const vexa_node_t &record) {
        try {
            const endpoint where = parse_endpoint(record.ip, record.port);
            if (where.ip != 0 && where.port != 0) {
                return true;
            }
        } catch (const std::invalid_argument &) { // said below
        }
        say("'{}:{}' is no address that a datagram can be sent to: it is lost without a word.", record.ip,
            record.port);
        return false;
    }

    /// Asks the library what the receiver would say to the header.
    bool is_accepted(uint16_t receiver) {
        const vx_msg_head_t head =
            vx_msg_head_make(MSTP_USER_DATA_PROC_BY_CALLBACK, 0, question_.from, question_.to);
        nmapping_set_self(receiver);
        const bool accepted = node_check(&head) == 0;
        nmapping_set_self(question_.from);
        if (receiver == VX_NODE_MANAGER_ID) {
            say("The node manager takes REGISTER and UNREGISTER only: it drops application messages.");
            return false;
        }
        say("{} {} it: source {} and destination {} are {}ids that it takes.", who(table_, receiver),
            accepted ? "accepts" : "drops", question_.from, question_.to, accepted ? "" : "not ");
        return accepted;
    }

    void broadcast() {
        say("A broadcast goes to every active node whose id is below the sender's, which is {}.",
            question_.from);
        for (uint16_t id = 1; id < VX_NODE_COUNT; ++id) {
            if (id == question_.from || !table_.find(id)) {
                continue;
            }
            if (id > question_.from) {
                answer_.missed.push_back({id, fmt::format("its id is not below {}", question_.from)});
            } else if (!is_active(id)) {
                answer_.missed.push_back({id, "it is not active: " + why_inactive(table_, id)});
            } else {
                answer_.reached.push_back(id);
            }
        }
        answer_.travels = !answer_.reached.empty();
        for (const uint16_t id : answer_.reached) {
            say("It reaches {}.", who(table_, id));
        }
        for (const missed_node &each : answer_.missed) {
            say("It does not reach {}: {}.", who(table_, each.id), each.why);
        }
        if (!answer_.travels) {
            say("It reaches nobody, and the sending function answers 0 all the same.");
        }
    }

    const known_table &table_;
    const route_question &question_;
    route_answer answer_;
};

} // namespace

route_answer explain_route(const known_table &table, const route_question &question) {
    become(table, question.from);
    route_answer answer = explanation{table, question}.run();
    nmapping_destroy();
    return answer;
}

} // namespace vexa
