-- Wireshark's view of the VexaMsg bus and the vision link. Made by the program vexa_dissector: change
-- tools/formats or tools/wireshark/engine.lua and build the target vexamsg_lua, not this file.

local names = {
    kind = {
        bit_set = false, complete = true,
        rows = {
            [0] = "MSTP_USER_DATA_OVER_WRITE", [1] = "MSTP_USER_DATA_PROC_BY_CALLBACK", [2] = "MSTP_NODE_MGR",
            [3] = "MSTP_HEART_BEAT", [4] = "MSTP_OPERATION_ON_HB",
        },
    },
    node_id = {
        bit_set = false, complete = false,
        rows = {
            [0] = "NODE_RESERVED_ZERO", [1] = "NODE_VISION_MACHINE", [2] = "NODE_CALIB_MACHINE", [3] = "NODE_VIO",
            [4] = "NODE_DPU", [5] = "NODE_SOA", [6] = "NODE_SELF_CALIB", [7] = "NODE_SECURE_LANDING",
            [8] = "NODE_PRECISE_LANDING", [9] = "NODE_DETECTION_TRACKING", [10] = "NODE_MAPPING_PLANNING",
            [11] = "NODE_CAMERA", [12] = "NODE_TARGET_ESTIMATION", [13] = "NODE_AIRPLANE_TRANSMIT",
            [14] = "NODE_GROUND_TRANSMIT", [15] = "NODE_SERVICE_CONTROL", [16] = "NODE_SOA2",
            [17] = "NODE_SELF_CALIB2", [18] = "NODE_MISSION_MANAGER", [100] = "NODE_RESERVER_BEGIN",
            [101] = "NODE_VISION_CAMERA", [102] = "NODE_VEXA_STREAM", [126] = "NODE_RC", [127] = "PROXY_NODE_ID",
            [128] = "NODE_RESERVER_END", [64001] = "NODE_APP", [64002] = "NODE_FOR_TEST",
            [65280] = "VX_MSG_BROADCAST",
        },
    },
    msg_type = {
        bit_set = false, complete = false,
        rows = {
            [0] = "MSG_VISION_STATE", [1] = "MSG_VIO_CFG", [2] = "MSG_SOA_CFG", [3] = "MSG_SOA_RADAR_MSG",
            [4] = "MSG_CMD_ACK", [5] = "MSG_SOA_DISTANCES", [6] = "MSG_DETECTION_OBJECTS", [7] = "MSG_TRACK_OBJECTS",
            [8] = "MSG_SECURELANDING_STATUS", [9] = "MSG_PRECISELANDING_STATUS",
            [10] = "MSG_TRACKINFO_TO_TARGETESTIMATION", [11] = "MSG_VISION_CALIB_USB_SWITCH_CMD",
            [12] = "MSG_LOG_FILE_GET_REQ", [13] = "MSG_LOG_FILE_GET_RESP", [14] = "MSG_LOG_FILE_START_PACK",
            [15] = "MSG_LOG_FILE_READY", [16] = "MSG_LOG_FILE_FINISH", [17] = "MSG_LOG_LED_CONTROL",
            [18] = "MSG_LOG_FILE_DELETE_REQ", [19] = "MSG_LOG_DELETE_FINISH", [20] = "MSG_VISION_WIFI_CFG",
            [21] = "MSG_AIRTRANS_CMD_REQ", [22] = "MSG_AIRTRANS_CMD_RESP", [23] = "MSG_HEAD_FULL_DATA",
            [224] = "MSG_APP_CMD", [225] = "MSG_PLANNING_EXIT_CMD", [226] = "MSG_PLANNING_EXIT_CMD_ACK",
            [227] = "MSG_PLANNING_SWITCH_DPU_PC_CMD", [228] = "MSG_PLANNING_SWITCH_DPU_PC_CMD_ACK",
            [229] = "MSG_PLANNING_SWITCH_SOA_CMD", [230] = "MSG_PLANNING_SWITCH_SOA_CMD_ACK",
            [231] = "MSG_CAMERA_FOV_PARA_RESP", [232] = "VISION_EVENT_TO_APP", [233] = "MSG_AI_SERVICE_PLANNING",
            [234] = "MSG_CAMERA_FOV_PARA_REQ", [235] = "MSG_CONTROL_CAMERA_CMD", [236] = "MSG_CONTROL_CAMERA_CMD_ACK",
            [237] = "MSG_MISSION_MANAGER_SOA_CMD", [238] = "MSG_MISSION_MANAGER_SOA_CMD_ACK",
        },
    },
    stat = {
        bit_set = false, complete = true,
        rows = {
            [0] = "NODE_STAT_INACTIVED", [1] = "NODE_STAT_ACTIVED",
        },
    },
    mgr_cmd = {
        bit_set = false, complete = true,
        rows = {
            [0] = "MGR_CMD_REGISTER", [1] = "MGR_CMD_UNREGISTER", [2] = "MGR_CMD_NOTIFY",
        },
    },
    hb_field = {
        bit_set = false, complete = true,
        rows = {
            [0] = "LED", [1] = "ENVIRONMENT", [2] = "STEREO_CAMERA_HEAD", [3] = "STEREO_CAMERA_REAR",
            [4] = "STEREO_CAMERA_BOTTOM", [5] = "STEREO_CAMERA_RIGHT", [6] = "STEREO_CAMERA_LEFT",
            [7] = "STEREO_CAMERA_TOP", [8] = "GIMBAL_CAMERA_PRIOR", [9] = "GIMBAL_CAMERA_MINOR",
            [10] = "GIMBAL_CAMERA_THERM", [11] = "STEREO_CALIB_HEAD", [12] = "STEREO_CALIB_REAR",
            [13] = "STEREO_CALIB_BOTTOM", [14] = "STEREO_CALIB_RIGHT", [15] = "STEREO_CALIB_LEFT",
            [16] = "STEREO_CALIB_TOP", [17] = "GIMBAL_CALIB_PRIOR", [18] = "GIMBAL_CALIB_MINOR",
            [19] = "GIMBAL_CALIB_THERM", [20] = "STEREO_CALIB_IMU_HEAD", [21] = "STEREO_CALIB_IMU_REAR",
            [22] = "STEREO_CALIB_IMU_BOTTOM", [23] = "STEREO_CALIB_IMU_RIGHT", [24] = "STEREO_CALIB_IMU_LEFT",
            [25] = "STEREO_CALIB_IMU_TOP", [26] = "VISION_MACHINE_MODE", [27] = "VISION_MACHINE_RATE",
            [28] = "CALIB_MACHINE_MODE", [29] = "CALIB_MACHINE_RATE", [30] = "VIO_MODE", [31] = "VIO_RATE",
            [32] = "DPU_MODE", [33] = "DPU_RATE", [34] = "SOA_MODE", [35] = "SOA_RATE", [36] = "SELF_CALIB_MODE",
            [37] = "SELF_CALIB_RATE", [38] = "SECURE_LANDING_MODE", [39] = "SECURE_LANDING_RATE",
            [40] = "PRECISE_LANDING_MODE", [41] = "PRECISE_LANDING_RATE", [42] = "DETECTION_TRACKING_MODE",
            [43] = "DETECTION_TRACKING_RATE", [44] = "MAPPING_PATHPLANNING_MODE", [45] = "MAPPING_PATHPLANNING_RATE",
            [46] = "SHOW_HEAD_RADAR", [47] = "SHOW_REAR_RADAR", [48] = "SHOW_BOTTOM_RADAR", [49] = "SHOW_RIGHT_RADAR",
            [50] = "SHOW_LEFT_RADAR", [51] = "SHOW_TOP_RADAR", [52] = "SHOW_OMNI_RADAR", [53] = "SHOW_PRIOR_RADAR",
            [54] = "ENABLE_HEAD_SOA", [55] = "ENABLE_REAR_SOA", [56] = "ENABLE_BOTTOM_SOA", [57] = "ENABLE_RIGHT_SOA",
            [58] = "ENABLE_LEFT_SOA", [59] = "ENABLE_TOP_SOA", [60] = "ENABLE_OMNI_SOA", [61] = "ENABLE_PRIOR_SOA",
            [62] = "ENABLE_SECURE_LANDING", [63] = "ENABLE_PRECISE_LANDING", [64] = "ENABLE_RESERVED_FUNCTION",
            [65] = "WORK_MODE", [66] = "WORK_STATUS", [67] = "OVERHEART", [68] = "WIFI_ENABLE", [69] = "WIFI_STATUS",
            [70] = "STEREO_CALIB_HEAD_STATUS", [71] = "STEREO_CALIB_REAR_STATUS", [72] = "STEREO_CALIB_BOTTOM_STATUS",
        },
    },
    link_node = {
        bit_set = true, complete = false,
        rows = {
            [0] = "NULL_NODE", [1] = "AIRCRAFT_NODE", [2] = "CARMERA_NODE", [4] = "GIM_NODE",
            [8] = "AIRPLANE_CTRL_NODE", [16] = "AVOID_BARRIER", [32] = "MOVIDIUS_NODE", [64] = "BATTERY_NODE",
            [1024] = "GROUND_NODE", [2048] = "TELE_CTRL_NODE", [4096] = "PHONE_NODE", [8192] = "RC_PLAYER_NODE",
            [16384] = "VISION_NODE", [65535] = "ALL_NODE",
        },
    },
    link_type = {
        bit_set = false, complete = true,
        rows = {
            [2304] = "camera_command", [2305] = "command_ack", [2311] = "to_remote_control", [2316] = "goal_area",
            [2317] = "track_status", [2319] = "orbit_status", [2320] = "orbit_area",
        },
    },
    device = {
        bit_set = false, complete = false,
        rows = {
            [0] = "DEV_NONE", [1] = "DEV_UAV", [2] = "DEV_DSP", [3] = "DEV_DSP_RC", [4] = "DEV_RC_PLAYER",
            [7] = "DEV_ESC_PITCH", [8] = "DEV_ESC_ROLL", [9] = "DEV_ESC_YAW", [10] = "DEV_BATTERY",
            [11] = "DEV_GIMBAL", [12] = "DEV_TOF", [13] = "DEV_RC_ANDROID", [14] = "DEV_RC", [15] = "DEV_SONAR",
            [16] = "DEV_RADAR", [20] = "DEV_ESC1", [21] = "DEV_ESC2", [22] = "DEV_ESC3", [23] = "DEV_ESC4",
            [24] = "DEV_SWITCHER", [25] = "DEV_MOVIDIUS_1", [26] = "DEV_MOVIDIUS_2", [27] = "DEV_MOVIDIUS_3",
            [28] = "DEV_PC", [32] = "DEV_APP", [33] = "DEV_CAMERA", [254] = "DEV_MULTICAST", [255] = "DEV_BROADCAST",
        },
    },
    msgid = {
        bit_set = false, complete = true,
        rows = {
            [117] = "movidus_command", [123] = "movidus_report_goal_area", [124] = "movidus_report_track_status",
            [125] = "movidus_report_orbit_status", [126] = "movidus_report_orbit_area",
        },
    },
}

