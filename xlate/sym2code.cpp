#include "xlate/sym2code.h"

#include "decode/symbol_refs.h"
#include "xlate/dense_dictionary.h"
#include "xlate/dense_steps.h"

namespace tavo {
namespace {

// ---- Forms of columns: at(row) is a row's symbol, for rows in any order but of lv_sep ----

dense_symbol symbol_at(symbol_extent extent) noexcept { return {address(extent.address), extent.length}; }

template <class Symbols>
struct coded_symbols {
    coded_symbols(const tavo_vec *column, const ub1 *data, ub4) noexcept
        : symbols(TAVO_VEC_ENC_CTX(column)), codes(data) {}
    dense_symbol at(ub8 row) const noexcept { return symbol_at(symbols(dense_load<ub4>(codes + 4 * row))); }

    static constexpr bool any_order = true;
    Symbols symbols;
    const ub1 *codes;
};
using one_len = coded_symbols<one_len_symbols>;
using cla_stride_one = coded_symbols<cla_symbols>;

struct lp_sep {
    lp_sep(const tavo_vec *column, const ub1 *data, ub4) noexcept : addresses(data), lengths(column->lengths) {}
    dense_symbol at(ub8 row) const noexcept { return {address(dense_load<ub8>(addresses + 8 * row)), lengths[row]}; }

    static constexpr bool any_order = true;
    const ub1 *addresses;
    const ub2 *lengths;
};

struct fixed {
    fixed(const tavo_vec *column, const ub1 *data, ub4) noexcept
        : elements(data), length(static_cast<ub1>(TAVO_VEC_ENC_CTX(column)->width_bits) / 8) {}
    dense_symbol at(ub8 row) const noexcept { return {elements + row * length, static_cast<ub2>(length)}; }

    static constexpr bool any_order = true;
    const ub1 *elements;
    ub8 length;
};

// Rows in their order, each once.
struct lv_sep {
    lv_sep(const tavo_vec *column, const ub1 *data, ub4 first_row) noexcept : next(data), lengths(column->lengths) {
        for (ub4 row = 0; row < first_row; row++)
            next += lengths[row];
    }
    dense_symbol at(ub8 row) noexcept {
        const dense_symbol symbol{next, lengths[row]};
        next += lengths[row];
        return symbol;
    }

    static constexpr bool any_order = false;
    const ub1 *next;
    const ub2 *lengths;
};

// Rows ahead of the one that is looked up: whose node is fetched, and whose symbol and its record then are.
constexpr ub8 fetch_node_ahead = 24, fetch_record_ahead = 12;

template <class Form, bool Hashed>
[[gnu::always_inline]] inline ub4 symbols_to_codes(tavo_dgk_worker *worker, ub4 *code, const tavo_vec *column,
                                                   const ub1 *data, const ub8 *hash) noexcept {
    dense_dictionary<processor_steps> dictionary(worker);
    const ub8 first = worker->rows_done, rows = TAVO_VEC_SIZE(column);
    Form form(column, data, static_cast<ub4>(first));
    const dense_hash no_hash(0);
    ub8 row = first;
    for (; row < rows; row++) {
        if constexpr (Hashed) {
            if (row + fetch_node_ahead < rows)
                __builtin_prefetch(dictionary.first_node(dense_hash(hash[row + fetch_node_ahead])));
            if (row + fetch_record_ahead < rows) {
                const dense_hash ahead(hash[row + fetch_record_ahead]);
                __builtin_prefetch(dictionary.likely_record(dictionary.first_node(ahead), ahead));
                if constexpr (Form::any_order)
                    __builtin_prefetch(form.at(row + fetch_record_ahead).bytes);
            }
        }
        if (!dictionary.code_of(form.at(row), Hashed ? dense_hash(hash[row]) : no_hash, code[row])) [[unlikely]]
            break;
    }
    worker->rows_done = static_cast<ub4>(row);
    worker->new_rows += row - first;
    return worker->status;
}

} // namespace
} // namespace tavo

extern "C" {
#define TAVO_MEMBER(form)                                                                                              \
    ub4 tavo_dgk_sym2code_ex_##form(tavo_dgk_worker *worker, ub4 *code, const tavo_vec *column, const ub1 *data,       \
                                    const ub8 *hash) noexcept {                                                        \
        return tavo::symbols_to_codes<tavo::form, true>(worker, code, column, data, hash);                             \
    }                                                                                                                  \
    ub4 tavo_dgk_sym2code_in_##form(tavo_dgk_worker *worker, ub4 *code, const tavo_vec *column, const ub1 *data,       \
                                    const ub8 *) noexcept {                                                            \
        return tavo::symbols_to_codes<tavo::form, false>(worker, code, column, data, nullptr);                         \
    }
TAVO_SYM2CODE_FORMS(TAVO_MEMBER)
#undef TAVO_MEMBER
}
