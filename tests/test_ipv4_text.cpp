// The socket layer's own reading of IPv4 addresses is the C library's, text by text.
#include "support/seed.h"
#include "utils/netapi_impl.h"

#include <arpa/inet.h>
#include <array>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <string_view>

namespace {

constexpr uint32_t k_untouched = 0xDEADBEEF;

void expect_as_the_c_library_does(const char *text) {
    in_addr expected{INADDR_ANY};
    in_addr parsed{k_untouched};
    const bool valid = inet_pton(AF_INET, text, &expected) == 1;
    EXPECT_EQ(netapi::parse_ipv4(text, parsed), valid) << '"' << text << '"';
    EXPECT_EQ(parsed.s_addr, valid ? expected.s_addr : INADDR_ANY) << '"' << text << '"';
}

} // namespace

TEST(Ipv4Text, IsReadLikeTheCLibraryAtEveryEdge) {
    for (const char *text : {"192.168.1.1", "0.0.0.0",   "255.255.255.255", "1.2.3.4",    "10.20.30.40",
                             "256.1.1.1",   "1.256.1.1", "1.1.1.256",       "1.1.1.2550", "1.1.1.4294967297",
                             "01.2.3.4",    "1.2.3.04",  "00.0.0.0",        "1.2.3",      "1.2.3.",
                             "1.2.3.4.",    "1.2.3.4.5", ".1.2.3",          "1..2.3",     "",
                             ".",           "...",       " 1.2.3.4",        "1.2.3.4 ",   "1.2.3.4\n",
                             "1.2.3.x",     "-1.2.3.4",  "+1.2.3.4",        "0x1.2.3.4",  "localhost",
                             "1,2,3,4",     "::1",       "1.2.3.4/24",      "999999999"}) {
        expect_as_the_c_library_does(text);
    }
}

TEST(Ipv4Text, IsNoneWithoutAText) {
    in_addr parsed{k_untouched};
    EXPECT_FALSE(netapi::parse_ipv4(nullptr, parsed));
    EXPECT_EQ(parsed.s_addr, uint32_t{INADDR_ANY});
}

TEST(Ipv4Text, IsReadLikeTheCLibraryHoweverItIsDamaged) {
    std::mt19937_64 random{test_seed()};
    const auto below = [&random](size_t end) {
        return std::uniform_int_distribution<size_t>{0, end - 1}(random);
    };
    constexpr std::string_view letters = "0123456789..x ";
    int valid = 0;
    for (int i = 0; i < 20'000; ++i) {
        std::string text = std::to_string(below(300)) + "." + std::to_string(below(256)) + "." +
                           std::to_string(below(256)) + "." + std::to_string(below(300));
        if (below(2) == 0) {
            text[below(text.size())] = letters[below(letters.size())];
        }
        expect_as_the_c_library_does(text.c_str());
        in_addr parsed{};
        valid += netapi::parse_ipv4(text.c_str(), parsed) ? 1 : 0;
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(valid, 4'000); // or nothing much has been compared
    EXPECT_LT(valid, 16'000);
}
