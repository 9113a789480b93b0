#include "host/join/join.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <numeric>

#include "host/column/packing.h"
#include "host/error.h"
#include "host/join/code_reader.h"
#include "host/join/radix_partitions.h"

namespace host {

namespace {

std::vector<column *> columns_of(const join_keys &keys, join_side side) {
    std::vector<column *> columns;
    for (std::size_t c = 0; c < keys.columns(); c++)
        columns.push_back(keys.of(side, c));
    return columns;
}
std::vector<const ub4 *> all_codes(const code_reader &reader, std::size_t columns) {
    std::vector<const ub4 *> codes;
    for (std::size_t c = 0; c < columns; c++)
        codes.push_back(reader.codes(c));
    return codes;
}

void fail(const char *operation, ub4 status) {
    throw error(fmt::format("{} failed with status {}", operation, status));
}

constexpr const char *type_names[] = {"",     "k2v4", "k2v8", "k4",   "k4v4",  "k4v8", "k6", "k6v4",
                                      "k6v8", "k8",   "k8v4", "k8v8", "k10v4", "k12",  "",   "k12v4"};

std::string describe(const table_memory &table, const join_keys &keys) {
    return fmt::format("{} table, {}, {} form, {} segment{}, {} KiB", type_names[TAVO_KV_TYPE(table.kv()->flags)],
                       keys.describe(), table.in_pointer_form() ? "pointer" : "index", table.segments(),
                       table.segments() == 1 ? "" : "s", table.bytes() / 1024);
}

// A vector whose row ids are its positions from `first` on.
struct row_ids {
    explicit row_ids(ub4 first, ub4 rows) {
        enc.flags = TAVO_ROWID_BASE;
        vec.enc = &enc;
        vec.first_row = first;
        vec.size = rows;
    }
    row_ids(const row_ids &) = delete;
    tavo_enc_ctx enc{};
    tavo_vec vec{};
};

bool needs_marks(join_kind kind) { return kind == join_kind::right || kind == join_kind::right_anti; }

constexpr ub4 probe_outputs = 8192; // a probe stops when they are full

} // namespace

join::join(session &s, const join_keys &keys, const join_settings &settings)
    : session_(s), ctx_(s.kernels().ctx()), keys_(keys), settings_(settings) {
    if (ctx_.create_add_kv == nullptr || ctx_.probe_kv == nullptr || ctx_.bloom == nullptr ||
        ctx_.mut_kv_scan == nullptr)
        throw error(fmt::format("{} has no operations for joins", s.kernels().path()));
}

std::vector<row_pair> join::run(join_kind kind, const join_rows &left, const join_rows &right) {
    if (right.keyed.count > 0)
        build(right, needs_marks(kind));
    std::vector<ub8> unmatched = left.all.bits;
    std::vector<row_pair> pairs;
    if (right.keyed.count > 0 && left.keyed.count > 0)
        pairs = probe(kind, left, unmatched);
    if (kind == join_kind::left || kind == join_kind::anti) {
        const std::size_t matched = pairs.size();
        for (const ub4 row : row_numbers(ctx_, {unmatched, left.rows}, left.rows, left.rows))
            pairs.push_back({row, no_row});
        std::inplace_merge(pairs.begin(), pairs.begin() + static_cast<std::ptrdiff_t>(matched), pairs.end());
    }
    if (needs_marks(kind)) {
        // Rows without a key are in no table.
        std::vector<ub8> keyless = right.all.bits;
        ub4 count = 0;
        if (right.rows > 0)
            ctx_.lbiwvandnot(keyless.data(), &count, right.keyed.bits.data(), right.all.bits.data(), right.rows);
        std::vector<ub4> alone = row_numbers(ctx_, {keyless, count}, right.rows, right.rows);
        if (table_ != nullptr)
            scan_unmarked(alone);
        std::sort(alone.begin(), alone.end());
        for (const ub4 row : alone)
            pairs.push_back({no_row, row});
    }
    return pairs;
}

void join::build(const join_rows &right, bool pointer_form) {
    ub8 distinct = 1;
    for (const column *col : columns_of(keys_, join_side::right))
        distinct = std::min<ub8>(distinct * std::max<ub8>(1, col->dict().end_code()), right.keyed.count);
    {
        const step_clock clock;
        table_ = std::make_unique<table_memory>(
            ctx_,
            table_memory::shape{keys_.table_kind(), keys_.table_type(), distinct, right.keyed.count, pointer_form},
            settings_.overflow_limit);
        steps_.add("tavo_layout_kv_dydi", "", describe(*table_, keys_), right.keyed.count, right.keyed.count,
                   clock.seconds());
    }
    if (keys_.form() == key_form::shared_codes)
        for (const column *col : columns_of(keys_, join_side::right))
            used_.emplace_back(col->dict().end_code());
    if (keys_.form() != key_form::shared_codes || keys_.columns() > 1)
        filter_ = std::make_unique<bloom_filter>(right.keyed.count);
    key_vectors vectors(session_, keys_, join_side::right, steps_);
    right_rows_.reserve(right.keyed.count);
    if (right.keyed.count >= settings_.partition_from && table_->segments() > 1) {
        add_by_partitions(right, vectors);
        return;
    }
    code_reader reader(session_, columns_of(keys_, join_side::right), right.rows, right.keyed, settings_.batch_rows,
                       steps_);
    while (const ub4 rows = reader.next()) {
        vectors.set_codes(all_codes(reader, keys_.columns()), rows);
        note_used(all_codes(reader, keys_.columns()), rows);
        tavo_vec *hashes = vectors.make_hashes();
        if (filter_)
            filter_->add({static_cast<const ub8 *>(hashes->data), rows});
        row_ids values(static_cast<ub4>(right_rows_.size()), rows);
        add_to_table(hashes, &values.vec, vectors.make_keys(), -1);
        right_rows_.insert(right_rows_.end(), reader.row_numbers().begin(), reader.row_numbers().begin() + rows);
    }
}

void join::note_used(const std::vector<const ub4 *> &codes, ub4 rows) {
    for (std::size_t c = 0; c < used_.size(); c++) {
        const std::vector<ub4> &shared = keys_.dictionary_of(join_side::right, c).shared_code;
        for (ub4 i = 0; i < rows; i++)
            used_[c][shared[codes[c][i]]] = true;
    }
}

void join::add_to_table(tavo_vec *hashes, tavo_vec *values, tavo_vec *keys, sb8 segment) {
    tavo_env env{};
    env.host = session_.record();
    tavo_kv_status missing{};
    const step_clock clock;
    const ub4 status =
        ctx_.create_add_kv(table_->kv(), hashes, values, keys, segment, &env, table_memory::hand_out, &missing);
    session_.throw_raised();
    if (status == table_memory::over_limit)
        throw error(fmt::format("the join's table needs more memory than it may take: its overflow has {} of {} bytes",
                                table_->overflow_bytes(), settings_.overflow_limit));
    if (status != TAVO_DONE)
        fail("tavo_create_add_kv_dydi", status);
    steps_.add("tavo_create_add_kv_dydi", "", segment < 0 ? "rows to the table" : "rows to the table by segment",
               hashes->size, hashes->size, clock.seconds());
}

// All rows' hashes go to partitions first, one for each segment, so that the buckets that are written next to each
// other in time lie together.
void join::add_by_partitions(const join_rows &right, key_vectors &vectors) {
    code_reader reader(session_, columns_of(keys_, join_side::right), right.rows, right.keyed, settings_.batch_rows,
                       steps_);
    std::vector<std::vector<ub4>> codes(keys_.columns());
    radix_partitions partitions(ctx_, table_->kv()->region[0].element_bits, table_->kv()->region[0].segment_id_bits,
                                TAVO_PARTITION_HASH | TAVO_PARTITION_ROW_ID, 16);
    while (const ub4 rows = reader.next()) {
        vectors.set_codes(all_codes(reader, keys_.columns()), rows);
        note_used(all_codes(reader, keys_.columns()), rows);
        tavo_vec *hashes = vectors.make_hashes();
        if (filter_)
            filter_->add({static_cast<const ub8 *>(hashes->data), rows});
        row_ids positions(static_cast<ub4>(right_rows_.size()), rows);
        const step_clock clock;
        partitions.add(hashes, &positions.vec);
        steps_.add("tavo_partition_dydi", "", fmt::format("{} partitions, row ids and hashes", partitions.count()),
                   rows, rows, clock.seconds());
        right_rows_.insert(right_rows_.end(), reader.row_numbers().begin(), reader.row_numbers().begin() + rows);
        for (std::size_t c = 0; c < codes.size(); c++)
            codes[c].insert(codes[c].end(), reader.codes(c), reader.codes(c) + rows);
    }
    std::vector<std::vector<ub4>> chosen(keys_.columns());
    std::vector<ub8> chosen_hashes;
    std::vector<ub4> positions;
    for (std::size_t p = 0; p < partitions.count(); p++) {
        chosen_hashes.clear();
        positions.clear();
        partitions.each_chunk(p, [&](std::span<const ub1> records) {
            for (std::size_t at = 0; at < records.size(); at += 16) {
                ub8 record[2];
                std::memcpy(record, &records[at], sizeof record);
                positions.push_back(static_cast<ub4>(record[0]));
                chosen_hashes.push_back(record[1]);
            }
        });
        if (positions.empty())
            continue;
        std::vector<const ub4 *> pointers;
        for (std::size_t c = 0; c < codes.size(); c++) {
            chosen[c].resize(positions.size() + 16);
            for (std::size_t i = 0; i < positions.size(); i++)
                chosen[c][i] = codes[c][positions[i]];
            pointers.push_back(chosen[c].data());
        }
        vectors.set_codes(pointers, static_cast<ub4>(positions.size()));
        tavo_enc_ctx hash_enc{}, value_enc{};
        hash_enc.flags = TAVO_HASHES;
        hash_enc.width_bits = 64;
        hash_enc.width_code = TAVO_WIDTH_CODE_64;
        value_enc.flags = TAVO_FIXED;
        value_enc.width_bits = 32;
        value_enc.width_code = TAVO_WIDTH_CODE_32;
        tavo_vec hashes{}, values{};
        hashes.enc = &hash_enc;
        hashes.data = chosen_hashes.data();
        values.enc = &value_enc;
        values.data = positions.data();
        hashes.size = values.size = static_cast<ub4>(positions.size());
        add_to_table(&hashes, &values, vectors.make_keys(), static_cast<sb8>(p));
    }
}

std::vector<row_pair> join::probe(join_kind kind, const join_rows &left, std::vector<ub8> &unmatched) {
    const ub4 mode = kind == join_kind::left         ? TAVO_PROBE_NONMATCH
                     : kind == join_kind::anti       ? TAVO_PROBE_DISTINCT
                     : kind == join_kind::right      ? TAVO_PROBE_PAIRS_MUTKV
                     : kind == join_kind::right_anti ? TAVO_PROBE_COUNT_MUTKV
                                                     : TAVO_PROBE_PAIRS;
    const char *const what = kind == join_kind::left         ? "pairs, and rows without a match"
                             : kind == join_kind::anti       ? "one match a row"
                             : kind == join_kind::right      ? "pairs, matched entries marked"
                             : kind == join_kind::right_anti ? "matched entries marked"
                                                             : "pairs";
    std::vector<row_pair> pairs;
    code_reader reader(session_, columns_of(keys_, join_side::left), left.rows, left.keyed, settings_.batch_rows,
                       steps_);
    key_vectors vectors(session_, keys_, join_side::left, steps_);
    std::vector<ub8> passing, rids;
    std::vector<ub4> places, values(probe_outputs);
    std::vector<ub8> rid_out(probe_outputs);
    tavo_kv_status status_out{};
    std::vector<translation> translations;
    for (std::size_t c = 0; c < used_.size(); c++)
        translations.push_back(keys_.translation_of(c, used_[c]));
    while (const ub4 rows = reader.next()) {
        if (translations.empty()) {
            vectors.set_codes(all_codes(reader, keys_.columns()), rows);
            places.resize(rows);
            std::iota(places.begin(), places.end(), ub4{0});
        } else {
            places = vectors.set_partners(all_codes(reader, keys_.columns()), rows, translations);
        }
        if (places.empty())
            continue;
        tavo_vec *hashes = vectors.make_hashes();
        if (filter_) {
            passing.resize((places.size() + 63) / 64);
            ub4 extent[2];
            tavo_vec res{};
            res.bits = passing.data();
            res.data = extent;
            res.size = hashes->size;
            tavo_env env{};
            const step_clock clock;
            const ub4 status = ctx_.bloom(&res, hashes, filter_->vec(), &env, bloom_filter::mode);
            if (status != TAVO_DONE && status != TAVO_NONE_SELECTED)
                fail("tavo_bloom_dydi", status);
            steps_.add("tavo_bloom_dydi", "",
                       fmt::format("filter of {} KiB, two bits a row", (filter_->bytes() + 1023) / 1024), hashes->size,
                       res.count, clock.seconds());
            if (res.count == 0)
                continue;
            const std::vector<ub4> passed = row_numbers(ctx_, {passing, res.count}, hashes->size, hashes->size);
            vectors.keep(passed);
            for (std::size_t i = 0; i < passed.size(); i++)
                places[i] = places[passed[i]];
            places.resize(passed.size());
        }
        const ub4 n = static_cast<ub4>(places.size());
        rids.resize(n);
        for (ub4 i = 0; i < n; i++)
            rids[i] = reader.row_numbers()[places[i]];
        tavo_vec *keys = vectors.make_keys();

        tavo_enc_ctx rid_enc{};
        rid_enc.flags = TAVO_FIXED;
        rid_enc.width_bits = 64;
        rid_enc.width_code = TAVO_WIDTH_CODE_64;
        tavo_vec rid_vec{}, value_out{};
        rid_vec.enc = &rid_enc;
        rid_vec.data = rids.data();
        rid_vec.size = n;
        value_out.data = values.data();
        tavo_aux_info aux{};
        aux.nonmatch_bv = unmatched.data();
        tavo_env probe_env{};
        probe_env.host = session_.record();
        probe_env.aux = &aux;
        const std::size_t batch_begin = pairs.size();
        ub8 matches = 0;
        double seconds = 0;
        for (ub4 status = TAVO_PROBE_FULL; status == TAVO_PROBE_FULL;) {
            value_out.size = probe_outputs;
            value_out.count = 0;
            const step_clock clock;
            status = ctx_.probe_kv(&value_out, rid_out.data(), hashes, &rid_vec, keys, table_->kv(), mode, &probe_env,
                                   &status_out);
            seconds += clock.seconds();
            session_.throw_raised();
            if (status != TAVO_DONE && status != TAVO_PROBE_FULL)
                fail("tavo_probe_kv_dydi", status);
            matches += value_out.size;
            if (kind == join_kind::right_anti)
                continue;
            for (ub4 i = 0; i < value_out.size; i++) {
                const auto row = static_cast<ub4>(rid_out[i]);
                if (kind == join_kind::anti)
                    unmatched[row / 64] &= ~(ub8{1} << row % 64);
                else
                    pairs.push_back({row, right_rows_[values[i]]});
            }
        }
        steps_.add("tavo_probe_kv_dydi", "", what, n, static_cast<ub4>(std::min<ub8>(matches, 0xffffffff)), seconds);
        // A row's matches come as they stand in the table's chain.
        std::sort(pairs.begin() + static_cast<std::ptrdiff_t>(batch_begin), pairs.end());
    }
    return pairs;
}

void join::scan_unmarked(std::vector<ub4> &right_rows) {
    std::vector<ub4> values(probe_outputs);
    tavo_kv_scan_position position{};
    const std::size_t before = right_rows.size();
    const step_clock clock;
    for (ub4 status = TAVO_SCAN_FULL; status == TAVO_SCAN_FULL;) {
        tavo_vec out{};
        out.data = values.data();
        out.size = probe_outputs;
        status = ctx_.mut_kv_scan(&out, table_->kv(), TAVO_SCAN_UNMARKED, &position, table_->segments());
        if (status != TAVO_DONE && status != TAVO_SCAN_FULL)
            fail("tavo_mut_kv_scan_dydi", status);
        for (ub4 i = 0; i < out.size; i++)
            right_rows.push_back(right_rows_[values[i]]);
    }
    steps_.add("tavo_mut_kv_scan_dydi", "", "entries without a mark", static_cast<ub4>(right_rows_.size()),
               static_cast<ub4>(right_rows.size() - before), clock.seconds());
}

} // namespace host
