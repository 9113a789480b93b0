#include "decode/spak.h"

#include <algorithm>
#include <cstring>

#include "decode/spak_masks.h"
#include "frame/tavo_avx512g.h"
#include "frame/tavo_status.h"
#include "portable/intrinsics.h"
#include "scan/packed_code.h"

namespace {

using tavo::load_big_endian_4;

ub2 load_big_endian_2(const ub1 *p) noexcept { return static_cast<ub2>(p[0] << 8 | p[1]); }

constexpr unsigned block_codes = 32; // codes of a fast block
constexpr unsigned prefetch_ahead = 512;

constexpr ub4 blocks_of(ub4 count) { return count > block_codes ? count / block_codes - 1 : 0; }

// The 32 codes of a fast block, in stream order from the low end of word[0]: bytes up to 8 bits, else 16-bit lanes.
template <unsigned W>
struct code_block {
    static constexpr unsigned lane_bits = W <= 8 ? 8 : 16;
    static constexpr unsigned words = block_codes * lane_bits / 64;
    ub8 word[words];
};

// Eight codes in 16-bit lanes. Reads 16 bytes, of which the codes are the first W.
template <unsigned W>
[[gnu::always_inline]] inline __m128i extract_group(const ub1 *codes) noexcept {
    auto row = [](const auto &table) { return _mm_load_si128(reinterpret_cast<const __m128i *>(table.row[W - 3])); };
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(codes));
    const __m128i lanes = _mm_shuffle_epi8(bytes, row(tavo::tavo_spak_decode_shuffle_masks));
    return _mm_srlv_epi16(_mm_and_si128(lanes, row(tavo::tavo_spak_decode_and_masks)),
                          row(tavo::tavo_spak_decode_shift_masks));
}

template <unsigned W>
[[gnu::always_inline]] inline code_block<W> extract_block(const ub1 *codes) noexcept {
    code_block<W> block{};
    if constexpr (W == 0) {
        // All zero.
    } else if constexpr (W == 8) {
        std::memcpy(block.word, codes, sizeof block.word);
    } else {
        __m128i group[4];
#pragma GCC unroll 4
        for (unsigned g = 0; g < 4; g++)
            group[g] = extract_group<W>(codes + g * W);
        if constexpr (W < 8) {
            group[0] = _mm_packus_epi16(group[0], group[1]);
            group[1] = _mm_packus_epi16(group[2], group[3]);
        }
#pragma GCC unroll 4
        for (unsigned g = 0; g < block.words / 2; g++) {
            block.word[2 * g] = static_cast<ub8>(_mm_cvtsi128_si64(group[g]));
            block.word[2 * g + 1] = static_cast<ub8>(_mm_extract_epi64(group[g], 1));
        }
    }
    return block;
}

// Reads codes one by one, from the given one on: at most one byte past the last of them.
template <unsigned W>
class code_reader {
public:
    code_reader(const ub1 *codes, ub4 first) : codes_(codes + static_cast<ub8>(first) * W / 8), bit_(first * W % 8) {}

    [[gnu::always_inline]] ub4 next() noexcept {
        if constexpr (W == 0) {
            return 0;
        } else if constexpr (W == 8) {
            return *codes_++;
        } else {
            const ub4 code = static_cast<ub4>(load_big_endian_2(codes_) >> (16 - W - bit_)) & ((1u << W) - 1);
            bit_ += W;
            codes_ += bit_ / 8;
            bit_ %= 8;
            return code;
        }
    }

private:
    const ub1 *codes_;
    ub4 bit_; // of the next code, from the top of *codes_
};

// The blocks whose codes are followed by 8 bytes of output or more: all of them, unless many of the last 32 codes are
// empty symbols.
template <unsigned W>
[[gnu::always_inline]] inline ub4 blocks_inside(const ub1 *codes, ub4 count, const ub1 *lengths) noexcept {
    ub4 front = count;
    for (ub4 behind = 0; behind < 8 && front > 0;)
        behind += lengths[code_reader<W>(codes, --front).next()];
    return std::min(blocks_of(count), front / block_codes);
}

// Writes exactly the symbol's bytes; returns the position behind them.
[[gnu::always_inline]] inline ub1 *put_symbol(const ub8 *symbol, ub4 length, ub1 *out) noexcept {
    const auto symbol_bytes = static_cast<__mmask16>(_bzhi_u32(0xffff, length));
    _mm_mask_storeu_epi8(out, symbol_bytes, _mm_maskz_loadu_epi8(symbol_bytes, symbol));
    return out + length;
}

// Blocks of 32 codes with one 8-byte store a code, whatever the symbol's length: the next store overwrites the surplus.
// The codes behind the blocks are written exactly, and come to 8 bytes at least, so that no store passes the output.
template <unsigned W>
[[gnu::always_inline]] inline ub8 decode_codes(const ub1 *codes, ub4 count, const ub8 *symbols, const ub1 *lengths,
                                               ub1 *dst) noexcept {
    if (W == 0 && lengths[0] == 0)
        return 0;
    ub1 *out = dst;
    const ub4 blocks = W < 3 ? blocks_of(count) : blocks_inside<W>(codes, count, lengths);
    const ub4 in_blocks = blocks * block_codes;
    if constexpr (W == 1 || W == 2) {
        // Each code of a block counts as 0. It is written exactly, since the codes behind may come to nothing.
        for (ub4 n = in_blocks; n > 0; n--)
            out = put_symbol(symbols, lengths[0], out);
    } else {
        const ub1 *next = codes;
        for (ub4 b = 0; b < blocks; b++, next += block_codes / 8 * W) {
            __builtin_prefetch(next + prefetch_ahead, 0, 3);
            __builtin_prefetch(out + prefetch_ahead, 0, 3);
            const code_block<W> block = extract_block<W>(next);
#pragma GCC unroll 8
            for (unsigned w = 0; w < block.words; w++)
#pragma GCC unroll 8
                for (unsigned bit = 0; bit < 64; bit += block.lane_bits) {
                    const ub8 code = block.word[w] >> bit & ((1u << block.lane_bits) - 1);
                    std::memcpy(out, &symbols[code], 8);
                    out += lengths[code];
                }
        }
    }
    code_reader<W> rest(codes, in_blocks);
    for (ub4 n = count - in_blocks; n > 0; n--) {
        const ub4 code = rest.next();
        out = put_symbol(&symbols[code], lengths[code], out);
    }
    return static_cast<ub8>(out - dst);
}

