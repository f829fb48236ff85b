#include "drives/modGetDriveSerialNumber.h"

#include <vector>

#include "core/program.h"
#include "core/vb.h"
#include "platform/services.h"

namespace drives {

namespace {

constexpr const char* kMoniker = "winmgmts:{impersonationLevel=Impersonate}!//.";

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::string::size_type start = 0;
    for (;;) {
        const auto at = text.find(separator, start);
        parts.push_back(text.substr(start, at - start));
        if (at == std::string::npos) return parts;
        start = at + 1;
    }
}

// Doubles every "&" so a label shows it instead of taking it for an access key.
std::string DoubleAmpersands(const std::string& text) {
    std::string out;
    for (char c : text) {
        out += c;
        if (c == '&') out += '&';
    }
    return out;
}

} // namespace

std::optional<std::string> FindPNPDeviceID(platform::Services& sys, const std::string& sDrive) {
    auto& wmi = sys.management;
    const auto disks = wmi.ExecQuery(kMoniker, "SELECT Caption, DeviceID, PNPDeviceID FROM Win32_DiskDrive");
    if (!disks) return std::nullopt;
    for (const auto& disk : *disks) {
        const auto partitions = wmi.ExecQuery(kMoniker, "ASSOCIATORS OF {Win32_DiskDrive.DeviceID='" + disk.DeviceID +
                                                            "'} WHERE AssocClass = Win32_DiskDriveToDiskPartition");
        if (!partitions) continue;
        for (const auto& partition : *partitions) {
            const auto logical =
                wmi.ExecQuery(kMoniker, "ASSOCIATORS OF {Win32_DiskPartition.DeviceID='" + partition.DeviceID +
                                            "'} WHERE AssocClass = Win32_LogicalDiskToPartition");
            if (!logical) continue;
            for (const auto& disk2 : *logical)
                if (disk2.DeviceID == sDrive) return disk.PNPDeviceID;
        }
    }
    return std::nullopt;
}

std::string GetPNPDeviceID(app::Program& prog, app::Ctl label, const std::string& sDrive) {
    const auto id = FindPNPDeviceID(prog.sys, sDrive);
    if (!id) return {};
    prog.view.SetText(label, DoubleAmpersands(*id));
    return *id;
}

std::string ExtractSerial(app::Ctl /*label*/, const std::string& deviceId) {
    const auto pieces = Split(deviceId, '\\');
    const auto parts = Split(pieces.back(), '&');
    if (parts.size() == 1) return parts.front();
    std::string joined;
    for (const auto& part : parts)
        if (!vb::Trim(part).empty()) joined += part + " ";
    return vb::Trim(joined);
}

std::string SerialOfDeviceId(const std::string& deviceId) {
    return vb::Trim(deviceId).empty() ? kNoSerial : ExtractSerial(app::Ctl{}, deviceId);
}

std::string GetSerialNumber(app::Program& prog, app::Ctl label, const std::string& drive) {
    const std::string id = GetPNPDeviceID(prog, label, drive);
    if (vb::Trim(id).empty()) prog.view.SetText(label, kNoDeviceId);
    return SerialOfDeviceId(id);
}

} // namespace drives
