#include "host/command/group_query.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <map>
#include <numeric>
#include <regex>
#include <sstream>

#include "host/command/table_options.h"
#include "host/error.h"
#include "host/query/predicate.h"
#include "host/query/recompute.h"
#include "host/rows/row_table.h"

namespace host {

namespace {

std::vector<std::string> names_of(const group_request &request) {
    std::vector<std::string> names;
    for (const group_column &g : request.by)
        names.push_back(g.name);
    for (const aggregate &a : request.aggregates)
        names.push_back(name_of(a));
    return names;
}

value_type type_of(const group_request &request, std::size_t i, const table &t) {
    if (i < request.by.size())
        return request.by[i].month ? value_type::text : t.type(request.by[i].column);
    const aggregate &a = request.aggregates[i - request.by.size()];
    switch (a.what) {
    case asked_of_group::count:
    case asked_of_group::values: return value_type::integer;
    case asked_of_group::sum:
    case asked_of_group::average: return value_type::decimal;
    case asked_of_group::smallest:
    case asked_of_group::largest: break;
    }
    return t.stored(a.of.a.column)->type();
}

const std::optional<std::string> &field(const group_row &row, std::size_t i) {
    return i < row.group.size() ? row.group[i] : row.answers[i - row.group.size()];
}

// sum(delay) as a name of the answer: in double quotes, where it does not stand in quotes already.
std::string with_quoted_names(const std::string &text, const std::vector<std::string> &names) {
    std::string out;
    char quote = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (quote == 0 && (text[i] == '\'' || text[i] == '"'))
            quote = text[i];
        else if (quote == text[i])
            quote = 0;
        std::size_t length = 0;
        for (const std::string &name : names)
            if (quote == 0 && name.find('(') != name.npos && name.size() > length &&
                text.compare(i, name.size(), name) == 0)
                length = name.size();
        out += length != 0 ? '"' + text.substr(i, length) + '"' : text.substr(i, 1);
        i += std::max<std::size_t>(length, 1);
    }
    return out;
}

// The names of the answer as the header of a file, by which predicates find their columns.
csv_file header_of(const std::vector<std::string> &names) {
    std::string line;
    append_csv_line(line, names.size(), [&](std::size_t i) { return std::string_view(names[i]); });
    csv_options options;
    options.delimiter = ',';
    return csv_file("the groups", line, options);
}

void keep_having(std::vector<group_row> &rows, const std::string &having, const csv_file &header,
                 const std::map<std::string, value_type> &types) {
    predicate p = parse_predicate(with_quoted_names(having, header.columns()));
    resolve(p, header);
    std::erase_if(rows, [&](const group_row &row) {
        return !is_true(
            p, [&](const std::string &name) { return field(row, header.column(name)); }, types);
    });
}

// `count desc, origin`; nulls come last either way.
void sort_by(std::vector<ub4> &order, const std::vector<group_row> &rows, const std::string &asked,
             const csv_file &header, const std::map<std::string, value_type> &types) {
    struct key {
        std::size_t column;
        value_type type;
        bool descending;
    };
    std::vector<key> keys;
    std::istringstream parts(asked);
    for (std::string part; std::getline(parts, part, ',');) {
        std::string name(trimmed(part));
        bool descending = false;
        for (const char *direction : {" desc", " DESC", " asc", " ASC"})
            if (name.ends_with(direction)) {
                descending = direction[1] == 'd' || direction[1] == 'D';
                name = std::string(trimmed(name.substr(0, name.size() - std::string(direction).size())));
                break;
            }
        const std::size_t column = header.column(name);
        keys.push_back({column, types.at(header.columns()[column]), descending});
    }
    std::stable_sort(order.begin(), order.end(), [&](ub4 a, ub4 b) {
        for (const key &k : keys) {
            const auto &x = field(rows[a], k.column), &y = field(rows[b], k.column);
            if (!x || !y) {
                if (x.has_value() != y.has_value())
                    return x.has_value();
                continue;
            }
            if (const int c = compare_values(k.type, *x, *y); c != 0)
                return k.descending ? c > 0 : c < 0;
        }
        return false;
    });
}

// What a condition or an order names and nobody has asked for: count, sum(delay).
void add_unasked(group_request &request, const std::string &text, const csv_file &file) {
    static const std::map<std::string, asked_of_group> functions = {{"sum", asked_of_group::sum},
                                                                    {"avg", asked_of_group::average},
                                                                    {"min", asked_of_group::smallest},
                                                                    {"max", asked_of_group::largest}};
    static const std::regex pattern(R"(\bcount\b|\b(sum|avg|min|max)\(([^()]*)\))");
    for (std::sregex_iterator found(text.begin(), text.end(), pattern), end; found != end; ++found) {
        const auto has = [&](const std::string &name) {
            return std::any_of(request.aggregates.begin(), request.aggregates.end(),
                               [&](const aggregate &a) { return name_of(a) == name; });
        };
        if (has(found->str()))
            continue;
        aggregate a;
        a.shown = false;
        if ((*found)[1].matched) {
            a.what = functions.at((*found)[1]);
            a.of = parse_measure((*found)[2], file);
        }
        if (!has(name_of(a)))
            request.aggregates.push_back(std::move(a));
    }
}

std::string shown(const std::optional<std::string> &v) { return v ? "'" + *v + "'" : "nothing"; }

// What differs first between the groups of the kernels and those of the text, in whatever order.
std::string difference_of(const std::vector<group_row> &got, const std::vector<group_row> &plain,
                          const std::vector<std::string> &names) {
    std::map<std::vector<std::optional<std::string>>, const group_row *> by_group;
    for (const group_row &row : plain)
        by_group[row.group] = &row;
    for (const group_row &row : got) {
        std::string group;
        for (const auto &value : row.group)
            group += (group.empty() ? "" : ", ") + shown(value);
        const auto found = by_group.find(row.group);
        if (found == by_group.end())
            return fmt::format("the text has no group {}", group);
        for (std::size_t a = 0; a < row.answers.size(); a++)
            if (row.answers[a] != found->second->answers[a])
                return fmt::format("{} of group {}: {} by the kernels, {} from the text", names[row.group.size() + a],
                                   group, shown(row.answers[a]), shown(found->second->answers[a]));
    }
    return got.size() == plain.size() ? "" : fmt::format("{} groups of {}", got.size(), plain.size());
}

} // namespace

