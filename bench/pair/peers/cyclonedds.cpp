// Cyclone DDS, best effort, one topic each way.
#include "contenders.h"
#include "message.h"

#include <dds/dds.h>
#include <fmt/core.h>
#include <stdexcept>

namespace bench {
namespace {

dds_entity_t check(dds_entity_t made) {
    if (made < 0) {
        throw std::runtime_error(dds_strretcode(made));
    }
    return made;
}

class cyclonedds_side : public side {
public:
    cyclonedds_side(const place &where, listener &to)
        : participant_(check(dds_create_participant(DDS_DOMAIN_DEFAULT, nullptr, nullptr))) {
        dds_qos_t *quality = dds_create_qos();
        dds_qset_reliability(quality, DDS_RELIABILITY_BEST_EFFORT, 0);
        dds_qset_history(quality, DDS_HISTORY_KEEP_ALL, 0);
        dds_listener_t *arrivals = dds_create_listener(&to);
        dds_lset_data_available(arrivals, on_data);
        writer_ = check(dds_create_writer(participant_, topic(where, where.asks), quality, nullptr));
        (void)check(dds_create_reader(participant_, topic(where, !where.asks), quality, arrivals));
        dds_delete_listener(arrivals);
        dds_delete_qos(quality);
    }

    void send(const uint8_t *payload, size_t size_bytes) override {
        bench_Message message{};
        message.bytes._buffer = const_cast<uint8_t *>(payload); // read only
        message.bytes._length = static_cast<uint32_t>(size_bytes);
        message.bytes._maximum = message.bytes._length;
        (void)dds_write(writer_, &message);
    }

private:
    dds_entity_t topic(const place &where, bool of_asking_side) const {
        const std::string name = fmt::format("{}_{}", of_asking_side ? "ask" : "answer", where.number);
        return check(dds_create_topic(participant_, &bench_Message_desc, name.c_str(), nullptr, nullptr));
    }

    static void on_data(dds_entity_t reader, void *to) {
        for (;;) {
            void *message = nullptr;
            dds_sample_info_t info{};
            if (dds_take(reader, &message, &info, 1, 1) < 1) {
                return;
            }
            if (info.valid_data) {
                const auto &bytes = static_cast<const bench_Message *>(message)->bytes;
                static_cast<listener *>(to)->on_message(bytes._buffer, bytes._length);
            }
            (void)dds_return_loan(reader, &message, 1);
        }
    }

    const dds_entity_t participant_;
    dds_entity_t writer_ = 0;
};

} // namespace

std::unique_ptr<side> make_cyclonedds(const place &where, listener &to) {
    return std::make_unique<cyclonedds_side>(where, to);
}

} // namespace bench
