#include "platform/linux/events.h"

#include <algorithm>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <libudev.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "platform/linux/volume_id.h"
#include "platform/types.h"

namespace linuxbk {

namespace {

using Kind = SystemEvent::Kind;

std::uint32_t MaskOf(char letter) { return letter >= 'A' && letter <= 'Z' ? 1u << (letter - 'A') : 0; }

constexpr std::uint32_t kWatchMask =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB | IN_UNMOUNT | IN_DELETE_SELF | IN_ONLYDIR;

} // namespace

const char* KindName(Kind kind) {
    switch (kind) {
    case Kind::DeviceArrived:
        return "device arrived";
    case Kind::DeviceRemoved:
        return "device removed";
    case Kind::DriveAdded:
        return "drive added";
    case Kind::DriveRemoved:
        return "drive removed";
    case Kind::MediaInserted:
        return "media inserted";
    case Kind::MediaRemoved:
        return "media removed";
    case Kind::Created:
        return "created";
    case Kind::Deleted:
        return "deleted";
    case Kind::Renamed:
        return "renamed";
    case Kind::FolderRenamed:
        return "folder renamed";
    case Kind::FolderCreated:
        return "folder created";
    case Kind::FolderRemoved:
        return "folder removed";
    case Kind::AttributesChanged:
        return "attributes changed";
    case Kind::ItemUpdated:
        return "item updated";
    }
    return "";
}

EventSources::EventSources(LetterMap& map, Options options) : map_(map), options_(options) {
    if (options_.udev) {
        udev_ = udev_new();
        if (udev_ != nullptr) {
            source_ = Exists("/run/udev/control") ? "udev" : "kernel";
            monitor_ = udev_monitor_new_from_netlink(udev_, source_.c_str());
            if (monitor_ != nullptr) {
                // Volumes live on block devices; a mouse, a hub or a USB
                // device's arrival is no drive's.
                udev_monitor_filter_add_match_subsystem_devtype(monitor_, "block", nullptr);
                if (udev_monitor_enable_receiving(monitor_) < 0) {
                    udev_monitor_unref(monitor_);
                    monitor_ = nullptr;
                }
            }
            if (monitor_ == nullptr) {
                source_.clear();
            } else {
                ::fcntl(udev_monitor_get_fd(monitor_), F_SETFL, O_NONBLOCK);
                // Every block device that changes is heard of here, so what the
                // map knows of the others can be kept.
                map_.KeepDevices(true);
            }
        }
    }
    mounts_.reset(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
    tablesRead_.reset(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    stop_.reset(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (mounts_ && tablesRead_ && stop_) {
        char chunk[4096];
        while (::read(mounts_.get(), chunk, sizeof chunk) > 0) {
        }
        reader_ = std::thread([this] { readTables(); });
    }
    if (options_.watchFiles) inotify_.reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    known_ = map_.Drives();
    for (const auto& d : known_)
        if (d.Ready() && d.block) labels_[d.devNode] = labelOf(d.major, d.minor);
    syncWatches();
}

EventSources::~EventSources() {
    if (reader_.joinable()) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t put = ::write(stop_.get(), &one, sizeof one);
        reader_.join();
    }
    if (monitor_ != nullptr) {
        map_.KeepDevices(false);
        udev_monitor_unref(monitor_);
    }
    if (udev_ != nullptr) udev_unref(udev_);
}

std::vector<pollfd> EventSources::PollFds() const {
    std::vector<pollfd> fds;
    if (monitor_ != nullptr) fds.push_back({udev_monitor_get_fd(monitor_), POLLIN, 0});
    if (reader_.joinable()) fds.push_back({tablesRead_.get(), POLLIN, 0});
    if (inotify_) fds.push_back({inotify_.get(), POLLIN, 0});
    return fds;
}

std::vector<SystemEvent> EventSources::Wait(int timeoutMs) {
    auto fds = PollFds();
    if (!fds.empty()) ::poll(fds.data(), fds.size(), timeoutMs);
    return Read();
}

void EventSources::readTables() {
    for (;;) {
        pollfd fds[2] = {{mounts_.get(), POLLPRI, 0}, {stop_.get(), POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if ((fds[1].revents & POLLIN) != 0) return;
        if ((fds[0].revents & (POLLPRI | POLLERR)) == 0) continue;
        std::string text;
        char chunk[16384];
        ::lseek(mounts_.get(), 0, SEEK_SET);
        for (;;) {
            const ssize_t got = ::read(mounts_.get(), chunk, sizeof chunk);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            text.append(chunk, static_cast<std::size_t>(got));
        }
        {
            const std::lock_guard<std::mutex> hold(tablesLock_);
            tables_.push_back(std::move(text));
        }
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t put = ::write(tablesRead_.get(), &one, sizeof one);
    }
}

std::vector<SystemEvent> EventSources::Read() {
    std::vector<SystemEvent> out;
    std::deque<std::string> tables;
    if (reader_.joinable()) {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t got = ::read(tablesRead_.get(), &count, sizeof count);
        const std::lock_guard<std::mutex> hold(tablesLock_);
        tables.swap(tables_);
    }
    const bool devices = readUdev(out);
    readInotify(out);
    // Every copy of the table in turn, so nothing that came and went between two looks is lost.
    for (const auto& text : tables)
        readMounts(out, false, std::make_shared<const std::vector<MountEntry>>(ParseMountInfo(text)));
    if (tables.empty() || devices) readMounts(out, devices);
    return out;
}

std::string EventSources::labelOf(std::uint32_t major, std::uint32_t minor) const {
    std::string label;
    // Labels are compared only to tell a renamed drive, which needs udev's database.
    if (udev_ == nullptr || major == 0 || source_ != "udev") return label;
    if (udev_device* d = udev_device_new_from_devnum(udev_, 'b', makedev(major, minor))) {
        if (const char* enc = udev_device_get_property_value(d, "ID_FS_LABEL_ENC")) label = UnescapeHex(enc);
        udev_device_unref(d);
    }
    return label;
}

bool EventSources::readUdev(std::vector<SystemEvent>& out) {
    if (monitor_ == nullptr) return false;
    // Block devices that came, went or changed (a medium, a new label): the
    // drives are looked at again; what changed for a drive is told from the
    // drive list, so a disk that arrives without a volume tells nothing.
    bool any = false;
    while (udev_device* d = udev_monitor_receive_device(monitor_)) {
        any = true;
        const char* action = udev_device_get_action(d);
        const char* node = udev_device_get_devnode(d);
        // What is known of the volume on it is stale now.
        const dev_t number = udev_device_get_devnum(d);
        if (number != 0) ForgetVolume(major(number), minor(number));
        const char* name = udev_device_get_sysname(d);
        map_.ForgetDevice(major(number), minor(number), name != nullptr ? name : "");
        if (source_ == "udev" && action != nullptr && std::strcmp(action, "change") == 0 && node != nullptr) {
            // A mounted drive's file system renamed: the shell reports the drive updated.
            const char* enc = udev_device_get_property_value(d, "ID_FS_LABEL_ENC");
            const std::string label = enc != nullptr ? UnescapeHex(enc) : std::string();
            const auto known = labels_.find(node);
            if (known != labels_.end() && known->second != label) {
                known->second = label;
                for (const auto& drive : known_)
                    if (drive.devNode == node && drive.Ready())
                        out.push_back({Kind::ItemUpdated, drive.Root(), "", MaskOf(drive.letter), drive.devNode});
            }
        }
        udev_device_unref(d);
    }
    return any;
}

void EventSources::readMounts(std::vector<SystemEvent>& out, bool force,
                              const std::shared_ptr<const std::vector<MountEntry>>& table) {
    if (table)
        map_.Pin(*table);
    else if (force)
        map_.Refresh();
    const std::vector<DriveRecord> now = map_.Drives();
    if (table) map_.Unpin();
    auto find = [](const std::vector<DriveRecord>& in, const DriveRecord& d) -> const DriveRecord* {
        for (const auto& x : in)
            if (x.letter == d.letter && x.key == d.key) return &x;
        return nullptr;
    };
    // A volume that comes or goes (a drive, or a medium in a drive) is the
    // device change the window hears of; as on Windows the broadcast comes
    // first and the shell's report of the drive after it.
    bool removed = false, arrived = false;
    std::vector<SystemEvent> drives;
    for (const auto& old : known_) {
        const DriveRecord* still = find(now, old);
        if (still == nullptr) {
            drives.push_back({Kind::DriveRemoved, old.Root(), "", MaskOf(old.letter), old.devNode});
            removed = true;
            labels_.erase(old.devNode);
        } else if (old.Ready() && !still->Ready()) {
            drives.push_back({Kind::MediaRemoved, old.Root(), "", MaskOf(old.letter), old.devNode});
            removed = true;
        } else if (!old.Ready() && still->Ready()) {
            drives.push_back({Kind::MediaInserted, old.Root(), "", MaskOf(old.letter), old.devNode});
            arrived = true;
        }
    }
    for (const auto& d : now) {
        if (find(known_, d) != nullptr) continue;
        drives.push_back({Kind::DriveAdded, d.Root(), "", MaskOf(d.letter), d.devNode});
        arrived = true;
    }
    for (const auto& d : now)
        if (d.Ready() && d.block && labels_.find(d.devNode) == labels_.end())
            labels_[d.devNode] = labelOf(d.major, d.minor);
    const std::size_t first = out.size();
    if (removed) out.push_back({Kind::DeviceRemoved, "", "", 0, "mount table"});
    if (arrived) out.push_back({Kind::DeviceArrived, "", "", 0, "mount table"});
    out.insert(out.end(), drives.begin(), drives.end());
    for (std::size_t i = first; i < out.size(); ++i) out[i].table = table;
    const bool changed = removed || arrived || now.size() != known_.size() ||
                         !std::equal(now.begin(), now.end(), known_.begin(), known_.end(),
                                     [](const DriveRecord& a, const DriveRecord& b) {
                                         return a.letter == b.letter && a.key == b.key && a.Ready() == b.Ready();
                                     });
    known_ = now;
    if (changed) syncWatches();
}

void EventSources::syncWatches() {
    if (!inotify_) return;
    // Watches of drives that left or changed go; removable drives get theirs.
    std::vector<Watch> keep;
    for (const auto& w : watches_) {
        const auto it = std::find_if(known_.begin(), known_.end(), [&](const DriveRecord& d) {
            return d.letter == w.letter && d.Ready() && StartsWithPath(w.native, d.mountPoint);
        });
        if (it == known_.end())
            ::inotify_rm_watch(inotify_.get(), w.wd);
        else
            keep.push_back(w);
    }
    watches_ = std::move(keep);
    for (const auto& d : known_) {
        const bool wanted = d.driveType == platform::kDriveRemovable || options_.allDrives;
        if (!d.Ready() || d.kind == DriveKind::Root || !wanted) continue;
        const bool watched = std::any_of(watches_.begin(), watches_.end(), [&](const Watch& w) {
            return w.letter == d.letter && w.native == d.mountPoint;
        });
        if (watched) continue;
        std::size_t budget = options_.maxWatches;
        watchTree(d.letter, d.mountPoint, budget);
    }
}

void EventSources::watchTree(char letter, const std::string& folder, std::size_t& budget) {
    if (budget == 0) return;
    const int wd = ::inotify_add_watch(inotify_.get(), folder.c_str(), kWatchMask);
    if (wd < 0) return;
    --budget;
    std::erase_if(watches_, [&](const Watch& w) { return w.wd == wd; });
    watches_.push_back({wd, letter, folder});
    if (DIR* dir = ::opendir(folder.c_str())) {
        std::vector<std::string> subfolders;
        while (const dirent* e = ::readdir(dir)) {
            if (e->d_type == DT_DIR && std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
                subfolders.push_back(folder + (folder == "/" ? "" : "/") + e->d_name);
        }
        ::closedir(dir);
        for (const auto& f : subfolders) watchTree(letter, f, budget);
    }
}

std::string EventSources::windowsPath(const Watch& w, const char* name) const {
    const auto it =
        std::find_if(known_.begin(), known_.end(), [&](const DriveRecord& d) { return d.letter == w.letter; });
    if (it == known_.end()) return {};
    std::string rest = w.native.substr(std::min(w.native.size(), it->mountPoint == "/" ? 0 : it->mountPoint.size()));
    if (name != nullptr && *name != '\0') {
        rest.push_back('/');
        rest.append(name);
    }
    for (char& c : rest)
        if (c == '/') c = '\\';
    while (!rest.empty() && rest.front() == '\\') rest.erase(0, 1);
    return it->Root() + rest;
}

void EventSources::readInotify(std::vector<SystemEvent>& out) {
    if (!inotify_) return;
    alignas(inotify_event) char buffer[16384];
    struct Pending {
        std::uint32_t cookie;
        std::string path;
        bool folder;
        char letter;
    };
    std::vector<Pending> movedFrom;
    bool unmounted = false;
    for (;;) {
        const ssize_t got = ::read(inotify_.get(), buffer, sizeof buffer);
        if (got <= 0) break;
        for (ssize_t at = 0; at < got;) {
            const auto* e = reinterpret_cast<const inotify_event*>(buffer + at);
            at += static_cast<ssize_t>(sizeof(inotify_event) + e->len);
            const auto w =
                std::find_if(watches_.begin(), watches_.end(), [&](const Watch& x) { return x.wd == e->wd; });
            if (w == watches_.end()) continue;
            const Watch watch = *w;
            if ((e->mask & IN_UNMOUNT) != 0) {
                unmounted = true;
                continue;
            }
            if ((e->mask & IN_IGNORED) != 0) {
                watches_.erase(w);
                continue;
            }
            const char* name = e->len > 0 ? e->name : "";
            const std::string path = windowsPath(watch, name);
            const bool folder = (e->mask & IN_ISDIR) != 0;
            const std::uint32_t mask = MaskOf(watch.letter);
            if ((e->mask & IN_CREATE) != 0) {
                out.push_back({folder ? Kind::FolderCreated : Kind::Created, path, "", mask, ""});
                if (folder) {
                    std::size_t budget = 64;
                    watchTree(watch.letter, watch.native + "/" + name, budget);
                }
            } else if ((e->mask & IN_DELETE) != 0) {
                out.push_back({folder ? Kind::FolderRemoved : Kind::Deleted, path, "", mask, ""});
            } else if ((e->mask & IN_MOVED_FROM) != 0) {
                movedFrom.push_back({e->cookie, path, folder, watch.letter});
            } else if ((e->mask & IN_MOVED_TO) != 0) {
                const auto from = std::find_if(movedFrom.begin(), movedFrom.end(),
                                               [&](const Pending& p) { return p.cookie == e->cookie; });
                if (from != movedFrom.end()) {
                    out.push_back({from->folder ? Kind::FolderRenamed : Kind::Renamed, from->path, path, mask, ""});
                    movedFrom.erase(from);
                } else {
                    out.push_back({folder ? Kind::FolderCreated : Kind::Created, path, "", mask, ""});
                }
            } else if ((e->mask & IN_ATTRIB) != 0) {
                out.push_back({Kind::AttributesChanged, path, "", mask, ""});
            }
        }
    }
    // A name moved out of the watched folders is gone from them.
    for (const auto& p : movedFrom)
        out.push_back({p.folder ? Kind::FolderRemoved : Kind::Deleted, p.path, "", MaskOf(p.letter), ""});
    if (unmounted) map_.Refresh();
}

std::string EventSources::DisplayName(const std::string& windowsPath) {
    if (windowsPath.size() <= 3) return windowsPath.substr(0, std::min<std::size_t>(2, windowsPath.size()));
    std::string p = windowsPath;
    while (!p.empty() && p.back() == '\\') p.pop_back();
    const auto slash = p.rfind('\\');
    return slash == std::string::npos ? p : p.substr(slash + 1);
}

} // namespace linuxbk
