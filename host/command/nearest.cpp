// `tavo nearest`: the words whose vectors are nearest to a word's or to a given one.
#include "host/vector/nearest.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <optional>

#include "host/command/explain.h"
#include "host/command/output.h"
#include "host/command/subcommands.h"
#include "host/error.h"
#include "host/query/recompute.h"
#include "host/vector/vector_sum.h"
#include "host/vector/word_search.h"

namespace host {

namespace {

struct nearest_options {
    std::string query, file, metric = "cosine", type, library;
    std::vector<std::string> where;
    ub4 k = 10;
    bool explain = false, check = false;
};

// The words that all predicates are true for, by scans over columns made of the words.
class word_filter {
public:
    word_filter(session &s, const word_vectors &words, const std::vector<std::string> &where)
        : predicates_(parsed(where)), file_(word_table(words)), columns_(named_columns()), table_(file_, columns_, {}),
          query_(s, table_.rows()) {}

    selection run() { return query_.run(plan_codes(predicates_, table_)); }
    const std::vector<query_step> &steps() const { return query_.steps(); }

    // The same from the words' text.
    std::vector<ub4> recomputed() const {
        std::map<std::string, value_type> types;
        for (const std::size_t number : columns_)
            types[file_.columns()[number]] = table_.encoded(number)->dict().type();
        return recompute(file_, predicates_, types, {});
    }

    static std::vector<predicate> parsed(const std::vector<std::string> &where) {
        std::vector<predicate> predicates;
        for (const std::string &text : where)
            predicates.push_back(parse_predicate(text));
        return predicates;
    }

private:
    // The names in predicates become those of columns, and of these the numbers.
    std::vector<std::size_t> named_columns() {
        for (predicate &p : predicates_)
            resolve(p, file_);
        std::vector<std::size_t> numbers;
        for (const predicate &p : predicates_)
            for (const std::string &name : columns_of(p))
                if (const std::size_t number = file_.column(name);
                    std::find(numbers.begin(), numbers.end(), number) == numbers.end())
                    numbers.push_back(number);
        return numbers;
    }

