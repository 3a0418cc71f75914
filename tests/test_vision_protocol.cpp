// The camera-protocol header and the functions on it.
#include "vision_protocol.h"

#include "log_capture.h"
#include "vision_log.h"

#include <array>
#include <bit>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using bytes_t = std::vector<uint8_t>;

/// The header as it lies in memory.
bytes_t raw(const msg_head_t &head) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&head);
    return {bytes, bytes + sizeof head};
}

msg_head_t fresh() {
    msg_head_t head;
    memset(&head, 0xEE, sizeof head);
    msg_head_init(&head);
    return head;
}

uint8_t flag_byte(const msg_head_t &head) {
    return raw(head)[3];
}

bytes_t stored(const msg_head_t &head) {
    bytes_t bytes(VISION_MSG_HEAD_SIZE);
    msg_head_store(bytes.data(), &head);
    return bytes;
}

msg_head_t with_counting_words() {
    msg_head_t head = fresh();
    head.length = 0x0102;
    head.msg_src = 0x0304;
    head.msg_dst = 0x0506;
    head.msg_type = 0x0708;
    head.sequence = 0x090A;
    head.package_id = 0x0B0C;
    return head;
}

} // namespace

TEST(NodeTypes, HaveTheirNumbers) {
    constexpr std::pair<node_type_e_, unsigned> rows[] = {
        {NULL_NODE, 0},          {AIRCRAFT_NODE, 1},     {CARMERA_NODE, 2},   {GIM_NODE, 4},
        {AIRPLANE_CTRL_NODE, 8}, {AVOID_BARRIER, 16},    {MOVIDIUS_NODE, 32}, {BATTERY_NODE, 64},
        {GROUND_NODE, 1024},     {TELE_CTRL_NODE, 2048}, {PHONE_NODE, 4096},  {RC_PLAYER_NODE, 8192},
        {VISION_NODE, 16384},    {ALL_NODE, 65535}};
    for (const auto &[name, number] : rows) {
        EXPECT_EQ(static_cast<unsigned>(name), number);
    }
}

TEST(FlagByte, HasItsFieldsAtTheirBits) {
    struct row {
        flag_s flag;
        uint8_t byte;
    };
    row rows[7] = {};
    rows[0].flag.res = 7, rows[0].byte = 0x07;
    rows[1].flag.debug = 1, rows[1].byte = 0x08;
    rows[2].flag.reply = 1, rows[2].byte = 0x10;
    rows[3].flag.form = 1, rows[3].byte = 0x20;
    rows[4].flag.final = 1, rows[4].byte = 0x40;
    rows[5].flag.start = 1, rows[5].byte = 0x80;
    rows[6].flag.res = 1, rows[6].byte = 0x01;
    for (const row &r : rows) {
        EXPECT_EQ(memcmp(&r.flag, &r.byte, 1), 0) << static_cast<int>(r.byte);
    }
}

TEST(MsgHead, HasItsFieldsAtTheirOffsets) {
    EXPECT_EQ(sizeof(msg_head_t), 16U);
    EXPECT_EQ(offsetof(msg_head_t, magic), 0U);
    EXPECT_EQ(offsetof(msg_head_t, version), 2U);
    EXPECT_EQ(offsetof(msg_head_t, flag), 3U);
    EXPECT_EQ(offsetof(msg_head_t, length), 4U);
    EXPECT_EQ(offsetof(msg_head_t, msg_src), 6U);
    EXPECT_EQ(offsetof(msg_head_t, msg_dst), 8U);
    EXPECT_EQ(offsetof(msg_head_t, msg_type), 10U);
    EXPECT_EQ(offsetof(msg_head_t, sequence), 12U);
    EXPECT_EQ(offsetof(msg_head_t, package_id), 14U);
    EXPECT_EQ(offsetof(msg_head_t, data), 16U);
}

