#pragma once
// The shell: opening documents and folders.
#include <cstdint>
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
};

} // namespace platform
