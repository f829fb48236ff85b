#pragma once
// The file-system scripting object ("Scripting.FileSystemObject"): drive
// objects with their type code, readiness, label and share name.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

// Drive-type codes of the scripting object.
inline constexpr std::int32_t kFsoUnknown = 0;
inline constexpr std::int32_t kFsoRemovable = 1;
inline constexpr std::int32_t kFsoFixed = 2;
inline constexpr std::int32_t kFsoNetwork = 3;
inline constexpr std::int32_t kFsoCdRom = 4;
inline constexpr std::int32_t kFsoRamDisk = 5;

struct ScriptingDrive {
    std::string DriveLetter; // "E"
    std::int32_t DriveType = kFsoUnknown;
    bool IsReady = false;
    // Nothing when it cannot be read (no medium in the drive).
    std::optional<std::string> VolumeName;
    std::string ShareName; // network drives: "\\server\share"
};

class FileSystemObject {
public:
    virtual ~FileSystemObject() = default;
    // The drive object of a root ("E:\", "E:" or "E"); nothing when there is no such drive.
    virtual std::optional<ScriptingDrive> GetDrive(const std::string& root) = 0;
    // Every drive, in letter order.
    virtual std::vector<ScriptingDrive> Drives() = 0;
};

} // namespace platform
