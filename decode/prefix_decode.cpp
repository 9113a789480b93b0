#include "decode/prefix_decode.h"

#include <algorithm>
#include <cstring>

#include "decode/prefix_masks.h"
#include "frame/tavoc_avx512g.h"
#include "portable/intrinsics.h"

namespace tavo {
namespace {

constexpr ub4 block_symbols = 16;
constexpr unsigned prefetch_bytes = 2048;

// Four records a store.
void write_refs(ub1 *refs, const ub1 *symbols, ub8 length, ub8 count) noexcept {
    const auto first = static_cast<long long>(reinterpret_cast<ub8>(symbols));
    const auto w = static_cast<long long>(length);
    __m512i records = _mm512_setr_epi64(first, w, first + w, w, first + 2 * w, w, first + 3 * w, w);
    const __m512i step = _mm512_setr_epi64(4 * w, 0, 4 * w, 0, 4 * w, 0, 4 * w, 0);
    for (; count >= 4; count -= 4, refs += 64) {
        __builtin_prefetch(refs + prefetch_bytes, 1);
        _mm512_storeu_si512(refs, records);
        records = _mm512_add_epi64(records, step);
    }
    _mm512_mask_storeu_epi64(refs, static_cast<__mmask8>((1u << 2 * count) - 1), records);
}

// A block in the stream. Its head is read once, since stores to the output could alias it, and the end is found by the
// shortest way from there: block after block hangs on it.
template <unsigned Length>
struct prefix_block {
    [[gnu::always_inline]] explicit prefix_block(const ub1 *head) noexcept
        : prefix(head + 1), prefix_length(*head), suffix_length(Length - prefix_length),
          suffixes(prefix + prefix_length), end(suffixes + block_symbols * Length - (prefix_length << 4)) {}

    const ub1 *prefix;
    ub8 prefix_length, suffix_length;
    const ub1 *suffixes, *end;
};
static_assert(block_symbols == 1 << 4);

// A 512-bit register expands four pieces of 16 bytes at once, each with whole symbols and then unused bytes.
template <unsigned Length>
constexpr unsigned piece_symbols = prefix_register_symbols(Length);
template <unsigned Length>
constexpr unsigned piece_bytes = piece_symbols<Length> *Length;
// Pieces of whole 32-bit lanes are brought together in the register. The others are stored 16 bytes each, every one
// over the surplus of the one before; what the last store of a block writes behind the block:
template <unsigned Length>
constexpr unsigned store_surplus = piece_bytes<Length> % 4 == 0 ? 0 : 16 - piece_bytes<Length>;

template <unsigned Length>
[[gnu::always_inline]] inline void store_pieces(ub1 *out, __m512i pieces) noexcept {
    constexpr unsigned bytes = piece_bytes<Length>;
    if constexpr (bytes == 16) {
        _mm512_storeu_si512(out, pieces);
    } else if constexpr (bytes % 4 == 0) {
        constexpr auto lanes_of_a_piece = (1u << bytes / 4) - 1;
        const __m512i together = _mm512_maskz_compress_epi32(static_cast<__mmask16>(lanes_of_a_piece * 0x1111), pieces);
        _mm512_mask_storeu_epi32(out, static_cast<__mmask16>((1u << bytes) - 1), together);
    } else {
        const auto store = [out](unsigned piece, __m128i symbols) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + piece * bytes), symbols);
        };
        store(0, _mm512_castsi512_si128(pieces));
        store(1, _mm512_extracti32x4_epi32(pieces, 1));
        store(2, _mm512_extracti32x4_epi32(pieces, 2));
        store(3, _mm512_extracti32x4_epi32(pieces, 3));
    }
}

