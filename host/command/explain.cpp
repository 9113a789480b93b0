#include "host/command/explain.h"

#include <filesystem>
#include <fmt/format.h>

#include "host/command/text_table.h"

namespace host {

std::string explain(const std::vector<query_step> &steps, const library &kernels) {
    using enum text_table::side;
    text_table shown({{"step"},
                      {"kernel", left},
                      {"column", left},
                      {"width"},
                      {"rows in"},
                      {"rows out"},
                      {"time"},
                      {"Mrows/s"},
                      {"what", left}});
    for (const query_step &s : steps) {
        const bool timed = s.seconds > 0;
        shown.add_row({std::to_string(&s - steps.data() + 1), s.kernel.empty() ? "-" : s.kernel, s.column,
                       s.width == 0 ? "" : std::to_string(s.width), std::to_string(s.rows_in),
                       std::to_string(s.rows_out), timed ? fmt::format("{:.1f} us", s.seconds * 1e6) : "",
                       timed ? fmt::format("{:.0f}", s.rows_in / s.seconds / 1e6) : "", s.what});
    }
    const std::string file = std::filesystem::path(kernels.path()).filename().string();
    return shown.text() + fmt::format("kernels: {}{}{}\n", file, kernels.why().empty() ? "" : ", ", kernels.why());
}

} // namespace host
