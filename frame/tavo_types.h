/* The integer names of the library's interface. */
#ifndef TAVO_TYPES_H
#define TAVO_TYPES_H

#include <stdint.h>

typedef uint8_t ub1;
typedef uint16_t ub2;
typedef uint32_t ub4;
typedef uint64_t ub8;
typedef int16_t sb2;
typedef int32_t sb4;
typedef int64_t sb8;

/* Nothing throws across the library's boundary, in either direction: callbacks must not throw either. */
#ifdef __cplusplus
#define TAVO_NOEXCEPT noexcept
#define TAVO_STATIC_ASSERT(cond, text) static_assert(cond, text)
#else
#define TAVO_NOEXCEPT
#define TAVO_STATIC_ASSERT(cond, text) _Static_assert(cond, text)
#endif

#endif
