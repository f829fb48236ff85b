#pragma once
// Drives, volumes and files on Linux, through the letter map: the kernel32
// drive and file operations and the scripting object's drive objects.
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/letter_map.h"
#include "platform/linux/space.h"
#include "platform/portable/dir_search.h"
#include "platform/scripting.h"
#include "platform/volumes.h"

namespace linuxbk {

class LinuxVolumes : public platform::Volumes, public platform::FileSystemObject {
public:
    explicit LinuxVolumes(LetterMap& map) : map_(map) {}

    // How long a size query of a drive that may not answer (a network share,
    // a FUSE file system) may take before the drive counts as unreachable;
    // such a drive is asked again after a few seconds, not at every question.
    void SetSizeTimeLimit(std::uint32_t milliseconds) { sizeLimitMs_ = milliseconds; }
    // Why the last label change failed, for the command-line tool.
    const std::string& LastLabelError() const { return labelError_; }

    std::uint32_t GetLogicalDriveStringsA(std::span<char> buffer) override;
    std::uint32_t GetDriveTypeA(const std::string& root) override;
    bool GetDiskFreeSpaceExA(const std::string& directory, std::span<std::uint8_t, 8> freeBytesAvailable,
                             std::span<std::uint8_t, 8> totalBytes, std::span<std::uint8_t, 8> totalFreeBytes) override;
    bool GetVolumeInformationA(const std::string& root, std::span<char> volumeName, std::uint32_t& serialNumber,
                               std::uint32_t& maxComponentLength, std::uint32_t& fileSystemFlags,
                               std::span<char> fileSystemName) override;
    bool SetVolumeLabelA(const std::string& root, const std::string& label) override;
    std::uint32_t GetFileAttributesA(const std::string& path) override;
    platform::Handle FindFirstFileA(const std::string& pattern, platform::FindData& data) override;
    bool FindNextFileA(platform::Handle search, platform::FindData& data) override;
    bool FindClose(platform::Handle search) override;
    bool DeleteFileA(const std::string& path) override;
    bool MoveFileExA(const std::string& existing, const std::string& replacement, std::uint32_t flags) override;
    std::string Dir(const std::string& pathname, std::uint32_t attributes) override;

    std::optional<platform::ScriptingDrive> GetDrive(const std::string& root) override;
    std::vector<platform::ScriptingDrive> Drives() override;

    // Windows-style wildcard match without regard to case; "*.*" matches every name.

private:
    platform::ScriptingDrive describe(const DriveRecord& d);
    std::string labelOf(const DriveRecord& d);
    // The drive's size; for a drive that may not answer, asked apart and kept briefly.
    std::optional<SpaceInfo> spaceOf(const DriveRecord& d);
    // Whether the drive's files may be looked at without waiting on a server that does not answer.
    bool answers(const DriveRecord& d);

    LetterMap& map_;
    std::uint32_t sizeLimitMs_ = 3000;
    std::string labelError_;
    struct Probe {
        std::chrono::steady_clock::time_point at;
        std::optional<SpaceInfo> answer;
    };
    std::map<std::string, Probe> probes_; // mount point -> the last answer of a drive that may not answer
    portable::FileSearches searches_;
};

} // namespace linuxbk
