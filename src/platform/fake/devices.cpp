// The simulated device tree: device-interface lists, parents, and eject
// requests that the description can veto.
#include "platform/fake/hardware.h"

#include <cstring>

#include "core/vb.h"
#include "platform/bytes.h"
#include "platform/fake/journal_text.h"
#include "platform/fake/machine.h"

namespace fake {

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
        const std::uint32_t cbSize = platform::ReadLe32(detail, 0);
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
                if (vb::SameText(n.device.parent, g) &&
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
                         [&](const std::string& g) { return vb::SameText(g, n.device.instanceId); }) == gone.end())
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
    // The observer still finds the drives, as the system still knows how to name them.
    if (onEjected_) onEjected_(target.device.instanceId, roots);
    for (const auto& root : roots) machine_.RemoveDrive(root);
}

void Hardware::Sleep(std::uint32_t milliseconds) {
    record("Sleep", {std::to_string(milliseconds)}, "");
    // The thread blocks: time passes, but nothing scheduled runs until the next yield.
    machine_.SetTime(machine_.Now() + milliseconds / 1000.0);
}

} // namespace fake
