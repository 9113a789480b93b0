#include "host/column/column.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/column/packing.h"
#include "host/error.h"
#include "host/link/callbacks.h"

namespace host {

const char *name_of(column_form form) {
    return form == column_form::plain ? "plain" : form == column_form::spak ? "spak" : "rle";
}

column::column(std::string name, dictionary dict, const std::vector<ub4> &codes, std::optional<column_form> form)
    : name_(std::move(name)), dict_(std::move(dict)),
      width_(width_for(dict_.end_code() == 0 ? 0 : dict_.end_code() - 1)),
      plain_bytes_(packed_bytes(codes.size(), width_)), symbols_(name_, dict_.symbols()) {
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
    symbols_.describe(enc_);

    if (!form || form == column_form::rle) {
        run_lengths runs = find_runs(codes, width_);
        if (form || runs.bytes(width_) * 2 <= plain_bytes_) {
            hold_runs(std::move(runs));
            return;
        }
    }
    std::vector<ub1> packed = pack(codes, width_);
    if (!form || form == column_form::spak) {
        const std::span<const ub1> plain(packed.data(), plain_bytes_);
        const spak_dictionary symbols = spak_train(plain);
        if (form || symbols.expected_bytes * 4 <= plain_bytes_ * 3) {
            hold_spak(spak_encode(plain, symbols));
            return;
        }
    }
    hold_plain(std::move(packed));
}

ub1 column::kernel_row(tavo_variant variant) const {
    return TAVO_KERNEL_ROW(variant, width_code(width_), TAVO_CLASS_DICT);
}

void column::hold_plain(std::vector<ub1> packed) {
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
    encoded_bytes_ = runs.bytes(width_);
    data_ = pack(runs.codes, width_);
    run_table_ = std::move(runs.table);
    run_table_.resize(run_table_.size() + readable_behind);
    run_bits_.resize((runs.codes.size() + 63) / 64);
    enc_.flags |= TAVO_RLE;
    enc_.run_table = run_table_.data();
    enc_.run_entry_bits = static_cast<ub1>(runs.entry_bits);
    enc_.run_count = static_cast<ub4>(runs.codes.size());
    enc_.run_bits = run_bits_.data();
    enc_.rle_expand = widen_runs;
    vec_.data = data_.data();
}

table::table(const csv_file &file, const std::vector<std::size_t> &wanted, const read_options &options)
    : file_(file), columns_(file.columns().size()) {
    constexpr ub4 most_rows = 0xfffffffe; // row numbers are 32 bits wide
    std::vector<dictionary_builder> builders(wanted.size());
    std::vector<std::vector<ub4>> numbers(wanted.size());
    std::string unescaped;
    file_.records([&](const std::vector<csv_field> &fields, const csv_reader &reader) {
        if (rows_ == most_rows)
            throw error(fmt::format("{}: line {}: more than {} rows", file_.path(), reader.line(), most_rows));
        rows_++;
        for (std::size_t i = 0; i < wanted.size(); i++) {
            const csv_field &field = fields[wanted[i]];
            if (field.doubled)
                unescaped = field.value();
            const std::string_view text = field.doubled ? std::string_view(unescaped) : field.text;
            const auto &null_texts = options.null_texts;
            ub4 number = dictionary_builder::null_number;
            if (text.empty() || std::find(null_texts.begin(), null_texts.end(), text) != null_texts.end())
                builders[i].saw_null();
            else
                number = field.doubled ? builders[i].number_of_copy(unescaped) : builders[i].number_of(text);
            numbers[i].push_back(number);
        }
        if (options.progress && rows_ % 65536 == 0)
            options.progress(reader.end(), file_.text().size());
    });
    if (rows_ == 0 && !options.may_be_empty)
        throw error(file_.path() + ": the file has a header and no rows");

    for (std::size_t i = 0; i < wanted.size(); i++) {
        dictionary_builder::result built = builders[i].finish();
        std::vector<ub4> &codes = numbers[i];
        for (ub4 &code : codes)
            code = code == dictionary_builder::null_number ? 0 : built.code_of[code];
        const std::string &name = file_.columns()[wanted[i]];
        std::optional<column_form> form;
        for (const char *which : {"", name.c_str()})
            if (const auto found = options.form_of.find(which); found != options.form_of.end())
                form = found->second;
        columns_[wanted[i]] = std::make_unique<column>(name, std::move(built.dict), codes, form);
        codes = {};
    }
}

} // namespace host
