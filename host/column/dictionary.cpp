#include "host/column/dictionary.h"

namespace host {

namespace {

// The first code from `first` up to `end` for which `holds`, which none before it and all behind it do.
template <class Holds>
ub8 first_where(ub8 first, ub8 end, Holds holds) {
    while (first < end) {
        const ub8 middle = first + (end - first) / 2;
        if (holds(middle))
            end = middle;
        else
            first = middle + 1;
    }
    return first;
}

} // namespace

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
