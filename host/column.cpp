#include "host/column.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/callbacks.h"
#include "host/error.h"
#include "host/packing.h"

namespace host {

const char *name_of(column_form form) { return form == column_form::plain ? "plain" : "rle"; }

column::column(std::string name, dictionary dict, const std::vector<ub4> &codes)
    : name_(std::move(name)), dict_(std::move(dict)),
      width_(width_for(dict_.end_code() == 0 ? 0 : dict_.end_code() - 1)),
      plain_bytes_(packed_bytes(codes.size(), width_)), encoded_bytes_(plain_bytes_) {
    if (plain_bytes_ > 0xffffffff)
        throw error(fmt::format("column {} does not fit: {} bytes of codes, where 4 GiB is the limit", name_, plain_bytes_));
    vec_.enc = &enc_;
    vec_.size = static_cast<ub4>(codes.size());
    vec_.decomp_size = static_cast<ub4>(plain_bytes_);
    enc_.kernel_row = kernel_row(dict_.has_null() ? TAVO_VARIANT_SECOND : TAVO_VARIANT_PLAIN);
    enc_.flags = TAVO_DICT | TAVO_PACKED_KEYS;
    enc_.width_bits = width_;
    enc_.width_code = static_cast<ub1>(width_code(width_));
    enc_.symbol_count = static_cast<ub4>(dict_.end_code());
    make_runs(codes);
    if (form_ == column_form::plain)
        data_ = pack(codes, width_);
    vec_.data = data_.data();
}

ub1 column::kernel_row(tavo_variant variant) const {
    return TAVO_KERNEL_ROW(variant, width_code(width_), TAVO_CLASS_DICT);
}

// Takes the run-length form if it pays: runs cost their codes and a table entry of 8 or 16 bits, whichever needs fewer
// bytes in all (longer runs are cut), and a scan has to widen its result, so half the plain bytes is the limit.
void column::make_runs(const std::vector<ub4> &codes) {
    struct run {
        ub4 code, rows;
    };
    std::vector<run> whole;
    for (ub4 code : codes) {
        if (whole.empty() || whole.back().code != code)
            whole.push_back({code, 0});
        whole.back().rows++;
    }
    ub8 fewest_bytes = plain_bytes_ / 2;
    unsigned entry_bits = 0;
    for (unsigned bits : {8u, 16u}) {
        const ub4 longest = (1u << bits) - 1;
        ub8 runs = 0;
        for (const run &r : whole)
            runs += (static_cast<ub8>(r.rows) + longest - 1) / longest;
        const ub8 bytes = packed_bytes(runs, width_) + runs * bits / 8;
        if (bytes < fewest_bytes) {
            fewest_bytes = bytes;
            entry_bits = bits;
        }
    }
    if (entry_bits == 0)
        return;

    form_ = column_form::rle;
    encoded_bytes_ = fewest_bytes;
    std::vector<ub4> run_codes;
    const ub4 longest = (1u << entry_bits) - 1;
    for (run r : whole)
        while (r.rows > 0) {
            const ub4 rows = std::min(r.rows, longest);
            run_codes.push_back(r.code);
            if (entry_bits == 16)
                run_table_.push_back(static_cast<ub1>(rows >> 8)); // big-endian
            run_table_.push_back(static_cast<ub1>(rows));
            r.rows -= rows;
        }
    run_table_.resize(run_table_.size() + readable_behind);
    run_bits_.resize((run_codes.size() + 63) / 64);
    data_ = pack(run_codes, width_);
    enc_.flags |= TAVO_RLE;
    enc_.run_table = run_table_.data();
    enc_.run_entry_bits = static_cast<ub1>(entry_bits);
    enc_.run_count = static_cast<ub4>(run_codes.size());
    enc_.run_bits = run_bits_.data();
    enc_.rle_expand = widen_runs;
    vec_.decomp_size = static_cast<ub4>(packed_bytes(run_codes.size(), width_));
}

table::table(const csv_file &file, const std::vector<std::size_t> &wanted, const read_options &options)
    : file_(file), columns_(file.columns().size()) {
    constexpr std::size_t most_rows = 0xfffffffe; // row numbers are 32 bits wide
    std::vector<dictionary_builder> builders(wanted.size());
    std::vector<std::vector<ub4>> numbers(wanted.size());
    std::string unescaped;
    file_.records([&](const std::vector<csv_field> &fields, const csv_reader &reader) {
        if (row_begin_.size() == most_rows)
            throw error(fmt::format("{}: line {}: more than {} rows", file_.path(), reader.line(), most_rows));
        row_begin_.push_back(reader.begin());
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
        if (options.progress && row_begin_.size() % 65536 == 0)
            options.progress(reader.end(), file_.text().size());
    });
    if (row_begin_.empty())
        throw error(file_.path() + ": the file has a header and no rows");
    row_begin_.push_back(file_.text().size());

    for (std::size_t i = 0; i < wanted.size(); i++) {
        dictionary_builder::result built = builders[i].finish();
        std::vector<ub4> &codes = numbers[i];
        for (ub4 &code : codes)
            code = code == dictionary_builder::null_number ? 0 : built.code_of[code];
        columns_[wanted[i]] =
            std::make_unique<column>(file_.columns()[wanted[i]], std::move(built.dict), codes);
    }
}

} // namespace host
