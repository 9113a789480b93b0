/* Status numbers: one numbering for the whole library. Every kernel and nearly every operation returns one as ub4. */
#ifndef TAVO_STATUS_H
#define TAVO_STATUS_H

enum tavo_status {
    TAVO_DONE = 0,               /* done; for a scan: at least one row is selected */
    TAVO_NONE_SELECTED = 1,      /* done, and no row was selected or written */
    TAVO_UNSUPPORTED = 2,        /* no layout flag matched, or the operands have a bad shape */
    TAVO_NOT_POINTER_FORM = 3,   /* mutable scan: the table is not in pointer form */
    TAVO_OUT_OF_RANGE = 4,       /* group key too wide; vector result or norm infinite, NaN or beyond int8 */
    TAVO_DIVISION_BY_ZERO = 5,   /* vector arithmetic */
    TAVO_PARTITION_FULL = 6,     /* partition buffer full; tavo_env.full_partition says which */
    TAVO_ALLOCATION_REFUSED = 7, /* dense group keys: the host's allocator gave none */
    TAVO_BUDGET_EXHAUSTED = 8,   /* dense group keys: raise the budgets and call again */
    TAVO_TABLE_TOO_LARGE = 10,   /* a table of that size has no layout */
    TAVO_KEY_BEYOND_MAP = 11,    /* table build: key beyond the mapped array */
    TAVO_SEGMENT_MISSING = 12,   /* table build: second-level segment missing */
    TAVO_MODE_REFUSED = 14,      /* probe or mutable scan: no such mode for this table */
    TAVO_PROBE_FULL = 15,        /* probe output full: drain it and call again */
    TAVO_SCAN_FULL = 16,         /* mutable scan output full: drain it and call again */
    TAVO_TARGET_FULL = 18,       /* transpose: target bytes full */
    TAVO_ROWS_FULL = 19,         /* gather family and group keys: output full */
    TAVO_TEXT_FULL = 20,         /* vector text: output full */
    TAVO_BAD_NUMBER = 21,        /* vector text: not a number */
    TAVO_BAD_SHAPE = 22,         /* vector text: not a vector; conversion: a bad row */
    TAVO_OUTPUT_FULL = 23,       /* output full: drain it and call again with the same tavo_env */
    TAVO_BAD_INPUT = 24          /* spak head refused, unknown dict_kind or type, no kernel for the operands */
};

#endif
