#include "host/sqlite/value_column.h"

#include <numeric>

#include "host/column/packing.h"

namespace host::sqlite {

namespace {

char folded(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
char other_case(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c >= 'A' && c <= 'Z' ? folded(c) : c;
}

// May numeric affinity make a number of it? All that it makes numbers of begin so; some others do too.
bool may_be_number(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r')))
        i++;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        i++;
    if (i < text.size() && text[i] == '.')
        i++;
    return i < text.size() && text[i] >= '0' && text[i] <= '9';
}

// The rest of the decision, made as roughly: a date is none, whatever has only the characters of numbers may be one.
bool has_number_characters(std::string_view text) {
    bool sign_may_stand = true, digit = false;
    for (const char c : text) {
        if (c == '+' || c == '-') {
            if (!sign_may_stand)
                return false;
            sign_may_stand = false;
        } else if (c >= '0' && c <= '9') {
            digit = true;
            sign_may_stand = false;
        } else if (c == 'e' || c == 'E') {
            sign_may_stand = true;
        } else if (c != '.' && c != ' ' && !(c >= '\t' && c <= '\r')) {
            return false;
        }
    }
    return digit;
}

} // namespace

value_column::value_column(column &col, affinity affinity, const std::vector<cell> &values, const ub4 *codes)
    : col_(col), affinity_(affinity) {
    const ub8 first = first_code(), end = end_code();
    std::size_t integers = 0, reals = 0, texts = 0, bytes = 0;
    for (ub8 code = first; code < end; code++) {
        const cell &c = values[code];
        integers += c.type == cell::kind::integer;
        reals += c.type == cell::kind::real;
        texts += c.type == cell::kind::text;
        bytes += c.bytes.size();
        if (code > first) {
            const int order = compare_cells(values[code - 1], c);
            if (order > 0)
                ordered_ = false;
            if (order == 0 && ranks_.empty()) {
                ranks_.resize(end);
                std::iota(ranks_.begin(), ranks_.end(), 0);
            }
            if (order == 0)
                ranks_[code] = ranks_[code - 1];
        }
    }
    // Texts lie in the host's dictionary too, but there they may be front-coded.
    bytes_ = block<char>();
    bytes_.reserve(bytes + 1);
    const auto kept = [&](std::string_view text) {
        const char *begin = bytes_.data() + bytes_.size();
        bytes_.append(text.data(), text.size());
        return std::string_view(begin, text.size());
    };
    const ub8 all = end - first;
    holds_ = integers == all ? content::integers
             : reals == all  ? content::reals
             : texts == all  ? content::texts
                             : content::mixed;
    all_numbers_ = all > 0 && integers + reals == all;
    if (holds_ == content::integers)
        integers_.resize(end);
    else if (holds_ == content::reals)
        reals_.resize(end);
    else if (holds_ == content::texts)
        texts_.resize(end);
    else
        cells_.resize(end);
    for (ub8 code = first; code < end; code++) {
        const cell &c = values[code];
        switch (holds_) {
        case content::integers: integers_[code] = c.integer; break;
        case content::reals: reals_[code] = c.real; break;
        case content::texts: {
            texts_[code] = kept(c.bytes);
            if (!may_be_number(c.bytes) || !has_number_characters(c.bytes))
                break;
            has_number_texts_ = true;
            const std::string text(c.bytes);
            number_texts_.emplace_back(real_cell(std::strtod(text.c_str(), nullptr)), code);
            break;
        }
        case content::mixed:
            cells_[code] = c;
            cells_[code].bytes = kept(c.bytes);
            break;
        }
    }
    std::sort(number_texts_.begin(), number_texts_.end(),
              [](const auto &a, const auto &b) { return compare_numbers(a.first, b.first) < 0; });

    starts_.resize(end + 1);
    for (ub4 row = 0; row < col.rows(); row++)
        starts_[codes[row] + 1]++;
    std::partial_sum(starts_.begin(), starts_.end(), starts_.begin());
}

cell value_column::value(ub8 code) const {
    if (code < first_code())
        return {};
    switch (holds_) {
    case content::integers: return integer_cell(integers_[code]);
    case content::reals: return real_cell(reals_[code]);
    case content::texts: return text_cell(texts_[code]);
    case content::mixed: break;
    }
    return cells_[code];
}

// What is handed out lives as long as the table, which outlives its statements.
void value_column::result(sqlite3_context *to, ub4 code) const {
    if (code < first_code())
        return sqlite3_result_null(to);
    switch (holds_) {
    case content::integers: return sqlite3_result_int64(to, integers_[code]);
    case content::reals: return sqlite3_result_double(to, reals_[code]);
    case content::texts: {
        const std::string_view text = texts_[code];
        return sqlite3_result_text(to, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }
    case content::mixed: break;
    }
    const cell &c = cells_[code];
    switch (c.type) {
    case cell::kind::null: return sqlite3_result_null(to);
    case cell::kind::integer: return sqlite3_result_int64(to, c.integer);
    case cell::kind::real: return sqlite3_result_double(to, c.real);
    case cell::kind::text:
        return sqlite3_result_text(to, c.bytes.data(), static_cast<int>(c.bytes.size()), SQLITE_STATIC);
    case cell::kind::blob:
        return sqlite3_result_blob(to, c.bytes.data(), static_cast<int>(c.bytes.size()), SQLITE_STATIC);
    }
}

ub8 value_column::first_not_below(const cell &bound) const {
    ub8 low = first_code(), high = end_code();
    while (low < high) {
        const ub8 middle = low + (high - low) / 2;
        if (compare_cells(value(middle), bound) < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

ub8 value_column::first_above(const cell &bound) const {
    ub8 low = first_code(), high = end_code();
    while (low < high) {
        const ub8 middle = low + (high - low) / 2;
        if (compare_cells(value(middle), bound) <= 0)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// Among codes whose texts agree with the prefix up to `at`: by the next letter in both cases.
void value_column::narrow(std::string_view prefix, std::size_t at, ub8 begin, ub8 end, code_ranges &found) const {
    if (begin == end)
        return;
    if (at == prefix.size()) {
        found.emplace_back(begin, end);
        return;
    }
    const auto byte_at = [&](ub8 code) {
        return texts_[code].size() <= at ? -1 : static_cast<int>(static_cast<unsigned char>(texts_[code][at]));
    };
    const auto first = [&](int byte) { // code whose byte is not below
        ub8 low = begin, high = end;
        while (low < high) {
            const ub8 middle = low + (high - low) / 2;
            if (byte_at(middle) < byte)
                low = middle + 1;
            else
                high = middle;
        }
        return low;
    };
    const int a = static_cast<unsigned char>(prefix[at]), b = static_cast<unsigned char>(other_case(prefix[at]));
    narrow(prefix, at + 1, first(std::min(a, b)), first(std::min(a, b) + 1), found);
    if (a != b)
        narrow(prefix, at + 1, first(std::max(a, b)), first(std::max(a, b) + 1), found);
}

code_ranges value_column::codes_of_prefix(std::string_view prefix) const {
    code_ranges found;
    narrow(prefix, 0, first_code(), end_code(), found);
    return found;
}

code_ranges value_column::codes_of_number_text(const cell &number) const {
    // SQLite reads decimals with a rounding of its own: a little more than the number itself is taken.
    const double wanted = number.type == cell::kind::integer ? static_cast<double>(number.integer) : number.real;
    const double slack = std::abs(wanted) * 1e-12;
    const auto below = [](const auto &entry, double bound) { return entry.first.real < bound; };
    code_ranges found;
    for (auto at = std::lower_bound(number_texts_.begin(), number_texts_.end(), wanted - slack, below);
         at != number_texts_.end() && at->first.real <= wanted + slack; ++at)
        found.emplace_back(at->second, at->second + 1);
    std::sort(found.begin(), found.end());
    return found;
}

ub8 value_column::rows_of(const code_ranges &ranges) const {
    ub8 rows = 0;
    for (const auto &[begin, end] : ranges)
        rows += starts_[end] - starts_[begin];
    return rows;
}

ub4 value_column::code_of_row(ub4 row) const {
    const auto *packed = static_cast<const ub1 *>(col_.vec()->data);
    const unsigned width = col_.width();
    const ub8 bit = static_cast<ub8>(row) * width;
    ub8 bytes;
    std::memcpy(&bytes, packed + bit / 8, sizeof bytes); // readable behind the last code too
    return static_cast<ub4>(__builtin_bswap64(bytes) << bit % 8 >> (64 - width));
}

const ub4 *value_column::rows_by_code() const {
    std::call_once(sorted_, [&] {
        block<ub4> rows(std::max<std::size_t>(col_.rows(), 1));
        std::vector<ub4> at(starts_.begin(), starts_.end());
        for (ub4 row = 0; row < col_.rows(); row++)
            rows[at[code_of_row(row)]++] = row;
        rows_by_code_ = std::move(rows);
    });
    return rows_by_code_.data();
}

} // namespace host::sqlite
