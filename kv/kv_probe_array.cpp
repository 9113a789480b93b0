// Probes of the array kinds: the key is an index, so no hash is read and nothing compared.
#include "frame/tavo_status.h"
#include "kv/array_probe.h"
#include "kv/join_vectors.h"
#include "kv/kv_probe_kernels.h"
#include "kv/probe_output.h"

namespace tavo {

constexpr kernel_texts array_texts = TAVO_KERNEL_TEXTS(tavo_probe_kv_dydi);

// Which modes an array takes: those of its type, without marks, which only buckets have.
static ub4 array_mode_status(ub4 mode, bool values) noexcept {
    constexpr ub4 list_modes = 0b110010101011, count_modes = 0b11110011;
    if (values && (mode == TAVO_PROBE_COUNT_MUTKV || mode == TAVO_PROBE_PAIRS_MUTKV))
        return TAVO_UNSUPPORTED;
    return mode < probe_modes && ((values ? list_modes : count_modes) >> mode & 1) ? TAVO_DONE : TAVO_MODE_REFUSED;
}

// What the probes of lists and of counters share: rows, row ids, room, how a call ends.
struct array_probe {
    tavo_vec *value_out;
    void *rid_out;
    tavo_kv *kv;
    ub4 mode;
    tavo_env *env;
    tavo_kv_status *status;
    const ub1 *keys;
    ub4 rows, capacity;
    row_ids rids;
    ub4 written = 0;
    ub8 counted = 0;

    array_probe(tavo_vec *out, void *rids_at, tavo_vec *rid_vec, tavo_vec *key_vec, tavo_kv *table, ub4 m, tavo_env *e,
                tavo_kv_status *s) noexcept
        : value_out(out), rid_out(rids_at), kv(table), mode(m), env(e), status(s),
          keys(data_of(key_vec, e, array_texts)), rows(key_vec->size),
          capacity(counts(m) || !out ? 0 : out->size), rids{false, 0} {
        TAVO_ASSERT(counts(mode) || (value_out && env->aux));
        if (!writes_rids(mode))
            return;
        const bool autorid = flags_of(rid_vec) & TAVO_ROWID_BASE;
        rids = {autorid, autorid ? rid_vec->first_row : reinterpret_cast<ub8>(data_of(rid_vec, e, array_texts))};
    }

    ub4 key(ub8 row) const noexcept { return load_as<ub4>(keys + row * 4); }
    ub4 room() const noexcept { return capacity - written; }

