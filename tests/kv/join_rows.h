// Rows of a join in every form in which build and probe take them.
#pragma once

#include "tests/kv/table_model.h"

namespace tavo::test {

// Where keys and hashes come from. The names are those of the kernels.
enum class row_form {
    ridhash,
    hash64value,
    hash32value, // kind 0
    fixed_hash64,
    hash32_fixed,
    fixedhash,
    ridfixedhash, // kind 1
    gd_gd,
    gdhc_gd,
    gd_hash32,
    gd_hash64,
    gdhash,
    gdcachedhash,
    ridgdhash,
    ridgdcachedhash, // kind 2
    lp_hash64,
    lp_hash32,
    lpsep_hash64,
    lpsep_hash32,
    lphash,
    ridlphash // kind 3
};

struct form_figures {
    row_form form;
    ub4 kind;
    ub4 element_class; // of the record stream, or 0
    ub4 hash_bits;     // of the hash vector or of the records' hashes; 0: none
    bool record_rid;
    std::vector<ub4> types;
    const char *name;
};

inline const std::vector<form_figures> &form_list() {
    static const std::vector<ub4> values = {4, 5, 7, 8, 10, 11, 12, 15}, keys = {3, 6, 9, 13},
                                  slots = {3, 6, 9, 13, 4, 5, 7, 8, 10, 11, 12, 15}, hash = {1, 2, 4, 5};
    using f = row_form;
    static const std::vector<form_figures> forms = {
        {f::ridhash, 0, 0x21000000, 64, true, hash, "ridhash"},
        {f::hash64value, 0, 0, 64, false, hash, "hash64value"},
        {f::hash32value, 0, 0, 32, false, hash, "hash32value"},
        {f::fixed_hash64, 1, 0, 64, false, slots, "fixed_hash64"},
        {f::hash32_fixed, 1, 0, 32, false, slots, "hash32_fixed"},
        {f::fixedhash, 1, 0x24000000, 64, false, {3, 9}, "fixedhash"},
        {f::ridfixedhash, 1, 0x25000000, 32, true, {4, 5, 10, 11}, "ridfixedhash"},
        {f::gd_gd, 2, 0, 0, false, {4, 5}, "gd_gd"},
        {f::gdhc_gd, 2, 0, 0, false, {4}, "gdhc_gd"},
        {f::gd_hash32, 2, 0, 32, false, {3, 5}, "gd_hash32"},
        {f::gd_hash64, 2, 0, 64, false, {3}, "gd_hash64"},
        {f::gdhash, 2, 0x22000000, 64, false, {3}, "gdhash"},
        {f::gdcachedhash, 2, 0x12000000, 32, false, {3}, "gdcachedhash"},
        {f::ridgdhash, 2, 0x23000000, 32, true, {4, 5}, "ridgdhash"},
        {f::ridgdcachedhash, 2, 0x13000000, 32, true, {4, 5}, "ridgdcachedhash"},
        {f::lp_hash64, 3, 0, 64, false, slots, "lp_hash64"},
        {f::lp_hash32, 3, 0, 32, false, slots, "lp_hash32"},
        {f::lpsep_hash64, 3, 0, 64, false, slots, "lpsep_hash64"},
        {f::lpsep_hash32, 3, 0, 32, false, slots, "lpsep_hash32"},
        {f::lphash, 3, 0x28000000, 64, false, keys, "lphash_direct"},
        {f::ridlphash, 3, 0x29000000, 64, true, values, "ridlphash_direct"}};
    return forms;
}

inline ub8 mix(ub8 x) {
    x ^= x >> 31;
    x *= 0x9e3779b97f4a7c15;
    x ^= x >> 29;
    return x * 0xbf58476d1ce4e5b9;
}

// A key by number: its bytes in the column, and its hash. `spread` hashes that differ: few make long chains.
struct key_maker {
    const form_figures &form;
    ub4 type;
    ub4 column_bytes; // of a fixed column
    ub4 spread;

    key_bytes key(ub8 number) const {
        key_bytes k;
        switch (form.kind) {
        case 1: k.resize(column_bytes); break;
        case 2: k.resize(4); break;
        case 3: k.resize(mix(number) % (figures_of(type).key + 3)); break; // some too long for the slot
        default: break;
        }
        for (std::size_t i = 0; i < k.size(); i++)
            k[i] = static_cast<ub1>(i < 8 ? number >> (8 * i) : 0x5a + number);
        return k;
    }
    ub8 hash(ub8 number) const {
        if (form.form == row_form::gd_gd)
            return static_cast<ub4>(number);
        // Kind 0: low bits pick the bucket, the others are the key, here and there 0.
        const ub8 h = form.kind == 0 && number % 7 == 0 ? number % spread : mix(number % spread) + (number << 32);
        return form.hash_bits == 64 ? h : static_cast<ub4>(h);
    }
    key_bytes slot(ub8 number) const {
        const ub4 bytes = figures_of(type).key;
        switch (form.kind) {
        case 0: return hash_slot(hash(number), form.hash_bits / 8, bytes);
        case 3: return text_slot(key(number), bytes);
        default: return fixed_slot(key(number), bytes);
        }
    }
};

// The vectors of rows with the keys of these numbers, ends guarded. Values are given ones, or, with autorid, the
// position from first_row on.
struct join_vectors {
    host_vector hashes, keys, values;
    guarded texts{std::size_t{0}};
    std::vector<ub4> cached; // hashes of codes
    std::vector<table_row> rows;

