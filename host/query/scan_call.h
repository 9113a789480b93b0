// One scan of a plan as the library takes it: the kernel of the column's form and the operator, and its constants.
#pragma once

#include <string>
#include <vector>

#include "host/link/loader.h"
#include "host/query/code_plan.h"

namespace host {

class scan_call {
public:
    // Of a plan that is a scan or a set. Throws if the library has no such kernel.
    scan_call(const code_plan &, const library &);
    scan_call(const scan_call &) = delete;
    scan_call &operator=(const scan_call &) = delete;

    const std::string &kernel() const { return name_; }
    std::string constants() const; // in words
    // Whether it can go row by row along a selection: not over runs, and there is no such path at one bit.
    bool can_walk() const { return can_walk_; }

    ub4 run(tavo_vec *res, tavo_env *env);

private:
    // Kernels of codes read one byte at width 8, two at width 16 and four at all other widths, in the processor's byte
    // order; those of numbers the bytes of one number as the column has them, and a zone.
    struct constant {
        ub8 stored = 0;
        ub1 byte = 0, zone = 0;
        ub2 two_bytes = 0;
        tavo_vec vec{};
    };
    void set_code(constant &, ub8 code) const;
    void set_number(constant &, ub8 code, bool last_zone) const;
    void make_set();

    const code_plan &plan_;
    tavo_kernel_slot kernel_{};
    std::string name_;
    bool can_walk_ = true;
    constant low_, high_;
    std::vector<ub8> set_;
};

// Whether there is a kernel for membership in a set of a column's codes. Numbers of one, two or three bytes, and of
// four if they don't go too far, are packed codes of that width too.
bool has_set_kernel(const stored_column &);

// A kernel's name, made from what picks it: tavo_ge_le_dict_12bit_null.
std::string scan_name(tavo_operation op, unsigned width, tavo_variant variant);

} // namespace host
