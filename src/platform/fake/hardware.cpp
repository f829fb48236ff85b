#include "platform/fake/hardware.h"
#include "platform/win_numbers.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

#include "core/vb.h"
#include "platform/fake/journal_text.h"
#include "platform/fake/machine.h"

namespace fake {

namespace {

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

// The path a device interface gets from its instance ID, as the system forms it.
std::string InterfacePath(const std::string& instanceId, const platform::Guid& guid) {
    std::string path = "\\\\?\\";
    for (char c : instanceId) path += c == '\\' ? '#' : vb::LowerChar(c);
    std::string g = GuidText(guid);
    return path + "#" + vb::LCase(g);
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
    n.devInst = static_cast<platform::DevInst>(platform::kFirstDevInst + nodes_.size());
    nodes_.push_back(std::move(n));
}

Hardware::Node* Hardware::node(platform::DevInst devInst) {
    for (auto& n : nodes_)
        if (n.devInst == devInst && n.present) return &n;
    return nullptr;
}

const Hardware::Node* Hardware::node(const std::string& instanceId) const {
    for (const auto& n : nodes_)
        if (vb::SameText(n.device.instanceId, instanceId)) return &n;
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

} // namespace fake
