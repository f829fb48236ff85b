#pragma once
// The drive letters of this system. "/" is C:; every other mounted
// block-device file system, network mount and optical drive gets the lowest
// free letter from D on and keeps it while it stays present. The map is
// shared by all services and rebuilt whenever the mount table changes.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/linux/mountinfo.h"
#include "platform/linux/sysfs.h"
#include "platform/linux/util.h"

namespace linuxbk {

enum class DriveKind { Root, Local, Network, Optical };

struct DriveRecord {
    char letter = 0; // 'C'..'Z'
    DriveKind kind = DriveKind::Local;
    std::string key;        // what identifies it across rebuilds: the device node or "net:<mount point>"
    std::string mountPoint; // "" when nothing is mounted (an empty optical drive)
    std::string fsType;     // as mounted
    std::string source;     // as mounted
    std::string devNode;    // "/dev/sdb1"; "" for network drives and a root without a device
    std::uint32_t major = 0, minor = 0;
    int mountId = 0; // the mount table's ID of the mount (reused once it is gone)
    // Names this mount for as long as the map sees it; no other mount, of
    // this map or another, ever has the same (what is known of a volume is
    // kept under it).
    std::uint64_t mountSerial = 0;
    std::optional<BlockDevice> block; // the block device, when sysfs knows it
    std::uint32_t driveType = 0;      // the GetDriveTypeA answer
    std::string shareName;            // network drives: "\\server\share"

    bool Ready() const { return !mountPoint.empty(); }
    std::string Root() const { return std::string(1, letter) + ":\\"; }
    // The DOS device name behind the letter: the device node, else the mount's source.
    std::string DosDevice() const { return devNode.empty() ? source : devNode; }
};

class LetterMap {
public:
    LetterMap(Sysfs sysfs, std::string mountInfoPath = "/proc/self/mountinfo");

    // Re-reads the mount table when it changed (and sysfs with it). Cheap when
    // nothing changed: a zero-timeout poll on the mount table.
    void Sync();
    // Re-reads unconditionally (after a device event: an optical drive may have come).
    void Refresh();
    // Builds the map from a mount table (tests feed fixtures through here).
    void Build(const std::vector<MountEntry>& mounts);
    // Holds the map at a table from the past (an event's) until Unpin: no
    // re-reading meanwhile. Pins nest.
    void Pin(const std::vector<MountEntry>& mounts);
    void Unpin();

    const std::vector<DriveRecord>& Drives(); // in letter order, after Sync()
    const DriveRecord* Find(char letter);     // any case; nullptr when there is no such drive
    // The drive of a Windows-form path ("e:\x", "E:", "E"); nullptr when none.
    const DriveRecord* DriveOf(const std::string& windowsPath);
    const std::vector<MountEntry>& Mounts(); // the whole mount table
    const Sysfs& sys() const { return sysfs_; }

    // What sysfs says of a drive's block device (its partition, disk and
    // drive type) is read again at every build, unless somebody watches the
    // devices' events: then it is kept from build to build until that
    // somebody says the device changed. A mount or an unmount then costs a
    // read of the mount table, not of sysfs for every drive.
    void KeepDevices(bool keep) {
        keepDevices_ = keep;
        if (!keep) {
            resolved_.clear();
            optical_.reset();
            disks_.clear();
        }
    }
    // A whole disk's bus, removability and kind (Sysfs::Detail::Bus), kept
    // as the drives' block devices are; nothing when sysfs has no such disk.
    std::optional<DiskInfo> BusDisk(const std::string& diskName) const;
    // The device (major:minor, kernel name "sdb" or "sdb1") came, went or
    // changed: what is kept of it, and of the partitions of a disk of that name, goes.
    void ForgetDevice(std::uint32_t major, std::uint32_t minor, const std::string& name);
    std::uint64_t Generation() const { return generation_; }

    // "E:\dir\f.txt" -> "/media/stick/dir/f.txt"; nothing when the letter is
    // unknown or its drive has nothing mounted.
    std::optional<std::string> ToNative(const std::string& windowsPath);
    // Files of one folder that live in another: the named files in
    // nativeFolder are taken from toFolder by ToNative.
    void Redirect(std::string nativeFolder, std::string toFolder, std::vector<std::string> names);
    // "/media/stick/dir/f.txt" -> "E:\dir\f.txt" through the deepest drive
    // that holds the path; nothing when no drive does.
    std::optional<std::string> ToWindows(const std::string& nativePath);

private:
    void readTable();
    std::optional<std::string> toNative(const std::string& windowsPath);
    // The steps of Build: the root drive, the other mounted drives, the
    // optical drives, then their letters and mount serials.
    static bool Known(const std::vector<DriveRecord>& found, const std::string& key);
    void resolve(DriveRecord& drive) const;          // its block device and drive type, kept or read
    void resolveFromSysfs(DriveRecord& drive) const; // the same, read
    std::optional<DriveRecord> rootDrive(const std::vector<MountEntry>& mounts) const;
    void addMounted(const std::vector<MountEntry>& mounts, std::vector<DriveRecord>& found) const;
    void addOptical(std::vector<DriveRecord>& found) const;
    void assignLetters(std::vector<DriveRecord>& found);
    void keepSerials(std::vector<DriveRecord>& found);
    struct Resolved {
        std::optional<BlockDevice> block;
        std::uint32_t driveType = 0;
    };
    Sysfs sysfs_;
    bool keepDevices_ = false;
    mutable std::map<std::pair<std::uint32_t, std::uint32_t>, Resolved> resolved_; // by device number
    mutable std::optional<std::vector<BlockDevice>> optical_;                      // the optical drives' block devices
    mutable std::map<std::string, DiskInfo> disks_;                                // whole disks by kernel name
    std::string mountInfoPath_;
    UniqueFd watch_; // the mount table, polled for POLLPRI on /proc
    bool proc_ = false;
    std::string lastText_;
    std::vector<MountEntry> lastMounts_; // lastText_ read
    std::vector<MountEntry> mounts_;
    std::vector<DriveRecord> drives_;
    std::vector<std::pair<std::string, char>> kept_; // key -> letter of the last build
    // (device, mount ID, mount point) -> mount serial of the last build.
    std::map<std::tuple<std::uint32_t, std::uint32_t, int, std::string>, std::uint64_t> serials_;
    std::uint64_t generation_ = 0;
    std::vector<std::vector<MountEntry>> pins_; // the tables pinned, innermost last
    struct Redirection {
        std::string from, to;
        std::vector<std::string> names;
    };
    std::optional<Redirection> redirect_;
};

// Mounts that are part of the system's start-up (the EFI partition, images
// of packages), not drives a user sees: they get no letter.
bool IsSystemMount(const MountEntry& mount);

// The drive type of a block device as GetDriveTypeA names it.
std::uint32_t DriveTypeOfDisk(const DiskInfo& disk);

} // namespace linuxbk
