// What the host encodes, read back by the library: any bytes at all have to come back as they went in. The first byte
// of an input says what the others are: bytes to compress, codes, symbols or a CSV text. Everything that the library
// reads or writes ends at an unreadable page, as far behind the end as it may go.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "decode/prefix_decode.h"
#include "decode/rle_expand.h"
#include "decode/spak.h"
#include "frame/tavo_status.h"
#include "host/column/packing.h"
#include "host/column/run_length.h"
#include "host/column/spak_encoder.h"
#include "host/column/symbol_table.h"
#include "host/column/table.h"
#include "host/error.h"
#include "tests/kit/guarded.h"

using tavo::test::guarded;

namespace tavo {
// What prefix_decode would call for a compressed dictionary, of which there is none here.
struct kernel_texts;
const ub1 *decompressed_data(tavo_vec *, tavo_env *, const kernel_texts &) noexcept { std::abort(); }
} // namespace tavo

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

void require_same(const ub1 *a, std::span<const ub1> b) {
    require(b.empty() || std::memcmp(a, b.data(), b.size()) == 0);
}

guarded decompress(std::span<const ub1> stream, std::size_t plain_size) {
    // Up to 4 bytes may be read behind a short stream, 1 behind others; the host leaves more.
    const guarded src(std::span<const ub1>(stream.data(), stream.size() + (plain_size < 16 ? 4 : 1)));
    guarded dst(plain_size);
    tavo_spak_ctx ctx{};
    ctx.temp_allocate = [](void *, ub8 bytes, const char *, ub4, ub4, ub8 *) { return std::malloc(bytes); };
    ctx.temp_release = [](void *, void *block, ub8) { std::free(block); };
    ub4 length = 0xdeadbeef;
    require(tavo_spak_decode_dydi(&ctx, src.data(), dst.data(), &length, static_cast<ub4>(plain_size)) == TAVO_DONE);
    require(length == plain_size);
    return dst;
}

void compress(std::span<const ub1> plain) {
    const host::spak_dictionary dictionary = host::spak_train(plain);
    const host::spak_stream stream = host::spak_encode(plain, dictionary);
    require(stream.bytes.size() == stream.size + host::readable_behind);
    require_same(decompress({stream.bytes.data(), stream.size}, plain.size()).data(), plain);
}

ub4 code_at(const ub1 *packed, ub8 row, unsigned width) {
    ub4 code = 0;
    for (ub8 bit = row * width; bit < (row + 1) * width; bit++)
        code = code << 1 | (packed[bit / 8] >> (7 - bit % 8) & 1u);
    return code;
}

std::vector<ub4> unpack(const ub1 *packed, ub8 rows, unsigned width) {
    std::vector<ub4> codes(rows);
    for (ub8 row = 0; row < rows; row++)
        codes[row] = code_at(packed, row, width);
    return codes;
}

std::vector<ub4> expand(std::vector<ub4> run_codes, const ub1 *table, unsigned entry_bits, std::size_t rows) {
    const std::size_t entry_bytes = entry_bits / 8;
    const guarded runs(std::span(table, run_codes.size() * entry_bytes)), dst(rows * sizeof(ub4));
    tavo_vec to{}, from{};
    to.data = dst.data();
    from.data = run_codes.data();
    from.size = static_cast<ub4>(run_codes.size());
    const ub4 first = entry_bits == 8 ? table[0] : table[0] * 256u + table[1];
    (entry_bits == 8 ? tavo_rle8_expand_ub4 : tavo_rle16_expand_ub4)(&to, &from, runs.data(), first, 0);
    std::vector<ub4> codes(rows);
    std::memcpy(codes.data(), dst.data(), dst.size());
    return codes;
}

// A width, how often each code stands there, and the codes, of a byte each with further bits made from it: runs longer
// than an entry can say come from few bytes.
void pack_and_run(std::span<const ub1> input) {
    if (input.size() < 3)
        return;
    const unsigned widths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 32};
    const unsigned width = widths[input[0] % std::size(widths)];
    std::vector<ub4> codes;
    for (const ub1 byte : input.subspan(2).first(std::min<std::size_t>(input.size() - 2, 400)))
        codes.insert(codes.end(), 1 + input[1] * (byte % 4u),
                     static_cast<ub4>((byte * 0x01010101ull ^ (byte & 1 ? 0x5a3c0000u : 0u)) & ((1ull << width) - 1)));
    const std::vector<ub1> packed = host::pack(codes, width);
    require(packed.size() == host::packed_bytes(codes.size(), width) + host::readable_behind);
    require(unpack(packed.data(), codes.size(), width) == codes);
    const host::run_lengths runs = host::find_runs(codes, width);
    require(runs.table.size() == runs.codes.size() * runs.entry_bits / 8);
    require(expand(runs.codes, runs.table.data(), runs.entry_bits, codes.size()) == codes);
}

