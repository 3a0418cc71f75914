// Renews the tables of docs/wire-formats.md: copies a document from standard input to standard output, each
// table behind a line "<!-- table NAME -->" written anew from the description that the decoder and the
// dissector use.
#include "formats.h"
#include "link_format.h"
#include "route_format.h"

#include <fmt/format.h>
#include <iostream>
#include <map>
#include <string>

namespace {

using namespace formats;

std::string type_name(const field &f) {
    constexpr std::array<const char *, 9> names = {"u8",  "u16", "u32",  "u64",  "i16",
                                                   "i32", "f32", "text", "bytes"};
    const char *name = names.at(static_cast<size_t>(f.type));
    return f.count == 1 || is_run(f.type) ? name : fmt::format("{}[{}]", name, f.count);
}

std::string meaning(const field &f) {
    std::string text = f.about;
    const auto add = [&text](const std::string &more) { text += (text.empty() ? "" : "; ") + more; };
    if (f.must != k_anything) {
        add(f.base == number_base::hex ? fmt::format("always 0x{:X}", f.must)
                                       : fmt::format("always {}", f.must));
    }
    for (const bit_field &bits : f.bits) {
        const int last = bits.first_bit + bits.width - 1;
        add(bits.width == 1 ? fmt::format("bit {} `{}`", bits.first_bit, bits.name)
                            : fmt::format("bits {} to {} `{}`", bits.first_bit, last, bits.name));
    }
    return text;
}

std::string layout(const block &b) {
    std::string table = "| Offset | Bytes | Type | Field | Meaning |\n|---:|---:|---|---|---|\n";
    for (const field &f : b.fields) {
        table += fmt::format("| {} | {} | {} | `{}` | {} |\n", f.offset, size_of(f), type_name(f), f.name,
                             meaning(f));
    }
    return table;
}

std::string values(const name_table &names) {
    std::string table = "| Value | Name |\n|---:|---|\n";
    for (const value_name &row : names.rows) {
        table += fmt::format("| {} | `{}` |\n", row.value, row.name);
    }
    return table;
}

std::string link_messages() {
    std::string table = "| `msg_type` | Message | To | UDP port | `msg_dst` | Payload bytes |\n"
                        "|---|---|---|---:|---|---:|\n";
    for (const form &f : k_link_forms) {
        const std::string size = f.payload_size == k_any ? "any" : std::to_string(f.payload_size);
        table += fmt::format("| 0x{:04X} | {} | {} | {} | 0x{:04X} | {} |\n", f.selector, f.name, f.end,
                             f.port, f.dst_must, size);
    }
    return table;
}

std::string frame_messages() {
    std::string table = "| `msgid` | Message | Payload bytes | CRC extra byte |\n|---:|---|---:|---:|\n";
    for (const form &f : k_frame_forms) {
        table += fmt::format("| {} | {} | {} | {} |\n", f.selector, f.name, f.payload_size,
                             vxlink_message_crcs[f.selector]);
    }
    return table;
}

std::string heartbeat_fields() {
    std::string table = "| Number | Field | Frame byte | First bit | Bits |\n|---:|---|---:|---:|---:|\n";
    for (const hb_field_t &f : k_hb_fields) {
        table += fmt::format("| {} | `{}` | {} | {} | {} |\n", static_cast<int>(f.field),
                             k_heartbeat_rows.at(static_cast<size_t>(f.field)).name, f.first_bit / 8,
                             f.first_bit % 8, f.width);
    }
    return table;
}

std::map<std::string, std::string> all_tables() {
    std::map<std::string, std::string> tables = {
        {"route_header", layout(k_route.head)},   {"kinds", values(k_kinds)},
        {"manager", layout(k_manager_block)},     {"commands", values(k_commands)},
        {"node", layout(k_node_block)},           {"pair", layout(k_pair_block)},
        {"heartbeat_fields", heartbeat_fields()}, {"link_header", layout(k_link.head)},
        {"link_nodes", values(k_link_nodes)},     {"link_messages", link_messages()},
        {"command_ack", layout(k_ack_block)},     {"frame_header", layout(k_frame.head)},
        {"frame_tail", layout(k_frame_tail)},     {"frame_messages", frame_messages()},
    };
    for (const form &f : k_frame_forms) {
        tables[f.name] = layout(*f.parts.front().what);
    }
    return tables;
}

/// "<!-- table node -->" -> "node"; nothing for any other line.
std::string table_of(const std::string &line) {
    constexpr std::string_view begin = "<!-- table ";
    constexpr std::string_view end = " -->";
    if (!line.starts_with(begin) || !line.ends_with(end)) {
        return "";
    }
    return line.substr(begin.size(), line.size() - begin.size() - end.size());
}

} // namespace

int main() {
    auto tables = all_tables();
    bool in_old_table = false;
    for (std::string line; std::getline(std::cin, line);) {
        in_old_table = in_old_table && line.starts_with('|');
        if (in_old_table) {
            continue;
        }
        std::cout << line << '\n';
        const std::string name = table_of(line);
        if (name.empty()) {
            continue;
        }
        const auto table = tables.extract(name);
        if (table.empty()) {
            std::cerr << "there is no table \"" << name << "\", or it stands here twice\n";
            return 1;
        }
        std::cout << table.mapped();
        in_old_table = true;
    }
    for (const auto &[name, table] : tables) {
        std::cerr << "the table \"" << name << "\" stands nowhere\n";
    }
    return tables.empty() ? 0 : 1;
}
