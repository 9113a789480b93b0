#include "host/vector/vector_texts.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <fmt/format.h>

#include "host/error.h"
#include "host/vector/stored_vector.h"

namespace host {

namespace {

// What the library parses to: elements that it has no parser for are made of doubles.
element_type parsed_type(element_type type) {
    return type == element_type::float_ || type == element_type::int8 ? type : element_type::double_;
}

std::string reason_of(ub4 status, ub4 dims, ub4 found) {
    switch (status) {
    case TAVO_BAD_NUMBER: return "a number is missing, malformed or beyond the type's range";
    case TAVO_OUT_OF_RANGE: return "its norm is beyond the range of double";
    default:
        return dims != 0 && found != 0 && found != dims
                   ? fmt::format("it has {} elements, the rows before it have {}", found, dims)
                   : "it is no vector: \"[0.5, -1, 2e3]\" is one";
    }
}

// One text by the library.
class text_parser {
public:
    text_parser(session &s, element_type type) : session_(s), ctx_(s.kernels().ctx()), type_(kind_of(type)) {
        if (ctx_.vector_parse == nullptr)
            throw error(s.kernels().path() + " has no operation tavo_vector_parse_dydi");
    }

    // dims 0: any number of elements, which becomes count().
    ub4 parse(std::string_view text, ub4 dims) {
        elements_.resize(std::max(elements_.size(), (text.size() / 2 + 1) * type_.width / 8)); // "1," is an element
        tavo_enc_ctx text_enc{}, enc{};
        tavo_vec in{}, out{}, norm{};
        tavo_env env{};
        env.host = session_.record();
        in.data = const_cast<char *>(text.data()); // read only
        in.byte_size = text.size();
        in.enc = &text_enc;
        enc.flags = TAVO_NATIVE;
        enc.value_type = static_cast<ub1>(type_.type);
        enc.vec_dims = dims;
        out.data = elements_.data();
        out.size = static_cast<ub4>(std::min<std::size_t>(text.size() / 2 + 1, ~0u));
        out.lengths = &count_;
        out.enc = &enc;
        norm.data = &norm_;
        const ub4 status = ctx_.vector_parse(&out, &norm, &in, nullptr, &env);
        session_.throw_raised();
        return status;
    }
    ub2 count() const { return count_; }
    double norm() const { return norm_; }
    void values(ub4 dims, std::vector<double> &to) const {
        read_elements({type_.type}, dims, elements_.data(), elements_.data() + dims * type_.width / 8, to);
    }
    std::string kernel() const { return std::string("tavo_vector_parse_ascii_") + type_.kernel_word; }
    unsigned width() const { return type_.width; }

private:
    session &session_;
    const tavo_specialized_ctx &ctx_;
    const element_kind &type_;
    std::vector<ub1> elements_;
    ub2 count_ = 0;
    double norm_ = 0;
};

// The element that a value becomes.
std::optional<ub8> element_of(element_type type, double value) {
    return element_bits(type, type == element_type::bits ? value > 0 : value);
}

void append(std::vector<ub1> &to, element_type type, std::vector<double> values) {
    if (type == element_type::bits)
        for (double &v : values)
            v = v > 0;
    append_elements(to, {type}, values);
}

// Plainly: false if it is no vector of so many dimensions. A ] before the last element separates, as for the library.
bool plain_vector_text(std::string_view text, ub4 dims, std::vector<double> &values) {
    const char *at = text.data(), *const end = at + text.size();
    const auto blanks = [&] {
        while (at < end && *at == ' ')
            at++;
    };
    values.clear();
    blanks();
    if (at == end || *at++ != '[')
        return false;
    for (;;) {
        blanks();
        const bool negative = at < end && *at == '-';
        at += at < end && (*at == '-' || *at == '+');
        double value = 0;
        if (at == end || !(*at == '.' || (*at >= '0' && *at <= '9')))
            return false;
        const auto [behind, problem] = std::from_chars(at, end, value);
        if (problem == std::errc::result_out_of_range) // too large or too small, which the C library tells apart
            value = std::strtod(std::string(at, behind).c_str(), nullptr);
        else if (problem != std::errc{})
            return false;
        if (behind < end && (*behind | 0x20) == 'e')
            return false;
        values.push_back(negative ? -value : value);
        at = behind;
        blanks();
        if (at == end || (*at != ',' && *at != ']'))
            return false;
        const bool closing = *at++ == ']';
        if (values.size() == dims) {
            blanks();
            return closing && at == end;
        }
    }
}

} // namespace

parsed_vectors parse_vectors(session &s, const csv_file &file, std::size_t words, std::size_t vectors,
                             element_type type, std::vector<query_step> &steps) {
    parsed_vectors out;
    text_parser parser(s, parsed_type(type));
    std::string made;
    std::vector<double> values;
    ub4 rows = 0;
    file.records([&](const std::vector<csv_field> &fields, const csv_reader &reader) {
        const std::string_view text = fields[vectors].value(made);
        rows++;
        out.text_bytes += text.size();
        const auto start = std::chrono::steady_clock::now();
        const ub4 status = parser.parse(text, out.dims);
        out.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const auto refuse = [&](const std::string &reason) { out.bad.push_back({reader.line(), reason}); };
        if (status != TAVO_DONE) {
            const bool counted = status == TAVO_BAD_SHAPE || status == TAVO_BAD_NUMBER;
            const ub2 found = counted && out.dims != 0 && parser.parse(text, 0) == TAVO_DONE ? parser.count() : 0;
            return refuse(reason_of(found != 0 ? +TAVO_BAD_SHAPE : status, out.dims, found));
        }
        std::string word = fields[words].value();
        if (word.find('\n') != word.npos)
            return refuse("its word has a line break");
        const ub4 dims = out.dims != 0 ? out.dims : parser.count();
        parser.values(dims, values);
        const std::size_t before = out.elements.size();
        try {
            append(out.elements, type, values);
        } catch (const error &e) {
            out.elements.resize(before);
            return refuse(e.what());
        }
        out.dims = dims;
        out.words.push_back(std::move(word));
        out.norms.push_back(parser.norm());
    });
    steps.push_back({parser.kernel(), file.columns()[vectors], parser.width(), "vectors from text", rows,
                     static_cast<ub4>(out.words.size()), out.seconds});
    if (out.words.empty())
        throw error(out.bad.empty() ? file.path() + ": there are no rows"
                                    : fmt::format("{}:{}: no row is a vector; of this one, {}", file.path(),
                                                  out.bad[0].line, out.bad[0].reason));
    return out;
}

std::string check_vectors(const csv_file &file, std::size_t words, std::size_t vectors, element_type type,
                          const parsed_vectors &parsed) {
    std::string difference, made;
    std::vector<double> values, stored;
    std::size_t row = 0, bad = 0;
    const std::size_t row_bytes = (std::size_t{parsed.dims} * kind_of(type).width + 7) / 8;
    file.records([&](const std::vector<csv_field> &fields, const csv_reader &reader) {
        if (!difference.empty())
            return;
        const auto differs = [&](const std::string &how) {
            difference = fmt::format("{}:{}: {}", file.path(), reader.line(), how);
        };
        const bool refused = bad < parsed.bad.size() && parsed.bad[bad].line == reader.line();
        bool good = plain_vector_text(fields[vectors].value(made), parsed.dims, values);
        for (const double v : values) // beyond the type, or so near its end that the last bits decide
            good = good && std::isfinite(v) && element_of(type, v) &&
                   (type != element_type::int8 || (v <= 127 && v >= -128));
        if (refused) {
            bad++;
            if (good && fields[words].value().find('\n') == std::string::npos)
                differs("the kernels refuse it, a plain reading does not");
            return;
        }
        if (!good)
            return differs("the kernels take it, a plain reading does not");
        if (parsed.words[row] != fields[words].value())
            return differs("its word is another one");
        const ub1 *const at = parsed.elements.data() + row * row_bytes;
        read_elements({type}, parsed.dims, at, at + row_bytes, stored);
        double squares = 0;
        for (ub4 i = 0; i < parsed.dims; i++) {
            squares += values[i] * values[i];
            const double slack = std::fabs(values[i]) * 0x1p-48;
            const auto rounded = [&](double v) {
                return type == element_type::int8 ? std::round(v)
                                                  : element_value(type, element_of(type, v).value_or(0));
            };
            if (!(rounded(values[i] - slack) <= stored[i] && stored[i] <= rounded(values[i] + slack)))
                return differs(
                    fmt::format("element {} is {} by the kernels and {} plainly", i + 1, stored[i], values[i]));
        }
        const double norm = std::sqrt(squares);
        // The norm of int8 is that of the rounded numbers.
        if (type != element_type::int8 && std::fabs(norm - parsed.norms[row]) > norm * 1e-12)
            return differs(fmt::format("its norm is {} by the kernels and {} plainly", parsed.norms[row], norm));
        row++;
    });
    if (difference.empty() && (row != parsed.words.size() || bad != parsed.bad.size()))
        difference = "another number of rows";
    return difference;
}

} // namespace host
