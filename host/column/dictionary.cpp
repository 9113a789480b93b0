#include "host/column/dictionary.h"

#include <algorithm>
#include <numeric>

namespace host {

dictionary::dictionary(value_type type, bool has_null, std::vector<std::string> symbols)
    : type_(type), has_null_(has_null), symbols_(std::move(symbols)) {
    keys_.reserve(symbols_.size());
    for (ub8 code = 0; code < symbols_.size(); code++)
        keys_.push_back(code < first_code() ? std::string() : *sort_key(type_, symbols_[code]));
}

ub8 dictionary::first_not_below(const std::string &key) const {
    const auto first = keys_.begin() + static_cast<std::ptrdiff_t>(first_code());
    return static_cast<ub8>(std::lower_bound(first, keys_.end(), key) - keys_.begin());
}

ub8 dictionary::first_above(const std::string &key) const {
    const auto first = keys_.begin() + static_cast<std::ptrdiff_t>(first_code());
    return static_cast<ub8>(std::upper_bound(first, keys_.end(), key) - keys_.begin());
}

ub4 dictionary_builder::number_of(std::string_view text) {
    const auto [entry, is_new] = numbers_.try_emplace(text, static_cast<ub4>(texts_.size()));
    if (is_new)
        texts_.push_back(text);
    return entry->second;
}

ub4 dictionary_builder::number_of_copy(const std::string &text) {
    if (const auto known = numbers_.find(text); known != numbers_.end())
        return known->second;
    return number_of(copies_.emplace_back(text));
}

dictionary_builder::result dictionary_builder::finish() const {
    value_type type = value_type::text;
    for (std::size_t i = 0; i < texts_.size(); i++) {
        type = i == 0 ? type_of(texts_[0]) : common_type(type, type_of(texts_[i]));
        if (type == value_type::text)
            break;
    }
    std::vector<std::string> keys;
    keys.reserve(texts_.size());
    for (std::string_view text : texts_)
        keys.push_back(*sort_key(type, text));
    std::vector<ub4> order(texts_.size());
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(), [&](ub4 a, ub4 b) {
        const int by_value = keys[a].compare(keys[b]);
        return by_value != 0 ? by_value < 0 : texts_[a] < texts_[b];
    });

    std::vector<std::string> symbols;
    symbols.reserve(order.size() + 1);
    if (has_null_)
        symbols.emplace_back();
    std::vector<ub4> code_of(order.size());
    for (ub4 number : order) {
        code_of[number] = static_cast<ub4>(symbols.size());
        symbols.emplace_back(texts_[number]);
    }
    return {dictionary(type, has_null_, std::move(symbols)), std::move(code_of)};
}

} // namespace host
