#pragma once
// The search behind Dir on backends that answer it with their own
// FindFirstFileA: the first name found whose attributes lie within the
// ones asked for (read-only, archive and normal always pass).
#include <cstdint>
#include <string>

#include "platform/volumes.h"

namespace portable {

// The first matching name of the search pattern; "" when there is none.
std::string FirstDirMatch(platform::Volumes& volumes, const std::string& pattern, std::uint32_t attributes);

} // namespace portable
