#pragma once
// Storage I/O controls, the device manager and the management service on
// Linux. Volumes are opened by letter, device interfaces are whole disks
// (their path is the device node); the device number is the whole disk's;
// the parent of a disk is its USB device (a disk without one is its own
// small subtree); the eject request first works out everything the device
// carries (partitions, units, dm-crypt, LVM, every mount of them) and what
// holds it, and refuses before touching anything when something does. Else
// it unmounts every file system, takes down what is stacked on the device
// and powers it off once, through udisks2, or, without udisks2 and as root,
// directly (umount2, device-mapper removal, the USB device's sysfs "remove",
// a loop device's LOOP_CLR_FD). The system drive is never powered off.
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/devices.h"
#include "platform/linux/letter_map.h"
#include "platform/linux/udisks.h"
#include "platform/management.h"
#include "platform/processes.h"
#include "platform/storage.h"
#include "platform/win_numbers.h"

namespace linuxbk {

// PNP_VETO_TYPE values the eject request names.
inline constexpr std::int32_t kPnpVetoOutstandingOpen = 5;
inline constexpr std::int32_t kPnpVetoNonDisableable = 10;
inline constexpr std::int32_t kPnpVetoInsufficientRights = 12;
inline constexpr std::int32_t kPnpVetoAlreadyRemoved = 13;

// The outcome of the last eject request, kept for the command-line tool.
struct EjectReport {
    Veto veto = Veto::None;
    std::string text;                           // "busy: /media/stick: target is busy"
    std::string method;                         // "udisks2" or "direct"
    std::vector<std::string> disks;             // the kernel names of the disks it covered
    std::vector<platform::ProcessHold> holders; // what held the device, when that refused it
    int powerOffs = 0;                          // the device powered off (once, whatever it carries)
};

// What the system tells the user about a refused eject request: why, in a
// sentence, and in detail who holds the device, a line each.
struct Notice {
    std::string reason;
    std::string details;
    bool empty() const { return reason.empty(); }
};
Notice NoticeOf(const EjectReport& report);

class LinuxDevices : public platform::Storage, public platform::Devices, public platform::Management {
public:
    explicit LinuxDevices(LetterMap& map) : map_(map) {}

    // Whether udisks2 may be used; off: only the direct way (tests of the fallback).
    void UseUdisks(bool use) { useUdisks_ = use; }
    const EjectReport& LastEject() const { return lastEject_; }
    // What the system tells the user about the last refused eject request
    // that asked it to (one made without a veto-name buffer), once; empty
    // when there is nothing to tell.
    Notice TakeNotice() { return std::exchange(notice_, {}); }
    // The device instance standing for a sysfs folder (a disk, a USB device).
    platform::DevInst InstanceOf(const std::string& sysfsPath);
    std::string PathOf(platform::DevInst device) const;

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

    // Unmounts every file system of the disks and powers them off.
    EjectReport Eject(const std::vector<DiskInfo>& disks);

private:
    struct Open {
        bool volume = false;
        char letter = 0;
        std::string blockName; // volume: its block device; interface: the disk
        std::string diskName;
        bool nul = false;
    };
    struct Node {
        std::string path;
        bool ownSubtree = false; // stands above exactly the disk at path
    };
    struct Interface {
        std::string disk;
        std::string path; // the device node
        std::string sysfsPath;
    };

    platform::DevInst instance(const std::string& path, bool ownSubtree);
    const Node* node(platform::DevInst device) const; // nullptr when not handed out
    std::vector<DiskInfo> disksBelow(const Node& node);
    std::vector<DiskInfo> disks(); // whole disks with a medium, in order
    std::string pnpOf(const DiskInfo& disk) const { return Sysfs::PnpDeviceId(disk); }

    LetterMap& map_;
    bool useUdisks_ = true;
    EjectReport lastEject_;
    Notice notice_;
    std::map<platform::Handle, Open> handles_;
    platform::Handle nextHandle_ = 0x40000;
    std::map<platform::DevInfoSet, std::vector<Interface>> sets_;
    platform::DevInfoSet nextSet_ = 0x6000;
    std::vector<Node> nodes_; // DevInst = platform::kFirstDevInst + index
};

} // namespace linuxbk
