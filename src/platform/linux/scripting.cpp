// The scripting object's drive objects on Linux, from the letter map.
#include "platform/linux/volumes.h"
#include "platform/portable/scripting_drive.h"

namespace linuxbk {

platform::ScriptingDrive LinuxVolumes::describe(const DriveRecord& d) {
    const bool ready = d.Ready();
    return portable::DescribeDrive(d.letter, d.driveType, ready, ready ? labelOf(d) : std::string(), d.shareName);
}

std::optional<platform::ScriptingDrive> LinuxVolumes::GetDrive(const std::string& root) {
    if (root.empty() || (root.size() > 1 && root[1] != ':')) return std::nullopt;
    const DriveRecord* d = map_.Find(root[0]);
    if (d == nullptr) return std::nullopt;
    const DriveRecord copy = *d;
    return describe(copy);
}

std::vector<platform::ScriptingDrive> LinuxVolumes::Drives() {
    const std::vector<DriveRecord> all = map_.Drives();
    std::vector<platform::ScriptingDrive> out;
    for (const auto& d : all) out.push_back(describe(d));
    return out;
}

} // namespace linuxbk
