#include "host/join/join_names.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <optional>

#include "host/column/names.h"
#include "host/column/value_type.h"
#include "host/error.h"

namespace host {

namespace {

constexpr join_side sides[] = {join_side::left, join_side::right};

bool has(const csv_file &file, const std::string &column) {
    return std::find(file.columns().begin(), file.columns().end(), column) != file.columns().end();
}

} // namespace

join_names::join_names(const csv_file &left, const csv_file &right)
    : left_(left), right_(right), names_{std::filesystem::path(left.path()).stem().string(),
                                         std::filesystem::path(right.path()).stem().string()},
      all_(left.path() + " and " + right.path(), header(), {',', true}) {}

std::string join_names::qualified(place p, bool by_side) const {
    const bool right = p.side == join_side::right;
    return (by_side ? (right ? "right" : "left") : names_[right]) + "." + file(p.side).columns()[p.column];
}

// The names as a line of CSV, plain ones first: each that means one column.
std::string join_names::header() {
    std::vector<std::string> names;
    const auto add = [&](const std::string &name, place p) {
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
            places_.push_back(p);
        }
    };
    std::vector<place> all;
    for (const join_side side : sides)
        for (std::size_t c = 0; c < file(side).columns().size(); c++)
            all.push_back({side, c});
    for (const place &p : all)
        if (const std::string &name = file(p.side).columns()[p.column];
            !has(file(p.side == join_side::left ? join_side::right : join_side::left), name))
            add(name, p);
    for (const place &p : all)
        if (names_[0] != names_[1])
            add(qualified(p, false), p);
    for (const place &p : all)
        add(qualified(p, true), p);
    std::string line;
    append_csv_line(line, names.size(), [&](std::size_t i) { return std::string_view(names[i]); });
    return line;
}

void join_names::refuse_ambiguous(const std::string &name) const {
    if (!has(left_, name) || !has(right_, name) || has(all_, name))
        return;
    throw error(fmt::format("both files have a column {}: write {} or {}", name,
                            shown({join_side::left, left_.column(name)}),
                            shown({join_side::right, right_.column(name)})));
}

join_names::place join_names::find(const std::string &name) const {
    refuse_ambiguous(name);
    return places_[all_.column(name)];
}

// A column of one side, with its file's name in front or without.
std::size_t join_names::find(join_side side, const std::string &name) const {
    if (!has(file(side), name))
        if (const auto found = find_name(name, all_.columns()); found && places_[*found].side == side)
            return places_[*found].column;
    return file(side).column(name);
}

std::string join_names::shown(place p) const {
    const std::string &name = file(p.side).columns()[p.column];
    if (!has(file(p.side == join_side::left ? join_side::right : join_side::left), name))
        return name;
    return qualified(p, names_[0] == names_[1]);
}

std::vector<std::pair<std::size_t, std::size_t>> join_names::key_columns(const std::vector<std::string> &on) const {
    std::vector<std::pair<std::size_t, std::size_t>> pairs;
    for (const std::string &text : on)
        for (std::size_t at = 0; at <= text.size();) {
            const std::size_t end = std::min(text.find(',', at), text.size());
            const std::string item(trimmed(std::string_view(text).substr(at, end - at)));
            at = end + 1;
            const std::size_t equals = item.find('=');
            std::string left(trimmed(item.substr(0, equals)));
            std::string right(equals == std::string::npos ? left : trimmed(std::string_view(item).substr(equals + 1)));
            if (left.empty() || right.empty())
                throw error(fmt::format("--on {}: expected a column of {} and one of {}, as in a=b", text, left_.path(),
                                        right_.path()));
            const auto is_of = [&](join_side side, const std::string &name) {
                const auto found = find_name(name, all_.columns());
                return find_name(name, file(side).columns()) || (found && places_[*found].side == side);
            };
            if (!(is_of(join_side::left, left) && is_of(join_side::right, right)) && is_of(join_side::left, right) &&
                is_of(join_side::right, left))
                std::swap(left, right);
            pairs.emplace_back(find(join_side::left, left), find(join_side::right, right));
        }
    return pairs;
}

void join_names::resolve(predicate &p) const {
    const auto leaves = [&](const auto &self, const predicate &q) -> void {
        for (const predicate &operand : q.operands)
            self(self, operand);
        if (!q.operands.empty())
            return;
        if (q.column.kind != word_kind::quoted)
            refuse_ambiguous(q.column.text);
        if (q.kind == predicate_kind::compare && q.values[0].kind != word_kind::quoted)
            refuse_ambiguous(q.values[0].text);
    };
    leaves(leaves, p);
    host::resolve(p, all_);
}

namespace {

// The side that all columns of a predicate belong to; nothing if they belong to both.
std::optional<join_side> side_of(const predicate &p, const join_names &names) {
    std::optional<join_side> side;
    for (const std::string &column : columns_of(p)) {
        const join_side here = names.find(column).side;
        if (side && *side != here)
            return std::nullopt;
        side = here;
    }
    return side;
}

predicate with_own_names(predicate p, const join_names &names) {
    if (p.operands.empty())
        for (literal *column : {&p.column, &p.other})
            if (column == &p.column || p.kind == predicate_kind::columns) {
                const join_names::place place = names.find(column->text);
                column->text = names.file(place.side).columns()[place.column];
            }
    for (predicate &operand : p.operands)
        operand = with_own_names(std::move(operand), names);
    return p;
}

comparison opposite(comparison op) {
    switch (op) {
    case comparison::eq: return comparison::ne;
    case comparison::ne: return comparison::eq;
    case comparison::lt: return comparison::ge;
    case comparison::le: return comparison::gt;
    case comparison::gt: return comparison::le;
    case comparison::ge: break;
    }
    return comparison::lt;
}

pair_condition condition_of(const predicate &p, bool negated, const join_names &names) {
    pair_condition c;
    if (const auto side = side_of(p, names)) {
        c.side = *side;
        c.condition = with_own_names(p, names);
        if (negated) {
            predicate negation;
            negation.kind = predicate_kind::not_;
            negation.text = "not (" + p.text + ")";
            negation.operands.push_back(std::move(c.condition));
            c.condition = std::move(negation);
        }
        return c;
    }
    if (p.kind == predicate_kind::columns) { // one of each file
        c.what = pair_condition::kind::columns;
        c.op = negated ? opposite(p.op) : p.op;
        c.left = names.find(p.column.text);
        c.right = names.find(p.other.text);
        if (c.left.side == join_side::right) {
            std::swap(c.left, c.right);
            c.op = turned_round(c.op);
        }
        return c;
    }
    if (p.kind == predicate_kind::not_)
        return condition_of(p.operands[0], !negated, names);
    c.what = (p.kind == predicate_kind::and_) != negated ? pair_condition::kind::both : pair_condition::kind::either;
    for (const predicate &operand : p.operands)
        c.parts.push_back(condition_of(operand, negated, names));
    return c;
}

void flatten(pair_condition c, std::vector<pair_condition> &into) {
    if (c.what != pair_condition::kind::both) {
        into.push_back(std::move(c));
        return;
    }
    for (pair_condition &part : c.parts)
        flatten(std::move(part), into);
}

} // namespace

std::vector<pair_condition> conditions_of(const std::vector<predicate> &all, const join_names &names) {
    std::vector<pair_condition> conditions;
    for (const predicate &p : all)
        flatten(condition_of(p, false, names), conditions);
    return conditions;
}

} // namespace host
