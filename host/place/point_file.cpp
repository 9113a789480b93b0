#include "host/place/point_file.h"

#include <charconv>
#include <fmt/format.h>
#include <initializer_list>
#include <optional>

#include "host/column/names.h"
#include "host/column/table.h"
#include "host/error.h"

namespace host {

namespace {

std::size_t column_of(const csv_file &file, const std::string &asked, const char *what,
                      std::initializer_list<const char *> usual) {
    if (!asked.empty())
        return file.column(asked);
    for (const char *name : usual)
        if (const auto found = find_name(name, file.columns()))
            return *found;
    throw error(fmt::format("{}: no column is called {}; name it with --{}{}", file.path(), what, what,
                            instead_of("", file.columns(), "columns")));
}

// Nothing for an empty field.
std::optional<double> degrees(const csv_file &file, std::size_t line, const csv_field &field, const char *what,
                              double most) {
    const std::string value = field.value();
    const std::size_t begin = value.find_first_not_of(' ');
    if (begin == std::string::npos)
        return std::nullopt;
    const std::size_t end = value.find_last_not_of(' ') + 1;
    const char *first = value.data() + begin + (value[begin] == '+' && end - begin > 1 && value[begin + 1] != '-');
    double number = 0;
    const auto [stop, problem] = std::from_chars(first, value.data() + end, number);
    if (problem != std::errc() || stop != value.data() + end)
        throw error(fmt::format("{} line {}: {} '{}' is no number", file.path(), line, what, value));
    if (!(number >= -most && number <= most))
        throw error(fmt::format("{} line {}: {} {} is not from -{} to {}", file.path(), line, what, value, most, most));
    return number;
}

} // namespace

point_file::point_file(const std::string &path, const std::string &longitude, const std::string &latitude)
    : file_(path) {
    const std::size_t x = column_of(file_, longitude, "longitude", {"longitude", "lon", "lng", "long"}),
                      y = column_of(file_, latitude, "latitude", {"latitude", "lat"});
    if (x == y)
        throw error(fmt::format("{}: column '{}' cannot be both longitude and latitude", path, file_.columns()[x]));
    ub8 record = 0;
    file_.records([&](const std::vector<csv_field> &fields, const csv_reader &reader) {
        if (record == table::most_rows)
            throw error(fmt::format("{}: more than {} rows", path, table::most_rows));
        const auto east = degrees(file_, reader.line(), fields[x], "longitude", 180),
                   north = degrees(file_, reader.line(), fields[y], "latitude", 90);
        if (east && north) {
            longitude_.push_back(*east);
            latitude_.push_back(*north);
            record_.push_back(static_cast<ub4>(record));
        } else {
            rows_without_++;
        }
        record++;
    });
}

} // namespace host