local blocks = {
    ["vexamsg header"] = {
        name = "header", key = "vexamsg", size = 16,
        fields = {
            {
                name = "magic", type = "u16", offset = 0, count = 1, about = "Marks a message of the routing bus",
                hex = true, must = 24122,
            },
            {
                name = "flag", type = "u8", offset = 2, count = 1, about = "0 but for the manager's acceptance",
                hex = true, bits = { { "ack", 0, 1 }, { "qos", 1, 2 }, { "reserved", 3, 5 }, { "accepted", 7, 1 } },
            },
            {
                name = "msg_type", type = "u8", offset = 3, count = 1, about = "What the message is for",
                names = "kind",
            },
            {
                name = "data_length", type = "u16", offset = 4, count = 1,
                about = "Bytes of payload behind the header",
            },
            {
                name = "src", type = "u16", offset = 6, count = 1,
                about = "Sender's node id; the proxy's in what it sends on", names = "node_id",
            },
            { name = "dst", type = "u16", offset = 8, count = 1, about = "Receiver's node id", names = "node_id" },
            { name = "sequence", type = "u16", offset = 10, count = 1, about = "Not used" },
            {
                name = "recv_time", type = "u32", offset = 12, count = 1,
                about = "Written by the receiver; 0 on the wire",
            },
        },
    },
    ["key"] = {
        name = "key", key = "vexamsg", size = 2,
        fields = {
            {
                name = "key", type = "u16", offset = 0, count = 1,
                about = "First word of the payload: a status' MsgType; a message may begin with anything",
                names = "msg_type",
            },
        },
    },
    ["data"] = {
        name = "data", key = "vexamsg", size = 0,
        fields = {
            { name = "data", type = "bytes", offset = 0, count = 0, about = "The application's bytes" },
        },
    },
    ["node"] = {
        name = "node", key = "vexamsg.node", size = 38,
        fields = {
            { name = "name", type = "text", offset = 0, count = 16, about = "The node's name" },
            { name = "ip", type = "text", offset = 16, count = 16, about = "Its IPv4 address" },
            { name = "port", type = "u16", offset = 32, count = 1, about = "Its UDP port" },
            { name = "node_id", type = "u16", offset = 34, count = 1, about = "Its id", names = "node_id" },
            { name = "stat", type = "u8", offset = 36, count = 1, about = "Whether it is active", names = "stat" },
            { name = "unused", type = "u8", offset = 37, count = 1, about = "Means nothing" },
        },
    },
    ["command and count"] = {
        name = "command and count", key = "vexamsg.mgr", size = 4,
        fields = {
            {
                name = "cmd", type = "i16", offset = 0, count = 1,
                about = "What a node asks or the manager tells; nodes do not look at it", names = "mgr_cmd",
            },
            { name = "cnt", type = "i16", offset = 2, count = 1, about = "Number of node records that follow" },
        },
    },
    ["surplus"] = {
        name = "surplus", key = "vexamsg", size = 0,
        fields = {
            {
                name = "surplus", type = "bytes", offset = 0, count = 0,
                about = "Bytes of the payload that carry nothing",
            },
        },
    },
    ["pair"] = {
        name = "pair", key = "vexamsg.pair", size = 8,
        fields = {
            {
                name = "field", type = "i32", offset = 0, count = 1,
                about = "Field of the heartbeat frame that is written", names = "hb_field",
            },
            {
                name = "value", type = "i32", offset = 4, count = 1,
                about = "Its new value; the field keeps as many low bits as it is wide",
            },
        },
    },
    ["vexamsg.link header"] = {
        name = "header", key = "vexamsg.link", size = 16,
        fields = {
            {
                name = "magic", type = "u16", offset = 0, count = 1,
                about = "Marks a camera-protocol header; on the wire the bytes 00 56", hex = true, must = 22016,
            },
            { name = "version", type = "u8", offset = 2, count = 1, must = 1 },
            {
                name = "flag", type = "u8", offset = 3, count = 1, hex = true,
                bits = { { "res", 0, 3 }, { "debug", 3, 1 }, { "reply", 4, 1 }, { "form", 5, 1 }, { "final", 6, 1 }, { "start", 7, 1 } },
                must = 224,
            },
            {
                name = "length", type = "u16", offset = 4, count = 1,
                about = "Bytes of the datagram, header included",
            },
            {
                name = "msg_src", type = "u16", offset = 6, count = 1, about = "Sender", hex = true,
                names = "link_node", must = 32,
            },
            {
                name = "msg_dst", type = "u16", offset = 8, count = 1, about = "Receiver or receivers", hex = true,
                names = "link_node",
            },
            {
                name = "msg_type", type = "u16", offset = 10, count = 1, about = "Which message the payload is",
                hex = true, names = "link_type",
            },
            {
                name = "sequence", type = "u16", offset = 12, count = 1,
                about = "Counts a sender's datagrams to both ends",
            },
            { name = "package_id", type = "u16", offset = 14, count = 1, hex = true, must = 0 },
        },
    },
    ["movidus_command"] = {
        name = "movidus_command", key = "vexamsg.movidus_command", size = 32,
        fields = {
            { name = "command", type = "u8", offset = 0, count = 1 },
            { name = "data", type = "bytes", offset = 1, count = 31 },
        },
    },
    ["command_ack"] = {
        name = "command_ack", key = "vexamsg.command_ack", size = 32,
        fields = {
            { name = "command", type = "u8", offset = 0, count = 1, about = "Command that is answered" },
            { name = "status", type = "u8", offset = 1, count = 1, about = "How it went" },
            { name = "status1", type = "u32", offset = 3, count = 1, about = "The rest of the answer" },
            { name = "data", type = "bytes", offset = 1, count = 31 },
        },
    },
    ["payload"] = {
        name = "payload", key = "vexamsg.link", size = 0,
        fields = {
            { name = "payload", type = "bytes", offset = 0, count = 0, about = "Its bytes" },
        },
    },
    ["movidus_report_goal_area"] = {
        name = "movidus_report_goal_area", key = "vexamsg.movidus_report_goal_area", size = 416,
        fields = {
            { name = "timestamp", type = "u64", offset = 0, count = 1 },
            { name = "number", type = "u32", offset = 8, count = 1 },
            { name = "total", type = "u32", offset = 12, count = 1 },
            { name = "start_x", type = "f32", offset = 16, count = 8 },
            { name = "start_y", type = "f32", offset = 48, count = 8 },
            { name = "width", type = "f32", offset = 80, count = 8 },
            { name = "height", type = "f32", offset = 112, count = 8 },
            { name = "distance", type = "f32", offset = 144, count = 8 },
            { name = "status", type = "u32", offset = 176, count = 8 },
            { name = "confidence", type = "f32", offset = 208, count = 8 },
            { name = "type", type = "u32", offset = 240, count = 8 },
            { name = "id", type = "u32", offset = 272, count = 1 },
            { name = "resolution_width", type = "u32", offset = 276, count = 1 },
            { name = "resolution_height", type = "u32", offset = 280, count = 1 },
            { name = "object_id", type = "u32", offset = 284, count = 1 },
            { name = "info", type = "bytes", offset = 288, count = 128 },
        },
    },
    ["movidus_report_track_status"] = {
        name = "movidus_report_track_status", key = "vexamsg.movidus_report_track_status", size = 56,
        fields = {
            { name = "timestamp", type = "u64", offset = 0, count = 1 },
            { name = "start_x", type = "f32", offset = 8, count = 1 },
            { name = "start_y", type = "f32", offset = 12, count = 1 },
            { name = "width", type = "f32", offset = 16, count = 1 },
            { name = "height", type = "f32", offset = 20, count = 1 },
            { name = "confidence", type = "f32", offset = 24, count = 1 },
            { name = "distance", type = "f32", offset = 28, count = 1 },
            { name = "status", type = "u32", offset = 32, count = 1 },
            { name = "type", type = "u32", offset = 36, count = 1 },
            { name = "resolution_width", type = "u32", offset = 40, count = 1 },
            { name = "resolution_height", type = "u32", offset = 44, count = 1 },
            { name = "id", type = "u32", offset = 48, count = 1 },
            { name = "object_id", type = "u32", offset = 52, count = 1 },
        },
    },
    ["movidus_report_orbit_status"] = {
        name = "movidus_report_orbit_status", key = "vexamsg.movidus_report_orbit_status", size = 48,
        fields = {
            { name = "timestamp", type = "u64", offset = 0, count = 1 },
            { name = "expect_radius", type = "f32", offset = 8, count = 1 },
            { name = "actual_radius", type = "f32", offset = 12, count = 1 },
            { name = "expect_height", type = "f32", offset = 16, count = 1 },
            { name = "actual_height", type = "f32", offset = 20, count = 1 },
            { name = "max_speed", type = "f32", offset = 24, count = 1 },
            { name = "rotate", type = "u32", offset = 28, count = 1 },
            { name = "status", type = "u32", offset = 32, count = 1 },
            { name = "set_speed", type = "f32", offset = 36, count = 1 },
            { name = "flag", type = "u32", offset = 40, count = 1 },
            { name = "reserve", type = "u32", offset = 44, count = 1 },
        },
    },
    ["movidus_report_orbit_area"] = {
        name = "movidus_report_orbit_area", key = "vexamsg.movidus_report_orbit_area", size = 36,
        fields = {
            { name = "timestamp", type = "u64", offset = 0, count = 1 },
            { name = "start_x", type = "f32", offset = 8, count = 1 },
            { name = "start_y", type = "f32", offset = 12, count = 1 },
            { name = "width", type = "f32", offset = 16, count = 1 },
            { name = "height", type = "f32", offset = 20, count = 1 },
            { name = "resolution_width", type = "u32", offset = 24, count = 1 },
            { name = "resolution_height", type = "u32", offset = 28, count = 1 },
            { name = "status", type = "u32", offset = 32, count = 1 },
        },
    },
    ["vexamsg.frame header"] = {
        name = "header", key = "vexamsg.frame", size = 8,
        fields = {
            {
                name = "magic", type = "u8", offset = 0, count = 1, about = "Start of a frame", hex = true,
                must = 253,
            },
            { name = "len", type = "u16", offset = 1, count = 1, about = "Bytes of payload" },
            { name = "seq", type = "u8", offset = 3, count = 1, about = "Counts the frames to destid" },
            { name = "destid", type = "u8", offset = 4, count = 1, about = "Device that is meant", names = "device" },
            { name = "sourceid", type = "u8", offset = 5, count = 1, about = "Device that sends", names = "device" },
            {
                name = "msgid", type = "u8", offset = 6, count = 1, about = "Which message the payload is",
                names = "msgid",
            },
            {
                name = "checksum", type = "u8", offset = 7, count = 1, about = "Sum of the seven bytes before it",
                hex = true, from = "head_sum",
            },
        },
    },
    ["CRC"] = {
        name = "CRC", key = "vexamsg.frame", size = 2,
        fields = {
            {
                name = "crc", type = "u16", offset = 0, count = 1,
                about = "CRC-16 over everything behind the first byte, and the message's extra byte", hex = true,
                from = "frame_crc",
            },
        },
    },
}

