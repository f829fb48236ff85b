// The drive list ListView1: one row per drive with its root, label and kind,
// refilled after every device event, selecting the drive that came.
#include <string>
#include <vector>

#include "app/frmMain.h"
#include "core/vb.h"

namespace app {

namespace {

// Entries of drives A and B are skipped everywhere.
bool IsAOrB(const std::string& entry) {
    const std::string first = vb::UCase(vb::Left(entry, 1));
    return first == "A" || first == "B";
}

std::vector<std::string> Entries(const View& v) {
    std::vector<std::string> entries;
    const int count = v.ListCount(Ctl::Drive1);
    for (int i = 0; i < count; ++i) {
        std::string entry = v.List(Ctl::Drive1, i);
        if (!IsAOrB(entry)) entries.push_back(std::move(entry));
    }
    return entries;
}

bool Contains(const std::vector<std::string>& list, const std::string& entry) {
    for (const auto& e : list)
        if (e == entry) return true;
    return false;
}

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

void frmMain::Drive1_Refresh() {
    // Like a drive list box: the letter in lower case, then the volume label
    // (or a network drive's share) in brackets. Two entries of a drive are
    // equal as long as the drive is unchanged.
    View& v = prog_.view;
    v.ClearList(Ctl::Drive1);
    for (const auto& drive : prog_.sys.fso.Drives()) {
        std::string entry = vb::LCase(drive.DriveLetter);
        entry += ":";
        const std::string label =
            drive.DriveType == platform::kFsoNetwork ? drive.ShareName : drive.VolumeName.value_or(std::string{});
        if (!label.empty()) entry += " [" + label + "]";
        v.AddListItem(Ctl::Drive1, entry);
    }
}

void frmMain::FillDriveList(bool Refresh) {
    View& v = prog_.view;
    std::vector<std::string> oldEntries;
    if (Refresh) oldEntries = Entries(v);

    v.ClearItems(Ctl::ListView1);
    Drive1_Refresh();
    const int count = v.ListCount(Ctl::Drive1);
    for (int i = 0; i < count; ++i) {
        const std::string entry = v.List(Ctl::Drive1, i);
        if (IsAOrB(entry)) continue;
        prog_.DriveLabel.clear();
        GetDriveInfo(vb::Left(entry, 2) + "\\");
        if (prog_.DriveTypeName == "CD-ROM") continue;
        const int item = v.AddItem(Ctl::ListView1, vb::UCase(vb::Left(entry, 2)) + "\\");
        v.SetSubItem(Ctl::ListView1, item, 1, prog_.DriveLabel);
        v.SetSubItem(Ctl::ListView1, item, 2, prog_.DriveTypeName);
    }
    v.SetItemSelected(Ctl::ListView1, 1, true);
    v.Refresh(Ctl::ListView1);
    if (!Refresh) return;

    const std::vector<std::string> newEntries = Entries(v);
    const auto& searched = prog_.LastDeviceEvent == 1 ? oldEntries : newEntries;
    const auto& against = prog_.LastDeviceEvent == 1 ? newEntries : oldEntries;
    for (const auto& entry : searched) {
        if (!Contains(against, entry)) {
            prog_.ChangedRoot = vb::UCase(vb::Left(entry, 2)) + "\\";
            break;
        }
    }

    // The window goes above all others and stays there.
    prog_.sys.windows.SetWindowPos(v.hWnd(), platform::kHwndTopmost, 0, 0, 0, 0,
                                   platform::kSwpNoSize | platform::kSwpNoMove | platform::kSwpShowWindow);

    const int items = v.ItemCount(Ctl::ListView1);
    for (int i = 1; i <= items; ++i) {
        if (v.ItemText(Ctl::ListView1, i) == prog_.ChangedRoot) {
            v.SetSelectedItem(Ctl::ListView1, i);
            break;
        }
    }
}

void frmMain::GetDriveInfo(const std::string& Root) {
    std::string typeName = "Fixed";
    const auto drive = prog_.sys.fso.GetDrive(Root);
    if (drive) typeName = TypeName(drive->DriveType);
    prog_.DriveTypeName = typeName;
    if (drive && drive->VolumeName) prog_.DriveLabel = *drive->VolumeName;
    if (vb::Trim(prog_.DriveLabel).empty()) prog_.DriveLabel = GetVolumeLabelByDir(Root);
    if (vb::Trim(prog_.DriveLabel).empty()) {
        if (typeName == "CD-ROM" && drive && !drive->IsReady)
            prog_.DriveLabel = "not ready";
        else
            prog_.DriveLabel = "no label";
    }
}

std::string frmMain::GetVolumeLabelByDir(const std::string& Root) {
    return prog_.sys.volumes.Dir(Root, platform::kAttrVolume);
}

} // namespace app
