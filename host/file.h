// Reading whole files.
#pragma once

#include <string>

namespace host {

// Throws, with the system's reason, if the file cannot be read.
std::string file_content(const std::string &path);

} // namespace host
