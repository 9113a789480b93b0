#include "host/column/text_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

#include "host/error.h"

namespace host {

namespace {

// Bytes that this machine has left, as the operating system judges; 0 if it does not say.
std::size_t available_memory() {
    std::ifstream info("/proc/meminfo");
    std::string line;
    while (std::getline(info, line))
        if (line.starts_with("MemAvailable:"))
            return std::strtoull(line.c_str() + sizeof "MemAvailable:" - 1, nullptr, 10) * 1024;
    return 0;
}

std::string megabytes(std::size_t bytes) { return fmt::format("{:.1f} MB", static_cast<double>(bytes) / 1e6); }

struct format {
    std::string_view begin;
    const char *name, *way_out;
};
using namespace std::string_view_literals;
constexpr format other_formats[] = {
    {"\x1f\x8b"sv, "a gzip file", "gunzip -c {} | tavo ... -"},
    {"BZh"sv, "a bzip2 file", "bunzip2 -c {} | tavo ... -"},
    {"\xfd"
     "7zXZ\0"sv,
     "an xz file", "xz -dc {} | tavo ... -"},
    {"\x28\xb5\x2f\xfd"sv, "a zstd file", "zstd -dc {} | tavo ... -"},
    {"PK\x03\x04"sv, "a zip file (as spreadsheets are)", "unpack it, or save the sheet as CSV"},
    {"PAR1"sv, "a file of columns in binary form", "write it as CSV"},
    {"SQLite format 3\0"sv, "a database file", "write the table as CSV"},
    {"\xff\xfe"sv, "UTF-16", "iconv -f UTF-16 -t UTF-8 {} | tavo ... -"},
    {"\xfe\xff"sv, "UTF-16", "iconv -f UTF-16 -t UTF-8 {} | tavo ... -"},
};

} // namespace

std::string memory_needed(const std::string &path, std::size_t bytes) {
    return fmt::format("{} has {}, and reading it takes up to three times that, {}", path, megabytes(bytes),
                       megabytes(3 * bytes));
}

block<char> read_text_file(const std::string &path) {
    const bool standard_input = path == "-";
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(
        standard_input ? fdopen(dup(STDIN_FILENO), "rb") : std::fopen(path.c_str(), "rb"), std::fclose);
    struct stat status {};
    if (file == nullptr || fstat(fileno(file.get()), &status) != 0)
        throw error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    if (S_ISDIR(status.st_mode))
        throw error(fmt::format("cannot read {}: it is a folder", path));
    const std::size_t known = S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
    if (const std::size_t there = available_memory(); known > there && there > 0)
        throw error(fmt::format("out of memory: {}; {} are available", memory_needed(path, known), megabytes(there)));

    block<char> text;
    try {
        text.reserve(known + 1); // one more, to see the end
        for (constexpr std::size_t chunk = 1 << 20;;) {
            const std::size_t before = text.size();
            text.extend(before < known + 1 ? std::min(chunk, known + 1 - before) : chunk);
            const std::size_t got = std::fread(text.data() + before, 1, text.size() - before, file.get());
            text.resize(before + got);
            if (got == 0)
                break;
        }
        text.shrink();
    } catch (const std::bad_alloc &) {
        throw error(fmt::format("out of memory: {}", memory_needed(path, std::max(known, text.size()))));
    }
    if (std::ferror(file.get()))
        throw error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    return text;
}

void refuse_other_formats(const std::string &path, std::string_view text) {
    for (const format &f : other_formats)
        if (text.starts_with(f.begin))
            throw error(
                fmt::format("{} is {}, not CSV text: {}", path, f.name, fmt::format(fmt::runtime(f.way_out), path)));
    // Where a line ends in the first megabyte.
    const std::string_view front = text.substr(0, 1 << 20);
    const std::size_t first_cr = front.find('\r');
    if (first_cr != std::string_view::npos && first_cr + 1 < text.size() && front.find('\n') == std::string_view::npos)
        throw error(fmt::format("{}: its lines end with CR alone, as those of very old files do: "
                                "tr '\\r' '\\n' < {} | tavo ... -",
                                path, path));
}

} // namespace host
