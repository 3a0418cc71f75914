// libpcap, as far as the tools need it. See capture.h.
#include "capture.h"

#include <array>
#include <fmt/core.h>
#include <pcap/pcap.h>

namespace vexa {
namespace {

constexpr int64_t k_ns_per_s = 1'000'000'000;
constexpr int64_t k_ns_per_us = 1000;

/// Nanoseconds are asked for; not every device has them.
int64_t time_of(pcap_t *handle, const timeval &when) {
    const bool fine = pcap_get_tstamp_precision(handle) == PCAP_TSTAMP_PRECISION_NANO;
    return when.tv_sec * k_ns_per_s + when.tv_usec * (fine ? 1 : k_ns_per_us);
}

std::string advice(int error, const std::string &interface) {
    switch (error) {
    case PCAP_ERROR_PERM_DENIED:
    case PCAP_ERROR_PROMISC_PERM_DENIED:
        return "Capturing is root's: run it with sudo, or allow it to this program with\n"
               "  sudo setcap cap_net_raw,cap_net_admin+ep $(command -v vexa)";
    case PCAP_ERROR_NO_SUCH_DEVICE:
        return fmt::format("There is no interface '{}'; 'ip link' lists them, 'any' is all of them.",
                           interface);
    case PCAP_ERROR_IFACE_NOT_UP:
        return fmt::format("Bring it up: ip link set {} up", interface);
    default:
        return "";
    }
}

[[noreturn]] void fail(pcap_t *handle, int error, const std::string &interface) {
    const std::string detail = pcap_geterr(handle);
    const std::string what = pcap_statustostr(error);
    const std::string more = advice(error, interface);
    throw capture_error(fmt::format("cannot capture on {}: {}{}{}", interface,
                                    error == PCAP_ERROR && !detail.empty() ? detail : what,
                                    more.empty() ? "" : "\n", more));
}

/// Lets the system sort out what is no UDP. Tagged packets are taken too where the link has tags.
void filter_udp(pcap_t *handle) {
    for (const char *text : {"udp or (vlan and udp)", "udp"}) {
        bpf_program program{};
        if (pcap_compile(handle, &program, text, 1, PCAP_NETMASK_UNKNOWN) == 0) {
            (void)pcap_setfilter(handle, &program); // else the assembler sorts out
            pcap_freecode(&program);
            return;
        }
    }
}

/// libpcap tells a cut from other damage by its words alone.
[[noreturn]] void fail_reading(pcap_t *handle, const std::string &name) {
    const std::string error = pcap_geterr(handle);
    const std::string text = fmt::format("{}: {}", name, error);
    if (error.find("truncated") != std::string::npos) {
        throw capture_cut(text);
    }
    throw capture_error(text);
}

void check_link_type(const std::string &name, int link_type) {
    if (!is_known_link_type(link_type)) {
        const char *text = pcap_datalink_val_to_name(link_type);
        throw capture_error(fmt::format("{}: packets of link type {} cannot be read", name,
                                        text != nullptr ? text : fmt::format("{}", link_type)));
    }
}

} // namespace

void capture::closer::operator()(pcap *handle) const {
    pcap_close(handle);
}

capture::capture(handle from, std::string name, bool live)
    : handle_(std::move(from)), name_(std::move(name)), live_(live) {
    check_link_type(name_, link_type());
}

capture capture::live(const std::string &interface, const options &how) {
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    handle opened{pcap_create(interface.c_str(), error.data())};
    if (!opened) {
        throw capture_error(fmt::format("cannot capture on {}: {}", interface, error.data()));
    }
    pcap_t *pcap = opened.get();
    (void)pcap_set_snaplen(pcap, how.snap_bytes); // these fail only on a handle that is active already
    (void)pcap_set_promisc(pcap, 1);
    (void)pcap_set_timeout(pcap, how.delay_ms);
    (void)pcap_set_buffer_size(pcap, how.buffer_bytes);
    (void)pcap_set_tstamp_precision(pcap, PCAP_TSTAMP_PRECISION_NANO);
    const int result = pcap_activate(pcap);
    if (result < 0) { // above 0 is a warning: "any", for one, sees only what the machine itself takes
        fail(pcap, result, interface);
    }
    if (pcap_setnonblock(pcap, 1, error.data()) != 0) {
        throw capture_error(fmt::format("cannot capture on {}: {}", interface, error.data()));
    }
    filter_udp(pcap);
    return {std::move(opened), interface, true};
}

capture capture::file(const std::string &path) {
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    handle opened{
        pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, error.data())};
    if (!opened) {
        throw capture_error(fmt::format("cannot read the capture {}: {}", path, error.data()));
    }
    return {std::move(opened), path, false};
}

capture::outcome capture::next(raw_packet &to) {
    pcap_pkthdr *head = nullptr;
    const u_char *bytes = nullptr;
    switch (pcap_next_ex(handle_.get(), &head, &bytes)) {
    case 1:
        to = {.time_ns = time_of(handle_.get(), head->ts),
              .link_type = link_type(),
              .wire_size = std::max<size_t>(head->len, head->caplen),
              .bytes = {bytes, head->caplen}};
        return outcome::packet;
    case 0:
        return outcome::nothing;
    case PCAP_ERROR_BREAK:
        return outcome::end;
    default:
        fail_reading(handle_.get(), name_);
    }
}

int capture::fd() const {
    return live_ ? pcap_get_selectable_fd(handle_.get()) : -1;
}

capture_counts capture::counts() const {
    pcap_stat stat{};
    if (!live_ || pcap_stats(handle_.get(), &stat) != 0) {
        return {};
    }
    return {.received = stat.ps_recv, .dropped = stat.ps_drop};
}

int capture::link_type() const {
    return pcap_datalink(handle_.get());
}

} // namespace vexa
