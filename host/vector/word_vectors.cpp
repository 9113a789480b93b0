#include "host/vector/word_vectors.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "host/column/names.h"
#include "host/column/text_file.h"
#include "host/error.h"

namespace host {

namespace {

constexpr char magic[8] = {'T', 'A', 'V', 'O', 'V', 'E', 'C', 'S'};
constexpr std::size_t head_bytes = 32, vectors_alignment = 64, crc_bytes = 4;

template <class Number>
Number number_at(const ub1 *at) {
    Number number;
    std::memcpy(&number, at, sizeof number);
    return number;
}

// The CRC-32 of zip and Ethernet: reflected polynomial EDB88320.
constexpr std::array<ub4, 256> crc_table = [] {
    std::array<ub4, 256> table{};
    for (ub4 i = 0; i < 256; i++) {
        ub4 crc = i;
        for (int bit = 0; bit < 8; bit++)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xedb88320u : 0);
        table[i] = crc;
    }
    return table;
}();

ub4 crc32(std::span<const ub1> bytes) {
    ub4 crc = ~0u;
    for (const ub1 byte : bytes)
        crc = crc >> 8 ^ crc_table[(crc ^ byte) & 0xff];
    return ~crc;
}

} // namespace

word_vectors::word_vectors(const std::string &path) : path_(path) {
    const block<char> bytes = read_text_file(path);
    content_.assign(bytes.data(), bytes.size());
    check();
}

word_vectors::word_vectors(const std::string &name, std::string content) : path_(name), content_(std::move(content)) {
    check();
}

void word_vectors::check() {
    const auto *head = reinterpret_cast<const ub1 *>(content_.data());
    if (content_.size() < sizeof magic || std::memcmp(head, magic, sizeof magic) != 0)
        throw error(path_ + ": this is no file of word vectors: it doesn't begin with TAVOVECS");
    const auto damaged = [this](const std::string &what) {
        throw error(fmt::format("{}: the file is damaged: {}", path_, what));
    };
    if (content_.size() < head_bytes + crc_bytes)
        damaged(fmt::format("it ends after {} bytes", content_.size()));
    if (const auto version = number_at<ub4>(head + 8); version != 1)
        throw error(fmt::format("{}: the file is of version {}; this host reads version 1", path_, version));
    const auto rows = number_at<ub4>(head + 12);
    dims_ = number_at<ub4>(head + 16);
    const auto kind = std::find_if(std::begin(element_kinds), std::end(element_kinds),
                                   [&](const element_kind &k) { return static_cast<ub1>(k.type) == head[20]; });
    if (kind == std::end(element_kinds))
        damaged(fmt::format("it has no element type {}", head[20]));
    type_ = kind->type;
    const auto words_bytes = number_at<ub8>(head + 24);
    if (rows == 0 || rows > 0xfffffffe || dims_ == 0)
        damaged(fmt::format("it states {} words of {} dimensions", rows, dims_));

    // The sizes cannot overflow: the words must fit in the file, and a row has at most 2^35 bytes.
    const ub8 row_bytes = (ub8{dims_} * kind->width + 7) / 8, all = content_.size();
    const ub8 vectors_at =
        words_bytes > all ? all
                          : (head_bytes + words_bytes + vectors_alignment - 1) / vectors_alignment * vectors_alignment;
    if (words_bytes > all || vectors_at + crc_bytes > all || (all - vectors_at - crc_bytes) / row_bytes < rows)
        damaged(fmt::format("it ends after {} bytes, too early for {} words of {} dimensions", all, rows, dims_));
    if (all - vectors_at - crc_bytes != row_bytes * rows)
        damaged("there is something behind its vectors");
    if (number_at<ub4>(head + all - crc_bytes) != crc32({head, all - crc_bytes}))
        damaged("its checksum is another than that of its content");
    vectors_at_ = vectors_at;

    words_.reserve(rows);
    std::string_view text(content_.data() + head_bytes, words_bytes);
    for (std::size_t end; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1))
        words_.push_back(text.substr(0, end));
    if (words_.size() != rows || !text.empty())
        damaged(fmt::format("it states {} words and holds {}", rows, words_.size()));
}

ub4 word_vectors::row_of(std::string_view word) const {
    const auto found = std::find(words_.begin(), words_.end(), word);
    if (found != words_.end())
        return static_cast<ub4>(found - words_.begin());
    const std::vector<std::string> near = near_names(word, {words_.begin(), words_.end()});
    throw error(fmt::format("{}: there is no word '{}'{}", path_, word,
                            near.empty() ? "" : fmt::format("; did you mean {}?", fmt::join(near, " or "))));
}

void word_vectors::read(ub4 row, std::vector<double> &values) const {
    const std::size_t row_bytes = (std::size_t{dims_} * kind_of(type_).width + 7) / 8;
    const ub1 *at = vectors() + row * row_bytes;
    read_elements({type_}, dims_, at, at + row_bytes, values);
}

std::string word_vectors_content(const std::vector<std::string> &words, ub4 dims, element_type type,
                                 std::span<const ub1> elements) {
    std::string content(magic, sizeof magic);
    const auto number = [&](auto value) { content.append(reinterpret_cast<const char *>(&value), sizeof value); };
    std::string text;
    for (const std::string &word : words)
        text.append(word).append(1, '\n');
    number(ub4{1});
    number(static_cast<ub4>(words.size()));
    number(dims);
    number(static_cast<ub4>(type));
    number(static_cast<ub8>(text.size()));
    content += text;
    content.resize((content.size() + vectors_alignment - 1) / vectors_alignment * vectors_alignment);
    content.append(reinterpret_cast<const char *>(elements.data()), elements.size());
    number(crc32({reinterpret_cast<const ub1 *>(content.data()), content.size()}));
    return content;
}

} // namespace host
