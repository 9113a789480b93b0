#include "host/column/table.h"

#include <algorithm>
#include <fmt/format.h>
#include <new>

#include "host/column/column_builder.h"
#include "host/column/text_file.h"
#include "host/error.h"

namespace host {

namespace {

// Throws if values are not of the type that their column was given.
void refuse_bad_values(const std::string &path, const std::string &name, value_type type,
                       const column_builder &builder) {
    if (builder.bad_count() == 0)
        return;
    std::string message = fmt::format("{}: column {} is to be of type {}, but {} value{} not:", path, name,
                                      name_of(type), builder.bad_count(), builder.bad_count() == 1 ? " is" : "s are");
    for (const column_builder::bad_value &bad : builder.bad_values())
        message += fmt::format("\n  line {}: '{}'", bad.line, bad.value);
    if (builder.bad_count() > builder.bad_values().size())
        message += fmt::format("\n  ... and {} more", builder.bad_count() - builder.bad_values().size());
    throw error(message);
}

} // namespace

bool is_null(std::string_view value, const std::vector<std::string> &null_texts) {
    if (value.empty())
        return true;
    return std::any_of(null_texts.begin(), null_texts.end(),
                       [&](const std::string &text) { return value == text || trimmed(value) == text; });
}

table::table(const csv_file &file, const std::vector<std::size_t> &wanted, const read_options &options)
    : file_(file), columns_(file.columns().size()) {
    const field_text text{file_.text(), file_.delimiter()};
    std::vector<column_builder> builders;
    for (const std::size_t number : wanted) {
        const std::string &name = file_.columns()[number];
        const auto given = options.type_of.find(name);
        builders.emplace_back(name, text, given == options.type_of.end() ? found_type() : found_type(given->second));
    }
    try {
        std::string made;
        file_.records([&](const std::vector<csv_field> &fields, const csv_reader &reader) {
            if (rows_ == most_rows)
                throw error(fmt::format("{}: line {}: more than {} rows", file_.path(), reader.line(), most_rows));
            rows_++;
            for (std::size_t i = 0; i < wanted.size(); i++) {
                const csv_field &field = fields[wanted[i]];
                if (is_null(field.value(made), options.null_texts))
                    builders[i].add_null();
                else
                    builders[i].add(field, reader.line());
            }
            if (options.progress && rows_ % 65536 == 0)
                options.progress(reader.end(), file_.text().size());
        });
        for (std::size_t i = 0; i < wanted.size(); i++)
            if (const auto given = options.type_of.find(file_.columns()[wanted[i]]); given != options.type_of.end())
                refuse_bad_values(file_.path(), given->first, given->second, builders[i]);

        for (std::size_t i = 0; i < wanted.size(); i++) {
            const std::string &name = file_.columns()[wanted[i]];
            std::optional<column_form> form;
            for (const char *which : {"", name.c_str()})
                if (const auto found = options.form_of.find(which); found != options.form_of.end())
                    form = found->second;
            column_builder builder = std::move(builders[i]); // its memory goes when the column is there
            column_builder::result built = builder.finish();
            columns_[wanted[i]] = std::make_unique<column>(name, std::move(built.dict), std::move(built.codes), form);
        }
    } catch (const std::bad_alloc &) {
        throw error("out of memory: " + memory_needed(file_.path(), file_.text().size()));
    }
}

} // namespace host
