#include "host/column/dictionary.h"

#include "host/column/code_search.h"

namespace host {

std::string dictionary::key_of(ub8 code) const {
    std::string key;
    make_sort_key(type(), symbols_[code], key);
    return key;
}

ub8 dictionary::first_not_below(const std::string &key) const {
    return first_where(first_code(), end_code(), [&](ub8 code) { return key_of(code) >= key; });
}

ub8 dictionary::first_above(const std::string &key) const {
    return first_where(first_code(), end_code(), [&](ub8 code) { return key_of(code) > key; });
}

} // namespace host
