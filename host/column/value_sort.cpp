#include "host/column/value_sort.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace host {

namespace {

constexpr std::size_t piece = 16384; // numbers whose records fit the second-level cache
constexpr std::size_t few = 256;     // below this, comparisons are faster than counting
constexpr std::size_t most_splitters = 1023, samples_a_splitter = 8;

// The eight bytes of a text from `depth` on, zero behind its end, as a number that compares like them.
ub8 bytes_from(std::string_view text, std::size_t depth) {
    if (depth >= text.size())
        return 0;
    ub8 bytes = 0;
    std::memcpy(&bytes, text.data() + depth, std::min<std::size_t>(8, text.size() - depth));
    return __builtin_bswap64(bytes);
}

// By counting, one byte of the keys after the other from the lowest one up; bytes that all keys share are left out.
template <class Record>
void sort_by_bytes(block<Record> &records, block<Record> &scratch) {
    ub8 differing = 0;
    for (const Record &r : records)
        differing |= r.key ^ records[0].key;
    scratch.resize(records.size());
    for (unsigned shift = 0; shift < 64; shift += 8) {
        if ((differing >> shift & 0xff) == 0)
            continue;
        std::array<ub4, 256> place{};
        for (const Record &r : records)
            place[r.key >> shift & 0xff]++;
        ub4 sum = 0;
        for (ub4 &p : place)
            p = std::exchange(sum, sum + p);
        for (const Record &r : records)
            scratch[place[r.key >> shift & 0xff]++] = r;
        std::swap(records, scratch);
    }
}

} // namespace

ub8 value_sorter::key_of(ub4 number, std::size_t depth) {
    const std::string_view value = text_.value_at(places_[number], made_);
    if (type_ == value_type::text)
        return bytes_from(value, depth);
    if (depth == 0 && (type_ == value_type::integer || type_ == value_type::decimal))
        if (const ub8 key = short_integer_key(value); key != 0)
            return key;
    make_sort_key(type_, value, key_);
    return bytes_from(key_, depth);
}

bool value_sorter::before(ub4 a, ub4 b) {
    const std::string_view x = text_.value_at(places_[a], made_), y = text_.value_at(places_[b], other_made_);
    if (type_ != value_type::text) {
        make_sort_key(type_, x, key_);
        make_sort_key(type_, y, other_key_);
        if (const int order = key_.compare(other_key_); order != 0)
            return order < 0;
    }
    return x < y;
}

void value_sorter::sort(std::span<ub4> numbers, std::size_t depth) {
    if (numbers.size() <= piece)
        return sort_piece(numbers, depth);

    std::vector<ub8> splitters;
    const std::size_t samples = std::min(most_splitters, numbers.size() / (piece / 4)) * samples_a_splitter;
    for (std::size_t i = 0; i < samples; i++)
        splitters.push_back(key_of(numbers[(numbers.size() - 1) / (samples - 1) * i], depth));
    std::sort(splitters.begin(), splitters.end());
    for (std::size_t i = 0; i * samples_a_splitter < samples; i++)
        splitters[i] = splitters[i * samples_a_splitter + samples_a_splitter / 2];
    splitters.resize(samples / samples_a_splitter);
    splitters.erase(std::unique(splitters.begin(), splitters.end()), splitters.end());

    // Bucket 2i holds the keys between splitters i - 1 and i, bucket 2i + 1 those equal to splitter i.
    const std::size_t all = splitters.size();
    std::vector<std::size_t> ends(2 * all + 1);
    {
        block<ub2> bucket_of(numbers.size());
        for (std::size_t i = 0; i < numbers.size(); i++) {
            const ub8 key = key_of(numbers[i], depth);
            const ub8 *first = splitters.data();
            for (std::size_t left = all; left > 0;) { // the first one not below the key, without branches
                const std::size_t half = (left + 1) / 2;
                const bool below = first[half - 1] < key;
                first = below ? first + half : first;
                left = below ? left - half : half - 1;
            }
            const std::size_t at = static_cast<std::size_t>(first - splitters.data());
            bucket_of[i] = static_cast<ub2>(2 * at + (at < all && *first == key));
            ends[bucket_of[i]]++;
        }
        std::size_t sum = 0;
        for (std::size_t &end : ends)
            end = std::exchange(sum, sum + end);
        block<ub4> moved(numbers.size());
        for (std::size_t i = 0; i < numbers.size(); i++)
            moved[ends[bucket_of[i]]++] = numbers[i];
        std::copy(moved.begin(), moved.end(), numbers.begin());
    }
    for (std::size_t bucket = 0; bucket < ends.size(); bucket++) {
        const std::size_t begin = bucket == 0 ? 0 : ends[bucket - 1];
        const std::span<ub4> inside = numbers.subspan(begin, ends[bucket] - begin);
        if (bucket % 2 == 1)
            sort_equal(inside, depth, splitters[bucket / 2]);
        else
            sort(inside, depth);
    }
}

void value_sorter::sort_piece(std::span<ub4> numbers, std::size_t depth) {
    if (numbers.size() < 2)
        return;
    records_.resize(numbers.size());
    for (std::size_t i = 0; i < numbers.size(); i++) {
        fetch_ahead(text_, places_, numbers, i);
        records_[i] = {key_of(numbers[i], depth), numbers[i]};
    }
    if (numbers.size() < few)
        std::sort(records_.begin(), records_.end(), [](const record &a, const record &b) { return a.key < b.key; });
    else
        sort_by_bytes(records_, scratch_);

    // Equal keys are looked for before the records are used again.
    std::vector<std::pair<std::size_t, std::size_t>> equal;
    std::vector<ub8> equal_keys;
    for (std::size_t i = 0, end; i < numbers.size(); i = end) {
        numbers[i] = records_[i].number;
        for (end = i + 1; end < numbers.size() && records_[end].key == records_[i].key; end++)
            numbers[end] = records_[end].number;
        if (end - i > 1) {
            equal.emplace_back(i, end - i);
            equal_keys.push_back(records_[i].key);
        }
    }
    for (std::size_t i = 0; i < equal.size(); i++)
        sort_equal(numbers.subspan(equal[i].first, equal[i].second), depth, equal_keys[i]);
}

// Numbers whose eight bytes at this depth are equal.
void value_sorter::sort_equal(std::span<ub4> numbers, std::size_t depth, ub8 key) {
    if (numbers.size() < 2)
        return;
    // How far all of them are one text.
    const std::string_view first = text_.value_at(places_[numbers[0]], other_made_);
    std::size_t same = first.size();
    bool one_text = true;
    for (const ub4 number : numbers.subspan(1)) {
        const std::string_view value = text_.value_at(places_[number], made_);
        one_text = one_text && value == first;
        const std::size_t most = std::min(same, value.size());
        same = static_cast<std::size_t>(
            std::mismatch(value.begin(), value.begin() + static_cast<std::ptrdiff_t>(most), first.begin()).first -
            value.begin());
    }
    if (one_text)
        return;
    // A key whose last byte is zero has ended, or holds zero bytes of its own. Texts that go on differing for very long
    // are left to comparisons, as each step takes room on the stack.
    constexpr std::size_t few_equal = 16;
    constexpr unsigned deepest = 100;
    if (numbers.size() <= few_equal || (key & 0xff) == 0 || level_ == deepest) {
        std::sort(numbers.begin(), numbers.end(), [this](ub4 a, ub4 b) { return before(a, b); });
        return;
    }
    level_++;
    sort(numbers, type_ == value_type::text ? std::max(depth + 8, same) : depth + 8);
    level_--;
}

} // namespace host