local envelopes = {
    route = {
        name = "routing message", column = "VexaMsg", head = "vexamsg header",
        length_field = "data_length", length_bias = 0, selector_field = "msg_type", most_read = 8192, by_node_id = true,
        forms = {
            { selector = 0, name = "status", parts = { { "once", "key" } }, rest = "data" },
            { selector = 1, name = "message", parts = { { "if_room", "key" } }, rest = "data" },
            { selector = 2, name = "node_info", parts = { { "once", "node" } }, if_payload = 38 },
            {
                selector = 2, name = "register",
                parts = { { "once", "command and count" }, { "counted", "node", "cnt" } }, rest = "surplus",
                rest_size = 0, if_command = 0,
            },
            {
                selector = 2, name = "unregister",
                parts = { { "once", "command and count" }, { "counted", "node", "cnt" } }, rest = "surplus",
                rest_size = 16, if_command = 1,
            },
            {
                selector = 2, name = "notify",
                parts = { { "once", "command and count" }, { "counted", "node", "cnt" } }, rest = "surplus",
                rest_size = 0, if_command = 2,
            },
            {
                selector = 2, name = "manager",
                parts = { { "once", "command and count" }, { "counted", "node", "cnt" } }, rest = "surplus",
                rest_size = 0,
            },
            {
                selector = 3, name = "heartbeat", parts = {  }, rest = "data",
                remark = "nodes ignore messages of kind 3",
            },
            { selector = 4, name = "heartbeat_set", parts = { { "fill", "pair" } }, rest = "surplus", rest_size = 0 },
        },
    },
    link = {
        name = "vision link datagram", column = "VexaLink", head = "vexamsg.link header",
        length_field = "length", length_bias = 16, selector_field = "msg_type", most_read = 0, by_node_id = false,
        forms = {
            {
                selector = 2304, name = "camera_command", parts = { { "once", "movidus_command" } },
                payload_size = 32, dst_field = "msg_dst", dst_must = 2, port = 5685, receiver = "camera",
            },
            {
                selector = 2305, name = "command_ack", parts = { { "once", "command_ack" } }, payload_size = 32,
                dst_field = "msg_dst", dst_must = 4096, port = 5673, receiver = "flight side",
            },
            {
                selector = 2311, name = "to_remote_control", parts = {  }, rest = "payload", dst_field = "msg_dst",
                dst_must = 6144, port = 5673, receiver = "flight side",
            },
            {
                selector = 2316, name = "goal_area", parts = { { "once", "movidus_report_goal_area" } },
                payload_size = 416, dst_field = "msg_dst", dst_must = 4096, port = 5673, receiver = "flight side",
            },
            {
                selector = 2317, name = "track_status", parts = { { "once", "movidus_report_track_status" } },
                payload_size = 56, dst_field = "msg_dst", dst_must = 4096, port = 5673, receiver = "flight side",
            },
            {
                selector = 2319, name = "orbit_status", parts = { { "once", "movidus_report_orbit_status" } },
                payload_size = 48, dst_field = "msg_dst", dst_must = 4096, port = 5673, receiver = "flight side",
            },
            {
                selector = 2320, name = "orbit_area", parts = { { "once", "movidus_report_orbit_area" } },
                payload_size = 36, dst_field = "msg_dst", dst_must = 4096, port = 5673, receiver = "flight side",
            },
        },
    },
    frame = {
        name = "link frame", column = "VexaFrame", head = "vexamsg.frame header",
        length_field = "len", length_bias = 0, selector_field = "msgid", most_read = 0, by_node_id = false,
        tail = "CRC",
        forms = {
            {
                selector = 117, name = "movidus_command", parts = { { "once", "movidus_command" } },
                payload_size = 32,
            },
            {
                selector = 123, name = "movidus_report_goal_area", parts = { { "once", "movidus_report_goal_area" } },
                payload_size = 416,
            },
            {
                selector = 124, name = "movidus_report_track_status",
                parts = { { "once", "movidus_report_track_status" } }, payload_size = 56,
            },
            {
                selector = 125, name = "movidus_report_orbit_status",
                parts = { { "once", "movidus_report_orbit_status" } }, payload_size = 48,
            },
            {
                selector = 126, name = "movidus_report_orbit_area",
                parts = { { "once", "movidus_report_orbit_area" } }, payload_size = 36,
            },
        },
    },
}

