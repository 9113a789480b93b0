/* A host that loads the library, uses it and lets go of it: afterwards nothing of it is left in the process. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <tavo/tavo.h>

void hostraiseierr(void *handle, ub8 word72, const char *message, ub4 zero) {
    (void)handle, (void)word72, (void)message, (void)zero;
}

static int mapped(const char *name) {
    char line[4096];
    int lines = 0, found = 0;
    FILE *maps = fopen("/proc/self/maps", "r");
    while (maps && fgets(line, sizeof line, maps)) {
        lines++;
        found |= strstr(line, name) != NULL;
    }
    if (maps)
        fclose(maps);
    return lines == 0 ? -1 : found;
}

static int fail(const char *what) {
    fprintf(stderr, "%s\n", what);
    return 1;
}

int main(int argc, char **argv) {
    if (argc != 2)
        return fail("usage: unload_test LIBRARY");
    for (int round = 0; round < 3; round++) {
        void *library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (!library)
            return fail(dlerror());
        if (mapped(argv[1]) != 1)
            return fail("loaded, but not in /proc/self/maps");
        const tavo_specialized_ctx *tavo = dlsym(library, "tavo_global_specialized_ctx");
        if (!tavo || tavo->magic != TAVO_MAGIC)
            return fail("no descriptor");
        const ub4 info[3] = {1, 2, 3};
        ub8 bits[2] = {0xf0, 3};
        ub4 count = 0;
        if (tavo->init_sharedlib(0, info) != 0 || tavo->lbiwvpopcnt(&count, bits, 128) != 6 || count != 6)
            return fail("the library does not count");
        if (dlclose(library) != 0)
            return fail(dlerror());
        if (dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) != NULL)
            return fail("still loaded after dlclose");
        if (mapped(argv[1]) != 0)
            return fail("still mapped after dlclose");
    }
    return 0;
}
