// Reading CSV strictly: fields separated by commas or another character, records by LF or CRLF; a field that begins
// with a quote ends with one, and may hold separators, line breaks and doubled quotes. Anything else about quotes is an
// error with its line number.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/column/block.h"

namespace host {

struct csv_field {
    std::string_view text; // between the quotes, if it was quoted
    bool doubled = false;  // text holds doubled quotes, each of which stands for one
    bool quoted = false;

    std::string value() const; // with doubled quotes made single
    // The same without a copy where it can be: `made` holds the text if it had to be made.
    std::string_view value(std::string &made) const { return doubled ? make_value(made) : text; }

private:
    std::string_view make_value(std::string &made) const;
};

class csv_reader {
public:
    // Reads `text`, which must outlive the reader and the fields that it hands out. `name` stands before messages.
    csv_reader(std::string_view text, std::string name, char delimiter = ',');

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
    char delimiter_;
    std::array<bool, 256> ends_field_{}; // or is not allowed within one
    std::size_t position_ = 0, line_ = 1;
    std::size_t record_begin_ = 0, record_line_ = 1;
};

// The field of a text that begins at a place where a reader has found one.
inline csv_field field_at(std::string_view text, std::size_t place, char delimiter) {
    const char *const end = text.data() + text.size(), *const begin = text.data() + place, *c = begin;
    if (c < end && *c == '"') {
        bool doubled = false;
        for (c++; c < end; c++)
            if (*c == '"') {
                if (c + 1 == end || c[1] != '"')
                    break;
                doubled = true;
                c++;
            }
        return {{begin + 1, static_cast<std::size_t>(c - begin - 1)}, doubled, true};
    }
    while (c < end && *c != delimiter && *c != '\n' && (*c != '\r' || (c + 1 < end && c[1] != '\n')))
        c++;
    return {{begin, static_cast<std::size_t>(c - begin)}};
}

struct csv_options {
    char delimiter = 0; // found from the first records if 0: a comma, semicolon, tab or bar
    bool header = true; // the first record names the columns
};

// A CSV file in memory. Records are read with records(), which checks that each has as many fields as the header.
class csv_file {
public:
    explicit csv_file(const std::string &path, const csv_options & = {}); // reads the file, "-" being standard input
    csv_file(const std::string &name, std::string_view content, const csv_options & = {}); // a copy of the content

    const std::string &path() const { return path_; }
    const std::vector<std::string> &columns() const { return columns_; }
    // What its user should know: names that were made for columns.
    const std::vector<std::string> &notes() const { return notes_; }
    std::string_view text() const { return {text_.data(), text_.size()}; }
    char delimiter() const { return delimiter_; }
    // Gives the text's memory back, when its columns are encoded and nothing reads it any more; names stay.
    void forget_text() { text_.clear(); }

    // Number of a column; the case of letters does not matter where there is only one such name. Throws, naming the
    // columns that are spelt alike, if there is none of that name.
    std::size_t column(std::string_view name) const;

    // The next record behind the header, by a reader from reader(); false after the last. Throws if it does not have as
    // many fields as the header.
    bool next(csv_reader &reader, std::vector<csv_field> &fields) const {
        if (!reader.next(fields))
            return false;
        if (fields.size() != columns_.size())
            wrong_fields(reader.line(), fields.size());
        return true;
    }
    // Behind the header.
    csv_reader reader() const;

    // Calls row(fields, reader) for each record behind the header, in order.
    template <class Row>
    void records(Row row) const {
        csv_reader records = reader();
        for (std::vector<csv_field> fields; next(records, fields);)
            row(fields, records);
    }

private:
    csv_file(const std::string &name, block<char> content, const csv_options &);
    void read_header();
    [[noreturn]] void wrong_fields(std::size_t line, std::size_t fields) const;

    std::string path_;
    block<char> text_;
    char delimiter_;
    bool header_;
    std::vector<std::string> columns_, notes_;
};

// The character that separates the fields of a text, judged by its first records: a comma if they have one number of
// fields by it, at least two; else the one of ; tab | that makes most fields of each. If none of them does so, as in a
// file with a faulty record, the one that makes most of the first record.
char find_delimiter(std::string_view text);

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

} // namespace host
