#pragma once
// The size of a file system (statfs), asked directly or, for a mount that
// may not answer (a network share, a FUSE file system), in a process of its
// own with a time limit: a server that no longer answers costs the limit
// once and never holds this process, which can always end.
#include <cstdint>
#include <optional>
#include <string>

namespace linuxbk {

struct SpaceInfo {
    std::uint64_t total = 0, free = 0, available = 0;
    std::uint32_t nameMax = 255;
};

std::optional<SpaceInfo> SpaceOf(const std::string& path);
// Nothing on failure or when no answer came within the limit.
std::optional<SpaceInfo> SpaceOfApart(const std::string& path, std::uint32_t milliseconds);

} // namespace linuxbk
