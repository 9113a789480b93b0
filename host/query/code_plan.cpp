#include "host/query/code_plan.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>

#include "host/query/scan_call.h"

namespace host {

namespace {

// The codes from begin up to end, without end. An open end says that the predicate leaves the value itself out: the
// scan then compares with the code just outside, so that `x > 5` runs as a `gt` kernel.
struct code_range {
    ub8 begin, end;
    bool low_open, high_open;
};

code_plan leaf(code_plan::kind what, stored_column *col, std::string text) {
    code_plan plan;
    plan.what = what;
    plan.col = col;
    plan.text = std::move(text);
    return plan;
}

code_plan scan(stored_column *col, tavo_variant variant, tavo_operation op, ub8 low, ub8 high, std::string text) {
    code_plan plan = leaf(code_plan::kind::scan, col, std::move(text));
    plan.op = op;
    plan.variant = variant;
    plan.low = low;
    plan.high = high;
    return plan;
}

code_plan combine(code_plan::kind what, std::vector<code_plan> parts) {
    if (parts.size() == 1)
        return std::move(parts[0]);
    code_plan plan;
    plan.what = what;
    plan.parts = std::move(parts);
    return plan;
}

tavo_variant null_rule(const stored_column *col) { return col->has_null() ? TAVO_VARIANT_SECOND : TAVO_VARIANT_PLAIN; }

// Times of several zones: equal moments are not equal pairs, so a moment is a range of them.
bool has_zones(const stored_column *col) {
    const auto *numbers = dynamic_cast<const number_column *>(col);
    return numbers != nullptr && numbers->has_zones();
}

// Null is code 0, so plain kernels find it and what is not it.
code_plan null_test(stored_column *col, bool wanted, std::string text) {
    if (!col->has_null())
        return leaf(wanted ? code_plan::kind::nothing : code_plan::kind::every, col, std::move(text));
    if (dynamic_cast<const number_column *>(col) != nullptr)
        return leaf(wanted ? code_plan::kind::nulls : code_plan::kind::known, col, std::move(text));
    return scan(col, TAVO_VARIANT_PLAIN, wanted ? TAVO_OP_EQ : TAVO_OP_NE, 0, 0, std::move(text));
}

code_plan inside(stored_column *col, const code_range &r, const std::string &text) {
    const ub8 first = col->first_code(), end = col->end_code();
    const tavo_variant variant = null_rule(col);
    if (r.begin >= r.end)
        return leaf(code_plan::kind::nothing, col, text);
    if (r.begin == first && r.end == end)
        return null_test(col, false, text);
    if (r.begin + 1 == r.end)
        return has_zones(col) ? scan(col, variant, TAVO_OP_GE_LE, r.begin, r.begin, text)
                              : scan(col, variant, TAVO_OP_EQ, r.begin, 0, text);
    // From here on, an open end with codes outside of it has one just outside.
    const ub8 low = r.low_open ? r.begin - 1 : r.begin;
    const ub8 high = r.high_open ? r.end : r.end - 1;
    if (r.begin == first)
        return scan(col, variant, r.high_open ? TAVO_OP_LT : TAVO_OP_LE, high, 0, text);
    if (r.end == end)
        return scan(col, variant, r.low_open ? TAVO_OP_GT : TAVO_OP_GE, low, 0, text);
    const tavo_operation op =
        r.low_open ? (r.high_open ? TAVO_OP_GT_LT : TAVO_OP_GT_LE) : (r.high_open ? TAVO_OP_GE_LT : TAVO_OP_GE_LE);
    return scan(col, variant, op, low, high, text);
}

// The values that are neither null nor in the range.
code_plan outside(stored_column *col, const code_range &r, const std::string &text) {
    const ub8 first = col->first_code(), end = col->end_code();
    if (r.begin >= r.end)
        return null_test(col, false, text);
    if (r.begin + 1 == r.end && !(r.begin == first && r.end == end) && !has_zones(col))
        return scan(col, null_rule(col), TAVO_OP_NE, r.begin, 0, text);
    // An end that the range includes is left out of its complement, and the other way round.
    std::vector<code_plan> parts;
    if (r.begin > first)
        parts.push_back(inside(col, {first, r.begin, false, !r.low_open}, text));
    if (r.end < end)
        parts.push_back(inside(col, {r.end, end, !r.high_open, false}, text));
    if (parts.empty())
        return leaf(code_plan::kind::nothing, col, text);
    return combine(code_plan::kind::either, std::move(parts));
}

class planner {
public:
    explicit planner(const table &t) : table_(t) {}

