#pragma once
// Volumes and files: the kernel32 drive, volume, attribute and directory
// search operations, with the buffer semantics of the "A" functions.
#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "platform/types.h"

namespace platform {

struct FindData {
    std::uint32_t dwFileAttributes = 0;
    std::uint64_t nFileSize = 0;
    std::array<char, 260> cFileName{}; // NUL-terminated
};

class Volumes {
public:
    virtual ~Volumes() = default;

    // Writes every root ("C:\") NUL-terminated, then one more NUL. Returns the
    // characters written without the final NUL. When the buffer is too small
    // the buffer is left as it was and the size needed is returned.
    virtual std::uint32_t GetLogicalDriveStringsA(std::span<char> buffer) = 0;
    virtual std::uint32_t GetDriveTypeA(const std::string& root) = 0;
    // Each out value is an unsigned little-endian 64-bit number; on failure the
    // buffers are left as they were and false is returned.
    virtual bool GetDiskFreeSpaceExA(const std::string& directory, std::span<std::uint8_t, 8> freeBytesAvailable,
                                     std::span<std::uint8_t, 8> totalBytes,
                                     std::span<std::uint8_t, 8> totalFreeBytes) = 0;
    // Fills label and file-system buffers (NUL-terminated, cut to their size).
    virtual bool GetVolumeInformationA(const std::string& root, std::span<char> volumeName, std::uint32_t& serialNumber,
                                       std::uint32_t& maxComponentLength, std::uint32_t& fileSystemFlags,
                                       std::span<char> fileSystemName) = 0;
    virtual bool SetVolumeLabelA(const std::string& root, const std::string& label) = 0;

    // kInvalidFileAttributes when the path does not exist or cannot be asked.
    virtual std::uint32_t GetFileAttributesA(const std::string& path) = 0;
    // Searches a pattern ("C:\dir\*.*" or an exact path); kInvalidHandleValue
    // when nothing matches.
    virtual Handle FindFirstFileA(const std::string& pattern, FindData& data) = 0;
    virtual bool FindNextFileA(Handle search, FindData& data) = 0;
    virtual bool FindClose(Handle search) = 0;
    virtual bool DeleteFileA(const std::string& path) = 0;
    virtual bool MoveFileExA(const std::string& existing, const std::string& replacement, std::uint32_t flags) = 0;
    // The runtime's directory query: the first entry matching pathname whose
    // attributes the given ones admit; with kAttrVolume, the volume label of
    // the drive named. "" when nothing is found or the query fails.
    virtual std::string Dir(const std::string& pathname, std::uint32_t attributes) = 0;
};

} // namespace platform