local findings = {
    short_head = { how = "cut", text = "{} bytes are no header, which has {}" },
    capture_cut = { how = "cut", text = "captured were {} of {} bytes" },
    fragment = { how = "cut", text = "an IP fragment, whose other fragments are missing" },
    wrong_value = { how = "malformed", text = "{} is {}, not {}" },
    unknown_value = { how = "malformed", text = "{} {} is not known" },
    length_cut = { how = "cut", text = "{} says {} bytes, {} arrived" },
    length_long = { how = "malformed", text = "{} says {} bytes, {} arrived" },
    wrong_end = { how = "malformed", text = "{} is for the {}" },
    payload_size = { how = "malformed", text = "the payload has {} bytes, that of {} has {}" },
    short_part = { how = "malformed", text = "the payload has {} bytes left, too few for a {}, which has {}" },
    wrong_count = { how = "malformed", text = "{} is {}, there is room for {} of {} bytes" },
    surplus = { how = "note", text = "{} bytes follow the last {}, not {}" },
    unended_text = { how = "malformed", text = "{} does not end in a NUL" },
    over_read = { how = "note", text = "a receiver takes {} of {} bytes" },
    ids_refused = { how = "note", text = "no node takes it: src is {}, dst is {}" },
    remark = { how = "note", text = "{}" },
}

