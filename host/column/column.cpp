#include "host/column/column.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/column/packing.h"
#include "host/error.h"
#include "host/link/callbacks.h"

namespace host {

const char *name_of(column_form form) {
    switch (form) {
    case column_form::plain: return "plain";
    case column_form::spak: return "spak";
    case column_form::rle: return "rle";
    case column_form::fixed: return "fixed";
    case column_form::dynp: return "dynp";
    case column_form::texts: break;
    }
    return "text";
}

column::column(std::string name, dictionary dict, block<ub4> codes, std::optional<column_form> form)
    : name_(std::move(name)), dict_(std::move(dict)),
      width_(width_for(dict_.end_code() == 0 ? 0 : dict_.end_code() - 1)),
      plain_bytes_(packed_bytes(codes.size(), width_)) {
    if (plain_bytes_ > 0xffffffff - readable_behind)
        throw error(fmt::format("column {} does not fit: its codes take {} bytes, where 4 GiB is the limit", name_,
                                plain_bytes_));
    vec_.enc = &enc_;
    vec_.size = static_cast<ub4>(codes.size());
    vec_.decomp_slot = &decompressed_;
    enc_.flags = TAVO_PACKED_KEYS;
    enc_.kernel_row = kernel_row(dict_.has_null() ? TAVO_VARIANT_SECOND : TAVO_VARIANT_PLAIN);
    enc_.width_bits = width_;
    enc_.width_code = static_cast<ub1>(width_code(width_));
    dict_.symbols().describe(enc_);

    if (form == column_form::rle || (!form && run_bytes(codes, width_) * 2 <= plain_bytes_ && vec_.size > 0)) {
        hold_runs(find_runs(codes, width_));
        return;
    }
    block<ub1> packed = pack_in_place(std::move(codes), width_);
    const std::span<const ub1> plain(packed.data(), plain_bytes_);
    if (form == column_form::spak || (!form && spak_may_pay(plain))) {
        const spak_dictionary symbols = spak_train(plain);
        // Training goes by samples, so the stream itself has the last word.
        if (form || symbols.expected_bytes * 4 <= plain_bytes_ * 3) {
            spak_stream stream = spak_encode(plain, symbols);
            if (form || stream.size * 4 <= plain_bytes_ * 3) {
                hold_spak(std::move(stream));
                return;
            }
        }
    }
    hold_plain(std::move(packed));
}

ub1 column::kernel_row(tavo_variant variant) const {
    return TAVO_KERNEL_ROW(variant, width_code(width_), TAVO_CLASS_DICT);
}

void column::hold_plain(block<ub1> packed) {
    form_ = column_form::plain;
    encoded_bytes_ = plain_bytes_;
    data_ = std::move(packed);
    vec_.data = data_.data();
}

void column::hold_spak(spak_stream stream) {
    form_ = column_form::spak;
    encoded_bytes_ = stream.size;
    data_ = std::move(stream.bytes);
    enc_.flags |= TAVO_SPAK;
    vec_.data = data_.data();
    vec_.decomp_size = static_cast<ub4>(plain_bytes_);
}

void column::hold_runs(run_lengths runs) {
    form_ = column_form::rle;
    encoded_bytes_ = runs.bytes;
    data_ = pack(runs.codes, width_);
    run_table_ = std::move(runs.table);
    run_bits_.resize((runs.codes.size() + 63) / 64);
    enc_.flags |= TAVO_RLE;
    enc_.run_table = run_table_.data();
    enc_.run_entry_bits = static_cast<ub1>(runs.entry_bits);
    enc_.run_count = static_cast<ub4>(runs.codes.size());
    enc_.run_bits = run_bits_.data();
    enc_.rle_expand = widen_runs;
    vec_.data = data_.data();
}

} // namespace host
