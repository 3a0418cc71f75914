/**
 * @file
 * The real tshark with the dissector of this tree, as an ordinary user, on capture files that a test writes.
 *
 *     tshark::file file;
 *     file.add({.src_port = 40000, .dst_port = 9005, .bytes = image, .captured = image.size()});
 *     const std::vector<tshark::packet> shown = tshark::dissect(file.close());
 *
 * Tests with it run outside of the network that other tests have: there every user seems to be root.
 */
#ifndef TEST_TSHARK_H
#define TEST_TSHARK_H

#include <cstdint>
#include <string>
#include <vector>

struct pcap;
struct pcap_dumper;

namespace tshark {

/** A UDP datagram from 192.168.1.9 to 192.168.1.5. */
struct datagram {
    uint16_t src_port;
    uint16_t dst_port;
    std::vector<uint8_t> bytes;
    size_t captured; /**< [bytes] of them */
};

/** A capture file, removed with its object. */
class file {
public:
    file();
    ~file();
    file(const file &) = delete;
    file &operator=(const file &) = delete;

    void add(const datagram &one);

    /** Where it is. Its directory is its own, and open to everybody. */
    [[nodiscard]] const std::string &path() const { return path_; }

    /** The same; nothing can be added any more. */
    const std::string &close();

private:
    std::string path_;
    pcap *format_;
    pcap_dumper *out_;
};

/** A field in tshark's tree. */
struct field {
    std::string name;
    size_t pos; /**< [bytes] from the start of the protocol */
    size_t size;
    std::string show;  /**< as tshark shows the value */
    std::string value; /**< its bytes as hex */
};

/** What the dissector made of one packet. */
struct packet {
    bool dissected = false;
    std::vector<field> fields;        /**< in the order of the tree */
    std::vector<std::string> experts; /**< "malformed: version is 9, not 1" */
    std::string message;              /**< its name */
};

/** @throws std::runtime_error when tshark fails or says anything about Lua */
std::vector<packet> dissect(const std::string &path);

/** A command as an ordinary user: as it is, or as nobody when the test runs as root. */
std::vector<std::string> as_ordinary_user(std::vector<std::string> command);

} // namespace tshark

#endif
