// A CSV file with some of its columns encoded.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/column/column.h"
#include "host/column/csv.h"
#include "host/column/number_column.h"
#include "host/column/text_column.h"

namespace host {

// The form that a column is to have, by its name; of the name "" for all others. Where that is nothing, or there is no
// entry at all, it is chosen.
using forms = std::map<std::string, std::optional<column_form>>;

struct read_options {
    forms form_of;
    std::vector<std::string> null_texts;       // fields that are null besides the empty one, spaces around them or not
    std::map<std::string, value_type> type_of; // of columns whose type is not to be found from their values
    // Whether columns may be of form fixed or dynp, without a dictionary.
    bool numbers = false;
    // Told now and then how many bytes of the file are behind us; may be empty.
    std::function<void(std::size_t done, std::size_t all)> progress;
    std::vector<std::size_t> texts = {}; // columns that may be of form text
};

class table {
public:
    static constexpr ub4 most_rows = 0xfffffffe; // row numbers are 32 bits wide

    table(const csv_file &file, const std::vector<std::size_t> &columns, const read_options &options);
    // Of columns that were encoded elsewhere, one for each name of the file, all with so many rows.
    table(const csv_file &names, ub4 rows, std::vector<std::unique_ptr<column>> columns);

    const csv_file &file() const { return file_; }
    ub4 rows() const { return rows_; }
    // One of the three for a column that was asked for: with a dictionary, of numbers without one, of texts.
    column *encoded(std::size_t number) const { return columns_[number].get(); }
    number_column *numbers(std::size_t number) const { return numbers_[number].get(); }
    text_column *texts(std::size_t number) const { return texts_[number].get(); }
    value_type type(std::size_t number) const {
        return texts_[number] ? texts_[number]->type() : stored(number)->type();
    }
    // Either of the first two.
    stored_column *stored(std::size_t number) const {
        return columns_[number] ? static_cast<stored_column *>(encoded(number)) : numbers(number);
    }

private:
    const csv_file &file_;
    ub4 rows_ = 0;
    std::vector<std::unique_ptr<column>> columns_;
    std::vector<std::unique_ptr<number_column>> numbers_;
    std::vector<std::unique_ptr<text_column>> texts_;
};

// Is the field null: empty, or one of these texts?
bool is_null(std::string_view value, const std::vector<std::string> &null_texts);

} // namespace host
