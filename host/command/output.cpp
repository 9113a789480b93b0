#include "host/command/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <unistd.h>

#include "host/error.h"

namespace host {

output::output(const std::string &path) : path_(path), file_(path == "-" ? stdout : std::fopen(path.c_str(), "wb")) {
    if (file_ == nullptr)
        fail();
}

output::~output() {
    if (file_ != stdout)
        std::fclose(file_);
}

void output::fail() const {
    throw error(fmt::format("cannot write {}: {}", path_ == "-" ? "the answer" : path_, std::strerror(errno)));
}

void output::write(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), file_);
    if (std::ferror(file_))
        fail();
}

void output::finish() {
    if (std::fflush(file_) != 0 || std::ferror(file_))
        fail();
}

void tell(std::string_view what) { show(fmt::format("tavo: {}\n", what)); }

void show(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stderr); }

progress_line::progress_line(std::string file) : file_(std::move(file)), shown_(isatty(STDERR_FILENO) == 1) {}

progress_line::~progress_line() {
    if (percent_ >= 0)
        host::show("\r\x1b[K");
}

void progress_line::show(std::size_t done, std::size_t all) {
    constexpr std::size_t large = 16 << 20;
    const int percent = static_cast<int>(done * 100 / all);
    if (!shown_ || all < large || percent == percent_)
        return;
    percent_ = percent;
    host::show(fmt::format("\rreading {}: {} %", file_, percent));
}

} // namespace host