// A length, and the symbols' bytes.
void front_code(std::span<const ub1> input) {
    if (input.empty())
        return;
    const std::size_t length = 1 + input[0] % 8, count = (input.size() - 1) / length;
    if (count == 0)
        return;
    const std::span<const ub1> plain = input.subspan(1, count * length);
    std::vector<std::string> symbols;
    for (std::size_t i = 0; i < count; i++)
        symbols.emplace_back(plain.begin() + static_cast<std::ptrdiff_t>(i * length),
                             plain.begin() + static_cast<std::ptrdiff_t>((i + 1) * length));
    std::sort(symbols.begin(), symbols.end());
    std::string expected;
    for (const std::string &symbol : symbols)
        expected += symbol;
    const std::vector<ub1> blocks = host::front_code(symbols, length);
    const guarded coded{std::span<const ub1>(blocks)}, decoded(plain.size());
    tavo_enc_ctx enc{};
    enc.prefix_block = 16;
    enc.prefix_len = static_cast<sb2>(length);
    enc.prefix_count = static_cast<ub4>(count);
    tavo_vec src{}, dst{};
    src.data = coded.data();
    src.enc = &enc;
    src.size = static_cast<ub4>((count + 15) / 16);
    dst.data = decoded.data();
    require(tavo_prefix_decode_dydi(&dst, &src, nullptr) == TAVO_DONE);
    require(std::memcmp(decoded.data(), expected.data(), expected.size()) == 0);
}

std::vector<ub4> codes_of(host::column &column) {
    const tavo_vec &vec = *column.vec();
    const auto *data = static_cast<const ub1 *>(vec.data);
    if (column.form() == host::column_form::rle)
        return expand(unpack(data, column.runs(), column.width()), static_cast<const ub1 *>(vec.enc->run_table),
                      vec.enc->run_entry_bits, column.rows());
    if (column.form() == host::column_form::plain)
        return unpack(data, column.rows(), column.width());
    return unpack(decompress({data, column.encoded_bytes()}, vec.decomp_size).data(), column.rows(), column.width());
}

// A form, and a CSV text. What the reader refuses is left out; what it takes has to come back field by field, from the
// columns and from the text written anew.
void read_csv(std::span<const ub1> input) {
    if (input.empty())
        return;
    host::read_options options;
    if (const unsigned form = input[0] % 4u; form < 3)
        options.form_of[""] = static_cast<host::column_form>(form);
    std::vector<std::vector<std::string>> rows;
    try {
        const host::csv_file file("input", std::string(input.begin() + 1, input.end()));
        std::vector<std::size_t> all;
        for (std::size_t i = 0; i < file.columns().size(); i++)
            all.push_back(i);
        const host::table table(file, all, options);
        file.records([&](const std::vector<host::csv_field> &fields, const host::csv_reader &) {
            rows.emplace_back();
            for (const host::csv_field &field : fields)
                rows.back().push_back(field.value());
        });
        require(table.rows() == rows.size());
        for (const std::size_t number : all) {
            const std::vector<ub4> codes = codes_of(*table.encoded(number));
            const host::dictionary &dict = table.encoded(number)->dict();
            for (std::size_t row = 0; row < rows.size(); row++)
                require(codes[row] < dict.end_code() && dict.symbols()[codes[row]] == rows[row][number]);
        }
    } catch (const host::error &) {
        return;
    }
    std::string written = "header\n";
    for (const std::vector<std::string> &row : rows) {
        written += "|"; // so that no line is empty
        for (const std::string &value : row) {
            written += ',';
            host::append_csv(written, value);
        }
        written += '\n';
    }
    host::csv_reader again(written, "written anew");
    std::vector<host::csv_field> fields;
    require(again.next(fields));
    for (const std::vector<std::string> &row : rows) {
        require(again.next(fields) && fields.size() == row.size() + 1);
        for (std::size_t i = 0; i < row.size(); i++)
            require(fields[i + 1].value() == row[i]);
    }
    require(!again.next(fields));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const ub1 *data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::span<const ub1> input(data + 1, size - 1);
    switch (data[0] % 4) {
    case 0: compress(input); break;
    case 1: pack_and_run(input); break;
    case 2: front_code(input); break;
    default: read_csv(input);
    }
    return 0;
}
