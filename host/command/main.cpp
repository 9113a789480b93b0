// The command `tavo`: finds the subcommand that was asked for, and tells what went wrong with it.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <new>
#include <vector>

#include "host/column/names.h"
#include "host/command/output.h"
#include "host/command/subcommands.h"

namespace {

constexpr host::subcommand (*every_subcommand[])(CLI::App &) = {host::add_query,  host::add_nearest, host::add_vectors,
                                                                host::add_places, host::add_columns, host::add_info};

// What may have been meant by a subcommand or an option that is not there; empty if nothing can be said.
std::string meant(CLI::App &app, int argc, char **argv) {
    std::vector<std::string> names;
    const CLI::App *chosen = nullptr;
    for (const CLI::App *subcommand : app.get_subcommands([](CLI::App *) { return true; })) {
        names.push_back(subcommand->get_name());
        if (argc > 1 && subcommand->get_name() == argv[1])
            chosen = subcommand;
    }
    const std::string first = argc > 1 ? argv[1] : "";
    if (chosen == nullptr)
        return first.empty() || first[0] == '-'
                   ? ""
                   : fmt::format("there is no '{}'{}", first, host::instead_of(first, names, "subcommands"));
    names.clear();
    for (const CLI::Option *option : chosen->get_options())
        for (const std::string &name : option->get_lnames())
            names.push_back("--" + name);
    for (int i = 2; i < argc; i++) {
        const std::string word = std::string(argv[i]).substr(0, std::string_view(argv[i]).find('='));
        if (word.starts_with("--") && word.size() > 2 && std::find(names.begin(), names.end(), word) == names.end())
            return fmt::format("there is no option {}{}", word, host::instead_of(word, names, "options"));
    }
    return "";
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"Queries over CSV files by kernels on compressed columns"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "tavo " TAVO_PACKAGE_VERSION ", for kernel libraries of interface MRV_23.0 (3)");
    std::vector<host::subcommand> subcommands;
    for (const auto add : every_subcommand)
        subcommands.push_back(add(app));

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        if (e.get_exit_code() != 0)
            if (const std::string hint = meant(app, argc, argv); !hint.empty()) {
                host::tell(hint);
                return host::bad_input;
            }
        if (app.exit(e) != 0)
            return host::bad_input;
        return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : host::bad_input; // help on a full disk
    }
    try {
        for (const host::subcommand &subcommand : subcommands)
            if (*subcommand.options)
                return subcommand.run();
    } catch (const std::bad_alloc &) {
        host::tell("out of memory");
    } catch (const std::exception &e) {
        host::tell(e.what());
    }
    return host::bad_input;
}
