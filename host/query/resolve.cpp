// Which words of a predicate are columns.
#include <algorithm>
#include <fmt/format.h>

#include "host/column/names.h"
#include "host/column/value_type.h"
#include "host/query/predicate.h"

namespace host {

namespace {

// On its left side a word is a column in any case of its letters, on its right side only as the file spells it: texts
// often stand there.
bool is_column(const literal &word, const csv_file &file, bool left) {
    const auto &names = file.columns();
    switch (word.kind) {
    case word_kind::quoted: return false;
    case word_kind::name: return find_name(word.text, names).has_value();
    case word_kind::plain: break;
    }
    return left ? find_name(word.text, names).has_value()
                : std::find(names.begin(), names.end(), word.text) != names.end();
}

void resolve_comparison(predicate &p, const csv_file &file) {
    literal &left = p.column, &right = p.values[0];
    if (is_column(left, file, true)) {
        if (right.kind == word_kind::name || is_column(right, file, false)) {
            p.kind = predicate_kind::columns;
            p.other = std::move(right);
            p.values.clear();
        }
        return;
    }
    // The side that is a column, or, as neither is there, the one that looks more like it.
    const bool may_turn = right.kind != word_kind::quoted && left.kind != word_kind::name;
    if (may_turn &&
        (left.kind == word_kind::quoted || find_name(right.text, file.columns()) || right.kind == word_kind::name ||
         (type_of(left.text) != value_type::text && type_of(right.text) == value_type::text))) {
        std::swap(left, right);
        p.op = turned_round(p.op);
        return;
    }
    if (left.kind == word_kind::quoted)
        fail_at(*p.source, left.at, "a column stands on one side, plain or in \"double quotes\"");
}

} // namespace

void resolve(predicate &p, const csv_file &file) {
    for (predicate &operand : p.operands)
        resolve(operand, file);
    if (!p.operands.empty())
        return;
    if (p.kind == predicate_kind::compare)
        resolve_comparison(p, file);
    for (literal *column : {&p.column, &p.other})
        if (column == &p.column || p.kind == predicate_kind::columns)
            column->text = file.columns()[file.column(column->text)];
    for (const literal &value : p.values)
        if (is_column(value, file, false))
            fail_at(
                *p.source, value.at,
                fmt::format("{0} is a column, and only = <> < <= > >= compare two columns; the text '{0}' stands in "
                            "'quotes'",
                            value.text));
}

} // namespace host
