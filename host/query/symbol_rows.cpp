#include "host/query/symbol_rows.h"

#include <fmt/format.h>

#include "host/error.h"

namespace host {

symbol_rows::symbol_rows(column &col) {
    const tavo_enc_ctx &dictionary = *col.vec()->enc;
    const ub8 symbols = col.dict().end_code();
    ub8 at = dictionary.symbols;
    for (ub8 code = 0; code < symbols; code++) {
        const ub2 length = dictionary.dict_kind == TAVO_DICT_ONE_LEN
                               ? __builtin_bswap16(*dictionary.symbol_len)
                               : static_cast<ub2>(__builtin_bswap32(dictionary.cla[code + 1]) -
                                                  __builtin_bswap32(dictionary.cla[code]));
        addresses_.push_back(at);
        lengths_.push_back(length);
        at += length;
    }
}

void symbol_rows::select(session &s, const ub4 *codes, ub4 n, ub8 *addresses, ub2 *lengths) {
    if (s.kernels().ctx().selective == nullptr)
        throw error(s.kernels().path() + " has no operation selective");
    tavo_enc_ctx enc{};
    enc.flags = TAVO_LP_SEP;
    tavo_vec src{}, dst{};
    src.enc = dst.enc = &enc;
    src.data = addresses_.data();
    src.lengths = lengths_.data();
    src.size = static_cast<ub4>(addresses_.size());
    dst.data = addresses;
    dst.lengths = lengths;
    dst.size = n;
    tavo_env env{};
    env.host = s.record();
    env.ones_vec = const_cast<ub4 *>(codes); // read only
    env.ones_vec_size = n;
    const ub4 status = s.kernels().ctx().selective(&dst, &src, &env);
    s.throw_raised();
    if (status != TAVO_DONE || dst.size != n)
        throw error(fmt::format("tavo_selective_dydi: status {}, {} of {} symbols", status, dst.size, n));
}

} // namespace host