    // n outputs for a row, whose values are in place.
    void take(ub8 row, ub4 n) noexcept {
        if (writes_rids(mode))
            rids.write(rid_out, written, n, row);
        written += n;
    }
    void clear_nonmatch(ub8 row) const noexcept {
        if (mode == TAVO_PROBE_NONMATCH)
            clear_bit(env->aux->nonmatch_bv, rids.of(row) - env->aux->bv_base);
    }
    ub4 end(ub8 row, ub4 result) noexcept {
        if (result == TAVO_DONE)
            status->probe.rows += (rows - env->resume_row) % batch_rows;
        env->resume_row = static_cast<ub4>(row);
        if (value_out) {
            value_out->size = counts(mode) ? static_cast<ub4>(counted) : written;
            if (counts(mode))
                value_out->count = value_out->size;
        }
        return result;
    }
};

// Slots are fetched this many rows ahead, and what they lead to half as many.
constexpr ub4 slots_ahead = 64, lists_ahead = 32;

template <class List>
static ub4 probe_lists(array_probe &probe) noexcept {
    tavo_aux_info *aux = probe.env->aux;
    auto *values = counts(probe.mode) ? nullptr : static_cast<typename List::value *>(probe.value_out->data);
    const sb8 largest = (static_cast<sb8>(probe.kv->region[0].mapped_segments) << list_key_bits) - 1;
    const bool segbv = probe.mode == TAVO_PROBE_COUNT_SEGBV || probe.mode == TAVO_PROBE_PAIRS_SEGBV;
    for (ub8 row = probe.env->resume_row; row < probe.rows; row++) {
        if (row + slots_ahead < probe.rows && probe.key(row + slots_ahead) <= largest)
            _mm_prefetch(List::of(probe.kv, probe.key(row + slots_ahead)).slot_address(), _MM_HINT_T0);
        if (row + lists_ahead < probe.rows && probe.key(row + lists_ahead) <= largest)
            _mm_prefetch(List::of(probe.kv, probe.key(row + lists_ahead)).behind(), _MM_HINT_T0);
        if (probe.key(row) > largest)
            continue;
        const List list = List::of(probe.kv, probe.key(row));
        if (list.empty())
            continue;
        if (counts(probe.mode)) {
            if (segbv)
                probe.counted += list.set_bits(aux);
            else
                list.each_run([&](const auto *, ub4 n) { probe.counted += n; });
            continue;
        }
        auto *out = values + probe.written;
        if (list.single() || probe.mode == TAVO_PROBE_DISTINCT) {
            if (probe.room() == 0)
                return probe.end(row, TAVO_PROBE_FULL);
            *out = list.newest();
            if (segbv)
                set_bit(aux->segbv, *out - aux->bv_base);
            probe.take(row, 1);
        } else {
            const sb8 read = list.read(aux, out, probe.room(), segbv);
            probe.take(row, static_cast<ub4>(read < 0 ? -read : read));
            if (read <= 0) {
                if (read < 0)
                    probe.clear_nonmatch(row);
                return probe.end(row, TAVO_PROBE_FULL);
            }
        }
        probe.clear_nonmatch(row);
    }
    return probe.end(probe.rows, TAVO_DONE);
}

// A key's occurrences as `matches` of the row: its id goes out that often.
static ub4 probe_counters(array_probe &probe) noexcept {
    tavo_aux_info *aux = probe.env->aux;
    const ub8 keys_end = ub8{probe.kv->region[0].mapped_segments} << counter_key_bits;
    for (ub8 row = probe.env->resume_row; row < probe.rows; row++) {
        if (row + slots_ahead < probe.rows && probe.key(row + slots_ahead) < keys_end)
            _mm_prefetch(seen_bits_of(probe.kv, probe.key(row + slots_ahead)).words, _MM_HINT_T0);
        const ub4 key = probe.key(row);
        ub8 matches = 0;
        if (key < keys_end) {
            const seen_bits seen = seen_bits_of(probe.kv, key);
            if (seen.once())
                matches = seen.twice() ? ub8{static_cast<ub4>(*counter_of(probe.kv, key))} + 1 : 1;
        }
        if (probe.mode == TAVO_PROBE_COUNT)
            probe.counted += matches;
        else if (probe.mode == TAVO_PROBE_COUNT_DISTINCT)
            probe.counted += matches != 0;
        else if (probe.mode == TAVO_PROBE_COUNT_NONMATCH)
            probe.counted += std::max<ub8>(matches, 1);
        else if (matches != 0) {
            if (probe.mode == TAVO_PROBE_DISTINCT)
                matches = 1;
            const ub8 left = matches - aux->tavo_aux_stream_position;
            const auto n = static_cast<ub4>(std::min<ub8>(left, probe.room()));
            probe.take(row, n);
            probe.clear_nonmatch(row);
            if (n < left) {
                aux->tavo_aux_stream_position += n;
                return probe.end(row, TAVO_PROBE_FULL);
            }
            aux->tavo_aux_stream_position = 0;
        }
    }
    return probe.end(probe.rows, TAVO_DONE);
}

} // namespace tavo

using namespace tavo;

#define TAVO_ARRAY_FRONT(name, values, text)                                                                           \
    extern "C" ub4 name(tavo_vec *value_out, void *rid_out, tavo_vec *, tavo_vec *rids, tavo_vec *keys, tavo_kv *kv,   \
                        ub4 mode, tavo_env *env, tavo_kv_status *status) noexcept {                                    \
        if (const ub4 refused = array_mode_status(mode, values))                                                       \
            return refused;                                                                                            \
        array_probe probe(value_out, rid_out, rids, keys, kv, mode, env, status);                                      \
        return text(probe);                                                                                            \
    }
TAVO_ARRAY_FRONT(tavo_kv_probe_k4_gd_array_acnt, false, probe_counters)
TAVO_ARRAY_FRONT(tavo_kv_probe_k4v4_gd_array_arid4, true, probe_lists<list4>)
TAVO_ARRAY_FRONT(tavo_kv_probe_k4v8_gd_array_arid8, true, probe_lists<list8>)
