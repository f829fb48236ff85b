#include "platform/linux/release_plan.h"

#include <algorithm>
#include <cerrno>
#include <set>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace linuxbk {

namespace {

StackedDevice Describe(const Sysfs& sys, const BlockDevice& block) {
    StackedDevice s;
    s.block = block;
    s.slaves = sys.Slaves(block.name);
    if (Exists(block.path + "/dm")) {
        s.dmName = ReadAttr(block.path + "/dm/name");
        const std::string uuid = ReadAttr(block.path + "/dm/uuid");
        s.kind = uuid.starts_with("CRYPT-") ? StackKind::Crypt
                 : uuid.starts_with("LVM-") ? StackKind::Lvm
                                            : StackKind::Other;
    } else if (block.name.starts_with("md")) {
        s.kind = StackKind::Raid;
    }
    return s;
}

std::string StackName(const StackedDevice& s) { return s.dmName.empty() ? s.block.name : s.dmName; }

// The block devices (st_rdev) of the swap areas and the files (st_dev) swap files lie on.
void SwapUsers(const std::string& swaps, std::vector<std::pair<std::string, DevNumber>>& partitions,
               std::vector<std::pair<std::string, DevNumber>>& files) {
    const auto text = ReadFile(swaps);
    if (!text) return;
    std::size_t at = text->find('\n'); // the heading
    while (at != std::string::npos && at + 1 < text->size()) {
        const std::size_t end = text->find('\n', at + 1);
        const std::string line = text->substr(at + 1, end == std::string::npos ? std::string::npos : end - at - 1);
        at = end;
        const std::string name = UnescapeMount(line.substr(0, line.find_first_of(" \t")));
        struct statx st {};
        if (name.empty() || ::statx(AT_FDCWD, name.c_str(), AT_STATX_DONT_SYNC, STATX_TYPE | STATX_MODE, &st) != 0)
            continue;
        if (S_ISBLK(st.stx_mode))
            partitions.emplace_back(name, DevOf(st.stx_rdev_major, st.stx_rdev_minor));
        else
            files.emplace_back(name, DevOf(st.stx_dev_major, st.stx_dev_minor));
    }
}

// Whether the kernel still counts users of a mount that has no mounts below
// it: MNT_EXPIRE answers EBUSY then, and only marks an unused mount. A mark
// is cleared by any use of the mount, so the look at it first clears one an
// earlier probe left, and the probe can never unmount. Root only; nothing
// when it cannot be told.
std::optional<bool> MountBusy(const std::string& mountPoint) {
    struct stat st {};
    if (::stat(mountPoint.c_str(), &st) != 0) return std::nullopt;
    if (::umount2(mountPoint.c_str(), MNT_EXPIRE) == 0) return false;
    if (errno == EBUSY) return true;
    if (errno == EAGAIN) return false;
    return std::nullopt;
}

std::string HolderList(const std::vector<platform::ProcessHold>& holders) {
    std::string text;
    std::set<std::uint32_t> named;
    for (const auto& h : holders) {
        if (!named.insert(h.pid).second) continue;
        if (named.size() > 3) {
            text += " and other processes";
            break;
        }
        text += (text.empty() ? "" : ", ") + h.name + " [" + std::to_string(h.pid) + "]";
    }
    return text;
}

} // namespace

const BlockDevice* ReleasePlan::BlockOf(const MountEntry& mount) const {
    auto same = [&](const BlockDevice& b) {
        if (mount.major != 0 && mount.major == b.major && mount.minor == b.minor) return true;
        if (mount.source == b.devNode) return true;
        const std::string real = RealPath(mount.source);
        return !real.empty() && real == b.devNode;
    };
    for (const auto& s : stacked)
        if (same(s.block)) return &s.block;
    for (const auto& b : members)
        if (same(b)) return &b;
    return nullptr;
}

std::vector<DiskInfo> DisksOfDevice(const Sysfs& sys, const DiskInfo& disk) {
    if (disk.usbDevice.empty()) return {disk};
    std::vector<DiskInfo> out;
    for (auto& d : sys.Disks())
        if (StartsWithPath(d.path, disk.usbDevice)) out.push_back(std::move(d));
    if (out.empty()) out.push_back(disk);
    return out;
}

