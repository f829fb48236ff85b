#pragma once
// The handle table on Linux: every process's open descriptors from
// /proc/<pid>/fd (handle value = descriptor number), a descriptor's name in
// device form (the device node of its drive, then its path on the drive with
// backslashes), copies and closing in the own process, and the file-type
// query on a thread with a time limit.
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/letter_map.h"
#include "platform/native.h"
#include "platform/portable/native_records.h"

namespace linuxbk {

class LinuxHandles : public platform::Native {
public:
    explicit LinuxHandles(LetterMap& map, std::string procRoot = "/proc") : map_(map), proc_(std::move(procRoot)) {}

    // Object type numbers of the table: every descriptor that is a file, a
    // device, a pipe or a socket has the file type (as all of them do on
    // Windows); event, timer and other anonymous descriptors have another.
    static constexpr std::uint8_t kFileTypeIndex = portable::kFileTypeIndex;
    static constexpr std::uint8_t kOtherTypeIndex = 42;
    static constexpr std::uint8_t kProcessTypeIndex = portable::kProcessTypeIndex; // process descriptors (pidfd)

    // The device-form name of a descriptor target: "/dev/sdb1\docs\a.txt".
    std::string DeviceFormName(int fd);

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

private:
    // The process a process handle stands for: the own one for the pseudo
    // handle, else the one NtOpenProcess opened; -1 when none.
    long processOf(platform::Handle process) const;

    // One row of the table as the system has it.
    struct Row {
        std::uint32_t pid;
        std::uint8_t type;
        std::uint16_t handle;
    };
    std::vector<Row> readTable() const;

    LetterMap& map_;
    std::string proc_;
    std::map<int, long> processes_; // process descriptor -> process id
    // The table read for a query whose buffer was too small, kept for the
    // caller's next query with a larger buffer: a caller that doubles its
    // buffer from one byte would otherwise have every process's
    // descriptors listed twenty times over.
    std::optional<std::vector<Row>> pending_;
    std::chrono::steady_clock::time_point pendingSince_{};
};

} // namespace linuxbk
