// The link's CRC and the table of extra bytes.
#include "vxlink/checksum.h"
#include "vxlink/vxlink.h"

#include "link_reference.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <iterator>
#include <random>

namespace {

constexpr uint8_t k_check_input[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

} // namespace

TEST(Crc, OfTheCheckInputIsThePublishedValue) {
    EXPECT_EQ(crc_calculate(k_check_input, 9), 0x6F91);
}

TEST(Crc, OfNoBytesIsTheStartValue) {
    EXPECT_EQ(crc_calculate(k_check_input, 0), 0xFFFF);
    EXPECT_EQ(crc_calculate(nullptr, 0), 0xFFFF);
}

TEST(Crc, StartsWithAllOnes) {
    uint16_t crc = 0;
    crc_init(&crc);
    EXPECT_EQ(crc, 0xFFFF);
}

TEST(Crc, FoldedByteByByteIsTheSame) {
    uint16_t crc = 0;
    crc_init(&crc);
    for (const uint8_t byte : k_check_input) {
        crc_accumulate(byte, &crc);
    }
    EXPECT_EQ(crc, 0x6F91);
}

TEST(Crc, FoldedInPiecesIsTheSame) {
    uint16_t crc = 0;
    crc_init(&crc);
    crc_accumulate_buffer(&crc, "1234", 4);
    crc_accumulate_buffer(&crc, "", 0);
    crc_accumulate_buffer(&crc, "56789", 5);
    EXPECT_EQ(crc, 0x6F91);
}

TEST(Crc, OfEachSingleByteAgreesWithTheBitwiseDefinition) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        const auto value = static_cast<uint8_t>(byte);
        EXPECT_EQ(crc_calculate(&value, 1), reference::crc({value})) << byte;
    }
}

TEST(Crc, OfRandomBytesAgreesWithTheBitwiseDefinition) {
    std::mt19937 random(1);
    for (uint16_t length = 0; length < 520; ++length) {
        std::vector<uint8_t> bytes(length);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(random()); });
        EXPECT_EQ(crc_calculate(bytes.data(), length), reference::crc(bytes)) << length;
    }
}

TEST(CrcExtra, AllBytesAreTheTable) {
    constexpr uint8_t expected[] = {
        34,  187, 0,   18,  233, 0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   142, //
        159, 220, 22,  172, 15,  143, 5,   15,  128, 241, 148, 46,  196, 142, 42,  107, //
        163, 193, 11,  97,  29,  0,   0,   0,   133, 126, 7,   15,  5,   114, 0,   0,   //
        72,  12,  194, 122, 11,  159, 0,   251, 247, 7,   57,  9,   147, 138, 0,   0,   //
        0,   191, 31,  0,   0,   52,  62,  110, 137, 196, 190, 234, 182, 64,  141, 112, //
        220, 25,  11,  158, 110, 33,  190, 214, 151, 86,  124, 234, 243, 50,  104, 106, //
        51,  142, 54,  164, 65,  143, 249, 244, 145, 232, 171, 196, 153, 75,  183, 178, //
        39,  41,  34,  10,  125, 23,  79,  236, 111, 126, 46,  61,  58,  135, 177, 26,  //
        8,   138, 0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   180, 0,   0,   0,   //
        224, 0,   0,   0,   237, 84,  36,  0,   0,   0,   0,   0,   0,   0,   0,   195, //
        95,  2,   115, 0,   0,   0,   0,   0,   194, 146, 20,  204, 0,   0,   0,   0};
    static_assert(std::size(expected) == 176);
    static_assert(sizeof vxlink_message_crcs == 256);
    for (size_t id = 0; id < 256; ++id) {
        EXPECT_EQ(vxlink_message_crcs[id], id < 176 ? expected[id] : 0) << "id " << id;
    }
}

TEST(CrcExtra, TheMessagesPassTheirEntries) {
#define EXPECT_ENTRY(name, NAME)                                                                             \
    EXPECT_EQ(vxlink_message_crcs[VXLINK_MSG_ID_##NAME], VXLINK_MSG_ID_##NAME##_CRC) << #name;
    VXLINK_MESSAGES(EXPECT_ENTRY)
#undef EXPECT_ENTRY
}
