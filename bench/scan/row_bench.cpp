// Set membership beside the eq scan of the same codes and beside CRoaring's lookup of each code; row selection beside a
// loop of memcpys; stream compare beside memcmp row by row.
//
// Counters: items/s = rows/s; of_eq = the share of the eq scan's rows/s; of_roaring, of_memcpy, of_memcmp = times the
// speed of that loop over the same rows.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <roaring/roaring.h>

#include "bench/kit/plain.h"
#include "frame/dispatch_table.h"
#include "frame/tavo.h"
#include "tests/kit/codes.h"

namespace {

using namespace tavo::bench;

void set_of_codes(benchmark::State &state, unsigned width, unsigned members) {
    const auto n = static_cast<ub4>(in_l2 * 8 / width);
    std::mt19937_64 rng(1);
    std::vector<ub8> codes(n);
    const ub8 top = tavo::test::largest_code(width);
    for (ub8 &code : codes)
        code = rng() & top;
    const auto packed = tavo::test::pack_codes(codes, width, 3);
    std::vector<ub8> set(top / 64 + 1), bits((n + 63) / 64);
    std::vector<ub4> unpacked(codes.begin(), codes.end());
    roaring_bitmap_t *roaring = roaring_bitmap_create();
    for (unsigned i = 0; i < members; i++) {
        const ub8 code = rng() & top;
        set[code / 64] |= 1ull << code % 64;
        roaring_bitmap_add(roaring, static_cast<uint32_t>(code));
    }
    tavo_enc_ctx enc{};
    tavo_vec src{}, res{}, set_vec{}, constant{};
    src.enc = &enc;
    src.data = const_cast<ub1 *>(packed.data());
    src.size = res.size = n;
    res.bits = bits.data();
    set_vec.bits = set.data();
    ub8 value = top / 2;
    constant.data = &value;
    const auto slot = [&](unsigned operation) {
        return tavo_global_specialized_ctx
            .dispatch_table[tavo::dispatch_index(operation, TAVO_CLASS_DICT, tavo::width_code(width), 0)];
    };
    const double eq = best_seconds([&] { slot(TAVO_OP_EQ).scan(&res, &src, &constant, nullptr); });
    ub4 found = 0;
    std::vector<ub8> roaring_bits(bits.size());
    const double by_roaring = best_seconds([&] {
        found = 0;
        for (ub4 r = 0; r < n; r += 64) {
            ub8 word = 0;
            for (ub4 i = r; i < n && i < r + 64; i++)
                word |= static_cast<ub8>(roaring_bitmap_contains(roaring, unpacked[i])) << i % 64;
            roaring_bits[r / 64] = word;
            found += static_cast<ub4>(__builtin_popcountll(word));
        }
    });
    const double seconds = report_best(state, packed.size(), n, [&] {
        benchmark::DoNotOptimize(slot(TAVO_OP_SET).scan(&res, &src, &set_vec, nullptr));
    });
    if (found != res.count || roaring_bits != bits)
        state.SkipWithError("CRoaring finds other rows");
    roaring_bitmap_free(roaring);
    state.counters["of_eq"] = eq / seconds;
    state.counters["of_roaring"] = by_roaring / seconds;
}

// ---- Rows ----

struct strings {
    std::vector<ub1> data;
    std::vector<ub2> lengths;
};
strings random_strings(ub4 rows, unsigned shortest, unsigned longest) {
    std::mt19937_64 rng(3);
    strings s;
    for (ub4 r = 0; r < rows; r++) {
        s.lengths.push_back(static_cast<ub2>(shortest + rng() % (longest - shortest + 1)));
        for (unsigned i = 0; i < s.lengths.back(); i++)
            s.data.push_back(static_cast<ub1>(rng() % 4 == 0 ? rng() : 7));
    }
    s.data.resize(s.data.size() + 16);
    return s;
}

// The layout's records and one selection in `one_in`.
struct selection_case {
    std::vector<ub1> data;
    std::vector<ub2> lengths;
    std::vector<ub8> selected;
    std::vector<ub4> list;
};

void selection(benchmark::State &state, ub4 layout, unsigned bytes, unsigned one_in, bool by_list) {
    constexpr ub4 rows = 400000;
    std::mt19937_64 rng(4);
    const strings s = random_strings(rows, layout == TAVO_LV || layout == TAVO_LV_SEP ? 0 : bytes, bytes);
    selection_case c;
    c.lengths = s.lengths;
    const unsigned record = layout == TAVO_LP ? 10 : layout == TAVO_LP_SEP ? 8 : bytes; // known at run time alone
    std::size_t at = 0;
    for (ub4 r = 0; r < rows; at += s.lengths[r], r++) {
        const ub1 *address = s.data.data() + at;
        const auto append = [&](const void *p, std::size_t n) {
            c.data.insert(c.data.end(), static_cast<const ub1 *>(p), static_cast<const ub1 *>(p) + n);
        };
        if (layout == TAVO_LP || layout == TAVO_LV)
            append(&s.lengths[r], 2);
        if (layout == TAVO_LP || layout == TAVO_LP_SEP)
            append(&address, 8);
        else
            append(address, s.lengths[r]);
    }
    c.selected.resize(rows / 64);
    for (ub4 r = 0; r < rows; r++)
        if (rng() % one_in == 0) {
            c.selected[r / 64] |= 1ull << r % 64;
            c.list.push_back(r);
        }
    std::vector<ub1> out(c.data.size() + 64), plain_out(out.size());
    std::vector<ub2> out_lengths(rows), plain_lengths(rows);
    tavo_enc_ctx enc{};
    enc.flags = layout;
    enc.width_bits = 8 * bytes;
    tavo_vec src{}, dst{};
    src.enc = dst.enc = &enc;
    src.data = c.data.data();
    src.lengths = c.lengths.data();
    src.size = rows;
    dst.data = out.data();
    dst.lengths = out_lengths.data();
    const auto run = [&] {
        tavo_env env{};
        env.sel_bits = c.selected.data();
        if (by_list) {
            env.ones_vec = c.list.data();
            env.ones_vec_size = static_cast<ub4>(c.list.size());
        }
        dst.size = rows;
        dst.byte_size = out.size();
        return tavo_global_specialized_ctx.selective(&dst, &src, &env);
    };
    // The loop of memcpys: over the set bits, or the list, for elements with an index; over the rows for the others.
    std::size_t written = 0;
    const auto plain = [&] {
        ub1 *to = plain_out.data();
        ub4 w = 0;
        const auto copy_row = [&](ub4 r) {
            std::memcpy(to, c.data.data() + std::size_t{r} * record, record);
            to += record;
            if (layout == TAVO_LP_SEP)
                plain_lengths[w++] = c.lengths[r];
        };
        if (layout == TAVO_LV || layout == TAVO_LV_SEP) {
            const ub1 *p = c.data.data();
            for (ub4 r = 0; r < rows; r++) {
                ub2 length = c.lengths[r];
                if (layout == TAVO_LV)
                    std::memcpy(&length, p, 2);
                const std::size_t size = length + (layout == TAVO_LV ? 2u : 0u);
                if (c.selected[r / 64] >> r % 64 & 1) {
                    std::memcpy(to, p, size);
                    to += size;
                    plain_lengths[w++] = c.lengths[r];
                }
                p += size;
            }
        } else if (by_list) {
            for (ub4 r : c.list)
                copy_row(r);
        } else {
            for (ub4 word = 0; word < rows / 64; word++)
                for (ub8 left = c.selected[word]; left != 0; left &= left - 1)
                    copy_row(word * 64 + static_cast<ub4>(__builtin_ctzll(left)));
        }
        written = static_cast<std::size_t>(to - plain_out.data());
        benchmark::ClobberMemory();
    };
    const double memcpys = best_seconds(plain);
    const double seconds = report_best(state, written, c.list.size(), [&] { benchmark::DoNotOptimize(run()); });
    if (dst.size != c.list.size() || std::memcmp(out.data(), plain_out.data(), written) != 0)
        state.SkipWithError("the loop of memcpys writes other bytes");
    state.counters["of_memcpy"] = memcpys / seconds;
}

void equal_rows(benchmark::State &state, ub4 layout, unsigned longest, bool overread) {
    constexpr ub4 rows = 400000;
    const strings s = random_strings(rows, 1, longest);
    std::mt19937_64 rng(5);
    std::vector<const ub1 *> addresses[2];
    std::vector<ub1> pool[2] = {s.data, s.data};
    std::size_t at = 0;
    for (ub4 r = 0; r < rows; at += s.lengths[r], r++) {
        if (rng() % 2)
            pool[1][at + rng() % s.lengths[r]] ^= 1;
        for (int side : {0, 1})
            addresses[side].push_back(pool[side].data() + at);
    }
    tavo_enc_ctx enc{};
    enc.flags = layout | (overread ? TAVO_OVERREAD_OK : 0);
    enc.max_len = static_cast<ub2>(longest);
    std::vector<ub8> bits(rows / 64);
    std::vector<ub2> lengths[2] = {s.lengths, s.lengths};
    tavo_vec vec[2] = {{}, {}}, res{};
    for (int side : {0, 1}) {
        vec[side].enc = &enc;
        vec[side].size = rows;
        vec[side].lengths = lengths[side].data();
        vec[side].data = layout == TAVO_LP_SEP ? static_cast<void *>(addresses[side].data()) : pool[side].data();
    }
    res.bits = bits.data();
    ub4 count = 0;
    std::vector<ub8> plain_bits(bits.size());
    const double memcmps = best_seconds([&] {
        std::size_t position = 0;
        count = 0;
        std::memset(plain_bits.data(), 0, plain_bits.size() * 8);
        for (ub4 r = 0; r < rows; r++) {
            const std::size_t length = lengths[0][r];
            const ub1 *a = layout == TAVO_LP_SEP ? addresses[0][r] : pool[0].data() + position;
            const ub1 *b = layout == TAVO_LP_SEP ? addresses[1][r] : pool[1].data() + position;
            const bool equal = length == lengths[1][r] && std::memcmp(a, b, length) == 0;
            position += length;
            plain_bits[r / 64] |= static_cast<ub8>(equal) << r % 64;
            count += equal;
        }
    });
    const double seconds = report_best(state, 2 * s.data.size(), rows, [&] {
        benchmark::DoNotOptimize(tavo_global_specialized_ctx.eq_stream(&res, &vec[0], &vec[1], nullptr));
    });
    if (count != res.count || plain_bits != bits)
        state.SkipWithError("memcmp finds other rows");
    state.counters["of_memcmp"] = memcmps / seconds;
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    const ub4 info[3] = {};
    tavo_global_specialized_ctx.init_sharedlib(0, info);
    const auto add = [](const std::string &name, auto &&...args) {
        benchmark::RegisterBenchmark(name.c_str(), args...)->Apply(by_best_time);
    };
    for (unsigned width : {2u, 4u, 6u, 8u, 9u, 10u, 11u, 12u, 13u, 14u, 16u, 17u, 18u, 20u, 24u})
        for (auto [size, members] : {std::pair{"5", 5u}, {"100", 100u}, {"third", (1u << width) / 3 + 1}})
            if (members <= 1u << width)
                add("set_dict_" + std::to_string(width) + "bit/members_" + size, set_of_codes, width, members);
    for (unsigned one_in : {2u, 100u})
        for (bool by_list : {false, true}) {
            const std::string rows = std::string(by_list ? "/list" : "/bits") + "/1_in_" + std::to_string(one_in);
            for (unsigned bytes : {1u, 2u, 3u, 4u, 6u, 8u, 12u, 16u, 24u})
                add("selective/fixed_" + std::to_string(bytes) + rows, selection, TAVO_FIXED, bytes, one_in, by_list);
            add("selective/lp" + rows, selection, TAVO_LP, 8u, one_in, by_list);
            add("selective/lp_sep" + rows, selection, TAVO_LP_SEP, 8u, one_in, by_list);
            for (unsigned bytes : {8u, 16u, 60u}) {
                add("selective/lv_to_" + std::to_string(bytes) + rows, selection, TAVO_LV, bytes, one_in, by_list);
                add("selective/lv_sep_to_" + std::to_string(bytes) + rows, selection, TAVO_LV_SEP, bytes, one_in,
                    by_list);
            }
        }
    for (auto [layout, name] : {std::pair{TAVO_LV_SEP, "lv_sep"}, {TAVO_LP_SEP, "lp_sep"}}) {
        add(std::string("eq_stream/") + name + "/short", equal_rows, layout, 8u, true);
        for (unsigned longest : {8u, 30u, 120u})
            add(std::string("eq_stream/") + name + "/general_to_" + std::to_string(longest), equal_rows, layout, longest,
                false);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
