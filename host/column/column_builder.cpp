#include "host/column/column_builder.h"

#include <cstring>
#include <fmt/format.h>

#include "host/column/value_sort.h"
#include "host/error.h"

namespace host {

namespace {

constexpr ub4 null_number = 0xffffffff;
constexpr std::size_t null_place = 0xffffffffff; // in the four bytes of a short text it is 0xffffffff
constexpr ub4 most_seen = 1 << 20;               // different texts beyond this are sorted in any case
constexpr std::size_t bad_shown = 100;

ub8 mixed(ub8 a) {
    a *= 0x9e3779b97f4a7c15ull;
    return a ^ a >> 32;
}

ub8 hash_of(std::string_view text) {
    ub8 hash = text.size(), piece = 0;
    const char *at = text.data();
    std::size_t left = text.size();
    for (; left > 8; at += 8, left -= 8) {
        std::memcpy(&piece, at, 8);
        hash = mixed(hash ^ piece);
    }
    piece = 0;
    for (std::size_t i = 0; i < left; i++)
        piece = piece << 8 | static_cast<unsigned char>(at[i]);
    return mixed(hash ^ piece);
}

} // namespace

ub4 seen_texts::number_of(const csv_field &field) {
    if (entries_.size() * 2 >= slots_.size())
        double_slots();
    const ub4 hash = static_cast<ub4>(hash_of(field.text));
    for (std::size_t slot = hash & (slots_.size() - 1);; slot = (slot + 1) & (slots_.size() - 1)) {
        if (slots_[slot] == none) {
            slots_[slot] = size();
            entries_.push_back({text_.place_of(field), static_cast<ub4>(field.text.size()), hash});
            return slots_[slot];
        }
        const entry &e = entries_[slots_[slot]];
        // Between quotes or not, the same characters are the same value: doubled quotes stand in no other field.
        const char *known = text_.text.data() + e.place;
        if (e.hash == hash && e.length == field.text.size() &&
            std::memcmp(known + (*known == '"'), field.text.data(), e.length) == 0)
            return slots_[slot];
    }
}

void seen_texts::double_slots() {
    slots_.assign(slots_.size() * 2, none);
    for (ub4 number = 0; number < size(); number++) {
        std::size_t slot = entries_[number].hash & (slots_.size() - 1);
        while (slots_[slot] != none)
            slot = (slot + 1) & (slots_.size() - 1);
        slots_[slot] = number;
    }
}

void column_builder::note_type(std::string_view value, std::size_t line) {
    if (!type_.declared())
        return type_.see(value, line);
    if (common_type(type_of(value), type_.type()) == type_.type())
        return;
    bad_count_++;
    if (bad_.size() < bad_shown)
        bad_.push_back({line, std::string(value)});
}

void column_builder::add(const csv_field &field, std::size_t line) {
    const std::string_view value = field.value(made_);
    if (value.size() > symbol_list::longest)
        throw error(fmt::format("column {} does not fit: line {} has a value of {} bytes, where {} is the limit", name_,
                                line, value.size(), symbol_list::longest));
    if (by_places_) {
        note_type(value, line);
        places_.add(text_.place_of(field));
        return;
    }
    const ub4 before = texts_.size(), number = texts_.number_of(field);
    if (number == before || type_.declared())
        note_type(value, line);
    numbers_.push_back(number);
    const ub4 now = texts_.size();
    if (now != before && now >= many_ && (now & (now - 1)) == 0 &&
        (now * ub8{8} >= numbers_.size() * ub8{7} || now >= most_seen))
        go_on_by_places();
}

void column_builder::add_null() {
    has_null_ = true;
    if (by_places_)
        places_.add(null_place);
    else
        numbers_.push_back(null_number);
}

// From the numbers of texts to the places at which these stand.
void column_builder::go_on_by_places() {
    // Room for as many rows as the file has if all are as long as those before.
    const std::size_t behind = texts_.place(texts_.size() - 1), all = text_.text.size();
    places_.reserve(std::min(all, all / std::max<std::size_t>(behind / numbers_.size(), 1) * 5 / 4));
    for (const ub4 number : numbers_)
        places_.add(number == null_number ? null_place : texts_.place(number));
    numbers_.clear();
    texts_ = seen_texts(text_);
    by_places_ = true;
}

// Puts the values in order, adds each different text to the symbols, and a code into the room of each place. `order`
// holds the numbers of the places that are values, behind two entries that are free: the ends of the symbols, of which
// there are at most two more than values, are written over them.
void column_builder::encode(place_list &places, block<ub4> order, symbol_list &symbols) const {
    {
        value_sorter sorter(text_, places, type_.type());
        sorter.sort({order.data() + 2, order.size() - 2});
    }
    const ub4 *numbers = order.data() + 2;
    const std::size_t values = order.size() - 2;
    std::string made;
    symbols = symbol_list(name_, std::move(order)); // its memory stays where it is while the list has room
    if (by_places_)
        symbols.reserve(text_.text.size()); // all of it together is not longer
    if (has_null_)
        symbols.add("");
    for (std::size_t i = 0; i < values; i++) {
        fetch_ahead(text_, places, {numbers, values}, i);
        const ub4 number = numbers[i];
        const std::string_view value = text_.value_at(places[number], made);
        if (i == 0 || value != symbols.last())
            symbols.add(value);
        places.replace(number, symbols.size() - 1);
    }
}

column_builder::result column_builder::finish() {
    symbol_list symbols(name_, {});
    block<ub4> order(2);
    block<ub4> codes;
    if (by_places_) {
        order.resize(2 + places_.size());
        std::size_t values = 0;
        const std::size_t null = text_.text.size() < 0xffffffff ? null_number : null_place;
        for (std::size_t row = 0; row < places_.size(); row++)
            if (places_[row] != null)
                order[2 + values++] = static_cast<ub4>(row);
        order.resize(2 + values);
        encode(places_, std::move(order), symbols);
        codes = std::move(places_).low();
        if (has_null_)
            for (ub4 &code : codes)
                code = code == null_number ? 0 : code;
    } else {
        place_list places(text_.text.size());
        order.resize(2 + std::size_t{texts_.size()});
        for (ub4 number = 0; number < texts_.size(); number++) {
            places.add(texts_.place(number));
            order[2 + number] = number;
        }
        encode(places, std::move(order), symbols);
        const block<ub4> code_of = std::move(places).low();
        codes = std::move(numbers_);
        for (ub4 &code : codes)
            code = code == null_number ? 0 : code_of[code];
    }
    return {dictionary(std::move(type_), has_null_, symbol_table(std::move(symbols))), std::move(codes)};
}

} // namespace host
