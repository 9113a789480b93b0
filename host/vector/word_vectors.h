// A file of words with a vector each, the most frequent word first. Numbers are little-endian.
//
//   0    8 bytes   TAVOVECS
//   8    4         version, 1
//   12   4         words
//   16   4         dimensions
//   20   1         element type, as tavo_enc_ctx.value_type has it; three zeros
//   24   8         bytes of the words
//   32             the words in UTF-8, a line feed behind each; zeros up to a multiple of 64
//                  the vectors, back to back: dense native elements, which kernels can read as they stand
//   end  4         CRC-32 of everything before
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/vector/stored_vector.h"

namespace host {

class word_vectors {
public:
    // Reads the whole file and checks it. Throws, saying what is wrong with it.
    explicit word_vectors(const std::string &path);
    // The same of content already in memory.
    word_vectors(const std::string &name, std::string content);
    word_vectors(const word_vectors &) = delete;
    word_vectors &operator=(const word_vectors &) = delete;

    const std::string &path() const { return path_; }
    const std::vector<std::string_view> &words() const { return words_; }
    ub4 rows() const { return static_cast<ub4>(words_.size()); }
    ub4 dims() const { return dims_; }
    element_type type() const { return type_; }

    // The row of a word. Throws, naming words that are spelt alike, if it is not there.
    ub4 row_of(std::string_view word) const;

    const ub1 *vectors() const { return reinterpret_cast<const ub1 *>(content_.data()) + vectors_at_; }
    void read(ub4 row, std::vector<double> &values) const;

private:
    void check();

    std::string path_;
    std::string content_;
    std::vector<std::string_view> words_;
    std::size_t vectors_at_ = 0;
    ub4 dims_ = 0;
    element_type type_ = element_type::float16;
};

// The same file as bytes, of rows of elements that lie back to back.
std::string word_vectors_content(const std::vector<std::string> &words, ub4 dims, element_type,
                                 std::span<const ub1> elements);

} // namespace host
