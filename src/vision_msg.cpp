// The senders of the vision link: reports to the flight side, commands to the camera.
//
// They run on the caller's thread, several at once if need be, and share one socket and one sequence counter.
// Neither is locked: numbers are taken atomically, and the one thread that finds no socket makes it while
// the others wait for the outcome.
#include "vision_protocol.h"

#include "after_fork.h"
#include "vx_fd.h"
#include "vx_log.h"

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr char k_unit[] = "src/vision_msg";

constexpr size_t k_datagram_size = 4096; // [bytes] room for one datagram
constexpr int k_attempts = 5;            // of one datagram
constexpr useconds_t k_pause_us = 1000;  // after every attempt
constexpr int k_no_socket = -1;
constexpr int k_socket_in_the_making = -2; // one thread is in socket()

static_assert(VISION_MSG_HEAD_SIZE + VXLINK_PAYLOAD_STORAGE <= k_datagram_size);

enum flight_msg_type : unsigned short {
    k_type_command = 0x0900, // to the camera
    k_type_command_ack = 0x0901,
    k_type_to_remote_control = 0x0907, // the one type that the remote control gets too
    k_type_goal_area = 0x090C,
    k_type_track_status = 0x090D,
    k_type_orbit_status = 0x090F,
    k_type_orbit_area = 0x0910,
};

constinit std::atomic<int> SockfdSend{k_no_socket}; // all sends; once it is a descriptor it stays
constinit std::atomic<uint16_t> g_sequence{0};      // `sequence` of the next datagram, to either receiver
constinit std::atomic<uint32_t> id{0};              // calls of vision_test_send_track_status so far

/// Makes the socket for everybody; only by the thread that has claimed the making.
int make_socket() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const int why = errno;
    if (fd >= 0) {
        keep_from_other_programs(fd);
    }
    SockfdSend.store(fd < 0 ? k_no_socket : fd, std::memory_order_release);
    SockfdSend.notify_all();
    if (fd < 0) {
        errno = why;
        perror("sending socket create failed!\n");
    }
    return fd;
}

/// The process's one sending socket, made when there is none. Negative when it cannot be made now.
int sending_socket() {
    int fd = SockfdSend.load(std::memory_order_acquire);
    while (fd < 0) {
        if (fd == k_socket_in_the_making) {
            SockfdSend.wait(k_socket_in_the_making, std::memory_order_acquire);
            fd = SockfdSend.load(std::memory_order_acquire);
        } else if (SockfdSend.compare_exchange_strong(fd, k_socket_in_the_making,
                                                      std::memory_order_acquire)) {
            return make_socket();
        }
    }
    return fd;
}

sockaddr_in destination_of(const char *ip, uint16_t port) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    (void)inet_pton(AF_INET, ip, &to.sin_addr); // what is no address stays 0.0.0.0, as callers know it
    return to;
}

int send_with_retries(int fd, const void *bytes, size_t len, const sockaddr_in &to) {
    int counter = k_attempts - 1;
    for (;;) {
        const ssize_t sent = sendto(fd, bytes, len, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
        const int why = errno;
        (void)usleep(k_pause_us); // cut short by a signal it has still let others run
        errno = why;
        if (sent > 0 && counter > 0) {
            return static_cast<int>(sent);
        }
        if (sent > 0) {
            perror("send failed!\n"); // Success on the last attempt is a failure on purpose; callers know it.
            return -1;
        }
        if (--counter < 0) {
            return static_cast<int>(sent);
        }
    }
}

int udp_send(const void *bytes, size_t len, const char *ip, uint16_t port) {
    const int fd = sending_socket();
    return fd < 0 ? -1 : send_with_retries(fd, bytes, len, destination_of(ip, port));
}

/// Payload length of a record that can be sent, else -1; says why not, under the public function's name. Read
/// once here: a caller that fills the record anew meanwhile must not get past the check.
int sendable_len(const char *function, unsigned short msg_type, const vxlink_message_head_t *msg) {
    if (msg == nullptr) {
        VX_LOG_AS(function, ERROR, "msg type 0x%x not sent, pMav is NULL\n", msg_type);
        return -1;
    }
    uint16_t len = 0;
    memcpy(&len, reinterpret_cast<const uint8_t *>(msg) + offsetof(vxlink_message_head_t, len), sizeof len);
    if (len > VXLINK_PAYLOAD_STORAGE) {
        VX_LOG_AS(function, ERROR, "msg type 0x%x not sent, len %u is above %d\n", msg_type, len,
                  VXLINK_PAYLOAD_STORAGE);
        return -1;
    }
    return len;
}

/// Sends a record's payload behind a camera-protocol header.
int send_payload(unsigned short msg_type, vxlink_message_head_t *msg, size_t payload_len, uint16_t msg_dst,
                 const char *ip, uint16_t port) {
    msg_head_t head;
    msg_head_init(&head);
    head.length = static_cast<uint16_t>(VISION_MSG_HEAD_SIZE + payload_len);
    head.msg_src = MOVIDIUS_NODE;
    head.msg_dst = msg_dst;
    head.msg_type = msg_type;
    head.sequence = g_sequence.fetch_add(1, std::memory_order_relaxed);
    head.flag.reply = 0;
    head.flag.form = 1;

    std::array<uint8_t, k_datagram_size> datagram{};
    msg_head_store(datagram.data(), &head);
    memcpy(datagram.data() + VISION_MSG_HEAD_SIZE, vxlink_payload(msg), payload_len);
    return udp_send(datagram.data(), head.length, ip, port);
}

/// What all reports have in common. `encode` is the message's own.
template <class Record, class Encode>
int send_report(const char *function, unsigned short msg_type, const Record *record, Encode encode) {
    if (record == nullptr) {
        VX_LOG_AS(function, ERROR, "msg type 0x%x not sent, the record is NULL\n", msg_type);
        return -1;
    }
    vxlink_message_head_t frame{};
    (void)encode(DEV_APP, DEV_MOVIDIUS_1, &frame, record); // neither is NULL, and the length fits
    return send_general_message(msg_type, &frame);
}

int send_ack(const char *function, const vxlink_movidus_command_t &ack) {
    return send_report(function, k_type_command_ack, &ack, vxlink_msg_movidus_command_encode);
}

} // namespace

