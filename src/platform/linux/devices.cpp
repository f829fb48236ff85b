#include "platform/linux/devices.h"
#include "platform/bytes.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace linuxbk {

namespace {

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

} // namespace

// --- device instances ---

platform::DevInst LinuxDevices::instance(const std::string& path, bool ownSubtree) {
    for (std::size_t i = 0; i < nodes_.size(); ++i)
        if (nodes_[i].path == path && nodes_[i].ownSubtree == ownSubtree)
            return static_cast<platform::DevInst>(platform::kFirstDevInst + i);
    nodes_.push_back({path, ownSubtree});
    return static_cast<platform::DevInst>(platform::kFirstDevInst + nodes_.size() - 1);
}

platform::DevInst LinuxDevices::InstanceOf(const std::string& sysfsPath) { return instance(sysfsPath, false); }

std::string LinuxDevices::PathOf(platform::DevInst device) const {
    const Node* n = node(device);
    return n != nullptr ? n->path : std::string();
}

const LinuxDevices::Node* LinuxDevices::node(platform::DevInst device) const {
    if (device < platform::kFirstDevInst || device - platform::kFirstDevInst >= nodes_.size()) return nullptr;
    return &nodes_[device - platform::kFirstDevInst];
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
    const std::uint32_t cbSize = platform::ReadLe32(detail, 0);
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
    const Node* found = this->node(device);
    if (found == nullptr) return platform::kCrNoSuchDevnode;
    const Node node = *found; // instance() below may grow the list
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
    if (const Node* n = node(device)) covered = disksBelow(*n);
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

} // namespace linuxbk
