#include "host/join/join_keys.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <unordered_map>

#include "host/column/packing.h"
#include "host/error.h"
#include "host/join/join_hash.h"

namespace host {

namespace {

template <class F>
void each_length(const column &col, const std::vector<std::string> &keys, F f) {
    for (ub8 code = col.dict().first_code(); code < keys.size(); code++)
        f(keys[code].size());
}

constexpr ub4 longest_slot = 12;

// Keys by code cost a step for each value, keys by their bytes more for each row.
bool few_values(const join_keys::pair &p) {
    return 2 * (p.left->dict().end_code() + p.right->dict().end_code()) <= ub8{p.left->rows()} + p.right->rows();
}

} // namespace

std::vector<std::string> canonical_keys(const column &col, value_type type) {
    std::vector<std::string> keys;
    for (ub8 code = 0; code < col.dict().end_code(); code++)
        keys.push_back(code < col.dict().first_code() ? std::string()
                                                      : sort_key(type, col.dict().symbols()[code]).value());
    return keys;
}

join_keys::join_keys(const std::vector<pair> &columns) : pairs_(columns) {
    if (columns.empty() || columns.size() > most_columns)
        throw error(fmt::format("a join takes 1 to {} pairs of columns, not {}", most_columns, columns.size()));
    std::vector<std::vector<std::string>> left, right;
    for (const pair &p : columns) {
        const value_type type = common_type(p.left->dict().type(), p.right->dict().type());
        left.push_back(canonical_keys(*p.left, type));
        right.push_back(canonical_keys(*p.right, type));
    }
    std::size_t shortest = ~std::size_t{0}, longest = 0;
    const auto note = [&](std::size_t length) {
        shortest = std::min(shortest, length);
        longest = std::max(longest, length);
    };
    each_length(*columns[0].left, left[0], note);
    each_length(*columns[0].right, right[0], note);
    if (columns.size() > 1 || few_values(columns[0]))
        form_ = key_form::shared_codes;
    else if (longest > 0 && shortest == longest && longest <= longest_slot)
        form_ = key_form::fixed;
    else if (longest < longest_slot)
        form_ = key_form::length_prefixed;
    else
        form_ = key_form::shared_codes;
    key_bytes_ = form_ == key_form::shared_codes ? static_cast<ub4>(columns.size() * 4) : static_cast<ub4>(longest);
    for (std::size_t c = 0; c < columns.size(); c++) {
        if (form_ == key_form::shared_codes) {
            share_codes(left[c], right[c]);
            continue;
        }
        dictionaries_[0].push_back(lay_out(left[c]));
        dictionaries_[1].push_back(lay_out(right[c]));
    }
    if (form_ == key_form::fixed) // the null code has a symbol of the same length
        for (const join_side side : {join_side::left, join_side::right}) {
            dictionary &d = dictionaries_[side == join_side::right][0];
            d.length = __builtin_bswap16(static_cast<ub2>(key_bytes_));
            if (of(side, 0)->dict().has_null())
                d.bytes.insert(d.bytes.begin(), key_bytes_, 0);
        }
}

join_keys::dictionary join_keys::lay_out(const std::vector<std::string> &keys) {
    dictionary d{{}, {0}, 0, {}};
    for (const std::string &key : keys) {
        d.bytes.insert(d.bytes.end(), key.begin(), key.end());
        d.cla.push_back(__builtin_bswap32(static_cast<ub4>(d.bytes.size())));
    }
    d.bytes.resize(d.bytes.size() + readable_behind);
    return d;
}

void join_keys::share_codes(const std::vector<std::string> &left, const std::vector<std::string> &right) {
    std::unordered_map<std::string_view, ub4> codes;
    dictionary l{}, r{};
    for (std::size_t code = 0; code < right.size(); code++)
        r.shared_code.push_back(codes.emplace(right[code], static_cast<ub4>(code)).first->second);
    for (const std::string &key : left) {
        const auto found = codes.find(key);
        l.shared_code.push_back(found == codes.end() ? translation::no_partner : found->second);
    }
    dictionaries_[0].push_back(std::move(l));
    dictionaries_[1].push_back(std::move(r));
}

translation join_keys::translation_of(std::size_t c, const std::vector<bool> &used) const {
    std::vector<ub4> partners = dictionary_of(join_side::left, c).shared_code;
    for (ub4 &partner : partners)
        if (partner != translation::no_partner && !used[partner])
            partner = translation::no_partner;
    return translation(partners);
}

tavo_kv_type join_keys::table_type() const {
    const ub4 slot = key_bytes_ + (form_ == key_form::length_prefixed ? 1 : 0);
    return slot <= 4    ? TAVO_KV_K4V4
           : slot <= 6  ? TAVO_KV_K6V4
           : slot <= 8  ? TAVO_KV_K8V4
           : slot <= 10 ? TAVO_KV_K10V4
                        : TAVO_KV_K12V4;
}

std::string join_keys::describe() const {
    switch (form_) {
    case key_form::fixed: return fmt::format("keys of {} bytes", key_bytes_);
    case key_form::length_prefixed: return fmt::format("keys of up to {} bytes", key_bytes_);
    case key_form::shared_codes: break;
    }
    return fmt::format("{} shared code{}", columns(), columns() == 1 ? "" : "s");
}

key_vectors::key_vectors(session &s, const join_keys &keys, join_side side, step_list &steps)
    : session_(s), keys_(keys), side_(side), steps_(steps), shared_(keys.columns()), kept_(keys.columns()) {
    hash_enc_.flags = TAVO_HASHES;
    hash_enc_.width_bits = 64;
    hash_enc_.width_code = TAVO_WIDTH_CODE_64;
    hash_vec_.enc = &hash_enc_;
    key_vec_.enc = &key_enc_;
    if (s.kernels().ctx().hash == nullptr)
        throw error("the library has no operation hash");
}

void key_vectors::set_codes(std::vector<const ub4 *> codes, ub4 rows) {
    codes_ = std::move(codes);
    rows_ = rows;
    hashed_ = false;
    if (keys_.form() == key_form::shared_codes)
        for (std::size_t c = 0; c < codes_.size(); c++) {
            const std::vector<ub4> &shared = keys_.dictionary_of(side_, c).shared_code;
            shared_[c].resize(rows);
            for (ub4 i = 0; i < rows; i++)
                shared_[c][i] = shared[codes_[c][i]];
        }
}

std::vector<ub4> key_vectors::set_partners(const std::vector<const ub4 *> &codes, ub4 rows,
                                           std::vector<translation> &translations) {
    const tavo_specialized_ctx &ctx = session_.kernels().ctx();
    selection partners{std::vector<ub8>((rows + 63ull) / 64), rows};
    for (std::size_t c = 0; c < codes.size() && partners.count != 0; c++)
        partners.count = translations[c].run(session_, keys_.of(side_, c)->name(), codes[c], rows, c > 0, partners.bits,
                                             shared_[c], steps_);
    std::vector<ub4> places = row_numbers(ctx, partners, rows, rows);
    rows_ = rows;
    hashed_ = false;
    keep(places);
    return places;
}

void key_vectors::keep(const std::vector<ub4> &rows) {
    for (std::size_t c = 0; c < keys_.columns(); c++) {
        if (keys_.form() == key_form::shared_codes) {
            for (std::size_t i = 0; i < rows.size(); i++)
                shared_[c][i] = shared_[c][rows[i]];
            continue;
        }
        kept_[c].resize(rows.size() + 16);
        for (std::size_t i = 0; i < rows.size(); i++)
            kept_[c][i] = codes_[c][rows[i]];
        codes_[c] = kept_[c].data();
    }
    rows_ = static_cast<ub4>(rows.size());
    if (!hashed_)
        return;
    for (std::size_t i = 0; i < rows.size(); i++)
        hashes_[i] = hashes_[rows[i]];
    hash_vec_.size = rows_;
}

// Column by column, each on top of the former's hashes.
tavo_vec *key_vectors::make_hashes() {
    hashes_.resize(rows_);
    const ub8 first_seed = 0;
    for (std::size_t c = 0; c < keys_.columns(); c++) {
        const join_keys::dictionary &d = keys_.dictionary_of(side_, c);
        tavo_enc_ctx enc{}, seed_enc{};
        tavo_vec column{}, seeds{}, out{};
        column.enc = &enc;
        column.size = rows_;
        if (keys_.form() == key_form::shared_codes) {
            enc.flags = TAVO_FIXED;
            enc.width_bits = 32;
            column.data = shared_[c].data();
        } else {
            enc.flags = TAVO_DICT;
            enc.symbols = reinterpret_cast<ub8>(d.bytes.data());
            enc.dict_kind = TAVO_DICT_CLA;
            enc.cla = const_cast<ub4 *>(d.cla.data()); // read only
            column.data = const_cast<ub4 *>(codes_[c]);
            if (keys_.form() == key_form::fixed) {
                enc.dict_kind = TAVO_DICT_ONE_LEN;
                enc.symbol_len = const_cast<ub2 *>(&d.length);
            }
        }
        seed_enc.flags = TAVO_HASHES;
        seeds.enc = &seed_enc;
        seeds.data = c == 0 ? const_cast<ub8 *>(&first_seed) : hashes_.data();
        seeds.size = c == 0 ? 1 : rows_;
        out.data = hashes_.data();
        const step_clock clock;
        const ub4 status = session_.kernels().ctx().hash(&out, &column, &seeds, join_hash, nullptr);
        session_.throw_raised();
        if (status != TAVO_DONE)
            throw error(fmt::format("tavo_hash_dydi failed with status {}", status));
        steps_.add("tavo_hash_dydi", keys_.of(side_, c)->name(), keys_.describe(), rows_, rows_, clock.seconds());
    }
    hashed_ = true;
    hash_vec_.data = hashes_.data();
    hash_vec_.size = rows_;
    return &hash_vec_;
}

tavo_vec *key_vectors::make_keys() {
    key_vec_.size = rows_;
    if (keys_.form() == key_form::shared_codes) {
        const std::size_t n = keys_.columns();
        key_bytes_.resize(rows_ * n * 4 + readable_behind);
        for (std::size_t c = 0; c < n; c++)
            for (std::size_t i = 0; i < rows_; i++)
                std::memcpy(&key_bytes_[(i * n + c) * 4], &shared_[c][i], 4);
        key_enc_.flags = TAVO_FIXED;
        key_enc_.width_bits = static_cast<ub4>(n * 32);
        key_vec_.data = key_bytes_.data();
        return &key_vec_;
    }
    const bool fixed = keys_.form() == key_form::fixed;
    const join_keys::dictionary &d = keys_.dictionary_of(side_, 0);
    tavo_enc_ctx enc{};
    enc.flags = TAVO_DICT;
    enc.symbols = reinterpret_cast<ub8>(d.bytes.data());
    enc.dict_kind = fixed ? TAVO_DICT_ONE_LEN : TAVO_DICT_CLA;
    enc.cla = const_cast<ub4 *>(d.cla.data());
    enc.symbol_len = const_cast<ub2 *>(&d.length);
    tavo_vec src{}, dst{};
    src.enc = &enc;
    src.data = const_cast<ub4 *>(codes_[0]);
    src.size = rows_;
    tavo_env env{};
    env.host = session_.record();
    if (fixed) {
        env.flags2 = TAVO_ENV2_COPY;
        key_bytes_.resize(static_cast<std::size_t>(rows_) * keys_.key_bytes() + readable_behind);
        dst.data = key_bytes_.data();
        key_enc_.flags = TAVO_FIXED;
        key_enc_.width_bits = keys_.key_bytes() * 8;
    } else {
        addresses_.resize(rows_);
        lengths_.resize(rows_);
        indicators_.resize(rows_);
        dst.data = addresses_.data();
        dst.lengths = lengths_.data();
        dst.indicators = indicators_.data();
        key_enc_.flags = TAVO_LP_SEP;
    }
    key_vec_.data = dst.data;
    key_vec_.lengths = dst.lengths;
    const tavo_kernel_slot decode = session_.kernels().kernel(
        TAVO_KERNEL_ROW(TAVO_VARIANT_PLAIN, TAVO_WIDTH_CODE_32, TAVO_CLASS_DICT), TAVO_OP_DECODE_SYMBOL);
    if (decode.row_move == nullptr)
        throw error("the library has no kernel tavo_decode_symbol_dict_32bit");
    const step_clock clock;
    const ub4 status = decode.row_move(&dst, &src, &env);
    session_.throw_raised();
    if (status != TAVO_DONE)
        throw error(fmt::format("tavo_decode_symbol_dict_32bit failed with status {}", status));
    steps_.add("tavo_decode_symbol_dict_32bit", keys_.of(side_, 0)->name(),
               fixed ? "codes to keys" : "codes to references to keys", rows_, rows_, clock.seconds());
    return &key_vec_;
}

} // namespace host