template <unsigned Length>
[[gnu::always_inline]] inline void expand_whole(ub1 *out, prefix_block<Length> block) noexcept {
    const ub8 k = block.prefix_length;
    const ub8 step = piece_symbols<Length> * block.suffix_length; // suffix bytes of a piece, an even number
    const auto mask_row = [k](const prefix_mask_rows &masks) {
        return _mm512_broadcast_i32x4(_mm_load_si128(reinterpret_cast<const __m128i *>(masks.row[Length - 1][k])));
    };
    const auto prefix_bytes = static_cast<__mmask16>(_bzhi_u32(~0u, static_cast<ub4>(k)));
    const __m512i prefix = _mm512_shuffle_epi8(_mm512_broadcast_i32x4(_mm_maskz_loadu_epi8(prefix_bytes, block.prefix)),
                                               mask_row(tavo_prefix_decode_prefix_masks));
    const __m512i suffix_mask = mask_row(tavo_prefix_decode_suffix_masks);
    const __m512i words = _mm512_load_si512(piece_words.row[step / 2]);
    const __mmask64 loaded = _bzhi_u64(~0ull, static_cast<ub4>(4 * step));
    const ub1 *suffixes = block.suffixes;
#pragma GCC unroll 2
    for (unsigned first = 0; first < block_symbols; first += 4 * piece_symbols<Length>) {
        const __m512i suffix = _mm512_permutexvar_epi16(words, _mm512_maskz_loadu_epi8(loaded, suffixes));
        store_pieces<Length>(out, _mm512_or_si512(prefix, _mm512_shuffle_epi8(suffix, suffix_mask)));
        suffixes += 4 * step;
        out += 4 * piece_bytes<Length>;
    }
}

// The first `count` symbols of a block, byte-exact.
template <unsigned Length>
void expand_exact(ub1 *out, prefix_block<Length> block, ub8 count) noexcept {
    const ub1 *suffix = block.suffixes;
    for (; count != 0; count--, out += Length, suffix += block.suffix_length) {
        std::memcpy(out, block.prefix, block.prefix_length);
        std::memcpy(out + block.prefix_length, suffix, block.suffix_length);
    }
}

// Whole blocks as long as their stores stay within the output; the last one, and what else remains, byte-exact.
template <unsigned Length>
void expand_dictionary(ub1 *out, const ub1 *stream, ub8 blocks, ub8 symbols) noexcept {
    constexpr ub8 block_bytes = block_symbols * Length;
    for (; blocks > 1 && symbols * Length >= block_bytes + store_surplus<Length>; blocks--) {
        __builtin_prefetch(stream + prefetch_bytes);
        __builtin_prefetch(out + prefetch_bytes, 1);
        const prefix_block<Length> block(stream);
        expand_whole(out, block);
        stream = block.end;
        symbols -= block_symbols;
        out += block_bytes;
    }
    for (; blocks != 0 && symbols != 0; blocks--) {
        const prefix_block<Length> block(stream);
        const ub8 count = std::min<ub8>(symbols, block_symbols);
        expand_exact(out, block, count);
        stream = block.end;
        symbols -= count;
        out += block_bytes;
    }
}

} // namespace
} // namespace tavo

ub4 tavo_prefix_decode_dydi(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept {
    using namespace tavo;
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src);
    const int length = enc->prefix_len;
    if (enc->prefix_block != block_symbols || length < 1 || length > static_cast<int>(longest_prefix_symbol))
        return TAVO_BAD_INPUT;
    auto *out = static_cast<ub1 *>(dst->data);
    const ub1 *stream = column_data(src, env, TAVO_KERNEL_TEXTS(tavo_prefix_decode_dydi));
    if (env != nullptr && env->symbol_refs != nullptr)
        write_refs(static_cast<ub1 *>(env->symbol_refs), out, static_cast<ub8>(length), enc->prefix_count);
    for (unsigned line = 0; line < prefetch_bytes; line += 64) {
        __builtin_prefetch(stream + line);
        __builtin_prefetch(out + line, 1);
    }
    const auto expand = [&]<unsigned Length>() {
        expand_dictionary<Length>(out, stream, TAVO_VEC_SIZE(src), enc->prefix_count);
    };
    switch (length) {
    case 1: expand.template operator()<1>(); break;
    case 2: expand.template operator()<2>(); break;
    case 3: expand.template operator()<3>(); break;
    case 4: expand.template operator()<4>(); break;
    case 5: expand.template operator()<5>(); break;
    case 6: expand.template operator()<6>(); break;
    case 7: expand.template operator()<7>(); break;
    default: expand.template operator()<8>(); break;
    }
    return TAVO_DONE;
}
