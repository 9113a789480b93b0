// The subcommands of `tavo`: each file adds one, and main.cpp lists them.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace host {

// How a process ends: answered; --check does not agree; something wrong with the input or the library.
constexpr int answered = 0, check_failed = 1, bad_input = 2;

struct subcommand {
    CLI::App *options;        // was it asked for, and with which options
    std::function<int()> run; // returns the exit status, or throws host::error
};

subcommand add_query(CLI::App &);
subcommand add_nearest(CLI::App &);
subcommand add_vectors(CLI::App &);
subcommand add_places(CLI::App &);
subcommand add_columns(CLI::App &);
subcommand add_info(CLI::App &);

} // namespace host
