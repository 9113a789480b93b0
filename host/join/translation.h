// Codes of one dictionary to those of another, by a table that the translation kernels look them up in.
//
//   sim  one entry a code, where the codes that have a partner begin near 0 and lie close together
//   off  entries from the first code with a partner to the last one
//   ind  leaves of 256 entries, where most of them would have no partner at all
//
// An entry has as few bytes, or four bits, as hold all partners and the mark for none.
#pragma once

#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/join/step_list.h"
#include "host/link/callbacks.h"

namespace host {

class translation {
public:
    static constexpr ub4 no_partner = 0xffffffff;

    // partners[code], or no_partner.
    explicit translation(const std::vector<ub4> &partners);
    translation(translation &&) = default;
    translation &operator=(translation &&) = default;

    // Translates codes, of all rows or, if `selected`, of those in `bits`: the rows with a partner are left there, and
    // their partners go to out[row]. Returns how many there are.
    ub4 run(session &, const std::string &column, const ub4 *codes, ub4 rows, bool selected, std::vector<ub8> &bits,
            std::vector<ub4> &out, step_list &steps);

    std::string kernel_name() const; // tavo_xlate_off_ub2_c2d
    std::string describe() const;

private:
    // Numbers as in the dispatch table.
    enum class lookup { sim = TAVO_CLASS_FIXED, off = TAVO_CLASS_DICT, ind = TAVO_CLASS_DYNP };
    enum class element { nibble = 1, byte, two_bytes, four_bytes }; // nib, ub1, ub2, ub4
    static constexpr ub4 leaf_bits = 8;

    std::size_t bytes_for(std::size_t entries) const;
    void put(std::vector<ub1> &table, std::size_t i, ub4 partner) const;

    lookup lookup_ = lookup::sim;
    element element_ = element::four_bytes;
    tavo_xlate_ctx ctx_{1, 0, leaf_bits};
    ub8 entries_ = 0;
    std::vector<ub1> table_;                // of sim and off
    std::vector<std::vector<ub1>> leaves_;  // of ind ...
    std::vector<const void *> leaf_places_; // ... and where they are, by the codes' upper bits
    std::vector<ub4> codes_;                // big-endian
    std::vector<ub1> narrow_;               // partners as the kernel writes them
};

} // namespace host
