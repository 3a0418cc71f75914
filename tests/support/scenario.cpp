// A node's whole life. See scenario.h.
#include "scenario.h"

#include "node_mapping.h"
#include "stop_time.h"
#include "wait.h"

#include <atomic>
#include <ostream>

namespace bus {

namespace {

/// No two plays send the same, so that what one has left behind is not taken for the other's.
uint8_t next_play() {
    static std::atomic<uint8_t> plays{0};
    return ++plays;
}

class scenario {
public:
    scenario(node_under_test &node, uint16_t id, milliseconds patience)
        : node_(node), id_(id), patience_(patience), mark_(next_play()) {
        (void)node_.other(3);
        (void)node_.other(k_proxy);
    }

    played play() {
        result_.init = node_.start();
        if (result_.init == 0) {
            join();
            send();
            receive();
        }
        result_.stop_s = timed_stop();
        for (const bytes &told : node_.manager().take_all()) {
            result_.farewell = result_.farewell || told.size() == 74;
        }
        return result_;
    }

private:
    void join() {
        const std::optional<bytes> request = node_.manager().receive(patience_);
        if (!request) {
            nmapping_set_stat(k_manager, 1); // so that the steps behind this one have something to do
        }
        result_.accepted =
            request && again_until([this] {
                node_.tell(table({record_of(3), record_of(k_proxy)}), k_accepted);
                return wait_until(
                    [] { return nmapping_get_stat(k_manager) == 1 && nmapping_get_stat(3) == 1; },
                    milliseconds(100));
            });
    }

    void send() {
        const bytes words = {mark_, 1};
        const bytes report = {6, 0, mark_};
        const HeartBeatPair pair = {WORK_MODE, mark_};
        result_.direct = vision_send_msg(NODE_VIO, words.data(), 2);
        result_.direct_arrived = arrives(3, message({1, id_, 3}, words));
        result_.status = vision_send_status(NODE_VIO, report.data(), 3);
        result_.status_arrived = arrives(3, message({0, id_, 3}, report));
        const bytes queued = {mark_, 2};
        result_.queued = vxmsg_send_general(3, 1, queued.data(), 2);
        result_.queued_arrived = arrives(3, message({1, id_, 3}, queued));
        const bytes to_all = {mark_, 3};
        result_.broadcast = vision_brocast_msg(to_all.data(), 2);
        result_.broadcast_arrived = arrives(3, message({1, id_, 3}, to_all));
        result_.heartbeat = vision_set_hearbeat(&pair, 1);
        result_.heartbeat_arrived =
            arrives(k_proxy, message({4, id_, k_proxy}, encoded({{WORK_MODE, mark_}})));
    }

    void receive() {
        node_under_test::forget_heard();
        node_.send(message({1, 3, id_}, {mark_}));
        result_.heard = wait_until([] { return !node_under_test::all_heard().empty(); }, patience_);
        node_.send(message({0, 3, id_}, {0xE0, 0, mark_}));
        result_.polled = wait_until(
            [this] {
                uint8_t room[8192];
                MsgExtra extra{};
                return vision_recv_status(MSG_APP_CMD, room, sizeof room, &extra) == 3 && room[2] == mark_;
            },
            patience_);
        node_.send(message({4, k_proxy, id_}, encoded({{WORK_STATUS, mark_}})));
        result_.applied = wait_until(
            [this] {
                VPHeartbeatFrame frame{};
                (void)vision_get_hearbeat(&frame);
                return frame.task.details.work_status == mark_;
            },
            patience_);
    }

    /// Does something over and over until it says yes or the patience is over.
    template <class Attempt>
    bool again_until(Attempt attempt) {
        return wait_until(attempt, patience_);
    }

    bool arrives(uint16_t at, const bytes &datagram) {
        for (;;) {
            const std::optional<bytes> next = node_.other(at).receive(patience_);
            if (!next || *next == datagram) {
                return next.has_value();
            }
        }
    }

    node_under_test &node_;
    uint16_t id_;
    milliseconds patience_;
    uint8_t mark_;
    played result_;
};

} // namespace

bool played::all_well() const {
    return init == 0 && accepted && all_accepted() && lost() == 0 && farewell;
}

bool played::all_accepted() const {
    return direct == 0 && status == 0 && queued == 0 && broadcast == 0 && heartbeat == 0;
}

int played::lost() const {
    int missing = 0;
    for (const bool there : {direct_arrived, status_arrived, queued_arrived, broadcast_arrived,
                             heartbeat_arrived, heard, polled, applied}) {
        missing += there ? 0 : 1;
    }
    return missing;
}

std::ostream &operator<<(std::ostream &out, const played &p) {
    return out << "init " << p.init << ", accepted " << p.accepted << ", answers " << p.direct << p.status
               << p.queued << p.broadcast << p.heartbeat << ", arrived " << p.direct_arrived
               << p.status_arrived << p.queued_arrived << p.broadcast_arrived << p.heartbeat_arrived
               << ", heard " << p.heard << p.polled << p.applied << ", farewell " << p.farewell
               << ", stopped in " << p.stop_s << " s";
}

played play_scenario(node_under_test &node, uint16_t id, milliseconds patience) {
    return scenario{node, id, patience}.play();
}

} // namespace bus
