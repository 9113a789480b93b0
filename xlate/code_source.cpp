#include "xlate/code_source.h"

#include <cstring>

#include "decode/code_group.h"
#include "portable/mask_number.h"
#include "scan/packed_code.h"
#include "xlate/number_code.h"

namespace tavo {
namespace {

[[gnu::always_inline]] inline __m512i swap_u32x16(__m512i v) noexcept {
    return _mm512_shuffle_epi8(v, _mm512_load_si512(swap_selectors.row[1]));
}
// The next `left` elements of 4 bytes, sixteen at most.
[[gnu::always_inline]] inline __m512i next_u32x16(const void *p, unsigned left) noexcept {
    return _mm512_maskz_loadu_epi32(static_cast<__mmask16>(_bzhi_u32(0xffff, left < 16 ? left : 16)), p);
}
[[gnu::always_inline]] inline ub4 big_endian_4(const void *array, ub8 i) noexcept {
    return load_big_endian_4(static_cast<const ub1 *>(array) + 4 * i);
}

// Numbers on their way to codes. Slots behind the last, up to a multiple of 16, have length 0.
struct number_batch {
    alignas(64) ub8 last_eight[batch_rows]; // the eight bytes that end with the number, the last on top
    alignas(64) ub4 length[batch_rows];

    // The bytes of `data` up to `end`.
    [[gnu::always_inline]] void take(unsigned slot, const ub1 *data, ub8 end) noexcept {
        if (end >= 8) [[likely]]
            std::memcpy(&last_eight[slot], data + end - 8, 8);
        else
            take_first_bytes(slot, data, end);
    }
    [[gnu::noinline]] void take_first_bytes(unsigned slot, const ub1 *data, ub8 end) noexcept {
        last_eight[slot] = 0;
        for (ub8 i = 0; i < end; i++)
            last_eight[slot] = last_eight[slot] >> 8 | static_cast<ub8>(data[i]) << 56;
    }
    [[gnu::always_inline]] void fill_up(unsigned n) noexcept {
        for (unsigned slot = n; slot < whole_registers(n); slot++) {
            length[slot] = 0;
            last_eight[slot] = 0;
        }
    }
    [[gnu::always_inline]] void convert(code_batch &batch, unsigned n) const noexcept {
        std::memset(batch.has_code, 0, sizeof batch.has_code);
        for (unsigned slot = 0; slot < n; slot += 16) {
            __m512i codes;
            const __mmask16 has = number_codes(codes, last_eight + slot, _mm512_load_si512(length + slot));
            _mm512_store_si512(batch.code + slot, codes);
            batch.has_code[slot / 64] |= hits_of_mask(has) << slot % 64;
        }
    }
};

[[gnu::always_inline]] inline void all_have_codes(code_batch &batch) noexcept {
    std::memset(batch.has_code, 0xff, sizeof batch.has_code);
}

} // namespace

void plain_codes::fetch(code_batch &batch, ub8 row, unsigned n) noexcept {
    all_have_codes(batch);
    const ub1 *p = data_ + row * 4;
    for (unsigned slot = 0; slot < n; slot += 16)
        _mm512_store_si512(batch.code + slot, swap_u32x16(next_u32x16(p + 4 * slot, n - slot)));
}

void plain_codes::fetch(code_batch &batch, const ub4 *rows, unsigned n) noexcept {
    all_have_codes(batch);
    for (unsigned slot = 0; slot < n; slot++)
        batch.code[slot] = big_endian_4(data_, rows[slot]);
    for (unsigned slot = n; slot < whole_registers(n); slot++)
        batch.code[slot] = 0;
}

void cla_numbers::fetch(code_batch &batch, ub8 row, unsigned n) noexcept {
    number_batch numbers;
    alignas(64) ub4 end[batch_rows];
    for (unsigned slot = 0; slot < n; slot += 16) {
        const __m512i from = swap_u32x16(next_u32x16(offsets_ + row + slot, n - slot));
        const __m512i to = swap_u32x16(next_u32x16(offsets_ + row + slot + 1, n - slot));
        _mm512_store_si512(end + slot, to);
        _mm512_store_si512(numbers.length + slot, _mm512_sub_epi32(to, from));
    }
    for (unsigned slot = 0; slot < n; slot++)
        numbers.take(slot, pool_, end[slot]);
    numbers.fill_up(n);
    numbers.convert(batch, n);
}

void cla_numbers::fetch(code_batch &batch, const ub4 *rows, unsigned n) noexcept {
    number_batch numbers;
    for (unsigned slot = 0; slot < n; slot++) {
        const ub4 from = big_endian_4(offsets_, rows[slot]), to = big_endian_4(offsets_, rows[slot] + 1ull);
        numbers.length[slot] = to - from;
        numbers.take(slot, pool_, to);
    }
    numbers.fill_up(n);
    numbers.convert(batch, n);
}

// All numbers have one length: whole registers of them, without a look at each.
void const_numbers::fetch(code_batch &batch, ub8 row, unsigned n) noexcept {
    std::memset(batch.has_code, 0, sizeof batch.has_code);
    if (length_ == 0 || length_ > longest_number) {
        std::memset(batch.code, 0, sizeof batch.code);
        return;
    }
    const number_spread &spread = number_spreads[length_];
    const number_constants by(length_);
    const __m512i first_quarters = _mm512_load_si512(spread.quarters[0]);
    const __m512i other_quarters = _mm512_load_si512(spread.quarters[1]);
    const __m512i first_selectors = _mm512_load_si512(spread.last_four[0]);
    const __m512i other_selectors = _mm512_load_si512(spread.last_four[1]);
    const __m512i head_selectors = _mm512_load_si512(spread.heads);
    const auto zeros = static_cast<__mmask16>(length_ == 1 ? 0xffff : 0);
    const ub1 *p = data_ + row * length_;
    for (unsigned slot = 0; slot < n; slot += 16, p += 16 * length_) {
        const unsigned bytes = (n - slot < 16 ? n - slot : 16) * length_;
        const __m512i low = _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, bytes < 64 ? bytes : 64), p);
        __m512i high = _mm512_setzero_si512();
        if (bytes > 64)
            high = _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, bytes - 64), p + 64);
        const __m512i first = _mm512_permutex2var_epi32(low, first_quarters, high);
        const __m512i other = _mm512_permutex2var_epi32(low, other_quarters, high);
        const __m512i last_four =
            _mm512_or_si512(_mm512_shuffle_epi8(first, first_selectors), _mm512_shuffle_epi8(other, other_selectors));
        __m512i codes;
        const __mmask16 has = number_codes(codes, last_four, _mm512_shuffle_epi8(first, head_selectors), by, zeros);
        _mm512_store_si512(batch.code + slot, codes);
        batch.has_code[slot / 64] |= hits_of_mask(has) << slot % 64;
    }
}

