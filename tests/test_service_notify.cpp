// What a service manager hears from a program that it started: a socket here plays the service manager.
#include "service_notify.h"

#include "child_process.h"
#include "udp_peer.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/un.h>

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

constexpr auto k_patience = 60s;

/// The service manager's socket.
class listener {
public:
    /// @param name  a path, or "@" and an abstract name
    explicit listener(const std::string &name) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path - 1);
        size_t size = offsetof(sockaddr_un, sun_path) + name.size();
        if (name.front() == '@') {
            address.sun_path[0] = '\0';
        } else {
            ++size; // the NUL behind a path
        }
        if (bind(fd_, reinterpret_cast<const sockaddr *>(&address), static_cast<socklen_t>(size)) != 0) {
            throw std::runtime_error("cannot bind " + name);
        }
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    ~listener() {
        (void)unsetenv("NOTIFY_SOCKET");
        (void)close(fd_);
    }
    listener(const listener &) = delete;
    listener &operator=(const listener &) = delete;

    /// The next that was said; empty when nothing is.
    std::string hear(std::chrono::milliseconds patience = k_patience) const {
        pollfd one{fd_, POLLIN, 0};
        if (poll(&one, 1, static_cast<int>(patience.count())) <= 0) {
            return "";
        }
        std::string text(256, '\0');
        const ssize_t size = recv(fd_, text.data(), text.size(), 0);
        text.resize(size > 0 ? static_cast<size_t>(size) : 0);
        return text;
    }

private:
    int fd_;
};

/// A path of this case alone, and nothing left of it afterwards.
class scratch {
public:
    scratch() {
        std::string name = (std::filesystem::temp_directory_path() / "vexa_notify_XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~scratch() { std::filesystem::remove_all(path_); }
    scratch(const scratch &) = delete;
    scratch &operator=(const scratch &) = delete;
    [[nodiscard]] std::string file(const std::string &name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

std::string abstract_name() {
    return "@vexa-notify-" + std::to_string(getpid());
}

/// "READY=1" of a program that was started with this NOTIFY_SOCKET, and its first line.
void expect_ready_from_manager(const listener &service_manager) {
    child_process manager{{VEXA_PROGRAM, "manager"}, {.error_file = "", .merge_errors = true}};
    EXPECT_EQ(service_manager.hear(), "READY=1");
    udp_peer node{"192.168.1.5", 9005};
    ASSERT_TRUE(node.send({1, 2, 3}, "192.168.1.1", 9000));
    manager.signal(SIGTERM);
    EXPECT_EQ(manager.wait_exit(k_patience), 0);
    EXPECT_EQ(service_manager.hear(0ms), "") << "it is ready only once";
}

} // namespace

TEST(ServiceNotify, ReachesASocketThatIsAFile) {
    const scratch directory;
    const listener service_manager{directory.file("socket")};
    EXPECT_EQ(vexa::notify_service_manager("READY=1"), 0);
    EXPECT_EQ(service_manager.hear(), "READY=1");
}

TEST(ServiceNotify, ReachesAnAbstractName) {
    const listener service_manager{abstract_name()};
    EXPECT_EQ(vexa::notify_service_manager("READY=1\nSTATUS=up"), 0);
    EXPECT_EQ(service_manager.hear(), "READY=1\nSTATUS=up");
}

TEST(ServiceNotify, IsSilentWhenNobodyAsked) {
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(vexa::notify_service_manager("READY=1"), 0);
    setenv("NOTIFY_SOCKET", "", 1);
    EXPECT_EQ(vexa::notify_service_manager("READY=1"), 0);
}

TEST(ServiceNotify, SaysWhyItCouldNotTell) {
    const scratch directory;
    setenv("NOTIFY_SOCKET", directory.file("nobody").c_str(), 1);
    EXPECT_EQ(vexa::notify_service_manager("READY=1"), ENOENT);
    setenv("NOTIFY_SOCKET", abstract_name().c_str(), 1);
    EXPECT_EQ(vexa::notify_service_manager("READY=1"), ECONNREFUSED);
    setenv("NOTIFY_SOCKET", "relative/path", 1);
    EXPECT_EQ(vexa::notify_service_manager("READY=1"), EAFNOSUPPORT);
}

TEST(ServiceNotify, TakesANameOfEveryLengthThatASocketCanHave) {
    constexpr size_t k_longest = sizeof(sockaddr_un::sun_path) - 1;
    const std::string longest = abstract_name() + std::string(k_longest - abstract_name().size(), 'x');
    const listener service_manager{longest};
    EXPECT_EQ(vexa::notify_service_manager("READY=1"), 0);
    EXPECT_EQ(service_manager.hear(), "READY=1");
    setenv("NOTIFY_SOCKET", (longest + 'x').c_str(), 1);
    EXPECT_EQ(vexa::notify_service_manager("READY=1"), ENAMETOOLONG);
}

TEST(ServiceNotify, DoesNotWaitForAServiceManagerThatDoesNotRead) {
    const listener service_manager{abstract_name()};
    int error = 0;
    for (int i = 0; i < 100'000 && error == 0; ++i) {
        error = vexa::notify_service_manager("READY=1");
    }
    EXPECT_EQ(error, EAGAIN) << "its queue is full";
}

TEST(ServiceNotify, TheManagerIsReadyOnceItReceives) {
    const listener service_manager{abstract_name()};
    expect_ready_from_manager(service_manager);
}

TEST(ServiceNotify, AManagerThatCannotReceiveIsNotReady) {
    const listener service_manager{abstract_name()};
    const udp_peer other{"192.168.1.1", 9000}; // holds the port
    child_process manager{{VEXA_PROGRAM, "manager"}, {.error_file = "", .merge_errors = true}};
    EXPECT_EQ(manager.wait_exit(k_patience), 1);
    EXPECT_EQ(service_manager.hear(0ms), "");
}

TEST(ServiceNotify, AManagerThatCannotTellRunsAllTheSame) {
    const scratch directory;
    setenv("NOTIFY_SOCKET", directory.file("nobody").c_str(), 1);
    child_process manager{{VEXA_PROGRAM, "manager"}, {.error_file = "", .merge_errors = true}};
    std::string output;
    while (output.find("service manager") == std::string::npos) {
        const auto line = manager.wait_line(k_patience);
        ASSERT_TRUE(line) << output;
        output += *line + '\n';
    }
    EXPECT_THAT(output, HasSubstr("vexa manager: cannot tell the service manager READY=1: No such file"));
    manager.signal(SIGTERM);
    EXPECT_EQ(manager.wait_exit(k_patience), 0);
}
