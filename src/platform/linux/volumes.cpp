#include "platform/linux/volumes.h"
#include "platform/bytes.h"

#include "platform/portable/dir_search.h"
#include "platform/portable/text.h"

#include <algorithm>
#include <cstdio>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
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

} // namespace

namespace {

// A drive whose file system may wait on something that no longer answers.
bool MayHang(const DriveRecord& d) { return d.kind == DriveKind::Network || d.fsType.starts_with("fuse"); }

// Where a program may be found for a process with root's rights: a fixed
// local drive, not a stick, a disc, a share or a FUSE file system.
bool TrustedDrive(const DriveRecord& d) { return d.driveType == platform::kDriveFixed && !MayHang(d); }

// Whether a file and every folder above it are root's and writable by no one
// else (a folder with the sticky bit, as /tmp, counts as root's alone).
bool RootsAlone(const std::string& nativePath) {
    std::string path = nativePath;
    for (;;) {
        struct stat st {};
        if (::lstat(path.c_str(), &st) != 0 || st.st_uid != 0) return false;
        const bool shared = (st.st_mode & (S_IWGRP | S_IWOTH)) != 0;
        if (shared && !(S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX) != 0 && path != nativePath)) return false;
        if (path == "/") return true;
        const auto slash = path.rfind('/');
        path = slash == 0 || slash == std::string::npos ? std::string("/") : path.substr(0, slash);
    }
}

// Puts from's content at to by way of a new file beside to, then removes from.
bool CopyInPlace(const std::string& from, const std::string& to) {
    const auto text = ReadFile(from);
    struct stat st {};
    if (!text || ::stat(from.c_str(), &st) != 0) return false;
    const std::string temp = to + ".kestrine-new";
    UniqueFd fd(::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, st.st_mode & 07777));
    bool ok = static_cast<bool>(fd) && ::fchmod(fd.get(), st.st_mode & 07777) == 0 &&
              ::write(fd.get(), text->data(), text->size()) == static_cast<ssize_t>(text->size()) &&
              ::fsync(fd.get()) == 0;
    fd.reset();
    ok = ok && ::rename(temp.c_str(), to.c_str()) == 0;
    if (!ok) {
        ::unlink(temp.c_str());
        return false;
    }
    ::unlink(from.c_str());
    return true;
}

} // namespace

std::optional<SpaceInfo> LinuxVolumes::spaceOf(const DriveRecord& d) {
    if (!MayHang(d)) return SpaceOf(d.mountPoint);
    // An answer is kept a moment (one listing asks several times); a drive
    // that did not answer is given up on for longer.
    const auto now = std::chrono::steady_clock::now();
    auto it = probes_.find(d.mountPoint);
    const auto kept = it != probes_.end() && !it->second.answer ? std::chrono::seconds(20) : std::chrono::seconds(3);
    if (it == probes_.end() || now - it->second.at > kept)
        it = probes_.insert_or_assign(d.mountPoint, Probe{now, SpaceOfApart(d.mountPoint, sizeLimitMs_)}).first;
    return it->second.answer;
}

bool LinuxVolumes::answers(const DriveRecord& d) { return d.Ready() && (!MayHang(d) || spaceOf(d).has_value()); }

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
    const DriveRecord* d = map_.DriveOf(directory);
    const auto native = map_.ToNative(directory);
    if (d == nullptr || !native) return false;
    const DriveRecord drive = *d;
    const auto space =
        *native == drive.mountPoint ? spaceOf(drive) : (answers(drive) ? SpaceOf(*native) : std::nullopt);
    if (!space) return false;
    platform::WriteLe<std::uint64_t>(freeBytesAvailable, 0, space->available);
    platform::WriteLe<std::uint64_t>(totalBytes, 0, space->total);
    platform::WriteLe<std::uint64_t>(totalFreeBytes, 0, space->free);
    return true;
}

std::string LinuxVolumes::labelOf(const DriveRecord& d) { return IdentifyVolume(d).label; }

