// Opens the kernel library and checks it before anything of it runs.
#pragma once

#include <string>

#include <tavo/tavo.h>

#include "host/link/processor.h"

namespace host {

// Where the library is: `asked` if not empty, else the environment variable TAVO_LIB, else beside this executable or
// one folder up (a build tree) or in ../lib of an installation, else where the dynamic loader finds its plain name.
std::string library_path(const std::string &asked);

// An opened library: closed when the object ends, so no kernel may run and no descriptor be read after that.
class library {
public:
    // Opens and looks the descriptor up; checks its magic word and nothing else.
    explicit library(const std::string &path);
    ~library();
    library(const library &) = delete;
    library &operator=(const library &) = delete;

    const tavo_specialized_ctx &ctx() const { return *ctx_; }
    const std::string &path() const { return path_; }

    // Throws unless this is the library that this host was built for and the processor can run it. Then starts it up.
    void check_and_start(const processor &);

    tavo_kernel_slot kernel(ub1 kernel_row, tavo_operation op) const {
        return ctx_->dispatch_table[TAVO_DISPATCH_INDEX(kernel_row, op)];
    }

private:
    std::string path_;
    void *handle_ = nullptr;
    const tavo_specialized_ctx *ctx_ = nullptr;
};

} // namespace host
