#include "notify/shell_report.h"

#include <array>
#include <cstring>

#include "platform/services.h"

namespace notify {

namespace {

constexpr const char* kCrLf = "\r\n";
constexpr std::uint32_t kUpdateImage = 0x8000;
constexpr std::uint32_t kFreeSpace = 0x40000;
constexpr std::uint32_t kExtendedEvent = 0x4000000;

struct EventName {
    std::uint32_t code;
    const char* name;
};

constexpr std::array kEventNames = {
    EventName{0x00000001, "SHCNE_RENAMEITEM"},
    EventName{0x00000002, "SHCNE_CREATE"},
    EventName{0x00000004, "SHCNE_DELETE"},
    EventName{0x00000008, "SHCNE_MKDIR"},
    EventName{0x00000010, "SHCNE_RMDIR"},
    EventName{0x00000020, "SHCNE_MEDIAINSERTED"},
    EventName{0x00000040, "SHCNE_MEDIAREMOVED"},
    EventName{0x00000080, "SHCNE_DRIVEREMOVED"},
    EventName{0x00000100, "SHCNE_DRIVEADD"},
    EventName{0x00000200, "SHCNE_NETSHARE"},
    EventName{0x00000400, "SHCNE_NETUNSHARE"},
    EventName{0x00000800, "SHCNE_ATTRIBUTES"},
    EventName{0x00001000, "SHCNE_UPDATEDIR"},
    EventName{0x00002000, "SHCNE_UPDATEITEM"},
    EventName{0x00004000, "SHCNE_SERVERDISCONNECT"},
    EventName{0x00008000, "SHCNE_UPDATEIMAGE"},
    EventName{0x00010000, "SHCNE_DRIVEADDGUI"},
    EventName{0x00020000, "SHCNE_RENAMEFOLDER"},
    EventName{0x00040000, "SHCNE_FREESPACE"},
    EventName{0x04000000, "SHCNE_EXTENDED_EVENT"},
    EventName{0x08000000, "SHCNE_ASSOCCHANGED"},
    EventName{0x0002381F, "SHCNE_DISKEVENTS"},
    EventName{0x0C0581E0, "SHCNE_GLOBALEVENTS"},
    EventName{0x7FFFFFFF, "SHCNE_ALLEVENTS"},
    EventName{0x80000000, "SHCNE_INTERRUPT"},
};

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
    // The value in the small record the first item points at, after its size.
    auto value = [&](std::uint32_t& out) {
        std::array<std::uint8_t, 4> bytes{};
        if (item1 == 0 || !shell.CopyMemory(bytes, item1 + 2)) return false;
        std::memcpy(&out, bytes.data(), sizeof out);
        return true;
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

    std::uint32_t v32 = 0;
    switch (EventCode) {
    case kUpdateImage:
        if (value(v32)) entry += "Index of image in system imagelist: " + std::to_string(v32) + kCrLf;
        break;
    case kFreeSpace:
        if (value(v32) && v32 != 0) {
            int highest = 31;
            while ((v32 >> highest) == 0) --highest;
            for (int i = 0; i <= highest; ++i)
                if ((v32 >> i) & 1u) entry += std::string(1, static_cast<char>(65 + i)) + ":\\" + kCrLf;
        }
        break;
    case kExtendedEvent:
        if (!value(v32)) break;
        if (v32 == 2) {
            entry += std::string("SHCNEE_ORDERCHANGED") + kCrLf;
            if (item2 != 0) describe(item2, "changed item");
        } else if (v32 == 4 || v32 == 5) {
            // The second item names the installer product that changed.
            const std::string product = item2 != 0 ? GetPidlDisplayName(shell, item2) : std::string{};
            entry += std::string(v32 == 4 ? "SHCNEE_MSI_CHANGE" : "SHCNEE_MSI_UNINSTALL") + kCrLf;
            entry += "product code: " + (product.empty() ? std::string("unknown") : product) + kCrLf;
        } else {
            entry += std::string("unknown extended event") + kCrLf;
            entry += "shns.dwItem2: " + std::to_string(static_cast<std::intptr_t>(item2)) + kCrLf;
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
