#pragma once
// The simulated machine's handle table: the open handles of every process,
// the program's own among them, and the native services that list, name,
// copy and close them. Handles the program opens, copies or obtains for a
// process join the table as its own, so the table always tells the truth.
// A file-type query that hangs costs the time limit on the machine's clock,
// not in real time. Every call is journaled through the machine.
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/native.h"
#include "platform/portable/native_records.h"
#include "platform/storage.h"

namespace fake {

class Machine;

// One open handle of some process.
struct HandleEntry {
    std::uint32_t processId = 0; // the full id; the table shows its low 16 bits
    std::uint8_t typeIndex = 0;  // object type number; 0 means the file type of the table
    std::uint16_t handle = 0;    // the handle's value in its owner
    std::string name = {};       // device form: "\Device\HarddiskVolume5\docs\a.txt", "\Device\Mup\srv\share\x"
    std::uint32_t fileType = platform::kFileTypeDisk; // what GetFileType answers
    bool typeQueryHangs = false;                      // GetFileType never returns (a busy pipe)
    bool copyDenied = false;                          // NtDuplicateObject refuses to copy it
    bool closeFails = false;                          // NtClose of a copy of it fails
};

class NativeHandles : public platform::Native {
public:
    explicit NativeHandles(Machine& machine) : machine_(machine) {}

    // Reads the "handles" object of a machine description (see docs/kestrine-sim.md).
    void LoadJson(const nlohmann::json& description);

    // --- describing the table ---
    void SetOwnProcessId(std::uint32_t id) { ownProcessId_ = id; }
    std::uint32_t OwnProcessId() const { return ownProcessId_; }
    // The object type number of files (on Windows it differs between versions).
    void SetFileTypeIndex(std::uint8_t index) { fileTypeIndex_ = index; }
    std::uint8_t FileTypeIndex() const { return fileTypeIndex_; }
    void Add(HandleEntry entry);
    // Adds many handles at once, faster than one by one.
    void Reserve(std::size_t handles) { entries_.reserve(handles); }
    void DenyProcess(std::uint32_t processId) { denied_.insert(processId); }
    void SetNulOpens(bool opens) { nulOpens_ = opens; }
    // Every table query answers this status (a success status restores the table).
    void SetTableStatus(platform::NtStatus status) { tableStatus_ = status; }

    // Opens the "NUL" device for the own process: the storage service's
    // CreateFileA hands that name here, so the handle joins the table.
    // kInvalidHandleValue when the description says it cannot be opened.
    platform::Handle OpenNul();

    // --- reading it back ---
    bool IsOpen(std::uint32_t processId, std::uint16_t handle) const;
    std::size_t OpenCount() const { return open_; }
    // The open handles of one process, in table order.
    std::vector<HandleEntry> OpenHandles(std::uint32_t processId) const;

    // Native
    std::uint32_t GetCurrentProcessId() override;
    platform::Handle GetCurrentProcess() override { return kCurrentProcess; }
    std::uint32_t GetFileTypeOnThread(platform::Handle file, std::uint32_t milliseconds,
                                      std::uint32_t& fileType) override;
    platform::NtStatus NtQuerySystemInformation(std::uint32_t systemInformationClass, std::span<std::uint8_t> buffer,
                                                std::uint32_t& returnLength) override;
    platform::NtStatus NtOpenProcess(platform::Handle& processHandle, std::uint32_t desiredAccess,
                                     const platform::ClientId& clientId) override;
    platform::NtStatus NtDuplicateObject(platform::Handle sourceProcess, platform::Handle sourceHandle,
                                         platform::Handle targetProcess, platform::Handle& targetHandle,
                                         std::uint32_t desiredAccess, std::uint32_t handleAttributes,
                                         std::uint32_t options) override;
    platform::NtStatus NtQueryObject(platform::Handle handle, std::uint32_t objectInformationClass,
                                     std::span<std::uint8_t> buffer, std::uint32_t& returnLength) override;
    platform::NtStatus NtClose(platform::Handle handle) override;

    static constexpr platform::Handle kCurrentProcess = -1;
    static constexpr std::uint8_t kProcessTypeIndex = portable::kProcessTypeIndex;
    static constexpr std::uint8_t kDefaultFileTypeIndex = portable::kFileTypeIndex;

private:
    struct Slot {
        HandleEntry entry;
        bool open = true;
        std::uint32_t targetProcess = 0; // for a process handle: the process it opens
    };
    static std::uint64_t Key(std::uint32_t processId, std::uint64_t handle) {
        return (std::uint64_t{processId} << 32) | (handle & 0xFFFFFFFFu);
    }
    Slot* find(std::uint32_t processId, platform::Handle handle);
    const Slot* find(std::uint32_t processId, platform::Handle handle) const;
    Slot* own(platform::Handle handle) { return find(ownProcessId_, handle); }
    platform::Handle addOwn(HandleEntry entry, std::uint32_t targetProcess = 0);
    void close(Slot& slot);
    bool processExists(std::uint32_t processId) const;
    void record(std::string name, std::vector<std::string> args, std::string result, bool request = false);

    Machine& machine_;
    std::vector<Slot> entries_;                            // table order; closed slots stay, marked
    std::unordered_map<std::uint64_t, std::size_t> index_; // (process, handle) -> open slot
    std::set<std::uint32_t> known_;                        // processes that have (had) handles
    std::size_t open_ = 0;
    std::set<std::uint32_t> denied_;
    std::uint32_t ownProcessId_ = 4464;
    std::uint8_t fileTypeIndex_ = kDefaultFileTypeIndex;
    bool nulOpens_ = true;
    platform::NtStatus tableStatus_ = platform::kStatusSuccess;
    std::uint64_t nextOwn_ = 0x1000;
};

// The storage service as the program reaches it: the "NUL" device opens into
// the handle table (so the table lists it, as a real one does), every other
// name goes to the storage drivers of the simulated hardware.
class StorageWithNul : public platform::Storage {
public:
    StorageWithNul(Machine& machine, platform::Storage& drivers, NativeHandles& handles)
        : machine_(machine), drivers_(drivers), handles_(handles) {}

    platform::Handle CreateFileA(const std::string& fileName, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                 std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes) override;
    bool DeviceIoControl(platform::Handle device, std::uint32_t ioControlCode, std::span<const std::uint8_t> inBuffer,
                         std::span<std::uint8_t> outBuffer, std::uint32_t& bytesReturned) override {
        return drivers_.DeviceIoControl(device, ioControlCode, inBuffer, outBuffer, bytesReturned);
    }
    bool CloseHandle(platform::Handle handle) override;
    std::uint32_t QueryDosDeviceA(const std::string& deviceName, std::span<char> targetPath) override {
        return drivers_.QueryDosDeviceA(deviceName, targetPath);
    }

private:
    Machine& machine_;
    platform::Storage& drivers_;
    NativeHandles& handles_;
    std::set<platform::Handle> nul_; // "NUL" handles opened here and not closed through here
};

} // namespace fake
