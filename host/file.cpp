#include "host/file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <sys/stat.h>

#include "host/error.h"

namespace host {

std::string file_content(const std::string &path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "rb"), std::fclose);
    struct stat status {};
    if (file == nullptr || fstat(fileno(file.get()), &status) != 0)
        throw error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    if (S_ISDIR(status.st_mode))
        throw error(fmt::format("cannot read {}: it is a folder", path));
    std::string content;
    if (S_ISREG(status.st_mode))
        content.reserve(static_cast<std::size_t>(status.st_size) + 1); // one more: the end is found without moving it
    for (std::size_t got = 1; got > 0;) {
        constexpr std::size_t chunk = 1 << 20;
        const std::size_t before = content.size();
        const std::size_t room = std::max(std::min(content.capacity() - before, chunk), std::size_t{1});
        content.resize(before + room);
        got = std::fread(content.data() + before, 1, room, file.get());
        content.resize(before + got);
    }
    if (std::ferror(file.get()))
        throw error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    return content;
}

} // namespace host
