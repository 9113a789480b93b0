#include "host/join/joined_rows.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/error.h"
#include "host/join/code_reader.h"
#include "host/query/recompute.h"

namespace host {

namespace {

bool has(const selection &rows, ub4 row) { return (rows.bits[row / 64] >> row % 64 & 1) != 0; }

// A column's values as keys that compare like them: a key a code and a code a row.
struct column_values {
    std::vector<std::string> keys;
    std::vector<ub4> codes;
    ub8 first_code = 0;

    bool is_null(ub4 row) const { return codes[row] < first_code; }
    const std::string &key(ub4 row) const { return keys[codes[row]]; }
};

bool ordered(comparison op, int order) {
    switch (op) {
    case comparison::eq: return order == 0;
    case comparison::ne: return order != 0;
    case comparison::lt: return order < 0;
    case comparison::le: return order <= 0;
    case comparison::gt: return order > 0;
    case comparison::ge: break;
    }
    return order >= 0;
}

column_values values_of(session &s, column &col, value_type type, step_list &steps) {
    column_values values{canonical_keys(col, type), {}, col.dict().first_code()};
    selection all{std::vector<ub8>((static_cast<std::size_t>(col.rows()) + 63) / 64), col.rows()};
    if (col.rows() > 0)
        s.kernels().ctx().lbiwvset_range(all.bits.data(), 0, col.rows() - 1);
    code_reader reader(s, {&col}, col.rows(), all, 1 << 16, steps);
    while (const ub4 rows = reader.next())
        values.codes.insert(values.codes.end(), reader.codes(0), reader.codes(0) + rows);
    return values;
}

// A condition with the rows of its side for which it is true.
struct tested_condition {
    pair_condition::kind what;
    join_side side;
    selection rows;
    bool of_missing; // whether it is true where the side has no row
    std::vector<tested_condition> parts;
    column_values left, right; // of columns
    comparison op;

    bool of(row_pair pair) const {
        const auto holds = [&](const tested_condition &part) { return part.of(pair); };
        switch (what) {
        case pair_condition::kind::both: return std::all_of(parts.begin(), parts.end(), holds);
        case pair_condition::kind::either: return std::any_of(parts.begin(), parts.end(), holds);
        case pair_condition::kind::columns: {
            if (pair.left == no_row || pair.right == no_row || left.is_null(pair.left) || right.is_null(pair.right))
                return false;
            return ordered(op, left.key(pair.left).compare(right.key(pair.right)));
        }
        case pair_condition::kind::side: break;
        }
        const ub4 row = side == join_side::left ? pair.left : pair.right;
        return row == no_row ? of_missing : has(rows, row);
    }
};

class side_rows {
public:
    side_rows(session &s, const table &t) : session_(s), table_(t) {}

    selection where(const std::vector<predicate> &all) {
        if (table_.rows() == 0)
            return {};
        query query(session_, table_.rows());
        selection rows = query.run(plan_codes(all, table_));
        steps.insert(steps.end(), query.steps().begin(), query.steps().end());
        return rows;
    }
    std::vector<query_step> steps;

private:
    session &session_;
    const table &table_;
};

predicate has_value(const std::string &column) {
    predicate null, some;
    null.kind = predicate_kind::is_null;
    null.column.text = column;
    null.text = column + " is null";
    some.kind = predicate_kind::not_;
    some.text = column + " is not null";
    some.operands.push_back(std::move(null));
    return some;
}

bool is_true_of_nulls(const predicate &p) {
    return is_true(p, [](const std::string &) { return std::optional<std::string>(); }, {});
}

} // namespace

joined_rows join_rows_of(session &s, const join_question &q, const join_names &names, const table &left,
                         const table &right, const join_settings &settings) {
    const bool anti = q.kind == join_kind::anti || q.kind == join_kind::right_anti;
    const auto pushed_down = [&](join_side side) {
        return q.kind == join_kind::inner || anti ||
               side == (q.kind == join_kind::left ? join_side::left : join_side::right);
    };
    side_rows sides[2] = {{s, left}, {s, right}};
    std::vector<predicate> own[2];
    std::vector<pair_condition> behind;
    for (pair_condition &c : conditions_of(q.where, names))
        if (c.what == pair_condition::kind::side && pushed_down(c.side))
            own[c.side == join_side::right].push_back(std::move(c.condition));
        else if (anti)
            throw error("an anti join has no pairs of rows: each condition must name columns of one file alone");
        else
            behind.push_back(std::move(c));

    std::vector<join_keys::pair> columns;
    for (const auto &[l, r] : q.keys)
        columns.push_back({left.encoded(l), right.encoded(r)});
    const join_keys keys(columns);
    selection all[2], keyed[2];
    for (const join_side side : {join_side::left, join_side::right}) {
        const bool i = side == join_side::right;
        // Rows that cannot have a partner count only where they are reported.
        const bool reported = side == join_side::left ? q.kind == join_kind::left || q.kind == join_kind::anti
                                                      : q.kind == join_kind::right || q.kind == join_kind::right_anti;
        if (reported)
            all[i] = sides[i].where(own[i]);
        const std::size_t conditions = own[i].size();
        for (std::size_t c = 0; c < keys.columns(); c++)
            if (keys.of(side, c)->dict().has_null())
                own[i].push_back(has_value(keys.of(side, c)->name()));
        keyed[i] = reported && own[i].size() == conditions ? all[i] : sides[i].where(own[i]);
        if (!reported)
            all[i] = keyed[i];
    }
    joined_rows result;
    join join(s, keys, settings);
    result.pairs = join.run(q.kind, {left.rows(), all[0], keyed[0]}, {right.rows(), all[1], keyed[1]});
    std::vector<query_step> join_steps = join.steps();

    if (!behind.empty()) {
        step_list behind_steps;
        const auto test = [&](const auto &self, pair_condition &c) -> tested_condition {
            tested_condition t{c.what, c.side, {}, false, {}, {}, {}, c.op};
            if (c.what == pair_condition::kind::columns) {
                column &l = *left.encoded(c.left.column), &r = *right.encoded(c.right.column);
                const value_type type = common_type(l.dict().type(), r.dict().type());
                t.left = values_of(s, l, type, behind_steps);
                t.right = values_of(s, r, type, behind_steps);
            }
            if (c.what == pair_condition::kind::side) {
                t.of_missing = is_true_of_nulls(c.condition);
                t.rows = sides[c.side == join_side::right].where({std::move(c.condition)});
            }
            for (pair_condition &part : c.parts)
                t.parts.push_back(self(self, part));
            return t;
        };
        tested_condition tested{pair_condition::kind::both, join_side::left, {}, false, {}, {}, {}, {}};
        for (pair_condition &c : behind)
            tested.parts.push_back(test(test, c));
        const auto before = static_cast<ub4>(std::min<std::size_t>(result.pairs.size(), 0xffffffff));
        std::erase_if(result.pairs, [&](row_pair pair) { return !tested.of(pair); });
        join_steps.insert(join_steps.end(), behind_steps.all().begin(), behind_steps.all().end());
        query_step step;
        step.what = "conditions on the joined rows";
        step.rows_in = before;
        step.rows_out = static_cast<ub4>(std::min<std::size_t>(result.pairs.size(), 0xffffffff));
        join_steps.push_back(step);
    }
    for (const side_rows &side : {sides[1], sides[0]})
        result.steps.insert(result.steps.end(), side.steps.begin(), side.steps.end());
    result.steps.insert(result.steps.end(), join_steps.begin(), join_steps.end());
    return result;
}

} // namespace host
