// The tree of subcommands. See command_tree.h.
#include "command_tree.h"

namespace vexa {
namespace {

option_view view_of(const CLI::Option &option) {
    option_view view;
    for (const std::string &name : option.get_lnames()) {
        view.names.push_back("--" + name);
    }
    for (const std::string &name : option.get_snames()) {
        view.names.push_back("-" + name);
    }
    view.positional = option.get_positional();
    if (view.positional) {
        view.names = {option.get_name(true)};
    }
    view.takes_value = option.get_items_expected_max() > 0;
    view.required = option.get_required();
    view.type = view.takes_value ? option.get_type_name() : "";
    view.default_value = view.takes_value ? option.get_default_str() : "";
    view.about = option.get_description();
    return view;
}

void add(const CLI::App &app, const std::string &above, std::vector<command_node> &all) {
    command_node node;
    node.path = above.empty() ? app.get_name() : above + ' ' + app.get_name();
    node.about = app.get_description();
    node.footer = app.get_footer();
    for (const CLI::Option *option : app.get_options()) {
        if (!option->get_group().empty()) { // or it is hidden
            node.options.push_back(view_of(*option));
        }
    }
    const auto children =
        app.get_subcommands([](const CLI::App *child) { return !child->get_group().empty(); });
    for (const CLI::App *child : children) {
        node.children.push_back(child->get_name());
    }
    const std::string path = node.path;
    all.push_back(std::move(node));
    for (const CLI::App *child : children) {
        add(*child, path, all);
    }
}

} // namespace

std::vector<command_node> all_commands(const CLI::App &app) {
    std::vector<command_node> all;
    add(app, "", all);
    return all;
}

} // namespace vexa
