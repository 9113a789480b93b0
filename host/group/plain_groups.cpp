// Groups once more, from the text of the file: no codes, no kernels.
#include <array>
#include <fmt/format.h>
#include <map>

#include "host/group/group_table.h"
#include "host/query/recompute.h"

namespace host {

namespace {

struct collected {
    ub8 rows = 0, values = 0;
    sb8 scaled = 0;
    std::vector<double> real; // in the order of the rows
    std::optional<std::string> best;
};

double computed(tavo_operation op, double a, double b) {
    return op == TAVO_OP_ADD ? a + b : op == TAVO_OP_SUB ? a - b : a * b;
}

// As the _sum kernels add: four lanes of whole blocks of four rows, folded, then the rows behind them.
double sum_of_lanes(const std::vector<double> &v) {
    std::array<double, 4> lanes{};
    const std::size_t whole = v.size() / 4 * 4;
    for (std::size_t i = 0; i < whole; i++)
        lanes[i % 4] += v[i];
    double sum = (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]);
    for (std::size_t i = whole; i < v.size(); i++)
        sum += v[i];
    return sum;
}

std::optional<double> operand_value(const operand &o, const std::vector<csv_field> &fields,
                                    const std::vector<std::string> &null_texts) {
    if (!o.is_column)
        return o.value;
    const auto field = field_value(fields[o.column], null_texts);
    return field ? std::optional(real_number(*field)) : std::nullopt;
}

void collect(collected &c, const aggregate &a, const std::vector<csv_field> &fields, const table &t,
             const std::vector<std::string> &null_texts) {
    c.rows++;
    if (a.what == asked_of_group::count)
        return;
    if (a.of.is_expression) {
        const auto x = operand_value(a.of.a, fields, null_texts), y = operand_value(a.of.b, fields, null_texts);
        if (x && y) {
            c.values++;
            c.real.push_back(computed(a.of.op, *x, *y));
        }
        return;
    }
    const auto field = field_value(fields[a.of.a.column], null_texts);
    if (!field)
        return;
    c.values++;
    if (a.what == asked_of_group::smallest || a.what == asked_of_group::largest) {
        int order = c.best ? compare_values(t.stored(a.of.a.column)->type(), *field, *c.best) : 0;
        if (c.best && order == 0)
            order = field->compare(*c.best);
        if (!c.best || (a.what == asked_of_group::smallest ? order < 0 : order > 0))
            c.best = *field;
    } else if (a.scale.exact) {
        c.scaled += scaled_number(*field, a.scale.digits);
    } else {
        c.real.push_back(real_number(*field));
    }
}

std::optional<std::string> answer_of(const collected &c, const aggregate &a, bool by_sum_kernel) {
    if (a.what == asked_of_group::count)
        return std::to_string(c.rows);
    if (a.what == asked_of_group::smallest || a.what == asked_of_group::largest)
        return c.best;
    if (c.values == 0)
        return std::nullopt;
    const bool average = a.what == asked_of_group::average;
    if (a.scale.exact)
        return average ? text_of_average(c.scaled, a.scale.digits, c.values) : text_of_sum(c.scaled, a.scale.digits);
    double sum = 0;
    if (by_sum_kernel)
        sum += sum_of_lanes(c.real);
    else
        for (const double v : c.real)
            sum += v;
    return text_of_real(average ? sum / static_cast<double>(c.values) : sum);
}

} // namespace

std::vector<group_row> plain_groups(const table &t, const std::vector<ub4> &rows, const std::vector<group_column> &by,
                                    const std::vector<aggregate> &asked, const std::vector<std::string> &null_texts) {
    std::map<std::vector<std::optional<std::string>>, std::vector<collected>> groups;
    if (by.empty())
        groups[{}].resize(asked.size());
    ub4 row = 0;
    std::size_t next = 0;
    t.file().records([&](const std::vector<csv_field> &fields, const csv_reader &) {
        if (next == rows.size() || rows[next] != row++)
            return;
        next++;
        std::vector<std::optional<std::string>> group;
        for (const group_column &g : by) {
            group.push_back(field_value(fields[g.column], null_texts));
            if (g.month && group.back())
                group.back() = month_of(std::string(trimmed(*group.back())));
        }
        auto &answers = groups[group];
        answers.resize(asked.size());
        for (std::size_t a = 0; a < asked.size(); a++)
            collect(answers[a], asked[a], fields, t, null_texts);
    });
    std::vector<group_row> result;
    for (const auto &[group, answers] : groups) {
        group_row out{group, {}};
        for (std::size_t a = 0; a < asked.size(); a++) {
            bool nulls = false;
            for (const std::size_t number : columns_of(asked[a].of))
                nulls = nulls || t.stored(number)->has_null();
            out.answers.push_back(answer_of(answers[a], asked[a], by.empty() && asked[a].of.is_expression && !nulls));
        }
        result.push_back(std::move(out));
    }
    return result;
}

std::string compare_computed(const table &t, const std::vector<ub4> &rows, const std::vector<measure> &measures,
                             const std::vector<std::vector<std::optional<double>>> &values,
                             const std::vector<std::string> &null_texts) {
    std::string difference;
    ub4 row = 0;
    std::size_t next = 0;
    if (measures.empty())
        return difference;
    t.file().records([&](const std::vector<csv_field> &fields, const csv_reader &reader) {
        if (next == rows.size() || rows[next] != row++)
            return;
        for (std::size_t m = 0; m < measures.size() && difference.empty(); m++) {
            const auto a = operand_value(measures[m].a, fields, null_texts),
                       b = operand_value(measures[m].b, fields, null_texts);
            std::optional<double> expected;
            if (a && b)
                expected = measures[m].is_expression ? computed(measures[m].op, *a, *b) : *a;
            if (values[m][next] != expected)
                difference = fmt::format("line {}, {}: {} where the text gives {}", reader.line(), measures[m].name,
                                         values[m][next].value_or(0), expected.value_or(0));
        }
        next++;
    });
    return difference;
}

} // namespace host
