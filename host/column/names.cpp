#include "host/column/names.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unordered_set>

#include "host/column/value_type.h"

namespace host {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool same_letters(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lower(x) == lower(y); });
}

// Edit distance with neighbours exchanged as one edit, letters compared without case.
std::size_t edits(std::string_view a, std::string_view b) {
    std::vector<std::size_t> before_last(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); j++)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); i++) {
        std::swap(before_last, last);
        std::swap(last, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); j++) {
            row[j] = std::min({last[j - 1] + (lower(a[i - 1]) != lower(b[j - 1])), last[j] + 1, row[j - 1] + 1});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1]))
                row[j] = std::min(row[j], before_last[j - 2] + 1);
        }
    }
    return row.back();
}

} // namespace

std::vector<std::string> made_names(std::vector<std::string> header, std::vector<std::string> &notes) {
    std::unordered_set<std::string> taken, given;
    for (std::string &name : header) {
        name = trimmed(name);
        given.insert(name);
    }
    for (std::size_t i = 0; i < header.size(); i++) {
        std::string name = header[i].empty() ? fmt::format("column_{}", i + 1) : header[i];
        // A name that the header has is not taken away from the column that it belongs to.
        for (unsigned n = 2; taken.contains(name) || (header[i] != name && given.contains(name)); n++)
            name = fmt::format("{}_{}", header[i].empty() ? fmt::format("column_{}", i + 1) : header[i], n);
        if (header[i].empty())
            notes.push_back(fmt::format("column {} has no name and is called {}", i + 1, name));
        else if (name != header[i])
            notes.push_back(
                fmt::format("column {} is the second one or later named {} and is called {}", i + 1, header[i], name));
        taken.insert(name);
        header[i] = std::move(name);
    }
    return header;
}

std::optional<std::size_t> find_name(std::string_view name, const std::vector<std::string> &names) {
    if (const auto found = std::find(names.begin(), names.end(), name); found != names.end())
        return static_cast<std::size_t>(found - names.begin());
    std::optional<std::size_t> only;
    for (std::size_t i = 0; i < names.size(); i++)
        if (same_letters(name, names[i])) {
            if (only)
                return std::nullopt;
            only = i;
        }
    return only;
}

std::vector<std::string> near_names(std::string_view name, const std::vector<std::string> &names) {
    std::vector<std::pair<std::size_t, std::string>> near;
    for (const std::string &candidate : names) {
        const std::size_t distance = edits(name, candidate);
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

std::string instead_of(std::string_view name, const std::vector<std::string> &names, const char *what_they_are) {
    constexpr std::size_t shown = 12;
    if (const std::vector<std::string> near = near_names(name, names); !near.empty())
        return fmt::format("; did you mean {}?", fmt::join(near, " or "));
    const auto end = names.begin() + static_cast<std::ptrdiff_t>(std::min(shown, names.size()));
    return fmt::format("; the {} are {}{}", what_they_are, fmt::join(names.begin(), end, ", "),
                       names.size() > shown ? fmt::format(", ... and {} more", names.size() - shown) : "");
}

} // namespace host
