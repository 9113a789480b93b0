// `tavo info`: what a kernel library holds and whether this processor can run it.
#include <memory>

#include "host/command/library_report.h"
#include "host/command/output.h"
#include "host/command/subcommands.h"

namespace host {

subcommand add_info(CLI::App &app) {
    CLI::App *info =
        app.add_subcommand("info", "Show what a kernel library holds and whether this processor can run it");
    const auto path = std::make_shared<std::string>();
    info->add_option("LIBRARY", *path, "The library; without it the one that queries use");
    return {info, [path] {
                const library library(library_path(*path));
                output out;
                out.write(describe(library, this_processor()));
                out.finish();
                return answered;
            }};
}

} // namespace host
