// Which function stands at an address: the symbol table of the running test program.
#pragma once

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "frame/tavo_types.h"

namespace tavo::test {

// Addresses of the functions whose names begin with tavo_, as the linker knows them: the symbol table of this
// executable.
inline std::map<std::string, ub8> linked_functions() {
    const int file = open("/proc/self/exe", O_RDONLY);
    struct stat status {};
    if (file < 0 || fstat(file, &status) != 0)
        std::abort();
    const auto size = static_cast<std::size_t>(status.st_size);
    void *const map = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
    close(file);
    if (map == MAP_FAILED)
        std::abort();
    const auto *image = static_cast<const char *>(map);
    ub8 load_bias = 0;
    dl_iterate_phdr(
        [](dl_phdr_info *info, std::size_t, void *out) {
            *static_cast<ub8 *>(out) = info->dlpi_addr; // the first object is the executable
            return 1;
        },
        &load_bias);
    const auto *head = reinterpret_cast<const Elf64_Ehdr *>(image);
    const auto *sections = reinterpret_cast<const Elf64_Shdr *>(image + head->e_shoff);
    std::map<std::string, ub8> functions;
    for (unsigned i = 0; i < head->e_shnum; i++) {
        if (sections[i].sh_type != SHT_SYMTAB)
            continue;
        const char *names = image + sections[sections[i].sh_link].sh_offset;
        const auto *symbols = reinterpret_cast<const Elf64_Sym *>(image + sections[i].sh_offset);
        for (std::size_t s = 0; s < sections[i].sh_size / sizeof(Elf64_Sym); s++)
            if (ELF64_ST_TYPE(symbols[s].st_info) == STT_FUNC && symbols[s].st_shndx != SHN_UNDEF &&
                std::string_view(names + symbols[s].st_name).starts_with("tavo_"))
                functions[names + symbols[s].st_name] = load_bias + symbols[s].st_value;
    }
    munmap(map, size);
    return functions;
}

} // namespace tavo::test
