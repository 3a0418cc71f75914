/** @file The options that the subcommands have in common that follow the bus: live on a terminal, or once. */
#ifndef VEXA_WATCH_OPTIONS_H
#define VEXA_WATCH_OPTIONS_H

#include "subcommand.h"
#include "tap.h"

namespace vexa {

struct watch_options {
    tap_options tap;
    double listen_s = 0;   /**< once: so long */
    double interval_s = 1; /**< live: between two pictures */
    bool once = false;
    bool json = false;

    /** Whether it is to be shown once, for which there may be no other way. */
    [[nodiscard]] bool is_once() const;

    /** How to listen for that. */
    [[nodiscard]] tap_options once_tap() const;
};

/** Adds --interface, --read, --once, --listen, --interval and --json; `options` has the defaults. */
void add_watch_options(CLI::App &command, watch_options &options);

/** What their help says about them. */
extern const char *const k_watch_help;

/** Says on standard error that it listens, where and how long, unless it reads a file. */
void say_listening(const char *program, const watch_options &options);

/** Says on standard error what of the packets could not be seen. */
void say_losses(const char *program, const capture_counts &counts);

} // namespace vexa

#endif