void add_group_options(CLI::App &app, group_options &options) {
    app.add_option("--group-by", options.by,
                   "Print one row for each group: columns, or month(date): origin,month(date)");
    app.add_option("--sum", options.sums,
                   "Print the sum of a column, or of an expression: \"distance * 1.609344 as km\"")
        ->allow_extra_args(false);
    app.add_option("--avg", options.averages, "Print the average of a column or an expression")
        ->allow_extra_args(false);
    app.add_option("--having", options.having, "Print the groups alone that this predicate is true for: count > 100");
    app.add_option("--threads", options.threads,
                   "So many threads give the values of group columns of form text (--encode COLUMN=text) their codes");
    app.add_option("--memory", options.memory,
                   "Bytes that the codes of such columns may take, as 64K, 512M or 2G; otherwise no limit");
    app.add_option("--order-by", options.order,
                   "Rows by a column, largest first: delay desc; groups by several: count desc, origin");
}

group_request parse_groups(const group_options &options, const std::vector<std::string> &smallest,
                           const std::vector<std::string> &largest, bool count, const csv_file &file) {
    group_request request;
    std::istringstream columns(options.by);
    for (std::string name; std::getline(columns, name, ',');)
        request.by.push_back(parse_group_column(std::string(trimmed(name)), file));
    const auto ask = [&](asked_of_group what, const std::vector<std::string> &texts) {
        for (const std::string &text : texts) {
            measure of = parse_measure(text, file);
            if (of.is_expression && (what == asked_of_group::smallest || what == asked_of_group::largest))
                throw error(
                    fmt::format("--{} takes a column: {}", what == asked_of_group::smallest ? "min" : "max", text));
            request.aggregates.push_back({what, std::move(of), {}, true});
        }
    };
    if (count || (options.sums.empty() && options.averages.empty() && smallest.empty() && largest.empty()))
        request.aggregates.push_back({asked_of_group::count, {}, {}, true});
    ask(asked_of_group::sum, options.sums);
    ask(asked_of_group::average, options.averages);
    ask(asked_of_group::smallest, smallest);
    ask(asked_of_group::largest, largest);
    add_unasked(request, options.having + "," + options.order, file);
    return request;
}

