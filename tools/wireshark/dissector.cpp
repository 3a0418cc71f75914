// vexa_dissector ENGINE: writes the Wireshark dissector to standard output, the formats as Lua tables and
// behind them the engine that reads by them.
#include "finding.h"
#include "formats.h"

#include <algorithm>
#include <exception>
#include <fmt/core.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace {

using formats::block;
using formats::envelope;
using formats::field;
using formats::form;
using formats::name_table;

constexpr size_t k_line = 118; // columns

std::string quoted(const std::string &text) {
    std::string all = "\"";
    for (const char c : text) {
        all += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return all + '"';
}

/// Items with commas between, as many to a line as it holds.
std::string filled(const std::vector<std::string> &items, const std::string &indent) {
    std::string text;
    std::string line;
    for (const std::string &item : items) {
        if (!line.empty() && indent.size() + line.size() + item.size() + 2 > k_line) {
            text += indent + line + '\n';
            line.clear();
        }
        line += (line.empty() ? "" : " ") + item + ',';
    }
    return text + indent + line + '\n';
}

/// Every header is called so; all other blocks have names of their own.
std::string id_of(const block &b) {
    return quoted(b.name == std::string_view("header") ? fmt::format("{} header", b.key) : b.name);
}

const char *word_for(formats::field_type type) {
    constexpr auto k_words =
        std::to_array<const char *>({"u8", "u16", "u32", "u64", "i16", "i32", "f32", "text", "bytes"});
    return k_words.at(static_cast<size_t>(type));
}

const char *word_for(formats::repeat how) {
    constexpr auto k_words = std::to_array<const char *>({"once", "if_room", "counted", "fill"});
    return k_words.at(static_cast<size_t>(how));
}

/// Appends members that have something to say.
class members {
public:
    void add(const char *name, const std::string &value) {
        items_.push_back(fmt::format("{} = {}", name, value));
    }
    void add(const char *name, int64_t value) { add(name, fmt::format("{}", value)); }
    void add_text(const char *name, const char *text) {
        if (text != nullptr && *text != '\0') {
            add(name, quoted(text));
        }
    }
    void add_if(const char *name, int value) {
        if (value != formats::k_any) {
            add(name, value);
        }
    }
    void add_if(const char *name, bool value) {
        if (value) {
            add(name, std::string("true"));
        }
    }
    [[nodiscard]] const std::vector<std::string> &items() const { return items_; }

    /// "{ a = 1, b = 2 }", over several lines when it must be.
    [[nodiscard]] std::string text(const std::string &indent) const {
        std::string line;
        for (const std::string &item : items_) {
            line += (line.empty() ? "" : ", ") + item;
        }
        return indent.size() + line.size() + 5 <= k_line
                   ? fmt::format("{}{{ {} }},\n", indent, line)
                   : fmt::format("{}{{\n{}{}}},\n", indent, filled(items_, indent + "    "), indent);
    }

private:
    std::vector<std::string> items_;
};

std::string bits_of(const field &f) {
    std::string text;
    for (const formats::bit_field &bit : f.bits) {
        text += fmt::format("{}{{ {}, {}, {} }}", text.empty() ? "" : ", ", quoted(bit.name), bit.first_bit,
                            bit.width);
    }
    return "{ " + text + " }";
}

std::string lua(const field &f) {
    members all;
    all.add("name", quoted(f.name));
    all.add("type", quoted(word_for(f.type)));
    all.add("offset", f.offset);
    all.add("count", f.count);
    all.add_text("about", f.about);
    all.add_if("hex", f.base == formats::number_base::hex);
    if (f.names != nullptr) {
        all.add("names", quoted(f.names->id));
    }
    if (!f.bits.empty()) {
        all.add("bits", bits_of(f));
    }
    if (f.must != formats::k_anything) {
        all.add("must", f.must);
    }
    if (f.from != formats::calculated::no) {
        all.add("from", quoted(f.from == formats::calculated::head_sum ? "head_sum" : "frame_crc"));
    }
    return all.text("            ");
}

std::string lua(const block &b) {
    std::string text =
        fmt::format("    [{}] = {{\n        name = {}, key = {}, size = {},\n        fields = {{\n", id_of(b),
                    quoted(b.name), quoted(b.key), b.size);
    for (const field &f : b.fields) {
        text += lua(f);
    }
    return text + "        },\n    },\n";
}

std::string parts_of(const form &f) {
    std::string text;
    for (const formats::part &p : f.parts) {
        text += fmt::format("{}{{ {}, {}{} }}", text.empty() ? "" : ", ", quoted(word_for(p.how)),
                            id_of(*p.what), p.count_field != nullptr ? ", " + quoted(p.count_field) : "");
    }
    return "{ " + text + " }";
}

std::string lua(const form &f) {
    members all;
    all.add("selector", f.selector);
    all.add("name", quoted(f.name));
    all.add("parts", parts_of(f));
    all.add_if("payload_size", f.payload_size);
    if (f.rest != nullptr) {
        all.add("rest", id_of(*f.rest));
    }
    all.add_if("rest_size", f.rest_size);
    all.add_if("if_payload", f.if_payload);
    all.add_if("if_command", f.if_command);
    if (f.dst_field != nullptr) {
        all.add("dst_field", quoted(f.dst_field));
        all.add("dst_must", f.dst_must);
    }
    if (f.port != 0) {
        all.add("port", f.port);
        all.add_text("receiver", f.end);
    }
    all.add_text("remark", f.remark);
    return all.text("            ");
}

std::string lua(const char *id, const envelope &e) {
    std::string text =
        fmt::format("    {} = {{\n        name = {}, column = {}, head = {},\n        length_field = "
                    "{}, length_bias = {}, "
                    "selector_field = {}, most_read = {}, by_node_id = {},\n",
                    id, quoted(e.name), quoted(e.column), id_of(e.head), quoted(e.length_field),
                    e.length_bias, quoted(e.selector_field), e.most_read, e.by_node_id);
    if (e.tail != nullptr) {
        text += fmt::format("        tail = {},\n", id_of(*e.tail));
    }
    text += "        forms = {\n";
    for (const form &f : e.forms) {
        text += lua(f);
    }
    return text + "        },\n    },\n";
}

std::string lua(const name_table &names) {
    std::vector<std::string> rows;
    for (const formats::value_name &row : names.rows) {
        rows.push_back(fmt::format("[{}] = {}", row.value, quoted(row.name)));
    }
    return fmt::format(
        "    {} = {{\n        bit_set = {}, complete = {},\n        rows = {{\n{}        }},\n    }},\n",
        names.id, names.bit_set, names.complete, filled(rows, "            "));
}

/// Each thing once, in the order of its first mention.
template <class Thing>
class collection {
public:
    void add(const Thing *thing) {
        if (thing != nullptr && std::ranges::find(all_, thing) == all_.end()) {
            all_.push_back(thing);
        }
    }
    [[nodiscard]] const std::vector<const Thing *> &all() const { return all_; }

private:
    std::vector<const Thing *> all_;
};

collection<block> all_blocks() {
    collection<block> blocks;
    for (const envelope *e : formats::k_envelopes) {
        blocks.add(&e->head);
        for (const form &f : e->forms) {
            for (const formats::part &p : f.parts) {
                blocks.add(p.what);
            }
            blocks.add(f.rest);
        }
        blocks.add(e->tail);
    }
    return blocks;
}

std::string tables() {
    const collection<block> blocks = all_blocks();
    collection<name_table> names;
    for (const block *b : blocks.all()) {
        for (const field &f : b->fields) {
            names.add(f.names);
        }
    }
    std::string text = "local names = {\n";
    for (const name_table *each : names.all()) {
        text += lua(*each);
    }
    text += "}\n\nlocal blocks = {\n";
    for (const block *each : blocks.all()) {
        text += lua(*each);
    }
    text += "}\n\nlocal envelopes = {\n" + lua("route", formats::k_route) + lua("link", formats::k_link) +
            lua("frame", formats::k_frame) + "}\n\nlocal findings = {\n";
    for (const formats::finding_words &words : formats::k_finding_words) {
        text += fmt::format("    {} = {{ how = {}, text = {} }},\n", words.name, quoted(name_of(words.how)),
                            quoted(words.text));
    }
    return text + "}\n";
}

std::string constants() {
    std::vector<std::string> extras;
    for (const uint8_t extra : vxlink_message_crcs) {
        extras.push_back(std::to_string(extra));
    }
    return fmt::format("local flight_port, camera_port = {}, {}\n"
                       "local node_port_base, node_count, proxy_id, broadcast_id = {}, {}, {}, {}\n"
                       "local crc_extra = {{\n{}}}\n",
                       VISION_FLIGHT_PORT, VISION_CAMERA_PORT, VX_NODE_PORT_BASE, VX_NODE_COUNT,
                       static_cast<int>(PROXY_NODE_ID), VX_MSG_BROADCAST, filled(extras, "    "));
}

std::string read_file(const char *path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file || text.str().empty()) {
        throw std::runtime_error(fmt::format("cannot read {}", path));
    }
    return text.str();
}

} // namespace

int main(int argc, char **argv) {
    try {
        if (argc != 2) {
            throw std::runtime_error("usage: vexa_dissector ENGINE");
        }
        fmt::print("-- Wireshark's view of the VexaMsg bus and the vision link. Made by the program "
                   "vexa_dissector: change\n"
                   "-- tools/formats or tools/wireshark/engine.lua and build the target vexamsg_lua, not "
                   "this file.\n\n"
                   "{}\n{}\n{}",
                   tables(), constants(), read_file(argv[1]));
        return 0;
    } catch (const std::exception &failure) {
        fmt::print(stderr, "vexa_dissector: {}\n", failure.what());
        return 1;
    }
}
