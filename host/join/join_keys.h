// The keys of a join: what of two tables' rows is compared, in a form that the join tables take.
//
// Keys compare as values do: as numbers where both columns are numbers, as texts where one is text. So every symbol of
// a dictionary has a canonical key, byte strings that are equal where the values are; rows are never looked at one by
// one for that. Three forms:
//
//   fixed            one column whose keys all have one length of 1 to 12 bytes: these bytes
//   length_prefixed  one column with keys of up to 11 bytes: length and bytes
//   shared_codes     two or three columns, longer keys, or dictionaries of few values for many rows: the code of the
//                    dictionary on the right in place of each column's bytes, 4 bytes a column. Codes of the left side
//                    are translated to it, and those that the right side's rows don't have match nothing
#pragma once

#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/column.h"
#include "host/join/step_list.h"
#include "host/join/translation.h"
#include "host/link/callbacks.h"

namespace host {

// The canonical keys of a column's symbols as values of a type that holds them, by code. The null code's is empty.
std::vector<std::string> canonical_keys(const column &, value_type);

enum class key_form { fixed, length_prefixed, shared_codes };
enum class join_side { left, right };

class join_keys {
public:
    static constexpr std::size_t most_columns = 3;

    struct pair {
        column *left, *right;
    };
    explicit join_keys(const std::vector<pair> &columns);
    // Left codes to shared ones, of those that the right side's rows have.
    translation translation_of(std::size_t c, const std::vector<bool> &used) const;

    std::size_t columns() const { return pairs_.size(); }
    column *of(join_side side, std::size_t c) const {
        return side == join_side::left ? pairs_[c].left : pairs_[c].right;
    }
    key_form form() const { return form_; }
    ub4 key_bytes() const { return key_bytes_; } // of fixed keys and shared codes; the longest of the others
    tavo_kv_type table_type() const;             // with values of 4 bytes
    tavo_kv_kind table_kind() const { return form_ == key_form::length_prefixed ? TAVO_KV_LP : TAVO_KV_FIXED_KEY; }
    std::string describe() const;

    // A dictionary of canonical keys, by the codes of one side's column.
    struct dictionary {
        std::vector<ub1> bytes;
        std::vector<ub4> cla; // big-endian
        ub2 length;           // big-endian, of fixed keys
        // By code: the first of the right side's codes with the key, or translation::no_partner.
        std::vector<ub4> shared_code;
    };
    const dictionary &dictionary_of(join_side side, std::size_t c) const {
        return dictionaries_[side == join_side::right][c];
    }

private:
    void share_codes(const std::vector<std::string> &left, const std::vector<std::string> &right);
    static dictionary lay_out(const std::vector<std::string> &keys);

    std::vector<pair> pairs_;
    key_form form_;
    ub4 key_bytes_;
    std::vector<dictionary> dictionaries_[2];
};

// The key and hash vectors of some rows of one side, made from their codes by the library. Vectors live until the next
// call.
class key_vectors {
public:
    key_vectors(session &, const join_keys &, join_side, step_list &);

    // codes[c][i]: code of row i in key column c. Kept as pointers until make_keys.
    void set_codes(std::vector<const ub4 *> codes, ub4 rows);
    // The same of the left side's rows, with shared codes: those that have a partner in each column. Returns which.
    std::vector<ub4> set_partners(const std::vector<const ub4 *> &codes, ub4 rows, std::vector<translation> &);
    // Leaves these of the rows, in ascending order.
    void keep(const std::vector<ub4> &rows);
    tavo_vec *make_hashes();
    tavo_vec *make_keys();

private:
    session &session_;
    const join_keys &keys_;
    join_side side_;
    step_list &steps_;
    std::vector<const ub4 *> codes_;
    ub4 rows_ = 0;
    std::vector<std::vector<ub4>> shared_, kept_; // by column
    bool hashed_ = false;
    std::vector<ub8> hashes_, addresses_;
    std::vector<ub2> lengths_, indicators_;
    std::vector<ub1> key_bytes_;
    tavo_enc_ctx hash_enc_{}, key_enc_{};
    tavo_vec hash_vec_{}, key_vec_{};
};

} // namespace host
