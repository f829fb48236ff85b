#pragma once
// What ejecting a device takes down, worked out before anything is touched:
// the device's disks and partitions, the devices stacked on them (dm-crypt,
// LVM, md), every mount of any of these, and whatever stands in the way: the
// system's own file systems, swap, processes holding a file system, mounts
// inside the device's mounts, stacked devices that cannot be taken down.
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/letter_map.h"
#include "platform/linux/processes.h"
#include "platform/linux/udisks.h"

namespace linuxbk {

enum class StackKind { Crypt, Lvm, Raid, Other };

// A block device built on the device's disks.
struct StackedDevice {
    BlockDevice block;
    StackKind kind = StackKind::Other;
    std::string dmName;              // the device-mapper name ("luks-0f3a...", "kvg-klv"); "" for md
    std::vector<std::string> slaves; // the kernel names it rests on
};

struct ReleasePlan {
    std::vector<BlockDevice> members;   // the disks and their partitions
    std::vector<StackedDevice> stacked; // built on them, each after the ones it rests on
    std::vector<MountEntry> mounts;     // every mount of members and stacked devices, deepest first
    std::vector<platform::ProcessHold> holders;
    Veto veto = Veto::None; // why the device cannot be ejected now
    std::string text;       // "busy: /media/stick is in use"
    bool ok() const { return veto == Veto::None; }
    // The member or stacked block device a mount is of; nullptr when none.
    const BlockDevice* BlockOf(const MountEntry& mount) const;
};

struct PlanOptions {
    std::string procRoot = "/proc";
    std::string swaps = "/proc/swaps";
    bool root = false;   // may unmount and take stacked devices down directly, and may look closer
    bool udisks = false; // udisks2 runs and can take down what it knows
};

// The disks ejecting the device of disk takes away: every disk below its USB
// device (all units of a card reader or a multi-unit device), else the disk alone.
std::vector<DiskInfo> DisksOfDevice(const Sysfs& sys, const DiskInfo& disk);

ReleasePlan PlanRelease(LetterMap& map, const std::vector<DiskInfo>& disks, const PlanOptions& options);

// Whether nothing claims a block device (a mount in any namespace, a device
// stacked on it, swap): an exclusive open of it succeeds. Nothing when that
// cannot be told (no permission to open it).
std::optional<bool> ClaimFree(const std::string& devNode);

} // namespace linuxbk
