#include "platform/linux/processes.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "platform/linux/release_plan.h"
#include "platform/linux/util.h"

namespace linuxbk {

namespace {

std::vector<std::uint32_t> Pids(const std::string& procRoot) {
    std::vector<std::uint32_t> pids;
    DIR* dir = ::opendir(procRoot.c_str());
    if (dir == nullptr) return pids;
    while (const dirent* e = ::readdir(dir)) {
        std::uint32_t pid = 0;
        const char* end = e->d_name + std::char_traits<char>::length(e->d_name);
        const auto [p, ec] = std::from_chars(e->d_name, end, pid);
        if (ec == std::errc() && p == end && e->d_name[0] != '\0') pids.push_back(pid);
    }
    ::closedir(dir);
    std::sort(pids.begin(), pids.end());
    return pids;
}

std::vector<std::string> Entries(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr) return names;
    while (const dirent* e = ::readdir(dir))
        if (e->d_name[0] != '.') names.emplace_back(e->d_name);
    ::closedir(dir);
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    return names;
}

// A link target that names a file; sockets, pipes and anonymous inodes do not.
std::string FileTarget(std::string target) {
    if (target.empty() || target[0] != '/') return {};
    static constexpr std::string_view kDeleted = " (deleted)";
    if (target.size() > kDeleted.size() && target.ends_with(kDeleted)) target.resize(target.size() - kDeleted.size());
    return target;
}

// "08:11" of a maps line as a device number.
std::optional<DevNumber> MapsDevice(std::string_view field) {
    const auto colon = field.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    std::uint32_t major = 0, minor = 0;
    const auto a = std::from_chars(field.data(), field.data() + colon, major, 16);
    const auto b = std::from_chars(field.data() + colon + 1, field.data() + field.size(), minor, 16);
    if (a.ec != std::errc() || b.ec != std::errc()) return std::nullopt;
    return DevOf(major, minor);
}

} // namespace

DevNumber DevOf(std::uint32_t major, std::uint32_t minor) { return ::makedev(major, minor); }

std::vector<platform::ProcessHold> HoldsOn(const std::string& procRoot, const std::set<DevNumber>& fileSystems,
                                           const std::set<DevNumber>& blockDevices, std::size_t* uninspected) {
    std::vector<platform::ProcessHold> holds;
    if (uninspected != nullptr) *uninspected = 0;
    if (fileSystems.empty() && blockDevices.empty()) return holds;
    for (const std::uint32_t pid : Pids(procRoot)) {
        const std::string base = procRoot + "/" + std::to_string(pid);
        if (::access((base + "/fd").c_str(), R_OK | X_OK) != 0) {
            const bool denied = errno == EACCES;
            // Kernel threads (no command line) hold no files.
            const bool user = !ReadFile(base + "/cmdline").value_or(std::string()).empty();
            if (denied && user && uninspected != nullptr) ++*uninspected;
            continue;
        }
        const std::string name = vb::TrimBlanks(ReadFile(base + "/comm").value_or(std::string{}));
        auto add = [&](std::string what, const std::string& path) {
            holds.push_back({pid, name, std::move(what), path});
        };
        // What a link leads to: on one of the file systems, or one of the
        // devices itself. Asked from what the system has cached, so a file
        // on a server that no longer answers cannot stop the look.
        auto held = [&](const std::string& link, struct statx& st) {
            if (::statx(AT_FDCWD, link.c_str(), AT_STATX_DONT_SYNC, STATX_TYPE | STATX_MODE, &st) != 0) return false;
            const DevNumber dev = DevOf(st.stx_dev_major, st.stx_dev_minor);
            return fileSystems.count(dev) != 0 ||
                   (S_ISBLK(st.stx_mode) && blockDevices.count(DevOf(st.stx_rdev_major, st.stx_rdev_minor)) != 0);
        };
        for (const char* link : {"cwd", "root", "exe"}) {
            struct statx st {};
            if (held(base + "/" + link, st)) add(link, FileTarget(ReadLink(base + "/" + link)));
        }
        for (const auto& fd : Entries(base + "/fd")) {
            const std::string link = base + "/fd/" + fd;
            struct statx st {};
            if (!held(link, st)) continue;
            const std::string target = FileTarget(ReadLink(link));
            add(S_ISBLK(st.stx_mode) ? "device" : S_ISDIR(st.stx_mode) ? "folder" : "file", target);
        }
        // Mapped files (libraries, programs run from the drive), each once.
        std::ifstream maps(base + "/maps");
        std::vector<std::string> mapped;
        for (std::string line; std::getline(maps, line);) {
            // address perms offset dev inode path
            std::size_t at = 0;
            for (int field = 0; field < 3 && at != std::string::npos; ++field) at = line.find(' ', at + 1);
            if (at == std::string::npos) continue;
            const std::size_t end = line.find(' ', at + 1);
            const auto dev = MapsDevice(std::string_view(line).substr(at + 1, end - at - 1));
            const std::size_t slash = line.find('/', end == std::string::npos ? at : end);
            if (!dev || fileSystems.count(*dev) == 0 || slash == std::string::npos) continue;
            const std::string path = FileTarget(line.substr(slash));
            if (std::find(mapped.begin(), mapped.end(), path) != mapped.end()) continue;
            mapped.push_back(path);
            add("mapped", path);
        }
    }
    return holds;
}

std::vector<platform::ProcessHold> LinuxProcesses::WhoHolds(const std::string& root) {
    map_.Sync();
    const DriveRecord* drive = map_.DriveOf(root);
    if (drive == nullptr || !drive->Ready()) return {};
    // The file system's device number as the mount table gives it; a mount
    // point whose number is unknown is asked directly.
    DevNumber fs = DevOf(drive->major, drive->minor);
    for (const auto& m : map_.Mounts())
        if (m.mountPoint == drive->mountPoint) fs = DevOf(m.major, m.minor);
    return HoldsOn(procRoot_, {fs}, {}, &uninspected_);
}

std::vector<platform::ProcessHold> LinuxProcesses::WhoBlocksRelease(const std::string& root) {
    map_.Sync();
    const DriveRecord* drive = map_.DriveOf(root);
    if (drive == nullptr || !drive->block) return WhoHolds(root);
    const auto disk = map_.sys().Disk(drive->block->diskName);
    if (!disk) return WhoHolds(root);
    // The disks an ejection takes away: for a device stacked on disks, those below it.
    std::vector<DiskInfo> disks;
    const auto leaves = map_.sys().Leaves(disk->name);
    for (const auto& leaf : leaves.empty() ? std::vector<std::string>{disk->name} : leaves)
        if (const auto d = map_.sys().Disk(leaf))
            for (auto& each : DisksOfDevice(map_.sys(), *d))
                if (std::none_of(disks.begin(), disks.end(), [&](const DiskInfo& x) { return x.name == each.name; }))
                    disks.push_back(std::move(each));
    PlanOptions options;
    options.procRoot = procRoot_;
    return PlanRelease(map_, disks, options).holders;
}

} // namespace linuxbk
