// Reading the storage, device-tree and management parts of a machine
// description (see docs/kestrine-sim.md).
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/fake/description_fields.h"
#include "platform/fake/hardware.h"
#include "platform/fake/machine.h"

namespace fake {

namespace {

using nlohmann::json;

std::optional<std::uint32_t> Number(const json& j, const char* key) {
    if (!j.contains(key) || j[key].is_null()) return std::nullopt;
    if (!j[key].is_number_unsigned() || j[key].get<std::uint64_t>() > 0xFFFFFFFFu)
        Fail(std::string("\"") + key + "\" must be a whole number from 0 to 4294967295");
    return j[key].get<std::uint32_t>();
}

bool Flag(const json& j, const char* key, bool fallback) {
    if (!j.contains(key)) return fallback;
    if (!j[key].is_boolean()) Fail(std::string("\"") + key + "\" must be true or false");
    return j[key].get<bool>();
}

const json& Array(const json& j, const char* key) {
    if (!j[key].is_array()) Fail(std::string("\"") + key + "\" must be an array");
    return j[key];
}

platform::Guid InterfaceClass(const std::string& name) {
    if (name == "disk") return platform::kGuidDevinterfaceDisk;
    if (name == "cdrom") return platform::kGuidDevinterfaceCdrom;
    if (name == "floppy") return platform::kGuidDevinterfaceFloppy;
    Fail("an \"interface\" is \"disk\", \"cdrom\" or \"floppy\", not \"" + name + "\"");
}

std::uint32_t EjectAnswer(const json& a) {
    if (a.is_number_unsigned() && a.get<std::uint64_t>() <= 0xFFFFFFFFu) return a.get<std::uint32_t>();
    if (a == "accepted") return platform::kCrSuccess;
    if (a == "refused") return platform::kCrRemoveVetoed;
    Fail("an eject answer is \"accepted\", \"refused\" or a result code");
}

} // namespace

void LoadHardware(Machine& m, const json& doc) {
    if (doc.contains("deviceTree")) {
        for (const json& n : Array(doc, "deviceTree")) {
            Device device;
            device.instanceId = Str(n, "instanceId");
            if (device.instanceId.empty()) Fail("every device of \"deviceTree\" needs an \"instanceId\"");
            device.parent = Str(n, "parent");
            if (n.contains("interface")) device.interfaceClass = InterfaceClass(Str(n, "interface"));
            device.interfacePath = Str(n, "interfacePath");
            device.deviceNumber = Number(n, "deviceNumber");
            device.openable = Flag(n, "openable", true);
            if (n.contains("eject"))
                for (const json& a : Array(n, "eject")) device.ejectAnswers.push_back(EjectAnswer(a));
            m.hardware().AddDevice(std::move(device));
        }
    }
    if (doc.contains("disks")) {
        for (const json& d : Array(doc, "disks")) {
            Disk disk;
            disk.caption = Str(d, "caption");
            disk.deviceID = Str(d, "deviceID");
            disk.pnpDeviceID = Str(d, "pnpDeviceID");
            if (d.contains("partitions")) {
                for (const json& p : Array(d, "partitions")) {
                    DiskPartition partition;
                    partition.deviceID = Str(p, "deviceID");
                    if (p.contains("logicalDisks"))
                        for (const json& l : Array(p, "logicalDisks")) {
                            if (!l.is_string()) Fail("\"logicalDisks\" must hold drive names such as \"E:\"");
                            partition.logicalDisks.push_back(l.get<std::string>());
                        }
                    disk.partitions.push_back(std::move(partition));
                }
            }
            m.hardware().AddDisk(std::move(disk));
        }
    }
    if (doc.contains("management")) m.hardware().SetManagementReachable(Flag(doc["management"], "reachable", true));
}

} // namespace fake