std::vector<std::size_t> columns_of(const group_request &request) {
    std::vector<std::size_t> columns;
    for (const group_column &g : request.by)
        columns.push_back(g.column);
    for (const aggregate &a : request.aggregates)
        for (const std::size_t column : columns_of(a.of))
            columns.push_back(column);
    return columns;
}

std::vector<std::size_t> columns_grouped_by(const group_request &request) {
    std::vector<std::size_t> columns, others;
    for (const group_column &g : request.by)
        (g.month ? others : columns).push_back(g.column);
    for (const aggregate &a : request.aggregates)
        for (const std::size_t column : columns_of(a.of))
            others.push_back(column);
    std::erase_if(columns,
                  [&](std::size_t column) { return std::find(others.begin(), others.end(), column) != others.end(); });
    return columns;
}

dense_options dense_options_of(const group_options &options) {
    dense_options dense;
    if (options.memory)
        dense.memory = bytes_of(*options.memory, "--memory");
    if (options.threads) {
        const std::string &text = *options.threads;
        const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), dense.threads);
        if (failure != std::errc() || end != text.data() + text.size() || dense.threads == 0 ||
            dense.threads > dense_dictionary::most_threads)
            throw error(fmt::format("--threads {}: a number from 1 to {}", text, dense_dictionary::most_threads));
    }
    return dense;
}

std::string group_lines(session &s, const table &t, const selection &selected, const group_options &options,
                        group_request &request, ub4 limit, const std::vector<ub4> *expected,
                        const std::vector<std::string> &null_texts, step_list &steps, std::string &difference) {
    std::vector<group_row> rows =
        group_rows(s, t, selected, request.by, request.aggregates, dense_options_of(options), steps);
    const std::vector<std::string> names = names_of(request);
    if (expected != nullptr)
        difference = difference_of(rows, plain_groups(t, *expected, request.by, request.aggregates, null_texts), names);

    const csv_file header = header_of(names);
    std::map<std::string, value_type> types;
    for (std::size_t i = 0; i < names.size(); i++)
        types[header.columns()[i]] = type_of(request, i, t);
    if (!options.having.empty())
        keep_having(rows, options.having, header, types);
    std::vector<ub4> order(rows.size());
    std::iota(order.begin(), order.end(), 0u);
    if (!options.order.empty())
        sort_by(order, rows, options.order, header, types);
    order.resize(std::min<std::size_t>(order.size(), limit));

    std::size_t shown = names.size(); // those that are not stand last
    while (!request.aggregates.empty() && shown > request.by.size() &&
           !request.aggregates[shown - request.by.size() - 1].shown)
        shown--;
    std::string lines;
    append_csv_line(lines, shown, [&](std::size_t i) { return std::string_view(names[i]); });
    std::vector<ub4> kept = order; // in the order of the groups
    std::sort(kept.begin(), kept.end());
    for (ub4 &row : order)
        row = static_cast<ub4>(std::lower_bound(kept.begin(), kept.end(), row) - kept.begin());
    const auto text = [&](std::size_t column, ub4 row) {
        const auto &value = field(rows[kept[row]], column);
        return value ? std::string_view(*value) : std::string_view();
    };
    row_table assembled(s, shown, static_cast<ub4>(kept.size()), text);
    constexpr std::size_t batch = 4096;
    for (std::size_t first = 0; first < order.size(); first += batch) {
        const auto n = static_cast<ub4>(std::min(batch, order.size() - first));
        assembled.gather(order.data() + first, n);
        for (ub4 row = 0; row < n; row++) {
            append_csv_line(lines, shown, [&](std::size_t column) { return assembled.value(column, row); });
            for (std::size_t c = 0; expected != nullptr && difference.empty() && c < shown; c++)
                if (assembled.value(c, row) != text(c, order[first + row]))
                    difference = fmt::format("{} of line {}: '{}' in the row put together, '{}' before", names[c],
                                             first + row + 2, assembled.value(c, row), text(c, order[first + row]));
        }
    }
    steps.add_all(assembled.steps());
    return lines;
}

} // namespace host
