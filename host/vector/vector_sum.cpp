#include "host/vector/vector_sum.h"

#include <chrono>
#include <fmt/format.h>

#include "host/error.h"
#include "host/query/predicate.h"
#include "host/vector/vector_column.h"

namespace host {

namespace {

element_type sum_type(const word_vectors &words) {
    return words.type() == element_type::double_ ? element_type::double_ : element_type::float_;
}

} // namespace

std::vector<sum_term> parse_sum(std::string_view text, const word_vectors &words) {
    std::vector<sum_term> terms;
    // The whole text may be a word of the file, whatever it looks like.
    for (std::size_t row = 0; row < words.words().size(); row++)
        if (words.words()[row] == text)
            return {{static_cast<ub4>(row), false}};
    bool wants_word = true, subtracted = false;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == ' ' || text[at] == '\t') {
            at++;
            continue;
        }
        const std::size_t end = std::min(text.find_first_of(" \t", at), text.size());
        const std::string_view token = text.substr(at, end - at);
        if (token == "+" || token == "-") {
            if (wants_word)
                fail_at(text, at, terms.empty() ? "a sum begins with a word" : "expected a word");
            subtracted = token == "-";
        } else {
            if (!wants_word)
                fail_at(text, at, "expected + or - between two words");
            terms.push_back({words.row_of(token), subtracted});
        }
        wants_word = !wants_word;
        at = end;
    }
    if (wants_word)
        fail_at(text, text.size(), terms.empty() ? "expected a word" : "a word is missing at the end");
    return terms;
}

std::vector<double> vector_sum(session &s, const word_vectors &words, const std::vector<sum_term> &terms,
                               std::vector<query_step> &steps) {
    const tavo_specialized_ctx &ctx = s.kernels().ctx();
    const element_kind &kind = kind_of(sum_type(words));
    std::vector<double> values;
    words.read(terms[0].row, values);
    if (terms.size() == 1)
        return values;
    if (ctx.vector_arith == nullptr)
        throw error(s.kernels().path() + " has no operation tavo_vector_arith_dydi");
    const vector_form form{kind.type};
    const auto bytes_of = [&](ub4 row) {
        std::vector<ub1> bytes;
        words.read(row, values);
        append_elements(bytes, form, values);
        return bytes;
    };
    std::vector<ub1> sum = bytes_of(terms[0].row);
    tavo_enc_ctx enc{};
    enc.flags = TAVO_VEC_BY_POINTER | TAVO_NATIVE;
    enc.value_type = static_cast<ub1>(kind.type);
    enc.vec_dims = words.dims();
    for (std::size_t i = 1; i < terms.size(); i++) {
        std::vector<ub1> term = bytes_of(terms[i].row);
        void *sum_row = sum.data(), *term_row = term.data();
        tavo_vec a{}, b{};
        a.data = &sum_row, a.size = 1, a.enc = &enc;
        b.data = &term_row, b.size = 1, b.enc = &enc;
        tavo_env env{};
        env.host = s.record();
        const auto start = std::chrono::steady_clock::now();
        const ub4 status = ctx.vector_arith(&a, nullptr, &a, &b,
                                            terms[i].subtracted ? TAVO_VECTOR_SUB : TAVO_VECTOR_ADD, &env, nullptr);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        s.throw_raised();
        const char *const word = kind.kernel_word, *const op = terms[i].subtracted ? "sub" : "add";
        if (status == TAVO_OUT_OF_RANGE)
            throw error(fmt::format("the query: a sum is beyond the range of {}", kind.name));
        if (status != TAVO_DONE)
            throw error(fmt::format("tavo_vector_arith_dydi ({}) failed with status {}", op, status));
        steps.push_back({fmt::format("tavo_vector_arith_{}_{}_{}_{}_vec", op, word, word, word), "query", kind.width,
                         fmt::format("{} {}", terms[i].subtracted ? "less" : "plus", words.words()[terms[i].row]), 1, 1,
                         seconds});
    }
    read_elements(form, words.dims(), sum.data(), sum.data() + sum.size(), values);
    return values;
}

std::vector<double> plain_sum(const word_vectors &words, const std::vector<sum_term> &terms) {
    const bool narrow = sum_type(words) == element_type::float_;
    std::vector<double> sum, values;
    words.read(terms[0].row, sum);
    for (std::size_t i = 1; i < terms.size(); i++) {
        words.read(terms[i].row, values);
        for (std::size_t k = 0; k < sum.size(); k++) {
            const double exact = terms[i].subtracted ? sum[k] - values[k] : sum[k] + values[k];
            sum[k] = narrow ? static_cast<float>(exact) : exact; // two floats in double: rounding twice does no harm
        }
    }
    return sum;
}

} // namespace host