TEST(MsgHeadInit, GivesMagicVersionStartAndFinalAndZeros) {
    EXPECT_EQ(raw(fresh()), (bytes_t{0x00, 0x56, 0x01, 0xC0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(MsgHeadInit, LeavesTheDataAlone) {
    alignas(msg_head_t) std::array<uint8_t, 20> room{};
    room.fill(0xEE);
    msg_head_init(reinterpret_cast<msg_head_t *>(room.data()));
    for (size_t i = 16; i < room.size(); ++i) {
        EXPECT_EQ(room[i], 0xEE);
    }
}

TEST(CheckMsgMagic, AcceptsAFreshHeader) {
    msg_head_t head = fresh();
    EXPECT_EQ(check_msg_magic(&head), 1);
}

TEST(CheckMsgMagic, RefusesTheBytesInTheOtherOrder) {
    msg_head_t head = fresh();
    head.magic[0] = 0x56;
    head.magic[1] = 0x00;
    EXPECT_EQ(check_msg_magic(&head), 0);
}

TEST(CheckMsgMagic, LooksAtBothBytes) {
    msg_head_t head = fresh();
    head.magic[0] = 0x01;
    EXPECT_EQ(check_msg_magic(&head), 0);
    head = fresh();
    head.magic[1] = 0x57;
    EXPECT_EQ(check_msg_magic(&head), 0);
}

TEST(CheckMsgMagic, DoesNotLookAtTheVersion) {
    msg_head_t head = fresh();
    head.version = 9;
    EXPECT_EQ(check_msg_magic(&head), 1);
}

TEST(IsNeedReply, IsTheReplyBit) {
    msg_head_t head = fresh();
    EXPECT_EQ(is_need_reply(&head), 0);
    head.flag.reply = 1;
    EXPECT_EQ(is_need_reply(&head), 1);
}

TEST(IsNeedReply, IsNotAnyOtherBit) {
    msg_head_t head = fresh();
    memset(&head.flag, 0xEF, 1);
    EXPECT_EQ(is_need_reply(&head), 0);
}

TEST(MsgHeadHtons, SwapsTheSixWordsAndNothingElse) {
    msg_head_t head = with_counting_words();
    msg_head_htons(&head);
    EXPECT_EQ(head.length, 0x0201);
    EXPECT_EQ(head.msg_src, 0x0403);
    EXPECT_EQ(head.msg_dst, 0x0605);
    EXPECT_EQ(head.msg_type, 0x0807);
    EXPECT_EQ(head.sequence, 0x0A09);
    EXPECT_EQ(head.package_id, 0x0C0B);
    bytes_t rest = raw(head);
    rest.resize(4);
    EXPECT_EQ(rest, (bytes_t{0x00, 0x56, 0x01, 0xC0}));
}

TEST(MsgHeadHtons, PutsTheHighByteFirst) {
    if constexpr (std::endian::native == std::endian::big) {
        GTEST_SKIP() << "here host order is network order";
    }
    msg_head_t head = fresh();
    head.length = 0x0030;
    msg_head_htons(&head);
    EXPECT_EQ(raw(head)[4], 0x00);
    EXPECT_EQ(raw(head)[5], 0x30);
}

TEST(MsgHeadHtons, AppliedTwiceRestoresTheHeader) {
    msg_head_t head = with_counting_words();
    const bytes_t before = raw(head);
    msg_head_htons(&head);
    msg_head_htons(&head);
    EXPECT_EQ(raw(head), before);
}

TEST(MsgHeadNtohs, IsTheSameSwap) {
    msg_head_t one = with_counting_words();
    msg_head_t other = with_counting_words();
    msg_head_htons(&one);
    msg_head_ntohs(&other);
    EXPECT_EQ(raw(one), raw(other));
    msg_head_ntohs(&other);
    EXPECT_EQ(raw(other), raw(with_counting_words()));
}

TEST(SetDataFormFlag, TakesTheLowestBit) {
    msg_head_t head = fresh();
    set_data_form_flag(&head, 1);
    EXPECT_EQ(flag_byte(head), 0xE0);
    set_data_form_flag(&head, 2);
    EXPECT_EQ(flag_byte(head), 0xC0);
    set_data_form_flag(&head, -1);
    EXPECT_EQ(flag_byte(head), 0xE0);
    set_data_form_flag(&head, 0);
    EXPECT_EQ(flag_byte(head), 0xC0);
}

TEST(SetDataFormFlag, KeepsTheOtherBits) {
    msg_head_t head = fresh();
    memset(&head.flag, 0xFF, 1);
    set_data_form_flag(&head, 0);
    EXPECT_EQ(flag_byte(head), 0xDF);
    memset(&head.flag, 0x00, 1);
    set_data_form_flag(&head, 1);
    EXPECT_EQ(flag_byte(head), 0x20);
}

TEST(SetReplyFlag, SetsTheFormBit) {
    msg_head_t head = fresh();
    set_reply_flag(&head, 1);
    EXPECT_EQ(flag_byte(head), 0xE0);
    EXPECT_EQ(is_need_reply(&head), 0);
    set_data_form_flag(&head, 0);
    EXPECT_EQ(flag_byte(head), 0xC0);
}

TEST(SetReplyFlag, ClearsTheFormBitAndNotTheReplyBit) {
    msg_head_t head = fresh();
    memset(&head.flag, 0xFF, 1);
    set_reply_flag(&head, 2);
    EXPECT_EQ(flag_byte(head), 0xDF);
    EXPECT_EQ(is_need_reply(&head), 1);
}

TEST(SetFinalFlag, SetsItsBitOnly) {
    msg_head_t head = fresh();
    memset(&head.flag, 0x00, 1);
    set_final_flag(&head);
    EXPECT_EQ(flag_byte(head), 0x40);
}

TEST(SetStartFlag, SetsItsBitOnly) {
    msg_head_t head = fresh();
    memset(&head.flag, 0x00, 1);
    set_start_flag(&head);
    EXPECT_EQ(flag_byte(head), 0x80);
}

TEST(MsgHead, IsStoredLittleEndian) {
    EXPECT_EQ(stored(with_counting_words()), (bytes_t{0x00, 0x56, 0x01, 0xC0, 0x02, 0x01, 0x04, 0x03, 0x06,
                                                      0x05, 0x08, 0x07, 0x0A, 0x09, 0x0C, 0x0B}));
}

TEST(MsgHead, IsLoadedFromAnyAddress) {
    const bytes_t image = stored(with_counting_words());
    for (size_t shift = 0; shift < 4; ++shift) {
        bytes_t room(shift);
        room.insert(room.end(), image.begin(), image.end());
        msg_head_t head;
        msg_head_load(room.data() + shift, &head);
        EXPECT_EQ(raw(head), raw(with_counting_words()));
    }
}

TEST(DataToJsonCb, PutsTheTextBehindTheHeader) {
    alignas(msg_head_t) std::array<uint8_t, 64> room{};
    room.fill(0xEE);
    auto *head = reinterpret_cast<msg_head_t *>(room.data());
    msg_head_init(head);
    EXPECT_EQ(data_to_json_cb("0123456789", room.data()), 26);
    EXPECT_EQ(head->length, 26);
    EXPECT_STREQ(reinterpret_cast<const char *>(head->data), "0123456789");
    EXPECT_EQ(head->data[10], 0);
    EXPECT_EQ(head->data[11], 0xEE) << "nothing behind the terminator is written";
    EXPECT_EQ(bytes_t(room.begin(), room.begin() + 4), (bytes_t{0x00, 0x56, 0x01, 0xC0}));
}

TEST(DataToJsonCb, TakesAnEmptyText) {
    alignas(msg_head_t) std::array<uint8_t, 18> room{};
    room.fill(0xEE);
    EXPECT_EQ(data_to_json_cb("", room.data()), 16);
    EXPECT_EQ(room[16], 0);
    EXPECT_EQ(room[17], 0xEE);
}

TEST(DataToJsonCb, TakesAHeaderAtAnOddAddress) {
    std::array<uint8_t, 33> room{};
    EXPECT_EQ(data_to_json_cb("abc", room.data() + 1), 19);
    EXPECT_EQ(memcmp(room.data() + 17, "abc", 4), 0);
}

TEST(DataToJsonCb, KeepsTheLengthTo16Bits) {
    const std::string text(65530, 'x');
    bytes_t room(16 + 65531 + 1, 0xEE);
    EXPECT_EQ(data_to_json_cb(text.c_str(), room.data()), (65530 + 16) % 65536);
    EXPECT_EQ(room[16 + 65529], 'x');
    EXPECT_EQ(room[16 + 65530], 0);
    EXPECT_EQ(room[16 + 65531], 0xEE);
}

TEST(DataToJsonCb, RefusesNullAndSaysSo) {
    msg_head_t head = fresh();
    EXPECT_EQ(data_to_json_cb(nullptr, &head), -1);
    EXPECT_EQ(head.length, 0);
    EXPECT_EQ(data_to_json_cb("text", nullptr), -1);
    ASSERT_EQ(logs::all().size(), 2U);
    for (const logs::line &line : logs::all()) {
        EXPECT_EQ(line.level, VISION_LOG_LEVEL_ERROR);
        EXPECT_EQ(line.unit, "src/vision_protocol");
        EXPECT_EQ(line.function, "data_to_json_cb");
    }
}

TEST(MsgHeadFunctions, TakeNullWithoutHarm) {
    msg_head_init(nullptr);
    msg_head_htons(nullptr);
    msg_head_ntohs(nullptr);
    set_data_form_flag(nullptr, 1);
    set_reply_flag(nullptr, 1);
    set_final_flag(nullptr);
    set_start_flag(nullptr);
    EXPECT_EQ(check_msg_magic(nullptr), 0);
    EXPECT_EQ(is_need_reply(nullptr), 0);
}
