// Capture files for tshark, and its PDML read back.
#include "tshark.h"

#include "child_process.h"
#include "packets.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <pcap/pcap.h>
#include <stdexcept>
#include <unistd.h>

namespace tshark {
namespace {

using namespace std::chrono_literals;

constexpr auto k_patience = 120s;

std::string unescaped(std::string text) {
    const std::map<std::string, std::string> entities = {{"&amp;", "&"},   {"&lt;", "<"},   {"&gt;", ">"},
                                                         {"&quot;", "\""}, {"&apos;", "'"}, {"&#x27;", "'"}};
    for (size_t at = text.find('&'); at != std::string::npos; at = text.find('&', at + 1)) {
        const std::string entity = text.substr(at, text.find(';', at) - at + 1);
        if (const auto known = entities.find(entity); known != entities.end()) {
            text.replace(at, entity.size(), known->second);
        }
    }
    return text;
}

std::string attribute(const std::string &line, const std::string &name) {
    const size_t at = line.find(' ' + name + "=\"");
    if (at == std::string::npos) {
        return "";
    }
    const size_t begin = at + name.size() + 3;
    return unescaped(line.substr(begin, line.find('"', begin) - begin));
}

size_t number(const std::string &line, const std::string &name) {
    return std::stoul("0" + attribute(line, name));
}

/// Follows the lines of PDML, an element each.
class reader {
public:
    void line(const std::string &line) {
        if (line.starts_with("<packet>")) {
            packets_.emplace_back();
        } else if (line.starts_with("  <proto ")) { // those further in belong to what is said of a field
            inside_ = attribute(line, "name") == "vexamsg";
            begin_ = number(line, "pos");
            if (inside_) {
                packets_.back().dissected = true;
            }
        } else if (inside_ && line.find("<field ") != std::string::npos) {
            field(line);
        }
    }
    [[nodiscard]] const std::vector<packet> &packets() const { return packets_; }

private:
    void field(const std::string &line) {
        const std::string name = attribute(line, "name");
        packet &to = packets_.back();
        if (name == "_ws.expert.message") {
            to.experts.push_back(severity_ + ": " + attribute(line, "show"));
        } else if (name == "vexamsg.malformed" || name == "vexamsg.cut" || name == "vexamsg.note") {
            severity_ = name.substr(sizeof "vexamsg." - 1);
        } else if (name == "vexamsg.message") {
            to.message = attribute(line, "show");
        } else if (name.starts_with("vexamsg.")) {
            to.fields.push_back({name, number(line, "pos") - begin_, number(line, "size"),
                                 attribute(line, "show"), attribute(line, "value")});
        }
    }

    std::vector<packet> packets_;
    bool inside_ = false;
    size_t begin_ = 0;
    std::string severity_;
};

std::string own_directory() {
    std::string name = std::filesystem::temp_directory_path() / "vexa_tshark_XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make a directory for a capture");
    }
    std::filesystem::permissions(name, std::filesystem::perms::all);
    return name;
}

} // namespace

std::vector<std::string> as_ordinary_user(std::vector<std::string> command) {
    if (geteuid() == 0) {
        command.insert(command.begin(),
                       {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--inh-caps=-all"});
    }
    return command;
}

file::file()
    : path_(own_directory() + "/capture.pcap"),
      format_(pcap_open_dead(DLT_RAW, 262144)),
      out_(pcap_dump_open(format_, path_.c_str())) {
    if (out_ == nullptr) {
        throw std::runtime_error("cannot write " + path_);
    }
}

file::~file() {
    (void)close();
    pcap_close(format_);
    std::filesystem::remove_all(std::filesystem::path(path_).parent_path());
}

void file::add(const datagram &one) {
    const auto packet = packets::ipv4({}, packets::udp(one.src_port, one.dst_port, one.bytes));
    const size_t captured = packet.size() - one.bytes.size() + one.captured;
    const pcap_pkthdr head{.ts = {},
                           .caplen = static_cast<bpf_u_int32>(captured),
                           .len = static_cast<bpf_u_int32>(packet.size())};
    pcap_dump(reinterpret_cast<u_char *>(out_), &head, packet.data());
}

const std::string &file::close() {
    if (out_ != nullptr) {
        pcap_dump_close(out_);
        out_ = nullptr;
    }
    return path_;
}

std::vector<packet> dissect(const std::string &path) {
    // A home of its own: what a user has set up for Wireshark is none of this test's.
    const std::string home = std::filesystem::path(path).parent_path();
    const std::string output = home + "/shown.pdml";
    child_process process(as_ordinary_user({"sh", "-c", "exec \"$@\" >\"$0\" 2>&1", output, "env",
                                            "HOME=" + home, "XDG_CONFIG_HOME=" + home, TSHARK_PROGRAM, "-X",
                                            std::string("lua_script:") + DISSECTOR_FILE, "-r", path, "-T",
                                            "pdml", "-J", "vexamsg fake-field-wrapper"}));
    const std::optional<int> status = process.wait_exit(k_patience);
    reader pdml;
    std::ifstream shown(output);
    for (std::string line; std::getline(shown, line);) {
        if (line.find("Lua Error") != std::string::npos || line.find("lua:") != std::string::npos) {
            throw std::runtime_error(line);
        }
        pdml.line(line);
    }
    if (status != 0) {
        throw std::runtime_error("tshark has failed");
    }
    return pdml.packets();
}

} // namespace tshark
