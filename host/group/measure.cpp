#include "host/group/measure.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <optional>
#include <sstream>

#include "host/column/names.h"
#include "host/column/value_type.h"
#include "host/error.h"

namespace host {

namespace {

__extension__ using wide = __int128;

operand parse_operand(const std::string &word, const csv_file &file) {
    operand o;
    if (!find_name(word, file.columns()) &&
        (type_of(word) == value_type::integer || type_of(word) == value_type::decimal)) {
        o.value = real_number(word);
        return o;
    }
    o.is_column = true;
    o.column = file.column(word);
    return o;
}

// Digits of a number and the power of ten that the last of them counts.
struct digits {
    bool negative = false;
    std::string text;
    long power = 0;
};
digits digits_of(const std::string &value) {
    const std::string_view t = trimmed(value);
    digits d;
    std::size_t i = 0;
    if (t[0] == '-' || t[0] == '+')
        d.negative = t[i++] == '-';
    bool behind_point = false;
    for (; i < t.size() && t[i] != 'e' && t[i] != 'E'; i++) {
        if (t[i] == '.') {
            behind_point = true;
            continue;
        }
        d.text += t[i];
        d.power -= behind_point;
    }
    if (i < t.size())
        d.power += std::strtol(std::string(t.substr(i + 1)).c_str(), nullptr, 10);
    d.text.erase(0, std::min(d.text.find_first_not_of('0'), d.text.size()));
    return d;
}

// The number times 10 to the power of `scale`; nothing if that has more than 18 digits or a fraction.
std::optional<sb8> scaled(const digits &d, long scale) {
    if (d.text.empty())
        return 0;
    const long zeros = d.power + scale;
    if (zeros < 0 || static_cast<long>(d.text.size()) + zeros > 18)
        return std::nullopt;
    const sb8 magnitude = std::stoll(d.text + std::string(static_cast<std::size_t>(zeros), '0'));
    return d.negative ? -magnitude : magnitude;
}

std::string text_of_scaled(wide v, unsigned digits) {
    const bool negative = v < 0;
    std::string text;
    for (wide rest = negative ? -v : v; rest != 0 || text.size() <= digits; rest /= 10)
        text += static_cast<char>('0' + static_cast<int>(rest % 10));
    std::reverse(text.begin(), text.end());
    if (digits != 0)
        text.insert(text.size() - digits, ".");
    return negative ? "-" + text : text;
}

} // namespace

measure parse_measure(const std::string &text, const csv_file &file) {
    measure m;
    m.name = text;
    if (find_name(text, file.columns())) {
        m.a = parse_operand(text, file);
        m.name = file.columns()[m.a.column];
        return m;
    }
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; in >> word;)
        words.push_back(word);
    if (words.size() >= 3 && (words[words.size() - 2] == "as" || words[words.size() - 2] == "AS")) {
        m.name = words.back();
        words.resize(words.size() - 2);
    }
    if (words.size() == 1) {
        m.a = parse_operand(words[0], file);
    } else if (words.size() == 3 && words[1].size() == 1 && std::string("+-*").find(words[1][0]) != std::string::npos) {
        m.is_expression = true;
        m.a = parse_operand(words[0], file);
        m.b = parse_operand(words[2], file);
        m.op = words[1] == "+" ? TAVO_OP_ADD : words[1] == "-" ? TAVO_OP_SUB : TAVO_OP_MUL;
    }
    if (!m.a.is_column && !m.b.is_column)
        throw error(fmt::format("'{}' is no column and no expression of columns: distance * 1.609344 as km", text));
    return m;
}

std::vector<std::size_t> columns_of(const measure &m) {
    std::vector<std::size_t> columns;
    for (const operand &o : {m.a, m.b})
        if (o.is_column)
            columns.push_back(o.column);
    return columns;
}

number_scale scale_of(const std::vector<std::string> &values, ub4 rows) {
    number_scale scale;
    long most = 0;
    for (const std::string &value : values)
        most = std::max(most, -digits_of(value).power);
    if (most > 18)
        return {false, 0};
    scale.digits = static_cast<unsigned>(most);
    for (const std::string &value : values) {
        const std::optional<sb8> v = scaled(digits_of(value), most);
        if (!v || (rows != 0 && std::llabs(*v) > INT64_MAX / rows))
            return {false, 0};
    }
    return scale;
}

sb8 scaled_number(const std::string &value, unsigned digits) {
    return scaled(digits_of(value), static_cast<long>(digits)).value();
}
double real_number(const std::string &value) { return std::strtod(std::string(trimmed(value)).c_str(), nullptr); }

std::string text_of_sum(sb8 sum, unsigned digits) { return text_of_scaled(sum, digits); }
std::string text_of_average(sb8 sum, unsigned digits, ub8 count) {
    const wide times = static_cast<wide>(sum) * 10000, n = static_cast<wide>(count);
    const wide half = times < 0 ? -n / 2 : n / 2;
    return text_of_scaled((times + half) / n, digits + 4);
}
std::string text_of_real(double v) { return fmt::format("{}", v); }

} // namespace host
