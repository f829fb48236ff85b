#pragma once
// Owners for the Windows resources the backend opens: each one is given back
// in the same operation that opened it.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <cstdint>
#include <utility>

namespace win32 {

// A kernel handle closed with CloseHandle; both 0 and INVALID_HANDLE_VALUE mean none.
class UniqueHandle {
public:
    UniqueHandle() = default;
    explicit UniqueHandle(HANDLE h) : h_(h) {}
    ~UniqueHandle() { reset(); }
    UniqueHandle(UniqueHandle&& other) noexcept : h_(std::exchange(other.h_, nullptr)) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) {
            reset();
            h_ = std::exchange(other.h_, nullptr);
        }
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    HANDLE get() const { return h_; }
    explicit operator bool() const { return h_ != nullptr && h_ != INVALID_HANDLE_VALUE; }
    void reset() {
        if (*this) ::CloseHandle(h_);
        h_ = nullptr;
    }

private:
    HANDLE h_ = nullptr;
};

// A block of the process heap, freed with HeapFree.
class HeapBuffer {
public:
    explicit HeapBuffer(std::size_t bytes)
        : p_(bytes == 0 ? nullptr : ::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, bytes)), size_(bytes) {}
    ~HeapBuffer() {
        if (p_ != nullptr) ::HeapFree(::GetProcessHeap(), 0, p_);
    }
    HeapBuffer(const HeapBuffer&) = delete;
    HeapBuffer& operator=(const HeapBuffer&) = delete;

    void* get() const { return p_; }
    std::uint8_t* bytes() const { return static_cast<std::uint8_t*>(p_); }
    std::size_t size() const { return p_ == nullptr ? 0 : size_; }

private:
    void* p_;
    std::size_t size_;
};

// While it lives, the system fails a call on a drive without its medium
// instead of asking the user (the "no disk" dialog) on this thread; the
// thread's error mode before comes back at the end.
class QuietCriticalErrors {
public:
    QuietCriticalErrors() {
        set_ = ::SetThreadErrorMode(::GetThreadErrorMode() | SEM_FAILCRITICALERRORS, &before_) != FALSE;
    }
    ~QuietCriticalErrors() {
        if (set_) ::SetThreadErrorMode(before_, nullptr);
    }
    QuietCriticalErrors(const QuietCriticalErrors&) = delete;
    QuietCriticalErrors& operator=(const QuietCriticalErrors&) = delete;

private:
    DWORD before_ = 0;
    bool set_ = false;
};

// Boundary handles and window handles as Windows types, and back.
inline HANDLE ToHandle(std::intptr_t h) { return reinterpret_cast<HANDLE>(h); }
inline std::intptr_t FromHandle(HANDLE h) { return reinterpret_cast<std::intptr_t>(h); }
inline HWND ToHwnd(std::uintptr_t h) { return reinterpret_cast<HWND>(h); }
inline std::uintptr_t FromHwnd(HWND h) { return reinterpret_cast<std::uintptr_t>(h); }

// A function of a system DLL looked up by name: nullptr when it is missing.
// The double conversion keeps the compiler from warning about the FARPROC cast.
template <typename Fn> Fn Export(const char* module, const char* name) {
    HMODULE dll = ::GetModuleHandleA(module);
    if (dll == nullptr) dll = ::LoadLibraryA(module);
    if (dll == nullptr) return nullptr;
    FARPROC proc = ::GetProcAddress(dll, name);
    return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(proc));
}

} // namespace win32
