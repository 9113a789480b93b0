// The operation that parses the text of vectors, and its members. The operation's contract stands in
// frame/tavo_vector.h.
#pragma once

#include "frame/tavo_avx512g.h"

// Every character set with every element type.
#define TAVO_EACH_TEXT_TYPE(K, charset) K(charset, float) K(charset, double) K(charset, int8)
#define TAVO_EACH_TEXT(K) TAVO_EACH_TEXT_TYPE(K, ascii) TAVO_EACH_TEXT_TYPE(K, utf16)

#define TAVO_PARSER(charset, type)                                                                                     \
    ub4 tavo_vector_parse_##charset##_##type(tavo_vec *res, tavo_vec *norms, tavo_vec *text, ub8 *bad_rows,            \
                                             tavo_env *env) noexcept

extern "C" {
ub4 tavo_vector_parse_dydi(tavo_vec *res, tavo_vec *norms, tavo_vec *text, ub8 *bad_rows, tavo_env *env) noexcept;

#define TAVO_DECLARE_PARSER(charset, type) TAVO_PARSER(charset, type);
TAVO_EACH_TEXT(TAVO_DECLARE_PARSER)
#undef TAVO_DECLARE_PARSER
}
