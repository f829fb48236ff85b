#include "platform/linux/volumes.h"

#include "platform/portable/dir_search.h"
#include "platform/portable/scripting_drive.h"
#include "platform/portable/text.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "platform/linux/udisks.h"
#include "platform/linux/volume_id.h"

namespace linuxbk {

namespace {

std::uint32_t AttributesOf(const struct stat& st, std::string_view name) {
    std::uint32_t a = S_ISDIR(st.st_mode) ? platform::kAttrDirectory : platform::kAttrArchive;
    if ((st.st_mode & 0222) == 0) a |= platform::kAttrReadOnly;
    if (name.size() > 1 && name.front() == '.' && name != "..") a |= platform::kAttrHidden;
    return a;
}

platform::FindData Entry(std::string_view name, std::uint32_t attributes, std::uint64_t size) {
    platform::FindData d;
    d.dwFileAttributes = attributes;
    d.nFileSize = size;
    CopyCut(d.cFileName, name);
    return d;
}

} // namespace

std::optional<SpaceInfo> StatvfsTimed(const std::string& path, std::uint32_t milliseconds) {
    struct State {
        std::mutex lock;
        std::condition_variable done;
        bool finished = false;
        std::optional<SpaceInfo> answer;
    };
    auto state = std::make_shared<State>();
    try {
        std::thread([state, path] {
            struct statvfs v {};
            std::optional<SpaceInfo> answer;
            if (::statvfs(path.c_str(), &v) == 0) {
                answer = SpaceInfo{static_cast<std::uint64_t>(v.f_blocks) * v.f_frsize,
                                   static_cast<std::uint64_t>(v.f_bfree) * v.f_frsize,
                                   static_cast<std::uint64_t>(v.f_bavail) * v.f_frsize,
                                   static_cast<std::uint32_t>(v.f_namemax)};
            }
            std::lock_guard<std::mutex> hold(state->lock);
            state->answer = answer;
            state->finished = true;
            state->done.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        return std::nullopt;
    }
    std::unique_lock<std::mutex> hold(state->lock);
    if (!state->done.wait_for(hold, std::chrono::milliseconds(milliseconds), [&] { return state->finished; }))
        return std::nullopt;
    return state->answer;
}

std::uint32_t LinuxVolumes::GetLogicalDriveStringsA(std::span<char> buffer) {
    std::string strings;
    for (const auto& d : map_.Drives()) {
        strings += d.Root();
        strings += '\0';
    }
    const auto needed = static_cast<std::uint32_t>(strings.size() + 1);
    if (needed > buffer.size()) return needed;
    std::copy(strings.begin(), strings.end(), buffer.begin());
    buffer[strings.size()] = '\0';
    return static_cast<std::uint32_t>(strings.size());
}

std::uint32_t LinuxVolumes::GetDriveTypeA(const std::string& root) {
    const DriveRecord* d = map_.DriveOf(root);
    return d != nullptr ? d->driveType : platform::kDriveNoRootDir;
}

bool LinuxVolumes::GetDiskFreeSpaceExA(const std::string& directory, std::span<std::uint8_t, 8> freeBytesAvailable,
                                       std::span<std::uint8_t, 8> totalBytes,
                                       std::span<std::uint8_t, 8> totalFreeBytes) {
    const auto native = map_.ToNative(directory);
    if (!native) return false;
    const auto space = StatvfsTimed(*native, sizeLimitMs_);
    if (!space) return false;
    PutU64(freeBytesAvailable, space->available);
    PutU64(totalBytes, space->total);
    PutU64(totalFreeBytes, space->free);
    return true;
}

std::string LinuxVolumes::labelOf(const DriveRecord& d) { return IdentifyVolume(d).label; }

bool LinuxVolumes::GetVolumeInformationA(const std::string& root, std::span<char> volumeName,
                                         std::uint32_t& serialNumber, std::uint32_t& maxComponentLength,
                                         std::uint32_t& fileSystemFlags, std::span<char> fileSystemName) {
    const DriveRecord* d = map_.DriveOf(root);
    if (d == nullptr || !d->Ready()) return false;
    const DriveRecord drive = *d; // the map may be rebuilt while the sources are asked
    const auto space = StatvfsTimed(drive.mountPoint, sizeLimitMs_);
    if (!space) return false; // an unreachable drive is not ready
    const VolumeId id = IdentifyVolume(drive);
    CopyCut(volumeName, id.label);
    CopyCut(fileSystemName, id.type);
    serialNumber = SerialFromUuid(id.uuid);
    maxComponentLength = space->nameMax;
    fileSystemFlags = 0;
    return true;
}

bool LinuxVolumes::SetVolumeLabelA(const std::string& root, const std::string& label) {
    labelError_.clear();
    const DriveRecord* d = map_.DriveOf(root);
    if (d == nullptr || !d->Ready()) {
        labelError_ = "no such drive, or no medium in it";
        return false;
    }
    if (!d->block) {
        labelError_ = "the drive has no block device whose label could be set";
        return false;
    }
    if (!UDisks::Available()) {
        labelError_ = "udisks2 is not running, so the label cannot be changed";
        return false;
    }
    const std::string block = d->block->name;
    BusResult r = UDisks::SetLabel(block, label);
    // Some file systems (FAT, exFAT, NTFS) take a new label only while
    // unmounted: as a desktop's disk tool does, unmount, label and mount again.
    if (!r.ok() && r.detail.find("mounted") != std::string::npos) {
        r = UDisks::Unmount(block);
        if (r.ok()) {
            r = UDisks::SetLabel(block, label);
            const BusResult mounted = UDisks::Mount(block);
            if (r.ok() && !mounted.ok()) r = mounted;
        }
    }
    if (!r.ok()) labelError_ = std::string(VetoName(r.veto)) + ": " + Trim(r.detail);
    return r.ok();
}

std::uint32_t LinuxVolumes::GetFileAttributesA(const std::string& path) {
    const auto native = map_.ToNative(path);
    struct stat st {};
    if (!native || ::stat(native->c_str(), &st) != 0) return platform::kInvalidFileAttributes;
    const auto slash = native->rfind('/');
    return AttributesOf(st, slash == std::string::npos ? *native : native->substr(slash + 1));
}

platform::Handle LinuxVolumes::FindFirstFileA(const std::string& pattern, platform::FindData& data) {
    const auto cut = pattern.find_last_of("\\/");
    if (cut == std::string::npos || cut + 1 >= pattern.size()) return platform::kInvalidHandleValue;
    const std::string folder = pattern.substr(0, cut + 1);
    const std::string namePattern = pattern.substr(cut + 1);
    const auto native = map_.ToNative(folder);
    if (!native) return platform::kInvalidHandleValue;
    const bool root = folder.size() <= 3;

    std::vector<platform::FindData> entries;
    std::vector<std::string> names;
    if (DIR* dir = ::opendir(native->c_str())) {
        while (const dirent* e = ::readdir(dir)) names.emplace_back(e->d_name);
        ::closedir(dir);
    }
    std::sort(names.begin(), names.end());
    std::stable_partition(names.begin(), names.end(), [](const std::string& n) { return n == "." || n == ".."; });
    for (const auto& name : names) {
        if (root && (name == "." || name == "..")) continue;
        if (!portable::WildcardMatch(namePattern, name)) continue;
        struct stat st {};
        const std::string full = (*native == "/" ? std::string() : *native) + "/" + name;
        if (::stat(full.c_str(), &st) != 0 && ::lstat(full.c_str(), &st) != 0) continue;
        entries.push_back(Entry(name, AttributesOf(st, name), S_ISREG(st.st_mode) ? st.st_size : 0));
    }
    if (entries.empty()) return platform::kInvalidHandleValue;
    data = entries.front();
    const platform::Handle handle = nextSearch_++;
    searches_.emplace(handle, std::make_pair(std::move(entries), std::size_t{1}));
    return handle;
}

bool LinuxVolumes::FindNextFileA(platform::Handle search, platform::FindData& data) {
    auto it = searches_.find(search);
    if (it == searches_.end() || it->second.second >= it->second.first.size()) return false;
    data = it->second.first[it->second.second++];
    return true;
}

bool LinuxVolumes::FindClose(platform::Handle search) { return searches_.erase(search) != 0; }

bool LinuxVolumes::DeleteFileA(const std::string& path) {
    const auto native = map_.ToNative(path);
    struct stat st {};
    if (!native || ::lstat(native->c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return false;
    return ::unlink(native->c_str()) == 0;
}

bool LinuxVolumes::MoveFileExA(const std::string& existing, const std::string& replacement, std::uint32_t flags) {
    const auto from = map_.ToNative(existing);
    const auto to = map_.ToNative(replacement);
    if (!from || !to) return false;
    struct stat st {};
    if (::stat(from->c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return false;
    if ((flags & platform::kMoveFileWriteThrough) != 0) {
        UniqueFd fd(::open(from->c_str(), O_RDONLY | O_CLOEXEC));
        if (fd) ::fsync(fd.get());
    }
    int r;
    if ((flags & platform::kMoveFileReplaceExisting) != 0) {
        r = ::rename(from->c_str(), to->c_str());
    } else {
        r = ::renameat2(AT_FDCWD, from->c_str(), AT_FDCWD, to->c_str(), RENAME_NOREPLACE);
        if (r != 0 && (errno == EINVAL || errno == ENOSYS)) {
            struct stat there {};
            r = ::lstat(to->c_str(), &there) == 0 ? -1 : ::rename(from->c_str(), to->c_str());
        }
    }
    if (r == 0 && (flags & platform::kMoveFileWriteThrough) != 0) {
        const std::string folder = to->substr(0, std::max<std::size_t>(to->rfind('/'), 1));
        UniqueFd dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (dir) ::fsync(dir.get());
    }
    return r == 0;
}

std::string LinuxVolumes::Dir(const std::string& pathname, std::uint32_t attributes) {
    const DriveRecord* d = map_.DriveOf(pathname);
    if (d == nullptr || !d->Ready()) return {};
    if ((attributes & platform::kAttrVolume) != 0) return labelOf(*d);
    std::string pattern = pathname;
    if (!pattern.empty() && (pattern.back() == '\\' || pattern.back() == ':')) pattern += "*.*";
    return portable::FirstDirMatch(*this, pattern, attributes);
}

platform::ScriptingDrive LinuxVolumes::describe(const DriveRecord& d) {
    const bool ready = d.Ready();
    return portable::DescribeDrive(d.letter, d.driveType, ready, ready ? labelOf(d) : std::string(), d.shareName);
}

std::optional<platform::ScriptingDrive> LinuxVolumes::GetDrive(const std::string& root) {
    if (root.empty() || (root.size() > 1 && root[1] != ':')) return std::nullopt;
    const DriveRecord* d = map_.Find(root[0]);
    if (d == nullptr) return std::nullopt;
    const DriveRecord copy = *d;
    return describe(copy);
}

std::vector<platform::ScriptingDrive> LinuxVolumes::Drives() {
    const std::vector<DriveRecord> all = map_.Drives();
    std::vector<platform::ScriptingDrive> out;
    for (const auto& d : all) out.push_back(describe(d));
    return out;
}

} // namespace linuxbk
