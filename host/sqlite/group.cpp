// tavo_group(table, columns, answers [, condition]): groups by the kernels' keys and sums.
//
//   SELECT key1, value1 FROM tavo_group('flights', 'origin, month(date)', 'sum(delay), count(*)', 'distance > 500')
#include <fmt/format.h>

#include "host/error.h"
#include "host/group/group_table.h"
#include "host/sqlite/table_function.h"

namespace host::sqlite {

namespace {

constexpr std::size_t most_keys = 4, most_values = 8;

// Parts between commas, those in parentheses left whole.
std::vector<std::string> parts_of(const std::string &text) {
    std::vector<std::string> parts;
    std::string part;
    int depth = 0;
    for (const char c : text + ",") {
        depth += c == '(';
        depth -= c == ')';
        if (c != ',' || depth > 0) {
            part += c;
            continue;
        }
        if (!trimmed(part).empty())
            parts.emplace_back(trimmed(part));
        part.clear();
    }
    return parts;
}

aggregate aggregate_of(const std::string &text, const csv_file &file) {
    const std::size_t open = text.find('(');
    const bool closed = open != text.npos && text.back() == ')';
    std::string function(trimmed(std::string_view(text).substr(0, open)));
    for (char &c : function)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    const std::string of = closed ? std::string(trimmed(text.substr(open + 1, text.size() - open - 2))) : "";
    aggregate a;
    if (function == "count" && (open == text.npos || of == "*"))
        return a;
    const std::pair<const char *, asked_of_group> functions[] = {{"count", asked_of_group::values},
                                                                 {"sum", asked_of_group::sum},
                                                                 {"avg", asked_of_group::average},
                                                                 {"min", asked_of_group::smallest},
                                                                 {"max", asked_of_group::largest}};
    for (const auto &[name, what] : functions)
        if (closed && function == name) {
            a.what = what;
            a.of = parse_measure(of, file);
            if (a.of.is_expression && what != asked_of_group::sum && what != asked_of_group::average)
                throw error(fmt::format("{}: {} takes a column", text, name));
            return a;
        }
    throw error(fmt::format("'{}' is none of count(*), count, sum, avg, min and max", text));
}

// A value as the table has it, from the text that the host has for it.
answer_value value_of(const value_column &col, const std::optional<std::string> &text) {
    if (!text)
        return {};
    if (!col.all_numbers())
        return *text;
    // The spelling that was read, with SQLite's rounding: the value next to it.
    const double near = std::strtod(text->c_str(), nullptr);
    cell found = integer_cell(std::strtoll(text->c_str(), nullptr, 10));
    if (col.holds() != value_column::content::integers)
        found = col.value(std::min(col.first_not_below(real_cell(near - std::abs(near) * 1e-15)), col.end_code() - 1));
    return found.type == cell::kind::integer ? answer_value(found.integer) : answer_value(found.real);
}

answer_value value_of(const relation &r, const aggregate &a, const std::optional<std::string> &text) {
    if (!text)
        return {};
    switch (a.what) {
    case asked_of_group::count:
    case asked_of_group::values: return sqlite3_int64{std::stoll(*text)};
    case asked_of_group::smallest:
    case asked_of_group::largest: return value_of(*r.columns()[a.of.a.column], text);
    case asked_of_group::sum:
    case asked_of_group::average: break;
    }
    const bool integers = !a.of.is_expression && a.of.a.is_column &&
                          r.columns()[a.of.a.column]->holds() == value_column::content::integers;
    if (integers && a.scale.exact)
        return sqlite3_int64{std::stoll(*text)};
    return std::strtod(text->c_str(), nullptr);
}

selection selected(session &s, const relation &r, const std::string &condition, std::vector<query_step> &steps) {
    query q(s, r.rows());
    std::vector<predicate> predicates;
    if (!condition.empty()) {
        predicates.push_back(parse_predicate(condition));
        resolve(predicates[0], r.stored().file());
    }
    selection rows = q.run(plan_codes(predicates, r.stored()));
    steps = q.steps();
    return rows;
}

answer_rows groups(sqlite3 *db, connection &home, const std::vector<sqlite3_value *> &arguments) {
    const std::string name = text_of(arguments[0]);
    const auto r = find_relation(db, home, name);
    const csv_file &names = r->stored().file();
    std::vector<group_column> by;
    for (const std::string &text : parts_of(text_of(arguments[1])))
        by.push_back(parse_group_column(text, names));
    std::vector<aggregate> asked;
    for (const std::string &text : parts_of(text_of(arguments[2])))
        asked.push_back(aggregate_of(text, names));
    if (asked.empty())
        asked.emplace_back();
    if (by.size() > most_keys || asked.size() > most_values)
        throw error(fmt::format("tavo_group has room for {} columns and {} answers", most_keys, most_values));

    // An average is made here, of the sum and the number of values: the host rounds its own.
    std::vector<aggregate> computed = asked;
    std::vector<std::size_t> counts(asked.size());
    for (std::size_t i = 0; i < asked.size(); i++)
        if (asked[i].what == asked_of_group::average && !asked[i].of.is_expression) {
            computed[i].what = asked_of_group::sum;
            counts[i] = computed.size();
            computed.push_back(asked[i]);
            computed.back().what = asked_of_group::values;
        }
    const auto lock = r->reading();
    std::optional<session> own;
    session &s = r->shared_session() != nullptr ? *r->shared_session() : own.emplace(r->kernels());
    const auto record = std::make_shared<connection::scan_record>();
    record->table = name;
    const selection rows = selected(s, *r, text_of(arguments[3]), record->steps);
    const std::vector<group_row> found = group_rows(s, r->stored(), rows, by, computed, {}, record->reading);
    home.last_scan = record;

    answer_rows out;
    for (const group_row &g : found) {
        std::vector<answer_value> row(most_keys + asked.size());
        for (std::size_t k = 0; k < by.size(); k++)
            row[k] = by[k].month ? g.group[k] ? answer_value(*g.group[k]) : answer_value()
                                 : value_of(*r->columns()[by[k].column], g.group[k]);
        for (std::size_t a = 0; a < asked.size(); a++)
            row[most_keys + a] = counts[a] == 0 || !g.answers[a]
                                     ? value_of(*r, computed[a], g.answers[a])
                                     : std::strtod(g.answers[a]->c_str(), nullptr) / std::stod(*g.answers[counts[a]]);
        out.push_back(std::move(row));
    }
    return out;
}

} // namespace

void add_group(sqlite3 *db, const shared_connection &home) {
    add_table_function(
        db, home,
        {"tavo_group",
         "CREATE TABLE x(key1, key2, key3, key4, value1, value2, value3, value4, value5, value6, value7, "
         "value8, table_name HIDDEN, columns HIDDEN, answers HIDDEN, condition HIDDEN)",
         most_keys + most_values, 4, 3, groups});
}

} // namespace host::sqlite
