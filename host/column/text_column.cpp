#include "host/column/text_column.h"

#include <bit>
#include <fmt/format.h>

#include "host/column/symbol_table.h"
#include "host/error.h"

namespace host {

void text_column::add(const csv_field &field, std::size_t line) {
    std::string made;
    std::string_view value = field.value(made);
    if (value.size() > symbol_list::longest)
        throw error(fmt::format("column {} does not fit: line {} has a value of {} bytes, where {} is the limit", name_,
                                line, value.size(), symbol_list::longest));
    if (field.doubled)
        value = made_.emplace_back(std::move(made));
    type_.see(value, line);
    addresses_.push_back(std::bit_cast<ub8>(value.data()));
    lengths_.push_back(static_cast<ub2>(value.size()));
}

void text_column::add_null() {
    static const char nothing = 0;
    addresses_.push_back(std::bit_cast<ub8>(&nothing));
    lengths_.push_back(0);
}

tavo_vec text_column::vec() {
    enc_.flags = TAVO_LP_SEP;
    tavo_vec v{};
    v.enc = &enc_;
    v.data = addresses_.data();
    v.lengths = lengths_.data();
    v.size = rows();
    return v;
}

} // namespace host