local flight_port, camera_port = 5673, 5685
local node_port_base, node_count, proxy_id, broadcast_id = 9000, 128, 127, 65280
local crc_extra = {
    34, 187, 0, 18, 233, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 142, 159, 220, 22, 172, 15, 143, 5, 15, 128, 241, 148, 46, 196,
    142, 42, 107, 163, 193, 11, 97, 29, 0, 0, 0, 133, 126, 7, 15, 5, 114, 0, 0, 72, 12, 194, 122, 11, 159, 0, 251,
    247, 7, 57, 9, 147, 138, 0, 0, 0, 191, 31, 0, 0, 52, 62, 110, 137, 196, 190, 234, 182, 64, 141, 112, 220, 25, 11,
    158, 110, 33, 190, 214, 151, 86, 124, 234, 243, 50, 104, 106, 51, 142, 54, 164, 65, 143, 249, 244, 145, 232, 171,
    196, 153, 75, 183, 178, 39, 41, 34, 10, 125, 23, 79, 236, 111, 126, 46, 61, 58, 135, 177, 26, 8, 138, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 180, 0, 0, 0, 224, 0, 0, 0, 237, 84, 36, 0, 0, 0, 0, 0, 0, 0, 0, 195, 95, 2, 115, 0, 0, 0, 0, 0,
    194, 146, 20, 204, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
}

