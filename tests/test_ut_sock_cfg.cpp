// The grammar of socket descriptions, with every refusal, and local addresses made of paths.
#include "utils/ut_sock.h"

#include "addresses.h"
#include "faults.h"

#include <array>
#include <gtest/gtest.h>
#include <ostream>
#include <string>

namespace {

struct parsed {
    int result;
    int sock_type;
    ut_addr_t addr;
};

parsed parse(const std::string &cfg) {
    parsed p{0, k_untouched, scribbled()};
    p.result = ut_sock_cfg_parse(cfg.c_str(), &p.addr, &p.sock_type);
    return p;
}

} // namespace

// Descriptions that name a host and a port.

struct host_case {
    const char *name;
    const char *cfg;
    int sock_type;
    const char *ip;
    uint16_t port;
    friend void PrintTo(const host_case &row, std::ostream *out) { *out << row.cfg; }
};

class UtSockCfgHost : public testing::TestWithParam<host_case> {};

TEST_P(UtSockCfgHost, GivesTypeAddressAndPort) {
    const parsed p = parse(GetParam().cfg);
    EXPECT_EQ(p.result, 0);
    EXPECT_EQ(p.sock_type, GetParam().sock_type);
    EXPECT_EQ(p.addr.family, static_cast<unsigned>(AF_INET));
    EXPECT_EQ(p.addr.addrlen, 16U);
    EXPECT_EQ(bytes_of(p.addr), bytes_of(ipv4(GetParam().ip, GetParam().port))); // the rest is cleared
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, UtSockCfgHost,
    testing::Values(host_case{"Udp", "udp@192.168.1.1:9000", SOCK_DGRAM, "192.168.1.1", 9000},
                    host_case{"Tcp", "tcp@10.0.0.1:80", SOCK_STREAM, "10.0.0.1", 80},
                    host_case{"UpperCaseAndHexadecimal", "TCP@10.0.0.1:0x10", SOCK_STREAM, "10.0.0.1", 16},
                    host_case{"MixedCase", "uDp@10.0.0.1:1", SOCK_DGRAM, "10.0.0.1", 1},
                    host_case{"Octal", "udp@10.0.0.1:010", SOCK_DGRAM, "10.0.0.1", 8},
                    host_case{"NoPort", "udp@10.0.0.1:", SOCK_DGRAM, "10.0.0.1", 0},
                    host_case{"TextForAPort", "udp@10.0.0.1:http", SOCK_DGRAM, "10.0.0.1", 0},
                    host_case{"TextBehindThePort", "udp@10.0.0.1:80/x", SOCK_DGRAM, "10.0.0.1", 80},
                    host_case{"ASecondColonEndsThePort", "udp@10.0.0.1:80:90", SOCK_DGRAM, "10.0.0.1", 80},
                    host_case{"HighestPort", "udp@10.0.0.1:65535", SOCK_DGRAM, "10.0.0.1", 65535},
                    host_case{"PortCutTo16Bits", "udp@10.0.0.1:65537", SOCK_DGRAM, "10.0.0.1", 1},
                    host_case{"NegativePortCutTo16Bits", "udp@10.0.0.1:-1", SOCK_DGRAM, "10.0.0.1", 65535}),
    [](const auto &row) { return row.param.name; });

// Descriptions that name a path.

struct path_case {
    const char *name;
    const char *cfg;
    int sock_type;
    const char *path;
    friend void PrintTo(const path_case &row, std::ostream *out) { *out << row.cfg; }
};

class UtSockCfgPath : public testing::TestWithParam<path_case> {};

