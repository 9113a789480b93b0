#include "host/command/library_report.h"

#include <cstring>
#include <filesystem>
#include <fmt/format.h>

namespace host {

namespace {

// The descriptor's operations, from word 15 on.
// clang-format off
constexpr const char *operation_names[TAVO_OPERATIONS] = {
    "init_sharedlib", "set_trace_level", "lbivpopcnt", "lbivnot", "lbivand", "lbivor", "lbivxor", "lbivandnot",
    "lbivand3", "lbivor3", "lbivxor3", "lbivset_range", "lbivclr_range", "lbiv_ictx_ini2", "lbiviter", "lbiviter_clr",
    "lbivones", "lbivrun", "lbivruns", "lbiwvpopcnt", "lbiwvnot", "lbiwvand", "lbiwvor", "lbiwvxor", "lbiwvandnot",
    "lbiwvand3", "lbiwvor3", "lbiwvxor3", "lbiwvset_range", "lbiwvclr_range", "lbiwv_ictx_ini2", "lbiwviter",
    "lbiwviter_clr", "lbiwvones", "lbiwvrun", "lbiwvruns", "bloom", "spatial_pip", "spheric_pip", "groupkey",
    "dgk_concatenate", "extract_dgk", "gby_sum", "convert", "prefix_decode", "hash", "partition", "gather",
    "gather_one_col", "gather_cols", "transpose_reference", "transpose_convert", "transpose_fixed", "layout_kv",
    "create_add_kv", "probe_kv", "mut_kv_scan", "dgk_symbol2code", "dgk_code2symbol", "eq_stream", "selective",
    "spak_decode", "thread_ctx_init", "thread_ctx_fini", "sum_vec", "lookup_and_compare", "prefix_sum_vec",
    "vector_distance", "vector_topk", "vector_pick_metric", "vector_parse", "vector_convert_fp", "vector_arith"};
// clang-format on

// Families of kernels: an encoding class (four stand for all), operations, and how many kernels there are in a library
// that has them all.
struct family {
    const char *name;
    unsigned first_class, last_class, first_op, last_op, kernels;
};
constexpr family families[] = {
    {"dictionary scans", TAVO_CLASS_DICT, TAVO_CLASS_DICT, TAVO_OP_EQ, TAVO_OP_GE_LE, 460},
    {"fixed-width scans", TAVO_CLASS_FIXED, TAVO_CLASS_FIXED, TAVO_OP_EQ, TAVO_OP_GE_LE, 80},
    {"dynp scans", TAVO_CLASS_DYNP, TAVO_CLASS_DYNP, TAVO_OP_EQ, TAVO_OP_GE_LE, 60},
    {"decode", TAVO_CLASS_DICT, TAVO_CLASS_DICT, TAVO_OP_DECODE, TAVO_OP_DECODE_SYMBOL, 47},
    {"set membership", TAVO_CLASS_DICT, TAVO_CLASS_DICT, TAVO_OP_SET, TAVO_OP_SET, 22},
    {"run lengths", TAVO_CLASS_OTHER, TAVO_CLASS_OTHER, TAVO_OP_BURST_RLE, TAVO_OP_BURST_RLE, 4},
    {"sum, distinct", TAVO_CLASS_FIXED, TAVO_CLASS_DICT, TAVO_OP_SUM, TAVO_OP_DISTINCT, 48},
    {"min/max", TAVO_CLASS_DICT, TAVO_CLASS_DICT, TAVO_OP_MINMAX, TAVO_OP_MINMAX, 44},
    {"translation", TAVO_CLASS_FIXED, TAVO_CLASS_OTHER, TAVO_OP_XLATE, TAVO_OP_XLATE, 112},
    {"float arithmetic", TAVO_CLASS_FIXED, TAVO_CLASS_FIXED, TAVO_OP_ADD, TAVO_OP_MUL, 48},
};

// By operation number.
// clang-format off
constexpr const char *kernel_operation_names[24] = {
    "eq", "lt", "gt", "le", "ge", "ne", "gt_lt", "gt_le", "ge_lt", "ge_le", "decode", "decode_unpack",
    "decode_symbol", "set", "burst_rle", "sum", "distinct", "xlate", "", "add", "sub", "mul", "", "minmax"};
// clang-format on

unsigned filled(const tavo_specialized_ctx &ctx, unsigned op, unsigned first_class, unsigned last_class) {
    unsigned count = 0;
    for (unsigned index = op; index < TAVO_DISPATCH_SLOTS; index += 32) {
        const unsigned encoding_class = index >> 5 & 3;
        if (encoding_class >= first_class && encoding_class <= last_class && ctx.dispatch_table[index].scan != nullptr)
            count++;
    }
    return count;
}

// Words in lines of bearable length.
std::string wrapped(const std::string &words, std::size_t indent) {
    constexpr std::size_t room = 100;
    std::string text;
    std::size_t column = room;
    for (std::size_t begin = 0; begin < words.size();) {
        const std::size_t end = std::min(words.find(' ', begin), words.size());
        if (column + end - begin >= room) {
            text += "\n" + std::string(indent, ' ');
            column = indent;
        } else {
            text += ' ';
        }
        text += words.substr(begin, end - begin);
        column += end - begin + 1;
        begin = end + 1;
    }
    return text;
}

} // namespace

std::string describe(const library &lib, const processor &p) {
    const tavo_specialized_ctx &ctx = lib.ctx();
    const std::string missing = lib.missing_here(p), file = std::filesystem::path(lib.path()).filename().string();
    std::string text = missing.empty()
                           ? fmt::format("{} runs here{}{}\n\n", file, lib.why().empty() ? "" : ": ", lib.why())
                           : fmt::format("{} does not run here: this processor lacks {}\n\n", file, missing);
    text += fmt::format("library    {}\nversion    {} ({})\nbuild      {}\nmagic      {:#x}\nsize words ", lib.path(),
                        ctx.version, ctx.version_number, ctx.build_name, ctx.magic);
    for (ub8 size : ctx.sizes)
        text += fmt::format(" {}", size);

    text += lib.form() == library_form::portable
                ? "\n\nthe portable form, which needs no processor features; libtavo_avx512g.so needs"
                : "\n\nprocessor features needed";
    for (const feature &f : needed_features(p))
        text += fmt::format("\n  {:<8}  {}", f.present ? "present" : "MISSING", f.name);

    // Counted slot by slot, so that a kernel outside of all families would show in the total.
    unsigned all = 0, expected = 0;
    for (unsigned index = 0; index < TAVO_DISPATCH_SLOTS; index++)
        all += ctx.dispatch_table[index].scan != nullptr;
    std::string by_family;
    for (const family &f : families) {
        unsigned count = 0;
        std::string by_operation;
        for (unsigned op = f.first_op; op <= f.last_op; op++)
            if (const unsigned n = filled(ctx, op, f.first_class, f.last_class); n > 0) {
                count += n;
                by_operation += fmt::format("{}{} {}", by_operation.empty() ? "" : ", ", kernel_operation_names[op], n);
            }
        expected += f.kernels;
        by_family += fmt::format("\n  {:<22}  {:>3} of {:>3}{}{}", f.name, count, f.kernels,
                                 by_operation.empty() ? "" : "   ", by_operation);
    }
    text += fmt::format("\n\nkernels: {} of {}{}", all, expected, by_family);

    ub8 words[sizeof ctx / 8];
    std::memcpy(words, &ctx, sizeof ctx);
    unsigned present = 0;
    std::string there, absent;
    for (unsigned i = 0; i < TAVO_OPERATIONS; i++) {
        std::string &list = words[TAVO_FIRST_OPERATION_WORD + i] != 0 ? there : absent;
        present += &list == &there;
        list += fmt::format("{}{}:{}", list.empty() ? "" : " ", TAVO_FIRST_OPERATION_WORD + i, operation_names[i]);
    }
    text += fmt::format("\n\noperations: {} of {} (word:name)\n  present{}\n  not yet there{}\n", present,
                        TAVO_OPERATIONS, wrapped(there, 4), absent.empty() ? "\n    none" : wrapped(absent, 4));
    return text;
}

} // namespace host
