#include "notify/shell_report.h"

#include <array>
#include <cstring>

#include "platform/bytes.h"
#include "platform/services.h"
#include "platform/win_numbers.h"

namespace notify {

namespace {

constexpr const char* kCrLf = "\r\n";

struct EventName {
    std::uint32_t code;
    const char* name;
};

constexpr std::array kEventNames = {
    EventName{platform::kShcneRenameItem, "SHCNE_RENAMEITEM"},
    EventName{platform::kShcneCreate, "SHCNE_CREATE"},
    EventName{platform::kShcneDelete, "SHCNE_DELETE"},
    EventName{platform::kShcneMkDir, "SHCNE_MKDIR"},
    EventName{platform::kShcneRmDir, "SHCNE_RMDIR"},
    EventName{platform::kShcneMediaInserted, "SHCNE_MEDIAINSERTED"},
    EventName{platform::kShcneMediaRemoved, "SHCNE_MEDIAREMOVED"},
    EventName{platform::kShcneDriveRemoved, "SHCNE_DRIVEREMOVED"},
    EventName{platform::kShcneDriveAdd, "SHCNE_DRIVEADD"},
    EventName{platform::kShcneNetShare, "SHCNE_NETSHARE"},
    EventName{platform::kShcneNetUnshare, "SHCNE_NETUNSHARE"},
    EventName{platform::kShcneAttributes, "SHCNE_ATTRIBUTES"},
    EventName{platform::kShcneUpdateDir, "SHCNE_UPDATEDIR"},
    EventName{platform::kShcneUpdateItem, "SHCNE_UPDATEITEM"},
    EventName{platform::kShcneServerDisconnect, "SHCNE_SERVERDISCONNECT"},
    EventName{platform::kShcneUpdateImage, "SHCNE_UPDATEIMAGE"},
    EventName{platform::kShcneDriveAddGui, "SHCNE_DRIVEADDGUI"},
    EventName{platform::kShcneRenameFolder, "SHCNE_RENAMEFOLDER"},
    EventName{platform::kShcneFreeSpace, "SHCNE_FREESPACE"},
    EventName{platform::kShcneExtendedEvent, "SHCNE_EXTENDED_EVENT"},
    EventName{platform::kShcneAssocChanged, "SHCNE_ASSOCCHANGED"},
    EventName{platform::kShcneDiskEvents, "SHCNE_DISKEVENTS"},
    EventName{platform::kShcneGlobalEvents, "SHCNE_GLOBALEVENTS"},
    EventName{platform::kShcneAllEvents, "SHCNE_ALLEVENTS"},
    EventName{platform::kShcneInterrupt, "SHCNE_INTERRUPT"},
};

// The installer's record in the second item of its extended events: a 16-bit
// size, then the product code as 39 UTF-16 characters ("{...}" and a NUL).
constexpr std::size_t kProductKeyChars = 39;

// The product code the second item carries; "" when there is none to read.
std::string ProductCode(platform::Shell& shell, std::uintptr_t item2) {
    std::array<std::uint8_t, 2 * kProductKeyChars> bytes{};
    if (item2 == 0 || !shell.CopyMemory(bytes, item2 + 2)) return {};
    std::string code;
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        const std::uint16_t unit = platform::ReadLe<std::uint16_t>(bytes, at);
        if (unit == 0) break;
        code += unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    return code;
}

constexpr std::int32_t kAllSources = 0xFF;
constexpr std::int32_t kAllEvents = -1;

} // namespace

std::string ShellEventName(std::uint32_t EventCode) {
    for (const auto& e : kEventNames)
        if (e.code == EventCode) return e.name;
    return {};
}

std::string TrimAtNull(const std::string& Text) { return Text.substr(0, Text.find('\0')); }

std::string GetPidlDisplayName(platform::Shell& shell, std::uintptr_t Pidl) {
    std::array<std::uint8_t, 352> info{};
    if (shell.SHGetFileInfoA(Pidl, 0, info, platform::kShgfiPidl | platform::kShgfiDisplayName) == 0) return {};
    // szDisplayName follows hIcon, iIcon and dwAttributes.
    return TrimAtNull(std::string(reinterpret_cast<const char*>(info.data() + 12), 260));
}

std::string GetPidlPath(platform::Shell& shell, std::uintptr_t Pidl) {
    std::array<char, 260> path{};
    if (!shell.SHGetPathFromIDListA(Pidl, path)) return {};
    return TrimAtNull(std::string(path.data(), path.size()));
}

std::string DescribeShellReport(platform::Shell& shell, std::uintptr_t ItemsPtr, std::uint32_t EventCode) {
    std::string entry = ShellEventName(EventCode) + kCrLf;

    std::uintptr_t item1 = 0, item2 = 0;
    std::array<std::uint8_t, 2 * sizeof(std::uintptr_t)> items{};
    if (shell.CopyMemory(items, ItemsPtr)) {
        std::memcpy(&item1, items.data(), sizeof item1);
        std::memcpy(&item2, items.data() + sizeof item1, sizeof item2);
    }
    // The value in the small record the first item points at, after its
    // size; 0 when it cannot be read (the read is skipped, the value stays).
    auto value = [&] {
        std::array<std::uint8_t, 4> bytes{};
        if (item1 == 0 || !shell.CopyMemory(bytes, item1 + 2)) return std::int32_t{0};
        return static_cast<std::int32_t>(platform::ReadLe32(bytes, 0));
    };
    auto describe = [&](std::uintptr_t item, const char* which) {
        const std::string name = GetPidlDisplayName(shell, item);
        if (name.empty()) {
            entry += std::string(which) + " is invalid" + kCrLf;
        } else {
            entry += std::string(which) + " displayname: " + name + kCrLf;
            entry += std::string(which) + " path: " + GetPidlPath(shell, item) + kCrLf;
        }
    };

    switch (EventCode) {
    case platform::kShcneUpdateImage:
        entry += "Index of image in system imagelist: " + std::to_string(value()) + kCrLf;
        break;
    case platform::kShcneFreeSpace:
        if (const auto mask = static_cast<std::uint32_t>(value()); mask != 0) {
            int highest = 31;
            while ((mask >> highest) == 0) --highest;
            for (int i = 0; i <= highest; ++i)
                if ((mask >> i) & 1u) entry += std::string(1, static_cast<char>(65 + i)) + ":\\" + kCrLf;
        }
        break;
    case platform::kShcneExtendedEvent:
        switch (value()) {
        case 2:
            entry += std::string("SHCNEE_ORDERCHANGED") + kCrLf;
            if (item2 != 0) describe(item2, "changed item");
            break;
        case 4:
            entry += std::string("SHCNEE_MSI_CHANGE") + kCrLf;
            entry += "product code: " + ProductCode(shell, item2) + kCrLf;
            break;
        case 5:
            entry += std::string("SHCNEE_MSI_UNINSTALL") + kCrLf;
            entry += "product code: " + ProductCode(shell, item2) + kCrLf;
            break;
        default:
            entry += std::string("unknown extended event") + kCrLf;
            entry += "shns.dwItem2: " + std::to_string(static_cast<std::intptr_t>(item2)) + kCrLf;
            break;
        }
        break;
    default:
        if (item1 != 0) describe(item1, "first item");
        if (item2 != 0) describe(item2, "second item");
        break;
    }
    return entry + kCrLf;
}

bool IsDriveRoot(const std::string& path) {
    return path.size() >= 3 && path[1] == ':' && path[2] == '\\' && path[0] >= 'A' && path[0] <= 'Z';
}

std::uintptr_t GetSpecialFolderPidl(platform::Services& sys, platform::WindowHandle owner, std::int32_t folder) {
    platform::Pidl pidl = 0;
    if (sys.shell.SHGetSpecialFolderLocation(owner, folder, pidl) == 0) return pidl;
    return 0;
}

ShellRegistration RegisterForAllReports(platform::Services& sys, platform::WindowHandle hWnd) {
    ShellRegistration r;
    r.desktopPidl = GetSpecialFolderPidl(sys, 0, platform::kCsidlDesktop);
    if (r.desktopPidl == 0) return r;
    r.id = sys.shell.SHChangeNotifyRegister(hWnd, kAllSources, kAllEvents, platform::kWmShNotify, r.desktopPidl, true);
    return r;
}

} // namespace notify