    join_vectors(const key_maker &maker, const std::vector<ub8> &numbers, const std::vector<ub8> &row_values,
                 bool autorid, ub8 first_row, ub4 value_bytes)
        : hashes(numbers.size() * stream_bytes(maker.form)), keys(numbers.size() * key_stride(maker)),
          values(autorid || maker.form.record_rid ? 0 : numbers.size() * value_bytes) {
        const form_figures &form = maker.form;
        const ub4 n = static_cast<ub4>(numbers.size());
        for (host_vector *v : {&hashes, &keys, &values})
            v->vec.size = n;
        keys.enc.width_bits = maker.column_bytes * 8;
        hashes.enc.flags = form.element_class;
        if (form.hash_bits && !form.element_class) {
            hashes.enc.flags |= TAVO_HASHES;
            hashes.enc.width_code = form.hash_bits == 64 ? 22 : 21;
        }
        if (autorid) {
            values.enc.flags = TAVO_ROWID_BASE;
            values.vec.first_row = first_row;
        }
        const bool separate = form.form == row_form::lpsep_hash64 || form.form == row_form::lpsep_hash32;
        if (form.kind == 3) {
            keys.enc.flags = separate ? TAVO_LP_SEP : TAVO_LP;
            keys.lengths = guarded(separate ? n * 2 : 0);
            keys.vec.lengths = keys.lengths.as<ub2>();
            std::size_t bytes = 0;
            for (ub8 number : numbers)
                bytes += maker.key(number).size();
            texts = guarded(bytes);
        }
        if (form.form == row_form::gdhc_gd) {
            cached.resize(numbers.empty() ? 1 : *std::max_element(numbers.begin(), numbers.end()) + 1);
            for (std::size_t c = 0; c < cached.size(); c++)
                cached[c] = static_cast<ub4>(maker.hash(c));
            keys.enc.side_table = cached.data();
        }
        ub1 *text = texts.data();
        for (ub4 r = 0; r < n; r++) {
            const key_bytes key = maker.key(numbers[r]);
            const ub8 hash = maker.hash(numbers[r]), value = autorid ? first_row + r : row_values[r];
            rows.push_back({hash, maker.slot(numbers[r]), value});
            if (form.kind == 3) {
                std::copy(key.begin(), key.end(), text);
                put_text(form, separate, r, text, static_cast<ub2>(key.size()));
                text += key.size();
            } else if (!form.element_class && form.kind != 0) {
                std::copy(key.begin(), key.end(), keys.memory.data() + r * key.size());
            }
            put_hashes(form, r, hash, key, value);
            if (!autorid && !form.record_rid && value_bytes)
                std::memcpy(values.memory.data() + r * value_bytes, &value, value_bytes);
        }
    }

private:
    static ub4 stream_bytes(const form_figures &form) {
        switch (form.element_class) {
        case 0: return form.hash_bits / 8;
        case 0x12000000: return 8;
        case 0x28000000: return 24;
        case 0x29000000: return 32;
        default: return 16;
        }
    }
    static ub4 key_stride(const key_maker &maker) {
        if (maker.form.element_class || maker.form.kind == 0)
            return 0;
        if (maker.form.kind == 3)
            return maker.form.form == row_form::lpsep_hash64 || maker.form.form == row_form::lpsep_hash32 ? 8 : 10;
        return maker.form.kind == 2 ? 4 : maker.column_bytes;
    }
    void put_text(const form_figures &form, bool separate, ub4 r, ub1 *text, ub2 length) {
        if (form.form == row_form::lphash || form.form == row_form::ridlphash) {
            const bool rid = form.form == row_form::ridlphash;
            ub1 *record = hashes.memory.data() + r * (rid ? 32 : 24) + (rid ? 16 : 0);
            put(record, text);
            put(record + 8, length);
        } else if (separate) {
            put(keys.memory.data() + r * 8, text);
            keys.lengths.as<ub2>()[r] = length;
        } else {
            put(keys.memory.data() + r * 10, length);
            put(keys.memory.data() + r * 10 + 2, text);
        }
    }
    void put_hashes(const form_figures &form, ub4 r, ub8 hash, const key_bytes &key, ub8 value) {
        ub1 *at = hashes.memory.data() + r * stream_bytes(form);
        const auto put_key = [&](ub4 offset) { std::copy(key.begin(), key.end(), at + offset); };
        switch (form.element_class) {
        case 0x21000000: put(at, value), put(at + 8, hash); break;
        case 0x12000000: put_key(0), put(at + 4, static_cast<ub4>(hash)); break;
        case 0x13000000: put_key(0), put(at + 4, static_cast<ub4>(hash)), put(at + 8, value); break;
        case 0x22000000:
        case 0x24000000: put(at, hash), put_key(8); break;
        case 0x23000000: put(at, static_cast<ub4>(hash)), put_key(4), put(at + 8, value); break;
        case 0x25000000:
            put(at, static_cast<ub4>(hash)), put_key(4);
            key.size() == 4 ? put(at + 8, value) : put(at + 12, static_cast<ub4>(value));
            break;
        case 0x28000000: put(at + 16, hash); break;
        case 0x29000000: put(at, value), put(at + 8, hash); break;
        default:
            if (form.hash_bits == 64)
                put(at, hash);
            else if (form.hash_bits == 32)
                put(at, static_cast<ub4>(hash));
        }
    }
};

} // namespace tavo::test
