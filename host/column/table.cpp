#include "host/column/table.h"

#include <algorithm>
#include <fmt/format.h>
#include <new>

#include "host/column/column_builder.h"
#include "host/column/packing.h"
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

// The column without its dictionary, if it is asked for or chosen: where dictionary and codes are larger than the
// values.
std::unique_ptr<number_column> without_dictionary(const std::string &name, const dictionary &dict,
                                                  const block<ub4> &codes, std::optional<column_form> form,
                                                  bool allowed) {
    const bool asked = form == column_form::fixed || form == column_form::dynp;
    if (asked && !allowed)
        throw error(fmt::format("column {} cannot be of form {} here", name, name_of(*form)));
    if (!asked && (form || !allowed))
        return nullptr;
    const ub8 values = dict.end_code() - dict.first_code();
    const ub8 with_dictionary = dict.symbols().held_bytes() +
                                packed_bytes(codes.size(), width_for(dict.end_code() == 0 ? 0 : dict.end_code() - 1));
    if (!asked && (dict.type() == value_type::text || values == 0 || with_dictionary <= codes.size()))
        return nullptr;
    const auto found = number_form::find(dict.type(), [&](const auto &see) {
        for (ub8 code = dict.first_code(); code < dict.end_code(); code++)
            see(dict.symbols()[code]);
    });
    if (asked && values > 0 && !found.is_form)
        throw error(fmt::format("column {} cannot be of form {}: it {}", name, name_of(*form), found.why_not));
    if (!asked && (!found.is_form || with_dictionary <= codes.size() * number_column::fixed_bytes(found.form)))
        return nullptr;

    block<stored_number> number_of(dict.end_code());
    for (ub8 code = 0; code < dict.end_code(); code++)
        number_of[code] = code < dict.first_code() ? stored_number{0, 0} : found.form.store(dict.symbols()[code]);
    block<stored_number> rows(codes.size());
    std::vector<ub8> known(dict.has_null() ? (codes.size() + 63) / 64 : 0);
    for (std::size_t row = 0; row < codes.size(); row++) {
        rows[row] = number_of[codes[row]];
        if (!known.empty())
            known[row / 64] |= ub8{codes[row] >= dict.first_code()} << row % 64;
    }
    return std::make_unique<number_column>(name, found.form, form.value_or(column_form::fixed), rows, std::move(known));
}

std::optional<column_form> form_of(const std::string &name, const forms &asked) {
    std::optional<column_form> form;
    for (const char *which : {"", name.c_str()})
        if (const auto found = asked.find(which); found != asked.end())
            form = found->second;
    return form;
}

std::unique_ptr<text_column> new_text_column(const std::string &name, std::size_t number, const found_type &type,
                                             const read_options &options) {
    if (std::find(options.texts.begin(), options.texts.end(), number) == options.texts.end())
        throw error(fmt::format("column {} cannot be of form text here: a column held as texts, without a dictionary, "
                                "can be grouped by (--group-by) and nothing else",
                                name));
    if (type.declared() && type.type() != value_type::text)
        throw error(
            fmt::format("column {} is of form text, so its type is text or found, not {}", name, name_of(type.type())));
    return std::make_unique<text_column>(name, type);
}

} // namespace

bool is_null(std::string_view value, const std::vector<std::string> &null_texts) {
    if (value.empty())
        return true;
    return std::any_of(null_texts.begin(), null_texts.end(),
                       [&](const std::string &text) { return value == text || trimmed(value) == text; });
}

table::table(const csv_file &names, ub4 rows, std::vector<std::unique_ptr<column>> columns)
    : file_(names), rows_(rows), columns_(std::move(columns)), numbers_(columns_.size()), texts_(columns_.size()) {}

table::table(const csv_file &file, const std::vector<std::size_t> &wanted, const read_options &options)
    : file_(file), columns_(file.columns().size()), numbers_(file.columns().size()), texts_(file.columns().size()) {
    const field_text text{file_.text(), file_.delimiter()};
    std::vector<column_builder> builders;
    std::vector<std::optional<column_form>> forms;
    for (const std::size_t number : wanted) {
        const std::string &name = file_.columns()[number];
        const auto given = options.type_of.find(name);
        const found_type type = given == options.type_of.end() ? found_type() : found_type(given->second);
        builders.emplace_back(name, text, type);
        forms.push_back(form_of(name, options.form_of));
        if (forms.back() == column_form::texts)
            texts_[number] = new_text_column(name, number, type, options);
    }
    try {
        std::string made;
        file_.records([&](const std::vector<csv_field> &fields, const csv_reader &reader) {
            if (rows_ == most_rows)
                throw error(fmt::format("{}: line {}: more than {} rows", file_.path(), reader.line(), most_rows));
            rows_++;
            for (std::size_t i = 0; i < wanted.size(); i++) {
                const csv_field &field = fields[wanted[i]];
                if (text_column *const texts = texts_[wanted[i]].get(); texts != nullptr) {
                    if (is_null(field.value(made), options.null_texts))
                        texts->add_null();
                    else
                        texts->add(field, reader.line());
                    continue;
                }
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
            if (texts_[wanted[i]])
                continue;
            const std::string &name = file_.columns()[wanted[i]];
            const std::optional<column_form> form = forms[i];
            column_builder builder = std::move(builders[i]); // its memory goes when the column is there
            column_builder::result built = builder.finish();
            numbers_[wanted[i]] = without_dictionary(name, built.dict, built.codes, form, options.numbers);
            if (!numbers_[wanted[i]])
                columns_[wanted[i]] =
                    std::make_unique<column>(name, std::move(built.dict), std::move(built.codes), form);
        }
    } catch (const std::bad_alloc &) {
        throw error("out of memory: " + memory_needed(file_.path(), file_.text().size()));
    }
}

} // namespace host
