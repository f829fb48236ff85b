#include "platform/portable/shell_items.h"

#include <algorithm>
#include <cstring>

#include "platform/bytes.h"
#include "platform/portable/text.h"

namespace portable {

std::uintptr_t ShellItems::Place(std::vector<std::uint8_t> bytes) {
    const std::uintptr_t address = nextAddress_;
    nextAddress_ += (bytes.size() + 16 + 15) & ~std::uintptr_t{15};
    memory_.emplace(address, std::move(bytes));
    return address;
}

bool ShellItems::CopyMemory(std::span<std::uint8_t> destination, std::uintptr_t source) const {
    auto it = memory_.upper_bound(source);
    if (it == memory_.begin()) return false;
    --it;
    const std::size_t offset = source - it->first;
    if (offset + destination.size() > it->second.size()) return false;
    std::memcpy(destination.data(), it->second.data() + offset, destination.size());
    return true;
}

void ShellItems::Free(std::uintptr_t address) {
    if (address == 0 || address == desktop_) return;
    memory_.erase(address);
    items_.erase(address);
}

platform::Pidl ShellItems::Item(const std::string& displayName, const std::string& path) {
    const platform::Pidl pidl = Place(std::vector<std::uint8_t>(8, 0));
    items_[pidl] = Entry{displayName, path};
    return pidl;
}

platform::Pidl ShellItems::Desktop() {
    if (desktop_ == 0) desktop_ = Item("Desktop", "");
    return desktop_;
}

std::uintptr_t ShellItems::ReportRecord(platform::Pidl item1, platform::Pidl item2) {
    std::vector<std::uint8_t> record(2 * sizeof(std::uintptr_t));
    std::memcpy(record.data(), &item1, sizeof item1);
    std::memcpy(record.data() + sizeof item1, &item2, sizeof item2);
    return Place(std::move(record));
}

std::uintptr_t ShellItems::ValueRecord(std::uint32_t value) {
    std::vector<std::uint8_t> small(6, 0);
    small[0] = 6;
    platform::WriteLe32(small, 2, value);
    return Place(std::move(small));
}

std::uintptr_t ShellItems::FileInfo(platform::Pidl pidl, std::span<std::uint8_t, 352> info, std::uint32_t flags) const {
    auto it = items_.find(pidl);
    if (it == items_.end() || it->second.displayName.empty() || (flags & platform::kShgfiPidl) == 0) return 0;
    std::fill(info.begin(), info.end(), std::uint8_t{0});
    const std::string& name = it->second.displayName;
    std::memcpy(info.data() + 12, name.data(), std::min<std::size_t>(name.size(), 259));
    return 1;
}

bool ShellItems::PathOf(platform::Pidl pidl, std::span<char, 260> path) const {
    auto it = items_.find(pidl);
    if (it == items_.end() || it->second.path.empty()) return false;
    CopyCut(path, it->second.path);
    return true;
}

TrayIcons::Record TrayIcons::Read(std::span<const std::uint8_t, 88> data) {
    Record r;
    r.size = platform::ReadLe32(data, 0);
    r.window = platform::ReadLe32(data, 4);
    r.id = platform::ReadLe32(data, 8);
    r.icon = platform::ReadLe32(data, 20);
    r.tip.assign(reinterpret_cast<const char*>(data.data() + 24), 64);
    r.tip.resize(std::min(r.tip.find('\0'), r.tip.size()));
    return r;
}

bool TrayIcons::Apply(std::uint32_t message, const Record& r) {
    if (r.size != 88) return false;
    const auto key = std::make_pair(r.window, r.id);
    switch (message) {
    case platform::kNimAdd:
        if (r.window == 0 || icons_.count(key) != 0) return false;
        icons_[key] = r.icon;
        return true;
    case platform::kNimModify:
        if (icons_.count(key) == 0) return false;
        icons_[key] = r.icon;
        return true;
    case platform::kNimDelete:
        return icons_.erase(key) != 0;
    default:
        return false;
    }
}

std::string DriveDisplayName(char letter, const std::string& label, std::uint32_t driveType) {
    const char upper = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    std::string name = label;
    if (name.empty()) {
        switch (driveType) {
        case platform::kDriveRemovable:
            name = "USB Drive";
            break;
        case platform::kDriveCdrom:
            name = "CD Drive";
            break;
        case platform::kDriveRemote:
            name = "Network Drive";
            break;
        default:
            name = "Local Disk";
            break;
        }
    }
    return name + " (" + upper + ":)";
}

std::uint32_t ShellItems::Register(platform::WindowHandle window, std::uint32_t message, platform::Pidl root) {
    if (window == 0 || !IsDesktop(root)) return 0;
    windows_.emplace_back(window, message);
    return static_cast<std::uint32_t>(windows_.size());
}

} // namespace portable
