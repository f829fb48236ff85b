#pragma once
// A system library opened the first time it is needed instead of at start.
// sd-bus (for udisks2) and libdevmapper serve only releases and label
// changes, and each brings libraries of its own (libsystemd: libgcrypt,
// liblzma, libzstd, liblz4, libcap, libgpg-error; libdevmapper: libselinux,
// libpcre2): linked in, all of them were loaded, relocated and initialised at
// every start of kestrinectl and the window, a listing or not. Opened here,
// they cost nothing until a release or a label asks for them.
#include <string>

namespace linuxbk {

class LoadedLibrary {
public:
    // Opens the library by its run-time name ("libsystemd.so.0"); it stays
    // loaded for the rest of the process, as a linked one would.
    explicit LoadedLibrary(const char* soname);
    bool Loaded() const { return handle_ != nullptr; }
    // What the loader said when the library or a symbol could not be had; "" when all went well.
    const std::string& Error() const { return error_; }

    // Fills fn with the named function; false (and Error() set) when the library lacks it.
    template <typename Fn> bool Get(const char* name, Fn*& fn) {
        fn = reinterpret_cast<Fn*>(symbol(name));
        return fn != nullptr;
    }

private:
    void* symbol(const char* name);
    void* handle_ = nullptr;
    std::string error_;
};

} // namespace linuxbk
