#include "drives/drive_rows.h"

#include "core/vb.h"
#include "platform/services.h"

namespace drives {

namespace {

const char* TypeName(std::int32_t code) {
    switch (code) {
    case platform::kFsoUnknown:
        return "Unknown";
    case platform::kFsoRemovable:
        return "Removable";
    case platform::kFsoFixed:
        return "Fixed";
    case platform::kFsoNetwork:
        return "Network";
    case platform::kFsoCdRom:
        return "CD-ROM";
    case platform::kFsoRamDisk:
        return "RAM disk";
    default:
        return "Fixed";
    }
}

} // namespace

std::vector<std::string> DriveListEntries(platform::Services& sys) {
    // Two entries of a drive are equal as long as the drive is unchanged.
    std::vector<std::string> entries;
    for (const auto& drive : sys.fso.Drives()) {
        std::string entry = vb::LCase(drive.DriveLetter) + ":";
        const std::string label =
            drive.DriveType == platform::kFsoNetwork ? drive.ShareName : drive.VolumeName.value_or(std::string{});
        if (!label.empty()) entry += " [" + label + "]";
        entries.push_back(std::move(entry));
    }
    return entries;
}

bool IsAOrB(const std::string& entry) {
    const std::string first = vb::UCase(vb::Left(entry, 1));
    return first == "A" || first == "B";
}

DriveInfo GetDriveInfo(platform::Services& sys, const std::string& Root) {
    DriveInfo info{"Fixed", {}};
    const auto drive = sys.fso.GetDrive(Root);
    if (drive) info.typeName = TypeName(drive->DriveType);
    if (drive && drive->VolumeName) info.label = *drive->VolumeName;
    if (vb::Trim(info.label).empty()) info.label = GetVolumeLabelByDir(sys, Root);
    if (vb::Trim(info.label).empty()) {
        if (info.typeName == "CD-ROM" && drive && !drive->IsReady)
            info.label = "not ready";
        else
            info.label = "no label";
    }
    return info;
}

std::string GetVolumeLabelByDir(platform::Services& sys, const std::string& Root) {
    return sys.volumes.Dir(Root, platform::kAttrVolume);
}

std::optional<ListRow> ListRowOf(platform::Services& sys, const std::string& entry) {
    if (IsAOrB(entry)) return std::nullopt;
    const DriveInfo info = GetDriveInfo(sys, vb::Left(entry, 2) + "\\");
    if (info.typeName == "CD-ROM") return std::nullopt;
    return ListRow{vb::UCase(vb::Left(entry, 2)) + "\\", info.label, info.typeName};
}

} // namespace drives
