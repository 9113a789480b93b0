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
                const processor here = this_processor();
                const library library(choose_library(*path, here));
                output out;
                out.write(describe(library, here));
                out.finish();
                return library.missing_here(here).empty() ? answered : check_failed;
            }};
}

} // namespace host