    code_plan conjunction(std::vector<std::pair<const predicate *, bool>> operands) const {
        // Flattened, so that ranges of one column meet.
        for (std::size_t i = 0; i < operands.size();) {
            const auto [p, negated] = operands[i];
            const bool splits = p->kind == (negated ? predicate_kind::or_ : predicate_kind::and_);
            if (!splits && p->kind != predicate_kind::not_) {
                i++;
                continue;
            }
            operands.erase(operands.begin() + static_cast<std::ptrdiff_t>(i));
            const bool inner = p->kind == predicate_kind::not_ ? !negated : negated;
            std::size_t to = i;
            for (const predicate &operand : p->operands)
                operands.insert(operands.begin() + static_cast<std::ptrdiff_t>(to++), {&operand, inner});
        }
        struct fused {
            stored_column *col;
            code_range range;
            std::string text;
            std::size_t part;
        };
        std::vector<fused> ranges;
        std::vector<code_plan> parts;
        for (const auto &[p, negated] : operands) {
            const auto range = range_of(*p, negated);
            if (!range) {
                parts.push_back(plan(*p, negated));
                continue;
            }
            stored_column *col = column_of(*p);
            const std::string text = (negated ? "not " : "") + p->text;
            const auto same = std::find_if(ranges.begin(), ranges.end(), [&](const fused &f) { return f.col == col; });
            if (same == ranges.end()) {
                ranges.push_back({col, *range, text, parts.size()});
                parts.emplace_back(); // filled below
                continue;
            }
            if (range->begin > same->range.begin || (range->begin == same->range.begin && range->low_open)) {
                same->range.begin = range->begin;
                same->range.low_open = range->low_open;
            }
            if (range->end < same->range.end || (range->end == same->range.end && range->high_open)) {
                same->range.end = range->end;
                same->range.high_open = range->high_open;
            }
            same->text += " and " + text;
        }
        for (const fused &f : ranges)
            parts[f.part] = inside(f.col, f.range, f.text);
        return combine(code_plan::kind::both, std::move(parts));
    }

private:
    stored_column *column_of(const literal &name) const { return table_.stored(table_.file().column(name.text)); }
    stored_column *column_of(const predicate &p) const { return column_of(p.column); }

    static std::string key_of(const stored_column *col, const predicate &p, const literal &value) {
        const bool by_order = p.kind == predicate_kind::range ||
                              (p.kind == predicate_kind::compare && p.op != comparison::eq && p.op != comparison::ne);
        if (by_order)
            refuse_order_of_text(col, p, value);
        if (auto key = sort_key(col->type(), value.text))
            return std::move(*key);
        fail_at(*p.source, value.at,
                fmt::format("'{}' cannot be compared with column {}, whose values are of type {}", value.text,
                            col->name(), name_of(col->type())));
    }

