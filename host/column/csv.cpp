#include "host/column/csv.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <memory>
#include <sys/stat.h>

#include "host/error.h"

namespace host {

std::string csv_field::value() const {
    std::string value(text);
    if (doubled) {
        std::size_t to = 0;
        for (std::size_t from = 0; from < text.size(); from++) {
            value[to++] = text[from];
            if (text[from] == '"')
                from++;
        }
        value.resize(to);
    }
    return value;
}

csv_reader::csv_reader(std::string_view text, std::string name) : text_(text), name_(std::move(name)) {
    if (text_.starts_with("\xff\xfe") || text_.starts_with("\xfe\xff"))
        throw error(name_ + ": the file is UTF-16; only UTF-8 and single-byte texts can be read");
    if (text_.starts_with("\xef\xbb\xbf")) // byte order mark of UTF-8
        position_ = 3;
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
            const csv_field field{text_.substr(first, position_ - first), doubled};
            position_++;
            if (!line_ends_at(position_) && text_[position_] != ',')
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
            for (; position_ < text_.size() && text_[position_] != ',' && text_[position_] != '\n'; position_++) {
                if (text_[position_] == '"')
                    fail(line_, "a quote inside a field that does not begin with one");
                if (text_[position_] == '\r' && line_ends_at(position_))
                    break;
            }
            fields.push_back({text_.substr(first, position_ - first)});
        }
        if (position_ == text_.size() || text_[position_] != ',')
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

csv_file::csv_file(const std::string &path) : path_(path) {
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "rb"), std::fclose);
    struct stat status {};
    if (file == nullptr || fstat(fileno(file.get()), &status) != 0)
        throw error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    if (S_ISDIR(status.st_mode))
        throw error(fmt::format("cannot read {}: it is a folder", path));
    if (S_ISREG(status.st_mode))
        text_.reserve(static_cast<std::size_t>(status.st_size) + 1);
    for (std::size_t chunk = 1 << 20;;) {
        const std::size_t before = text_.size();
        text_.resize(before + chunk);
        const std::size_t got = std::fread(text_.data() + before, 1, chunk, file.get());
        text_.resize(before + got);
        if (got == 0)
            break;
    }
    if (std::ferror(file.get()))
        throw error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    read_header();
}

csv_file::csv_file(const std::string &name, std::string content) : path_(name), text_(std::move(content)) {
    read_header();
}

void csv_file::read_header() {
    csv_reader reader(std::string_view(text_), path_);
    std::vector<csv_field> fields;
    if (!reader.next(fields))
        throw error(path_ + ": the file is empty; its first line must name the columns");
    for (const csv_field &field : fields) {
        std::string name = field.value();
        if (name.empty())
            throw error(fmt::format("{}: line 1: column {} has no name", path_, columns_.size() + 1));
        if (std::find(columns_.begin(), columns_.end(), name) != columns_.end())
            throw error(fmt::format("{}: line 1: two columns are named '{}'", path_, name));
        columns_.push_back(std::move(name));
    }
}

void csv_file::wrong_fields(std::size_t line, std::size_t fields) const {
    throw error(fmt::format("{}: line {}: {} field{} where the header has {}", path_, line, fields,
                            fields == 1 ? "" : "s", columns_.size()));
}

std::size_t csv_file::column(std::string_view name) const {
    const auto found = std::find(columns_.begin(), columns_.end(), name);
    if (found != columns_.end())
        return static_cast<std::size_t>(found - columns_.begin());
    const std::vector<std::string> near = near_names(name, columns_);
    if (!near.empty())
        throw error(fmt::format("{}: there is no column '{}'; did you mean {}?", path_, name, fmt::join(near, " or ")));
    throw error(fmt::format("{}: there is no column '{}'; the columns are {}", path_, name, fmt::join(columns_, ", ")));
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

std::vector<std::string> near_names(std::string_view name, const std::vector<std::string> &names) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    std::vector<std::pair<std::size_t, std::string>> near;
    for (const std::string &candidate : names) {
        // Edit distance, letters compared without case.
        std::vector<std::size_t> row(candidate.size() + 1);
        for (std::size_t j = 0; j < row.size(); j++)
            row[j] = j;
        for (std::size_t i = 1; i <= name.size(); i++) {
            std::size_t diagonal = row[0];
            row[0] = i;
            for (std::size_t j = 1; j < row.size(); j++) {
                const std::size_t replaced = diagonal + (lower(name[i - 1]) != lower(candidate[j - 1]));
                diagonal = row[j];
                row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
            }
        }
        const std::size_t distance = row.back();
        const bool part = name.size() >= 3 && candidate.find(name) != std::string::npos;
        if (part || distance <= std::max<std::size_t>(1, name.size() / 3))
            near.emplace_back(distance, candidate);
    }
    std::stable_sort(near.begin(), near.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<std::string> best;
    for (std::size_t i = 0; i < near.size() && i < 3; i++)
        best.push_back(near[i].second);
    return best;
}

} // namespace host
