#pragma once
// The simulated machine's storage drivers, device tree and management
// service: the storage I/O controls on volumes and device interfaces, the
// device-interface enumeration with its parents and scripted answers to the
// eject request, and the disks with their partitions and PNP device IDs.
// Every call is journaled through the machine; Sleep advances its clock.
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "platform/devices.h"
#include "platform/management.h"
#include "platform/storage.h"

namespace fake {

class Machine;

// One device of the device tree.
struct Device {
    std::string instanceId; // such as "USBSTOR\DISK&VEN_ACME&PROD_STICK&REV_1.00\0123456789AB&0"
    std::string parent;     // the parent's instance ID; empty for a device at the root
    // The device interface it offers, if any: its class, its path (made from
    // the instance ID when empty) and the device number its storage driver
    // reports (none: the query fails).
    std::optional<platform::Guid> interfaceClass;
    std::string interfacePath;
    std::optional<std::uint32_t> deviceNumber;
    bool openable = true; // the interface can be opened
    // The answer (a CONFIGRET) to each eject request in turn; once they run
    // out the last one holds; none at all: every request is accepted.
    std::vector<std::uint32_t> ejectAnswers;
};

struct DiskPartition {
    std::string deviceID;                  // "Disk #1, Partition #0"
    std::vector<std::string> logicalDisks; // "E:"
};

struct Disk {
    std::string caption;
    std::string deviceID; // "\\.\PHYSICALDRIVE1"
    std::string pnpDeviceID;
    std::vector<DiskPartition> partitions;
};

class Hardware : public platform::Storage, public platform::Devices, public platform::Management {
public:
    explicit Hardware(Machine& machine);

    // --- describing the hardware ---
    // Devices keep the order they are added in (the enumeration order).
    void AddDevice(Device device);
    void AddDisk(Disk disk) { disks_.push_back(std::move(disk)); }
    void SetManagementReachable(bool reachable) { managementReachable_ = reachable; }
    // Called after an accepted eject request, with the ejected device's
    // instance ID and the roots of the drives that go with it, just before
    // those drives are taken away.
    void OnEjected(std::function<void(const std::string&, const std::vector<std::string>&)> observer) {
        onEjected_ = std::move(observer);
    }

    // --- state, for tests ---
    bool Present(const std::string& instanceId) const;
    int EjectRequests(const std::string& instanceId) const;
    std::size_t OpenHandles() const { return handles_.size(); }
    std::size_t OpenSets() const { return sets_.size(); }
    platform::DevInst InstanceOf(const std::string& instanceId) const; // 0 when unknown

    // Storage
    platform::Handle CreateFileA(const std::string& fileName, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                 std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes) override;
    bool DeviceIoControl(platform::Handle device, std::uint32_t ioControlCode, std::span<const std::uint8_t> inBuffer,
                         std::span<std::uint8_t> outBuffer, std::uint32_t& bytesReturned) override;
    bool CloseHandle(platform::Handle handle) override;
    std::uint32_t QueryDosDeviceA(const std::string& deviceName, std::span<char> targetPath) override;

    // Devices
    platform::DevInfoSet SetupDiGetClassDevsA(const platform::Guid& classGuid, std::uint32_t flags) override;
    bool SetupDiEnumDeviceInterfaces(platform::DevInfoSet set, const platform::Guid& classGuid,
                                     std::uint32_t memberIndex, platform::SpDeviceInterfaceData& data) override;
    bool SetupDiGetDeviceInterfaceDetailA(platform::DevInfoSet set, const platform::SpDeviceInterfaceData& data,
                                          std::span<std::uint8_t> detail, std::uint32_t* requiredSize,
                                          platform::SpDevinfoData* devInfo) override;
    bool SetupDiDestroyDeviceInfoList(platform::DevInfoSet set) override;
    std::uint32_t CM_Get_Parent(platform::DevInst& parent, platform::DevInst device, std::uint32_t flags) override;
    std::uint32_t CM_Request_Device_EjectW(platform::DevInst device, std::int32_t* vetoType,
                                           std::span<char16_t> vetoName, std::uint32_t flags) override;
    void Sleep(std::uint32_t milliseconds) override;

    // Management
    std::optional<std::vector<platform::ManagementObject>> ExecQuery(const std::string& moniker,
                                                                     const std::string& query) override;

    // The names the journal uses.
    static std::string ClassName(const platform::Guid& guid);
    static std::string ResultName(std::uint32_t configret);

private:
    struct Node {
        Device device;
        platform::DevInst devInst = 0;
        bool present = true;
        int ejectRequests = 0;
    };
    struct Open {
        char driveLetter = 0;        // a volume, or
        std::size_t node = SIZE_MAX; // a device interface
    };

    Node* node(platform::DevInst devInst);
    const Node* node(const std::string& instanceId) const;
    void eject(Node& target);
    void record(std::string name, std::vector<std::string> args, std::string result, bool request = false);

    Machine& machine_;
    std::vector<Node> nodes_;
    std::vector<Disk> disks_;
    bool managementReachable_ = true;
    std::map<platform::Handle, Open> handles_;
    platform::Handle nextHandle_ = 0x4000;
    std::map<platform::DevInfoSet, std::vector<std::size_t>> sets_; // set -> interface nodes
    platform::DevInfoSet nextSet_ = 0x6000;
    std::function<void(const std::string&, const std::vector<std::string>&)> onEjected_;
};

// Reads "deviceTree", "disks", "management" and the drives' storage keys
// ("bus", "deviceNumber", "dosDevice", "openable") of a machine description.
void LoadHardware(Machine& machine, const nlohmann::json& doc);

} // namespace fake