-- The reader that follows the tables above. Two lengths go with every datagram: what travelled, by which its own
-- lengths are judged, and what was captured, beyond which nothing is read.

local proto = Proto("vexamsg", "VexaMsg message bus and vision link")

local types = {
    u8 = { size = 1, make = ProtoField.uint8 },
    u16 = { size = 2, make = ProtoField.uint16 },
    u32 = { size = 4, make = ProtoField.uint32 },
    u64 = { size = 8, make = ProtoField.uint64 },
    i16 = { size = 2, make = ProtoField.int16, signed = true },
    i32 = { size = 4, make = ProtoField.int32, signed = true },
    f32 = { size = 4, make = ProtoField.float, float = true },
    text = { size = 1, run = true },
    bytes = { size = 1, run = true },
}

local experts = {
    malformed = ProtoExpert.new("vexamsg.malformed", "Malformed message", expert.group.MALFORMED,
                                expert.severity.ERROR),
    cut = ProtoExpert.new("vexamsg.cut", "Message cut short", expert.group.MALFORMED, expert.severity.WARN),
    note = ProtoExpert.new("vexamsg.note", "Remarkable message", expert.group.PROTOCOL, expert.severity.NOTE),
}
for _, wire in pairs(envelopes) do
    wire.head, wire.tail = blocks[wire.head], wire.tail and blocks[wire.tail]
end

local message_field = ProtoField.string("vexamsg.message", "message", "Which message it is")

-- Makes what Wireshark knows a field by.
local function make_proto_field(key, f)
    if f.type == "text" then
        return ProtoField.string(key, f.name, f.about)
    elseif f.type == "bytes" then
        return ProtoField.bytes(key, f.name, base.NONE, f.about)
    elseif f.type == "f32" then
        return ProtoField.float(key, f.name, f.about)
    end
    local values = f.names and not names[f.names].bit_set and names[f.names].rows or nil
    return types[f.type].make(key, f.name, f.hex and base.HEX or base.DEC, values, nil, f.about)
end

local proto_fields = { message_field }
for _, block in pairs(blocks) do
    for _, f in ipairs(block.fields) do
        local key = block.key .. "." .. f.name
        f.field = make_proto_field(key, f)
        table.insert(proto_fields, f.field)
        for _, bits in ipairs(f.bits or {}) do
            local name, first, width = table.unpack(bits)
            bits.field = types[f.type].make(key .. "." .. name, name, base.DEC, nil, (2 ^ width - 1) * 2 ^ first)
            table.insert(proto_fields, bits.field)
        end
    end
end
proto.fields = proto_fields
proto.experts = { experts.malformed, experts.cut, experts.note }

local function find_field(block, name)
    for _, f in ipairs(block.fields) do
        if f.name == name then
            return f
        end
    end
end

local function is_in(range_begin, range_size, size)
    return range_begin + range_size <= size
end

local function read_number(tvb, at, kind)
    local range = tvb(at, kind.size)
    return kind.signed and range:le_int() or range:le_uint()
end

-- The header's field, when it has one of that name and it was captured.
local function head_number(tvb, wire, name)
    local f = find_field(wire.head, name)
    if f and is_in(f.offset, types[f.type].size, tvb:len()) then
        return read_number(tvb, f.offset, types[f.type])
    end
end

local function magic_is_right(tvb, wire)
    local magic = wire.head.fields[1]
    return head_number(tvb, wire, magic.name) == magic.must
end

-- Where the payload lies: its begin, its end as it travelled, what the header counts, what it should count.
local function payload_of(tvb, wire)
    local around = wire.head.size + (wire.tail and wire.tail.size or 0)
    local room = math.max(tvb:reported_len() - around, 0)
    local stated = head_number(tvb, wire, wire.length_field) or room + wire.length_bias
    local inside = math.max(stated - wire.length_bias, 0)
    return {
        first = wire.head.size,
        last = wire.head.size + math.min(inside, room),
        stated = stated,
        arrived = room + wire.length_bias,
    }
end

local function sum_of(tvb, size)
    local sum = 0
    for i = 0, size - 1 do
        sum = sum + tvb(i, 1):uint()
    end
    return sum % 256
end

local function frame_crc(tvb, last, msgid)
    local crc = 0xFFFF
    local function fold(byte)
        local t = bit32.bxor(byte, bit32.band(crc, 0xFF))
        t = bit32.band(bit32.bxor(t, bit32.lshift(t, 4)), 0xFF)
        crc = bit32.bxor(bit32.rshift(crc, 8), bit32.lshift(t, 8), bit32.lshift(t, 3), bit32.rshift(t, 4))
        crc = bit32.band(crc, 0xFFFF)
    end
    for i = 1, last - 1 do
        fold(tvb(i, 1):uint())
    end
    fold(crc_extra[msgid + 1])
    return crc
