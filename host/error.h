// What the host tells its user: one message, already complete. The command prints it and ends with status 2.
#pragma once

#include <stdexcept>

namespace host {

struct error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace host
