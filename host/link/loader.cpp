#include "host/link/loader.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fmt/format.h>
#include <link.h>
#include <utility>

#include "host/error.h"

namespace host {

namespace {

constexpr const char *native_file = "libtavo_avx512g.so", *portable_file = "libtavo_portable.so";

// The folder of the file that this code was loaded from: the executable's, which has no name among the loaded objects,
// or that of the shared object which a host is when it is loaded into another program.
std::filesystem::path own_folder(std::error_code &unreadable) {
    Dl_info info{};
    link_map *map = nullptr;
    if (dladdr1(reinterpret_cast<void *>(&choose_library), &info, reinterpret_cast<void **>(&map), RTLD_DL_LINKMAP) !=
            0 &&
        map != nullptr && map->l_name != nullptr && *map->l_name != '\0')
        return std::filesystem::canonical(map->l_name, unreadable).parent_path();
    return std::filesystem::read_symlink("/proc/self/exe", unreadable).parent_path();
}

// The file's path beside this code or where an installation has it; empty if it is not there.
std::string found(const char *file) {
    std::error_code unreadable;
    const std::filesystem::path own = own_folder(unreadable);
    if (!unreadable)
        for (const char *folder : {".", "..", TAVO_LIBDIR_FROM_BINDIR}) {
            const std::filesystem::path candidate = (own / folder / file).lexically_normal();
            if (std::filesystem::exists(candidate, unreadable))
                return candidate;
        }
    return {};
}

// The soname of a loaded library; empty if it has none.
std::string soname(void *handle) {
    const link_map *map = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0)
        return {};
    const char *strings = nullptr;
    ElfW(Xword) at = 0;
    bool named = false;
    for (const ElfW(Dyn) *d = map->l_ld; d->d_tag != DT_NULL; d++) {
        if (d->d_tag == DT_STRTAB)
            strings = reinterpret_cast<const char *>(d->d_un.d_ptr); // relocated by the dynamic loader
        if (d->d_tag == DT_SONAME) {
            at = d->d_un.d_val;
            named = true;
        }
    }
    return named && strings != nullptr ? strings + at : "";
}

} // namespace

library_choice choose_library(const std::string &asked, const processor &p) {
    if (!asked.empty())
        return {asked, "as asked for"};
    if (const char *variable = std::getenv("TAVO_LIB"); variable != nullptr && *variable != '\0')
        return {variable, "as TAVO_LIB says"};
    const std::string native = found(native_file), portable = found(portable_file);
    const std::string missing = missing_features(p);
    if (missing.empty()) {
        if (!native.empty() || portable.empty())
            return {native.empty() ? native_file : native, "this processor has all that it needs"};
        return {portable, fmt::format("{} is not there", native_file)};
    }
    return {portable.empty() ? portable_file : portable, fmt::format("this processor lacks {}", missing)};
}

library::library(const library_choice &choice) : path_(choice.path), why_(choice.why) {
    // All symbols now: a process without hostraiseierr is told here and not in the middle of a query. A plain file name
    // in the current folder is meant as that file.
    std::error_code unreadable;
    std::string name = path_;
    if (name.find('/') == std::string::npos && std::filesystem::exists(name, unreadable))
        name = "./" + name;
    handle_ = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        const char *why = dlerror();
        throw error(fmt::format("cannot load the library {}: {}", path_, why == nullptr ? "unknown reason" : why));
    }
    ctx_ = static_cast<const tavo_specialized_ctx *>(dlsym(handle_, "tavo_global_specialized_ctx"));
    if (ctx_ == nullptr || ctx_->magic != TAVO_MAGIC) {
        dlclose(handle_);
        throw error(fmt::format("{} is not a kernel library: {}", path_,
                                ctx_ == nullptr ? "it has no tavo_global_specialized_ctx"
                                                : "its descriptor does not begin with the magic word"));
    }
    if (soname(handle_).starts_with("libtavo_portable."))
        form_ = library_form::portable;
}

library::~library() { dlclose(handle_); }

void library::check_and_start(const processor &p) {
    const std::string_view version = ctx_->version, build = ctx_->build_name;
    if (version != "MRV_23.0" || ctx_->version_number != 3 || build != "smrvavx512g")
        throw error(fmt::format("{} is version {} ({}) of build {}; this host needs MRV_23.0 (3) of smrvavx512g", path_,
                                version, ctx_->version_number, build));
    constexpr ub8 sizes[10] = {8, 8, 8, 8, 8, 8, 8, 16, 0, 64};
    for (unsigned i = 0; i < 10; i++)
        if (ctx_->sizes[i] != sizes[i])
            throw error(fmt::format("{}: size word {} of the descriptor is {}, not {}", path_, 4 + i, ctx_->sizes[i],
                                    sizes[i]));
    // What this host calls without asking again. Kernels and the other operations are looked at where they are used.
    const std::pair<const char *, bool> operations[] = {{"init_sharedlib", ctx_->init_sharedlib != nullptr},
                                                        {"lbiwvand", ctx_->lbiwvand != nullptr},
                                                        {"lbiwvor", ctx_->lbiwvor != nullptr},
                                                        {"lbiwvset_range", ctx_->lbiwvset_range != nullptr},
                                                        {"lbiwvpopcnt", ctx_->lbiwvpopcnt != nullptr},
                                                        {"lbiwvones", ctx_->lbiwvones != nullptr},
                                                        {"lbiwv_ictx_ini2", ctx_->lbiwv_ictx_ini2 != nullptr}};
    for (const auto &[operation, present] : operations)
        if (!present)
            throw error(fmt::format("{} has no operation tavo_{}_dydi", path_, operation));
    if (const std::string missing = missing_here(p); !missing.empty())
        throw error(fmt::format("this processor cannot run {}: missing {}; the portable form runs on every processor",
                                path_, missing));
    const ub4 host_words[3] = {0, 0, 0}; // copied by the library and read by nobody
    ctx_->init_sharedlib(0, host_words);
}

} // namespace host