end

local function is_whole_frame(tvb)
    local wire = envelopes.frame
    if tvb:len() < wire.head.size + wire.tail.size or not magic_is_right(tvb, wire) then
        return false
    end
    local payload = payload_of(tvb, wire)
    return payload.stated == payload.arrived and
               head_number(tvb, wire, "checksum") == sum_of(tvb, wire.head.size - 1)
end

local function is_whole_link_datagram(tvb)
    local wire = envelopes.link
    return magic_is_right(tvb, wire) and head_number(tvb, wire, "version") == find_field(wire.head, "version").must and
               head_number(tvb, wire, wire.length_field) == tvb:reported_len()
end

-- Which format a datagram has, by its first bytes and its port; nil when none.
local function recognise(tvb, port)
    if magic_is_right(tvb, envelopes.route) then
        return envelopes.route
    elseif port == flight_port or port == camera_port then
        return magic_is_right(tvb, envelopes.frame) and envelopes.frame or envelopes.link
    elseif is_whole_link_datagram(tvb) then
        return envelopes.link
    elseif is_whole_frame(tvb) then
        return envelopes.frame
    end
    return port >= node_port_base and port < node_port_base + node_count and envelopes.route or nil
end

local function find_form(tvb, wire, payload)
    local selector = head_number(tvb, wire, wire.selector_field)
    local size = payload.last - payload.first
    local command = size >= 2 and is_in(payload.first, 2, tvb:len()) and tvb(payload.first, 2):le_uint() or 0
    for _, form in ipairs(wire.forms) do
        if form.selector == selector and (not form.if_payload or form.if_payload == size) and
            (not form.if_command or form.if_command == command) then
            return form
        end
    end
end

local function number_text(f, value)
    return f.hex and string.format("0x%0" .. 2 * types[f.type].size .. "x", value) or string.format("%d", value)
end

-- The names of the single bits of a value, those without a name as a number.
local function bit_names(rows, value)
    if rows[value] then
        return rows[value]
    end
    local text, rest = "", value
    for bit = 0, 15 do
        local one = 2 ^ bit
        if rows[one] and bit32.btest(value, one) then
            text = text .. (text == "" and "" or "|") .. rows[one]
            rest = rest - one
        end
    end
    return (rest == 0 or text == "") and text or text .. string.format("|0x%x", rest)
end

-- Text up to its NUL, with everything unprintable escaped, and whether there was a NUL.
local function text_of(range)
    local raw = range:raw()
    local last = raw:find("\0", 1, true)
    local text = raw:sub(1, last and last - 1 or -1):gsub("[^ -~]", function(c)
        return string.format("\\x%02x", c:byte())
    end):gsub("\\([^x])", "\\x5c%1")
    return text, last ~= nil
end

-- State of one datagram: tvb, tree, wire, payload, counts by name.
local reader = {}
reader.__index = reader

function reader:say(item, code, ...)
    local words, given, i = findings[code], { ... }, 0
    local text = words.text:gsub("{}", function()
        i = i + 1
        return tostring(given[i])
    end)
    item:add_proto_expert_info(experts[words.how], text)
end

function reader:expect(item, f, value, must)
    if value ~= must then
        self:say(item, "wrong_value", f.name, number_text(f, value), number_text(f, must))
    end
end

-- What is wrong with a field's value.
function reader:judge(item, block, f, at, value, ended)
    local table_of_names = f.names and names[f.names]
    if f.must then
        self:expect(item, f, value, f.must)
    elseif f.from == "head_sum" then
        self:expect(item, f, value, sum_of(self.tvb, at))
    elseif f.from == "frame_crc" then
        self:expect(item, f, value, frame_crc(self.tvb, at, head_number(self.tvb, self.wire, self.wire.selector_field)))
    elseif table_of_names and table_of_names.complete and not table_of_names.rows[value] then
        self:say(item, "unknown_value", f.name, number_text(f, value))
    elseif f.type == "text" and not ended then
        self:say(item, "unended_text", f.name)
    elseif block == self.wire.head and f.name == self.wire.length_field then
        local p = self.payload
        if p.stated ~= p.arrived then
            self:say(item, p.stated > p.arrived and "length_cut" or "length_long", f.name, p.stated, p.arrived)
        end
    end
end

function reader:read_field(tree, block, f, at, size)
    local range, kind = self.tvb(at, size), types[f.type]
    if f.type == "text" then
        local text, ended = text_of(range)
        self:judge(tree:add(f.field, range, text), block, f, at, nil, ended)
    elseif kind.run then
        tree:add(f.field, range)
    elseif f.count > 1 then
        for i = 0, f.count - 1 do
            tree:add_le(f.field, self.tvb(at + i * kind.size, kind.size))
        end
    else
        local item = tree:add_le(f.field, range)
        local value = not kind.float and kind.size <= 4 and read_number(self.tvb, at, kind) or nil
        if f.names and names[f.names].bit_set then
            item:append_text(" (" .. bit_names(names[f.names].rows, value) .. ")")
        end
        for _, bits in ipairs(f.bits or {}) do
            item:add_le(bits.field, range)
        end
        self.values[f.name] = { value = value, item = item, field = f }
        self:judge(item, block, f, at, value)
    end
end

