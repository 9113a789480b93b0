// tavo_nearest(file, query [, k [, metric [, type]]]): the words whose vectors are nearest.
//
//   SELECT word, distance FROM tavo_nearest('words-10k.vectors', 'king - man + woman', 5)
#include "host/vector/nearest.h"

#include <cstring>
#include <filesystem>
#include <fmt/format.h>

#include "host/error.h"
#include "host/sqlite/table_function.h"
#include "host/vector/vector_sum.h"
#include "host/vector/word_search.h"

namespace host::sqlite {

namespace {

// A file is read once for all connections, as long as one of the last ones that were asked.
std::shared_ptr<const word_vectors> words_of_file(const std::string &name) {
    struct kept {
        std::filesystem::path path;
        std::filesystem::file_time_type changed;
        std::shared_ptr<const word_vectors> words;
    };
    static constexpr std::size_t most_kept = 4;
    static std::mutex reading;
    static std::vector<kept> files;
    const std::lock_guard lock(reading);
    std::error_code missing;
    const std::filesystem::path path = std::filesystem::canonical(name, missing);
    if (missing)
        throw error(fmt::format("cannot read {}: {}", name, missing.message()));
    const auto changed = std::filesystem::last_write_time(path, missing);
    for (const kept &k : files)
        if (k.path == path && k.changed == changed)
            return k.words;
    if (files.size() == most_kept)
        files.erase(files.begin());
    files.push_back({path, changed, std::make_shared<const word_vectors>(name)});
    return files.back().words;
}

// A blob is an array of floats, as other extensions have vectors.
std::vector<double> floats_of(sqlite3_value *value, ub4 dims) {
    const auto size = static_cast<std::size_t>(sqlite3_value_bytes(value));
    if (size != dims * sizeof(float))
        throw error(fmt::format("a vector of {} bytes: this file's have {} dimensions, {} bytes of floats", size, dims,
                                dims * sizeof(float)));
    std::vector<float> floats(dims);
    std::memcpy(floats.data(), sqlite3_value_blob(value), size);
    return {floats.begin(), floats.end()};
}

answer_rows neighbours(sqlite3 *, connection &home, const std::vector<sqlite3_value *> &arguments) {
    const sqlite3_int64 k = arguments[2] == nullptr ? 10 : sqlite3_value_int64(arguments[2]);
    if (k < 1)
        throw error("tavo_nearest: k must be at least 1");
    const std::string metric_name = text_of(arguments[3]), type_name = text_of(arguments[4]);
    const metric_kind *metric = metric_of_name(metric_name.empty() ? "cosine" : metric_name);
    if (metric == nullptr)
        throw error(fmt::format("tavo_nearest: the metrics are {}", metric_names()));
    const element_kind *kind = type_name.empty() ? nullptr : kind_of_name(type_name);
    if (kind == nullptr && !type_name.empty())
        throw error(fmt::format("tavo_nearest: the types are {}", element_names()));
    const auto library = relation::opened_library();
    const std::string file = text_of(arguments[0]);
    const auto words = words_of_file(file);
    const element_type type = kind != nullptr ? kind->type : words->type();
    if (metric->metric == tavo_metric_jaccard_distance && type != element_type::bits)
        throw error("tavo_nearest: jaccard compares bits");

    session s(*library);
    const auto record = std::make_shared<connection::scan_record>();
    record->table = file;
    std::vector<sum_term> terms;
    std::vector<double> numbers;
    const std::string asked = sqlite3_value_type(arguments[1]) == SQLITE_BLOB ? "" : text_of(arguments[1]);
    if (sqlite3_value_type(arguments[1]) == SQLITE_BLOB) {
        numbers = floats_of(arguments[1], words->dims());
    } else if (asked.starts_with('[') &&
               std::find(words->words().begin(), words->words().end(), asked) == words->words().end()) {
        numbers = parse_vector(asked, words->dims());
    } else {
        terms = parse_sum(asked, *words);
        numbers = vector_sum(s, *words, terms, record->steps);
    }
    word_search search(*words, type, std::move(numbers));
    // The words of the query are no answers.
    const ub4 wanted = static_cast<ub4>(std::min<ub8>(static_cast<ub8>(k) + terms.size(), words->rows()));
    answer_rows out;
    if (wanted == 0)
        return out;
    for (const neighbour &n : nearest(s, search.rows(), search.query(), *metric, wanted, nullptr, record->steps)) {
        const bool own = std::any_of(terms.begin(), terms.end(), [&](const sum_term &t) { return t.row == n.row; });
        if (!own && out.size() < static_cast<std::size_t>(k))
            out.push_back({std::string(words->words()[n.row]), n.distance * metric->shown + 0.0});
    }
    home.last_scan = record;
    return out;
}

} // namespace

void add_nearest(sqlite3 *db, const shared_connection &home) {
    add_table_function(db, home,
                       {"tavo_nearest",
                        "CREATE TABLE x(word TEXT, distance REAL, file HIDDEN, query HIDDEN, k HIDDEN, metric HIDDEN, "
                        "type HIDDEN)",
                        2, 5, 2, true, neighbours});
}

} // namespace host::sqlite
