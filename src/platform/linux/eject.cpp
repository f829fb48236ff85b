// The eject request on Linux: the device is planned first (everything it
// carries and what holds it), refused before anything is touched when it
// cannot go, else taken down in order and powered off once.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <libdevmapper.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include "platform/linux/devices.h"
#include "platform/linux/loaded_library.h"
#include "platform/linux/release_plan.h"

namespace linuxbk {

namespace {

bool WriteText(const std::string& path, const std::string& text) {
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    return fd && ::write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

Veto VetoOfErrno(int error) {
    if (error == EBUSY) return Veto::Busy;
    if (error == EPERM || error == EACCES) return Veto::NotAuthorised;
    return Veto::Failed;
}

std::string Refusal(Veto veto, const std::string& what, const std::string& detail) {
    return std::string(VetoName(veto)) + ": " + what + ": " + detail;
}

// device-mapper's last error message, caught from its log.
std::string g_dmError;

void DmLog(int level, const char*, int, int, const char* format, ...) {
    if ((level & 7) > 3) return; // errors only
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    g_dmError = text;
}

// The libdevmapper functions asked here, from the library opened when a
// release first takes a device-mapper device down.
struct DeviceMapper {
    decltype(&::dm_log_with_errno_init) logInit = nullptr;
    decltype(&::dm_udev_set_sync_support) udevSync = nullptr;
    decltype(&::dm_task_create) create = nullptr;
    decltype(&::dm_task_set_name) setName = nullptr;
    decltype(&::dm_task_retry_remove) retryRemove = nullptr;
    decltype(&::dm_task_run) run = nullptr;
    decltype(&::dm_task_destroy) destroy = nullptr;
    bool ready = false;
    std::string error;
};

const DeviceMapper& Dm() {
    static const DeviceMapper api = [] {
        static LoadedLibrary library("libdevmapper.so.1.02.1");
        DeviceMapper a;
        a.ready = library.Loaded() && library.Get("dm_log_with_errno_init", a.logInit) &&
                  library.Get("dm_udev_set_sync_support", a.udevSync) && library.Get("dm_task_create", a.create) &&
                  library.Get("dm_task_set_name", a.setName) && library.Get("dm_task_retry_remove", a.retryRemove) &&
                  library.Get("dm_task_run", a.run) && library.Get("dm_task_destroy", a.destroy);
        a.error = library.Error();
        return a;
    }();
    return api;
}

// Removes a device-mapper device (what "cryptsetup close" and a deactivated
// logical volume come to), retrying while udev still has it open.
bool DmRemove(const std::string& name, std::string& error) {
    const DeviceMapper& dm = Dm();
    if (!dm.ready) {
        error = "device-mapper cannot be asked: " + dm.error;
        return false;
    }
    g_dmError.clear();
    dm.logInit(&DmLog);
    dm.udevSync(0); // no waiting on udev's rules: the kernel's answer is what counts
    dm_task* task = dm.create(DM_DEVICE_REMOVE);
    bool ok = task != nullptr && dm.setName(task, name.c_str()) != 0 && dm.retryRemove(task) != 0 && dm.run(task) != 0;
    if (task != nullptr) dm.destroy(task);
    dm.logInit(nullptr);
    error = g_dmError.empty() ? "device-mapper refused to remove it" : g_dmError;
    return ok;
}

// Writes out what the kernel still keeps of a whole disk.
void Flush(const std::string& devNode) {
    UniqueFd fd(::open(devNode.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (fd) ::fsync(fd.get());
}

} // namespace

Notice NoticeOf(const EjectReport& r) {
    const std::string& t = r.text;
    const std::string detail = t.substr(t.find(": ") == std::string::npos ? 0 : t.find(": ") + 2);
    Notice n;
    std::string& notice = n.reason;
    switch (r.veto) {
    case Veto::None:
        return {};
    case Veto::Busy:
        notice = "The device is busy: " + detail + ".";
        break;
    case Veto::NotAuthorised:
        notice = "Releasing the device needs authorisation: " + detail +
                 ". Release it as root (sudo kestrinectl release), or let polkit allow it for your account.";
        break;
    case Veto::SystemDrive:
        notice = "The device carries the running system: " + detail + ".";
        break;
    case Veto::NoDevice:
        notice = "The device is gone.";
        break;
    case Veto::Failed:
        notice = "The system could not release the device: " + detail + ".";
        break;
    }
    for (const auto& h : r.holders)
        n.details += h.name + " [" + std::to_string(h.pid) + "] holds " + h.what + " " + h.path + "\n";
    return n;
}

namespace {

// One eject request as it runs, in three stages: refuse (the plan says the
// device cannot go, or nothing could take it down), unmount everything it
// carries and take down what is stacked on it, then power it off once. A
// stage that fails leaves its reason in the report and ends the run.
class EjectRun {
public:
    EjectRun(LetterMap& map, const std::vector<DiskInfo>& targets, bool root, bool bus, EjectReport& report)
        : map_(map), targets_(targets), root_(root), bus_(bus), report_(report) {}

    // The plan, when the device may go; false (with the refusal reported) when not.
    bool Refuse(const ReleasePlan& plan) {
        report_.holders = plan.holders;
        if (!plan.ok()) return fail(plan.veto, plan.text);
        if (!bus_ && !root_)
            return fail(Veto::NotAuthorised,
                        "not authorised: udisks2 is not running and only root can unmount and power off");
        return true;
    }

    // Every mount, deepest first, then what is stacked on the device, the
    // topmost first; at last nothing may claim the disks any more: a device
    // is never powered off while a file system on it is still mounted somewhere.
    bool UnmountAll(const ReleasePlan& plan) {
        for (const auto& m : plan.mounts)
            if (!unmount(plan, m)) return false;
        for (auto it = plan.stacked.rbegin(); it != plan.stacked.rend(); ++it)
            if (!takeDown(*it)) return false;
        if (root_)
            for (const auto& d : targets_)
                if (!ClaimFree(d.devNode).value_or(true))
                    return fail(Veto::Failed,
                                "failed: " + d.devNode + " is still in use after its file systems were unmounted");
        return true;
    }

    // Power off, once per device: every unit of a USB device goes with it.
    bool PowerOff() {
        std::vector<std::vector<DiskInfo>> devices;
        for (const auto& d : targets_) {
            auto same = std::find_if(devices.begin(), devices.end(), [&](const std::vector<DiskInfo>& group) {
                return !d.usbDevice.empty() && group.front().usbDevice == d.usbDevice;
            });
            if (same == devices.end())
                devices.push_back({d});
            else
                same->push_back(d);
        }
        for (const auto& group : devices) {
            if (!powerOff(group)) return false;
            ++report_.powerOffs;
        }
        map_.Refresh();
        return true;
    }

private:
    bool fail(Veto veto, std::string text) {
        report_.veto = veto;
        report_.text = std::move(text);
        return false;
    }

    int mountsOf(const MountEntry& m) const {
        int n = 0;
        for (const auto& x : map_.Mounts())
            if (x.major == m.major && x.minor == m.minor && x.source == m.source) ++n;
        return n;
    }
    bool mounted(const MountEntry& m) const {
        for (const auto& x : map_.Mounts())
            if (x.mountPoint == m.mountPoint && x.major == m.major && x.minor == m.minor) return true;
        return false;
    }

    bool unmount(const ReleasePlan& plan, const MountEntry& m) {
        const BlockDevice* block = plan.BlockOf(m);
        for (int round = 0; round < 8 && mounted(m); ++round) {
            if (bus_ && block != nullptr) {
                const int before = mountsOf(m);
                const BusResult r = UDisks::Unmount(block->name);
                map_.Refresh();
                if (r.ok() && mountsOf(m) < before) continue;
                if (!r.ok() && !(root_ && r.veto == Veto::Failed))
                    return fail(r.veto, Refusal(r.veto, m.mountPoint, r.detail));
                if (!root_) return fail(Veto::Failed, "failed: " + m.mountPoint + " stayed mounted");
            }
            // udisks2 is absent or does not know the file system: unmount it here.
            if (::umount2(m.mountPoint.c_str(), 0) != 0) {
                const int error = errno;
                return fail(VetoOfErrno(error), Refusal(VetoOfErrno(error), m.mountPoint, std::strerror(error)));
            }
            map_.Refresh();
        }
        return !mounted(m) || fail(Veto::Failed, "failed: " + m.mountPoint + " is still mounted");
    }

    bool gone(const StackedDevice& s) const { return !map_.sys().ByName(s.block.name).has_value(); }

    bool takeDown(const StackedDevice& s) {
        if (s.kind == StackKind::Crypt && bus_) {
            BusResult r{Veto::Failed, "", "no encrypted device below it"};
            for (const auto& slave : s.slaves)
                if ((r = UDisks::Lock(slave)).ok()) break;
            if (r.ok() && gone(s)) return true;
            if (!root_) return fail(r.veto, Refusal(r.veto, s.block.devNode, r.detail));
        }
        if (!root_)
            return fail(Veto::NotAuthorised, "not authorised: " + s.block.devNode + " can only be taken down by root");
        std::string error;
        if (s.dmName.empty() || !DmRemove(s.dmName, error))
            return fail(Veto::Failed, "failed: " + s.block.devNode + " (" + s.dmName + "): " + error);
        return gone(s) || fail(Veto::Failed, "failed: " + s.block.devNode + " is still there");
    }

    bool powerOff(const std::vector<DiskInfo>& group) {
        const DiskInfo& first = group.front();
        if (bus_) {
            const BusResult r = UDisks::PowerOff(first.name);
            if (r.ok()) return true;
            if (!(r.veto == Veto::NoDevice && root_)) {
                const Veto veto = r.veto == Veto::NoDevice ? Veto::Failed : r.veto;
                return fail(veto, Refusal(veto, first.devNode, r.detail));
            }
        }
        for (const auto& d : group) Flush(d.devNode);
        if (!first.usbDevice.empty()) {
            if (WriteText(first.usbDevice + "/remove", "1")) return true;
            const int error = errno;
            return fail(VetoOfErrno(error),
                        Refusal(VetoOfErrno(error), first.usbDevice + "/remove", std::strerror(error)));
        }
        for (const auto& d : group) {
            int error = 0;
            if (d.loop) {
                UniqueFd fd(::open(d.devNode.c_str(), O_RDONLY | O_CLOEXEC));
                if (!fd || ::ioctl(fd.get(), LOOP_CLR_FD, 0) != 0) error = errno;
            } else if (d.removable || d.hotplug) {
                if (!WriteText(d.path + "/device/delete", "1")) error = errno;
            } else {
                return fail(Veto::Failed, "failed: " + d.devNode + " is a fixed disk that cannot be powered off");
            }
            if (error != 0)
                return fail(VetoOfErrno(error), Refusal(VetoOfErrno(error), d.devNode, std::strerror(error)));
        }
        return true;
    }

    LetterMap& map_;
    const std::vector<DiskInfo>& targets_;
    const bool root_, bus_;
    EjectReport& report_;
};

} // namespace

EjectReport LinuxDevices::Eject(const std::vector<DiskInfo>& targets) {
    EjectReport report;
    for (const auto& d : targets) report.disks.push_back(d.name);
    map_.Refresh();
    const bool root = ::geteuid() == 0;
    const bool bus = useUdisks_ && UDisks::Available();
    report.method = bus ? "udisks2" : "direct";

    PlanOptions options;
    options.root = root;
    options.udisks = bus;
    const ReleasePlan plan = PlanRelease(map_, targets, options);
    EjectRun run(map_, targets, root, bus, report);
    if (run.Refuse(plan) && run.UnmountAll(plan)) run.PowerOff();
    return report;
}

} // namespace linuxbk