-- Reads the fields that lie whole before `last`.
function reader:read_block(tree, block, at, last)
    for i, f in ipairs(block.fields) do
        local offset = at + f.offset
        local size = f.count == 0 and last - offset or f.count * types[f.type].size
        if size <= 0 or offset + size > last or not is_in(offset, size, self.tvb:len()) then
            return
        end
        self:read_field(tree, block, f, offset, size)
        if i == 1 and block == self.wire.head and not magic_is_right(self.tvb, self.wire) then
            return -- what follows means something else
        end
    end
end

-- How often a counted block stands here: as announced, as far as there is room.
function reader:counted(count_field, block, room)
    local count = self.values[count_field]
    if not count then
        return 0 -- and it was said why
    end
    if count.value < 0 or count.value > room then
        self:say(count.item, "wrong_count", count.field.name, count.value, room, block.size)
        self.wrong_count = true
    end
    return math.min(math.max(count.value, 0), room)
end

-- Reads one part; gives where the next one begins.
function reader:read_part(form, part, at)
    local how, block, last = part[1], blocks[part[2]], self.payload.last
    local left = last - at
    if how == "once" or how == "if_room" then
        if left >= block.size or how == "once" then
            self:read_block(self.tree, block, at, last)
        end
        if left < block.size and how == "once" and not form.payload_size then
            self:say(self.tree, "short_part", left, block.name, block.size)
        end
        return left >= block.size and at + block.size or how == "once" and last or at
    end
    local room = math.floor(left / block.size)
    local count = how == "fill" and room or self:counted(part[3], block, room)
    for i = 0, count - 1 do
        local offset = at + i * block.size
        local size = math.min(block.size, self.tvb:len() - offset)
        if size <= 0 then
            break
        end
        local group = self.tree:add(self.tvb(offset, size), block.name .. " " .. i)
        self:read_block(group, block, offset, offset + size)
    end
    return at + count * block.size
end

function reader:judge_form(form)
    local port = self.port
    if form.port and (port == flight_port or port == camera_port) and port ~= form.port then
        self:say(self.tree, "wrong_end", form.name, form.receiver)
    end
    local dst = form.dst_field and self.values[form.dst_field]
    if dst then
        self:expect(dst.item, dst.field, dst.value, form.dst_must)
    end
    local size = self.payload.last - self.payload.first
    if form.payload_size and size ~= form.payload_size then
        self:say(self.tree, "payload_size", size, form.name, form.payload_size)
    end
end

function reader:read_rest(form, last_part, at)
    local p = self.payload
    local left = p.last - at
    if left > 0 then
        self:read_block(self.tree, blocks[form.rest], at, math.min(p.last, math.max(at, self.tvb:len())))
    end
    if form.rest_size and left ~= form.rest_size and not self.wrong_count and last_part and p.stated == p.arrived then
        self:say(self.tree, "surplus", left, blocks[last_part[2]].name, form.rest_size)
    end
end

function reader:read_payload(form)
    self:judge_form(form)
    local at, last_part = self.payload.first, nil
    for _, part in ipairs(form.parts) do
        at = self:read_part(form, part, at)
        last_part = part
    end
    if form.rest then
        self:read_rest(form, last_part, at)
    end
    if form.remark then
        self:say(self.tree, "remark", form.remark)
    end
end

-- What receivers will think of it.
function reader:judge_journey()
    local wire, size = self.wire, self.tvb:reported_len()
    if wire.most_read > 0 and size > wire.most_read then
        self:say(self.tree, "over_read", wire.most_read, size)
    end
    local src, dst = head_number(self.tvb, wire, "src"), head_number(self.tvb, wire, "dst")
    if wire.by_node_id and src and dst and self.port ~= node_port_base + proxy_id and dst ~= broadcast_id and
        (src >= node_count or dst >= node_count) then
        self:say(self.values.src.item, "ids_refused", src, dst)
    end
end

function reader:run(pinfo)
    local wire, tvb = self.wire, self.tvb
    pinfo.cols.protocol = wire.column
    pinfo.cols.info = "unknown"
    if tvb:reported_len() < wire.head.size then
        self:say(self.tree, "short_head", tvb:reported_len(), wire.head.size)
        return
    end
    if tvb:len() < tvb:reported_len() then
        self:say(self.tree, "capture_cut", tvb:len(), tvb:reported_len())
    end
    self.payload = payload_of(tvb, wire)
    self:read_block(self.tree, wire.head, 0, tvb:len())
    if not magic_is_right(tvb, wire) then
        return
    end
    self:judge_journey()
    local form = find_form(tvb, wire, self.payload)
    if form then
        local src, dst = head_number(tvb, wire, "src"), head_number(tvb, wire, "dst")
        pinfo.cols.info = form.name .. (src and dst and string.format(" %d > %d", src, dst) or "")
        self.tree:add(message_field, form.name):set_generated()
        self:read_payload(form)
    end
    if wire.tail then
        self:read_block(self.tree, wire.tail, self.payload.last, tvb:len())
    end
end

local function dissect(tvb, pinfo, tree)
    local wire = recognise(tvb, pinfo.dst_port)
    if not wire then
        return 0
    end
    local item = tree:add(proto, tvb(), "VexaMsg " .. wire.name)
    local one = { tvb = tvb, tree = item, wire = wire, port = pinfo.dst_port, values = {} }
    setmetatable(one, reader):run(pinfo)
    return tvb:len()
end

function proto.dissector(tvb, pinfo, tree)
    return dissect(tvb, pinfo, tree)
end

local ports = DissectorTable.get("udp.port")
ports:add(flight_port, proto)
ports:add(camera_port, proto)
ports:add(string.format("%d-%d", node_port_base, node_port_base + node_count - 1), proto)
proto:register_heuristic("udp", function(tvb, pinfo, tree)
    return dissect(tvb, pinfo, tree) > 0
end)
