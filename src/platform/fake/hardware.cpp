#include "platform/fake/hardware.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iomanip>
#include <sstream>

#include "platform/fake/journal_text.h"
#include "platform/fake/machine.h"

namespace fake {

namespace {

std::string Upper(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

bool SameText(std::string_view a, std::string_view b) { return Upper(a) == Upper(b); }

std::uint32_t GetU32(std::span<const std::uint8_t> b, std::size_t at) {
    if (b.size() < at + 4) return 0;
    return static_cast<std::uint32_t>(b[at]) | static_cast<std::uint32_t>(b[at + 1]) << 8 |
           static_cast<std::uint32_t>(b[at + 2]) << 16 | static_cast<std::uint32_t>(b[at + 3]) << 24;
}

// Writes what fits of a little-endian 32-bit value.
void PutU32(std::span<std::uint8_t> b, std::size_t at, std::uint32_t value) {
    for (std::size_t i = 0; i < 4 && at + i < b.size(); ++i) b[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::string GuidText(const platform::Guid& g) {
    std::ostringstream out;
    out << std::hex << std::uppercase << std::setfill('0') << '{' << std::setw(8) << g.Data1 << '-' << std::setw(4)
        << g.Data2 << '-' << std::setw(4) << g.Data3 << '-';
    for (std::size_t i = 0; i < 8; ++i) {
        if (i == 2) out << '-';
        out << std::setw(2) << static_cast<unsigned>(g.Data4[i]);
    }
    out << '}';
    return out.str();
}

std::string IoctlName(std::uint32_t code) {
    if (code == platform::kIoctlStorageQueryProperty) return "IOCTL_STORAGE_QUERY_PROPERTY";
    if (code == platform::kIoctlStorageGetDeviceNumber) return "IOCTL_STORAGE_GET_DEVICE_NUMBER";
    std::ostringstream out;
    out << "0x" << std::hex << std::uppercase << code;
    return out.str();
}

// The path a device interface gets from its instance ID, as the system forms it.
std::string InterfacePath(const std::string& instanceId, const platform::Guid& guid) {
    std::string path = "\\\\?\\";
    for (char c : instanceId) path += c == '\\' ? '#' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    std::string g = GuidText(guid);
    for (char& c : g) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return path + "#" + g;
}

// The value between "='" and "'}" of an object path in a query.
std::string KeyValue(const std::string& query) {
    const auto open = query.find("='");
    const auto close = query.find("'}", open == std::string::npos ? 0 : open);
    if (open == std::string::npos || close == std::string::npos) return {};
    return query.substr(open + 2, close - open - 2);
}

} // namespace

Hardware::Hardware(Machine& machine) : machine_(machine) {}

void Hardware::record(std::string name, std::vector<std::string> args, std::string result, bool request) {
    machine_.Record(std::move(name), std::move(args), std::move(result), request);
}

std::string Hardware::ClassName(const platform::Guid& guid) {
    if (guid == platform::kGuidDevinterfaceDisk) return "GUID_DEVINTERFACE_DISK";
    if (guid == platform::kGuidDevinterfaceCdrom) return "GUID_DEVINTERFACE_CDROM";
    if (guid == platform::kGuidDevinterfaceFloppy) return "GUID_DEVINTERFACE_FLOPPY";
    return GuidText(guid);
}

std::string Hardware::ResultName(std::uint32_t configret) {
    switch (configret) {
    case platform::kCrSuccess:
        return "CR_SUCCESS";
    case platform::kCrNoSuchDevnode:
        return "CR_NO_SUCH_DEVNODE";
    case platform::kCrRemoveVetoed:
        return "CR_REMOVE_VETOED";
    default:
        return "CONFIGRET " + std::to_string(configret);
    }
}

// --- describing the hardware ---

void Hardware::AddDevice(Device device) {
    if (device.interfaceClass && device.interfacePath.empty())
        device.interfacePath = InterfacePath(device.instanceId, *device.interfaceClass);
    Node n;
    n.device = std::move(device);
    n.devInst = static_cast<platform::DevInst>(0x100 + nodes_.size());
    nodes_.push_back(std::move(n));
}

Hardware::Node* Hardware::node(platform::DevInst devInst) {
    for (auto& n : nodes_)
        if (n.devInst == devInst && n.present) return &n;
    return nullptr;
}

const Hardware::Node* Hardware::node(const std::string& instanceId) const {
    for (const auto& n : nodes_)
        if (SameText(n.device.instanceId, instanceId)) return &n;
    return nullptr;
}

bool Hardware::Present(const std::string& instanceId) const {
    const Node* n = node(instanceId);
    return n != nullptr && n->present;
}

int Hardware::EjectRequests(const std::string& instanceId) const {
    const Node* n = node(instanceId);
    return n ? n->ejectRequests : 0;
}

platform::DevInst Hardware::InstanceOf(const std::string& instanceId) const {
    const Node* n = node(instanceId);
    return n ? n->devInst : 0;
}

// --- Storage ---

platform::Handle Hardware::CreateFileA(const std::string& fileName, std::uint32_t desiredAccess,
                                       std::uint32_t shareMode, std::uint32_t creationDisposition,
                                       std::uint32_t flagsAndAttributes) {
    std::optional<Open> target;
    if (creationDisposition == platform::kOpenExisting) {
        if (fileName.size() == 6 && fileName.starts_with("\\\\.\\") && fileName[5] == ':') {
            const Drive* d = machine_.FindDrive(fileName.substr(4));
            if (d != nullptr && d->openable) target = Open{static_cast<char>(std::toupper(fileName[4])), SIZE_MAX};
        } else {
            for (std::size_t i = 0; i < nodes_.size(); ++i) {
                const Node& n = nodes_[i];
                if (n.present && n.device.interfaceClass && n.device.openable &&
                    SameText(n.device.interfacePath, fileName))
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
        inBuffer.size() >= platform::kStoragePropertyQuerySize &&
        GetU32(inBuffer, 0) == platform::kStorageDeviceProperty &&
        GetU32(inBuffer, 4) == platform::kPropertyStandardQuery && outBuffer.size() >= 8) {
        const std::size_t n = std::min(outBuffer.size(), platform::kStorageDeviceDescriptorSize);
        std::fill_n(outBuffer.begin(), n, std::uint8_t{0});
        PutU32(outBuffer.first(n), platform::kDescriptorVersionOffset, platform::kStorageDeviceDescriptorSize);
        PutU32(outBuffer.first(n), platform::kDescriptorSizeOffset, platform::kStorageDeviceDescriptorSize);
        if (n > platform::kDescriptorRemovableMediaOffset)
            outBuffer[platform::kDescriptorRemovableMediaOffset] = drive->type == platform::kDriveRemovable ? 1 : 0;
        PutU32(outBuffer.first(n), platform::kDescriptorBusTypeOffset, *drive->bus);
        bytesReturned = static_cast<std::uint32_t>(n);
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
            PutU32(outBuffer, 0, type);
            PutU32(outBuffer, 4, *number);
            PutU32(outBuffer, 8, partition);
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
            const int index = std::toupper(static_cast<unsigned char>(d->root[0])) - 'C' + 1;
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

// --- Devices ---

platform::DevInfoSet Hardware::SetupDiGetClassDevsA(const platform::Guid& classGuid, std::uint32_t flags) {
    platform::DevInfoSet set = platform::kInvalidHandleValue;
    if ((flags & platform::kDigcfDeviceInterface) != 0) {
        std::vector<std::size_t> members;
        for (std::size_t i = 0; i < nodes_.size(); ++i)
            if (nodes_[i].present && nodes_[i].device.interfaceClass == classGuid) members.push_back(i);
        set = nextSet_++;
        sets_.emplace(set, std::move(members));
    }
    record("SetupDiGetClassDevsA", {ClassName(classGuid), std::to_string(flags)}, std::to_string(set));
    return set;
}

bool Hardware::SetupDiEnumDeviceInterfaces(platform::DevInfoSet set, const platform::Guid& classGuid,
                                           std::uint32_t memberIndex, platform::SpDeviceInterfaceData& data) {
    bool ok = false;
    auto it = sets_.find(set);
    if (it != sets_.end() && (data.cbSize == 28 || data.cbSize == 32) && memberIndex < it->second.size() &&
        nodes_[it->second[memberIndex]].device.interfaceClass == classGuid) {
        data.InterfaceClassGuid = classGuid;
        data.Flags = 1; // SPINT_ACTIVE
        data.Reserved = it->second[memberIndex];
        ok = true;
    }
    record("SetupDiEnumDeviceInterfaces", {std::to_string(set), std::to_string(memberIndex)}, ok ? "true" : "false");
    return ok;
}

bool Hardware::SetupDiGetDeviceInterfaceDetailA(platform::DevInfoSet set, const platform::SpDeviceInterfaceData& data,
                                                std::span<std::uint8_t> detail, std::uint32_t* requiredSize,
                                                platform::SpDevinfoData* devInfo) {
    bool ok = false;
    auto it = sets_.find(set);
    const bool member =
        it != sets_.end() && std::find(it->second.begin(), it->second.end(), data.Reserved) != it->second.end();
    std::uint32_t required = 0;
    if (member) {
        const Node& n = nodes_[data.Reserved];
        const std::string& path = n.device.interfacePath;
        required = static_cast<std::uint32_t>(platform::kDetailDevicePathOffset + path.size() + 1);
        if (requiredSize != nullptr) *requiredSize = required;
        const std::uint32_t cbSize = GetU32(detail, 0);
        const bool infoOk = devInfo == nullptr || devInfo->cbSize == 28 || devInfo->cbSize == 32;
        if (detail.size() >= required && (cbSize == 5 || cbSize == 8) && infoOk) {
            std::memcpy(detail.data() + platform::kDetailDevicePathOffset, path.data(), path.size());
            detail[platform::kDetailDevicePathOffset + path.size()] = 0;
            if (devInfo != nullptr) {
                devInfo->ClassGuid = *n.device.interfaceClass;
                devInfo->DevInst = n.devInst;
            }
            ok = true;
        }
    }
    record("SetupDiGetDeviceInterfaceDetailA", {std::to_string(set), std::to_string(detail.size())},
           (ok ? "true" : "false") + std::string(", required ") + std::to_string(required));
    return ok;
}

bool Hardware::SetupDiDestroyDeviceInfoList(platform::DevInfoSet set) {
    const bool ok = sets_.erase(set) != 0;
    record("SetupDiDestroyDeviceInfoList", {std::to_string(set)}, ok ? "true" : "false");
    return ok;
}

std::uint32_t Hardware::CM_Get_Parent(platform::DevInst& parent, platform::DevInst device, std::uint32_t flags) {
    std::uint32_t result = platform::kCrNoSuchDevnode;
    const Node* child = node(device);
    const Node* up = child && !child->device.parent.empty() ? node(child->device.parent) : nullptr;
    if (up != nullptr && up->present) {
        parent = up->devInst;
        result = platform::kCrSuccess;
    }
    record("CM_Get_Parent", {child ? child->device.instanceId : std::to_string(device), std::to_string(flags)},
           ResultName(result) + (up && up->present ? ", " + up->device.instanceId : std::string{}));
    return result;
}

std::uint32_t Hardware::CM_Request_Device_EjectW(platform::DevInst device, std::int32_t* vetoType,
                                                 std::span<char16_t> vetoName, std::uint32_t flags) {
    Node* target = node(device);
    std::uint32_t result = platform::kCrNoSuchDevnode;
    if (target != nullptr) {
        const auto& answers = target->device.ejectAnswers;
        const std::size_t attempt = static_cast<std::size_t>(target->ejectRequests++);
        result = answers.empty() ? platform::kCrSuccess : answers[std::min(attempt, answers.size() - 1)];
    }
    const std::string name = target ? target->device.instanceId : std::to_string(device);
    if (result != platform::kCrSuccess) {
        if (vetoType != nullptr) *vetoType = platform::kPnpVetoOutstandingOpen;
        if (!vetoName.empty()) {
            const std::size_t n = std::min(name.size(), vetoName.size() - 1);
            for (std::size_t i = 0; i < n; ++i) vetoName[i] = static_cast<char16_t>(name[i]);
            vetoName[n] = u'\0';
        }
    }
    const std::string form =
        vetoName.empty() ? std::string("veto type") : "veto name " + std::to_string(vetoName.size());
    record("CM_Request_Device_EjectW", {name, form, std::to_string(flags)}, ResultName(result), true);
    if (result == platform::kCrSuccess && target != nullptr) eject(*target);
    return result;
}

void Hardware::eject(Node& target) {
    // The device and everything below it leave the tree.
    std::vector<std::string> gone{target.device.instanceId};
    for (bool more = true; more;) {
        more = false;
        for (auto& n : nodes_) {
            if (!n.present || n.device.parent.empty()) continue;
            for (const auto& g : gone) {
                if (SameText(n.device.parent, g) &&
                    std::find(gone.begin(), gone.end(), n.device.instanceId) == gone.end()) {
                    gone.push_back(n.device.instanceId);
                    more = true;
                }
            }
        }
    }
    std::vector<std::string> roots;
    for (auto& n : nodes_) {
        if (std::find_if(gone.begin(), gone.end(),
                         [&](const std::string& g) { return SameText(g, n.device.instanceId); }) == gone.end())
            continue;
        n.present = false;
        if (!n.device.interfaceClass || !n.device.deviceNumber) continue;
        const bool cd = n.device.interfaceClass == platform::kGuidDevinterfaceCdrom;
        // The volumes on it go with it.
        for (char letter = 'A'; letter <= 'Z'; ++letter) {
            const Drive* d = machine_.FindDrive(std::string(1, letter));
            if (d != nullptr && d->deviceNumber == n.device.deviceNumber && (d->type == platform::kDriveCdrom) == cd)
                roots.push_back(d->root);
        }
    }
    for (const auto& root : roots) machine_.RemoveDrive(root);
    if (onEjected_) onEjected_(target.device.instanceId, roots);
}

void Hardware::Sleep(std::uint32_t milliseconds) {
    record("Sleep", {std::to_string(milliseconds)}, "");
    // The thread blocks: time passes, but nothing scheduled runs until the next yield.
    machine_.SetTime(machine_.Now() + milliseconds / 1000.0);
}

// --- Management ---

std::optional<std::vector<platform::ManagementObject>> Hardware::ExecQuery(const std::string& moniker,
                                                                           const std::string& query) {
    std::optional<std::vector<platform::ManagementObject>> answer;
    const std::string q = Upper(query);
    if (managementReachable_ && Upper(moniker).starts_with("WINMGMTS:")) {
        if (q.starts_with("SELECT ") && q.find(" FROM WIN32_DISKDRIVE") != std::string::npos) {
            answer.emplace();
            for (const auto& disk : disks_) {
                const Node* device = node(disk.pnpDeviceID);
                if (device != nullptr && !device->present) continue; // ejected with its device
                answer->push_back({disk.caption, disk.deviceID, disk.pnpDeviceID});
            }
        } else if (q.starts_with("ASSOCIATORS OF {WIN32_DISKDRIVE.DEVICEID=") &&
                   q.find("ASSOCCLASS = WIN32_DISKDRIVETODISKPARTITION") != std::string::npos) {
            answer.emplace();
            const std::string key = KeyValue(query);
            for (const auto& disk : disks_)
                if (SameText(disk.deviceID, key))
                    for (const auto& p : disk.partitions) answer->push_back({{}, p.deviceID, {}});
        } else if (q.starts_with("ASSOCIATORS OF {WIN32_DISKPARTITION.DEVICEID=") &&
                   q.find("ASSOCCLASS = WIN32_LOGICALDISKTOPARTITION") != std::string::npos) {
            answer.emplace();
            const std::string key = KeyValue(query);
            for (const auto& disk : disks_)
                for (const auto& p : disk.partitions)
                    if (SameText(p.deviceID, key))
                        for (const auto& l : p.logicalDisks)
                            if (machine_.FindDrive(l) != nullptr) answer->push_back({{}, l, {}});
        }
    }
    record("ExecQuery", {Quote(query)}, answer ? std::to_string(answer->size()) : "failed");
    return answer;
}

} // namespace fake
