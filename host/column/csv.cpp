#include "host/column/csv.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/column/names.h"
#include "host/column/text_file.h"
#include "host/error.h"

namespace host {

std::string_view csv_field::make_value(std::string &made) const {
    made = text;
    std::size_t to = 0;
    for (std::size_t from = 0; from < text.size(); from++) {
        made[to++] = text[from];
        if (text[from] == '"')
            from++;
    }
    made.resize(to);
    return made;
}

std::string csv_field::value() const {
    std::string made;
    return std::string(value(made));
}

csv_reader::csv_reader(std::string_view text, std::string name, char delimiter)
    : text_(text), name_(std::move(name)), delimiter_(delimiter) {
    if (text_.starts_with("\xef\xbb\xbf")) // byte order mark of UTF-8
        position_ = 3;
    for (const char c : {delimiter, '\n', '\r', '"'})
        ends_field_[static_cast<unsigned char>(c)] = true;
}

void csv_reader::fail(std::size_t line, const std::string &what) const {
    throw error(fmt::format("{}: line {}: {}", name_, line, what));
}

bool csv_reader::line_ends_at(std::size_t position) const {
    if (position == text_.size() || text_[position] == '\n')
        return true;
    return text_[position] == '\r' && (position + 1 == text_.size() || text_[position + 1] == '\n');
}

bool csv_reader::only_empty_lines_from(std::size_t position) const {
    return text_.find_first_not_of("\r\n", position) == std::string_view::npos;
}

// At the opening quote; ends behind the closing one.
csv_field csv_reader::quoted_field() {
    const std::size_t opening_line = line_, first = ++position_;
    bool doubled = false;
    for (; position_ < text_.size(); position_++) {
        if (text_[position_] == '\n')
            line_++;
        if (text_[position_] != '"')
            continue;
        if (position_ + 1 == text_.size() || text_[position_ + 1] != '"') {
            const csv_field field{text_.substr(first, position_ - first), doubled, true};
            position_++;
            if (!line_ends_at(position_) && text_[position_] != delimiter_)
                fail(line_, "text behind a closing quote");
            return field;
        }
        doubled = true;
        position_++;
    }
    fail(opening_line, "a quote is opened and never closed");
}

bool csv_reader::next(std::vector<csv_field> &fields) {
    fields.clear();
    if (position_ >= text_.size())
        return false;
    if (line_ends_at(position_) && only_empty_lines_from(position_)) {
        position_ = text_.size();
        return false;
    }
    record_begin_ = position_;
    record_line_ = line_;
    for (;;) {
        if (position_ < text_.size() && text_[position_] == '"') {
            fields.push_back(quoted_field());
        } else {
            const std::size_t first = position_;
            for (; position_ < text_.size(); position_++) {
                const char c = text_[position_];
                if (!ends_field_[static_cast<unsigned char>(c)])
                    continue;
                if (c == '"')
                    fail(line_, "a quote inside a field that does not begin with one");
                if (c != '\r' || line_ends_at(position_))
                    break;
            }
            fields.push_back({text_.substr(first, position_ - first)});
        }
        if (position_ == text_.size() || text_[position_] != delimiter_)
            break;
        position_++;
    }
    if (position_ < text_.size() && text_[position_] == '\r')
        position_++;
    if (position_ < text_.size()) {
        position_++;
        line_++;
    }
    return true;
}

char find_delimiter(std::string_view text) {
    constexpr std::size_t records = 20, bytes = 1 << 16;
    char found = ',', in_first = ',';
    std::size_t most = 1, most_in_first = 1;
    for (const char delimiter : {',', ';', '\t', '|'}) {
        std::size_t fields = 0;
        try {
            // A record that is cut at the end of the piece is not looked at.
            const std::string_view piece = text.substr(0, text.size() > bytes ? text.rfind('\n', bytes) : text.size());
            csv_reader reader(piece, "", delimiter);
            std::vector<csv_field> record;
            for (std::size_t i = 0; i < records && reader.next(record); i++) {
                if (i > 0 && record.size() != fields)
                    throw error("not the same number of fields");
                fields = record.size();
                if (i == 0 && fields > most_in_first) {
                    in_first = delimiter;
                    most_in_first = fields;
                }
            }
        } catch (const error &) {
            continue;
        }
        if (fields > most) {
            found = delimiter;
            most = fields;
        }
        if (delimiter == ',' && most_in_first > 1 && fields == most_in_first)
            break;
    }
    return most > 1 ? found : in_first;
}

namespace {
block<char> copy_of(std::string_view content) {
    block<char> copy;
    copy.append(content.data(), content.size());
    return copy;
}
} // namespace

csv_file::csv_file(const std::string &path, const csv_options &options)
    : csv_file(path, read_text_file(path), options) {}

csv_file::csv_file(const std::string &name, std::string_view content, const csv_options &options)
    : csv_file(name, copy_of(content), options) {}

csv_file::csv_file(const std::string &name, block<char> content, const csv_options &options)
    : path_(name), text_(std::move(content)), delimiter_(options.delimiter), header_(options.header) {
    refuse_other_formats(path_, text());
    if (delimiter_ == 0)
        delimiter_ = find_delimiter(text());
    read_header();
}

void csv_file::read_header() {
    csv_reader reader(text(), path_, delimiter_);
    std::vector<csv_field> fields;
    if (!reader.next(fields))
        throw error(path_ +
                    (header_ ? ": the file is empty; its first line must name the columns" : ": the file is empty"));
    if (!header_) {
        for (std::size_t i = 0; i < fields.size(); i++)
            columns_.push_back(fmt::format("column_{}", i + 1));
        return;
    }
    std::vector<std::string> names;
    for (const csv_field &field : fields)
        names.push_back(field.value());
    columns_ = made_names(std::move(names), notes_);
}

csv_reader csv_file::reader() const {
    csv_reader reader(text(), path_, delimiter_);
    if (std::vector<csv_field> header; header_)
        reader.next(header);
    return reader;
}

void csv_file::wrong_fields(std::size_t line, std::size_t fields) const {
    throw error(fmt::format("{}: line {}: {} field{} where the {} has {}", path_, line, fields, fields == 1 ? "" : "s",
                            header_ ? "header" : "first line", columns_.size()));
}

std::size_t csv_file::column(std::string_view name) const {
    if (const auto number = find_name(name, columns_))
        return *number;
    throw error(fmt::format("{}: there is no column '{}'{}", path_, name, instead_of(name, columns_, "columns")));
}

void append_csv(std::string &line, std::string_view value) {
    if (value.find_first_of(",\"\r\n") == std::string_view::npos) {
        line += value;
        return;
    }
    line += '"';
    for (char c : value) {
        if (c == '"')
            line += '"';
        line += c;
    }
    line += '"';
}

} // namespace host
