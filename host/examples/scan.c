/* The smallest host: loads the library, scans a column of 12-bit codes for 500 <= code <= 1000, prints the rows.
 *
 *   cc -std=c11 -rdynamic scan.c $(pkg-config --cflags tavo) -o scan
 *   LD_LIBRARY_PATH=$(pkg-config --variable=libdir tavo) ./scan */
#ifdef __x86_64__
#include <cpuid.h>
#endif
#include <dlfcn.h>
#include <inttypes.h>
#include <stdio.h>
#include <tavo/tavo.h>

/* What the library needs of its host: how an internal error is reported. -rdynamic lets the library see it. */
void hostraiseierr(void *handle, ub8 word72, const char *message, ub4 zero) {
    (void)handle, (void)word72, (void)zero;
    fprintf(stderr, "internal error: %s\n", message);
}

/* Has the processor what libtavo_avx512g needs, and does the operating system save its registers? */
static int runs_avx512g(void) {
#ifdef __x86_64__
    unsigned a, b, c, d, low, high;
    if (!__get_cpuid(1, &a, &b, &c, &d) || (c & 0x28c00000) != 0x28c00000) /* MOVBE, POPCNT, OSXSAVE, F16C */
        return 0;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    if ((low & 0xe6) != 0xe6 || !__get_cpuid_count(7, 0, &a, &b, &c, &d))
        return 0;
    if ((b & 0xc0030108) != 0xc0030108) /* BMI1, BMI2, AVX-512 F, DQ, BW, VL */
        return 0;
    return __get_cpuid(0x80000001, &a, &b, &c, &d) && (c & 0x20) != 0; /* LZCNT */
#else
    return 0;
#endif
}

int main(int argc, char **argv) {
    const char *file = argc > 1 ? argv[1] : runs_avx512g() ? "libtavo_avx512g.so.1" : "libtavo_portable.so.1";
    void *library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    const tavo_specialized_ctx *tavo = library ? dlsym(library, "tavo_global_specialized_ctx") : NULL;
    if (!tavo || tavo->magic != TAVO_MAGIC)
        return fprintf(stderr, "not the library: %s\n", library ? file : dlerror()), 1;
    const ub4 info[3] = {0, 0, 0};
    tavo->init_sharedlib(0, info);

    /* The column: distances as codes, packed 12 bits each, most significant bit first, and 3 readable bytes behind. */
    const ub4 codes[] = {370, 500, 4095, 999, 0, 1000, 1001, 2475, 733, 499};
    enum { WIDTH = 12, ROWS = sizeof codes / sizeof codes[0] };
    ub1 stream[(ROWS * WIDTH + 7) / 8 + 3] = {0};
    for (unsigned bit = 0; bit < ROWS * WIDTH; bit++)
        if (codes[bit / WIDTH] >> (WIDTH - 1 - bit % WIDTH) & 1)
            stream[bit / 8] |= (ub1)(0x80 >> bit % 8);
    tavo_enc_ctx enc = {.kernel_row = TAVO_KERNEL_ROW(TAVO_VARIANT_PLAIN, WIDTH - 1, TAVO_CLASS_DICT),
                        .flags = TAVO_DICT,
                        .width_bits = WIDTH};
    tavo_vec column = {.data = stream, .enc = &enc, .size = ROWS};

    /* The scan: constants in, one bit a row and the count out. */
    ub4 low = 500, high = 1000;
    ub8 bits[(ROWS + 63) / 64];
    tavo_vec lo = {.data = &low}, hi = {.data = &high}, result = {.bits = bits, .size = ROWS};
    tavo_range_scan_fn *ge_le = tavo->dispatch_table[TAVO_DISPATCH_INDEX(enc.kernel_row, TAVO_OP_GE_LE)].range_scan;
    ub4 status = ge_le(&result, &column, &lo, &hi, NULL);
    printf("status %" PRIu32 ", %" PRIu32 " of %d rows\n", status, result.count, ROWS);

    tavo_bit_iter walk;
    tavo->lbiwv_ictx_ini2(&walk, bits, ROWS, 0, 0);
    for (ub8 row; (row = tavo->lbiwviter(&walk)) != TAVO_LBIWV_END;)
        printf("row %" PRIu64 ": %" PRIu32 "\n", row, codes[row]);
    return dlclose(library);
}