int send_message_track_status(vxlink_movidus_report_track_status_t *mav_report_goal) {
    return send_report(__func__, k_type_track_status, mav_report_goal,
                       vxlink_msg_movidus_report_track_status_encode);
}

int send_message_track_area_array(vxlink_movidus_report_goal_area_t *mav_report_goal) {
    return send_report(__func__, k_type_goal_area, mav_report_goal,
                       vxlink_msg_movidus_report_goal_area_encode);
}

int send_message_orbit_status(vxlink_movidus_report_orbit_status_t *mav_orbit_status) {
    return send_report(__func__, k_type_orbit_status, mav_orbit_status,
                       vxlink_msg_movidus_report_orbit_status_encode);
}

int send_message_orbit_area(vxlink_movidus_report_orbit_area_t *mav_orbit_area) {
    return send_report(__func__, k_type_orbit_area, mav_orbit_area,
                       vxlink_msg_movidus_report_orbit_area_encode);
}

int send_ifly_command_ack_rc(unsigned char cmd, unsigned char status, unsigned int status1) {
    vxlink_movidus_command_t ack{};
    ack.command = cmd;
    ack.data[0] = status;
    ut_put_le32(&ack.data[2], status1); // Behind a zero byte on purpose; the flight side reads it there.
    return send_ack(__func__, ack);
}

int send_ifly_command_ack(unsigned char cmd, unsigned char status) {
    vxlink_movidus_command_t ack{};
    ack.command = cmd;
    ack.data[0] = status;
    return send_ack(__func__, ack);
}

int vision_test_send_track_status(void) {
    timeval now{};
    (void)gettimeofday(&now, nullptr); // cannot fail with room for the answer
    vxlink_movidus_report_track_status_t report{};
    report.timestamp =
        static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_usec) * 1000; // [ns]
    report.start_x = 0.2F;
    report.start_y = 0.25F;
    report.width = 0.18F;
    report.height = 0.16F;
    report.confidence = 0.9F;
    report.distance = 10.0F;
    report.status = 1;
    report.type = 1;
    report.resolution_width = 1280;
    report.resolution_height = 720;
    report.id = id.fetch_add(1, std::memory_order_relaxed);
    return send_message_track_status(&report);
}

int send_general_message(unsigned short msgType, vxlink_message_head_t *pMav) {
    const int len = sendable_len(__func__, msgType, pMav);
    if (len < 0) {
        return -1;
    }
    const uint16_t receivers = msgType == k_type_to_remote_control ? PHONE_NODE | TELE_CTRL_NODE : PHONE_NODE;
    const int sent = send_payload(msgType, pMav, static_cast<size_t>(len), receivers, VISION_FLIGHT_IP,
                                  VISION_FLIGHT_PORT);
    if (sent == -1) {
        VX_LOG(ERROR, "udp send data error!\n");
    }
    return sent;
}

int vision_udp_send(char *sData, int dwLen, char *sIpAddr, unsigned short wPort) {
    if (dwLen < 0 || (sData == nullptr && dwLen > 0) || sIpAddr == nullptr) {
        VX_LOG(ERROR, "not sent, sData %p, dwLen %d, sIpAddr %s\n", static_cast<void *>(sData), dwLen,
               sIpAddr != nullptr ? sIpAddr : "NULL");
        return -1;
    }
    return udp_send(sData, static_cast<size_t>(dwLen), sIpAddr, wPort);
}

int send_general_message_cam(unsigned short msgType, vxlink_message_head_t *pMav) {
    const int len = sendable_len(__func__, msgType, pMav);
    if (len < 0) {
        return -1;
    }
    if (send_payload(msgType, pMav, static_cast<size_t>(len), CARMERA_NODE, VISION_CAMERA_IP,
                     VISION_CAMERA_PORT) == -1) {
        VX_LOG(ERROR, "udp send data error!\n");
        return -1;
    }
    VX_LOG(INFO, "send msg type 0x%x to camera success\n", msgType);
    return 0;
}

int send_ifly_command_cam(unsigned char cmd, unsigned char *pData, uint16_t length) {
    if (length > VISION_COMMAND_MAX_LEN) {
        return -1;
    }
    if (pData == nullptr && length > 0) {
        VX_LOG(ERROR, "command 0x%x not sent, pData is NULL, length %u\n", cmd, length);
        return -1;
    }
    std::array<uint8_t, VISION_COMMAND_MAX_LEN> block{};
    if (length > 0) {
        memcpy(block.data(), pData, length);
    }
    vxlink_message_head_t frame{};
    (void)vxlink_msg_movidus_command_pack(DEV_CAMERA, DEV_MOVIDIUS_1, &frame, cmd, block.data());
    return send_general_message_cam(k_type_command, &frame);
}

/// The socket is not bound, so parent and child may share it.
void vision_msg_after_fork() {
    int in_the_making = k_socket_in_the_making;
    (void)SockfdSend.compare_exchange_strong(in_the_making, k_no_socket, std::memory_order_relaxed);
}
