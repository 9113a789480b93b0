#include "host/query/recompute.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fmt/format.h>

#include "host/column/table.h"

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
        std::string text; // without the point
        long point;       // digits before it, after the exponent has moved it
        explicit digits(std::string_view t) {
            t = trimmed(t);
            negative = t[0] == '-';
            t = t.substr(t[0] == '-' || t[0] == '+');
            const std::size_t e = std::min(t.find_first_of("eE"), t.size());
            point = static_cast<long>(std::min(t.find('.'), e));
            if (e < t.size())
                point += std::strtol(std::string(t.substr(e + 1)).c_str(), nullptr, 10);
            for (const char c : t.substr(0, e))
                if (c != '.')
                    text += c;
        }
        // The digit that stands for 10 to the power of `place`.
        char at(long place) const {
            const long i = point - 1 - place;
            return i >= 0 && i < static_cast<long>(text.size()) ? text[static_cast<std::size_t>(i)] : '0';
        }
        long highest() const { return point - 1 - static_cast<long>(text.find_first_not_of('0')); }
        long lowest() const { return point - static_cast<long>(text.size()); }
    } x(a), y(b);
    const bool zero_x = x.text.find_first_not_of('0') == std::string::npos;
    const bool zero_y = y.text.find_first_not_of('0') == std::string::npos;
    const int sign_x = zero_x ? 0 : x.negative ? -1 : 1, sign_y = zero_y ? 0 : y.negative ? -1 : 1;
    if (sign_x != sign_y || sign_x == 0)
        return sign(sign_x - sign_y);
    if (x.highest() != y.highest())
        return x.highest() < y.highest() ? -sign_x : sign_x;
    for (long place = x.highest(); place >= std::min(x.lowest(), y.lowest()); place--)
        if (x.at(place) != y.at(place))
            return x.at(place) < y.at(place) ? -sign_x : sign_x;
    return 0;
}

// Seconds by the C library's calendar, then the digits of their fractions.
int compare_moments(std::string_view a, std::string_view b) {
    struct instant {
        time_t seconds;
        bool leap; // it is a second that the calendar does not count
        std::string fraction;
        explicit instant(std::string_view t) {
            const std::string text(trimmed(t));
            auto number = [&](std::size_t at, std::size_t length) {
                return at < text.size() ? std::atoi(text.substr(at, length).c_str()) : 0;
            };
            std::tm when{};
            when.tm_year = number(0, 4) - 1900;
            when.tm_mon = number(5, 2) - 1;
            when.tm_mday = number(8, 2);
            when.tm_hour = number(11, 2);
            when.tm_min = number(14, 2);
            std::size_t zone = 16;
            if (text.size() > 16 && text[16] == ':') {
                when.tm_sec = number(17, 2);
                zone = text.find_first_not_of(".0123456789", 17);
                fraction =
                    text.size() > 19 && text[19] == '.' ? text.substr(20, zone == text.npos ? zone : zone - 20) : "";
            }
            leap = when.tm_sec == 60;
            when.tm_sec -= leap;
            seconds = timegm(&when);
            zone = zone < text.size() ? text.find_first_of("+-", zone) : text.npos;
            if (zone != text.npos) {
                const bool colon = zone + 3 < text.size() && text[zone + 3] == ':';
                const int ahead = number(zone + 1, 2) * 3600 + number(zone + 3 + colon, 2) * 60;
                seconds -= text[zone] == '+' ? ahead : -ahead;
            }
            while (fraction.ends_with('0'))
                fraction.pop_back();
        }
    } x(a), y(b);
    if (x.seconds != y.seconds)
        return x.seconds < y.seconds ? -1 : 1;
    return x.leap != y.leap ? (x.leap ? 1 : -1) : sign(x.fraction.compare(y.fraction));
}