bool LinuxVolumes::GetVolumeInformationA(const std::string& root, std::span<char> volumeName,
                                         std::uint32_t& serialNumber, std::uint32_t& maxComponentLength,
                                         std::uint32_t& fileSystemFlags, std::span<char> fileSystemName) {
    const DriveRecord* d = map_.DriveOf(root);
    if (d == nullptr || !d->Ready()) return false;
    const DriveRecord drive = *d; // the map may be rebuilt while the sources are asked
    const auto space = spaceOf(drive);
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
    const std::uint32_t major = d->major, minor = d->minor;
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
    if (!r.ok()) labelError_ = std::string(VetoName(r.veto)) + ": " + vb::TrimBlanks(r.detail);
    ForgetVolume(major, minor);
    return r.ok();
}

std::uint32_t LinuxVolumes::GetFileAttributesA(const std::string& path) {
    const DriveRecord* d = map_.DriveOf(path);
    if (d == nullptr || !answers(DriveRecord(*d))) return platform::kInvalidFileAttributes;
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
    const DriveRecord* d = map_.DriveOf(folder);
    if (d == nullptr || !answers(DriveRecord(*d))) return platform::kInvalidHandleValue;
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
        entries.push_back(portable::FindEntry(name, AttributesOf(st, name), S_ISREG(st.st_mode) ? st.st_size : 0));
    }
    return searches_.Open(std::move(entries), data);
}

bool LinuxVolumes::FindNextFileA(platform::Handle search, platform::FindData& data) {
    return searches_.Next(search, data);
}

bool LinuxVolumes::FindClose(platform::Handle search) { return searches_.Close(search); }

bool LinuxVolumes::DeleteFileA(const std::string& path) {
    const auto native = map_.ToNative(path);
    struct stat st {};
    if (!native || ::lstat(native->c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return false;
    return ::unlink(native->c_str()) == 0;
}

bool LinuxVolumes::MoveFileExA(const std::string& existing, const std::string& replacement, std::uint32_t flags) {
    const auto from = map_.ToNative(existing);
    auto to = map_.ToNative(replacement);
    if (!from || !to) return false;
    struct stat st {};
    if (::stat(from->c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return false;
    // A file that is replaced keeps what the user gave it: a link is
    // followed to its file, the permissions stay, and a read-only file is
    // not replaced at all (as on Windows).
    struct stat old {};
    const bool replacing = (flags & platform::kMoveFileReplaceExisting) != 0 && ::lstat(to->c_str(), &old) == 0;
    if (replacing && S_ISLNK(old.st_mode)) {
        const std::string target = RealPath(*to);
        if (target.empty() || ::stat(target.c_str(), &old) != 0) return false; // a link to nothing is not replaced
        to = target;
    }
    if (replacing) {
        if (S_ISDIR(old.st_mode) || (old.st_mode & 0222) == 0) {
            errno = EACCES;
            return false;
        }
        if (::chmod(from->c_str(), old.st_mode & 07777) != 0) return false;
        if (::geteuid() == 0 && (st.st_uid != old.st_uid || st.st_gid != old.st_gid) &&
            ::chown(from->c_str(), old.st_uid, old.st_gid) != 0)
            return false;
    }
    if ((flags & platform::kMoveFileWriteThrough) != 0) {
        UniqueFd fd(::open(from->c_str(), O_RDONLY | O_CLOEXEC));
        if (fd) ::fsync(fd.get());
    }
    int r;
    if ((flags & platform::kMoveFileReplaceExisting) != 0) {
        r = ::rename(from->c_str(), to->c_str());
        // A link's file may live on another file system: copied beside it, then put in its place.
        if (r != 0 && errno == EXDEV) r = CopyInPlace(*from, *to) ? 0 : -1;
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
    const DriveRecord drive = *d;
    std::string pattern = pathname;
    if (!pattern.empty() && (pattern.back() == '\\' || pattern.back() == ':')) pattern += "*.*";
    // The search finds programs to start (the sibling tools): with root's
    // rights, a file is found only where no one but root could have put it.
    const bool root = ::geteuid() == 0;
    if (root && !TrustedDrive(drive)) return {};
    const std::string found = portable::FirstDirMatch(*this, pattern, attributes);
    if (found.empty() || !root) return found;
    const auto folder = map_.ToNative(pattern.substr(0, pattern.find_last_of('\\') + 1));
    if (!folder) return {};
    return RootsAlone((*folder == "/" ? std::string() : *folder) + "/" + found) ? found : std::string();
}

} // namespace linuxbk
