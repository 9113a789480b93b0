#include "host/command/ordered_rows.h"

#include <algorithm>

#include "host/group/measure.h"
#include "host/query/recompute.h"
#include "host/rows/row_table.h"

namespace host {

ordered_answer rows_in_order(session &s, const ordered_request &asked, const computed_columns &computed,
                             std::vector<query_step> &steps) {
    constexpr std::size_t batch = 4096;
    const table &t = asked.from;
    stored_column &by = *t.stored(asked.by);
    step_list order_steps;
    const std::vector<ub8> of_rows = order_keys(s, by, asked.rows, order_steps);
    const step_clock clock;
    const std::vector<ub4> numbers = row_numbers(s.kernels().ctx(), asked.rows, t.rows(), t.rows());
    std::vector<ub8> keys(numbers.size());
    std::transform(numbers.begin(), numbers.end(), keys.begin(), [&](ub4 row) { return of_rows[row]; });
    const std::vector<std::size_t> places = ordered_places(keys, asked.descending, asked.limit);
    order_steps.add("", by.name(), "rows in order", static_cast<ub4>(numbers.size()), static_cast<ub4>(places.size()),
                    clock.seconds());

    std::vector<ub4> ordered;
    selection kept{std::vector<ub8>(asked.rows.bits.size()), static_cast<ub4>(places.size())};
    for (const std::size_t place : places) {
        ordered.push_back(numbers[place]);
        kept.bits[numbers[place] / 64] |= ub8{1} << numbers[place] % 64;
    }
    std::vector<stored_column *> columns;
    for (const std::size_t number : asked.printed)
        columns.push_back(t.stored(number));
    row_table values(s, columns, kept);
    ordered_answer answer;
    std::vector<std::string> texts(computed.size());
    for (std::size_t first = 0; first < ordered.size(); first += batch) {
        const auto n = static_cast<ub4>(std::min(batch, ordered.size() - first));
        values.gather(ordered.data() + first, n);
        for (ub4 i = 0; i < n; i++) {
            for (std::size_t c = 0; c < texts.size(); c++) {
                const std::optional<double> &value = computed[c][places[first + i]];
                texts[c] = value ? text_of_real(*value) : "";
            }
            append_csv_line(answer.lines, columns.size() + texts.size(), [&](std::size_t c) {
                return c < columns.size() ? values.value(c, i) : std::string_view(texts[c - columns.size()]);
            });
            if (!computed.empty())
                append_csv_line(answer.read_lines, columns.size(), [&](std::size_t c) { return values.value(c, i); });
        }
    }
    for (const std::vector<query_step> &more : {order_steps.all(), values.steps()})
        steps.insert(steps.end(), more.begin(), more.end());
    return answer;
}

std::string plain_rows_in_order(const ordered_request &asked, const std::vector<ub4> &rows,
                                const std::vector<std::string> &null_texts) {
    std::vector<valued_line> lines;
    ub4 row = 0;
    asked.from.file().records([&](const std::vector<csv_field> &fields, const csv_reader &) {
        if (lines.size() < rows.size() && rows[lines.size()] == row++) {
            auto &[value, line] = lines.emplace_back(field_value(fields[asked.by], null_texts), "");
            append_csv_line(line, asked.printed.size(), [&](std::size_t i) {
                return field_value(fields[asked.printed[i]], null_texts).value_or("");
            });
        }
    });
    return ordered_lines(std::move(lines), asked.from.stored(asked.by)->type(), asked.descending, asked.limit);
}

} // namespace host
