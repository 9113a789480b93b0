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
        const std::string form = equals == std::string::npos ? text : text.substr(equals + 1);
        const std::string column =
            equals == std::string::npos ? "" : file.columns()[file.column(text.substr(0, equals))];
        if (form == "plain")
            forms[column] = column_form::plain;
        else if (form == "spak")
            forms[column] = column_form::spak;
        else if (form == "rle")
            forms[column] = column_form::rle;
        else if (form == "fixed")
            forms[column] = column_form::fixed;
        else if (form == "dynp")
            forms[column] = column_form::dynp;
        else if (form == "text" && !column.empty())
            forms[column] = column_form::texts;
        else if (form == "text")
            throw error("--encode text is for one column: --encode COLUMN=text");
        else if (form == "auto")
            forms[column] = std::nullopt; // also where another form is asked for all others
        else
            throw error(fmt::format("--encode {}: the forms are auto, plain, spak, rle, fixed, dynp and text", text));
    }
    return forms;
}

// --type COLUMN=TYPE
std::map<std::string, value_type> types_of(const std::vector<std::string> &asked, const csv_file &file) {
    std::map<std::string, value_type> types;
    for (const std::string &text : asked) {
        const std::size_t equals = text.rfind('=');
        if (equals == std::string::npos)
            throw error(fmt::format("--type {}: it is written --type COLUMN=TYPE", text));
        const auto type = type_named(text.substr(equals + 1));
        if (!type)
            throw error(fmt::format("--type {}: the types are integer, decimal, date, date-time and text", text));
        types[file.columns()[file.column(text.substr(0, equals))]] = *type;
    }
    return types;
}

char delimiter_of(const std::string &text) {
    if (text.empty())
        return 0;
    if (text == "tab" || text == "\\t")
        return '\t';
    if (text.size() != 1 || text == "\"" || text == "\n" || text == "\r")
        throw error(fmt::format("--delimiter '{}': a single character, or tab; no quote and no line end", text));
    return text[0];
}

} // namespace

const char *const about_files =
    "Files: CSV, fields separated by commas, semicolons, tabs or bars, in \"quotes\" where they need them. An empty\n"
    "field is null. A column is of the narrowest type that all of its values belong to: integer, decimal, date\n"
    "(2001-04-30), date-time (2001-04-30 06:15, a T and a zone allowed), text. Limits: 4,294,967,294 rows, 65,535\n"
    "bytes a value, 4 GiB of different values a column; up to three times the file's size in memory.";

void add_table_options(CLI::App &app, table_options &options) {
    app.add_option("FILE", options.file, "CSV file, - for standard input; its first line names the columns")
        ->required();
    app.add_option("--null", options.null_texts, "A field with this text is null too")->allow_extra_args(false);
    app.add_option("--type", options.types,
                   "COLUMN=TYPE, a type that is not to be found from the values: integer, decimal, date, date-time "
                   "or text")
        ->allow_extra_args(false);
    app.add_option("--delimiter", options.delimiter,
                   "The character between fields, or tab; otherwise found: a comma, semicolon, tab or bar");
    app.add_flag("--no-header", options.no_header,
                 "The first line is a row like the others; columns are called column_1, column_2, ...");
    app.add_option("--encode", options.encode,
                   "Form of the columns: auto, plain, spak or rle, of numbers and dates also fixed or dynp; of one: "
                   "COLUMN=FORM, also text, without a dictionary, if it is grouped by")
        ->allow_extra_args(false);
}

csv_file open_csv(const table_options &options) {
    csv_options reading;
    reading.delimiter = delimiter_of(options.delimiter);
    reading.header = !options.no_header;
    csv_file file(options.file, reading);
    for (const std::string &note : file.notes())
        tell(fmt::format("{}: {}", file.path(), note));
    return file;
}

std::vector<std::size_t> all_columns(const csv_file &file) {
    std::vector<std::size_t> numbers(file.columns().size());
    std::iota(numbers.begin(), numbers.end(), std::size_t{0});
    return numbers;
}

std::vector<std::size_t> column_list(const csv_file &file, const std::string &list) {
    std::vector<std::size_t> numbers;
    for (std::size_t at = 0;; at++) { // at a name, and then at the comma behind it
        at = std::min(list.find_first_not_of(' ', at), list.size());
        std::string name;
        if (at < list.size() && list[at] == '"') {
            for (at++;; name += list[at++]) {
                if (at >= list.size())
                    throw error(fmt::format("--columns {}: a quote is opened and never closed", list));
                if (list[at] != '"')
                    continue;
                at++; // behind the closing quote, or at the second of two
                if (at == list.size() || list[at] != '"')
                    break;
            }
            at = std::min(list.find_first_not_of(' ', at), list.size());
        } else {
            const std::size_t end = std::min(list.find(',', at), list.size());
            name = trimmed(std::string_view(list).substr(at, end - at));
            at = end;
        }
        if (name.empty())
            throw error(list.empty() ? "--columns: the list is empty; without the option all columns are printed"
                                     : fmt::format("--columns {}: a name is missing", list));
        numbers.push_back(file.column(name));
        if (at == list.size())
            return numbers;
        if (list[at] != ',')
            throw error(fmt::format("--columns {}: a comma is missing behind '{}'", list, name));
    }
}

table read_table(const csv_file &file, const std::vector<std::size_t> &columns, const table_options &options,
                 bool numbers, const std::vector<std::size_t> &texts) {
    progress_line progress(options.file);
    read_options reading;
    reading.form_of = forms_of(options.encode, file);
    reading.type_of = types_of(options.types, file);
    reading.null_texts = options.null_texts;
    reading.numbers = numbers;
    reading.texts = texts;
    reading.progress = [&](std::size_t done, std::size_t all) { progress.show(done, all); };
    return table(file, columns, reading);
}

ub8 bytes_of(const std::string &text, const char *option) {
    std::size_t digits = 0;
    while (digits < text.size() && digits < 15 && text[digits] >= '0' && text[digits] <= '9')
        digits++;
    const std::string unit = text.substr(digits);
    const unsigned shift = unit == "K" ? 10 : unit == "M" ? 20 : unit == "G" ? 30 : 0;
    if (digits == 0 || digits == 15 || (shift == 0 && !unit.empty()))
        throw error(fmt::format("{} {}: expected a number of bytes, or one with K, M or G", option, text));
    const ub8 number = std::stoull(text);
    if (number > ~0ull >> shift)
        throw error(fmt::format("{} {}: more than 64 bits", option, text));
    return number << shift;
}

} // namespace host
