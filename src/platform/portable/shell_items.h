#pragma once
// The shell's item identifiers and change-report records where no Windows
// shell keeps them: blocks of bytes at addresses of their own (a report's
// wParam points at one, CopyMemory reads them back), items with a display
// name and a file-system path, the desktop item, and the windows registered
// for reports from the desktop down.
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/shell.h"
#include "platform/types.h"

namespace portable {

class ShellItems {
public:
    explicit ShellItems(std::uintptr_t firstAddress) : nextAddress_(firstAddress) {}

    // Places bytes at a fresh address (16-byte aligned, with a gap after each block).
    std::uintptr_t Place(std::vector<std::uint8_t> bytes);
    // Copies bytes from a placed block; false when they do not lie in one.
    bool CopyMemory(std::span<std::uint8_t> destination, std::uintptr_t source) const;
    // Forgets a placed block, and the item it is.
    void Free(std::uintptr_t address);
    std::size_t Blocks() const { return memory_.size(); }

    // An item the shell can name; an empty name makes one it cannot describe,
    // an empty path one without a file-system path.
    platform::Pidl Item(const std::string& displayName, const std::string& path);
    // The desktop's item, made at first use.
    platform::Pidl Desktop();
    bool IsDesktop(platform::Pidl pidl) const { return pidl != 0 && pidl == desktop_; }
    // The record of a report's two items (pointer-sized each).
    std::uintptr_t ReportRecord(platform::Pidl item1, platform::Pidl item2);
    // The small value record: a 16-bit size, then a 32-bit value at offset 2.
    std::uintptr_t ValueRecord(std::uint32_t value);

    // SHGetFileInfoA with SHGFI_PIDL | SHGFI_DISPLAYNAME: the display name at
    // offset 12 of the file-information record; 0 when the item has none.
    std::uintptr_t FileInfo(platform::Pidl pidl, std::span<std::uint8_t, 352> info, std::uint32_t flags) const;
    // SHGetPathFromIDListA: the item's path; false when it has none.
    bool PathOf(platform::Pidl pidl, std::span<char, 260> path) const;

    // Registers a window for the reports from the desktop down; its
    // registration number, or 0 when the root is not the desktop.
    std::uint32_t Register(platform::WindowHandle window, std::uint32_t message, platform::Pidl root);
    const std::vector<std::pair<platform::WindowHandle, std::uint32_t>>& Registrations() const { return windows_; }

private:
    struct Entry {
        std::string displayName, path;
    };
    std::map<std::uintptr_t, std::vector<std::uint8_t>> memory_; // blocks handed out, by address
    std::uintptr_t nextAddress_;
    std::map<platform::Pidl, Entry> items_;
    platform::Pidl desktop_ = 0;
    std::vector<std::pair<platform::WindowHandle, std::uint32_t>> windows_;
};

// How the shell names a drive's root: its label and letter ("STICK (E:)"),
// or for a drive without a label its kind ("USB Drive (E:)", "CD Drive (D:)",
// "Network Drive (Z:)", "Local Disk (C:)"); driveType is GetDriveTypeA's answer.
std::string DriveDisplayName(char letter, const std::string& label, std::uint32_t driveType);

// The notification-area icons a shell keeps, by window and id, as the
// 88-byte NOTIFYICONDATAA records of Shell_NotifyIconA add, modify and
// delete them.
class TrayIcons {
public:
    // The fields of a record the icons are kept by: cbSize (0), hWnd (4),
    // uID (8), hIcon (20) and the tip (24, 64 bytes, up to its first NUL).
    struct Record {
        std::uint32_t size = 0, window = 0, id = 0, icon = 0;
        std::string tip;
    };
    static Record Read(std::span<const std::uint8_t, 88> data);

    // Adds (kNimAdd), modifies (kNimModify) or deletes (kNimDelete) an icon;
    // false when refused: a record of another size, adding an icon that is
    // there or has no window, changing or deleting one that is not there.
    bool Apply(std::uint32_t message, const Record& record);
    std::size_t Count() const { return icons_.size(); }

private:
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> icons_; // (hWnd, uID) -> hIcon
};

} // namespace portable
