/* A hash join in one page: which flights leave from which of three airports. Keys are texts of up to 5 bytes.
 *
 *   cc -std=c11 -rdynamic join.c $(pkg-config --cflags tavo) -o join && ./join $(pkg-config --variable=library tavo) */
#include <dlfcn.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tavo/tavo.h>

void hostraiseierr(void *handle, ub8 word72, const char *message, ub4 zero) {
    (void)handle, (void)word72, (void)zero;
    fprintf(stderr, "internal error: %s\n", message);
}

/* The hash is the host's: FNV-1a, its bits mixed once more, as tables use the low ones and filters the high ones. */
static ub8 fnv(const void *data, ub8 length, ub8 seed) {
    ub8 h = 0xcbf29ce484222325 ^ seed;
    for (ub8 i = 0; i < length; i++)
        h = (h ^ ((const ub1 *)data)[i]) * 0x100000001b3;
    return (h ^ h >> 29) * 0x9e3779b97f4a7c15;
}

/* Overflow buckets, handed out one by one. The callback is given the region, and the table is the region's. */
static ub4 hand_out(tavo_kv_region *overflow, ub4 count, ub8 *id) {
    static ub8 next;
    *id = next;
    const ub8 segment = next >> overflow->element_bits;
    if (segment >= overflow->segment_count)
        return 99;
    if (!overflow->segments[segment]) {
        const ub8 bytes = (ub8)64 << overflow->element_bits;
        if (!(overflow->segments[segment] = aligned_alloc(64, bytes)))
            return 99;
        memset(overflow->segments[segment], 0, bytes);
        overflow->mapped_segments = (ub4)segment + 1;
    }
    next += count;
    return 0;
}

/* A column of texts: an address and a length a row, and what their hashes will be. */
enum { MOST = 8 };
typedef struct {
    const char *text[MOST];
    ub2 length[MOST];
    ub8 hash[MOST];
    tavo_enc_ctx key_enc, hash_enc;
    tavo_vec keys, hashes;
} texts;

static void prepare(const tavo_specialized_ctx *tavo, texts *t, ub4 rows) {
    for (ub4 row = 0; row < rows; row++)
        t->length[row] = (ub2)strlen(t->text[row]);
    t->key_enc.flags = TAVO_LP_SEP;
    t->keys = (tavo_vec){.data = t->text, .lengths = t->length, .enc = &t->key_enc, .size = rows};
    t->hash_enc = (tavo_enc_ctx){.flags = TAVO_HASHES, .width_bits = 64, .width_code = TAVO_WIDTH_CODE_64};
    t->hashes = (tavo_vec){.data = t->hash, .enc = &t->hash_enc, .size = rows};
    ub8 seed = 0;
    tavo_vec seeds = {.data = &seed, .enc = &t->hash_enc, .size = 1};
    tavo->hash(&t->hashes, &t->keys, &seeds, fnv, NULL);
}

int main(int argc, char **argv) {
    if (argc != 2) /* scan.c finds out which library this processor runs */
        return fputs("usage: join LIBRARY\n", stderr), 1;
    void *library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    const tavo_specialized_ctx *tavo = library ? dlsym(library, "tavo_global_specialized_ctx") : NULL;
    if (!tavo || tavo->magic != TAVO_MAGIC)
        return fprintf(stderr, "not the library: %s\n", library ? argv[1] : dlerror()), 1;
    const ub4 info[3] = {0, 0, 0};
    tavo->init_sharedlib(0, info);

    texts airports = {.text = {"SFO", "LAX", "KSJC"}}, flights = {.text = {"LAX", "JFK", "SFO", "LAX", "KSJC", "SJC"}};
    prepare(tavo, &airports, 3);
    prepare(tavo, &flights, 6);

    /* The table: its shape, then its memory, all zeros. Values of 4 bytes: the airports' row numbers. */
    tavo_kv kv = {.flags = TAVO_KV_FLAGS(TAVO_KV_LP, TAVO_KV_K6V4)};
    if (tavo->layout_kv(3, 3, &kv.flags, &kv, 12, 0, 1u << 14, 0, 0) != TAVO_DONE)
        return fputs("no layout\n", stderr), 1;
    for (ub4 r = 0; r < 2; r++)
        kv.region[r].segments = calloc(kv.region[r].segment_count, sizeof(void *));
    for (ub4 s = 0; s < kv.region[0].segment_count; s++) {
        kv.region[0].segments[s] = aligned_alloc(64, tavo_kv_segment_bytes(&kv, 0));
        memset(kv.region[0].segments[s], 0, tavo_kv_segment_bytes(&kv, 0));
    }
    kv.region[0].mapped_segments = kv.region[0].segment_count;

    /* Build: a value is the position in the vector. */
    tavo_enc_ctx row_ids = {.flags = TAVO_ROWID_BASE};
    tavo_vec values = {.enc = &row_ids, .size = 3}, rids = {.enc = &row_ids, .size = 6};
    tavo_env env = {0};
    tavo_kv_status status = {{0, 0}};
    ub4 result = tavo->create_add_kv(&kv, &airports.hashes, &values, &airports.keys, -1, &env, hand_out, &status);
    printf("build: status %" PRIu32 "\n", result);

    /* Probe: pairs of a flight's and an airport's row, as many as there is room for in each call. */
    ub4 airport[16], flight[16]; /* a call goes on while a whole bucket's pairs have room */
    tavo_aux_info aux = {0};
    env = (tavo_env){.aux = &aux};
    do {
        tavo_vec out = {.data = airport, .size = 16};
        result =
            tavo->probe_kv(&out, flight, &flights.hashes, &rids, &flights.keys, &kv, TAVO_PROBE_PAIRS, &env, &status);
        for (ub4 i = 0; i < out.size; i++)
            printf("flight %" PRIu32 " from %s: airport %" PRIu32 "\n", flight[i], airports.text[airport[i]],
                   airport[i]);
    } while (result == TAVO_PROBE_FULL);
    printf("probe: status %" PRIu32 "\n", result);

    for (ub4 r = 0; r < 2; r++) {
        for (ub4 s = 0; s < kv.region[r].segment_count; s++)
            free(kv.region[r].segments[s]);
        free(kv.region[r].segments);
    }
    return dlclose(library);
}
