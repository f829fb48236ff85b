// Storage I/O controls on Linux: volumes and disks opened by their Windows
// names, the storage descriptor and device number from sysfs, and the DOS
// device names behind the letters.
#include "platform/linux/devices.h"

#include <algorithm>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "platform/portable/storage_records.h"

namespace linuxbk {

platform::Handle LinuxDevices::CreateFileA(const std::string& fileName, std::uint32_t desiredAccess,
                                           std::uint32_t /*shareMode*/, std::uint32_t creationDisposition,
                                           std::uint32_t /*flagsAndAttributes*/) {
    if (creationDisposition != platform::kOpenExisting) return platform::kInvalidHandleValue;
    if (fileName == "NUL" || fileName == "nul" || fileName == "\\\\.\\NUL") {
        const int flags = (desiredAccess & platform::kGenericRead) != 0 ? O_RDONLY : O_RDWR;
        const int fd = ::open("/dev/null", flags | O_CLOEXEC);
        if (fd < 0) return platform::kInvalidHandleValue;
        Open nul;
        nul.nul = true;
        handles_[fd] = nul;
        return fd;
    }
    Open open;
    if (fileName.size() == 6 && fileName.starts_with("\\\\.\\") && fileName[5] == ':') {
        const DriveRecord* d = map_.Find(fileName[4]);
        if (d == nullptr || !d->block) return platform::kInvalidHandleValue;
        open.volume = true;
        open.letter = d->letter;
        open.blockName = d->block->name;
        open.diskName = d->block->diskName;
    } else if (fileName.starts_with("/dev/")) {
        const std::string real = RealPath(fileName);
        const auto b = map_.sys().ByName(Base(real.empty() ? fileName : real));
        if (!b || b->partition != 0) return platform::kInvalidHandleValue;
        open.blockName = open.diskName = b->name;
    } else {
        return platform::kInvalidHandleValue;
    }
    const platform::Handle handle = nextHandle_;
    nextHandle_ += 4;
    handles_.emplace(handle, open);
    return handle;
}

bool LinuxDevices::DeviceIoControl(platform::Handle device, std::uint32_t ioControlCode,
                                   std::span<const std::uint8_t> inBuffer, std::span<std::uint8_t> outBuffer,
                                   std::uint32_t& bytesReturned) {
    auto it = handles_.find(device);
    if (it == handles_.end() || it->second.nul) return false;
    const Open& open = it->second;
    const auto disk = map_.BusDisk(open.diskName);
    if (!disk) return false; // the device went away
    if (ioControlCode == platform::kIoctlStorageQueryProperty) {
        if (!portable::IsDevicePropertyQuery(inBuffer) || outBuffer.size() < 8) return false;
        // DeviceType is the SCSI peripheral type: 5 for optical drives.
        bytesReturned = static_cast<std::uint32_t>(portable::WriteDeviceDescriptor(
            outBuffer, disk->removable, disk->busType, disk->kind == DiskKind::CdRom ? 5 : 0));
        return true;
    }
    if (ioControlCode == platform::kIoctlStorageGetDeviceNumber) {
        if (outBuffer.size() < platform::kStorageDeviceNumberSize) return false;
        std::uint32_t partition = 0;
        if (open.volume && open.blockName != open.diskName) {
            if (const auto b = map_.sys().ByName(open.blockName)) partition = b->partition;
        }
        portable::WriteDeviceNumber(
            outBuffer, disk->kind == DiskKind::CdRom ? platform::kFileDeviceCdRom : platform::kFileDeviceDisk,
            Sysfs::DeviceNumber(disk->major, disk->minor), partition);
        bytesReturned = static_cast<std::uint32_t>(platform::kStorageDeviceNumberSize);
        return true;
    }
    return false;
}

bool LinuxDevices::CloseHandle(platform::Handle handle) {
    auto it = handles_.find(handle);
    if (it == handles_.end()) return false;
    if (it->second.nul) ::close(static_cast<int>(handle));
    handles_.erase(it);
    return true;
}

std::uint32_t LinuxDevices::QueryDosDeviceA(const std::string& deviceName, std::span<char> targetPath) {
    if (deviceName.size() != 2 || deviceName[1] != ':') return 0;
    const DriveRecord* d = map_.Find(deviceName[0]);
    if (d == nullptr) return 0;
    const std::string target = d->DosDevice();
    if (target.empty() || target.size() + 2 > targetPath.size()) return 0;
    std::memcpy(targetPath.data(), target.data(), target.size());
    targetPath[target.size()] = '\0';
    targetPath[target.size() + 1] = '\0';
    return static_cast<std::uint32_t>(target.size() + 2);
}

} // namespace linuxbk