    // Numbers among which a single text stands make a column of text, where 9 comes behind 10: nobody who compares it
    // with a number means that.
    static void refuse_order_of_text(const stored_column *col, const predicate &p, const literal &value) {
        const auto *with_dictionary = dynamic_cast<const column *>(col);
        if (with_dictionary == nullptr)
            return; // numbers
        const found_type &found = with_dictionary->dict().found();
        const value_type asked = type_of(value.text);
        if (found.type() != value_type::text || found.declared() || found.text_line() == 0 || asked == value_type::text)
            return;
        value_type meant = asked;
        if (found.before_text() && common_type(*found.before_text(), asked) != value_type::text)
            meant = common_type(*found.before_text(), asked);
        const std::string &culprit = found.text_value();
        fail_at(*p.source, value.at,
                fmt::format("column {} is text because of line {}, where it has '{}', so its order is not that of {}s",
                            col->name(), found.text_line(), culprit, name_of(asked)),
                fmt::format("\n  --null '{0}' if that stands for no value"
                            "\n  --type {1}={2} to see every line where {1} is no {2}"
                            "\n  --type {1}=text to compare texts",
                            culprit, col->name(), name_of(meant)));
    }

    // The range of codes that a comparison selects, if it is one range (all but <>, in, is null).
    std::optional<code_range> range_of(const predicate &p, bool negated) const {
        if (p.kind == predicate_kind::range && !negated) {
            const stored_column *col = column_of(p);
            const std::string low = key_of(col, p, p.values[0]), high = key_of(col, p, p.values[1]);
            return code_range{p.low_open ? col->first_above(low) : col->first_not_below(low),
                              p.high_open ? col->first_not_below(high) : col->first_above(high), p.low_open,
                              p.high_open};
        }
        if (p.kind != predicate_kind::compare)
            return std::nullopt;
        const stored_column *col = column_of(p);
        const std::string key = key_of(col, p, p.values[0]);
        const ub8 from = col->first_not_below(key), to = col->first_above(key);
        switch (p.op) {
        case comparison::eq: break;
        case comparison::ne: negated = !negated; break;
        case comparison::lt:
            return negated ? code_range{from, col->end_code(), false, false}
                           : code_range{col->first_code(), from, false, true};
        case comparison::ge:
            return negated ? code_range{col->first_code(), from, false, true}
                           : code_range{from, col->end_code(), false, false};
        case comparison::gt:
            return negated ? code_range{col->first_code(), to, false, false}
                           : code_range{to, col->end_code(), true, false};
        case comparison::le:
            return negated ? code_range{to, col->end_code(), true, false}
                           : code_range{col->first_code(), to, false, false};
        }
        return negated ? std::nullopt : std::optional(code_range{from, to, false, false});
    }

    // Of a predicate or of its negation: `not` goes down to the comparisons, where a null is on neither side.
    code_plan plan(const predicate &p, bool negated) const {
        const std::string text = (negated ? "not " : "") + p.text;
        switch (p.kind) {
        case predicate_kind::not_: return plan(p.operands[0], !negated);
        case predicate_kind::and_:
        case predicate_kind::or_: {
            if ((p.kind == predicate_kind::and_) != negated)
                return conjunction({{&p, negated}});
            std::vector<code_plan> parts;
            for (const predicate &operand : p.operands)
                parts.push_back(plan(operand, negated));
            return combine(code_plan::kind::either, std::move(parts));
        }
        case predicate_kind::is_null: return null_test(column_of(p), !negated, text);
        case predicate_kind::in: return list(p, negated, text);
        case predicate_kind::columns: return two_columns(p, negated, text);
        case predicate_kind::compare:
        case predicate_kind::range: break;
        }
        stored_column *col = column_of(p);
        if (const auto range = range_of(p, negated))
            return inside(col, *range, text);
        // <> and its like, or a negated range: outside of what the predicate, turned positive, selects.
        return outside(
            col, p.kind == predicate_kind::range ? *range_of(p, false) : *range_of(p, p.op == comparison::ne), text);
    }

