// The reader of the byte images that other tests compare with.
#include "vectors.h"

#include <gtest/gtest.h>

namespace {

std::vector<uint8_t> parsed(const char *text) {
    std::istringstream stream(text);
    return vectors::parse(stream);
}

} // namespace

TEST(Vectors, AreHexBytesOverAnyNumberOfLines) {
    EXPECT_EQ(parsed("00 56\n  e0 FF \n\n01"), (std::vector<uint8_t>{0x00, 0x56, 0xE0, 0xFF, 0x01}));
}

TEST(Vectors, LeaveCommentsOut) {
    EXPECT_EQ(parsed("# a header, 2 bytes\n00 # aa\n56#bb"), (std::vector<uint8_t>{0x00, 0x56}));
}

TEST(Vectors, RefuseWhatIsNoByte) {
    EXPECT_THROW(parsed("0056"), std::runtime_error);
    EXPECT_THROW(parsed("0"), std::runtime_error);
    EXPECT_THROW(parsed("0x"), std::runtime_error);
    EXPECT_THROW(parsed("-1"), std::runtime_error);
}

TEST(Vectors, ThatAreMissingFailTheTest) {
    EXPECT_THROW(vectors::bytes("no_such_image"), std::runtime_error);
}
