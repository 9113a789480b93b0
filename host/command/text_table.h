// A table of text for people: columns as wide as their widest entry.
#pragma once

#include <string>
#include <vector>

namespace host {

class text_table {
public:
    enum class side { left, right };
    struct heading {
        std::string name;
        side entries = side::right;
    };
    explicit text_table(std::vector<heading> headings) : headings_(std::move(headings)) {}

    // As many entries as there are headings.
    void add_row(std::vector<std::string> entries) { rows_.push_back(std::move(entries)); }
    // The headings' line and one for each row, without spaces at their ends.
    std::string text() const;

private:
    std::vector<heading> headings_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace host