    code_plan two_columns(const predicate &p, bool negated, const std::string &text) const {
        constexpr comparison negation[] = {comparison::ne, comparison::eq, comparison::ge,
                                           comparison::gt, comparison::le, comparison::lt};
        code_plan plan = leaf(code_plan::kind::columns, column_of(p), text);
        plan.other = column_of(p.other);
        plan.compared = negated ? negation[static_cast<int>(p.op)] : p.op;
        const value_type a = plan.col->type(), b = plan.other->type();
        const bool empty =
            plan.col->end_code() == plan.col->first_code() || plan.other->end_code() == plan.other->first_code();
        if (!empty && a != b && common_type(a, b) == value_type::text)
            fail_at(*p.source, p.other.at,
                    fmt::format("{} is a column of type {}, which does not compare with column {} of type {}; the text "
                                "'{}' stands in 'quotes'",
                                p.other.text, name_of(b), p.column.text, name_of(a), p.other.text));
        return plan;
    }

    code_plan list(const predicate &p, bool negated, const std::string &text) const {
        stored_column *col = column_of(p);
        std::vector<code_range> ranges;
        for (const literal &value : p.values) {
            const std::string key = key_of(col, p, value);
            const code_range r{col->first_not_below(key), col->first_above(key), false, false};
            if (r.begin < r.end)
                ranges.push_back(r);
        }
        // Neighbouring codes become one range.
        std::sort(ranges.begin(), ranges.end(), [](const auto &a, const auto &b) { return a.begin < b.begin; });
        std::vector<code_range> merged;
        for (const code_range &r : ranges)
            if (!merged.empty() && r.begin <= merged.back().end)
                merged.back().end = std::max(merged.back().end, r.end);
            else
                merged.push_back(r);
        if (merged.empty())
            return negated ? null_test(col, false, text) : leaf(code_plan::kind::nothing, col, text);
        if (p.values.size() > 2 && (merged.size() > 1 || merged[0].begin + 1 < merged[0].end) && has_set_kernel(*col)) {
            code_plan plan = leaf(code_plan::kind::set, col, text);
            plan.outside = negated;
            for (const code_range &r : merged)
                plan.members.emplace_back(r.begin, r.end);
            return plan;
        }
        std::vector<code_plan> parts;
        for (const code_range &r : merged)
            parts.push_back(negated ? outside(col, r, text) : inside(col, r, text));
        return combine(negated ? code_plan::kind::both : code_plan::kind::either, std::move(parts));
    }

    const table &table_;
};

} // namespace

code_plan plan_all(std::vector<code_plan> parts) {
    return parts.empty() ? leaf(code_plan::kind::every, nullptr, "") : combine(code_plan::kind::both, std::move(parts));
}

code_plan plan_code_ranges(stored_column &col, const std::vector<std::pair<ub8, ub8>> &ranges,
                           const std::string &text) {
    const ub8 first = col.first_code(), end = col.end_code();
    std::vector<std::pair<ub8, ub8>> values(ranges);
    const bool nulls = !values.empty() && values[0].first < first;
    if (nulls && ++values[0].first == values[0].second)
        values.erase(values.begin());
    if (nulls && values.size() == 1 && values[0].first == first && values[0].second == end)
        return leaf(code_plan::kind::every, &col, text);
    std::vector<code_plan> parts;
    if (nulls || values.empty())
        parts.push_back(nulls ? null_test(&col, true, text) : leaf(code_plan::kind::nothing, &col, text));
    if (values.size() == 2 && values[0].first == first && values[1].second == end) {
        parts.push_back(outside(&col, {values[0].second, values[1].first, false, false}, text));
    } else if (values.size() > 1 && has_set_kernel(col)) {
        parts.push_back(leaf(code_plan::kind::set, &col, text));
        parts.back().members = std::move(values);
    } else {
        for (const auto &[begin, behind] : values)
            parts.push_back(inside(&col, {begin, behind, false, false}, text));
    }
    return combine(code_plan::kind::either, std::move(parts));
}

code_plan plan_codes(const std::vector<predicate> &all, const table &t) {
    if (all.empty())
        return leaf(code_plan::kind::every, nullptr, "");
    std::vector<std::pair<const predicate *, bool>> operands;
    for (const predicate &p : all)
        operands.emplace_back(&p, false);
    return planner(t).conjunction(std::move(operands));
}

} // namespace host
