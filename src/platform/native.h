#pragma once
// The native handle table: the ntdll services that list every open handle of
// the system, name a handle and close a handle inside its owning process, plus
// the kernel32 calls around them (the own process and the file-type query on a
// short-lived thread with a time limit). Opening the "NUL" device and a
// drive's device name belong to the storage service (platform/storage.h).
//
// Records are laid out as a 64-bit Windows process receives them; the
// offsets below are the contract every backend fills buffers by.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/types.h"

namespace platform {

using NtStatus = std::int32_t; // NTSTATUS: negative values are failures

inline constexpr NtStatus kStatusSuccess = 0;
inline constexpr NtStatus kStatusInfoLengthMismatch = static_cast<NtStatus>(0xC0000004u);
inline constexpr NtStatus kStatusInvalidHandle = static_cast<NtStatus>(0xC0000008u);
inline constexpr NtStatus kStatusInvalidParameter = static_cast<NtStatus>(0xC000000Du);
inline constexpr NtStatus kStatusAccessDenied = static_cast<NtStatus>(0xC0000022u);
inline constexpr NtStatus kStatusHandleNotClosable = static_cast<NtStatus>(0xC0000235u);

// Information classes.
inline constexpr std::uint32_t kSystemHandleInformation = 16;
inline constexpr std::uint32_t kObjectNameInformation = 1;

// Access rights and duplication options.
inline constexpr std::uint32_t kProcessDupHandle = 0x40;
inline constexpr std::uint32_t kDuplicateCloseSource = 0x1;
inline constexpr std::uint32_t kDuplicateSameAccess = 0x2;
inline constexpr std::uint32_t kDuplicateSameAttributes = 0x4;

// WaitForSingleObject results.
inline constexpr std::uint32_t kWaitObject0 = 0;
inline constexpr std::uint32_t kWaitTimeout = 258;
inline constexpr std::uint32_t kWaitFailed = 0xFFFFFFFFu;

// GetFileType results.
inline constexpr std::uint32_t kFileTypeUnknown = 0;
inline constexpr std::uint32_t kFileTypeDisk = 1;
inline constexpr std::uint32_t kFileTypeChar = 2;
inline constexpr std::uint32_t kFileTypePipe = 3;

// SYSTEM_HANDLE_INFORMATION: a 32-bit count, then, pointer-aligned, one
// SYSTEM_HANDLE_TABLE_ENTRY_INFO per open handle. All fields little-endian.
namespace handle_table {
inline constexpr std::size_t kCount = 0;                 // ULONG NumberOfHandles
inline constexpr std::size_t kEntries = 8;               // first entry
inline constexpr std::size_t kEntrySize = 24;            // bytes per entry
inline constexpr std::size_t kUniqueProcessId = 0;       // USHORT: low 16 bits of the owner's process id
inline constexpr std::size_t kCreatorBackTraceIndex = 2; // USHORT
inline constexpr std::size_t kObjectTypeIndex = 4;       // UCHAR: object type number
inline constexpr std::size_t kHandleAttributes = 5;      // UCHAR
inline constexpr std::size_t kHandleValue = 6;           // USHORT: the handle's value in its owner
inline constexpr std::size_t kObject = 8;                // PVOID
inline constexpr std::size_t kGrantedAccess = 16;        // ACCESS_MASK

// Bytes a table of the given number of handles needs.
constexpr std::size_t Size(std::size_t handles) { return kEntries + handles * kEntrySize; }
} // namespace handle_table

// OBJECT_NAME_INFORMATION: a UNICODE_STRING (USHORT Length in bytes, USHORT
// MaximumLength, a pointer to the characters), then the UTF-16 characters of
// the name at this offset, NUL-terminated.
inline constexpr std::size_t kObjectNameText = 16;

// CLIENT_ID for NtOpenProcess.
struct ClientId {
    std::uintptr_t UniqueProcess = 0;
    std::uintptr_t UniqueThread = 0;
};

class Native {
public:
    virtual ~Native() = default;

    // --- kernel32 ---
    virtual std::uint32_t GetCurrentProcessId() = 0;
    // The pseudo handle of the own process (-1); it needs no closing.
    virtual Handle GetCurrentProcess() = 0;
    // Runs GetFileType(file) on a new thread of the own process and waits at
    // most the given milliseconds for it. Returns kWaitObject0 with the
    // thread's exit code (the file type) in fileType; kWaitTimeout when the
    // limit passed (the thread has then been ended and fileType is the exit
    // code read at that moment); kWaitFailed when no thread could be started.
    virtual std::uint32_t GetFileTypeOnThread(Handle file, std::uint32_t milliseconds, std::uint32_t& fileType) = 0;

    // --- ntdll ---
    // Fills buffer with the record of the class. A buffer too small for the
    // whole record gives kStatusInfoLengthMismatch; returnLength then holds
    // the size needed at that moment (the table may grow before the next call).
    virtual NtStatus NtQuerySystemInformation(std::uint32_t systemInformationClass, std::span<std::uint8_t> buffer,
                                              std::uint32_t& returnLength) = 0;
    // Opens a process by id with empty object attributes. processHandle is 0
    // unless the status is a success.
    virtual NtStatus NtOpenProcess(Handle& processHandle, std::uint32_t desiredAccess, const ClientId& clientId) = 0;
    // Copies sourceHandle of sourceProcess into targetProcess. With
    // kDuplicateCloseSource the source handle is closed in its owner whether
    // or not the copy succeeds. targetHandle is 0 unless the status is a success.
    virtual NtStatus NtDuplicateObject(Handle sourceProcess, Handle sourceHandle, Handle targetProcess,
                                       Handle& targetHandle, std::uint32_t desiredAccess,
                                       std::uint32_t handleAttributes, std::uint32_t options) = 0;
    // Fills buffer with the record of the class for a handle of the own
    // process; with kObjectNameInformation the name in device form, such as
    // "\Device\HarddiskVolume5\docs\a.txt". May block on some pipes.
    virtual NtStatus NtQueryObject(Handle handle, std::uint32_t objectInformationClass, std::span<std::uint8_t> buffer,
                                   std::uint32_t& returnLength) = 0;
    virtual NtStatus NtClose(Handle handle) = 0;
};

} // namespace platform
