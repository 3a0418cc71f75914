// The command lines of the stand-ins for the flight side and the camera.
#include "link_command.h"

#include "link_receiver.h"

#include "vision_protocol.h"

#include <fmt/core.h>
#include <memory>

namespace vexa {
namespace {

void add_link_command(CLI::App &app, int &status, const std::string &name, const std::string &what,
                      const link_options &defaults) {
    CLI::App *command = app.add_subcommand(name, what);
    auto options = std::make_shared<link_options>(defaults);
    options->program = "vexa " + name;
    command->add_option("--bind", options->bind, "IPv4 address to receive on; 0.0.0.0 for all")
        ->check(CLI::ValidIPV4)
        ->capture_default_str();
    command->add_option("--port", options->port, "UDP port to receive on")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    command->add_option("--count", options->count, "end after this many datagrams")
        ->check(CLI::Range(uint64_t{1}, uint64_t{1} << 53));
    command->add_option("--timeout", options->timeout_s, "end after this many seconds")
        ->check(CLI::Range(0.001, 1e9));
    CLI::Option *quiet = command->add_flag_callback(
        "--quiet", [options] { options->style = link_style::quiet; },
        "only malformed datagrams and the summary");
    command
        ->add_flag_callback(
            "--json", [options] { options->style = link_style::json; },
            "one JSON object a line, for each datagram and the summary")
        ->excludes(quiet);
    command->footer(fmt::format(
        "\nA sender numbers its datagrams to flight side and camera in one row, so numbers that are missing "
        "here may have gone to the other.\n"
        "Ends with a summary on SIGINT (Ctrl-C) and SIGTERM. Exit status 1 when a datagram was malformed or "
        "the time was over before --count datagrams had come.\n\n"
        "Example: on a machine that has the address {1}\n"
        "  vexa {0}\n"
        "Example: the next three datagrams for a program to read, within ten seconds\n"
        "  vexa {0} --json --count 3 --timeout 10",
        name, defaults.bind));
    command->callback([options, &status] { status = run_link(*options); });
}

} // namespace

void add_flight_command(CLI::App &app, int &status) {
    link_options options;
    options.end = link_end::flight;
    options.bind = VISION_FLIGHT_IP;
    options.port = VISION_FLIGHT_PORT;
    add_link_command(app, status, "flight",
                     "Stands in for the flight side: receives the vision link's reports and shows them",
                     options);
}

void add_camera_command(CLI::App &app, int &status) {
    link_options options;
    options.end = link_end::camera;
    options.bind = VISION_CAMERA_IP;
    options.port = VISION_CAMERA_PORT;
    add_link_command(app, status, "camera",
                     "Stands in for the camera: receives the vision link's commands and shows them", options);
}

} // namespace vexa
