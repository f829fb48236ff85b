#pragma once
// The block devices as sysfs describes them, read from a root folder given
// as a parameter ("/sys" on a running system, a fixture tree in tests):
// whole disks and partitions, the storage bus a disk sits on, the USB device
// above it, and its vendor, model, revision and serial. A device stacked on
// disks (dm-crypt, LVM, md) sits on the bus of the disks below it.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/storage.h"

namespace linuxbk {

// The storage bus numbers the storage driver reports (STORAGE_BUS_TYPE),
// by the short names the sysfs reading uses.
namespace bus {
inline constexpr std::uint32_t kUnknown = platform::kBusTypeUnknown;
inline constexpr std::uint32_t kScsi = platform::kBusTypeScsi;
inline constexpr std::uint32_t kAta = platform::kBusTypeAta;
inline constexpr std::uint32_t k1394 = platform::kBusType1394;
inline constexpr std::uint32_t kUsb = platform::kBusTypeUsb;
inline constexpr std::uint32_t kRaid = platform::kBusTypeRaid;
inline constexpr std::uint32_t kSata = platform::kBusTypeSata;
inline constexpr std::uint32_t kSd = platform::kBusTypeSd;
inline constexpr std::uint32_t kMmc = platform::kBusTypeMmc;
inline constexpr std::uint32_t kVirtual = platform::kBusTypeVirtual;
inline constexpr std::uint32_t kFileBackedVirtual = platform::kBusTypeFileBackedVirtual;
inline constexpr std::uint32_t kNvme = platform::kBusTypeNvme;
} // namespace bus

enum class DiskKind { Disk, CdRom, Floppy };

// "8:17" (a "dev" attribute) as its two numbers; false when it is not of that form.
bool ParseDev(std::string_view text, std::uint32_t& major, std::uint32_t& minor);
// The value of KEY=value in the text of a uevent file; "" when there is none.
std::string UeventValue(std::string_view ueventText, std::string_view key);
// Kernel names in the order of their numbers: sdb2 before sdb10.
bool NaturalLess(const std::string& a, const std::string& b);

// One block device: a whole disk or a partition.
struct BlockDevice {
    std::string name;    // kernel name: "sdb1"
    std::string path;    // its sysfs folder, resolved
    std::string devNode; // "/dev/sdb1"
    std::uint32_t major = 0, minor = 0;
    std::uint32_t partition = 0; // 0 for a whole disk
    std::string diskName;        // the whole disk: "sdb"
    std::string diskPath;
};

// What a whole disk tells about itself.
struct DiskInfo {
    std::string name; // "sdb"
    std::string path;
    std::string devNode;
    std::uint32_t major = 0, minor = 0;
    DiskKind kind = DiskKind::Disk;
    bool removable = false; // the medium can be removed (sysfs "removable")
    bool hotplug = false;   // the device can come and go: USB, FireWire, SD cards
    std::uint64_t sizeBytes = 0;
    std::uint32_t busType = bus::kUnknown;
    std::string usbDevice; // the USB device folder above it ("" when none)
    std::string vendor, model, revision, serial;
    std::uint32_t lun = 0;
    bool loop = false;
    std::string backingFile; // loop devices
};

class Sysfs {
public:
    explicit Sysfs(std::string root = "/sys") : root_(std::move(root)) {}
    const std::string& Root() const { return root_; }

    std::optional<BlockDevice> ByNumber(std::uint32_t major, std::uint32_t minor) const;
    std::optional<BlockDevice> ByName(const std::string& name) const;
    // Every block device, sorted by kernel name; with a prefix, only those
    // whose kernel name starts with it (the others' attributes are not read).
    std::vector<BlockDevice> All(std::string_view prefix = {}) const;
    // Whole disks only (no partitions), sorted by kernel name.
    std::vector<DiskInfo> Disks() const;
    // With Identity the vendor, model, revision and serial are read too:
    // a virtio or SCSI disk answers its serial with a request to the device,
    // which a listing, a drive type or a bus check does not need.
    enum class Detail { Bus, Identity };
    std::optional<DiskInfo> Disk(const std::string& diskName, Detail detail = Detail::Identity) const;
    // The partitions of a whole disk, in partition order.
    std::vector<BlockDevice> Partitions(const std::string& diskName) const;
    // The block devices built directly on one (dm-crypt, LVM, md: its
    // "holders"), and the ones it is built on (its "slaves"), by kernel name.
    std::vector<std::string> Holders(const std::string& name) const;
    std::vector<std::string> Slaves(const std::string& name) const;
    // The whole disks a stacked device rests on at the bottom, following its
    // slaves down; empty for a device that rests on none.
    std::vector<std::string> Leaves(const std::string& name) const;

    // The number the storage driver reports for a whole disk: its device
    // numbers as one value (major << 20 | minor), unique among present disks.
    static std::uint32_t DeviceNumber(std::uint32_t major, std::uint32_t minor) { return major << 20 | minor; }

    // "USBSTOR\DISK&VEN_SanDisk&PROD_Cruzer_Blade&REV_1.00\4C530001230516104323&0"
    static std::string PnpDeviceId(const DiskInfo& disk);
    // "SanDisk Cruzer Blade USB Device"
    static std::string Caption(const DiskInfo& disk);

private:
    // A disk without a USB device of its own that is stacked on USB disks
    // only takes the first one's USB device and identity.
    void InheritStackedUsb(DiskInfo& d, Detail detail) const;
    std::optional<BlockDevice> fromPath(const std::string& path) const;
    std::string root_;
};

} // namespace linuxbk
