#include "host/join/join_names.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <optional>

#include "host/error.h"

namespace host {

join_names::join_names(const csv_file &left, const csv_file &right)
    : left_(left), right_(right), names_{std::filesystem::path(left.path()).stem().string(),
                                         std::filesystem::path(right.path()).stem().string()} {}

bool join_names::has(const csv_file &file, const std::string &column) {
    return std::find(file.columns().begin(), file.columns().end(), column) != file.columns().end();
}

bool join_names::strip(join_side side, std::string &name) const {
    for (const std::string &prefix :
         {names_[side == join_side::right] + ".", std::string(side == join_side::left ? "left." : "right.")})
        if (name.starts_with(prefix) && has(file(side), name.substr(prefix.size()))) {
            name = name.substr(prefix.size());
            return true;
        }
    return false;
}

std::size_t join_names::find(join_side side, const std::string &name) const {
    std::string own = name;
    if (!has(file(side), name))
        strip(side, own);
    return file(side).column(own);
}

join_names::place join_names::find(const std::string &name) const {
    std::vector<place> places;
    for (const bool qualified : {false, true}) {
        for (const join_side side : {join_side::left, join_side::right}) {
            std::string own = name;
            if (qualified ? strip(side, own) : has(file(side), name))
                places.push_back({side, file(side).column(own)});
        }
        if (places.size() == 1)
            return places[0];
        if (places.size() == 2)
            throw error(
                fmt::format("both files have a column {}: write {} or {}", name, shown(places[0]), shown(places[1])));
    }
    std::vector<std::string> all = left_.columns();
    all.insert(all.end(), right_.columns().begin(), right_.columns().end());
    std::string message = fmt::format("neither {} nor {} has a column {}", left_.path(), right_.path(), name);
    const std::vector<std::string> near = near_names(name, all);
    for (std::size_t i = 0; i < near.size(); i++)
        message += (i == 0 ? "; did you mean " : i + 1 == near.size() ? " or " : ", ") + near[i];
    throw error(message + (near.empty() ? "" : "?"));
}

std::string join_names::shown(place p) const {
    const join_side other = p.side == join_side::left ? join_side::right : join_side::left;
    const std::string &name = file(p.side).columns()[p.column];
    if (!has(file(other), name))
        return name;
    if (names_[0] == names_[1])
        return (p.side == join_side::left ? "left." : "right.") + name;
    return names_[p.side == join_side::right] + "." + name;
}

std::vector<std::pair<std::size_t, std::size_t>> join_names::key_columns(const std::vector<std::string> &on) const {
    std::vector<std::pair<std::size_t, std::size_t>> pairs;
    for (const std::string &text : on)
        for (std::size_t at = 0; at <= text.size();) {
            const std::size_t end = std::min(text.find(',', at), text.size());
            const std::string item = text.substr(at, end - at);
            at = end + 1;
            const std::size_t equals = item.find('=');
            std::string left = item.substr(0, equals);
            std::string right = equals == std::string::npos ? left : item.substr(equals + 1);
            if (left.empty() || right.empty())
                throw error(fmt::format("--on {}: expected a column of {} and one of {}, as in a=b", text, left_.path(),
                                        right_.path()));
            const auto is_of = [&](join_side side, std::string name) {
                return has(file(side), name) || strip(side, name);
            };
            if (!(is_of(join_side::left, left) && is_of(join_side::right, right)) && is_of(join_side::left, right) &&
                is_of(join_side::right, left))
                std::swap(left, right);
            pairs.emplace_back(find(join_side::left, left), find(join_side::right, right));
        }
    return pairs;
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
    if (p.operands.empty()) {
        const join_names::place place = names.find(p.column);
        p.column = names.file(place.side).columns()[place.column];
    }
    for (predicate &operand : p.operands)
        operand = with_own_names(std::move(operand), names);
    return p;
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