ReleasePlan PlanRelease(LetterMap& map, const std::vector<DiskInfo>& disks, const PlanOptions& options) {
    ReleasePlan plan;
    const Sysfs& sys = map.sys();
    auto refuse = [&plan](Veto veto, std::string text) {
        if (plan.ok()) {
            plan.veto = veto;
            plan.text = std::move(text);
        }
    };

    // The disks, their partitions, and what is stacked on any of them.
    for (const auto& d : disks) {
        if (auto whole = sys.ByName(d.name)) plan.members.push_back(*whole);
        for (auto& p : sys.Partitions(d.name)) plan.members.push_back(std::move(p));
    }
    std::set<std::string> seen;
    for (const auto& b : plan.members) seen.insert(b.name);
    std::vector<std::string> todo;
    for (const auto& b : plan.members)
        for (const auto& h : sys.Holders(b.name)) todo.push_back(h);
    for (std::size_t i = 0; i < todo.size() && i < 256; ++i) {
        if (!seen.insert(todo[i]).second) continue;
        const auto block = sys.ByName(todo[i]);
        if (!block) continue;
        plan.stacked.push_back(Describe(sys, *block));
        for (const auto& h : sys.Holders(block->name)) todo.push_back(h);
        for (auto& p : sys.Partitions(block->name))
            if (seen.find(p.name) == seen.end()) todo.push_back(p.name);
    }
    // Each stacked device after everything it rests on.
    std::stable_sort(plan.stacked.begin(), plan.stacked.end(), [](const StackedDevice& a, const StackedDevice& b) {
        return std::find(b.slaves.begin(), b.slaves.end(), a.block.name) != b.slaves.end();
    });

    // Every mount of any of them, deepest first.
    std::set<DevNumber> fileSystems, blocks;
    for (const auto& b : plan.members) blocks.insert(DevOf(b.major, b.minor));
    for (const auto& s : plan.stacked) blocks.insert(DevOf(s.block.major, s.block.minor));
    const std::vector<MountEntry> table = map.Mounts();
    for (const auto& m : table)
        if (plan.BlockOf(m) != nullptr) {
            plan.mounts.push_back(m);
            fileSystems.insert(DevOf(m.major, m.minor));
        }
    std::stable_sort(plan.mounts.begin(), plan.mounts.end(), [](const MountEntry& a, const MountEntry& b) {
        return a.mountPoint.size() > b.mountPoint.size();
    });

    // The system's own file systems stay.
    for (const auto& m : plan.mounts) {
        const BlockDevice* b = plan.BlockOf(m);
        if (m.mountPoint == "/")
            refuse(Veto::SystemDrive, "system drive: " + b->devNode + " holds the root file system");
        else if (IsSystemMount(m))
            refuse(Veto::SystemDrive, "system drive: " + b->devNode + " is mounted at " + m.mountPoint +
                                          ", which belongs to the system and is never unmounted here");
    }
    if (!plan.ok()) return plan;

    // Swap on the device, or in a file on one of its file systems.
    std::vector<std::pair<std::string, DevNumber>> swapParts, swapFiles;
    SwapUsers(options.swaps, swapParts, swapFiles);
    for (const auto& [name, dev] : swapParts)
        if (blocks.count(dev) != 0) refuse(Veto::Busy, "busy: " + name + " is in use as swap");
    for (const auto& [name, dev] : swapFiles)
        if (fileSystems.count(dev) != 0) refuse(Veto::Busy, "busy: " + name + " is in use as a swap file");
    if (!plan.ok()) return plan;

    // A file system of another device mounted inside one of the device's.
    for (const auto& other : table) {
        if (plan.BlockOf(other) != nullptr) continue;
        for (const auto& m : plan.mounts)
            if (StartsWithPath(other.mountPoint, m.mountPoint) && other.mountPoint != m.mountPoint)
                refuse(Veto::Busy,
                       "busy: " + other.mountPoint + " (" + other.source + ") is mounted inside " + m.mountPoint);
    }
    if (!plan.ok()) return plan;

    // Processes holding one of the file systems or one of the devices.
    plan.holders = HoldsOn(options.procRoot, fileSystems, blocks);
    if (!plan.holders.empty()) {
        std::string where;
        for (const auto& m : plan.mounts) {
            const bool held =
                std::any_of(plan.holders.begin(), plan.holders.end(),
                            [&](const platform::ProcessHold& h) { return StartsWithPath(h.path, m.mountPoint); });
            if (held) {
                where = m.mountPoint;
                break;
            }
        }
        if (where.empty()) where = plan.holders.front().path;
        refuse(Veto::Busy, "busy: " + where + " is in use by " + HolderList(plan.holders));
        return plan;
    }

    // What the kernel still counts as users (a loop device's backing file,
    // a process this one cannot see), where it can be asked.
    if (options.root) {
        for (const auto& m : plan.mounts) {
            const bool parent = std::any_of(table.begin(), table.end(), [&](const MountEntry& other) {
                return other.mountPoint != m.mountPoint && StartsWithPath(other.mountPoint, m.mountPoint);
            });
            if (!parent && MountBusy(m.mountPoint).value_or(false))
                refuse(Veto::Busy, "busy: " + m.mountPoint + " is in use by the kernel or a process out of sight");
        }
        // A device with no mount, nothing stacked on it and no partitions
        // must be free; else a mount in another namespace or the kernel holds it.
        auto quiet = [&](const BlockDevice& b) {
            const bool mounted = std::any_of(plan.mounts.begin(), plan.mounts.end(),
                                             [&](const MountEntry& m) { return plan.BlockOf(m) == &b; });
            return !mounted && sys.Holders(b.name).empty() && (b.partition != 0 || sys.Partitions(b.name).empty());
        };
        for (const auto& b : plan.members)
            if (quiet(b) && !ClaimFree(b.devNode).value_or(true))
                refuse(Veto::Busy, "busy: " + b.devNode + " is held by the kernel or a mount out of sight");
        if (!plan.ok()) return plan;
    }

    // What is stacked must be taken down; say now when it cannot be.
    for (const auto& s : plan.stacked) {
        if (s.kind == StackKind::Raid)
            refuse(Veto::Failed, "failed: " + s.block.devNode + " is a RAID array on this device; stop it first");
        else if (!options.root && !(s.kind == StackKind::Crypt && options.udisks))
            refuse(Veto::NotAuthorised,
                   "not authorised: " + StackName(s) + " (" + s.block.devNode + ") can only be taken down by root");
    }
    return plan;
}

std::optional<bool> ClaimFree(const std::string& devNode) {
    const int fd = ::open(devNode.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0) {
        ::close(fd);
        return true;
    }
    if (errno == EBUSY) return false;
    return std::nullopt;
}

} // namespace linuxbk
