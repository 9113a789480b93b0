// `tavo columns`: how the columns of a CSV file are encoded and how many bytes they take.
#include <fmt/format.h>
#include <memory>

#include "host/command/output.h"
#include "host/command/subcommands.h"
#include "host/command/table_options.h"
#include "host/command/text_table.h"

namespace host {

namespace {

double ratio(ub8 plain, ub8 encoded) {
    return encoded == 0 ? 1 : static_cast<double>(plain) / static_cast<double>(encoded);
}

// Of a column of text: the first value that no other type holds.
std::string why_text(const found_type &found) {
    constexpr std::size_t shown = 30;
    if (found.type() != value_type::text || found.text_line() == 0)
        return found.declared() ? "asked for" : "";
    const std::string &value = found.text_value();
    return fmt::format("line {}: '{}'", found.text_line(),
                       value.size() > shown ? value.substr(0, shown) + "..." : value);
}

std::vector<std::string> row_of(column &col) {
    const dictionary &dict = col.dict();
    return {col.name(),
            name_of(dict.type()),
            std::to_string(dict.end_code() - dict.first_code()),
            dict.has_null() ? "yes" : "no",
            std::to_string(col.width()),
            name_of(col.form()),
            col.form() == column_form::rle ? std::to_string(col.runs()) : "",
            std::to_string(col.plain_bytes()),
            std::to_string(col.encoded_bytes()),
            fmt::format("{:.2f}", ratio(col.plain_bytes(), col.encoded_bytes())),
            col.symbols().front_coded()  ? "front"
            : col.symbols().one_length() ? "one_len"
                                         : "cla",
            std::to_string(col.symbols().held_bytes()),
            why_text(dict.found())};
}

// Without a dictionary, different values are not counted.
std::vector<std::string> row_of(const number_column &col) {
    const std::string bytes = std::to_string(col.encoded_bytes());
    const std::size_t zones = col.numbers().zones().size();
    return {col.name(),
            name_of(col.type()),
            "",
            col.has_null() ? "yes" : "no",
            std::to_string(col.width()),
            fmt::format("{}{}", name_of(col.form()), zones == 0 ? "" : "_tz"),
            "",
            bytes,
            bytes,
            "1.00",
            zones == 0 ? "none" : fmt::format("none, {} zone{}", zones, zones == 1 ? "" : "s"),
            "0",
            ""};
}

int run(const table_options &options) {
    const csv_file file = open_csv(options);
    const table table = read_table(file, all_columns(file), options, true);
    using enum text_table::side;
    text_table shown({{"column", left},
                      {"type", left},
                      {"distinct"},
                      {"nulls"},
                      {"width"},
                      {"form", left},
                      {"runs"},
                      {"plain bytes"},
                      {"encoded"},
                      {"ratio"},
                      {"dictionary", left},
                      {"bytes"},
                      {"text because of", left}});
    ub8 plain = 0, encoded = 0;
    for (const std::size_t number : all_columns(file)) {
        if (const number_column *numbers = table.numbers(number)) {
            shown.add_row(row_of(*numbers));
            plain += numbers->encoded_bytes();
            encoded += numbers->encoded_bytes();
            continue;
        }
        column &col = *table.encoded(number);
        shown.add_row(row_of(col));
        plain += col.plain_bytes();
        encoded += col.encoded_bytes();
    }
    output out;
    out.write(shown.text());
    out.write(
        fmt::format("{} rows; codes take {} bytes plain, {} bytes encoded, ratio {:.2f}; the text takes {} bytes\n",
                    table.rows(), plain, encoded, ratio(plain, encoded), file.text().size()));
    out.finish();
    return answered;
}

} // namespace

subcommand add_columns(CLI::App &app) {
    CLI::App *columns =
        app.add_subcommand("columns", "Show the types of a CSV file's columns and how they are encoded");
    columns->footer(about_files);
    const auto options = std::make_shared<table_options>();
    add_table_options(*columns, *options);
    return {columns, [options] { return run(*options); }};
}

} // namespace host
