#include "host/vector/word_search.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>

#include "host/error.h"
#include "host/query/predicate.h"

namespace host {

std::vector<double> parse_vector(std::string_view text, ub4 dims) {
    const char *const begin = text.data(), *const end = begin + text.size(), *at = begin;
    const auto fail = [&](const char *where, const std::string &what) {
        fail_at(text, static_cast<std::size_t>(where - begin), what);
    };
    const auto skip_blanks = [&] {
        while (at < end && (*at == ' ' || (*at >= '\t' && *at <= '\r')))
            at++;
    };
    skip_blanks();
    if (at == end || *at != '[')
        fail(at, "a vector begins with '['");
    at++;
    std::vector<double> values;
    for (char behind = ','; behind == ',';) {
        skip_blanks();
        const char *const number = at;
        if (end - at > 1 && *at == '+' && at[1] != '-')
            at++;
        double value = 0;
        const auto [stop, problem] = std::from_chars(at, end, value);
        if (problem == std::errc::result_out_of_range || (problem == std::errc{} && !std::isfinite(value)))
            fail(number, "no number that a vector can hold");
        if (problem != std::errc{})
            fail(number, "expected a number");
        values.push_back(value);
        at = stop;
        skip_blanks();
        behind = at < end ? *at : '\0';
        if (behind != ',' && behind != ']')
            fail(at, "expected ',' or ']'");
        at++;
    }
    skip_blanks();
    if (at != end)
        fail(at, "nothing may stand behind the ']'");
    if (values.size() != dims)
        throw error(fmt::format("the query has {} dimension{}, the words' vectors have {}", values.size(),
                                values.size() == 1 ? "" : "s", dims));
    return values;
}

word_search::word_search(const word_vectors &words, element_type type, std::vector<double> query)
    : type_(type), query_({type}, words.dims()) {
    std::vector<double> values;
    if (type == words.type()) {
        rows_ = std::make_unique<vector_column>(vector_form{type}, words.dims(), words.vectors(), words.rows());
    } else {
        if (type == element_type::int8) {
            double largest = 0;
            const auto take = [&](const std::vector<double> &v) {
                for (const double value : v)
                    largest = std::max(largest, std::fabs(value)); // passes over a NaN, which is refused below
            };
            take(query);
            for (ub4 row = 0; row < words.rows(); row++) {
                words.read(row, values);
                take(values);
            }
            factor_ = largest > 0 && std::isfinite(largest) ? 127 / largest : 1;
        }
        rows_ = std::make_unique<vector_column>(vector_form{type}, words.dims());
        rows_->reserve((std::size_t{words.dims()} * kind_of(type).width + 7) / 8 * words.rows());
        for (ub4 row = 0; row < words.rows(); row++) {
            words.read(row, values);
            convert(values);
            try {
                rows_->add(values);
            } catch (const error &e) {
                throw error(fmt::format("{}: the vector of '{}': {}", words.path(), words.words()[row], e.what()));
            }
        }
    }
    if (type != words.type())
        convert(query);
    try {
        query_.add(query);
    } catch (const error &e) {
        throw error(std::string("the query: ") + e.what());
    }
}

void word_search::convert(std::vector<double> &values) const {
    for (double &value : values)
        value = type_ == element_type::bits ? value > 0 : value * factor_;
}

csv_file word_table(const word_vectors &words) {
    std::string text = "word,first,length,rank\n";
    for (ub4 row = 0; row < words.rows(); row++) {
        const std::string_view word = words.words()[row];
        // UTF-8: the bytes behind a letter's first one have 10 as their top bits.
        const auto begins_letter = [](char c) { return (static_cast<ub1>(c) & 0xc0) != 0x80; };
        const auto second = word.empty() ? word.end() : std::find_if(word.begin() + 1, word.end(), begins_letter);
        append_csv(text, word);
        text += ',';
        append_csv(text, word.substr(0, static_cast<std::size_t>(second - word.begin())));
        text += fmt::format(",{},{}\n", std::count_if(word.begin(), word.end(), begins_letter), row + 1);
    }
    return csv_file(words.path(), text, {.delimiter = ','});
}

} // namespace host
