#include "host/group/occurring_keys.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

#include "host/error.h"
#include "host/join/code_reader.h"

namespace host {

namespace {

enum element { nib = 1, byte, two_bytes, four_bytes }; // as in the dispatch table
constexpr const char *names[] = {"bit", "nib", "ub1", "ub2", "ub4"};

element element_for(std::size_t places) {
    return places <= 16 ? nib : places <= 0x100 ? byte : places <= 0x10000 ? two_bytes : four_bytes;
}

// places[code] as entries of an element.
std::vector<ub1> table_of(const std::vector<ub4> &places, element e) {
    const std::size_t bytes = e == byte ? 1 : e == two_bytes ? 2 : 4;
    std::vector<ub1> table(e == nib ? (places.size() + 1) / 2 : places.size() * bytes);
    for (std::size_t code = 0; code < places.size(); code++)
        if (e == nib)
            table[code / 2] = static_cast<ub1>(table[code / 2] | places[code] << code % 2 * 4);
        else
            std::memcpy(&table[code * bytes], &places[code], bytes); // the low bytes come first
    return table;
}

} // namespace

std::optional<occurring_keys> make_occurring_keys(session &s, const std::vector<column *> &columns, ub4 rows,
                                                  const selection &selected, step_list &steps) {
    occurring_keys result;
    result.of_row.resize(selected.count);
    // The last column's places count least, and it comes first.
    for (std::size_t c = columns.size(); c-- > 0;) {
        code_reader reader(s, {columns[c]}, rows, selected, selected.count, steps);
        const ub4 n = reader.next();
        std::vector<ub4> places(columns[c]->end_code()), codes;
        std::vector<bool> occurs(places.size());
        for (ub4 i = 0; i < n; i++)
            occurs[reader.codes(0)[i]] = true;
        for (std::size_t code = 0; code < places.size(); code++)
            if (occurs[code]) {
                places[code] = static_cast<ub4>(codes.size());
                codes.push_back(static_cast<ub4>(code));
            }
        const ub8 stride = result.space;
        result.space *= codes.size();
        if (result.space > 0xffffffff)
            return std::nullopt;

        const element e = element_for(codes.size());
        const std::vector<ub1> table = table_of(places, e);
        const std::string name = fmt::format("tavo_xlate_groupkey_{}_c2d", names[e]);
        tavo_xlate_groupkey_fn *const kernel =
            s.kernels().kernel(TAVO_KERNEL_ROW(TAVO_VARIANT_SECOND, e, TAVO_CLASS_OTHER), TAVO_OP_XLATE).xlate_groupkey;
        if (kernel == nullptr)
            throw error(fmt::format("{} has no kernel {}", s.kernels().path(), name));
        std::vector<ub4> big_endian(n);
        std::transform(reader.codes(0), reader.codes(0) + n, big_endian.begin(),
                       [](ub4 code) { return __builtin_bswap32(code); });
        tavo_vec keys{}, src{};
        keys.data = result.of_row.data();
        keys.size = n;
        src.data = big_endian.data();
        src.size = n;
        const tavo_xlate_groupkey_ctx ctx{static_cast<ub4>(stride), table.data()};
        const step_clock clock;
        const ub4 status = kernel(&keys, &src, nullptr, &ctx);
        steps.add(name, columns[c]->name(),
                  fmt::format("codes into keys  [{} of {} occur]", codes.size(), places.size()), n, n, clock.seconds());
        if (status != TAVO_DONE)
            throw error(fmt::format("{} failed with status {}", name, status));
        result.codes.insert(result.codes.begin(), std::move(codes));
    }
    return result;
}

} // namespace host
