// `tavo vectors`: a CSV column of vector texts to a file of word vectors.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <memory>

#include "host/command/explain.h"
#include "host/command/output.h"
#include "host/command/subcommands.h"
#include "host/error.h"
#include "host/vector/vector_texts.h"
#include "host/vector/word_vectors.h"

namespace host {

namespace {

constexpr std::size_t shown_bad_rows = 10;

struct vectors_options {
    std::string file, column, word, type = "float16", out, library;
    bool explain = false, check = false;
};

std::size_t word_column(const csv_file &file, const std::string &name, std::size_t vectors) {
    if (!name.empty())
        return file.column(name);
    if (file.columns().size() < 2)
        throw error(file.path() + ": it has one column; another one has to name the vectors");
    return vectors == 0 ? 1 : 0;
}

std::string output_path(const vectors_options &options) {
    if (!options.out.empty())
        return options.out;
    if (options.file == "-")
        throw error("the vectors of standard input need a file to go to: --out FILE");
    const std::size_t name = options.file.rfind('/') + 1, dot = options.file.rfind('.');
    return (dot != std::string::npos && dot > name ? options.file.substr(0, dot) : options.file) + ".vectors";
}

void write_file(const std::string &path, const std::string &content) {
    std::FILE *const file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        throw error(fmt::format("{}: it cannot be written", path));
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    if ((std::fclose(file) != 0) || !written) {
        std::remove(path.c_str());
        throw error(fmt::format("{}: not all of it could be written", path));
    }
}

int run(const vectors_options &options) {
    const element_kind *kind = kind_of_name(options.type);
    if (kind == nullptr)
        throw error(fmt::format("--type {}: the types are {}", options.type, element_names()));
    const std::string path = output_path(options);
    library library(choose_library(options.library, this_processor()));
    library.check_and_start(this_processor());
    const csv_file file(options.file);
    const std::size_t vectors = file.column(options.column), words = word_column(file, options.word, vectors);

    session session(library);
    std::vector<query_step> steps;
    const parsed_vectors parsed = parse_vectors(session, file, words, vectors, kind->type, steps);
    for (std::size_t i = 0; i < parsed.bad.size() && i < shown_bad_rows; i++)
        tell(fmt::format("{}:{}: left out: {}", file.path(), parsed.bad[i].line, parsed.bad[i].reason));
    if (parsed.bad.size() > shown_bad_rows)
        tell(fmt::format("and {} more rows", parsed.bad.size() - shown_bad_rows));
    if (options.check)
        if (const std::string difference = check_vectors(file, words, vectors, kind->type, parsed);
            !difference.empty()) {
            tell("the check fails: " + difference);
            return check_failed;
        }
    write_file(path, word_vectors_content(parsed.words, parsed.dims, kind->type, parsed.elements));

    const auto [smallest, largest] = std::minmax_element(parsed.norms.begin(), parsed.norms.end());
    output out;
    out.write(fmt::format("{}: {} vectors of {} dimensions as {}, norms from {:.6g} to {:.6g}, {} row{} left out, "
                          "{:.0f} MB/s\n",
                          path, parsed.words.size(), parsed.dims, kind->name, *smallest, *largest, parsed.bad.size(),
                          parsed.bad.size() == 1 ? "" : "s",
                          parsed.seconds > 0 ? static_cast<double>(parsed.text_bytes) / parsed.seconds / 1e6 : 0));
    out.finish();
    if (options.explain)
        show(explain(steps, library));
    if (options.check)
        show(fmt::format("check: {} elements of {} vectors read by the C++ library: agrees\n",
                         parsed.words.size() * parsed.dims, parsed.words.size()));
    return answered;
}

} // namespace

subcommand add_vectors(CLI::App &app) {
    CLI::App *vectors = app.add_subcommand("vectors", "Read a column of vectors, to a file for `tavo nearest`");
    const auto options = std::make_shared<vectors_options>();
    vectors->add_option("FILE", options->file, "CSV file with a header; \"-\" is standard input")->required();
    vectors->add_option("--column", options->column, "The column of vectors: \"[0.25, -1e-3, 7]\"")->required();
    vectors->add_option("--word", options->word, "The column that names them; otherwise the first other one");
    vectors->add_option("--type", options->type, "Elements: float, double, float16, bfloat16, int8 or bits")
        ->capture_default_str();
    vectors->add_option("--out", options->out, "File to write; otherwise FILE with .vectors in place of its ending");
    vectors->add_flag("--explain", options->explain, "Show the parser, rows in and out, time");
    vectors->add_flag("--check", options->check, "Read the column by the C++ library too and compare");
    vectors->add_option("--library,--lib", options->library,
                        "The kernel library; otherwise $TAVO_LIB, then the one beside the command");
    vectors->footer("Rows that are no vectors of the first one's dimensions are left out, with their line and the "
                    "reason on\nstandard error. int8 rounds and refuses what is beyond -128 to 127, bits are 1 above "
                    "zero.\nEnds with status 0, with 1 if --check does not agree, with 2 if there is something wrong "
                    "with the input.");
    return {vectors, [options] { return run(*options); }};
}

} // namespace host
