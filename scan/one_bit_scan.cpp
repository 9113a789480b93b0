#include "scan/one_bit_scan.h"

#include "bitvec/bitvec.h"

namespace tavo {
namespace {

// Reverses the bits of each byte: neighbours, pairs and halves change places, each as two shifts and one choice of
// bits.
__m512i reverse_bits_of_bytes(__m512i v) noexcept {
    constexpr int choose = 0xca; // a ? b : c, bit by bit
    v = _mm512_ternarylogic_epi32(_mm512_set1_epi8(static_cast<char>(0xaa)), _mm512_slli_epi32(v, 1),
                                  _mm512_srli_epi32(v, 1), choose);
    v = _mm512_ternarylogic_epi32(_mm512_set1_epi8(static_cast<char>(0xcc)), _mm512_slli_epi32(v, 2),
                                  _mm512_srli_epi32(v, 2), choose);
    return _mm512_ternarylogic_epi32(_mm512_set1_epi8(static_cast<char>(0xf0)), _mm512_slli_epi32(v, 4),
                                     _mm512_srli_epi32(v, 4), choose);
}

// Rows of code 1 to bv: (n + 7) / 8 bytes, whatever the spare bits of the last one hold.
void code_bits_to_rows(ub1 *bv, const ub1 *codes, ub8 n) noexcept {
    ub8 bytes = (n + 7) / 8;
    for (; bytes >= 64; bytes -= 64, codes += 64, bv += 64)
        _mm512_storeu_si512(bv, reverse_bits_of_bytes(_mm512_loadu_si512(codes)));
    const __mmask64 rest = _bzhi_u64(~0ull, static_cast<unsigned>(bytes));
    _mm512_mask_storeu_epi8(bv, rest, reverse_bits_of_bytes(_mm512_maskz_loadu_epi8(rest, codes)));
}

// Takes over or inverts the code bits, and counts. Goes piece by piece, so that the pass of the bitwise kernel, which
// counts and clears the bits above n, finds its bytes in the cache.
ub4 answer_from_codes(ub8 *bv, const ub1 *codes, ub4 n, bool invert) noexcept {
    constexpr ub4 piece = 1 << 16;
    auto *position = reinterpret_cast<ub1 *>(bv);
    ub4 count = 0;
    for (ub4 rows; n != 0; n -= rows, position += rows / 8, codes += rows / 8) {
        rows = n < piece ? n : piece;
        code_bits_to_rows(position, codes, rows);
        ub4 ones;
        if (invert)
            tavo_lbiwvnot_dydi(position, &ones, position, rows);
        else
            tavo_lbiwvand_dydi(position, &ones, position, position, rows);
        count += ones;
    }
    return count;
}

} // namespace

ub4 one_bit_scan(tavo_vec *res, tavo_vec *src, tavo_env *env, const kernel_texts &texts, one_bit_answer answer,
                 ub1 selected_flag) noexcept {
    const scan_target target = target_of_scan(res, src);
    const auto [bv, n] = target;
    const ub1 *codes = column_data(src, env, texts);
    ub4 count = 0;
    if (n != 0) {
        const ub4 last_word = (n - 1) / 64;
        const bool constant = answer == one_bit_answer::empty || answer == one_bit_answer::all;
        bv[last_word] = 0; // the bits above row n
        if (constant)
            memset(bv, answer == one_bit_answer::all ? 0xff : 0, last_word * sizeof *bv);
        if (answer == one_bit_answer::all) {
            bv[last_word] = ~0ull >> (63 - (n - 1) % 64);
            count = n;
        } else if (!constant) {
            count = answer_from_codes(bv, codes, n, answer == one_bit_answer::invert);
        }
    }
    return finish_scan(res, src, env, target, count, selected_flag);
}

} // namespace tavo