// The checks in their order; nothing behind the first that fails is read.
bool head_is_sound(const ub1 *src, ub4 capacity) noexcept {
    return load_big_endian_4(src) == tavo::spak_magic  //
           && src[4] == 0                              //
           && (src[5] & tavo::spak_flag_required) != 0 //
           && (src[5] & tavo::spak_flags_refused) == 0 //
           && load_big_endian_4(src + 12) <= capacity  //
           && tavo::spak_code_width(load_big_endian_2(src + 16)) <= tavo::spak_widest_code;
}

// Fills the slots of the n symbols, whose length nibbles and bytes are given; returns the position behind their bytes.
const ub1 *load_dictionary(const ub1 *nibbles, const ub1 *bytes, ub4 n, ub8 *symbols, ub1 *lengths) noexcept {
    for (ub4 i = 0; i < n; i++) {
        const ub1 pair = nibbles[i / 2];
        lengths[i] = i % 2 == 0 ? pair >> 4 : pair & 15;
        std::memcpy(&symbols[i], bytes, 8); // what follows the symbol comes along and is never output
        bytes += lengths[i];
    }
    return bytes;
}

} // namespace

extern "C" {

ub8 spak_decode_dict_8_bit(const ub1 *codes, ub4 count, const ub8 *symbols, const ub1 *lengths, ub1 *dst) noexcept {
    return decode_codes<8>(codes, count, symbols, lengths, dst);
}
ub8 spak_decode_dict_9_bit(const ub1 *codes, ub4 count, const ub8 *symbols, const ub1 *lengths, ub1 *dst) noexcept {
    return decode_codes<9>(codes, count, symbols, lengths, dst);
}
ub8 spak_decode_dict_10_bit(const ub1 *codes, ub4 count, const ub8 *symbols, const ub1 *lengths, ub1 *dst) noexcept {
    return decode_codes<10>(codes, count, symbols, lengths, dst);
}

ub4 tavo_spak_decode_dydi(tavo_spak_ctx *ctx, const ub1 *src, ub1 *dst, ub4 *out_len, ub4 capacity) noexcept {
    if (!head_is_sound(src, capacity))
        return TAVO_BAD_INPUT;
    const ub4 n = load_big_endian_2(src + 16);
    const bool has_aux = static_cast<sb2>(load_big_endian_2(src + 10)) > 0;
    const ub4 raw_length = load_big_endian_4(src + 12);

    ub8 lengths_cookie, symbols_cookie;
    auto *lengths = static_cast<ub1 *>(
        ctx->temp_allocate(ctx->handle, n + 1, "spak_decode_x86 length_array", 8, 0, &lengths_cookie));
    auto *symbols = static_cast<ub8 *>(
        ctx->temp_allocate(ctx->handle, 8ull * n, "spak_decode_x86: symbol_array", 8, 0, &symbols_cookie));

    const ub1 *nibbles = src + tavo::spak_head_size;
    const ub1 *symbol_bytes = nibbles + (n + 1) / 2 + (has_aux ? 2 * n : 0);
    const ub1 *code_count = load_dictionary(nibbles, symbol_bytes, n, symbols, lengths);
    const ub1 *codes = code_count + 4;
    if (has_aux)
        codes += load_big_endian_4(codes) >> 7;
    const ub4 width = tavo::spak_code_width(n);
    const ub4 count = load_big_endian_4(code_count);

    ub8 written = 0;
    switch (width) {
    case 0: written = decode_codes<0>(codes, count, symbols, lengths, dst); break;
    case 1: written = decode_codes<1>(codes, count, symbols, lengths, dst); break;
    case 2: written = decode_codes<2>(codes, count, symbols, lengths, dst); break;
    case 3: written = decode_codes<3>(codes, count, symbols, lengths, dst); break;
    case 4: written = decode_codes<4>(codes, count, symbols, lengths, dst); break;
    case 5: written = decode_codes<5>(codes, count, symbols, lengths, dst); break;
    case 6: written = decode_codes<6>(codes, count, symbols, lengths, dst); break;
    case 7: written = decode_codes<7>(codes, count, symbols, lengths, dst); break;
    case 8: written = spak_decode_dict_8_bit(codes, count, symbols, lengths, dst); break;
    case 9: written = spak_decode_dict_9_bit(codes, count, symbols, lengths, dst); break;
    case 10: written = spak_decode_dict_10_bit(codes, count, symbols, lengths, dst); break;
    }
    *out_len = static_cast<ub4>(written);

    if (symbols != nullptr)
        ctx->temp_release(ctx->handle, symbols, symbols_cookie);
    if (lengths != nullptr)
        ctx->temp_release(ctx->handle, lengths, lengths_cookie);
    return *out_len == raw_length ? TAVO_DONE : TAVO_BAD_INPUT;
}

} // extern "C"
