// Reading CSV strictly: fields separated by commas, records by LF or CRLF; a field that begins with a quote ends with
// one, and may hold commas, line breaks and doubled quotes. Anything else about quotes is an error with its line
// number.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace host {

struct csv_field {
    std::string_view text; // between the quotes, if it was quoted
    bool doubled = false;  // text holds doubled quotes, each of which stands for one

    std::string value() const; // with doubled quotes made single
};

class csv_reader {
public:
    // Reads `text`, which must outlive the reader and the fields that it hands out. `name` stands before messages.
    csv_reader(std::string_view text, std::string name);

    // The next record; false after the last. Empty lines at the end are no records.
    bool next(std::vector<csv_field> &fields);

    std::size_t line() const { return record_line_; }   // on which the record just read begins, from 1
    std::size_t begin() const { return record_begin_; } // where it begins in the text
    std::size_t end() const { return position_; }       // where the next one begins

private:
    csv_field quoted_field();
    [[noreturn]] void fail(std::size_t line, const std::string &what) const;
    bool line_ends_at(std::size_t position) const;
    bool only_empty_lines_from(std::size_t position) const;

    std::string_view text_;
    std::string name_;
    std::size_t position_ = 0, line_ = 1;
    std::size_t record_begin_ = 0, record_line_ = 1;
};

// A CSV file in memory. Records are read with records(), which checks that each has as many fields as the header.
class csv_file {
public:
    explicit csv_file(const std::string &path);             // reads the file and its header
    csv_file(const std::string &name, std::string content); // content already in memory

    const std::string &path() const { return path_; }
    const std::vector<std::string> &columns() const { return columns_; }
    std::string_view text() const { return text_; }

    // Number of a column. Throws, naming the columns that are spelt alike, if there is none of that name.
    std::size_t column(std::string_view name) const;

    // Calls row(fields, begin, end) for each record behind the header, in order.
    template <class Row>
    void records(Row row) const {
        csv_reader reader(std::string_view(text_), path_);
        std::vector<csv_field> fields;
        reader.next(fields);
        while (reader.next(fields)) {
            if (fields.size() != columns_.size())
                wrong_fields(reader.line(), fields.size());
            row(fields, reader);
        }
    }

private:
    void read_header();
    [[noreturn]] void wrong_fields(std::size_t line, std::size_t fields) const;

    std::string path_;
    std::string text_;
    std::vector<std::string> columns_;
};

// Appends a field to a line of output, in quotes where CSV needs them.
void append_csv(std::string &line, std::string_view value);

// Appends a line of field(0), field(1), ... up to the number of fields.
template <class Field>
void append_csv_line(std::string &text, std::size_t fields, Field field) {
    if (fields == 1 && field(0).empty())
        text += "\"\""; // an empty line would be no row
    else
        for (std::size_t i = 0; i < fields; i++) {
            text += i == 0 ? "" : ",";
            append_csv(text, field(i));
        }
    text += '\n';
}

// The names among `names` that `name` may have been meant for, best first, at most three.
std::vector<std::string> near_names(std::string_view name, const std::vector<std::string> &names);

} // namespace host
