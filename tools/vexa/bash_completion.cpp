// The completion script: tables from the tree, and one function that walks the words typed so far. Values
// that have names (nodes, message types, heartbeat fields) are offered by name.
#include "bash_completion.h"

#include "named_value.h"

#include <array>
#include <fmt/core.h>

namespace vexa {
namespace {

constexpr char k_head[] =
    R"(# Completion of vexa for bash, made by "vexa completion bash" from the program's own command line.
)";

constexpr char k_function[] = R"(
_vexa() {
    local word path=vexa type='' index
    local current=${COMP_WORDS[COMP_CWORD]}
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        if [[ -n $type ]]; then # this word is an option's value
            type=''
        elif [[ $word == -* ]]; then
            type=${_vexa_types["$path $word"]-}
        elif [[ " ${_vexa_children[$path]-} " == *" $word "* ]]; then
            path+=" $word"
        fi
    done
    COMPREPLY=()
    local candidates
    if [[ -n $type ]]; then
        candidates=${_vexa_values[$type]-}
        [[ $type != *FILE* && $type != *DIR* ]] || mapfile -t COMPREPLY < <(compgen -f -- "$current")
    elif [[ $current == -* ]]; then
        candidates=${_vexa_options[$path]-}
    else
        type=${_vexa_positionals[$path]-none}
        candidates="${_vexa_children[$path]-} ${_vexa_values[$type]-}"
        [[ $type != *FILE* ]] || mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
    [[ -z ${candidates// /} ]] || mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$current")
    [[ ${COMPREPLY[0]-} != *= ]] || compopt -o nospace 2>/dev/null || true
}
complete -F _vexa vexa
)";

/// A row of an associative array; the texts are names of this program's own, without quotes in them.
std::string row(const std::string &key, const std::string &value) {
    return fmt::format("    [\"{}\"]=\"{}\"\n", key, value);
}

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

std::string names_in(const name_source &source, const std::string &more = "",
                     const std::string &behind = "") {
    std::string text = more;
    for (const formats::value_name &each : source.names.rows) {
        text += (text.empty() ? "" : " ") + (each.name + behind);
    }
    return text;
}

struct tables {
    std::string children;
    std::string options;
    std::string types;
    std::string positionals;
};

/// Of "NODE:check" the word that stands for the values.
std::string kind_of(const option_view &option) {
    const std::string kind = option.type.substr(0, option.type.find(':'));
    return kind.empty() ? "VALUE" : kind;
}

void add(tables &to, const command_node &command) {
    if (!command.children.empty()) {
        to.children += row(command.path, joined(command.children));
    }
    std::vector<std::string> options;
    bool has_positional = false;
    for (const option_view &each : command.options) {
        if (each.positional) { // the first one; others are in words of the user's own
            to.positionals += has_positional ? "" : row(command.path, kind_of(each));
            has_positional = true;
            continue;
        }
        for (const std::string &name : each.names) {
            options.push_back(name);
            if (each.takes_value) {
                to.types += row(command.path + ' ' + name, kind_of(each));
            }
        }
    }
    to.options += row(command.path, joined(options));
}

} // namespace

std::string bash_completion(const std::vector<command_node> &commands) {
    tables all;
    for (const command_node &each : commands) {
        add(all, each);
    }
    const std::string values = row("NODE", names_in(k_node_names)) +
                               row("NODE|broadcast", names_in(k_node_names, "broadcast")) +
                               row("TYPE", names_in(k_type_names)) + row("FIELD", names_in(k_field_names)) +
                               row("FIELD=VALUE", names_in(k_field_names, "", "=")) + row("SHELL", "bash") +
                               row("COLUMN", "from to kind type rate bytes last");
    std::string script = k_head;
    const std::array<std::pair<const char *, const std::string *>, 5> arrays = {
        {{"children", &all.children},
         {"options", &all.options},
         {"types", &all.types},
         {"positionals", &all.positionals},
         {"values", &values}}};
    for (const auto &[name, rows] : arrays) {
        script += fmt::format("declare -gA _vexa_{}=(\n{})\n", name, *rows);
    }
    return script + k_function;
}

} // namespace vexa
