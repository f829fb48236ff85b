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

namespace {

// The release plan built step by step; the first refusal stands.
class Planner {
public:
    Planner(LetterMap& map, const PlanOptions& options) : map_(map), sys_(map.sys()), options_(options) {}

    ReleasePlan Plan(const std::vector<DiskInfo>& disks) {
        CollectDevices(disks);
        CollectMounts();
        RefuseSystemMounts();
        if (plan_.ok()) RefuseSwap();
        if (plan_.ok()) RefuseMountsInside();
        if (plan_.ok()) RefuseHolders();
        if (plan_.ok() && plan_.holders.empty() && options_.root) RefuseKernelUsers();
        if (plan_.ok() && plan_.holders.empty()) RefuseStacked();
        return std::move(plan_);
    }

private:
    void Refuse(Veto veto, std::string text) {
        if (plan_.ok()) {
            plan_.veto = veto;
            plan_.text = std::move(text);
        }
    }

    // The disks, their partitions, and what is stacked on any of them, each
    // stacked device after everything it rests on.
    void CollectDevices(const std::vector<DiskInfo>& disks) {
        for (const auto& d : disks) {
            if (auto whole = sys_.ByName(d.name)) plan_.members.push_back(*whole);
            for (auto& p : sys_.Partitions(d.name)) plan_.members.push_back(std::move(p));
        }
        std::set<std::string> seen;
        for (const auto& b : plan_.members) seen.insert(b.name);
        std::vector<std::string> todo;
        for (const auto& b : plan_.members)
            for (const auto& h : sys_.Holders(b.name)) todo.push_back(h);
        for (std::size_t i = 0; i < todo.size() && i < 256; ++i) {
            if (!seen.insert(todo[i]).second) continue;
            const auto block = sys_.ByName(todo[i]);
            if (!block) continue;
            plan_.stacked.push_back(Describe(sys_, *block));
            for (const auto& h : sys_.Holders(block->name)) todo.push_back(h);
            for (auto& p : sys_.Partitions(block->name))
                if (seen.find(p.name) == seen.end()) todo.push_back(p.name);
        }
        std::stable_sort(plan_.stacked.begin(), plan_.stacked.end(),
                         [](const StackedDevice& a, const StackedDevice& b) {
                             return std::find(b.slaves.begin(), b.slaves.end(), a.block.name) != b.slaves.end();
                         });
    }

    // Every mount of any of them, deepest first.
    void CollectMounts() {
        for (const auto& b : plan_.members) blocks_.insert(DevOf(b.major, b.minor));
        for (const auto& s : plan_.stacked) blocks_.insert(DevOf(s.block.major, s.block.minor));
        table_ = map_.Mounts();
        for (const auto& m : table_)
            if (plan_.BlockOf(m) != nullptr) {
                plan_.mounts.push_back(m);
                fileSystems_.insert(DevOf(m.major, m.minor));
            }
        std::stable_sort(plan_.mounts.begin(), plan_.mounts.end(), [](const MountEntry& a, const MountEntry& b) {
            return a.mountPoint.size() > b.mountPoint.size();
        });
    }

    // The system's own file systems stay.
    void RefuseSystemMounts() {
        for (const auto& m : plan_.mounts) {
            const BlockDevice* b = plan_.BlockOf(m);
            if (m.mountPoint == "/")
                Refuse(Veto::SystemDrive, "system drive: " + b->devNode + " holds the root file system");
            else if (IsSystemMount(m))
                Refuse(Veto::SystemDrive, "system drive: " + b->devNode + " is mounted at " + m.mountPoint +
                                              ", which belongs to the system and is never unmounted here");
        }
    }

