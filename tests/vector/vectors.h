// Vectors for tests: numbers of any element type, and their bytes in any form, written with no help from the library.
#pragma once

#include <random>
#include <vector>

#include "frame/tavo_vector.h"
#include "tests/kit/guarded.h"

namespace tavo::test {

// A form at run time.
struct vector_form {
    ub4 type; // TAVO_ELEM_...
    bool comparable, sparse;
};
unsigned element_bytes(ub4 type); // 0 for bits

// The nearest element of a type, as native bits (int8: the byte; bits: 0 or 1), and the number that bits stand for.
ub8 bits_of(ub4 type, double v);
double number_of(ub4 type, ub8 bits);
// What a comparable form hands back: -0.0 as +0.0, NaN as the one positive NaN.
ub8 through_comparable(ub4 type, ub8 bits);

// A vector as its elements; `at` has their dimension numbers and is empty for a dense one. Elements are native bits.
struct plain_vector {
    ub4 type;
    ub4 dims;
    std::vector<ub8> elements;
    std::vector<ub4> at;
};

enum class content {
    ordinary,  // numbers of moderate size
    odd,       // NaN, infinities, zeros of either sign, the smallest and the largest numbers among them
    threshold, // few values, which differ by the thresholds of hamming, somewhat less and somewhat more
    zero
};
ub8 random_element(ub4 type, content kind, std::mt19937_64 &rng);
plain_vector random_dense(ub4 type, ub4 dims, content kind, std::mt19937_64 &rng);
// `count` elements at random dimensions below `dims`.
plain_vector random_sparse(ub4 type, ub4 dims, ub4 count, content kind, std::mt19937_64 &rng);

// Appends the payload of a vector to `out`. Native sparse values are put where they belong if the payload stands at an
// address that is `address` modulo 8.
void write_payload(std::vector<ub1> &out, const plain_vector &v, const vector_form &form, unsigned address);

// A payload that ends at an unreadable page, but for what an address modulo 8 calls for: at most 7 bytes.
class guarded_payload {
public:
    explicit guarded_payload(std::size_t room = 1 << 17) : memory_(room) {}
    const ub1 *place(const plain_vector &v, const vector_form &form);

private:
    guarded memory_;
};

} // namespace tavo::test
