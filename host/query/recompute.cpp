#include "host/query/recompute.h"

#include <algorithm>
#include <fmt/format.h>

namespace host {

namespace {

enum class truth { no, unknown, yes };

truth negate(truth t) { return t == truth::yes ? truth::no : t == truth::no ? truth::yes : t; }
truth truth_of(bool b) { return b ? truth::yes : truth::no; }

int sign(int n) { return n < 0 ? -1 : n > 0 ? 1 : 0; }

// Digit by digit, from the place of the longer number down, places that a number does not have being zero.
int compare_numbers(std::string_view a, std::string_view b) {
    struct digits {
        bool negative;
        std::string_view text;
        std::ptrdiff_t point; // digits before the point
        explicit digits(std::string_view t) {
            negative = t[0] == '-';
            text = t.substr(t[0] == '-' || t[0] == '+');
            point = static_cast<std::ptrdiff_t>(std::min(text.find('.'), text.size()));
        }
        // The digit that stands for 10 to the power of `place`.
        char at(std::ptrdiff_t place) const {
            const std::ptrdiff_t i = place >= 0 ? point - 1 - place : point - place;
            return i >= 0 && i < static_cast<std::ptrdiff_t>(text.size()) ? text[static_cast<std::size_t>(i)] : '0';
        }
        std::ptrdiff_t lowest() const { return point - static_cast<std::ptrdiff_t>(text.size()); }
    } x(a), y(b);
    const bool zero_x = x.text.find_first_of("123456789") == std::string_view::npos;
    const bool zero_y = y.text.find_first_of("123456789") == std::string_view::npos;
    const int sign_x = zero_x ? 0 : x.negative ? -1 : 1, sign_y = zero_y ? 0 : y.negative ? -1 : 1;
    if (sign_x != sign_y || sign_x == 0)
        return sign(sign_x - sign_y);
    for (std::ptrdiff_t place = std::max(x.point, y.point); place >= std::min(x.lowest(), y.lowest()); place--)
        if (x.at(place) != y.at(place))
            return x.at(place) < y.at(place) ? -sign_x : sign_x;
    return 0;
}

// Every place of a moment, written out, stands at the same position; what a text leaves out is zero.
int compare_moments(std::string_view a, std::string_view b) {
    const std::string_view midnight = "0000-00-00 00:00:00.";
    auto at = [&](std::string_view text, std::size_t i) {
        const char c = i < text.size() ? text[i] : i < midnight.size() ? midnight[i] : '0';
        return c == 'T' ? ' ' : c;
    };
    for (std::size_t i = 0; i < std::max({a.size(), b.size(), midnight.size()}); i++)
        if (at(a, i) != at(b, i))
            return at(a, i) < at(b, i) ? -1 : 1;
    return 0;
}

class evaluator {
public:
    evaluator(const field_reader &field, const std::map<std::string, value_type> &types)
        : field_(field), types_(types) {}

    truth of(const predicate &p) const {
        switch (p.kind) {
        case predicate_kind::not_: return negate(of(p.operands[0]));
        case predicate_kind::and_: {
            truth least = truth::yes;
            for (const predicate &operand : p.operands)
                least = std::min(least, of(operand));
            return least;
        }
        case predicate_kind::or_: {
            truth most = truth::no;
            for (const predicate &operand : p.operands)
                most = std::max(most, of(operand));
            return most;
        }
        default: break;
        }
        const std::optional<std::string> field = field_(p.column);
        if (p.kind == predicate_kind::is_null)
            return truth_of(!field);
        if (!field)
            return truth::unknown;
        auto against = [&](std::size_t i) { return compare_values(types_.at(p.column), *field, p.values[i].text); };
        if (p.kind == predicate_kind::range)
            return truth_of((p.low_open ? against(0) > 0 : against(0) >= 0) &&
                            (p.high_open ? against(1) < 0 : against(1) <= 0));
        if (p.kind == predicate_kind::in) {
            for (std::size_t i = 0; i < p.values.size(); i++)
                if (against(i) == 0)
                    return truth::yes;
            return truth::no;
        }
        const int order = against(0);
        switch (p.op) {
        case comparison::eq: return truth_of(order == 0);
        case comparison::ne: return truth_of(order != 0);
        case comparison::lt: return truth_of(order < 0);
        case comparison::le: return truth_of(order <= 0);
        case comparison::gt: return truth_of(order > 0);
        case comparison::ge: break;
        }
        return truth_of(order >= 0);
    }

private:
    const field_reader &field_;
    const std::map<std::string, value_type> &types_;
};

} // namespace

int compare_values(value_type type, std::string_view a, std::string_view b) {
    switch (type) {
    case value_type::integer:
    case value_type::decimal: return compare_numbers(a, b);
    case value_type::date:
    case value_type::date_time: return compare_moments(a, b);
    case value_type::text: break;
    }
    return sign(a.compare(b));
}

std::optional<std::string> field_value(const csv_field &field, const std::vector<std::string> &null_texts) {
    std::string value = field.value();
    if (value.empty() || std::find(null_texts.begin(), null_texts.end(), value) != null_texts.end())
        return std::nullopt;
    return value;
}

bool is_true(const predicate &p, const field_reader &field, const std::map<std::string, value_type> &types) {
    return evaluator(field, types).of(p) == truth::yes;
}

std::vector<ub4> recompute(const csv_file &file, const std::vector<predicate> &all,
                           const std::map<std::string, value_type> &types, const std::vector<std::string> &null_texts) {
    std::vector<ub4> rows;
    ub4 row = 0;
    file.records([&](const std::vector<csv_field> &fields, const csv_reader &) {
        const field_reader field = [&](const std::string &column) {
            return field_value(fields[file.column(column)], null_texts);
        };
        if (std::all_of(all.begin(), all.end(), [&](const predicate &p) { return is_true(p, field, types); }))
            rows.push_back(row);
        row++;
    });
    return rows;
}

std::string compare_printed(const csv_file &file, const std::vector<ub4> &rows, const std::vector<std::size_t> &columns,
                            const std::vector<std::string> &null_texts, std::string_view printed) {
    csv_reader answer(printed, "the answer");
    std::vector<csv_field> line;
    answer.next(line); // the header
    std::string difference;
    std::size_t next = 0;
    ub4 row = 0;
    file.records([&](const std::vector<csv_field> &fields, const csv_reader &reader) {
        if (row++ != (next < rows.size() ? rows[next] : 0xffffffff) || !difference.empty())
            return;
        next++;
        if (!answer.next(line) || line.size() != columns.size()) {
            difference = fmt::format("line {} of the file is not printed whole", reader.line());
            return;
        }
        for (std::size_t c = 0; c < columns.size() && difference.empty(); c++) {
            std::string expected = fields[columns[c]].value();
            if (std::find(null_texts.begin(), null_texts.end(), expected) != null_texts.end())
                expected.clear();
            if (line[c].value() != expected)
                difference = fmt::format("line {}, column {}: '{}' is printed where the text has '{}'", reader.line(),
                                         file.columns()[columns[c]], line[c].value(), expected);
        }
    });
    if (difference.empty() && answer.next(line))
        difference = "more rows are printed than there are";
    return difference;
}

} // namespace host
