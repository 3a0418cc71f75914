// Runs a test program inside a network of its own: user and network namespace are made anew by unshare(1),
// and the addresses of the vehicle stand on the loopback device, so that tests may use the real ones and
// nothing leaves.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace {

constexpr char k_inside[] = "VEXAMSG_TEST_NETNS";

bool only_lists_tests(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        if (strstr(argv[i], "gtest_list_tests") != nullptr) {
            return true;
        }
    }
    return false;
}

[[noreturn]] void run_again_inside(char **argv) {
    // Everything in 192.168.1.0/24 is local once the loopback device carries that network.
    static char script[] = "ip link set lo up && ip address add 192.168.1.1/24 dev lo && ip route add "
                           "224.0.0.0/4 dev lo && exec " TEST_EMULATOR " \"$@\"";
    static char self[] = "/proc/self/exe";
    char program[4096] = {};
    if (readlink(self, program, sizeof program - 1) < 0) {
        perror("readlink /proc/self/exe");
        exit(1);
    }
    std::vector<const char *> args = {"unshare", "-rn", "sh", "-c", script, "sh", program};
    for (char **arg = argv + 1; *arg != nullptr; ++arg) {
        args.push_back(*arg);
    }
    args.push_back(nullptr);
    setenv(k_inside, "1", 1);
    execvp(args[0], const_cast<char **>(args.data()));
    perror("cannot run unshare (package util-linux)");
    exit(1);
}

} // namespace

int main(int argc, char **argv) {
    if (getenv(k_inside) == nullptr && !only_lists_tests(argc, argv)) {
        run_again_inside(argv);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
