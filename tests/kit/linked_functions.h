// Which function stands at an address: the symbol table of the running test program.
#pragma once

#include <elf.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "frame/tavo_types.h"

namespace tavo::test {

// Function names and addresses as the linker knows them: the symbol table of this executable.
inline std::map<std::string, ub8> linked_functions() {
    std::ifstream file("/proc/self/exe", std::ios::binary);
    const std::vector<char> image{std::istreambuf_iterator<char>(file), {}};
    ub8 load_bias = 0;
    dl_iterate_phdr(
        [](dl_phdr_info *info, std::size_t, void *out) {
            *static_cast<ub8 *>(out) = info->dlpi_addr; // the first object is the executable
            return 1;
        },
        &load_bias);
    Elf64_Ehdr head;
    std::memcpy(&head, image.data(), sizeof head);
    std::vector<Elf64_Shdr> sections(head.e_shnum);
    std::memcpy(sections.data(), image.data() + head.e_shoff, sections.size() * sizeof(Elf64_Shdr));
    std::map<std::string, ub8> functions;
    for (const Elf64_Shdr &section : sections) {
        if (section.sh_type != SHT_SYMTAB)
            continue;
        const char *strings = image.data() + sections[section.sh_link].sh_offset;
        std::vector<Elf64_Sym> symbols(section.sh_size / sizeof(Elf64_Sym));
        std::memcpy(symbols.data(), image.data() + section.sh_offset, section.sh_size);
        for (const Elf64_Sym &symbol : symbols)
            if (ELF64_ST_TYPE(symbol.st_info) == STT_FUNC && symbol.st_shndx != SHN_UNDEF)
                functions[strings + symbol.st_name] = load_bias + symbol.st_value;
    }
    return functions;
}

} // namespace tavo::test
