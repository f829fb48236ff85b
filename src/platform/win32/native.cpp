// The native handle table: ntdll's system and object queries, process
// opening, handle duplication and closing, and the file-type query on a
// short-lived thread. The boundary's records are the layouts a 64-bit process
// receives, so on x64 the system fills the caller's buffers directly.
#include "platform/win32/raii.h"

#include "platform/win32/backend.h"

namespace win32 {

static_assert(sizeof(void*) == 8, "the handle-table and object-name records are the 64-bit layouts");

namespace {

using NTSTATUS_ = LONG;

struct ObjectAttributes {
    ULONG Length;
    HANDLE RootDirectory;
    void* ObjectName;
    ULONG Attributes;
    void* SecurityDescriptor;
    void* SecurityQualityOfService;
};

struct NativeClientId {
    HANDLE UniqueProcess;
    HANDLE UniqueThread;
};

using NtQuerySystemInformationFn = NTSTATUS_(NTAPI*)(ULONG, PVOID, ULONG, PULONG);
using NtOpenProcessFn = NTSTATUS_(NTAPI*)(PHANDLE, ACCESS_MASK, ObjectAttributes*, NativeClientId*);
using NtDuplicateObjectFn = NTSTATUS_(NTAPI*)(HANDLE, HANDLE, HANDLE, PHANDLE, ACCESS_MASK, ULONG, ULONG);
using NtQueryObjectFn = NTSTATUS_(NTAPI*)(HANDLE, ULONG, PVOID, ULONG, PULONG);
using NtCloseFn = NTSTATUS_(NTAPI*)(HANDLE);

// The status for an export the system does not have.
constexpr platform::NtStatus kStatusProcedureNotFound = static_cast<platform::NtStatus>(0xC000007Au);

template <typename Fn> Fn Ntdll(const char* name) { return Export<Fn>("ntdll.dll", name); }

DWORD WINAPI FileTypeThread(LPVOID file) { return ::GetFileType(static_cast<HANDLE>(file)); }

} // namespace

std::uint32_t Native::GetCurrentProcessId() { return ::GetCurrentProcessId(); }

platform::Handle Native::GetCurrentProcess() { return FromHandle(::GetCurrentProcess()); }

std::uint32_t Native::GetFileTypeOnThread(platform::Handle file, std::uint32_t milliseconds, std::uint32_t& fileType) {
    DWORD id = 0;
    UniqueHandle thread(::CreateThread(nullptr, 0, &FileTypeThread, ToHandle(file), 0, &id));
    if (!thread) return platform::kWaitFailed;
    const DWORD wait = ::WaitForSingleObject(thread.get(), milliseconds);
    DWORD code = 0;
    ::GetExitCodeThread(thread.get(), &code);
    fileType = code;
    if (wait == WAIT_TIMEOUT) {
        // A query stuck on a pipe never returns on its own.
        ::TerminateThread(thread.get(), 0);
        return platform::kWaitTimeout;
    }
    return wait == WAIT_OBJECT_0 ? platform::kWaitObject0 : platform::kWaitFailed;
}

platform::NtStatus Native::NtQuerySystemInformation(std::uint32_t systemInformationClass,
                                                    std::span<std::uint8_t> buffer, std::uint32_t& returnLength) {
    static const auto fn = Ntdll<NtQuerySystemInformationFn>("NtQuerySystemInformation");
    if (fn == nullptr) return kStatusProcedureNotFound;
    ULONG length = 0;
    const NTSTATUS_ status = fn(systemInformationClass, buffer.empty() ? nullptr : buffer.data(),
                                static_cast<ULONG>(buffer.size()), &length);
    returnLength = length;
    return status;
}

platform::NtStatus Native::NtOpenProcess(platform::Handle& processHandle, std::uint32_t desiredAccess,
                                         const platform::ClientId& clientId) {
    static const auto fn = Ntdll<NtOpenProcessFn>("NtOpenProcess");
    processHandle = 0;
    if (fn == nullptr) return kStatusProcedureNotFound;
    ObjectAttributes attributes{};
    attributes.Length = sizeof attributes;
    NativeClientId id{reinterpret_cast<HANDLE>(clientId.UniqueProcess),
                      reinterpret_cast<HANDLE>(clientId.UniqueThread)};
    HANDLE opened = nullptr;
    const NTSTATUS_ status = fn(&opened, desiredAccess, &attributes, &id);
    if (status >= 0) processHandle = FromHandle(opened);
    return status;
}

platform::NtStatus Native::NtDuplicateObject(platform::Handle sourceProcess, platform::Handle sourceHandle,
                                             platform::Handle targetProcess, platform::Handle& targetHandle,
                                             std::uint32_t desiredAccess, std::uint32_t handleAttributes,
                                             std::uint32_t options) {
    static const auto fn = Ntdll<NtDuplicateObjectFn>("NtDuplicateObject");
    targetHandle = 0;
    if (fn == nullptr) return kStatusProcedureNotFound;
    HANDLE copy = nullptr;
    const NTSTATUS_ status = fn(ToHandle(sourceProcess), ToHandle(sourceHandle), ToHandle(targetProcess),
                                targetProcess != 0 ? &copy : nullptr, desiredAccess, handleAttributes, options);
    if (status >= 0) targetHandle = FromHandle(copy);
    return status;
}

platform::NtStatus Native::NtQueryObject(platform::Handle handle, std::uint32_t objectInformationClass,
                                         std::span<std::uint8_t> buffer, std::uint32_t& returnLength) {
    static const auto fn = Ntdll<NtQueryObjectFn>("NtQueryObject");
    if (fn == nullptr) return kStatusProcedureNotFound;
    ULONG length = 0;
    const NTSTATUS_ status = fn(ToHandle(handle), objectInformationClass, buffer.empty() ? nullptr : buffer.data(),
                                static_cast<ULONG>(buffer.size()), &length);
    returnLength = length;
    return status;
}

platform::NtStatus Native::NtClose(platform::Handle handle) {
    static const auto fn = Ntdll<NtCloseFn>("NtClose");
    if (fn == nullptr) return kStatusProcedureNotFound;
    return fn(ToHandle(handle));
}

} // namespace win32
