// Help as roff. See man_page.h.
#include "man_page.h"

#include <algorithm>
#include <cctype>
#include <fmt/core.h>
#include <sstream>

namespace vexa {
namespace {

constexpr std::string_view k_exit_status = "Exit status: ";
constexpr std::string_view k_example = "Example:";

/// A text that roff prints as it stands.
std::string escaped(const std::string &text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '\\':
            out += "\\e";
            break;
        case '-':
            out += "\\-";
            break;
        case '\'':
            out += "\\(aq";
            break;
        case '.':
            out += "\\&.";
            break;
        default:
            out += c;
        }
    }
    return out;
}

/// A footer in the parts that a page has.
struct footer_parts {
    std::vector<std::string> prose;
    std::string exit_status;
    std::vector<std::pair<std::string, std::vector<std::string>>> examples; // caption, lines
};

footer_parts parts_of(const std::string &footer) {
    footer_parts parts;
    std::istringstream lines{footer};
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(k_example)) {
            parts.examples.push_back({line.substr(std::min(line.size(), k_example.size() + 1)), {}});
        } else if (line.starts_with("  ") && !parts.examples.empty()) {
            parts.examples.back().second.push_back(line.substr(2));
        } else if (line.starts_with(k_exit_status)) {
            parts.exit_status = line.substr(k_exit_status.size());
        } else if (!line.empty()) {
            parts.prose.push_back(line);
        }
    }
    return parts;
}

std::string dashed(const std::string &path) {
    std::string name = path;
    std::replace(name.begin(), name.end(), ' ', '-');
    return name;
}

std::string synopsis_of(const command_node &command) {
    std::string text = fmt::format("\\fB{}\\fR", escaped(command.path));
    if (std::any_of(command.options.begin(), command.options.end(),
                    [](const option_view &each) { return !each.positional; })) {
        text += " [\\fIOPTION\\fR]...";
    }
    for (const option_view &each : command.options) {
        if (each.positional) {
            const char *shape = each.required ? " \\fI{}\\fR..." : " [\\fI{}\\fR...]";
            text += fmt::format(fmt::runtime(shape), escaped(each.names.front()));
        }
    }
    return command.children.empty() ? text : text + " \\fISUBCOMMAND\\fR ...";
}

std::string option_entry(const option_view &option) {
    std::string names;
    for (const std::string &name : option.names) {
        names += fmt::format("{}\\fB{}\\fR", names.empty() ? "" : ", ", escaped(name));
    }
    const bool says_more = !option.type.empty() && option.type != option.names.front();
    const std::string type = !says_more ? "" : fmt::format(" \\fI{}\\fR", escaped(option.type));
    const std::string value =
        option.default_value.empty() ? "" : fmt::format(" (default: {})", escaped(option.default_value));
    return fmt::format(".TP\n{}{}\n{}{}\n", names, type, escaped(option.about), value);
}

std::string see_also_of(const command_node &command) {
    std::string text;
    for (const std::string &child : command.children) {
        text += fmt::format("{}\\fB{}\\fR(1)", text.empty() ? "" : ",\n",
                            escaped(dashed(command.path + ' ' + child)));
    }
    const size_t last = command.path.rfind(' ');
    if (last != std::string::npos) {
        text += fmt::format("{}\\fB{}\\fR(1)", text.empty() ? "" : ",\n",
                            escaped(dashed(command.path.substr(0, last))));
    }
    return text;
}

std::string capitalised(std::string text) {
    text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
    return text;
}

std::string examples_of(const footer_parts &footer) {
    std::string text;
    for (const auto &[caption, lines] : footer.examples) {
        text += caption.empty() ? ".PP\n" : fmt::format(".PP\n{}:\n", escaped(capitalised(caption)));
        text += ".RS 4\n.nf\n";
        for (const std::string &line : lines) {
            text += escaped(line) + '\n';
        }
        text += ".fi\n.RE\n";
    }
    return text;
}

} // namespace

std::string man_page(const command_node &command) {
    const footer_parts footer = parts_of(command.footer);
    std::string page = fmt::format(".TH \"{}\" 1 \"\" \"vexa {}\" \"Vexa tools\"\n",
                                   escaped(dashed(command.path)), escaped(VEXA_VERSION));
    page += fmt::format(".SH NAME\n{} \\- {}\n", escaped(dashed(command.path)), escaped(command.about));
    page += fmt::format(".SH SYNOPSIS\n{}\n", synopsis_of(command));
    page += fmt::format(".SH DESCRIPTION\n{}.\n", escaped(command.about));
    for (const std::string &each : footer.prose) {
        page += fmt::format(".PP\n{}\n", escaped(each));
    }
    page += ".SH OPTIONS\n";
    for (const option_view &each : command.options) {
        page += option_entry(each);
    }
    if (!footer.exit_status.empty()) {
        page += fmt::format(".SH EXIT STATUS\n{}\n", escaped(footer.exit_status));
    }
    page += footer.examples.empty() ? "" : ".SH EXAMPLES\n" + examples_of(footer);
    const std::string others = see_also_of(command);
    return others.empty() ? page : page + ".SH SEE ALSO\n" + others + '\n';
}

std::string man_page_file(const command_node &command) {
    return dashed(command.path) + ".1";
}

} // namespace vexa
