// Row selection: copies the selected rows of a column to an output of the same layout, and goes on where it stopped
// when the output was full.
//
//   rows      env.ones_vec if there is one, else the bits of env.sel_bits below src.size
//   output    up to dst.size elements, and in the LV layouts up to dst.byte_size bytes of data; both say on return what
//             was written
//   resuming  env.resume_row: the next row, or the next entry of the list; env.resume_offset: the byte of src.data at
//             which the element reached begins, in the LV layouts. A row that did not fit is the next one
//   status    0 rows exhausted, 23 output full, 2 no layout that both sides have
//
// Nothing outside the elements is read, nothing outside the output is written. Elements reached by index may come in
// any order of the list; the LV layouts reach them by walking, so there the list ascends (an entry may repeat).
#include "bitvec/bitvec.h"
#include "frame/element_layout.h"
#include "frame/tavoc_avx512g.h"
#include "scan/row_operations.h"

namespace tavo {
namespace {

// ---- Elements of one size, reached by index ----

// Copies the elements of n rows to dst from element `to` on.
using copy_rows_fn = void(tavo_vec *dst, ub4 to, const ub1 *data, const tavo_vec *src, const ub4 *rows, ub4 n);

template <unsigned Bytes>
void copy_fixed_rows(tavo_vec *dst, ub4 to, const ub1 *data, const tavo_vec *, const ub4 *rows, ub4 n) {
    ub1 *out = static_cast<ub1 *>(dst->data) + static_cast<ub8>(to) * Bytes;
    for (ub4 i = 0; i < n; i++, out += Bytes)
        memcpy(out, data + static_cast<ub8>(rows[i]) * Bytes, Bytes);
}
void copy_long_rows(tavo_vec *dst, ub4 to, const ub1 *data, const tavo_vec *src, const ub4 *rows, ub4 n) {
    const unsigned bytes = fixed_element_bytes(src->enc);
    ub1 *out = static_cast<ub1 *>(dst->data) + static_cast<ub8>(to) * bytes;
    for (ub4 i = 0; i < n; i++, out += bytes)
        copy_bytes(out, data + static_cast<ub8>(rows[i]) * bytes, bytes);
}
void copy_lp_sep_rows(tavo_vec *dst, ub4 to, const ub1 *data, const tavo_vec *src, const ub4 *rows, ub4 n) {
    const lp_sep_elements elements(src, data);
    for (ub4 i = 0; i < n; i++)
        put_lp_sep(static_cast<ub1 *>(dst->data), reinterpret_cast<ub1 *>(dst->lengths), to + i, elements(rows[i]));
}

copy_rows_fn *copy_of_fixed_rows(unsigned bytes) {
    static constexpr copy_rows_fn *by_size[] = {
        copy_fixed_rows<0>,  copy_fixed_rows<1>,  copy_fixed_rows<2>,  copy_fixed_rows<3>,  copy_fixed_rows<4>,
        copy_fixed_rows<5>,  copy_fixed_rows<6>,  copy_fixed_rows<7>,  copy_fixed_rows<8>,  copy_fixed_rows<9>,
        copy_fixed_rows<10>, copy_fixed_rows<11>, copy_fixed_rows<12>, copy_fixed_rows<13>, copy_fixed_rows<14>,
        copy_fixed_rows<15>, copy_fixed_rows<16>};
    return bytes <= 16 ? by_size[bytes] : copy_long_rows;
}

ub4 select_indexed_by_list(tavo_vec *dst, const tavo_vec *src, const ub1 *data, tavo_env *env, copy_rows_fn *copy) {
    const ub4 remaining = env->ones_vec_size > env->resume_row ? env->ones_vec_size - env->resume_row : 0;
    const ub4 n = dst->size < remaining ? dst->size : remaining;
    copy(dst, 0, data, src, env->ones_vec + env->resume_row, n);
    env->resume_row += n;
    dst->size = n;
    return n < remaining ? TAVO_OUTPUT_FULL : TAVO_DONE;
}

ub4 select_indexed_by_bits(tavo_vec *dst, const tavo_vec *src, const ub1 *data, tavo_env *env, copy_rows_fn *copy) {
    constexpr ub4 batch = 256;
    ub4 rows[batch], written = 0;
    const ub4 capacity = dst->size, size = TAVO_VEC_SIZE(src);
    tavo_bit_iter selected;
    tavo_lbiwv_ictx_ini2_dydi(&selected, env->sel_bits, size, 0, env->resume_row);
    while (written < capacity) {
        const ub4 room = capacity - written < batch ? capacity - written : batch;
        const auto got = static_cast<ub4>(tavo_lbiwvones_dydi(&selected, rows, room));
        copy(dst, written, data, src, rows, got);
        written += got;
        if (got < room)
            break;
    }
    dst->size = written;
    const ub8 next = tavo_lbiwviter_dydi(&selected);
    if (next != TAVO_LBIWV_END) {
        env->resume_row = static_cast<ub4>(next);
        return TAVO_OUTPUT_FULL;
    }
    env->resume_row = env->resume_row > size ? env->resume_row : size;
    return TAVO_DONE;
}

ub4 select_indexed(tavo_vec *dst, const tavo_vec *src, const ub1 *data, tavo_env *env, copy_rows_fn *copy) {
    return (env->ones_vec != nullptr ? select_indexed_by_list : select_indexed_by_bits)(dst, src, data, env, copy);
}

// ---- Elements of varying length, reached by walking ----

// What has been written so far, and whether there is room for more.
template <class Cursor>
struct walk_output {
    ub1 *to, *lengths;
    ub4 capacity, written = 0;
    ub8 byte_capacity, bytes = 0;

