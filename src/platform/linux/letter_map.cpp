#include "platform/linux/letter_map.h"

#include <algorithm>
#include <atomic>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "platform/types.h"

namespace linuxbk {

bool IsSystemMount(const MountEntry& m) {
    return m.fsType == "squashfs" || m.mountPoint == "/boot/efi" || m.mountPoint == "/efi";
}

std::uint32_t DriveTypeOfDisk(const DiskInfo& d) {
    if (d.name.starts_with("zram") || d.name.starts_with("ram")) return platform::kDriveRamdisk;
    if (d.kind == DiskKind::CdRom) return platform::kDriveCdrom;
    if (d.removable || d.hotplug || d.kind == DiskKind::Floppy) return platform::kDriveRemovable;
    return platform::kDriveFixed;
}

LetterMap::LetterMap(Sysfs sysfs, std::string mountInfoPath)
    : sysfs_(std::move(sysfs)), mountInfoPath_(std::move(mountInfoPath)) {
    proc_ = mountInfoPath_.starts_with("/proc/");
    readTable();
}

void LetterMap::readTable() {
    if (proc_) {
        if (!watch_) watch_.reset(::open(mountInfoPath_.c_str(), O_RDONLY | O_CLOEXEC));
        if (!watch_) return;
        std::string text;
        char chunk[16384];
        ::lseek(watch_.get(), 0, SEEK_SET);
        for (;;) {
            const ssize_t got = ::read(watch_.get(), chunk, sizeof chunk);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            text.append(chunk, static_cast<std::size_t>(got));
        }
        lastText_ = std::move(text);
    } else {
        lastText_ = ReadFile(mountInfoPath_).value_or(std::string());
    }
    lastMounts_ = ParseMountInfo(lastText_);
    Build(lastMounts_);
}

void LetterMap::Pin(const std::vector<MountEntry>& mounts) {
    pins_.push_back(mounts);
    Build(mounts);
}

void LetterMap::Unpin() {
    if (pins_.empty()) return;
    pins_.pop_back();
    if (!pins_.empty()) {
        Build(pins_.back());
    } else {
        Build(lastMounts_); // the table last read; Sync reads a newer one when there is one
    }
}

void LetterMap::Sync() {
    if (!pins_.empty()) return;
    if (proc_ && watch_) {
        pollfd p{watch_.get(), POLLPRI, 0};
        if (::poll(&p, 1, 0) > 0 && (p.revents & (POLLPRI | POLLERR)) != 0) readTable();
        return;
    }
    if (!proc_) {
        const auto text = ReadFile(mountInfoPath_).value_or(std::string());
        if (text != lastText_) {
            lastText_ = text;
            lastMounts_ = ParseMountInfo(lastText_);
            Build(lastMounts_);
        }
    }
}

void LetterMap::Refresh() {
    if (pins_.empty()) readTable();
}

void LetterMap::Build(const std::vector<MountEntry>& mounts) {
    if (!keepDevices_) {
        resolved_.clear();
        optical_.reset();
        disks_.clear();
    }
    mounts_ = mounts;
    std::vector<DriveRecord> found;
    if (auto root = rootDrive(mounts)) found.push_back(std::move(*root));
    addMounted(mounts, found);
    addOptical(found);
    assignLetters(found);
    keepSerials(found);
    drives_ = std::move(found);
    ++generation_;
}

bool LetterMap::Known(const std::vector<DriveRecord>& found, const std::string& key) {
    return std::any_of(found.begin(), found.end(), [&](const DriveRecord& d) { return d.key == key; });
}

void LetterMap::ForgetDevice(std::uint32_t major, std::uint32_t minor, const std::string& name) {
    optical_.reset(); // a drive may have come or gone
    std::erase_if(disks_, [&](const auto& kept) {
        return kept.first == name || (kept.second.major == major && kept.second.minor == minor);
    });
    std::erase_if(resolved_, [&](const auto& kept) {
        const auto& block = kept.second.block;
        return kept.first == std::make_pair(major, minor) ||
               (!name.empty() && block && (block->name == name || block->diskName == name));
    });
}

std::optional<DiskInfo> LetterMap::BusDisk(const std::string& diskName) const {
    // Kept until the next build, or while events are watched until the disk's event.
    if (const auto kept = disks_.find(diskName); kept != disks_.end()) return kept->second;
    auto disk = sysfs_.Disk(diskName, Sysfs::Detail::Bus);
    if (disk) disks_.emplace(diskName, *disk);
    return disk;
}

void LetterMap::resolve(DriveRecord& d) const {
    if (d.major != 0) {
        const auto kept = resolved_.find({d.major, d.minor});
        if (kept != resolved_.end()) {
            d.block = kept->second.block;
            d.driveType = kept->second.driveType;
            return;
        }
    }
    resolveFromSysfs(d);
    // Only what sysfs answered is kept: a device it does not know yet may be
    // there at the next look.
    if (d.major != 0 && d.block) resolved_[{d.major, d.minor}] = {d.block, d.driveType};
}

void LetterMap::resolveFromSysfs(DriveRecord& d) const {
    if (d.major != 0) d.block = sysfs_.ByNumber(d.major, d.minor);
    if (!d.block && !d.devNode.empty()) {
        std::string real = RealPath(d.devNode);
        d.block = sysfs_.ByName(Base(real.empty() ? d.devNode : real));
    }
    if (d.block) {
        if (const auto disk = BusDisk(d.block->diskName)) d.driveType = DriveTypeOfDisk(*disk);
    }
}

// The root file system is C:, whatever it is.
std::optional<DriveRecord> LetterMap::rootDrive(const std::vector<MountEntry>& mounts) const {
    for (auto it = mounts.rbegin(); it != mounts.rend(); ++it) {
        if (it->mountPoint != "/") continue;
        DriveRecord d;
        d.kind = DriveKind::Root;
        d.letter = 'C';
        d.mountPoint = "/";
        d.mountId = it->id;
        d.fsType = it->fsType;
        d.source = it->source;
        d.major = it->major;
        d.minor = it->minor;
        d.driveType = IsRamFileSystem(d.fsType) ? platform::kDriveRamdisk : platform::kDriveFixed;
        if (it->source.starts_with("/dev/")) {
            d.devNode = it->source;
            resolve(d);
        } else {
            d.major = d.minor = 0;
        }
        d.key = d.devNode.empty() ? std::string("root") : d.devNode;
        return d;
    }
    return std::nullopt;
}

// Local file systems by their device (mounted again, a device counts once)
// and network shares by their mount point.
void LetterMap::addMounted(const std::vector<MountEntry>& mounts, std::vector<DriveRecord>& found) const {
    for (const auto& m : mounts) {
        if (m.mountPoint == "/" || IsSystemMount(m)) continue;
        DriveRecord d;
        d.mountPoint = m.mountPoint;
        d.mountId = m.id;
        d.fsType = m.fsType;
        d.source = m.source;
        if (m.source.starts_with("/dev/")) {
            d.kind = DriveKind::Local;
            d.devNode = m.source;
            d.key = m.source;
            d.major = m.major;
            d.minor = m.minor;
            d.driveType = platform::kDriveFixed;
            if (Known(found, d.key)) continue; // the same device mounted again (a bind mount)
            resolve(d);
            if (d.block && d.block->name.starts_with("sr")) d.kind = DriveKind::Optical;
        } else if (IsNetworkFileSystem(m.fsType)) {
            d.kind = DriveKind::Network;
            d.key = "net:" + m.mountPoint;
            d.driveType = platform::kDriveRemote;
            d.shareName = ShareNameOf(m.fsType, m.source);
            if (Known(found, d.key)) continue;
        } else {
            continue;
        }
        found.push_back(std::move(d));
    }
}

// Optical drives are drives with or without a medium.
void LetterMap::addOptical(std::vector<DriveRecord>& found) const {
    if (!optical_) optical_ = sysfs_.All("sr");
    for (const auto& b : *optical_) {
        if (!b.name.starts_with("sr") || b.partition != 0 || Known(found, b.devNode)) continue;
        DriveRecord d;
        d.kind = DriveKind::Optical;
        d.key = b.devNode;
        d.devNode = b.devNode;
        d.major = b.major;
        d.minor = b.minor;
        d.block = b;
        d.driveType = platform::kDriveCdrom;
        found.push_back(std::move(d));
    }
}

// Letters: kept while present, else the lowest free one from D. The drives
// end in letter order; more than 24 get no letter and are left out.
void LetterMap::assignLetters(std::vector<DriveRecord>& found) {
    bool used[26] = {};
    used['C' - 'A'] = true;
    for (auto& d : found) {
        if (d.kind == DriveKind::Root) continue;
        for (const auto& [key, letter] : kept_) {
            if (key == d.key && !used[letter - 'A']) {
                d.letter = letter;
                used[letter - 'A'] = true;
                break;
            }
        }
    }
    for (auto& d : found) {
        if (d.letter != 0) continue;
        for (char l = 'D'; l <= 'Z'; ++l) {
            if (!used[l - 'A']) {
                d.letter = l;
                used[l - 'A'] = true;
                break;
            }
        }
    }
    std::erase_if(found, [](const DriveRecord& d) { return d.letter == 0; });
    std::sort(found.begin(), found.end(),
              [](const DriveRecord& a, const DriveRecord& b) { return a.letter < b.letter; });
    kept_.clear();
    for (const auto& d : found) kept_.emplace_back(d.key, d.letter);
}

// A mount the last build saw keeps its serial; one it did not gets a new one.
void LetterMap::keepSerials(std::vector<DriveRecord>& found) {
    static std::atomic<std::uint64_t> nextSerial{0};
    decltype(serials_) serials;
    for (auto& d : found) {
        if (!d.Ready()) continue;
        const auto key = std::make_tuple(d.major, d.minor, d.mountId, d.mountPoint);
        const auto it = serials_.find(key);
        d.mountSerial = it != serials_.end() ? it->second : ++nextSerial;
        serials.emplace(key, d.mountSerial);
    }
    serials_ = std::move(serials);
}

const std::vector<DriveRecord>& LetterMap::Drives() {
    Sync();
    return drives_;
}

const std::vector<MountEntry>& LetterMap::Mounts() {
    Sync();
    return mounts_;
}

const DriveRecord* LetterMap::Find(char letter) {
    Sync();
    const char l = vb::UpperChar(letter);
    for (const auto& d : drives_)
        if (d.letter == l) return &d;
    return nullptr;
}

const DriveRecord* LetterMap::DriveOf(const std::string& windowsPath) {
    if (windowsPath.empty()) return nullptr;
    if (windowsPath.size() >= 2 && windowsPath[1] != ':') return nullptr;
    return Find(windowsPath[0]);
}

void LetterMap::Redirect(std::string nativeFolder, std::string toFolder, std::vector<std::string> names) {
    redirect_ = Redirection{std::move(nativeFolder), std::move(toFolder), std::move(names)};
}

std::optional<std::string> LetterMap::ToNative(const std::string& windowsPath) {
    auto native = toNative(windowsPath);
    if (native && redirect_) {
        const auto slash = native->rfind('/');
        const std::string folder = slash == 0 ? std::string("/") : native->substr(0, slash);
        const std::string name = native->substr(slash + 1);
        if (folder == redirect_->from &&
            std::find(redirect_->names.begin(), redirect_->names.end(), name) != redirect_->names.end())
            return redirect_->to + "/" + name;
    }
    return native;
}

std::optional<std::string> LetterMap::toNative(const std::string& windowsPath) {
    const DriveRecord* d = DriveOf(windowsPath);
    if (d == nullptr || !d->Ready()) return std::nullopt;
    std::string rest = windowsPath.size() > 2 ? windowsPath.substr(2) : std::string();
    for (char& c : rest)
        if (c == '\\') c = '/';
    while (rest.starts_with("//")) rest.erase(0, 1);
    std::string base = d->mountPoint;
    if (base == "/") base.clear();
    if (rest.empty() || rest == "/") return base.empty() ? std::string("/") : base;
    if (rest.front() != '/') rest.insert(rest.begin(), '/');
    return base + rest;
}

std::optional<std::string> LetterMap::ToWindows(const std::string& nativePath) {
    Sync();
    const DriveRecord* best = nullptr;
    for (const auto& d : drives_) {
        if (!d.Ready() || !StartsWithPath(nativePath, d.mountPoint)) continue;
        if (best == nullptr || d.mountPoint.size() > best->mountPoint.size()) best = &d;
    }
    if (best == nullptr) return std::nullopt;
    std::string rest = best->mountPoint == "/" ? nativePath : nativePath.substr(best->mountPoint.size());
    for (char& c : rest)
        if (c == '/') c = '\\';
    while (!rest.empty() && rest.front() == '\\') rest.erase(0, 1);
    return best->Root() + rest;
}

} // namespace linuxbk
