#pragma once
// The shell: opening documents and folders.
#include <cstdint>
#include <span>
#include <string>

#include "platform/types.h"

namespace platform {

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
};

inline constexpr std::uint32_t kNimAdd = 0;
inline constexpr std::uint32_t kNimModify = 1;
inline constexpr std::uint32_t kNimDelete = 2;

} // namespace platform
