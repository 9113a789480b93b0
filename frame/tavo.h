/* Everything that a host of the library needs. */
#ifndef TAVO_H
#define TAVO_H

#include "tavo_avx512g.h"
#include "tavo_bit_iter.h"
#include "tavo_dense.h"
#include "tavo_env.h"
#include "tavo_group.h"
#include "tavo_kv.h"
#include "tavo_partition.h"
#include "tavo_rows.h"
#include "tavo_spatial.h"
#include "tavo_status.h"
#include "tavo_types.h"
#include "tavo_vec.h"
#include "tavo_vector.h"
#include "tavo_xlate.h"

#endif
