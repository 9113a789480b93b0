#include "vector/parse.h"

#include "frame/tavo_status.h"
#include "frame/tavo_vector.h"

extern "C" ub4 tavo_vector_parse_dydi(tavo_vec *res, tavo_vec *norms, tavo_vec *text, ub8 *bad_rows,
                                      tavo_env *env) noexcept {
    if ((res->enc->vec_dims == 0 && res->lengths == nullptr) || text->enc->vec_charset > 1)
        return TAVO_UNSUPPORTED;
    const bool utf16 = text->enc->vec_charset == 1;
    switch (res->enc->value_type) {
    case TAVO_ELEM_FLOAT:
        return (utf16 ? tavo_vector_parse_utf16_float : tavo_vector_parse_ascii_float)(res, norms, text, bad_rows, env);
    case TAVO_ELEM_DOUBLE:
        return (utf16 ? tavo_vector_parse_utf16_double : tavo_vector_parse_ascii_double)(res, norms, text, bad_rows,
                                                                                         env);
    case TAVO_ELEM_INT8:
        return (utf16 ? tavo_vector_parse_utf16_int8 : tavo_vector_parse_ascii_int8)(res, norms, text, bad_rows, env);
    default: return TAVO_UNSUPPORTED;
    }
}