    explicit walk_output(const tavo_vec *dst) noexcept
        : to(static_cast<ub1 *>(dst->data)), lengths(reinterpret_cast<ub1 *>(dst->lengths)), capacity(dst->size),
          byte_capacity(dst->byte_size) {}
    [[gnu::always_inline]] bool takes(ub4 size) const noexcept {
        return written < capacity && byte_capacity - bytes >= size;
    }
    // The element at the cursor, whose data goes over as it stands.
    [[gnu::always_inline]] void put(const Cursor &cursor, ub8 row) noexcept { put_if(true, cursor, row); }
    // The same, or nothing, without a branch on which.
    [[gnu::always_inline]] void put_if(bool selected, const Cursor &cursor, ub8 row) noexcept {
        const ub4 size = selected ? cursor.size(row) : 0;
        // A whole register where there is room for it: masked stores of bytes are slow. What it writes too much of is
        // free room of the output.
        if (size <= 64 && byte_capacity - bytes >= 64) [[likely]]
            _mm512_storeu_si512(to + bytes, _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, size), cursor.position));
        else
            copy_bytes(to + bytes, cursor.position, size);
        if constexpr (Cursor::head_bytes == 0) {
            const auto length = static_cast<ub2>(size);
            if (written < capacity) [[likely]]
                memcpy(lengths + 2 * static_cast<ub8>(written), &length, sizeof length);
        }
        written += selected;
        bytes += size;
    }
    ub4 finish(tavo_vec *dst, tavo_env *env, ub4 reached, ub8 offset, ub4 status) const noexcept {
        env->resume_row = reached;
        env->resume_offset = offset;
        dst->size = written;
        dst->byte_size = bytes;
        return status;
    }
};

