// tavo_group(table, columns, answers [, condition]): groups by the kernels' keys and sums.
//
//   SELECT key1, value1 FROM tavo_group('flights', 'origin, month(date)', 'sum(delay), count(*)', 'distance > 500')
#include <fmt/format.h>
#include <map>

#include "host/error.h"
#include "host/group/group_table.h"
#include "host/join/code_reader.h"
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

answer_value value_of(const cell &c) {
    switch (c.type) {
    case cell::kind::null: return {};
    case cell::kind::integer: return c.integer;
    case cell::kind::real: return c.real;
    case cell::kind::text: return std::string(c.bytes);
    case cell::kind::blob: break;
    }
    return std::vector<char>(c.bytes.begin(), c.bytes.end());
}

__extension__ typedef __int128 wide;

// What one answer has come to in one group.
struct total {
    bool known = false; // else null
    wide integer = 0;
    double real = 0;
    ub4 code = 0;
};

struct group {
    std::vector<answer_value> key;
    std::vector<total> totals;
};

bool of_integers(const relation &r, const aggregate &a) {
    return !a.of.is_expression && r.columns()[a.of.a.column]->holds() == value_column::content::integers;
}

// The sums of integers too large for the host's own, row by row. By the codes of the groups that were found.
std::map<std::vector<ub4>, wide> exact_sums(session &s, const relation &r, const selection &rows,
                                            const std::vector<group_column> &by, const std::vector<group_row> &found,
                                            const aggregate &a, step_list &steps) {
    std::vector<column *> columns;
    std::vector<std::vector<ub4>> month_of_code(by.size()); // empty where groups are of values
    for (std::size_t k = 0; k < by.size(); k++) {
        column &col = r.columns()[by[k].column]->stored();
        columns.push_back(&col);
        if (!by[k].month)
            continue;
        std::map<std::string, ub4> months;
        for (const group_row &g : found)
            if (g.group[k])
                months[*g.group[k]] = g.group_codes[k];
        month_of_code[k].resize(col.end_code());
        for (ub8 code = col.first_code(); code < col.end_code(); code++)
            if (const auto m = months.find(month_of(std::string(trimmed(col.dict().symbols()[code]))));
                m != months.end())
                month_of_code[k][code] = m->second;
    }
    const value_column &summed = *r.columns()[a.of.a.column];
    columns.push_back(&summed.stored());
    constexpr ub4 batch_rows = 16384;
    code_reader reader(s, columns, r.rows(), rows, batch_rows, steps);
    std::map<std::vector<ub4>, wide> sums;
    std::vector<ub4> group(by.size());
    while (const ub4 n = reader.next())
        for (ub4 i = 0; i < n; i++) {
            for (std::size_t k = 0; k < by.size(); k++) {
                const ub4 code = reader.codes(k)[i];
                group[k] = month_of_code[k].empty() ? code : month_of_code[k][code];
            }
            sums[group] += summed.value(reader.codes(by.size())[i]).integer; // nulls are 0
        }
    return sums;
}

void add(total &t, const group_row &g, std::size_t i, const aggregate &a, bool integers) {
    if (!g.answers[i])
        return;
    const std::string &text = *g.answers[i];
    switch (a.what) {
    case asked_of_group::count:
    case asked_of_group::values: t.integer += std::stoll(text); break;
    case asked_of_group::smallest: t.code = t.known ? std::min(t.code, g.answer_codes[i]) : g.answer_codes[i]; break;
    case asked_of_group::largest: t.code = t.known ? std::max(t.code, g.answer_codes[i]) : g.answer_codes[i]; break;
    case asked_of_group::average:
        if (t.known)
            throw error(name_of(a) +
                        ": no average of an expression where a group's numbers are written in several ways");
        [[fallthrough]];
    case asked_of_group::sum:
        if (integers && a.scale.exact)
            t.integer += std::stoll(text);
        else
            t.real += std::strtod(text.c_str(), nullptr);
        break;
    }
    t.known = true;
}

answer_value value_of(const relation &r, const aggregate &a, bool integers, const total &t) {
    if (!t.known)
        return {};
    switch (a.what) {
    case asked_of_group::count:
    case asked_of_group::values: return static_cast<sqlite3_int64>(t.integer);
    case asked_of_group::smallest:
    case asked_of_group::largest: return value_of(r.columns()[a.of.a.column]->value(t.code));
    case asked_of_group::average: return t.real;
    case asked_of_group::sum: break;
    }
    if (!integers)
        return t.real;
    if (t.integer != static_cast<sqlite3_int64>(t.integer))
        throw error("integer overflow");
    return static_cast<sqlite3_int64>(t.integer);
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
    std::vector<bool> integers(computed.size());
    std::vector<std::map<std::vector<ub4>, wide>> exact(computed.size());
    for (std::size_t a = 0; a < computed.size(); a++) {
        integers[a] = computed[a].what == asked_of_group::sum && of_integers(*r, computed[a]);
        if (integers[a] && !computed[a].scale.exact)
            exact[a] = exact_sums(s, *r, rows, by, found, computed[a], record->reading);
    }
    home.last_scan = record;

    // Codes of equal values, as of 1 and 1.0, are one group.
    const bool merges = std::any_of(by.begin(), by.end(), [&](const group_column &g) {
        return !g.month && !r->columns()[g.column]->one_code_a_value();
    });
    std::map<std::vector<ub4>, std::size_t> number_of;
    std::vector<group> all;
    for (const group_row &g : found) {
        std::vector<ub4> ranks = g.group_codes;
        for (std::size_t k = 0; merges && k < by.size(); k++)
            if (!by[k].month)
                ranks[k] = r->columns()[by[k].column]->rank(ranks[k]);
        const std::size_t number =
            merges ? number_of.try_emplace(std::move(ranks), all.size()).first->second : all.size();
        if (number == all.size()) {
            all.push_back({{}, std::vector<total>(computed.size())});
            for (std::size_t k = 0; k < by.size(); k++)
                all.back().key.push_back(by[k].month ? g.group[k] ? answer_value(*g.group[k]) : answer_value()
                                                     : value_of(r->columns()[by[k].column]->value(g.group_codes[k])));
        }
        for (std::size_t a = 0; a < computed.size(); a++) {
            add(all[number].totals[a], g, a, computed[a], integers[a]);
            if (const auto sum = exact[a].find(g.group_codes); sum != exact[a].end())
                all[number].totals[a].integer += sum->second;
        }
    }

    answer_rows out;
    for (group &g : all) {
        std::vector<answer_value> row = std::move(g.key);
        row.resize(most_keys);
        for (std::size_t a = 0; a < asked.size(); a++) {
            const total &t = g.totals[a];
            if (counts[a] == 0 || !t.known)
                row.push_back(value_of(*r, computed[a], integers[a], t));
            else
                row.emplace_back((integers[a] ? static_cast<double>(t.integer) : t.real) /
                                 static_cast<double>(g.totals[counts[a]].integer));
        }
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
         most_keys + most_values, 4, 3, true, groups});
}

} // namespace host::sqlite
