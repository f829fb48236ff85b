// The shell: opening documents and folders, the notification-area icon, and
// the scripting object's drive objects.
#include "platform/win32/raii.h"

#include <shellapi.h>
#include <shlobj.h>
#include <winnetwk.h>

#include <algorithm>
#include <cstring>

#include "core/vb.h"
#include "platform/bytes.h"
#include "platform/win32/backend.h"

namespace win32 {

namespace {

std::uint32_t U32(std::span<const std::uint8_t, 88> data, std::size_t at) { return platform::ReadLe32(data, at); }

// Window and icon handles are 32-bit values sign-extended on 64-bit Windows.
template <typename H> H Handle32(std::uint32_t value) {
    return reinterpret_cast<H>(static_cast<std::intptr_t>(static_cast<std::int32_t>(value)));
}

} // namespace

std::intptr_t Shell::ShellExecuteA(platform::WindowHandle owner, const std::string& verb, const std::string& file,
                                   const std::string& parameters, const std::string& directory,
                                   std::int32_t showCommand) {
    HINSTANCE result = ::ShellExecuteA(ToHwnd(owner), verb.empty() ? nullptr : verb.c_str(), file.c_str(),
                                       parameters.empty() ? nullptr : parameters.c_str(),
                                       directory.empty() ? nullptr : directory.c_str(), showCommand);
    return reinterpret_cast<std::intptr_t>(result);
}

// The record is the 88-byte NOTIFYICONDATAA of the first shell version
// (cbSize, hWnd, uID, uFlags, uCallbackMessage, hIcon: 4 bytes each, then a
// 64-byte tip); the system receives the same fields in its own record.
std::int32_t Shell::Shell_NotifyIconA(std::uint32_t message, std::span<const std::uint8_t, 88> data) {
    if (U32(data, 0) != 88) return 0;
    NOTIFYICONDATAA nid{};
    nid.cbSize = sizeof nid;
    nid.hWnd = Handle32<HWND>(U32(data, 4));
    nid.uID = U32(data, 8);
    nid.uFlags = U32(data, 12) & (NIF_MESSAGE | NIF_ICON | NIF_TIP);
    nid.uCallbackMessage = U32(data, 16);
    nid.hIcon = Handle32<HICON>(U32(data, 20));
    std::memcpy(nid.szTip, data.data() + 24, 64);
    nid.szTip[63] = '\0';
    return ::Shell_NotifyIconA(message, &nid) ? 1 : 0;
}

// The shell's change reports. shell32 has exported SHChangeNotifyRegister by
// ordinal 2 since its first version; it is looked up by that ordinal at first
// use. The watched item's recursive flag is the 32-bit True, all bits set.
Shell::RegisterFunction Shell::SystemRegisterFunction() {
    return Export<RegisterFunction>("shell32.dll", MAKEINTRESOURCEA(2));
}

std::uint32_t Shell::SHChangeNotifyRegister(platform::WindowHandle window, std::int32_t sources, std::int32_t events,
                                            std::uint32_t message, platform::Pidl root, bool recursive) {
    static const RegisterFunction system = SystemRegisterFunction();
    const RegisterFunction fn = ownRegister_ ? register_ : system;
    if (fn == nullptr) return 0;
    const NotifyEntry entry{reinterpret_cast<const void*>(root), recursive ? -1 : 0};
    return static_cast<std::uint32_t>(fn(ToHwnd(window), sources, events, message, 1, &entry));
}

std::int32_t Shell::SHGetSpecialFolderLocation(platform::WindowHandle owner, std::int32_t folder,
                                               platform::Pidl& pidl) {
    LPITEMIDLIST list = nullptr;
    const HRESULT hr = ::SHGetSpecialFolderLocation(ToHwnd(owner), folder, &list);
    if (SUCCEEDED(hr)) pidl = reinterpret_cast<platform::Pidl>(list);
    return hr;
}

// The caller's record is SHFILEINFOA as a 32-bit process lays it out: hIcon
// (4 bytes), iIcon (4), dwAttributes (4), szDisplayName (260), szTypeName (80).
std::uintptr_t Shell::SHGetFileInfoA(platform::Pidl pidl, std::uint32_t attributes, std::span<std::uint8_t, 352> info,
                                     std::uint32_t flags) {
    SHFILEINFOA found{};
    const DWORD_PTR result = ::SHGetFileInfoA(reinterpret_cast<LPCSTR>(pidl), attributes, &found, sizeof found, flags);
    if (result == 0) return 0;
    std::fill(info.begin(), info.end(), std::uint8_t{0});
    const auto icon = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(found.hIcon));
    const auto index = static_cast<std::uint32_t>(found.iIcon);
    platform::WriteLe32(info, 0, icon);
    platform::WriteLe32(info, 4, index);
    platform::WriteLe32(info, 8, static_cast<std::uint32_t>(found.dwAttributes));
    std::memcpy(info.data() + 12, found.szDisplayName, sizeof found.szDisplayName);
    std::memcpy(info.data() + 272, found.szTypeName, sizeof found.szTypeName);
    info[271] = 0;
    info[351] = 0;
    return result;
}

