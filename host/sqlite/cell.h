// A value as SQLite has it, and SQLite's order of values: nulls, numbers, texts by their bytes, blobs.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "host/sqlite/api.h"

namespace host::sqlite {

struct cell {
    enum class kind : unsigned char { null, integer, real, text, blob };
    kind type = kind::null;
    union {
        sqlite3_int64 integer = 0;
        double real;
    };
    std::string_view bytes; // of a text or blob; whoever made the cell says where they live

    bool is_number() const { return type == kind::integer || type == kind::real; }
};

inline cell integer_cell(sqlite3_int64 value) {
    cell c;
    c.type = cell::kind::integer;
    c.integer = value;
    return c;
}
inline cell real_cell(double value) {
    cell c;
    c.type = cell::kind::real;
    c.real = value;
    return c;
}
inline cell text_cell(std::string_view text) {
    cell c;
    c.type = cell::kind::text;
    c.bytes = text;
    return c;
}

// Bytes stay SQLite's, and valid as the value does.
inline cell cell_of(sqlite3_value *value) {
    switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER: return integer_cell(sqlite3_value_int64(value));
    case SQLITE_FLOAT: return real_cell(sqlite3_value_double(value));
    case SQLITE_NULL: return {};
    default: break;
    }
    cell c;
    const bool text = sqlite3_value_type(value) == SQLITE_TEXT;
    c.type = text ? cell::kind::text : cell::kind::blob;
    const void *bytes = text ? static_cast<const void *>(sqlite3_value_text(value)) : sqlite3_value_blob(value);
    const int size = sqlite3_value_bytes(value);
    if (bytes == nullptr && size != 0)
        throw std::bad_alloc();
    c.bytes = {static_cast<const char *>(bytes), static_cast<std::size_t>(size)};
    return c;
}

// An integer and a double, exactly: the long double of this system holds either.
inline int compare_numbers(const cell &a, const cell &b) {
    if (a.type == cell::kind::integer && b.type == cell::kind::integer)
        return a.integer < b.integer ? -1 : a.integer > b.integer;
    const auto wide = [](const cell &c) {
        return c.type == cell::kind::integer ? static_cast<long double>(c.integer) : static_cast<long double>(c.real);
    };
    return wide(a) < wide(b) ? -1 : wide(a) > wide(b);
}

inline int compare_bytes(std::string_view a, std::string_view b) {
    const std::size_t both = std::min(a.size(), b.size());
    const int first = both == 0 ? 0 : std::memcmp(a.data(), b.data(), both);
    return first != 0 ? first : a.size() < b.size() ? -1 : a.size() > b.size();
}

inline int compare_cells(const cell &a, const cell &b) {
    const auto rank = [](const cell &c) {
        return c.type == cell::kind::null ? 0 : c.is_number() ? 1 : c.type == cell::kind::text ? 2 : 3;
    };
    if (rank(a) != rank(b))
        return rank(a) < rank(b) ? -1 : 1;
    return rank(a) == 0 ? 0 : rank(a) == 1 ? compare_numbers(a, b) : compare_bytes(a.bytes, b.bytes);
}

// For what people read.
inline std::string words_of(const cell &c) {
    switch (c.type) {
    case cell::kind::null: return "null";
    case cell::kind::integer: return fmt::format("{}", c.integer);
    case cell::kind::real: return fmt::format("{}", c.real);
    case cell::kind::text: return fmt::format("'{}'", c.bytes);
    case cell::kind::blob: break;
    }
    return fmt::format("a blob of {} bytes", c.bytes.size());
}

} // namespace host::sqlite