TEST_P(UtSockCfgPath, GivesTypeAndLocalAddress) {
    const parsed p = parse(GetParam().cfg);
    EXPECT_EQ(p.result, 0);
    EXPECT_EQ(p.sock_type, GetParam().sock_type);
    EXPECT_EQ(p.addr.family, static_cast<unsigned>(AF_UNIX));
    EXPECT_EQ(p.addr.addrlen, 110U);
    EXPECT_EQ(p.addr.un.sun_family, AF_UNIX);
    EXPECT_STREQ(p.addr.un.sun_path, GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(Grammar, UtSockCfgPath,
                         testing::Values(path_case{"Stream", "stream@/tmp/s", SOCK_STREAM, "/tmp/s"},
                                         path_case{"Dgram", "dgram@/tmp/s", SOCK_DGRAM, "/tmp/s"},
                                         path_case{"Seqpacket", "seqpacket@/tmp/s", SOCK_SEQPACKET, "/tmp/s"},
                                         path_case{"UpperCase", "SEQPACKET@/tmp/S", SOCK_SEQPACKET, "/tmp/S"},
                                         path_case{"SeparatorsInThePath", "dgram@/a@b:c", SOCK_DGRAM,
                                                   "/a@b:c"},
                                         path_case{"EmptyPath", "dgram@", SOCK_DGRAM, ""}),
                         [](const auto &row) { return row.param.name; });

// Descriptions that are refused.

struct refusal {
    const char *name;
    std::string cfg;
    int result;
    int sock_type;
    bool clears_addr;
    friend void PrintTo(const refusal &row, std::ostream *out) { *out << row.cfg; }
};

class UtSockCfgRefused : public testing::TestWithParam<refusal> {};

TEST_P(UtSockCfgRefused, SaysWhyAndLeavesTheRestAsStated) {
    const parsed p = parse(GetParam().cfg);
    EXPECT_EQ(p.result, GetParam().result);
    EXPECT_EQ(p.sock_type, GetParam().sock_type);
    EXPECT_EQ(bytes_of(p.addr), bytes_of(GetParam().clears_addr ? cleared() : scribbled()));
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, UtSockCfgRefused,
    testing::Values(refusal{"Empty", "", -1, k_untouched, false},
                    refusal{"NoSeparator", "192.168.1.1:9000", -1, k_untouched, false},
                    refusal{"SchemeAlone", "udp", -1, k_untouched, false},
                    refusal{"UnknownScheme", "raw@192.168.1.1:9000", -2, k_untouched, false},
                    refusal{"NoScheme", "@192.168.1.1:9000", -2, k_untouched, false},
                    refusal{"StartOfAScheme", "ud@192.168.1.1:9000", -2, k_untouched, false},
                    refusal{"MoreThanAScheme", "udp6@192.168.1.1:9000", -2, k_untouched, false},
                    refusal{"BlankBeforeTheScheme", " udp@192.168.1.1:9000", -2, k_untouched, false},
                    refusal{"NoColon", "udp@192.168.1.1", -3, SOCK_DGRAM, false},
                    refusal{"NoRest", "tcp@", -3, SOCK_STREAM, false},
                    refusal{"IPv6", "udp@::1:9000", -4, SOCK_DGRAM, true},
                    refusal{"LongIPv6", "udp@fe80::1:9000", -4, SOCK_DGRAM, true},
                    refusal{"IPv6InBrackets", "udp@[::1]:9000", -4, SOCK_DGRAM, true},
                    refusal{"IPv4InIPv6", "udp@::ffff:10.0.0.1:9000", -4, SOCK_DGRAM, true},
                    refusal{"HostName", "udp@localhost:9000", -4, SOCK_DGRAM, true},
                    refusal{"DottedHostName", "tcp@www.example.org:80", -4, SOCK_STREAM, true},
                    refusal{"ThreeNumbers", "udp@10.0.1:80", -4, SOCK_DGRAM, true},
                    refusal{"NumberAbove255", "udp@10.0.0.256:80", -4, SOCK_DGRAM, true},
                    refusal{"BlankBeforeTheHost", "udp@ 10.0.0.1:80", -4, SOCK_DGRAM, true},
                    refusal{"ASecondSeparator", "udp@me@10.0.0.1:80", -4, SOCK_DGRAM, true},
                    refusal{"NoHost", "udp@:80", -4, SOCK_DGRAM, true},
                    refusal{"LongPath", "seqpacket@" + std::string(108, 'p'), -5, SOCK_SEQPACKET, false}),
    [](const auto &row) { return row.param.name; });

TEST(UtSockCfg, DoesNotChangeTheDescription) {
    std::array<char, 32> cfg{"udp@10.0.0.1:80"};
    ut_addr_t addr;
    int type = 0;
    EXPECT_EQ(ut_sock_cfg_parse(cfg.data(), &addr, &type), 0);
    EXPECT_STREQ(cfg.data(), "udp@10.0.0.1:80");
}

TEST(UtSockCfg, WithoutMemoryForItsCopyItSaysSoAndWritesNothing) {
    faults::fail(faults::call::malloc, 0, 1);
    ut_addr_t addr = scribbled();
    int type = k_untouched;
    EXPECT_EQ(ut_sock_cfg_parse("udp@10.0.0.1:80", &addr, &type), -6);
    EXPECT_EQ(type, k_untouched);
    EXPECT_EQ(bytes_of(addr), bytes_of(scribbled()));
}

// Local addresses.

TEST(UtSockFillUnix, APathOf107CharactersFits) {
    const std::string path(107, 'p');
    ut_addr_t addr = scribbled();
    EXPECT_EQ(ut_sock_addr_fill_unix(&addr, path.c_str()), 0);
    EXPECT_EQ(addr.family, static_cast<unsigned>(AF_UNIX));
    EXPECT_EQ(addr.addrlen, 110U);
    EXPECT_EQ(addr.un.sun_family, AF_UNIX);
    EXPECT_EQ(addr.un.sun_path, path);
}

TEST(UtSockFillUnix, APathOf108CharactersIsRefusedAndChangesNothing) {
    ut_addr_t addr = scribbled();
    EXPECT_EQ(ut_sock_addr_fill_unix(&addr, std::string(108, 'p').c_str()), -1);
    EXPECT_EQ(bytes_of(addr), bytes_of(scribbled()));
}

TEST(UtSockFillUnix, WritesNothingBehindThePath) {
    ut_addr_t addr = scribbled();
    EXPECT_EQ(ut_sock_addr_fill_unix(&addr, "/s"), 0);
    EXPECT_EQ(addr.un.sun_path[2], '\0');
    EXPECT_EQ(addr.un.sun_path[3], 0x5A);
}

TEST(UtSockFillUnix, TakesThePathOfTheAddressItself) {
    ut_addr_t addr = local("/tmp/socket");
    EXPECT_EQ(ut_sock_addr_fill_unix(&addr, addr.un.sun_path + 4), 0);
    EXPECT_STREQ(addr.un.sun_path, "/socket");
}
