#include "host/join/plain_join.h"

#include <algorithm>
#include <map>

#include "host/column/table.h"
#include "host/query/recompute.h"
#include "host/rows/row_order.h"

namespace host {

namespace {

using row_values = std::vector<std::optional<std::string>>; // by column

row_values values_of(const std::vector<csv_field> &fields, const std::vector<std::string> &null_texts) {
    row_values values;
    for (const csv_field &field : fields)
        values.push_back(field_value(field, null_texts));
    return values;
}

class plain_join {
public:
    plain_join(const join_question &q, const join_names &names, const std::vector<std::vector<value_type>> &types,
               const std::vector<std::string> &null_texts)
        : question_(q), names_(names), types_of_files_(types), null_texts_(null_texts),
          right_by_key_(key_order{key_types(q, types)}) {
        for (const predicate &p : q.where)
            for (const std::string &column : columns_of(p))
                types_[column] = types[names.find(column).side == join_side::right][names.find(column).column];
        if (is_anti())
            for (const pair_condition &c : conditions_of(q.where, names)) {
                own_conditions_[c.side == join_side::right].push_back(c.condition);
                for (const std::string &column : columns_of(c.condition)) {
                    const std::size_t number = names.file(c.side).column(column);
                    own_types_[c.side == join_side::right][column] = types[c.side == join_side::right][number];
                }
            }
    }

    plain_answer answer() {
        names_.file(join_side::right).records([&](const std::vector<csv_field> &fields, const csv_reader &) {
            right_.push_back(values_of(fields, null_texts_));
            if (is_anti() && !takes_part(join_side::right, right_.back())) {
                partners_.push_back(1); // not reported
                return;
            }
            partners_.push_back(0);
            if (const auto key = key_of(join_side::right, right_.back()))
                right_by_key_[*key].push_back(right_.size() - 1);
        });
        names_.file(join_side::left).records([&](const std::vector<csv_field> &fields, const csv_reader &) {
            const row_values left = values_of(fields, null_texts_);
            if (is_anti() && !takes_part(join_side::left, left))
                return;
            const auto key = key_of(join_side::left, left);
            const auto found = key ? right_by_key_.find(*key) : right_by_key_.end();
            if (found == right_by_key_.end()) {
                if (question_.kind == join_kind::left || question_.kind == join_kind::anti)
                    report(&left, nullptr);
                return;
            }
            for (const std::size_t r : found->second) {
                partners_[r] = 1;
                if (!is_anti())
                    report(&left, &right_[r]);
            }
        });
        if (question_.kind == join_kind::right || question_.kind == join_kind::right_anti)
            for (std::size_t r = 0; r < right_.size(); r++)
                if (partners_[r] == 0)
                    report(nullptr, &right_[r]);
        if (question_.ordered_by) {
            const join_names::place by = *question_.ordered_by;
            answer_.lines = ordered_lines(std::move(lines_), types_of_files_[by.side == join_side::right][by.column],
                                          question_.descending, question_.limit);
        }
        return std::move(answer_);
    }

private:
    struct key_order {
        std::vector<value_type> types;
        bool operator()(const std::vector<std::string> &a, const std::vector<std::string> &b) const {
            for (std::size_t i = 0; i < types.size(); i++)
                if (const int order = compare_values(types[i], a[i], b[i]); order != 0)
                    return order < 0;
            return false;
        }
    };
    static std::vector<value_type> key_types(const join_question &q,
                                             const std::vector<std::vector<value_type>> &types) {
        std::vector<value_type> common;
        for (const auto &[left, right] : q.keys)
            common.push_back(common_type(types[0][left], types[1][right]));
        return common;
    }
    bool is_anti() const { return question_.kind == join_kind::anti || question_.kind == join_kind::right_anti; }

    std::optional<std::vector<std::string>> key_of(join_side side, const row_values &row) const {
        std::vector<std::string> key;
        for (const auto &[left, right] : question_.keys) {
            const auto &value = row[side == join_side::left ? left : right];
            if (!value)
                return std::nullopt;
            key.push_back(*value);
        }
        return key;
    }

    bool takes_part(join_side side, const row_values &row) const {
        const field_reader field = [&](const std::string &column) { return row[names_.file(side).column(column)]; };
        const auto &conditions = own_conditions_[side == join_side::right];
        return std::all_of(conditions.begin(), conditions.end(),
                           [&](const predicate &p) { return is_true(p, field, own_types_[side == join_side::right]); });
    }

    void report(const row_values *left, const row_values *right) {
        const auto value = [&](join_names::place p) -> std::optional<std::string> {
            const row_values *row = p.side == join_side::left ? left : right;
            return row == nullptr ? std::nullopt : (*row)[p.column];
        };
        const field_reader field = [&](const std::string &column) { return value(names_.find(column)); };
        if (!is_anti() && !std::all_of(question_.where.begin(), question_.where.end(),
                                       [&](const predicate &p) { return is_true(p, field, types_); }))
            return;
        const auto append_to = [&](std::string &lines) {
            append_csv_line(lines, question_.printed.size(),
                            [&](std::size_t i) { return value(question_.printed[i]).value_or(""); });
        };
        answer_.count++;
        if (question_.ordered_by)
            append_to(lines_.emplace_back(value(*question_.ordered_by), "").second);
        else if (answer_.count <= question_.limit)
            append_to(answer_.lines);
    }

    const join_question &question_;
    const join_names &names_;
    const std::vector<std::vector<value_type>> &types_of_files_;
    const std::vector<std::string> &null_texts_;
    std::map<std::string, value_type> types_, own_types_[2];
    std::vector<predicate> own_conditions_[2];
    std::vector<row_values> right_;
    std::vector<char> partners_; // of right rows: whether there is one
    std::map<std::vector<std::string>, std::vector<std::size_t>, key_order> right_by_key_;
    std::vector<valued_line> lines_; // to be ordered
    plain_answer answer_;
};

} // namespace

plain_answer join_plainly(const join_question &q, const join_names &names,
                          const std::vector<std::vector<value_type>> &types,
                          const std::vector<std::string> &null_texts) {
    return plain_join(q, names, types, null_texts).answer();
}

} // namespace host