truth ordered(comparison op, int order) {
    switch (op) {
    case comparison::eq: return truth_of(order == 0);
    case comparison::ne: return truth_of(order != 0);
    case comparison::lt: return truth_of(order < 0);
    case comparison::le: return truth_of(order <= 0);
    case comparison::gt: return truth_of(order > 0);
    case comparison::ge: break;
    }
    return truth_of(order >= 0);
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
        const std::optional<std::string> field = field_(p.column.text);
        if (p.kind == predicate_kind::is_null)
            return truth_of(!field);
        if (!field)
            return truth::unknown;
        if (p.kind == predicate_kind::columns) {
            const std::optional<std::string> other = field_(p.other.text);
            if (!other)
                return truth::unknown;
            return ordered(
                p.op, compare_values(common_type(types_.at(p.column.text), types_.at(p.other.text)), *field, *other));
        }
        auto against = [&](std::size_t i) {
            return compare_values(types_.at(p.column.text), *field, p.values[i].text);
        };
        if (p.kind == predicate_kind::range)
            return truth_of((p.low_open ? against(0) > 0 : against(0) >= 0) &&
                            (p.high_open ? against(1) < 0 : against(1) <= 0));
        if (p.kind == predicate_kind::in) {
            for (std::size_t i = 0; i < p.values.size(); i++)
                if (against(i) == 0)
                    return truth::yes;
            return truth::no;
        }
        return ordered(p.op, against(0));
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
    if (is_null(value, null_texts))
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

printed_check::printed_check(const csv_file &file, std::vector<ub4> rows, std::vector<std::size_t> columns,
                             const std::vector<std::string> &null_texts)
    : file_(file), rows_(std::move(rows)), columns_(std::move(columns)), null_texts_(null_texts),
      reader_(file.reader()) {}

std::string printed_check::compare(std::string_view lines) {
    csv_reader answer(lines, "the answer");
    while (answer.next(line_)) {
        if (next_ == rows_.size())
            return "more rows are printed than there are";
        do
            file_.next(reader_, fields_);
        while (row_++ != rows_[next_]);
        next_++;
        if (line_.size() != columns_.size())
            return fmt::format("line {} of the file is not printed whole", reader_.line());
        for (std::size_t c = 0; c < columns_.size(); c++) {
            std::string expected = fields_[columns_[c]].value();
            if (is_null(expected, null_texts_))
                expected.clear();
            if (line_[c].value() != expected)
                return fmt::format("line {}, column {}: '{}' is printed where the text has '{}'", reader_.line(),
                                   file_.columns()[columns_[c]], line_[c].value(), expected);
        }
    }
    return "";
}

std::string printed_check::finish() const {
    return next_ == rows_.size() ? "" : fmt::format("{} of {} rows are printed", next_, rows_.size());
}

std::string compare_extreme(const csv_file &file, const std::vector<ub4> &rows, std::size_t column, value_type type,
                            const std::vector<std::string> &null_texts, bool smallest,
                            const std::optional<std::string> &value) {
    std::string difference;
    bool found = false, any = false;
    std::size_t next = 0;
    ub4 row = 0;
    file.records([&](const std::vector<csv_field> &fields, const csv_reader &reader) {
        if (row++ != (next < rows.size() ? rows[next] : 0xffffffff) || !difference.empty())
            return;
        next++;
        const std::string field = fields[column].value();
        if (is_null(field, null_texts))
            return;
        any = true;
        found |= value && field == *value;
        const int order = value ? compare_values(type, field, *value) : 0;
        if (smallest ? order < 0 : order > 0)
            difference = fmt::format("line {} has {} {}, which is {} {}", reader.line(), file.columns()[column], field,
                                     smallest ? "below" : "above", *value);
    });
    if (difference.empty() && any != value.has_value())
        difference =
            fmt::format("column {} has {} value in the selected rows", file.columns()[column], any ? "a" : "no");
    if (difference.empty() && any && !found)
        difference = fmt::format("column {} has no {} in the selected rows", file.columns()[column], *value);
    return difference;
}

} // namespace host
