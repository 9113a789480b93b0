#include "host/column/number_column.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <fmt/format.h>

#include "host/column/code_search.h"
#include "host/column/packing.h"
#include "host/error.h"

namespace host {

namespace {

unsigned bytes_for(ub8 largest) { return std::max(1u, (static_cast<unsigned>(std::bit_width(largest)) + 7) / 8); }

// The narrowest kernels whose numbers have so many bytes.
unsigned kernel_width_for(unsigned bytes) { return bytes == 1 ? 8 : bytes == 2 ? 16 : bytes <= 4 ? 32 : 64; }

unsigned width_code_of(unsigned kernel_width) {
    return kernel_width == 64 ? TAVO_WIDTH_CODE_64 : width_code(kernel_width);
}

} // namespace

unsigned number_column::fixed_bytes(const number_form &form) {
    const unsigned bytes = bytes_for(form.largest());
    const std::size_t zones = form.zones().size();
    if (zones == 0)
        return bytes;
    // A stream of 1, 2, 4 bits a row goes with numbers of 2; 3 or 4; 5 to 8 bytes.
    return std::max(bytes, zones <= 2 ? 2u : zones <= 4 ? 3u : 5u);
}

number_column::number_column(std::string name, number_form numbers, column_form form, const block<stored_number> &rows,
                             std::vector<ub8> known)
    : name_(std::move(name)), numbers_(std::move(numbers)), form_(form), known_(std::move(known)) {
    vec_.enc = &enc_;
    vec_.size = static_cast<ub4>(rows.size());
    vec_.sel = known_.empty() ? nullptr : known_.data();
    if (form == column_form::fixed)
        hold_fixed(rows);
    else
        hold_dynp(rows);
    vec_.data = data_.data();
    vec_.lengths = reinterpret_cast<ub2 *>(stream_.data());
    enc_.kernel_row = kernel_row();
    enc_.width_bits = width_;
    enc_.width_code = static_cast<ub1>(width_code_of(kernel_width_));
    enc_.max_len = static_cast<ub2>(width_ / 8);
    if (form == column_form::fixed)
        enc_.flags = TAVO_FIXED | TAVO_OVERREAD_OK | (numbers_.zones().size() == 1 ? TAVO_TZ : 0);
}

void number_column::hold_fixed(const block<stored_number> &numbers) {
    const unsigned bytes = fixed_bytes(numbers_);
    width_ = 8 * bytes;
    kernel_width_ = kernel_width_for(bytes);
    encoded_bytes_ = numbers.size() * bytes;
    data_.resize(encoded_bytes_ + readable_behind);
    std::memset(data_.data() + encoded_bytes_, 0, readable_behind);
    ub1 *out = data_.data();
    for (const stored_number &n : numbers)
        for (unsigned i = bytes; i-- > 0;)
            *out++ = static_cast<ub1>(n.code >> 8 * i);
    const ub8 zone_bytes = has_zones() ? (numbers.size() * stream_bits() + 7) / 8 : numbers_.is_zoned() ? 1 : 0;
    encoded_bytes_ += zone_bytes;
    stream_.resize(zone_bytes + readable_behind);
    std::memset(stream_.data(), 0, stream_.size());
    for (ub4 row = 0; has_zones() && row < numbers.size(); row++)
        put_stream_field(row, numbers[row].zone);
}

void number_column::hold_dynp(const block<stored_number> &numbers) {
    if (numbers_.is_zoned())
        throw error(fmt::format("column {} cannot be of form dynp: times with a zone are of form fixed", name_));
    const unsigned bytes = bytes_for(numbers_.largest());
    width_ = kernel_width_ = std::max(16u, kernel_width_for(bytes));
    const unsigned spare = kernel_width_ - 8 * bytes; // bits below the number
    const ub8 stream_bytes = (numbers.size() * stream_bits() + 7) / 8;
    stream_.resize(stream_bytes + readable_behind);
    std::memset(stream_.data(), 0, stream_.size());
    for (ub4 row = 0; row < numbers.size(); row++) {
        const ub8 number = numbers[row].code << spare;
        const unsigned zeros =
            number == 0 ? kernel_width_ / 8 - 1 : static_cast<unsigned>(std::countr_zero(number)) / 8;
        const unsigned length = kernel_width_ / 8 - zeros;
        put_stream_field(row, length - 1);
        for (unsigned i = 0; i < length; i++)
            data_.push_back(static_cast<ub1>(number >> (kernel_width_ - 8 - 8 * i)));
    }
    encoded_bytes_ = data_.size() + stream_bytes;
    for (std::size_t i = 0; i < readable_behind; i++)
        data_.push_back(0);
}

// The first row of a byte stands in its top bits.
unsigned number_column::stream_field(ub4 row) const {
    const ub8 bit = static_cast<ub8>(row) * stream_bits();
    return stream_[bit / 8] >> (8 - stream_bits() - bit % 8) & ((1u << stream_bits()) - 1);
}
void number_column::put_stream_field(ub4 row, unsigned field) {
    const ub8 bit = static_cast<ub8>(row) * stream_bits();
    stream_[bit / 8] |= static_cast<ub1>(field << (8 - stream_bits() - bit % 8));
}

ub1 number_column::kernel_row() const {
    return TAVO_KERNEL_ROW(variant(), width_code_of(kernel_width_),
                           form_ == column_form::fixed ? TAVO_CLASS_FIXED : TAVO_CLASS_DYNP);
}

ub8 number_column::constant(ub8 code) const {
    const unsigned bytes = form_ == column_form::fixed ? width_ / 8 : bytes_for(numbers_.largest());
    return __builtin_bswap64(code << (64 - 8 * bytes));
}

std::string number_column::key_of(ub8 code) const {
    std::string key;
    make_sort_key(type(), numbers_.text({code, 0}), key);
    return key;
}

ub8 number_column::first_not_below(const std::string &key) const {
    return first_where(0, end_code(), [&](ub8 code) { return key_of(code) >= key; });
}
ub8 number_column::first_above(const std::string &key) const {
    return first_where(0, end_code(), [&](ub8 code) { return key_of(code) > key; });
}

ub1 number_column::zone(ub4 row) const { return static_cast<ub1>(has_zones() ? stream_field(row) : 0); }

ub8 number_column::code_of_bytes(const ub1 *number, unsigned bytes) const {
    ub8 code = 0;
    for (unsigned i = 0; i < bytes; i++)
        code = code << 8 | number[i];
    return code;
}

ub8 number_column::fixed_code(ub4 row) const {
    return code_of_bytes(data_.data() + static_cast<ub8>(row) * (width_ / 8), width_ / 8);
}

ub8 number_column::walk::code(ub4 row) {
    for (; row_ < row; row_++)
        at_ += col_.stream_field(row_) + 1;
    const unsigned length = col_.stream_field(row) + 1, all = col_.kernel_width_ / 8;
    const ub8 number = col_.code_of_bytes(col_.data_.data() + at_, length) << 8 * (all - length);
    return number >> (col_.kernel_width_ - 8 * bytes_for(col_.numbers_.largest()));
}

} // namespace host
