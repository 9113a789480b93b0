// Opens the kernel library and checks it before anything of it runs.
#pragma once

#include <string>

#include <tavo/tavo.h>

#include "host/link/processor.h"

namespace host {

// The two forms of the library, which differ in what they need of the processor and in nothing that a host sees.
enum class library_form { native, portable };

struct library_choice {
    std::string path;
    std::string why; // this one, in words
};
// Which library to load: `asked` if not empty, else the one that the environment variable TAVO_LIB names, else
// libtavo_avx512g.so where the processor can run it and the file is there, else libtavo_portable.so. They are looked
// for beside this executable, or beside the shared object that this code is a part of, one folder up (a build tree), in
// ../lib of an installation, and last where the dynamic loader finds a plain name.
library_choice choose_library(const std::string &asked, const processor &);

// An opened library: closed when the object ends, so no kernel may run and no descriptor be read after that.
class library {
public:
    // Opens and looks the descriptor up; checks its magic word and nothing else.
    explicit library(const std::string &path) : library(library_choice{path, {}}) {}
    explicit library(const library_choice &);
    ~library();
    library(const library &) = delete;
    library &operator=(const library &) = delete;

    const tavo_specialized_ctx &ctx() const { return *ctx_; }
    const std::string &path() const { return path_; }
    const std::string &why() const { return why_; } // why it was chosen, in words; may be empty
    // By the soname, so whatever name the file has: libtavo_portable is portable, all others need AVX-512.
    library_form form() const { return form_; }
    // What it needs and the processor lacks, separated by commas; empty if it runs here.
    std::string missing_here(const processor &p) const {
        return form_ == library_form::portable ? std::string() : missing_features(p);
    }

    // Throws unless this is the library that this host was built for and the processor can run it. Then starts it up.
    void check_and_start(const processor &);

    tavo_kernel_slot kernel(ub1 kernel_row, tavo_operation op) const {
        return ctx_->dispatch_table[TAVO_DISPATCH_INDEX(kernel_row, op)];
    }

private:
    std::string path_, why_;
    library_form form_ = library_form::native;
    void *handle_ = nullptr;
    const tavo_specialized_ctx *ctx_ = nullptr;
};

} // namespace host
