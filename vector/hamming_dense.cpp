#include "vector/distance_members.h"

TAVO_DENSE_MEMBERS(hamming)
