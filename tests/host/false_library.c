/* A library of the right shape with one thing wrong, chosen at compile time. */
#include <string.h>

#include <tavo/tavo.h>

static ub4 false_init(ub8 ignored, const ub4 info[3]) {
    (void)ignored, (void)info;
    return TAVO_DONE;
}

#if defined(LYING) || defined(RAISING)
/* Selects row 0, whatever the codes; or raises and goes on. */
static ub4 false_scan(tavo_vec *res, tavo_vec *src, tavo_vec *constant, tavo_env *env) {
    (void)src, (void)constant;
    memset(res->bits, 0, (res->size + 63) / 64 * 8);
    res->bits[0] = 1;
    res->count = 1;
#ifdef RAISING
    hostraiseierr(env->host->handle, ((ub8 *)env->host->handle)[71], "false_scan: raised on purpose", 0);
#else
    (void)env;
#endif
    return TAVO_DONE;
}
#endif

#ifndef NO_OPERATIONS
static ub4 false_join(void *dst, ub4 *count, const void *a, const void *b, ub8 nbits) {
    (void)dst, (void)a, (void)b, (void)nbits;
    *count = 1;
    return TAVO_DONE;
}
#endif
static ub4 false_set_range(void *bits, ub8 first, ub8 last) {
    (void)bits, (void)first, (void)last;
    return TAVO_DONE;
}
static ub4 false_count(ub4 *count, const void *bits, ub8 nbits) {
    (void)bits, (void)nbits;
    return *count = 1;
}
static ub4 false_start(tavo_bit_iter *it, const void *bits, ub8 nbits, ub1 invert, ub8 start) {
    (void)bits, (void)nbits, (void)invert, (void)start;
    memset(it, 0, sizeof *it);
    return TAVO_DONE;
}
static ub8 false_ones(tavo_bit_iter *it, ub4 *out, ub8 capacity) {
    (void)it;
    if (capacity > 0)
        out[0] = 0;
    return capacity > 0;
}

#if defined(LYING) || defined(RAISING)
#define ALL_SCANS(row)                                                                                                 \
    [(row)*32 + TAVO_OP_EQ] = {false_scan}, [(row)*32 + TAVO_OP_LT] = {false_scan},                                    \
                [(row)*32 + TAVO_OP_GT] = {false_scan}, [(row)*32 + TAVO_OP_NE] = {false_scan}
static const tavo_kernel_slot table[TAVO_DISPATCH_SLOTS] = {ALL_SCANS(TAVO_KERNEL_ROW(0, 0, TAVO_CLASS_DICT)),
                                                            ALL_SCANS(TAVO_KERNEL_ROW(0, 1, TAVO_CLASS_DICT))};
#else
static const tavo_kernel_slot table[TAVO_DISPATCH_SLOTS];
#endif

__attribute__((visibility("default"))) const tavo_specialized_ctx tavo_global_specialized_ctx = {
#ifdef WRONG_MAGIC
    .magic = TAVO_MAGIC + 1,
#else
    .magic = TAVO_MAGIC,
#endif
#ifdef WRONG_VERSION
    .version = "MRV_22.0",
#else
    .version = "MRV_23.0",
#endif
    .version_number = 3,
    .build_name = "smrvavx512g",
    .sizes = {8, 8, 8, 8, 8, 8, 8, 16, 0, 64},
    .dispatch_table = table,
    .init_sharedlib = false_init,
#ifndef NO_OPERATIONS
    .lbiwvand = false_join,
    .lbiwvor = false_join,
#endif
    .lbiwvset_range = false_set_range,
    .lbiwvpopcnt = false_count,
    .lbiwv_ictx_ini2 = false_start,
    .lbiwvones = false_ones,
};