bool Shell::SHGetPathFromIDListA(platform::Pidl pidl, std::span<char, 260> path) {
    char found[MAX_PATH + 1]{};
    if (!::SHGetPathFromIDListA(reinterpret_cast<LPCITEMIDLIST>(pidl), found)) return false;
    const std::size_t n = ::strnlen(found, path.size() - 1);
    std::memcpy(path.data(), found, n);
    path[n] = '\0';
    return true;
}

// Reading the own process's memory through the system fails cleanly on an
// address that is not readable.
bool Shell::CopyMemory(std::span<std::uint8_t> destination, std::uintptr_t source) {
    if (source == 0) return false;
    SIZE_T copied = 0;
    return ::ReadProcessMemory(::GetCurrentProcess(), reinterpret_cast<LPCVOID>(source), destination.data(),
                               destination.size(), &copied) != FALSE &&
           copied == destination.size();
}

namespace {

std::int32_t ScriptingType(UINT driveType) {
    switch (driveType) {
    case DRIVE_REMOVABLE:
        return platform::kFsoRemovable;
    case DRIVE_FIXED:
        return platform::kFsoFixed;
    case DRIVE_REMOTE:
        return platform::kFsoNetwork;
    case DRIVE_CDROM:
        return platform::kFsoCdRom;
    case DRIVE_RAMDISK:
        return platform::kFsoRamDisk;
    default:
        return platform::kFsoUnknown;
    }
}

} // namespace

FileSystemObject::FileSystemObject()
    : driveType_([](const std::string& root) -> std::uint32_t { return ::GetDriveTypeA(root.c_str()); }) {}

// A letter without a root directory is no drive; every other one is, a drive
// of a type the system cannot tell included (type code 0, unknown).
std::optional<platform::ScriptingDrive> FileSystemObject::describe(char letter) {
    const std::string root = std::string(1, letter) + ":\\";
    const UINT type = driveType_(root);
    if (type == DRIVE_NO_ROOT_DIR) return std::nullopt;
    platform::ScriptingDrive d;
    d.DriveLetter = std::string(1, letter);
    d.DriveType = ScriptingType(type);
    // A drive without its medium asks the user nothing.
    const UINT oldMode = ::SetErrorMode(SEM_FAILCRITICALERRORS);
    char label[MAX_PATH + 1]{};
    d.IsReady =
        ::GetVolumeInformationA(root.c_str(), label, sizeof label, nullptr, nullptr, nullptr, nullptr, 0) != FALSE;
    ::SetErrorMode(oldMode);
    if (d.IsReady) d.VolumeName = label;
    if (type == DRIVE_REMOTE) {
        const std::string local = std::string(1, letter) + ":";
        char remote[MAX_PATH + 1]{};
        DWORD size = sizeof remote;
        if (::WNetGetConnectionA(local.c_str(), remote, &size) == NO_ERROR) d.ShareName = remote;
    }
    return d;
}

std::optional<platform::ScriptingDrive> FileSystemObject::GetDrive(const std::string& root) {
    if (root.empty()) return std::nullopt;
    const char letter = vb::UpperChar(root[0]);
    if (letter < 'A' || letter > 'Z') return std::nullopt;
    if (root.size() > 1 && root[1] != ':') return std::nullopt;
    return describe(letter);
}

std::vector<platform::ScriptingDrive> FileSystemObject::Drives() {
    std::vector<platform::ScriptingDrive> all;
    const DWORD mask = ::GetLogicalDrives();
    for (int i = 0; i < 26; ++i)
        if ((mask & (1u << i)) != 0)
            if (auto d = describe(static_cast<char>('A' + i))) all.push_back(std::move(*d));
    return all;
}

} // namespace win32
