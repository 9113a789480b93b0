#include "host/command/text_table.h"

#include <algorithm>

namespace host {

namespace {

// Places that a text takes on a screen: continuation bytes of UTF-8 take none.
std::size_t places(const std::string &text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

} // namespace

std::string text_table::text() const {
    std::vector<std::string> names;
    std::vector<std::size_t> room;
    for (const heading &h : headings_) {
        names.push_back(h.name);
        room.push_back(places(h.name));
    }
    for (const auto &row : rows_)
        for (std::size_t i = 0; i < room.size(); i++)
            room[i] = std::max(room[i], places(row[i]));

    std::string text;
    auto add_line = [&](const std::vector<std::string> &entries) {
        for (std::size_t i = 0; i < room.size(); i++) {
            const std::string spaces(room[i] - places(entries[i]), ' ');
            text += i == 0 ? "" : "  ";
            text += headings_[i].entries == side::left ? entries[i] + spaces : spaces + entries[i];
        }
        text.resize(text.find_last_not_of(' ') + 1);
        text += '\n';
    };
    add_line(names);
    for (const auto &row : rows_)
        add_line(row);
    return text;
}

} // namespace host
