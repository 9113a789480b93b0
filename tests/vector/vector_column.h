// Vector columns as a host hands them over, uniform or flexible, one row pointer each.
#pragma once

#include <memory>
#include <vector>

#include "frame/tavo.h"
#include "tests/vector/vectors.h"

namespace tavo::test {

class vector_column {
public:
    // A uniform column; all rows are of the form's type.
    vector_column(const std::vector<plain_vector> &rows, const vector_form &form) {
        enc.value_type = static_cast<ub1>(form.type);
        enc.vec_dims = rows.empty() ? 0 : rows[0].dims;
        enc.flags = TAVO_VEC_BY_POINTER | (form.comparable ? 0 : TAVO_NATIVE);
        for (const plain_vector &v : rows) {
            const unsigned address = form.sparse ? static_cast<unsigned>(pointers.size() * 3 % 8) : 0;
            add([&](std::vector<ub1> &out) { write_payload(out, v, form, address); }, address);
        }
        finish();
    }
    // A flexible column; forms[i] is the form of row i.
    vector_column(const std::vector<plain_vector> &rows, const std::vector<vector_form> &forms) {
        enc.flags = TAVO_VEC_BY_POINTER | TAVO_VEC_IMAGES;
        for (std::size_t i = 0; i < rows.size(); i++)
            add([&](std::vector<ub1> &out) { out = image(rows[i], forms[i]); }, 0);
        finish();
    }
    vector_column(const vector_column &) = delete;

    static std::vector<ub1> image(const plain_vector &v, const vector_form &form) {
        static const ub1 stored[] = {0, 2, 3, 0, 0, 4, 5, 1, 6};
        std::vector<ub1> out = {0xdb, 3, 0x77};
        out.push_back(static_cast<ub1>(0xc7 | (form.comparable ? 0 : 8) | (form.sparse ? 0x20 : 0)));
        out.push_back(stored[v.type]);
        for (int shift : {24, 16, 8, 0})
            out.push_back(static_cast<ub1>(v.dims >> shift));
        const bool aligned = !form.sparse && !form.comparable && element_bytes(v.type) > 1;
        out.resize(aligned ? 24 : 17, 0x66);
        write_payload(out, v, form, static_cast<unsigned>(out.size()) % 8);
        return out;
    }

    tavo_enc_ctx enc{};
    tavo_vec vec{};
    std::vector<void *> pointers;

private:
    template <class Write>
    void add(Write write, unsigned address) {
        std::vector<ub1> bytes;
        write(bytes);
        memory_.push_back(std::make_unique<ub8[]>(bytes.size() / 8 + 3));
        ub1 *const at = reinterpret_cast<ub1 *>(memory_.back().get()) + address;
        std::copy(bytes.begin(), bytes.end(), at);
        pointers.push_back(at);
    }
    void finish() {
        vec.enc = &enc;
        vec.size = static_cast<ub4>(pointers.size());
        vec.data = pointers.data();
    }
    std::vector<std::unique_ptr<ub8[]>> memory_;
};

} // namespace tavo::test
