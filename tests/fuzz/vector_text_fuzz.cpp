// Vector text of any bytes, in both character sets and all types, against a reading unit by unit. The first byte of an
// input chooses, the rest is the text, which ends at an unreadable page.
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "frame/tavo.h"
#include "tests/kit/guarded.h"
#include "tests/vector/text_model.h"
#include "vector/parse.h"

using namespace tavo::test;

static void require(bool ok, const char *what) {
    if (!ok) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const ub1 *data, std::size_t size) {
    if (size == 0)
        return 0;
    const unsigned choice = *data++;
    size--;
    const bool utf16 = choice & 1;
    static constexpr ub4 types[] = {TAVO_ELEM_FLOAT, TAVO_ELEM_DOUBLE, TAVO_ELEM_INT8, TAVO_ELEM_FLOAT};
    const ub4 type = types[choice >> 1 & 3], dims = choice >> 3 & 7, room = choice & 64 ? 5 : 70000;
    const bool norms = choice & 128;

    const guarded text_bytes(std::span(data, size));
    std::u16string units;
    for (std::size_t i = 0; i + utf16 < size; i += 1 + utf16)
        units += static_cast<char16_t>(utf16 ? data[i] << 8 | data[i + 1] : data[i]);
    const parsed_row want = text_model(units, type, dims, room);

    static double out[70000];
    double norm = -1;
    ub2 count = 0;
    tavo_enc_ctx text_enc{}, enc{};
    tavo_vec text{}, res{}, norm_vec{};
    tavo_env env{};
    text_enc.vec_charset = utf16;
    text.data = text_bytes.data(), text.byte_size = size, text.enc = &text_enc;
    enc.flags = TAVO_NATIVE, enc.value_type = static_cast<ub1>(type), enc.vec_dims = dims;
    res.data = out, res.size = room, res.enc = &enc, res.lengths = &count;
    norm_vec.data = &norm;
    const ub4 status = tavo_vector_parse_dydi(&res, norms ? &norm_vec : nullptr, &text, nullptr, &env);
    if (want.status == 0 && norms && !std::isfinite(want.squares)) {
        require(status == TAVO_OUT_OF_RANGE, "norm beyond range");
        return 0;
    }
    require(status == want.status, "status");
    require(env.parsed_rows == (status == 0), "rows");
    if (status != 0)
        return 0;
    require(!norms || norm == std::sqrt(want.squares), "norm");
    require(dims != 0 || count == static_cast<ub2>(want.values.size()), "count");
    for (std::size_t i = 0; i < want.values.size(); i++) {
        const double v = want.values[i];
        if (type == TAVO_ELEM_DOUBLE)
            require(out[i] == v, "double");
        else if (type == TAVO_ELEM_FLOAT)
            require(reinterpret_cast<const float *>(out)[i] == static_cast<float>(v), "float");
        else
            require(std::isnan(v) || reinterpret_cast<const signed char *>(out)[i] == static_cast<int>(v), "int8");
    }
    return 0;
}
