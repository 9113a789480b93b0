// The command `tavo`: finds the subcommand that was asked for, and tells what went wrong with it.
#include "host/command/output.h"
#include "host/command/subcommands.h"

#include <exception>
#include <vector>

namespace {

constexpr host::subcommand (*every_subcommand[])(CLI::App &) = {host::add_query, host::add_columns, host::add_info};

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"Queries over CSV files by kernels on compressed columns"};
    app.require_subcommand(1);
    std::vector<host::subcommand> subcommands;
    for (const auto add : every_subcommand)
        subcommands.push_back(add(app));

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        if (app.exit(e) != 0)
            return host::bad_input;
        return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : host::bad_input; // help on a full disk
    }
    try {
        for (const host::subcommand &subcommand : subcommands)
            if (*subcommand.options)
                return subcommand.run();
    } catch (const std::exception &e) {
        host::tell(e.what());
    }
    return host::bad_input;
}
