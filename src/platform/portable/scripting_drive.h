#pragma once
// The scripting object's drive as every backend without the real object
// answers it: the upper-case letter, the scripting drive type of the drive's
// type code, readiness, and the volume name only while the drive is ready.
#include <cstdint>
#include <string>

#include "platform/scripting.h"

namespace portable {

// The scripting drive type (kFso...) of a drive-type code (kDrive...).
std::int32_t ScriptingDriveType(std::uint32_t driveType);

platform::ScriptingDrive DescribeDrive(char letter, std::uint32_t driveType, bool ready, const std::string& label,
                                       const std::string& shareName);

} // namespace portable
