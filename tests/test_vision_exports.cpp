// What of the vision link can be seen from outside the library.
#include "vision_protocol.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>

namespace {

/// The library, looked into without what the test program itself defines.
class library {
public:
    library() {
        Dl_info info{};
        if (dladdr(reinterpret_cast<const void *>(&vision_udp_send), &info) != 0) {
            handle_ = dlopen(info.dli_fname, RTLD_LAZY | RTLD_LOCAL);
        }
    }
    ~library() {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }
    library(const library &) = delete;
    library &operator=(const library &) = delete;

    bool is_open() const { return handle_ != nullptr; }
    bool exports(const char *name) const { return dlsym(handle_, name) != nullptr; }

private:
    void *handle_ = nullptr;
};

} // namespace

TEST(VisionLinkExports, AreTheSendersAndTheHeaderFunctions) {
    const library lib;
    ASSERT_TRUE(lib.is_open());
    for (const char *name : {"send_message_track_status",
                             "send_message_track_area_array",
                             "send_message_orbit_status",
                             "send_message_orbit_area",
                             "send_ifly_command_ack_rc",
                             "send_ifly_command_ack",
                             "vision_test_send_track_status",
                             "send_general_message",
                             "vision_udp_send",
                             "send_general_message_cam",
                             "send_ifly_command_cam",
                             "msg_head_init",
                             "check_msg_magic",
                             "is_need_reply",
                             "msg_head_htons",
                             "msg_head_ntohs",
                             "set_data_form_flag",
                             "set_reply_flag",
                             "set_final_flag",
                             "set_start_flag",
                             "data_to_json_cb"}) {
        EXPECT_TRUE(lib.exports(name)) << name;
    }
}

TEST(VisionLinkExports, AreNotTheLinkHelpersNorTheState) {
    const library lib;
    ASSERT_TRUE(lib.is_open());
    for (const char *name :
         {"SockfdSend", "g_sequence", "id", "vxlink_get_channel_status", "vxlink_finalize_message",
          "vxlink_finalize_message_chan", "vxlink_message_crcs", "crc_init", "crc_accumulate",
          "crc_accumulate_buffer", "crc_calculate", "mav_array_memcpy", "vxlink_msg_movidus_command_pack",
          "vxlink_msg_movidus_command_encode", "msg_head_store", "msg_head_load"}) {
        EXPECT_FALSE(lib.exports(name)) << name;
    }
}
