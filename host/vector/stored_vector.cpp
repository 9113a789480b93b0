#include "host/vector/stored_vector.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

#include "host/error.h"

namespace host {

namespace {

// A few bytes may state any number of dimensions.
constexpr ub4 most_read_dims = 1 << 24;

std::size_t rounded_up(std::size_t n, std::size_t unit) { return (n + unit - 1) / unit * unit; }

void append_big_endian(std::vector<ub1> &to, ub8 value, unsigned bytes) {
    for (unsigned i = bytes; i-- > 0;)
        to.push_back(static_cast<ub1>(value >> 8 * i));
}

ub8 big_endian(const ub1 *at, unsigned bytes) {
    ub8 value = 0;
    for (unsigned i = 0; i < bytes; i++)
        value = value << 8 | at[i];
    return value;
}

ub8 checked_bits(const vector_form &form, double value, std::size_t dimension) {
    if (const auto bits = element_bits(form.type, value))
        return *bits;
    throw error(
        fmt::format("element {}, {}, is no value of {}, which {}", dimension + 1, value, kind_of(form.type).name,
                    form.type == element_type::bits   ? "are 0 or 1"
                    : form.type == element_type::int8 ? "goes from -128 to 127"
                                                      : fmt::format("ends at {:.6g}", kind_of(form.type).largest)));
}

// A form's properties, found once for a loop over elements.
struct element_layout {
    explicit element_layout(const vector_form &f)
        : form(f), comparable(f.is_comparable()), bytes(kind_of(f.type).width / 8) {}
    vector_form form;
    bool comparable;
    unsigned bytes; // 0 for bits
};

void put_element(ub1 *to, const element_layout &layout, double value, std::size_t dimension) {
    ub8 bits = checked_bits(layout.form, value, dimension);
    if (layout.comparable)
        bits = __builtin_bswap64(comparable_bits(layout.form.type, bits)) >> (64 - 8 * layout.bytes);
    switch (layout.bytes) { // the processor stores the least significant byte first
    case 1: *to = static_cast<ub1>(bits); break;
    case 2: std::memcpy(to, &bits, 2); break;
    case 4: std::memcpy(to, &bits, 4); break;
    default: std::memcpy(to, &bits, 8); break;
    }
}

double element_at(const element_layout &layout, const ub1 *at) {
    ub8 bits = 0;
    switch (layout.bytes) {
    case 1: bits = *at; break;
    case 2: std::memcpy(&bits, at, 2); break;
    case 4: std::memcpy(&bits, at, 4); break;
    default: std::memcpy(&bits, at, 8); break;
    }
    if (layout.comparable)
        bits = native_bits(layout.form.type, __builtin_bswap64(bits) >> (64 - 8 * layout.bytes));
    return element_value(layout.form.type, bits);
}

bool pads_values(const vector_form &form) { return kind_of(form.type).has_comparable && !form.is_comparable(); }

void append_sparse(std::vector<ub1> &to, const vector_form &form, std::span<const double> values) {
    const auto used = static_cast<std::size_t>(
        std::count_if(values.begin(), values.end(), [](double v) { return v != 0; })); // a NaN is not zero
    if (used > 0xffff)
        throw error(fmt::format("a sparse vector has {} elements that are not zero; there is room for 65535", used));
    append_big_endian(to, used, 2);
    for (std::size_t i = 0; i < values.size(); i++)
        if (values[i] != 0)
            append_big_endian(to, i, 4);
    if (pads_values(form))
        to.resize(rounded_up(to.size(), 8));
    const element_layout layout(form);
    std::size_t at = to.size();
    to.resize(at + layout.bytes * used);
    for (std::size_t i = 0; i < values.size(); i++)
        if (values[i] != 0) {
            if (form.type == element_type::bits)
                checked_bits(form, values[i], i);
            else
                put_element(to.data() + at, layout, values[i], i);
            at += layout.bytes;
        }
}

[[noreturn]] void damaged(const std::string &what) { throw error("a stored vector is damaged: " + what); }

void expect_room(const ub1 *at, const ub1 *end, ub8 bytes) {
    if (at > end || static_cast<ub8>(end - at) < bytes)
        damaged(fmt::format("it ends {} bytes early", at > end ? bytes : bytes - static_cast<ub8>(end - at)));
}

void read_sparse(const vector_form &form, const ub1 *at, const ub1 *end, std::vector<double> &values) {
    expect_room(at, end, 2);
    const auto count = static_cast<std::size_t>(big_endian(at, 2));
    expect_room(at, end, 2 + 4 * count);
    const ub1 *numbers = at + 2, *element = numbers + 4 * count;
    if (pads_values(form))
        element += -reinterpret_cast<std::uintptr_t>(element) & 7;
    const element_layout layout(form);
    expect_room(element, end, ub8{layout.bytes} * count);
    for (std::size_t i = 0; i < count; i++, element += layout.bytes) {
        const ub8 dimension = big_endian(numbers + 4 * i, 4);
        if (dimension >= values.size())
            damaged(fmt::format("dimension {} of {}", dimension, values.size()));
        if (i > 0 && dimension <= big_endian(numbers + 4 * (i - 1), 4))
            damaged("its dimension numbers do not ascend");
        values[dimension] = form.type == element_type::bits ? 1 : element_at(layout, element);
    }
}

} // namespace

std::string vector_form::kernel_word() const {
    return std::string(sparse ? "S" : "") + (is_comparable() ? "C" : "") + kind_of(type).kernel_word;
}

void append_elements(std::vector<ub1> &to, const vector_form &form, std::span<const double> values) {
    const std::size_t at = to.size();
    if (form.sparse) {
        append_sparse(to, form, values);
    } else if (form.type == element_type::bits) {
        to.resize(at + rounded_up(values.size(), 8) / 8); // spare bits of the last byte are zero: kernels count them
        for (std::size_t i = 0; i < values.size(); i++)
            to[at + i / 8] |= static_cast<ub1>(checked_bits(form, values[i], i) << (7 - i % 8));
    } else {
        const element_layout layout(form);
        to.resize(at + layout.bytes * values.size());
        for (std::size_t i = 0; i < values.size(); i++)
            put_element(to.data() + at + layout.bytes * i, layout, values[i], i);
    }
}

void append_image(std::vector<ub1> &to, const vector_form &form, std::span<const double> values) {
    const bool as_native = !form.is_comparable();
    to.push_back(LVECTOR_MAGIC);
    to.push_back(0); // version
    to.push_back(0); // reserved
    to.push_back(static_cast<ub1>(LVECTOR_FLAG_MARK | (as_native ? LVECTOR_FLAG_NATIVE : 0) |
                                  (form.sparse ? LVECTOR_FLAG_SPARSE : 0)));
    to.push_back(kind_of(form.type).stored_type);
    append_big_endian(to, values.size(), 4);
    to.resize(to.size() + 8); // the auxiliary field: a host's own
    if (pads_values(form) && !form.sparse)
        to.resize(to.size() + LVECTOR_ALIGNED_DATA - LVECTOR_HEAD_SIZE);
    append_elements(to, form, values);
}

void read_elements(const vector_form &form, ub4 dims, const ub1 *at, const ub1 *end, std::vector<double> &values) {
    if (form.sparse) {
        if (dims > most_read_dims)
            throw error(fmt::format("a stored vector has {} dimensions, more than the {} that are read one by one",
                                    dims, most_read_dims));
        values.assign(dims, 0);
        read_sparse(form, at, end, values);
        return;
    }
    expect_room(at, end, (ub8{dims} * kind_of(form.type).width + 7) / 8);
    values.resize(dims);
    if (form.type == element_type::bits) {
        for (std::size_t i = 0; i < dims; i++)
            values[i] = at[i / 8] >> (7 - i % 8) & 1;
    } else {
        const element_layout layout(form);
        for (std::size_t i = 0; i < dims; i++)
            values[i] = element_at(layout, at + layout.bytes * i);
    }
}

vector_form read_image(const ub1 *image, const ub1 *end, std::vector<double> &values) {
    expect_room(image, end, LVECTOR_HEAD_SIZE);
    if (image[0] != LVECTOR_MAGIC)
        damaged(fmt::format("it begins with {} and not with {}", image[0], LVECTOR_MAGIC));
    if (image[LVECTOR_AT_VERSION] > LVECTOR_LAST_VERSION)
        damaged(
            fmt::format("its version is {}, where {} is the last", image[LVECTOR_AT_VERSION], LVECTOR_LAST_VERSION));
    const ub1 flags = image[LVECTOR_AT_FLAGS];
    if ((flags & (LVECTOR_FLAG_MARK | LVECTOR_FLAG_MARK2)) == 0)
        damaged("neither of its format marks is set");
    const element_kind *kind = kind_of_stored(image[LVECTOR_AT_TYPE]);
    if (kind == nullptr)
        damaged(fmt::format("there is no element type {}", image[LVECTOR_AT_TYPE]));
    const vector_form form{kind->type, (flags & LVECTOR_FLAG_NATIVE) == 0, (flags & LVECTOR_FLAG_SPARSE) != 0};
    const auto dims = static_cast<ub4>(big_endian(image + LVECTOR_AT_DIMS, 4));
    read_elements(form, dims, image + (pads_values(form) && !form.sparse ? LVECTOR_ALIGNED_DATA : LVECTOR_HEAD_SIZE),
                  end, values);
    return form;
}

} // namespace host
