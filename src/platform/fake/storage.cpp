// The simulated storage drivers: volumes and device interfaces opened by
// name, their storage descriptor and device number, and the DOS device
// names behind the letters.
#include "platform/fake/hardware.h"

#include <algorithm>
#include <cstring>
#include <sstream>

#include "core/vb.h"
#include "platform/bytes.h"
#include "platform/fake/journal_text.h"
#include "platform/fake/machine.h"
#include "platform/portable/storage_records.h"

namespace fake {

namespace {

std::string IoctlName(std::uint32_t code) {
    if (code == platform::kIoctlStorageQueryProperty) return "IOCTL_STORAGE_QUERY_PROPERTY";
    if (code == platform::kIoctlStorageGetDeviceNumber) return "IOCTL_STORAGE_GET_DEVICE_NUMBER";
    std::ostringstream out;
    out << "0x" << std::hex << std::uppercase << code;
    return out.str();
}

} // namespace

platform::Handle Hardware::CreateFileA(const std::string& fileName, std::uint32_t desiredAccess,
                                       std::uint32_t shareMode, std::uint32_t creationDisposition,
                                       std::uint32_t flagsAndAttributes) {
    std::optional<Open> target;
    if (creationDisposition == platform::kOpenExisting) {
        if (fileName.size() == 6 && fileName.starts_with("\\\\.\\") && fileName[5] == ':') {
            const Drive* d = machine_.FindDrive(fileName.substr(4));
            if (d != nullptr && d->openable) target = Open{vb::UpperChar(fileName[4]), SIZE_MAX};
        } else {
            for (std::size_t i = 0; i < nodes_.size(); ++i) {
                const Node& n = nodes_[i];
                if (n.present && n.device.interfaceClass && n.device.openable &&
                    vb::SameText(n.device.interfacePath, fileName))
                    target = Open{0, i};
            }
        }
    }
    platform::Handle handle = platform::kInvalidHandleValue;
    if (target) {
        handle = nextHandle_;
        nextHandle_ += 4;
        handles_.emplace(handle, *target);
    }
    std::ostringstream access;
    access << "0x" << std::hex << std::uppercase << desiredAccess;
    record("CreateFileA",
           {Quote(fileName), access.str(), std::to_string(shareMode), std::to_string(flagsAndAttributes)},
           std::to_string(handle));
    return handle;
}

bool Hardware::DeviceIoControl(platform::Handle device, std::uint32_t ioControlCode,
                               std::span<const std::uint8_t> inBuffer, std::span<std::uint8_t> outBuffer,
                               std::uint32_t& bytesReturned) {
    bool ok = false;
    auto it = handles_.find(device);
    const Drive* drive = nullptr;
    const Node* iface = nullptr;
    if (it != handles_.end()) {
        if (it->second.node != SIZE_MAX)
            iface = nodes_[it->second.node].present ? &nodes_[it->second.node] : nullptr;
        else
            drive = machine_.FindDrive(std::string(1, it->second.driveLetter));
    }
    if (ioControlCode == platform::kIoctlStorageQueryProperty && drive != nullptr && drive->bus &&
        portable::IsDevicePropertyQuery(inBuffer) && outBuffer.size() >= 8) {
        bytesReturned = static_cast<std::uint32_t>(
            portable::WriteDeviceDescriptor(outBuffer, drive->type == platform::kDriveRemovable, *drive->bus));
        ok = true;
    } else if (ioControlCode == platform::kIoctlStorageGetDeviceNumber &&
               outBuffer.size() >= platform::kStorageDeviceNumberSize) {
        std::optional<std::uint32_t> number;
        std::uint32_t type = platform::kFileDeviceDisk, partition = 0;
        if (drive != nullptr && drive->deviceNumber) {
            number = drive->deviceNumber;
            const bool cd = drive->type == platform::kDriveCdrom;
            type = cd ? platform::kFileDeviceCdRom : platform::kFileDeviceDisk;
            partition = cd ? 0 : 1;
        } else if (iface != nullptr && iface->device.deviceNumber) {
            number = iface->device.deviceNumber;
            if (iface->device.interfaceClass == platform::kGuidDevinterfaceCdrom) type = platform::kFileDeviceCdRom;
        }
        if (number) {
            portable::WriteDeviceNumber(outBuffer, type, *number, partition);
            bytesReturned = static_cast<std::uint32_t>(platform::kStorageDeviceNumberSize);
            ok = true;
        }
    }
    record("DeviceIoControl", {std::to_string(device), IoctlName(ioControlCode)}, ok ? "true" : "false");
    return ok;
}

bool Hardware::CloseHandle(platform::Handle handle) {
    const bool ok = handles_.erase(handle) != 0;
    record("CloseHandle", {std::to_string(handle)}, ok ? "true" : "false");
    return ok;
}

std::uint32_t Hardware::QueryDosDeviceA(const std::string& deviceName, std::span<char> targetPath) {
    std::uint32_t n = 0;
    const Drive* d = deviceName.size() == 2 && deviceName[1] == ':' ? machine_.FindDrive(deviceName) : nullptr;
    if (d != nullptr) {
        std::string target = d->dosDevice;
        if (target.empty()) {
            const int index = vb::UpperChar(d->root[0]) - 'C' + 1;
            target = d->type == platform::kDriveCdrom ? "\\Device\\CdRom0"
                                                      : "\\Device\\HarddiskVolume" + std::to_string(std::max(index, 1));
        }
        if (target.size() + 2 <= targetPath.size()) {
            std::memcpy(targetPath.data(), target.data(), target.size());
            targetPath[target.size()] = '\0';
            targetPath[target.size() + 1] = '\0';
            n = static_cast<std::uint32_t>(target.size() + 2);
        }
    }
    record("QueryDosDeviceA", {Quote(deviceName), std::to_string(targetPath.size())}, std::to_string(n));
    return n;
}

} // namespace fake
