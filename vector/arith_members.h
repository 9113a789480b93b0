// The members of one operation, each stamped from the family's list.
#pragma once

#include "vector/arith_bodies.h"

#define TAVO_ARITH_MEMBER(suffix, scalar, norm_too, op, left, right, result)                                           \
    TAVO_ARITH_KERNEL(tavo_vector_arith_##op##_##left##_##right##_##result##suffix) {                                  \
        using namespace tavo::vector;                                                                                  \
        return arith<op_##op, form_##result>(                                                                          \
            dims, static_cast<const ub1 *>(a), static_cast<const ub1 *>(b), static_cast<ub1 *>(out), norm,             \
            {number_##left, number_##right, form_##result::comparable, scalar, norm_too});                             \
    }
#define TAVO_ARITH_MEMBERS_OF(op, left, right, result)                                                                 \
    TAVO_ARITH_MEMBER(_vec, false, false, op, left, right, result)                                                     \
    TAVO_ARITH_MEMBER(_vec_wnorm, false, true, op, left, right, result)                                                \
    TAVO_ARITH_MEMBER(_scalar, true, false, op, left, right, result)                                                   \
    TAVO_ARITH_MEMBER(_scalar_wnorm, true, true, op, left, right, result)
#define TAVO_ARITH_MEMBERS(op)                                                                                         \
    extern "C" {                                                                                                       \
    TAVO_EACH_ARITH_TRIPLE(TAVO_ARITH_MEMBERS_OF, op)                                                                  \
    }
