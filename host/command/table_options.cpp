#include "host/command/table_options.h"

#include <fmt/format.h>
#include <numeric>

#include "host/command/output.h"
#include "host/error.h"

namespace host {

namespace {

// --encode FORM for all columns, or COLUMN=FORM for one.
forms forms_of(const std::vector<std::string> &asked, const csv_file &file) {
    forms forms;
    for (const std::string &text : asked) {
        const std::size_t equals = text.rfind('=');
        const std::string column = equals == std::string::npos ? "" : text.substr(0, equals);
        const std::string form = equals == std::string::npos ? text : text.substr(equals + 1);
        if (!column.empty())
            file.column(column);
        if (form == "plain")
            forms[column] = column_form::plain;
        else if (form == "spak")
            forms[column] = column_form::spak;
        else if (form == "rle")
            forms[column] = column_form::rle;
        else if (form == "auto")
            forms[column] = std::nullopt; // also where another form is asked for all others
        else
            throw error(fmt::format("--encode {}: the forms are auto, plain, spak and rle", text));
    }
    return forms;
}

} // namespace

void add_table_options(CLI::App &app, table_options &options) {
    app.add_option("FILE", options.file, "CSV file; its first line names the columns")->required();
    app.add_option("--null", options.null_texts, "A field with this text is null too")->allow_extra_args(false);
    app.add_option("--encode", options.encode, "Form of the columns: auto, plain, spak or rle; of one: COLUMN=FORM")
        ->allow_extra_args(false);
}

std::vector<std::size_t> all_columns(const csv_file &file) {
    std::vector<std::size_t> numbers(file.columns().size());
    std::iota(numbers.begin(), numbers.end(), std::size_t{0});
    return numbers;
}

table read_table(const csv_file &file, const std::vector<std::size_t> &columns, const table_options &options) {
    progress_line progress(options.file);
    read_options reading;
    reading.form_of = forms_of(options.encode, file);
    reading.null_texts = options.null_texts;
    reading.progress = [&](std::size_t done, std::size_t all) { progress.show(done, all); };
    return table(file, columns, reading);
}

} // namespace host
