// A file's bytes, and what can be told of a file that is no CSV text.
#pragma once

#include <string>
#include <string_view>

#include "host/column/block.h"

namespace host {

// All of a file, or of standard input for "-". Throws if it cannot be read, or does not fit into the memory that is
// there.
block<char> read_text_file(const std::string &path);

// Throws, saying what it is, for a file that is compressed, packed or otherwise not lines of text.
void refuse_other_formats(const std::string &path, std::string_view text);

// What reading a file of so many bytes takes at most, for messages.
std::string memory_needed(const std::string &path, std::size_t bytes);

} // namespace host
