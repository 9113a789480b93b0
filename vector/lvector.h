// Reading the head of a stored vector's image.
#pragma once

#include "frame/tavo_vector.h"

extern "C" {
// Fills in the header of an image; returns 0, or LVECTOR_BAD_MAGIC, LVECTOR_BAD_VERSION or LVECTOR_NO_FORMAT_MARK,
// tested in this order, with nothing written. Type and dimension count are passed through as they stand.
sb4 lvector_to_header_basic(const lvector *image, lvector_header *header) noexcept;

// The element type of a stored type byte; 0 for a byte that stands for none.
ub4 tavo_dbv_lvtype2tavo(ub4 stored_type) noexcept;
}
