#include "host/sqlite/scan_plan.h"

#include <cstdio>
#include <fmt/format.h>

#include "host/error.h"

namespace host::sqlite {

// c 3 < 0    a condition    o 3 1    an order    l, f    limit, offset    u 1f    used columns
std::string scan_plan::text() const {
    std::string out;
    for (const condition &c : conditions)
        out += fmt::format("c {} {} {:d} ", c.column, static_cast<char>(c.what), c.constant);
    for (const key &k : order)
        out += fmt::format("o {} {:d} ", k.column, k.descending);
    return out + fmt::format("{}{}u {:x}", has_limit ? "l " : "", has_offset ? "f " : "", used);
}

scan_plan scan_plan::of(const char *text) {
    scan_plan plan;
    const auto number = [&](int base) {
        char *end;
        const unsigned long long value = std::strtoull(text, &end, base);
        text = end;
        return value;
    };
    while (*text != '\0') {
        const char what = *text++;
        if (what == 'c') {
            const int column = static_cast<int>(number(10));
            text++;
            const test t = static_cast<test>(*text++);
            plan.conditions.push_back({column, t, number(10) != 0});
        } else if (what == 'o') {
            const int column = static_cast<int>(number(10));
            plan.order.push_back({column, number(10) != 0});
        } else if (what == 'u') {
            plan.used = number(16);
        } else if (what != ' ') {
            (what == 'l' ? plan.has_limit : plan.has_offset) = true;
        }
    }
    return plan;
}

} // namespace host::sqlite
