#include "platform/linux/loaded_library.h"

#include <dlfcn.h>

namespace linuxbk {

LoadedLibrary::LoadedLibrary(const char* soname) {
    handle_ = ::dlopen(soname, RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        const char* why = ::dlerror();
        error_ = why != nullptr ? why : std::string(soname) + ": cannot be loaded";
    }
}

void* LoadedLibrary::symbol(const char* name) {
    if (handle_ == nullptr) return nullptr;
    ::dlerror();
    void* found = ::dlsym(handle_, name);
    if (found == nullptr && error_.empty()) {
        const char* why = ::dlerror();
        error_ = why != nullptr ? why : std::string(name) + ": not found";
    }
    return found;
}

} // namespace linuxbk
