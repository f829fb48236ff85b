#include "platform/linux/devices.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace linuxbk {

namespace {

std::uint32_t GetU32(std::span<const std::uint8_t> b, std::size_t at) {
    if (b.size() < at + 4) return 0;
    return static_cast<std::uint32_t>(b[at]) | static_cast<std::uint32_t>(b[at + 1]) << 8 |
           static_cast<std::uint32_t>(b[at + 2]) << 16 | static_cast<std::uint32_t>(b[at + 3]) << 24;
}

std::string Base(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string Parent(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? std::string("/") : path.substr(0, slash);
}

std::int32_t VetoType(Veto veto) {
    switch (veto) {
    case Veto::Busy:
        return kPnpVetoOutstandingOpen;
    case Veto::NotAuthorised:
        return kPnpVetoInsufficientRights;
    case Veto::SystemDrive:
        return kPnpVetoNonDisableable;
    case Veto::NoDevice:
        return kPnpVetoAlreadyRemoved;
    default:
        return platform::kPnpVetoTypeUnknown;
    }
}

// The value between "='" and "'}" of an object path in a query.
std::string KeyValue(const std::string& query) {
    const auto open = query.find("='");
    const auto close = query.find("'}", open == std::string::npos ? 0 : open);
    if (open == std::string::npos || close == std::string::npos) return {};
    return query.substr(open + 2, close - open - 2);
}

constexpr const char* kDrivePrefix = "\\\\.\\PHYSICALDRIVE";

} // namespace

// --- device instances ---

platform::DevInst LinuxDevices::instance(const std::string& path, bool ownSubtree) {
    for (std::size_t i = 0; i < nodes_.size(); ++i)
        if (nodes_[i].path == path && nodes_[i].ownSubtree == ownSubtree)
            return static_cast<platform::DevInst>(0x100 + i);
    nodes_.push_back({path, ownSubtree});
    return static_cast<platform::DevInst>(0x100 + nodes_.size() - 1);
}

platform::DevInst LinuxDevices::InstanceOf(const std::string& sysfsPath) { return instance(sysfsPath, false); }

std::string LinuxDevices::PathOf(platform::DevInst device) const {
    if (device < 0x100 || device - 0x100 >= nodes_.size()) return {};
    return nodes_[device - 0x100].path;
}

std::vector<DiskInfo> LinuxDevices::disks() {
    std::vector<DiskInfo> out;
    for (auto& d : map_.sys().Disks())
        if (d.sizeBytes > 0 || d.kind == DiskKind::CdRom) out.push_back(std::move(d));
    return out;
}

std::vector<DiskInfo> LinuxDevices::disksBelow(const Node& node) {
    std::vector<DiskInfo> out;
    for (auto& d : disks()) {
        if (node.ownSubtree ? d.path == node.path : StartsWithPath(d.path, node.path)) out.push_back(std::move(d));
    }
    return out;
}

// --- Storage ---

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
    const auto disk = map_.sys().Disk(open.diskName);
    if (!disk) return false; // the device went away
    if (ioControlCode == platform::kIoctlStorageQueryProperty) {
        if (inBuffer.size() < platform::kStoragePropertyQuerySize ||
            GetU32(inBuffer, 0) != platform::kStorageDeviceProperty ||
            GetU32(inBuffer, 4) != platform::kPropertyStandardQuery || outBuffer.size() < 8)
            return false;
        const std::size_t n = std::min(outBuffer.size(), platform::kStorageDeviceDescriptorSize);
        std::fill_n(outBuffer.begin(), n, std::uint8_t{0});
        PutU32(outBuffer.first(n), platform::kDescriptorVersionOffset, platform::kStorageDeviceDescriptorSize);
        PutU32(outBuffer.first(n), platform::kDescriptorSizeOffset, platform::kStorageDeviceDescriptorSize);
        if (n > platform::kDescriptorRemovableMediaOffset)
            outBuffer[platform::kDescriptorRemovableMediaOffset] = disk->removable ? 1 : 0;
        PutU32(outBuffer.first(n), 8, disk->kind == DiskKind::CdRom ? 5 : 0); // DeviceType: the SCSI peripheral type
        PutU32(outBuffer.first(n), platform::kDescriptorBusTypeOffset, disk->busType);
        bytesReturned = static_cast<std::uint32_t>(n);
        return true;
    }
    if (ioControlCode == platform::kIoctlStorageGetDeviceNumber) {
        if (outBuffer.size() < platform::kStorageDeviceNumberSize) return false;
        std::uint32_t partition = 0;
        if (open.volume && open.blockName != open.diskName) {
            if (const auto b = map_.sys().ByName(open.blockName)) partition = b->partition;
        }
        PutU32(outBuffer, 0, disk->kind == DiskKind::CdRom ? platform::kFileDeviceCdRom : platform::kFileDeviceDisk);
        PutU32(outBuffer, 4, Sysfs::DeviceNumber(disk->major, disk->minor));
        PutU32(outBuffer, 8, partition);
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

// --- Devices ---

platform::DevInfoSet LinuxDevices::SetupDiGetClassDevsA(const platform::Guid& classGuid, std::uint32_t flags) {
    if ((flags & platform::kDigcfDeviceInterface) == 0) return platform::kInvalidHandleValue;
    DiskKind kind;
    if (classGuid == platform::kGuidDevinterfaceDisk)
        kind = DiskKind::Disk;
    else if (classGuid == platform::kGuidDevinterfaceCdrom)
        kind = DiskKind::CdRom;
    else if (classGuid == platform::kGuidDevinterfaceFloppy)
        kind = DiskKind::Floppy;
    else
        return platform::kInvalidHandleValue;
    std::vector<Interface> members;
    for (const auto& d : disks())
        if (d.kind == kind) members.push_back({d.name, d.devNode, d.path});
    const platform::DevInfoSet set = nextSet_++;
    sets_.emplace(set, std::move(members));
    return set;
}

bool LinuxDevices::SetupDiEnumDeviceInterfaces(platform::DevInfoSet set, const platform::Guid& classGuid,
                                               std::uint32_t memberIndex, platform::SpDeviceInterfaceData& data) {
    auto it = sets_.find(set);
    if (it == sets_.end() || (data.cbSize != 28 && data.cbSize != 32) || memberIndex >= it->second.size()) return false;
    data.InterfaceClassGuid = classGuid;
    data.Flags = 1; // SPINT_ACTIVE
    data.Reserved = memberIndex;
    return true;
}

bool LinuxDevices::SetupDiGetDeviceInterfaceDetailA(platform::DevInfoSet set,
                                                    const platform::SpDeviceInterfaceData& data,
                                                    std::span<std::uint8_t> detail, std::uint32_t* requiredSize,
                                                    platform::SpDevinfoData* devInfo) {
    auto it = sets_.find(set);
    if (it == sets_.end() || data.Reserved >= it->second.size()) return false;
    const Interface& member = it->second[data.Reserved];
    const auto required = static_cast<std::uint32_t>(platform::kDetailDevicePathOffset + member.path.size() + 1);
    if (requiredSize != nullptr) *requiredSize = required;
    const std::uint32_t cbSize = GetU32(detail, 0);
    const bool infoOk = devInfo == nullptr || devInfo->cbSize == 28 || devInfo->cbSize == 32;
    if (detail.size() < required || (cbSize != 5 && cbSize != 8) || !infoOk) return false;
    std::memcpy(detail.data() + platform::kDetailDevicePathOffset, member.path.data(), member.path.size());
    detail[platform::kDetailDevicePathOffset + member.path.size()] = 0;
    if (devInfo != nullptr) {
        devInfo->ClassGuid = data.InterfaceClassGuid;
        devInfo->DevInst = instance(member.sysfsPath, false);
    }
    return true;
}

bool LinuxDevices::SetupDiDestroyDeviceInfoList(platform::DevInfoSet set) { return sets_.erase(set) != 0; }

std::uint32_t LinuxDevices::CM_Get_Parent(platform::DevInst& parent, platform::DevInst device, std::uint32_t) {
    if (device < 0x100 || device - 0x100 >= nodes_.size()) return platform::kCrNoSuchDevnode;
    const Node node = nodes_[device - 0x100];
    if (node.ownSubtree || !IsDirectory(node.path)) return platform::kCrNoSuchDevnode;
    if (const auto disk = map_.sys().Disk(Base(node.path)); disk && disk->path == node.path) {
        parent = disk->usbDevice.empty() ? instance(disk->path, true) : instance(disk->usbDevice, false);
        return platform::kCrSuccess;
    }
    const std::string up = Parent(node.path);
    const std::string top = RealPath(map_.sys().Root() + "/devices");
    if (top.empty() || !StartsWithPath(up, top) || up == top) return platform::kCrNoSuchDevnode;
    parent = instance(up, false);
    return platform::kCrSuccess;
}

std::uint32_t LinuxDevices::CM_Request_Device_EjectW(platform::DevInst device, std::int32_t* vetoType,
                                                     std::span<char16_t> vetoName, std::uint32_t) {
    std::vector<DiskInfo> covered;
    if (device >= 0x100 && device - 0x100 < nodes_.size()) covered = disksBelow(nodes_[device - 0x100]);
    if (covered.empty()) {
        lastEject_ = EjectReport{};
        lastEject_.veto = Veto::NoDevice;
        lastEject_.text = "no such device";
        return platform::kCrNoSuchDevnode;
    }
    lastEject_ = Eject(covered);
    notice_ = {};
    if (lastEject_.veto == Veto::None) return platform::kCrSuccess;
    // Asked without a buffer for the veto's name, the system tells the user itself.
    if (vetoName.empty()) notice_ = NoticeOf(lastEject_);
    if (vetoType != nullptr) *vetoType = VetoType(lastEject_.veto);
    if (!vetoName.empty()) {
        const std::u16string text = Utf8ToUtf16(lastEject_.text);
        const std::size_t n = std::min(text.size(), vetoName.size() - 1);
        std::copy_n(text.begin(), n, vetoName.begin());
        vetoName[n] = u'\0';
    }
    return platform::kCrRemoveVetoed;
}

void LinuxDevices::Sleep(std::uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// --- Management ---

std::optional<std::vector<platform::ManagementObject>> LinuxDevices::ExecQuery(const std::string& moniker,
                                                                               const std::string& query) {
    const std::string q = Upper(query);
    if (!Upper(moniker).starts_with("WINMGMTS:")) return std::nullopt;
    std::vector<DiskInfo> all;
    for (auto& d : disks())
        if (d.kind == DiskKind::Disk) all.push_back(std::move(d));
    auto numberOf = [](const DiskInfo& d) { return std::to_string(Sysfs::DeviceNumber(d.major, d.minor)); };
    auto partitionsOf = [&](const DiskInfo& d) {
        std::vector<std::pair<std::string, std::string>> out; // (DeviceID, block name)
        const auto parts = map_.sys().Partitions(d.name);
        if (parts.empty()) {
            out.emplace_back("Disk #" + numberOf(d) + ", Partition #0", d.name);
        } else {
            for (const auto& p : parts)
                out.emplace_back("Disk #" + numberOf(d) + ", Partition #" + std::to_string(p.partition - 1), p.name);
        }
        return out;
    };

    std::vector<platform::ManagementObject> answer;
    if (q.starts_with("SELECT ") && q.find(" FROM WIN32_DISKDRIVE") != std::string::npos) {
        for (const auto& d : all) answer.push_back({Sysfs::Caption(d), kDrivePrefix + numberOf(d), pnpOf(d)});
        return answer;
    }
    if (q.starts_with("ASSOCIATORS OF {WIN32_DISKDRIVE.DEVICEID=") &&
        q.find("ASSOCCLASS = WIN32_DISKDRIVETODISKPARTITION") != std::string::npos) {
        const std::string key = Upper(KeyValue(query));
        for (const auto& d : all)
            if (Upper(kDrivePrefix + numberOf(d)) == key)
                for (const auto& [id, block] : partitionsOf(d)) answer.push_back({{}, id, {}});
        return answer;
    }
    if (q.starts_with("ASSOCIATORS OF {WIN32_DISKPARTITION.DEVICEID=") &&
        q.find("ASSOCCLASS = WIN32_LOGICALDISKTOPARTITION") != std::string::npos) {
        const std::string key = Upper(KeyValue(query));
        for (const auto& d : all)
            for (const auto& [id, block] : partitionsOf(d))
                if (Upper(id) == key)
                    for (const auto& drive : map_.Drives())
                        if (drive.block && drive.block->name == block)
                            answer.push_back({{}, std::string(1, drive.letter) + ":", {}});
        return answer;
    }
    return std::nullopt;
}

} // namespace linuxbk