void const_numbers::fetch(code_batch &batch, const ub4 *rows, unsigned n) noexcept {
    number_batch numbers;
    for (unsigned slot = 0; slot < n; slot++) {
        numbers.length[slot] = length_;
        numbers.take(slot, data_, (rows[slot] + 1ull) * length_);
    }
    numbers.fill_up(n);
    numbers.convert(batch, n);
}

void sep_numbers::pass_to(ub8 row) noexcept {
    ub8 bytes = 0;
    for (ub8 r = row_; r < row; r++)
        bytes += lengths_[r];
    offset_ += bytes;
    row_ = row;
}

void sep_numbers::fetch(code_batch &batch, ub8 row, unsigned n) noexcept {
    pass_to(row);
    number_batch numbers;
    ub8 end = offset_;
    for (unsigned slot = 0; slot < n; slot++) {
        const ub2 length = lengths_[row + slot];
        end += length;
        numbers.length[slot] = length;
        numbers.take(slot, data_, end);
    }
    offset_ = end;
    row_ = row + n;
    numbers.fill_up(n);
    numbers.convert(batch, n);
}

void sep_numbers::fetch(code_batch &batch, const ub4 *rows, unsigned n) noexcept {
    number_batch numbers;
    for (unsigned slot = 0; slot < n; slot++) {
        pass_to(rows[slot]);
        const ub2 length = lengths_[rows[slot]];
        offset_ += length;
        row_ = rows[slot] + 1ull;
        numbers.length[slot] = length;
        numbers.take(slot, data_, offset_);
    }
    numbers.fill_up(n);
    numbers.convert(batch, n);
}

} // namespace tavo