    std::vector<predicate> predicates_;
    csv_file file_;
    std::vector<std::size_t> columns_;
    table table_;
    query query_;
};

int run(const nearest_options &options) {
    if (options.k == 0)
        throw error("--k 0: there is nothing to look for; it must be at least 1");
    const metric_kind *metric = metric_of_name(options.metric);
    if (metric == nullptr)
        throw error(fmt::format("--metric {}: the metrics are {}", options.metric, metric_names()));
    const element_kind *kind = options.type.empty() ? nullptr : kind_of_name(options.type);
    if (kind == nullptr && !options.type.empty())
        throw error(fmt::format("--type {}: the types are {}", options.type, element_names()));
    word_filter::parsed(options.where); // what is wrong with them is said before a large file is read

    library library(choose_library(options.library, this_processor()));
    library.check_and_start(this_processor());
    const word_vectors words(options.file);
    const element_type type = kind != nullptr ? kind->type : words.type();
    if (metric->metric == tavo_metric_jaccard_distance && type != element_type::bits)
        throw error("--metric jaccard compares bits: it needs --type bits");

    session session(library);
    std::vector<query_step> steps;
    // A word of the file, whatever it looks like, a vector, or a sum of words.
    std::vector<sum_term> terms;
    std::vector<double> numbers;
    const auto &all = words.words();
    if (options.query.starts_with('[') && std::find(all.begin(), all.end(), options.query) == all.end()) {
        numbers = parse_vector(options.query, words.dims());
    } else {
        terms = parse_sum(options.query, words);
        numbers = vector_sum(session, words, terms, steps);
        if (options.check && numbers != plain_sum(words, terms)) {
            tell("the check fails: the query is another vector by the kernels than by a plain loop");
            return check_failed;
        }
    }
    word_search search(words, type, std::move(numbers));

    std::optional<selection> among;
    if (!options.where.empty()) {
        word_filter filter(session, words, options.where);
        among = filter.run();
        steps.insert(steps.end(), filter.steps().begin(), filter.steps().end());
        if (options.check) {
            const std::vector<ub4> expected = filter.recomputed();
            if (expected != row_numbers(library.ctx(), *among, words.rows(), words.rows())) {
                tell(fmt::format("the check fails: --where selects {} words by the kernels, {} from the text",
                                 among->count, expected.size()));
                return check_failed;
            }
        }
    }

    // The words of the query are no answer: for each that is among those looked at one more is looked for, and it is
    // left out.
    std::vector<ub4> own;
    for (const sum_term &term : terms)
        if (std::find(own.begin(), own.end(), term.row) == own.end() &&
            (!among || (among->bits[term.row / 64] >> term.row % 64 & 1) != 0))
            own.push_back(term.row);
    const ub4 k = static_cast<ub4>(std::min<ub8>(ub8{options.k} + own.size(), words.rows()));
    const selection *selected = among ? &*among : nullptr;
    std::vector<neighbour> found = nearest(session, search.rows(), search.query(), *metric, k, selected, steps);
    nearest_check check;
    if (options.check) {
        check = check_nearest(search.rows(), search.query(), *metric, k, selected, found);
        if (!check.difference.empty()) {
            tell("the check fails: " + check.difference);
            return check_failed;
        }
    }
    if (!own.empty()) {
        steps.back().what += own.size() == 1 ? ", the word itself being one" : ", the query's words among them";
        std::erase_if(found, [&](const neighbour &n) { return std::find(own.begin(), own.end(), n.row) != own.end(); });
    }
    if (found.size() > options.k)
        found.resize(options.k);

    std::string answer = fmt::format("word,{}\n", metric->result);
    for (const neighbour &n : found) {
        append_csv(answer, words.words()[n.row]);
        answer +=
            std::isnan(n.distance) ? ",nan\n" : fmt::format(",{:.6g}\n", n.distance * metric->shown + 0.0); // no -0
    }
    output out;
    out.write(answer);
    out.finish();
    if (options.explain) {
        if (search.factor() != 1)
            steps.insert(steps.begin(),
                         {"", "vector", 8, fmt::format("elements times {:.6g}, rounded", search.factor()), words.rows(),
                          words.rows(), 0});
        show(explain(steps, library));
    }
    if (options.check)
        show(fmt::format("check: {} of {} words by plain double-precision loops, {:.2g} apart at most, {:.2g} "
                         "allowed: agrees\n",
                         check.rows, words.rows(), check.largest, check.bound));
    return answered;
}

} // namespace

subcommand add_nearest(CLI::App &app) {
    CLI::App *nearest = app.add_subcommand("nearest", "Print the words whose vectors are nearest to a word's");
    const auto options = std::make_shared<nearest_options>();
    nearest
        ->add_option("QUERY,--query", options->query,
                     "A word of the file, a sum: \"king - man + woman\", or a vector: \"[0.1, -0.2, ...]\"")
        ->required();
    nearest->add_option("--data", options->file, "File of word vectors; see host/data")->required();
    nearest->add_option("--k", options->k, "How many words")->capture_default_str();
    nearest->add_option("--metric", options->metric, "cosine, euclid, dot, manhattan, hamming or jaccard (of bits)")
        ->capture_default_str();
    nearest->add_option("--type", options->type,
                        "Compare as float, double, float16, bfloat16, int8 or bits; otherwise as the file has them");
    nearest->add_option("--where", options->where, "A predicate on word, first, length or rank; all given must be true")
        ->allow_extra_args(false);
    nearest->add_flag("--explain", options->explain, "Show each step: kernel, rows in and out, time");
    nearest->add_flag("--check", options->check, "Recompute the answer by plain double-precision loops and compare");
    nearest->add_option("--library,--lib", options->library,
                        "The kernel library; otherwise $TAVO_LIB, then the one beside the command");
    nearest->footer(
        "The words of QUERY are left out. Columns for --where: word, first (its first letter), length (in letters),\n"
        "rank (1 is the most frequent word); predicates as for `tavo query`. int8 takes the elements times\n"
        "one factor, bits takes their signs: distances are then those of these. Ends with status 0, with 1 if\n"
        "--check does not agree, with 2 if there is something wrong with the input.");
    return {nearest, [options] { return run(*options); }};
}

} // namespace host
