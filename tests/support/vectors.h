/**
 * @file
 * Byte images kept as text: tests/vectors/NAME.hex holds one datagram or frame as hex bytes separated by
 * blanks and line ends; what follows a '#' on a line is a comment, the first one says what the image is.
 *
 *     EXPECT_EQ(received, vectors::bytes("track_status_datagram"));
 */
#ifndef TEST_VECTORS_H
#define TEST_VECTORS_H

#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace vectors {

/** Reads hex text. Throws, which fails the test, on anything that is not two hex digits a byte. */
inline std::vector<uint8_t> parse(std::istream &text) {
    std::vector<uint8_t> bytes;
    for (std::string line; std::getline(text, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        for (std::string word; words >> word;) {
            if (word.size() != 2 || word.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
                throw std::runtime_error("not a hex byte: " + word);
            }
            bytes.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));
        }
    }
    return bytes;
}

/** The image in tests/vectors/`name`.hex. Throws when there is none, or an empty one. */
inline std::vector<uint8_t> bytes(const std::string &name) {
    std::ifstream file(std::string(TEST_VECTORS_DIR) + "/" + name + ".hex");
    if (!file) {
        throw std::runtime_error("no such vector: " + name);
    }
    std::vector<uint8_t> image = parse(file);
    if (image.empty()) {
        throw std::runtime_error("an empty vector: " + name);
    }
    return image;
}

} // namespace vectors

#endif
