#pragma once
// The shell: opening documents and folders.
#include <cstdint>
#include <span>
#include <string>

#include "platform/types.h"

namespace platform {

// A shell item identifier list, as an address.
using Pidl = std::uintptr_t;

class Shell {
public:
    virtual ~Shell() = default;

    // Returns a value above 32 on success.
    virtual std::intptr_t ShellExecuteA(WindowHandle owner, const std::string& verb, const std::string& file,
                                        const std::string& parameters, const std::string& directory,
                                        std::int32_t showCommand) = 0;
    // Adds (0), modifies (1) or deletes (2) a notification-area icon described
    // by an 88-byte NOTIFYICONDATAA record. Non-zero on success.
    virtual std::int32_t Shell_NotifyIconA(std::uint32_t message, std::span<const std::uint8_t, 88> data) = 0;

    // The item identifier list of a special folder (kCsidlDesktop); 0 on success.
    virtual std::int32_t SHGetSpecialFolderLocation(WindowHandle owner, std::int32_t folder, Pidl& pidl) = 0;
    // Registers a window for the shell's change reports, delivered as message
    // with wParam pointing at the two items and lParam the event code.
    // The registration number, 0 on failure.
    virtual std::uint32_t SHChangeNotifyRegister(WindowHandle window, std::int32_t sources, std::int32_t events,
                                                 std::uint32_t message, Pidl root, bool recursive) = 0;
    // Fills the 352-byte SHFILEINFOA record for an item identifier list
    // (flags kShgfiPidl | kShgfiDisplayName); non-zero on success.
    virtual std::uintptr_t SHGetFileInfoA(Pidl pidl, std::uint32_t attributes, std::span<std::uint8_t, 352> info,
                                          std::uint32_t flags) = 0;
    // The file-system path of an item into a buffer of 260 characters;
    // false when the item has none.
    virtual bool SHGetPathFromIDListA(Pidl pidl, std::span<char, 260> path) = 0;
    // Copies bytes from an address the shell handed the program (a report's
    // items, the small value record an item points at); false when it cannot.
    virtual bool CopyMemory(std::span<std::uint8_t> destination, std::uintptr_t source) = 0;
};

inline constexpr std::int32_t kCsidlDesktop = 0;
inline constexpr std::uint32_t kShgfiDisplayName = 0x200;
inline constexpr std::uint32_t kShgfiPidl = 0x8;

inline constexpr std::uint32_t kNimAdd = 0;
inline constexpr std::uint32_t kNimModify = 1;
inline constexpr std::uint32_t kNimDelete = 2;

} // namespace platform