    // Swap on the device, or in a file on one of its file systems.
    void RefuseSwap() {
        std::vector<std::pair<std::string, DevNumber>> swapParts, swapFiles;
        SwapUsers(options_.swaps, swapParts, swapFiles);
        for (const auto& [name, dev] : swapParts)
            if (blocks_.count(dev) != 0) Refuse(Veto::Busy, "busy: " + name + " is in use as swap");
        for (const auto& [name, dev] : swapFiles)
            if (fileSystems_.count(dev) != 0) Refuse(Veto::Busy, "busy: " + name + " is in use as a swap file");
    }

    // A file system of another device mounted inside one of the device's.
    void RefuseMountsInside() {
        for (const auto& other : table_) {
            if (plan_.BlockOf(other) != nullptr) continue;
            for (const auto& m : plan_.mounts)
                if (StartsWithPath(other.mountPoint, m.mountPoint) && other.mountPoint != m.mountPoint)
                    Refuse(Veto::Busy,
                           "busy: " + other.mountPoint + " (" + other.source + ") is mounted inside " + m.mountPoint);
        }
    }

    // Processes holding one of the file systems or one of the devices.
    void RefuseHolders() {
        plan_.holders = HoldsOn(options_.procRoot, fileSystems_, blocks_);
        if (plan_.holders.empty()) return;
        std::string where;
        for (const auto& m : plan_.mounts) {
            const bool held =
                std::any_of(plan_.holders.begin(), plan_.holders.end(),
                            [&](const platform::ProcessHold& h) { return StartsWithPath(h.path, m.mountPoint); });
            if (held) {
                where = m.mountPoint;
                break;
            }
        }
        if (where.empty()) where = plan_.holders.front().path;
        Refuse(Veto::Busy, "busy: " + where + " is in use by " + HolderList(plan_.holders));
    }

    // What the kernel still counts as users (a loop device's backing file,
    // a process this one cannot see), where it can be asked.
    void RefuseKernelUsers() {
        for (const auto& m : plan_.mounts) {
            const bool parent = std::any_of(table_.begin(), table_.end(), [&](const MountEntry& other) {
                return other.mountPoint != m.mountPoint && StartsWithPath(other.mountPoint, m.mountPoint);
            });
            if (!parent && MountBusy(m.mountPoint).value_or(false))
                Refuse(Veto::Busy, "busy: " + m.mountPoint + " is in use by the kernel or a process out of sight");
        }
        // A device with no mount, nothing stacked on it and no partitions
        // must be free; else a mount in another namespace or the kernel holds it.
        auto quiet = [&](const BlockDevice& b) {
            const bool mounted = std::any_of(plan_.mounts.begin(), plan_.mounts.end(),
                                             [&](const MountEntry& m) { return plan_.BlockOf(m) == &b; });
            return !mounted && sys_.Holders(b.name).empty() && (b.partition != 0 || sys_.Partitions(b.name).empty());
        };
        for (const auto& b : plan_.members)
            if (quiet(b) && !ClaimFree(b.devNode).value_or(true))
                Refuse(Veto::Busy, "busy: " + b.devNode + " is held by the kernel or a mount out of sight");
    }

    // What is stacked must be taken down; say now when it cannot be.
    void RefuseStacked() {
        for (const auto& s : plan_.stacked) {
            if (s.kind == StackKind::Raid)
                Refuse(Veto::Failed, "failed: " + s.block.devNode + " is a RAID array on this device; stop it first");
            else if (!options_.root && !(s.kind == StackKind::Crypt && options_.udisks))
                Refuse(Veto::NotAuthorised,
                       "not authorised: " + StackName(s) + " (" + s.block.devNode + ") can only be taken down by root");
        }
    }

    LetterMap& map_;
    const Sysfs& sys_;
    const PlanOptions& options_;
    ReleasePlan plan_;
    std::vector<MountEntry> table_;
    std::set<DevNumber> fileSystems_, blocks_;
};

} // namespace

ReleasePlan PlanRelease(LetterMap& map, const std::vector<DiskInfo>& disks, const PlanOptions& options) {
    return Planner(map, options).Plan(disks);
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
