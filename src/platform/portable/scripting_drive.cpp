#include "platform/portable/scripting_drive.h"

#include "core/vb.h"
#include "platform/types.h"

namespace portable {

std::int32_t ScriptingDriveType(std::uint32_t driveType) {
    switch (driveType) {
    case platform::kDriveRemovable:
        return platform::kFsoRemovable;
    case platform::kDriveFixed:
        return platform::kFsoFixed;
    case platform::kDriveRemote:
        return platform::kFsoNetwork;
    case platform::kDriveCdrom:
        return platform::kFsoCdRom;
    case platform::kDriveRamdisk:
        return platform::kFsoRamDisk;
    default:
        return platform::kFsoUnknown;
    }
}

platform::ScriptingDrive DescribeDrive(char letter, std::uint32_t driveType, bool ready, const std::string& label,
                                       const std::string& shareName) {
    platform::ScriptingDrive s;
    s.DriveLetter = std::string(1, vb::UpperChar(letter));
    s.DriveType = ScriptingDriveType(driveType);
    s.IsReady = ready;
    if (ready) s.VolumeName = label;
    s.ShareName = shareName;
    return s;
}

} // namespace portable