template <class Cursor>
ub4 select_walked_by_bits(tavo_vec *dst, const tavo_vec *src, const ub1 *data, tavo_env *env) {
    walk_output<Cursor> out(dst);
    Cursor cursor(src, data, env->resume_offset);
    const auto offset = [&] { return static_cast<ub8>(cursor.position - data); };
    const ub4 size = TAVO_VEC_SIZE(src);
    ub4 row = env->resume_row;
    while (row < size) {
        const ub4 rows = size - row < 64 - row % 64 ? size - row : 64 - row % 64; // of this word of the selection
        ub8 selected = _bzhi_u64(env->sel_bits[row / 64] >> row % 64, rows);
        const ub4 end = row + rows;
        if (__builtin_popcountll(selected) >= 12) {
            // So many that to guess each row's fate costs more than to move the bytes of none.
            for (; row < end; row++, selected >>= 1) {
                if ((selected & 1) > out.takes(cursor.size(row))) [[unlikely]]
                    return out.finish(dst, env, row, offset(), TAVO_OUTPUT_FULL);
                out.put_if((selected & 1) != 0, cursor, row);
                cursor.next(row);
            }
        } else {
            for (ub4 at = row; selected != 0; selected &= selected - 1) {
                const ub4 next = at + static_cast<ub4>(_tzcnt_u64(selected));
                cursor.skip(row, next - row);
                row = next;
                if (!out.takes(cursor.size(row)))
                    return out.finish(dst, env, row, offset(), TAVO_OUTPUT_FULL);
                out.put(cursor, row);
            }
            cursor.skip(row, end - row);
            row = end;
        }
    }
    return out.finish(dst, env, row, offset(), TAVO_DONE);
}

// The cursor stays at an entry's element until the next entry is further on: the same entry may come again.
template <class Cursor>
ub4 select_walked_by_list(tavo_vec *dst, const tavo_vec *src, const ub1 *data, tavo_env *env) {
    walk_output<Cursor> out(dst);
    Cursor cursor(src, data, env->resume_offset);
    const auto offset = [&] { return static_cast<ub8>(cursor.position - data); };
    const ub4 *entries = env->ones_vec, end = env->ones_vec_size;
    ub4 entry = env->resume_row;
    ub4 row = env->resume_offset != 0 && entry < end ? entries[entry] : 0; // the row at the cursor
    for (; entry < end; entry++) {
        const ub4 wanted = entries[entry];
        if (row > wanted)
            raise(env->host, "tavo_selective found decreasing indices in ones_vec with LV or LV_SEP input");
        if (row < wanted) {
            cursor.skip(row, wanted - row);
            row = wanted;
        }
        if (!out.takes(cursor.size(row)))
            return out.finish(dst, env, entry, offset(), TAVO_OUTPUT_FULL);
        out.put(cursor, row);
    }
    return out.finish(dst, env, entry, offset(), TAVO_DONE);
}

template <class Cursor>
ub4 select_walked(tavo_vec *dst, const tavo_vec *src, const ub1 *data, tavo_env *env) {
    return (env->ones_vec != nullptr ? select_walked_by_list<Cursor> : select_walked_by_bits<Cursor>)(dst, src, data,
                                                                                                      env);
}

} // namespace
} // namespace tavo

ub4 tavo_selective_dydi(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept {
    using namespace tavo;
    const ub4 layouts = TAVO_VEC_ENC_CTX(src)->flags & TAVO_VEC_ENC_CTX(dst)->flags;
    constexpr ub4 all = TAVO_LP | TAVO_LP_SEP | TAVO_LV | TAVO_LV_SEP | TAVO_FIXED;
    if ((layouts & all) == 0)
        return TAVO_UNSUPPORTED;
    const ub1 *data = column_data(src, env, TAVO_KERNEL_TEXTS(tavo_selective_dydi));
    if (layouts & TAVO_LP)
        return select_indexed(dst, src, data, env, copy_fixed_rows<lp_elements::record_bytes>);
    if (layouts & TAVO_LP_SEP)
        return select_indexed(dst, src, data, env, copy_lp_sep_rows);
    if (layouts & TAVO_LV)
        return select_walked<lv_cursor>(dst, src, data, env);
    if (layouts & TAVO_LV_SEP)
        return select_walked<lv_sep_cursor>(dst, src, data, env);
    return select_indexed(dst, src, data, env, copy_of_fixed_rows(fixed_element_bytes(TAVO_VEC_ENC_CTX(src))));
}
