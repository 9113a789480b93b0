#include "vector/parse.h"
#include "vector/parse_row.h"

TAVO_PARSE_MEMBERS(ascii)
