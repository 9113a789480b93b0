/* A host that names the library at link time instead of loading it. */
#include <stdio.h>
#include <tavo/tavo.h>

void hostraiseierr(void *handle, ub8 word72, const char *message, ub4 zero) {
    (void)handle, (void)word72, (void)message, (void)zero;
}

int main(void) {
    ub8 bits = 5;
    ub4 count = 0;
    const tavo_specialized_ctx *tavo = &tavo_global_specialized_ctx;
    if (tavo->lbivpopcnt(&count, &bits, 3) != 2)
        return 1;
    puts(tavo->build_name);
    return 0;
}
