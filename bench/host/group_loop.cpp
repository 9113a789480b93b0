// group_loop FILE.csv: delays by origin as one writes it by hand: one pass over the text, one std::unordered_map.
// Prints origin, count and sum; how long reading and grouping took goes to standard error.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

int main(int argc, char **argv) {
    if (argc != 2)
        return 2;
    const auto start = std::chrono::steady_clock::now();
    const auto since = [&](auto from) {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
    };
    std::ifstream file(argv[1], std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    struct row {
        std::string_view origin;
        long delay;
    };
    std::vector<row> rows;
    for (std::size_t at = text.find('\n') + 1; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        std::string_view fields[5];
        std::size_t from = at;
        for (int f = 0; f < 5; f++) {
            const std::size_t to = f == 4 ? end : text.find(',', from);
            fields[f] = std::string_view(text).substr(from, to - from);
            from = to + 1;
        }
        long delay = 0;
        std::from_chars(fields[1].data(), fields[1].data() + fields[1].size(), delay);
        rows.push_back({fields[3], delay});
        at = end + 1;
    }
    const double read = since(start);
    const auto grouping = std::chrono::steady_clock::now();
    struct group {
        long count = 0, sum = 0;
    };
    std::unordered_map<std::string_view, group> groups;
    for (const row &r : rows) {
        group &g = groups[r.origin];
        g.count++;
        g.sum += r.delay;
    }
    std::fprintf(stderr, "%zu rows: reading %.1f ms, grouping %.1f ms\n", rows.size(), read * 1e3,
                 since(grouping) * 1e3);
    for (const auto &[origin, g] : std::map(groups.begin(), groups.end()))
        std::printf("%.*s,%ld,%ld\n", static_cast<int>(origin.size()), origin.data(), g.count, g.sum);
}
